// Smagorinsky viscosity: zero for uniform flow, the hand value for a pure shear, the ghost rules
// (periodic copies, copies of the strain at walls, the sign flip of nut at the surface).
#include <gtest/gtest.h>

#include <cmath>

#include "flow/smagorinsky_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

Storage shearbox(double a) {
    Storage st = testsupport::box(6, 4, 8, 0.1, 0.2, 0.05);
    setboundarycodes(st, 0, 1, 0);  // periodic x, side walls, free-slip top
    st.cs = 0.1;
    for (int k = 0; k <= 9; ++k)
        for (int j = 0; j <= 5; ++j)
            for (int i = -1; i <= 7; ++i) st.u(i, j, k) = 0.3 + a * (k - 0.5) * st.dz;
    return st;
}

TEST(Smagorinsky, UniformFlowAndPureShear) {
    Storage still = shearbox(0.0);
    flow::smagorinsky(still);
    for (int k = 1; k <= 8; ++k) EXPECT_EQ(still.nut(3, 2, k), 0.0);

    const double a = -2.5;
    Storage st = shearbox(a);
    flow::smagorinsky(st);
    const double delta = std::cbrt(0.1 * 0.2 * 0.05);
    for (int k = 2; k <= 7; ++k) {  // away from the ghost layers the shear is exact
        EXPECT_DOUBLE_EQ(st.s13(3, 2, k), a / 2);
        EXPECT_DOUBLE_EQ(st.sabs(3, 2, k), std::abs(a));
        EXPECT_NEAR(st.nut(3, 2, k), std::pow(0.1 * delta, 2) * std::abs(a), 1e-15);
        EXPECT_EQ(st.s11(3, 2, k), 0.0);
    }
}

TEST(Smagorinsky, GhostLayersFollowThePressureCodes) {
    Storage st = shearbox(1.0);
    st.u(2, 3, 8) += 0.4;  // some variation in x and y near the top
    st.w(4, 1, 3) = 0.2;
    flow::smagorinsky(st);
    for (int k = 1; k <= 8; ++k)
        for (int j = 1; j <= 4; ++j) {
            EXPECT_EQ(st.nut(0, j, k), st.nut(6, j, k));  // periodic x
            EXPECT_EQ(st.nut(7, j, k), st.nut(1, j, k));
            EXPECT_EQ(st.s12(0, j, k), st.s12(6, j, k));
        }
    for (int j = 1; j <= 4; ++j)
        for (int i = 1; i <= 6; ++i) {
            EXPECT_EQ(st.nut(i, j, 9), -st.nut(i, j, 8));  // free-slip top, code 1: sign flip
            EXPECT_EQ(st.s11(i, j, 9), st.s11(i, j, 8));   // the strain is copied
            EXPECT_EQ(st.nut(i, j, 0), st.nut(i, j, 1));   // bottom, code -1: plain copy
        }
    for (int k = 1; k <= 8; ++k)
        for (int i = 1; i <= 6; ++i) {
            EXPECT_EQ(st.nut(i, 0, k), -st.nut(i, 1, k));  // side walls, pressure code 1
            EXPECT_EQ(st.sabs(i, 5, k), st.sabs(i, 4, k));
        }
}

}  // namespace
}  // namespace riffle
