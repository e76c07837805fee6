#!/usr/bin/python3
"""An applet under "ruvo run --listen" is the XCP master of a slave that python-can plays by hand.

The slave here is a few lines over python-can's socketcand client: it answers CONNECT, GET_STATUS,
SHORT_UPLOAD, SET_MTA and DOWNLOAD on 0x701 from a small memory, and checks that every command
on 0x700 is padded to 8 bytes with 0xCC. The applet reports each result in frames 0x600..0x604.
Usage: xcp_applet_python_can_test.py RUVO PROJECT APPLET
"""
import os
import signal
import subprocess
import sys
import time

import can

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../python"))
from socketcand_client import connect, served_port  # noqa: E402

TIMEOUT = 3.0
MASTER, SLAVE = 0x700, 0x701


class Slave:
    def __init__(self, bus):
        self.bus = bus
        self.memory = {0x1000 + i: b for i, b in enumerate([0x11, 0x22, 0x33, 0x44])}
        self.mta = 0
        self.connected = False
        self.reports = {}
        self.commands = []

    def answer(self, data):
        self.bus.send(can.Message(arbitration_id=SLAVE, data=bytes(data), is_extended_id=False))

    def serve(self, cmd):
        code = cmd[0]
        self.commands.append(code)
        if code == 0xFF:  # CONNECT: CAL/PAG and DAQ, Intel order, AG 1, MAX_CTO 8, MAX_DTO 8
            self.connected = True
            self.answer([0xFF, 0x05, 0x00, 8, 8, 0, 1, 1])
        elif not self.connected:
            pass  # a slave ignores commands before CONNECT
        elif code == 0xFD:  # GET_STATUS
            self.answer([0xFF, 0x00, 0x00, 0x00, 0x00, 0x00])
        elif code == 0xF4:  # SHORT_UPLOAD n, reserved, ext, address (Intel)
            n, address = cmd[1], int.from_bytes(cmd[4:8], "little")
            self.answer([0xFF] + [self.memory.get(address + i, 0) for i in range(n)])
        elif code == 0xF6:  # SET_MTA reserved reserved ext address
            self.mta = int.from_bytes(cmd[4:8], "little")
            self.answer([0xFF])
        elif code == 0xF0:  # DOWNLOAD n data
            n = cmd[1]
            for i in range(n):
                self.memory[self.mta + i] = cmd[2 + i]
            self.mta += n
            self.answer([0xFF])
        else:
            self.answer([0xFE, 0x20])  # ERR_CMD_UNKNOWN

    def run(self, until):
        end = time.monotonic() + TIMEOUT
        while until not in self.reports and time.monotonic() < end:
            msg = self.bus.recv(0.1)
            if msg is None:
                continue
            if msg.arbitration_id == MASTER:
                data = bytes(msg.data)
                assert len(data) == 8, f"command not padded: {data.hex()}"
                self.serve(data)
            elif 0x600 <= msg.arbitration_id <= 0x6FF:
                self.reports[msg.arbitration_id] = bytes(msg.data)
        assert until in self.reports, f"no report {until:X}; have {sorted(self.reports)}"


def main():
    ruvo, project, applet = sys.argv[1:4]
    proc = subprocess.Popen([ruvo, "run", project, applet, "--listen", "127.0.0.1:0"],
                            stderr=subprocess.PIPE, text=True)
    try:
        bus = connect(served_port(proc, "ruvo run"))
        slave = Slave(bus)
        time.sleep(0.2)  # the server lets frames through shortly after the handshake
        bus.send(can.Message(arbitration_id=0x100, data=[1], is_extended_id=False))
        slave.run(0x604)
        r = slave.reports
        assert 0x6FF not in r, "the applet could not set up the channel"
        assert r[0x600][:4] == bytes([0, 0xFF, 0x05, 0x00]), r[0x600].hex()
        assert r[0x601][:2] == bytes([0, 0xFF]), r[0x601].hex()
        assert r[0x602][:6] == bytes([0, 0xFF, 0x11, 0x22, 0x33, 0x44]), r[0x602].hex()
        assert r[0x603][:2] == bytes([0, 0xFF]), r[0x603].hex()
        assert r[0x604][:6] == bytes([0, 0xFF, 0xDE, 0xAD, 0xBE, 0xEF]), r[0x604].hex()
        assert slave.commands == [0xFF, 0xFD, 0xF4, 0xF6, 0xF0, 0xF4], [hex(c) for c in slave.commands]
        bus.shutdown()

        proc.send_signal(signal.SIGINT)
        status = proc.wait(timeout=10)
        assert status == 130, f"exit {status} after SIGINT: {proc.stderr.read()}"
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.wait()
    print("ok")


if __name__ == "__main__":
    main()
