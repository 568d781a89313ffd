// Bed point search: projection onto one bilinear patch (flat and inclined planes against the
// analytic foot, a zero coordinate, slow convergence accepted or refused), the searches of the
// four point kinds seen through the value that the wall law gives (flat bed, inclined bed, ties
// between equal candidates), and the stop with its message when no candidate is found.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "support/box.hpp"

namespace riffle::ibm {
namespace {

// Point at distance dP above a flat bed whose image point is 2 dP above it, in a uniform stream
// of speed U along the bed: u* = kappa U / ln(2 dP/z0) and u(P) = (u*/kappa) ln(dP/z0).
double loglawratio(double dp, double z0) { return std::log(dp / z0) / std::log(2.0 * dp / z0); }

using testsupport::flatbed;

// ---- projection onto a patch ----------------------------------------------------------------

TEST(PatchFoot, FlatPatchFootStraightBelow) {
    const PatchFoot r = patchfoot(0.5, 1.5, 0.5, 1.5, 0.3, 0.3, 0.3, 0.3, {0.8, 1.1, 2.0});
    EXPECT_EQ(r.foot.x, 0.8);
    EXPECT_EQ(r.foot.y, 1.1);
    EXPECT_EQ(r.foot.z, 0.3);
    EXPECT_LE(r.passes, 2); // the plane z = c0 is met on the first pass, confirmed on the second
    EXPECT_LE(r.err, 1e-8);
}

TEST(PatchFoot, InclinedPlaneFootIsTheAnalyticProjection) {
    // Plane z = a + b x + c y; the foot of p is p - (plane(p) - pz)/(b^2 + c^2 + 1) (b, c, -1).
    const double a = 0.2, b = 0.3, c = -0.2;
    auto plane = [&](double x, double y) { return a + b * x + c * y; };
    const double x1 = 1.0, x2 = 1.5, y1 = 2.0, y2 = 2.4;
    int checked = 0;
    for (const Point3 p : {Point3{1.2, 2.1, 1.0}, Point3{1.4, 2.3, 0.5}, Point3{1.0, 2.0, -0.3}}) {
        const PatchFoot r = patchfoot(x1, x2, y1, y2, plane(x1, y1), plane(x2, y1), plane(x1, y2),
                                      plane(x2, y2), p);
        const double s = (plane(p.x, p.y) - p.z) / (b * b + c * c + 1.0);
        EXPECT_NEAR(r.foot.x, p.x - s * b, 1e-10);
        EXPECT_NEAR(r.foot.y, p.y - s * c, 1e-10);
        EXPECT_NEAR(r.foot.z, p.z + s, 1e-10);
        EXPECT_NEAR(r.foot.z, plane(r.foot.x, r.foot.y), 1e-12); // on the surface
        EXPECT_LT(r.passes, patchmaxpasses);
        ++checked;
    }
    EXPECT_EQ(checked, 3);
}

TEST(PatchFoot, ZeroCoordinateUsesTheSmallDivisor) {
    // Foot (0, 0, 0): every new coordinate is exactly 0.0 from the first pass on. Divided by
    // 1e-8 the second pass shows no change; divided by the value itself it would never converge.
    const PatchFoot r = patchfoot(-1.0, 1.0, -1.0, 1.0, 0.0, 0.0, 0.0, 0.0, {0.0, 0.0, 1.0});
    EXPECT_EQ(r.passes, 2);
    EXPECT_EQ(r.err, 0.0);
    EXPECT_EQ(r.foot.x, 0.0);
    EXPECT_EQ(r.foot.y, 0.0);
    EXPECT_EQ(r.foot.z, 0.0);
}

TEST(PatchFoot, FootExactlyOnThePatchBoundIsInsideTheBounds) {
    // Plane z = x over [0, 1] x [0, 1]; the point (0.5, 0.5, 1.5) projects exactly onto x = x2.
    const PatchFoot r = patchfoot(0.0, 1.0, 0.0, 1.0, 0.0, 1.0, 0.0, 1.0, {0.5, 0.5, 1.5});
    EXPECT_EQ(r.foot.x, 1.0);
    EXPECT_EQ(r.foot.y, 0.5);
    EXPECT_EQ(r.foot.z, 1.0);
}

// A steep plane across the diagonal, z = a (x - y): the alternating minimisation along x and y
// contracts only by about (a^2/(1 + a^2))^2 per pass.
PatchFoot steepfoot(double a, double pz) {
    auto z = [a](double x, double y) { return a * (x - y); };
    return patchfoot(1.0, 2.0, 1.0, 2.0, z(1, 1), z(2, 1), z(1, 2), z(2, 2), {1.5, 1.5, pz});
}

TEST(PatchFoot, SlowConvergenceWithinTheCoarseToleranceIsAccepted) {
    testing::internal::CaptureStdout();
    const PatchFoot r = steepfoot(8.0, 3.0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(r.passes, patchmaxpasses);
    EXPECT_GT(r.err, 1e-8);
    EXPECT_LE(r.err, 1e-4);
    EXPECT_TRUE(out.empty()) << out;
    EXPECT_NE(r.foot.x, 1.5); // the last iterate, not the centre
    EXPECT_NEAR(r.foot.z, 8.0 * (r.foot.x - r.foot.y), 1e-12);
}

TEST(PatchFoot, NoConvergenceWarnsAndGivesThePatchCentre) {
    testing::internal::CaptureStdout();
    const PatchFoot r = steepfoot(12.0, 40.0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(r.passes, patchmaxpasses);
    EXPECT_GT(r.err, 1e-4);
    EXPECT_EQ(r.foot.x, 1.5);
    EXPECT_EQ(r.foot.y, 1.5);
    EXPECT_EQ(r.foot.z, 0.0);
    const std::string head = " Warning : The immersed boundary is not converged yet ";
    ASSERT_EQ(out.rfind(head, 0), 0u) << out;
    EXPECT_EQ(std::stod(out.substr(head.size())), r.err); // the error follows, all its digits
}

// ---- searches on a flat bed: the foot straight below ------------------------------------------

TEST(PointSearch, FlatBedFootStraightBelowForAllFourVariants) {
    // u, v from the log law at their own height; dP = zc(k) - zb for u and v, the rough-wall
    // pairing makes u(P) = U ln(dP/z0)/ln(2 dP/z0) in variants 2 and 4 whatever U is.
    const double zbed = 0.02, uu = 0.7, vv = -0.3;
    int checked = 0;
    for (int iibm : {0, 1}) {
        Storage st = flatbed(zbed, uu, vv, 0.0);
        st.iIBM = iibm;
        st.ibed = 1;
        const double z0 = roughnesslength(st.ks);
        for (int k = 1; k <= 3; ++k) {
            const double dp = (k - 0.5) * st.dz - zbed;
            double u = 99.0, v = 99.0;
            searchu(st, 3, 2, k, u);
            searchv(st, 3, 2, k, v);
            EXPECT_NEAR(u, uu * loglawratio(dp, z0), 1e-12) << "iIBM " << iibm << " k " << k;
            EXPECT_NEAR(v, vv * loglawratio(dp, z0), 1e-12) << "iIBM " << iibm << " k " << k;
            ++checked;
        }
    }
    EXPECT_EQ(checked, 6);
}

TEST(PointSearch, FlatBedSmoothWallVariantsUseTheSmoothFrictionVelocity) {
    const double zbed = 0.02, uu = 0.5;
    Storage st = flatbed(zbed, uu, 0.0, 0.0);
    const double z0 = roughnesslength(st.ks);
    const double dp = 1.5 * st.dz - zbed; // k = 2
    for (int iibm : {0, 1}) {
        st.iIBM = iibm;
        st.ibed = 0;
        const UstarSolve s = iibm == 0 ? smoothustar(uu, 2.0 * dp, st.visc, z0)
                                       : threelayerustar(uu, 2.0 * dp, st.visc, z0);
        ASSERT_TRUE(s.converged);
        double u = 99.0;
        searchu(st, 2, 3, 2, u);
        EXPECT_NEAR(u, s.ustar / kappa * std::log(dp / z0), 1e-10) << "iIBM " << iibm;
    }
}

TEST(PointSearch, FlatBedWallNormalVelocityIsRemoved) {
    // The bed normal is vertical: a w point keeps no velocity at all, u and v keep the log law.
    Storage st = flatbed(0.0, 0.6, 0.2, 0.3);
    st.ibed = 1;
    for (int iibm : {0, 1}) {
        st.iIBM = iibm;
        double w = 99.0;
        searchw(st, 2, 2, 1, w);
        EXPECT_EQ(w, 0.0) << "iIBM " << iibm;
    }
}

TEST(PointSearch, InclinedBedFootOnTheNormal) {
    // Bed z = z1 + s x. A w point over it is dP = (pz - bed(px))/sqrt(1 + s^2) from the bed; a
    // uniform stream along the bed is purely tangential, so w(P) = W ln(dP/z0)/ln(2 dP/z0).
    const double slope = 0.2, zlow = 0.05;
    Storage st = flatbed(0.0, 0.0, 0.0, 0.0);
    st.ibed = 1;
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i)
            st.zb(i, j) = zlow + slope * (i - 0.5) * st.dx;
    const double speed = 0.8, len = std::sqrt(1.0 + slope * slope);
    st.u.fill(speed / len);
    st.w.fill(speed * slope / len);
    const double z0 = roughnesslength(st.ks);
    const int i = 3, j = 2, k = 4;
    const double px = (i - 0.5) * st.dx, pz = k * st.dz;
    const double dp = (pz - (zlow + slope * px)) / len;
    for (int iibm : {0, 1}) {
        st.iIBM = iibm;
        double w = 99.0;
        searchw(st, i, j, k, w);
        EXPECT_NEAR(w, speed * slope / len * loglawratio(dp, z0), 1e-10) << "iIBM " << iibm;
    }
}

TEST(PointSearch, FootOnThePatchBoundIsAccepted) {
    // Bed rows 0.5 up to j = 3 and 1.5 from j = 4. From the u point P = (2, 2.5, 2.5) the patch
    // north of it rises with slope 1 and its foot lies exactly on its far bound y = 3.5, at
    // (2, 3.5, 1.5), sqrt 2 away; everything else is the flat bed 2 below. Were the bound
    // excluded, the edge below P would win and u(P) would follow the log law at dP = 2.
    Storage st = testsupport::box(6, 6, 4, 1.0, 1.0, 1.0);
    st.ks = 1.0;
    st.visc = 1.0e-6;
    st.ibed = 1;
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i)
            st.zb(i, j) = j <= 3 ? 0.5 : 1.5;
    const double uu = 0.8;
    st.u.fill(uu);
    st.v.fill(0.0);
    st.w.fill(0.0);
    const double z0 = roughnesslength(st.ks);
    for (int iibm : {0, 1}) {
        st.iIBM = iibm;
        double u = 99.0;
        searchu(st, 2, 3, 3, u);
        EXPECT_NEAR(u, uu * loglawratio(std::sqrt(2.0), z0), 1e-12) << "iIBM " << iibm;
    }
}

TEST(PointSearch, FarPatchesAreSearchedWhenTheNearOnesMiss) {
    // Bed z = c + s x (or + s y for v) with slope 1: the foot of a face point lies h/2 along the
    // slope, beyond the two patches and the edge next to the face (h = 0.8, half-width 0.25), in
    // the patch on the far side. A uniform stream along the bed gives the log law at dP = h/sqrt 2.
    const double h = 0.8, speed = 0.6, len = std::sqrt(2.0);
    int checked = 0;
    for (double slope : {1.0, -1.0}) {
        for (int dir : {0, 1}) {
            Storage st = testsupport::box(8, 8, 16, 0.5, 0.5, 0.1);
            st.ks = 1.0;
            st.visc = 1.0e-6;
            st.iIBM = 1;
            st.ibed = 1;
            const int i = 3, j = 4, k = 7;
            const double pz = (k - 0.5) * st.dz;
            const double p = dir == 0 ? i * st.dx : j * st.dy; // the face's own coordinate
            for (int b = 0; b <= st.jmax + 1; ++b)
                for (int a = 0; a <= st.imax + 1; ++a) {
                    const double c = (dir == 0 ? a : b) - 0.5;
                    st.zb(a, b) = pz - h + slope * (c * 0.5 - p);
                }
            st.u.fill(dir == 0 ? speed / len : 0.0);
            st.v.fill(dir == 1 ? speed / len : 0.0);
            st.w.fill(slope * speed / len);
            const double expected = speed / len * loglawratio(h / len, roughnesslength(st.ks));
            double value = 99.0;
            if (dir == 0) {
                searchu(st, i, j, k, value);
            } else {
                searchv(st, i, j, k, value);
            }
            EXPECT_NEAR(value, expected, 1e-10) << "slope " << slope << " dir " << dir;
            ++checked;
        }
    }
    EXPECT_EQ(checked, 4);
}

// ---- ties: of two candidates at the same distance the first is kept ----------------------------

TEST(PointSearch, TieKeepsTheFirstPatchOfTheColumnSearch) {
    // A valley along y at column 3 (zb 0 there, 1 beside it). From P = (2.5, 1.5, 1.5) the
    // patches east and west of the column give feet at x = 3.25 and x = 1.75, both 0.75 sqrt 2
    // away, all in exact binary arithmetic. The east patch is tried first: the bed normal then
    // leans west, e = (-1, 0, 1)/sqrt 2, and the tangential part of a stream (U, 0, 0) rises, so
    // w(P) = +U/2 ln(dP/z0)/ln(2 dP/z0); the west foot would give the opposite sign.
    Storage st = testsupport::box(6, 5, 8, 1.0, 1.0, 0.5);
    st.ks = 1.0;
    st.visc = 1.0e-6;
    st.ibed = 1;
    st.zb.fill(1.0);
    for (int j = 0; j <= st.jmax + 1; ++j)
        st.zb(3, j) = 0.0;
    const double uu = 0.4;
    st.u.fill(uu);
    st.v.fill(0.0);
    st.w.fill(0.0);
    const double z0 = roughnesslength(st.ks), dp = 0.75 * std::sqrt(2.0);
    for (int iibm : {0, 1}) {
        st.iIBM = iibm;
        double w = 99.0;
        searchw(st, 3, 2, 3, w);
        EXPECT_NEAR(w, 0.5 * uu * loglawratio(dp, z0), 1e-12) << "iIBM " << iibm;
    }
}

TEST(PointSearch, TieKeepsTheFirstPatchOfTheFaceSearch) {
    // A valley along x at row 3. From the u point P = (2, 2.5, 1.5) the patches north and south
    // of it give feet at y = 3.25 and y = 1.75 at the same distance; the north one comes first, so
    // the image point lies south, at y = 1.75. With u = 1 + 0.2 y (trilinear interpolation exact)
    // u(P) = (1 + 0.2 * 1.75) ln(dP/z0)/ln(2 dP/z0); the south foot would give 1 + 0.2 * 3.25.
    Storage st = testsupport::box(6, 6, 4, 1.0, 1.0, 1.0);
    st.ks = 1.0;
    st.visc = 1.0e-6;
    st.ibed = 1;
    st.iIBM = 0;
    st.zb.fill(1.0);
    for (int i = 0; i <= st.imax + 1; ++i)
        st.zb(i, 3) = 0.0;
    for (int k = 0; k <= st.kmax + 1; ++k)
        for (int j = 0; j <= st.jmax + 1; ++j)
            for (int i = -1; i <= st.imax + 1; ++i)
                st.u(i, j, k) = 1.0 + 0.2 * (j - 0.5);
    st.v.fill(0.0);
    st.w.fill(0.0);
    const double z0 = roughnesslength(st.ks), dp = 0.75 * std::sqrt(2.0);
    double u = 99.0;
    searchu(st, 2, 3, 2, u);
    EXPECT_NEAR(u, (1.0 + 0.2 * 1.75) * loglawratio(dp, z0), 1e-12);
}

// ---- a search that finds nothing stops the run ----------------------------------------------

// The bed lies 5 below a box 1 deep: every candidate is farther than the depth.
void searchnothing(void (*search)(const Storage&, int, int, int, double&)) {
    Storage st = testsupport::box(4, 4, 4, 0.25, 0.25, 0.25);
    st.zb.fill(-5.0);
    // The operator pause must not wait: stdin at end of file. The message goes to stdout, which
    // the death test cannot see, so stdout is joined to stderr.
    if (std::freopen("/dev/null", "r", stdin) == nullptr) std::abort();
    std::fflush(stdout);
    if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) std::abort();
    double value = 0.0;
    search(st, 2, 2, 1, value);
}

TEST(PointSearchDeathTest, NoCandidateStopsWithTheRoutineMessage) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(searchnothing(searchu), testing::ExitedWithCode(EXIT_FAILURE),
                "^ immrsing u could not find the minimum point\n$");
    EXPECT_EXIT(searchnothing(searchv), testing::ExitedWithCode(EXIT_FAILURE),
                "^ immrsing v could not find the minimum point\n$");
    EXPECT_EXIT(searchnothing(searchw), testing::ExitedWithCode(EXIT_FAILURE),
                "^ immersing w could not find the minimum point\n$");
    EXPECT_EXIT(searchnothing(searchnut), testing::ExitedWithCode(EXIT_FAILURE),
                "^ immrsing visc could not find the minimum point\n$");
}

} // namespace
} // namespace riffle::ibm
