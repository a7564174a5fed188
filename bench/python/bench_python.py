"""vekr from Python against scipy.ndimage and PyTorch on the same arrays, and the
Python overhead of ray queries against the bare C call (through ctypes).

    PYTHONPATH=build/python /usr/bin/python3 bench/python/bench_python.py

Prints the median of several runs per case, in milliseconds.  Run it on an idle
machine (no compiler running).
"""
import ctypes
import pathlib
import statistics
import sys
import time

import numpy as np
import scipy.ndimage as ndi
import torch
import torch.nn.functional as F

import vekr

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "python"))
from conftest import load_off  # noqa: E402


def median_ms(fn, runs=7):
    fn()
    times = []
    for _ in range(runs):
        t0 = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t0)
    return statistics.median(times) * 1e3


def row(name, scipy_ms, cases):
    cells = "  ".join(f"{k} {v:8.2f} ({scipy_ms / v:5.1f}x)" for k, v in cases.items())
    print(f"{name:34s} scipy {scipy_ms:8.2f}  {cells}")


def volumes():
    rng = np.random.default_rng(0)
    vol = ndi.gaussian_filter(rng.random((128, 128, 128)), 2).astype(np.float32)
    n = vol.shape[0]
    t = torch.from_numpy(vol)[None, None]
    a = np.radians(20)
    rot = np.array([[1, 0, 0], [0, np.cos(a), -np.sin(a)], [0, np.sin(a), np.cos(a)]])
    c = (np.array(vol.shape) - 1) / 2
    off = c - rot @ c
    # torch's affine_grid works in normalised (x, y, z) coordinates: the same rotation.
    theta = torch.tensor(np.hstack([rot[::-1, ::-1], np.zeros((3, 1))])[None], dtype=torch.float32)
    coords = (rng.random((3, 2_000_000)) * (n - 1)).astype(np.float32)
    grid = torch.from_numpy((coords[::-1].T / (n - 1) * 2 - 1).copy()).reshape(1, 1, 1, -1, 3)
    i16 = (vol * 1000).astype(np.int16)
    k = np.ones((3, 3, 3), np.int64)
    k16 = torch.ones((1, 1, 3, 3, 3))
    t16 = torch.from_numpy(i16.astype(np.float32))[None, None]
    cases = [
        ("zoom x1.5 linear (float32)", lambda: ndi.zoom(vol, 1.5, order=1, grid_mode=True, mode="nearest"),
         lambda th: vekr.ndimage.zoom(vol, 1.5, order=1, threads=th),
         lambda: F.interpolate(t, scale_factor=1.5, mode="trilinear", align_corners=False)),
        ("zoom x1.5 linear (uint8)", lambda: ndi.zoom(vol.astype(np.uint8), 1.5, order=1, grid_mode=True, mode="nearest"),
         lambda th: vekr.ndimage.zoom((vol * 255).astype(np.uint8), 1.5, order=1, threads=th), None),
        ("affine_transform rot20 linear", lambda: ndi.affine_transform(vol, rot, off, order=1),
         lambda th: vekr.ndimage.affine_transform(vol, rot, off, order=1, threads=th),
         lambda: F.grid_sample(t, F.affine_grid(theta, t.shape, align_corners=True), align_corners=True)),
        ("map_coordinates 2M linear", lambda: ndi.map_coordinates(vol, coords, order=1),
         lambda th: vekr.ndimage.map_coordinates(vol, coords, order=1, threads=th),
         lambda: F.grid_sample(t, grid, align_corners=True)),
        ("convolve 3x3x3 (int16)", lambda: ndi.convolve(i16, k),
         lambda th: vekr.ndimage.convolve(i16, k, threads=th),
         lambda: F.conv3d(t16, k16, padding=1)),
    ]
    print(f"volume {vol.shape}; ratios are scipy time / time")
    for name, sp, vk, tc in cases:
        s = median_ms(sp, 3)
        res = {}
        for th in (1, 2):
            res[f"vekr{th}t"] = median_ms(lambda: vk(th))
            if tc is not None:
                torch.set_num_threads(th)
                res[f"torch{th}t"] = median_ms(tc)
        row(name, s, res)


