/**
 * @file vekr_status.h
 * @brief Names and one-line messages for ::VekStatus values, header-only.
 *
 * Both helpers are `static inline`, so they add no symbol to the library and
 * compile as C99 and as C++.  The strings are static; an unknown value gives
 * "vekStsUnknown" and "unknown status code".
 */
#ifndef VEKR_STATUS_H
#define VEKR_STATUS_H

#include "vekr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @brief The enumerator's name of @p status, e.g. "vekStsNullPtr". Never null. */
static inline const char* vekrStatusName(VekStatus status)
{
    switch (status) {
    case vekStsVoiOutside: return "vekStsVoiOutside";
    case vekStsEmptyDestination: return "vekStsEmptyDestination";
    case vekStsOk: return "vekStsOk";
    case vekStsNoMem: return "vekStsNoMem";
    case vekStsBadArg: return "vekStsBadArg";
    case vekStsSize: return "vekStsSize";
    case vekStsSelector: return "vekStsSelector";
    case vekStsNullPtr: return "vekStsNullPtr";
    case vekStsMemBudget: return "vekStsMemBudget";
    case vekStsOutOfRange: return "vekStsOutOfRange";
    case vekStsInterpolation: return "vekStsInterpolation";
    case vekStsResizeFactor: return "vekStsResizeFactor";
    case vekStsChannelCount: return "vekStsChannelCount";
    case vekStsAffineCoeff: return "vekStsAffineCoeff";
    default: return "vekStsUnknown";
    }
}

/** @brief A one-line description of @p status (no trailing newline). Never null. */
static inline const char* vekrStatusMessage(VekStatus status)
{
    switch (status) {
    case vekStsVoiOutside: return "warning: source region origin lies outside the source volume; nothing written";
    case vekStsEmptyDestination: return "warning: mapped destination region is empty; nothing written";
    case vekStsOk: return "success";
    case vekStsNoMem: return "out of memory, or KD-tree memory budget too small to start";
    case vekStsBadArg: return "unknown magic in a parameters record";
    case vekStsSize: return "invalid count or size";
    case vekStsSelector: return "spherical harmonics: bad state type, order or band";
    case vekStsNullPtr: return "a required pointer is null";
    case vekStsMemBudget: return "KD-tree build ran out of its memory budget";
    case vekStsOutOfRange: return "KD-tree parameter field out of range";
    case vekStsInterpolation: return "unsupported interpolation mode";
    case vekStsResizeFactor: return "resize factor is zero or negative";
    case vekStsChannelCount: return "channel count other than 1";
    case vekStsAffineCoeff: return "degenerate affine coefficients";
    default: return "unknown status code";
    }
}

#ifdef __cplusplus
}
#endif

#endif /* VEKR_STATUS_H */
