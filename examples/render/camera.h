// Pinhole camera: turns a position, a target, an up direction and a field of
// view into the corner direction and per-pixel steps that eye-ray generation
// takes, and projects world points back to pixels.
#pragma once

namespace render {

struct Camera {
    float eye[3] = {0, 0, 5};
    float target[3] = {0, 0, 0};
    float up[3] = {0, 1, 0};
    float fov = 45.0f;  // vertical, in degrees
};

// Directions for an image of width x height pixels: the ray through the centre
// of pixel (i, j), shifted by (dx, dy) pixels, is corner + i*stepX + j*stepY.
// Rows run downwards.  The forward direction has unit length.
struct RayFrame {
    float corner[3];
    float stepX[3];
    float stepY[3];
};

RayFrame rayFrame(const Camera& camera, int width, int height, float dx = 0.0f, float dy = 0.0f);

// Pixel coordinates (continuous; pixel (i, j) covers [i, i+1) x [j, j+1)) of a
// world point; false when the point lies behind the camera.
bool projectToPixel(const Camera& camera, int width, int height, const float point[3],
                    float& px, float& py);

// Sub-pixel offset in [-0.5, 0.5)^2 of sample s of a pixel: a fixed
// low-discrepancy sequence, so pictures do not depend on any random state.
// Sample 0 is the pixel centre.
void sampleOffset(int s, float& dx, float& dy);

}  // namespace render
