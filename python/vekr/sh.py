"""Real spherical harmonics of bands 0 to 15 (orthonormal, Condon-Shortley phase)."""

from ._vekr.sh import band, basis, project, reconstruct

__all__ = ["basis", "band", "project", "reconstruct"]
