// A surveyed bed: the points read from their file, surveyed nodes taken as they are, planes
// reproduced, the weighted mean where the points leave the plane open. The file's errors: the
// refusal table of test_casebuilder.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "bedcsv.hpp"
#include "support/scratch.hpp"

namespace riffle::casebuilder {
namespace {

TEST(CsvBed, SurveyedNodesKeptPlanesReproducedAndLinesAveraged) {
    // Every node of a 9 x 5 grid surveyed, in rows separated by blanks or commas, with a header,
    // comments and blank rows: each node takes its own point's value.
    const testsupport::Scratch s;
    std::string text = "x, y, z\n# survey\n\n";
    auto z = [](int n) { return std::to_string(0.01 * std::sin(7.0 * (n % 9) + 3.0 * (n / 9))); };
    for (int n = 0; n < 45; ++n) {
        const std::string sep = n % 2 ? ", " : " ", x = std::to_string(0.1 * (n % 9));
        text += x + sep + std::to_string(0.05 * (n / 9)) + sep + z(n) + (n % 3 ? "\n" : " # a\n");
    }
    const auto points = readpoints(s.file("s.csv", text), "s.csv");
    ASSERT_TRUE(points && points->size() == 45u);
    const Interpolator surveyed(*points, 1e-9);
    for (int n = 0; n < 45; ++n)
        EXPECT_EQ(surveyed(0.8 * (n % 9) / 8, 0.2 * (n / 9) / 4), std::stod(z(n))) << n;
    EXPECT_FALSE(readpoints(s.file("none.csv"), "none.csv"));

    // Scattered points of a plane give the plane at every node among them.
    auto plane = [](double x, double y) { return 0.02 + 0.05 * x - 0.03 * y; };
    std::mt19937 gen(12345);
    std::uniform_real_distribution<double> ux(-0.1, 0.9), uy(-0.1, 0.3);
    std::vector<Point> pts(400);
    for (Point& p : pts)
        p.x = ux(gen), p.y = uy(gen), p.z = plane(p.x, p.y);
    const Interpolator f(pts, 1e-12);
    for (int n = 0; n < 85; ++n) {
        const double x = 0.05 * (n % 17), y = 0.05 * (n / 17);
        EXPECT_NEAR(f(x, y), plane(x, y), 1e-12) << x << ", " << y;
    }

    // Collinear points: the weighted mean 16/9 / (16 + 16/9) = 0.1; beyond a survey, no value
    // outside the points' own.
    EXPECT_NEAR(Interpolator({{0, 0, 0}, {1, 0, 1}}, 1e-12)(0.25, 0.0), 0.1, 1e-15);
    EXPECT_EQ(Interpolator({{0, 0, 0}, {1, 0, 1}, {0, 1, 0}, {1, 1, 1}}, 1e-12)(5.0, 0.5), 1.0);
}

} // namespace
} // namespace riffle::casebuilder
