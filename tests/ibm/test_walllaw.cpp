// Wall law at forcing points: zero tangential flow, the friction-velocity laws against their own
// equations and an independent bisection, the shift of a point within z0 of the bed, the
// inverse-distance image velocity (nearest point, block bounds, weights), the eddy viscosity
// falling linearly to the bed, and the forcing loop (only interior forcing points change; one and
// two threads agree bit for bit).
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <random>
#include <vector>

#include "ibm/immersing_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "support/box.hpp"

namespace riffle::ibm {
namespace {

Storage flatbox(double zbed, double uu, double vv, double ww) {
    Storage st = testsupport::flatbed(zbed, uu, vv, ww);
    st.nut.fill(1.0);
    return st;
}

double relerr(double a, double b) { return std::fabs(a - b) / std::fabs(b); }

// Root of a decreasing function g on [lo, hi] by bisection in the logarithm of u.
template <class G> double bisect(G g, double lo, double hi) {
    for (int n = 0; n < 200; ++n) {
        const double mid = std::sqrt(lo * hi);
        (g(mid) > 0.0 ? lo : hi) = mid;
    }
    return std::sqrt(lo * hi);
}

// ---- zero tangential flow ----------------------------------------------------------------------

TEST(WallLaw, ZeroTangentialVelocityGivesExactlyZero) {
    // Flat bed, flow straight up from it: nothing is left along the bed in any variant.
    Storage st = flatbox(0.02, 0.0, 0.0, 0.7);
    const Point3 f{1.3, 0.9, 0.02}, p{1.3, 0.9, 0.15};
    int checked = 0;
    for (int iibm : {0, 1}) {
        for (int ibed : {0, 1}) {
            st.iIBM = iibm;
            st.ibed = ibed;
            for (Component c : {Component::x, Component::y, Component::z}) {
                double value = 99.0;
                const double gradient = wallvelocity(st, p, f, c, value);
                EXPECT_EQ(value, 0.0) << iibm << ibed;
                EXPECT_EQ(gradient, 0.0);
                ++checked;
            }
        }
    }
    EXPECT_EQ(checked, 12);
}

TEST(WallLaw, InverseDistanceVariantsGiveZeroWithinRoughnessLength) {
    // Variants 3 and 4 do not move a point that lies within z0 of the bed: it gets no velocity,
    // whereas the trilinear variants move it out and give it a small positive one.
    Storage st = flatbox(0.02, 0.5, 0.0, 0.0);
    const double z0 = roughnesslength(st.ks);
    const Point3 f{1.3, 0.9, 0.02}, p{1.3, 0.9, 0.02 + 0.9 * z0};
    for (int iibm : {0, 1}) {
        for (int ibed : {0, 1}) {
            st.iIBM = iibm;
            st.ibed = ibed;
            double value = 99.0;
            const double gradient = wallvelocity(st, p, f, Component::x, value);
            if (iibm != 0) {
                EXPECT_EQ(value, 0.0) << ibed;
                EXPECT_EQ(gradient, 0.0);
            } else {
                EXPECT_GT(value, 0.0) << ibed;
                EXPECT_LT(value, 0.5);
            }
        }
    }
}

// ---- friction velocity -------------------------------------------------------------------------

TEST(WallLaw, SmoothWallNewtonSolvesTheSmoothWallLaw) {
    // exp(kappa (Ut/u* - 5.1)) = d u*/visc, i.e. Ut/u* = 2.5 ln(d u*/visc) + 5.1.
    const double visc = 1.0e-6, z0 = roughnesslength(1.0);
    int checked = 0;
    for (double ut : {1e-3, 0.05, 1.0}) {
        for (double d : {1e-3, 1e-2, 0.1}) {
            const UstarSolve s = smoothustar(ut, d, visc, z0);
            ASSERT_TRUE(s.converged) << ut << " " << d;
            const double lhs = kappa * (ut / s.ustar - smooth_wall_b);
            EXPECT_NEAR(lhs, std::log(d * s.ustar / visc), 1e-9);
            const double root = bisect(
                [&](double u) { return kappa * (ut / u - smooth_wall_b) - std::log(d * u / visc); },
                1e-12, 10.0);
            EXPECT_LT(relerr(s.ustar, root), 1e-10) << ut << " " << d;
            ++checked;
        }
    }
    EXPECT_EQ(checked, 9);
}

TEST(WallLaw, ThreeLayerLawEndsOnTheEquationOfItsLayer) {
    const double visc = 1.0e-6, z0 = roughnesslength(1.0);
    struct Case {
        double ut, d;
        Layer layer;
    };
    int checked = 0;
    for (const Case c : {Case{1e-3, 1e-3, Layer::viscous}, Case{1e-2, 1e-2, Layer::buffer},
                         Case{0.1, 0.1, Layer::log}, Case{1.0, 1e-3, Layer::log}}) {
        const UstarSolve s = threelayerustar(c.ut, c.d, visc, z0);
        ASSERT_TRUE(s.converged);
        EXPECT_EQ(s.layer, c.layer);
        EXPECT_LE(s.passes, layer_maxpasses);
        const double yplus = c.d * s.ustar / visc, ratio = c.ut / s.ustar;
        EXPECT_EQ(layerof(yplus), c.layer);
        switch (c.layer) {
        case Layer::viscous: // u*^2 = visc Ut/d
            EXPECT_LT(relerr(s.ustar, std::sqrt(visc * c.ut / c.d)), 1e-6);
            break;
        case Layer::buffer: // Ut/u* = 5 ln y+ - 3.05
            EXPECT_LT(relerr(ratio, 5.0 * std::log(yplus) - 3.05), 1e-5);
            break;
        case Layer::log: // Ut/u* = 2.5 ln y+ + 5.5
            EXPECT_LT(relerr(ratio, 2.5 * std::log(yplus) + 5.5), 1e-5);
            break;
        }
        ++checked;
    }
    EXPECT_EQ(checked, 4);
}

TEST(WallLaw, ThreeLayerLawFallsBackToFixedPointIteration) {
    // Just inside the viscous sublayer with a start far above it, Newton hops between layers and
    // gives up; the fixed-point iteration then lands on u* = sqrt(visc Ut/d).
    const double visc = 1.0e-6, z0 = roughnesslength(1.0), ut = 0.13803842646026171, d = 1e-4;
    const UstarSolve s = threelayerustar(ut, d, visc, z0);
    ASSERT_TRUE(s.converged);
    EXPECT_FALSE(s.newton);
    EXPECT_EQ(s.layer, Layer::viscous);
    EXPECT_LT(relerr(s.ustar, std::sqrt(visc * ut / d)), 1e-12);
}

// ---- a point within z0 of the bed ---------------------------------------------------------------

TEST(WallLaw, PointWithinRoughnessLengthMovesOutAlongTheNormal) {
    // Flat bed: P moves to z0 + 1e-8 straight above F; the image point is twice as far, so
    // u(P) = (u*/kappa) ln((z0 + 1e-8)/z0) with u* from the smooth law at d = 2 (z0 + 1e-8).
    const double uu = 0.5;
    Storage st = flatbox(0.02, uu, 0.0, 0.0);
    const double z0 = roughnesslength(st.ks), dp = z0 + 1e-8;
    const Point3 f{1.3, 0.9, 0.02};
    double value = 99.0;
    const double gradient = walltrismooth(st, {f.x, f.y, f.z + 0.5 * z0}, f, Component::x, value);
    const double ustar = smoothustar(uu, 2.0 * dp, st.visc, z0).ustar;
    EXPECT_LT(relerr(value, ustar / kappa * std::log(dp / z0)), 1e-9);
    EXPECT_LT(relerr(gradient, ustar / kappa / dp), 1e-9);
    EXPECT_GT(value, 0.0); // unmoved, ln(dP/z0) < 0 would reverse the flow

    // Inclined bed z = 0.1 + 0.3 x - 0.2 y: a point straight above F within z0 gives the same
    // velocity as the point at z0 + 1e-8 along the bed normal (-0.3, 0.2, 1)/|.|.
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i)
            st.zb(i, j) = 0.1 + 0.3 * (i - 0.5) * st.dx - 0.2 * (j - 0.5) * st.dy;
    const Point3 g{1.3, 0.9, 0.1 + 0.3 * 1.3 - 0.2 * 0.9};
    const double len = std::sqrt(0.09 + 0.04 + 1.0), s = dp / len;
    const Point3 moved{g.x - 0.3 * s, g.y + 0.2 * s, g.z + s};
    for (int ibed : {0, 1}) {
        st.ibed = ibed;
        double within = 99.0, along = -99.0;
        wallvelocity(st, {g.x, g.y, g.z + 0.4 * z0}, g, Component::x, within);
        wallvelocity(st, moved, g, Component::x, along);
        EXPECT_LT(relerr(within, along), 1e-9) << "ibed " << ibed;
        EXPECT_GT(within, 0.0);
    }
}

// ---- inverse-distance image velocity --------------------------------------------------------

TEST(WallLaw, ImageVelocityTakesAGridPointWithinOneMicron) {
    // Bed at zc(1): the image point of u(3,2,2) falls on u(3,2,3), whose value is taken as it is;
    // u(P) = u(3,2,3) ln(dP/z0)/ln(2 dP/z0) whatever the rest of the field holds.
    Storage st = flatbox(0.05, 0.0, 0.0, 0.0);
    st.iIBM = 1;
    st.ibed = 1;
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> r(-1.0, 1.0);
    for (Field3d* a : {&st.u, &st.v, &st.w})
        for (std::size_t n = 0; n < a->size(); ++n)
            a->data()[n] = r(gen);
    const double z0 = roughnesslength(st.ks), dp = st.dz;
    double u = 99.0;
    searchu(st, 3, 2, 2, u);
    EXPECT_LT(relerr(u, st.u(3, 2, 3) * std::log(dp / z0) / std::log(2.0 * dp / z0)), 1e-12);
}

// u points made fluid with a value, and their inverse-distance mean at r by its definition.
struct Q {
    int i, j, k;
    double value;
};
void makefluid(Storage& st, std::initializer_list<Q> qs) {
    for (const Q& q : qs) {
        st.iflagu(q.i, q.j, q.k) = 1;
        st.u(q.i, q.j, q.k) = q.value;
    }
}
double idwmean(const Storage& st, std::initializer_list<Q> qs, Point3 r) {
    std::vector<double> dist;
    for (const Q& q : qs) {
        const double ex = q.i * st.dx - r.x, ey = (q.j - 0.5) * st.dy - r.y;
        const double ez = (q.k - 0.5) * st.dz - r.z;
        dist.push_back(std::sqrt(ex * ex + ey * ey + ez * ez));
    }
    const double rmax = *std::max_element(dist.begin(), dist.end());
    double sumwq = 0.0, sumw = 0.0;
    std::size_t n = 0;
    for (const Q& q : qs) {
        const double d = dist[n++], wgt = std::pow((rmax - d) / (rmax * d), 2);
        sumwq += wgt * q.value;
        sumw += wgt;
    }
    return sumwq / sumw;
}

TEST(WallLaw, ImageVelocityWeighsTheFluidPointsOfItsBlock) {
    // Bed at -0.02 below u(3,3,2): R = (1.5, 1.0, 0.32). Its block in z is centred on the nearest
    // index 4 (z 0.35), so k = 2..7; in x, i = 1..6 (rounded down); in y, j = 1..6. Four fluid
    // points inside the block, three outside it with large values that must not count.
    Storage st = flatbox(-0.02, 0.0, 0.0, 0.0);
    st.iIBM = 1;
    st.ibed = 1;
    st.iflagu.fill(-1);
    const auto inside = {Q{3, 3, 3, 0.4}, Q{4, 3, 2, 0.9}, Q{3, 6, 4, -0.3}, Q{1, 3, 7, 0.6}};
    makefluid(st, inside);
    makefluid(st, {{3, 0, 3, 50.0}, {3, 3, 1, 70.0}, {7, 3, 3, 90.0}});
    const double z0 = roughnesslength(st.ks), dp = 0.17;
    double u = 99.0;
    searchu(st, 3, 3, 2, u);
    const double mean = idwmean(st, inside, {1.5, 1.0, 0.32});
    EXPECT_LT(relerr(u, mean * std::log(dp / z0) / std::log(2.0 * dp / z0)), 1e-12);
}

TEST(WallLaw, ImageBlockRoundsDownAlongTheStaggeredDirection) {
    // Bed z = c + x/2 under u(3,2,5) = (1.5, 0.6, 0.45), 0.375 above it: the image point is
    // R = (1.35, 0.6, 0.75), at x index 2.7 of the u grid. Rounded down the block is i = 0..5
    // (rounded to nearest it would be 1..6): fluid points at i = 0 and i = 6 tell them apart. The
    // z block is k = 6..9 (nearest index 8), so k = 5 is out.
    Storage st = flatbox(0.0, 0.0, 0.0, 0.0);
    st.iIBM = 1;
    st.ibed = 1;
    const double s = 0.5, h = 0.375, px = 1.5, pz = 0.45;
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i)
            st.zb(i, j) = pz - h + s * ((i - 0.5) * st.dx - px);
    st.iflagu.fill(-1);
    const auto inside = {Q{0, 2, 8, 0.5}, Q{2, 2, 7, 0.8}, Q{4, 3, 8, -0.2}};
    makefluid(st, inside);
    makefluid(st, {{6, 2, 8, 40.0}, {3, 2, 5, 60.0}});
    const double shift = h / (1.0 + s * s); // n = shift (-s, 0, 1)
    const double mean = idwmean(st, inside, {px - s * shift, 0.6, pz + shift});
    // V = (q, 0, 0) at R; its part along the bed keeps (1 - ex^2) = 1/(1 + s^2) of q in x.
    const double z0 = roughnesslength(st.ks), dp = h / std::sqrt(1.0 + s * s);
    double u = 99.0;
    searchu(st, 3, 2, 5, u);
    EXPECT_LT(relerr(u, mean / (1.0 + s * s) * std::log(dp / z0) / std::log(2.0 * dp / z0)), 1e-9);
}

