// Volumes for the filter tests: a source whose every slice is its own heap
// block of exactly the neighbourhood the kernel needs (so AddressSanitizer
// catches any read past it), a padded destination, and the reference result
// from exact 64-bit integer arithmetic.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "vekr.h"

namespace vekr::test {

struct FilterCase {
    VekVolumeSize roi{};
    VekVolumeSize ks{};
    int32_t anchor[3]{};
    int32_t divisor = 1;
    std::vector<int32_t> kernel;
};

class BorderedSource {
public:
    // Slices az-kd+1 .. depth-1+az, rows ay-kh+1 .. height-1+ay and columns
    // ax-kw+1 .. width-1+ax: nothing more.
    explicit BorderedSource(const FilterCase& c)
        : x0_(c.anchor[0] - c.ks.width + 1),
          y0_(c.anchor[1] - c.ks.height + 1),
          z0_(c.anchor[2] - c.ks.depth + 1),
          w_(c.roi.width + c.ks.width - 1),
          h_(c.roi.height + c.ks.height - 1),
          d_(c.roi.depth + c.ks.depth - 1)
    {
        for (int s = 0; s < d_; ++s) blocks_.emplace_back(new int16_t[static_cast<size_t>(w_) * h_]);
        for (int s = 0; s < d_; ++s) {
            slices_.push_back(blocks_[s].get() - static_cast<ptrdiff_t>(y0_) * w_ - x0_);
        }
    }
    // Array to pass as pSrc: entry z is slice z of the destination's frame.
    const int16_t* const* slices() const { return slices_.data() - z0_; }
    int step() const { return w_ * 2; }
    int16_t& at(int x, int y, int z) { return blocks_[z - z0_][(y - y0_) * w_ + (x - x0_)]; }
    int16_t at(int x, int y, int z) const { return blocks_[z - z0_][(y - y0_) * w_ + (x - x0_)]; }
    template <class Gen>
    void fill(Gen&& gen)
    {
        for (int z = z0_; z < z0_ + d_; ++z)
            for (int y = y0_; y < y0_ + h_; ++y)
                for (int x = x0_; x < x0_ + w_; ++x) at(x, y, z) = gen();
    }

private:
    int x0_, y0_, z0_, w_, h_, d_;
    std::vector<std::unique_ptr<int16_t[]>> blocks_;
    std::vector<const int16_t*> slices_;
};

// Destination rows of width + pad voxels; the padding holds a sentinel.
class PaddedDest {
public:
    static constexpr int16_t kSentinel = 0x5A5A;
    PaddedDest(const VekVolumeSize& roi, int pad) : w_(roi.width + pad), h_(roi.height)
    {
        for (int z = 0; z < roi.depth; ++z) {
            blocks_.emplace_back(new int16_t[static_cast<size_t>(w_) * h_]);
            std::fill_n(blocks_.back().get(), static_cast<size_t>(w_) * h_, kSentinel);
            slices_.push_back(blocks_.back().get());
        }
    }
    int16_t* const* slices() { return slices_.data(); }
    int step() const { return w_ * 2; }
    int16_t at(int x, int y, int z) const { return blocks_[z][y * w_ + x]; }

private:
    int w_, h_;
    std::vector<std::unique_ptr<int16_t[]>> blocks_;
    std::vector<int16_t*> slices_;
};

// The divisor rule written from its definition: exact division rounding half
// to even for powers of two, the float product rounded to even otherwise.
inline int16_t referenceScale(int32_t s, int32_t divisor)
{
    auto clamp = [](double v) { return static_cast<int16_t>(std::min(32767.0, std::max(-32768.0, v))); };
    if (divisor == 1) return clamp(s);
    if (divisor > 1 && (divisor & (divisor - 1)) == 0) {
        int64_t q = s / divisor;
        if (static_cast<int64_t>(q) * divisor > s) --q;  // floor
        const int64_t r2 = 2 * (int64_t{s} - q * divisor);
        if (r2 > divisor || (r2 == divisor && (q & 1))) ++q;
        return clamp(static_cast<double>(q));
    }
    const float recip = 1.0f / static_cast<float>(divisor);
    const float product = static_cast<float>(static_cast<double>(static_cast<float>(s)) * recip);
    return clamp(std::nearbyint(static_cast<double>(product)));
}

// The exact sum in 64 bits.
inline int64_t exactSum(const FilterCase& c, const BorderedSource& src, int x, int y, int z)
{
    int64_t s = 0;
    for (int k = 0; k < c.ks.depth; ++k)
        for (int j = 0; j < c.ks.height; ++j)
            for (int i = 0; i < c.ks.width; ++i) {
                const int64_t coeff = c.kernel[(k * c.ks.height + j) * c.ks.width + i];
                s += coeff * src.at(x + c.anchor[0] - i, y + c.anchor[1] - j, z + c.anchor[2] - k);
            }
    return s;
}

// The same taken modulo 2^32, as a 32-bit accumulation gives it.
inline int32_t referenceSum(const FilterCase& c, const BorderedSource& src, int x, int y, int z)
{
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(exactSum(c, src, x, y, z))));
}

}  // namespace vekr::test
