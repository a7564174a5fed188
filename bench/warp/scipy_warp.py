"""Times scipy.ndimage.affine_transform / map_coordinates on raw data written
by bench_warp.

  scipy_warp.py affine <dtype> <n> <order> <runs> <src.raw> m0 .. m11
  scipy_warp.py remap  <dtype> <n> <order> <runs> <src.raw> <maps.raw> <m>

m0..m11 map destination (x, y, z, 1) to source (x, y, z); the maps file holds
the x, y and z maps of an m^3 destination one after the other.  Prints the
median thread CPU seconds of `runs` calls (prefilter=False, one thread).
"""
import sys
import time

import numpy as np
from scipy import ndimage

kind, dtype, n, order, runs, src_path = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4]), int(sys.argv[5]), sys.argv[6]
src = np.fromfile(src_path, dtype=dtype).reshape(n, n, n)
times = []
if kind == "affine":
    m = np.array([float(v) for v in sys.argv[7:19]]).reshape(3, 4)
    # numpy axes are (z, y, x): reverse rows and columns of the 3 x 3 part.
    matrix = m[::-1, 2::-1].copy()
    offset = m[::-1, 3].copy()
    for _ in range(runs):
        t0 = time.thread_time()
        ndimage.affine_transform(src, matrix, offset=offset, order=order, prefilter=False)
        times.append(time.thread_time() - t0)
else:
    mpath, m = sys.argv[7], int(sys.argv[8])
    maps = np.fromfile(mpath, dtype=np.float32).reshape(3, m, m, m)
    coords = np.stack([maps[2], maps[1], maps[0]])  # z, y, x
    for _ in range(runs):
        t0 = time.thread_time()
        ndimage.map_coordinates(src, coords, order=order, prefilter=False)
        times.append(time.thread_time() - t0)
print(sorted(times)[len(times) // 2])
