// A small case for the tests of the solver's calls: a 4 x 3 bed grid with hand values and a few
// conditions, written by writecasefile into a fresh folder; the case opened and selected as the
// solver does; runs that write a 3-D grid and fields of values that tell every node and output
// step apart.
#pragma once

#include <cgnslib.h>
#include <gtest/gtest.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "platform/casefile.hpp"
#include "platform/kavellib.hpp"
#include "support/scratch.hpp"

#define CGOK(call) ASSERT_EQ(call, CG_OK) << #call

namespace riffle::testsupport {

namespace fs = std::filesystem;

inline constexpr int ni = 4, nj = 3;
inline const char* const fields[] = {"VelocityX", "VelocityY", "VelocityZ",
                                     "Pressure",  "Vorticity", "Coherent"};

inline std::string contents(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A value that tells every node p = i + ni (j + nj k) and output step apart.
inline double nodevalue(int p, int step) {
    return p % ni + 10.0 * (p / ni % nj) + 100.0 * (p / (ni * nj)) + 1000.0 * step;
}

class Kavel : public ::testing::Test {
protected:
    const Scratch scratch;
    const std::string file = scratch.file("case.cgns").string();
    platform::BedGrid bed{ni, nj, {}, {}, {}}; // x = 0.5 i, y = 0.25 j, z = 0.01 i - 0.02 j
    void SetUp() override {
        for (int p = 0; p < ni * nj; ++p) {
            bed.x.push_back(0.5 * (p % ni));
            bed.y.push_back(0.25 * (p / ni));
            bed.elevation.push_back(0.01 * (p % ni) - 0.02 * (p / ni));
        }
        platform::writecasefile(file, bed,
                                {{"kmaxItm", 3},
                                 {"cflItm", 0.5},
                                 {"outpathItm", std::string("results")},
                                 {"iPerturbItmItm", 1.0},
                                 {"StartfileItm", std::string(250, 'p')}});
    }
    // Opens the case for modifying and selects it, as the solver does.
    int openselect() {
        int fid = 0, ier = 1, selected = 1;
        platform::CG_OPEN_F(file, platform::mode_modify, fid, ier);
        platform::CG_KAVEL_INIT_F(fid, selected);
        EXPECT_EQ(ier + selected, 0);
        return fid;
    }
    // The time `t`, then the six fields of output step `step` at `n` nodes, into the open case
    // (the fields are checked by reading them back).
    static void writestep(double t, int n, int step) {
        std::vector<double> f(n);
        for (int p = 0; p < n; ++p)
            f[p] = nodevalue(p, step);
        int ier = 1;
        platform::CG_KAVEL_WRITE_SOL_TIME_F(t, ier);
        EXPECT_EQ(ier, 0) << t;
        for (const char* name : fields)
            platform::CG_KAVEL_WRITE_SOL_REAL_F(name, f.data(), ier);
    }
    // A run: the 3-D grid of `levels` node levels (z = 0.1 k), then the fields at each time.
    void run(int levels, std::initializer_list<double> times) {
        const int fid = openselect(), n = ni * nj * levels;
        std::vector<double> x(n), y(n), z(n);
        for (int p = 0; p < n; ++p)
            x[p] = 0.5 * (p % ni), y[p] = 0.25 * (p / ni % nj), z[p] = 0.1 * (p / (ni * nj));
        int ier = 1, step = 0;
        platform::CG_KAVEL_WRITEGRIDCOORD3D_F(ni, nj, levels, x.data(), y.data(), z.data(), ier);
        EXPECT_EQ(ier, 0);
        for (const double t : times)
            writestep(t, n, ++step);
        platform::CG_CLOSE_F(fid, ier);
    }
};

} // namespace riffle::testsupport
