// Values at the nodes of the staggered grid. Node (i, j, k) sits at the corner shared by cells
// i..i+1, j..j+1, k..k+1: a velocity component is the mean of the four faces around it, a
// cell-centred field the mean of the eight cells.
#pragma once

#include "run/field3.hpp"
#include "run/loops.hpp"

namespace riffle {

RIFFLE_HD inline double nodeu(const ConstView3<double>& u, int i, int j, int k) {
    return 0.25 * (u(i, j, k) + u(i, j + 1, k) + u(i, j, k + 1) + u(i, j + 1, k + 1));
}
RIFFLE_HD inline double nodev(const ConstView3<double>& v, int i, int j, int k) {
    return 0.25 * (v(i, j, k) + v(i + 1, j, k) + v(i, j, k + 1) + v(i + 1, j, k + 1));
}
RIFFLE_HD inline double nodew(const ConstView3<double>& w, int i, int j, int k) {
    return 0.25 * (w(i, j, k) + w(i + 1, j, k) + w(i, j + 1, k) + w(i + 1, j + 1, k));
}
RIFFLE_HD inline double eightcells(const ConstView3<double>& a, int i, int j, int k) {
    return 0.125 *
           (a(i, j, k) + a(i + 1, j, k) + a(i, j + 1, k) + a(i + 1, j + 1, k) + a(i, j, k + 1) +
            a(i + 1, j, k + 1) + a(i, j + 1, k + 1) + a(i + 1, j + 1, k + 1));
}

} // namespace riffle
