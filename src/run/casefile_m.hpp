// Reading the case file: the 2-D bed grid and the 3-D box grid built over it, the calculation
// conditions in their reading order, the boundary-type codes and the cell-centred bed zb.
//
// A condition that is absent from the case file leaves its variable as it was (zero for nearly
// all of them): the solver stays silent about missing keys; `riffle-case --check` reports them.
#pragma once

#include <stdexcept>
#include <string>

#include "run/storage_m.hpp"

namespace riffle {

// Node arrays owned by the driver, over the grid nodes (0:imax, 0:jmax, 0:kmax); node (i,j,k) is
// the corner shared by cells i and i+1 (likewise in j, k).
struct NodeArrays {
    Field3d x3, y3, z3; // x3 and y3 are released once the grid is written
    Field2d elev;       // bed elevation at the nodes (0:imax, 0:jmax)
    // The node output fields (unode, vnode, wnode, pnode, vortnode, qnode) are formed one at a
    // time in this one array, each just before it is written: six arrays of the grid's size
    // would add some 40 bytes a cell to the run's memory for values that are only written out.
    Field3d node;
};

// Condition reads: the error flag is deliberately not looked at (an absent key keeps `value`).
void readinteger(const char* key, int& value);
void readreal(const char* key, double& value);
void readstring(const char* key, std::string& value);

// The vertical cell count from the exponent n of "kmaxItm": 2^n, or 0 for n outside 0..31.
[[nodiscard]] int kmaxfromexponent(int n);

// Reads the bed grid and "kmaxItm", "zminItm", "zmaxItm"; sets imax, jmax, kmax, the box and the
// spacings; allocates and fills the node arrays. Writes nothing: writegrid does. The case has
// passed caseproblems (casecheck_m.hpp): a bed grid of at least 2 x 2 nodes, 2 <= kmax.
void gridsetup(Storage& st, NodeArrays& nodes);

// Writes the 3-D grid of the node arrays to the case file, which removes the results of any
// earlier run: the first write of a run.
void writegrid(const Storage& st, const NodeArrays& nodes);

// After a write to the case file: a failed one (ier != 0) throws std::runtime_error with the
// line "ERROR : Cannot write the file CASE (REASON)", REASON the system's where the disk refused.
void casewritten(const Storage& st, int ier);

// "viscItm" .. "zBoundItm": physical parameters, time-step mode and boundary-type codes.
void readphysics(Storage& st);

// Boundary-type codes and values from the three boundary switches.
void setboundarycodes(Storage& st, int xbound, int ybound, int zbound);

// "iInitialItm", "iPerturbItmItm" and the keys that depend on them.
void readinitialconditions(Storage& st);

// Cell-centred bed from the node elevations, with ghost rows by the pressure codes.
void buildzb(Storage& st, const Field2d& elev);

// "OTimeItm" .. "outfileItm": output intervals, switches and names.
void readoutputsettings(Storage& st);

// ks = 1.0, then "BedItm" and "SedimentItm" or "RoughItm"; then "iWallModelItm", the switch of the
// wall-layer model, whose bed fields the initial write already holds.
void readroughness(Storage& st);

// Writes the bed's surface, base /Bed of the case file, which holds the bed's node fields:
// the whole grid's nodes at x = xmin + i dx, y = ymin + j dy and z = the bed elevation at the
// nodes, as the run uses it (after any roughening). Rank 0, before the initial write.
void writebedsurface(const Storage& st, const NodeArrays& nodes);

// "smagorinskyItm" .. "epsItm": subgrid, immersed-boundary and Poisson-solver settings.
void readsolversettings(Storage& st);

} // namespace riffle
