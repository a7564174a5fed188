// Layout of the spherical-harmonic state shared by its users.
#pragma once

#include <cstdint>

#include "vekr.h"

namespace vekr::sh {

// Highest band any evaluation accepts; (kMaxBand + 1)^2 basis functions.
constexpr uint32_t kMaxBand = 15;
constexpr int kMaxCoeffs = (kMaxBand + 1) * (kMaxBand + 1);

// Entries (l, m >= 0) of each recurrence table for bands 0..order.
uint32_t tableEntries(uint32_t order);
// Bytes of one table, rounded up to 16.
uint32_t tableBytes(uint32_t order);

// The state's header read from a block at any address (the caller's block
// need not be aligned for the record type, so it is never bound to one);
// the table pointers only for a recurrence state (a direct one has none).
VekrSHState readState(const VekrSHState* block) noexcept;

}  // namespace vekr::sh
