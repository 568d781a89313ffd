#include "flow/smagorinsky_m.hpp"

#include "flow/smagorinsky_k.hpp"

#include <cmath>
#include <cstdlib>

#include "ibm/immersing_m.hpp"
#include "ibm/wallmodel_m.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

namespace {

// Ghost layers in direction Dir (0 x, 1 y, 2 z) of the strain arrays and nut:
//   strain: ghost = |c| inner + (1 - |c|) opposite interior  (a copy at every non-periodic face)
//   nut:    ghost = -c inner + (1 - |c|) opposite interior
// The sign of the code is kept for nut alone, so nut changes sign across the free surface and
// the side walls and keeps it at the bed: the eddy viscosity the momentum stencils see there.
template <int Dir> void ghostfaces(const Geometry& grid, const Conditions& cond, FlowFields& flow) {
    const int n = Dir == 0 ? grid.imax : Dir == 1 ? grid.jmax : grid.kmax;
    const int na = Dir == 0 ? grid.jmax : grid.imax; // inner plane index
    const int nb = Dir == 2 ? grid.jmax : grid.kmax; // outer plane index, shared among threads
    const double clo = cond.ibp[2 * Dir + 1], chi = cond.ibp[2 * Dir + 2];
    const double alo = std::abs(clo), ahi = std::abs(chi);
    const View3<double> strain[7] = {flow.s11.view(), flow.s22.view(), flow.s33.view(),
                                     flow.s12.view(), flow.s13.view(), flow.s23.view(),
                                     flow.sabs.view()};
    const View3<double> nut = flow.nut.view();
    const auto at = [](const View3<double>& f, int m, int a, int b) -> double& {
        if constexpr (Dir == 0) return f(m, a, b);
        if constexpr (Dir == 1) return f(a, m, b);
        return f(a, b, m);
    };
    // A side face shared with another block gets its halo from the exchange instead.
    const bool low = Dir == 2 || grid.dec.appliesface(2 * Dir + 1, cond.ibp[2 * Dir + 1]);
    const bool high = Dir == 2 || grid.dec.appliesface(2 * Dir + 2, cond.ibp[2 * Dir + 2]);
    loops::forplane(Range{0, na + 1}, Range{0, nb + 1}, [=](int a, int b) {
        for (const View3<double>& f : strain) {
            if (low) at(f, 0, a, b) = alo * at(f, 1, a, b) + (1.0 - alo) * at(f, n, a, b);
            if (high) at(f, n + 1, a, b) = ahi * at(f, n, a, b) + (1.0 - ahi) * at(f, 1, a, b);
        }
        if (low) at(nut, 0, a, b) = -clo * at(nut, 1, a, b) + (1.0 - alo) * at(nut, n, a, b);
        if (high) at(nut, n + 1, a, b) = -chi * at(nut, n, a, b) + (1.0 - ahi) * at(nut, 1, a, b);
    });
}

} // namespace

void smagorinsky(const Geometry& grid, const Conditions& cond, FlowFields& flow,
                 BedState& bedstate) {
    const int imax = grid.imax, jmax = grid.jmax, kmax = grid.kmax;
    const double dx = grid.dx, dy = grid.dy, dz = grid.dz;
    const double delta = std::cbrt(dx * dy * dz);
    const double cl2 = (delta * cond.cs) * (delta * cond.cs);
    const auto u = flow.u.cview(), v = flow.v.cview(), w = flow.w.cview();
    const auto s11 = flow.s11.view(), s22 = flow.s22.view(), s33 = flow.s33.view();
    const auto s12 = flow.s12.view(), s13 = flow.s13.view(), s23 = flow.s23.view();
    const auto sabs = flow.sabs.view(), nut = flow.nut.view();
    // The strain arrays and nut are written, the velocities read: no dependence between points.
    loops::forbox({{1, imax}, {1, jmax}, {1, kmax}}, [=](int i, int j, int k) {
        const Strain s = strainrate(u, v, w, dx, dy, dz, i, j, k);
        s11(i, j, k) = s.s11;
        s22(i, j, k) = s.s22;
        s33(i, j, k) = s.s33;
        s12(i, j, k) = s.s12;
        s13(i, j, k) = s.s13;
        s23(i, j, k) = s.s23;
        sabs(i, j, k) = magnitude(s);
        nut(i, j, k) = cl2 * sabs(i, j, k);
    });
    // Forcing cells next to the bed take the eddy viscosity of the wall-law interpolation; it
    // reads only fluid cells, which that loop does not write. On blocks it reads those of the
    // neighbours near their faces too.
    exchangeinside(grid.dec, flow.nut, imax, jmax);
    // With the wall-layer model, the forcing cells and the layer above them carry the wall law's
    // stress instead.
    if (cond.iwallmodel == 1) {
        ibm::wallnut({grid, cond, flow, bedstate});
    } else {
        ibm::immersingnut({grid, cond, flow, bedstate});
    }
    ghostfaces<0>(grid, cond, flow);
    ghostfaces<1>(grid, cond, flow);
    ghostfaces<2>(grid, cond, flow);
    // The momentum stencils read nut across the block faces; the strain arrays' halos are not read.
    exchange(grid.dec, flow.nut, imax, jmax);
}

} // namespace riffle::flow