def c_path_rays():
    """Nearest hits of 1M eye rays on the bunny: vekr.Scene.intersect against one bare
    vekrIntersectEyeSO_32f call on prepared planar arrays (same tree parameters)."""
    root = pathlib.Path(__file__).resolve().parents[2]
    lib = ctypes.CDLL(str(next((root / "build" / "src").glob("libvekr.so"))))
    data = next(p for p in (root / "data/bunny00.off", root.parent / "shared/data/bunny00.off") if p.exists())
    v, f = load_off(data)
    scene = vekr.Scene(v, f)
    lo, hi = v.min(axis=0), v.max(axis=0)
    eye = ((lo + hi) / 2 + [0, 0, 2.5 * (hi - lo).max()]).astype(np.float32)
    rays = vekr.camera_rays(eye, (lo + hi) / 2, [0, 1, 0], 25, 1024, 1024)

    fp = ctypes.POINTER(ctypes.c_float)
    tris = np.zeros((len(f), 4), np.int32)
    tris[:, :3] = f
    box = (ctypes.c_float * 6)()
    lib.vekrSetBoundBox_32f(v.ctypes.data_as(fp), len(v), box)
    accel = np.zeros(len(f) * 10, np.float32)
    lib.vekrTriangleAccelInit(accel.ctypes.data_as(fp), v.ctypes.data_as(fp), tris.ctypes.data, len(f))

    class Params(ctypes.Structure):
        _fields_ = [("magic", ctypes.c_uint32), ("depth", ctypes.c_int32), ("split", ctypes.c_float),
                    ("mb", ctypes.c_uint32), ("region", ctypes.c_void_p)]

    tree, size = ctypes.c_void_p(), ctypes.c_int()
    assert lib.vekrKDTreeBuildAlloc(ctypes.byref(tree), v.ctypes.data_as(fp), tris.ctypes.data, len(v),
                                    len(f), ctypes.byref(size), ctypes.byref(Params(0x2D07705B, 50, 0.0, 256))) == 0
    ctx = (ctypes.c_void_p * 3)(ctypes.addressof(box), accel.ctypes.data, tree.value)
    n = rays.shape[0] * rays.shape[1]
    planes = np.ascontiguousarray(rays.reshape(-1, 3).T)
    dist, hu, hv = (np.empty(n, np.float32) for _ in range(3))
    tri = np.empty(n, np.int32)
    dirs = (fp * 3)(*(planes[c].ctypes.data_as(fp) for c in range(3)))
    hits = (fp * 2)(hu.ctypes.data_as(fp), hv.ctypes.data_as(fp))
    eye_c = (ctypes.c_float * 3)(*eye)

    class Size(ctypes.Structure):
        _fields_ = [("w", ctypes.c_int32), ("h", ctypes.c_int32)]

    def c_call():
        dist.fill(np.inf)
        lib.vekrIntersectEyeSO_32f(eye_c, dirs, dist.ctypes.data_as(fp), hits, tri.ctypes.data, ctx,
                                   Size(4, n // 4))

    # The two sides alternate, so that drift of the machine's speed falls on both.
    c_times, py_times = [], []
    for _ in range(15):
        c_times.append(median_ms(c_call, 1))
        py_times.append(median_ms(lambda: scene.intersect(eye, rays, threads=1), 1))
    c_ms, py_ms = statistics.median(c_times), statistics.median(py_times)
    py2_ms = median_ms(lambda: scene.intersect(eye, rays, threads=2))
    t, _, _, ptri = scene.intersect(eye, rays, threads=1)
    c_call()
    assert (ptri.ravel() == tri).mean() > 0.999
    print(f"rays: 1M eye rays on bunny ({len(f)} triangles): C call {c_ms:.1f} ms, "
          f"Scene.intersect {py_ms:.1f} ms (overhead {100 * (py_ms / c_ms - 1):+.1f}%), "
          f"2 threads {py2_ms:.1f} ms")
    lib.vekrKDTreeFree(tree)


if __name__ == "__main__":
    print(f"vekr {vekr.__version__}, isa {vekr.isa()}, torch {torch.__version__}")
    c_path_rays()
    volumes()
