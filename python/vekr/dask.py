"""Chunked resampling and filtering of volumes larger than memory, on Dask.

``zoom``, ``affine_transform``, ``map_coordinates`` and ``convolve`` take a
3D ``dask.array`` and return a lazy one.  Every output block is one library
call on exactly the source block it needs: the source box that the block's
coordinates map into, widened by the interpolation or kernel reach and cut to
the volume.  The call addresses that block as part of the whole volume, so
coordinates, border clamping and the small-volume rules are those of the
whole volume, and the result equals the ``vekr.ndimage`` call on the whole
volume bit for bit, for any chunking.

Run them on any Dask scheduler: the threaded default or a
``dask.distributed`` cluster.  ``threads=`` is the library's thread count per
block (default 1, since Dask already runs one block per core); with
``w`` single-threaded workers on ``c`` cores, ``threads=c // w`` keeps
``w * threads <= c``.

Source chunks are read in place: a block whose source lies inside one chunk
along y and x (say a volume chunked along z only) is read straight from the
chunks it spans along z; otherwise the needed part of each z chunk is first
gathered from the y/x chunks it crosses.  ``store`` computes each block
straight into its region of an existing numpy array.

Command line: ``python3 -m vekr.dask zoom in.zarr out.zarr --factors 1.5``
(see ``--help``).
"""

import itertools
import math
import operator
import uuid

import dask
from dask.base import tokenize
import dask.array as da
from dask.highlevelgraph import HighLevelGraph
import numpy as np

from . import ndimage as _nd
from ._vekr import ndimage as _ext

__all__ = ["zoom", "affine_transform", "map_coordinates", "convolve", "store"]

# Voxels read beyond the mapped box: two for cubic taps, one more for the
# rounding of the library's incremental mapping.
_REACH = 3


def _volume(darr, dtypes):
    if not isinstance(darr, da.Array):
        darr = da.from_array(np.asarray(darr))
    if darr.ndim != 3:
        raise ValueError("input must be 3D")
    if darr.dtype.name not in dtypes:
        raise TypeError("input must be %s, got %s" % (" or ".join(dtypes), darr.dtype.name))
    if 0 in darr.shape:
        raise ValueError("input must not be empty")
    return darr


def _span(lo, hi, n):
    """Source index range [a, b) for mapped coordinates in [lo, hi] on an axis of n."""
    if not (np.isfinite(lo) and np.isfinite(hi)):
        return 0, n
    a = min(max(math.floor(lo) - _REACH, 0), n - 1)
    b = max(min(math.floor(hi) + _REACH + 1, n), a + 1)
    return a, b


def _offsets(chunks):
    return [np.concatenate(([0], np.cumsum(c))).astype(int) for c in chunks]


def _key(keys, idx):
    for i in idx:
        keys = keys[i]
    return keys


def _join(blocks):
    if len(blocks) == len(blocks[0]) == len(blocks[0][0]) == 1:
        return blocks[0][0][0]  # a view: the library takes any slice and row step
    return np.block(blocks)


def _source(darr, zruns, ys, xs):
    """Tasks giving the source as pieces along z, and the pieces' origins.

    The pieces cover the z ranges zruns = [(a, b), ...] over the y/x window
    ys x xs, one per z chunk crossed: a view of the chunk when the window lies
    inside one chunk along y and x, else gathered from the chunks it crosses.
    """
    offs = _offsets(darr.chunks)
    keys = darr.__dask_keys__()

    def cut(axis, a, b):
        o = offs[axis]
        first, last = np.searchsorted(o, a, "right") - 1, np.searchsorted(o, b, "left")
        return [(i, slice(max(a, o[i]) - o[i], min(b, o[i + 1]) - o[i])) for i in range(first, last)]

    y, x = cut(1, *ys), cut(2, *xs)
    pieces, origins = [], []
    for a, b in zruns:
        for i, sz in cut(0, a, b):
            pieces.append((_join, [[[(operator.getitem, _key(keys, (i, j, k)), (sz, sy, sx)) for k, sx in x]
                                    for j, sy in y]]))
            origins.append([int(offs[0][i]) + sz.start, int(ys[0]), int(xs[0])])
    return pieces, origins


