#include "pressure/linesweep_m.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace riffle::pressure {

// The eliminated diagonal b(1..nz) of the column system.
void eliminateddiagonal(double d0, double cz, double tb, double tt, int nz, double* b) {
    for (int k = 1; k <= nz; ++k)
        b[k] = d0;
    b[1] = b[1] + cz * tb;
    b[nz] = b[nz] + cz * tt;
    for (int k = 1; k < nz; ++k)
        b[k + 1] = b[k + 1] - cz * cz / b[k];
}

namespace {

// Columns solved together, one per lane of a vector register: strips of 8 rows, and of 4 or 2
// where fewer rows are left (few rows per thread on small or coarse grids).
template <int L> struct LaneVector;
template <> struct LaneVector<8> {
    using type = double __attribute__((vector_size(8 * sizeof(double))));
};
template <> struct LaneVector<4> {
    using type = double __attribute__((vector_size(4 * sizeof(double))));
};
template <> struct LaneVector<2> {
    using type = double __attribute__((vector_size(2 * sizeof(double))));
};
template <int L> using Lanes = typename LaneVector<L>::type;

// One strip of nl <= L rows from j0, swept as a skewed wavefront: at step s lane l solves column
// (s - l, j0 + l), one column behind the row below it. A column needs the new values of its west
// and south neighbours and the old values of its east and north ones, so each column sees exactly
// the values the row-by-row sweep would give it, while the lanes' recurrences in k run side by
// side.
template <int L>
void sweepstrip(const View3<double>& phi, const ConstView3<double>& src, int nx, int j0, int nl,
                int nz, double cx, double cy, double cz, const double* bm) {
    using V = Lanes<L>;
    thread_local std::vector<V> work;
    const std::size_t need = 3 * (static_cast<std::size_t>(nz) + 1);
    if (work.size() < need) work.resize(need); // once per thread and size
    V* const r = work.data();
    V* x = r + nz + 1;  // this step's columns
    V* xp = x + nz + 1; // the previous step's columns
    // Strides of phi and src between neighbours in j and k (the same layout for both), and
    // between the columns of neighbouring lanes (one row up, one column back).
    const std::ptrdiff_t sj = &phi(1, 2, 1) - &phi(1, 1, 1);
    const std::ptrdiff_t sk = &phi(1, 1, 2) - &phi(1, 1, 1);
    const std::ptrdiff_t sl = sj - 1;
    for (int s = 1; s <= nx + nl - 1; ++s) {
        const int lfirst = std::max(0, s - nx), llast = std::min(nl - 1, s - 1);
        if (nl == L && s > L && s <= nx) {
            // All lanes busy and none at i = 1: the west neighbour of each column and the south
            // neighbour of all but the first lane are the columns solved one step ago.
            const double* p = &phi(s, j0, 1);
            const double* q = &src(s, j0, 1);
            // Every eighth step the lines two cache lines ahead of the wavefront are asked for:
            // the strip reads 2 L + 1 rows of every plane, too many streams for the hardware to
            // follow.
            const bool fetch = (s & 7) == 0 && s + 16 <= nx;
            for (int k = 1; k <= nz; ++k, p += sk, q += sk) {
                if (fetch) {
                    for (int l = -1; l <= L; ++l) {
                        __builtin_prefetch(p + 16 + l * sj, 1);
                        __builtin_prefetch(q + 16 + l * sj);
                    }
                }
                V east, north, sv, south;
                for (int l = 0; l < L; ++l) {
                    east[l] = p[l * sl + 1];
                    north[l] = p[l * sl + sj];
                    sv[l] = q[l * sl];
                }
                south[0] = p[-sj];
                for (int l = 1; l < L; ++l)
                    south[l] = xp[k][l - 1];
                V rk = sv - (xp[k] + east) * cx - (south + north) * cy;
                if (k > 1) rk = rk - cz * r[k - 1] / bm[k - 1];
                r[k] = rk;
            }
        } else {
            // Idle lanes (the wavefront's ends, a short strip) solve a zero column.
            for (int l = 0; l < L; ++l) {
                if (l >= lfirst && l <= llast) continue;
                for (int k = 1; k <= nz; ++k)
                    r[k][l] = 0.0;
            }
            for (int l = lfirst; l <= llast; ++l) {
                const double* p = &phi(s - l, j0 + l, 1);
                const double* q = &src(s - l, j0 + l, 1);
                for (int k = 1; k <= nz; ++k, p += sk, q += sk) {
                    r[k][l] = *q - (p[-1] + p[1]) * cx - (p[-sj] + p[sj]) * cy;
                }
            }
            for (int k = 1; k < nz; ++k)
                r[k + 1] = r[k + 1] - cz * r[k] / bm[k];
        }
        x[nz] = r[nz] / bm[nz];
        for (int k = nz - 1; k >= 1; --k)
            x[k] = (r[k] - cz * x[k + 1]) / bm[k];
        for (int l = lfirst; l <= llast; ++l) {
            double* p = &phi(s - l, j0 + l, 1);
            for (int k = 1; k <= nz; ++k, p += sk)
                *p = x[k][l];
        }
        std::swap(x, xp);
    }
}

} // namespace

// One lexicographic sweep (i innermost, then j) over the rows jlo..jhi, strip by strip.
void linesweep(const View3<double>& phi, const ConstView3<double>& src, int nx, int jlo, int jhi,
               int nz, double cx, double cy, double cz, const double* bm) {
    if (nx < 1) return;
    for (int j0 = jlo; j0 <= jhi;) {
        const int left = jhi - j0 + 1;
        if (left >= 8) {
            sweepstrip<8>(phi, src, nx, j0, 8, nz, cx, cy, cz, bm);
            j0 += 8;
        } else if (left >= 3) {
            const int nl = std::min(4, left);
            sweepstrip<4>(phi, src, nx, j0, nl, nz, cx, cy, cz, bm);
            j0 += nl;
        } else {
            sweepstrip<2>(phi, src, nx, j0, left, nz, cx, cy, cz, bm);
            j0 += left;
        }
    }
}

} // namespace riffle::pressure
