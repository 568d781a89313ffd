// Flow over a flat rough bed, the whole solver from a case file, without and with the wall-layer
// model: the driving force holds the discharge, the mean velocity grows monotonically away from
// the bed, and the friction velocity that balances the driving force agrees with the rough-wall
// log law (closely with the model).
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "platform/casefile.hpp"
#include "platform/kavellib.hpp"
#include "run/driver_m.hpp"
#include "support/scratch.hpp"

namespace riffle {
namespace {

// A reach 0.8 m long, 0.4 m wide and 0.1 m deep over a flat bed at z = 0 of 1 mm sand, on
// 8 x 4 x 16 cells with the box bottom one cell below the bed, driven at 0.3 m/s, with a
// disturbed start. The horizontal cells are 15 times the vertical ones: a coarse wall-modelled
// LES in which the filter width (about 6 dz) lets the Smagorinsky viscosity carry the bed shear
// across the first cells; no turbulence is resolved on such a grid. Spun up for 40 s (about ten
// depth-adjustment times of the eddy viscosity) and averaged over 10 s: the force, the discharge
// through the west face as the driving force measures it, and the u of each layer.
struct FlatRun {
    double ustar = 0.0, loglaw = 0.0, qmin = 1e30, qmax = -1e30, target = 0.0;
    double profile[17] = {};
};

FlatRun flatrun(int wallmodel) {
    FlatRun r;
    const double depth = 0.1, bulk = 0.3, target = bulk * 0.4 * depth;
    r.target = target;
    platform::BedGrid bed{9, 5, {}, {}, std::vector<double>(45, 0.0)};
    for (int n = 0; n < 45; ++n)
        bed.x.push_back(0.1 * (n % 9)), bed.y.push_back(0.1 * (n / 9));
    const testsupport::Scratch scratch;
    const std::string path = scratch.file("flat.cgns").string();
    // clang-format off
    platform::writecasefile(path, bed, {
        {"kmaxItm", 4}, {"zminItm", -depth / 15}, {"zmaxItm", depth}, {"viscItm", 1e-6},
        {"densItm", 1000.0}, {"gravityItm", 9.81}, {"dischargeItm", target}, {"timetypeItm", 0},
        {"cflItm", 0.3}, {"xBoundItm", 0}, {"yBoundItm", 0}, {"zBoundItm", 0},
        {"iInitialItm", 0.0}, {"iPerturbItmItm", std::bit_cast<double>(std::uint64_t{1})},
        {"amplitudeItm", 0.03}, {"iBedPerturbItm", 0}, {"starttimeItm", 0.0},
        {"endtimeItm", 1.0}, {"HotstartItm", 0}, {"OTimeItm", 100.0}, {"HotoutItm", 0},
        {"TecplotItm", 0}, {"outpathItm", std::string(".")}, {"outfileItm", std::string("flat")},
        {"BedItm", 1}, {"SedimentItm", 1.0}, {"iWallModelItm", wallmodel},
        {"smagorinskyItm", 0.1}, {"iIBMItm", 1},
        {"iCycleItm", 1}, {"ipresItm", 2}, {"ipostsItm", 2}, {"kpoismaxItm", 5}, {"epsItm", 0}});
    // clang-format on
    Storage st;
    NodeArrays nodes;
    int fid = 0, ier = 1;
    platform::CG_OPEN_F(path, platform::mode_modify, fid, ier);
    platform::CG_KAVEL_INIT_F(fid, ier);
    EXPECT_EQ(ier, 0);
    startup(st, nodes);
    platform::CG_CLOSE_F(fid, ier);
    EXPECT_EQ(st.kmax, 16);
    EXPECT_EQ(st.iwallmodel, wallmodel);
    double fxsum = 0.0, tavg = 0.0;
    while (st.time < 50.0) {
        advance(st);
        if (st.time < 40.0) continue;
        fxsum += st.fx * st.dt;
        tavg += st.dt;
        double q = 0.0;
        for (int k = 1; k <= st.kmax; ++k)
            for (int j = 1; j <= st.jmax; ++j) {
                const double wet = std::min(st.zmin + k * st.dz, st.dz);
                if (st.iflagu(0, j, k) != -1) q += st.uo(0, j, k) * st.dy * wet;
                for (int i = 1; i <= st.imax; ++i)
                    r.profile[k] += st.dt * st.u(i, j, k);
            }
        r.qmin = std::min(r.qmin, q);
        r.qmax = std::max(r.qmax, q);
    }
    // Momentum balance of the whole flow: the driving force carries the bed shear stress, and
    // the depth-averaged rough log law gives U/u* = (ln(H/z0) - 1)/kappa with z0 = ks/12.
    r.ustar = std::sqrt(fxsum / tavg * depth);
    r.loglaw = 0.4 * bulk / (std::log(depth / (1.0 / 12.0 / 1000.0)) - 1.0);
    std::printf("flat bed, wall-layer model %d: discharge %.6f..%.6f of %.6f m3/s; friction"
                " velocity from the driving force %.5f m/s, rough log law %.5f\n",
                wallmodel, r.qmin, r.qmax, target, r.ustar, r.loglaw);
    return r;
}

TEST(BedVerification, FlatRoughBedHoldsDischargeAndFollowsTheLogLaw) {
    const FlatRun r = flatrun(0);
    EXPECT_LT(std::max(r.qmax / r.target - 1.0, 1.0 - r.qmin / r.target), 0.05);
    EXPECT_LT(std::max(r.ustar / r.loglaw, r.loglaw / r.ustar), 1.5); // NaN: a negative force
    for (int k = 3; k <= 16; ++k)
        EXPECT_GT(r.profile[k], r.profile[k - 1]) << "layer " << k;
}

// With the wall-layer model the bed takes the wall law's stress: the friction velocity that
// balances the driving force comes close to the log law's.
TEST(BedVerification, FlatRoughBedWithTheWallLayerModelTakesTheLogLawStress) {
    const FlatRun r = flatrun(1);
    EXPECT_LT(std::max(r.qmax / r.target - 1.0, 1.0 - r.qmin / r.target), 0.05);
    EXPECT_LT(std::max(r.ustar / r.loglaw, r.loglaw / r.ustar), 1.1);
    for (int k = 3; k <= 16; ++k)
        EXPECT_GT(r.profile[k], r.profile[k - 1]) << "layer " << k;
}

} // namespace
} // namespace riffle
