#!/usr/bin/python3
"""CAN logs between "ruvo convert-log" and python-can's readers and writers, frame for frame.

1. A log with every kind of frame (classic, CAN FD with BRS and ESI, extended, remote, error
   frames, four channels, both directions, microsecond stamps) converted by ruvo to each format
   (suffixes in any case) reads back in python-can as the frames of the source.
2. Files python-can writes (ASCWriter, BLFWriter, CanutilsLogWriter) convert in ruvo to the frames
   python-can reads from them.
3. The real logs of tests/data/logs read in ruvo as in python-can, and survive a round through
   every format unchanged.
Usage: log_python_can_test.py RUVO DATA_DIR
"""
import os
import subprocess
import sys
import tempfile

import can

RUVO, DATA = sys.argv[1], sys.argv[2]

SOURCE = """\
(1700000000.000250) can0 123#1122
(1700000000.000251) can1 1BB36010##1000102030405060708090A0B
(1700000000.002003) can0 7FF#R5 T
(1700000000.003004) can2 055##2000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F T
(1700000000.004005) can0 20000080#
(1700000000.500000) can3 1FFFFFFF# T
(1700000000.500001) can3 00000001#0102030405060708
(1700000000.600000) can1 100##3112233 T
(1700000000.700000) can1 101##0AABBCCDDEEFF0011
(1700000001.999999) can0 000#R
(1700000002.000000) can63 7FF#FFFFFFFFFFFFFFFF
"""


def norm(m):
    """One line per message with what a log must keep."""
    us = round(m.timestamp * 1e6)
    if m.is_error_frame:
        return f"{us} error"
    ch = f"can{m.channel}" if isinstance(m.channel, int) else m.channel
    payload = f"R{m.dlc}" if m.is_remote_frame else bytes(m.data).hex().upper()
    kind = ("fd" + ("B" if m.bitrate_switch else "") + ("E" if m.error_state_indicator else "")) if m.is_fd else "cc"
    ident = f"{m.arbitration_id:08X}x" if m.is_extended_id else f"{m.arbitration_id:03X}"
    return f"{us} {ch} {ident} {kind} {'rx' if m.is_rx else 'tx'} {payload}"


def python_read(path):
    lower = path.lower()
    if lower.endswith(".asc"):
        reader = can.ASCReader(path, relative_timestamp=False)
    elif lower.endswith(".blf"):
        reader = can.BLFReader(path)
    else:
        reader = can.CanutilsLogReader(path)
    return [norm(m) for m in reader]


def ruvo(*args):
    r = subprocess.run([RUVO, *args], capture_output=True, text=True, timeout=60)
    if r.returncode != 0:
        raise AssertionError(f"ruvo {' '.join(args)}: {r.returncode}: {r.stderr}")
    return r.stdout


def ruvo_read(path, work):
    """What ruvo reads from `path`, as candump text read by python-can."""
    out = os.path.join(work, "as_read.log")
    ruvo("convert-log", path, out)
    return python_read(out)


def same(what, got, expected):
    if got != expected:
        lines = [f"{what}: {len(got)} frames, expected {len(expected)}"]
        for i, (g, e) in enumerate(zip(got, expected)):
            if g != e:
                lines.append(f"  first difference at frame {i + 1}:\n    got      {g}\n    expected {e}")
                break
        raise AssertionError("\n".join(lines))
    print(f"ok {what}: {len(got)} frames")


def python_messages():
    m = can.Message
    return [
        m(timestamp=1700000000.000250, arbitration_id=0x123, data=b"\x11\x22", channel=0, is_extended_id=False),
        m(timestamp=1700000000.001000, arbitration_id=0x1BB36010, data=bytes(range(12)), channel=1, is_fd=True,
          bitrate_switch=True, is_extended_id=True),
        m(timestamp=1700000000.002003, arbitration_id=0x7FF, channel=0, is_remote_frame=True, dlc=5,
          is_extended_id=False, is_rx=False),
        m(timestamp=1700000000.003004, arbitration_id=0x55, data=bytes(range(64)), channel=2, is_fd=True,
          error_state_indicator=True, is_extended_id=False, is_rx=False),
        m(timestamp=1700000000.004005, channel=0, is_error_frame=True),
        m(timestamp=1700000001.999999, arbitration_id=0x1FFFFFFF, data=b"", channel=3, is_extended_id=True),
        m(timestamp=1700000002.5, arbitration_id=0x1, data=b"\x00" * 8, channel=63, is_extended_id=False),
    ] + [m(timestamp=1700000003 + i * 0.000137, arbitration_id=i % 0x800, data=bytes([i % 256] * (i % 9)),
           channel=i % 3, is_extended_id=False, is_rx=i % 2 == 0) for i in range(5000)]


def main():
    with tempfile.TemporaryDirectory() as work:
        # 1. Ours, read by python-can.
        source = os.path.join(work, "source.log")
        with open(source, "w") as f:
            f.write(SOURCE)
        expected = python_read(source)
        assert len(expected) == 11, expected
        for name in ("ours.log", "ours.asc", "ours.blf", "OURS2.ASC", "ours2.Blf", "ours2.LOG"):
            out = os.path.join(work, name)
            ruvo("convert-log", source, out)
            same(f"{name} written by ruvo, read by python-can", python_read(out), expected)
        # A chain through every format loses nothing.
        chain = source
        for name in ("c1.blf", "c2.asc", "c3.blf", "c4.log"):
            out = os.path.join(work, name)
            ruvo("convert-log", chain, out)
            chain = out
        with open(chain) as f:
            assert f.read() == SOURCE, "the chain changed the log"
        print("ok chain .log -> .blf -> .asc -> .blf -> .log unchanged")

        # 2. python-can's, read by ruvo.
        for cls, name in ((can.ASCWriter, "py.asc"), (can.BLFWriter, "py.blf"), (can.CanutilsLogWriter, "py.log")):
            path = os.path.join(work, name)
            writer = cls(path)
            for msg in python_messages():
                writer.on_message_received(msg)
            writer.stop()
            theirs = python_read(path)
            assert len(theirs) == 5007, len(theirs)
            same(f"{name} written by python-can, read by ruvo", ruvo_read(path, work), theirs)

        # 3. The real logs.
        for name in sorted(os.listdir(os.path.join(DATA, "logs"))):
            path = os.path.join(DATA, "logs", name)
            if not os.path.isfile(path) or not name.lower().endswith((".log", ".asc", ".blf")):
                continue
            theirs = python_read(path)
            same(f"{name} read by ruvo and by python-can", ruvo_read(path, work), theirs)
            first = os.path.join(work, "real.blf")
            ruvo("convert-log", path, first)
            second = os.path.join(work, "real.asc")
            ruvo("convert-log", first, second)
            # ASC and BLF number channels: "vcan0" comes back as "can0".
            renamed = [" ".join(w if i != 1 else "can" + w.lstrip("abcdefghijklmnopqrstuvwxyz_-")
                                for i, w in enumerate(line.split(" "))) for line in theirs]
            same(f"{name} through BLF and ASC", python_read(second), renamed)


if __name__ == "__main__":
    main()
