// Running statistics: means and second moments of a hand-made sequence of flows, exact; nothing
// added at or below the bed nor before the start time; the pressure measured from its fluid mean,
// whatever its level; the mean bed shear stress of the wall-layer model and the forces on the bed
// region against hand sums; the sums carried bit for bit through a restart file, so that a
// continued run averages as one run does; a file with sums read by a run without statistics, and
// one without sums (or without the bed's) by a run with them.
#include <gtest/gtest.h>

#include <cstring>

#include "ibm/flagdeter_m.hpp"
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
                for (int i = 0; i <= 4; ++i)
                    nodes.z3(i, j, k) = 0.25 * k;
        st.stats.enabled = enabled;
        st.stats.start = 1.0;
        if (enabled == 1) allocatestatistics(st);
        st.zb.fill(-1.0);
    }
    // A uniform flow (u, v, w, nut) at time t, with the step's pressure p k + level in cell layer
    // k: node layer k gets p (k + 1/2), and the fluid nodes (59 of the 60; 20 in each layer but
    // the one under the bed's node) have the mean p (20 (0.5 + 1.5 + 2.5) - 0.5)/59 = p 89.5/59.
    // A pressure falling by `fall` per cell in x pushes the bed region downstream.
    void sample(double t, double u, double v, double w, double p, double nut, double level = 0.0,
                double fall = 0.0) {
        st.time = t;
        st.fx = 0.1 * u;
        st.u.fill(u), st.v.fill(v), st.w.fill(w), st.nut.fill(nut);
        Field3d& phi = st.mg(0).phi;
        for (int k = 0; k <= 3; ++k)
            for (int j = 0; j <= 4; ++j)
                for (int i = 0; i <= 5; ++i)
                    phi(i, j, k) = p * k + level - fall * i;
        st.p.fill(1e6 * t); // the sum of the steps' pressures: not sampled
        addsample(st, nodes);
    }
    // The wall-layer model on, with the kinematic bed stress of the columns: u*^2 = a i, its x
    // component a, its y component -a j; at node (i, j) the density times the four columns'
    // mean: dens a (i + 1/2), dens a, -dens a (j + 1/2).
    void shear(double a) {
        st.iwallmodel = 1;
        if (!st.bedshear.allocated()) st.bedshear.allocate(Range{0, 5}, Range{0, 4}, Range{0, 2});
        for (int j = 0; j <= 4; ++j)
            for (int i = 0; i <= 5; ++i) {
                st.bedshear(i, j, 0) = a * i;
                st.bedshear(i, j, 1) = a;
                st.bedshear(i, j, 2) = -a * j;
            }
    }
};

TEST(Statistics, MeansAndMomentsOfAHandMadeSequence) {
    Sampled r(1);
    r.sample(0.5, 9.0, 9.0, 9.0, 9.0, 9.0); // before the start: not added
    // u = 1, 2, 3, 6: mean 3, u'u' = (1 + 4 + 9 + 36)/4 - 9 = 3.5; v = 2, 0, 0, 2: mean 1,
    // v'v' = 1; w = -1, 1, -1, 1: mean 0, w'w' = 1; u'v' = (2 + 0 + 0 + 12)/4 - 3 = 0.5;
    // u'w' = (-1 + 2 - 3 + 6)/4 - 0 = 1; v'w' = (-2 + 0 + 0 + 2)/4 = 0; nut: 0.25; pressure at
    // node layer 1, whatever the level: p (1.5 - 89.5/59) = -p/59, mean -2.5/59.
    r.sample(1.0, 1.0, 2.0, -1.0, 1.0, 0.0);
    r.sample(1.5, 2.0, 0.0, 1.0, 2.0, 0.5, 7.0);
    r.sample(2.0, 3.0, 0.0, -1.0, 3.0, 0.5, -300.0);
    r.sample(2.5, 6.0, 2.0, 1.0, 4.0, 0.0, 1e4);
    const auto f = statisticfields(r.st);
    const double expect[11] = {3.0, 1.0, 0.0, -2.5 / 59, 3.5, 1.0, 1.0, 1.0, 0.5, 0.0, 0.25};
    const auto at = [](int i, int j, int k) {
        return static_cast<std::size_t>(i + 5 * (j + 4 * k));
    };
    const double levelroundoff = 1e-10; // levels up to 1e4 are exact to 1e4 times 2^-52
    for (std::size_t m = 0; m < 11; ++m) {
        if (m == 3) {
            EXPECT_NEAR(f[m][at(3, 2, 1)], expect[m], levelroundoff) << statisticnames[m];
        } else {
            EXPECT_EQ(f[m][at(3, 2, 1)], expect[m]) << statisticnames[m];
        }
        EXPECT_EQ(f[m][at(1, 1, 0)], 0.0) << statisticnames[m]; // below the bed: nothing added
    }
    EXPECT_EQ(f[0][at(1, 1, 1)], 3.0); // 0.25 above the bed at 0.1
    // Node layers 0 and 2: 2.5 (0.5 - 89.5/59) and 2.5 (2.5 - 89.5/59); the fluid mean is zero.
    EXPECT_NEAR(f[3][at(0, 0, 0)], 2.5 * (0.5 - 89.5 / 59), levelroundoff);
    EXPECT_NEAR(f[3][at(4, 3, 2)], 2.5 * (2.5 - 89.5 / 59), levelroundoff);
    double fluidsum = 0.0;
    for (int k = 0; k <= 2; ++k)
        for (int j = 0; j <= 3; ++j)
            for (int i = 0; i <= 4; ++i)
                fluidsum += f[3][at(i, j, k)];
    EXPECT_NEAR(fluidsum, 0.0, 60 * levelroundoff);
    EXPECT_EQ(r.st.stats.samples, 4);
    EXPECT_EQ(r.st.stats.first, 1.0);
    EXPECT_EQ(r.st.stats.last, 2.5);
    EXPECT_DOUBLE_EQ(r.st.stats.sumfx, 0.1 + 0.2 + 0.3 + 0.6);
    EXPECT_EQ(r.st.stats.bedsamples, 0); // the model off: no bed stress summed
}

