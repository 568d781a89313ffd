// CFL time step: advective rates of the fastest face in each direction over that direction's
// spacing plus the viscous rate, the step capped at 1.0, ghost faces left out.
#include <gtest/gtest.h>

#include "flow/timestep_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

TEST(TimeStep, UniformStreamCapAndFastestFace) {
    Storage st = testsupport::box(6, 5, 4, 0.5, 0.4, 0.1);  // 1/dx^2 + 1/dy^2 + 1/dz^2 = 110.25
    st.cfl = 0.5, st.visc = 0.0;
    flow::timestep(st);
    EXPECT_EQ(st.dt, 1.0);  // at rest without viscosity nothing limits the step but the cap

    // A uniform stream: 0.3/0.5 + 0.2/0.4 + 0.05/0.1 = 1.6, viscous rate 0.01 x 110.25.
    st.visc = 0.01;
    st.u.fill(0.3), st.v.fill(-0.2), st.w.fill(0.05);
    flow::timestep(st);
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / 2.7025);

    // One fast interior face sets the step for the whole box: v = 3 gives 3/0.4 = 7.5.
    st.v(2, 3, 2) = 3.0;
    flow::timestep(st);
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / (0.6 + 7.5 + 0.5 + 1.1025));
    // Faces beyond the ghost cells do not count.
    st.v(2, 3, 2) = -0.2;
    st.u(7, 2, 2) = st.v(2, 6, 2) = st.w(2, 2, 5) = 50.0;
    flow::timestep(st);
    EXPECT_DOUBLE_EQ(st.dt, 0.5 / 2.7025);
}

}  // namespace
}  // namespace riffle
