// An independent checker of packed KD-trees: it walks the block with the
// cell of every node, decodes leaves with its own reading of the node format,
// and tests triangle/cell overlap by separating axes in double precision.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "testutil.h"
#include "vekr.h"

namespace kdcheck {

struct Cell {
    double lo[3], hi[3];
};

struct Leaf {
    Cell cell;
    std::vector<int32_t> tris;  // sorted
    int depth;
};

struct WNode {
    int axis = -1;  // -1: leaf
    double split = 0;
    int child[2] = {-1, -1};
    int leaf = -1;
};

struct Walk {
    std::vector<Leaf> leaves;
    std::vector<WNode> nodes;  // nodes[0] is the root
    int maxDepth = 0;
    bool ok = true;
    std::string error;
};

inline float asFloat(int32_t w)
{
    float f;
    std::memcpy(&f, &w, 4);
    return f;
}

// Decodes a leaf independently of the library's helpers.
inline std::vector<int32_t> leafTriangles(const char* base, int64_t at, int64_t size, Walk& w)
{
    int32_t w0, w1;
    std::memcpy(&w0, base + at, 4);
    std::memcpy(&w1, base + at + 4, 4);
    std::vector<int32_t> out;
    if (w1 >= 0) {
        if (w1 == 0) return out;
        const int64_t list = at - (w0 & ~3);
        if (list < 16 || list + 4 * int64_t(w1) > size) {
            w.ok = false;
            w.error = "list outside the block";
            return out;
        }
        out.resize(w1);
        std::memcpy(out.data(), base + list, 4 * size_t(w1));
        return out;
    }
    const uint32_t a = uint32_t(w0) & 0x7FFFFFFFu, u1 = uint32_t(w1);
    const int k = int(u1 & 3u);
    const int32_t b = int32_t((u1 & 0x7FFFFFFFu) >> 2);
    if (k == 1) out = {int32_t(a)};
    else if (k == 2) out = {int32_t(a), b};
    else if (k == 3) out = {b - int32_t(a >> 16), b, b + int32_t(a & 0xFFFF)};
    else {
        w.ok = false;
        w.error = "packed leaf with k = 0";
    }
    return out;
}

// Walks the tree; the root cell is unbounded.  Also checks that pairs and
// lists are laid out depth first and contiguously, as the format fixes: the
// pairs from byte 16 on, then the lists in the order of their leaves.
inline Walk walkTree(const VekrKDTreeNode* tree, int size)
{
    Walk w;
    const char* base = reinterpret_cast<const char*>(tree);
    auto fail = [&](const char* why) {
        w.ok = false;
        w.error = why;
        return w;
    };
    int64_t nextPair = 16;
    std::vector<std::pair<int64_t, int32_t>> lists;  // (offset, count) in leaf order
    struct Item {
        int64_t at;
        Cell cell;
        int depth;
        int index;
    };
    Cell all;
    for (int a = 0; a < 3; ++a) {
        all.lo[a] = -std::numeric_limits<double>::infinity();
        all.hi[a] = std::numeric_limits<double>::infinity();
    }
    w.nodes.emplace_back();
    std::vector<Item> st{{0, all, 0, 0}};
    while (!st.empty() && w.ok) {
        Item it = st.back();
        st.pop_back();
        if (it.at < 0 || it.at + 8 > size) return fail("node outside the block");
        int32_t w0, w1;
        std::memcpy(&w0, base + it.at, 4);
        std::memcpy(&w1, base + it.at + 4, 4);
        w.maxDepth = std::max(w.maxDepth, it.depth);
        if (w0 >= 0) {
            if ((w0 & 4) != 0 || (w0 & 3) == 3) return fail("bad inner node bits");
            const int axis = w0 & 3;
            const int64_t pair = it.at + (w0 & ~7);
            if (pair != nextPair) return fail("children pair not at the next free place");
            nextPair += 16;
            const double split = asFloat(w1);
            const int c0 = int(w.nodes.size());
            w.nodes.emplace_back();
            w.nodes.emplace_back();
            w.nodes[it.index].axis = axis;
            w.nodes[it.index].split = split;
            w.nodes[it.index].child[0] = c0;
            w.nodes[it.index].child[1] = c0 + 1;
            Item lo{pair, it.cell, it.depth + 1, c0}, hi{pair + 8, it.cell, it.depth + 1, c0 + 1};
            lo.cell.hi[axis] = std::min(lo.cell.hi[axis], split);
            hi.cell.lo[axis] = std::max(hi.cell.lo[axis], split);
            st.push_back(hi);
            st.push_back(lo);
        } else {
            Leaf leaf{it.cell, leafTriangles(base, it.at, size, w), it.depth};
            if (w1 > 0) lists.push_back({it.at - (w0 & ~3), w1});
            std::sort(leaf.tris.begin(), leaf.tris.end());
            w.nodes[it.index].leaf = int(w.leaves.size());
            w.leaves.push_back(std::move(leaf));
        }
    }
    int64_t nextList = nextPair;
    for (const auto& [at, count] : lists) {
        if (at != nextList) return fail("list not at the next free place");
        nextList += 4 * int64_t(count);
    }
    if (w.ok && nextList != size) return fail("reported size differs from nodes plus lists");
    return w;
}

using V3 = std::array<double, 3>;

inline V3 sub(const V3& a, const V3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
inline V3 cross(const V3& a, const V3& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline double dot(const V3& a, const V3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// True when the triangle reaches clearly into the open cell: no separating
// axis exists even after the cell is shrunk by a small margin on every axis
// tested.  Near-touching cases count as "not overlapping", so the check
// never demands more than the geometry does.
inline bool overlapsInterior(const V3 v[3], const Cell& c)
{
    double lo[3], hi[3];
    for (int a = 0; a < 3; ++a) {
        const double scale = std::max({1.0, std::fabs(c.lo[a]), std::fabs(c.hi[a])});
        const double m = 1e-7 * (std::isfinite(scale) ? scale : 1.0);
        lo[a] = c.lo[a] + m;
        hi[a] = c.hi[a] - m;
        if (!(lo[a] < hi[a])) return false;
        const double tmin = std::min({v[0][a], v[1][a], v[2][a]});
        const double tmax = std::max({v[0][a], v[1][a], v[2][a]});
        if (tmax <= lo[a] || tmin >= hi[a]) return false;
    }
    // Bounded copy of the cell for the remaining axes.
    double blo[3], bhi[3];
    for (int a = 0; a < 3; ++a) {
        blo[a] = std::max(lo[a], std::min({v[0][a], v[1][a], v[2][a]}) - 1.0);
        bhi[a] = std::min(hi[a], std::max({v[0][a], v[1][a], v[2][a]}) + 1.0);
    }
    const V3 center{(blo[0] + bhi[0]) / 2, (blo[1] + bhi[1]) / 2, (blo[2] + bhi[2]) / 2};
    const V3 half{(bhi[0] - blo[0]) / 2, (bhi[1] - blo[1]) / 2, (bhi[2] - blo[2]) / 2};
    V3 p[3];
    for (int i = 0; i < 3; ++i) p[i] = sub(v[i], center);
    const V3 e[3] = {sub(p[1], p[0]), sub(p[2], p[1]), sub(p[0], p[2])};
    V3 axes[10];
    int na = 0;
    axes[na++] = cross(e[0], e[1]);
    for (int i = 0; i < 3; ++i)
        for (int a = 0; a < 3; ++a) {
            V3 u{0, 0, 0};
            u[a] = 1;
            axes[na++] = cross(u, e[i]);
        }
    for (int ai = 0; ai < na; ++ai) {
        const V3& ax = axes[ai];
        const double len = std::sqrt(dot(ax, ax));
        if (len < 1e-12) continue;
        const double r = half[0] * std::fabs(ax[0]) + half[1] * std::fabs(ax[1]) + half[2] * std::fabs(ax[2]);
        const double q0 = dot(p[0], ax), q1 = dot(p[1], ax), q2 = dot(p[2], ax);
        const double mn = std::min({q0, q1, q2}), mx = std::max({q0, q1, q2});
        const double tol = 1e-9 * len * (1 + r + std::fabs(mn) + std::fabs(mx));
        if (mn >= r - tol || mx <= -r + tol) return false;
    }
    return true;
}

inline void vertices(const vekr::test::Mesh& m, int t, V3 v[3])
{
    for (int i = 0; i < 3; ++i) {
        const int idx = m.triangles[4 * t + i];
        for (int a = 0; a < 3; ++a) v[i][a] = m.vertices[3 * idx + a];
    }
}

inline bool listed(const Leaf& l, int32_t t)
{
    return std::binary_search(l.tris.begin(), l.tris.end(), t);
}

// Leaves whose closed cell meets the closed box [lo, hi].
template <class Fn>
void leavesIn(const Walk& w, const V3& lo, const V3& hi, Fn&& fn, int node = 0)
{
    const WNode& n = w.nodes[node];
    if (n.axis < 0) {
        fn(w.leaves[n.leaf]);
        return;
    }
    if (lo[n.axis] <= n.split) leavesIn(w, lo, hi, fn, n.child[0]);
    if (hi[n.axis] >= n.split) leavesIn(w, lo, hi, fn, n.child[1]);
}

// Completeness: (1) every triangle is listed in every leaf whose open cell it
// clearly reaches into; (2) every sample point of every triangle (vertices,
// edge midpoints, centroid) lies in the closed cell of some leaf that lists
// the triangle.  region, when given, limits both to the region.
inline void expectComplete(const vekr::test::Mesh& m, const Walk& w, const VekrBox3D* region = nullptr)
{
    const int nt = m.triangleCount();
    int failures = 0;
    for (int t = 0; t < nt && failures < 5; ++t) {
        V3 v[3];
        vertices(m, t, v);
        V3 lo, hi;
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min({v[0][a], v[1][a], v[2][a]});
            hi[a] = std::max({v[0][a], v[1][a], v[2][a]});
        }
        leavesIn(w, lo, hi, [&](const Leaf& l) {
            Cell c = l.cell;
            if (region) {
                const float rl[3] = {region->minX, region->minY, region->minZ};
                const float rh[3] = {region->maxX, region->maxY, region->maxZ};
                for (int a = 0; a < 3; ++a) {
                    c.lo[a] = std::max(c.lo[a], double(rl[a]));
                    c.hi[a] = std::min(c.hi[a], double(rh[a]));
                }
            }
            if (failures < 5 && overlapsInterior(v, c) && !listed(l, t)) {
                ADD_FAILURE() << "triangle " << t << " reaches into a leaf cell that does not list it";
                ++failures;
            }
        });
    }
    for (int t = 0; t < nt && failures < 5; ++t) {
        V3 v[3];
        vertices(m, t, v);
        std::vector<V3> pts{v[0], v[1], v[2]};
        for (int i = 0; i < 3; ++i) {
            const V3& a = v[i];
            const V3& b = v[(i + 1) % 3];
            pts.push_back({(a[0] + b[0]) / 2, (a[1] + b[1]) / 2, (a[2] + b[2]) / 2});
        }
        pts.push_back({(v[0][0] + v[1][0] + v[2][0]) / 3, (v[0][1] + v[1][1] + v[2][1]) / 3,
                       (v[0][2] + v[1][2] + v[2][2]) / 3});
        for (const V3& p : pts) {
            if (region && (p[0] < region->minX || p[0] > region->maxX || p[1] < region->minY ||
                           p[1] > region->maxY || p[2] < region->minZ || p[2] > region->maxZ))
                continue;
            bool found = false;
            leavesIn(w, p, p, [&](const Leaf& l) { found = found || listed(l, t); });
            if (!found) {
                ADD_FAILURE() << "a point of triangle " << t << " lies in no leaf that lists it";
                ++failures;
                break;
            }
        }
    }
}

}  // namespace kdcheck
