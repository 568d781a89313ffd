// Classification against the bed: every point against its height and the strict "below" test
// (uneven bump, beds at and below zmin, a bed exactly on a face) on one and two threads, ghost
// images through periodic and wall codes, and the hand-over of newly emerged points to the search.
#include <gtest/gtest.h>

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "ibm/flagdeter_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"

namespace riffle::ibm {
namespace {

constexpr int I = 6, J = 5, K = 4;
constexpr double dz = 0.5, zmin = -1.0; // centres at -0.75, -0.25, ...; w faces at -0.5, 0, ...
constexpr Field3i Storage::*flags[4] = {&Storage::iflagu, &Storage::iflagv, &Storage::iflagw,
                                        &Storage::iflagp};

Storage bedbox(const std::function<double(int, int)>& bed) {
    Storage st = testsupport::box(I, J, K, 0.6, 0.4, dz);
    st.zmin = zmin;
    st.zmax = zmin + K * dz;
    setboundarycodes(st, 0, 1, 0); // periodic in x, side walls, free-slip surface
    for (int j = 0; j <= J + 1; ++j)
        for (int i = 0; i <= I + 1; ++i)
            st.zb(i, j) = bed(i, j);
    return st;
}

TEST(Flagdeter, SolidBelowTheBedForcingBesideItOnOneAndTwoThreads) {
    // Solid: strictly below the bed (u, v: the mean of the two columns beside the face); forcing:
    // not solid with a solid face neighbour among the classified points. The bump is uneven and
    // well inside the box, so ghost neighbours do not matter; on the flat beds the z ghosts copy
    // the point's own column. A bed at zmin or below leaves nothing solid (the bottom wall is the
    // boundary conditions' job); one exactly on the w face k = 1 leaves that face fluid (forcing).
    const std::function<double(int, int)> beds[] = {
        [](int i, int j) {
            const bool in = i >= 3 && i <= 4 && j >= 2 && j <= 3;
            return in ? zmin + dz * (0.6 + 0.7 * ((7 * i + 3 * j) % 5)) : zmin - 0.7 * dz;
        },
        [](int i, int j) { return zmin - 0.01 * ((i * j) % 3); },
        [](int, int) { return zmin - 0.5 * dz - 1e-9; }, [](int, int) { return zmin + dz; },
        [](int, int) { return std::nextafter(zmin + dz, 1.0); }};
    const int threads = omp_get_max_threads();
    for (int bed = 0; bed < 5; ++bed) {
        Storage st = bedbox(beds[bed]);
        const int bi[4] = {1, 0, 0, 0}, bj[4] = {0, 1, 0, 0};
        const auto solidat = [&](int a, int i, int j, int k) {
            const int ihi = a == 0 ? I : I + 1, jhi = a == 1 ? J : J + 1, klo = a == 2 ? 0 : 1;
            if (i < 0 || i > ihi || j < 0 || j > jhi || k < klo || k > K) return false;
            const double height = a == 2 ? zmin + k * dz : zmin + (k - 0.5) * dz;
            return height < 0.5 * (st.zb(i, j) + st.zb(i + bi[a], j + bj[a]));
        };
        for (int n : {1, 2}) {
            omp_set_num_threads(n);
            for (auto f : flags)
                (st.*f).fill(7); // nothing may survive from before
            flagdeter(st);
            int counts[3] = {0, 0, 0};
            for (int a = 0; a < 4; ++a) // over the points that may be marked
                for (int k = a == 2 ? 0 : 1; k <= K; ++k)
                    for (int j = a == 1 ? 0 : 1; j <= J; ++j)
                        for (int i = a == 0 ? 0 : 1; i <= I; ++i) {
                            const bool near = solidat(a, i - 1, j, k) || solidat(a, i + 1, j, k) ||
                                              solidat(a, i, j - 1, k) || solidat(a, i, j + 1, k) ||
                                              solidat(a, i, j, k - 1) || solidat(a, i, j, k + 1);
                            const int expected = solidat(a, i, j, k) ? -1 : near ? 0 : 1;
                            EXPECT_EQ((st.*flags[a])(i, j, k), expected)
                                << bed << " " << a << " " << i << " " << j << " " << k;
                            ++counts[expected + 1];
                        }
            EXPECT_EQ(counts[0] > 0, bed == 0 || bed >= 3) << bed;
            EXPECT_EQ(st.iflagp(1, 1, 0), bed >= 3 ? solid : fluid) << bed; // the ghost layer
        }
    }
    omp_set_num_threads(threads);
}

TEST(Flagdeter, GhostImagesOfABumpFollowTheCodes) {
    // A bump two faces high in column (1, 3); the bed's ghost column I+1 is its periodic image.
    Storage st = bedbox([](int i, int j) { return i % I == 1 && j == 3 ? zmin + 2 * dz : zmin; });
    flagdeter(st);
    EXPECT_EQ(st.iflagp(I + 1, 3, 1), solid);   // image of the bump
    EXPECT_EQ(st.iflagp(I + 1, 2, 1), forcing); // images of its neighbours at the side
    EXPECT_EQ(st.iflagp(I + 1, 3, 3), forcing); // and on top
    EXPECT_EQ(st.iflagp(I, 3, 1), forcing);     // forced through the periodic ghost
    EXPECT_EQ(st.iflagp(0, 3, 1), forcing);     // and imaged itself
    EXPECT_EQ(st.iflagv(I + 1, 2, 1), solid);
    EXPECT_EQ(st.iflagv(I + 1, 2, 2), forcing);
    EXPECT_EQ(st.iflagw(I + 1, 3, 2), forcing);
    EXPECT_EQ(st.iflagu(I + 1, 3, 1), solid); // u(I+1) = u(1)
    EXPECT_EQ(st.iflagu(-1, 3, 1), forcing);  // u(-1) = u(I-1), next to the solid u(I)
    for (int code : {-1, 1}) { // wall and gradient codes copy the adjacent layer, sign kept
        st.ibp[west] = st.ibp[east] = code;
        flagdeter(st);
        EXPECT_EQ(st.iflagp(0, 3, 1), solid);
        EXPECT_EQ(st.iflagp(I + 1, 3, 1), fluid);
        EXPECT_EQ(st.iflagp(I, 3, 1), fluid);
    }
}

TEST(Flagmove, NewlyEmergedForcingPointsTakeTheSearchedVelocity) {
    // Forcing layer k = 2 under u = 1: of its u points, one solid before is given the searched
    // velocity, slower than the flow above; one fluid before is left alone.
    Storage st = bedbox([](int, int) { return zmin + 1.3 * dz; });
    st.ks = 1.0;
    st.ibed = 1;
    flagdeter(st);
    st.u.fill(1.0);
    st.uo.fill(7.0);
    std::copy_n(st.iflagu.data(), st.iflagu.size(), st.iflaguo.data());
    st.iflaguo(3, 2, 2) = solid;
    st.iflaguo(4, 3, 2) = fluid;
    double u = 7.0;
    EXPECT_TRUE(searchu(BedView(st), 3, 2, 2, u));
    flagmove(st);
    EXPECT_EQ(st.uo(3, 2, 2), u);
    EXPECT_TRUE(u > 0.0 && u < 1.0) << u;
    EXPECT_EQ(st.uo(4, 3, 2), 7.0);
}

} // namespace
} // namespace riffle::ibm
