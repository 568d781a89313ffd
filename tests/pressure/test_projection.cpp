// Verification of the box solver: the projection leaves a discretely divergence-free field; a
// Taylor-Green vortex decays at the analytic viscous rate with second-order error; laminar
// open-channel flow settles on the parabolic profile with second-order error; and the correction
// is independent of the thread count.
#include <gtest/gtest.h>

#include <omp.h>

#include <cmath>
#include <cstdio>
#include <random>

#include "flow/boundary_m.hpp"
#include "flow/xvelocity_m.hpp"
#include "flow/yvelocity_m.hpp"
#include "flow/zvelocity_m.hpp"
#include "pressure/correction_m.hpp"
#include "pressure/divergence_m.hpp"
#include "pressure/multigridp_m.hpp"
#include "run/casefile_m.hpp"
#include "run/driver_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

const double pi = std::acos(-1.0);

// A box of imax x jmax x kmax cells over lx x ly x lz, fluid at rest, periodic in x and y, the
// solver's own bottom and top codes, a V-cycle with two sweeps either side.
Storage box(int imax, int jmax, int kmax, double lx, double ly, double lz) {
    Storage st = testsupport::box(imax, jmax, kmax, lx / imax, ly / jmax, lz / kmax);
    setboundarycodes(st, 0, 0, 0);
    st.igamma = 1;
    st.ipres = 2;
    st.iposts = 2;
    st.kpoismax = 5;
    return st;
}

// One step of the box solver: predictor, boundaries, projection, divergence, previous level.
void step(Storage& st) {
    st.time += st.dt;
    flow::xvelocity(st);
    flow::yvelocity(st);
    flow::zvelocity(st);
    velocityboundaries(st);
    pressure::poisson(st, st.npois);
    pressure::correction(st);
    velocityboundaries(st);
    pressure::divergence(st);
    storeold(st);
}

// Fills fu, fv, fw with the right-hand side of the starting field (a predictor pass with dt = 0),
// so that the first step is a true second-order step and the measured error is the scheme's.
void primerighthandsides(Storage& st) {
    const double dt = st.dt;
    st.dt = 0.0;
    flow::xvelocity(st);
    flow::yvelocity(st);
    flow::zvelocity(st);
    st.dt = dt;
}

TEST(ProjectionVerification, RandomVelocitiesBecomeDivergenceFree) {
    Storage st = box(16, 16, 8, 1.0, 1.0, 0.5);
    std::mt19937 gen(3);
    std::uniform_real_distribution<double> r(-1.0, 1.0);
    for (Field3d* a : {&st.u, &st.v, &st.w}) {
        for (std::size_t n = 0; n < a->size(); ++n) a->data()[n] = r(gen);
    }
    st.dt = 1.0;
    velocityboundaries(st);
    st.kpoismax = 60;
    pressure::poisson(st, st.npois);
    double srcnorm = 0.0;
    pressure::divnormp(st, 0, srcnorm);
    pressure::correction(st);
    velocityboundaries(st);
    pressure::divergence(st);
    std::printf("random field: source norm %.3e, max |div| after %d cycles %.3e\n", srcnorm,
                st.npois, st.divmax);
    EXPECT_EQ(st.npois, 61);
    EXPECT_LT(st.divmax / srcnorm, 1e-10);
    EXPECT_LT(std::abs(st.divtotal), 1e-9 * srcnorm);
}

// Taylor-Green vortex in horizontal planes, u = sin x cos y, v = -cos x sin y, decays as
// exp(-2 nu t); the free-slip bottom and top leave it two-dimensional.
double taylorgreenerror(int n) {
    Storage st = box(n, n, 4, 2 * pi, 2 * pi, 1.0);
    st.ibu[bottom] = st.ibv[bottom] = 1;  // free slip at the bottom too
    st.ibp[bottom] = 1;                   // zero-gradient pressure increment
    st.visc = 0.1;
    st.dt = 0.02 * 16.0 / n;
    const double h = 2 * pi / n;
    for (int k = 0; k <= 5; ++k)
        for (int j = 0; j <= n + 1; ++j)
            for (int i = 0; i <= n + 1; ++i) {
                const double xu = i * h, yc = (j - 0.5) * h, xc = (i - 0.5) * h, yv = j * h;
                st.u(i, j, k) = st.uo(i, j, k) = std::sin(xu) * std::cos(yc);
                st.v(i, j, k) = st.vo(i, j, k) = -std::cos(xc) * std::sin(yv);
            }
    velocityboundaries(st);
    storeold(st);
    primerighthandsides(st);
    const double tend = 1.0;
    while (st.time < tend - 1e-12) step(st);
    // Amplitude from the u points: a least-squares fit of the computed field to the mode.
    double num = 0.0, den = 0.0;
    for (int k = 1; k <= 4; ++k)
        for (int j = 1; j <= n; ++j)
            for (int i = 1; i <= n; ++i) {
                const double mode = std::sin(i * h) * std::cos((j - 0.5) * h);
                num += st.u(i, j, k) * mode;
                den += mode * mode;
            }
    const double amplitude = num / den, exact = std::exp(-2 * 0.1 * st.time);
    std::printf("Taylor-Green %dx%d: amplitude %.8f, exact %.8f, relative error %.3e, "
                "max |div| %.2e\n", n, n, amplitude, exact, amplitude / exact - 1, st.divmax);
    return std::abs(amplitude / exact - 1);
}

