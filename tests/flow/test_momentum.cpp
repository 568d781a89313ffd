// Momentum predictor: the exact right-hand sides of a linear velocity field under a linear eddy
// viscosity, and the Adams-Bashforth update.
// CFL time step: advective rates of the fastest face in each direction over that direction's
// spacing plus the viscous rate, the step capped at 1.0, ghost faces left out.
// Smagorinsky viscosity: exact strain rates, |S| and nut for a linear velocity field on cells of
// three different sizes, and the ghost rules by the pressure codes (periodic copies, copies of the
// strain at walls, nut changing sign at the surface and the side walls).
#include <gtest/gtest.h>

#include <cmath>

#include "flow/smagorinsky_m.hpp"
#include "flow/timestep_m.hpp"
#include "flow/xvelocity_m.hpp"
#include "flow/yvelocity_m.hpp"
#include "flow/zvelocity_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle {
namespace {

using testsupport::Vec;

// For u = c + G x and nu = visc + nut, nut = n0 + n.x, the flux form of every term is exact:
// d(u_a u_b)/dx_b = G_ab u_b + u_a tr G, d/dx_b (nu (G_ab + G_ba)) = n_b (G_ab + G_ba).
TEST(Momentum, LinearFieldGivesTheExactRightHandSides) {
    const testsupport::Linear& vel = testsupport::linear;
    const Vec n{0.02, -0.03, 0.05}, force{2.0, -1.0, -9.81};
    Storage st = testsupport::box(6, 5, 4, 0.5, 0.4, 0.1);
    st.visc = 1e-3, st.dens = 1000.0, st.dt = 0.01;
    testsupport::setvelocity(st, st.uo, st.vo, st.wo, vel);
    testsupport::setcentres(st, st.nut, [&](double x, double y, double z) {
        return 0.2 + n[0] * x + n[1] * y + n[2] * z;
    });
    const auto rhs = [&](std::size_t a, Vec x) {
        const Vec u = vel(x[0], x[1], x[2]);
        double h = force[a] - u[a] * 0.1; // tr G = 0.1
        for (std::size_t b = 0; b < 3; ++b)
            h += n[b] * (vel.g[a][b] + vel.g[b][a]) - vel.g[a][b] * u[b];
        return h;
    };
    Field3d* const f[3] = {&st.fu, &st.fv, &st.fw};
    Field3d* const now[3] = {&st.u, &st.v, &st.w};
    Field3d* const old[3] = {&st.uo, &st.vo, &st.wo};
    // Two steps, the second with 3 more in x: 1.5 dt H first (no earlier H), then
    // dt (1.5 H - 0.5 Hold).
    for (const double extra : {0.0, 3.0}) {
        st.fx = force[0] + extra, st.fy = force[1], st.fz = force[2];
        flow::xvelocity(st.geometry(), st.conditions(), st.clock(), st.flow()),
            flow::yvelocity(st.geometry(), st.conditions(), st.clock(), st.flow()),
            flow::zvelocity(st.geometry(), st.conditions(), st.clock(), st.flow());
        testsupport::interior(st, [&](int i, int j, int k) {
            for (std::size_t a = 0; a < 3; ++a) {
                const Vec x{(i - (a == 0 ? 0.0 : 0.5)) * 0.5, (j - (a == 1 ? 0.0 : 0.5)) * 0.4,
                            (k - (a == 2 ? 0.0 : 0.5)) * 0.1};
                const double h = rhs(a, x) + (a == 0 ? extra : 0.0),
                             hold = extra != 0.0 ? rhs(a, x) : 0.0;
                ASSERT_NEAR((*f[a])(i, j, k), h, 1e-12) << a << " at " << i << j << k;
                ASSERT_NEAR((*now[a])(i, j, k) - (*old[a])(i, j, k), 0.01 * (1.5 * h - 0.5 * hold),
                            1e-13);
            }
        });
    }
    EXPECT_NEAR(st.fuo(3, 2, 2), rhs(0, {1.5, 0.6, 0.15}), 1e-12);
}

TEST(TimeStep, UniformStreamCapAndFastestFace) {
    Storage st = testsupport::box(6, 5, 4, 0.5, 0.4, 0.1); // 1/dx^2 + 1/dy^2 + 1/dz^2 = 110.25
    st.cfl = 0.5, st.visc = 0.0;
    flow::timestep(st.geometry(), st.conditions(), st.flow(), st.clock());
    EXPECT_EQ(st.dt, 1.0); // at rest without viscosity nothing limits the step but the cap

    // A uniform stream: 0.3/0.5 + 0.2/0.4 + 0.05/0.1 = 1.6, viscous rate 0.01 x 110.25.
    st.visc = 0.01;
    st.u.fill(0.3), st.v.fill(-0.2), st.w.fill(0.05);
    flow::timestep(st.geometry(), st.conditions(), st.flow(), st.clock());
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / 2.7025);

