#include "ibm/wallmodel_m.hpp"

#include <cstddef>
#include <cstdlib>

#include "ibm/forcinglist_m.hpp"
#include "run/halo_m.hpp"

namespace riffle::ibm {

namespace {

// Ghost columns of the bed stress by the pressure codes: a copy of the adjacent column at a
// wall, the column at the far end on a periodic face; a face shared with another block takes
// its neighbour's columns from the exchange.
void ghostcolumns(Storage& st) {
    const View3<double> b = st.bedshear.view();
    const int imax = st.imax, jmax = st.jmax;
    const bool blocks = st.dec.distributed();
    for (int dir = 0; dir < 2; ++dir) {
        const int lo = 2 * dir + 1, hi = 2 * dir + 2;
        const double alo = std::abs(st.ibp[lo]), ahi = std::abs(st.ibp[hi]);
        const bool low = !blocks || st.dec.appliesface(lo, st.ibp[lo]);
        const bool high = !blocks || st.dec.appliesface(hi, st.ibp[hi]);
        const int n = dir == 0 ? imax : jmax, na = dir == 0 ? jmax : imax;
        for (int c = 0; c < 3; ++c) {
            for (int a = 0; a <= na + 1; ++a) {
                double& g0 = dir == 0 ? b(0, a, c) : b(a, 0, c);
                double& g1 = dir == 0 ? b(n + 1, a, c) : b(a, n + 1, c);
                const double in0 = dir == 0 ? b(1, a, c) : b(a, 1, c);
                const double inn = dir == 0 ? b(n, a, c) : b(a, n, c);
                if (low) g0 = alo * in0 + (1.0 - alo) * inn;
                if (high) g1 = ahi * inn + (1.0 - ahi) * in0;
            }
        }
    }
}

} // namespace

void wallnut(Storage& st) {
    forcewall(st, wall_layers);
    ghostcolumns(st);
    if (st.dec.distributed()) exchange(st.dec, st.bedshear, st.imax, st.jmax);
}

void bedshearnodes(const Storage& st, BedShearNodes& out) {
    const std::size_t count = static_cast<std::size_t>(st.imax + 1) * (st.jmax + 1);
    out.tau.assign(count, 0.0);
    out.taux.assign(count, 0.0);
    out.tauy.assign(count, 0.0);
    if (!st.bedshear.allocated()) return;
    const auto b = st.bedshear.cview();
    const double quarter = 0.25 * st.dens;
    std::size_t at = 0;
    for (int j = 0; j <= st.jmax; ++j) {
        for (int i = 0; i <= st.imax; ++i, ++at) {
            // Node (i, j) is the corner shared by the columns i, i+1 and j, j+1.
            const auto mean = [&](int c) {
                return quarter *
                       (b(i, j, c) + b(i + 1, j, c) + b(i, j + 1, c) + b(i + 1, j + 1, c));
            };
            out.tau[at] = mean(0);
            out.taux[at] = mean(1);
            out.tauy[at] = mean(2);
        }
    }
}

} // namespace riffle::ibm
