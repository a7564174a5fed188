// Addressing of the two volume layouts behind one interface.
//
// A volume is either one block (voxel (x, y, z) at base + z * sliceStep +
// y * rowStep + x elements, the steps given in bytes) or an array of slice
// pointers (slice[z] + y * rowStep + x).  Kernels are templates over a layout
// type and an element type; they ask only for row(y, z), so each kernel is
// written once for both layouts and every element type.  T carries the
// constness: BlockVolume<const float> reads, BlockVolume<float> writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace vekr::volume {

// log2 of the element size: 0 for 8-bit, 1 for 16-bit, 2 for 32-bit types.
template <class T>
constexpr int elementShift() noexcept
{
    static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4, "1, 2 or 4 byte voxels");
    return sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : 2;
}

// A row step in bytes turned into elements by an arithmetic shift, so a step
// that is not a multiple of the element size is truncated (callers pass
// multiples).
template <class T>
constexpr std::ptrdiff_t rowStepElements(int32_t bytes) noexcept
{
    return static_cast<std::ptrdiff_t>(bytes >> elementShift<T>());
}

// One block with a row step (in elements) and a slice step (in bytes).
template <class T>
struct BlockVolume {
    using Element = T;
    T* base;
    std::ptrdiff_t rowStep;     // elements
    std::ptrdiff_t sliceBytes;  // bytes

    BlockVolume(T* p, int32_t rowStepBytes, int32_t sliceStepBytes) noexcept
        : base(p), rowStep(rowStepElements<T>(rowStepBytes)), sliceBytes(sliceStepBytes)
    {
    }
    T* slice(int z) const noexcept
    {
        using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
        return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + z * sliceBytes);
    }
    T* row(int y, int z) const noexcept { return slice(z) + y * rowStep; }
};

// An array of slice pointers sharing one row step (in elements).
template <class T>
struct SliceVolume {
    using Element = T;
    T* const* slices;
    std::ptrdiff_t rowStep;  // elements

    SliceVolume(T* const* p, int32_t rowStepBytes) noexcept
        : slices(p), rowStep(rowStepElements<T>(rowStepBytes))
    {
    }
    T* slice(int z) const noexcept { return slices[z]; }
    T* row(int y, int z) const noexcept { return slices[z] + y * rowStep; }
};

}  // namespace vekr::volume
