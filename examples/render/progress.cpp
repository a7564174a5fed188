#include "progress.h"

#include <unistd.h>

namespace render {

ProgressBar::ProgressBar(bool enabled) : on_(enabled && ::isatty(STDERR_FILENO)) {}

void ProgressBar::update(int done, int total)
{
    if (!on_ || total <= 0) return;
    const int width = 40;
    const int filled = static_cast<int>(static_cast<long long>(done) * width / total);
    const int percent = static_cast<int>(static_cast<long long>(done) * 100 / total);
    if (percent == shown_) return;
    shown_ = percent;
    char bar[width + 1];
    for (int i = 0; i < width; ++i) bar[i] = i < filled ? '#' : '.';
    bar[width] = '\0';
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    std::fprintf(stderr, "\r[%s] %3d%% (%d/%d blocks) %.1f s", bar, percent, done, total, elapsed);
    // The time left, assuming the remaining blocks take as long as the done ones.
    if (done > 0 && done < total) std::fprintf(stderr, ", ~%.1f s left ", elapsed * (total - done) / done);
    else std::fputs("          ", stderr);
    std::fflush(stderr);
}

void ProgressBar::finish()
{
    if (!on_ || shown_ < 0) return;
    std::fprintf(stderr, "\r%*s\r", 96, "");
    std::fflush(stderr);
}

}  // namespace render
