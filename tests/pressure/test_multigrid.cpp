// Multigrid pressure solve: contraction and second-order accuracy on a manufactured solution over
// cells of three different sizes, the cycle count of the driver, hand values of the level
// operators and smoothers, and the row-by-row equivalence of the wavefront sweep.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <tuple>
#include <vector>

#include "pressure/multigridp_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

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

// a(i,j,k) = f(i,j,k) over a whole level array, ghost layer included.
template <class F>
void fill(Field3d& a, F f) {
    for (int k = a.krange().lo; k <= a.krange().hi; ++k)
        for (int j = a.jrange().lo; j <= a.jrange().hi; ++j)
            for (int i = a.irange().lo; i <= a.irange().hi; ++i) a(i, j, k) = f(i, j, k);
}
double hash(int i, int j, int k) { return static_cast<double>((7 * i + 3 * j + 5 * k) % 11 - 5); }

// phi = sin(2 pi x/Lx) cos(2 pi y/Ly) sin(pi z/(2H)) over 2 x 0.8 x 0.6: periodic in x and y,
// zero at the bed, zero slope at the top; src = its analytic Laplacian at the cell centres.
const double lx = 2.0, ly = 0.8, lz = 0.6;
double exact(double x, double y, double z) {
    return std::sin(2 * pi * x / lx) * std::cos(2 * pi * y / ly) * std::sin(pi * z / (2 * lz));
}
Storage manufactured(int n) {
    Storage st = box(2 * n, n, n, lx, ly, lz);
    const double kk =
        std::pow(2 * pi / lx, 2) + std::pow(2 * pi / ly, 2) + std::pow(pi / (2 * lz), 2);
    testsupport::setcentres(st, st.mg(0).src,
                            [&](double x, double y, double z) { return -kk * exact(x, y, z); });
    return st;
}
double residualnorm(Storage& st) {
    double r = 0.0;
    operatorp(st, 0);
    residualp(st, 0);
    resnormp(st, 0, r);
    return r;
}
// Mean residual factor per cycle over cycles 2..4 (the first cycle is a transient).
double cyclefactor(int n, int igamma) {
    Storage st = manufactured(n);
    multigridp(st, 0, igamma, 2, 2, 100);
    const double r1 = residualnorm(st);
    for (int c = 2; c <= 4; ++c) multigridp(st, 0, igamma, 2, 2, 100);
    return std::pow(residualnorm(st) / r1, 1.0 / 3);
}

TEST(MultigridVerification, ContractionAndSecondOrderOnAManufacturedSolution) {
    const double v16 = cyclefactor(16, 1), v32 = cyclefactor(32, 1);
    const double w16 = cyclefactor(16, 2), none = cyclefactor(16, 0);
    EXPECT_LT(v16, 0.5);
    EXPECT_NEAR(v16, v32, 0.1);  // grid-independent contraction
    EXPECT_LE(w16, v16 + 0.02);
    EXPECT_GT(none, v16 + 0.2);  // smoothing alone leaves the smooth error
    EXPECT_LT(none, 1.0);

    double err[2] = {0.0, 0.0};
    for (int m = 0; m < 2; ++m) {
        Storage st = manufactured(8 << m);
        for (int c = 0; c < 12; ++c) multigridp(st, 0, 1, 2, 2, 100);
        testsupport::interior(st, [&](int i, int j, int k) {
            const double e = exact((i - 0.5) * st.dx, (j - 0.5) * st.dy, (k - 0.5) * st.dz);
            err[m] = std::max(err[m], std::abs(st.mg(0).phi(i, j, k) - e));
        });
    }
    std::printf("residual factor per cycle: V %.4f (twice finer %.4f), W %.4f, smoothing alone "
                "%.4f; max error %.3e, twice finer %.3e\n", v16, v32, w16, none, err[0], err[1]);
    EXPECT_GT(std::log2(err[0] / err[1]), 1.8);
}

TEST(Multigrid, DriverCycleCount) {
    int npois = -1;
    Storage st = box(16, 8, 8, 2.0, 1.0, 1.0);
    st.dens = 1.0, st.dt = 1.0, st.igamma = 1, st.ipres = 2, st.iposts = 2;
    fill(st.u, [](int i, int j, int k) { return std::sin(0.4 * i + 0.3 * j) * k; });
    st.kpoismax = 5, st.eps = 1000000;  // a subnormal tolerance, never met (1e6 would stop at 2)
    poisson(st, npois);
    EXPECT_EQ(npois, 6);
    st.kpoismax = 0;
    poisson(st, npois);
    EXPECT_EQ(npois, 1);
    st.u.fill(0.0);  // zero source and phi: 0/0 ends the solve after two cycles
    st.mg(0).phi.fill(0.0);
    st.kpoismax = 5;
    poisson(st, npois);
    EXPECT_EQ(npois, 2);
}

TEST(Multigrid, SmoothersSolveTheirSystems) {
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

    // lmin = 0: the cycle is the point iteration alone; the wide cells make the column 1-D.
    Storage col = box(1, 1, 2, 1e3, 1e3, 1.0);
    fill(col.mg(0).src, [](int, int, int k) { return 1.0 + k; });
    multigridp(col, 0, 1, 2, 2, 100);
    double src = 0.0;
    divnormp(col, 0, src);
    EXPECT_LT(residualnorm(col) / src, 1e-6);
}

