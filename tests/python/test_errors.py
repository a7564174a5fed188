"""Every bad-input class raises the documented exception and writes nothing."""
import numpy as np
import pytest

import vekr

nd = vekr.ndimage
TRI = np.array([[0, 0, 5], [1, 0, 5], [0, 1, 5]], np.float32)
VOL = np.zeros((4, 5, 6), np.float32)
I16 = np.zeros((4, 5, 6), np.int16)
D3 = np.ones((4, 3), np.float32)


def scene():
    return vekr.Scene(TRI, [[0, 1, 2]])


CASES = [
    # dtype -> TypeError naming the accepted dtypes
    (TypeError, "float32 or float64", lambda out: vekr.Scene(TRI.astype(np.int32), [[0, 1, 2]])),
    (TypeError, "int32", lambda out: vekr.Scene(TRI, np.array([[0, 1, 2]], np.float32))),
    (TypeError, "float32", lambda out: scene().intersect([0, 0, 0], D3.astype(np.int64))),
    (TypeError, "uint8, uint16 or float32", lambda out: nd.zoom(VOL.astype(np.int8), 2)),
    (TypeError, "int16", lambda out: nd.convolve(VOL, np.ones((3, 3, 3), int))),
    (TypeError, "int8", lambda out: nd.convolve(I16, np.ones((3, 3, 3)))),
    (TypeError, "float32", lambda out: vekr.sh.basis(D3.astype(np.int32), 2)),
    (TypeError, "float32", lambda out: nd.zoom(VOL, 2, output=out.astype(np.uint8))),
    # ndim / shape
    (ValueError, "dimensions", lambda out: nd.zoom(VOL[0], 2)),
    (ValueError, "dimensions", lambda out: nd.convolve(I16, np.ones((3, 3), int))),
    (ValueError, "(..., 3)", lambda out: vekr.Scene(TRI[:, :2].copy(), [[0, 1, 2]])),
    (ValueError, "(..., 3)", lambda out: scene().occluded([0, 0, 0], D3[:, :2])),
    (ValueError, "shape", lambda out: scene().intersect(D3[:2], D3)),
    (ValueError, "t_max", lambda out: scene().intersect([0, 0, 0], D3, [1.0, 2.0])),
    (ValueError, "shape", lambda out: scene().smooth_normals([0, 0], [0.1], [0.1, 0.2])),
    (ValueError, "wrong shape", lambda out: nd.zoom(VOL, 2, output=out)),
    (ValueError, "(3, ...)", lambda out: nd.map_coordinates(VOL, np.zeros((2, 5), np.float32))),
    (ValueError, "coeffs", lambda out: vekr.sh.reconstruct(np.ones(5), D3)),
    (ValueError, "directions", lambda out: vekr.sh.project(D3, np.ones(5), 2)),
    # values
    (ValueError, "out of range", lambda out: vekr.Scene(TRI, [[0, 1, 3]])),
    (ValueError, "finite", lambda out: vekr.Scene(TRI * np.nan, [[0, 1, 2]])),
    (ValueError, "max_depth", lambda out: vekr.Scene(TRI, [[0, 1, 2]], max_depth=51)),
    (ValueError, "split_threshold", lambda out: vekr.Scene(TRI, [[0, 1, 2]], split_threshold=1.5)),
    (ValueError, "finite", lambda out: scene().intersect([0, 0, 0], D3 * np.inf)),
    (ValueError, "past the last", lambda out: scene().smooth_normals([1], [0.1], [0.1])),
    (ValueError, "threads", lambda out: scene().intersect([0, 0, 0], D3, threads=0)),
    (ValueError, "L", lambda out: vekr.sh.basis(D3, 16)),
    (ValueError, "method", lambda out: vekr.sh.basis(D3, 2, method="fast")),
    (ValueError, "non-zero", lambda out: vekr.sh.basis(D3 * 0, 2)),
    (ValueError, "positive", lambda out: nd.zoom(VOL, (1, 0, 1), output=out)),
    (ValueError, "order", lambda out: nd.zoom(VOL, 1, order=2, output=out)),
    (ValueError, "finite", lambda out: nd.affine_transform(VOL, np.eye(3) * np.nan, output=out)),
    (ValueError, "invertible", lambda out: nd.affine_transform(VOL, np.zeros(3), output=out)),
    (ValueError, "(0, 0, 0, 1)", lambda out: nd.affine_transform(VOL, np.ones((4, 4)), output=out)),
    (ValueError, "divisor", lambda out: nd.convolve(I16, np.ones((3, 3, 3), int), 0)),
    (ValueError, "overflow", lambda out: nd.convolve(I16, np.full((3, 3, 3), 3000))),
    (ValueError, "mode", lambda out: nd.convolve(I16, np.ones((1, 1, 1), int), mode="edge")),
]


@pytest.mark.parametrize("error, words, call", CASES)
def test_bad_input_raises_and_writes_nothing(error, words, call):
    out = np.full(VOL.shape, 42, np.float32)
    with pytest.raises(error, match=None) as info:
        call(out)
    assert words in str(info.value)
    assert (out == 42).all()


def test_closed_scene_refuses_queries():
    s = scene()
    with s:
        pass
    assert s.closed
    for call in (lambda: s.intersect([0, 0, 0], D3), lambda: s.occluded([0, 0, 0], D3),
                 lambda: s.intersect_layers([0, 0, 0], D3, 2), s.triangle_normals,
                 lambda: s.smooth_normals([0], [0.1], [0.1])):
        with pytest.raises(ValueError, match="closed"):
            call()


@pytest.mark.parametrize("call, code, name", [
    (lambda out: vekr.Scene(TRI, [[0, 1, 2]], memory_mb=31), -4, "vekStsNoMem"),
    # The library refuses a forward matrix without a diagonal (an axis permutation).
    (lambda out: nd.affine_transform(VOL, np.eye(3)[[1, 2, 0]], output=out), -56,
     "vekStsAffineCoeff"),
])
def test_negative_status_becomes_vekr_error(call, code, name):
    out = np.full(VOL.shape, 42, np.float32)
    with pytest.raises(vekr.VekrError) as info:
        call(out)
    assert (info.value.code, info.value.name) == (code, name)
    assert (out == 42).all()


def test_version_and_isa():
    v = vekr.version()
    assert vekr.__version__.startswith(f"{v['major']}.{v['minor']}.")
    assert vekr.isa() in ("sse41", "avx2", "avx512")
