"""Resample the skull volume of libcgal-demo to 1 mm voxels and write orthogonal slices.

    bash scripts/python.sh examples/python/skull_slices.py [skull_2.9.inr] [out_prefix]

Writes <out_prefix>_axial.png, _coronal.png, _sagittal.png and _oblique.png
(default prefix: skull).
"""
import pathlib
import re
import sys

import numpy as np

import vekr
from png import write_png


def load_inr(path):
    """An INRIMAGE-4 file: a text header in 256-byte blocks, then raw voxels (x fastest)."""
    data = pathlib.Path(path).read_bytes()
    end = data.index(b"##}") + 4
    header = data[:((end + 255) // 256) * 256].decode("ascii", "replace")
    field = dict(re.findall(r"(\w+)=([^\n]+)", header))
    dims = [int(field[k]) for k in ("ZDIM", "YDIM", "XDIM")]
    spacing = [float(field.get(k, 1)) for k in ("VZ", "VY", "VX")]
    dtype = {"float": "<f4", "unsigned fixed": "<u1" if field["PIXSIZE"].startswith("8") else "<u2"}
    vol = np.frombuffer(data, dtype[field["TYPE"]], int(np.prod(dims)), len(header)).reshape(dims)
    return vol.astype(np.float32), np.array(spacing)


def main():
    here = pathlib.Path(__file__).resolve().parents[2]
    path = sys.argv[1] if len(sys.argv) > 1 else next(
        p for p in (here / "data/skull_2.9.inr", here.parent / "shared/data/skull_2.9.inr")
        if p.exists())
    prefix = sys.argv[2] if len(sys.argv) > 2 else "skull"
    vol, spacing = load_inr(path)
    iso = vekr.ndimage.zoom(vol, spacing / 1.0, order="catmull-rom")    # 1 mm voxels
    d, h, w = iso.shape
    write_png(f"{prefix}_axial.png", iso[d // 2])
    write_png(f"{prefix}_coronal.png", iso[::-1, h // 2])
    write_png(f"{prefix}_sagittal.png", iso[::-1, :, w // 2])
    # An oblique slice: a 30 degree tilt about x through the centre, by affine_transform.
    a = np.radians(30)
    rot = np.array([[np.cos(a), -np.sin(a), 0], [np.sin(a), np.cos(a), 0], [0, 0, 1]])
    c = (np.array(iso.shape) - 1) / 2
    tilted = vekr.ndimage.affine_transform(iso, rot, c - rot @ c, order=1)
    write_png(f"{prefix}_oblique.png", tilted[d // 2])
    print(f"{vol.shape} at {spacing} mm -> {iso.shape} at 1 mm; wrote {prefix}_*.png")


if __name__ == "__main__":
    main()
