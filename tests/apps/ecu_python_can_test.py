#!/usr/bin/python3
"""python-can's socketcand client, unchanged, as the tester of "ruvo ecu --listen".

A few lines of ISO-TP written here by hand: a 300-byte write of DID 0400 sent as a first frame
and consecutive frames that honour the ECU's flow control, then the 300-byte answer of a read
of it, asked with block size 4 and STmin 2 ms, checked on the wire. SIGTERM ends ruvo ecu with
143; a bad file gives 1 and --for 0.
Usage: ecu_python_can_test.py RUVO ECU.json
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
REQUEST, RESPONSE, FILL = 0x7E0, 0x7E8, 0xCC
BLOCK_SIZE, ST_MIN_MS = 4, 2
# How long we hold back each flow control after a block: the ECU must stay silent meanwhile.
HOLD = 0.02


def send(bus, data):
    bus.send(can.Message(arbitration_id=REQUEST, data=bytes(data).ljust(8, bytes([FILL])), is_extended_id=False))


def recv(bus, what, timeout=TIMEOUT):
    msg = bus.recv(timeout)
    assert msg is not None, f"{what}: nothing from the ECU"
    # python-can 4.1 marks every received socketcand frame extended: the id alone tells.
    assert msg.arbitration_id == RESPONSE, f"{what}: got {msg}"
    assert len(msg.data) == 8, f"{what}: frame not padded: {msg}"
    return msg


def request(bus, payload):
    """Sends one UDS request, segmented as the ECU's flow control asks."""
    if len(payload) <= 7:
        send(bus, [len(payload)] + list(payload))
        return
    send(bus, [0x10 | (len(payload) >> 8), len(payload) & 0xFF] + list(payload[:6]))
    rest, sn = payload[6:], 1
    while rest:
        fc = recv(bus, "flow control").data
        assert fc[0] == 0x30, f"flow status: {fc.hex()}"
        assert (fc[1], fc[2]) == (BLOCK_SIZE, ST_MIN_MS), f"the ECU file asks for BS 4, STmin 2: {fc.hex()}"
        for _ in range(fc[1] or 4096):
            if not rest:
                break
            time.sleep(fc[2] / 1000 + 0.0005)
            send(bus, [0x20 | sn] + list(rest[:7]))
            rest, sn = rest[7:], (sn + 1) & 0x0F


def answer(bus, what):
    """One UDS answer: a single frame, or a first frame and its consecutive frames, for which we
    send flow controls with BS 4 and STmin 2 ms. Returns the payload and the blocks of
    consecutive frames as lists of their timestamps on the wire."""
    first = recv(bus, what)
    kind = first.data[0] >> 4
    if kind == 0:
        return bytes(first.data[1 : 1 + first.data[0]]), []
    assert kind == 1, f"{what}: {first}"
    length = ((first.data[0] & 0x0F) << 8) | first.data[1]
    payload = bytearray(first.data[2:8])
    blocks, sn = [], 1
    while len(payload) < length:
        send(bus, [0x30, BLOCK_SIZE, ST_MIN_MS])
        block = []
        while len(block) < BLOCK_SIZE and len(payload) < length:
            cf = recv(bus, f"{what}: consecutive frame")
            assert cf.data[0] == 0x20 | sn, f"{what}: sequence {cf.data.hex()}, expected {sn}"
            payload += cf.data[1:8]
            block.append(cf.timestamp)
            sn = (sn + 1) & 0x0F
        blocks.append(block)
        if len(payload) < length:
            # A whole block: the ECU must wait for our next flow control.
            extra = bus.recv(HOLD)
            assert extra is None, f"{what}: the ECU went on without a flow control: {extra}"
    return bytes(payload[:length]), blocks


def check_exits(ruvo, ecu_file):
    """A bad file: its reason and 1, before anything runs; --for: 0."""
    bad = subprocess.run([ruvo, "ecu", ecu_file, ecu_file + ".missing"], capture_output=True, text=True, timeout=10)
    assert bad.returncode == 1 and ".missing: cannot open" in bad.stderr, f"bad file: {bad.returncode} {bad.stderr}"
    assert "ECU" not in bad.stderr.replace(ecu_file, ""), f"an ECU started before every file was read: {bad.stderr}"
    timed = subprocess.run([ruvo, "ecu", ecu_file, "--for", "0.2"], capture_output=True, text=True, timeout=10)
    assert timed.returncode == 0, f"--for 0.2: exit {timed.returncode} {timed.stderr}"


def main():
    ruvo, ecu_file = sys.argv[1], sys.argv[2]
    check_exits(ruvo, ecu_file)
    proc = subprocess.Popen([ruvo, "ecu", ecu_file, "--listen", "127.0.0.1:0"],
                            stderr=subprocess.PIPE, text=True)
    try:
        bus = connect(served_port(proc, "ruvo ecu"))

        assert answer_to(bus, [0x10, 0x03]) == bytes([0x50, 0x03, 0x00, 0x32, 0x01, 0xF4])

        value = bytes((i * 7 + 1) & 0xFF for i in range(297))
        write = bytes([0x2E, 0x04, 0x00]) + value
        assert len(write) == 300
        assert answer_to(bus, write) == bytes([0x6E, 0x04, 0x00])

        send(bus, [0x03, 0x22, 0x04, 0x00])
        payload, blocks = answer(bus, "read 0400")
        assert payload == bytes([0x62, 0x04, 0x00]) + value, f"read back {payload.hex()}"
        # 300 bytes: 6 in the first frame, 42 consecutive frames in blocks of 4 (the last 2).
        assert [len(b) for b in blocks] == [4] * 10 + [2], [len(b) for b in blocks]
        gaps = [later - earlier for b in blocks for earlier, later in zip(b, b[1:])]
        assert min(gaps) >= 0.0015, f"STmin 2 ms not kept: gaps {gaps}"
        # Between blocks the ECU waited for our flow control, held back HOLD after a block.
        pauses = [nxt[0] - prev[-1] for prev, nxt in zip(blocks, blocks[1:])]
        assert min(pauses) >= HOLD, f"a block began before its flow control: {pauses}"
        bus.shutdown()

        proc.send_signal(signal.SIGTERM)
        status = proc.wait(timeout=10)
        assert status == 143, f"exit {status} after SIGTERM: {proc.stderr.read()}"
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.wait()
    print("ok")


def answer_to(bus, payload):
    request(bus, payload)
    got, _ = answer(bus, "answer")
    return got


if __name__ == "__main__":
    main()
