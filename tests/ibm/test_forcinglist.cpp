// Lists of forcing points against the search at every call, bit for bit: every velocity and
// eddy-viscosity variant over dunes on one and two threads, lists made again when the bed moves,
// the search's warnings at every use, image points on grid points, a law without solution at R.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "flow/smagorinsky_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "ibm/forcinglist_m.hpp"
#include "ibm/immersing_m.hpp"
#include "ibm/walllaw_m.hpp"
#include "run/casefile_m.hpp"
#include "support/box.hpp"
#include "support/ibm_bed.hpp"

namespace riffle::ibm {
namespace {

enum Bed { dunes, column, slope, flat };

// Between side walls: two dunes 0.6 m long and 0.08 m high skewed along y under a disturbed
// stream (16 x 8 x 12 cells); a column twenty cells tall on a diagonal slope, where patch
// projections do not converge; a slope of 2 over cells twice as wide as high, where the image
// points of w fall on u points; a flat bed 0.01 m below the u points under a uniform stream of
// 0.02097 m/s, where the three-layer law has no solution at d = 0.02 m and R moves out.
Storage basin(Bed bed, int iibm, int ibed) {
    const double h = bed == column ? 1.0 : 2.0; // the cell width of the slopes
    Storage st = bed == column || bed == slope ? testsupport::box(8, 8, 40, h, h, 1.0)
                                               : testsupport::box(16, 8, 12, 0.075, 0.05, 0.02);
    setboundarycodes(st, 0, 1, 0); // periodic in x, side walls, free-slip surface
    st.iIBM = iibm;
    st.ibed = ibed;
    st.ks = 2.0;
    st.visc = 1e-6;
    st.cs = 0.1; // a Smagorinsky viscosity to interpolate
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i) {
            const double z[] = {0.05 + 0.04 * std::sin(M_PI * (0.25 * i + 0.1 * j - 0.125)),
                                20.0 + (i - j) + (i == 4 && j == 4 ? 20.0 : 0.0), 4.0 * i + 1.5,
                                0.02};
            st.zb(i, j) = z[bed];
        }
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> noise(-0.05, 0.05);
    for (Field3d* f : {&st.u, &st.v, &st.w})
        for (std::size_t n = 0; n < f->size(); ++n)
            f->data()[n] = bed == flat ? (f == &st.u) * 0.02097 : (f == &st.u) * 0.3 + noise(rng);
    flagdeter(st);
    return st;
}

// One step's calls of the forcing, twice, on the given number of threads; what they print. The
// reference searches point by point instead, and replaces the eddy viscosity that the lists gave
// the forcing cells inside the Smagorinsky routine by that of its own search.
std::string force(Storage& st, int threads, bool reference = false) {
    omp_set_num_threads(threads);
    std::string printed;
    const auto capture = [&printed](auto calls) {
        testing::internal::CaptureStdout();
        calls();
        printed += testing::internal::GetCapturedStdout();
    };
    const auto smagorinsky = [&st] {
        flow::smagorinsky(st.geometry(), st.conditions(), st.flow(), st.bed());
    };
    for (int n = 0; n < 2; ++n) {
        if (!reference) {
            capture([&] { immersing(st), smagorinsky(), immersing(st); });
            continue;
        }
        capture([&] { testsupport::searchforcing(st); });
        testing::internal::CaptureStdout();
        smagorinsky();
        (void)testing::internal::GetCapturedStdout();
        capture([&] { testsupport::searchforcing(st, true), testsupport::searchforcing(st); });
    }
    return printed;
}

void compare(const Storage& a, const Storage& b, const char* when) {
    for (auto f : {&Storage::u, &Storage::v, &Storage::w, &Storage::nut})
        EXPECT_EQ(std::memcmp((a.*f).data(), (b.*f).data(), (a.*f).size() * sizeof(double)), 0)
            << when << ", iIBM " << a.iIBM << " ibed " << a.ibed;
}

TEST(ForcingLists, SameBitsAndWarningsAsTheSearch) {
    // Dunes: every variant on one and two threads, then again after the bed rose by two cells over
    // one dune. The other beds (iIBM 1): the same warnings, image points on grid points.
    EXPECT_FALSE(threelayerustar(0.02097, 0.02, 1e-6, roughnesslength(2.0)).converged);
    for (int run = 0; run < 11; ++run) {
        const Bed bed = run < 8 ? dunes : Bed(run - 7);
        const int iibm = run < 8 ? run / 4 : 1, ibed = run < 8 ? run / 2 % 2 : bed != flat;
        const int threads = run < 8 ? 1 + run % 2 : 1;
        Storage ref = basin(bed, iibm, ibed), st = basin(bed, iibm, ibed);
        uselists(st);
        const std::string printed = force(ref, 1, true);
        EXPECT_EQ(force(st, threads), printed);
        compare(st, ref, "");
        const std::vector<IdwPoint>& w = st.forcing.velocity[2].idw;
        EXPECT_EQ(bed == column, printed.find("not converged") != std::string::npos);
        EXPECT_EQ(bed == slope, std::any_of(w.begin(), w.end(),
                                            [](const IdwPoint& e) { return e.block[0].near; }));
        if (bed != dunes) continue;
        EXPECT_GT(st.forcing.eddy.eddy.size(), 16u);
        const auto before = st.forcing.classification;
        for (Storage* s : {&ref, &st}) {
            for (int j = 0; j <= s->jmax + 1; ++j)
                for (int i = 0; i <= 8; ++i)
                    s->zb(i, j) += 0.04;
            flagdeter(*s);
        }
        EXPECT_EQ(st.forcing.classification, before + 1);
        force(ref, 1, true);
        force(st, threads);
        compare(st, ref, "after the bed moved");
    }
    omp_set_num_threads(2);
}

} // namespace
} // namespace riffle::ibm
