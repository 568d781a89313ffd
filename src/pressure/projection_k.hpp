// The projection's arithmetic at a point: the divergence of the staggered velocity in a cell (the
// Poisson source and the divergence report), and the correction of a face velocity by the
// gradient of the pressure increment.
#pragma once

#include "run/field3.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

// (u(i) - u(i-1))/dx + (v(j) - v(j-1))/dy + (w(k) - w(k-1))/dz in cell (i, j, k).
RIFFLE_HD inline double celldivergence(const ConstView3<double>& u, const ConstView3<double>& v,
                                       const ConstView3<double>& w, int i, int j, int k, double dx,
                                       double dy, double dz) {
    return (u(i, j, k) - u(i - 1, j, k)) / dx + (v(i, j, k) - v(i, j - 1, k)) / dy +
           (w(i, j, k) - w(i, j, k - 1)) / dz;
}

// A face velocity less factor times the difference of phi across the face over the spacing.
RIFFLE_HD inline double corrected(double velocity, double factor, double phiplus, double phi,
                                  double h) {
    return velocity - factor * (phiplus - phi) / h;
}

} // namespace riffle::pressure
