// Calculation conditions and grid from a real case file: the grid and its vertical count, key
// dependencies, the int32 view of the initial switches, the roughness, the cycle switch and the
// boundary codes.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "platform/casefile.hpp"
#include "platform/kavellib.hpp"
#include "run/casefile_m.hpp"
#include "run/initial_m.hpp"
#include "support/scratch.hpp"

namespace riffle {
namespace {

using platform::Condition;

// Writes a case of ni x nj nodes over [0, 2] x [0, 1] with the given conditions, opens it and
// selects it for the readers; closes it on destruction.
class OpenCase {
public:
    OpenCase(int ni, int nj, const std::vector<Condition>& conditions) {
        platform::BedGrid bed{ni, nj, {}, {}, {}};
        for (int j = 0; j < nj; ++j)
            for (int i = 0; i < ni; ++i) {
                bed.x.push_back(2.0 * i / (ni - 1));
                bed.y.push_back(1.0 * j / (nj - 1));
                bed.elevation.push_back(0.1 * i + 0.01 * j);
            }
        platform::writecasefile(scratch_.file("case.cgns").string(), bed, conditions);
        int ier = 0;
        platform::CG_OPEN_F(scratch_.file("case.cgns").string(), platform::mode_modify, fid_, ier);
        platform::CG_KAVEL_INIT_F(fid_, ier);
        EXPECT_EQ(ier, 0);
    }
    ~OpenCase() {
        int ier = 0;
        platform::CG_CLOSE_F(fid_, ier);
    }

private:
    testsupport::Scratch scratch_;
    int fid_ = 0;
};

// 65 x 9 nodes over 2 x 1 with 2^3 layers from -0.1 to 0.7: cells of 1/32 x 1/8 x 0.1.
TEST(CaseFile, GridFromTheBedGrid) {
    EXPECT_EQ(kmaxfromexponent(0), 1);
    EXPECT_EQ(kmaxfromexponent(32), 0);
    EXPECT_EQ(kmaxfromexponent(-1), 0);
    OpenCase c(65, 9, {{"kmaxItm", 3}, {"zminItm", -0.1}, {"zmaxItm", 0.7}});
    Storage st;
    NodeArrays nodes;
    gridsetup(st, nodes);
    EXPECT_EQ(st.imax, 64);
    EXPECT_EQ(st.jmax, 8);
    EXPECT_EQ(st.kmax, 8);
    EXPECT_DOUBLE_EQ(st.dx, 2.0 / 64);
    EXPECT_DOUBLE_EQ(st.dy, 1.0 / 8);
    EXPECT_DOUBLE_EQ(st.dz, 0.1);
    EXPECT_DOUBLE_EQ(nodes.z3(3, 4, 8), 0.7);
    EXPECT_DOUBLE_EQ(nodes.elev(10, 2), 0.1 * 10 + 0.01 * 2);
}

Storage readconditions(const std::vector<Condition>& conditions) {
    OpenCase c(5, 4, conditions);
    Storage st;
    readphysics(st);
    readinitialconditions(st);
    readroughness(st);
    readsolversettings(st);
    return st;
}

TEST(CaseFile, ConditionsReadWithTheirDependencies) {
    // timetype 1 reads the fixed step and not the CFL number; iInitialItm = 1.0 has int32 view 0,
    // so xInitItm is never read; BedItm 2 turns the roughness height into a grain size;
    // iCycleItm 1 forces a V-cycle whatever igammaItm holds.
    Storage st = readconditions({{"timetypeItm", 1},
                                 {"timestepItm", 0.002},
                                 {"cflItm", 0.5},
                                 {"iInitialItm", 1.0},
                                 {"xInitItm", 9.0},
                                 {"BedItm", 2},
                                 {"RoughItm", 0.05},
                                 {"iCycleItm", 1},
                                 {"igammaItm", 2},
                                 {"kpoismaxItm", 5},
                                 {"epsItm", 3},
                                 {"yBoundItm", 1}});
    EXPECT_EQ(st.dt, 0.002);
    EXPECT_EQ(st.cfl, 0.0);
    EXPECT_EQ(st.xInit, 0.0);
    EXPECT_DOUBLE_EQ(st.ks, 0.02);
    EXPECT_EQ(st.igamma, 1);
    EXPECT_EQ(st.kpoismax, 5);
    EXPECT_EQ(st.eps, 3);
    EXPECT_EQ(st.ibp[south], 1);

    // An integer stored where a real is read leaves the variable; so does a missing key; any
    // BedItm other than 1 or 2 keeps ks = 1; a switch whose low half is 1 reads the start flow.
    st = readconditions({{"timetypeItm", 0},
                         {"cflItm", 1},
                         {"BedItm", 0},
                         {"iCycleItm", 0},
                         {"igammaItm", 2},
                         {"iInitialItm", std::bit_cast<double>(std::uint64_t{1})},
                         {"xInitItm", 0.4}});
    EXPECT_EQ(st.cfl, 0.0);
    EXPECT_EQ(st.visc, 0.0);
    EXPECT_EQ(st.ks, 1.0);
    EXPECT_EQ(st.igamma, 2);
    EXPECT_EQ(st.xInit, 0.4);
}

} // namespace
} // namespace riffle
