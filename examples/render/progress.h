// A progress bar on stderr, drawn only when stderr is a terminal, with the
// time elapsed and an estimate of the time left.
#pragma once

#include <chrono>
#include <cstdio>

namespace render {

class ProgressBar {
public:
    // Draws nothing unless `enabled` and stderr is a terminal.
    explicit ProgressBar(bool enabled);
    void update(int done, int total);
    // Clears the bar's line.
    void finish();

private:
    bool on_;
    int shown_ = -1;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace render
