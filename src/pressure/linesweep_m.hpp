// The multigrid's smoother on the CPU: Gauss-Seidel by vertical lines, each line an exact
// tridiagonal solve, the lines of a block of rows swept lexicographically (i innermost, then j)
// as a skewed wavefront so that several lines' recurrences run side by side in vector lanes.
//
// Every column (i,j) solves  cz phi(k-1) + d0 phi(k) + cz phi(k+1) = r(k),  k = 1..nz, with
// r(k) = src - (phi(i-1) + phi(i+1)) cx - (phi(j-1) + phi(j+1)) cy at the current values, the
// bottom ghost (zero increment) and the top ghost (zero gradient) folded into the end rows. The
// Thomas elimination of the diagonal, b(k+1) = b(k+1) - c(k) a(k+1)/b(k), involves only the level's
// constants, so it is done once per call; the right-hand side and the back substitution are done
// per column with the same expressions as a column-by-column solve.
#pragma once

#include "run/field3.hpp"

namespace riffle::pressure {

// The eliminated diagonal b(1..nz) of the column system, for bottom and top codes tb and tt.
void eliminateddiagonal(double d0, double cz, double tb, double tt, int nz, double* b);

// One lexicographic sweep (i innermost, then j) over the rows jlo..jhi of phi, with the
// eliminated diagonal bm.
void linesweep(const View3<double>& phi, const ConstView3<double>& src, int nx, int jlo, int jhi,
               int nz, double cx, double cy, double cz, const double* bm);

} // namespace riffle::pressure
