// Encoding and decoding of the 8-byte KD-tree nodes, shared by the builder and
// the traversal.
//
// Inner node: w0 >= 0; bits 0-1 split axis, bits 3-30 (with 0-2 cleared) the
// byte distance to the pair of children (lower child first, upper 8 bytes on);
// w1 the split coordinate as a float.
// Leaf: w0 < 0.  Listed leaf: w1 >= 0 is the count k, the list of k triangle
// numbers starts at (node address - w0) with w0's two low bits cleared.
// Packed leaf: w1 < 0 holds 1..3 triangle numbers in the node itself.
#pragma once

#include <cstdint>
#include <cstring>

#include "core/isa.h"
#include "vekr.h"

namespace vekr {
VEKR_LEVEL_BEGIN
namespace kd {

constexpr uint32_t kSignBit = 0x80000000u;

inline bool isLeaf(const VekrKDTreeNode& n) noexcept { return n.w0 < 0; }
inline int axis(const VekrKDTreeNode& n) noexcept { return n.w0 & 3; }

inline float splitValue(const VekrKDTreeNode& n) noexcept
{
    float f;
    std::memcpy(&f, &n.w1, 4);
    return f;
}

// The pair of children of an inner node: [0] below the split, [1] above.
inline const VekrKDTreeNode* children(const VekrKDTreeNode* n) noexcept
{
    return reinterpret_cast<const VekrKDTreeNode*>(reinterpret_cast<const char*>(n) +
                                                    static_cast<intptr_t>(n->w0 >> 3) * 8);
}

inline VekrKDTreeNode makeInner(int axis, float split, int64_t byteOffsetToChildren) noexcept
{
    VekrKDTreeNode n;
    n.w0 = static_cast<int32_t>(byteOffsetToChildren) | axis;
    std::memcpy(&n.w1, &split, 4);
    return n;
}

// A listed leaf of k triangles whose list lies listByteOffset bytes after the
// node (positive; a multiple of 4).  An empty leaf uses k = 0 and any negative w0.
inline VekrKDTreeNode makeListedLeaf(int32_t k, int64_t listByteOffset) noexcept
{
    VekrKDTreeNode n;
    n.w0 = static_cast<int32_t>(-listByteOffset);
    n.w1 = k;
    return n;
}

// Packing rules of small leaves.  tris holds the k numbers in build order.
// Returns false when the leaf must be listed.
inline bool tryPack(const int32_t* tris, int k, VekrKDTreeNode& out) noexcept
{
    uint32_t a, b;
    if (k == 1) {
        if (tris[0] < 0) return false;
        a = static_cast<uint32_t>(tris[0]);
        b = 0;
    } else if (k == 2) {
        const int32_t t0 = tris[0], t1 = tris[1];
        if (t0 < 0 || t1 < 0) return false;
        if (t0 < 0x20000000) {
            b = static_cast<uint32_t>(t0);
            a = static_cast<uint32_t>(t1);
        } else if (t1 < 0x20000000) {
            b = static_cast<uint32_t>(t1);
            a = static_cast<uint32_t>(t0);
        } else {
            return false;
        }
    } else if (k == 3) {
        int32_t lo = tris[0], mid = tris[1], hi = tris[2];
        if (lo < 0 || mid < 0 || hi < 0) return false;
        if (lo > mid) { const int32_t t = lo; lo = mid; mid = t; }
        if (mid > hi) { const int32_t t = mid; mid = hi; hi = t; }
        if (lo > mid) { const int32_t t = lo; lo = mid; mid = t; }
        if (mid >= 0x20000000 || mid - lo >= 32768 || hi - mid >= 65536) return false;
        b = static_cast<uint32_t>(mid);
        a = (static_cast<uint32_t>(mid - lo) << 16) | static_cast<uint32_t>(hi - mid);
    } else {
        return false;
    }
    out.w0 = static_cast<int32_t>(kSignBit | a);
    out.w1 = static_cast<int32_t>(kSignBit | (b << 2) | static_cast<uint32_t>(k));
    return true;
}

// Visits the triangles of a leaf in traversal order: fn(triangleNumber).
// fn returns true to stop early; forEachTriangle then returns true as well.
template <class Fn>
inline bool forEachTriangle(const VekrKDTreeNode* n, Fn&& fn)
{
    const int32_t w1 = n->w1;
    if (w1 >= 0) {
        if (w1 == 0) return false;
        const int32_t* list = reinterpret_cast<const int32_t*>(
            reinterpret_cast<const char*>(n) - static_cast<intptr_t>(n->w0 & ~3));
        for (int32_t i = 0; i < w1; ++i)
            if (fn(list[i])) return true;
        return false;
    }
    const uint32_t a = static_cast<uint32_t>(n->w0) & 0x7FFFFFFFu;
    const uint32_t u1 = static_cast<uint32_t>(w1);
    const int k = static_cast<int>(u1 & 3u);
    const int32_t b = static_cast<int32_t>((u1 & 0x7FFFFFFFu) >> 2);
    if (k == 1) return fn(static_cast<int32_t>(a));
    if (k == 2) {
        if (fn(static_cast<int32_t>(a))) return true;
        return fn(b);
    }
    const int32_t d1 = static_cast<int32_t>(a >> 16);
    const int32_t d2 = static_cast<int32_t>(a & 0xFFFFu);
    if (fn(b - d1)) return true;
    if (fn(b)) return true;
    return fn(b + d2);
}

}  // namespace kd
VEKR_LEVEL_END
}  // namespace vekr
