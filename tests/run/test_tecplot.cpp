// Tecplot files: the E20.14 number form against strings written out by hand, and the node lines of
// linear fields read back by a parser of the fixed columns. The exact bytes of whole files are
// pinned by the regression digests.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "run/tecplot_m.hpp"
#include "support/box.hpp"
#include "support/scratch.hpp"

namespace riffle {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> lines(const fs::path& file) {
    std::ifstream in(file);
    std::vector<std::string> all;
    for (std::string line; std::getline(in, line);)
        all.push_back(line);
    return all;
}

using testsupport::Scratch;

// Reads one 20-character E field: "[-|0].dddddddddddddd" followed by "E+xx" or "+xxx".
double readfield(const std::string& f) {
    EXPECT_EQ(f.find('.'), 1u) << f;
    const std::string mantissa = f.substr(0, 16), exponent = f.substr(16);
    const int e = std::stoi(exponent[0] == 'E' ? exponent.substr(1) : exponent);
    return std::stod((mantissa[0] == '-' ? "-0" + mantissa.substr(1) : mantissa) + "e" +
                     std::to_string(e));
}

// Value m (0..7) of a node line: a blank, then the 20-character field.
double value(const std::string& line, int m) {
    return readfield(line.substr(static_cast<std::size_t>(21 * m + 1), 20));
}

TEST(Tecplot, FortranE2014Form) {
    const double inf = std::numeric_limits<double>::infinity();
    const std::pair<double, const char*> cases[] = {
        {-0.0, "-.00000000000000E+00"},
        {-2.75e-3, "-.27500000000000E-02"},
        {2.0 / 3.0, "0.66666666666667E+00"},
        {9.999999999999999, "0.10000000000000E+02"},
        {1e99, "0.10000000000000+100"},
        {-1e100, "-.10000000000000+101"},
        {1e-100, "0.10000000000000E-99"},
        {1e-101, "0.10000000000000-100"},
        {std::numeric_limits<double>::max(), "0.17976931348623+309"},
        {5e-324, "0.49406564584125-323"},
        {-inf, "           -Infinity"},
        {std::nan(""), "                 NaN"},
    };
    for (const auto& [value, text] : cases)
        EXPECT_EQ(e2014(value), text) << value;
}

// Linear fields (cells of 0.5 x 0.25 x 0.125): every four-face and eight-cell mean equals the
// field at the node, so each node line holds x, y, z and the five linear functions there.
TEST(Tecplot, FlowFileReadBack) {
    Scratch s;
    Storage st = testsupport::box(4, 3, 2, 0.5, 0.25, 0.125);
    st.xmin = 1.0;
    st.ymin = -1.0;
    st.zmin = 0.25;
    st.zb.fill(-10.0); // bed far below the box
    const auto fill = [&](Field3d& a, double sx, double sy, double sz, double cx, double cy,
                          double cz, double c0) {
        for (int k = a.krange().lo; k <= a.krange().hi; ++k)
            for (int j = a.jrange().lo; j <= a.jrange().hi; ++j)
                for (int i = a.irange().lo; i <= a.irange().hi; ++i)
                    a(i, j, k) = c0 + cx * (st.xmin + (i - sx) * st.dx) +
                                 cy * (st.ymin + (j - sy) * st.dy) +
                                 cz * (st.zmin + (k - sz) * st.dz);
    };
    fill(st.u, 0.0, 0.5, 0.5, 0.7, 1.5, 2.0, 0.3);
    fill(st.v, 0.5, 0.0, 0.5, -0.5, 0.6, 1.0, 0.1);
    fill(st.w, 0.5, 0.5, 0.0, 0.25, -2.0, -0.9, -0.2);
    fill(st.vort, 0.5, 0.5, 0.5, 1.0, 1.0, 1.0, 3.0);
    fill(st.qc, 0.5, 0.5, 0.5, -1.0, 2.0, 0.5, -4.0);
    tecplotflow(st, "  " + s.dir.string() + " ", " flow  ", 12); // blanks of both parts removed
    const auto text = lines(s.dir / "flow12.plt");
    ASSERT_EQ(text.size(), 3u + 5 * 4 * 3);
    EXPECT_EQ(text[0], " TITLE = \"3D Navier-Stockes Equations\" ");
    EXPECT_EQ(text[1], " VARIABLES = x, y, z, u, v, w, vort, Q ");
    EXPECT_EQ(text[2], " ZONE , i= 5  j= 4  K= 3 , F=POINT");
    for (int k = 0, line = 3; k <= 2; ++k)
        for (int j = 0; j <= 3; ++j)
            for (int i = 0; i <= 4; ++i, ++line) {
                const std::string& l = text[static_cast<std::size_t>(line)];
                ASSERT_EQ(l.size(), 8u * 21u) << line;
                const double x = 1.0 + 0.5 * i, y = -1.0 + 0.25 * j, z = 0.25 + 0.125 * k;
                const double expect[8] = {x,
                                          y,
                                          z,
                                          0.3 + 0.7 * x + 1.5 * y + 2.0 * z,
                                          0.1 - 0.5 * x + 0.6 * y + z,
                                          -0.2 + 0.25 * x - 2.0 * y - 0.9 * z,
                                          3.0 + x + y + z,
                                          -4.0 - x + 2.0 * y + 0.5 * z};
                for (int m = 0; m < 8; ++m)
                    EXPECT_NEAR(value(l, m), expect[m], 1e-13 * (1.0 + std::abs(expect[m])))
                        << "node " << i << " " << j << " " << k << " value " << m;
            }
}

} // namespace
} // namespace riffle
