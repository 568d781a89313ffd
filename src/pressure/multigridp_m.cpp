// Multigrid solve of the pressure increment, Laplacian(phi) = (dens/dt) div(u), on the cell
// centres of the hierarchy mg(lmin..0) (level l: n = n0 / 2^-l cells, h = h0 * 2^-l).
//
// Per level: lphi(i,j,k) = (phi(i+1)-2phi+phi(i-1))/hx^2 + (..j..)/hy^2 + (..k..)/hz^2 over the
// interior; res = src - lphi; the restriction averages res over the eight children into the
// coarse src; the prolongation adds 0.25 (Phi(P) + Phi(P+-i) + Phi(P+-j) + Phi(P+-k)), each +-
// pointing toward the child, to the fine phi. The smoother and the operator read the face ghosts
// of phi (rewritten first from the codes ibp), the prolongation reads the face ghosts of the
// coarse phi as left by that level's last ghost update, and boundarypres also writes the edges.
//
// Threads: each pass is one team of the loop layer (its loops static, levels too small to share
// on one thread); the Gauss-Seidel passes let threads update neighbouring lines without ordering,
// on purpose (see smoothingp).
#include "pressure/multigridp_m.hpp"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "pressure/linesweep_m.hpp"
#include "pressure/multigrid_k.hpp"
#include "pressure/projection_k.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::pressure {

