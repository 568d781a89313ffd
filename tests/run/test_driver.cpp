// Driver pieces: the output schedule and the averaging of staggered fields to the grid nodes.
#include <gtest/gtest.h>

#include "run/driver_m.hpp"
#include "run/initial_m.hpp"

namespace riffle {
namespace {

TEST(Driver, OutputScheduleWritesOnCrossingAMultiple) {
    // otime = 1 and dt = 0.25 from time 0: steps 4, 8, 12 end on multiples and write.
    std::vector<int> written;
    for (int step = 1; step <= 12; ++step)
        if (crossed(0.25 * step, 0.25 * (step - 1), 1.0)) written.push_back(step);
    EXPECT_EQ(written, (std::vector<int>{4, 8, 12}));
    EXPECT_TRUE(crossed(2.1, 0.9, 1.0));   // two multiples crossed: one write
    EXPECT_FALSE(crossed(0.1, -0.1, 0.5)); // truncation toward zero: both give 0
    EXPECT_FALSE(crossed(0.5, 0.0, 0.0));  // a zero interval never writes
    EXPECT_EQ(trunc32(3e10), INT32_MIN);
}

Storage box(int imax, int jmax, int kmax) {
    Storage st;
    st.imax = imax;
    st.jmax = jmax;
    st.kmax = kmax;
    allocation(st);
    initialfields(st);
    return st;
}

TEST(Driver, NodeAveragingOfLinearFieldsIsExactAboveTheBed) {
    Storage st = box(4, 4, 4);
    NodeArrays nodes;
    const Range ri{0, 4};
    nodes.z3.allocate(ri, ri, ri);
    nodes.elev.allocate(ri, ri);
    nodes.elev.fill(0.5);
    for (int k = 0; k <= 4; ++k)
        for (int j = 0; j <= 4; ++j)
            for (int i = 0; i <= 4; ++i)
                nodes.z3(i, j, k) = k; // dz = 1, zmin = 0

    // Fields linear in the cell-centre coordinates: the node value is the linear function's value
    // at the node, whatever the stencil, if the stencil is centred on the node.
    for (int k = 0; k <= 5; ++k)
        for (int j = 0; j <= 5; ++j)
            for (int i = 0; i <= 5; ++i) {
                const double xc = i - 0.5, yc = j - 0.5, zc = k - 0.5;
                st.u(i, j, k) = 2.0 * yc + 3.0 * zc; // u faces sit at x = i
                st.v(i, j, k) = xc - zc;             // v faces at y = j
                st.w(i, j, k) = xc + yc;             // w faces at z = k
                st.p(i, j, k) = xc + 10 * yc + 100 * zc;
                st.vort(i, j, k) = 1.0;
                st.qc(i, j, k) = zc;
            }
    const auto at = [&](NodeField f, int i, int j, int k) {
        Field3d out(ri, ri, ri);
        nodeaveraging(st, nodes, f, out);
        return out(i, j, k);
    };
    EXPECT_DOUBLE_EQ(at(NodeField::unode, 2, 3, 1), 2.0 * 3 + 3.0 * 1);
    EXPECT_DOUBLE_EQ(at(NodeField::vnode, 2, 3, 1), 2.0 - 1);
    EXPECT_DOUBLE_EQ(at(NodeField::wnode, 2, 3, 1), 2.0 + 3);
    EXPECT_DOUBLE_EQ(at(NodeField::pnode, 2, 3, 1), 2.0 + 30 + 100);
    EXPECT_DOUBLE_EQ(at(NodeField::qnode, 1, 1, 3), 3.0);
    // k = 0 lies below the bed at 0.5: zero velocity, vorticity and Q, but the pressure stays.
    EXPECT_EQ(at(NodeField::unode, 2, 3, 0), 0.0);
    EXPECT_EQ(at(NodeField::vortnode, 2, 3, 0), 0.0);
    EXPECT_DOUBLE_EQ(at(NodeField::pnode, 2, 3, 0), 2.0 + 30);
    // A node exactly on the bed counts as at or below it.
    nodes.elev(1, 1) = 1.0;
    EXPECT_EQ(at(NodeField::unode, 1, 1, 1), 0.0);
}

} // namespace
} // namespace riffle
