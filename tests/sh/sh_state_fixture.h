// A ready state of either type, kept in an aligned block.
#pragma once

#include <cstdint>
#include <vector>

#include "vekr.h"

namespace shtest {

class State {
public:
    State(uint32_t order, VekrSHType type)
    {
        uint32_t size = 0;
        vekrSHGetSize_32f(order, type, &size);
        raw_.resize(size + 16);
        st_ = reinterpret_cast<VekrSHState*>((reinterpret_cast<uintptr_t>(raw_.data()) + 15) &
                                             ~uintptr_t(15));
        vekrSHInit_32f(st_, order, type);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    const VekrSHState* get() const { return st_; }
    VekrSHState* get() { return st_; }

private:
    std::vector<unsigned char> raw_;
    VekrSHState* st_ = nullptr;
};

}  // namespace shtest