TEST(WallLaw, ImagePointIsKeptInsideTheBox) {
    // Top layer of a 0.8 deep box, bed at 0.6: R = P + n would lie at 0.9 and is held at
    // 0.8 - 1e-8. With u = 1 + 2 z (trilinear interpolation exact) the image velocity and the
    // distance d = |R - P| + dP both come from the held point.
    Storage st = flatbox(0.6, 0.0, 0.0, 0.0);
    st.iIBM = 0;
    st.ibed = 1;
    for (int k = 0; k <= st.kmax + 1; ++k)
        for (int j = 0; j <= st.jmax + 1; ++j)
            for (int i = -1; i <= st.imax + 1; ++i)
                st.u(i, j, k) = 1.0 + 2.0 * (k - 0.5) * st.dz;
    const double z0 = roughnesslength(st.ks), pz = 0.75, dp = pz - 0.6, rz = 0.8 - 1e-8;
    const double d = rz - pz + dp;
    double u = 99.0;
    searchu(st, 3, 2, st.kmax, u);
    EXPECT_LT(relerr(u, (1.0 + 2.0 * rz) * std::log(dp / z0) / std::log(d / z0)), 1e-9);
}

// ---- eddy viscosity -------------------------------------------------------------------------

TEST(WallLaw, EddyViscosityFallsLinearlyToTheBed) {
    // nut = c (z - zb): nut(R) dP/(dP + |R - P|) = c dP wherever R ends. Cells of the two lowest
    // layers are forcing cells holding nonsense, so R must step out past them (variant A) or
    // leave them out of its block (variant B, whose weighting is not exact for a linear field).
    Storage st = flatbox(0.01, 0.0, 0.0, 0.0);
    const double c = 3.0;
    for (int k = 0; k <= st.kmax + 1; ++k)
        for (int j = 0; j <= st.jmax + 1; ++j)
            for (int i = 0; i <= st.imax + 1; ++i) {
                const bool low = k <= 2;
                st.iflagp(i, j, k) = low ? 0 : 1;
                st.nut(i, j, k) = low ? 1e6 : c * ((k - 0.5) * st.dz - 0.01);
            }
    int checked = 0;
    for (int k = 1; k <= 2; ++k) {
        const double dp = (k - 0.5) * st.dz - 0.01;
        st.iIBM = 0;
        double nut = 99.0;
        searchnut(st, 3, 3, k, nut);
        EXPECT_LT(relerr(nut, c * dp), 1e-12) << "k " << k;
        st.iIBM = 1;
        nut = 99.0;
        searchnut(st, 3, 3, k, nut);
        EXPECT_GT(nut, 0.0);
        EXPECT_LT(nut, c * 4.0 * dp); // a weighted mean of fluid values only, halved or less
        ++checked;
    }
    EXPECT_EQ(checked, 2);
}

