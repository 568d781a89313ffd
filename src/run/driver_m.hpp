// The run driver: start-up from the case file, the time loop, the console report and the output
// schedules. It is serial; every routine it calls runs its own parallel region.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "run/casefile_m.hpp"
#include "run/storage_m.hpp"

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

// The whole program: exactly one argument, the case file. Returns the exit status. With
// `timers`, the time spent in each routine of the loop is added up there.
int riffle(int argc, const char* const* argv, RoutineTimers* timers = nullptr);

// Everything between opening the case file (selected for the case-file calls) and the first step:
// grid, conditions, storage, initial state, bed, classification, the initial write.
void startup(Storage& st, NodeArrays& nodes);

// One time step without its report and outputs: the step counter and time step; subgrid
// viscosity and driving force; the predictor; side walls and bed forcing; boundaries; the
// projection and divergence report; side walls, bed forcing and boundaries again; subgrid
// viscosity and classification from the corrected velocity; the store of the previous level.
void advance(Storage& st, RoutineTimers* timers = nullptr);

// boundaryu, boundaryv, boundaryw, in that order.
void velocityboundaries(Storage& st);

// The south and north wall laws, each where all three velocity codes of its face are walls (on
// several ranks: on the blocks that lie on the wall, then the halo of u and w refreshed).
void sidewalls(Storage& st);

// Zeroes the velocities and eddy viscosity at points inside the bed (flag -1); each point
// depends on its own flag only, so the planes are shared among threads.
void zerosolid(Storage& st);

// Copies u, v, w and their flags to the previous level over 0..n+1 in each direction (the extra
// ghost layer at -1 is not copied). The flags are copied only when the classification may have
// changed since the last copy (always, unless the lists of forcing points are in use).
void storeold(Storage& st);

// Node (i, j, k) of the staggered grid sits at the corner shared by cells i..i+1, j..j+1, k..k+1:
// a velocity component is the mean of the four faces around it, a cell-centred field the mean of
// the eight cells.
inline double nodeu(const Field3d& u, int i, int j, int k) {
    return 0.25 * (u(i, j, k) + u(i, j + 1, k) + u(i, j, k + 1) + u(i, j + 1, k + 1));
}
inline double nodev(const Field3d& v, int i, int j, int k) {
    return 0.25 * (v(i, j, k) + v(i + 1, j, k) + v(i, j, k + 1) + v(i + 1, j, k + 1));
}
inline double nodew(const Field3d& w, int i, int j, int k) {
    return 0.25 * (w(i, j, k) + w(i + 1, j, k) + w(i, j + 1, k) + w(i + 1, j + 1, k));
}
inline double eightcells(const Field3d& a, int i, int j, int k) {
    return 0.125 *
           (a(i, j, k) + a(i + 1, j, k) + a(i, j + 1, k) + a(i + 1, j + 1, k) + a(i, j, k + 1) +
            a(i + 1, j, k + 1) + a(i, j + 1, k + 1) + a(i + 1, j + 1, k + 1));
}

// The node output fields, in the order they are written.
enum class NodeField { unode, vnode, wnode, pnode, vortnode, qnode };

// Averages one of p, u, v, w, vort and qc from the staggered grid to the nodes, into `out` (over
// 0:imax, 0:jmax, 0:kmax). Nodes at or below the bed get zero velocity, vorticity and Q; the
// pressure is averaged everywhere.
void nodeaveraging(const Storage& st, const NodeArrays& nodes, NodeField field, Field3d& out);

// Writes the solution time and the six node fields to the open case file; with the wall-layer
// model on, the bed shear stress on the bed's surface too (writebedshear).
void writeresults(const Storage& st, NodeArrays& nodes);

// Writes "BedShearStress", "BedShearStressX" and "BedShearStressY" (Pa, ibm::bedshearnodes from
// st.bedshear as it stands) into the newest solution of the bed's surface; on several ranks rank
// 0 writes them for the whole grid, gathered from the blocks.
void writebedshear(const Storage& st);

// Writes the statistics file (on several ranks: rank 0, from the sums of the whole grid).
void statisticsoutput(const Storage& st, const NodeArrays& nodes);

// The seven-line report after every step.
void stepreport(const Storage& st);

// Truncation toward zero to a 32-bit integer; NaN and values outside the int32 range give
// INT32_MIN, so an interval of zero (an infinite quotient) never schedules output.
[[nodiscard]] std::int32_t trunc32(double x);

// True when the step from `told` to `time` crossed a whole multiple of `interval`.
[[nodiscard]] bool crossed(double time, double told, double interval);

} // namespace riffle
