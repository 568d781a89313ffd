// Driving force: flow rate through the west face and the controller that follows it.
#include "flow/forces_m.hpp"

#include <algorithm>
#include <functional>

#include "ibm/flagdeter_m.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"

namespace riffle::flow {

namespace {

// Acceleration per unit of discharge deficit. Proportional only: no memory between steps.
constexpr double discharge_gain = 100.0;

// Height of cell k above the bed, at most one cell. Not bounded below: a cell whose u point is
// above the bed but whose top is not counts negatively (points inside the bed are skipped).
inline double wetheight(int k, double dz, double zmin, double bed) {
    return std::min(zmin + k * dz - bed, dz);
}

} // namespace

void forces(const Geometry& grid, const Conditions& cond, const BedState& bedstate,
            FlowFields& flow) {
    const int jmax = grid.jmax, kmax = grid.kmax;
    const double dy = grid.dy, dz = grid.dz, zmin = grid.zmin;
    const ConstView3<double> uo = flow.uo.cview();
    const ConstView3<std::int32_t> flagu = bedstate.iflagu.cview();
    const Field2d& zb = grid.zb;

    // The flow through the west face, row j by row j and k innermost within a row (the loop's
    // outer index carries j, its inner one k).
    double flowrate = loops::sumbox({{1, kmax}, {0, 0}, {1, jmax}}, [&](int k, int, int j) {
        if (flagu(0, j, k) == ibm::solid) return 0.0;
        const double bed = 0.5 * (zb(0, j) + zb(1, j));
        return uo(0, j, k) * dy * wetheight(k, dz, zmin, bed);
    });
    // On several ranks the blocks on the west face of the box carry the flow through it; the
    // others count nothing, and the rates are added in rank order.
    flowrate = allsum(grid.dec, grid.dec.ownsface(west) ? flowrate : 0.0);

    flow.fx = (cond.discharge - flowrate) * discharge_gain;
    flow.fy = 0.0;
    flow.fz = -cond.gravity;
}

} // namespace riffle::flow
