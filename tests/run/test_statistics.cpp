// Running statistics: means and second moments of a hand-made sequence of flows, exact; nothing
// added at or below the bed nor before the start time; the sums carried bit for bit through a
// restart file, so that a continued run averages as one run does; a file with sums read by a run
// without statistics, and one without sums by a run with them.
#include <gtest/gtest.h>

#include <cstring>

#include "run/driver_m.hpp"
#include "run/restart_m.hpp"
#include "run/statistics_m.hpp"
#include "support/box.hpp"
#include "support/scratch.hpp"

namespace riffle {
namespace {

// 4 x 3 x 2 cells of 0.5 x 0.4 x 0.25 with the bed at 0.1 under node column (1, 1) and far
// below elsewhere; node k sits at z = 0.25 k.
struct Sampled {
    Storage st = testsupport::box(4, 3, 2, 0.5, 0.4, 0.25);
    NodeArrays nodes;
    explicit Sampled(int enabled) {
        const Range ri{0, 4}, rj{0, 3}, rk{0, 2};
        nodes.z3.allocate(ri, rj, rk);
        nodes.elev.allocate(ri, rj);
        nodes.elev.fill(-1.0);
        nodes.elev(1, 1) = 0.1;
        for (int k = 0; k <= 2; ++k)
            for (int j = 0; j <= 3; ++j)
                for (int i = 0; i <= 4; ++i) nodes.z3(i, j, k) = 0.25 * k;
        st.stats.enabled = enabled;
        st.stats.start = 1.0;
        if (enabled == 1) allocatestatistics(st);
        st.zb.fill(-1.0);
    }
    // A uniform flow (u, v, w, p, nut) at time t.
    void sample(double t, double u, double v, double w, double p, double nut) {
        st.time = t;
        st.fx = 0.1 * u;
        st.u.fill(u), st.v.fill(v), st.w.fill(w), st.p.fill(p), st.nut.fill(nut);
        addsample(st, nodes);
    }
};

TEST(Statistics, MeansAndMomentsOfAHandMadeSequence) {
    Sampled r(1);
    r.sample(0.5, 9.0, 9.0, 9.0, 9.0, 9.0);  // before the start: not added
    // u = 1, 2, 3, 6: mean 3, u'u' = (1 + 4 + 9 + 36)/4 - 9 = 3.5; v = 2, 0, 0, 2: mean 1,
    // v'v' = 1; w = -1, 1, -1, 1: mean 0, w'w' = 1; u'v' = (2 + 0 + 0 + 12)/4 - 3 = 0.5;
    // u'w' = (-1 + 2 - 3 + 6)/4 - 0 = 1; v'w' = (-2 + 0 + 0 + 2)/4 = 0; p: mean 2.5; nut: 0.25.
    r.sample(1.0, 1.0, 2.0, -1.0, 1.0, 0.0);
    r.sample(1.5, 2.0, 0.0, 1.0, 2.0, 0.5);
    r.sample(2.0, 3.0, 0.0, -1.0, 3.0, 0.5);
    r.sample(2.5, 6.0, 2.0, 1.0, 4.0, 0.0);
    const auto f = statisticfields(r.st);
    const double expect[11] = {3.0, 1.0, 0.0, 2.5, 3.5, 1.0, 1.0, 1.0, 0.5, 0.0, 0.25};
    const auto at = [](int i, int j, int k) {
        return static_cast<std::size_t>(i + 5 * (j + 4 * k));
    };
    for (std::size_t m = 0; m < 11; ++m) {
        EXPECT_EQ(f[m][at(3, 2, 1)], expect[m]) << statisticnames[m];
        EXPECT_EQ(f[m][at(1, 1, 0)], 0.0) << statisticnames[m];  // below the bed: nothing added
    }
    EXPECT_EQ(f[0][at(1, 1, 1)], 3.0);  // 0.25 above the bed at 0.1
    EXPECT_EQ(r.st.stats.samples, 4);
    EXPECT_EQ(r.st.stats.first, 1.0);
    EXPECT_EQ(r.st.stats.last, 2.5);
    EXPECT_DOUBLE_EQ(r.st.stats.sumfx, 0.1 + 0.2 + 0.3 + 0.6);
}

TEST(Statistics, RestartCarriesTheSumsBitForBit) {
    testsupport::Scratch s;
    Sampled one(1), first(1);
    const double flows[4][5] = {{0.3, 0.1, -0.2, 7.0, 1e-3}, {0.1 / 3, 0.7, 0.2, -2.0, 2e-3},
                                {1.0 / 7, -0.4, 0.9, 0.5, 3e-3}, {0.6, 0.2, 0.0, 1.5, 4e-3}};
    const auto play = [&](Sampled& r, int from, int to) {
        for (int n = from; n < to; ++n)
            r.sample(1.0 + n, flows[n][0], flows[n][1], flows[n][2], flows[n][3], flows[n][4]);
    };
    play(one, 0, 4);
    play(first, 0, 2);
    restartwrite(first.st, 2, 2.0, s.dir.string(), "run");

    Sampled second(1), without(0);
    restartread(second.st, (s.dir / "run.dat").string());
    restartread(without.st, (s.dir / "run.dat").string());  // the sums are passed over
    EXPECT_EQ(without.st.stats.samples, 0);
    play(second, 2, 4);
    EXPECT_EQ(second.st.stats.samples, 4);
    EXPECT_EQ(second.st.stats.first, 1.0);
    EXPECT_EQ(second.st.stats.sumfx, one.st.stats.sumfx);
    for (std::size_t m = 0; m < 11; ++m) {
        const Field3d &a = one.st.stats.sum[m], &b = second.st.stats.sum[m];
        EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(double)), 0) << m;
    }

    // A file without sums starts a run with statistics afresh.
    restartwrite(without.st, 2, 2.0, s.dir.string(), "plain");
    Sampled fresh(1);
    restartread(fresh.st, (s.dir / "plain.dat").string());
    EXPECT_EQ(fresh.st.stats.samples, 0);
    EXPECT_EQ(fresh.st.stats.sum[0](3, 2, 1), 0.0);
}

}  // namespace
}  // namespace riffle
