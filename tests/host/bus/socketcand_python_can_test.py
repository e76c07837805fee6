#!/usr/bin/python3
"""python-can's socketcand client, unchanged, against the served bus.

Two python-can clients and the workstation exchange frames every way (11- and 29-bit ids, an
empty and a 64-byte frame); clients that send an out-of-range id or flood are dropped while the
others keep working.
Usage: socketcand_python_can_test.py BUS_HOST_PROGRAM
"""
import os
import socket
import subprocess
import sys
import time

import can

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../python"))
from socketcand_client import WholeMessages  # noqa: E402

TIMEOUT = 2.0


class Host:
    def __init__(self, program):
        self.proc = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        first = self.proc.stdout.readline().split()
        assert first and first[0] == "port", f"bus host said {first!r}"
        self.port = int(first[1])

    def ask(self, line):
        self.proc.stdin.write(line + "\n")
        self.proc.stdin.flush()
        return self.proc.stdout.readline().strip()

    def send(self, channel, can_id, extended, data):
        text = data.hex().upper() if data else "-"
        assert self.ask(f"send {channel} {can_id:X} {int(extended)} {text}") == "sent 0"

    def received(self):
        self.proc.stdin.write("rx\n")
        self.proc.stdin.flush()
        frames = []
        for line in iter(self.proc.stdout.readline, ""):
            line = line.strip()
            if line == "end":
                return frames
            frames.append(line)
        raise AssertionError("bus host ended")

    def wait_received(self, count):
        frames = []
        end = time.monotonic() + TIMEOUT
        while len(frames) < count and time.monotonic() < end:
            frames += self.received()
            time.sleep(0.005)
        return frames

    def wait(self, question, answer):
        end = time.monotonic() + TIMEOUT
        while time.monotonic() < end:
            if self.ask(question) == answer:
                return True
            time.sleep(0.01)
        return False

    def close(self):
        self.proc.stdin.write("quit\n")
        self.proc.stdin.flush()
        assert self.proc.wait(timeout=10) == 0


def client(port, bus="can0"):
    b = can.Bus(interface="socketcand", host="127.0.0.1", port=port, channel=bus)
    b._SocketCanDaemonBus__socket = WholeMessages(b._SocketCanDaemonBus__socket)
    return b


def expect(bus, can_id, data, name):
    msg = bus.recv(TIMEOUT)
    assert msg is not None, f"{name}: nothing received, expected {can_id:X}"
    assert msg.arbitration_id == can_id, f"{name}: got {msg}"
    assert bytes(msg.data) == bytes(data), f"{name}: got {msg}"
    assert abs(msg.timestamp - time.time()) < 60, f"{name}: timestamp {msg.timestamp}"


def expect_nothing(bus, name):
    msg = bus.recv(0.1)
    assert msg is None, f"{name}: unexpected {msg}"


def raw_client(port, bus="can0"):
    s = socket.create_connection(("127.0.0.1", port), timeout=TIMEOUT)
    for send, reply in ((None, b"< hi >"), (f"< open {bus} >", b"< ok >"), ("< rawmode >", b"< ok >")):
        if send:
            s.sendall(send.encode())
        assert s.recv(64) == reply
    return s


def dropped(s):
    """True when the server closes the connection (whatever it still had queued is read)."""
    end = time.monotonic() + TIMEOUT
    while time.monotonic() < end:
        try:
            if s.recv(65536) == b"":
                return True
        except ConnectionResetError:
            return True
    return False


def main():
    host = Host(sys.argv[1])
    a, b = client(host.port), client(host.port)
    assert host.wait("clients", "clients 2")

    # Client to the other client and the workstation, 11- and 29-bit.
    a.send(can.Message(arbitration_id=0x123, data=[1, 2, 3], is_extended_id=False))
    expect(b, 0x123, [1, 2, 3], "a->b")
    b.send(can.Message(arbitration_id=0x18DAF110, data=[0x02, 0x10, 0x03], is_extended_id=True))
    expect(a, 0x18DAF110, [0x02, 0x10, 0x03], "b->a")
    b.send(can.Message(arbitration_id=0x7DF, data=[], is_extended_id=False))
    expect(a, 0x7DF, [], "b->a empty")
    fd = bytes(range(64))
    a.send(can.Message(arbitration_id=0x1ABCDEF, data=fd, is_extended_id=True, is_fd=True))
    expect(b, 0x1ABCDEF, fd, "a->b fd")
    got = host.wait_received(4)
    assert got == ["0 123 0 010203", "0 18DAF110 1 021003", "0 7DF 0 -", "0 1ABCDEF 1 " + fd.hex().upper()], got
    expect_nothing(a, "own frames are not echoed")

    # Workstation to both clients.
    host.send(0, 0x7E8, False, bytes([0x06, 0x50, 0x03]))
    host.send(0, 0x18DAF1F1, True, bytes([0xAA, 0xBB]))
    host.send(0, 0x100, False, b"")
    for bus, name in ((a, "a"), (b, "b")):
        expect(bus, 0x7E8, [0x06, 0x50, 0x03], f"workstation->{name}")
        expect(bus, 0x18DAF1F1, [0xAA, 0xBB], f"workstation->{name} 29-bit")
        expect(bus, 0x100, [], f"workstation->{name} empty")
    # Another channel's frames stay there.
    host.send(1, 0x222, False, b"\x01")
    expect_nothing(a, "channel 1 on can0")
    c1 = client(host.port, "can1")
    host.send(1, 0x333, False, b"\x02")
    expect(c1, 0x333, [2], "workstation->can1")
    c1.shutdown()

    # Clients that connect while the bus is busy still get their "< ok >" alone.
    assert host.ask("stream 1 400") == "streaming"
    time.sleep(0.02)
    busy = [client(host.port, "can1") for _ in range(3)]
    for c in busy:
        msg = c.recv(TIMEOUT)
        assert msg is not None and msg.arbitration_id == 0x700, f"busy bus: got {msg}"
        c.shutdown()
    streamed = host.ask("streamed").split()
    assert streamed[0] == "done" and int(streamed[1]) > 100, streamed

    # Hostile clients, each dropped with a log line (garbage and broken messages are the server
    # tests' business): an id python-can lets through, and a flood beyond the default rate.
    bad_id = client(host.port)
    bad_id.send(can.Message(arbitration_id=0x3FFFFFFF, data=[1], is_extended_id=True))
    assert host.wait("logged dropped: send id out of range: 3FFFFFFF", "yes")
    bad_id.shutdown()

    flood = raw_client(host.port, "can1")
    try:
        flood.sendall(b"< send 5 0 >" * 5000)
    except (BrokenPipeError, ConnectionResetError):
        pass
    assert dropped(flood), "flooding client kept"
    assert host.wait("logged dropped: flooding: more than 20000 messages per second", "yes")

    assert host.wait("clients", "clients 2")
    host.received()

    # The two well-behaved clients never noticed.
    expect_nothing(a, "nothing from the hostile clients on can0")
    a.send(can.Message(arbitration_id=0x456, data=[9], is_extended_id=False))
    expect(b, 0x456, [9], "a->b after the drops")
    host.send(0, 0x7E8, False, b"\x01")
    expect(a, 0x7E8, [1], "workstation->a after the drops")
    expect(b, 0x7E8, [1], "workstation->b after the drops")
    assert host.wait_received(1) == ["0 456 0 09"]

    a.shutdown()
    b.shutdown()
    assert host.wait("clients", "clients 0")
    host.close()
    print("ok")


if __name__ == "__main__":
    main()
