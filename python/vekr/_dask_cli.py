"""python3 -m vekr.dask: resample or filter a zarr volume into a new zarr store.

The result is written to a temporary store next to the output and renamed
into place when complete, so a failed run leaves no output store behind.
"""

import argparse
import os
import shutil
import sys


def _parser():
    p = argparse.ArgumentParser(prog="python3 -m vekr.dask", description=__doc__.splitlines()[0])
    sub = p.add_subparsers(dest="op", required=True)
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("input", help="input zarr array (a directory store)")
    common.add_argument("output", help="output zarr store; must not exist")
    common.add_argument("--workers", type=int, default=0,
                        help="worker processes of a local dask.distributed cluster "
                             "(default 0: the threaded scheduler in this process)")
    common.add_argument("--scheduler", help="address of a running dask.distributed scheduler")
    common.add_argument("--memory-limit", default="auto", help="per worker, e.g. 2GB")
    common.add_argument("--threads", type=int, default=0,
                        help="library threads per block (default: cores / workers with --workers, "
                             "else 1, as the threaded scheduler runs one block per core)")
    common.add_argument("--chunks", type=int, help="output chunk edge (default: from the input)")
    common.add_argument("--no-progress", action="store_true")
    z = sub.add_parser("zoom", parents=[common], help="resize by factors")
    z.add_argument("--factors", type=float, nargs="+", required=True, help="1 or 3 factors (z y x)")
    a = sub.add_parser("affine", parents=[common], help="affine transform, output to input")
    a.add_argument("--matrix", type=float, nargs="+", required=True,
                   help="9 (3 x 3) or 12 (3 x 4) numbers, row by row, zyx")
    a.add_argument("--offset", type=float, nargs=3, default=(0.0, 0.0, 0.0))
    a.add_argument("--output-shape", type=int, nargs=3)
    a.add_argument("--cval", type=float, default=0.0)
    for q in (z, a):
        q.add_argument("--order", default="1", help="0, 1, 3 or an interpolation name")
    c = sub.add_parser("convolve", parents=[common], help="int16 convolution")
    c.add_argument("--weights", required=True, help=".npy file with a 3D integer kernel")
    c.add_argument("--divisor", type=int, default=1)
    c.add_argument("--mode", default="reflect")
    return p


def _fail(msg):
    print("vekr.dask: error: " + msg, file=sys.stderr)
    return 1


def run(argv=None):
    args = _parser().parse_args(argv)
    import dask
    import dask.array as da
    import numpy as np
    import zarr
    from . import dask as vd

    order = int(args.order) if args.__dict__.get("order", "x").isdigit() else args.__dict__.get("order")
    if os.path.exists(args.output):
        return _fail("output %s already exists" % args.output)
    try:
        store = zarr.open_array(args.input, mode="r")
        src = da.from_zarr(store)
    except Exception as e:  # zarr raises several types for missing or bad stores
        return _fail("cannot read input array %s: %s" % (args.input, e or type(e).__name__))
    cores = os.cpu_count() or 1
    threads = args.threads or (max(1, cores // args.workers) if args.workers else 1)
    chunks = args.chunks
    try:
        if args.op == "zoom":
            if len(args.factors) not in (1, 3):
                raise ValueError("--factors takes 1 or 3 numbers")
            out = vd.zoom(src, args.factors if len(args.factors) == 3 else args.factors[0], order,
                          chunks=chunks, threads=threads)
        elif args.op == "affine":
            if len(args.matrix) not in (9, 12):
                raise ValueError("--matrix takes 9 or 12 numbers")
            m = np.array(args.matrix).reshape(3, -1)
            out = vd.affine_transform(src, m, args.offset, args.output_shape, chunks, order, args.cval,
                                      threads=threads)
        else:
            w = np.load(args.weights)
            out = vd.convolve(src, w, args.divisor, args.mode, threads=threads)
            if chunks:
                out = out.rechunk(chunks)
    except (ValueError, TypeError, OSError) as e:
        return _fail(str(e))
    except Exception as e:
        return _fail("%s: %s" % (type(e).__name__, e))

    parent = os.path.dirname(os.path.abspath(args.output))
    tmp = os.path.join(parent, ".%s.partial-%d" % (os.path.basename(args.output), os.getpid()))
    client = cluster = None
    try:
        if args.workers or args.scheduler:
            from distributed import Client, LocalCluster, progress
            if args.scheduler:
                client = Client(args.scheduler)
            else:
                cluster = LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                                       memory_limit=args.memory_limit, dashboard_address=None)
                client = Client(cluster)
            job = client.compute(da.to_zarr(out, tmp, compute=False))
            if not args.no_progress:
                progress(job)
                print(file=sys.stderr)
            job.result()
        else:
            from dask.diagnostics import ProgressBar
            job = da.to_zarr(out, tmp, compute=False)
            if args.no_progress:
                dask.compute(job, scheduler="threads")
            else:
                with ProgressBar():
                    dask.compute(job, scheduler="threads")
        os.rename(tmp, args.output)
    except KeyboardInterrupt:
        shutil.rmtree(tmp, ignore_errors=True)
        raise
    except Exception as e:
        shutil.rmtree(tmp, ignore_errors=True)
        return _fail("%s: %s" % (type(e).__name__, e))
    finally:
        if client is not None:
            client.close()
        if cluster is not None:
            cluster.close()
    return 0
