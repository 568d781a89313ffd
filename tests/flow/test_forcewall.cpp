// Driving force (flow rate through the west face, proportional controller, gravity) and the
// side-wall log law (first row from the second, the south wall's use of v).
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "flow/forces_m.hpp"
#include "flow/wall_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle {
namespace {

// A 1 x 1 cross-section of 4 x 5 cells of 0.25 x 0.2 carrying uo = 0.5: Q = 0.5 over a flat bed.
double fxfor(Storage& st, double discharge) {
    st.discharge = discharge;
    flow::forces(st);
    return st.fx;
}

TEST(Forces, GainOnTheFlowRateDeficitOverTheWetHeight) {
    Storage st = testsupport::box(4, 4, 5, 1.0, 0.25, 0.2);
    st.iflagu.fill(ibm::fluid);
    st.gravity = 9.81, st.fy = 3.0;
    EXPECT_DOUBLE_EQ(fxfor(st, 0.37), 37.0);  // at rest: 100 per unit of deficit
    EXPECT_TRUE(st.fy == 0.0 && st.fz == -9.81);
    st.uo.fill(0.5);
    EXPECT_NEAR(fxfor(st, 0.4), -10.0, 1e-12);  // a surplus reverses the force
    // Bed heights -> depth: 0.06 wets the first cell over 0.14 (0.94); a bed of 0 under i = 1
    // puts the face's bed at 0.03 (0.97); 0.3 gives -0.1, 0.1, 0.2, 0.2, 0.2 (0.6).
    for (auto [bed0, bed1, depth] :
         {std::tuple{0.06, 0.06, 0.94}, {0.06, 0.0, 0.97}, {0.3, 0.3, 0.6}}) {
        for (int j = 0; j <= 5; ++j) st.zb(0, j) = bed0, st.zb(1, j) = bed1;
        EXPECT_NEAR(fxfor(st, 0.5 * depth), 0.0, 1e-12) << depth;
    }
    for (int j = 1; j <= 4; ++j) st.iflagu(0, j, 1) = ibm::solid;  // the negative cell skipped
    EXPECT_NEAR(fxfor(st, 0.5 * 0.7), 0.0, 1e-12);
    // A forcing point carries flow: 39.5 more in a full cell of 0.25 x 0.2.
    st.uo(0, 2, 3) = 40.0, st.iflagu(0, 2, 3) = ibm::forcing;
    EXPECT_NEAR(fxfor(st, 0.35 + 1.975), 0.0, 1e-11);
}

// ln(y1/z0) / ln(y2/z0) with y1 = dy/2, y2 = 2 dy, z0 = ks/12000, dy = 0.01, ks = 1:
// ln(60)/ln(240) = 0.74706...
TEST(SideWalls, LogLawFromTheSecondRowSouthTakingVNorthTakingW) {
    const double ratio = std::log(60.0) / std::log(240.0);
    Storage st = testsupport::box(4, 6, 3, 0.02, 0.01, 0.01);  // at rest
    st.ks = 1.0;
    st.u.fill(9.0);
    for (int k = 0; k <= 4; ++k)
        for (int i = 0; i <= 5; ++i)
            for (int row : {2, 5})
                st.u(i, row, k) = 3.0, st.v(i, row, k) = -0.1, st.w(i, row, k) = 4.0;
    flow::walls(st);
    EXPECT_EQ(st.u(2, 6, 2), 9.0);  // walls leaves the north rows alone
    flow::walln(st);
    testsupport::interior(st, [&](int i, int j, int k) {
        if (j != 1 && j != 6) return;
        EXPECT_NEAR(st.u(i, j, k), 3.0 * ratio, 1e-12);
        EXPECT_NEAR(st.w(i, j, k), (j == 1 ? -0.1 : 4.0) * ratio, 1e-12);  // south: from v
    });
    EXPECT_TRUE(st.u(0, 1, 1) == 9.0 && st.u(1, 1, 0) == 9.0);  // ghosts left to the boundaries
}

}  // namespace
}  // namespace riffle
