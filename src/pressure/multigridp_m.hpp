// Pressure-increment solve of the projection step: geometric multigrid for the Poisson equation
//     Laplacian(phi) = src,   src = (dens/dt) * div(u, v, w)
// on the whole box (cells inside the bed included), solved on the hierarchy mg(lmin..0), level 0
// being the computational grid and level l having spacings h * 2^-l.
//
// Where things sit: phi, lphi, res and src of every level are cell-centred over
// (0:n+1) in each direction, index 0 and n+1 being the ghost layer. u, v, w are the staggered
// face velocities of the storage (u(i) between cells i and i+1); sourcep reads the faces of the
// interior cells only.
//
// Ghost layer of phi: face ghosts follow the pressure boundary codes ibp(1..6) (west, east,
// south, north, bottom, top), ghost = t * (adjacent interior) + (1 - |t|) * (opposite end of the
// line), so t = 0 is periodic, t = 1 zero gradient, t = -1 zero increment on the face. The
// operator, the smoother and the coarsest-level iteration rewrite the face ghosts before they
// read them; boundarypres also fills the twelve edge lines. The eight corner cells are never
// written (no stencil reads them) and keep the zero of the initial state.
//
// Cycle: pre-smoothing by vertical-line Gauss-Seidel (an exact tridiagonal solve per column),
// residual, eight-cell-average restriction, igamma visits of the next coarser level (which
// starts from zero), four-point prolongation, post-smoothing; the coarsest level is relaxed by
// point Gauss-Seidel until its relative change falls below 1e-8 or ncoarse sweeps are done.
#pragma once

#include <string>

#include "run/storage_m.hpp"

namespace riffle::pressure {

// The pressure problem as the multigrid sees it: the grid, the pressure codes of its faces and
// the hierarchy of levels. A run's storage gives its own; rank 0 solves the whole box's coarse
// levels (CoarseLevels) as one of its own.
struct PoissonGrid {
    const Geometry& grid;
    const std::array<int, 7>& ibp;
    Hierarchy& levels;
    PoissonGrid(const Geometry& g, const std::array<int, 7>& codes, Hierarchy& h)
        : grid(g), ibp(codes), levels(h) {}
    // Implicit: a run's storage is the pressure problem of its own grid.
    PoissonGrid(Storage& st) : grid(st), ibp(st.ibp), levels(st) {}
};

// Poisson source on level 0: src = (dens/dt) * ((u(i)-u(i-1))/dx + (v(j)-v(j-1))/dy
// + (w(k)-w(k-1))/dz) over the interior cells; the ghost layer of src is not written.
void sourcep(const Geometry& grid, const Conditions& cond, const RunClock& clock,
             const FlowFields& flow, Hierarchy& levels);

// The smoother's order named by `text` ("rows" or "colours"); false for any other text.
[[nodiscard]] bool lineorderof(const std::string& text, LineOrder& order);

// Pressure-solve driver: source, then multigrid cycles on level 0 from the phi of the previous
// step, each followed by the residual res and its norm. Stops after kpoismax + 1 cycles (one
// when kpoismax <= 0), or from the second cycle on once resnorm/divnorm is not above the
// tolerance, a 0/0 ratio included. npois is the number of cycles done. Leaves phi and res of
// level 0 consistent, with phi's face ghosts fresh for the velocity correction. The cycle and
// the driver form the Laplacian inside the residual pass and do not keep it in lphi; only
// operatorp writes lphi.
void poisson(const Geometry& grid, const Conditions& cond, const RunClock& clock,
             const FlowFields& flow, Hierarchy& levels, int& npois);

// Euclidean norm of src (divnormp) and of res (resnormp) over the interior of `level`.
void divnormp(const PoissonGrid& pg, int level, double& norm);
void resnormp(const PoissonGrid& pg, int level, double& norm);

// One multigrid cycle on `level` and, recursively, on all coarser levels: igamma = 1 V-cycle,
// 2 W-cycle, <= 0 no coarse correction. ipres / iposts smoothing sweeps before / after the
// coarse correction; ncoarse is the sweep limit of the coarsest-level iteration.
void multigridp(const PoissonGrid& pg, int level, int igamma, int ipres, int iposts, int ncoarse);

// Face ghosts of phi on all six faces (i, then j, then k faces), then the twelve edge lines:
// edge = (face ghost beside it in the first direction) + (face ghost beside it in the second)
// - (interior cell diagonally inside it).
void boundarypres(const PoissonGrid& pg, int level);

// Face ghosts of phi, then lphi = the seven-point Laplacian of phi over the interior.
void operatorp(const PoissonGrid& pg, int level);

// res = src - lphi over the interior of `level`.
void residualp(const PoissonGrid& pg, int level);

// nsweeps sweeps of vertical-line Gauss-Seidel: face ghosts, then for every column (i,j) the
// tridiagonal system in k with the horizontal neighbours at their current values, solved exactly.
void smoothingp(const PoissonGrid& pg, int level, int nsweeps);

// Adds the four-point interpolation of level-1's phi to phi of `level`, stores the added
// correction in res of `level`, then refreshes the ghosts of `level` (boundarypres).
void prolongationp(const PoissonGrid& pg, int level);

} // namespace riffle::pressure
