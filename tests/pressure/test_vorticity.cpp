// Vorticity magnitude and Q criterion: exact values for fields whose gradient is constant (at
// rest, uniform flow, shear, solid-body rotation, any linear field against the tensor definition
// Q = (|W|^2 - |S|^2)/2), second-order convergence for a smooth field whose nine gradient
// components are all non-zero, and the ghost layer by the pressure codes.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numbers>

#include "pressure/vorticity_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

using Vec = std::array<double, 3>;
using VelocityField = std::function<Vec(double, double, double)>;

// Sets u, v, w at their staggered positions (every index, ghosts included) from a velocity field.
void setvelocity(Storage& st, const VelocityField& f) {
    const auto put = [&](Field3d& a, int c, double sx, double sy, double sz) {
        for (int k = a.krange().lo; k <= a.krange().hi; ++k)
            for (int j = a.jrange().lo; j <= a.jrange().hi; ++j)
                for (int i = a.irange().lo; i <= a.irange().hi; ++i)
                    a(i, j, k) = f(st.xmin + (i - sx) * st.dx, st.ymin + (j - sy) * st.dy,
                                   st.zmin + (k - sz) * st.dz)[static_cast<std::size_t>(c)];
    };
    put(st.u, 0, 0.0, 0.5, 0.5);
    put(st.v, 1, 0.5, 0.0, 0.5);
    put(st.w, 2, 0.5, 0.5, 0.0);
}

// Largest deviation of vort and qc from the given values over the interior cells.
std::array<double, 2> maxerror(const Storage& st, const std::function<double(int, int, int)>& vort,
                               const std::function<double(int, int, int)>& qc) {
    std::array<double, 2> e{0.0, 0.0};
    for (int k = 1; k <= st.kmax; ++k)
        for (int j = 1; j <= st.jmax; ++j)
            for (int i = 1; i <= st.imax; ++i) {
                e[0] = std::max(e[0], std::abs(st.vort(i, j, k) - vort(i, j, k)));
                e[1] = std::max(e[1], std::abs(st.qc(i, j, k) - qc(i, j, k)));
            }
    return e;
}

std::array<double, 2> maxerror(const Storage& st, double vort, double qc) {
    return maxerror(st, [=](int, int, int) { return vort; }, [=](int, int, int) { return qc; });
}

TEST(Vorticity, UniformFlowAndShearAndRotation) {
    Storage st = testsupport::box(6, 5, 4, 0.3, 0.2, 0.1);
    setvelocity(st, [](double, double, double) { return Vec{0.7, -0.3, 0.1}; });
    pressure::vorticity(st);
    EXPECT_EQ(maxerror(st, 0.0, 0.0), (std::array<double, 2>{0.0, 0.0}));

    for (const double g : {2.5, -1.5}) {  // u = g z: |curl| = |g|, and uz alone gives Q = 0
        setvelocity(st, [g](double, double, double z) { return Vec{g * z, 0.0, 0.0}; });
        pressure::vorticity(st);
        const auto e = maxerror(st, std::abs(g), 0.0);
        EXPECT_LT(e[0], 1e-13) << g;
        EXPECT_EQ(e[1], 0.0) << g;
    }

    const double omega = 1.75;  // rotation about z: |curl| = 2 omega, Q = omega^2
    setvelocity(st, [=](double x, double y, double) {
        return Vec{-omega * (y - 0.4), omega * (x - 0.9), 0.0};
    });
    pressure::vorticity(st);
    const auto e = maxerror(st, 2.0 * omega, omega * omega);
    EXPECT_LT(e[0], 1e-13);
    EXPECT_LT(e[1], 1e-13);
}

// Any linear field u_a = sum_b G_ab x_b is differentiated exactly; the expected values come from
// the strain and rotation tensors, not from the component formula of the solver.
TEST(Vorticity, LinearFieldMatchesTensorDefinition) {
    Storage st = testsupport::box(5, 6, 7, 0.11, 0.13, 0.07);
    const double g[3][3] = {{0.3, -1.2, 0.8}, {2.1, -0.7, -0.4}, {-0.9, 1.6, 0.4}};
    setvelocity(st, [&](double x, double y, double z) {
        return Vec{g[0][0] * x + g[0][1] * y + g[0][2] * z, g[1][0] * x + g[1][1] * y + g[1][2] * z,
                   g[2][0] * x + g[2][1] * y + g[2][2] * z};
    });
    double s2 = 0.0, w2 = 0.0;
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) {
            s2 += std::pow(0.5 * (g[a][b] + g[b][a]), 2);
            w2 += std::pow(0.5 * (g[a][b] - g[b][a]), 2);
        }
    const double curl = std::sqrt(std::pow(g[2][1] - g[1][2], 2) + std::pow(g[0][2] - g[2][0], 2) +
                                  std::pow(g[1][0] - g[0][1], 2));
    pressure::vorticity(st);
    const auto e = maxerror(st, curl, 0.5 * (w2 - s2));
    EXPECT_LT(e[0], 1e-12);
    EXPECT_LT(e[1], 1e-12);
}

