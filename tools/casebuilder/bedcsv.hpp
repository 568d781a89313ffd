// A bed surveyed as scattered points: reading the x, y, z file and interpolating onto grid nodes.
//
// File: one point per row, "x, y, z" separated by commas (or, in a row without commas, by blanks);
// "#" starts a comment, blank rows are skipped, and a first row without any number (a header such
// as "x,y,z") is skipped. Any other row must hold exactly three finite numbers.
//
// Interpolation at a node P: take the nearest `neighbours` points (8). A point within `hit` of P
// (the builder uses 1e-9 of the grid's larger extent) gives its z exactly. Otherwise fit the plane
// z = a + b (x - xP) + c (y - yP) to the points by least squares with inverse-distance-squared
// weights w = 1/d^2 and take a: a weighted average that reproduces any plane exactly. Where the
// points leave the plane undetermined (fewer than 3, or all on one line) the plain weighted
// average sum(w z)/sum(w) is taken instead. At a node outside the points' bounding box the result
// is clamped to the range of the neighbours' elevations, so the fitted plane cannot run away
// where it extrapolates.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace riffle::casebuilder {

struct Point {
    double x = 0.0, y = 0.0, z = 0.0;
};

// Reads the points of `file`: nothing when it cannot be read; a RecipeError naming it as `name`
// ("name:line: ...") for a bad row or a file without points.
[[nodiscard]] std::optional<std::vector<Point>> readpoints(const std::filesystem::path& file,
                                                           const std::string& name);

// The points of `text`, the contents of such a file; throws RecipeError as readpoints does.
[[nodiscard]] std::vector<Point> parsepoints(std::string_view text, const std::string& name);

class Interpolator {
public:
    static constexpr int neighbours = 8;

    // `points` must not be empty.
    Interpolator(std::vector<Point> points, double hit);
    [[nodiscard]] double operator()(double x, double y) const;

    struct Near {
        double d2;         // squared distance
        std::size_t index; // into the points as given
    };
    // The `neighbours` points nearest to (x, y) (all, if there are fewer), nearest first.
    [[nodiscard]] std::vector<Near> nearest(double x, double y) const;

private:
    // Points sorted into a uniform grid of buckets (about two points per bucket) over their
    // bounding box; a search visits rings of buckets around the query until no unvisited bucket
    // can hold a nearer point.
    std::vector<Point> points_;
    double hit_;
    double x0_ = 0.0, y0_ = 0.0, x1_ = 0.0, y1_ = 0.0; // bounding box of the points
    double hx_ = 1.0, hy_ = 1.0;                       // bucket size
    int nx_ = 1, ny_ = 1;
    std::vector<std::size_t> start_; // bucket b holds order_[start_[b] .. start_[b+1])
    std::vector<std::size_t> order_;
};

} // namespace riffle::casebuilder
