// riffle-bench [--thread-clocks] CASE: runs riffle on a case exactly as the solver does (the step
// report goes to stdout) and then prints to stderr the wall time of each routine of the time loop,
// its share of the loop, the time per step, ns per cell per step and the peak resident memory in
// MiB and in bytes per cell, in all and above what the process held before the case was read (of
// rank 0, over the whole box's cells on several ranks). Under mpirun rank 0 reports, with the
// halo exchanges, reductions and gathers of a step and their time. With --thread-clocks each
// routine's load imbalance is printed too: the busiest thread's CPU time in it over the mean of
// the threads (run with a passive OpenMP wait policy, so that idle threads sleep and their CPU
// time is their work). It also prints the forcing points of the immersed bed and the memory their
// lists take.
#include <sys/resource.h>
#include <unistd.h>

#include <omp.h>

#include <chrono>
#include <cstdio>
#include <cstring>

#include "run/driver_m.hpp"
#include "run/halo_m.hpp"

namespace {

// Resident memory of this process now (bytes), from /proc; 0 where it cannot be read.
double residentnow() {
    std::FILE* f = std::fopen("/proc/self/statm", "r");
    if (f == nullptr) return 0.0;
    long pages = 0, resident = 0;
    const bool read = std::fscanf(f, "%ld %ld", &pages, &resident) == 2;
    std::fclose(f);
    return read ? static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) : 0.0;
}

} // namespace

int main(int argc, char** argv) {
    const riffle::Ranks ranks(&argc, &argv); // under mpirun: one rank of the run
    // What the program and its libraries hold before a case is read: on a small grid most of the
    // peak.
    const double fixed = residentnow();
    bool clocks = false;
    if (argc > 1 && std::strcmp(argv[1], "--thread-clocks") == 0) {
        clocks = true;
        --argc;
        ++argv;
    }
    riffle::RoutineTimers timers(true, clocks);
    const auto t0 = std::chrono::steady_clock::now();
    const int status = riffle::riffle(argc, argv, &timers);
    const double total =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double cells = static_cast<double>(timers.cells);
    double looptime = 0.0;
    for (const auto& e : timers.entries())
        looptime += e.seconds;
    const double peak = static_cast<double>(usage.ru_maxrss) * 1024.0;
    if (riffle::myrank() != 0) return status; // rank 0 reports for all
    std::fprintf(stderr, "ranks %d  threads %d  cells %.0f  steps %d  run %.3f s  loop %.3f s\n",
                 riffle::rankcount(), omp_get_max_threads(), cells, timers.steps, total, looptime);
    if (riffle::rankcount() > 1) {
        const riffle::MessageCounts& m = riffle::messagecounts();
        const double steps = timers.steps;
        std::fprintf(stderr,
                     "per step on rank 0: halo exchanges %.1f (%.0f bytes sent), reductions %.1f, "
                     "gathers %.1f, %.6f s in them\n",
                     m.exchanges / steps, m.bytes / steps, m.reductions / steps, m.gathers / steps,
                     m.seconds / steps);
    }
    std::fprintf(stderr,
                 "seconds per step %.6f  ns per cell per step %.2f  peak memory %.1f MiB  "
                 "%.0f bytes per cell (%.0f above the %.1f MiB held before the case is read)\n",
                 looptime / timers.steps, 1e9 * looptime / timers.steps / cells,
                 peak / (1024.0 * 1024.0), peak / cells, (peak - fixed) / cells,
                 fixed / (1024.0 * 1024.0));
    std::fprintf(stderr,
                 "forcing points u %lld v %lld w %lld centres %lld  lists %.1f MiB, %.2f bytes "
                 "per cell\n",
                 timers.forcingpoints[0], timers.forcingpoints[1], timers.forcingpoints[2],
                 timers.forcingpoints[3], timers.listbytes / 1048576.0, timers.listbytes / cells);
    for (const auto& e : timers.entries()) {
        std::fprintf(stderr, "  %-18s %9.3f s  %5.1f %%", e.name.c_str(), e.seconds,
                     100.0 * e.seconds / looptime);
        if (clocks) std::fprintf(stderr, "  imbalance %.2f", e.imbalance());
        std::fprintf(stderr, "\n");
    }
    return status;
}
