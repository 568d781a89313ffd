// The processes of a distributed run: start and end of the message layer, the halo exchange of
// the fields between neighbouring blocks, and reductions over all ranks.
//
// Halo exchange: a field over (ilo:ihi, jlo:jhi, klo:khi) whose owned points are 1..ni by 1..nj
// (every k) has a low halo of 1-ilo layers and a high halo of ihi-ni layers in x, likewise in y.
// exchange() fills the halos from the owned layers of the neighbour blocks: x first over the
// whole j and k range, then y over the whole i range (halos included), so the corner columns come
// from the diagonal neighbour. Faces of the box that are not shared with another block (a box face
// that is not periodic, or a periodic direction held by one rank alone) are left untouched: the
// boundary routines fill them as in a run on one process.
//
// Reductions combine one value from each rank in rank order, so a given rank count gives the
// same bits on every run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "run/decomposition_m.hpp"
#include "run/field3.hpp"
#include "run/loops.hpp"

namespace riffle {

// Starts the message layer for the life of the object (when the program was built with MPI) and
// ends it after. Constructed once, at the top of main.
class Ranks {
public:
    Ranks(int* argc, char*** argv);
    ~Ranks();
    Ranks(const Ranks&) = delete;
    Ranks& operator=(const Ranks&) = delete;
};

// Number of ranks of the run and this process's rank (1 and 0 without the message layer).
[[nodiscard]] int rankcount();
[[nodiscard]] int myrank();

// boxedges: where the halo wraps across a periodic box face, the columns that also lie beyond a
// box face of the other direction (the box's ghost edges, which the pressure solve extrapolates
// or leaves alone) are not taken from the neighbour.
void exchange(const Decomposition& d, Field3<double>& f, int ni, int nj, bool boxedges = false);
void exchange(const Decomposition& d, Field3<std::int32_t>& f, int ni, int nj);
// The halo from the neighbour blocks where they lie inside the box; a halo across a periodic box
// face keeps what it holds (the values a one-process run has there until its boundary pass).
void exchangeinside(const Decomposition& d, Field3<double>& f, int ni, int nj);
// The exchange above inside a team of the loop layer: one thread exchanges while the others
// wait, and every thread goes on with the halo in place (nothing to wait for on one process).
inline void exchange(const loops::Team& team, const Decomposition& d, Field3<double>& f, int ni,
                     int nj, bool boxedges) {
    if (!d.distributed()) return;
    team.single([&] { exchange(d, f, ni, nj, boxedges); });
}

// Gathering blocks onto rank 0 and handing them out again (the case file, restart and Tecplot
// files are written and read by rank 0 alone). Each rank names a box of its local points, li x lj
// (every k of its field), which is the box li+i0 x lj+j0 of the global field; rank 0's `global`
// spans every such box and the same k range (other ranks pass nullptr). gather copies each rank's
// box into `global`; scatter fills each rank's box from it. The boxes may overlap (nodes on a
// block face, halos): gather then keeps the value of the highest rank, which is the same value
// wherever the blocks agree.
void gather(const Field3<double>& local, Range li, Range lj, int i0, int j0,
            Field3<double>* global);
void scatter(Field3<double>& local, Range li, Range lj, int i0, int j0,
             const Field3<double>* global);

// Rank 0's value (or array, or text) handed to every rank.
void broadcast(int& x);
void broadcast(double& x);
void broadcast(double* data, std::size_t n);
void broadcast(std::string& text);

// Every rank's list, joined in rank order on rank 0 (other ranks get an empty list).
[[nodiscard]] std::vector<int> gatherlists(const std::vector<int>& mine);

// Sum, largest and smallest of one value per rank, known to every rank.
[[nodiscard]] double allsum(double x);
[[nodiscard]] double allmax(double x);
[[nodiscard]] double allmin(double x);

// The same over the blocks of a decomposition: the value itself where the decomposition is one
// block (one process, or the whole box on rank 0), so the numerics never ask how many ranks
// there are.
[[nodiscard]] inline double allsum(const Decomposition& d, double x) {
    return d.distributed() ? allsum(x) : x;
}
[[nodiscard]] inline double allmax(const Decomposition& d, double x) {
    return d.distributed() ? allmax(x) : x;
}
[[nodiscard]] inline double allmin(const Decomposition& d, double x) {
    return d.distributed() ? allmin(x) : x;
}
[[nodiscard]] inline std::vector<int> gatherlists(const Decomposition& d,
                                                  const std::vector<int>& mine) {
    return d.distributed() ? gatherlists(mine) : mine;
}
// The values of every rank, in rank order.
[[nodiscard]] std::vector<double> allvalues(double x);

// What the exchanges and reductions of this process have cost so far: seconds spent in them
// (packing included), bytes sent, and the number of reductions and of gathers onto rank 0.
struct MessageCounts {
    double seconds = 0.0;
    double bytes = 0.0;
    long long exchanges = 0, reductions = 0, gathers = 0;
};
[[nodiscard]] const MessageCounts& messagecounts();

} // namespace riffle
