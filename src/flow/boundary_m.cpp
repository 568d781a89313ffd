#include "flow/boundary_m.hpp"

#include <array>
#include <cstdlib>

#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

namespace {

// Element (m, a, b) of a field where m runs normal to a face in direction Dir (0 x, 1 y, 2 z)
// and (a, b) span the face plane, b the outer of the two.
template <int Dir> inline double& at(const View3<double>& f, int m, int a, int b) {
    if constexpr (Dir == 0) return f(m, a, b);
    if constexpr (Dir == 1) return f(a, m, b);
    return f(a, b, m);
}

struct Plane {
    int n;      // cells normal to the face
    int na, nb; // cells along the two plane directions (the plane covers 0..na+1 x 0..nb+1)
};

template <int Dir> Plane plane(const Geometry& grid) {
    if constexpr (Dir == 0) return {grid.imax, grid.jmax, grid.kmax};
    if constexpr (Dir == 1) return {grid.jmax, grid.imax, grid.kmax};
    return {grid.kmax, grid.imax, grid.jmax};
}

// A face across which the component is tangential: its ghost lies half a cell outside. The
// coefficient of the inner value is the code itself, so one formula serves all three codes.
template <int Dir>
void tangentialface(const View3<double>& f, Plane pl, bool low, int c, double val, double h) {
    const double cc = c;
    const double a = 1 - std::abs(c);
    const double s = low ? -1.0 : 1.0;
    const double bterm = (2.0 * ((1 - c) / 2) + s * ((c + 1) / 2) * h) * val;
    const int n = pl.n;
    const int ghost = low ? 0 : n + 1;
    const int inner = low ? 1 : n;
    const int partner = low ? n : 1;
    loops::forplane({0, pl.na + 1}, {0, pl.nb + 1}, [&](int a2, int b) {
        at<Dir>(f, ghost, a2, b) =
            cc * at<Dir>(f, inner, a2, b) + a * at<Dir>(f, partner, a2, b) + bterm;
    });
}

// A face normal to the component. Low face: target -((c+1)/2) (the face 0, or the layer -1 for a
// gradient face); high face: target n + (c+2)/2 (the face n, or n+1 for periodic and gradient).
template <int Dir>
void normalface(const View3<double>& f, Plane pl, bool low, int c, double val, double h) {
    const double a = 1 - std::abs(c);
    const int n = pl.n;
    if (low) {
        const int d = -((c + 1) / 2);
        const int target = d;
        const double bterm = ((1 - c) / 2 + 2.0 * d * h) * val;
        loops::forplane({0, pl.na + 1}, {0, pl.nb + 1}, [&](int a2, int b) {
            at<Dir>(f, target, a2, b) = a * at<Dir>(f, n, a2, b) + bterm - d * at<Dir>(f, 1, a2, b);
        });
    } else {
        const int e = (c + 1) / 2;
        const int target = n + (c + 2) / 2;
        const double bterm = (1 - (c + 2) / 2 + 2.0 * e * h) * val;
        loops::forplane({0, pl.na + 1}, {0, pl.nb + 1}, [&](int a2, int b) {
            at<Dir>(f, target, a2, b) =
                a * at<Dir>(f, 1, a2, b) + bterm + e * at<Dir>(f, n - 1, a2, b);
        });
    }
}

// Whether this block fills the ghosts of `face` by its rule: always on one rank and at the bottom
// and top; a side face shared with another block is filled by the halo exchange instead.
bool applies(const Geometry& grid, int face, int code) {
    return face > north || grid.dec.appliesface(face, code);
}

// The outer ghost layers in the component's own direction, after the six faces.
template <int Dir>
void outerghosts(const View3<double>& f, Plane pl, int clow, int chigh, bool low, bool high) {
    const int n = pl.n;
    loops::forplane({0, pl.na + 1}, {0, pl.nb + 1}, [&](int a2, int b) {
        if (low && clow == -1) {
            // Linear extrapolation through the prescribed face value.
            at<Dir>(f, -1, a2, b) = 2.0 * at<Dir>(f, 0, a2, b) - at<Dir>(f, 1, a2, b);
        }
        if (high && chigh == -1) {
            at<Dir>(f, n + 1, a2, b) = 2.0 * at<Dir>(f, n, a2, b) - at<Dir>(f, n - 1, a2, b);
        }
        if (low && clow == 0) at<Dir>(f, -1, a2, b) = at<Dir>(f, n - 1, a2, b);
    });
}

// Applies the faces of one direction pair (low then high), normal or tangential to the component.
template <int Dir>
void facepair(const Geometry& grid, const View3<double>& f, bool normal,
              const std::array<int, 7>& code, const std::array<double, 7>& val, double h) {
    const Plane pl = plane<Dir>(grid);
    const int lowface = 2 * Dir + 1, highface = 2 * Dir + 2;
    const bool low = applies(grid, lowface, code[lowface]);
    const bool high = applies(grid, highface, code[highface]);
    if (normal) {
        if (low) normalface<Dir>(f, pl, true, code[lowface], val[lowface], h);
        if (high) normalface<Dir>(f, pl, false, code[highface], val[highface], h);
    } else {
        if (low) tangentialface<Dir>(f, pl, true, code[lowface], val[lowface], h);
        if (high) tangentialface<Dir>(f, pl, false, code[highface], val[highface], h);
    }
}

// One component: the pair of faces normal to it, then the two tangential pairs in the order
// given, then its outer ghost layers. Each face is a loop of its own, so faces follow strictly
// in order.
// On several ranks the halo then comes from the neighbour blocks, corners included.
template <int Normal, int Second, int Third>
void component(const Geometry& grid, Field3d& field, const std::array<int, 7>& code,
               const std::array<double, 7>& val) {
    const double h[3] = {grid.dx, grid.dy, grid.dz};
    const View3<double> f = field.view();
    const int low = 2 * Normal + 1, high = 2 * Normal + 2;
    const bool outerlow = applies(grid, low, code[low]),
               outerhigh = applies(grid, high, code[high]);
    facepair<Normal>(grid, f, true, code, val, h[Normal]);
    facepair<Second>(grid, f, false, code, val, h[Second]);
    facepair<Third>(grid, f, false, code, val, h[Third]);
    outerghosts<Normal>(f, plane<Normal>(grid), code[low], code[high], outerlow, outerhigh);
    exchange(grid.dec, field, grid.imax, grid.jmax);
}

} // namespace

void boundaryu(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    component<0, 1, 2>(grid, flow.u, cond.ibu, cond.ubval);
}
void boundaryv(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    component<1, 2, 0>(grid, flow.v, cond.ibv, cond.vbval);
}
void boundaryw(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    component<2, 0, 1>(grid, flow.w, cond.ibw, cond.wbval);
}

void boundaryp(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    const View3<double> p = flow.p.view();
    static constexpr std::array<double, 7> novalue{};
    facepair<0>(grid, p, false, cond.ibp, novalue, grid.dx);
    facepair<2>(grid, p, false, cond.ibp, novalue, grid.dz);
    facepair<1>(grid, p, false, cond.ibp, novalue, grid.dy);
    exchange(grid.dec, flow.p, grid.imax, grid.jmax);
}

} // namespace riffle::flow