TEST(Multigrid, LevelOperatorsHandValues) {
    Storage st = box(8, 8, 8, 1.0, 2.0, 4.0, Codes{0, 1, 1, 1, 1, 1, 1});
    fill(st.mg(0).phi, [](int i, int, int) { return i <= 0 || i > 8 ? 99.0 : 7.5; });
    operatorp(st, 0);  // Neumann everywhere: the stale ghosts must be replaced first
    testsupport::interior(st, [&](int i, int j, int k) { ASSERT_EQ(st.mg(0).lphi(i, j, k), 0.0); });
    // Level -1 (4^3 cells of 0.25 x 0.5 x 1): phi = i^2 + 2 j^2 + 3 k^2 has an exact Laplacian.
    fill(st.mg(-1).phi, [](int i, int j, int k) { return i * i + 2.0 * j * j + 3.0 * k * k; });
    operatorp(st, -1);
    EXPECT_DOUBLE_EQ(st.mg(-1).lphi(2, 3, 2), 2 / 0.0625 + 4 / 0.25 + 6 / 1.0);

    // Prolongation adds the four-point interpolation and keeps it in res: a constant is
    // reproduced; for Phi = I J the child on the (-,-) side gets 0.25 (IJ + (I-1)J + I(J-1) + IJ),
    // 1/16 off trilinear interpolation.
    fill(st.mg(-1).phi, [](int, int, int) { return 0.375; });
    fill(st.mg(0).phi, [](int i, int, int) { return i + 0.5; });
    prolongationp(st, 0);
    testsupport::interior(st, [&](int i, int j, int k) {
        ASSERT_EQ(st.mg(0).phi(i, j, k), i + 0.875);
        ASSERT_EQ(st.mg(0).res(i, j, k), 0.375);
    });
    fill(st.mg(-1).phi, [](int i, int j, int) { return 1.0 * i * j; });
    fill(st.mg(0).phi, [](int, int, int) { return 0.0; });
    prolongationp(st, 0);
    EXPECT_EQ(st.mg(0).res(3, 3, 1), 4.0 - (2 + 2) / 4.0);  // I = J = 2, lower children
    EXPECT_EQ(st.mg(0).phi(4, 3, 2), 4.0 + (2 - 2) / 4.0);  // upper in i, lower in j
}

TEST(Multigrid, GhostFacesEdgesAndCorners) {
    Storage st = box(4, 4, 4, 1.0, 1.0, 1.0, Codes{0, 0, 0, 1, 1, -1, 1});
    Field3d& phi = st.mg(0).phi;
    testsupport::interior(st, [&](int i, int j, int k) { phi(i, j, k) = hash(i, j, k); });
    boundarypres(st, 0);
    for (int k = 1; k <= 4; ++k) {
        for (int j = 1; j <= 4; ++j) EXPECT_EQ(phi(0, j, k), phi(4, j, k));  // periodic
        EXPECT_EQ(phi(0, 0, k), phi(4, 1, k));   // periodic x Neumann
        EXPECT_EQ(phi(k, 5, 0), -phi(k, 4, 1));  // Neumann x zero bed
    }
    EXPECT_EQ(phi(0, 0, 0), 0.0);  // corners are never written
    EXPECT_EQ(phi(5, 5, 5), 0.0);
}

// One vertical-line Gauss-Seidel sweep written the plain way: j then i, a Thomas solve per column.
void plainsweep(Storage& st, int level) {
    const mglevel& m = st.mg(level);
    const double f = 1 << -level, cx = 1 / std::pow(st.dx * f, 2), cy = 1 / std::pow(st.dy * f, 2);
    const double cz = 1 / std::pow(st.dz * f, 2), d0 = -2.0 * (cx + cy + cz);
    Field3d& phi = st.mg(level).phi;
    std::vector<double> b(m.nk + 2, d0), r(m.nk + 2);
    b[1] += cz * st.ibp[bottom], b[m.nk] += cz * st.ibp[top];
    for (int k = 1; k < m.nk; ++k) b[k + 1] -= cz * cz / b[k];
    for (int j = 1; j <= m.nj; ++j)
        for (int i = 1; i <= m.ni; ++i) {
            for (int k = 1; k <= m.nk; ++k)
                r[k] = m.src(i, j, k) - (phi(i - 1, j, k) + phi(i + 1, j, k)) * cx -
                       (phi(i, j - 1, k) + phi(i, j + 1, k)) * cy -
                       (k > 1 ? cz * r[k - 1] / b[k - 1] : 0.0);
            phi(i, j, m.nk) = r[m.nk] / b[m.nk];
            for (int k = m.nk - 1; k >= 1; --k)
                phi(i, j, k) = (r[k] - cz * phi(i, j, k + 1)) / b[k];
        }
}

// The smoother sweeps several rows at once along a wavefront; on one thread every column must
// still see exactly the neighbours of the row-by-row sweep: same bits, on grids whose rows do not
// fill whole strips and on every level.
TEST(Multigrid, WavefrontSweepEqualsRowByRowSweep) {
    for (auto [nx, ny, nz] : {std::tuple{26, 21, 8}, {40, 6, 4}, {12, 17, 2}}) {
        Storage a = box(nx, ny, nz, 1.3, 0.7, 0.4), b = box(nx, ny, nz, 1.3, 0.7, 0.4);
        for (int l = 0; l >= a.lmin; --l) {
            for (Storage* st : {&a, &b}) {
                fill(st->mg(l).phi, [](int i, int j, int k) { return hash(i, j, k); });
                fill(st->mg(l).src, [](int i, int j, int k) { return hash(k, i, j); });
            }
            testsupport::onthreads(1, [&] {
                smoothingp(a, l, 2);
                for (int s = 0; s < 2; ++s) {
                    operatorp(b, l);  // the face ghosts, as each sweep does
                    plainsweep(b, l);
                }
            });
            EXPECT_TRUE(testsupport::samebits(a.mg(l).phi, b.mg(l).phi))
                << nx << "x" << ny << "x" << nz << " level " << l;
        }
    }
}

}  // namespace
}  // namespace riffle::pressure