TEST(ProjectionVerification, TaylorGreenDecaysAtTheViscousRate) {
    const double e16 = taylorgreenerror(16), e32 = taylorgreenerror(32);
    const double order = std::log2(e16 / e32);
    std::printf("Taylor-Green convergence order %.2f\n", order);
    EXPECT_LT(e32, 0.01);
    EXPECT_GT(order, 1.8);
}

// Plane Poiseuille flow with a free surface: no-slip bed at z = 0, free slip at z = H, driven by
// fx; steady u = fx/(2 nu) (2 H z - z^2).
double channelerror(int kmax) {
    const double H = 1.0, nu = 1.0, fx = 1.0;
    Storage st = box(4, 4, kmax, 1.0, 1.0, H);
    st.visc = nu;
    st.fx = fx;
    st.dt = 0.2 * st.dz * st.dz / nu;
    while (st.time < 5.0) step(st);  // slowest transient: exp(-(pi/2)^2 t)
    double err = 0.0;
    for (int k = 1; k <= kmax; ++k) {
        const double z = (k - 0.5) * st.dz;
        err = std::max(err, std::abs(st.u(2, 2, k) - fx / (2 * nu) * (2 * H * z - z * z)));
    }
    std::printf("laminar channel, %d layers: max error %.3e (surface velocity %.6f of %.6f)\n",
                kmax, err, st.u(2, 2, kmax), fx / (2 * nu) * (H * H - 0.25 * st.dz * st.dz));
    return err;
}

TEST(ProjectionVerification, LaminarChannelProfileConvergesAtSecondOrder) {
    const double e8 = channelerror(8), e16 = channelerror(16);
    const double order = std::log2(e8 / e16);
    std::printf("laminar channel convergence order %.2f\n", order);
    EXPECT_LT(e16, 2e-3);
    EXPECT_GT(order, 1.8);
}

TEST(Projection, CorrectionIsTheSameOnOneAndTwoThreads) {
    Storage one = box(8, 6, 4, 1.0, 1.0, 1.0), two = box(8, 6, 4, 1.0, 1.0, 1.0);
    one.dt = two.dt = 0.1;
    std::mt19937 gen(5);
    std::uniform_real_distribution<double> r(-1e-4, 1e-4);  // small: no cell is reported
    for (std::size_t n = 0; n < one.mg(0).phi.size(); ++n) {
        one.mg(0).phi.data()[n] = two.mg(0).phi.data()[n] = r(gen);
    }
    for (std::size_t n = 0; n < one.u.size(); ++n) one.u.data()[n] = two.u.data()[n] = r(gen);
    omp_set_num_threads(1);
    pressure::correction(one);
    pressure::divergence(one);
    omp_set_num_threads(2);
    pressure::correction(two);
    pressure::divergence(two);
    for (std::size_t n = 0; n < one.u.size(); ++n) ASSERT_EQ(one.u.data()[n], two.u.data()[n]);
    for (std::size_t n = 0; n < one.p.size(); ++n) ASSERT_EQ(one.p.data()[n], two.p.data()[n]);
    EXPECT_EQ(one.divmax, two.divmax);
}

TEST(Projection, DivergenceReportSumsSignedAndFlagsLargeCells) {
    Storage st = box(4, 4, 4, 4.0, 4.0, 4.0);  // unit cells
    // u = 0 except one face: the cells either side get +d and -d.
    st.u(2, 2, 2) = 0.005;
    pressure::divergence(st);
    EXPECT_DOUBLE_EQ(st.divmax, 0.005);
    EXPECT_DOUBLE_EQ(st.divtotal, 0.0);  // +d and -d cancel
    st.u(2, 2, 2) = 0.01;                // exactly at the limit: not reported
    testing::internal::CaptureStdout();
    pressure::divergence(st);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    st.u(2, 2, 2) = 0.0100001;  // over it: both cells are written, i j k
    testing::internal::CaptureStdout();
    pressure::divergence(st);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find(" 2 2 2\n"), std::string::npos) << out;
    EXPECT_NE(out.find(" 3 2 2\n"), std::string::npos) << out;
}

}  // namespace
}  // namespace riffle
