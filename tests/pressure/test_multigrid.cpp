// Multigrid pressure solve: V-cycle contraction and second-order accuracy on a manufactured
// solution, the cycle count of the driver, hand values of the level operators, and what changes
// (and what must not) with the thread count.
#include <gtest/gtest.h>

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <tuple>
#include <vector>
#include <numbers>

#include "pressure/multigridp_m.hpp"
#include "support/box.hpp"

namespace riffle::pressure {
namespace {

using Codes = std::array<int, 7>;
constexpr Codes channel{0, 0, 0, 0, 0, -1, 1};  // periodic x, y; zero at the bed; free top
constexpr double pi = std::numbers::pi;

// Zero flow, phi zero on every level, ghosts and corners included.
Storage box(int nx, int ny, int nz, double lx, double ly, double lz, Codes ibp = channel) {
    Storage st = testsupport::box(nx, ny, nz, lx / nx, ly / ny, lz / nz);
    st.ibp = ibp;
    return st;
}

// f(i,j,k) over the cells of a whose ghost layer is `ghost` deep (1: all of a, 0: the interior).
template <class F>
void each(const Field3d& a, int ghost, F f) {
    for (int k = a.krange().lo + 1 - ghost; k <= a.krange().hi - 1 + ghost; ++k)
        for (int j = a.jrange().lo + 1 - ghost; j <= a.jrange().hi - 1 + ghost; ++j)
            for (int i = a.irange().lo + 1 - ghost; i <= a.irange().hi - 1 + ghost; ++i) f(i, j, k);
}
template <class F>
void fill(Field3d& a, F f) {
    each(a, 1, [&](int i, int j, int k) { a(i, j, k) = f(i, j, k); });
}
double hash(int i, int j, int k) { return static_cast<double>((7 * i + 3 * j + 5 * k) % 11 - 5); }

// phi = sin(2 pi x/Lx) cos(2 pi y/Ly) sin(pi z/(2H)): periodic in x and y, zero at the bed,
// zero slope at the top. src = its analytic Laplacian at the cell centres.
double exact(const Storage& st, int i, int j, int k) {
    const double x = (i - 0.5) * st.dx, y = (j - 0.5) * st.dy, z = (k - 0.5) * st.dz;
    return std::sin(2 * pi * x / (st.imax * st.dx)) * std::cos(2 * pi * y / (st.jmax * st.dy)) *
           std::sin(pi * z / (2 * st.kmax * st.dz));
}
Storage manufactured(int n) {
    Storage st = box(2 * n, n, n, 2.0, 1.0, 1.0);
    const double kk = std::pow(2 * pi / 2.0, 2) + std::pow(2 * pi, 2) + std::pow(pi / 2, 2);
    fill(st.mg(0).src, [&](int i, int j, int k) { return -kk * exact(st, i, j, k); });
    return st;
}
double residualnorm(Storage& st) {
    double r = 0.0;
    operatorp(st, 0);
    residualp(st, 0);
    resnormp(st, 0, r);
    return r;
}
// Mean residual factor per cycle over cycles 2..ncycles (the first cycle is a transient).
double cyclefactor(Storage& st, int igamma, int ncycles) {
    multigridp(st, 0, igamma, 2, 2, 100);
    const double r1 = residualnorm(st);
    for (int n = 2; n <= ncycles; ++n) multigridp(st, 0, igamma, 2, 2, 100);
    return std::pow(residualnorm(st) / r1, 1.0 / (ncycles - 1));
}
// Largest difference over the array, or over its interior only (ghost = 0) for the arrays whose
// ghost layer is never written; a NaN counts as infinite.
double maxdiff(const Field3d& a, const Field3d& b, int ghost = 1) {
    double d = 0.0;
    each(a, ghost, [&](int i, int j, int k) {
        const double x = std::abs(a(i, j, k) - b(i, j, k));
        d = std::isnan(x) ? INFINITY : std::max(d, x);
    });
    return d;
}

TEST(MultigridVerification, VCycleFactorSteadyAcrossGridSizes) {
    Storage s16 = manufactured(16), s32 = manufactured(32);
    const double f16 = cyclefactor(s16, 1, 4), f32 = cyclefactor(s32, 1, 4);
    std::printf("V(2,2) residual factor per cycle: 32x16x16 %.4f  64x32x32 %.4f\n", f16, f32);
    EXPECT_LT(f16, 0.5);
    EXPECT_LT(f32, 0.5);
    EXPECT_NEAR(f16, f32, 0.1);  // grid-independent contraction
}

TEST(MultigridVerification, SecondOrderAgainstAnalyticSolution) {
    double err[2];
    for (int m = 0; m < 2; ++m) {
        Storage st = manufactured(8 << m);
        for (int n = 0; n < 12; ++n) multigridp(st, 0, 1, 2, 2, 100);
        err[m] = 0.0;
        each(st.mg(0).phi, 0, [&](int i, int j, int k) {
            err[m] = std::max(err[m], std::abs(st.mg(0).phi(i, j, k) - exact(st, i, j, k)));
        });
    }
    const double rate = std::log2(err[0] / err[1]);
    std::printf("max error 16x8x8 %.3e  32x16x16 %.3e  order %.3f\n", err[0], err[1], rate);
    EXPECT_GT(rate, 1.8);
}

TEST(MultigridVerification, CoarseCorrectionMatters) {
    Storage v = manufactured(16), w = manufactured(16), none = manufactured(16);
    const double fv = cyclefactor(v, 1, 4), fw = cyclefactor(w, 2, 4), f0 = cyclefactor(none, 0, 4);
    std::printf("residual factor: V %.4f  W %.4f  no coarse correction %.4f\n", fv, fw, f0);
    EXPECT_LE(fw, fv + 0.02);
    EXPECT_GT(f0, fv + 0.2);  // smoothing alone leaves the smooth error
    EXPECT_LT(f0, 1.0);
}

// The driver on a 16x8x8 box with a divergent velocity, dens = dt = 1.
Storage divergent(bool flowing) {
    Storage st = box(16, 8, 8, 2.0, 1.0, 1.0);
    st.dens = 1.0, st.dt = 1.0, st.igamma = 1, st.ipres = 2, st.iposts = 2;
    if (flowing) fill(st.u, [](int i, int j, int k) { return std::sin(0.4 * i + 0.3 * j) * k; });
    return st;
}

TEST(Multigrid, DriverCycleCount) {
    int npois = -1;
    double div = 0.0, res = 0.0;
    Storage st = divergent(true);
    st.kpoismax = 5, st.eps = 1000000;  // a subnormal tolerance, never met (1e6 would stop at 2)
    poisson(st, npois);
    EXPECT_EQ(npois, 6);
    divnormp(st, 0, div), resnormp(st, 0, res);
    std::printf("after 6 cycles resnorm/divnorm = %.3e\n", res / div);
    EXPECT_LT(res / div, 1e-4);

    st.kpoismax = 0;
    poisson(st, npois);
    EXPECT_EQ(npois, 1);
    Storage still = divergent(false);  // zero source: 0/0 ends the solve after two cycles
    still.kpoismax = 5;
    poisson(still, npois);
    EXPECT_EQ(npois, 2);
}

TEST(Multigrid, CoarsestIterationSolvesOneColumn) {
    // lmin = 0: the cycle is the point iteration alone; the wide cells make the column 1-D.
    Storage st = box(1, 1, 2, 1e3, 1e3, 1.0);
    fill(st.mg(0).src, [](int, int, int k) { return 1.0 + k; });
    multigridp(st, 0, 1, 2, 2, 100);
    double src = 0.0;
    divnormp(st, 0, src);
    const double r = residualnorm(st);
    std::printf("single column: resnorm/srcnorm = %.3e\n", r / src);
    EXPECT_LT(r / src, 1e-6);
}

TEST(Multigrid, LineSmootherEndRows) {
    // One cell, periodic sides: both end adjustments fall on the single row, b(1) = d0 = -42.
    Storage one = box(1, 1, 1, 1.0, 0.5, 0.25);  // cx = 1, cy = 4, cz = 16
    one.mg(0).phi(1, 1, 1) = 1.0, one.mg(0).src(1, 1, 1) = 2.0;
    smoothingp(one, 0, 1);
    EXPECT_DOUBLE_EQ(one.mg(0).phi(1, 1, 1), (2.0 - 2.0 * 1.0 - 2.0 * 4.0) / -42.0);

    // Two cells: the rows (d0 - cz) x1 + cz x2 = s1 and cz x1 + (d0 + cz) x2 = s2 hold.
    Storage two = box(1, 1, 2, 1.0, 0.5, 1.0);  // cx = 1, cy = 4, cz = 4, d0 = -18
    two.mg(0).src(1, 1, 1) = 3.0, two.mg(0).src(1, 1, 2) = -5.0;
    smoothingp(two, 0, 1);
    const double x1 = two.mg(0).phi(1, 1, 1), x2 = two.mg(0).phi(1, 1, 2);
    EXPECT_NEAR(-22.0 * x1 + 4.0 * x2, 3.0, 1e-14);
    EXPECT_NEAR(4.0 * x1 - 14.0 * x2, -5.0, 1e-14);
}

TEST(Multigrid, LaplacianHandValues) {
    Storage st = box(8, 8, 8, 1.0, 2.0, 4.0, Codes{0, 1, 1, 1, 1, 1, 1});
    fill(st.mg(0).phi, [](int i, int, int) { return i <= 0 || i > 8 ? 99.0 : 7.5; });
    operatorp(st, 0);  // Neumann everywhere: the stale ghosts must be replaced first
    each(st.mg(0).lphi, 0, [&](int i, int j, int k) { ASSERT_EQ(st.mg(0).lphi(i, j, k), 0.0); });

    // Level -1 (4^3 cells of 0.25 x 0.5 x 1): phi = i^2 + 2 j^2 + 3 k^2 has an exact Laplacian.
    fill(st.mg(-1).phi, [](int i, int j, int k) { return i * i + 2.0 * j * j + 3.0 * k * k; });
    operatorp(st, -1);
    EXPECT_DOUBLE_EQ(st.mg(-1).lphi(2, 3, 2), 2 / 0.0625 + 4 / 0.25 + 6 / 1.0);
}

TEST(Multigrid, ProlongationFourPoint) {
    Storage st = box(8, 4, 4, 1.0, 1.0, 1.0);  // level -1 is 4x2x2
    fill(st.mg(-1).phi, [](int, int, int) { return 0.375; });
    fill(st.mg(0).phi, [](int i, int, int) { return i + 0.5; });
    prolongationp(st, 0);
    each(st.mg(0).phi, 0, [&](int i, int j, int k) {
        ASSERT_EQ(st.mg(0).phi(i, j, k), i + 0.875);
        ASSERT_EQ(st.mg(0).res(i, j, k), 0.375);
    });

    // Phi = I J: the child on the (-,-) side gets 0.25 (IJ + (I-1)J + I(J-1) + IJ), which
    // differs from trilinear interpolation by 1/16.
    fill(st.mg(-1).phi, [](int i, int j, int) { return 1.0 * i * j; });
    fill(st.mg(0).phi, [](int, int, int) { return 0.0; });
    prolongationp(st, 0);
    EXPECT_EQ(st.mg(0).res(3, 3, 1), 4.0 - (2 + 2) / 4.0);  // I = J = 2, lower children
    EXPECT_EQ(st.mg(0).phi(4, 3, 2), 4.0 + (2 - 2) / 4.0);  // upper in i, lower in j
}

TEST(Multigrid, GhostFacesEdgesAndCorners) {
    Storage st = box(4, 4, 4, 1.0, 1.0, 1.0, Codes{0, 0, 0, 1, 1, -1, 1});
    Field3d& phi = st.mg(0).phi;
    each(phi, 0, [&](int i, int j, int k) { phi(i, j, k) = hash(i, j, k); });
    boundarypres(st, 0);
    each(phi, 0, [&](int, int j, int k) { ASSERT_EQ(phi(0, j, k), phi(4, j, k)); });  // periodic
    for (int k = 1; k <= 4; ++k) EXPECT_EQ(phi(0, 0, k), phi(4, 1, k));  // periodic x Neumann
    for (int i = 1; i <= 4; ++i) EXPECT_EQ(phi(i, 5, 0), -phi(i, 4, 1));  // Neumann x zero bed
    EXPECT_EQ(phi(0, 0, 0), 0.0);  // corners are never written
    EXPECT_EQ(phi(5, 5, 5), 0.0);
}

template <class F>
void onthreads(int n, F f) {
    omp_set_num_threads(n);
    f();
    omp_set_num_threads(2);
}

TEST(Multigrid, ThreadCountChangesOnlyTheSmoothersChaos) {
    Storage a = manufactured(16), b = manufactured(16);
    for (Storage* st : {&a, &b})
        fill(st->mg(0).phi, [](int i, int j, int k) { return hash(i, j, k); });
    double na[2], nb[2];
    auto apply = [](Storage& st, double* norms) {
        boundarypres(st, 0), operatorp(st, 0), residualp(st, 0);
        resnormp(st, 0, norms[0]), divnormp(st, 0, norms[1]);
    };
    onthreads(1, [&] { apply(a, na); });
    onthreads(2, [&] { apply(b, nb); });
    EXPECT_EQ(maxdiff(a.mg(0).phi, b.mg(0).phi), 0.0);
    EXPECT_EQ(maxdiff(a.mg(0).lphi, b.mg(0).lphi, 0), 0.0);
    EXPECT_EQ(maxdiff(a.mg(0).res, b.mg(0).res, 0), 0.0);
    EXPECT_EQ(na[0], nb[0]);
    EXPECT_EQ(na[1], nb[1]);

    // One smoothing sweep: the threads may see old or new neighbour lines, so the results
    // differ, but by no more than the update the sweep makes.
    Field3d start(a.mg(0).phi.irange(), a.mg(0).phi.jrange(), a.mg(0).phi.krange());
    std::copy_n(a.mg(0).phi.data(), start.size(), start.data());
    onthreads(1, [&] { smoothingp(a, 0, 1); });
    onthreads(2, [&] { smoothingp(b, 0, 1); });
    const double update = maxdiff(a.mg(0).phi, start), sweep = maxdiff(a.mg(0).phi, b.mg(0).phi);
    std::printf("one sweep, 1 vs 2 threads: max difference %.3e (update %.3e)\n", sweep, update);
    EXPECT_LE(sweep, update);

    // The converged answer does not depend on that chaos.
    onthreads(1, [&] { for (int n = 0; n < 16; ++n) multigridp(a, 0, 1, 2, 2, 100); });
    onthreads(2, [&] { for (int n = 0; n < 16; ++n) multigridp(b, 0, 1, 2, 2, 100); });
    const double solved = maxdiff(a.mg(0).phi, b.mg(0).phi);
    std::printf("after 16 V-cycles, 1 vs 2 threads: max difference %.3e\n", solved);
    EXPECT_LT(solved, 1e-12);
}

}  // namespace
}  // namespace riffle::pressure