TEST(WallLaw, EddyImagePointIsKeptInsideTheBox) {
    // Top cell of a 0.8 deep box, bed at 0.6: R = P + n would lie at 0.9 and is held 1e-6 below
    // the lid. With nut = c z (trilinear interpolation exact) nut(P) = c rz dP/(dP + rz - pz).
    Storage st = flatbox(0.6, 0.0, 0.0, 0.0);
    st.iIBM = 0;
    const double c = 2.0;
    for (int k = 0; k <= st.kmax + 1; ++k)
        for (int j = 0; j <= st.jmax + 1; ++j)
            for (int i = 0; i <= st.imax + 1; ++i)
                st.nut(i, j, k) = c * (k - 0.5) * st.dz;
    const double pz = 0.75, dp = pz - 0.6, rz = 0.8 - 1e-6;
    double nut = 99.0;
    searchnut(st, 3, 2, st.kmax, nut);
    EXPECT_LT(relerr(nut, c * rz * dp / (dp + rz - pz)), 1e-9);
}

TEST(WallLaw, EddyViscosityVanishesWithinOneMicronOfTheBed) {
    Storage st = flatbox(0.02, 0.0, 0.0, 0.0);
    const Point3 f{1.3, 0.9, 0.02};
    for (int iibm : {0, 1}) {
        st.iIBM = iibm;
        double nut = 99.0;
        walleddy(st, {f.x, f.y, f.z + 5e-7}, f, nut);
        EXPECT_EQ(nut, 0.0);
        walleddy(st, {f.x, f.y, f.z + 1e-5}, f, nut); // just beyond: half the uniform value
        EXPECT_NEAR(nut, 0.5, 1e-12);
    }
}

