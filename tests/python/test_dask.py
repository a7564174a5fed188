"""vekr.dask: chunked results equal the whole-volume vekr.ndimage call bit for bit."""

import subprocess
import sys

import numpy as np
import pytest

da = pytest.importorskip("dask.array")
import dask  # noqa: E402

import vekr.dask as vd  # noqa: E402
from vekr import ndimage  # noqa: E402

# Input chunks and output chunk edges: uneven, one voxel across, one chunk.
CHUNKS = [(((3, 1, 5, 2), (4, 5, 2), (1, 6, 4)), (4, 1, 3)), ((1, 2, 3), (1, 2, 3)), (11, 40)]


def volume(dtype, shape=(11, 11, 11), seed=1):
    v = np.random.default_rng(seed).uniform(0, 250, shape)
    return v.astype(dtype)


def same(got, want):
    assert got.dtype == want.dtype and got.shape == want.shape
    np.testing.assert_array_equal(got.view(np.uint8), want.view(np.uint8))


@pytest.mark.parametrize("chunks", CHUNKS)
@pytest.mark.parametrize("dtype", ["uint8", "uint16", "float32"])
@pytest.mark.parametrize("order", [0, 1, 3, "bspline"])
def test_resampling_matches_whole_volume(chunks, dtype, order):
    v = volume(dtype)
    chunks, out_chunks = chunks
    d = da.from_array(v, chunks=chunks)
    for factors in (1.7, (0.45, 1.0, 2.3)):
        same(vd.zoom(d, factors, order, chunks=out_chunks).compute(), ndimage.zoom(v, factors, order))
    rot = np.array([[0.9, -0.3, 0.1], [0.35, 0.85, -0.2], [0.05, 0.2, 1.1]])
    for m, off, shape in ((rot, (1.5, -2.0, 0.7), (12, 9, 13)), ((0.5, 1.3, 0.8), 0.25, None)):
        same(vd.affine_transform(d, m, off, shape, out_chunks, order, cval=7).compute(),
             ndimage.affine_transform(v, m, off, shape, order=order, cval=7))
    coords = np.random.default_rng(2).uniform(-1, 11.5, (3, 9, 10)).astype(np.float32)
    coords[:, 0, :3] = [[0, 10, 10.0], [0, 0, 10], [10, 10, 0]]  # volume corners
    c = da.from_array(coords, chunks=(3, (2, 7), (5, 1, 4)))
    same(vd.map_coordinates(d, c, order, cval=3).compute(),
         ndimage.map_coordinates(v, coords, order=order, cval=3))


@pytest.mark.parametrize("chunks", CHUNKS)
@pytest.mark.parametrize("mode", ["reflect", "mirror", "nearest", "wrap", "constant"])
def test_convolve_matches_whole_volume(chunks, mode):
    v = (volume(np.float32, seed=3) * 200 - 25000).astype(np.int16)
    d = da.from_array(v, chunks=chunks[0])
    rng = np.random.default_rng(4)
    for shape, divisor in (((3, 3, 3), 1), ((5, 5, 5), 4), ((2, 4, 3), 3), ((5, 1, 6), -7)):
        w = rng.integers(-40, 40, shape)
        same(vd.convolve(d, w, divisor, mode, cval=-9).compute(),
             ndimage.convolve(v, w, divisor, mode=mode, cval=-9))


