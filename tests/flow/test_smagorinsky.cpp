// Smagorinsky viscosity: exact strain rates, |S| and nut for a linear velocity field on cells of
// three different sizes, and the ghost rules by the pressure codes (periodic copies, copies of the
// strain at walls, nut changing sign at the surface and the side walls).
#include <gtest/gtest.h>

#include <cmath>

#include "flow/smagorinsky_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle {
namespace {

TEST(Smagorinsky, LinearFieldStrainViscosityAndGhostLayers) {
    Storage st = testsupport::box(6, 5, 4, 0.5, 0.4, 0.1);
    setboundarycodes(st, 0, 1, 0);  // periodic x, side walls, free-slip top
    st.cs = 0.1;
    testsupport::setvelocity(st, st.u, st.v, st.w, testsupport::linear);
    flow::smagorinsky(st);
    // Of the gradient G of testsupport::linear: S12 = (-1.2 + 2.1)/2, S13 = (0.8 - 0.9)/2,
    // S23 = (-0.4 + 1.6)/2; |S|^2 = 2 (0.09 + 0.49 + 0.25) + 4 (0.2025 + 0.0025 + 0.36) = 3.92;
    // nut = (cs delta)^2 |S| with delta^3 = 0.5 x 0.4 x 0.1.
    const double sabs = std::sqrt(3.92), nut = 0.01 * std::pow(0.02, 2.0 / 3.0) * sabs;
    for (auto [f, value] : {std::pair{&Storage::s11, 0.3},
                            {&Storage::s22, -0.7},
                            {&Storage::s33, 0.5},
                            {&Storage::s12, 0.45},
                            {&Storage::s13, -0.05},
                            {&Storage::s23, 0.6},
                            {&Storage::sabs, sabs},
                            {&Storage::nut, nut}})
        testsupport::interior(
            st, [&](int i, int j, int k) { ASSERT_NEAR((st.*f)(i, j, k), value, 1e-13); });

    st.u(2, 3, 4) += 0.4;  // some variation near the top
    st.w(4, 1, 3) = 0.2;
    flow::smagorinsky(st);
    // Periodic x; free-slip top and side walls (code 1): nut flips sign, the strain is copied;
    // bottom (code -1): plain copy.
    testsupport::interior(st, [&](int i, int j, int k) {
        EXPECT_TRUE(st.nut(0, j, k) == st.nut(6, j, k) && st.nut(7, j, k) == st.nut(1, j, k));
        EXPECT_TRUE(st.s12(0, j, k) == st.s12(6, j, k) && st.nut(i, j, 0) == st.nut(i, j, 1));
        EXPECT_TRUE(st.nut(i, j, 5) == -st.nut(i, j, 4) && st.s11(i, j, 5) == st.s11(i, j, 4));
        EXPECT_TRUE(st.nut(i, 0, k) == -st.nut(i, 1, k) && st.sabs(i, 6, k) == st.sabs(i, 5, k));
    });
}

}  // namespace
}  // namespace riffle
