#include "pressure/divergence_m.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "run/console_m.hpp"
#include "run/halo_m.hpp"
#include "run/parallel.hpp"

namespace riffle::pressure {

namespace {

// Columns of i handled together: their divergences are formed plane by plane with unit stride,
// then summed column by column in the reporting order.
constexpr int tilewidth = 8;

}  // namespace

void divergence(Storage& st) {
    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const double dx = st.dx, dy = st.dy, dz = st.dz;
    const auto u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    const bool distributed = st.dec.distributed();
    const int gi = st.ioffset(), gj = st.joffset();
    std::vector<int> cells;  // several ranks: i j k in the whole box of each cell over the limit
    Partials maxima(-std::numeric_limits<double>::infinity());
    Partials sums(0.0);
    const std::size_t tileplane = static_cast<std::size_t>(tilewidth) * jmax;  // one k of a tile
    const std::size_t tilesize = tileplane * kmax;
    // i shared among threads; j middle, k innermost, so each thread sums in a fixed order.
#pragma omp parallel
    {
        double& dmax = maxima.mine();
        double& dsum = sums.mine();
        thread_local std::vector<double> tile;
        if (tile.size() < tilesize) tile.resize(tilesize);  // once per thread and grid
        double* const dt = tile.data();
        const Block b = staticblock(1, imax);
        for (int i0 = b.lo; i0 <= b.hi; i0 += tilewidth) {
            const int n = std::min(tilewidth, b.hi - i0 + 1);
            // d(i0 + m, j, k) at dt[m + tilewidth ((j - 1) + jmax (k - 1))].
            for (int k = 1; k <= kmax; ++k) {
                for (int j = 1; j <= jmax; ++j) {
                    double* const row = dt + tilewidth * (j - 1) + tileplane * (k - 1);
#pragma omp simd
                    for (int m = 0; m < n; ++m) {
                        const int i = i0 + m;
                        row[m] = (u(i, j, k) - u(i - 1, j, k)) / dx +
                                 (v(i, j, k) - v(i, j - 1, k)) / dy +
                                 (w(i, j, k) - w(i, j, k - 1)) / dz;
                    }
                }
            }
            for (int m = 0; m < n; ++m) {
                for (int j = 1; j <= jmax; ++j) {
                    const double* col = dt + m + tilewidth * (j - 1);
                    for (int k = 1; k <= kmax; ++k, col += tileplane) {
                        const double d = *col;
                        dsum += d;
                        dmax = std::max(dmax, std::abs(d));
                        if (std::abs(d) > divergencelimit) {
#pragma omp critical(riffle_console)
                            {
                                if (distributed) {
                                    cells.insert(cells.end(), {gi + i0 + m, gj + j, k});
                                } else {
                                    console::writeline(i0 + m, j, k);
                                    console::pause();
                                }
                            }
                        }
                    }
                }
            }
        }
    }
    st.divmax = maxima.combine(0.0, [](double a, double b) { return std::max(a, b); });
    st.divtotal = sums.combine(0.0, [](double a, double b) { return a + b; });
    if (!distributed) return;
    // Several ranks: rank 0 reports every block's cells by their indices in the whole box, and
    // the largest and the sum over all blocks.
    const std::vector<int> all = gatherlists(cells);
    for (std::size_t n = 0; n + 2 < all.size(); n += 3) {
        console::writeline(all[n], all[n + 1], all[n + 2]);
        console::pause();
    }
    st.divmax = allmax(st.divmax);
    st.divtotal = allsum(st.divtotal);
}

}  // namespace riffle::pressure
