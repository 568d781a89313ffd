// The multigrid's arithmetic at a point (or along one plane where a sum runs through it): the
// seven-point operator, the residual, the restriction and prolongation, and the point
// Gauss-Seidel value of the coarsest level. The drivers in multigridp_m run these
// over the levels; the line smoother's drivers are in linesweep_m.
#pragma once

#include <cmath>

#include "run/faces_k.hpp"
#include "run/field3.hpp"
#include "run/loops.hpp"

namespace riffle::pressure {

using View = View3<double>;
using CView = ConstView3<double>;

// Second difference of one direction, formed as (east - centre - centre + west) / h^2.
RIFFLE_HD inline double secdiff(double west, double centre, double east, double h2) {
    return (east - centre - centre + west) / h2;
}

// The seven-point Laplacian of phi at (i, j, k).
RIFFLE_HD inline double laplacian(const CView& phi, int i, int j, int k, double hx2, double hy2,
                                  double hz2) {
    const double c = phi(i, j, k);
    return secdiff(phi(i - 1, j, k), c, phi(i + 1, j, k), hx2) +
           secdiff(phi(i, j - 1, k), c, phi(i, j + 1, k), hy2) +
           secdiff(phi(i, j, k - 1), c, phi(i, j, k + 1), hz2);
}

// Point Gauss-Seidel value of the seven-point equation with the neighbour sums given.
RIFFLE_HD inline double pointvalue(double sumi, double sumj, double sumk, double src, double hx2,
                                   double hy2, double hz2, double diag) {
    return (sumi / hx2 + sumj / hy2 + sumk / hz2 - src) / diag;
}

// Larger of two changes; a NaN, once met, wins, so a blown-up coarse iteration runs to its
// sweep limit instead of reporting convergence. Exact in any order.
RIFFLE_HD inline double nanmax(double a, double b) { return (b > a || std::isnan(b)) ? b : a; }

// Residual of one interior plane k: res = src - Laplacian(phi). Returns the plane's sum of
// squares of res, accumulated in i-then-j order.
inline double residualplane(const View& res, const CView& phi, const CView& src, int nx, int ny,
                            int k, double hx2, double hy2, double hz2) {
    double sum = 0.0;
    for (int j = 1; j <= ny; ++j) {
        for (int i = 1; i <= nx; ++i) {
            const double r = src(i, j, k) - laplacian(phi, i, j, k, hx2, hy2, hz2);
            res(i, j, k) = r;
            sum += r * r;
        }
    }
    return sum;
}

// Coarse src at (ic, jc, kc) = the eight-cell average of the fine residual; the coarse problem
// starts from zero (its ghost layer keeps whatever the last ghost update left).
RIFFLE_HD inline void restrictpoint(const CView& res, const View& csrc, const View& cphi, int ic,
                                    int jc, int kc) {
    const int i = 2 * ic - 1, j = 2 * jc - 1, k = 2 * kc - 1;
    csrc(ic, jc, kc) = 0.125 * (res(i, j, k) + res(i + 1, j, k) + res(i, j + 1, k) +
                                res(i + 1, j + 1, k) + res(i, j, k + 1) + res(i + 1, j, k + 1) +
                                res(i, j + 1, k + 1) + res(i + 1, j + 1, k + 1));
    cphi(ic, jc, kc) = 0.0;
}

// The four-point interpolation of a coarse correction toward one child.
RIFFLE_HD inline double fourpoint(double centre, double towardi, double towardj, double towardk) {
    return 0.25 * (centre + towardi + towardj + towardk);
}

// Fine cell (i, j, k) takes 0.25 (Phi(P) + Phi(P+-i) + Phi(P+-j) + Phi(P+-k)) of its coarse
// parent P, each +- pointing toward the child (an odd index leans on the lower neighbour), added
// to phi and kept in res.
RIFFLE_HD inline void prolongpoint(const View& phi, const View& res, const CView& cphi, int i,
                                   int j, int k) {
    const int ic = (i + 1) / 2, jc = (j + 1) / 2, kc = (k + 1) / 2;
    const int di = (i & 1) != 0 ? -1 : 1, dj = (j & 1) != 0 ? -1 : 1, dk = (k & 1) != 0 ? -1 : 1;
    const double p = cphi(ic, jc, kc);
    const double c =
        fourpoint(p, cphi(ic + di, jc, kc), cphi(ic, jc + dj, kc), cphi(ic, jc, kc + dk));
    phi(i, j, k) = phi(i, j, k) + c;
    res(i, j, k) = c;
}

// One vertical line of the smoother solved exactly: cz phi(k-1) + d0 phi(k) + cz phi(k+1) = r(k),
// k = 1..nz, with r(k) = src - (phi(i-1) + phi(i+1)) cx - (phi(j-1) + phi(j+1)) cy at the
// current values, by the Thomas algorithm over the eliminated diagonal bm (eliminateddiagonal).
// The line's own values are not in its right-hand side, so the elimination runs in place.
RIFFLE_HD inline void solveline(const View& phi, const CView& src, int i, int j, int nz, double cx,
                                double cy, double cz, const double* bm) {
    for (int k = 1; k <= nz; ++k) {
        double r = src(i, j, k) - (phi(i - 1, j, k) + phi(i + 1, j, k)) * cx -
                   (phi(i, j - 1, k) + phi(i, j + 1, k)) * cy;
        if (k > 1) r = r - cz * phi(i, j, k - 1) / bm[k - 1];
        phi(i, j, k) = r;
    }
    phi(i, j, nz) = phi(i, j, nz) / bm[nz];
    for (int k = nz - 1; k >= 1; --k)
        phi(i, j, k) = (phi(i, j, k) - cz * phi(i, j, k + 1)) / bm[k];
}

// The line of colour `colour` (0 or 1) that is number h (from 1) in row j of a level whose block
// starts at global offsets of parity `parity`: lines of one colour have no neighbour of their
// own colour in x or y, so a colour's lines may be solved in any order, all at once. 0 when the
// row has no such line.
RIFFLE_HD inline int colouredline(int h, int j, int colour, int parity, int nx) {
    const int i = 2 * h - 1 + ((j + colour + parity) & 1);
    return i <= nx ? i : 0;
}

} // namespace riffle::pressure