TEST(Statistics, ShearStressXZIsTheCovarianceOnTheEdgesWhereTheStencilsCarryIt) {
    // One sample of u = 2 j, w = 3 j, v = 5 j (j of the face or cell). The node means are
    // 2 (j + 1/2), 3 (j + 1/2), 5 (j + 1/2). On the two x-z edges through node (i, j, k), at
    // cells j and j + 1, u w = 6 j^2 and 6 (j + 1)^2: their mean less the product of the node
    // means is 6 (j^2 + j + 1/2) - 6 (j + 1/2)^2 = 1.5, which a product of node values (0)
    // would miss. u v stays a product of node values: 0.
    Sampled r(1);
    r.st.time = 1.0;
    const auto byj = [](Field3d& f, double a) {
        for (int k = f.krange().lo; k <= f.krange().hi; ++k)
            for (int j = f.jrange().lo; j <= f.jrange().hi; ++j)
                for (int i = f.irange().lo; i <= f.irange().hi; ++i)
                    f(i, j, k) = a * j;
    };
    byj(r.st.u, 2.0);
    byj(r.st.w, 3.0);
    byj(r.st.v, 5.0);
    addsample(r.st, r.nodes);
    const auto f = statisticfields(r.st);
    for (const std::size_t at : {std::size_t{0}, std::size_t{7 + 20}, std::size_t{19 + 40}}) {
        EXPECT_EQ(f[7][at], 1.5) << at; // ReynoldsStressXZ
        EXPECT_EQ(f[8][at], 0.0) << at; // ReynoldsStressXY
    }
}

