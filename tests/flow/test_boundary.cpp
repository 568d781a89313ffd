// Boundary rules for the three components and the pressure: periodic copies, prescribed values
// (the two-point average on the face equals the value), prescribed gradients (the one-sided
// difference over that direction's spacing equals the value), the outer ghosts, and the
// pressure's ghosts by its codes alone.
#include <gtest/gtest.h>

#include "flow/boundary_m.hpp"
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
    setboundarycodes(st, 0, 1, 0);  // periodic x, side walls, free-slip lid
    const double vs = 0.3, ws = -0.2, ub = 0.7, ut = 0.05, wb = 1.5;
    st.vbval[south] = vs;   // normal component on a value face: the face value itself
    st.wbval[south] = ws;   // tangential on a value face: mean of ghost and inner
    st.ubval[bottom] = ub;
    st.ubval[top] = ut;     // free slip with a gradient: (ghost - inner)/dz = ut
    st.wbval[bottom] = wb;  // normal component with a gradient: mirrored about the face
    const Storage before = randombox();
    flow::boundaryu(st), flow::boundaryv(st), flow::boundaryw(st);
    flow::boundaryp(st);  // p: periodic x, zero gradient y and top, zero at the bottom; no values
    for (int i = 1; i <= I; ++i) {
        for (int k = 1; k <= K; ++k) {
            EXPECT_DOUBLE_EQ(st.u(i, 0, k), -st.u(i, 1, k));  // tangential, value 0
            EXPECT_DOUBLE_EQ(0.5 * (st.w(i, 0, k) + st.w(i, 1, k)), ws);
            EXPECT_EQ(st.v(i, 0, k), vs);  // the face holds the value, the ghost extrapolates
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
        for (int j = 1; j <= J; ++j) {  // periodic: copies of the opposite interior
            EXPECT_TRUE(st.u(0, j, k) == st.u(I, j, k) && st.u(I + 1, j, k) == st.u(1, j, k));
            EXPECT_TRUE(st.u(-1, j, k) == st.u(I - 1, j, k) && st.w(I + 1, j, k) == st.w(1, j, k));
            EXPECT_TRUE(st.v(0, j, k) == st.v(I, j, k) && st.p(0, j, k) == st.p(I, j, k));
        }
}

}  // namespace
}  // namespace riffle
