// Running flow statistics at the grid nodes: time means of u, v, w, p and the eddy viscosity, and
// the second moments u'u', v'v', w'w', u'w', u'v', v'w', over the steps that end at or after a
// start time. Switched on by "StatisticsItm" = 1 ("StatStartItm" the start time); absent, the
// run is exactly what it is without them. The sums carry over through restart files, so a
// continued run goes on averaging.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "run/casefile_m.hpp"
#include "run/storage_m.hpp"

namespace riffle {

// Names of the fields of a statistics file, in the order of Storage::StatisticSums::sum's
// derived quantities.
inline constexpr std::array<const char*, 11> statisticnames = {
    "MeanVelocityX",    "MeanVelocityY",    "MeanVelocityZ",    "MeanPressure",
    "ReynoldsStressXX", "ReynoldsStressYY", "ReynoldsStressZZ", "ReynoldsStressXZ",
    "ReynoldsStressXY", "ReynoldsStressYZ", "MeanEddyViscosity"};

// Reads "StatisticsItm" and, when it is 1, "StatStartItm"; allocates the sums at the nodes
// (0..imax x 0..jmax x 0..kmax), zero.
void readstatistics(Storage& st);

// Allocates zero sums for the grid of `st` (the statistics switched on).
void allocatestatistics(Storage& st);

// Adds the flow of this moment to the sums when the statistics are on and st.time has reached
// the start time: the node values of u, v, w and p (as written to the case file) and the
// eight-cell mean of the eddy viscosity, at the nodes above the bed only.
void addsample(Storage& st, const NodeArrays& nodes);

// The means and moments at the nodes from the sums, one array of (imax+1)(jmax+1)(kmax+1) values
// (i fastest) per name of statisticnames; zero everywhere before the first sample.
[[nodiscard]] std::array<std::vector<double>, 11> statisticfields(const Storage& st);

// The file name trim(outpath)/trim(outfile) + "_stats.cgns".
[[nodiscard]] std::string statisticsfilename(const Storage& st);

// Writes the statistics file (see statisticfields), with the averaging window, the sample count
// and the mean driving acceleration in x (MeanForceX, m/s^2) under /Flow/Statistics. Throws std::runtime_error naming the file when it cannot.
void writestatistics(const Storage& st, const NodeArrays& nodes);

}  // namespace riffle
