"""vekr.ndimage against scipy.ndimage (orders 0 and 1) and an exact int64 convolution."""
import numpy as np
import pytest
import scipy.ndimage as ndi

import vekr

DTYPES = [np.uint8, np.uint16, np.float32]


def volume(dtype, shape=(9, 10, 11), seed=0):
    rng = np.random.default_rng(seed)
    top = 1.0 if dtype == np.float32 else np.iinfo(dtype).max
    return (rng.uniform(0, top, shape)).astype(dtype)


def assert_close(got, ref, dtype):
    """float32 to float32 rounding; integer types round half differently from scipy: within 1."""
    assert got.dtype == dtype and got.shape == ref.shape
    if dtype == np.float32:
        np.testing.assert_allclose(got, ref, rtol=1e-5, atol=1e-5)
    else:
        assert np.abs(got.astype(np.int64) - ref.astype(np.int64)).max() <= 1


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("order", [0, 1])
def test_zoom_matches_scipy_grid_mode(dtype, order):
    # Factors whose voxel centres never fall exactly on an input voxel boundary.
    src = volume(dtype)
    got = vekr.ndimage.zoom(src, (1.5, 2, 0.8), order=order, threads=2)
    ref = ndi.zoom(src.astype(np.float64), (1.5, 2, 0.8), order=order, grid_mode=True,
                   mode="nearest")
    assert_close(got, np.rint(ref).astype(dtype) if dtype != np.float32 else ref, dtype)


def test_zoom_strided_input_output_and_smoothing_modes():
    src = volume(np.float32, (20, 12, 14))[::2]          # a z stride the library takes as is
    out = np.full((20, 24, 7), -1, np.float32)
    assert vekr.ndimage.zoom(src, (2, 2, 0.5), output=out) is out
    np.testing.assert_allclose(out, vekr.ndimage.zoom(np.ascontiguousarray(src), (2, 2, 0.5)))
    for name in ("nearest", "linear", "cubic", "catmull-rom"):   # interpolating: identity
        np.testing.assert_allclose(vekr.ndimage.zoom(src, 1, order=name), src, atol=1e-6)
    blurred = vekr.ndimage.zoom(src, 1, order="bspline")
    assert 0 < np.abs(blurred - src).max() and blurred.std() < src.std()


def rotation(seed):
    q = np.random.default_rng(seed).normal(size=4)
    a, b, c, d = q / np.linalg.norm(q)
    return np.array([[a*a+b*b-c*c-d*d, 2*(b*c-a*d), 2*(b*d+a*c)],
                     [2*(b*c+a*d), a*a-b*b+c*c-d*d, 2*(c*d-a*b)],
                     [2*(b*d-a*c), 2*(c*d+a*b), a*a-b*b-c*c+d*d]])


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("order", [0, 1])
@pytest.mark.parametrize("form", ["3x3+offset", "4x4"])
def test_affine_transform_matches_scipy_constant_mode(dtype, order, form):
    src = volume(dtype, (12, 13, 14), seed=4)
    m = rotation(order) * [[1.1], [0.9], [1.0]]
    offset = np.array([1.3, -0.7, 2.1])
    arg = (m, offset) if form == "3x3+offset" else (np.block([[m, offset[:, None]], [0, 0, 0, 1]]), 0)
    got = vekr.ndimage.affine_transform(src, *arg, output_shape=(10, 15, 13), order=order, cval=7)
    ref = ndi.affine_transform(src.astype(np.float64), m, offset, output_shape=(10, 15, 13),
                               order=order, mode="constant", cval=7)
    assert_close(got, np.rint(ref).astype(dtype) if dtype != np.float32 else ref, dtype)
    assert (got == 7).mean() > 0.05


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("order", [0, 1])
def test_map_coordinates_matches_scipy(dtype, order):
    src = volume(dtype, (8, 9, 10), seed=5)
    rng = np.random.default_rng(6)
    coords = (rng.uniform(-0.5, 1.05, (3, 70007)) * np.array([[7], [8], [9]])).astype(np.float32)
    got = vekr.ndimage.map_coordinates(src, coords, order=order, cval=3, threads=2)
    ref = ndi.map_coordinates(src.astype(np.float64), coords.astype(np.float64), order=order,
                              mode="constant", cval=3)
    assert_close(got, np.rint(ref).astype(dtype) if dtype != np.float32 else ref, dtype)
    grid = vekr.ndimage.map_coordinates(src, coords.reshape(3, 7, 10001), order=order)
    assert grid.shape == (7, 10001)


NP_PAD = {"reflect": "symmetric", "mirror": "reflect", "nearest": "edge", "wrap": "wrap",
          "constant": "constant"}


def int_convolve(src, w, mode, cval):
    """Exact int64 convolution with the kernel centred at shape // 2, as scipy centres it."""
    c = np.array(w.shape) // 2
    pad = [(k - 1 - ci, ci) for k, ci in zip(w.shape, c)]
    kw = {"constant_values": cval} if mode == "constant" else {}
    p = np.pad(src.astype(np.int64), pad, mode=NP_PAD[mode], **kw)
    out = np.zeros(src.shape, np.int64)
    D, H, W = src.shape
    for (k, j, i), wt in np.ndenumerate(w):
        kz, jy, ix = w.shape[0] - 1 - k, w.shape[1] - 1 - j, w.shape[2] - 1 - i
        out += int(wt) * p[kz:kz + D, jy:jy + H, ix:ix + W]
    return out


def divide(s, divisor):
    if divisor == 1:
        q = s
    elif divisor & (divisor - 1) == 0:                    # power of two: half to even
        q = np.rint(s / divisor).astype(np.int64)
    else:
        q = np.rint(s.astype(np.float32) * np.float32(1 / np.float32(divisor))).astype(np.int64)
    return np.clip(q, -32768, 32767).astype(np.int16)


@pytest.mark.parametrize("kshape, divisor, mode", [
    ((3, 3, 3), 1, "reflect"), ((3, 3, 3), 4, "wrap"), ((5, 5, 5), 3, "nearest"),
    ((2, 3, 4), 1, "constant"), ((1, 1, 7), -5, "mirror"), ((4, 2, 1), 16, "reflect")])
@pytest.mark.parametrize("threads", [1, 2])
def test_convolve_exact(kshape, divisor, mode, threads):
    rng = np.random.default_rng(sum(kshape))
    src = rng.integers(-3000, 3000, (10, 19, 21)).astype(np.int16)
    w = rng.integers(-9, 10, kshape)
    got = vekr.ndimage.convolve(src, w, divisor, mode=mode, cval=11, threads=threads)
    s = int_convolve(src, w, mode, 11)
    np.testing.assert_array_equal(got, divide(s, divisor))
    if divisor == 1:
        ref = ndi.convolve(src.astype(np.int64), w, mode=mode, cval=11)
        np.testing.assert_array_equal(got, np.clip(ref, -32768, 32767))


def test_convolve_saturates_and_takes_strided_input():
    src = np.full((6, 40, 18), 30000, np.int16)[:, ::2]
    got = vekr.ndimage.convolve(src, np.ones((1, 1, 2), np.int32))
    assert (got == 32767).all()