def _array(name, tasks, chunks, dtype, deps):
    graph = {(name,) + idx: task for idx, task in tasks}
    hlg = HighLevelGraph.from_collections(name, graph, dependencies=deps)
    arr = da.Array(hlg, name, chunks, dtype)
    arr._vekr_blocks = (tasks, chunks, deps)  # for store(): the same tasks, writing in place
    return arr


def _store_block(target, region, fn, *args):
    fn(*args, out=target[region])


def store(darr, target, **kwargs):
    """Compute ``darr`` into the existing numpy array ``target``.

    The blocks of an array returned by this module's functions are computed
    straight into their regions of ``target``: no block arrays, no copies.
    Anything else (another array, a target that is not a numpy array) goes
    through ``dask.array.store``.  Keyword arguments go to the scheduler.
    """
    blocks = getattr(darr, "_vekr_blocks", None)
    if blocks is None or type(target) is not np.ndarray:
        da.store(darr, target, lock=False, **kwargs)
        return
    if target.shape != darr.shape or target.dtype != darr.dtype:
        raise ValueError("target must have shape %s and dtype %s" % (darr.shape, darr.dtype))
    tasks, chunks, deps = blocks
    offs = _offsets(chunks)
    name = "vekr-store-" + uuid.uuid4().hex
    graph = {(name,) + idx: (_store_block, target,
                             tuple(slice(int(offs[a][i]), int(offs[a][i + 1])) for a, i in enumerate(idx)))
             + task for idx, task in tasks}
    hlg = HighLevelGraph.from_collections(name, graph, dependencies=deps)
    dask.base.compute_as_if_collection(da.Array, hlg, list(graph), **kwargs)


def zoom(darr, factors, order=1, *, chunks=None, threads=1):
    """Lazy ``vekr.ndimage.zoom`` of a 3D dask array.

    The output shape is ``round(darr.shape * factors)``; its chunks are
    ``chunks`` when given, else the input's chunk sizes scaled by the factors.
    """
    darr = _volume(darr, ("uint8", "uint16", "float32"))
    f = np.broadcast_to(np.asarray(factors, dtype=float), (3,))
    if not np.all(np.isfinite(f)) or np.any(f <= 0):
        raise ValueError("zoom factors must be finite and positive")
    out = tuple(int(np.rint(n * z)) for n, z in zip(darr.shape, f))
    if min(out) < 1:
        raise ValueError("zoom gives an empty output")
    _nd.zoom(np.zeros((4, 4, 4), darr.dtype), 1.0, order)  # checks order
    if chunks is None:
        chunks = tuple(max(1, int(round(max(c) * z))) for c, z in zip(darr.chunks, f))
    chunks = da.core.normalize_chunks(chunks, out, dtype=darr.dtype)
    offs = _offsets(chunks)
    name = "vekr-zoom-" + tokenize(darr, f.tolist(), order, chunks, threads)
    tasks = []
    for idx in np.ndindex(*(len(c) for c in chunks)):
        d0 = [int(offs[a][i]) for a, i in enumerate(idx)]
        d1 = [int(offs[a][i + 1]) for a, i in enumerate(idx)]
        spans = [_span((d0[a] + 0.5) * n / m - 0.5, (d1[a] - 0.5) * n / m - 0.5, n)
                 for a, (n, m) in enumerate(zip(darr.shape, out))]
        pieces, origins = _source(darr, spans[:1], *spans[1:])
        tasks.append((idx, (_zoom_task, pieces, origins, list(darr.shape), list(out), d0,
                            [b - a for a, b in zip(d0, d1)], order, threads)))
    return _array(name, tasks, chunks, darr.dtype, [darr])


def _zoom_task(pieces, origins, full, shape, d0, block, order, threads, out=None):
    return _ext._zoom_block(pieces, origins, full, shape, d0, block, order, threads, out)


