// Flow over a flat rough bed, the whole solver from a case file: the driving force holds the
// discharge, the mean velocity grows monotonically away from the bed, and the friction velocity
// that balances the driving force agrees with the rough-wall log law.
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

using platform::Condition;

// A reach 0.8 m long, 0.4 m wide and 0.1 m deep over a flat bed at z = 0 of 1 mm sand, on
// 8 x 4 x 16 cells with the box bottom one cell below the bed, driven at 0.3 m/s, with a
// disturbed start. The horizontal cells are 15 times the vertical ones: a coarse wall-modelled
// LES in which the filter width (about 6 dz) lets the Smagorinsky viscosity carry the bed shear
// across the first cells; no turbulence is resolved on such a grid.
struct FlatBedRun {
    static constexpr double depth = 0.1, width = 0.4, bulk = 0.3, grain = 1.0;
    static constexpr int kmax = 16;
    Storage st;
    NodeArrays nodes;

    FlatBedRun(const std::string& path) {
        platform::BedGrid bed{9, 5, {}, {}, {}};
        for (int j = 0; j < 5; ++j)
            for (int i = 0; i < 9; ++i) {
                bed.x.push_back(0.1 * i);
                bed.y.push_back(0.1 * j);
                bed.elevation.push_back(0.0);
            }
        const double zmin = -depth / (kmax - 1);  // one cell below the bed
        const std::vector<Condition> conditions = {
            {"kmaxItm", 4}, {"zminItm", zmin}, {"zmaxItm", depth}, {"viscItm", 1e-6},
            {"densItm", 1000.0}, {"gravityItm", 9.81}, {"dischargeItm", bulk * width * depth},
            {"timetypeItm", 0}, {"cflItm", 0.3}, {"xBoundItm", 0}, {"yBoundItm", 0},
            {"zBoundItm", 0}, {"iInitialItm", 0.0}, {"iPerturbItmItm", std::bit_cast<double>(std::uint64_t{1})},
            {"amplitudeItm", 0.03},
            {"iBedPerturbItm", 0}, {"starttimeItm", 0.0}, {"endtimeItm", 1.0},
            {"HotstartItm", 0}, {"OTimeItm", 100.0}, {"HotoutItm", 0}, {"TecplotItm", 0},
            {"outpathItm", std::string(".")}, {"outfileItm", std::string("flat")},
            {"BedItm", 1}, {"SedimentItm", grain}, {"smagorinskyItm", 0.1}, {"iIBMItm", 1},
            {"iCycleItm", 1}, {"ipresItm", 2}, {"ipostsItm", 2}, {"kpoismaxItm", 5},
            {"epsItm", 0}};
        platform::writecasefile(path, bed, conditions);
        int fid = 0, ier = 0;
        platform::CG_OPEN_F(path, platform::mode_modify, fid, ier);
        EXPECT_EQ(ier, 0);
        platform::CG_KAVEL_INIT_F(fid, ier);
        startup(st, nodes);
        platform::CG_CLOSE_F(fid, ier);
    }

    // Discharge through the west face, as the driving force measures it.
    [[nodiscard]] double discharge() const {
        double q = 0.0;
        for (int k = 1; k <= st.kmax; ++k) {
            const double top = st.zmin + k * st.dz;
            for (int j = 1; j <= st.jmax; ++j) {
                if (st.iflagu(0, j, k) == -1) continue;
                q += st.uo(0, j, k) * st.dy * std::min(top, st.dz);
            }
        }
        return q;
    }
};

TEST(BedVerification, FlatRoughBedHoldsDischargeAndFollowsTheLogLaw) {
    testsupport::Scratch scratch;
    FlatBedRun run((scratch.dir / "flat.cgns").string());
    Storage& st = run.st;
    ASSERT_EQ(st.kmax, FlatBedRun::kmax);

    // Spin up for 40 s (about ten depth-adjustment times of the eddy viscosity), average 10 s.
    std::vector<double> profile(static_cast<std::size_t>(st.kmax + 1), 0.0);
    double fxsum = 0.0, qmin = 1e30, qmax = -1e30, tavg = 0.0;
    while (st.time < 50.0) {
        advance(st);
        if (st.time < 40.0) continue;
        fxsum += st.fx * st.dt;
        tavg += st.dt;
        const double q = run.discharge();
        qmin = std::min(qmin, q);
        qmax = std::max(qmax, q);
        for (int k = 1; k <= st.kmax; ++k) {
            double mean = 0.0;
            for (int j = 1; j <= st.jmax; ++j)
                for (int i = 1; i <= st.imax; ++i) mean += st.u(i, j, k);
            profile[static_cast<std::size_t>(k)] += st.dt * mean / (st.imax * st.jmax);
        }
    }
    const double target = FlatBedRun::bulk * FlatBedRun::width * FlatBedRun::depth;
    const double fx = fxsum / tavg;
    // Momentum balance of the whole flow: the driving force carries the bed shear stress.
    const double ustar = std::sqrt(fx * FlatBedRun::depth);
    // Depth-averaged rough log law: U/u* = (ln(H/z0) - 1)/kappa with z0 = ks/12.
    const double z0 = FlatBedRun::grain / 12.0 / 1000.0;
    const double loglaw = 0.4 * FlatBedRun::bulk / (std::log(FlatBedRun::depth / z0) - 1.0);
    std::printf("flat bed: discharge %.6f..%.6f of %.6f m3/s after %d steps\n", qmin, qmax,
                target, st.istep);
    std::printf("flat bed: friction velocity from the driving force %.5f m/s, rough log law %.5f"
                " (ratio %.2f)\n", ustar, loglaw, ustar / loglaw);
    std::printf("flat bed: mean u by layer:");
    for (int k = 2; k <= st.kmax; ++k) std::printf(" %.3f", profile[k] / tavg);
    std::printf("\n");

    EXPECT_LT(std::abs(qmin / target - 1.0), 0.05);
    EXPECT_LT(std::abs(qmax / target - 1.0), 0.05);
    EXPECT_GT(fx, 0.0);
    EXPECT_LT(std::max(ustar / loglaw, loglaw / ustar), 1.5);
    // Above the first fluid layer the mean velocity grows monotonically towards the surface.
    for (int k = 3; k <= st.kmax; ++k) EXPECT_GT(profile[k], profile[k - 1]) << "layer " << k;
}

}  // namespace
}  // namespace riffle
