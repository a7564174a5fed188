"""Times scipy.ndimage.zoom on a raw volume file (the benchmark's peer).

usage: scipy_zoom.py FILE DTYPE N ZOOM ORDER REPS
Prints the median seconds of REPS runs, or 'none' without scipy.
"""
import sys
import time

try:
    import numpy as np
    from scipy import ndimage
except ImportError:
    print("none")
    sys.exit(0)

path, dtype, n, zoom, order, reps = sys.argv[1:7]
n, zoom, order, reps = int(n), float(zoom), int(order), int(reps)
vol = np.fromfile(path, dtype=dtype).reshape(n, n, n)
out = None
times = []
for _ in range(reps):
    t0 = time.perf_counter()
    out = ndimage.zoom(vol, zoom, order=order, prefilter=False, output=out if out is not None else None)
    times.append(time.perf_counter() - t0)
times.sort()
print(times[len(times) // 2])
