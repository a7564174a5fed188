"""Times scipy.ndimage.convolve on a raw int16 volume written by bench_filter.

Usage: scipy_convolve.py <volume.raw> <n> <kernel.raw> <k> <runs>
Prints the median thread CPU seconds of `runs` calls.
"""
import sys
import time

import numpy as np
from scipy import ndimage

vol_path, n, ker_path, k, runs = sys.argv[1], int(sys.argv[2]), sys.argv[3], int(sys.argv[4]), int(sys.argv[5])
vol = np.fromfile(vol_path, dtype=np.int16).reshape(n, n, n)
ker = np.fromfile(ker_path, dtype=np.int32).reshape(k, k, k).astype(np.int16)
times = []
for _ in range(runs):
    t0 = time.thread_time()
    ndimage.convolve(vol, ker, mode="nearest")
    times.append(time.thread_time() - t0)
print(sorted(times)[len(times) // 2])
