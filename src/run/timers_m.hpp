// Timing of the routines of the time loop for the benchmark's summary.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace riffle {

// Wall-clock seconds spent in each routine of the time loop, for the benchmark's summary. With
// `threadclocks`, each thread's CPU time inside the routine is added up too, to show how evenly
// the work is shared: the busiest thread's time over the mean. That figure is meaningful when idle
// threads sleep instead of spinning (the benchmark runs that pass with a passive wait policy).
class RoutineTimers {
public:
    explicit RoutineTimers(bool enabled = true, bool threadclocks = false)
        : enabled_(enabled), threadclocks_(threadclocks) {}
    template <class F> void time(const char* name, F&& f) {
        if (!enabled_) {
            f();
            return;
        }
        if (threadclocks_) readclocks(start_);
        const double t0 = now();
        f();
        const double seconds = now() - t0;
        if (threadclocks_) readclocks(end_);
        add(name, seconds);
    }
    struct Entry {
        std::string name;
        double seconds = 0.0;
        std::vector<double> busy; // CPU seconds of each thread (with thread clocks)
        // Busiest thread's CPU time over the mean of all threads (1 when perfectly even).
        [[nodiscard]] double imbalance() const;
    };
    [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
    long long cells = 0; // interior cells of the grid
    // Forcing points of the u, v, w and cell-centre lists at the end, and the bytes the lists hold.
    std::array<long long, 4> forcingpoints{};
    long long listbytes = 0;
    int steps = 0; // time steps made

private:
    void add(const char* name, double seconds);
    static void readclocks(std::vector<double>& clocks);
    static double now();
    bool enabled_;
    bool threadclocks_;
    std::vector<double> start_, end_;
    std::vector<Entry> entries_;
};

} // namespace riffle
