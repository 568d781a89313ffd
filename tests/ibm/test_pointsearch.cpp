// Bed point search: projection onto one bilinear patch (planes against the analytic foot, a zero
// coordinate, slow convergence accepted or refused), the searches seen through the value the wall
// law gives (flat and inclined beds, a tie between equal candidates), and
// the stop when no candidate is found.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ibm/immersing_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "support/ibm_bed.hpp"

namespace riffle::ibm {
namespace {

using testsupport::logratio;
using testsupport::roughbox;
using testsupport::searched;
using testsupport::setbed;

TEST(PatchFoot, PlanesGiveTheAnalyticFoot) {
    // Plane z = a + b x + c y over [1, 1.5] x [2, 2.4]: the foot of p is
    // p - s (b, c, -1) with s = (plane(p) - pz)/(b^2 + c^2 + 1), to the change of 1e-8 that ends
    // the iteration.
    struct Plane {
        double a, b, c;
    };
    for (const Plane q : {Plane{0.3, 0.0, 0.0}, Plane{0.2, 0.3, -0.2}, Plane{-0.1, -0.5, 0.7}}) {
        const auto z = [q](double x, double y) { return q.a + q.b * x + q.c * y; };
        for (const Point3 p : {Point3{1.2, 2.1, 1.0}, Point3{1.4, 2.3, 0.5}, Point3{1, 2, -0.3}}) {
            const PatchFoot r = patchfoot(1.0, 1.5, 2.0, 2.4, z(1.0, 2.0), z(1.5, 2.0), z(1.0, 2.4),
                                          z(1.5, 2.4), p);
            const double s = (z(p.x, p.y) - p.z) / (q.b * q.b + q.c * q.c + 1.0);
            EXPECT_NEAR(r.foot.x, p.x - s * q.b, 1e-8) << q.b << " " << q.c;
            EXPECT_NEAR(r.foot.y, p.y - s * q.c, 1e-8) << q.b << " " << q.c;
            EXPECT_NEAR(r.foot.z, p.z + s, 1e-8) << q.b << " " << q.c;
            EXPECT_LE(r.passes, q.b == 0.0 ? 2 : 50); // a level plane is met on the first pass
        }
    }
    // Foot (0, 0, 0): every new coordinate is exactly 0.0 from the first pass on. Divided by
    // 1e-8 the second pass shows no change; divided by the value itself it would never converge.
    const PatchFoot r = patchfoot(-1.0, 1.0, -1.0, 1.0, 0.0, 0.0, 0.0, 0.0, {0.0, 0.0, 1.0});
    EXPECT_EQ(r.passes, 2);
    EXPECT_EQ(r.err, 0.0);
    EXPECT_EQ(r.foot.z, 0.0);
}

TEST(PatchFoot, SlowConvergenceIsAcceptedWithinTheCoarseToleranceOnly) {
    // A steep plane across the diagonal, z = a (x - y), over [1, 2] x [1, 2.5]: the alternating
    // minimisation along x and y contracts only by about (a^2/(1 + a^2))^2 per pass.
    const auto steep = [](double a, double pz) {
        const auto z = [a](double x, double y) { return a * (x - y); };
        return patchfoot(1, 2, 1, 2.5, z(1, 1), z(2, 1), z(1, 2.5), z(2, 2.5), {1.5, 1.5, pz});
    };
    testing::internal::CaptureStdout();
    PatchFoot r = steep(8.0, 3.0); // the last iterate, off the centre, within 1e-4, silently
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(r.passes == patchmaxpasses && r.err > 1e-8 && r.err <= 1e-4) << r.err;
    EXPECT_NEAR(r.foot.z, 8.0 * (r.foot.x - r.foot.y), 1e-12);
    EXPECT_NE(r.foot.x, 1.5);
    // Beyond 1e-4: a warning with the change in full, and the centre of the patch (1.5, 1.75, -3).
    testing::internal::CaptureStdout();
    r = steep(12.0, 40.0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(r.foot.x == 1.5 && r.foot.y == 1.75 && r.foot.z == -3.0 && r.err > 1e-4);
    ASSERT_NE(out.find("not converged"), std::string::npos) << out;
    EXPECT_EQ(std::stod(out.substr(out.find_last_of(' ', out.size() - 2))), r.err);
}

TEST(PointSearch, PlaneBedsFootOnTheNormalForAllFourVariants) {
    // Bed z = z1 + sx x + sy y under the flatbed cells (0.5 x 0.4 x 0.1): P is
    // dP = (pz - bed(px, py))/sqrt(1 + sx^2 + sy^2) from it, along e = (-sx, -sy, 1)/|.|. In a
    // uniform stream V the image point sees V too; its tangential part Vt = V - (V.e) e gives u*
    // from the variant's law with Ut = |Vt| at d = 2 dP, and P gets Vt (u*/kappa) ln(dP/z0)/Ut.
    struct Bed {
        double z1, sx, sy;
    };
    for (const Bed b : {Bed{0.1, 0.0, 0.0}, Bed{0.02, 0.1, 0.05}, Bed{0.3, -0.2, 0.15}}) {
        const double v[3] = {0.6, -0.3, 0.25}, len = std::hypot(1.0, b.sx, b.sy);
        const double e[3] = {-b.sx / len, -b.sy / len, 1.0 / len};
        const double ve = v[0] * e[0] + v[1] * e[1] + v[2] * e[2];
        const double vt[3] = {v[0] - ve * e[0], v[1] - ve * e[1], v[2] - ve * e[2]};
        const double ut = std::hypot(vt[0], vt[1], vt[2]);
        Storage st = testsupport::flatbed(0.0, v[0], v[1], v[2]);
        setbed(st, [b](double x, double y) { return b.z1 + b.sx * x + b.sy * y; });
        const double z0 = roughnesslength(st.ks);
        for (int run = 0; run < 24; ++run) { // variant, height k = 3 or 4, component
            const int k = 3 + run / 12, c = run % 3;
            st.iIBM = run / 6 % 2;
            st.ibed = run / 3 % 2;
            const double px = (3 - (c == 0 ? 0.0 : 0.5)) * st.dx,
                         py = (2 - (c == 1 ? 0 : 0.5)) * st.dy;
            const double dp =
                ((k - (c == 2 ? 0.0 : 0.5)) * st.dz - (b.z1 + b.sx * px + b.sy * py)) / len;
            const double us = st.ibed != 0   ? roughustar(ut, 2.0 * dp, z0)
                              : st.iIBM == 0 ? smoothustar(ut, 2.0 * dp, st.visc, z0).ustar
                                             : threelayerustar(ut, 2.0 * dp, st.visc, z0).ustar;
            EXPECT_NEAR(searched(st, c, 3, 2, k), vt[c] * us / kappa * std::log(dp / z0) / ut,
                        1e-10)
                << "bed " << b.sx << " run " << run;
        }
    }
}

TEST(PointSearch, TieKeepsTheFirstPatchTried) {
    // A valley one cell wide along x at row 3 (zb 0 there, 1 beside it) in unit cells: from the u
    // point P = (2, 2.5, 1.5) the feet on the patches either side are 0.75 sqrt 2 away in exact
    // binary arithmetic. The north patch comes first and wins, so the image point lies south, at
    // y = 1.75: with u = 1 + 0.2 y (trilinear interpolation exact) u(P) = (1 + 0.2 * 1.75) times
    // the log-law ratio; the south foot would give 1 + 0.2 * 3.25.
    Storage st = roughbox(6, 6, 4, 1.0, 1.0, 1.0);
    const double dp = 0.75 * std::sqrt(2.0);
    setbed(st, [](double, double y) { return y == 2.5 ? 0.0 : 1.0; });
    testsupport::setfield(st.u, st, 0, [](double, double y, double) { return 1.0 + 0.2 * y; });
    EXPECT_NEAR(searched(st, 0, 2, 3, 2), 1.35 * logratio(dp, 2.0 * dp, roughnesslength(1.0)),
                1e-12);
}

TEST(PointSearchDeathTest, NoCandidateStopsWithTheRoutineMessage) {
    // The bed lies 5 below a box 1 deep: no candidate within reach. Stdin at end of file lets the
    // operator pause pass; stdout, where the message goes, is joined to stderr.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Storage st = testsupport::box(4, 4, 4, 0.25, 0.25, 0.25);
    st.zb.fill(-5.0);
    const char* names[4] = {"immrsing u", "immrsing v", "immersing w", "immrsing visc"};
    for (int grid = 0; grid < 4; ++grid)
        EXPECT_EXIT((std::fflush(stdout), std::freopen("/dev/null", "r", stdin),
                     dup2(STDERR_FILENO, STDOUT_FILENO), searched(st, grid, 2, 2, 1)),
                    testing::ExitedWithCode(EXIT_FAILURE),
                    std::string("^ ") + names[grid] + " could not find the minimum point\n$");
    // The forcing loops report a point whose search failed once the loop is done.
    for (Field3i* f : {&st.iflagu, &st.iflagv, &st.iflagw})
        f->fill(1);
    st.iflagv(3, 2, 2) = 0;
    EXPECT_EXIT((std::fflush(stdout), std::freopen("/dev/null", "r", stdin),
                 dup2(STDERR_FILENO, STDOUT_FILENO), immersing(st)),
                testing::ExitedWithCode(EXIT_FAILURE),
                "^ immrsing v could not find the minimum point\n$");
}

} // namespace
} // namespace riffle::ibm
