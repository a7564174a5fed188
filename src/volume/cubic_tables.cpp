// The four sampled cubic kernels (modes 4..7) used by the affine warp and the
// remap, built on first use from the kernels in double precision.
#include <array>

#include "volume/interp.h"

namespace vekr::volume {

const float* cubicTable(int mode) noexcept
{
    using Table = std::array<float, kCubicTableSize>;
    static const std::array<Table, 4> tables = [] {
        std::array<Table, 4> t{};
        for (int m = 0; m < 4; ++m) {
            t[m].fill(0.0f);
            for (int j = 0; j <= 200; ++j)
                t[m][j] = static_cast<float>(cubicKernel(kCubic + m, j / 100.0));
        }
        return t;
    }();
    return tables[mode - kCubic].data();
}

}  // namespace vekr::volume
