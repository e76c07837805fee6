#!/usr/bin/python3
"""An applet under "ruvo run --listen" diagnoses an ECU that python-can plays by hand.

The ECU here is a few lines of ISO-TP over python-can's socketcand client: it answers a read of
F190 with a 20-byte multi-frame answer (waiting for the applet's flow control), 10 03 with a
single frame, and counts the applet's three cyclic tester-present requests. The applet reports
what each service returned in frames 0x600/0x601. SIGINT ends ruvo run with 130.
Usage: uds_applet_python_can_test.py RUVO PROJECT APPLET
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
REQUEST, RESPONSE, FILL = 0x7E0, 0x7E8, 0xAA


def send(bus, arbitration_id, data):
    bus.send(can.Message(arbitration_id=arbitration_id, data=bytes(data).ljust(8, bytes([FILL])), is_extended_id=False))


class Ecu:
    def __init__(self, bus):
        self.bus = bus
        self.reports = {}

    def frame(self, what):
        """The next frame to the ECU; the applet's report frames are put aside."""
        end = time.monotonic() + TIMEOUT
        while time.monotonic() < end:
            msg = self.bus.recv(0.1)
            if msg is None:
                continue
            if msg.arbitration_id in (0x600, 0x601):
                self.reports[msg.arbitration_id] = bytes(msg.data)
            elif msg.arbitration_id == REQUEST:
                assert len(msg.data) == 8 and msg.data[-1] == 0xCC, f"{what}: not padded with the record's fill: {msg}"
                return bytes(msg.data)
        raise AssertionError(f"{what}: nothing from the applet")

    def request(self, what):
        data = self.frame(what)
        assert data[0] >> 4 == 0, f"{what}: a single frame expected: {data.hex()}"
        return data[1 : 1 + data[0]]

    def answer(self, payload):
        if len(payload) <= 7:
            send(self.bus, RESPONSE, [len(payload)] + list(payload))
            return
        send(self.bus, RESPONSE, [0x10 | (len(payload) >> 8), len(payload) & 0xFF] + list(payload[:6]))
        rest, sn = payload[6:], 1
        fc = self.frame("flow control")
        assert fc[0] == 0x30, f"flow control: {fc.hex()}"
        block = fc[1] or 4096
        while rest:
            for _ in range(block):
                if not rest:
                    break
                send(self.bus, RESPONSE, [0x20 | sn] + list(rest[:7]))
                rest, sn = rest[7:], (sn + 1) & 0x0F
            if rest:
                assert self.frame("next flow control")[0] == 0x30

    def report(self, arbitration_id):
        end = time.monotonic() + TIMEOUT
        while arbitration_id not in self.reports and time.monotonic() < end:
            msg = self.bus.recv(0.1)
            if msg is not None and msg.arbitration_id in (0x600, 0x601):
                self.reports[msg.arbitration_id] = bytes(msg.data)
        assert arbitration_id in self.reports, f"no report {arbitration_id:X}"
        return self.reports[arbitration_id]


def main():
    ruvo, project, applet = sys.argv[1:4]
    proc = subprocess.Popen([ruvo, "run", project, applet, "--listen", "127.0.0.1:0"],
                            stderr=subprocess.PIPE, text=True)
    try:
        bus = connect(served_port(proc, "ruvo run"))
        ecu = Ecu(bus)
        time.sleep(0.2)  # the server lets frames through shortly after the handshake
        send(bus, 0x100, [1])  # the applet's trigger

        assert ecu.request("read F190") == bytes([0x22, 0xF1, 0x90])
        vin = bytes([0x62, 0xF1, 0x90]) + b"RUVOTESTVIN000042"
        ecu.answer(vin)
        assert ecu.report(0x600) == bytes([0, 0, 20]) + vin[:5], ecu.reports[0x600].hex()

        assert ecu.request("session") == bytes([0x10, 0x03])
        ecu.answer([0x50, 0x03, 0x00, 0x32, 0x01, 0xF4])
        assert ecu.report(0x601) == bytes([0, 0, 6, 0x50, 0x03, 0x00, 0x32, 0x01]), ecu.reports[0x601].hex()

        for n in range(3):
            assert ecu.request(f"tester present {n + 1}") == bytes([0x3E, 0x00])
        extra = bus.recv(0.15)
        assert extra is None or extra.arbitration_id != REQUEST, f"a fourth cyclic send: {extra}"
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