// ---- the forcing loop -----------------------------------------------------------------------

// Flat bed at 0.15 in a 6 x 5 x 6 box (dz = 0.2), flags as the classification would set them:
// u, v points below (k <= 1) solid, k = 2 forcing; w faces k = 0 solid, k = 1 forcing. Two extra
// forcing points that the loop must leave: the west face u(0) and, where the image velocity is
// gathered by inverse distance, the top face w(kmax) (forced, the trilinear variants would step
// their image point out of the box forever). Fluid points carry the stream (U, V, W), all other
// points random values.
Storage forcingbox(int iibm, int ibed) {
    Storage st = testsupport::box(6, 5, 6, 0.5, 0.4, 0.2);
    st.ks = 1.0;
    st.visc = 1.0e-6;
    st.iIBM = iibm;
    st.ibed = ibed;
    st.zb.fill(0.15);
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> r(-1.0, 1.0);
    auto classify = [&](Field3i& flag, Field3d& q, double stream, bool wface) {
        const Range ri = flag.irange(), rj = flag.jrange(), rk = flag.krange();
        for (int k = rk.lo; k <= rk.hi; ++k)
            for (int j = rj.lo; j <= rj.hi; ++j)
                for (int i = ri.lo; i <= ri.hi; ++i) {
                    const int forcing = wface ? 1 : 2;
                    flag(i, j, k) = k < forcing ? -1 : (k == forcing ? 0 : 1);
                    q(i, j, k) = flag(i, j, k) == 1 ? stream : r(gen);
                }
    };
    classify(st.iflagu, st.u, 0.6, false);
    classify(st.iflagv, st.v, -0.2, false);
    classify(st.iflagw, st.w, 0.1, true);
    for (int j = 1; j <= st.jmax && iibm != 0; ++j) {
        st.iflagw(3, j, st.kmax) = 0;
        st.w(3, j, st.kmax) = r(gen);
    }
    return st;
}

