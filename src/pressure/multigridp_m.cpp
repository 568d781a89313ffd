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
// Threads: every pass is one OpenMP loop with a static schedule; the Gauss-Seidel passes let
// threads update neighbouring lines without ordering, on purpose (see smoothingp).
#include "pressure/multigridp_m.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "run/halo_m.hpp"
#include "run/parallel.hpp"

namespace riffle::pressure {

namespace {

using View = View3<double>;
using CView = ConstView3<double>;

// The coarsest level's Gauss-Seidel iteration ends once no cell changes by more than this
// fraction of its value in one sweep.
constexpr double coarsetolerance = 1.0e-8;

// Sweep limit of the coarsest-level iteration used by the pressure-solve driver.
constexpr int coarsesweeps = 100;

// ---- pointwise arithmetic ---------------------------------------------------------------------

// Ghost value of a face of code t: t * (adjacent interior) + (1 - |t|) * (opposite end). The
// formula is applied even where a factor is 0, so a periodic face is an exact copy.
inline double ghost(double t, double adjacent, double opposite) {
    return t * adjacent + (1.0 - std::abs(t)) * opposite;
}

// Second difference of one direction, formed as (east - centre - centre + west) / h^2.
inline double secdiff(double west, double centre, double east, double h2) {
    return (east - centre - centre + west) / h2;
}

// The four-point interpolation of a coarse correction toward one child.
inline double fourpoint(double centre, double towardi, double towardj, double towardk) {
    return 0.25 * (centre + towardi + towardj + towardk);
}

// Point Gauss-Seidel value of the seven-point equation with the neighbour sums given.
inline double pointvalue(double sumi, double sumj, double sumk, double src, double hx2, double hy2,
                         double hz2, double diag) {
    return (sumi / hx2 + sumj / hy2 + sumk / hz2 - src) / diag;
}

// Larger of two changes; a NaN, once met, wins, so a blown-up coarse iteration runs to its
// sweep limit instead of reporting convergence.
inline double nanmax(double a, double b) { return (b > a || std::isnan(b)) ? b : a; }

// Max is exact in any order (and a NaN stays a NaN), so a reduction clause is deterministic here.
#pragma omp declare reduction(nanmax:double                                                        \
                              : omp_out = nanmax(omp_out, omp_in)) initializer(omp_priv = 0.0)

// ---- vertical-line Gauss-Seidel ---------------------------------------------------------------
//
// Every column (i,j) solves  cz phi(k-1) + d0 phi(k) + cz phi(k+1) = r(k),  k = 1..nz, with
// r(k) = src - (phi(i-1) + phi(i+1)) cx - (phi(j-1) + phi(j+1)) cy at the current values, the
// bottom ghost (zero increment) and the top ghost (zero gradient) folded into the end rows. The
// Thomas elimination of the diagonal, b(k+1) = b(k+1) - c(k) a(k+1)/b(k), involves only the level's
// constants, so it is done once per call; the right-hand side and the back substitution are done
// per column with the same expressions as a column-by-column solve.

// The eliminated diagonal b(1..nz) of the column system.
void eliminateddiagonal(double d0, double cz, double tb, double tt, int nz, double* b) {
    for (int k = 1; k <= nz; ++k)
        b[k] = d0;
    b[1] = b[1] + cz * tb;
    b[nz] = b[nz] + cz * tt;
    for (int k = 1; k < nz; ++k)
        b[k + 1] = b[k + 1] - cz * cz / b[k];
}

// Columns solved together, one per lane of a vector register: strips of 8 rows, and of 4 or 2
// where fewer rows are left (few rows per thread on small or coarse grids).
template <int L> struct LaneVector;
template <> struct LaneVector<8> {
    using type = double __attribute__((vector_size(8 * sizeof(double))));
};
template <> struct LaneVector<4> {
    using type = double __attribute__((vector_size(4 * sizeof(double))));
};
template <> struct LaneVector<2> {
    using type = double __attribute__((vector_size(2 * sizeof(double))));
};
template <int L> using Lanes = typename LaneVector<L>::type;

// One strip of nl <= L rows from j0, swept as a skewed wavefront: at step s lane l solves column
// (s - l, j0 + l), one column behind the row below it. A column needs the new values of its west
// and south neighbours and the old values of its east and north ones, so each column sees exactly
// the values the row-by-row sweep would give it, while the lanes' recurrences in k run side by
// side.
template <int L>
void sweepstrip(const View& phi, const CView& src, int nx, int j0, int nl, int nz, double cx,
                double cy, double cz, const double* bm) {
    using V = Lanes<L>;
    thread_local std::vector<V> work;
    const std::size_t need = 3 * (static_cast<std::size_t>(nz) + 1);
    if (work.size() < need) work.resize(need); // once per thread and size
    V* const r = work.data();
    V* x = r + nz + 1;  // this step's columns
    V* xp = x + nz + 1; // the previous step's columns
    // Strides of phi and src between neighbours in j and k (the same layout for both), and
    // between the columns of neighbouring lanes (one row up, one column back).
    const std::ptrdiff_t sj = &phi(1, 2, 1) - &phi(1, 1, 1);
    const std::ptrdiff_t sk = &phi(1, 1, 2) - &phi(1, 1, 1);
    const std::ptrdiff_t sl = sj - 1;
    for (int s = 1; s <= nx + nl - 1; ++s) {
        const int lfirst = std::max(0, s - nx), llast = std::min(nl - 1, s - 1);
        if (nl == L && s > L && s <= nx) {
            // All lanes busy and none at i = 1: the west neighbour of each column and the south
            // neighbour of all but the first lane are the columns solved one step ago.
            const double* p = &phi(s, j0, 1);
            const double* q = &src(s, j0, 1);
            // Every eighth step the lines two cache lines ahead of the wavefront are asked for:
            // the strip reads 2 L + 1 rows of every plane, too many streams for the hardware to
            // follow.
            const bool fetch = (s & 7) == 0 && s + 16 <= nx;
            for (int k = 1; k <= nz; ++k, p += sk, q += sk) {
                if (fetch) {
                    for (int l = -1; l <= L; ++l) {
                        __builtin_prefetch(p + 16 + l * sj, 1);
                        __builtin_prefetch(q + 16 + l * sj);
                    }
                }
                V east, north, sv, south;
                for (int l = 0; l < L; ++l) {
                    east[l] = p[l * sl + 1];
                    north[l] = p[l * sl + sj];
                    sv[l] = q[l * sl];
                }
                south[0] = p[-sj];
                for (int l = 1; l < L; ++l)
                    south[l] = xp[k][l - 1];
                V rk = sv - (xp[k] + east) * cx - (south + north) * cy;
                if (k > 1) rk = rk - cz * r[k - 1] / bm[k - 1];
                r[k] = rk;
            }
        } else {
            // Idle lanes (the wavefront's ends, a short strip) solve a zero column.
            for (int l = 0; l < L; ++l) {
                if (l >= lfirst && l <= llast) continue;
                for (int k = 1; k <= nz; ++k)
                    r[k][l] = 0.0;
            }
            for (int l = lfirst; l <= llast; ++l) {
                const double* p = &phi(s - l, j0 + l, 1);
                const double* q = &src(s - l, j0 + l, 1);
                for (int k = 1; k <= nz; ++k, p += sk, q += sk) {
                    r[k][l] = *q - (p[-1] + p[1]) * cx - (p[-sj] + p[sj]) * cy;
                }
            }
            for (int k = 1; k < nz; ++k)
                r[k + 1] = r[k + 1] - cz * r[k] / bm[k];
        }
        x[nz] = r[nz] / bm[nz];
        for (int k = nz - 1; k >= 1; --k)
            x[k] = (r[k] - cz * x[k + 1]) / bm[k];
        for (int l = lfirst; l <= llast; ++l) {
            double* p = &phi(s - l, j0 + l, 1);
            for (int k = 1; k <= nz; ++k, p += sk)
                *p = x[k][l];
        }
        std::swap(x, xp);
    }
}

// One lexicographic sweep (i innermost, then j) over the rows jlo..jhi, strip by strip.
void linesweep(const View& phi, const CView& src, int nx, int jlo, int jhi, int nz, double cx,
               double cy, double cz, const double* bm) {
    if (nx < 1) return;
    for (int j0 = jlo; j0 <= jhi;) {
        const int left = jhi - j0 + 1;
        if (left >= 8) {
            sweepstrip<8>(phi, src, nx, j0, 8, nz, cx, cy, cz, bm);
            j0 += 8;
        } else if (left >= 3) {
            const int nl = std::min(4, left);
            sweepstrip<4>(phi, src, nx, j0, nl, nz, cx, cy, cz, bm);
            j0 += nl;
        } else {
            sweepstrip<2>(phi, src, nx, j0, left, nz, cx, cy, cz, bm);
            j0 += left;
        }
    }
}

// ---- level data -------------------------------------------------------------------------------

struct Level {
    int nx, ny, nz;
    double hx, hy, hz;
};

Level level_of(const Storage& st, int level) {
    const mglevel& m = st.mg(level);
    const double f = static_cast<double>(1 << (-level));
    return {m.ni, m.nj, m.nk, st.dx * f, st.dy * f, st.dz * f};
}

// The six face codes as real factors, and which of the four side faces this block fills by its
// rule (all four on one rank; see Decomposition::appliesface).
struct Codes {
    double w, e, s, n, b, t;
    bool rw = true, re = true, rs = true, rn = true;
    bool bw = true, be = true, bs = true, bn = true; // the block lies on that box face
};

Codes codes_of(const Storage& st) {
    Codes c{static_cast<double>(st.ibp[west]),   static_cast<double>(st.ibp[east]),
            static_cast<double>(st.ibp[south]),  static_cast<double>(st.ibp[north]),
            static_cast<double>(st.ibp[bottom]), static_cast<double>(st.ibp[top])};
    if (st.dec.distributed()) {
        c.rw = st.dec.appliesface(west, st.ibp[west]);
        c.re = st.dec.appliesface(east, st.ibp[east]);
        c.rs = st.dec.appliesface(south, st.ibp[south]);
        c.rn = st.dec.appliesface(north, st.ibp[north]);
        c.bw = st.dec.ownsface(west);
        c.be = st.dec.ownsface(east);
        c.bs = st.dec.ownsface(south);
        c.bn = st.dec.ownsface(north);
    }
    return c;
}

// Called by every thread of a team after the face ghosts are written: on several ranks the
// master thread refreshes the halo of phi from the neighbour blocks while the others wait.
void halo(const Storage& st, Field3d& phi, int nx, int ny) {
    if (!st.dec.distributed()) return;
#pragma omp barrier
#pragma omp master
    exchange(st.dec, phi, nx, ny, true);
#pragma omp barrier
}

// ---- ghost passes (orphaned work-sharing loops: call from every thread of a team) ---------------

template <bool All> void faceghostsof(const View& phi, int nx, int ny, int nz, const Codes& t) {
#pragma omp for schedule(static)
    for (int k = 1; k <= nz; ++k) {
        for (int j = 1; j <= ny; ++j) {
            if (All || t.rw) phi(0, j, k) = ghost(t.w, phi(1, j, k), phi(nx, j, k));
            if (All || t.re) phi(nx + 1, j, k) = ghost(t.e, phi(nx, j, k), phi(1, j, k));
        }
    }
#pragma omp for schedule(static)
    for (int k = 1; k <= nz; ++k) {
        for (int i = 1; i <= nx; ++i) {
            if (All || t.rs) phi(i, 0, k) = ghost(t.s, phi(i, 1, k), phi(i, ny, k));
            if (All || t.rn) phi(i, ny + 1, k) = ghost(t.n, phi(i, ny, k), phi(i, 1, k));
        }
    }
#pragma omp for schedule(static)
    for (int j = 1; j <= ny; ++j) {
        for (int i = 1; i <= nx; ++i) {
            phi(i, j, 0) = ghost(t.b, phi(i, j, 1), phi(i, j, nz));
            phi(i, j, nz + 1) = ghost(t.t, phi(i, j, nz), phi(i, j, 1));
        }
    }
}

// One rank's box, or a block that fills all four side faces by their rules, takes the loops
// without the tests.
void faceghosts(const View& phi, int nx, int ny, int nz, const Codes& t) {
    if (t.rw && t.re && t.rs && t.rn) {
        faceghostsof<true>(phi, nx, ny, nz, t);
    } else {
        faceghostsof<false>(phi, nx, ny, nz, t);
    }
}

// Edge lines of the ghost layer, one pass per edge direction. Each edge cell extrapolates from
// the two face ghosts beside it, so the face passes (and on blocks the halo) must be complete.
// The edges are those of the box: a block makes the stretch of an edge that it lies on, and
// across a block face into the halo, where the formula gives the neighbour's value; the corner
// cells of the box are never written.
void edgeghosts(const View& phi, int nx, int ny, int nz, const Codes& t) {
    const int jg[2] = {0, ny + 1}, jn[2] = {1, ny};
    const int kg[2] = {0, nz + 1}, kn[2] = {1, nz};
    const int ig[2] = {0, nx + 1}, in[2] = {1, nx};
    const bool ri[2] = {t.bw, t.be}, rj[2] = {t.bs, t.bn};
    const int ilo = t.bw ? 1 : 0, ihi = t.be ? nx : nx + 1;
    const int jlo = t.bs ? 1 : 0, jhi = t.bn ? ny : ny + 1;
#pragma omp for schedule(static)
    for (int i = ilo; i <= ihi; ++i) {
        for (int b = 0; b < 2; ++b) {
            for (int a = 0; a < 2; ++a) {
                if (!rj[a]) continue;
                phi(i, jg[a], kg[b]) =
                    phi(i, jn[a], kg[b]) + phi(i, jg[a], kn[b]) - phi(i, jn[a], kn[b]);
            }
        }
    }
#pragma omp for schedule(static)
    for (int j = jlo; j <= jhi; ++j) {
        for (int b = 0; b < 2; ++b) {
            for (int a = 0; a < 2; ++a) {
                if (!ri[a]) continue;
                phi(ig[a], j, kg[b]) =
                    phi(in[a], j, kg[b]) + phi(ig[a], j, kn[b]) - phi(in[a], j, kn[b]);
            }
        }
    }
#pragma omp for schedule(static)
    for (int k = 1; k <= nz; ++k) {
        for (int b = 0; b < 2; ++b) {
            for (int a = 0; a < 2; ++a) {
                if (!ri[a] || !rj[b]) continue;
                phi(ig[a], jg[b], k) =
                    phi(in[a], jg[b], k) + phi(ig[a], jn[b], k) - phi(in[a], jn[b], k);
            }
        }
    }
}

// Sum of squares over the interior. Each k-plane is summed by one thread and the planes are
// added in order afterwards, so the norm has the same bits whatever the thread count.
double sumsquares(const CView& a, int nx, int ny, int nz) {
    std::vector<double> plane(static_cast<std::size_t>(nz) + 1, 0.0);
#pragma omp parallel for if (worththreads(nx, ny, nz)) schedule(static)
    for (int k = 1; k <= nz; ++k) {
        double s = 0.0;
        for (int j = 1; j <= ny; ++j) {
            for (int i = 1; i <= nx; ++i)
                s += a(i, j, k) * a(i, j, k);
        }
        plane[static_cast<std::size_t>(k)] = s;
    }
    double sum = 0.0;
    for (int k = 1; k <= nz; ++k)
        sum += plane[static_cast<std::size_t>(k)];
    return sum;
}

// Residual of one interior plane k: res = src - Laplacian(phi), the Laplacian formed exactly as
// operatorp forms it. Returns the plane's sum of squares of res, accumulated in i-then-j order.
inline double residualplane(const View& res, const CView& phi, const CView& src, int nx, int ny,
                            int k, double hx2, double hy2, double hz2) {
    double sum = 0.0;
    for (int j = 1; j <= ny; ++j) {
        for (int i = 1; i <= nx; ++i) {
            const double c = phi(i, j, k);
            const double lphi = secdiff(phi(i - 1, j, k), c, phi(i + 1, j, k), hx2) +
                                secdiff(phi(i, j - 1, k), c, phi(i, j + 1, k), hy2) +
                                secdiff(phi(i, j, k - 1), c, phi(i, j, k + 1), hz2);
            const double r = src(i, j, k) - lphi;
            res(i, j, k) = r;
            sum += r * r;
        }
    }
    return sum;
}

// Coarse src = eight-cell average of the fine residual over the two fine planes of coarse plane
// kc; the coarse problem starts from zero (its ghost layer keeps whatever the last ghost update
// left).
inline void restrictplane(const CView& res, const View& csrc, const View& cphi, int ncx, int ncy,
                          int kc) {
    const int k = 2 * kc - 1;
    for (int jc = 1; jc <= ncy; ++jc) {
        const int j = 2 * jc - 1;
        for (int ic = 1; ic <= ncx; ++ic) {
            const int i = 2 * ic - 1;
            csrc(ic, jc, kc) =
                0.125 * (res(i, j, k) + res(i + 1, j, k) + res(i, j + 1, k) + res(i + 1, j + 1, k) +
                         res(i, j, k + 1) + res(i + 1, j, k + 1) + res(i, j + 1, k + 1) +
                         res(i + 1, j + 1, k + 1));
            cphi(ic, jc, kc) = 0.0;
        }
    }
}

// The cycle's descent from `level`: face ghosts of phi, the residual, and its restriction to the
// next coarser level, two fine planes and the coarse plane they make at a time, so the residual
// is averaged while it is still in cache. lphi is not kept: nothing reads it.
void residualrestriction(Storage& st, int level) {
    const Level g = level_of(st, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const Codes t = codes_of(st);
    const View phi = st.mg(level).phi.view();
    const CView src = st.mg(level).src.cview();
    const View res = st.mg(level).res.view();
    const mglevel& c = st.mg(level - 1);
    const int ncx = c.ni, ncy = c.nj, ncz = c.nk;
    const View csrc = st.mg(level - 1).src.view();
    const View cphi = st.mg(level - 1).phi.view();
#pragma omp parallel if (worththreads(nx, ny, nz))
    {
        faceghosts(phi, nx, ny, nz, t);
        halo(st, st.mg(level).phi, nx, ny);
        // Fine planes left over above 2 ncz (none while nz is a power of two) get their residual
        // alone.
#pragma omp for schedule(static) nowait
        for (int k = 2 * ncz + 1; k <= nz; ++k) {
            residualplane(res, phi, src, nx, ny, k, hx2, hy2, hz2);
        }
#pragma omp for schedule(static)
        for (int kc = 1; kc <= ncz; ++kc) {
            residualplane(res, phi, src, nx, ny, 2 * kc - 1, hx2, hy2, hz2);
            residualplane(res, phi, src, nx, ny, 2 * kc, hx2, hy2, hz2);
            restrictplane(res, csrc, cphi, ncx, ncy, kc);
        }
    }
}

// Coarsest level: point Gauss-Seidel, each sweep after a face-ghost refresh, until the largest
// relative change of a sweep is below the tolerance or ncoarse sweeps are done.
void coarsesolve(Storage& st, int level, int ncoarse) {
    const Level g = level_of(st, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const double diag = 2.0 / hx2 + 2.0 / hy2 + 2.0 / hz2;
    const Codes t = codes_of(st);
    const View phi = st.mg(level).phi.view();
    const CView src = st.mg(level).src.cview();

    for (int s = 1; s <= ncoarse; ++s) {
        double chg = 0.0;
        // k-planes are shared out with no ordering between them: a plane may read its
        // neighbour while another thread updates it, which a relaxation tolerates.
#pragma omp parallel if (worththreads(nx, ny, nz))
        {
            faceghosts(phi, nx, ny, nz, t);
#pragma omp for schedule(static) reduction(nanmax : chg)
            for (int k = 1; k <= nz; ++k) {
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
            }
        }
        if (chg < coarsetolerance) break;
    }
}

// Face ghosts of level 0's phi, its residual and the residual's norm in one pass. Each plane's
// sum of squares is formed by one thread and the planes are added in order, as resnormp does.
void residualnorm(Storage& st, double& norm) {
    const Level g = level_of(st, 0);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const Codes t = codes_of(st);
    const View phi = st.mg(0).phi.view();
    const CView src = st.mg(0).src.cview();
    const View res = st.mg(0).res.view();
    thread_local std::vector<double> plane;
    if (plane.size() < static_cast<std::size_t>(nz) + 1) plane.resize(nz + 1);
    double* const sums = plane.data();
#pragma omp parallel if (worththreads(nx, ny, nz))
    {
        faceghosts(phi, nx, ny, nz, t);
        halo(st, st.mg(0).phi, nx, ny);
#pragma omp for schedule(static)
        for (int k = 1; k <= nz; ++k) {
            sums[k] = residualplane(res, phi, src, nx, ny, k, hx2, hy2, hz2);
        }
    }
    double sum = 0.0;
    for (int k = 1; k <= nz; ++k)
        sum += sums[k];
    if (st.dec.distributed()) sum = allsum(sum); // the blocks' sums in rank order
    norm = std::sqrt(sum);
}

// The blocks' coarsest level is gathered onto rank 0, which runs the cycle of the whole box from
// there down (coarsest-level iteration included), and every block takes its share of the
// correction back with a ring of halo for the prolongation.
void gathersolve(Storage& st, int level, int igamma, int ipres, int iposts, int ncoarse) {
    const Decomposition c = coarsened(st.dec, level);
    mglevel& m = st.mg(level);
    Storage* const w = st.whole.get();
    gather(m.src, Range{1, m.ni}, Range{1, m.nj}, c.i0, c.j0, w ? &w->mg(level).src : nullptr);
    gather(m.phi, Range{1, m.ni}, Range{1, m.nj}, c.i0, c.j0, w ? &w->mg(level).phi : nullptr);
    if (w != nullptr) {
        w->dx = st.dx;
        w->dy = st.dy;
        w->dz = st.dz;
        w->ibp = st.ibp;
        multigridp(*w, level, igamma, ipres, iposts, ncoarse);
    }
    scatter(m.phi, Range{0, m.ni + 1}, Range{0, m.nj + 1}, c.i0, c.j0,
            w ? &w->mg(level).phi : nullptr);
}

} // namespace

// ---- public routines ---------------------------------------------------------------------------

void sourcep(Storage& st) {
    const int nx = st.imax, ny = st.jmax, nz = st.kmax;
    const double dx = st.dx, dy = st.dy, dz = st.dz;
    const double factor = st.dens / st.dt;
    const CView u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    const View src = st.mg(0).src.view();
    // Cells inside the bed get a source like any other: the Poisson problem covers the box.
#pragma omp parallel for if (worththreads(nx, ny, nz)) schedule(static)
    for (int k = 1; k <= nz; ++k) {
        for (int j = 1; j <= ny; ++j) {
            for (int i = 1; i <= nx; ++i) {
                src(i, j, k) =
                    ((u(i, j, k) - u(i - 1, j, k)) / dx + (v(i, j, k) - v(i, j - 1, k)) / dy +
                     (w(i, j, k) - w(i, j, k - 1)) / dz) *
                    factor;
            }
        }
    }
}

void poisson(Storage& st, int& npois) {
    const int ipres = st.ipres, iposts = st.iposts, igamma = st.igamma;
    const int kpoismax = st.kpoismax;
    // eps is the setting's bit pattern as a subnormal (m*2^-1074): kpoismax sets the work per step.
    const double eps = std::bit_cast<double>(std::uint64_t{static_cast<std::uint32_t>(st.eps)});

    sourcep(st);
    double divnorm = 0.0, resnorm = 1.0;
    divnormp(st, 0, divnorm);
    int n = 0;
    for (;;) {
        ++n;
        npois = n;
        multigridp(st, 0, igamma, ipres, iposts, coarsesweeps);
        residualnorm(st, resnorm); // also leaves phi's face ghosts fresh for the correction
        if (n > kpoismax) break;
        if (resnorm / divnorm > eps) continue; // a NaN ratio fails this test
        if (n < 2) continue;
        break;
    }
}

void divnormp(const Storage& st, int level, double& norm) {
    const mglevel& m = st.mg(level);
    double sum = sumsquares(m.src.cview(), m.ni, m.nj, m.nk);
    if (st.dec.distributed()) sum = allsum(sum);
    norm = std::sqrt(sum);
}

void resnormp(const Storage& st, int level, double& norm) {
    const mglevel& m = st.mg(level);
    double sum = sumsquares(m.res.cview(), m.ni, m.nj, m.nk);
    if (st.dec.distributed()) sum = allsum(sum);
    norm = std::sqrt(sum);
}

void multigridp(Storage& st, int level, int igamma, int ipres, int iposts, int ncoarse) {
    if (level == st.lmin) {
        if (st.dec.distributed()) {
            gathersolve(st, level, igamma, ipres, iposts, ncoarse);
        } else {
            coarsesolve(st, level, ncoarse); // no smoothing before or after on the coarsest level
        }
        return;
    }
    smoothingp(st, level, ipres);   // in: phi, src;  out: smoothed phi
    residualrestriction(st, level); // out: res; coarse src, coarse phi = 0
    for (int g = 0; g < igamma; ++g) {
        multigridp(st, level - 1, igamma, ipres, iposts, ncoarse); // out: coarse correction
    }
    prolongationp(st, level);      // phi += interpolated correction; fresh ghosts
    smoothingp(st, level, iposts); // out: smoothed phi
}

void boundarypres(Storage& st, int level) {
    const Level g = level_of(st, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const Codes t = codes_of(st);
    const View phi = st.mg(level).phi.view();
#pragma omp parallel if (worththreads(nx, ny, nz))
    {
        faceghosts(phi, nx, ny, nz, t);
        halo(st, st.mg(level).phi, nx, ny);
        edgeghosts(phi, nx, ny, nz, t);
    }
}

void operatorp(Storage& st, int level) {
    const Level g = level_of(st, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double hx2 = g.hx * g.hx, hy2 = g.hy * g.hy, hz2 = g.hz * g.hz;
    const Codes t = codes_of(st);
    Field3d& lphifield = st.mg(level).lphi;
    if (!lphifield.allocated()) {
        lphifield.allocate(Range{0, nx + 1}, Range{0, ny + 1}, Range{0, nz + 1});
    }
    const View phi = st.mg(level).phi.view();
    const View lphi = lphifield.view();
#pragma omp parallel if (worththreads(nx, ny, nz))
    {
        faceghosts(phi, nx, ny, nz, t);
        halo(st, st.mg(level).phi, nx, ny);
#pragma omp for schedule(static)
        for (int k = 1; k <= nz; ++k) {
            for (int j = 1; j <= ny; ++j) {
                for (int i = 1; i <= nx; ++i) {
                    const double c = phi(i, j, k);
                    lphi(i, j, k) = secdiff(phi(i - 1, j, k), c, phi(i + 1, j, k), hx2) +
                                    secdiff(phi(i, j - 1, k), c, phi(i, j + 1, k), hy2) +
                                    secdiff(phi(i, j, k - 1), c, phi(i, j, k + 1), hz2);
                }
            }
        }
    }
}

void residualp(Storage& st, int level) {
    const mglevel& m = st.mg(level);
    const int nx = m.ni, ny = m.nj, nz = m.nk;
    const CView src = m.src.cview(), lphi = m.lphi.cview();
    const View res = st.mg(level).res.view();
    // The i range is shared out in static blocks; within a block the k-j-i order keeps unit stride.
#pragma omp parallel if (worththreads(nx, ny, nz))
    {
        const Block b = staticblock(1, nx);
        for (int k = 1; k <= nz; ++k) {
            for (int j = 1; j <= ny; ++j) {
                for (int i = b.lo; i <= b.hi; ++i)
                    res(i, j, k) = src(i, j, k) - lphi(i, j, k);
            }
        }
    }
}

void smoothingp(Storage& st, int level, int nsweeps) {
    if (nsweeps <= 0) return;
    const Level g = level_of(st, level);
    const int nx = g.nx, ny = g.ny, nz = g.nz;
    const double cx = 1.0 / (g.hx * g.hx), cy = 1.0 / (g.hy * g.hy), cz = 1.0 / (g.hz * g.hz);
    const double d0 = -2.0 * (cx + cy + cz);
    const Codes t = codes_of(st);
    const View phi = st.mg(level).phi.view();
    const CView src = st.mg(level).src.cview();
    // The eliminated diagonal of the column system is the same for every column of the level.
    thread_local std::vector<double> diagonal;
    if (diagonal.size() < static_cast<std::size_t>(nz) + 1) diagonal.resize(nz + 1);
    eliminateddiagonal(d0, cz, t.b, t.t, nz, diagonal.data());
    const double* const bm = diagonal.data();
#pragma omp parallel if (worththreads(nx, ny, nz))
    {
        for (int s = 0; s < nsweeps; ++s) {
            faceghosts(phi, nx, ny, nz, t);
            halo(st, st.mg(level).phi, nx, ny);
            // Rows j are shared out in static blocks. Rows of neighbouring blocks on different
            // threads read each other while they are being updated, without ordering:
            // deliberate, the smoother tolerates it. Within a block the sweep is lexicographic.
            const Block b = staticblock(1, ny);
            linesweep(phi, src, nx, b.lo, b.hi, nz, cx, cy, cz, bm);
#pragma omp barrier
        }
    }
}

void prolongationp(Storage& st, int level) {
    // The interpolation reads the coarse neighbours across the block faces as they are now.
    if (st.dec.distributed()) {
        exchange(st.dec, st.mg(level - 1).phi, st.mg(level - 1).ni, st.mg(level - 1).nj, true);
    }
    const mglevel& cm = st.mg(level - 1);
    const int ncx = cm.ni, ncy = cm.nj, ncz = cm.nk;
    const CView cphi = cm.phi.cview();
    const Level g = level_of(st, level);
    const Codes t = codes_of(st);
    const View phi = st.mg(level).phi.view();
    const View res = st.mg(level).res.view();
    // One region: the interpolation, then the fine level's ghost refresh (boundarypres).
#pragma omp parallel if (worththreads(g.nx, g.ny, g.nz))
    {
#pragma omp for schedule(static)
        for (int kc = 1; kc <= ncz; ++kc) {
            for (int dk = -1; dk <= 1; dk += 2) { // lower child (2K-1) leans on K-1, upper on K+1
                const int k = 2 * kc + (dk - 1) / 2;
                for (int jc = 1; jc <= ncy; ++jc) {
                    for (int dj = -1; dj <= 1; dj += 2) {
                        const int j = 2 * jc + (dj - 1) / 2;
                        for (int ic = 1; ic <= ncx; ++ic) {
                            const double p = cphi(ic, jc, kc);
                            const double pj = cphi(ic, jc + dj, kc), pk = cphi(ic, jc, kc + dk);
                            const double lo = fourpoint(p, cphi(ic - 1, jc, kc), pj, pk);
                            const double hi = fourpoint(p, cphi(ic + 1, jc, kc), pj, pk);
                            phi(2 * ic - 1, j, k) = phi(2 * ic - 1, j, k) + lo;
                            res(2 * ic - 1, j, k) = lo;
                            phi(2 * ic, j, k) = phi(2 * ic, j, k) + hi;
                            res(2 * ic, j, k) = hi;
                        }
                    }
                }
            }
        }
        faceghosts(phi, g.nx, g.ny, g.nz, t);
        halo(st, st.mg(level).phi, g.nx, g.ny);
        edgeghosts(phi, g.nx, g.ny, g.nz, t);
    }
}

} // namespace riffle::pressure