// A smooth periodic field with all nine gradient components non-zero: halving the spacing must
// cut the error about four times (a misplaced stencil point leaves a first-order error).
TEST(Vorticity, SecondOrderForSmoothField) {
    constexpr double tau = 2.0 * std::numbers::pi;
    const auto field = [](double x, double y, double z) {
        return Vec{std::sin(tau * (x + 2 * y)) * std::cos(tau * z),
                   std::cos(tau * 2 * x) * std::sin(tau * (y + z)),
                   std::sin(tau * x) * std::cos(tau * (y - z))};
    };
    const auto gradient = [](double x, double y, double z) {
        std::array<Vec, 3> d{};
        const double a = tau * (x + 2 * y), cz = std::cos(tau * z);
        d[0] = {tau * std::cos(a) * cz, 2 * tau * std::cos(a) * cz,
                -tau * std::sin(a) * std::sin(tau * z)};
        const double b = tau * (y + z), c2 = std::cos(tau * 2 * x);
        d[1] = {-2 * tau * std::sin(tau * 2 * x) * std::sin(b), tau * c2 * std::cos(b),
                tau * c2 * std::cos(b)};
        const double c = tau * (y - z), sx = std::sin(tau * x);
        d[2] = {tau * std::cos(tau * x) * std::cos(c), -tau * sx * std::sin(c),
                tau * sx * std::sin(c)};
        return d;
    };
    std::array<double, 2> errors[2];
    for (int level = 0; level < 2; ++level) {
        const int n = 12 << level;
        const double h = 1.0 / n;
        Storage st = testsupport::box(n, n, n, h, h, h);
        setvelocity(st, field);
        pressure::vorticity(st);
        const auto at = [&](int i, int j, int k) {
            return gradient((i - 0.5) * h, (j - 0.5) * h, (k - 0.5) * h);
        };
        errors[level] = maxerror(
            st,
            [&](int i, int j, int k) {
                const auto d = at(i, j, k);
                return std::hypot(d[2][1] - d[1][2], d[0][2] - d[2][0], d[1][0] - d[0][1]);
            },
            [&](int i, int j, int k) {
                const auto d = at(i, j, k);
                double tr = 0.0;  // trace of G G
                for (int a = 0; a < 3; ++a)
                    for (int b = 0; b < 3; ++b) tr += d[a][b] * d[b][a];
                return -0.5 * tr;
            });
    }
    for (int q = 0; q < 2; ++q) {
        ASSERT_GT(errors[0][q], 0.0);
        EXPECT_GT(std::log2(errors[0][q] / errors[1][q]), 1.8) << (q == 0 ? "vort" : "qc");
    }
}

// Periodic in i, zero gradient in j, antisymmetric at the bottom and zero gradient at the top;
// each pass runs over the layer of the passes before it, so edges and corners are filled too.
TEST(Vorticity, GhostLayerFollowsPressureCodes) {
    Storage st = testsupport::box(5, 4, 3, 0.2, 0.3, 0.25);
    st.ibp = {0, 0, 0, 1, 1, -1, 1};
    setvelocity(st, [](double x, double y, double z) {
        return Vec{x * y + z * z, std::sin(x + 2 * z), x * x * y - z};
    });
    pressure::vorticity(st);
    for (Field3d* a : {&st.vort, &st.qc}) {
        const Field3d& f = *a;
        for (int k = 1; k <= 3; ++k)
            for (int j = 1; j <= 4; ++j) {
                EXPECT_EQ(f(0, j, k), f(5, j, k));
                EXPECT_EQ(f(6, j, k), f(1, j, k));
            }
        for (int k = 1; k <= 3; ++k)
            for (int i = 1; i <= 5; ++i) {
                EXPECT_EQ(f(i, 0, k), f(i, 1, k));
                EXPECT_EQ(f(i, 5, k), f(i, 4, k));
            }
        for (int j = 1; j <= 4; ++j)
            for (int i = 1; i <= 5; ++i) {
                EXPECT_EQ(f(i, j, 0), -f(i, j, 1));
                EXPECT_EQ(f(i, j, 4), f(i, j, 3));
            }
        EXPECT_EQ(f(0, 0, 0), -f(5, 1, 1));
        EXPECT_EQ(f(6, 5, 4), f(1, 4, 3));
        EXPECT_NE(f(5, 1, 1), 0.0);
    }
}

}  // namespace
}  // namespace riffle
