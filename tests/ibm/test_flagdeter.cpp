// Classification against the bed: flat beds layer by layer, the strict "below" test, ghost images
// through periodic and wall codes, the forcing shell of a bump, repeatability on one and two
// threads, and the hand-over of newly emerged points to the point search.
#include <gtest/gtest.h>

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>
#include <vector>

#include "ibm/flagdeter_m.hpp"
#include "ibm/pointsearch_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"

namespace riffle {
namespace {

constexpr int I = 6, J = 5, K = 4;
constexpr double dz = 0.5, zmin = -1.0;  // centres at -0.75, -0.25, ...; w faces at -0.5, 0, ...
constexpr Field3i Storage::*flags[4] = {&Storage::iflagu, &Storage::iflagv, &Storage::iflagw,
                                        &Storage::iflagp};

Storage bedbox(const std::function<double(int, int)>& bed) {
    Storage st = testsupport::box(I, J, K, 1.0, 1.0, dz);
    st.zmin = zmin;
    st.zmax = zmin + K * dz;
    setboundarycodes(st, 0, 1, 0);  // periodic in x, side walls, free-slip surface
    for (int j = 0; j <= J + 1; ++j)
        for (int i = 0; i <= I + 1; ++i)
            st.zb(i, j) = bed(i, j);
    return st;
}

// Calls fn(a, i, j, k) for every element of array a (0..3: u v w p) that flagdeter writes: all but
// iflagu(-1, ., .) off the interior rows.
void forwritten(const Storage& st, const std::function<void(int, int, int, int)>& fn) {
    for (int a = 0; a < 4; ++a) {
        const Field3i& f = st.*flags[a];
        for (int k = f.krange().lo; k <= f.krange().hi; ++k)
            for (int j = f.jrange().lo; j <= f.jrange().hi; ++j)
                for (int i = f.irange().lo; i <= f.irange().hi; ++i)
                    if (a != 0 || i != -1 || (j >= 1 && j <= J && k >= 1 && k <= K)) fn(a, i, j, k);
    }
}

std::vector<int> written(const Storage& st) {
    std::vector<int> out;
    forwritten(st, [&](int a, int i, int j, int k) { out.push_back((st.*flags[a])(i, j, k)); });
    return out;
}

TEST(Flagdeter, FlatBedAtZminAndBedsBelowLeaveEverythingFluid) {
    // Layer k = 0 of u, v and p (centre zmin - dz/2) lies below a bed at zmin and is classified
    // solid, but the z ghost fill then copies layer 1 into it (bottom codes +-1 copy), so nothing
    // solid remains and layer 1 gets no forcing: the bottom wall is the boundary conditions' job.
    // The w face k = 0 lies exactly on that bed and is fluid.
    for (double lowest : {zmin, zmin - 0.5 * dz - 1e-9, zmin - 3.0}) {
        Storage st = bedbox([&](int i, int j) { return lowest - 0.01 * ((i * j) % 3); });
        ibm::flagdeter(st);
        const std::vector<int> all = written(st);
        EXPECT_EQ(std::count(all.begin(), all.end(), ibm::fluid), std::ssize(all)) << lowest;
    }
}

TEST(Flagdeter, FlatBedOnAFaceGivesSolidForcingAndFluidLayers) {
    Storage st = bedbox([](int, int) { return zmin + dz; });  // exactly on the w face k = 1
    ibm::flagdeter(st);
    // u, v, p: centres 0, 1 below, 2 the first above. w: faces -1, 0 below, 1 on the bed (fluid).
    const int centres[K + 2] = {-1, -1, 0, 1, 1, 1};
    int checked = 0;
    forwritten(st, [&](int a, int i, int j, int k) {
        // The extra layer of v (j = -1) and w (k = -1) is filled first; on its edges, which the
        // later fills do not cover, it keeps the image from before the marking.
        const bool iedge = i == 0 || i == I + 1;
        if ((a == 1 && j == -1 && iedge) || (a == 2 && k == -1 && (iedge || j == 0 || j == J + 1)))
            return;
        const int expected = a == 2 ? (k <= 0 ? -1 : k == 1 ? 0 : 1) : centres[k];
        EXPECT_EQ((st.*flags[a])(i, j, k), expected) << a << " " << i << " " << j << " " << k;
        ++checked;
    });
    const int plane = (I + 2) * (J + 2) * (K + 2);
    EXPECT_EQ(checked, 4 * plane + J * K + I * (K + 2) + I * J);
    // The next height above the face makes the face solid.
    st.zb.fill(std::nextafter(zmin + dz, 1.0));
    ibm::flagdeter(st);
    EXPECT_EQ(st.iflagw(3, 2, 1), ibm::solid);
    EXPECT_EQ(st.iflagw(3, 2, 2), ibm::forcing);
}

TEST(Flagdeter, GhostImagesOfABumpFollowTheCodes) {
    // A bump two faces high in column (1, 3); the bed's ghost column I+1 is its periodic image.
    Storage st = bedbox([](int i, int j) { return i % I == 1 && j == 3 ? zmin + 2 * dz : zmin; });
    ibm::flagdeter(st);
    EXPECT_EQ(st.iflagp(I + 1, 3, 1), ibm::solid);    // image of the bump
    EXPECT_EQ(st.iflagp(I + 1, 2, 1), ibm::forcing);  // images of its neighbours at the side
    EXPECT_EQ(st.iflagp(I + 1, 3, 3), ibm::forcing);  // and on top
    EXPECT_EQ(st.iflagp(I, 3, 1), ibm::forcing);      // forced through the periodic ghost
    EXPECT_EQ(st.iflagp(0, 3, 1), ibm::forcing);      // and imaged itself
    EXPECT_EQ(st.iflagv(I + 1, 2, 1), ibm::solid);
    EXPECT_EQ(st.iflagv(I + 1, 2, 2), ibm::forcing);
    EXPECT_EQ(st.iflagw(I + 1, 3, 2), ibm::forcing);
    EXPECT_EQ(st.iflagu(I + 1, 3, 1), ibm::solid);  // u(I+1) = u(1)
    EXPECT_EQ(st.iflagu(-1, 3, 1), ibm::forcing);   // u(-1) = u(I-1), next to the solid u(I)
    for (int code : {-1, 1}) {  // wall and gradient codes copy the adjacent layer, sign kept
        st.ibp[west] = st.ibp[east] = code;
        ibm::flagdeter(st);
        EXPECT_EQ(st.iflagp(0, 3, 1), ibm::solid);
        EXPECT_EQ(st.iflagp(I + 1, 3, 1), ibm::fluid);
        EXPECT_EQ(st.iflagp(I, 3, 1), ibm::fluid);
    }
}

TEST(Flagdeter, ForcingPointsAreExactlyTheFluidNeighboursOfSolidPoints) {
    // An uneven bump well inside the box, so that the ghost neighbours of fluid points are fluid
    // (x and y ghosts are far from it; z ghosts copy the point's own column).
    Storage st = bedbox([](int i, int j) {
        const bool in = i >= 3 && i <= 4 && j >= 2 && j <= 3;
        return in ? zmin + dz * (0.6 + 0.7 * ((7 * i + 3 * j) % 5)) : zmin - 0.7 * dz;
    });
    ibm::flagdeter(st);
    const int bi[4] = {1, 0, 0, 0}, bj[4] = {0, 1, 0, 0};   // bed: mean with column (i+bi, j+bj)
    const auto solidat = [&](int a, int i, int j, int k) {  // by height, classified points only
        const int ihi = a == 0 ? I : I + 1, jhi = a == 1 ? J : J + 1, klo = a == 2 ? 0 : 1;
        if (i < 0 || i > ihi || j < 0 || j > jhi || k < klo || k > K) return false;
        const double height = a == 2 ? zmin + k * dz : zmin + (k - 0.5) * dz;
        return height < 0.5 * (st.zb(i, j) + st.zb(i + bi[a], j + bj[a]));
    };
    int counts[3] = {0, 0, 0};
    for (int a = 0; a < 4; ++a)  // over the points that may be marked
        for (int k = a == 2 ? 0 : 1; k <= K; ++k)
            for (int j = a == 1 ? 0 : 1; j <= J; ++j)
                for (int i = a == 0 ? 0 : 1; i <= I; ++i) {
                    const bool near = solidat(a, i - 1, j, k) || solidat(a, i + 1, j, k) ||
                                      solidat(a, i, j - 1, k) || solidat(a, i, j + 1, k) ||
                                      solidat(a, i, j, k - 1) || solidat(a, i, j, k + 1);
                    const int expected = solidat(a, i, j, k) ? -1 : near ? 0 : 1;
                    EXPECT_EQ((st.*flags[a])(i, j, k), expected)
                        << a << " " << i << " " << j << " " << k;
                    ++counts[expected + 1];
                }
    EXPECT_GT(counts[0], 10);
    EXPECT_GT(counts[1], 20);
    EXPECT_EQ(counts[0] + counts[1] + counts[2], 4 * I * J * K + J * K + I * K + I * J);
}

TEST(Flagdeter, RepeatableAndTheSameOnOneAndTwoThreads) {
    Storage st =
        bedbox([](int i, int j) { return zmin + dz * 2 * std::abs(std::sin(1.3 * i + 2.1 * j)); });
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    ibm::flagdeter(st);
    const std::vector<int> one = written(st);
    omp_set_num_threads(2);
    for (int pass = 0; pass < 2; ++pass) {
        for (auto f : flags)
            (st.*f).fill(7);  // nothing may survive from before
        ibm::flagdeter(st);
        EXPECT_EQ(written(st), one);
    }
    omp_set_num_threads(threads);
    EXPECT_GT(std::count(one.begin(), one.end(), ibm::forcing), 0);
}

TEST(Flagmove, NewlyEmergedForcingPointsTakeTheSearchedVelocity) {
    Storage st =
        bedbox([](int, int) { return zmin + 1.3 * dz; });  // forcing layer k = 2 everywhere
    st.ks = 1.0;
    st.ibed = 1;
    ibm::flagdeter(st);
    st.u.fill(1.0);
    st.v.fill(0.5);
    st.w.fill(0.0);
    for (Field3d* f : {&st.uo, &st.vo, &st.wo})
        f->fill(7.0);
    for (auto [now, old] : {std::pair{&st.iflagu, &st.iflaguo}, std::pair{&st.iflagv, &st.iflagvo},
                            std::pair{&st.iflagw, &st.iflagwo}})
        std::copy(now->data(), now->data() + now->size(), old->data());
    // Solid then forcing now: searched. Fluid then forcing, solid both times (all of layer 1),
    // solid then fluid: left alone.
    st.iflaguo(3, 2, 2) = st.iflagvo(2, 4, 2) = st.iflagwo(5, 3, 2) = ibm::solid;
    st.iflaguo(4, 3, 2) = ibm::fluid;
    st.iflagwo(1, 1, 3) = ibm::solid;
    double u = 7.0, v = 7.0, w = 7.0;
    ibm::searchu(st, 3, 2, 2, u);
    ibm::searchv(st, 2, 4, 2, v);
    ibm::searchw(st, 5, 3, 2, w);
    ibm::flagmove(st);
    int moved = 0;
    for (int k = 1; k <= K; ++k)
        for (int j = 1; j <= J; ++j)
            for (int i = 1; i <= I; ++i)
                moved +=
                    (st.uo(i, j, k) != 7.0) + (st.vo(i, j, k) != 7.0) + (st.wo(i, j, k) != 7.0);
    EXPECT_EQ(moved, 3);
    EXPECT_EQ(st.uo(3, 2, 2), u);
    EXPECT_EQ(st.vo(2, 4, 2), v);
    EXPECT_EQ(st.wo(5, 3, 2), w);
    // The wall law: slower than the flow above, in its direction, no flow through the flat bed.
    EXPECT_TRUE(u > 0.0 && u < 1.0) << u;
    EXPECT_TRUE(v > 0.0 && v < 0.5) << v;
    EXPECT_EQ(w, 0.0);
}

}  // namespace
}  // namespace riffle
