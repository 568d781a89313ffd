// Wall law at forcing points: the friction-velocity laws against hand values, the zero guards, the
// shift of a point within z0 of the bed, the inverse-distance image velocity (block bounds,
// weights, rounding), the eddy viscosity stepped out to a linear profile, and the forcing loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "ibm/flagdeter_m.hpp"
#include "ibm/immersing_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "run/casefile_m.hpp"
#include "support/ibm_bed.hpp"

namespace riffle::ibm {
namespace {

using testsupport::logratio;
using testsupport::relerr;

// The flatbed box of tests/support: cells 0.5 x 0.4 x 0.1, lid at 0.8.
using testsupport::flatbed;

TEST(WallLaw, FrictionVelocityLawsMatchHandValues) {
    // ks = 1.2 mm: z0 = 1.2/12 mm = 1e-4 m. Rough wall, Ut = 0.5 at d = 0.1: ln(d/z0) = ln 1000 =
    // 6.907755278982137, u* = 0.4 * 0.5/6.907755278982137 = 0.028952965460216792; the profile at
    // dP = 0.01 is (u*/0.4) ln 100 = 0.5 ln 100/ln 1000 = 1/3.
    const double z0 = 1e-4, visc = 1e-6;
    EXPECT_LT(relerr(roughnesslength(1.2), z0), 1e-12);
    EXPECT_LT(relerr(roughustar(0.5, 0.1, z0), 0.028952965460216792), 1e-12);
    EXPECT_LT(relerr(roughprofile(roughustar(0.5, 0.1, z0), 0.01, z0), 1.0 / 3.0), 1e-12);
    // The implicit laws: u* and d chosen, Ut the value that gives them, y+ = d u*/visc.
    //   smooth  Ut/u* = 2.5 ln y+ + 5.1:  y+ = 500: 2.5 * 6.214608098422191 + 5.1 = 20.636520246
    //   viscous y+ <= 5, Ut/u* = y+;  buffer  Ut/u* = 5 ln y+ - 3.05: y+ = 15: 10.490251005511
    //   log     Ut/u* = 2.5 ln y+ + 5.5: y+ = 200: 18.745793416370, y+ = 5000: 26.792982978541
    struct Case {
        bool threelayer;
        double ustar, d, ut;
        Layer layer;
    };
    for (const Case c : {Case{false, 0.05, 0.01, 1.0318260123027738, Layer::log},
                         Case{false, 0.004, 0.002, 0.04119441541679836, Layer::log}, // y+ 8
                         Case{false, 0.1, 0.5, 3.2149445711025706, Layer::log},      // y+ 5e4
                         Case{true, 0.01, 2e-4, 0.02, Layer::viscous},               // y+ 2
                         Case{true, 0.01, 1.5e-3, 0.10490251005511052, Layer::buffer},
                         Case{true, 0.02, 0.01, 0.3749158683274018, Layer::log},
                         Case{true, 0.05, 0.1, 1.33964914892703, Layer::log}}) {
        const UstarSolve s =
            c.threelayer ? threelayerustar(c.ut, c.d, visc, z0) : smoothustar(c.ut, c.d, visc, z0);
        ASSERT_TRUE(s.converged) << c.ut;
        EXPECT_LT(relerr(s.ustar, c.ustar), 1e-7) << c.ut;
        EXPECT_TRUE(!c.threelayer || s.layer == c.layer) << c.ut;
    }
    // Just inside the viscous sublayer from a start far above it Newton hops between the layers
    // and gives up; the fixed-point iteration then lands on u* = sqrt(visc Ut/d).
    const UstarSolve s = threelayerustar(0.13803842646026171, 1e-4, visc, roughnesslength(1.0));
    ASSERT_TRUE(s.converged);
    EXPECT_FALSE(s.newton);
    EXPECT_EQ(s.layer, Layer::viscous);
    EXPECT_LT(relerr(s.ustar, std::sqrt(1e-6 * 0.13803842646026171 / 1e-4)), 1e-12);
}

TEST(WallLaw, NoTangentialFlowOrNoRoomToTheBedGivesZero) {
    // Flow straight up from the bed leaves nothing along it. Within z0 of the bed the
    // inverse-distance variants set no velocity (the trilinear ones move P out, see below); the
    // eddy viscosity vanishes within 1e-6 of the bed and is nut(R) dP/2dP = 1/2 of a uniform nut
    // just beyond.
    Storage up = flatbed(0.02, 0.0, 0.0, 0.7), along = flatbed(0.02, 0.5, 0.0, 0.0);
    along.nut.fill(1.0);
    const Point3 f{1.3, 0.9, 0.02};
    for (int variant = 0; variant < 4; ++variant) {
        up.iIBM = along.iIBM = variant / 2;
        up.ibed = along.ibed = variant % 2;
        double value = 99.0, nut = 99.0;
        for (Component c : {Component::x, Component::y, Component::z}) {
            EXPECT_EQ(wallvelocity(BedView(up), {1.3, 0.9, 0.15}, f, c, value), 0.0) << variant;
            EXPECT_EQ(value, 0.0) << variant;
        }
        wallvelocity(BedView(along), {f.x, f.y, f.z + 0.9 * roughnesslength(1.0)}, f, Component::x,
                     value);
        EXPECT_TRUE(along.iIBM == 0 || value == 0.0) << variant;
        walleddy(BedView(along), {f.x, f.y, f.z + 5e-7}, f, nut);
        EXPECT_EQ(nut, 0.0);
        walleddy(BedView(along), {f.x, f.y, f.z + 1e-5}, f, nut);
        EXPECT_NEAR(nut, 0.5, 1e-12);
    }
}

TEST(WallLaw, PointWithinRoughnessLengthMovesOutAlongTheNormal) {
    // Inclined bed z = 0.1 + 0.3 x - 0.2 y: a point straight above F within z0 (where ln(dP/z0)
    // < 0 would reverse the flow) moves to z0 + 1e-8 along the bed normal (-0.3, 0.2, 1)/|.| and
    // gives the velocity of the point there.
    Storage st = flatbed(0.0, 0.5, 0.0, 0.0);
    const double z0 = roughnesslength(st.ks), dp = z0 + 1e-8;
    testsupport::setbed(st, [](double x, double y) { return 0.1 + 0.3 * x - 0.2 * y; });
    const Point3 g{1.3, 0.9, 0.1 + 0.3 * 1.3 - 0.2 * 0.9};
    const double s = dp / std::sqrt(0.09 + 0.04 + 1.0);
    for (int ibed : {0, 1}) {
        st.ibed = ibed;
        double within = 99.0, along = -99.0;
        wallvelocity(BedView(st), {g.x, g.y, g.z + 0.4 * z0}, g, Component::x, within);
        wallvelocity(BedView(st), {g.x - 0.3 * s, g.y + 0.2 * s, g.z + s}, g, Component::x, along);
        EXPECT_LT(relerr(within, along), 1e-9) << "ibed " << ibed;
        EXPECT_GT(within, 0.0);
    }
}

// Makes the listed u points fluid with their values, all other u points solid; returns the
// inverse-distance mean at r of those inside the block by its definition: weights
// ((rmax - d)/(rmax d))^2, rmax the largest of their distances.
struct Q {
    int i, j, k;
    double value;
    bool inside;
};
double fluidmean(Storage& st, std::initializer_list<Q> qs, Point3 r) {
    auto dist = [&](const Q& q) {
        return std::hypot(q.i * st.dx - r.x, (q.j - 0.5) * st.dy - r.y, (q.k - 0.5) * st.dz - r.z);
    };
    double rmax = 0.0, sumwq = 0.0, sumw = 0.0;
    st.iflagu.fill(-1);
    for (const Q& q : qs) {
        st.iflagu(q.i, q.j, q.k) = 1;
        st.u(q.i, q.j, q.k) = q.value;
        if (q.inside) rmax = std::max(rmax, dist(q));
    }
    for (const Q& q : qs) {
        const double w = q.inside ? std::pow((rmax - dist(q)) / (rmax * dist(q)), 2) : 0.0;
        sumwq += w * q.value;
        sumw += w;
    }
    return sumwq / sumw;
}

TEST(WallLaw, InverseDistanceImageVelocity) {
    Storage st = flatbed(-0.02, 0.0, 0.0, 0.0);
    st.iIBM = 1;
    st.ibed = 1;
    const double z0 = roughnesslength(st.ks);
    double u = 99.0;
    // Bed at -0.02 below u(3,3,2): R = (1.5, 1.0, 0.32). Its block in z is centred on the nearest
    // index 4 (z 0.35), so k = 2..7; in x, i = 1..6 (rounded down); in y, j = 1..6. Four fluid
    // points inside the block, three outside it with large values that must not count.
    double mean = fluidmean(st,
                            {{3, 3, 3, 0.4, true},
                             {4, 3, 2, 0.9, true},
                             {3, 6, 4, -0.3, true},
                             {1, 3, 7, 0.6, true},
                             {3, 0, 3, 50.0, false},
                             {3, 3, 1, 70.0, false},
                             {7, 3, 3, 90.0, false}},
                            {1.5, 1.0, 0.32});
    EXPECT_TRUE(searchu(BedView(st), 3, 3, 2, u));
    EXPECT_LT(relerr(u, mean * logratio(0.17, 0.34, z0)), 1e-12);

    // Bed z = c + x/2 under u(3,2,5) = (1.5, 0.6, 0.45), 0.375 above it: the image point is
    // R = (1.35, 0.6, 0.75), at x index 2.7 of the u grid. Rounded down the block is i = 0..5
    // (rounded to nearest it would be 1..6): fluid points at i = 0 and i = 6 tell them apart. The
    // z block is k = 6..9 (nearest index 8), so k = 5 is out.
    const double s = 0.5, h = 0.375, px = 1.5, pz = 0.45;
    testsupport::setbed(st, [&](double x, double) { return pz - h + s * (x - px); });
    const double shift = h / (1.0 + s * s); // n = shift (-s, 0, 1)
    mean = fluidmean(st,
                     {{0, 2, 8, 0.5, true},
                      {2, 2, 7, 0.8, true},
                      {4, 3, 8, -0.2, true},
                      {6, 2, 8, 40.0, false},
                      {3, 2, 5, 60.0, false}},
                     {px - s * shift, 0.6, pz + shift});
    // V = (q, 0, 0) at R; its part along the bed keeps (1 - ex^2) = 1/(1 + s^2) of q in x.
    const double dp = h / std::sqrt(1.0 + s * s);
    EXPECT_TRUE(searchu(BedView(st), 3, 2, 5, u));
    EXPECT_LT(relerr(u, mean / (1.0 + s * s) * logratio(dp, 2.0 * dp, z0)), 1e-9);
}

TEST(WallLaw, EddyViscosityStepsOutPastForcingCellsToTheLinearProfile) {
    // nut = c (z - zb) above the two lowest layers, nonsense in them (forcing cells): the
    // trilinear variant steps R out past them, and nut(R) dP/(dP + |R - P|) = c dP wherever R ends.
    Storage st = flatbed(0.01, 0.0, 0.0, 0.0);
    testsupport::setfield(
        st.nut, st, 3, [](double, double, double z) { return z < 0.2 ? 1e6 : 3.0 * (z - 0.01); });
    testsupport::setfield(st.iflagp, st, 3,
                          [](double, double, double z) { return z < 0.2 ? 0 : 1; });
    for (int k = 1; k <= 2; ++k) {
        double nut = 99.0;
        EXPECT_TRUE(searchnut(BedView(st), 3, 3, k, nut));
        EXPECT_LT(relerr(nut, 3.0 * ((k - 0.5) * st.dz - 0.01)), 1e-12) << "k " << k;
    }
}

TEST(Immersing, ForcingPointsFollowTheLogLaw) {
    // Flat bed at 0.15 under cells 0.5 x 0.4 x 0.2 between side walls: u and v forcing points at
    // zc(2) = 0.3, dP = 0.15, w forcing faces at z(1) = 0.2.
    for (int iibm : {0, 1}) {
        Storage st = testsupport::roughbox(6, 5, 6, 0.5, 0.4, 0.2);
        setboundarycodes(st, 0, 1, 0);
        st.iIBM = iibm;
        st.zb.fill(0.15);
        st.u.fill(0.6);
        st.v.fill(-0.2);
        st.w.fill(0.1);
        flagdeter(st);
        immersing(st);
        // u and v follow the log law, w keeps no velocity normal to the bed. The inverse-distance
        // variant takes the image point at 2 dP; the trilinear one steps it out from 0.45 by
        // dy/8 = 0.05 until its stencils are fluid, i.e. to zc(3) = 0.5: d = 0.2 + dP = 0.35.
        const double z0 = roughnesslength(st.ks), dp = 0.15, d = iibm == 0 ? 0.35 : 0.3;
        EXPECT_LT(relerr(st.u(2, 3, 2), 0.6 * logratio(dp, d, z0)), 1e-12) << iibm;
        EXPECT_LT(relerr(st.v(4, 1, 2), -0.2 * logratio(dp, d, z0)), 1e-12) << iibm;
        EXPECT_EQ(st.w(5, 5, 1), 0.0);
        // The bed rises by one cell and is classified again: the forcing follows the new flags.
        st.zb.fill(0.35);
        st.u.fill(0.6);
        flagdeter(st);
        immersing(st);
        EXPECT_LT(relerr(st.u(2, 3, 3), 0.6 * logratio(dp, d, z0)), 1e-12) << iibm;
    }
}

} // namespace
} // namespace riffle::ibm
