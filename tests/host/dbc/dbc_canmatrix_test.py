#!/usr/bin/env python3
"""canmatrix and our codec decode the same random payloads of every message of every test
database: the same signals present, the same raw values, physical values within 1e-9 relative;
and our encoding of each physical value gives the payload's bits back.

Usage: dbc_canmatrix_test.py DBC_DECODE_TOOL DBC_DIR"""

import json
import logging
import math
import os
import random
import subprocess
import sys
import tempfile
import warnings

warnings.simplefilter("ignore")
logging.disable(logging.CRITICAL)
import canmatrix.formats  # noqa: E402

PAYLOADS_PER_MESSAGE = 20


def close(a, b):
    if a == b:
        return True
    return abs(a - b) <= 1e-9 * max(abs(a), abs(b))


def check_file(tool, path, rng):
    matrix = canmatrix.formats.loadp_flat(path)
    frames = [f for f in matrix.frames if f.arbitration_id.id != 0x40000000 and f.size > 0]
    cases = []
    for frame in frames:
        for _ in range(PAYLOADS_PER_MESSAGE):
            data = bytes(rng.getrandbits(8) for _ in range(frame.size))
            cases.append((frame, data))
    with tempfile.NamedTemporaryFile("w", suffix=".txt", delete=False) as f:
        for frame, data in cases:
            raw_id = frame.arbitration_id.id | (0x80000000 if frame.arbitration_id.extended else 0)
            f.write("%x %s\n" % (raw_id, data.hex()))
        frames_file = f.name
    try:
        out = subprocess.run([tool, path, frames_file], check=True, capture_output=True, text=True)
    finally:
        os.unlink(frames_file)
    ours = [json.loads(line) for line in out.stdout.splitlines()]
    assert len(ours) == len(cases), (path, len(ours), len(cases))
    failures = []
    values = 0
    for (frame, data), mine in zip(cases, ours):
        where = "%s %s 0x%x %s" % (os.path.basename(path), frame.name, frame.arbitration_id.id, data.hex())
        if mine["name"] != frame.name:
            failures.append("%s: we found message %r" % (where, mine["name"]))
            continue
        if mine["reencode_mismatch"]:
            failures.append("%s: encoding back changed %s" % (where, mine["reencode_mismatch"]))
        theirs = frame.decode(bytearray(data))
        if set(theirs) != set(mine["signals"]):
            failures.append("%s: signals differ: only canmatrix %s, only ours %s" % (
                where, sorted(set(theirs) - set(mine["signals"])), sorted(set(mine["signals"]) - set(theirs))))
            continue
        for name, decoded in theirs.items():
            phys, raw = mine["signals"][name]
            values += 1
            # canmatrix gives signed raw values as negative numbers; ours are the bits.
            mask = (1 << decoded.signal.size) - 1
            if not decoded.signal.is_float and int(decoded.raw_value) & mask != raw:
                failures.append("%s %s: raw %s, ours %s" % (where, name, decoded.raw_value, raw))
            theirs_phys = float(decoded.phys_value)
            if not (math.isnan(theirs_phys) and math.isnan(phys)) and not close(theirs_phys, phys):
                failures.append("%s %s: physical %r, ours %r" % (where, name, theirs_phys, phys))
    return len(frames), values, failures


def main():
    tool, directory = sys.argv[1], sys.argv[2]
    rng = random.Random(17)
    all_failures = []
    for name in sorted(os.listdir(directory)):
        if not name.endswith(".dbc"):
            continue
        messages, values, failures = check_file(tool, os.path.join(directory, name), rng)
        print("%s: %d messages, %d values compared, %d differences" % (name, messages, values, len(failures)))
        all_failures += failures
    for f in all_failures[:40]:
        print("DIFF", f)
    print("%d passed, %d failed" % (0 if all_failures else 1, 1 if all_failures else 0))
    return 1 if all_failures else 0


if __name__ == "__main__":
    sys.exit(main())