namespace {

using loops::Team;

// The coarsest level's Gauss-Seidel iteration ends once no cell changes by more than this
// fraction of its value in one sweep.
constexpr double coarsetolerance = 1.0e-8;

// Sweep limit of the coarsest-level iteration used by the pressure-solve driver.
constexpr int coarsesweeps = 100;

// ---- level data -------------------------------------------------------------------------------

struct Level {
    int nx, ny, nz;
    double hx, hy, hz;
};

Level level_of(const PoissonGrid& pg, int level) {
    const mglevel& m = pg.levels.mg(level);
    const double f = static_cast<double>(1 << (-level));
    return {m.ni, m.nj, m.nk, pg.grid.dx * f, pg.grid.dy * f, pg.grid.dz * f};
}

// The six face codes as real factors, and which of the four side faces this block fills by its
// rule (all four on one rank; see Decomposition::appliesface).
struct Codes {
    double w, e, s, n, b, t;
    bool rw = true, re = true, rs = true, rn = true;
    bool bw = true, be = true, bs = true, bn = true; // the block lies on that box face
};

Codes codes_of(const PoissonGrid& pg) {
    Codes c{static_cast<double>(pg.ibp[west]),   static_cast<double>(pg.ibp[east]),
            static_cast<double>(pg.ibp[south]),  static_cast<double>(pg.ibp[north]),
            static_cast<double>(pg.ibp[bottom]), static_cast<double>(pg.ibp[top])};
    const Decomposition& d = pg.grid.dec;
    c.rw = d.appliesface(west, pg.ibp[west]);
    c.re = d.appliesface(east, pg.ibp[east]);
    c.rs = d.appliesface(south, pg.ibp[south]);
    c.rn = d.appliesface(north, pg.ibp[north]);
    c.bw = d.ownsface(west);
    c.be = d.ownsface(east);
    c.bs = d.ownsface(south);
    c.bn = d.ownsface(north);
    return c;
}

// After the face ghosts are written: the halo of phi from the neighbour blocks.
void halo(const Team& team, const PoissonGrid& pg, Field3d& phi, int nx, int ny) {
    exchange(team, pg.grid.dec, phi, nx, ny, true);
}

// ---- ghost passes ------------------------------------------------------------------------------

template <bool All>
void faceghostsof(const Team& team, const View& phi, int nx, int ny, int nz, const Codes& t) {
    team.forplane(Range{1, ny}, Range{1, nz}, [&](int j, int k) {
        if (All || t.rw) phi(0, j, k) = ghost(t.w, phi(1, j, k), phi(nx, j, k));
        if (All || t.re) phi(nx + 1, j, k) = ghost(t.e, phi(nx, j, k), phi(1, j, k));
    });
    team.forplane(Range{1, nx}, Range{1, nz}, [&](int i, int k) {
        if (All || t.rs) phi(i, 0, k) = ghost(t.s, phi(i, 1, k), phi(i, ny, k));
        if (All || t.rn) phi(i, ny + 1, k) = ghost(t.n, phi(i, ny, k), phi(i, 1, k));
    });
    team.forplane(Range{1, nx}, Range{1, ny}, [&](int i, int j) {
        phi(i, j, 0) = ghost(t.b, phi(i, j, 1), phi(i, j, nz));
        phi(i, j, nz + 1) = ghost(t.t, phi(i, j, nz), phi(i, j, 1));
    });
}

// One rank's box, or a block that fills all four side faces by their rules, takes the loops
// without the tests.
void faceghosts(const Team& team, const View& phi, int nx, int ny, int nz, const Codes& t) {
    if (t.rw && t.re && t.rs && t.rn) {
        faceghostsof<true>(team, phi, nx, ny, nz, t);
    } else {
        faceghostsof<false>(team, phi, nx, ny, nz, t);
    }
}

// Edge lines of the ghost layer, one pass per edge direction. Each edge cell extrapolates from
// the two face ghosts beside it, so the face passes (and on blocks the halo) must be complete.
// The edges are those of the box: a block makes the stretch of an edge that it lies on, and
// across a block face into the halo, where the formula gives the neighbour's value; the corner
// cells of the box are never written.
void edgeghosts(const Team& team, const View& phi, int nx, int ny, int nz, const Codes& t) {
    const int jg[2] = {0, ny + 1}, jn[2] = {1, ny};
    const int kg[2] = {0, nz + 1}, kn[2] = {1, nz};
    const int ig[2] = {0, nx + 1}, in[2] = {1, nx};
    const bool ri[2] = {t.bw, t.be}, rj[2] = {t.bs, t.bn};
    const int ilo = t.bw ? 1 : 0, ihi = t.be ? nx : nx + 1;
    const int jlo = t.bs ? 1 : 0, jhi = t.bn ? ny : ny + 1;
    team.forrange(Range{ilo, ihi}, [&](int i) {
        for (int b = 0; b < 2; ++b) {
            for (int a = 0; a < 2; ++a) {
                if (!rj[a]) continue;
                phi(i, jg[a], kg[b]) =
                    phi(i, jn[a], kg[b]) + phi(i, jg[a], kn[b]) - phi(i, jn[a], kn[b]);
            }
        }
    });
    team.forrange(Range{jlo, jhi}, [&](int j) {
        for (int b = 0; b < 2; ++b) {
            for (int a = 0; a < 2; ++a) {
                if (!ri[a]) continue;
                phi(ig[a], j, kg[b]) =
                    phi(in[a], j, kg[b]) + phi(ig[a], j, kn[b]) - phi(in[a], j, kn[b]);
            }
        }
    });
    team.forrange(Range{1, nz}, [&](int k) {
        for (int b = 0; b < 2; ++b) {
            for (int a = 0; a < 2; ++a) {
                if (!ri[a] || !rj[b]) continue;
                phi(ig[a], jg[b], k) =
                    phi(in[a], jg[b], k) + phi(ig[a], jn[b], k) - phi(in[a], jn[b], k);
            }
        }
    });
}

// Sum of squares over the interior. Each k-plane is summed by one thread and the planes are
// added in order afterwards, so the norm has the same bits whatever the thread count.
double sumsquares(const CView& a, int nx, int ny, int nz) {
    std::vector<double> plane(static_cast<std::size_t>(nz) + 1, 0.0);
    double* const sums = plane.data();
    loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
        team.forrange(Range{1, nz}, [&](int k) {
            double s = 0.0;
            for (int j = 1; j <= ny; ++j) {
                for (int i = 1; i <= nx; ++i)
                    s += a(i, j, k) * a(i, j, k);
            }
            sums[k] = s;
        });
    });
    double sum = 0.0;
    for (int k = 1; k <= nz; ++k)
        sum += sums[k];
    return sum;
}

