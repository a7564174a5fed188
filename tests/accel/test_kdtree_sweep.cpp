// The cost sweep read straight off a node's event stream, at every
// instruction-set level, against the general sweep over sorted key arrays;
// and whole builds at every level against each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "accel/kdtree_build.h"
#include "accel/kdtree_cost.h"
#include "accel/kdtree_sort.h"
#include "isa_levels.h"
#include "kdtree_recorded.h"
#include "testutil.h"

namespace {

using namespace vekr;
using namespace vekr::kd;

struct StreamCase {
    int m;         // triangles
    int places;    // distinct grid places across the cell: few give many ties
    float margin;  // cell room below the triangles, in cells: > 0.1 cuts empty space
    float a, b;    // the node's other two extents
};

// m triangles on a grid of quarter steps, some reaching out of the cell,
// none lying flat in it; the events in stream order (by clamped place, an
// end before a start of the same place) and the clamped keys sorted.
struct Stream {
    float lo, hi;
    std::vector<float> bounds;
    std::vector<int32_t> events;
    std::vector<uint32_t> starts, ends;
};

Stream makeStream(const StreamCase& c, uint32_t seed)
{
    std::mt19937 rng(seed);
    Stream s;
    const float extent = 0.25f * static_cast<float>(c.places);
    s.lo = 1.0f - c.margin * extent;
    s.hi = 1.0f + extent;
    std::uniform_int_distribution<int> place(-2, c.places + 2);
    std::vector<std::pair<uint64_t, int32_t>> order;
    while (static_cast<int>(s.bounds.size()) < 2 * c.m) {
        int p = place(rng), q = place(rng);
        if (p > q) std::swap(p, q);
        const float lo = 1.0f + 0.25f * static_cast<float>(p), hi = 1.0f + 0.25f * static_cast<float>(q);
        const float cl = clampEvent(lo, s.lo, s.hi), ch = clampEvent(hi, s.lo, s.hi);
        if (!(cl < ch)) continue;  // flat in the cell or outside it
        const int32_t id = static_cast<int32_t>(s.bounds.size() / 2);
        s.bounds.push_back(lo);
        s.bounds.push_back(hi);
        s.starts.push_back(floatKey(cl));
        s.ends.push_back(floatKey(ch));
        order.push_back({uint64_t(floatKey(cl)) * 2 + 1, 2 * id});
        order.push_back({uint64_t(floatKey(ch)) * 2, 2 * id + 1});
    }
    std::shuffle(order.begin(), order.end(), rng);  // ties in any order
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    for (const auto& o : order) s.events.push_back(o.second);
    std::sort(s.starts.begin(), s.starts.end());
    std::sort(s.ends.begin(), s.ends.end());
    return s;
}

class KDTreeSweep : public testing::TestWithParam<StreamCase> {};

TEST_P(KDTreeSweep, EventStreamMatchesSortedKeysAtEveryLevel)
{
    const StreamCase& c = GetParam();
    for (uint32_t seed = 1; seed <= 8; ++seed) {
        const Stream s = makeStream(c, seed);
        const AxisResult want = searchAxis(AxisInput{s.starts.data(), s.ends.data(), c.m, nullptr, 0,
                                                     s.lo, s.hi, c.a, c.b});
        const EventInput in{s.events.data(), c.m, s.bounds.data(), s.lo, s.hi, c.a, c.b};
        for (Isa isa : test::supportedIsas()) {
            const AxisResult got = searchEvents(in, isa);
            SCOPED_TRACE(testing::Message() << isaName(isa) << ", seed " << seed);
            EXPECT_EQ(std::memcmp(&got.cost, &want.cost, sizeof(double)), 0) << got.cost << " vs " << want.cost;
            EXPECT_EQ(got.posKey, want.posKey);
            EXPECT_EQ(got.nBelow, want.nBelow);
            EXPECT_EQ(got.nAbove, want.nAbove);
            EXPECT_EQ(got.side, want.side);
        }
    }
}

// Sizes around the 8- and 16-lane blocks; few places (ties everywhere) and
// many; empty space below the triangles; a flat node (r = 0).
INSTANTIATE_TEST_SUITE_P(Table, KDTreeSweep,
                         testing::Values(StreamCase{1, 4, 0, 1, 1}, StreamCase{4, 2, 0, 1, 2},
                                         StreamCase{8, 3, 0, 1, 1}, StreamCase{9, 6, 0, 2, 1},
                                         StreamCase{16, 5, 0, 1, 3}, StreamCase{17, 40, 0, 1, 1},
                                         StreamCase{33, 8, 0, 0.5f, 4}, StreamCase{100, 12, 0, 1, 1},
                                         StreamCase{100, 12, 0.5f, 1, 1}, StreamCase{300, 3, 0, 0, 2},
                                         StreamCase{1000, 4000, 0, 3, 1}, StreamCase{1000, 30, 0, 1, 1}),
                         [](const testing::TestParamInfo<StreamCase>& i) {
                             return "m" + std::to_string(i.param.m) + "_places" + std::to_string(i.param.places) +
                                    (i.param.margin > 0 ? "_empty" : "") + (i.param.a == 0 ? "_flat" : "") +
                                    "_" + std::to_string(i.index);
                         });

// Whole trees at every level, byte for byte.
TEST(KDTreeSweep, SameTreesAtEveryLevel)
{
    std::vector<test::Mesh> meshes{kdrecorded::clustered(5000, 3), test::randomTriangles(3000, 11)};
    if (const test::Mesh bunny = kdrecorded::realMesh("bunny00.off"); bunny.triangleCount() > 0)
        meshes.push_back(bunny);
    for (const test::Mesh& m : meshes)
        for (float thr : {0.0f, 0.5f}) {
            std::vector<std::vector<char>> trees;
            for (Isa isa : test::supportedIsas()) {
                VekrKDTreeNode* tree = nullptr;
                int size = 0;
                ASSERT_EQ(buildCostDrivenStats(m.vertices.data(), m.triangles.data(), m.vertexCount(),
                                               m.triangleCount(), thr, 50, 1024u << 20, nullptr, &tree,
                                               &size, nullptr, isa),
                          vekStsOk);
                trees.emplace_back(reinterpret_cast<char*>(tree), reinterpret_cast<char*>(tree) + size);
                vekrKDTreeFree(tree);
                EXPECT_EQ(trees.back(), trees.front()) << isaName(isa) << ", " << m.triangleCount()
                                                       << " triangles, threshold " << thr;
            }
        }
}

}  // namespace
