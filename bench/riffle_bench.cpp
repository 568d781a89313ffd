// riffle-bench CASE: runs riffle on a case exactly as the solver does (the step report goes to
// stdout) and then prints to stderr the wall time of each routine of the time loop, the time per
// step, ns per cell per step, the peak resident memory, and the forcing points of the immersed bed
// with the memory their lists take.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>

#include "run/driver_m.hpp"

int main(int argc, char** argv) {
    riffle::RoutineTimers timers;
    const auto t0 = std::chrono::steady_clock::now();
    const int status = riffle::riffle(argc, argv, &timers);
    const double total = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const riffle::RoutineTimers& f = timers;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double cells = static_cast<double>(f.cells);
    double looptime = 0.0;
    for (const auto& e : timers.entries()) looptime += e.second;
    std::fprintf(stderr, "cells %.0f  steps %d  run %.3f s  loop %.3f s\n", cells, f.steps, total,
                 looptime);
    std::fprintf(stderr, "seconds per step %.6f  ns per cell per step %.2f  peak memory %.1f MiB\n",
                 looptime / f.steps, 1e9 * looptime / f.steps / cells, usage.ru_maxrss / 1024.0);
    std::fprintf(stderr,
                 "forcing points u %lld v %lld w %lld centres %lld  lists %.1f MiB, %.2f bytes "
                 "per cell\n",
                 f.forcingpoints[0], f.forcingpoints[1], f.forcingpoints[2], f.forcingpoints[3],
                 f.listbytes / 1048576.0, f.listbytes / cells);
    for (const auto& [name, seconds] : timers.entries()) {
        std::fprintf(stderr, "  %-18s %9.3f s  %5.1f %%\n", name.c_str(), seconds,
                     100.0 * seconds / looptime);
    }
    return status;
}