// The cycle's descent from `level`: face ghosts of phi, the residual, and its restriction to the
// next coarser level, two fine planes and the coarse plane they make at a time, so the residual
// is averaged while it is still in cache. lphi is not kept: nothing reads it.
void residualrestriction(const PoissonGrid& pg, int level) {
    const Level g = level_of(pg, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const Codes t = codes_of(pg);
    const View phi = pg.levels.mg(level).phi.view();
    const CView src = pg.levels.mg(level).src.cview();
    const View res = pg.levels.mg(level).res.view();
    const mglevel& c = pg.levels.mg(level - 1);
    const int ncx = c.ni, ncy = c.nj, ncz = c.nk;
    const View csrc = pg.levels.mg(level - 1).src.view();
    const View cphi = pg.levels.mg(level - 1).phi.view();
    loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
        faceghosts(team, phi, nx, ny, nz, t);
        halo(team, pg, pg.levels.mg(level).phi, nx, ny);
        // Fine planes left over above 2 ncz (none while nz is a power of two) get their residual
        // alone.
        team.forrange(
            Range{2 * ncz + 1, nz},
            [&](int k) { residualplane(res, phi, src, nx, ny, k, hx2, hy2, hz2); }, false);
        team.forrange(Range{1, ncz}, [&](int kc) {
            residualplane(res, phi, src, nx, ny, 2 * kc - 1, hx2, hy2, hz2);
            residualplane(res, phi, src, nx, ny, 2 * kc, hx2, hy2, hz2);
            for (int jc = 1; jc <= ncy; ++jc)
                for (int ic = 1; ic <= ncx; ++ic)
                    restrictpoint(res, csrc, cphi, ic, jc, kc);
        });
    });
}

// Coarsest level: point Gauss-Seidel, each sweep after a face-ghost refresh, until the largest
// relative change of a sweep is below the tolerance or ncoarse sweeps are done.
void coarsesolve(const PoissonGrid& pg, int level, int ncoarse) {
    const Level g = level_of(pg, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const double diag = 2.0 / hx2 + 2.0 / hy2 + 2.0 / hz2;
    const Codes t = codes_of(pg);
    const View phi = pg.levels.mg(level).phi.view();
    const CView src = pg.levels.mg(level).src.cview();

    // The largest relative change of each plane in a sweep, combined afterwards (exact).
    std::vector<double> planechange(static_cast<std::size_t>(nz) + 1, 0.0);
    double* const change = planechange.data();
    for (int s = 1; s <= ncoarse; ++s) {
        // k-planes are shared out with no ordering between them: a plane may read its
        // neighbour while another thread updates it, which a relaxation tolerates.
        loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
            faceghosts(team, phi, nx, ny, nz, t);
            team.forrange(Range{1, nz}, [&](int k) {
                double chg = 0.0;
                for (int j = 1; j <= ny; ++j) {
                    for (int i = 1; i <= nx; ++i) {
                        const double old = phi(i, j, k);
                        const double now = pointvalue(phi(i - 1, j, k) + phi(i + 1, j, k),
                                                      phi(i, j - 1, k) + phi(i, j + 1, k),
                                                      phi(i, j, k - 1) + phi(i, j, k + 1),
                                                      src(i, j, k), hx2, hy2, hz2, diag);
                        phi(i, j, k) = now;
                        // Cells whose value is zero have no relative change and are not counted.
                        if (now != 0.0) chg = nanmax(chg, std::abs((now - old) / now));
                    }
                }
                change[k] = chg;
            });
        });
        double chg = 0.0;
        for (int k = 1; k <= nz; ++k)
            chg = nanmax(chg, change[k]);
        if (chg < coarsetolerance) break;
    }
}

