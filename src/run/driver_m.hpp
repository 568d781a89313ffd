// The run driver: start-up from the case file, the time loop, the console report and the output
// schedules. It is serial; every routine it calls runs its grid loops through the loop layer.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "run/casefile_m.hpp"
#include "run/results_m.hpp"
#include "run/storage_m.hpp"
#include "run/timers_m.hpp"

namespace riffle {

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
void velocityboundaries(const Geometry& grid, const Conditions& cond, FlowFields& flow);

// The south and north wall laws, each where all three velocity codes of its face are walls (on
// several ranks: on the blocks that lie on the wall, then the halo of u and w refreshed).
void sidewalls(const Geometry& grid, const Conditions& cond, FlowFields& flow);

// Zeroes the velocities and eddy viscosity at points inside the bed (flag -1); each point
// depends on its own flag only, so the planes are shared among threads.
void zerosolid(const Geometry& grid, const BedState& bedstate, FlowFields& flow);

// Copies u, v, w and their flags to the previous level over 0..n+1 in each direction (the extra
// ghost layer at -1 is not copied). The flags are copied only when the classification may have
// changed since the last copy (always, unless the lists of forcing points are in use).
void storeold(const Geometry& grid, FlowFields& flow, BedState& bedstate);

// The seven-line report after every step.
void stepreport(const Storage& st);

// Truncation toward zero to a 32-bit integer; NaN and values outside the int32 range give
// INT32_MIN, so an interval of zero (an infinite quotient) never schedules output.
[[nodiscard]] std::int32_t trunc32(double x);

// True when the step from `told` to `time` crossed a whole multiple of `interval`.
[[nodiscard]] bool crossed(double time, double told, double interval);

} // namespace riffle
