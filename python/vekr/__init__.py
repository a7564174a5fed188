"""vekr: CPU ray tracing, spherical harmonics and volume resampling for numpy.

Names
-----
Scene
    A triangle mesh prepared for ray queries (nearest hit, occlusion,
    successive hits, normals).
camera_rays
    Eye-ray directions of a pinhole camera.
sh
    Real spherical harmonics: ``basis``, ``band``, ``project``, ``reconstruct``.
ndimage
    ``zoom``, ``affine_transform``, ``map_coordinates``, ``convolve`` on 3D
    volumes, named and shaped like ``scipy.ndimage``.
VekrError
    Raised when the library returns an error status.
version, isa
    The library's version record and the instruction-set level in use.

Every call releases the GIL while the library runs and takes ``threads=``.
Bad dtypes raise TypeError, bad shapes or values ValueError, before anything
is computed.
"""

from ._errors import VekrError
from ._vekr import Scene, camera_rays, isa, version
from . import ndimage, sh

__version__ = "{major}.{minor}.0".format(**version())

__all__ = ["Scene", "VekrError", "camera_rays", "isa", "ndimage", "sh", "version",
           "__version__"]
