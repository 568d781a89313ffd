// Multigrid pressure solve: contraction and second-order accuracy on a manufactured solution over
// cells of three different sizes, and the cycle count of the driver.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <numbers>
#include <vector>

#include "pressure/multigridp_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle::pressure {
namespace {

constexpr double pi = std::numbers::pi;

// phi = sin(2 pi x/Lx) cos(2 pi y/Ly) sin(pi z/(2H)) over 2 x 0.8 x 0.6: periodic in x and y,
// zero at the bed, zero slope at the top; src = its analytic Laplacian at the cell centres.
const double lx = 2.0, ly = 0.8, lz = 0.6;
double exact(double x, double y, double z) {
    return std::sin(2 * pi * x / lx) * std::cos(2 * pi * y / ly) * std::sin(pi * z / (2 * lz));
}
Storage manufactured(int n) {
    Storage st = testsupport::box(2 * n, n, n, lx / (2 * n), ly / n, lz / n);
    st.ibp = {0, 0, 0, 0, 0, -1, 1};
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
double cyclefactor(int n, int igamma, LineOrder order = LineOrder::rows) {
    Storage st = manufactured(n);
    st.lineorder = order;
    multigridp(st, 0, igamma, 2, 2, 100);
    const double r1 = residualnorm(st);
    for (int c = 2; c <= 4; ++c)
        multigridp(st, 0, igamma, 2, 2, 100);
    return std::pow(residualnorm(st) / r1, 1.0 / 3);
}

TEST(MultigridVerification, ContractionAndSecondOrderOnAManufacturedSolution) {
    const double v16 = cyclefactor(16, 1), v32 = cyclefactor(32, 1);
    const double w16 = cyclefactor(16, 2), none = cyclefactor(16, 0);
    EXPECT_LT(v16, 0.5);
    EXPECT_NEAR(v16, v32, 0.1); // grid-independent contraction
    EXPECT_LE(w16, v16 + 0.02);
    EXPECT_GT(none, v16 + 0.2); // smoothing alone leaves the smooth error
    EXPECT_LT(none, 1.0);

    double err[2] = {0.0, 0.0};
    for (int m = 0; m < 2; ++m) {
        Storage st = manufactured(8 << m);
        for (int c = 0; c < 12; ++c)
            multigridp(st, 0, 1, 2, 2, 100);
        testsupport::interior(st, [&](int i, int j, int k) {
            const double e = exact((i - 0.5) * st.dx, (j - 0.5) * st.dy, (k - 0.5) * st.dz);
            err[m] = std::max(err[m], std::abs(st.mg(0).phi(i, j, k) - e));
        });
    }
    EXPECT_GT(std::log2(err[0] / err[1]), 1.8);
    std::printf("multigrid: contraction per V-cycle %.3f (16) %.3f (32), W %.3f, smoothing alone "
                "%.3f; order of the Poisson solution %.2f\n",
                v16, v32, w16, none, std::log2(err[0] / err[1]));
}

TEST(MultigridVerification, ColouredLinesContractAsTheRowsDo) {
    double rows[2], colours[2];
    std::vector<double> phi[2];
    for (int threads = 1; threads <= 2; ++threads) {
        omp_set_num_threads(threads);
        rows[threads - 1] = cyclefactor(32, 1);
        colours[threads - 1] = cyclefactor(32, 1, LineOrder::colours);
        Storage st = manufactured(16);
        st.lineorder = LineOrder::colours;
        for (int c = 0; c < 3; ++c)
            multigridp(st, 0, 1, 2, 2, 100);
        phi[threads - 1].assign(st.mg(0).phi.data(), st.mg(0).phi.data() + st.mg(0).phi.size());
    }
    // A colour's lines are independent: the same bits on any number of threads. The coloured
    // order contracts as the rows do, or better.
    EXPECT_TRUE(phi[0] == phi[1]);
    EXPECT_EQ(colours[0], colours[1]);
    EXPECT_LT(colours[0], rows[0] + std::abs(rows[1] - rows[0]));
    EXPECT_GT(colours[0], 0.9 * rows[0]);
    std::printf("multigrid: contraction per V-cycle, rows %.6f (1 thread) %.6f (2), colours %.6f "
                "(1) %.6f (2)\n",
                rows[0], rows[1], colours[0], colours[1]);
}

// At most kpoismax + 1 cycles, and never fewer than two: a zero source (0/0) stops after two.
TEST(Multigrid, DriverCycleCount) {
    int npois = -1;
    Storage st = manufactured(8);
    st.dens = 1.0, st.dt = 1.0, st.igamma = 1, st.ipres = 2, st.iposts = 2;
    testsupport::randomise({&st.u}, 4, -1.0, 1.0);
    st.kpoismax = 5, st.eps = 1000000; // a subnormal tolerance, never met (1e6 would stop at 2)
    poisson(st.geometry(), st.conditions(), st.clock(), st.flow(), st.hierarchy(), npois);
    EXPECT_EQ(npois, 6);
    st.u.fill(0.0);
    st.mg(0).phi.fill(0.0);
    poisson(st.geometry(), st.conditions(), st.clock(), st.flow(), st.hierarchy(), npois);
    EXPECT_EQ(npois, 2);
}

} // namespace
} // namespace riffle::pressure
