// The build's memory budget and its working units.
//
// Every allocation of the cost-driven build is charged against a 32-bit
// remaining budget.  Build records and leaf lists come from working units:
// a 40-byte header plus a 16 MB block, charged 16 MB + 40 bytes each, opened
// whenever the next request does not fit in the current unit.
#pragma once

#include <cstddef>
#include <cstdint>

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

// A chain of working units, allocated bump-wise; everything is released at
// once by the destructor.  A request larger than one unit takes a block of
// as many units as it needs, each one charged.
class WorkUnits {
public:
    explicit WorkUnits(Budget& budget) : budget_(budget) {}
    ~WorkUnits();
    WorkUnits(const WorkUnits&) = delete;
    WorkUnits& operator=(const WorkUnits&) = delete;

    // 16-byte aligned storage of `bytes`; null when the budget cannot pay for
    // a further unit (vekStsMemBudget) or when memory is exhausted (flagged).
    void* take(size_t bytes)
    {
        bytes = (bytes + 15u) & ~size_t(15u);
        if (static_cast<size_t>(end_ - next_) >= bytes) {
            char* p = next_;
            next_ += bytes;
            return p;
        }
        return takeSlow(bytes);
    }
    bool outOfMemory() const { return noMem_; }

private:
    struct Header;  // 40 bytes at the front of every unit
    void* takeSlow(size_t bytes);

    Budget& budget_;
    Header* head_ = nullptr;
    char* next_ = nullptr;
    char* end_ = nullptr;
    bool noMem_ = false;
};

}  // namespace vekr::kd
