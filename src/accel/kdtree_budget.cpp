#include "accel/kdtree_budget.h"

#include "core/alloc.h"

namespace vekr::kd {

struct WorkUnits::Header {
    char* start;
    char* end;
    char* nextFree;
    Header* previous;
    uint64_t units;
};

namespace {
constexpr size_t kHeaderRoom = 48;  // the header, padded so the block is 16-byte aligned
}

WorkUnits::~WorkUnits()
{
    while (head_) {
        Header* prev = head_->previous;
        freeBlock(head_);
        head_ = prev;
    }
}

void* WorkUnits::takeSlow(size_t bytes)
{
    static_assert(sizeof(Header) == 40, "unit header is 40 bytes");
    const uint64_t units = bytes <= kUnitBytes ? 1 : (bytes + kUnitBytes - 1) / kUnitBytes;
    for (uint64_t u = 0; u < units; ++u)
        if (!budget_.chargeUnit()) return nullptr;
    const uint64_t total = units * kUnitBytes + kHeaderRoom;
    if (total / 8 + 1 > 0x7FFFFFFF) {
        noMem_ = true;
        return nullptr;
    }
    char* raw = static_cast<char*>(malloc64(static_cast<int32_t>(total / 8 + 1)));
    if (!raw) {
        noMem_ = true;
        return nullptr;
    }
    Header* h = reinterpret_cast<Header*>(raw);
    h->start = raw + kHeaderRoom;
    h->end = h->start + units * kUnitBytes;
    h->nextFree = h->start + bytes;
    h->units = units;
    h->previous = head_;
    head_ = h;
    // A multi-unit block is used up by its one request; the current unit
    // keeps serving the small ones.
    if (units == 1) {
        next_ = h->nextFree;
        end_ = h->end;
    }
    return h->start;
}

}  // namespace vekr::kd
