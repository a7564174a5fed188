// The resize's argument check, destination box, coordinate mapping and the
// per-call tables it keeps in the caller's work buffer.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vekr.h"

namespace vekr::volume {

// One axis of a resize: the destination coordinates written, d0 <= d < d1
// (absolute in the destination volume), the mapping s = (d + 0.5) * inv -
// 0.5 + off into the source, and the size n of the whole source volume
// along the axis (border taps are clamped to it).
struct ResizeAxis {
    int d0, d1;
    double inv, off;
    int n;
    int count() const noexcept { return d1 - d0; }
};

struct ResizePlan {
    ResizeAxis x, y, z;
    int mode;
};

// Every member's checks, in order: null pointers, sizes and regions,
// factors, mode, the source origin (warning 40), the empty destination box
// (warning 1).  On vekStsOk the plan is filled; on anything else nothing is
// to be written.
VekStatus planResize(const void* pSrc, const VekVolumeSize* pSrcVolume, const VekCuboid* pSrcVoi,
                     const void* pDst, const VekCuboid* pDstVoi, const double factor[3],
                     const double shift[3], int interpolation, const void* pBuffer,
                     ResizePlan& plan) noexcept;

// Source index of a destination coordinate for nearest interpolation:
// trunc((d + 0.5) * inv - 1e-10 + off) in double, kept inside the volume.
int32_t nearestIndex(const ResizeAxis& a, int d) noexcept;

// Source coordinate of a destination coordinate for linear and cubic.
double sourceCoordinate(const ResizeAxis& a, int d) noexcept;

// Tap indices around the floor index i on an axis of n source voxels,
// clamped to the volume; the cases are tested in their fixed order.
void linearTaps(int i, int n, int32_t taps[2]) noexcept;
void cubicTaps(int i, int n, int32_t taps[4]) noexcept;

// The tables of one axis inside the work buffer.
struct AxisTables {
    int count = 0;            // destination coordinates on this axis
    int n = 0;                // source volume size on this axis
    int32_t* index = nullptr; // nearest: source index; otherwise floor index i
    float* frac = nullptr;    // fraction t (linear and cubic)
    float* weight = nullptr;  // four weights per coordinate (cubic)
};

// Everything one thread keeps in its share of the work buffer.
struct ResizeWork {
    AxisTables x, y, z;
    int32_t* xTaps = nullptr;  // taps (2 or 4) per destination column, clamped
    float* xPairWeights = nullptr;   // linear: 1 - t, t per destination column
    int xMidBegin = 0, xMidEnd = 0;  // columns whose taps are unclamped (i .. i+1 or i-1 .. i+2)
    float* ring = nullptr;     // x-resampled source rows (2 or 4)
    float* planes = nullptr;   // intermediate planes (2 or 4)
    std::ptrdiff_t rowStride = 0;    // floats between ring rows and plane rows
    std::ptrdiff_t planeStride = 0;  // floats between planes
};

// Lays the tables, ring and planes out in a share of the work buffer (at
// most resizeBufferPerThread of the box's size) and fills the tables.
ResizeWork buildResizeWork(uint8_t* share, const ResizePlan& plan) noexcept;

// Bytes that buildResizeWork uses from a share at address `share` on;
// INT64_MAX when the box is too large for any buffer the query can report.
int64_t resizeWorkBytes(uintptr_t share, const ResizePlan& plan) noexcept;

// The part [begin, end) of a work buffer of `total` bytes at `buffer` that
// thread `thread` of a team of `team` uses: it starts at (total * thread) /
// team.  The resize runs only when each share ends at or before the start
// of the next one and the last inside the buffer (sharesFit).
struct ShareSpan {
    int64_t begin, end;
};
ShareSpan resizeShare(uintptr_t buffer, int32_t total, int thread, int team,
                      const ResizePlan& plan) noexcept;
bool sharesFit(uintptr_t buffer, int32_t total, int team, const ResizePlan& plan) noexcept;

}  // namespace vekr::volume
