#include "vekr.h"

namespace {

// The constant version record.  The numbers are kept as published, also where
// they do not match the version text.
constexpr VekLibraryVersion kVersion = {
    6, 1, 137, 683, {'w', '5', '\0', '\0'}, "vekrw5-6.1.dll", "6.1 build 137.36", "Sep 29 2009",
};

}  // namespace

extern "C" VEKR_API const VekLibraryVersion* vekrGetLibVersion(void)
{
    return &kVersion;
}
