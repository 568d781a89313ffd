// The results of a time: the node fields averaged from the staggered grid and written to the case
// file, the bed shear stress on the bed's surface, and the statistics file.
#pragma once

#include "run/casefile_m.hpp"
#include "run/storage_m.hpp"

namespace riffle {

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

// Node heights zmin + k dz over the node field z3 (its whole range).
void nodeheights(const Storage& st, Field3d& z3);

} // namespace riffle
