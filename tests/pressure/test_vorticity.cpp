// Vorticity magnitude and Q criterion against the tensor definitions |curl u| and
// Q = (|W|^2 - |S|^2)/2: exact for any linear field, second-order for a smooth field whose nine
// gradient components are all non-zero, both on cells of three different sizes.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "pressure/vorticity_m.hpp"
#include "support/box.hpp"
#include "support/fields.hpp"

namespace riffle {
namespace {

using testsupport::Mat;
using testsupport::Vec;

// |curl u| and Q of the velocity gradient g (g[a][b] = du_a/dx_b).
std::array<double, 2> vortq(const Mat& g) {
    double s2 = 0.0, w2 = 0.0;
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) {
            s2 += std::pow(0.5 * (g[a][b] + g[b][a]), 2);
            w2 += std::pow(0.5 * (g[a][b] - g[b][a]), 2);
        }
    return {std::hypot(g[2][1] - g[1][2], g[0][2] - g[2][0], g[1][0] - g[0][1]), 0.5 * (w2 - s2)};
}

// Largest deviation of vort and qc over the interior from the values of the gradient at the
// cell centres.
template <class G> std::array<double, 2> maxerror(Storage& st, G gradient) {
    pressure::vorticity(st.geometry(), st.conditions(), st.flow());
    std::array<double, 2> e{0.0, 0.0};
    testsupport::interior(st, [&](int i, int j, int k) {
        const auto x = vortq(gradient((i - 0.5) * st.dx, (j - 0.5) * st.dy, (k - 0.5) * st.dz));
        e[0] = std::max(e[0], std::abs(st.vort(i, j, k) - x[0]));
        e[1] = std::max(e[1], std::abs(st.qc(i, j, k) - x[1]));
    });
    return e;
}

TEST(Vorticity, LinearFieldIsExact) {
    Storage st = testsupport::box(5, 6, 7, 0.3, 0.2, 0.1);
    testsupport::setvelocity(st, st.u, st.v, st.w, testsupport::linear);
    const auto e = maxerror(st, [&](double, double, double) { return testsupport::linear.g; });
    EXPECT_LT(std::max(e[0], e[1]), 1e-12);
    // By hand: curl = (1.6 + 0.4, 0.8 + 0.9, 2.1 + 1.2), Q = -(0.83 - 2 (2.52 + 0.72 + 0.64))/2.
    EXPECT_NEAR(st.vort(2, 3, 4), std::sqrt(4.0 + 2.89 + 10.89), 1e-12);
    EXPECT_NEAR(st.qc(2, 3, 4), 3.465, 1e-12);
}

// u_a = sin(2 pi K_a . x): halving the spacing must cut the error about four times (a misplaced
// stencil point leaves a first-order error).
TEST(Vorticity, SecondOrderForSmoothField) {
    constexpr double tau = 2.0 * std::numbers::pi;
    const Mat K{{{1, 2, -1}, {-2, 1, 1}, {1, -1, 2}}};
    const auto phase = [&](int a, double x, double y, double z) {
        return tau * (K[a][0] * x + K[a][1] * y + K[a][2] * z);
    };
    std::array<double, 2> errors[2];
    for (int level = 0; level < 2; ++level) {
        Storage st = testsupport::box(16 << level, 14 << level, 12 << level, 1.0 / (16 << level),
                                      1.0 / (14 << level), 1.0 / (12 << level));
        testsupport::setvelocity(st, st.u, st.v, st.w, [&](double x, double y, double z) {
            return Vec{std::sin(phase(0, x, y, z)), std::sin(phase(1, x, y, z)),
                       std::sin(phase(2, x, y, z))};
        });
        errors[level] = maxerror(st, [&](double x, double y, double z) {
            Mat g;
            for (int a = 0; a < 3; ++a)
                for (int b = 0; b < 3; ++b)
                    g[a][b] = tau * K[a][b] * std::cos(phase(a, x, y, z));
            return g;
        });
    }
    for (int q = 0; q < 2; ++q) {
        ASSERT_GT(errors[0][q], 0.0);
        EXPECT_GT(std::log2(errors[0][q] / errors[1][q]), 1.8) << (q == 0 ? "vort" : "qc");
    }
}

} // namespace
} // namespace riffle
