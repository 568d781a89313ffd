// Driving force (flow rate through the west face, proportional controller, gravity) and the
// side-wall log law (first row from the second, the speed threshold, the south wall's use of v).
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "flow/forces_m.hpp"
#include "flow/wall_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "support/box.hpp"

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
    st.gravity = 9.81;
    st.fy = 3.0;
    EXPECT_DOUBLE_EQ(fxfor(st, 0.37), 37.0);  // at rest: 100 per unit of deficit
    EXPECT_EQ(st.fy, 0.0);
    EXPECT_EQ(st.fz, -9.81);
    st.uo.fill(0.5);
    EXPECT_NEAR(fxfor(st, 0.6), 10.0, 1e-12);
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
    // Forcing points carry flow, solid ones do not: one u of 40 in a cell of 0.25 x 0.2.
    st.zb.fill(0.0);
    st.iflagu.fill(ibm::fluid);
    st.uo(0, 2, 3) = 40.0;
    for (auto [flag, q] : {std::tuple{ibm::forcing, 0.475 + 2.0}, {ibm::solid, 0.475}}) {
        st.iflagu(0, 2, 3) = flag;
        EXPECT_NEAR(fxfor(st, q), 0.0, 1e-11) << flag;
    }
}

constexpr int WI = 4, WJ = 6, WK = 3;
// ln(y1/z0) / ln(y2/z0) with y1 = dy/2, y2 = 2 dy, z0 = ks/12000, dy = 0.01, ks = 1:
// ln(60)/ln(240) = 0.74706...
const double ratio = std::log(60.0) / std::log(240.0);

Storage sidewalls() {
    Storage st = testsupport::box(WI, WJ, WK, 0.02, 0.01, 0.01);
    st.ks = 1.0;
    return st;  // at rest
}

void setrow(Field3d& f, int j, double value) {
    for (int k = f.krange().lo; k <= f.krange().hi; ++k)
        for (int i = f.irange().lo; i <= f.irange().hi; ++i) f(i, j, k) = value;
}

TEST(SideWalls, LogLawFromTheSecondRowSouthTakingVNorthTakingW) {
    for (auto [u2, v2, w2] : {std::tuple{1.0, 0.2, 0.0}, {3.0, -0.1, 4.0}, {-2.0, 0.0, 0.5}}) {
        Storage st = sidewalls();
        setrow(st.u, 1, 9.0);
        for (int row : {2, WJ - 1})
            setrow(st.u, row, u2), setrow(st.v, row, v2), setrow(st.w, row, w2);
        flow::walls(st);
        EXPECT_EQ(st.u(2, WJ, 2), 0.0);  // walls leaves the north rows alone
        flow::walln(st);
        for (int k = 1; k <= WK; ++k)
            for (int i = 1; i <= WI; ++i) {
                EXPECT_NEAR(st.u(i, 1, k), u2 * ratio, 1e-12);
                EXPECT_NEAR(st.u(i, WJ, k), u2 * ratio, 1e-12);
                EXPECT_NEAR(st.w(i, 1, k), v2 * ratio, 1e-12);   // direction from v, not w
                EXPECT_NEAR(st.w(i, WJ, k), w2 * ratio, 1e-12);  // from w, v unread
            }
        EXPECT_EQ(st.u(0, 1, 1), 9.0);  // ghost points are left to the boundary routines
        EXPECT_EQ(st.u(1, 1, 0), 9.0);
    }
}

TEST(SideWalls, ThresholdOnTheAveragedSpeed) {
    Storage st = sidewalls();
    setrow(st.u, 1, 9.0);
    setrow(st.w, 1, 9.0);
    // 5e-9 alone is below 1e-8 (so is the speed of 5e-9 in both components); a point of 1 in the
    // other component lifts the four points whose average includes it above the threshold.
    setrow(st.u, 2, 5e-9);
    setrow(st.v, 2, 5e-9);
    st.w(2, 2, 1) = 1.0;  // in the average of the u points i = 1, 2 and k = 1, 2
    st.u(2, 2, 2) = 1.0;  // in the average of the w points i = 2, 3 and k = 1, 2
    flow::walls(st);
    for (int k = 1; k <= WK; ++k)
        for (int i = 1; i <= WI; ++i) {
            const bool unear = (i == 1 || i == 2) && (k == 1 || k == 2);
            const bool wnear = (i == 2 || i == 3) && (k == 1 || k == 2);
            const double u1 = i == 2 && k == 2 ? ratio : unear ? 5e-9 * ratio : 0.0;
            EXPECT_NEAR(st.u(i, 1, k), u1, 1e-12 * u1) << i << " " << k;  // still fluid: exactly 0
            EXPECT_NEAR(st.w(i, 1, k), wnear ? 5e-9 * ratio : 0.0, 1e-22) << i << " " << k;
            EXPECT_EQ(st.w(i, 1, k) != 0.0, wnear) << i << " " << k;
        }
}

}  // namespace
}  // namespace riffle
