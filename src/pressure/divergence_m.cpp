#include "pressure/divergence_m.hpp"

#include "pressure/projection_k.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "run/console_m.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"
#include "run/parallel.hpp"

namespace riffle::pressure {

namespace {

// What a thread finds: the largest |d|, the sum of d in column order, and the cells over the
// limit (i j k in the whole box).
struct Found {
    double dmax = -std::numeric_limits<double>::infinity();
    double dsum = 0.0;
    std::vector<int> cells;
};

} // namespace

void divergence(const Geometry& grid, const FlowFields& flow, RunClock& clock) {
    const int imax = grid.imax, jmax = grid.jmax, kmax = grid.kmax;
    const double dx = grid.dx, dy = grid.dy, dz = grid.dz;
    const auto u = flow.u.cview(), v = flow.v.cview(), w = flow.w.cview();
    const int gi = grid.ioffset(), gj = grid.joffset();
    // Each thread sums its columns in order, k innermost, so a thread count gives fixed bits.
    const std::vector<Found> found = loops::forcolumns(
        {{1, imax}, {1, jmax}, {1, kmax}}, Found{},
        [=](int i, int j, int k) { return celldivergence(u, v, w, i, j, k, dx, dy, dz); },
        [=](Found& f, double d, int i, int j, int k) {
            f.dsum += d;
            f.dmax = std::max(f.dmax, std::abs(d));
            if (std::abs(d) > divergencelimit) f.cells.insert(f.cells.end(), {gi + i, gj + j, k});
        });
    double dmax = 0.0, dsum = 0.0;
    std::vector<int> cells;
    for (const Found& f : found) {
        dmax = std::max(dmax, f.dmax);
        dsum = dsum + f.dsum;
        cells.insert(cells.end(), f.cells.begin(), f.cells.end());
    }
    clock.divmax = dmax;
    clock.divtotal = dsum;
    // The cells over the limit, in the order the threads took them, each on a line of its own
    // and a pause for the operator after each; on several ranks, rank 0 reports every block's
    // cells by their indices in the whole box, and the largest and the sum over all blocks.
    const std::vector<int> all = gatherlists(grid.dec, cells);
    for (std::size_t n = 0; n + 2 < all.size(); n += 3) {
        console::writeline(all[n], all[n + 1], all[n + 2]);
        console::pause();
    }
    clock.divmax = allmax(grid.dec, clock.divmax);
    clock.divtotal = allsum(grid.dec, clock.divtotal);
}

} // namespace riffle::pressure