// Face ghosts of level 0's phi, its residual and the residual's norm in one pass. Each plane's
// sum of squares is formed by one thread and the planes are added in order, as resnormp does.
void residualnorm(const PoissonGrid& pg, double& norm) {
    const Level g = level_of(pg, 0);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const Codes t = codes_of(pg);
    const View phi = pg.levels.mg(0).phi.view();
    const CView src = pg.levels.mg(0).src.cview();
    const View res = pg.levels.mg(0).res.view();
    thread_local std::vector<double> plane;
    if (plane.size() < static_cast<std::size_t>(nz) + 1) plane.resize(nz + 1);
    double* const sums = plane.data();
    loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
        faceghosts(team, phi, nx, ny, nz, t);
        halo(team, pg, pg.levels.mg(0).phi, nx, ny);
        team.forrange(Range{1, nz}, [&](int k) {
            sums[k] = residualplane(res, phi, src, nx, ny, k, hx2, hy2, hz2);
        });
    });
    double sum = 0.0;
    for (int k = 1; k <= nz; ++k)
        sum += sums[k];
    sum = allsum(pg.grid.dec, sum); // the blocks' sums in rank order
    norm = std::sqrt(sum);
}

// The blocks' coarsest level is gathered onto rank 0, which runs the cycle of the whole box from
// there down (coarsest-level iteration included), and every block takes its share of the
// correction back with a ring of halo for the prolongation.
void gathersolve(const PoissonGrid& pg, int level, int igamma, int ipres, int iposts, int ncoarse) {
    const Decomposition c = coarsened(pg.grid.dec, level);
    mglevel& m = pg.levels.mg(level);
    CoarseLevels* const w = pg.levels.whole.get();
    Hierarchy* const whole = w ? &w->levels : nullptr;
    gather(m.src, Range{1, m.ni}, Range{1, m.nj}, c.i0, c.j0,
           whole ? &whole->mg(level).src : nullptr);
    gather(m.phi, Range{1, m.ni}, Range{1, m.nj}, c.i0, c.j0,
           whole ? &whole->mg(level).phi : nullptr);
    if (w != nullptr) {
        w->grid.dx = pg.grid.dx;
        w->grid.dy = pg.grid.dy;
        w->grid.dz = pg.grid.dz;
        w->ibp = pg.ibp;
        w->levels.lineorder = pg.levels.lineorder;
        multigridp(PoissonGrid(w->grid, w->ibp, w->levels), level, igamma, ipres, iposts, ncoarse);
    }
    scatter(m.phi, Range{0, m.ni + 1}, Range{0, m.nj + 1}, c.i0, c.j0,
            whole ? &whole->mg(level).phi : nullptr);
}

} // namespace

// ---- public routines ---------------------------------------------------------------------------

void sourcep(const Geometry& grid, const Conditions& cond, const RunClock& clock,
             const FlowFields& flow, Hierarchy& levels) {
    const int nx = grid.imax, ny = grid.jmax, nz = grid.kmax;
    const double dx = grid.dx, dy = grid.dy, dz = grid.dz;
    const double factor = cond.dens / clock.dt;
    const CView u = flow.u.cview(), v = flow.v.cview(), w = flow.w.cview();
    const View src = levels.mg(0).src.view();
    // Cells inside the bed get a source like any other: the Poisson problem covers the box.
    loops::forbox(
        {{1, nx}, {1, ny}, {1, nz}},
        [=](int i, int j, int k) {
            src(i, j, k) = celldivergence(u, v, w, i, j, k, dx, dy, dz) * factor;
        },
        loops::Share::blocks, worththreads(nx, ny, nz));
}

