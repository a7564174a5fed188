"""vekr.Scene against a float64 brute-force ray/triangle test on random and real meshes."""
import numpy as np
import pytest

import vekr
from conftest import brute_force, data_file, load_off, random_mesh


def edge_margin(wa, wb, rows, cols):
    w = np.stack([wa[rows, cols], wb[rows, cols], 1 - wa[rows, cols] - wb[rows, cols]])
    return np.abs(w).min(axis=0)


def check_nearest(v, f, origins, dirs, t, u, w, tri):
    """Library hits equal the brute force except on rays that graze an edge or a near tie."""
    bt, wa, wb = brute_force(v, f, origins, dirs)
    rows = np.arange(len(dirs))
    best = bt.argmin(axis=1)
    hit = np.isfinite(bt[rows, best])
    expect = np.where(hit, best, -1)
    srt = np.sort(bt, axis=1)
    with np.errstate(invalid="ignore"):
        near_tie = (srt[:, 1] - srt[:, 0]) <= 1e-3 * np.abs(srt[:, 0])
    grazing = np.where(hit, edge_margin(wa, wb, rows, best) < 1e-4, False)
    lib_graze = np.where(tri >= 0, edge_margin(wa, wb, rows, np.maximum(tri, 0)) < 1e-4, False)
    bad = (tri != expect) & ~(near_tie | grazing | lib_graze)
    assert not bad.any(), np.flatnonzero(bad)[:10]
    assert (tri != expect).mean() < 0.01
    same = (tri == expect) & hit
    np.testing.assert_allclose(t[same], bt[rows, best][same], rtol=2e-4, atol=1e-5)
    np.testing.assert_allclose(u[same], wa[rows, best][same], atol=2e-4)
    np.testing.assert_allclose(w[same], wb[rows, best][same], atol=2e-4)
    assert np.isinf(t[tri < 0]).all()


def random_rays(rng, n, lo=-1.5, hi=1.5):
    d = rng.normal(size=(n, 3)).astype(np.float32)
    return d / np.linalg.norm(d, axis=1, keepdims=True) * rng.uniform(0.5, 2, (n, 1)).astype(np.float32)


@pytest.mark.parametrize("n, per_ray, threads", [(1, False, 1), (37, True, 1), (1003, False, 2),
                                                 (1003, True, 2), (5000, True, 3)])
def test_nearest_hit_random_mesh(n, per_ray, threads):
    rng = np.random.default_rng(n)
    v, f = random_mesh(rng)
    dirs = random_rays(rng, n)
    origins = rng.uniform(-1.5, 1.5, (n, 3)).astype(np.float32) if per_ray else \
        np.array([0.1, -0.2, 0.05], np.float32)
    with vekr.Scene(v, f) as scene:
        res = scene.intersect(origins, dirs, threads=threads)
        check_nearest(v, f, origins, dirs, *res)


def test_nearest_hit_bunny_and_t_max():
    v, f = load_off(data_file("bunny00.off"))
    rng = np.random.default_rng(1)
    lo, hi = v.min(axis=0), v.max(axis=0)
    eye = (hi + (hi - lo) * 0.8).astype(np.float32)
    targets = rng.uniform(lo, hi, (150, 3)).astype(np.float32)
    dirs = targets - eye
    scene = vekr.Scene(v, f)
    t, u, w, tri = scene.intersect(eye, dirs)
    check_nearest(v, f, eye, dirs, t, u, w, tri)
    # A limit just below each hit turns it into a miss; just above keeps it.
    hit = tri >= 0
    assert (scene.intersect(eye, dirs[hit], t[hit] * 0.999)[3] == -1).all()
    assert (scene.intersect(eye, dirs[hit], t[hit] * 1.001)[3] == tri[hit]).all()


@pytest.mark.parametrize("threads", [1, 2])
def test_occluded_matches_any_hit_on_segment(threads):
    rng = np.random.default_rng(7)
    v, f = random_mesh(rng)
    origin = np.array([0.0, 0.1, -0.2], np.float32)
    targets = rng.uniform(-1.5, 1.5, (2001, 3)).astype(np.float32)
    blocked = vekr.Scene(v, f).occluded(origin, targets, threads=threads)
    bt, wa, wb = brute_force(v, f, origin, targets - origin)
    on_segment = bt < 1
    certain = ~(((bt > 0.999) & (bt < 1.001)).any(axis=1))
    margin = np.where(np.isfinite(bt), np.minimum(np.minimum(wa, wb), 1 - wa - wb), 1)
    certain &= ~((np.abs(margin) < 1e-4) & (np.abs(bt) < 1.01)).any(axis=1)
    np.testing.assert_array_equal(blocked[certain], on_segment.any(axis=1)[certain])
    assert certain.mean() > 0.95


def test_layers_are_successive_hits():
    rng = np.random.default_rng(3)
    v, f = random_mesh(rng, 200)
    origin = np.array([0.0, 0.0, -2.5], np.float32)
    dirs = (rng.uniform(-1, 1, (500, 3)) * [1, 1, 0] + [0, 0, 2.5]).astype(np.float32)
    t, u, w, tri = vekr.Scene(v, f).intersect_layers(origin, dirs, 4)
    assert t.shape == (500, 4) and tri.dtype == np.int32
    bt, wa, wb = brute_force(v, f, origin, dirs)
    srt = np.sort(bt, axis=1)[:, :5]
    with np.errstate(invalid="ignore"):
        gaps = np.diff(np.concatenate([np.zeros((500, 1)), srt], axis=1), axis=1)
    clean = ((gaps > 1e-3) | ~np.isfinite(srt)).all(axis=1)
    for r in np.flatnonzero(clean):
        k = np.isfinite(srt[r, :4])
        np.testing.assert_array_equal(tri[r, :4][k], np.argsort(bt[r])[:4][k])
        np.testing.assert_allclose(t[r][k], srt[r, :4][k], rtol=1e-3)
        assert (tri[r][~k] == -1).all() and np.isinf(t[r][~k]).all()
    assert clean.mean() > 0.9


def test_camera_depth_and_normals():
    quad = np.array([[-9, -9, 5], [9, -9, 5], [9, 9, 5], [-9, 9, 5]], np.float32)
    scene = vekr.Scene(quad, [[0, 1, 2], [0, 2, 3]])
    rays = vekr.camera_rays([0, 0, 0], [0, 0, 1], [0, 1, 0], 60, 33, 17)
    assert rays.shape == (17, 33, 3)
    assert rays[0, 16, 1] > 0 > rays[-1, 16, 1]          # row 0 is the top
    t, u, w, tri = scene.intersect([0, 0, 0], rays)
    np.testing.assert_allclose(t, 5, rtol=1e-5)            # depth along the view axis
    np.testing.assert_allclose(scene.triangle_normals(), [[0, 0, 1]] * 2, atol=1e-7)
    n = scene.smooth_normals(tri, u, w)
    assert (tri >= 0).all()
    np.testing.assert_allclose(n, np.broadcast_to([0, 0, 1], n.shape), atol=1e-6)
    bent = np.array([[0, 0, 1], [1, 0, 0], [0, 1, 0], [0, 0, 1]], np.float32)
    n = scene.smooth_normals(np.array([0, -1]), np.array([0.5, 0.3]), np.array([0.25, 0.3]), bent)
    ref = 0.5 * bent[0] + 0.25 * bent[1] + 0.25 * bent[2]
    np.testing.assert_allclose(n, [ref / np.linalg.norm(ref), [0, 0, 0]], atol=1e-6)
