// CFL time step: the viscous number shares the denominator with advection, the step is capped at
// 1.0, and one fast face anywhere sets the step for the whole domain.
#include <gtest/gtest.h>

#include <omp.h>

#include "flow/timestep_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

Storage restingbox() {
    Storage st = testsupport::box(8, 4, 4, 0.1, 0.2, 0.05);
    st.cfl = 0.5;
    return st;
}

TEST(TimeStep, RestViscousAndFastFace) {
    Storage st = restingbox();
    st.visc = 0.0;
    flow::timestep(st);
    EXPECT_EQ(st.dt, 1.0);  // no rate at all: the cap holds

    st.visc = 1e-3;
    const double s = 1 / 0.01 + 1 / 0.04 + 1 / 0.0025;  // 525
    flow::timestep(st);
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / (1e-3 * s));  // 0.952..., under the cap

    // u = 2 on one interior face: the two cells it bounds see 2/dx = 20 more.
    st.u(3, 2, 2) = -2.0;
    st.w(5, 1, 4) = 0.5;  // top face of a top cell: 0.5/dz = 10 in one cell only
    flow::timestep(st);
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / (20.0 + 1e-3 * s));

    // Ghost faces beyond the cells do not count.
    st.u(3, 2, 2) = 0.0;
    st.v(2, 5, 2) = 100.0;
    flow::timestep(st);
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / (10.0 + 1e-3 * s));
}

TEST(TimeStep, SameStepOnOneAndTwoThreads) {
    Storage st = restingbox();
    st.visc = 1e-6;
    for (int k = 0; k <= 5; ++k)
        for (int j = 0; j <= 5; ++j)
            for (int i = -1; i <= 9; ++i) st.u(i, j, k) = 0.1 * i - 0.03 * j * k;
    omp_set_num_threads(1);
    flow::timestep(st);
    const double one = st.dt;
    omp_set_num_threads(2);
    flow::timestep(st);
    EXPECT_EQ(st.dt, one);
    EXPECT_LT(one, 1.0);
}

}  // namespace
}  // namespace riffle
