// A surveyed bed: the points read from their file, surveyed nodes taken as they are, planes
// reproduced, the weighted mean where the points leave the plane open, and the bucket search for
// the nearest points against a full search. The file's errors: the refusal table of
// test_casebuilder.cpp.
#include <gtest/gtest.h>

#include <algorithm>
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
    ASSERT_TRUE(points);
    ASSERT_EQ(points->size(), 45u);
    const Interpolator surveyed(*points, 1e-9);
    for (int n = 0; n < 45; ++n)
        EXPECT_EQ(surveyed(0.8 * (n % 9) / 8, 0.2 * (n / 9) / 4), std::stod(z(n))) << n;
    EXPECT_FALSE(readpoints(s.file("none.csv"), "none.csv"));

    // Scattered points of a plane give the plane at every node among them.
    auto plane = [](double x, double y) { return 0.02 + 0.05 * x - 0.03 * y; };
    std::mt19937 gen(12345);
    std::uniform_real_distribution<double> ux(-0.1, 0.9), uy(-0.1, 0.3);
    std::vector<Point> pts(400);
    for (Point& p : pts) p.x = ux(gen), p.y = uy(gen), p.z = plane(p.x, p.y);
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

TEST(CsvBed, NearestPointsMatchAFullSearch) {
    // A dense cluster in a sparse spread, and a transect (all on one line), each queried near,
    // between and far outside the points.
    std::mt19937 gen(7);
    std::normal_distribution<double> cluster(0.0, 0.01);
    std::uniform_real_distribution<double> spread(-1.0, 1.0);
    std::vector<Point> area, line;
    for (int n = 0; n < 300; ++n) area.push_back({0.3 + cluster(gen), 0.2 + cluster(gen), 0.0});
    for (int n = 0; n < 100; ++n) area.push_back({spread(gen), 0.5 * spread(gen), 0.0});
    for (int n = 0; n < 50; ++n) line.push_back({0.3 + spread(gen), 0.2, 0.0});
    for (const auto& pts : {area, line}) {
        const Interpolator f(pts, 1e-12);
        for (int q = 0; q < 200; ++q) {
            const double x = q % 2 ? 3.0 * spread(gen) : 0.3 + 0.05 * spread(gen);
            const double y = q % 2 ? 2.0 * spread(gen) : 0.2 + 0.05 * spread(gen);
            auto d2 = [&](const Point& p) { return (p.x - x) * (p.x - x) + (p.y - y) * (p.y - y); };
            std::vector<double> all;
            for (const Point& p : pts) all.push_back(d2(p));
            std::ranges::sort(all);
            const auto near = f.nearest(x, y);
            ASSERT_EQ(near.size(), 8u);
            for (std::size_t k = 0; k < near.size(); ++k) {
                EXPECT_EQ(near[k].d2, all[k]) << x << ", " << y << ", neighbour " << k;
                EXPECT_EQ(d2(pts[near[k].index]), near[k].d2);
            }
        }
    }
}

} // namespace
} // namespace riffle::casebuilder
