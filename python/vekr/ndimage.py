"""Resampling and filtering of 3D volumes, named and shaped like scipy.ndimage."""

from ._vekr.ndimage import affine_transform, convolve, map_coordinates, zoom

__all__ = ["zoom", "affine_transform", "map_coordinates", "convolve"]
