// The results of a time: the node fields averaged from the staggered grid and written to the case
// file, the bed shear stress on the bed's surface, and the statistics file.
#pragma once

#include "run/casefile_m.hpp"
#include "run/nodes_k.hpp"
#include "run/storage_m.hpp"

namespace riffle {

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
