"""python-can's socketcand client as the tests use it: unchanged, with one workaround.

python-can 4.1's client loses a message that arrives split across two socket reads; the
wrapper hands it whole messages only.
"""
import re

import can


class WholeMessages:
    """A socket that returns whole socketcand messages from recv."""

    def __init__(self, sock):
        self._sock = sock
        self._pending = b""

    def recv(self, size):
        while True:
            end = self._pending.rfind(b">")
            if end >= 0:
                whole, self._pending = self._pending[: end + 1], self._pending[end + 1 :]
                return whole
            chunk = self._sock.recv(4096)
            if not chunk:
                return chunk
            self._pending += chunk

    def __getattr__(self, name):
        return getattr(self._sock, name)


def connect(port, channel="can0", host="127.0.0.1"):
    """A python-can bus on the served virtual bus."""
    bus = can.Bus(interface="socketcand", host=host, port=port, channel=channel)
    bus._SocketCanDaemonBus__socket = WholeMessages(bus._SocketCanDaemonBus__socket)
    return bus


def served_port(proc, what):
    """The port a ruvo command prints as "serving the bus on 127.0.0.1:PORT" on its stderr."""
    for line in proc.stderr:
        found = re.match(r"serving the bus on 127\.0\.0\.1:(\d+)$", line.strip())
        if found:
            return int(found.group(1))
    raise AssertionError(f"{what} did not serve the bus (exit {proc.poll()})")
