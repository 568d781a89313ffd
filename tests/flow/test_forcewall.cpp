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

// A 1 x 1 cross-section of 4 x 5 cells of 0.25 x 0.2, uo = 0.5, every u point fluid.
Storage channel(double bed) {
    Storage st = testsupport::box(4, 4, 5, 1.0, 0.25, 0.2);
    st.zb.fill(bed);
    st.iflagu.fill(ibm::fluid);
    st.uo.fill(0.5);
    return st;
}

double fxfor(Storage& st, double discharge) {
    st.discharge = discharge;
    flow::forces(st);
    return st.fx;
}

TEST(Forces, GainOnTheDeficitAndGravity) {
    Storage st = channel(0.0);
    st.uo.fill(0.0);
    st.gravity = 9.81;
    st.fy = 3.0;
    EXPECT_DOUBLE_EQ(fxfor(st, 0.37), 37.0);
    EXPECT_EQ(st.fy, 0.0);
    EXPECT_EQ(st.fz, -9.81);
}

TEST(Forces, FlowRateCountsTheWetHeightAboveTheBed) {
    Storage st = channel(0.0);
    EXPECT_NEAR(fxfor(st, 0.5), 0.0, 1e-12);  // Q = 0.5 x 1 x 1
    EXPECT_NEAR(fxfor(st, 0.6), 10.0, 1e-12);
    EXPECT_NEAR(fxfor(st, 0.4), -10.0, 1e-12);  // a surplus reverses the force
    st.zb.fill(0.06);  // first cell wet over 0.14, the others capped at 0.2: depth 0.94
    EXPECT_NEAR(fxfor(st, 0.5 * 0.94), 0.0, 1e-12);
    for (int j = 0; j <= 5; ++j)
        st.zb(1, j) = 0.0;  // bed under the face: mean of i = 0 and 1
    EXPECT_NEAR(fxfor(st, 0.5 * 0.97), 0.0, 1e-12);
    // Bed above the first cell's top: heights -0.1, 0.1, 0.2, 0.2, 0.2 unless flagged solid.
    st.zb.fill(0.3);
    EXPECT_NEAR(fxfor(st, 0.5 * 0.6), 0.0, 1e-12);
    for (int j = 1; j <= 4; ++j)
        st.iflagu(0, j, 1) = ibm::solid;
    EXPECT_NEAR(fxfor(st, 0.5 * 0.7), 0.0, 1e-12);
}

TEST(Forces, SolidWestFacePointsAreSkipped) {
    Storage st = channel(0.0);
    st.uo(0, 2, 3) = 40.0;  // one cell of 0.25 x 0.2
    EXPECT_NEAR(fxfor(st, 0.475 + 40.0 * 0.05), 0.0, 1e-11);
    st.iflagu(0, 2, 3) = ibm::forcing;  // forcing points still carry flow
    EXPECT_NEAR(fxfor(st, 0.475 + 40.0 * 0.05), 0.0, 1e-11);
    st.iflagu(0, 2, 3) = ibm::solid;
    EXPECT_NEAR(fxfor(st, 0.475), 0.0, 1e-12);
}

constexpr int WI = 4, WJ = 6, WK = 3;
// ln(y1/z0) / ln(y2/z0) with y1 = dy/2, y2 = 2 dy, z0 = ks/12000, dy = 0.01, ks = 1.
const double ratio = std::log(60.0) / std::log(240.0);

Storage sidewalls() {
    Storage st = testsupport::box(WI, WJ, WK, 0.02, 0.01, 0.01);
    st.ks = 1.0;
    return st;  // at rest
}

void setrow(Field3d& f, int j, double value) {
    for (int k = f.krange().lo; k <= f.krange().hi; ++k)
        for (int i = f.irange().lo; i <= f.irange().hi; ++i)
            f(i, j, k) = value;
}

TEST(SideWalls, LogLawFromTheSecondRowSouthTakingVNorthTakingW) {
    EXPECT_NEAR(ratio, 0.74706, 5e-6);
    for (auto [u2, v2, w2] : {std::tuple{1.0, 0.2, 0.0}, {3.0, -0.1, 4.0}, {-2.0, 0.0, 0.5}}) {
        Storage st = sidewalls();
        setrow(st.u, 1, 9.0);
        for (int row : {2, WJ - 1}) {
            setrow(st.u, row, u2);
            setrow(st.v, row, v2);
            setrow(st.w, row, w2);
        }
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

TEST(SideWalls, StillFluidAndTheThresholdOnTheAveragedSpeed) {
    Storage st = sidewalls();
    setrow(st.u, 1, 9.0);
    setrow(st.w, 1, 9.0);
    flow::walls(st);
    EXPECT_EQ(st.u(2, 1, 2), 0.0);
    EXPECT_EQ(st.w(2, 1, 2), 0.0);
    // 5e-9 alone is below 1e-8 (so is the speed of 5e-9 in both components); a point of 1 in the
    // other component lifts the four points whose average includes it above the threshold.
    setrow(st.u, 2, 5e-9);
    setrow(st.v, 2, 5e-9);
    st.w(2, 2, 1) = 1.0;  // in the average of the u points i = 1, 2 and k = 1, 2
    st.u(2, 2, 2) = 1.0;  // in the average of the w points i = 2, 3 and k = 1, 2
    flow::walls(st);
    int lifted = 0;
    for (int k = 1; k <= WK; ++k)
        for (int i = 1; i <= WI; ++i) {
            const bool unear = (i == 1 || i == 2) && (k == 1 || k == 2);
            const bool wnear = (i == 2 || i == 3) && (k == 1 || k == 2);
            const double u1 = i == 2 && k == 2 ? ratio : unear ? 5e-9 * ratio : 0.0;
            EXPECT_NEAR(st.u(i, 1, k), u1, 1e-22 + 1e-12 * u1) << i << " " << k;
            EXPECT_NEAR(st.w(i, 1, k), wnear ? 5e-9 * ratio : 0.0, 1e-22) << i << " " << k;
            lifted += (st.u(i, 1, k) != 0.0) + (st.w(i, 1, k) != 0.0);
        }
    EXPECT_EQ(lifted, 8);
}

}  // namespace
}  // namespace riffle
