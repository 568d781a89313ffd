// Boundary rules for the three components and the pressure: periodic copies, prescribed values
// (the two-point average on the face equals the value), prescribed gradients (the one-sided
// difference over that direction's spacing equals the value), the outer ghosts, and the
// pressure's ghosts by its codes alone.
// Driving force (flow rate through the west face, proportional controller, gravity) and the
// side-wall log law (first row from the second, the south wall's use of v).
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "flow/boundary_m.hpp"
#include "flow/forces_m.hpp"
#include "flow/wall_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle {
namespace {

constexpr int I = 6, J = 5, K = 4;

Storage randombox() {
    Storage st = testsupport::box(I, J, K, 0.5, 0.25, 0.125);
    testsupport::randomise({&st.u, &st.v, &st.w, &st.p}, 2, -1.0, 1.0);
    return st;
}

TEST(Boundary, PeriodicWallsFreeSlipValuesAndPressure) {
    Storage st = randombox();
    setboundarycodes(st, 0, 1, 0); // periodic x, side walls, free-slip lid
    const double vs = 0.3, ws = -0.2, ub = 0.7, ut = 0.05, wb = 1.5;
    st.vbval[south] = vs; // normal component on a value face: the face value itself
    st.wbval[south] = ws; // tangential on a value face: mean of ghost and inner
    st.ubval[bottom] = ub;
    st.ubval[top] = ut;    // free slip with a gradient: (ghost - inner)/dz = ut
    st.wbval[bottom] = wb; // normal component with a gradient: mirrored about the face
    const Storage before = randombox();
    flow::boundaryu(st.geometry(), st.conditions(), st.flow()),
        flow::boundaryv(st.geometry(), st.conditions(), st.flow()),
        flow::boundaryw(st.geometry(), st.conditions(), st.flow());
    flow::boundaryp(
        st.geometry(), st.conditions(),
        st.flow()); // p: periodic x, zero gradient y and top, zero at the bottom; no values
    for (int i = 1; i <= I; ++i) {
        for (int k = 1; k <= K; ++k) {
            EXPECT_DOUBLE_EQ(st.u(i, 0, k), -st.u(i, 1, k)); // tangential, value 0
            EXPECT_DOUBLE_EQ(0.5 * (st.w(i, 0, k) + st.w(i, 1, k)), ws);
            EXPECT_EQ(st.v(i, 0, k), vs); // the face holds the value, the ghost extrapolates
            EXPECT_DOUBLE_EQ(st.v(i, -1, k), 2 * vs - st.v(i, 1, k));
            EXPECT_EQ(st.v(i, J, k), 0.0);
            EXPECT_DOUBLE_EQ(st.v(i, J + 1, k), -st.v(i, J - 1, k));
            EXPECT_TRUE(st.p(i, 0, k) == st.p(i, 1, k) && st.p(i, J + 1, k) == st.p(i, J, k));
        }
        for (int j = 1; j <= J; ++j) {
            EXPECT_DOUBLE_EQ(0.5 * (st.u(i, j, 0) + st.u(i, j, 1)), ub);
            EXPECT_NEAR((st.u(i, j, K + 1) - st.u(i, j, K)) / 0.125, ut, 1e-13);
            EXPECT_DOUBLE_EQ(st.v(i, j, K + 1), st.v(i, j, K));
            // w: the gradient face at the bottom keeps its value and mirrors the layer below;
            // the value face at the top holds 0 and extrapolates beyond.
            EXPECT_EQ(st.w(i, j, 0), before.w(i, j, 0));
            EXPECT_NEAR((st.w(i, j, 1) - st.w(i, j, -1)) / (2 * 0.125), wb, 1e-13);
            EXPECT_EQ(st.w(i, j, K), 0.0);
            EXPECT_DOUBLE_EQ(st.w(i, j, K + 1), -st.w(i, j, K - 1));
            EXPECT_TRUE(st.p(i, j, 0) == -st.p(i, j, 1) && st.p(i, j, K + 1) == st.p(i, j, K));
        }
    }
    for (int k = 1; k <= K; ++k)
        for (int j = 1; j <= J; ++j) { // periodic: copies of the opposite interior
            EXPECT_TRUE(st.u(0, j, k) == st.u(I, j, k) && st.u(I + 1, j, k) == st.u(1, j, k));
            EXPECT_TRUE(st.u(-1, j, k) == st.u(I - 1, j, k) && st.w(I + 1, j, k) == st.w(1, j, k));
            EXPECT_TRUE(st.v(0, j, k) == st.v(I, j, k) && st.p(0, j, k) == st.p(I, j, k));
        }
}

// A 1 x 1 cross-section of 4 x 5 cells of 0.25 x 0.2 carrying uo = 0.5: Q = 0.5 over a flat bed.
double fxfor(Storage& st, double discharge) {
    st.discharge = discharge;
    flow::forces(st.geometry(), st.conditions(), st.bed(), st.flow());
    return st.fx;
}

TEST(Forces, GainOnTheFlowRateDeficitOverTheWetHeight) {
    Storage st = testsupport::box(4, 4, 5, 1.0, 0.25, 0.2);
    st.iflagu.fill(ibm::fluid);
    st.zb.fill(0.0);
    st.gravity = 9.81, st.fy = 3.0;
    EXPECT_DOUBLE_EQ(fxfor(st, 0.37), 37.0); // at rest: 100 per unit of deficit
    EXPECT_TRUE(st.fy == 0.0 && st.fz == -9.81);
    st.uo.fill(0.5);
    EXPECT_NEAR(fxfor(st, 0.4), -10.0, 1e-12); // a surplus reverses the force
    // Bed heights -> depth: 0.06 wets the first cell over 0.14 (0.94); a bed of 0 under i = 1
    // puts the face's bed at 0.03 (0.97); 0.3 gives -0.1, 0.1, 0.2, 0.2, 0.2 (0.6).
    for (auto [bed0, bed1, depth] :
         {std::tuple{0.06, 0.06, 0.94}, {0.06, 0.0, 0.97}, {0.3, 0.3, 0.6}}) {
        for (int j = 0; j <= 5; ++j)
            st.zb(0, j) = bed0, st.zb(1, j) = bed1;
        EXPECT_NEAR(fxfor(st, 0.5 * depth), 0.0, 1e-12) << depth;
    }
    for (int j = 1; j <= 4; ++j)
        st.iflagu(0, j, 1) = ibm::solid; // the negative cell skipped
    EXPECT_NEAR(fxfor(st, 0.5 * 0.7), 0.0, 1e-12);
    // A forcing point carries flow: 39.5 more in a full cell of 0.25 x 0.2.
    st.uo(0, 2, 3) = 40.0, st.iflagu(0, 2, 3) = ibm::forcing;
    EXPECT_NEAR(fxfor(st, 0.35 + 1.975), 0.0, 1e-11);
}

// ln(y1/z0) / ln(y2/z0) with y1 = dy/2, y2 = 2 dy, z0 = ks/12000, dy = 0.01, ks = 1:
// ln(60)/ln(240) = 0.74706...
TEST(SideWalls, LogLawFromTheSecondRowSouthTakingVNorthTakingW) {
    const double ratio = std::log(60.0) / std::log(240.0);
    Storage st = testsupport::box(4, 6, 3, 0.02, 0.01, 0.01); // at rest
    st.ks = 1.0;
    st.u.fill(9.0);
    for (int k = 0; k <= 4; ++k)
        for (int i = 0; i <= 5; ++i)
            for (int row : {2, 5})
                st.u(i, row, k) = 3.0, st.v(i, row, k) = -0.1, st.w(i, row, k) = 4.0;
    flow::walls(st.geometry(), st.conditions(), st.flow());
    EXPECT_EQ(st.u(2, 6, 2), 9.0); // walls leaves the north rows alone
    flow::walln(st.geometry(), st.conditions(), st.flow());
    testsupport::interior(st, [&](int i, int j, int k) {
        if (j != 1 && j != 6) return;
        EXPECT_NEAR(st.u(i, j, k), 3.0 * ratio, 1e-12);
        EXPECT_NEAR(st.w(i, j, k), (j == 1 ? -0.1 : 4.0) * ratio, 1e-12); // south: from v
    });
    EXPECT_TRUE(st.u(0, 1, 1) == 9.0 && st.u(1, 1, 0) == 9.0); // ghosts left to the boundaries
}

} // namespace
} // namespace riffle
