// The build's memory budget.
//
// Every allocation of the cost-driven build is charged against a 32-bit
// remaining budget.  Build records and leaf lists are charged in working
// units: a 40-byte header plus a 16 MB block, charged 16 MB + 40 bytes each,
// opened whenever the next request does not fit in the current unit, taking
// the requests in depth-first order (a node's record, its lists below and
// above, then its children).  The charges therefore do not depend on how
// many threads built the tree, nor on the order they built it in: the build
// stores records and lists as it goes, and the charges are made afterwards
// in that order by chargeNodes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "accel/kdtree_buildnode.h"

namespace vekr::kd {

constexpr uint32_t kUnitBytes = 0x1000000u;   // 16 MB
constexpr uint32_t kUnitCharge = 0x1000028u;  // block + 40-byte header
constexpr uint32_t kBuildRecordBytes = 48u;

class Budget {
public:
    Budget(uint32_t total, BuildStats* stats) : remaining_(total), stats_(stats)
    {
        if (stats_) stats_->budget = total;
    }
    // Charges an allocation of a fixed part.  A charge larger than what is
    // left exhausts the budget rather than wrapping it around.
    void charge(uint32_t bytes)
    {
        remaining_ = bytes > remaining_ ? 0u : remaining_ - bytes;
        if (stats_) stats_->charged += bytes;
    }
    // Charges one working unit; false when the remaining budget cannot pay.
    bool chargeUnit()
    {
        if (remaining_ < kUnitCharge) return false;
        charge(kUnitCharge);
        if (stats_) ++stats_->unitsOpened;
        return true;
    }
    uint32_t remaining() const { return remaining_; }

private:
    uint32_t remaining_;
    BuildStats* stats_;
};

// Charges the root list (rootListBytes, 0 for an empty mesh) and then every
// record and list of the tree in depth-first order; false as soon as a unit
// cannot be paid for.  total: the sum of those requests, each rounded up to
// 16 bytes; when it fits in one unit, that unit is all the replay would open.
bool chargeNodes(Budget& budget, size_t rootListBytes, const VekrKDTreeBuildNode& root,
                 uint64_t total);

// Storage of the records and lists while the tree is built, one bump
// allocator per thread, released at once by the destructor.  The requests
// are summed: once they exceed `limit` (what the budget has left for units)
// no order of charging could pay for them, and take refuses (possibly a
// block per thread later than it could have).
class NodeStore {
public:
    // Requests up to a 64th of this share blocks; larger ones get their own.
    static constexpr size_t kBlockBytes = size_t(1) << 20;

    NodeStore(int threads, uint64_t limit);
    ~NodeStore();
    NodeStore(const NodeStore&) = delete;
    NodeStore& operator=(const NodeStore&) = delete;

    // 16-byte aligned storage for the given thread; null (and failed() set)
    // when the budget cannot pay or memory is exhausted.
    void* take(size_t bytes, int thread);
    // Hands back storage that is no longer read (a node's own list once it
    // has split): the thread's later requests that fit reuse it, so the
    // build touches less new memory.  It stays counted as requested.
    void give(void* p, size_t bytes, int thread);
    // vekStsOk, or the first failure: vekStsMemBudget or vekStsNoMem.
    VekStatus failed() const { return failed_.load(std::memory_order_relaxed); }
    // Every request so far, each rounded up to 16 bytes; read once the
    // threads are done.
    uint64_t requested() const;
    void fail(VekStatus st);

private:
    // Given-back storage of at least 2^k bytes, chained through its first
    // word, in bin k.
    static constexpr int kBins = 48;
    struct alignas(64) Lane {
        char* next = nullptr;
        char* end = nullptr;
        uint64_t pending = 0;  // requested since the last addition to the sum
        std::vector<void*> blocks;
        void* bins[kBins] = {};
    };
    Lane& lane(int thread);
    std::vector<Lane> lanes_;
    std::atomic<uint64_t> requested_{0};
    uint64_t limit_;
    std::atomic<VekStatus> failed_{vekStsOk};
};

// Real memory the build may use beyond its fixed arrays: what the fixed
// part of the budget charges and the arrays leave unused.  Blocks are taken
// and given back from any thread.
class SparePool {
public:
    explicit SparePool(int64_t bytes) : left_(bytes) {}
    // words 32-bit words, or null when the pool or the memory is exhausted.
    int32_t* take(int64_t words);
    void give(void* p, int64_t words);

private:
    std::atomic<int64_t> left_;
};

}  // namespace vekr::kd
