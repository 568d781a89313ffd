// Wall-layer model of the bed: the face viscosity against hand values of the log law (spacings in
// z, x and y), its cap and the forcing cell's share of it, and on a box over a flat bed the stress
// the momentum stencils then carry across the first face, the wall layer above and the bed shear
// stress of every column.
#include <gtest/gtest.h>

#include <cmath>

#include "flow/boundary_m.hpp"
#include "flow/smagorinsky_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "ibm/forcinglist_m.hpp"
#include "ibm/immersing_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "ibm/wallmodel_m.hpp"
#include "support/ibm_bed.hpp"

namespace riffle::ibm {
namespace {

using testsupport::relerr;

TEST(WallModel, FaceViscosityCarriesTheLogLawStress) {
    // u* = 0.03 m/s over z0 = 1e-4 m: U(z) = 0.075 ln(z/z0). A forcing cell at z1 = 0.004 and the
    // cell above it, one spacing h along the bed normal farther out: the face carries
    // nu (U2 - U1)/h = u*^2 when nu = kappa u* L(z1, z1 + h).
    const double ustar = 0.03, z0 = 1e-4, visc = 1e-6;
    const auto law = [&](double z) { return ustar / 0.4 * std::log(z / z0); };
    // L(0.004, 0.01) = 0.006/ln 2.5 = 0.006548086...; equal distances give the distance.
    EXPECT_LT(relerr(logmean(0.004, 0.01), 0.006 / 0.91629073187415511), 1e-12);
    EXPECT_LT(relerr(logmean(0.004, 0.004), 0.004), 1e-15);
    EXPECT_LT(relerr(logmean(0.004, 0.004 * (1 + 1e-9)), 0.004 * (1 + 0.5e-9)), 1e-12);
    // Cells 0.006 apart in z under a flat bed, 0.0125 apart in x on a bed tilted by 30 degrees
    // about y (h = dx sin 30), 0.01 apart in y on a bed tilted by 10 degrees about x.
    const double spacings[3] = {0.006, 0.0125 * 0.5, 0.01 * std::sin(10.0 * M_PI / 180.0)};
    for (const double h : spacings) {
        const double du = law(0.004 + h) - law(0.004);
        const double total = facetotal(ustar, ustar * ustar, 0.004, h, du);
        EXPECT_LT(relerr(total * du / h, ustar * ustar), 1e-12) << "h " << h;
        EXPECT_LT(relerr(total, 0.4 * ustar * logmean(0.004, 0.004 + h)), 1e-12) << "h " << h;
    }
    // A flow that hardly differs across the face, or runs back: the cap of four times the log
    // law's viscosity. A steeper one than the log law: less viscosity for the same stress.
    const double loglaw = 0.4 * ustar * logmean(0.004, 0.01);
    EXPECT_DOUBLE_EQ(facetotal(ustar, ustar * ustar, 0.004, 0.006, 1e-9), face_cap * loglaw);
    EXPECT_DOUBLE_EQ(facetotal(ustar, ustar * ustar, 0.004, 0.006, -0.1), face_cap * loglaw);
    EXPECT_DOUBLE_EQ(facetotal(ustar, ustar * ustar, 0.004, 0.006, 0.1), 9e-4 * 0.006 / 0.1);
    EXPECT_DOUBLE_EQ(facetotal(0.0, 0.0, 0.004, 0.006, 0.1), 0.0);
    // The share of the bed stress that crosses a face: 1 - h/D, none above the surface, all of it
    // where the depth is not positive (a dry column).
    EXPECT_DOUBLE_EQ(stressshare(0.01, 0.1), 0.9);
    EXPECT_DOUBLE_EQ(stressshare(0.0, 0.1), 1.0);
    EXPECT_DOUBLE_EQ(stressshare(0.2, 0.1), 0.0);
    EXPECT_DOUBLE_EQ(stressshare(0.01, 0.0), 1.0);
    // The wall layer's share of kappa u* z: all of it in the lowest third of the layer, falling
    // to a third in its last cell (of three: 1, 2/3, 1/3; of six: 1, 1, 5/6, 2/3, 1/2, 1/3). The
    // layer fills a fifth of the depth, at least 3 cells.
    const double kuz = 0.4 * 0.03 * 0.01;
    EXPECT_DOUBLE_EQ(layerviscosity(0.03, 0.01, visc, 1, 3), kuz - visc);
    EXPECT_DOUBLE_EQ(layerviscosity(0.03, 0.01, visc, 1, 6), kuz - visc);
    EXPECT_DOUBLE_EQ(layerviscosity(0.03, 0.01, visc, 4, 6), kuz * 2.0 / 3.0 - visc);
    EXPECT_DOUBLE_EQ(layerviscosity(0.03, 0.01, visc, 6, 6), kuz / 3.0 - visc);
    EXPECT_EQ(layercount(0.1, 0.1 / 15.0), 3);
    EXPECT_EQ(layercount(0.1, 0.1 / 30.0), 6);
    EXPECT_EQ(layercount(0.1, 0.1 / 37.0), 7);
    EXPECT_EQ(layercount(0.02, 0.1 / 30.0), 3);
}

// A box of 8 x 4 x 16 cells of 10 x 10 x 5 mm over a flat bed at z = 12 mm (2.4 cells above the
// box bottom: the forcing cell centres lie 0.5 mm above it), periodic in x and y, carrying the
// rough log law of u* = 0.02 m/s in x with a weak cross flow, the rough-wall trilinear variant.
TEST(WallModel, FirstFaceCarriesTheBedStressOfEveryColumn) {
    using testsupport::roughbox;
    Storage st = roughbox(8, 4, 16, 0.01, 0.01, 0.005);
    st.ibp = {0, 0, 0, 0, 0, -1, 1};
    st.ibu = st.ibv = st.ibw = st.ibp;
    st.cs = 0.1;
    st.iwallmodel = 1;
    const double zbed = 0.012, z0 = roughnesslength(st.ks), ustar = 0.02;
    testsupport::setbed(st, [&](double, double) { return zbed; });
    const auto law = [&](double z) {
        return z > zbed + z0 ? ustar / 0.4 * std::log((z - zbed) / z0) : 0.0;
    };
    testsupport::setfield(st.u, st, 0, [&](double, double, double z) { return law(z); });
    testsupport::setfield(st.v, st, 1, [&](double, double, double z) { return 0.1 * law(z); });
    ibm::uselists(st);
    ibm::immersing(st);
    flow::boundaryu(st.geometry(), st.conditions(), st.flow());
    flow::boundaryv(st.geometry(), st.conditions(), st.flow());
    flow::boundaryw(st.geometry(), st.conditions(), st.flow());
    flow::smagorinsky(st.geometry(), st.conditions(), st.flow(), st.bed());
    // The forcing cells lie in layer 3 (centre at 12.5 mm), the first fluid cells in layer 4.
    ASSERT_EQ(st.iflagp(1, 1, 3), 0);
    ASSERT_EQ(st.iflagp(1, 1, 4), 1);
    ASSERT_EQ(st.iflagu(1, 1, 3), 0);
    const double tangential = std::sqrt(1.0 + 0.01);
    int checked = 0;
    for (int j = 1; j <= st.jmax; ++j) {
        for (int i = 1; i <= st.imax; ++i) {
            // The stress across the face above the forcing point u(i, j, 3) as the x momentum
            // stencil forms it: (visc + the mean nut of the four cells round the edge) dU/dz.
            const double edge = st.visc + 0.25 * (st.nut(i, j, 3) + st.nut(i + 1, j, 3) +
                                                  st.nut(i, j, 4) + st.nut(i + 1, j, 4));
            const double dudz = (st.u(i, j, 4) - st.u(i, j, 3)) / st.dz;
            // Each column's pair of cells gives the face its own share: the mean of the two
            // columns' stresses (the same but at the box's ends, where u(0) has no law of its own).
            const double tau = st.bedshear(i, j, 0);
            const double pair = 0.5 * (tau + st.bedshear(i + 1, j, 0));
            // The face lies 3 mm above the bed in a depth of 68 mm (the box's top at 80 mm): it
            // carries the bed's stress less the 3/68 that the linear stress profile sheds below it.
            const double facesshare = 1.0 - 0.003 / 0.068;
            EXPECT_LT(relerr(edge * dudz * tangential, facesshare * pair), 1e-9) << i << " " << j;
            // The law at the image points of a log-law flow gives back its u* (to the error of
            // the trilinear interpolation of a logarithm), along the flow.
            EXPECT_LT(relerr(tau, ustar * ustar * (1.0 + 0.01)), 0.03);
            EXPECT_LT(relerr(st.bedshear(i, j, 1), tau / tangential), 1e-9);
            EXPECT_LT(relerr(st.bedshear(i, j, 2), 0.1 * tau / tangential), 1e-9);
            // The wall layer: its share of kappa u* z where that exceeds the Smagorinsky value (a
            // log law's strain gives cs^2 delta^2 u*/(kappa z), far less), except that the first
            // cell gives way to the face below it, whose forcing cell lies 0.5 mm above the bed.
            const double us = std::sqrt(tau);
            EXPECT_GE(st.nut(i, j, 3), 0.0);
            EXPECT_LE(st.nut(i, j, 4), layerviscosity(us, 0.0055, st.visc, 1, 3));
            for (int k = 5; k <= 3 + wall_layers; ++k) {
                const double z = st.zmin + (k - 0.5) * st.dz - zbed;
                const double share = (wall_layers + 4.0 - k) / wall_layers; // 2/3, 1/3
                EXPECT_LT(relerr(st.nut(i, j, k), share * 0.4 * us * z - st.visc), 0.02) << k;
            }
            const int beyond = 4 + wall_layers;
            EXPECT_LT(st.nut(i, j, beyond),
                      0.03 * 0.4 * us * (st.zmin + (beyond - 0.5) * st.dz - zbed));
            ++checked;
        }
    }
    EXPECT_EQ(checked, 32);
    // Ghost columns wrap across the periodic faces; the node means are the columns' in Pa.
    EXPECT_EQ(st.bedshear(0, 2, 0), st.bedshear(8, 2, 0));
    EXPECT_EQ(st.bedshear(3, 5, 1), st.bedshear(3, 1, 1));
    st.dens = 1000.0;
    BedShearNodes nodes;
    bedshearnodes(st.geometry(), st.conditions(), st.bed(), nodes);
    ASSERT_EQ(nodes.tau.size(), 9u * 5u);
    const double expect = 250.0 * (st.bedshear(2, 3, 0) + st.bedshear(3, 3, 0) +
                                   st.bedshear(2, 4, 0) + st.bedshear(3, 4, 0));
    EXPECT_DOUBLE_EQ(nodes.tau[3 * 9 + 2], expect);
}

} // namespace
} // namespace riffle::ibm
