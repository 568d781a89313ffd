#include "ibm/wallmodel_m.hpp"

#include <cstddef>

namespace riffle::ibm {

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
                return quarter * (b(i, j, c) + b(i + 1, j, c) + b(i, j + 1, c) + b(i + 1, j + 1, c));
            };
            out.tau[at] = mean(0);
            out.taux[at] = mean(1);
            out.tauy[at] = mean(2);
        }
    }
}

} // namespace riffle::ibm
