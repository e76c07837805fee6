#!/usr/bin/python3
"""python-can's socketcand client, unchanged, as an XCP master of a slave "ruvo ecu" serves.

A few raw CTOs written here by hand from the protocol: CONNECT, SHORT_UPLOAD of a named value,
SET_MTA and DOWNLOAD into RAM, read back; the answers checked byte by byte. "ruvo ecu" tells a
slave file from an ECU file by its content, and takes more with --xcp-slave; a bad slave file
gives its reason and 1 before anything runs.
Usage: xcp_python_can_test.py RUVO SLAVE.json
"""
import os
import signal
import subprocess
import sys

import can

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../python"))
from socketcand_client import connect, served_port  # noqa: E402

TIMEOUT = 3.0
MASTER, SLAVE = 0x700, 0x701


def ask(bus, cto):
    bus.send(can.Message(arbitration_id=MASTER, data=bytes(cto), is_extended_id=False))
    while True:
        msg = bus.recv(TIMEOUT)
        assert msg is not None, f"no answer to {bytes(cto).hex()}"
        # python-can 4.1 marks every received socketcand frame extended: the id alone tells.
        if msg.arbitration_id == SLAVE:
            return bytes(msg.data)


def check_bad_file(ruvo, slave_file):
    bad = subprocess.run([ruvo, "ecu", slave_file, "--xcp-slave", slave_file + ".missing"], capture_output=True,
                         text=True, timeout=10)
    assert bad.returncode == 1 and ".missing: cannot open" in bad.stderr, f"bad file: {bad.returncode} {bad.stderr}"
    assert "XCP slave" not in bad.stderr, f"a slave started before every file was read: {bad.stderr}"


def main():
    ruvo, slave_file = sys.argv[1], sys.argv[2]
    check_bad_file(ruvo, slave_file)
    proc = subprocess.Popen([ruvo, "ecu", slave_file, "--listen", "127.0.0.1:0"],
                            stderr=subprocess.PIPE, text=True)
    try:
        bus = connect(served_port(proc, "ruvo ecu"))
        # CONNECT: CAL/PAG, DAQ and PGM; Intel, byte granularity, slave block mode; MAX_CTO 8, MAX_DTO 8.
        assert ask(bus, [0xFF, 0x00]) == bytes([0xFF, 0x15, 0xC0, 0x08, 0x08, 0x00, 0x01, 0x01])
        # SHORT_UPLOAD of engine_speed, 2 bytes at 0x1000: 3000 rpm, little-endian.
        assert ask(bus, [0xF4, 0x02, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00]) == bytes([0xFF, 0xB8, 0x0B])
        # SET_MTA 0x2000, DOWNLOAD 4 bytes, read back with SHORT_UPLOAD.
        assert ask(bus, [0xF6, 0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00]) == bytes([0xFF])
        assert ask(bus, [0xF0, 0x04, 0xDE, 0xAD, 0xBE, 0xEF]) == bytes([0xFF])
        assert ask(bus, [0xF4, 0x04, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00]) == bytes([0xFF, 0xDE, 0xAD, 0xBE, 0xEF])
        # An address nobody mapped: ERR_OUT_OF_RANGE.
        assert ask(bus, [0xF4, 0x01, 0x00, 0x00, 0x00, 0x30, 0x00, 0x00]) == bytes([0xFE, 0x22])
        assert ask(bus, [0xFE]) == bytes([0xFF])
        bus.shutdown()

        proc.send_signal(signal.SIGTERM)
        status = proc.wait(timeout=10)
        assert status == 143, f"exit {status} after SIGTERM: {proc.stderr.read()}"
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.wait()
    print("ok")


if __name__ == "__main__":
    main()
