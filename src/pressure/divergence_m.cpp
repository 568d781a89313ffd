#include "pressure/divergence_m.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "run/console_m.hpp"
#include "run/parallel.hpp"

namespace riffle::pressure {

void divergence(Storage& st) {
    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const double dx = st.dx, dy = st.dy, dz = st.dz;
    const auto u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    Partials maxima(-std::numeric_limits<double>::infinity());
    Partials sums(0.0);
    // i shared among threads; j middle, k innermost, so each thread sums in a fixed order.
#pragma omp parallel
    {
        double& dmax = maxima.mine();
        double& dsum = sums.mine();
#pragma omp for schedule(static)
        for (int i = 1; i <= imax; ++i) {
            for (int j = 1; j <= jmax; ++j) {
                for (int k = 1; k <= kmax; ++k) {
                    const double d = (u(i, j, k) - u(i - 1, j, k)) / dx +
                                     (v(i, j, k) - v(i, j - 1, k)) / dy +
                                     (w(i, j, k) - w(i, j, k - 1)) / dz;
                    dsum += d;
                    dmax = std::max(dmax, std::abs(d));
                    if (std::abs(d) > divergencelimit) {
#pragma omp critical(riffle_console)
                        {
                            console::writeline(i, j, k);
                            console::pause();
                        }
                    }
                }
            }
        }
    }
    st.divmax = maxima.combine(0.0, [](double a, double b) { return std::max(a, b); });
    st.divtotal = sums.combine(0.0, [](double a, double b) { return a + b; });
}

}  // namespace riffle::pressure
