"""Shared references for the vekr Python tests: meshes and a float64 brute-force ray caster."""
import os
import pathlib

import numpy as np
import pytest


def data_file(name):
    dirs = os.environ.get("VEKR_DATA_DIRS", "")
    here = pathlib.Path(__file__).resolve().parents[2]
    for d in dirs.split(":") + [str(here / "data"), str(here.parent / "shared" / "data")]:
        p = pathlib.Path(d) / name
        if d and p.exists():
            return p
    pytest.skip(f"{name} not available")


def load_off(path):
    words = path.read_text().split()
    assert words[0] == "OFF"
    nv, nf = int(words[1]), int(words[2])
    v = np.array(words[4:4 + 3 * nv], dtype=np.float64).reshape(nv, 3)
    f = np.array(words[4 + 3 * nv:4 + 3 * nv + 4 * nf], dtype=np.int64).reshape(nf, 4)
    assert (f[:, 0] == 3).all()
    return v.astype(np.float32), f[:, 1:]


def random_mesh(rng, n=300):
    centres = rng.uniform(-1, 1, (n, 1, 3))
    v = (centres + rng.normal(0, 0.15, (n, 3, 3))).reshape(-1, 3).astype(np.float32)
    return v, np.arange(3 * n).reshape(n, 3)


def brute_force(vertices, triangles, origins, directions):
    """All ray/triangle hits in float64 (Moller-Trumbore): t (R, T) with inf for no hit,
    and the barycentric weights of the first and second vertex."""
    v = vertices.astype(np.float64)
    a, b, c = (v[triangles[:, k]] for k in range(3))
    o = np.broadcast_to(np.asarray(origins, np.float64), directions.shape)[:, None, :]
    d = directions.astype(np.float64)[:, None, :]
    e1, e2 = a - c, b - c
    p = np.cross(d, e2)
    det = np.einsum("rtk,tk->rt", p, e1)
    with np.errstate(divide="ignore", invalid="ignore"):
        s = o - c
        wa = np.einsum("rtk,rtk->rt", s, p) / det
        q = np.cross(s, e1)
        wb = np.einsum("rtk,rtk->rt", d, q) / det
        t = np.einsum("tk,rtk->rt", e2, q) / det
    ok = (wa >= 0) & (wb >= 0) & (wa + wb <= 1) & (t > 0) & np.isfinite(t)
    return np.where(ok, t, np.inf), wa, wb