TEST(Statistics, MeanBedShearStressOfTheWallLayerModel) {
    Sampled r(1);
    r.st.dens = 2.0;
    r.shear(100.0);
    r.sample(0.5, 0.0, 0.0, 0.0, 0.0, 0.0); // before the start: not added
    r.shear(1.0);
    r.sample(1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    r.shear(3.0);
    r.sample(2.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    // Mean a = 2, density 2: 4 (i + 1/2), 4 and -4 (j + 1/2) at node (i, j), every node.
    const auto f = bedstatisticfields(r.st);
    ASSERT_EQ(f[0].size(), 20u);
    for (int j = 0, at = 0; j <= 3; ++j)
        for (int i = 0; i <= 4; ++i, ++at) {
            EXPECT_EQ(f[0][at], 4.0 * (i + 0.5)) << i << " " << j;
            EXPECT_EQ(f[1][at], 4.0);
            EXPECT_EQ(f[2][at], -4.0 * (j + 0.5));
        }
    EXPECT_EQ(r.st.stats.bedsamples, 2);
}

TEST(Statistics, BedForcesArePressuresPushOnTheBedRegionAndDrivingOnTheFlow) {
    // 4 x 3 x 2 u faces of 0.5 x 0.4 x 0.25 (face area dy dz = 0.1, plan area 2.4), density 2,
    // fx = 0.3, step pressure phi = -i^2 + 10 j + 100 k. The lowest face layer is solid and one
    // face above it, (2, 1, 2), a forcing point: each of the three solid rows takes
    // phi(1) - phi(5) = 24 times 0.1, the forcing face phi(2) - phi(3) = 5 times 0.1, 7.7 N in
    // all; the other 11 faces are the flow's, 11 x 0.05 m^3 driven by 2 x 0.3.
    Sampled r(1);
    r.st.dens = 2.0;
    r.st.fx = 0.3;
    r.st.iflagu.fill(ibm::fluid);
    Field3d& phi = r.st.mg(0).phi;
    for (int k = 0; k <= 3; ++k)
        for (int j = 0; j <= 4; ++j)
            for (int i = 0; i <= 5; ++i) {
                phi(i, j, k) = -i * i + 10.0 * j + 100.0 * k;
                r.st.iflagu(i, j, k) = k <= 1 ? ibm::solid : ibm::fluid;
            }
    r.st.iflagu(2, 1, 2) = ibm::forcing;
    const BedForces f = bedforces(r.st);
    EXPECT_NEAR(f.pressuredrag, 7.7 / 2.4, 1e-14);
    EXPECT_NEAR(f.flowdriving, 2.0 * 0.3 * 11 * 0.05 / 2.4, 1e-15);

    // Sampled with the model on: their means over the samples from the start time.
    r.shear(1.0);
    // phi = -a i: the solid rows take 3 x 4a x 0.1, the forcing face a x 0.1; fx = 0.1 u.
    r.sample(0.5, 9.0, 0.0, 0.0, 0.0, 0.0, 0.0, 50.0); // before the start
    r.sample(1.0, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0, 1.0);
    r.sample(2.0, 3.0, 0.0, 0.0, 0.0, 0.0, 0.0, 3.0);
    EXPECT_EQ(r.st.stats.forcesamples, 2);
    EXPECT_NEAR(r.st.stats.sumpressuredrag, 1.3 * (1.0 + 3.0) / 2.4, 1e-14);
    EXPECT_NEAR(r.st.stats.sumflowdriving, 2.0 * 0.4 * 11 * 0.05 / 2.4, 1e-15);
}

TEST(Statistics, RestartCarriesTheSumsBitForBit) {
    testsupport::Scratch s;
    Sampled one(1), first(1);
    const double flows[4][6] = {{0.3, 0.1, -0.2, 7.0, 1e-3, 0.1},
                                {0.1 / 3, 0.7, 0.2, -2.0, 2e-3, 1.0 / 3},
                                {1.0 / 7, -0.4, 0.9, 0.5, 3e-3, 0.7},
                                {0.6, 0.2, 0.0, 1.5, 4e-3, 1.0 / 9}};
    const auto play = [&](Sampled& r, int from, int to) {
        r.st.iflagu(2, 1, 1) = ibm::solid; // one face of the bed region, the rest the flow's
        for (int n = from; n < to; ++n) {
            r.shear(flows[n][5]);
            r.sample(1.0 + n, flows[n][0], flows[n][1], flows[n][2], flows[n][3], flows[n][4],
                     100.0 * n, flows[n][5]);
        }
    };
    const auto same = [](const Field3d& a, const Field3d& b) {
        return a.size() == b.size() &&
               std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
    };
    play(one, 0, 4);
    play(first, 0, 2);
    restartwrite(first.st, 2, 2.0, s.dir.string(), "run");

    Sampled second(1), without(0);
    restartread(second.st, (s.dir / "run.dat").string());
    restartread(without.st, (s.dir / "run.dat").string()); // the sums are passed over
    EXPECT_EQ(without.st.stats.samples, 0);
    EXPECT_EQ(second.st.stats.bedsamples, 2);
    play(second, 2, 4);
    EXPECT_EQ(second.st.stats.samples, 4);
    EXPECT_EQ(second.st.stats.bedsamples, 4);
    EXPECT_EQ(second.st.stats.first, 1.0);
    EXPECT_EQ(second.st.stats.sumfx, one.st.stats.sumfx);
    for (std::size_t m = 0; m < 11; ++m)
        EXPECT_TRUE(same(one.st.stats.sum[m], second.st.stats.sum[m])) << m;
    for (std::size_t m = 0; m < 3; ++m)
        EXPECT_TRUE(same(one.st.stats.bedsum[m], second.st.stats.bedsum[m])) << m;
    EXPECT_EQ(second.st.stats.forcesamples, 4);
    EXPECT_EQ(std::tuple(second.st.stats.sumpressuredrag, second.st.stats.sumflowdriving),
              std::tuple(one.st.stats.sumpressuredrag, one.st.stats.sumflowdriving));
    EXPECT_GT(one.st.stats.sumpressuredrag, 0.0);
    EXPECT_GT(one.st.stats.sumflowdriving, 0.0);

    // A file without sums starts a run with statistics afresh.
    restartwrite(without.st, 2, 2.0, s.dir.string(), "plain");
    Sampled fresh(1);
    restartread(fresh.st, (s.dir / "plain.dat").string());
    EXPECT_EQ(fresh.st.stats.samples, 0);
    EXPECT_EQ(fresh.st.stats.sum[0](3, 2, 1), 0.0);

    // A file with the flow's sums but not the bed's (the model off) carries the flow's; the bed's
    // start afresh, and count their own samples.
    Sampled off(1);
    for (int n = 0; n < 2; ++n)
        off.sample(1.0 + n, 0.1, 0.2, 0.3, 0.4, 0.5);
    restartwrite(off.st, 2, 2.0, s.dir.string(), "off");
    Sampled on(1);
    restartread(on.st, (s.dir / "off.dat").string());
    EXPECT_TRUE(same(on.st.stats.sum[0], off.st.stats.sum[0]));
    on.shear(2.0);
    on.sample(3.0, 0.1, 0.2, 0.3, 0.4, 0.5);
    EXPECT_EQ(std::tuple(on.st.stats.samples, on.st.stats.bedsamples), std::tuple(3, 1));
    EXPECT_EQ(bedstatisticfields(on.st)[1][7], 2.0); // x component a, unit density
}

} // namespace
} // namespace riffle
