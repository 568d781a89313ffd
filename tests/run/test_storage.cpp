// Storage: multigrid level count and sizes, index ranges of the staggered arrays, the int32 view
// of real-valued switches, and the console record form.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <tuple>

#include "run/console_m.hpp"
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

TEST(Storage, LevelCountAndSizes) {
    Storage st = grid(64, 32, 16);
    allocation(st);
    ASSERT_EQ(st.lmin, -4);
    const int expect[5][3] = {{64, 32, 16}, {32, 16, 8}, {16, 8, 4}, {8, 4, 2}, {4, 2, 1}};
    for (int l = 0; l >= st.lmin; --l) {
        const mglevel& m = st.mg(l);
        EXPECT_EQ(m.ni, expect[-l][0]);
        EXPECT_EQ(m.nj, expect[-l][1]);
        EXPECT_EQ(m.nk, expect[-l][2]);
        EXPECT_EQ(m.src.krange().hi, m.nk + 1);
    }
    // One cell in x: a single level. The halving stops at the first direction that runs out.
    for (auto [imax, jmax, kmax, lmin] : {std::tuple{1, 64, 64, 0}, std::tuple{64, 64, 1, 0},
                                          std::tuple{2, 64, 64, -1}, std::tuple{64, 3, 64, -1},
                                          std::tuple{64, 64, 0, 0}}) {
        Storage s = grid(imax, jmax, kmax);
        levelcount(s);
        EXPECT_EQ(s.lmin, lmin) << imax << " " << jmax << " " << kmax;
    }
}

TEST(Storage, StaggeredRangesHaveOneExtraGhostInTheirOwnDirection) {
    Storage st = grid(8, 6, 4);
    allocation(st);
    const auto check = [](const auto& a, int ilo, int jlo, int klo, const char* name) {
        EXPECT_EQ(a.irange().lo, ilo) << name;
        EXPECT_EQ(a.jrange().lo, jlo) << name;
        EXPECT_EQ(a.krange().lo, klo) << name;
        EXPECT_EQ(a.irange().hi, 9) << name;
        EXPECT_EQ(a.jrange().hi, 7) << name;
        EXPECT_EQ(a.krange().hi, 5) << name;
    };
    check(st.u, -1, 0, 0, "u");
    check(st.uo, -1, 0, 0, "uo");
    check(st.iflagu, -1, 0, 0, "iflagu");
    check(st.v, 0, -1, 0, "v");
    check(st.iflagvo, 0, -1, 0, "iflagvo");
    check(st.w, 0, 0, -1, "w");
    check(st.iflagw, 0, 0, -1, "iflagw");
    check(st.p, 0, 0, 0, "p");
    check(st.nut, 0, 0, 0, "nut");
    EXPECT_EQ(st.zb.irange().hi, 9);
    EXPECT_EQ(st.zb.jrange().hi, 7);
    // i is the fastest index: neighbours in i are adjacent in memory.
    EXPECT_EQ(&st.u(1, 2, 3) - &st.u(0, 2, 3), 1);
    EXPECT_EQ(&st.u(0, 3, 3) - &st.u(0, 2, 3), 11);
    EXPECT_EQ(&st.u(0, 2, 4) - &st.u(0, 2, 3), 11 * 8);
    EXPECT_GT(allocationbytes(st), 0u);
}

TEST(Storage, Int32ViewIsTheLowHalfOfTheBitPattern) {
    // Whole numbers have an all-zero low half: 1.0 does not test equal to 1.
    for (double whole : {0.0, 1.0, 2.0, -3.0, 1e6}) EXPECT_EQ(int32view(whole), 0) << whole;
    EXPECT_EQ(int32view(std::bit_cast<double>(std::uint64_t{1})), 1);  // smallest subnormal
    EXPECT_EQ(int32view(std::bit_cast<double>(0x3ff00000ffffffffULL)), -1);
    EXPECT_NE(int32view(0.1), 0);
}

TEST(Console, ListDirectedRecords) {
    EXPECT_EQ(console::record("Step Number        = ", 12), " Step Number        = 12");
    EXPECT_EQ(console::record(3, 0.25), " 3 2.5000000000000000E-01");
    EXPECT_EQ(console::record("Time Step          = ", -1.0e-3),
              " Time Step          = -1.0000000000000000E-03");
    // 17 significant digits read back to the same double.
    const double x = 0.1 + 0.2;
    EXPECT_EQ(std::stod(console::realtext(x)), x);
}

}  // namespace
}  // namespace riffle
