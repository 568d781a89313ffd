// The loop layer: how a kernel is driven over the grid. A kernel is the arithmetic at one point,
// written once as an inline function (or lambda) of its indices and of views and scalars it
// captures; the functions below run it over an index box or a list of points. This OpenMP
// definition is the only place that opens parallel regions for such loops, and a back end for
// another machine replaces these drivers, never the kernels.
//
// Order and bits. A kernel that writes only its own point gives the same bits whatever the
// partition, so the drivers are free to share the work out. A reduction is combined from one
// partial per thread in thread order (PartialsOf), so a given thread count gives the same bits on
// every run; one thread sums in the loop order (k, then j, then i).
#pragma once

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "run/field3.hpp" // RIFFLE_HD, the kernels' marker
#include "run/parallel.hpp"

namespace riffle::loops {

// An index box, each range inclusive.
struct Box {
    Range i, j, k;
};

// How the outer index of a loop is shared among the threads: in contiguous blocks (the rule), in
// turn one at a time (where the work gathers in a few layers: those near the bed), or handed out
// one at a time as threads come free (where the work per layer varies).
enum class Share { blocks, turns, free };

namespace detail {

// One k plane of a box. The kernel is a copy local to the calling thread, so the compiler knows
// that the stores of the kernel cannot change the views it holds, and vectorises the i loop.
template <class Kernel> inline void plane(const Box& b, Kernel f, int k) {
    for (int j = b.j.lo; j <= b.j.hi; ++j) {
#pragma omp simd
        for (int i = b.i.lo; i <= b.i.hi; ++i)
            f(i, j, k);
    }
}

} // namespace detail

// Runs f(i, j, k) over the box: k outermost, i innermost, the k planes shared as `share` says
// (on one thread when `threads` is false: a box too small to share); f must write only what
// belongs to its own point.
template <class Kernel>
void forbox(const Box& b, Kernel&& f, Share share = Share::blocks, bool threads = true) {
    switch (share) {
    case Share::blocks:
#pragma omp parallel for schedule(static) if (threads)
        for (int k = b.k.lo; k <= b.k.hi; ++k)
            detail::plane(b, f, k);
        break;
    case Share::turns:
#pragma omp parallel for schedule(static, 1) if (threads)
        for (int k = b.k.lo; k <= b.k.hi; ++k)
            detail::plane(b, f, k);
        break;
    case Share::free:
#pragma omp parallel for schedule(dynamic, 1) if (threads)
        for (int k = b.k.lo; k <= b.k.hi; ++k)
            detail::plane(b, f, k);
        break;
    }
}

// A team of threads that runs several loops in one parallel region, for passes whose loops are
// too short to start the threads for each (the multigrid's levels). Its loops are shared among
// the team in static blocks and end together (every thread waits for the last), so each sees
// what the one before it wrote; `single` runs host work (a halo exchange) on one thread between
// two such waits. Only `together` makes a team.
class Team {
public:
    // f(i, j, k) over the box, as forbox.
    template <class Kernel> void forbox(const Box& b, Kernel&& f) const {
#pragma omp for schedule(static)
        for (int k = b.k.lo; k <= b.k.hi; ++k)
            detail::plane(b, f, k);
    }
    // f(a, b) over a plane, b shared (faces and edges of a box).
    template <class Kernel> void forplane(Range a, Range b, Kernel&& f) const {
#pragma omp for schedule(static)
        for (int y = b.lo; y <= b.hi; ++y)
            for (int x = a.lo; x <= a.hi; ++x)
                f(x, y);
    }
    // f(n) over a range (the k planes of a plane kernel); with `wait` false a thread goes on to
    // the next loop as soon as its own share is done.
    template <class Kernel> void forrange(Range r, Kernel&& f, bool wait = true) const {
        if (wait) {
#pragma omp for schedule(static)
            for (int n = r.lo; n <= r.hi; ++n)
                f(n);
        } else {
#pragma omp for schedule(static) nowait
            for (int n = r.lo; n <= r.hi; ++n)
                f(n);
        }
    }
    // The calling thread's static share of a range, for a driver that walks it in an order of
    // its own (the line smoother's wavefront), and the wait for the whole team.
    [[nodiscard]] Block share(Range r) const { return staticblock(r.lo, r.hi); }
    void wait() const {
#pragma omp barrier
    }
    // f() on the team's first thread once every thread has arrived; the others wait for it.
    template <class F> void single(F&& f) const {
#pragma omp barrier
#pragma omp master
        f();
#pragma omp barrier
    }

private:
    Team() = default;
    template <class Body> friend void together(bool threads, Body&& body);
};

// Runs body(team) on every thread of a new team (on one thread when `threads` is false).
template <class Body> void together(bool threads, Body&& body) {
#pragma omp parallel if (threads)
    body(Team{});
}

// Runs f(a, b) over a plane, b outermost, the b rows shared as `share` says (faces of the box,
// ghost layers); f must write only what belongs to its own point.
template <class Kernel> void forplane(Range a, Range b, Kernel&& f, Share share = Share::blocks) {
    forbox(
        {a, Range{0, 0}, b}, [&](int x, int, int y) { f(x, y); }, share);
}

// Runs f(n) for n = 0..count-1, shared among the threads in static blocks; f must write only
// what belongs to its own point.
template <class Kernel> void forpoints(long long count, Kernel&& f) {
#pragma omp parallel for schedule(static)
    for (long long n = 0; n < count; ++n)
        f(n);
}

// Runs f(first, count) over the entries 0..n-1 of a list: each thread takes the share that a
// static schedule gives it and walks it in groups of at most `group` entries from the start of
// its share (a kernel may work on the entries of a group side by side); f must write only what
// belongs to the entries of its group.
template <class Kernel> void forgroups(int n, int group, Kernel&& f) {
#pragma omp parallel
    {
        const Block mine = staticblock(0, n - 1);
        for (int m0 = mine.lo; m0 <= mine.hi; m0 += group)
            f(m0, std::min(group, mine.hi - m0 + 1));
    }
}

// Runs f(acc, n) for n = 0..count-1 with an accumulator of the calling thread's own, which starts
// as `start`, the points handed out sixteen at a time as threads come free (the work per point
// varies). Returns the accumulators in thread order, for the caller to combine; what one holds
// depends on the points its thread took.
template <class Acc, class Kernel>
[[nodiscard]] std::vector<Acc> collectpoints(long long count, const Acc& start, Kernel&& f) {
    std::vector<Acc> accs(static_cast<std::size_t>(omp_get_max_threads()), start);
#pragma omp parallel
    {
        Acc acc = start;
#pragma omp for schedule(dynamic, 16) nowait
        for (long long n = 0; n < count; ++n)
            f(acc, n);
        accs[static_cast<std::size_t>(omp_get_thread_num())] = std::move(acc);
    }
    return accs;
}

// f(i, j, k) over the box combined by op from `start`: each thread combines its k planes in loop
// order from `start`, and the partial results are combined in thread order from `start`.
template <class T, class Kernel, class Combine>
[[nodiscard]] T reducebox(const Box& b, T start, Kernel&& f, Combine op) {
    PartialsOf<T> partials(start);
#pragma omp parallel
    {
        T r = start;
#pragma omp for schedule(static)
        for (int k = b.k.lo; k <= b.k.hi; ++k)
            for (int j = b.j.lo; j <= b.j.hi; ++j)
                for (int i = b.i.lo; i <= b.i.hi; ++i)
                    r = op(r, f(i, j, k));
        partials.mine() = r;
    }
    return partials.combine(start, op);
}

// The sum and the smallest of f(i, j, k) over the box (see reducebox). A NaN value never wins a
// minimum.
template <class Kernel> [[nodiscard]] double sumbox(const Box& b, Kernel&& f) {
    return reducebox(b, 0.0, f, [](double a, double x) { return a + x; });
}
template <class Kernel> [[nodiscard]] double minbox(const Box& b, double start, Kernel&& f) {
    return reducebox(b, start, f, [](double a, double x) { return x < a ? x : a; });
}

// A reduction over the box in the order of its columns: the i columns shared among the threads
// in static blocks, and each thread taking its columns (i, j) in order with k innermost:
// take(acc, f(i, j, k), i, j, k) into its own accumulator, which starts as `start`. The values
// are formed a few columns at a time along i (unit stride) before they are taken. Returns the
// accumulators in thread order, for the caller to combine.
template <class Acc, class Kernel, class Take>
[[nodiscard]] std::vector<Acc> forcolumns(const Box& b, const Acc& start, Kernel&& f, Take&& take) {
    constexpr int width = 8; // columns formed together
    std::vector<Acc> accs(static_cast<std::size_t>(omp_get_max_threads()), start);
    const int nj = b.j.hi - b.j.lo + 1, nk = b.k.hi - b.k.lo + 1;
    const std::size_t plane = static_cast<std::size_t>(width) * (nj > 0 ? nj : 0);
    const std::size_t size = plane * (nk > 0 ? nk : 0);
#pragma omp parallel
    {
        // Taken into a copy of the thread's own and stored once at the end: the threads'
        // accumulators lie side by side in memory.
        Acc acc = start;
        thread_local std::vector<double> tile;
        if (tile.size() < size) tile.resize(size);
        double* const t = tile.data();
        const Block own = staticblock(b.i.lo, b.i.hi);
        for (int i0 = own.lo; i0 <= own.hi; i0 += width) {
            const int n = std::min(width, own.hi - i0 + 1);
            // f(i0 + m, j, k) at t[m + width (j - jlo) + plane (k - klo)].
            for (int k = b.k.lo; k <= b.k.hi; ++k) {
                for (int j = b.j.lo; j <= b.j.hi; ++j) {
                    double* const row = t + width * (j - b.j.lo) + plane * (k - b.k.lo);
#pragma omp simd
                    for (int m = 0; m < n; ++m)
                        row[m] = f(i0 + m, j, k);
                }
            }
            for (int m = 0; m < n; ++m) {
                for (int j = b.j.lo; j <= b.j.hi; ++j) {
                    const double* col = t + m + width * (j - b.j.lo);
                    for (int k = b.k.lo; k <= b.k.hi; ++k, col += plane)
                        take(acc, *col, i0 + m, j, k);
                }
            }
        }
        accs[static_cast<std::size_t>(omp_get_thread_num())] = std::move(acc);
    }
    return accs;
}

} // namespace riffle::loops
