// Per-triangle and per-ray surface normals: the kernels behind the exports,
// reachable separately so that the fast and general paths can be compared.
#pragma once

namespace vekr::shade {

// Unit normals of triangles [begin, end), computed in double precision.
void triangleNormals(const float* vertices, const int* triangles, float* normals, int begin,
                     int end);

// Normal of each ray's hit triangle, copied; (0, 0, 0) for a negative index.
// The fast kernel needs 16-byte aligned arrays and a count divisible by 4.
void flatNormalsGeneral(const float* triNormals, const int* triIndex, float* const out[3],
                        int count);
void flatNormalsFast(const float* triNormals, const int* triIndex, float* const out[3],
                     int count);

// Barycentric blend of the hit triangle's vertex normals, normalised; (0, 0, 0)
// for a negative index or a blend too short to normalise.  The fast kernel
// normalises with a refined reciprocal square root.
void smoothNormalsGeneral(const float* vertNormals, const int* triangles, const int* triIndex,
                          const float* const uv[2], float* const out[3], int count, int stride);
void smoothNormalsFast(const float* vertNormals, const int* triangles, const int* triIndex,
                       const float* const uv[2], float* const out[3], int count, int stride);

}  // namespace vekr::shade
