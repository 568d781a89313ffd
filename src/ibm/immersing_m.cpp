// Immersed-boundary forcing. With the lists of forcing points switched on (a run), the routines
// walk the lists (forcinglist_m, forcingwalk_m), each split evenly among the threads. Otherwise
// they search the bed at every call: a loop over the u, v and w forcing points in turn, and one
// over the forcing cells for the eddy viscosity. A forcing point's wall law reads only fluid
// points (flag 1), which no loop here writes, so the result does not depend on how the points are
// shared.
#include "ibm/immersing_m.hpp"

#include <atomic>
#include <cstdint>

#include "ibm/forcinglist_m.hpp"
#include "ibm/forcingwalk_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "run/loops.hpp"

namespace riffle::ibm {

namespace {

// Runs `search` at the points of the box whose flag marks a forcing point, the k layers dealt out
// as the forcing asks; a search that finds no foot stops the run after the loop.
template <class Search>
void searchbox(const loops::Box& box, const ConstView3<std::int32_t>& flag, Site site,
               loops::Share share, Search search) {
    std::atomic<bool> failed{false};
    std::atomic<bool>* const fail = &failed;
    loops::forbox(
        box,
        [=](int i, int j, int k) {
            if (flag(i, j, k) == 0 && !search(i, j, k))
                fail->store(true, std::memory_order_relaxed);
        },
        share);
    if (failed.load()) searchfailed(site);
}

} // namespace

void immersing(const BedParts& parts) {
    if (parts.bed.forcing.enabled) {
        forcevelocity(parts);
        return;
    }
    const int imax = parts.grid.imax, jmax = parts.grid.jmax, kmax = parts.grid.kmax;
    const auto u = parts.flow.u.view(), v = parts.flow.v.view(), w = parts.flow.w.view();
    const BedView bed(parts); // what the point routines read, made once
    const BedView* cst = &bed;
    // k dealt out one layer at a time: the forcing points gather in the few layers just above the
    // bed, and contiguous blocks of k would give nearly all of them to the first thread.
    constexpr loops::Share turns = loops::Share::turns;
    // u(0), v(0), w(0) and w(kmax) are boundary faces: not forced here.
    searchbox({{1, imax}, {1, jmax}, {1, kmax}}, parts.bed.iflagu.cview(), Site::u, turns,
              [=](int i, int j, int k) { return searchu(*cst, i, j, k, u(i, j, k)); });
    searchbox({{1, imax}, {1, jmax}, {1, kmax}}, parts.bed.iflagv.cview(), Site::v, turns,
              [=](int i, int j, int k) { return searchv(*cst, i, j, k, v(i, j, k)); });
    searchbox({{1, imax}, {1, jmax}, {1, kmax - 1}}, parts.bed.iflagw.cview(), Site::w, turns,
              [=](int i, int j, int k) { return searchw(*cst, i, j, k, w(i, j, k)); });
}

void immersingnut(const BedParts& parts) {
    if (parts.bed.forcing.enabled) {
        forceeddy(parts);
        return;
    }
    const auto nut = parts.flow.nut.view();
    const BedView bed(parts);
    const BedView* cst = &bed;
    searchbox({{1, parts.grid.imax}, {1, parts.grid.jmax}, {1, parts.grid.kmax}},
              parts.bed.iflagp.cview(), Site::centre, loops::Share::blocks,
              [=](int i, int j, int k) { return searchnut(*cst, i, j, k, nut(i, j, k)); });
}

} // namespace riffle::ibm
