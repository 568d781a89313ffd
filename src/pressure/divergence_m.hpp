// Divergence left after the projection, cell by cell over the interior:
//   d = (u(i) - u(i-1))/dx + (v(j) - v(j-1))/dy + (w(k) - w(k-1))/dz,
// sets divmax = max |d| and divtotal = sum of d (signed, so opposite signs cancel). A cell with
// |d| > 0.01 is written to the console as "i j k" and the run pauses for the operator (at once
// when standard input is closed), then goes on.
#pragma once

#include "run/storage_m.hpp"

namespace riffle::pressure {

// The largest cell divergence that passes without a report.
inline constexpr double divergencelimit = 0.01;

void divergence(const Geometry& grid, const FlowFields& flow, RunClock& clock);

} // namespace riffle::pressure
