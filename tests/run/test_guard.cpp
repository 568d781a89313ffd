// The stop requests of signals, and where a flow that is no longer finite is reported.
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>

#include "run/guard_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

TEST(Guard, SignalsAskToWriteOrToStopAndASecondStopEndsTheProcess) {
    Storage st = testsupport::box(4, 3, 2, 1.0, 1.0, 1.0);
    guard::catchsignals();
    // SIGUSR1: a write now, taken once.
    std::raise(SIGUSR1);
    guard::Request r = guard::takerequest(st);
    EXPECT_EQ(r.stop, 0);
    EXPECT_TRUE(r.write);
    r = guard::takerequest(st);
    EXPECT_FALSE(r.write);
    // SIGTERM: the process lives on, and the stop (with its write) stays asked for.
    std::raise(SIGTERM);
    for (int n = 0; n < 2; ++n) {
        r = guard::takerequest(st);
        EXPECT_EQ(r.stop, SIGTERM);
        EXPECT_TRUE(r.write);
    }
    EXPECT_EQ(guard::signalname(r.stop), "SIGTERM");
    guard::releasesignals();
    EXPECT_EQ(guard::takerequest(st).stop, 0);

    // A second stop signal, of whatever kind, ends the process as that signal does by default.
    EXPECT_EXIT(
        {
            guard::catchsignals();
            std::raise(SIGUSR2);
            std::raise(SIGINT);
            std::_Exit(0);
        },
        testing::KilledBySignal(SIGINT), "");
}

TEST(Guard, NonFiniteFlowIsFoundInsideTheBoxFirstInFieldOrder) {
    Storage st = testsupport::box(4, 3, 2, 1.0, 1.0, 1.0);
    st.istep = 7;
    st.time = 0.5;
    st.dt = 0.1;
    st.divtotal = 0.0;
    EXPECT_TRUE(guard::finite(st));
    const std::string head = "ERROR : The flow is no longer finite at step 7, time 0.5: ";

    // A NaN in the ghost layer of u comes after an infinity inside the box in w.
    st.u(0, 0, 0) = std::numeric_limits<double>::quiet_NaN();
    st.w(3, 2, 1) = -std::numeric_limits<double>::infinity();
    st.w(2, 3, 2) = std::numeric_limits<double>::infinity(); // later in k
    EXPECT_EQ(guard::nonfinitereport(st), head + "w = -Infinity at (i, j, k) = (3, 2, 1)");
    // Inside the box, u comes before w, and k before j before i.
    st.u(4, 1, 2) = std::numeric_limits<double>::infinity();
    st.u(1, 3, 1) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(guard::nonfinitereport(st), head + "u = NaN at (i, j, k) = (1, 3, 1)");
    // Only the ghost layers: they are named too.
    st.u.fill(0.0);
    st.w.fill(0.0);
    st.p(5, 4, 3) = std::numeric_limits<double>::infinity();
    EXPECT_EQ(guard::nonfinitereport(st), head + "p = Infinity at (i, j, k) = (5, 4, 3)");

    // The check itself looks at the step's divergence sum and its time step.
    st.divtotal = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(guard::finite(st));
    st.divtotal = 0.0;
    st.dt = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(guard::finite(st));
    EXPECT_EQ(guard::nonfinitereport(st), head + "the time step dt = Infinity");
}

} // namespace
} // namespace riffle
