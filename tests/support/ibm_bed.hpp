// Set-up shared by the immersed-boundary tests: a box over a rough bed, beds and fields given as
// functions of position on the staggered grids, and the rough-wall velocity ratio.
#pragma once

#include <cmath>

#include "ibm/pointsearch_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "support/box.hpp"

namespace riffle::testsupport {

// A box of the given cells over 1 mm grain in water, rough wall, trilinear variant.
inline Storage roughbox(int imax, int jmax, int kmax, double dx, double dy, double dz) {
    Storage st = box(imax, jmax, kmax, dx, dy, dz);
    st.ks = 1.0;
    st.visc = 1.0e-6;
    st.ibed = 1;
    return st;
}

// zb at every cell centre, ghost columns included, from bed(x, y).
template <class F> void setbed(Storage& st, F bed) {
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i)
            st.zb(i, j) = bed(st.xmin + (i - 0.5) * st.dx, st.ymin + (j - 0.5) * st.dy);
}

// Every point of a field, ghosts included, from q(x, y, z); `face` is the direction whose faces
// carry the field (0 u, 1 v, 2 w, anything else cell centres).
template <class T, class F> void setfield(Field3<T>& a, const Storage& st, int face, F q) {
    for (int k = a.krange().lo; k <= a.krange().hi; ++k)
        for (int j = a.jrange().lo; j <= a.jrange().hi; ++j)
            for (int i = a.irange().lo; i <= a.irange().hi; ++i)
                a(i, j, k) = q(st.xmin + (i - (face == 0 ? 0.0 : 0.5)) * st.dx,
                               st.ymin + (j - (face == 1 ? 0.0 : 0.5)) * st.dy,
                               st.zmin + (k - (face == 2 ? 0.0 : 0.5)) * st.dz);
}

// Rough wall: u* = kappa Ut/ln(d/z0) at the image point and Up = (u*/kappa) ln(dP/z0) at P, so
// Up/Ut = ln(dP/z0)/ln(d/z0) whatever kappa is.
inline double logratio(double dp, double d, double z0) {
    return std::log(dp / z0) / std::log(d / z0);
}

// The value that the search and the wall law give point (i, j, k) of grid 0 u, 1 v, 2 w, 3 nut;
// a failed search stops as a loop of the solver stops after it.
inline double searched(const Storage& st, int grid, int i, int j, int k) {
    bool (*const search[4])(const ibm::BedView&, int, int, int,
                            double&) = {ibm::searchu, ibm::searchv, ibm::searchw, ibm::searchnut};
    double value = 99.0;
    if (!search[grid](ibm::BedView(st), i, j, k, value))
        ibm::searchfailed(static_cast<ibm::Site>(grid));
    return value;
}

// The forcing as the point-by-point routines define it, the reference of the lists' walks: every
// forcing point of the u, v and w grids in turn (w below kmax), or every forcing cell, in index
// order, takes the value of its own search and wall law.
inline void searchforcing(Storage& st, bool eddy = false) {
    bool (*const search[4])(const ibm::BedView&, int, int, int,
                            double&) = {ibm::searchu, ibm::searchv, ibm::searchw, ibm::searchnut};
    Field3d* const fields[4] = {&st.u, &st.v, &st.w, &st.nut};
    const Field3i* const flags[4] = {&st.iflagu, &st.iflagv, &st.iflagw, &st.iflagp};
    const ibm::BedView bed(st);
    for (int grid = eddy ? 3 : 0; grid < (eddy ? 4 : 3); ++grid)
        for (int k = 1; k <= st.kmax - (grid == 2); ++k)
            for (int j = 1; j <= st.jmax; ++j)
                for (int i = 1; i <= st.imax; ++i)
                    if ((*flags[grid])(i, j, k) == 0 &&
                        !search[grid](bed, i, j, k, (*fields[grid])(i, j, k)))
                        ibm::searchfailed(static_cast<ibm::Site>(grid));
}

inline double relerr(double a, double b) { return std::fabs(a - b) / std::fabs(b); }

} // namespace riffle::testsupport
