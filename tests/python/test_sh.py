"""vekr.sh against scipy.special.sph_harm turned into the real orthonormal basis."""
import numpy as np
import pytest
from scipy.special import sph_harm

import vekr


def directions(n, seed=0):
    d = np.random.default_rng(seed).normal(size=(n, 3))
    return d / np.linalg.norm(d, axis=1, keepdims=True)


def real_basis(d, L):
    """Real basis with the Condon-Shortley phase from scipy's complex harmonics (float64)."""
    polar = np.arccos(np.clip(d[:, 2], -1, 1))
    azimuth = np.arctan2(d[:, 1], d[:, 0])
    cols = []
    for l in range(L + 1):
        for m in range(-l, l + 1):
            y = sph_harm(abs(m), l, azimuth, polar)
            cols.append(y.real if m == 0 else np.sqrt(2) * (y.real if m > 0 else y.imag))
    return np.stack(cols, axis=1)


@pytest.mark.parametrize("L", [0, 1, 4, 15])
@pytest.mark.parametrize("method", ["direct", "recurrence"])
def test_basis_matches_scipy(L, method):
    d = directions(257)
    got = vekr.sh.basis(d.astype(np.float32), L, method)
    assert got.shape == (257, (L + 1) ** 2) and got.dtype == np.float32
    np.testing.assert_allclose(got, real_basis(d, L), atol=2e-5 * (L + 1))


def test_band_is_the_slice_of_basis_and_directions_are_normalised():
    d = directions(100, 1)
    full = vekr.sh.basis(d * 3.5, 15, threads=2)
    for l in (0, 2, 9, 15):
        np.testing.assert_allclose(vekr.sh.band(d, l), full[:, l * l:(l + 1) ** 2], atol=5e-6)
    np.testing.assert_allclose(full, vekr.sh.basis(d, 15), atol=5e-6)


@pytest.mark.parametrize("channels", [1, 3])
def test_project_then_reconstruct_recovers_a_band_limited_function(channels):
    L = 3
    rng = np.random.default_rng(2)
    coeffs = rng.normal(size=((L + 1) ** 2, channels)).squeeze()
    i = np.arange(40000) + 0.5                       # Fibonacci sphere: near-uniform samples
    z, phi = 1 - 2 * i / i.size, np.pi * (1 + 5 ** 0.5) * i
    d = np.stack([np.sqrt(1 - z * z) * np.cos(phi), np.sqrt(1 - z * z) * np.sin(phi), z], axis=1)
    values = real_basis(d, L) @ coeffs
    got = vekr.sh.project(d, values, L, threads=2)
    assert got.shape == coeffs.shape
    np.testing.assert_allclose(got, coeffs, atol=5e-3)
    back = vekr.sh.reconstruct(coeffs, d[:500])
    np.testing.assert_allclose(back, values[:500], atol=1e-5)
