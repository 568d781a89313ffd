// Fields set from functions of position, and a few loops the flow and pressure tests share.
// Cell (i,j,k) spans xmin + (i-1) dx .. xmin + i dx (likewise in y and z): its centre is at
// (i - 0.5) dx, u(i) sits on its east face at i dx, v(j) on its north face, w(k) on its top.
#pragma once

#include <array>
#include <cmath>
#include <initializer_list>
#include <random>

#include "run/storage_m.hpp"

namespace riffle::testsupport {

using Vec = std::array<double, 3>;
using Mat = std::array<Vec, 3>;

// a(i,j,k) = f(x, y, z) over every index of a, ghosts included, at x = xmin + (i - sx) dx etc.
template <class F> void setfield(const Storage& st, Field3d& a, Vec s, F f) {
    for (int k = a.krange().lo; k <= a.krange().hi; ++k)
        for (int j = a.jrange().lo; j <= a.jrange().hi; ++j)
            for (int i = a.irange().lo; i <= a.irange().hi; ++i)
                a(i, j, k) = f(st.xmin + (i - s[0]) * st.dx, st.ymin + (j - s[1]) * st.dy,
                               st.zmin + (k - s[2]) * st.dz);
}
template <class F> void setcentres(const Storage& st, Field3d& a, F f) {
    setfield(st, a, {0.5, 0.5, 0.5}, f);
}

// The three staggered components of the velocity field f(x, y, z) -> Vec.
template <class F> void setvelocity(const Storage& st, Field3d& u, Field3d& v, Field3d& w, F f) {
    setfield(st, u, {0.0, 0.5, 0.5}, [&](double x, double y, double z) { return f(x, y, z)[0]; });
    setfield(st, v, {0.5, 0.0, 0.5}, [&](double x, double y, double z) { return f(x, y, z)[1]; });
    setfield(st, w, {0.5, 0.5, 0.0}, [&](double x, double y, double z) { return f(x, y, z)[2]; });
}

// The linear field c + G x: every finite difference of it is exact.
struct Linear {
    Vec c;
    Mat g;
    Vec operator()(double x, double y, double z) const {
        Vec r{};
        for (std::size_t a = 0; a < 3; ++a)
            r[a] = c[a] + g[a][0] * x + g[a][1] * y + g[a][2] * z;
        return r;
    }
};
// One with all nine gradient components non-zero and distinct, trace 0.1.
inline const Linear linear{{0.4, -0.3, 0.2},
                           {{{0.3, -1.2, 0.8}, {2.1, -0.7, -0.4}, {-0.9, 1.6, 0.5}}}};

// f(i,j,k) over the interior cells 1..imax x 1..jmax x 1..kmax.
template <class F> void interior(const Storage& st, F f) {
    for (int k = 1; k <= st.kmax; ++k)
        for (int j = 1; j <= st.jmax; ++j)
            for (int i = 1; i <= st.imax; ++i)
                f(i, j, k);
}

// Uniform random values in [lo, hi) over every element of each field.
inline void randomise(std::initializer_list<Field3d*> fields, unsigned seed, double lo, double hi) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> r(lo, hi);
    for (Field3d* a : fields)
        for (std::size_t n = 0; n < a->size(); ++n)
            a->data()[n] = r(gen);
}

} // namespace riffle::testsupport