@pytest.mark.parametrize("chunks, strided", [(((3, 1, 5, 2), 11, 11), False), ((4, 5, 3), True)])
def test_store_writes_blocks_into_target(chunks, strided):
    v = volume(np.float32)
    d = da.from_array(v, chunks=chunks)
    v16 = (v * 200 - 25000).astype(np.int16)
    rot = np.array([[0.9, -0.3, 0.1], [0.35, 0.85, -0.2], [0.05, 0.2, 1.1]])
    coords = np.random.default_rng(2).uniform(-1, 11.5, (3, 9, 10)).astype(np.float32)
    w = np.random.default_rng(4).integers(-40, 40, (5, 3, 4))
    for lazy, want in [
        (vd.zoom(d, 1.7, 3), ndimage.zoom(v, 1.7, 3)),
        (vd.affine_transform(d, rot, (1.5, -2, 0.7), (12, 9, 13), 5, cval=7),
         ndimage.affine_transform(v, rot, (1.5, -2, 0.7), (12, 9, 13), cval=7)),
        (vd.map_coordinates(d, da.from_array(coords, chunks=(3, (2, 7), (5, 1, 4))), 1, cval=3),
         ndimage.map_coordinates(v, coords, cval=3)),
        (vd.convolve(da.from_array(v16, chunks=chunks), w, 3, "wrap"), ndimage.convolve(v16, w, 3, mode="wrap")),
        (d + 1, v + 1),
    ]:
        target = np.zeros(want.shape[:-1] + (2 * want.shape[-1],), want.dtype)[..., ::2 if strided else 1]
        target = target[..., :want.shape[-1]]
        vd.store(lazy, target)
        same(np.ascontiguousarray(target), want)


def test_two_process_cluster_and_zarr(tmp_path):
    distributed = pytest.importorskip("distributed")
    zarr = pytest.importorskip("zarr")
    v = volume(np.float32, (20, 17, 19))
    zarr.save_array(str(tmp_path / "in.zarr"), v, chunks=(7, 9, 8))
    src = da.from_zarr(str(tmp_path / "in.zarr"))
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, distributed.Client(cluster):
        da.to_zarr(vd.zoom(src, 1.5, 3, threads=1), str(tmp_path / "out.zarr"))
        conv = vd.convolve(src.astype(np.int16), np.ones((3, 3, 3), int), 27).compute()
    same(zarr.open_array(str(tmp_path / "out.zarr"))[...], ndimage.zoom(v, 1.5, 3))
    same(conv, ndimage.convolve(v.astype(np.int16), np.ones((3, 3, 3), int), 27))


def cli(*args):
    return subprocess.run([sys.executable, "-m", "vekr.dask", *map(str, args), "--no-progress"],
                          capture_output=True, text=True)


def test_command_line(tmp_path):
    zarr = pytest.importorskip("zarr")
    v = volume(np.uint16, (9, 10, 8))
    src, out = tmp_path / "in.zarr", tmp_path / "out.zarr"
    zarr.save_array(str(src), v, chunks=(4, 4, 4))
    r = cli("zoom", src, out, "--factors", 1.5, "--order", 1)
    assert r.returncode == 0, r.stderr
    same(zarr.open_array(str(out))[...], ndimage.zoom(v, 1.5, 1))
    bad = [(("zoom", tmp_path / "missing.zarr", tmp_path / "o1", "--factors", 2), "cannot read"),
           (("zoom", src, tmp_path / "o2", "--factors", -1), "positive"),
           (("zoom", src, tmp_path / "o3", "--factors", 2, "--order", 2), "order"),
           (("affine", src, tmp_path / "o4", "--matrix", 1, 0, 0, 2, 0, 0, 0, 0, 1), "invertible"),
           (("zoom", src, out, "--factors", 2), "exists")]
    for args, message in bad:
        r = cli(*args)
        assert r.returncode != 0 and message in r.stderr, (args, r.stderr)
    assert sorted(p.name for p in tmp_path.iterdir()) == ["in.zarr", "out.zarr"]


@pytest.mark.parametrize("call, error", [
    (lambda d: vd.zoom(d, 0), ValueError),
    (lambda d: vd.zoom(d.astype(np.int16), 2), TypeError),
    (lambda d: vd.affine_transform(d, np.zeros((3, 3))), ValueError),
    (lambda d: vd.map_coordinates(d, np.zeros((2, 4))), ValueError),
    (lambda d: vd.convolve(d.astype(np.int16), np.ones((3, 3, 3), int), 0), ValueError),
])
def test_bad_inputs(call, error):
    with pytest.raises(error):
        call(da.zeros((4, 4, 4), dtype=np.float32, chunks=2))
