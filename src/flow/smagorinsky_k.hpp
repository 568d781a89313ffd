// The Smagorinsky model's arithmetic at a cell centre: the strain rates from the staggered
// velocities and their magnitude (smagorinsky_m drives it).
#pragma once

#include <cmath>

#include "run/field3.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

struct Strain {
    double s11, s22, s33, s12, s13, s23;
};

// Strain rates at the centre of cell (i,j,k). Each shear difference is formed on the sums of the
// two faces of each neighbour cell, times 0.25, over the spacing: the central difference of the
// cell-centred velocities over two cells.
RIFFLE_HD inline Strain strainrate(const ConstView3<double>& u, const ConstView3<double>& v,
                                   const ConstView3<double>& w, double dx, double dy, double dz,
                                   int i, int j, int k) {
    Strain s;
    s.s11 = (u(i, j, k) - u(i - 1, j, k)) / dx;
    s.s22 = (v(i, j, k) - v(i, j - 1, k)) / dy;
    s.s33 = (w(i, j, k) - w(i, j, k - 1)) / dz;
    const double dudy =
        (u(i, j + 1, k) + u(i - 1, j + 1, k) - u(i, j - 1, k) - u(i - 1, j - 1, k)) * 0.25 / dy;
    const double dvdx =
        (v(i + 1, j, k) + v(i + 1, j - 1, k) - v(i - 1, j, k) - v(i - 1, j - 1, k)) * 0.25 / dx;
    const double dudz =
        (u(i, j, k + 1) + u(i - 1, j, k + 1) - u(i, j, k - 1) - u(i - 1, j, k - 1)) * 0.25 / dz;
    const double dwdx =
        (w(i + 1, j, k) + w(i + 1, j, k - 1) - w(i - 1, j, k) - w(i - 1, j, k - 1)) * 0.25 / dx;
    const double dvdz =
        (v(i, j, k + 1) + v(i, j - 1, k + 1) - v(i, j, k - 1) - v(i, j - 1, k - 1)) * 0.25 / dz;
    const double dwdy =
        (w(i, j + 1, k) + w(i, j + 1, k - 1) - w(i, j - 1, k) - w(i, j - 1, k - 1)) * 0.25 / dy;
    s.s12 = 0.5 * (dudy + dvdx);
    s.s13 = 0.5 * (dudz + dwdx);
    s.s23 = 0.5 * (dvdz + dwdy);
    return s;
}

// |S| = sqrt(2 Sij Sij), the off-diagonal terms counted twice.
RIFFLE_HD inline double magnitude(const Strain& s) {
    return std::sqrt(2.0 * ((s.s12 * s.s12 + s.s13 * s.s13 + s.s23 * s.s23) * 2.0 +
                            (s.s11 * s.s11 + s.s22 * s.s22 + s.s33 * s.s33)));
}

} // namespace riffle::flow
