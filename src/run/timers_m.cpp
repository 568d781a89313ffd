#include "run/timers_m.hpp"

#include <omp.h>

#include <algorithm>
#include <chrono>
#include <ctime>

namespace riffle {

void RoutineTimers::add(const char* name, double seconds) {
    Entry* e = nullptr;
    for (Entry& x : entries_) {
        if (x.name == name) e = &x;
    }
    if (e == nullptr) {
        entries_.push_back(Entry{name, 0.0, {}});
        e = &entries_.back();
    }
    e->seconds += seconds;
    if (threadclocks_) {
        if (e->busy.size() < end_.size()) e->busy.resize(end_.size(), 0.0);
        for (std::size_t t = 0; t < end_.size() && t < start_.size(); ++t) {
            e->busy[t] += end_[t] - start_[t];
        }
    }
}

void RoutineTimers::readclocks(std::vector<double>& clocks) {
    clocks.resize(static_cast<std::size_t>(omp_get_max_threads()));
    double* const c = clocks.data();
    // Each thread of a team reads its own CPU clock: not a grid loop, and no kernel.
#pragma omp parallel
    {
        timespec ts{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        c[omp_get_thread_num()] =
            static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
    }
}

double RoutineTimers::Entry::imbalance() const {
    double most = 0.0, sum = 0.0;
    for (const double b : busy) {
        most = std::max(most, b);
        sum += b;
    }
    return sum > 0.0 ? most * static_cast<double>(busy.size()) / sum : 1.0;
}

double RoutineTimers::now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace riffle
