"""Render a depth image and a shadowed Lambert image of a mesh with vekr.Scene.

    bash scripts/python.sh examples/python/render_depth.py [mesh.off] [out_prefix]

Writes <out_prefix>_depth.png and <out_prefix>_shadow.png (default prefix: bunny).
"""
import pathlib
import sys

import numpy as np

import vekr
from png import write_png


def load_off(path):
    words = pathlib.Path(path).read_text().split()
    nv, nf = int(words[1]), int(words[2])
    v = np.array(words[4:4 + 3 * nv], np.float32).reshape(nv, 3)
    f = np.array(words[4 + 3 * nv:4 + 3 * nv + 4 * nf], np.int64).reshape(nf, 4)[:, 1:]
    return v, f


def main():
    here = pathlib.Path(__file__).resolve().parents[2]
    mesh = sys.argv[1] if len(sys.argv) > 1 else next(
        p for p in (here / "data/bunny00.off", here.parent / "shared/data/bunny00.off") if p.exists())
    prefix = sys.argv[2] if len(sys.argv) > 2 else "bunny"
    v, f = load_off(mesh)
    lo, hi = v.min(axis=0), v.max(axis=0)
    centre, size = (lo + hi) / 2, np.linalg.norm(hi - lo)
    # Ground plane under the mesh so the shadow has somewhere to fall.
    g = np.array([[-1, 0, -1], [1, 0, -1], [1, 0, 1], [-1, 0, 1]], np.float32) * size + [0, lo[1], 0] \
        + [centre[0], 0, centre[2]]
    v = np.vstack([v, g.astype(np.float32)])
    f = np.vstack([f, len(v) - 4 + np.array([[0, 2, 1], [0, 3, 2]])])

    with vekr.Scene(v, f) as scene:
        eye = centre + np.array([0.3, 0.35, 1.0], np.float32) * size
        rays = vekr.camera_rays(eye, centre, [0, 1, 0], 40, 640, 480)
        t, u, w, tri = scene.intersect(eye, rays)
        write_png(f"{prefix}_depth.png", np.where(tri >= 0, -t, np.nan))

        hit = tri >= 0
        points = eye + rays * np.where(hit, t, 0)[..., None]
        light = centre + np.array([-0.6, 1.2, 0.6], np.float32) * size
        # Segments from the light stop just short of the surface they light.
        blocked = np.zeros_like(hit)
        blocked[hit] = scene.occluded(light, light + (points[hit] - light) * 0.9995)
        normals = scene.smooth_normals(tri, u, w)
        to_light = light - points
        to_light /= np.linalg.norm(to_light, axis=-1, keepdims=True)
        facing = np.sign(np.sum(normals * -rays, axis=-1))[..., None]   # normals toward the eye
        lambert = np.clip(np.sum(normals * facing * to_light, axis=-1), 0, 1)
        image = np.where(hit, 0.15 + 0.85 * lambert * ~blocked, 0.0)
        image[0, 0], image[0, 1] = 0.0, 1.0                              # fixed grey scale
        write_png(f"{prefix}_shadow.png", image)
    print(f"{len(f)} triangles, {hit.mean():.0%} of pixels hit, isa {vekr.isa()}; "
          f"wrote {prefix}_depth.png and {prefix}_shadow.png")


if __name__ == "__main__":
    main()
