// Packing of a finished build tree into the one block handed to the caller.
#pragma once

#include "accel/kdtree_buildnode.h"

namespace vekr::kd {

// One walk sizes the block (16 bytes for the root and its zero slot, 8 per
// further node, 4 per listed triangle number); a second, depth-first walk
// writes every inner node's children pair at the next free place of the
// node area, and every listed leaf's numbers at the next free place of the
// list area that follows it.  Large subtrees are sized and written on up to
// `threads` threads; the bytes are the same.  The sizes are kept in the
// third entry of every children record.  vekStsNoMem when the block cannot
// be had.
VekStatus packTree(const VekrKDTreeBuildNode& root, VekrKDTreeNode** ppTree, int* pTreeSize,
                   int threads = 1);

}  // namespace vekr::kd
