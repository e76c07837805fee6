#!/usr/bin/env python3
"""ruvo decode and ruvo dbc on the shipped logs and databases: one line per frame, the JSON form
agrees with canmatrix on every frame a database knows, and bad arguments are refused.

Usage: ruvo_decode_test.py RUVO DATA_DIR"""

import json
import logging
import math
import os
import subprocess
import sys
import warnings

warnings.simplefilter("ignore")
logging.disable(logging.CRITICAL)
import canmatrix.formats  # noqa: E402

failures = []


def check(condition, what):
    if not condition:
        failures.append(what)


def run(ruvo, *args):
    return subprocess.run([ruvo, *args], capture_output=True, text=True)


def main():
    ruvo, data = sys.argv[1], sys.argv[2]
    dbc = os.path.join(data, "dbc", "ford_lincoln_base_pt.dbc")
    log = os.path.join(data, "logs", "candump.log")
    with open(log) as f:
        lines = [l for l in f.read().splitlines() if l.strip()]

    text = run(ruvo, "decode", "--dbc", dbc, log)
    check(text.returncode == 0, "decode exits 0: " + text.stderr)
    out = text.stdout.splitlines()
    check(len(out) == len(lines), "one line per frame: %d for %d" % (len(out), len(lines)))
    check(any(" 23A Suspension_Data SuspClkSync_No_Rq=" in l for l in out), "0x23A named and decoded")
    check(any(l.endswith(" 21A ?") for l in out), "an unknown id shows ?")

    js = run(ruvo, "decode", "--dbc", dbc + "@0", "--json", log)
    check(js.returncode == 0, "decode --json exits 0: " + js.stderr)
    matrix = canmatrix.formats.loadp_flat(dbc)
    frames = {f.arbitration_id.id: f for f in matrix.frames if not f.arbitration_id.extended}
    decoded = 0
    for line, raw in zip(js.stdout.splitlines(), lines):
        obj = json.loads(line)
        payload = bytes.fromhex(raw.split()[2].split("#")[1])
        frame = frames.get(obj["id"])
        check((frame.name if frame else None) == obj["name"], "name of %s" % raw)
        if frame is None or len(payload) != frame.size:
            continue
        theirs = frame.decode(bytearray(payload))
        check(set(theirs) == set(obj["signals"]), "signals of %s" % raw)
        for name, value in obj["signals"].items():
            t = float(theirs[name].phys_value)
            check(value == t or math.isclose(value, t, rel_tol=1e-9), "%s %s: %r, canmatrix %r" % (raw, name, value, t))
            decoded += 1
    check(decoded > 1000, "values compared: %d" % decoded)

    other = run(ruvo, "decode", "--dbc", dbc + "@1", log)  # the log is on vcan0
    check(all(l.endswith(" ?") for l in other.stdout.splitlines()), "a database on channel 1 ignores vcan0")
    check(run(ruvo, "decode", "--dbc", dbc + "@64", log).returncode == 2, "channel 64 refused")
    check(run(ruvo, "decode", log).returncode == 2, "decode without --dbc refused")
    missing = run(ruvo, "decode", "--dbc", "no_such.dbc", log)
    check(missing.returncode == 1 and "no_such.dbc" in missing.stderr, "a missing database named")

    listing = run(ruvo, "dbc", dbc, "--message", "0x23A")
    check(listing.returncode == 0 and listing.stdout.startswith("0x23A Suspension_Data 8 bytes"),
          "dbc --message by id: " + listing.stdout[:80])
    check(" SuspFrnt_L_Actl " in listing.stdout, "dbc lists the signals")
    filtered = run(ruvo, "dbc", dbc, "--signal", "SuspFrnt_L_Actl").stdout.splitlines()
    check([l for l in filtered if l.startswith("  ")] == [l for l in filtered if "SuspFrnt_L_Actl" in l],
          "dbc --signal keeps only matching signals")
    check(run(ruvo, "dbc", dbc, "--message", "NoSuchMessage").returncode == 1, "no match exits 1")

    for f in failures:
        print("FAIL", f)
    print("%d passed, %d failed" % (0 if failures else 1, 1 if failures else 0))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
