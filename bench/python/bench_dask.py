"""Chunked (vekr.dask) against in-memory (vekr.ndimage) throughput, and 1 against 2 workers.

Run with the built package on the path:
    PYTHONPATH=build/python /usr/bin/python3 bench/python/bench_dask.py [--edge 256] [--runs 5]
        [--chunk 32,256,256] [--big-gib 0 --memory-limit 256MB]
Run with NUMPY_MADVISE_HUGEPAGE=0 where transparent huge pages stall on
allocation (fresh output blocks then cost more than computing them).
Prints the median of --runs runs per row, in megavoxels of output per second.
Chunks are z slabs of whole planes by default, which the blocks read in place;
chunks cut along y or x make each block gather its source first.
With --big-gib N it also zooms an N GiB float32 zarr store on two workers
limited to --memory-limit each and prints each worker's peak memory.
"""

import argparse
import os
import shutil
import statistics
import tempfile
import time

import dask
import dask.array as da
import numpy as np

import vekr.dask as vd
from vekr import ndimage


def median_time(fn, runs):
    times = []
    for _ in range(runs):
        t = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t)
    return statistics.median(times)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--edge", type=int, default=256)
    ap.add_argument("--chunk", default="32,256,256", help="chunk shape z,y,x (or one edge)")
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--big-gib", type=float, default=0)
    ap.add_argument("--memory-limit", default="256MB")
    args = ap.parse_args()
    cores = os.cpu_count()
    n = args.edge
    chunk = tuple(min(int(c), n) for c in args.chunk.split(","))
    chunk = chunk * 3 if len(chunk) == 1 else chunk
    rng = np.random.default_rng(0)
    v = rng.uniform(0, 1000, (n, n, n)).astype(np.float32)
    v16 = v.astype(np.int16)
    rot = np.array([[0.98, -0.17, 0.0], [0.17, 0.98, 0.05], [0.0, -0.05, 1.0]])
    cases = [
        ("zoom x1.5 linear f32", lambda t, o=None: ndimage.zoom(v, 1.5, 1, o, threads=t),
         lambda t: vd.zoom(da.from_array(v, chunks=chunk), 1.5, 1, threads=t), (int(n * 1.5),) * 3),
        ("zoom x1.5 cubic f32", lambda t, o=None: ndimage.zoom(v, 1.5, 3, o, threads=t),
         lambda t: vd.zoom(da.from_array(v, chunks=chunk), 1.5, 3, threads=t), (int(n * 1.5),) * 3),
        ("affine rotation linear f32", lambda t, o=None: ndimage.affine_transform(v, rot, 5.0, output=o, threads=t),
         lambda t: vd.affine_transform(da.from_array(v, chunks=chunk), rot, 5.0, threads=t), v.shape),
        ("convolve 3x3x3 i16", lambda t, o=None: ndimage.convolve(v16, np.ones((3, 3, 3), int), 27, o, threads=t),
         lambda t: vd.convolve(da.from_array(v16, chunks=chunk), np.ones((3, 3, 3), int), 27,
                               threads=t), v.shape),
    ]
    print("volume %d^3, chunks %s, %d cores, median of %d runs, load %s" %
          (n, chunk, cores, args.runs, os.getloadavg()))
    print("%-28s %12s %12s %7s" % ("operation", "in-memory", "chunked", "ratio"))
    for name, whole, chunked, out in cases:
        assert np.array_equal(chunked(1).compute(scheduler="threads").view(np.uint8),
                              whole(cores).view(np.uint8)), name
        # Both write into an existing array, as a pipeline stage would.
        out_arr = np.empty(out, v16.dtype if "i16" in name else v.dtype)
        tw = median_time(lambda: whole(cores, out_arr), args.runs)
        tc = median_time(lambda: vd.store(chunked(1), out_arr, scheduler="threads", num_workers=cores),
                         args.runs)
        mv = np.prod(out) / 1e6
        print("%-28s %9.1f Mv/s %9.1f Mv/s %6.0f%%" % (name, mv / tw, mv / tc, 100 * tw / tc))

    from distributed import Client, LocalCluster
    import zarr
    tmp = tempfile.mkdtemp(prefix="vekr-bench-")
    try:
        zarr.save_array(os.path.join(tmp, "in.zarr"), v, chunks=chunk)
        print("zarr to zarr, zoom x1.5 linear, worker processes of 1 thread, library threads cores/workers")
        base = None
        for workers in (1, 2):
            with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                              dashboard_address=None) as cluster, Client(cluster) as client:
                def job():
                    out = os.path.join(tmp, "out.zarr")
                    shutil.rmtree(out, ignore_errors=True)
                    src = da.from_zarr(os.path.join(tmp, "in.zarr"))
                    client.compute(da.to_zarr(vd.zoom(src, 1.5, 1, threads=max(1, cores // workers)),
                                              out, compute=False)).result()
                t = median_time(job, args.runs)
                base = base or t
                print("  %d worker(s): %7.1f Mv/s  speed-up %.2f" % (workers, (1.5 * n) ** 3 / 1e6 / t, base / t))
        if args.big_gib:
            big(tmp, args.big_gib, args.memory_limit, args.chunk)
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


def big(tmp, gib, limit, chunk):
    from distributed import Client, LocalCluster
    edge = int(round((gib * 2**30 / 4) ** (1 / 3)))
    path = os.path.join(tmp, "big.zarr")
    src = da.random.RandomState(1).uniform(0, 1000, (edge,) * 3, chunks=chunk).astype(np.float32)
    with dask.config.set(scheduler="threads"):
        da.to_zarr(src, path)
    print("larger than memory: %d^3 float32 (%.2f GiB), zoom x1.25 linear, 2 workers limited to %s each"
          % (edge, edge**3 * 4 / 2**30, limit))
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, memory_limit=limit,
                      dashboard_address=None) as cluster, Client(cluster) as client:
        client.run(lambda: __import__("resource").getrusage(0).ru_maxrss)
        t = time.perf_counter()
        out = os.path.join(tmp, "big-out.zarr")
        client.compute(da.to_zarr(vd.zoom(da.from_zarr(path), 1.25, 1, threads=1), out,
                                  compute=False)).result()
        t = time.perf_counter() - t
        peaks = client.run(lambda: __import__("resource").getrusage(0).ru_maxrss)
        print("  %.1f s, %.1f Mv/s; peak RSS per worker (MiB): %s" %
              (t, (1.25 * edge) ** 3 / 1e6 / t, sorted(round(p / 1024) for p in peaks.values())))


if __name__ == "__main__":
    main()
