// Running flow statistics at the grid nodes: time means of u, v, w, p and the eddy viscosity, and
// the second moments u'u', v'v', w'w', u'w', u'v', v'w', over the steps that end at or after a
// start time; with the wall-layer model on, the time mean of the bed shear stress at the bed's
// nodes and of the forces on the bed region too. Switched on by "StatisticsItm" = 1 ("StatStartItm"
// the start time); absent, the run is exactly what it is without them. The sums carry over through
// restart files, so a continued run goes on averaging.
//
// The pressure. The predictor carries no pressure gradient, so each step's projection solves for
// the whole kinematic pressure: the step's pressure is level 0's phi of the multigrid (cell
// centred, as p), while p, the sum of all the steps' phi, grows with the step count. A sample
// takes the node value of phi less its mean over the fluid nodes of the whole grid, so that the
// level of the pressure, which only the ghost rule at the bottom of the box sets and which
// carries no physics, drops out, and the mean pressure has a fluid mean of zero:
//     P = < phi_node - mean over the fluid nodes of phi_node >  (Pa; the hydrostatic part kept).
//
// The forces on the bed region. The flow's momentum leaves it only at the u faces that the bed
// region holds, forcing and solid points: there the projection's pressure gradient acts, and
// there the forcing resets what stress and advection brought in. Summing -dphi/dx over the
// volume of those faces gives the pressure's x force on the bed as the discrete momentum budget
// sees it (the pressure drag); in a statistically steady flow the driving force on the flow's own
// u faces less the pressure drag is what stress and advection carry into the bed region. The split
// is exact for the discrete equations but not the physical one between form drag and skin
// friction: the forcing's reset also takes up the flow stopped against each step of the bed.
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

// Names of the fields of the bed surface of a statistics file (wall-layer model on), in Pa, in
// the order of Storage::StatisticSums::bedsum.
inline constexpr std::array<const char*, 3> bedstatisticnames = {
    "MeanBedShearStress", "MeanBedShearStressX", "MeanBedShearStressY"};

// The x forces of one moment per unit plan area of the whole grid (Pa), summed over the ranks:
// the pressure drag, sum over the u faces (i = 1..imax, j = 1..jmax, k = 1..kmax) whose flag is
// not fluid of -(phi(i+1, j, k) - phi(i, j, k)) dy dz, phi level 0's step pressure; and the
// driving force on the flow's own u faces, dens fx dx dy dz over the fluid ones.
struct BedForces {
    double pressuredrag = 0.0, flowdriving = 0.0;
};
[[nodiscard]] BedForces bedforces(const Storage& st);

// Reads "StatisticsItm" and, when it is 1, "StatStartItm"; allocates the sums at the nodes
// (0..imax x 0..jmax x 0..kmax) and at the bed's nodes, zero.
void readstatistics(Storage& st);

// Allocates zero sums for the grid of `st` (the statistics switched on).
void allocatestatistics(Storage& st);

// Adds the flow of this moment to the sums when the statistics are on and st.time has reached
// the start time: the node values of u, v, w (as written to the case file), their products (u w
// on the x-z edges through the node, where the momentum equations exchange them), of the step's
// pressure less its fluid mean (see above) and the eight-cell mean of the eddy viscosity, at the
// nodes above the bed only; with the wall-layer model on, the bed shear stress at every node of
// the bed (ibm::bedshearnodes, from st.bedshear as the step left it) and the bed forces.
void addsample(Storage& st, const NodeArrays& nodes);

// The mean over the fluid nodes (above the bed) of the whole grid of the eight-cell node values
// of a cell-centred field of the block: on several ranks every node counted once, though the
// blocks on either side of a block face both hold it, and summed over the ranks.
[[nodiscard]] double fluidnodemean(const Storage& st, const NodeArrays& nodes, const Field3d& a);

// The means and moments at the nodes from the sums, one array of (imax+1)(jmax+1)(kmax+1) values
// (i fastest) per name of statisticnames; zero everywhere before the first sample.
[[nodiscard]] std::array<std::vector<double>, 11> statisticfields(const Storage& st);

// The time means of the bed shear stress at the bed's nodes, one array of (imax+1)(jmax+1) values
// (i fastest) per name of bedstatisticnames; zero everywhere before the first sample.
[[nodiscard]] std::array<std::vector<double>, 3> bedstatisticfields(const Storage& st);

// The file name trim(outpath)/trim(outfile) + "_stats.cgns".
[[nodiscard]] std::string statisticsfilename(const Storage& st);

// Writes the statistics file (see statisticfields), with the averaging window, the sample count
// and the mean driving acceleration in x (MeanForceX, m/s^2) under /Flow/Statistics; with the
// wall-layer model on, also the bed surface zone Bed (the bed's nodes at x = xmin + i dx,
// y = ymin + j dy, z = nodes.elev) with the fields of bedstatisticfields, and its sample count
// (BedShearSamples), the mean pressure drag (MeanPressureDragX, Pa), the mean driving force on
// the flow's own u faces (MeanFlowDrivingX, Pa) and their sample count (BedForceSamples) under
// /Flow/Statistics. Throws std::runtime_error naming the file when it cannot.
void writestatistics(const Storage& st, const NodeArrays& nodes);

} // namespace riffle