namespace riffle::pressure {
namespace {

// One vertical-line Gauss-Seidel sweep written the plain way: j then i, a Thomas solve per column.
void plainsweep(Storage& st, int level) {
    const mglevel& m = st.mg(level);
    const double f = 1 << -level;
    const double cx = 1 / (st.dx * f * st.dx * f), cy = 1 / (st.dy * f * st.dy * f);
    const double cz = 1 / (st.dz * f * st.dz * f), d0 = -2.0 * (cx + cy + cz);
    Field3d& phi = st.mg(level).phi;
    std::vector<double> b(m.nk + 2), r(m.nk + 2), x(m.nk + 2);
    for (int j = 1; j <= m.nj; ++j)
        for (int i = 1; i <= m.ni; ++i) {
            for (int k = 1; k <= m.nk; ++k) {
                b[k] = d0;
                r[k] = m.src(i, j, k) - (phi(i - 1, j, k) + phi(i + 1, j, k)) * cx -
                       (phi(i, j - 1, k) + phi(i, j + 1, k)) * cy;
            }
            b[1] += cz * st.ibp[bottom];
            b[m.nk] += cz * st.ibp[top];
            for (int k = 1; k < m.nk; ++k) {
                b[k + 1] -= cz * cz / b[k];
                r[k + 1] -= cz * r[k] / b[k];
            }
            x[m.nk] = r[m.nk] / b[m.nk];
            for (int k = m.nk - 1; k >= 1; --k) x[k] = (r[k] - cz * x[k + 1]) / b[k];
            for (int k = 1; k <= m.nk; ++k) phi(i, j, k) = x[k];
        }
}

// The smoother sweeps several rows at once along a wavefront; on one thread every column must
// still see exactly the neighbours of the row-by-row sweep: same bits, on grids whose rows do not
// fill whole strips and on every level.
TEST(Multigrid, WavefrontSweepEqualsRowByRowSweep) {
    for (auto [nx, ny, nz] : {std::tuple{26, 21, 8}, std::tuple{40, 6, 4}, std::tuple{12, 17, 2}}) {
        Storage a = box(nx, ny, nz, 1.3, 0.7, 0.4), b = box(nx, ny, nz, 1.3, 0.7, 0.4);
        for (int l = 0; l >= a.lmin; --l)
            for (Storage* st : {&a, &b}) {
                fill(st->mg(l).phi, [](int i, int j, int k) { return hash(i, j, k); });
                fill(st->mg(l).src, [](int i, int j, int k) { return hash(k, i, j); });
            }
        for (int l = 0; l >= a.lmin; --l) {
            onthreads(1, [&] { smoothingp(a, l, 2); });
            for (int s = 0; s < 2; ++s) {
                onthreads(1, [&] { operatorp(b, l); });  // the face ghosts, as each sweep does
                plainsweep(b, l);
            }
            const std::size_t n = a.mg(l).phi.size() * sizeof(double);
            EXPECT_EQ(std::memcmp(a.mg(l).phi.data(), b.mg(l).phi.data(), n), 0)
                << nx << "x" << ny << "x" << nz << " level " << l;
        }
    }
}

}  // namespace
}  // namespace riffle::pressure
