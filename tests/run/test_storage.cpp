// Storage and the initial state: the multigrid levels, the index ranges and memory order of the
// staggered arrays, the int32 view of real-valued switches, the console's list-directed records;
// the index hash at hand-worked points, the start flow from the discharge or as given, the same
// disturbance in all three components.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>

#include "run/console_m.hpp"
#include "run/initial_m.hpp"
#include "run/storage_m.hpp"

namespace riffle {
namespace {

Storage grid(int imax, int jmax, int kmax) {
    Storage st;
    st.imax = imax;
    st.jmax = jmax;
    st.kmax = kmax;
    return st;
}

TEST(Storage, LevelsAndStaggeredRanges) {
    Storage st = grid(64, 32, 16);
    allocation(st);
    ASSERT_EQ(st.lmin, -4);
    for (int l = 0; l >= st.lmin; --l) {
        EXPECT_EQ(st.mg(l).ni, 64 >> -l);
        EXPECT_EQ(st.mg(l).nj, 32 >> -l);
        EXPECT_EQ(st.mg(l).nk, 16 >> -l);
    }
    // The halving stops at the first direction that runs out of even counts.
    for (auto [imax, jmax, kmax, lmin] : {std::tuple{1, 64, 64, 0},
                                          {64, 64, 1, 0},
                                          {2, 64, 64, -1},
                                          {64, 3, 64, -1},
                                          {64, 64, 0, 0}}) {
        Storage s = grid(imax, jmax, kmax);
        levelcount(s);
        EXPECT_EQ(s.lmin, lmin) << imax << " " << jmax << " " << kmax;
    }
    // Every array has the halo of a block in x and y, one process or many; a face array has one
    // more ghost layer in z, its own direction; i is the fastest index.
    Storage s = grid(8, 6, 4);
    allocation(s);
    EXPECT_EQ(s.v.jrange().lo, 1 - halowidth);
    EXPECT_EQ(s.v.irange().hi, 8 + halowidth);
    EXPECT_EQ(s.w.krange().lo, -1);
    EXPECT_EQ(s.p.krange().lo, 0);
    EXPECT_EQ(&s.u(0, 2, 4) - &s.u(0, 2, 3), (8 + 2 * halowidth) * (6 + 2 * halowidth));
}

TEST(Storage, Int32ViewAndRecords) {
    // Whole numbers have an all-zero low half: 1.0 does not test equal to 1.
    for (double whole : {0.0, 1.0, -3.0, 1e6})
        EXPECT_EQ(int32view(whole), 0) << whole;
    EXPECT_EQ(int32view(std::bit_cast<double>(std::uint64_t{1})), 1); // smallest subnormal
    EXPECT_EQ(int32view(std::bit_cast<double>(0x3ff00000ffffffffULL)), -1);

    const double x = 0.1 + 0.2; // 17 significant digits read back to the same double
    EXPECT_EQ(std::stod(console::realtext(x)), x);
}

TEST(Initial, IndexHashAtHandWorkedPoints) {
    // (3,2,12): m = -7 and 30 = (-4)(-7) + 2, so r = 2.
    EXPECT_DOUBLE_EQ(indexhash(3, 2, 12), std::sin(3.0 + std::cos(19.0 - 3 + 2.0 / 3 + 12.0 / 7) +
                                                   3.0 / 9 + 2 - 12 + 2));
    // (0,0,0): m = 0 has no remainder; r is taken as 0.
    EXPECT_DOUBLE_EQ(indexhash(0, 0, 0), std::sin(3.0 + std::cos(19.0)));
}

Storage smallbox(double iInitial) {
    Storage st;
    st.imax = 6;
    st.jmax = 4;
    st.kmax = 4;
    st.ymax = 4.0;
    st.zmax = 0.5;
    st.discharge = 2.0;
    st.iInitial = iInitial;
    st.xInit = 0.3;
    st.yInit = 0.1;
    st.zInit = -0.2;
    allocation(st);
    return st;
}

TEST(Initial, StartFlowAndDisturbance) {
    // A whole-number switch has int32 view 0: the discharge 2 over a 4 x 0.5 section sets u = 1.
    Storage st = smallbox(1.0);
    initialfields(st);
    EXPECT_EQ(st.u(3, 2, 2), 1.0);
    EXPECT_EQ(st.u(7, 5, 5), 1.0);
    EXPECT_EQ(st.v(3, 2, 2), 0.0);
    EXPECT_EQ(st.u(-1, 2, 2), 0.0);
    EXPECT_EQ(st.p(1, 1, 1), 0.0);

    // int32 view 1: the given start, disturbed alike in u, v and w at every point.
    Storage d = smallbox(std::bit_cast<double>(std::uint64_t{1}));
    d.iPerturb = std::bit_cast<double>(std::uint64_t{1});
    d.amplitude = 0.05;
    initialfields(d);
    int wrong = 0;
    for (int k = 0; k <= 5; ++k)
        for (int j = 0; j <= 5; ++j)
            for (int i = 0; i <= 7; ++i) {
                const double e = (indexhash(i, j, k) - 0.5) * 2.0 * 0.05;
                wrong += std::abs(d.u(i, j, k) - 0.3 - e) > 1e-15 ||
                         std::abs(d.v(i, j, k) - 0.1 - e) > 1e-15 ||
                         std::abs(d.w(i, j, k) + 0.2 - e) > 1e-15 || d.uo(i, j, k) != d.u(i, j, k);
            }
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace riffle