TEST(Immersing, OnlyInteriorForcingPointsChange) {
    for (int iibm : {0, 1}) {
        Storage st = forcingbox(iibm, 1);
        Storage before = forcingbox(iibm, 1);
        immersing(st);
        int forced = 0, kept = 0;
        auto compare = [&](const Field3i& flag, const Field3d& now, const Field3d& old, char name) {
            const Range ri = flag.irange(), rj = flag.jrange(), rk = flag.krange();
            for (int k = rk.lo; k <= rk.hi; ++k)
                for (int j = rj.lo; j <= rj.hi; ++j)
                    for (int i = ri.lo; i <= ri.hi; ++i) {
                        const bool interior = i >= 1 && i <= st.imax && j >= 1 && j <= st.jmax &&
                                              k >= 1 && k <= (name == 'w' ? st.kmax - 1 : st.kmax);
                        if (flag(i, j, k) == 0 && interior) {
                            EXPECT_NE(now(i, j, k), old(i, j, k)) << name << i << j << k;
                            ++forced;
                        } else {
                            EXPECT_EQ(now(i, j, k), old(i, j, k)) << name << i << j << k;
                            ++kept;
                        }
                    }
        };
        compare(st.iflagu, st.u, before.u, 'u');
        compare(st.iflagv, st.v, before.v, 'v');
        compare(st.iflagw, st.w, before.w, 'w');
        EXPECT_EQ(forced, 3 * 6 * 5); // one layer of each component
        EXPECT_GT(kept, forced);
        // The flat bed: u and v follow the log law at their own height, w keeps no velocity
        // normal to the bed. Variant 4 takes the image point at twice the height; variant 2 steps
        // it out by dy/8 = 0.05 until the stencils are fluid, i.e. above the centre of layer 3.
        const double z0 = roughnesslength(st.ks), pz = 1.5 * st.dz, dp = pz - 0.15;
        double rz = pz + dp;
        while (iibm == 0 && rz < 2.5 * st.dz)
            rz += 0.125 * st.dy;
        const double ratio = std::log(dp / z0) / std::log((rz - pz + dp) / z0);
        EXPECT_LT(relerr(st.u(2, 3, 2), 0.6 * ratio), 1e-12) << iibm;
        EXPECT_LT(relerr(st.v(4, 1, 2), -0.2 * ratio), 1e-12) << iibm;
        EXPECT_EQ(st.w(5, 5, 1), 0.0);
    }
}

TEST(Immersing, OneAndTwoThreadsAgreeBitForBit) {
    const int threads = omp_get_max_threads();
    int checked = 0;
    for (int iibm : {0, 1}) {
        for (int ibed : {0, 1}) {
            Storage one = forcingbox(iibm, ibed), two = forcingbox(iibm, ibed);
            omp_set_num_threads(1);
            immersing(one);
            omp_set_num_threads(2);
            immersing(two);
            for (const auto& [a, b] : {std::pair{&one.u, &two.u}, std::pair{&one.v, &two.v},
                                       std::pair{&one.w, &two.w}}) {
                for (std::size_t n = 0; n < a->size(); ++n) {
                    ASSERT_EQ(a->data()[n], b->data()[n]) << iibm << ibed << " at " << n;
                    ++checked;
                }
            }
        }
    }
    omp_set_num_threads(threads);
    EXPECT_GT(checked, 0);
}

} // namespace
} // namespace riffle::ibm
