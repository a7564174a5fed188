// Eye-ray directions of a block of a pinhole camera's image.
#include <cstddef>

#include "core/simd.h"
#include "core/status.h"
#include "vekr.h"

namespace {

// Four-wide rows: each row starts from an accumulated row start and adds the
// column term stepX * (column index within the block).
template <bool Aligned>
void castRows4(const float corner[3], const float stepX[3], const float stepY[3], float offX,
               float offY, float* const out[3], int width, int height)
{
    using namespace vekr::simd;
    F4 rowStart[3], sx[3], sy[3];
    for (int c = 0; c < 3; ++c) {
        rowStart[c] = F4(stepY[c] * offY + corner[c] + stepX[c] * offX);
        sx[c] = F4(stepX[c]);
        sy[c] = F4(stepY[c]);
    }
    size_t k = 0;
    for (int j = 0; j < height; ++j) {
        F4 idx = set4(0.0f, 1.0f, 2.0f, 3.0f);
        for (int i = 0; i < width; i += 4, k += 4) {
            for (int c = 0; c < 3; ++c) {
                const F4 v = sx[c] * idx + rowStart[c];
                if (Aligned)
                    store4(out[c] + k, v);
                else
                    storeu4(out[c] + k, v);
            }
            idx = idx + F4(4.0f);
        }
        for (int c = 0; c < 3; ++c) rowStart[c] = rowStart[c] + sy[c];
    }
}

}  // namespace

extern "C" VEKR_API VekStatus vekrCastEye_32f(const float corner[3], const float stepX[3],
                                              const float stepY[3], int blockX, int blockY,
                                              VekSize blockStep, float* const pDirections[3],
                                              VekSize extent)
{
    if (!pDirections) return vekStsNullPtr;
    const int width = extent.width, height = extent.height;
    if (width < 1 || height < 1) return vekStsOk;
    // 32-bit products, wrapping like the caller's int arithmetic would.
    const float offX = static_cast<float>(static_cast<int32_t>(
        static_cast<uint32_t>(blockX) * static_cast<uint32_t>(blockStep.width)));
    const float offY = static_cast<float>(static_cast<int32_t>(
        static_cast<uint32_t>(blockStep.height) * static_cast<uint32_t>(blockY)));
    float* const out[3] = {pDirections[0], pDirections[1], pDirections[2]};
    if ((width & 3) == 0) {
        if (vekr::allAligned16(out[0], out[1], out[2]))
            castRows4<true>(corner, stepX, stepY, offX, offY, out, width, height);
        else
            castRows4<false>(corner, stepX, stepY, offX, offY, out, width, height);
        return vekStsOk;
    }
    size_t k = 0;
    for (int j = 0; j < height; ++j) {
        const float fy = static_cast<float>(j) + offY;
        for (int i = 0; i < width; ++i, ++k) {
            const float fx = static_cast<float>(i) + offX;
            for (int c = 0; c < 3; ++c) out[c][k] = stepY[c] * fy + corner[c] + stepX[c] * fx;
        }
    }
    return vekStsOk;
}
