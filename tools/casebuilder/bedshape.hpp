// The bed grid and the analytic bed shapes.
//
// Grid: ni x nj nodes, uniform and aligned with the axes as the solver requires,
// x_i = xmin + (xmax - xmin) i/(ni - 1), y_j likewise, i fastest in every array.
// Shapes, with the phase origin at x = xmin and uniform in y:
//   flat      z = level
//   sinusoid  z = level + amplitude sin(2 pi (x - xmin)/wavelength)
//   dunes     periodic with period `length`: a gentle stoss over s in [0, Ls] rising as a
//             half cosine from the trough (z = level) to the crest (z = level + height) with zero
//             slope at both ends, then a straight lee face falling at `leeangle` back to the trough
//             over Ll = height/tan(leeangle) = length - Ls; s = (x - xmin) mod length.
#pragma once

#include "platform/casefile.hpp"

namespace riffle::casebuilder {

struct GridExtent {
    double xmin = 0.0, xmax = 0.0, ymin = 0.0, ymax = 0.0;
    int ni = 0, nj = 0;
};

// The grid's nodes with elevation 0.
[[nodiscard]] platform::BedGrid gridnodes(const GridExtent& grid);

[[nodiscard]] double sinusoid(double x, double x0, double level, double amplitude,
                              double wavelength);

struct Dune {
    double level = 0.0;    // trough
    double height = 0.0;   // trough to crest
    double length = 0.0;   // period along x
    double leeangle = 0.0; // degrees

    [[nodiscard]] double leelength() const;   // horizontal extent of the lee face
    [[nodiscard]] double stosslength() const; // length - leelength
    // Elevation at x for a train of dunes whose first trough is at x0.
    [[nodiscard]] double elevation(double x, double x0) const;
};

// Sets every node's elevation to shape(x, y).
template <class Shape> void shapebed(platform::BedGrid& bed, Shape&& shape) {
    for (std::size_t n = 0; n < bed.elevation.size(); ++n)
        bed.elevation[n] = shape(bed.x[n], bed.y[n]);
}

} // namespace riffle::casebuilder
