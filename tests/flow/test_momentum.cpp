// Momentum predictor: the exact right-hand sides of a linear velocity field under a linear eddy
// viscosity, and the Adams-Bashforth update.
#include <gtest/gtest.h>

#include <cmath>

#include "flow/xvelocity_m.hpp"
#include "flow/yvelocity_m.hpp"
#include "flow/zvelocity_m.hpp"
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
        double h = force[a] - u[a] * 0.1;  // tr G = 0.1
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
        flow::xvelocity(st), flow::yvelocity(st), flow::zvelocity(st);
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

}  // namespace
}  // namespace riffle