void poisson(const Geometry& grid, const Conditions& cond, const RunClock& clock,
             const FlowFields& flow, Hierarchy& levels, int& npois) {
    const int ipres = cond.ipres, iposts = cond.iposts, igamma = cond.igamma;
    const int kpoismax = cond.kpoismax;
    // eps is the setting's bit pattern as a subnormal (m*2^-1074): kpoismax sets the work per step.
    const double eps = std::bit_cast<double>(std::uint64_t{static_cast<std::uint32_t>(cond.eps)});

    const PoissonGrid pg(grid, cond.ibp, levels);
    sourcep(grid, cond, clock, flow, levels);
    double divnorm = 0.0, resnorm = 1.0;
    divnormp(pg, 0, divnorm);
    int n = 0;
    for (;;) {
        ++n;
        npois = n;
        multigridp(pg, 0, igamma, ipres, iposts, coarsesweeps);
        residualnorm(pg, resnorm); // also leaves phi's face ghosts fresh for the correction
        if (n > kpoismax) break;
        if (resnorm / divnorm > eps) continue; // a NaN ratio fails this test
        if (n < 2) continue;
        break;
    }
}

void divnormp(const PoissonGrid& pg, int level, double& norm) {
    const mglevel& m = pg.levels.mg(level);
    double sum = sumsquares(m.src.cview(), m.ni, m.nj, m.nk);
    sum = allsum(pg.grid.dec, sum);
    norm = std::sqrt(sum);
}

void resnormp(const PoissonGrid& pg, int level, double& norm) {
    const mglevel& m = pg.levels.mg(level);
    double sum = sumsquares(m.res.cview(), m.ni, m.nj, m.nk);
    sum = allsum(pg.grid.dec, sum);
    norm = std::sqrt(sum);
}

void multigridp(const PoissonGrid& pg, int level, int igamma, int ipres, int iposts, int ncoarse) {
    if (level == pg.grid.lmin) {
        if (pg.levels.gathered) {
            gathersolve(pg, level, igamma, ipres, iposts, ncoarse);
        } else {
            coarsesolve(pg, level, ncoarse); // no smoothing before or after on the coarsest level
        }
        return;
    }
    smoothingp(pg, level, ipres);   // in: phi, src;  out: smoothed phi
    residualrestriction(pg, level); // out: res; coarse src, coarse phi = 0
    for (int g = 0; g < igamma; ++g) {
        multigridp(pg, level - 1, igamma, ipres, iposts, ncoarse); // out: coarse correction
    }
    prolongationp(pg, level);      // phi += interpolated correction; fresh ghosts
    smoothingp(pg, level, iposts); // out: smoothed phi
}

bool lineorderof(const std::string& text, LineOrder& order) {
    if (text != "rows" && text != "colours") return false;
    order = text == "rows" ? LineOrder::rows : LineOrder::colours;
    return true;
}

void boundarypres(const PoissonGrid& pg, int level) {
    const Level g = level_of(pg, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const Codes t = codes_of(pg);
    const View phi = pg.levels.mg(level).phi.view();
    loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
        faceghosts(team, phi, nx, ny, nz, t);
        halo(team, pg, pg.levels.mg(level).phi, nx, ny);
        edgeghosts(team, phi, nx, ny, nz, t);
    });
}

void operatorp(const PoissonGrid& pg, int level) {
    const Level g = level_of(pg, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const Codes t = codes_of(pg);
    Field3d& lphifield = pg.levels.mg(level).lphi;
    if (!lphifield.allocated()) {
        lphifield.allocate(Range{0, nx + 1}, Range{0, ny + 1}, Range{0, nz + 1});
    }
    const View phi = pg.levels.mg(level).phi.view();
    const View lphi = lphifield.view();
    loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
        faceghosts(team, phi, nx, ny, nz, t);
        halo(team, pg, pg.levels.mg(level).phi, nx, ny);
        team.forbox({{1, nx}, {1, ny}, {1, nz}}, [=](int i, int j, int k) {
            lphi(i, j, k) = laplacian(phi, i, j, k, hx2, hy2, hz2);
        });
    });
}

void residualp(const PoissonGrid& pg, int level) {
    const mglevel& m = pg.levels.mg(level);
    const int nx = m.ni, ny = m.nj, nz = m.nk;
    const CView src = m.src.cview(), lphi = m.lphi.cview();
    const View res = pg.levels.mg(level).res.view();
    loops::forbox(
        {{1, nx}, {1, ny}, {1, nz}},
        [=](int i, int j, int k) { res(i, j, k) = src(i, j, k) - lphi(i, j, k); },
        loops::Share::blocks, worththreads(nx, ny, nz));
}

