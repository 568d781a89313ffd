// Geometry types of the immersed bed shared by the point search, the wall law and the lists of
// forcing points: a point of space and the trilinear stencil of a staggered grid around one.
// Plain data only, so that the run's storage can hold the lists without the solver's headers.
#pragma once

namespace riffle::ibm {

struct Point3 {
    double x = 0.0, y = 0.0, z = 0.0;
};

// The grid cell that encloses a point: lower indices and the weights of the upper points.
struct Stencil {
    int i, j, k;
    double a, b, c;
};

} // namespace riffle::ibm
