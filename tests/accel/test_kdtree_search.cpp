// The sorts of candidate positions against std::sort, and the per-axis cost
// search against a brute-force evaluation of every candidate position.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "accel/kdtree_cost.h"
#include "accel/kdtree_sort.h"

namespace {

using namespace vekr::kd;

std::vector<uint32_t> keysOf(const std::vector<float>& v)
{
    std::vector<uint32_t> k;
    for (float f : v) k.push_back(floatKey(f));
    return k;
}

TEST(KDTreeSort, AllSortsMatchStdSort)
{
    std::mt19937 rng(5);
    for (int n : {0, 1, 2, 5, 24, 25, 31, 100, 320, 321, 1000, 5000, 20000}) {
        for (int dist = 0; dist < 4; ++dist) {
            std::vector<float> v(n);
            for (float& f : v) {
                if (dist == 0) f = std::uniform_real_distribution<float>(-10, 10)(rng);
                if (dist == 1) f = std::uniform_real_distribution<float>(1.0f, 1.999f)(rng);  // one binade
                if (dist == 2) f = float(rng() % 7);  // many equal keys
                if (dist == 3) f = 1.5f + float(rng() % 1000) * 1e-7f;  // tight cluster
            }
            std::vector<uint32_t> want = keysOf(v);
            std::sort(want.begin(), want.end());
            std::vector<uint32_t> scratch(n + 1);

            std::vector<uint32_t> a = keysOf(v);
            radixSortKeys(a.data(), scratch.data(), n);
            EXPECT_EQ(a, want) << "radix n=" << n << " dist=" << dist;

            std::vector<uint32_t> b = keysOf(v);
            smallSortKeys(b.data(), n);
            EXPECT_EQ(b, want) << "in place n=" << n << " dist=" << dist;

            if (dist == 1 || dist == 3) {  // keys that differ only in the low 24 bits
                std::vector<uint32_t> c = keysOf(v);
                Radix24Counts counts;
                counts.clear();
                for (uint32_t k : c) counts.add(k);
                radixSort24Counted(c.data(), scratch.data(), n, counts);
                EXPECT_EQ(c, want) << "24-bit n=" << n << " dist=" << dist;
            }
        }
    }
}

// Brute force: every distinct start, end and flat position from the lowest
// start to the highest end, counts by direct comparison.
AxisResult reference(const std::vector<float>& s, const std::vector<float>& e,
                     const std::vector<float>& fl, float lo, float hi, float a, float b)
{
    const double P = double(a) * double(b), S = double(a) + double(b);
    const double r = P < 1e-9 ? 0.0 : P / S;
    const int n = int(s.size() + fl.size());
    std::vector<float> all(s);
    all.insert(all.end(), e.begin(), e.end());
    all.insert(all.end(), fl.begin(), fl.end());
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    const float first = all.front(), last = all.back();
    const float g = (hi - lo) * 0.1f;
    bool empty = false;
    AxisResult best{0, 0, 0, 0, 0};
    if (first - lo > g) {
        best = AxisResult{n * ((double(hi) - first) + r), floatKey(first), 0, n, 1};
        empty = true;
    }
    if (hi - last > g) {
        const double c = n * ((double(last) - lo) + r);
        if (!empty || c < best.cost) best = AxisResult{c, floatKey(last), n, 0, 0};
        empty = true;
    }
    if (empty) {
        best.cost = best.cost * double(0.7f) * S;
        return best;
    }
    double bestCost = std::numeric_limits<double>::infinity();
    for (float x : all) {
        int below = 0, above = 0, planar = 0;
        for (size_t i = 0; i < s.size(); ++i) {
            below += s[i] < x;
            above += e[i] > x;
        }
        for (float f : fl) {
            below += f < x;
            above += f > x;
            planar += f == x;
        }
        const double wB = (double(x) - lo) + r, wA = (double(hi) - x) + r;
        // Same order of additions as the library, so costs compare exactly.
        const double c0 = below * wB + above * wA;
        const double cB = c0 + planar * wB, cA = c0 + planar * wA;
        const bool toBelow = cB <= cA;
        const double c = toBelow ? cB : cA;
        if (c < bestCost) {
            bestCost = c;
            best = AxisResult{c, floatKey(x), below + (toBelow ? planar : 0),
                              above + (toBelow ? 0 : planar), toBelow ? 0 : 1};
        }
    }
    best.cost = bestCost * S;
    return best;
}

TEST(KDTreeSearch, MatchesBruteForce)
{
    std::mt19937 rng(11);
    for (int trial = 0; trial < 400; ++trial) {
        const int m = 1 + int(rng() % 40), f = trial % 3 == 0 ? int(rng() % 6) : 0;
        const float lo = -1.0f, hi = 1.0f;
        // Coarse positions so that equal starts, ends and flats are common;
        // some trials leave empty space at one end.
        const int grid = 4 + int(rng() % 30);
        const float from = trial % 5 == 0 ? 0.0f : -1.0f, to = trial % 7 == 0 ? 0.2f : 1.0f;
        auto pos = [&] { return from + (to - from) * float(rng() % (grid + 1)) / float(grid); };
        std::vector<float> s, e, fl;
        for (int i = 0; i < m; ++i) {
            float a = pos(), b = pos();
            while (a == b) b = pos();
            s.push_back(std::min(a, b));
            e.push_back(std::max(a, b));
        }
        for (int i = 0; i < f; ++i) fl.push_back(pos());
        const float ea = 0.5f + float(rng() % 4), eb = trial % 11 == 0 ? 0.0f : 0.25f;
        const AxisResult want = reference(s, e, fl, lo, hi, ea, eb);

        std::vector<uint32_t> ks = keysOf(s), ke = keysOf(e), kf = keysOf(fl);
        std::sort(ks.begin(), ks.end());
        std::sort(ke.begin(), ke.end());
        std::sort(kf.begin(), kf.end());
        const AxisInput in{ks.data(), ke.data(), m, kf.data(), f, lo, hi, ea, eb};
        const AxisResult got = searchAxis(in);
        ASSERT_EQ(got.posKey, want.posKey) << "trial " << trial;
        EXPECT_EQ(got.cost, want.cost) << "trial " << trial;
        EXPECT_EQ(got.nBelow, want.nBelow) << "trial " << trial;
        EXPECT_EQ(got.nAbove, want.nAbove) << "trial " << trial;
        if (f > 0 || want.nBelow == 0 || want.nAbove == 0) {
            EXPECT_EQ(got.side, want.side) << "trial " << trial;
        }
    }
}

}  // namespace
