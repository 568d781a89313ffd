// The division of the box among the processes (ranks) of a distributed run.
//
// The ranks form a px x py grid over the horizontal plane; each owns whole vertical columns, a
// block of cells i0+1..i0+ni (in the global numbering) by j0+1..j0+nj by every k, so the vertical
// lines of the pressure smoother, the bed columns and zb stay whole on one rank. Rank r sits at
// (cx, cy) = (r mod px, r div px). Blocks are cut in units of `unit` cells (a power of two, so that
// the coarser multigrid levels divide the same way); the remainder that does not fill a unit goes
// to the last block of the row.
//
// Neighbours: the rank beside each of the four side faces of the block, or `noneighbour` where
// the block touches a face of the box that is not periodic. A periodic direction wraps: the first
// and last blocks are neighbours (a rank may be its own neighbour when px or py is 1).
#pragma once

#include <array>
#include <string>

namespace riffle {

inline constexpr int noneighbour = -1;

// Layers of halo of a block's fields in x and y: the reach of the bed's interpolation blocks
// (three points beyond the one nearest the image point, which lies near the forcing point).
inline constexpr int halowidth = 4;

// Fewest cells a block may have in x and in y: no fewer than the halo is wide, so a halo is always
// filled from the adjacent block alone.
inline constexpr int minblock = halowidth;

struct Decomposition {
    int nranks = 1, rank = 0;
    int px = 1, py = 1;       // ranks along x and along y
    int cx = 0, cy = 0;       // this rank's place in the rank grid
    int imaxg = 0, jmaxg = 0; // cells of the whole box in x and y
    int i0 = 0, j0 = 0;       // global index of a local cell = local index + offset
    int ni = 0, nj = 0;       // cells owned in x and y
    // Neighbour ranks across the west, east, south and north faces (index Face 1..4; 0 unused).
    std::array<int, 5> neighbour{noneighbour, noneighbour, noneighbour, noneighbour, noneighbour};
    bool periodicx = false, periodicy = false;
    int unit = 1; // blocks are cut in whole units of this many cells (a power of two)

    // Whether this rank's block touches the box face west (1), east (2), south (3) or north (4).
    [[nodiscard]] bool ownsface(int face) const;
    [[nodiscard]] bool distributed() const { return nranks > 1; }
    // Whether this block fills the ghost layer of box face `face` (1..4) by the boundary rule of
    // its code: always on one rank or where one rank holds the whole direction; otherwise only on
    // a face of the box that is not periodic (a periodic face is filled by the halo exchange).
    [[nodiscard]] bool appliesface(int face, int code) const;
};

// Start (0-based offset) and size of block c of p blocks over n cells, cut in units of `unit`.
struct Span {
    int start, size;
};
[[nodiscard]] Span blockspan(int n, int p, int c, int unit);

// The rank grid for nranks ranks over imax x jmax cells: of the factorisations px * py = nranks
// whose blocks all keep at least minblock cells a side, the one with the least halo to exchange
// per rank (more ranks along x on a tie). Returns {0, 0} when there is none.
[[nodiscard]] std::array<int, 2> rankgrid(int nranks, int imax, int jmax, int unit);

// The block of `rank` in a px x py rank grid (grid = {px, py}, e.g. from rankgrid).
[[nodiscard]] Decomposition decompose(std::array<int, 2> grid, int rank, int imax, int jmax,
                                      bool periodicx, bool periodicy, int unit);

// The unit to cut blocks in for a multigrid hierarchy of -lmin coarser levels: the largest power
// of two, at most 2^-lmin, for which the rank grid exists, every block spans at least two units
// (so the blocks keep at least two cells a side down to the level of the unit) and the largest
// block has at most a quarter more cells than the smallest. 0 when no unit admits a rank grid.
[[nodiscard]] int chooseunit(int nranks, int imax, int jmax, int lmin);

// The blocks of level `level` (<= 0) of the multigrid hierarchy: the cells of the level that the
// level-0 block covers (coarse cell c covers fine cells 2c-1 and 2c).
[[nodiscard]] Decomposition coarsened(const Decomposition& d, int level);

// One line saying why imax x jmax cells cannot be shared by nranks ranks.
[[nodiscard]] std::string undividable(int nranks, int imax, int jmax);

} // namespace riffle
