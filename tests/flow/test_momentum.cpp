// Momentum predictor: a uniform flow stays uniform, the Adams-Bashforth bookkeeping of the
// right-hand sides, the east/north/top loop limits by boundary code, and thread independence.
#include <gtest/gtest.h>

#include <omp.h>

#include <cmath>
#include <random>

#include "flow/xvelocity_m.hpp"
#include "flow/yvelocity_m.hpp"
#include "flow/zvelocity_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

Storage box() {
    Storage st = testsupport::box(8, 6, 4, 0.1, 0.2, 0.05);
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

void randomise(Storage& st, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> r(-1.0, 1.0);
    for (Field3d* a : {&st.uo, &st.vo, &st.wo, &st.fu, &st.fv, &st.fw}) {
        for (std::size_t n = 0; n < a->size(); ++n) a->data()[n] = r(gen);
    }
    for (std::size_t n = 0; n < st.nut.size(); ++n) st.nut.data()[n] = 1e-3 * (1.0 + r(gen));
}

TEST(Momentum, UniformFlowIsUnchangedAndForcingIntegratesByAdamsBashforth) {
    Storage st = box();
    st.uo.fill(0.4);
    st.vo.fill(-0.1);
    st.wo.fill(0.05);
    st.nut.fill(2e-3);
    predict(st);
    for (int k = 1; k <= 4; ++k)
        for (int j = 1; j <= 6; ++j)
            for (int i = 1; i <= 8; ++i) {
                ASSERT_EQ(st.u(i, j, k), 0.4);
                ASSERT_EQ(st.v(i, j, k), -0.1);
                ASSERT_EQ(st.fw(i, j, k), 0.0);
            }
    // A uniform driving force: H = fx everywhere. First step 1.5 dt fx (no earlier H), then
    // dt (1.5 H - 0.5 Hold), with fo taking the earlier H.
    st.fx = 2.0;
    st.fz = -9.81;
    predict(st);
    EXPECT_DOUBLE_EQ(st.u(3, 2, 2), 0.4 + 1.5 * 0.01 * 2.0);
    EXPECT_DOUBLE_EQ(st.w(3, 2, 2), 0.05 + 1.5 * 0.01 * -9.81);
    st.fx = 4.0;
    predict(st);
    EXPECT_DOUBLE_EQ(st.u(3, 2, 2), 0.4 + 0.01 * (1.5 * 4.0 - 0.5 * 2.0));
    EXPECT_EQ(st.fuo(3, 2, 2), 2.0);
    EXPECT_EQ(st.fu(3, 2, 2), 4.0);
    predict(st);  // unchanged inputs: the new and the old right-hand side agree
    EXPECT_EQ(st.fuo(5, 5, 1), st.fu(5, 5, 1));
    // A zero density makes the source NaN rather than hiding the bad input.
    st.dens = 0.0;
    predict(st);
    EXPECT_TRUE(std::isnan(st.u(1, 1, 1)));
}

TEST(Momentum, LastPointIsLeftToTheBoundaryUnlessPeriodic) {
    for (int code : {0, -1, 1}) {
        Storage st = box();
        st.fx = st.fy = st.fz = 1.0;
        st.ibu[east] = st.ibv[north] = st.ibw[top] = code;
        st.u.fill(-7.0);
        st.v.fill(-7.0);
        st.w.fill(-7.0);
        predict(st);
        const bool computed = code == 0;
        EXPECT_EQ(st.u(8, 3, 2) != -7.0, computed) << code;
        EXPECT_EQ(st.v(4, 6, 2) != -7.0, computed) << code;
        EXPECT_EQ(st.w(4, 3, 4) != -7.0, computed) << code;
        EXPECT_NE(st.u(7, 3, 2), -7.0);
        EXPECT_EQ(st.u(0, 3, 2), -7.0);  // the west face is never predicted
    }
}

TEST(Momentum, CentralAdvectionOfAShearWave) {
    // u = sin(2 pi z) carried by w = W: the flux difference -(d/dz)(w u) at a u point is the
    // second-order central estimate -W 2 pi cos(2 pi z) (1 + O(dz^2)).
    Storage st = box();
    st.visc = 0.0;
    const double W = 0.3, pi = std::acos(-1.0);
    for (int k = 0; k <= 5; ++k)
        for (int j = 0; j <= 7; ++j)
            for (int i = -1; i <= 9; ++i) st.uo(i, j, k) = std::sin(2 * pi * (k - 0.5) * st.dz);
    st.wo.fill(W);
    flow::xvelocity(st);
    const double z = 1.5 * st.dz;  // k = 2
    const double exact = -W * 2 * pi * std::cos(2 * pi * z);
    const double kh = 2 * pi * st.dz;
    // With w uniform the flux difference is the central difference of u over 2 dz, which for a
    // sine of wavenumber k is the exact derivative times sin(k dz)/(k dz).
    EXPECT_NEAR(st.fu(4, 3, 2), exact * std::sin(kh) / kh, 1e-12);
}

TEST(Momentum, SameResultsOnOneAndTwoThreads) {
    Storage one = box(), two = box();
    randomise(one, 7);
    randomise(two, 7);
    omp_set_num_threads(1);
    predict(one);
    omp_set_num_threads(2);
    predict(two);
    for (std::size_t n = 0; n < one.u.size(); ++n) ASSERT_EQ(one.u.data()[n], two.u.data()[n]);
    for (std::size_t n = 0; n < one.v.size(); ++n) ASSERT_EQ(one.v.data()[n], two.v.data()[n]);
    for (std::size_t n = 0; n < one.w.size(); ++n) ASSERT_EQ(one.w.data()[n], two.w.data()[n]);
    for (std::size_t n = 0; n < one.fwo.size(); ++n) ASSERT_EQ(one.fwo.data()[n], two.fwo.data()[n]);
}

}  // namespace
}  // namespace riffle
