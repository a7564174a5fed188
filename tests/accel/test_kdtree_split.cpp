// The wide kernels that hand a split node's triangles to its children, at
// every instruction-set level, against the rule itself: a triangle goes
// below when its start lies below the split, above when its end lies above
// it, and one in the plane to the side asked for; the orders keep what the
// side bytes say, in order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "accel/kdtree_split.h"
#include "isa_levels.h"

namespace {

using namespace vekr;
using namespace vekr::kd;

// n triangles on a grid of few places (many starts, ends and flats at the
// split itself), some reaching out of the cell [0, 4] or with a NaN bound.
TEST(KDTreeSplit, PartitionAndFilterKeepTheRuleAtEveryLevel)
{
    for (int n : {0, 1, 7, 8, 15, 16, 17, 33, 200}) {
        for (int planeSide : {0, 1}) {
            std::mt19937 rng(n * 2 + planeSide);
            std::uniform_int_distribution<int> place(-2, 18);
            std::vector<float> bounds(2 * n + 2);
            std::vector<int32_t> list;
            for (int id = 0; id < n + 1; ++id) {
                float s = place(rng) * 0.25f, e = place(rng) * 0.25f;
                if (s > e) std::swap(s, e);
                if (id % 13 == 5) s = NAN;
                bounds[2 * id] = s;
                bounds[2 * id + 1] = e;
                if (id % 5 != 3) list.push_back(id);  // some triangles are not in the node
            }
            const float lo = 0.0f, hi = 4.0f, x = 2.0f;
            std::vector<int32_t> wantBelow, wantAbove;
            std::vector<uint8_t> wantSide(n + 4, 0);  // 3 bytes past the last: the wide reads
            for (int32_t id : list) {
                const double s = std::isnan(bounds[2 * id]) ? lo : std::max(bounds[2 * id], lo);
                const double e = std::min(bounds[2 * id + 1], hi);
                const bool below = s < x || (s == e && s == x && planeSide == 0);
                const bool above = s == e ? !below : e > x;
                if (below) wantBelow.push_back(id);
                if (above) wantAbove.push_back(id);
                wantSide[id] = static_cast<uint8_t>((below ? 1 : 0) | (above ? 2 : 0));
            }
            const int32_t count = static_cast<int32_t>(list.size());
            for (Isa isa : test::supportedIsas()) {
                SCOPED_TRACE(std::string(isaName(isa)) + " n " + std::to_string(n));
                // The blocks take whole blocks; the rest is the caller's, so
                // only what they took is compared.
                std::vector<int32_t> below(count + 1), above(count + 1);
                std::vector<uint8_t> side(n + 4, 0);
                int32_t nb = 0, na = 0;
                const PartitionInput in{bounds.data(), list.data(), count, lo, hi, x, planeSide};
                const int32_t took = VEKR_ISA_CALL(isa, partitionBlocks(in, below.data(), nb, above.data(), na, side.data()));
                ASSERT_EQ(took % (isa == Isa::Avx512 ? 16 : 8), 0);
                if (isa == Isa::Sse41) {
                    ASSERT_EQ(took, 0);
                }
                int32_t tb = 0, ta = 0;
                for (int32_t k = 0; k < took; ++k) {
                    const int32_t id = list[k];
                    EXPECT_EQ(side[id], wantSide[id]) << id;
                    tb += wantSide[id] & 1;
                    ta += wantSide[id] >> 1;
                }
                ASSERT_EQ(nb, tb);
                ASSERT_EQ(na, ta);
                EXPECT_TRUE(std::equal(below.begin(), below.begin() + nb, wantBelow.begin()));
                EXPECT_TRUE(std::equal(above.begin(), above.begin() + na, wantAbove.begin()));

                // The events of the node in list order, filtered by the true
                // sides into both children, one child, or none.
                std::vector<int32_t> events;
                for (int32_t id : list) events.insert(events.end(), {2 * id + 1, 2 * id});
                for (int kids = 0; kids < 4; ++kids) {
                    std::vector<int32_t> fb(events.size()), fa(events.size());
                    int32_t kb = 0, ka = 0;
                    const int32_t ftook = VEKR_ISA_CALL(isa, filterListBlocks(events.data(), static_cast<int32_t>(events.size()), 1, wantSide.data(), (kids & 1) ? fb.data() : nullptr, kb, (kids & 2) ? fa.data() : nullptr, ka));
                    std::vector<int32_t> eb, ea;
                    for (int32_t k = 0; k < ftook; ++k) {
                        if ((kids & 1) && (wantSide[events[k] >> 1] & 1)) eb.push_back(events[k]);
                        if ((kids & 2) && (wantSide[events[k] >> 1] & 2)) ea.push_back(events[k]);
                    }
                    EXPECT_EQ(std::vector<int32_t>(fb.begin(), fb.begin() + kb), eb);
                    EXPECT_EQ(std::vector<int32_t>(fa.begin(), fa.begin() + ka), ea);
                }
            }
        }
    }
}

}  // namespace
