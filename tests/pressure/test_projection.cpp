// Projection: hand values of the Poisson source, the divergence and the velocity correction for
// linear fields on cells of three different sizes; a random field left discretely divergence-free;
// a Taylor-Green vortex decaying at the analytic viscous rate and laminar open-channel flow
// settling on the parabolic profile, both with second-order error; and the same results on one
// and two threads for the flow and pressure kernels.
#include <gtest/gtest.h>

#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>

#include "flow/smagorinsky_m.hpp"
#include "flow/timestep_m.hpp"
#include "flow/xvelocity_m.hpp"
#include "flow/yvelocity_m.hpp"
#include "flow/zvelocity_m.hpp"
#include "pressure/correction_m.hpp"
#include "pressure/divergence_m.hpp"
#include "pressure/multigridp_m.hpp"
#include "pressure/vorticity_m.hpp"
#include "run/casefile_m.hpp"
#include "run/driver_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle {
namespace {

using testsupport::Vec;
constexpr double pi = std::numbers::pi;

// imax x jmax x kmax cells over lx x ly x lz, fluid at rest, periodic in x and y, the solver's
// own bottom and top codes, a V-cycle with two sweeps either side.
Storage box(int imax, int jmax, int kmax, double lx, double ly, double lz) {
    Storage st = testsupport::box(imax, jmax, kmax, lx / imax, ly / jmax, lz / kmax);
    setboundarycodes(st, 0, 0, 0);
    st.igamma = 1, st.ipres = 2, st.iposts = 2, st.kpoismax = 5;
    return st;
}

void predict(Storage& st) {
    flow::xvelocity(st.geometry(), st.conditions(), st.clock(), st.flow());
    flow::yvelocity(st.geometry(), st.conditions(), st.clock(), st.flow());
    flow::zvelocity(st.geometry(), st.conditions(), st.clock(), st.flow());
}

// One step of the box solver: predictor, boundaries, projection, divergence, previous level.
void step(Storage& st) {
    st.time += st.dt;
    predict(st);
    velocityboundaries(st.geometry(), st.conditions(), st.flow());
    pressure::poisson(st.geometry(), st.conditions(), st.clock(), st.flow(), st.hierarchy(),
                      st.npois);
    pressure::correction(st.geometry(), st.conditions(), st.clock(), st.hierarchy(), st.flow());
    velocityboundaries(st.geometry(), st.conditions(), st.flow());
    pressure::divergence(st.geometry(), st.flow(), st.clock());
    storeold(st.geometry(), st.flow(), st.bed());
}

TEST(Projection, LinearFieldsHandValues) {
    // Divergence 0.002 - 0.003 + 0.004 = 0.003 in every cell, below the reporting limit.
    const auto make = [] {
        Storage st = testsupport::box(6, 5, 4, 0.5, 0.4, 0.1);
        st.dens = 2.0, st.dt = 0.5; // dens/dt = 4, dt/dens = 0.25
        testsupport::setvelocity(
            st, st.u, st.v, st.w,
            testsupport::Linear{{0.1, 0.2, -0.1},
                                {{{0.002, 0.5, -0.3}, {0.7, -0.003, 0.2}, {-0.4, 0.6, 0.004}}}});
        return st;
    };
    Storage st = make();
    const Storage before = make();
    pressure::sourcep(st.geometry(), st.conditions(), st.clock(), st.flow(), st.hierarchy());
    testsupport::interior(
        st, [&](int i, int j, int k) { EXPECT_NEAR(st.mg(0).src(i, j, k), 0.012, 1e-13); });
    pressure::divergence(st.geometry(), st.flow(), st.clock());
    EXPECT_NEAR(st.divmax, 0.003, 1e-14);
    EXPECT_NEAR(st.divtotal, 120 * 0.003, 1e-12);

    // phi = 1.5 x - 2 y + 0.8 z: each face velocity drops by 0.25 times that direction's slope.
    testsupport::setcentres(st, st.mg(0).phi,
                            [](double x, double y, double z) { return 1.5 * x - 2 * y + 0.8 * z; });
    pressure::correction(st.geometry(), st.conditions(), st.clock(), st.hierarchy(), st.flow());
    testsupport::interior(st, [&](int i, int j, int k) {
        EXPECT_NEAR(st.u(i, j, k) - before.u(i, j, k), -0.375, 1e-13);
        EXPECT_NEAR(st.v(i, j, k) - before.v(i, j, k), 0.5, 1e-13);
        EXPECT_NEAR(st.w(i, j, k) - before.w(i, j, k), -0.2, 1e-13);
        EXPECT_EQ(st.p(i, j, k), st.mg(0).phi(i, j, k)); // p starts from 0
    });
}

TEST(ProjectionVerification, RandomVelocitiesBecomeDivergenceFree) {
    Storage st = box(16, 16, 8, 1.0, 0.8, 0.3);
    testsupport::randomise({&st.u, &st.v, &st.w}, 3, -1.0, 1.0);
    st.dens = 2.0, st.dt = 0.5, st.kpoismax = 60;
    velocityboundaries(st.geometry(), st.conditions(), st.flow());
    pressure::poisson(st.geometry(), st.conditions(), st.clock(), st.flow(), st.hierarchy(),
                      st.npois);
    double srcnorm = 0.0;
    pressure::divnormp(st, 0, srcnorm);
    pressure::correction(st.geometry(), st.conditions(), st.clock(), st.hierarchy(), st.flow());
    velocityboundaries(st.geometry(), st.conditions(), st.flow());
    pressure::divergence(st.geometry(), st.flow(), st.clock());
    EXPECT_LT(st.divmax / srcnorm, 1e-10);
    EXPECT_LT(std::abs(st.divtotal), 1e-9 * srcnorm);
}

// Taylor-Green vortex in horizontal planes, u = sin x cos y, v = -cos x sin y, on n x 3n/4 x 4
// cells, free slip at bottom and top: the amplitude (a least-squares fit of u to the mode)
// decays as exp(-2 nu t). Relative error at t = 1.
double taylorgreenerror(int n) {
    Storage st = box(n, 3 * n / 4, 4, 2 * pi, 2 * pi, 1.0);
    st.ibu[bottom] = st.ibv[bottom] = st.ibp[bottom] = 1;
    st.visc = 0.1;
    const auto mode = [](double x, double y, double) {
        return Vec{std::sin(x) * std::cos(y), -std::cos(x) * std::sin(y), 0.0};
    };
    testsupport::setvelocity(st, st.u, st.v, st.w, mode);
    velocityboundaries(st.geometry(), st.conditions(), st.flow());
    storeold(st.geometry(), st.flow(), st.bed());
    // The right-hand sides of the starting field (a pass with dt = 0) make the first step a true
    // second-order step.
    st.dt = 0.0, predict(st), st.dt = 0.02 * 16.0 / n;
    while (st.time < 1.0 - 1e-12)
        step(st);
    double num = 0.0, den = 0.0;
    testsupport::interior(st, [&](int i, int j, int k) {
        const double m = mode(i * st.dx, (j - 0.5) * st.dy, 0.0)[0];
        num += st.u(i, j, k) * m, den += m * m;
    });
    return std::abs(num / den / std::exp(-2 * 0.1 * st.time) - 1);
}

// Plane Poiseuille flow with a free surface: no-slip bed, free slip at z = H = 1, fx = nu = 1;
// steady u = (2 z - z^2)/2. Largest error of one column.
double channelerror(int kmax) {
    Storage st = box(4, 3, kmax, 1.0, 0.6, 1.0);
    st.visc = 1.0, st.fx = 1.0, st.dt = 0.2 * st.dz * st.dz;
    while (st.time < 5.0)
        step(st); // slowest transient: exp(-(pi/2)^2 t)
    double err = 0.0;
    for (int k = 1; k <= kmax; ++k)
        err = std::max(err,
                       std::abs(st.u(2, 2, k) - (k - 0.5) * st.dz * (1 - 0.5 * (k - 0.5) * st.dz)));
    return err;
}

TEST(ProjectionVerification, TaylorGreenAndLaminarChannelConvergeAtSecondOrder) {
    const double tg[2] = {taylorgreenerror(16), taylorgreenerror(32)};
    const double ch[2] = {channelerror(8), channelerror(16)};
    EXPECT_LT(tg[1], 0.01);
    EXPECT_LT(ch[1], 2e-3);
    EXPECT_GT(std::log2(tg[0] / tg[1]), 1.8);
    EXPECT_GT(std::log2(ch[0] / ch[1]), 1.8);
    std::printf("convergence order: Taylor-Green vortex %.2f, laminar channel %.2f\n",
                std::log2(tg[0] / tg[1]), std::log2(ch[0] / ch[1]));
}

// Time step, eddy viscosity, predictor, the pressure operator, residual and norms, correction,
// divergence and vorticity give the same bits on one and two threads, on a box big enough for the
// multigrid's threads. The line smoother's threads read neighbour lines old or new, so a solve
// differs in its last bits only, and its converged answer not at all.
TEST(Projection, SameResultsOnOneAndTwoThreads) {
    Storage st[2] = {box(16, 16, 16, 1.0, 0.8, 0.3), box(16, 16, 16, 1.0, 0.8, 0.3)};
    double norms[2][2];
    const int threads = omp_get_max_threads();
    for (int n = 0; n < 2; ++n) {
        Storage& s = st[n];
        omp_set_num_threads(n + 1);
        s.cfl = 0.5, s.cs = 0.1, s.visc = 0.01; // small values: no divergence printout
        testsupport::randomise({&s.u, &s.v, &s.w, &s.uo, &s.vo, &s.wo, &s.fu, &s.fv, &s.fw,
                                &s.mg(0).phi, &s.mg(0).src},
                               5, -1e-5, 1e-5);
        flow::timestep(s.geometry(), s.conditions(), s.flow(), s.clock()),
            flow::smagorinsky(s.geometry(), s.conditions(), s.flow(), s.bed()), predict(s),
            pressure::vorticity(s.geometry(), s.conditions(), s.flow());
        pressure::boundarypres(s, 0), pressure::operatorp(s, 0), pressure::residualp(s, 0);
        pressure::resnormp(s, 0, norms[n][0]), pressure::divnormp(s, 0, norms[n][1]);
        pressure::correction(s.geometry(), s.conditions(), s.clock(), s.hierarchy(), s.flow()),
            pressure::divergence(s.geometry(), s.flow(), s.clock());
        testsupport::randomise({&s.mg(0).src}, 9, -1.0, 1.0);
        for (int c = 0; c < 16; ++c)
            pressure::multigridp(s, 0, 1, 2, 2, 100);
    }
    omp_set_num_threads(threads);
    for (auto f : {&Storage::u, &Storage::v, &Storage::w, &Storage::fwo, &Storage::nut,
                   &Storage::vort, &Storage::p}) // the same bits
        EXPECT_EQ(std::memcmp((st[0].*f).data(), (st[1].*f).data(), (st[0].*f).size() * 8), 0);
    EXPECT_TRUE(st[0].dt == st[1].dt && st[0].dt < 1.0 && st[0].divmax == st[1].divmax);
    EXPECT_TRUE(norms[0][0] == norms[1][0] && norms[0][1] == norms[1][1]);
    double solved = 0.0;
    testsupport::interior(st[0], [&](int i, int j, int k) {
        solved = std::max(solved, std::abs(st[0].mg(0).phi(i, j, k) - st[1].mg(0).phi(i, j, k)));
    });
    EXPECT_LT(solved, 1e-12);
}

} // namespace
} // namespace riffle
