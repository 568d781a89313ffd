// Helpers for the OpenMP loop nests.
#pragma once

#include <omp.h>

#include <cstddef>
#include <vector>

namespace riffle {

// Levels of the multigrid hierarchy with fewer cells than this run their loops on one thread:
// below it, starting and joining the threads costs more than the work they would share.
inline constexpr long long parallelcells = 4096;

[[nodiscard]] inline bool worththreads(int nx, int ny, int nz) {
    return static_cast<long long>(nx) * ny * nz >= parallelcells;
}

struct Block {
    int lo, hi; // inclusive; empty when hi < lo
};

// The share of lo..hi that a static schedule gives the calling thread of the current team:
// contiguous blocks of nearly equal size in thread order. Used where an index other than the
// outermost is divided among threads, so the loop nest can keep i innermost for unit stride.
inline Block staticblock(int lo, int hi) {
    const int nthreads = omp_get_num_threads();
    const int t = omp_get_thread_num();
    const int n = hi >= lo ? hi - lo + 1 : 0;
    const int base = n / nthreads, extra = n % nthreads;
    const int first = lo + t * base + (t < extra ? t : extra);
    const int size = base + (t < extra ? 1 : 0);
    return {first, first + size - 1};
}

} // namespace riffle

namespace riffle {

// Per-thread partial results of a reduction, combined in thread order after the parallel region,
// so that a given thread count gives the same bits on every run (an OpenMP reduction clause may
// combine in the order the threads arrive).
template <class T> class PartialsOf {
public:
    explicit PartialsOf(T start)
        : slots_(static_cast<std::size_t>(omp_get_max_threads()), Slot{start}) {}
    // The calling thread's slot.
    [[nodiscard]] T& mine() { return slots_[static_cast<std::size_t>(omp_get_thread_num())].value; }
    template <class Combine> [[nodiscard]] T combine(T start, Combine op) const {
        T r = start;
        for (const Slot& s : slots_)
            r = op(r, s.value);
        return r;
    }

private:
    struct alignas(64) Slot {
        T value;
    };
    std::vector<Slot> slots_;
};

} // namespace riffle
