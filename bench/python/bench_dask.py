"""Chunked (vekr.dask) against in-memory (vekr.ndimage) throughput, and 1 against 2 workers.

Run with the built package on the path:
    PYTHONPATH=build/python /usr/bin/python3 bench/python/bench_dask.py [--edge 256] [--runs 5]
        [--chunk 32,256,256] [--parts memory,workers,big --big-gib 6 --memory-limit 1GiB]
Run with NUMPY_MADVISE_HUGEPAGE=0 where transparent huge pages stall on
allocation (fresh output blocks then cost more than computing them).
Prints the median of --runs runs per row, in megavoxels of output per second,
and the median of the ratios of in-memory to chunked runs taken in turn.
Chunks are z slabs of whole planes by default, which the blocks read in place;
chunks cut along y or x make each block gather its source first.
The part "big" resamples an N GiB (--big-gib) float32 zarr store and
convolves an int16 one of the same edge on two workers limited to
--memory-limit each, and prints each worker's peak memory.
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
    ap.add_argument("--parts", default="memory,workers", help="of memory, workers, big")
    ap.add_argument("--big-gib", type=float, default=6)
    ap.add_argument("--big-planes", type=int, default=8, help="chunk depth of the big stores")
    ap.add_argument("--memory-limit", default="1GiB")
    args = ap.parse_args()
    cores = os.cpu_count()
    n = args.edge
    chunk = tuple(min(int(c), n) for c in args.chunk.split(","))
    chunk = chunk * 3 if len(chunk) == 1 else chunk
    rng = np.random.default_rng(0)
    v = rng.uniform(0, 1000, (n, n, n)).astype(np.float32)
    v16 = v.astype(np.int16)
    parts = args.parts.split(",")
    if "big" in parts:
        tmp = tempfile.mkdtemp(prefix="vekr-bench-")
        try:
            big(tmp, args.big_gib, args.memory_limit, args.big_planes)
        finally:
            shutil.rmtree(tmp, ignore_errors=True)
    if "memory" in parts:
        memory(v, v16, chunk, cores, args.runs)
    if "workers" in parts:
        workers(v, chunk, cores, args.runs)


def memory(v, v16, chunk, cores, runs):
    n = len(v)
    rot = np.array([[0.98, -0.17, 0.0], [0.17, 0.98, 0.05], [0.0, -0.05, 1.0]])
    cases = [
        ("zoom x1.5 linear f32", lambda t, o=None: ndimage.zoom(v, 1.5, 1, o, threads=t),
         lambda t: vd.zoom(src, 1.5, 1, threads=t), (int(n * 1.5),) * 3),
        ("zoom x1.5 cubic f32", lambda t, o=None: ndimage.zoom(v, 1.5, 3, o, threads=t),
         lambda t: vd.zoom(src, 1.5, 3, threads=t), (int(n * 1.5),) * 3),
        ("affine rotation linear f32", lambda t, o=None: ndimage.affine_transform(v, rot, 5.0, output=o, threads=t),
         lambda t: vd.affine_transform(src, rot, 5.0, threads=t), v.shape),
        ("convolve 3x3x3 i16", lambda t, o=None: ndimage.convolve(v16, np.ones((3, 3, 3), int), 27, o, threads=t),
         lambda t: vd.convolve(src16, np.ones((3, 3, 3), int), 27, threads=t), v.shape),
    ]
    # The dask arrays exist before timing, as in a pipeline (from_array hashes the volume).
    src, src16 = da.from_array(v, chunks=chunk), da.from_array(v16, chunks=chunk)
    print("volume %d^3, chunks %s, %d cores, median of %d runs, load %s" %
          (n, chunk, cores, runs, os.getloadavg()))
    print("%-28s %12s %12s %7s" % ("operation", "in-memory", "chunked", "ratio (median of pairs)"))
    for name, whole, chunked, out in cases:
        assert np.array_equal(chunked(1).compute(scheduler="threads").view(np.uint8),
                              whole(cores).view(np.uint8)), name
        # Both write into an existing array, as a pipeline stage would.
        out_arr = np.empty(out, v16.dtype if "i16" in name else v.dtype)
        # Alternated, so that both sides of a pair see the same load from elsewhere.
        pairs = [(median_time(lambda: whole(cores, out_arr), 1),
                  median_time(lambda: vd.store(chunked(1), out_arr, scheduler="threads", num_workers=cores), 1))
                 for _ in range(runs)]
        tw, tc = (statistics.median(t) for t in zip(*pairs))
        mv = np.prod(out) / 1e6
        print("%-28s %9.1f Mv/s %9.1f Mv/s %6.0f%%" %
              (name, mv / tw, mv / tc, 100 * statistics.median(w / c for w, c in pairs)))


def workers(v, chunk, cores, runs):
    from distributed import Client, LocalCluster
    import zarr
    n = len(v)
    tmp = tempfile.mkdtemp(prefix="vekr-bench-")
    try:
        zarr.save_array(os.path.join(tmp, "in.zarr"), v, chunks=chunk)
        print("zarr to zarr, zoom x1.5 linear, worker processes of 1 thread, library threads cores/workers,"
              " the two cluster sizes taken in turn")
        clusters = [LocalCluster(n_workers=w, threads_per_worker=1, processes=True, dashboard_address=None)
                    for w in (1, 2)]
        clients = []
        try:
            clients += [Client(c) for c in clusters]

            def job(client, workers):
                out = os.path.join(tmp, "out.zarr")
                shutil.rmtree(out, ignore_errors=True)
                src = da.from_zarr(os.path.join(tmp, "in.zarr"))
                client.compute(da.to_zarr(vd.zoom(src, 1.5, 1, threads=max(1, cores // workers)),
                                          out, compute=False)).result()
            pairs = [[median_time(lambda: job(c, w), 1) for c, w in zip(clients, (1, 2))] for _ in range(runs)]
        finally:
            for c in clients + clusters:
                c.close()
        t1, t2 = (statistics.median(t) for t in zip(*pairs))
        mv = (1.5 * n) ** 3 / 1e6
        print("  1 worker %.1f Mv/s, 2 workers %.1f Mv/s, speed-up %.2f (median of pairs)" %
              (mv / t1, mv / t2, statistics.median(a / b for a, b in pairs)))
        # What one worker does in turn, each step alone on one thread (as in a
        # worker thread, where blosc does not start threads of its own).
        import numcodecs
        numcodecs.blosc.use_threads = False
        src = os.path.join(tmp, "in.zarr")
        zoomed = ndimage.zoom(v, 1.5, 1, threads=1)
        steps = [("read and decompress the input", lambda: zarr.open_array(src, "r")[...]),
                 ("zoom on 1 library thread", lambda: ndimage.zoom(v, 1.5, 1, zoomed, threads=1)),
                 ("compress and write the output", lambda: zarr.save_array(
                     os.path.join(tmp, "out.zarr"), zoomed, chunks=vd.zoom(da.from_zarr(src), 1.5).chunksize))]
        print("  serial steps: " + ", ".join("%s %.0f ms" % (what, 1e3 * median_time(fn, runs))
                                             for what, fn in steps))
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


def big(tmp, gib, limit, planes):
    """Larger than the workers' memory: each operation on a fresh cluster of 2
    single-threaded workers limited to `limit`, zarr store to zarr store."""
    from distributed import Client, LocalCluster
    import zarr
    edge = int(round((gib * 2**30 / 4) ** (1 / 3)))
    chunks = (planes, edge, edge)
    f32, i16 = os.path.join(tmp, "f32.zarr"), os.path.join(tmp, "i16.zarr")
    t = time.perf_counter()
    with dask.config.set(scheduler="threads"):
        src = da.random.RandomState(1).uniform(0, 1000, (edge,) * 3, chunks=chunks).astype(np.float32)
        da.to_zarr(src, f32)
        da.to_zarr(da.from_zarr(f32).astype(np.int16), i16)
    print("larger than memory: %d^3 float32 (%.2f GiB) and int16 (%.2f GiB) zarr stores, chunks %s, "
          "written in %.0f s; 2 workers of 1 thread, limited to %s each, library threads 1"
          % (edge, edge**3 * 4 / 2**30, edge**3 * 2 / 2**30, chunks, time.perf_counter() - t, limit))
    c, s = np.cos(np.radians(20)), np.sin(np.radians(20))
    spin = np.array([[1.0, 0, 0], [0, c, -s], [0, s, c]]) * 0.9  # about the centre's z axis, zoom x1.11
    ops = [("zoom x1.25 linear f32", f32, lambda a: vd.zoom(a, 1.25, 1)),
           ("affine: 20 deg about z, x1.11, linear f32", f32,
            lambda a: vd.affine_transform(a, spin, (edge - 1) / 2 * (1 - spin.sum(axis=1)))),
           ("convolve 3x3x3 i16, reflect", i16, lambda a: vd.convolve(a, np.ones((3, 3, 3), int), 27))]
    for name, path, op in ops:
        out = os.path.join(tmp, "out.zarr")
        with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, memory_limit=limit,
                          dashboard_address=None) as cluster, Client(cluster) as client:
            before = client.run(os.getpid)
            lazy = op(da.from_zarr(path))
            t = time.perf_counter()
            client.compute(da.to_zarr(lazy, out, compute=False)).result()
            t = time.perf_counter() - t
            peaks = client.run(lambda: __import__("resource").getrusage(0).ru_maxrss)
            same = client.run(os.getpid) == before
            limit_mib = next(iter(client.scheduler_info()["workers"].values()))["memory_limit"] / 2**20
        stored = zarr.open_array(out)
        print("  %-42s -> %s: %.0f s, %.1f Mv/s; peak RSS per worker %s MiB, limit %.0f MiB, %s" %
              (name, stored.shape, t, np.prod(stored.shape) / 1e6 / t,
               sorted(round(p / 1024) for p in peaks.values()), limit_mib,
               "no worker restarted" if same else "A WORKER WAS RESTARTED"))
        shutil.rmtree(out)


if __name__ == "__main__":
    main()
