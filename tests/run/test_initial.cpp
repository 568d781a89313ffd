// Initial state: the index hash at hand-worked points, the uniform start flow, the identical
// disturbance of the three components and the repeatable bed bumps.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>

#include "run/initial_m.hpp"

namespace riffle {
namespace {

TEST(Initial, IndexHashAtHandWorkedPoints) {
    // (1,1,1): m = 1, r = 0.
    EXPECT_DOUBLE_EQ(indexhash(1, 1, 1),
                     std::sin(3.0 + std::cos(19.0 - 1 + 1.0 / 3 + 1.0 / 7) + 1.0 / 9 + 1 - 1));
    // (3,2,12): m = -7 and 30 = (-4)(-7) + 2, so r = 2.
    EXPECT_DOUBLE_EQ(indexhash(3, 2, 12),
                     std::sin(3.0 + std::cos(19.0 - 3 + 2.0 / 3 + 12.0 / 7) + 3.0 / 9 + 2 - 12 + 2));
    // (0,0,0): m = 0 has no remainder; r is taken as 0.
    EXPECT_DOUBLE_EQ(indexhash(0, 0, 0), std::sin(3.0 + std::cos(19.0)));
    // (5,4,2): m = 7, r = 2.
    EXPECT_DOUBLE_EQ(indexhash(5, 4, 2),
                     std::sin(3.0 + std::cos(19.0 - 5 + 4.0 / 3 + 2.0 / 7) + 5.0 / 9 + 4 - 2 + 2));
}

Storage smallbox() {
    Storage st;
    st.imax = 6;
    st.jmax = 4;
    st.kmax = 4;
    st.ymin = 0.0;
    st.ymax = 4.0;
    st.zmax = 0.5;
    st.discharge = 2.0;
    allocation(st);
    return st;
}

TEST(Initial, UniformFlowFromTheDischarge) {
    Storage st = smallbox();
    st.iInitial = 1.0;  // a whole number: its int32 view is 0, so the discharge sets the flow
    st.xInit = 7.0;
    initialfields(st);
    for (int k = 0; k <= st.kmax + 1; ++k) {
        for (int j = 0; j <= st.jmax + 1; ++j) {
            for (int i = 0; i <= st.imax + 1; ++i) {
                ASSERT_EQ(st.u(i, j, k), 1.0);
                ASSERT_EQ(st.vo(i, j, k), 0.0);
                ASSERT_EQ(st.w(i, j, k), 0.0);
                ASSERT_EQ(st.p(i, j, k), 0.0);
                ASSERT_EQ(st.fuo(i, j, k), 0.0);
            }
        }
    }
    EXPECT_EQ(st.u(-1, 2, 2), 0.0);
    EXPECT_EQ(st.w(2, 2, -1), 0.0);
    EXPECT_EQ(st.mg(st.lmin).phi(0, 0, 0), 0.0);
}

TEST(Initial, DisturbanceIsTheSameForAllThreeComponents) {
    Storage st = smallbox();
    st.iInitial = std::bit_cast<double>(std::uint64_t{1});  // int32 view 1: keep the given start
    st.xInit = 0.3;
    st.yInit = 0.1;
    st.zInit = -0.2;
    st.iPerturb = std::bit_cast<double>(std::uint64_t{1});
    st.amplitude = 0.05;
    initialfields(st);
    int checked = 0;
    for (int k = 0; k <= st.kmax + 1; ++k) {
        for (int j = 0; j <= st.jmax + 1; ++j) {
            for (int i = 0; i <= st.imax + 1; ++i) {
                const double d = (indexhash(i, j, k) - 0.5) * 2.0 * 0.05;
                ASSERT_NEAR(st.u(i, j, k) - 0.3, d, 1e-15);
                ASSERT_NEAR(st.v(i, j, k) - 0.1, d, 1e-15);
                ASSERT_NEAR(st.w(i, j, k) + 0.2, d, 1e-15);
                ASSERT_EQ(st.uo(i, j, k), st.u(i, j, k));
                ++checked;
            }
        }
    }
    EXPECT_EQ(checked, 8 * 6 * 6);
}

TEST(Initial, BedBumpsAreBoundedAndRepeatable) {
    Storage st = smallbox();
    Field2d a({0, st.imax}, {0, st.jmax}), b({0, st.imax}, {0, st.jmax});
    a.fill(1.0);
    b.fill(1.0);
    st.BAmplitude = 0.0;
    bedroughening(st, a);
    for (int j = 0; j <= st.jmax; ++j) EXPECT_EQ(a(3, j), 1.0);

    st.BAmplitude = 0.01;
    bedroughening(st, a);
    bedroughening(st, b);
    double lo = 1.0, hi = 1.0;
    for (int j = 0; j <= st.jmax; ++j) {
        for (int i = 0; i <= st.imax; ++i) {
            EXPECT_EQ(a(i, j), b(i, j));
            lo = std::min(lo, a(i, j));
            hi = std::max(hi, a(i, j));
        }
    }
    EXPECT_GE(lo, 0.99);
    EXPECT_LT(hi, 1.01);
    EXPECT_GT(hi - lo, 0.005);  // 35 draws do spread over the range
}

}  // namespace
}  // namespace riffle
