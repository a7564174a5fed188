"""Minimal 8-bit greyscale PNG writer (zlib + struct only), shared by the examples."""
import struct
import zlib

import numpy as np


def write_png(path, image):
    """Write a 2D array scaled from its min..max (NaN as black) to an 8-bit PNG."""
    img = np.asarray(image, np.float64)
    finite = np.isfinite(img)
    lo, hi = (img[finite].min(), img[finite].max()) if finite.any() else (0.0, 1.0)
    grey = np.where(finite, (img - lo) / ((hi - lo) or 1.0) * 255, 0).astype(np.uint8)
    raw = b"".join(b"\0" + row.tobytes() for row in grey)

    def chunk(tag, data):
        return struct.pack(">I", len(data)) + tag + data + struct.pack(">I", zlib.crc32(tag + data))

    h, w = grey.shape
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 0, 0, 0, 0))
                + chunk(b"IDAT", zlib.compress(raw, 6)) + chunk(b"IEND", b""))
