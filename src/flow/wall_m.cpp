// Side-wall log law. Each routine is two loops over the wall's (i, k) plane, u then w. Every
// point writes its own first-row value and reads only the second row, so the points are free of
// conflicts.
#include "flow/wall_m.hpp"

#include <cmath>

#include "run/loops.hpp"

namespace riffle::flow {

namespace {

constexpr double kappa = 0.4;                  // von Karman constant (cancels in the result)
constexpr double twelfth = 0.0833333333333333; // z0 = ks/12, with this rounding of 1/12
constexpr double mm = 1000.0;                  // ks is given in millimetres
constexpr double still = 1.0e-8;               // second-row speed below which the wall row is 0
constexpr double quarter = 0.25;               // weight of the four-point averages

// ln(y1/z0) and ln(y2/z0) for the wall distances of the first row and of the second.
struct LogLaw {
    double first, second;
};

LogLaw loglaw(double dy, double ks) {
    const double z0 = twelfth * ks / mm;
    const double y1 = 0.5 * dy / z0;
    const double y2 = (0.5 * dy + 0.5 * dy + dy) / z0; // 2 dy: deliberately not 1.5 dy
    return {std::log(y1), std::log(y2)};
}

// First-row value of the component `q` whose second-row velocity has speed `speed`: the friction
// velocity from the second row, the log-law speed at the first, the direction of the second.
inline double firstrow(double q, double speed, const LogLaw& law) {
    if (speed < still) return 0.0;
    return (q / speed) * (speed * kappa / law.second / kappa) * law.first;
}

inline double average4(double a, double b, double c, double d) { return quarter * (a + b + c + d); }

// The first row `wall` from the second row `row`. u: direction and speed from u and w averaged to
// the u point. w: from u averaged to the w point and `cross`, which is the wall-normal v at the
// south wall and w itself at the north wall (that difference is intended; see walls).
void sidewall(const Geometry& grid, const Conditions& cond, FlowFields& flow, int wall, int row,
              const ConstView3<double>& cross) {
    const int imax = grid.imax, kmax = grid.kmax;
    const LogLaw law = loglaw(grid.dy, cond.ks);
    const View3<double> u = flow.u.view();
    const View3<double> w = flow.w.view();

    loops::forplane({1, imax}, {1, kmax}, [&](int i, int k) {
        const double wbar =
            average4(w(i, row, k), w(i + 1, row, k), w(i, row, k - 1), w(i + 1, row, k - 1));
        const double speed = std::sqrt(u(i, row, k) * u(i, row, k) + wbar * wbar);
        u(i, wall, k) = firstrow(u(i, row, k), speed, law);
    });
    loops::forplane({1, imax}, {1, kmax}, [&](int i, int k) {
        const double ubar =
            average4(u(i - 1, row, k), u(i, row, k), u(i - 1, row, k + 1), u(i, row, k + 1));
        const double c = cross(i, row, k);
        const double speed = std::sqrt(ubar * ubar + c * c);
        w(i, wall, k) = firstrow(c, speed, law);
    });
}

} // namespace

// The w part at the south wall takes its second component from v, the wall-normal velocity, not
// from w as the north wall does: kept on purpose.
void walls(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    sidewall(grid, cond, flow, 1, 2, flow.v.cview());
}

void walln(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    sidewall(grid, cond, flow, grid.jmax, grid.jmax - 1, flow.w.cview());
}

} // namespace riffle::flow
