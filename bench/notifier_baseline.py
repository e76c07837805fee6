#!/usr/bin/python3
"""The same dispatch work in python-can, for dispatch_bench to print beside its own figure.

Ten listeners, each standing for one applet with twenty receive handlers bound to 0x100..0x113,
sit on one can.Notifier over a virtual bus. Frames come in batches of 64, half of them on a bound
id; each listener looks the id up and calls the handler bound to it. The frames go through what
the Notifier's receive thread does for every message (its lock, then its own dispatch call), so
the bus itself is not measured, as it is not on our side either.

Prints one line: nanoseconds of CPU time per frame. Exit code 3 when python-can can't be imported.
"""

import random
import sys
import time

try:
    import can
except ImportError:
    sys.exit(3)

APPLETS = 10
HANDLERS = 20
BATCH = 64


class Applet(can.Listener):
    def __init__(self):
        self.calls = 0
        self.handlers = {0x100 + h: self.handle for h in range(HANDLERS)}

    def handle(self, msg):
        self.calls += 1

    def on_message_received(self, msg):
        handler = self.handlers.get(msg.arbitration_id)
        if handler is not None:
            handler(msg)


def batch():
    rng = random.Random(42)
    frames = []
    for i in range(BATCH):
        # Even places on a bound id, odd ones on an id nobody bound.
        ident = 0x100 + rng.randrange(HANDLERS) if i % 2 == 0 else 0x500 + rng.randrange(HANDLERS)
        frames.append(can.Message(arbitration_id=ident, data=bytes(range(1, 9)), is_extended_id=False))
    return frames


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 1.0
    applets = [Applet() for _ in range(APPLETS)]
    bus = can.Bus(interface="virtual", channel="ruvo_notifier_baseline", receive_own_messages=False)
    notifier = can.Notifier(bus, applets, timeout=0.1)
    # What the receive thread does for every message: the Notifier's lock, then its call of each
    # listener (older releases without that method get the same loop here).
    lock = notifier._lock
    deliver = getattr(notifier, "_on_message_received", None)
    if deliver is None:
        def deliver(msg):
            for listener in notifier.listeners:
                listener(msg)

    def dispatch(msg):
        with lock:
            deliver(msg)
    frames = batch()
    try:
        for msg in frames:  # warm up
            dispatch(msg)
        # CPU time of this thread, as the benchmark takes its own: the machine may be shared.
        count = 0
        start = time.thread_time_ns()
        deadline = start + int(seconds * 1e9)
        now = start
        while now < deadline:
            for msg in frames:
                dispatch(msg)
            count += BATCH
            now = time.thread_time_ns()
        expected = (count + BATCH) // 2
        if sum(a.calls for a in applets) != APPLETS * expected:
            print("listeners missed frames", file=sys.stderr)
            return 1
        print("%.1f" % ((now - start) / count))
    finally:
        notifier.stop()
        bus.shutdown()
    return 0


if __name__ == "__main__":
    sys.exit(main())
