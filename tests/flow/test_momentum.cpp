// Momentum predictor: the exact right-hand sides of a linear velocity field under a linear eddy
// viscosity, the Adams-Bashforth update, the loop limits by boundary code, and the same bits on
// one and two threads for every flow kernel.
#include <gtest/gtest.h>

#include <cmath>

#include "flow/smagorinsky_m.hpp"
#include "flow/timestep_m.hpp"
#include "flow/xvelocity_m.hpp"
#include "flow/yvelocity_m.hpp"
#include "flow/zvelocity_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle {
namespace {

using testsupport::Vec;

Storage box() {
    Storage st = testsupport::box(6, 5, 4, 0.5, 0.4, 0.1);
    st.visc = 1e-3;
    st.dens = 1000.0;
    st.dt = 0.01;
    return st;
}

void predict(Storage& st) {
    flow::xvelocity(st);
    flow::yvelocity(st);
    flow::zvelocity(st);
}

// For u = c + G x and nu = visc + nut, nut = n0 + n.x, the flux form of every term is exact:
// d(u_a u_b)/dx_b = G_ab u_b + u_a tr G, d/dx_b (nu (G_ab + G_ba)) = n_b (G_ab + G_ba).
TEST(Momentum, LinearFieldGivesTheExactRightHandSides) {
    const testsupport::Linear vel{{0.4, -0.3, 0.2},
                                  {{{0.3, -1.2, 0.8}, {2.1, -0.7, -0.4}, {-0.9, 1.6, 0.5}}}};
    const Vec n{0.02, -0.03, 0.05}, force{2.0, -1.0, -9.81};
    const double trace = 0.3 - 0.7 + 0.5;
    Storage st = box();
    st.fx = force[0], st.fy = force[1], st.fz = force[2];
    testsupport::setvelocity(st, st.uo, st.vo, st.wo, vel);
    testsupport::setcentres(st, st.nut,
                            [&](double x, double y, double z) { return 0.2 + n[0] * x + n[1] * y + n[2] * z; });
    const auto rhs = [&](int a, double x, double y, double z) {
        const Vec u = vel(x, y, z);
        double h = force[a] - u[a] * trace;
        for (int b = 0; b < 3; ++b) h += n[b] * (vel.g[a][b] + vel.g[b][a]) - vel.g[a][b] * u[b];
        return h;
    };
    Field3d* const f[3] = {&st.fu, &st.fv, &st.fw};
    Field3d* const now[3] = {&st.u, &st.v, &st.w};
    Field3d* const old[3] = {&st.uo, &st.vo, &st.wo};
    // Two steps, the second with a stronger x force: 1.5 dt H first (no earlier H), then
    // dt (1.5 H - 0.5 Hold) with the earlier H moved to fo.
    for (const double extra : {0.0, 3.0}) {
        st.fx = force[0] + extra;
        predict(st);
        testsupport::interior(st, [&](int i, int j, int k) {
            for (int a = 0; a < 3; ++a) {
                const double x = (i - (a == 0 ? 0.0 : 0.5)) * st.dx;
                const double y = (j - (a == 1 ? 0.0 : 0.5)) * st.dy;
                const double z = (k - (a == 2 ? 0.0 : 0.5)) * st.dz;
                const double h = rhs(a, x, y, z) + (a == 0 ? extra : 0.0);
                const double hold = extra == 0.0 ? 0.0 : rhs(a, x, y, z);
                ASSERT_NEAR((*f[a])(i, j, k), h, 1e-12) << a << " at " << i << j << k;
                ASSERT_NEAR((*now[a])(i, j, k) - (*old[a])(i, j, k),
                            0.01 * (1.5 * h - 0.5 * hold), 1e-13);
            }
        });
    }
    EXPECT_NEAR(st.fuo(3, 2, 2), rhs(0, 1.5, 0.6, 0.15), 1e-12);
    // A zero density makes the source NaN rather than hiding the bad input.
    st.dens = 0.0;
    predict(st);
    EXPECT_TRUE(std::isnan(st.u(1, 1, 1)) && std::isnan(st.v(1, 1, 1)) && std::isnan(st.w(1, 1, 1)));
}

TEST(Momentum, LastPointIsLeftToTheBoundaryUnlessPeriodic) {
    for (int code : {0, -1, 1}) {
        Storage st = box();
        st.fx = st.fy = st.fz = 1.0;
        st.ibu[east] = st.ibv[north] = st.ibw[top] = code;
        for (Field3d* a : {&st.u, &st.v, &st.w}) a->fill(-7.0);
        predict(st);
        EXPECT_EQ(st.u(6, 3, 2) != -7.0, code == 0) << code;
        EXPECT_EQ(st.v(4, 5, 2) != -7.0, code == 0) << code;
        EXPECT_EQ(st.w(4, 3, 4) != -7.0, code == 0) << code;
        EXPECT_NE(st.u(5, 3, 2), -7.0);
        EXPECT_EQ(st.u(0, 3, 2), -7.0);  // the west face is never predicted
    }
}

// Time step, eddy viscosity and predictor on random fields: one thread and two give the same bits.
TEST(Flow, SameBitsOnOneAndTwoThreads) {
    Storage st[2] = {box(), box()};
    for (Storage& s : st) {
        s.cfl = 0.5, s.cs = 0.1;
        testsupport::randomise({&s.u, &s.v, &s.w, &s.uo, &s.vo, &s.wo, &s.fu, &s.fv, &s.fw}, 7,
                               -1.0, 1.0);
    }
    for (int n = 0; n < 2; ++n)
        testsupport::onthreads(n + 1, [&] {
            flow::timestep(st[n]);
            flow::smagorinsky(st[n]);
            predict(st[n]);
        });
    EXPECT_EQ(st[0].dt, st[1].dt);
    EXPECT_LT(st[0].dt, 1.0);
    for (auto f : {&Storage::u, &Storage::v, &Storage::w, &Storage::fwo, &Storage::nut, &Storage::sabs})
        EXPECT_TRUE(testsupport::samebits(st[0].*f, st[1].*f));
}

}  // namespace
}  // namespace riffle
