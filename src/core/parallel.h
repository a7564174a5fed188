// The one parallel-region pattern of the library.
//
// A region is an OpenMP parallel region with an explicit thread count.  The
// master thread reads the team size the runtime actually granted, and only
// after a barrier do the threads start on their share, so the partition is
// always computed from the real team.  When the runtime does not fork (for
// instance inside an already active region) the same body runs once on the
// calling thread as a team of one, and gives the same results.
#pragma once

#include <exception>
#include <mutex>
#include <utility>

#include <omp.h>

namespace vekr {

// A contiguous range [begin, end) of an iteration space.
struct Range {
    int begin;
    int end;
};

// chunk = count / team and rem = count % team; thread t takes
// [t * chunk, t * chunk + chunk) and the last thread also the rem left over.
// Used by the volume functions (slabs of destination slices).
inline Range lastTakesRest(int count, int thread, int team) noexcept
{
    const int chunk = count / team;
    const int rem = count % team;
    Range r{thread * chunk, thread * chunk + chunk};
    if (thread == team - 1) r.end += rem;
    return r;
}

// OpenMP's static schedule without a chunk size: one contiguous block per
// thread, the first count % team threads taking one element more.
inline Range staticBlock(int count, int thread, int team) noexcept
{
    const int chunk = count / team;
    const int rem = count % team;
    const int begin = thread * chunk + (thread < rem ? thread : rem);
    return Range{begin, begin + chunk + (thread < rem ? 1 : 0)};
}

// Like parallelRegion, but master(team) runs on the master thread alone,
// before the barrier, for work done once for all threads (for instance a
// size that every thread's share is computed from); its effects are visible
// to every thread when body(thread, team) starts.
template <class Master, class Body>
void parallelRegion(int threads, Master&& master, Body&& body)
{
    if (threads <= 1) {
        master(1);
        body(0, 1);
        return;
    }
    int team = 1;
    bool masterFailed = false;
    std::exception_ptr error;
    std::mutex errorLock;
#pragma omp parallel num_threads(threads)
    {
#pragma omp master
        {
            team = omp_get_num_threads();
            try {
                master(team);
            } catch (...) {
                std::lock_guard<std::mutex> hold(errorLock);
                if (!error) error = std::current_exception();
                masterFailed = true;
            }
        }
#pragma omp barrier
        if (!masterFailed) {
            try {
                body(omp_get_thread_num(), team);
            } catch (...) {
                std::lock_guard<std::mutex> hold(errorLock);
                if (!error) error = std::current_exception();
            }
        }
    }
    if (error) std::rethrow_exception(error);
}

// Runs body(thread, team) on up to `threads` threads.  The first exception
// thrown by any thread is rethrown on the calling thread after the region.
template <class Body>
void parallelRegion(int threads, Body&& body)
{
    parallelRegion(threads, [](int) {}, std::forward<Body>(body));
}

// A region whose threads each take one contiguous range of [0, count), cut by
// `partition` (lastTakesRest or staticBlock) from the granted team size.
template <class Partition, class Body>
void parallelFor(int threads, int count, Partition partition, Body&& body)
{
    parallelRegion(threads, [&](int thread, int team) {
        const Range r = partition(count, thread, team);
        if (r.begin < r.end) body(r.begin, r.end, thread, team);
    });
}

}  // namespace vekr
