#include "accel/kdtree_budget.h"

#include "core/alloc.h"

namespace vekr::kd {

namespace {

// Replays the unit charging of requests in order: the current unit serves
// what fits; a request that does not opens a unit, or a block of as many
// units as it needs, which that one request uses up (the current unit then
// keeps serving the small ones).
class UnitCharges {
public:
    explicit UnitCharges(Budget& budget) : budget_(budget) {}
    bool take(size_t bytes)
    {
        bytes = (bytes + 15u) & ~size_t(15u);
        if (left_ >= bytes) {
            left_ -= bytes;
            return true;
        }
        const uint64_t units = bytes <= kUnitBytes ? 1 : (bytes + kUnitBytes - 1) / kUnitBytes;
        for (uint64_t u = 0; u < units; ++u)
            if (!budget_.chargeUnit()) return false;
        if (units == 1) left_ = kUnitBytes - bytes;
        return true;
    }

private:
    Budget& budget_;
    size_t left_ = 0;
};

bool chargeSubtree(UnitCharges& units, const VekrKDTreeBuildNode& node)
{
    if (node.kind == kLeafKind) return true;
    const auto* children = static_cast<const VekrKDTreeBuildNode*>(node.ptr);
    if (!units.take(kBuildRecordBytes)) return false;
    // The third entry of the record keeps the lists' sizes.
    const int32_t counts[2] = {children[2].kind, children[2].value};
    for (int32_t c : counts)
        if (c > 0 && !units.take(4u * static_cast<size_t>(c))) return false;
    return chargeSubtree(units, children[0]) && chargeSubtree(units, children[1]);
}

}  // namespace

bool chargeNodes(Budget& budget, size_t rootListBytes, const VekrKDTreeBuildNode& root,
                 uint64_t total)
{
    if (total > 0 && total <= kUnitBytes) return budget.chargeUnit();
    UnitCharges units(budget);
    if (rootListBytes > 0 && !units.take(rootListBytes)) return false;
    return chargeSubtree(units, root);
}

NodeStore::NodeStore(int threads, uint64_t limit) : lanes_(threads > 0 ? threads : 1), limit_(limit) {}

NodeStore::~NodeStore()
{
    for (Lane& l : lanes_)
        for (void* p : l.blocks) freeBlock(p);
}

uint64_t NodeStore::requested() const
{
    uint64_t sum = requested_.load(std::memory_order_relaxed);
    for (const Lane& l : lanes_) sum += l.pending;
    return sum;
}

void NodeStore::fail(VekStatus st)
{
    VekStatus ok = vekStsOk;
    failed_.compare_exchange_strong(ok, st, std::memory_order_relaxed);
}

NodeStore::Lane& NodeStore::lane(int thread)
{
    const size_t t = static_cast<size_t>(thread);
    return lanes_[t < lanes_.size() ? t : t % lanes_.size()];
}

void NodeStore::give(void* p, size_t bytes, int thread)
{
    bytes = (bytes + 15u) & ~size_t(15u);
    if (!p || bytes < sizeof(void*)) return;
    Lane& l = lane(thread);
    const int k = 63 - __builtin_clzll(bytes);  // 2^k <= bytes
    if (k >= kBins) return;
    *static_cast<void**>(p) = l.bins[k];
    l.bins[k] = p;
}

void* NodeStore::take(size_t bytes, int thread)
{
    bytes = (bytes + 15u) & ~size_t(15u);
    Lane& lane = this->lane(thread);
    lane.pending += bytes;
    // Given-back storage of the least bin whose every entry is large enough.
    const int k = 64 - __builtin_clzll(bytes - 1);  // 2^k >= bytes
    if (k < kBins && lane.bins[k]) {
        void* p = lane.bins[k];
        lane.bins[k] = *static_cast<void**>(p);
        return p;
    }
    if (static_cast<size_t>(lane.end - lane.next) >= bytes) {
        char* p = lane.next;
        lane.next += bytes;
        return p;
    }
    // The lane's requests join the sum whenever it needs a new block, so the
    // sum lags by less than a block per lane: it only ever refuses too late.
    const uint64_t sum = requested_.fetch_add(lane.pending, std::memory_order_relaxed) + lane.pending;
    lane.pending = 0;
    if (sum > limit_) {
        fail(vekStsMemBudget);
        return nullptr;
    }
    const size_t blockBytes = bytes > kBlockBytes / 64 ? bytes : kBlockBytes;
    if (blockBytes / 8 + 2 > 0x7FFFFFFF) {
        fail(vekStsNoMem);
        return nullptr;
    }
    // malloc64 blocks are 64-byte aligned, so every 16-byte step stays aligned.
    char* block = static_cast<char*>(malloc64(static_cast<int32_t>(blockBytes / 8 + 1)));
    if (!block) {
        fail(vekStsNoMem);
        return nullptr;
    }
    try {
        lane.blocks.push_back(block);
    } catch (...) {
        freeBlock(block);
        fail(vekStsNoMem);
        return nullptr;
    }
    if (blockBytes == kBlockBytes) {
        lane.next = block + bytes;
        lane.end = block + kBlockBytes;
    }
    return block;
}

int32_t* SparePool::take(int64_t words)
{
    const int64_t bytes = 4 * words;
    if (words <= 0 || words > 0x7FFFFFFF) return nullptr;
    if (left_.fetch_sub(bytes, std::memory_order_relaxed) < bytes) {
        left_.fetch_add(bytes, std::memory_order_relaxed);
        return nullptr;
    }
    auto* p = static_cast<int32_t*>(malloc32(static_cast<int32_t>(words)));
    if (!p) left_.fetch_add(bytes, std::memory_order_relaxed);
    return p;
}

void SparePool::give(void* p, int64_t words)
{
    if (!p) return;
    freeBlock(p);
    left_.fetch_add(4 * words, std::memory_order_relaxed);
}

}  // namespace vekr::kd