void smoothingp(const PoissonGrid& pg, int level, int nsweeps) {
    if (nsweeps <= 0) return;
    const Level g = level_of(pg, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double cx = 1.0 / (g.hx * g.hx), cy = 1.0 / (g.hy * g.hy), cz = 1.0 / (g.hz * g.hz);
    const double d0 = -2.0 * (cx + cy + cz);
    const Codes t = codes_of(pg);
    const View phi = pg.levels.mg(level).phi.view();
    const CView src = pg.levels.mg(level).src.cview();
    // The eliminated diagonal of the column system is the same for every column of the level.
    thread_local std::vector<double> diagonal;
    if (diagonal.size() < static_cast<std::size_t>(nz) + 1) diagonal.resize(nz + 1);
    eliminateddiagonal(d0, cz, t.b, t.t, nz, diagonal.data());
    const double* const bm = diagonal.data();
    if (pg.levels.lineorder == LineOrder::colours) {
        const Decomposition c = coarsened(pg.grid.dec, level);
        const int parity = (c.i0 + c.j0) & 1; // colours follow the whole box's indices
        loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
            for (int s = 0; s < nsweeps; ++s) {
                faceghosts(team, phi, nx, ny, nz, t);
                halo(team, pg, pg.levels.mg(level).phi, nx, ny);
                for (int colour = 0; colour < 2; ++colour) {
                    team.forplane(Range{1, (nx + 1) / 2}, Range{1, ny}, [=](int h, int j) {
                        const int i = colouredline(h, j, colour, parity, nx);
                        if (i != 0) solveline(phi, src, i, j, nz, cx, cy, cz, bm);
                    });
                }
            }
        });
        return;
    }
    loops::together(worththreads(nx, ny, nz), [&](const Team& team) {
        for (int s = 0; s < nsweeps; ++s) {
            faceghosts(team, phi, nx, ny, nz, t);
            halo(team, pg, pg.levels.mg(level).phi, nx, ny);
            // Rows j are shared out in static blocks. Rows of neighbouring blocks on different
            // threads read each other while they are being updated, without ordering:
            // deliberate, the smoother tolerates it. Within a block the sweep is lexicographic.
            const Block b = team.share(Range{1, ny});
            linesweep(phi, src, nx, b.lo, b.hi, nz, cx, cy, cz, bm);
            team.wait();
        }
    });
}

void prolongationp(const PoissonGrid& pg, int level) {
    // The interpolation reads the coarse neighbours across the block faces as they are now.
    exchange(pg.grid.dec, pg.levels.mg(level - 1).phi, pg.levels.mg(level - 1).ni,
             pg.levels.mg(level - 1).nj, true);
    const mglevel& cm = pg.levels.mg(level - 1);
    const int ncx = cm.ni, ncy = cm.nj, ncz = cm.nk;
    const CView cphi = cm.phi.cview();
    const Level g = level_of(pg, level);
    const Codes t = codes_of(pg);
    const View phi = pg.levels.mg(level).phi.view();
    const View res = pg.levels.mg(level).res.view();
    // One team: the interpolation, then the fine level's ghost refresh (boundarypres).
    loops::together(worththreads(g.nx, g.ny, g.nz), [&](const Team& team) {
        team.forbox({{1, 2 * ncx}, {1, 2 * ncy}, {1, 2 * ncz}},
                    [=](int i, int j, int k) { prolongpoint(phi, res, cphi, i, j, k); });
        faceghosts(team, phi, g.nx, g.ny, g.nz, t);
        halo(team, pg, pg.levels.mg(level).phi, g.nx, g.ny);
        edgeghosts(team, phi, g.nx, g.ny, g.nz, t);
    });
}

} // namespace riffle::pressure