def _matrix(matrix, offset):
    """(A, b) with input = A @ output + b, as vekr.ndimage reads them."""
    m = np.asarray(matrix, dtype=float)
    b = np.broadcast_to(np.asarray(offset, dtype=float), (3,)).copy()
    if m.shape == (3,):
        a = np.diag(m)
    elif m.ndim == 2 and m.shape in ((3, 3), (3, 4), (4, 4)):
        a = m[:3, :3]
        if m.shape[1] == 4:
            b = m[:3, 3].copy()
    else:
        raise ValueError("matrix must have shape (3,), (3, 3), (3, 4) or (4, 4)")
    if not np.all(np.isfinite(a)) or not np.all(np.isfinite(b)):
        raise ValueError("matrix and offset must be finite")
    det = np.linalg.det(a)
    if not (0 < abs(det) < 1e10):
        raise ValueError("matrix must be invertible, with a determinant below 1e10 in magnitude")
    return a, b


def affine_transform(darr, matrix, offset=0.0, output_shape=None, output_chunks=None, order=1,
                     cval=0.0, *, threads=1):
    """Lazy ``vekr.ndimage.affine_transform`` of a 3D dask array.

    Blocks are computed as slabs of whole output planes, one per z chunk of
    ``output_chunks`` (the library steps the mapping along output rows from
    the plane's corner, so only whole planes reproduce the whole-volume
    rounding), and then rechunked to ``output_chunks``.
    """
    darr = _volume(darr, ("uint8", "uint16", "float32"))
    a, b = _matrix(matrix, offset)
    out = tuple(int(s) for s in (darr.shape if output_shape is None else output_shape))
    if len(out) != 3 or min(out) < 1:
        raise ValueError("output_shape must be 3 positive sizes")
    # The library's own coefficient checks, on a tiny volume.
    _nd.affine_transform(np.zeros((4, 4, 4), darr.dtype), matrix, offset, (1, 1, 1), order=order)
    if output_chunks is None:
        output_chunks = darr.chunksize
    chunks = da.core.normalize_chunks(output_chunks, out, dtype=darr.dtype)
    zoffs = _offsets(chunks[:1])[0]
    name = "vekr-affine-" + tokenize(darr, a, b, out, order, cval, chunks[0], threads)
    tasks = []
    corners = np.array(list(itertools.product(*[(0, n - 1) for n in out[1:]])), dtype=float)
    for i in range(len(chunks[0])):
        z0, z1 = int(zoffs[i]), int(zoffs[i + 1])
        pts = np.concatenate([np.c_[np.full(len(corners), z), corners] for z in (z0, z1 - 1)])
        mapped = pts @ a.T + b
        spans = [_span(mapped[:, k].min(), mapped[:, k].max(), n) for k, n in enumerate(darr.shape)]
        pieces, origins = _source(darr, spans[:1], *spans[1:])
        tasks.append(((i, 0, 0), (_affine_task, pieces, origins, list(darr.shape), np.asarray(matrix, float),
                                  np.asarray(offset, float), list(out), z0, z1 - z0, order, cval, threads)))
    slabs = _array(name, tasks, (chunks[0], (out[1],), (out[2],)), darr.dtype, [darr])
    arr = slabs.rechunk(chunks)
    arr._vekr_blocks = slabs._vekr_blocks  # store() writes whole slabs
    return arr


def _affine_task(pieces, origins, full, matrix, offset, shape, z0, depth, order, cval, threads, out=None):
    return _ext._affine_block(pieces, origins, full, matrix, offset, shape, z0, depth, order, cval,
                              threads, out)


def _bounds(c):
    c = np.asarray(c, dtype=np.float32).reshape(3, -1)
    ok = np.all(np.isfinite(c), axis=0)
    if not ok.any():
        return np.full((3, 2), np.nan)
    c = c[:, ok]
    return np.c_[c.min(axis=1), c.max(axis=1)].astype(float)


