#!/usr/bin/python3
"""python-can's reader on a CAN log, as log_bench measures ours: prints "FRAMES SECONDS".
Usage: log_bench.py FILE (.log, .asc or .blf)"""
import sys
import time

import can

path = sys.argv[1]
lower = path.lower()
start = time.perf_counter()
if lower.endswith(".asc"):
    reader = can.ASCReader(path, relative_timestamp=False)
elif lower.endswith(".blf"):
    reader = can.BLFReader(path)
else:
    reader = can.CanutilsLogReader(path)
frames = sum(1 for _ in reader)
print(frames, time.perf_counter() - start)
