// The state of the whole box on rank 0 of a divided run, for the files that hold the whole box:
// restart and Tecplot files and the statistics file are written, and a restart file read, by
// rank 0 from a storage of the whole box (as one process would hold it), gathered from the blocks
// or handed out to them.
//
// Each block gives the cells it owns and, where it lies on a face of the box, the ghost layer of
// that face; node arrays, the nodes of its cells' corners. A block takes back its cells and its
// halo as far as the box reaches, and refreshes the halo that wraps across a periodic face from
// its neighbour.
//
// The whole box costs rank 0 the memory of a one-process run beside its block: reasonable up to
// the size one machine can run alone.
#pragma once

#include "run/storage_m.hpp"

namespace riffle {

// Rank 0's storage of the whole box (allocated at the first call, with the run's grid and
// settings); nullptr on the other ranks.
[[nodiscard]] Storage* wholestate(const Storage& st);

// What a file needs of the state.
enum class Part { restart, flow, statistics };

// The storage a file of the whole box is written from: the run's own on one process; on several
// ranks rank 0's whole box with `part` gathered into it (collective; nullptr on the other ranks).
[[nodiscard]] const Storage* filesource(const Storage& st, Part part);

// Hands the restart state of rank 0's whole box out to the blocks (collective): multigrid phi,
// previous-level velocities, momentum terms, eddy viscosity, statistics sums (the bed's too) and
// pressure; the step continues from the previous level.
void scatterrestart(Storage& st);

} // namespace riffle