    // One fast interior face sets the step for the whole box: v = 3 gives 3/0.4 = 7.5.
    st.v(2, 3, 2) = 3.0;
    flow::timestep(st.geometry(), st.conditions(), st.flow(), st.clock());
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / (0.6 + 7.5 + 0.5 + 1.1025));
    // Faces beyond the ghost cells do not count.
    st.v(2, 3, 2) = -0.2;
    st.u(7, 2, 2) = st.v(2, 6, 2) = st.w(2, 2, 5) = 50.0;
    flow::timestep(st.geometry(), st.conditions(), st.flow(), st.clock());
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / 2.7025);
}

TEST(Smagorinsky, LinearFieldStrainViscosityAndGhostLayers) {
    Storage st = testsupport::box(6, 5, 4, 0.5, 0.4, 0.1);
    setboundarycodes(st, 0, 1, 0); // periodic x, side walls, free-slip top
    st.cs = 0.1;
    testsupport::setvelocity(st, st.u, st.v, st.w, testsupport::linear);
    flow::smagorinsky(st.geometry(), st.conditions(), st.flow(), st.bed());
    // Of the gradient G of testsupport::linear: S12 = (-1.2 + 2.1)/2, S13 = (0.8 - 0.9)/2,
    // S23 = (-0.4 + 1.6)/2; |S|^2 = 2 (0.09 + 0.49 + 0.25) + 4 (0.2025 + 0.0025 + 0.36) = 3.92;
    // nut = (cs delta)^2 |S| with delta^3 = 0.5 x 0.4 x 0.1.
    const double sabs = std::sqrt(3.92), nut = 0.01 * std::pow(0.02, 2.0 / 3.0) * sabs;
    for (auto [f, value] : {std::pair{&Storage::s11, 0.3},
                            {&Storage::s22, -0.7},
                            {&Storage::s33, 0.5},
                            {&Storage::s12, 0.45},
                            {&Storage::s13, -0.05},
                            {&Storage::s23, 0.6},
                            {&Storage::sabs, sabs},
                            {&Storage::nut, nut}})
        testsupport::interior(
            st, [&](int i, int j, int k) { ASSERT_NEAR((st.*f)(i, j, k), value, 1e-13); });

    st.u(2, 3, 4) += 0.4; // some variation near the top
    st.w(4, 1, 3) = 0.2;
    flow::smagorinsky(st.geometry(), st.conditions(), st.flow(), st.bed());
    // Periodic x; free-slip top and side walls (code 1): nut flips sign, the strain is copied;
    // bottom (code -1): plain copy.
    testsupport::interior(st, [&](int i, int j, int k) {
        EXPECT_TRUE(st.nut(0, j, k) == st.nut(6, j, k) && st.nut(7, j, k) == st.nut(1, j, k));
        EXPECT_TRUE(st.s12(0, j, k) == st.s12(6, j, k) && st.nut(i, j, 0) == st.nut(i, j, 1));
        EXPECT_TRUE(st.nut(i, j, 5) == -st.nut(i, j, 4) && st.s11(i, j, 5) == st.s11(i, j, 4));
        EXPECT_TRUE(st.nut(i, 0, k) == -st.nut(i, 1, k) && st.sabs(i, 6, k) == st.sabs(i, 5, k));
    });
}

} // namespace
} // namespace riffle