def map_coordinates(darr, coordinates, order=1, cval=0.0, *, threads=1):
    """Lazy ``vekr.ndimage.map_coordinates`` of a 3D dask array.

    ``coordinates`` is a dask (or numpy) array of shape (3, ...); the output
    has its shape and chunks without the first axis.  The coordinates' range
    per block is computed first (one pass over them) to find each block's
    source box; the sampling itself stays lazy.
    """
    darr = _volume(darr, ("uint8", "uint16", "float32"))
    coords = coordinates if isinstance(coordinates, da.Array) else da.from_array(np.asarray(coordinates))
    if coords.ndim < 2 or coords.shape[0] != 3:
        raise ValueError("coordinates must have shape (3, ...)")
    if coords.dtype.name not in ("float32", "float64"):
        raise TypeError("coordinates must be float32 or float64, got %s" % coords.dtype.name)
    _nd.zoom(np.zeros((4, 4, 4), darr.dtype), 1.0, order)  # checks order
    coords = coords.rechunk({0: 3})
    cblocks = coords.to_delayed()[0]
    bounds = dask.compute(*[dask.delayed(_bounds)(c) for c in cblocks.ravel()])
    name = "vekr-remap-" + tokenize(darr, coords, order, cval, threads)
    keys = coords.__dask_keys__()[0]
    tasks = []
    for idx, bd in zip(np.ndindex(cblocks.shape), bounds):
        spans = [_span(bd[k, 0], bd[k, 1], n) if np.all(np.isfinite(bd[k])) else (0, 1)
                 for k, n in enumerate(darr.shape)]
        pieces, origins = _source(darr, spans[:1], *spans[1:])
        tasks.append((idx, (_remap_task, pieces, origins, list(darr.shape), _key(keys, idx), order, cval,
                            threads)))
    return _array(name, tasks, coords.chunks[1:], darr.dtype, [darr, coords])


def _remap_task(pieces, origins, full, coords, order, cval, threads, out=None):
    return _ext._remap_block(pieces, origins, full, coords, order, cval, threads, out)


def _border_index(i, n, mode):
    """Source index of padded coordinates i on an axis of n; -1 is the constant."""
    if mode == "nearest":
        return np.clip(i, 0, n - 1)
    if mode == "wrap":
        return i % n
    if mode == "reflect":
        i = i % (2 * n)
        return np.where(i < n, i, 2 * n - 1 - i)
    if mode == "mirror":
        if n == 1:
            return np.zeros_like(i)
        i = i % (2 * n - 2)
        return np.where(i < n, i, 2 * n - 2 - i)
    return np.where((i >= 0) & (i < n), i, -1)


def _runs(idx):
    """The source indices in idx (constants, -1, left out) as sorted maximal runs [a, b)."""
    u = np.unique(idx[idx >= 0])
    cut = np.flatnonzero(np.diff(u) != 1) + 1
    return [(int(r[0]), int(r[-1]) + 1) for r in np.split(u, cut)]


def convolve(darr, weights, divisor=1, mode="reflect", cval=0, *, threads=1):
    """Lazy ``vekr.ndimage.convolve`` of a 3D int16 dask array, same chunks.

    Each block reads its box widened by the kernel's reach along z, and the
    window spanning that reach along y and x, the border voxels taken from
    wherever ``mode`` places them in the whole volume.  (With ``wrap`` the
    window of a block at a y or x border spans the whole axis.)
    """
    darr = _volume(darr, ("int16",))
    w = np.asarray(weights)
    # The in-memory checks of weights, divisor, mode and cval, on one voxel.
    _nd.convolve(np.zeros((1, 1, 1), np.int16), w, divisor, mode=mode, cval=cval)
    below = [k - 1 - k // 2 for k in w.shape]
    offs = _offsets(darr.chunks)
    name = "vekr-convolve-" + tokenize(darr, w, divisor, mode, cval, threads)
    tasks = []
    for idx in np.ndindex(*darr.numblocks):
        d0 = [int(offs[a][i]) for a, i in enumerate(idx)]
        d1 = [int(offs[a][i + 1]) for a, i in enumerate(idx)]
        runs = [_runs(_border_index(np.arange(d0[a] - below[a], d1[a] + w.shape[a] - 1 - below[a]),
                                    darr.shape[a], mode)) for a in range(3)]
        pieces, origins = _source(darr, runs[0], *[(r[0][0], r[-1][1]) for r in runs[1:]])
        tasks.append((idx, (_convolve_task, pieces, origins, list(darr.shape), d0,
                            [b - a for a, b in zip(d0, d1)], w, divisor, mode, cval, threads)))
    return _array(name, tasks, darr.chunks, darr.dtype, [darr])


def _convolve_task(pieces, origins, full, d0, block, w, divisor, mode, cval, threads, out=None):
    return _ext._convolve_block(pieces, origins, full, d0, block, w, divisor, mode, cval, threads, out)


def main(argv=None):
    from ._dask_cli import run
    return run(argv)


if __name__ == "__main__":
    raise SystemExit(main())
