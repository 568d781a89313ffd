// Lists of forcing points against the search at every call: over dunes between side walls with a
// disturbed flow, every velocity and eddy-viscosity variant on one and two threads gives the bits
// of the point-by-point routines, a bed that moves makes the lists again, and the warnings of
// the search come at every use as the search prints them.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "flow/smagorinsky_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "ibm/forcinglist_m.hpp"
#include "ibm/immersing_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"

namespace riffle::ibm {
namespace {

// Two dunes 0.6 m long and 0.08 m high across a 16 x 8 x 12 box, skewed along y, under a
// disturbed stream of 0.3 m/s.
Storage dunes(int iibm, int ibed) {
    Storage st = testsupport::box(16, 8, 12, 0.075, 0.05, 0.02);
    setboundarycodes(st, 0, 1, 0); // periodic in x, side walls, free-slip surface
    st.iIBM = iibm;
    st.ibed = ibed;
    st.ks = 2.0;
    st.visc = 1e-6;
    st.cs = 0.1; // a Smagorinsky viscosity to interpolate
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i)
            st.zb(i, j) = 0.05 + 0.04 * std::sin(2.0 * M_PI * (0.075 * (i - 0.5) + 0.03 * j) / 0.6);
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> noise(-0.05, 0.05);
    for (Field3d* f : {&st.u, &st.v, &st.w})
        for (std::size_t n = 0; n < f->size(); ++n)
            f->data()[n] = (f == &st.u ? 0.3 : 0.0) + noise(rng);
    flagdeter(st);
    return st;
}

// One step's calls of the forcing, twice, on the given number of threads: velocity, eddy
// viscosity, velocity again.
void force(Storage& st, int threads) {
    omp_set_num_threads(threads);
    for (int n = 0; n < 2; ++n) {
        immersing(st);
        flow::smagorinsky(st);
        immersing(st);
    }
}

int compare(const Storage& a, const Storage& b, const char* when) {
    int n = 0;
    for (auto f : {&Storage::u, &Storage::v, &Storage::w, &Storage::nut}) {
        const Field3d &x = a.*f, &y = b.*f;
        EXPECT_TRUE(std::memcmp(x.data(), y.data(), x.size() * sizeof(double)) == 0)
            << "field " << n << " " << when << ", iIBM " << a.iIBM << " ibed " << a.ibed;
        ++n;
    }
    return n;
}

TEST(ForcingLists, SameBitsAsTheSearchForEveryVariantOnOneAndTwoThreads) {
    int compared = 0;
    for (int iibm : {0, 1}) {
        for (int ibed : {0, 1}) {
            for (int threads : {1, 2}) {
                Storage ref = dunes(iibm, ibed), st = dunes(iibm, ibed);
                uselists(st);
                force(ref, 1); // searches at every call
                force(st, threads);
                EXPECT_GT(st.forcing.eddy.eddy.size(), 16u);
                compared += compare(st, ref, "");
                const auto before = st.forcing.classification;
                for (Storage* s : {&ref, &st}) { // the bed rises by two cells over one dune
                    for (int j = 0; j <= s->jmax + 1; ++j)
                        for (int i = 0; i <= 8; ++i)
                            s->zb(i, j) += 0.04;
                    flagdeter(*s);
                }
                EXPECT_EQ(st.forcing.classification, before + 1);
                force(ref, 1);
                force(st, threads);
                compared += compare(st, ref, "after the bed moved");
            }
        }
    }
    omp_set_num_threads(2);
    EXPECT_EQ(compared, 64);
}

TEST(ForcingLists, SearchWarningsComeAtEveryUse) {
    // A column twenty cells tall on a diagonal slope: patch projections that do not converge.
    Storage st[2] = {testsupport::box(8, 8, 40, 1.0, 1.0, 1.0),
                     testsupport::box(8, 8, 40, 1.0, 1.0, 1.0)};
    std::string out[2];
    for (int n : {0, 1}) {
        setboundarycodes(st[n], 0, 1, 0);
        st[n].iIBM = st[n].ibed = 1;
        st[n].ks = 2.0;
        for (int j = 0; j <= 9; ++j)
            for (int i = 0; i <= 9; ++i)
                st[n].zb(i, j) = 20.0 + (i - j) + (i == 4 && j == 4 ? 20.0 : 0.0);
        st[n].u.fill(0.3);
        st[n].v.fill(0.01);
        flagdeter(st[n]);
        if (n == 1) uselists(st[n]);
        testing::internal::CaptureStdout();
        force(st[n], 1);
        out[n] = testing::internal::GetCapturedStdout();
    }
    EXPECT_NE(out[0].find("not converged"), std::string::npos);
    EXPECT_EQ(out[1], out[0]);
    EXPECT_EQ(compare(st[1], st[0], "on the slope"), 4);
}

} // namespace
} // namespace riffle::ibm
