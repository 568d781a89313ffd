// The results of several runs of the solver's calls as raw CGNS calls see them, against the
// layout of kavellib.hpp, and a time not after the last refused.
#include "support/case_kavel.hpp"

namespace riffle::platform {
namespace {

using namespace testsupport;

// The results by raw CGNS calls: bases Flow then Case; Box the only zone of Flow, of ni x nj x
// levels nodes at z = 0.1 k; NumberOfSteps and TimeValues the times; FlowSolutionPointers naming
// FlowSolution1..N, each padded with blanks to 32; those solutions at the nodes in that order,
// each with the six fields as written.
void expectresults(const std::string& file, int levels, const std::vector<double>& times) {
    const int n = static_cast<int>(times.size()), nodes = ni * nj * levels;
    int fn = 0, count = 0, cdim = 0, pdim = 0, dim = 0;
    char name[33] = {}, flow[33] = {};
    cgsize_t size[9] = {}, lo[3] = {1, 1, 1}, hi[3] = {ni, nj, levels};
    DataType_t type{};
    GridLocation_t where{};
    std::vector<double> v(nodes), t(n);
    std::string pointers(32 * n, '?'), expected;
    CGOK(cg_open(file.c_str(), CG_MODE_READ, &fn));
    CGOK(cg_nbases(fn, &count));
    CGOK(cg_base_read(fn, 2, name, &cdim, &pdim));
    CGOK(cg_base_read(fn, 1, flow, &cdim, &pdim));
    EXPECT_EQ(std::tuple(count, std::string(flow), std::string(name), cdim, pdim),
              std::tuple(2, "Flow", "Case", 3, 3));
    CGOK(cg_nzones(fn, 1, &count));
    CGOK(cg_zone_read(fn, 1, 1, name, size));
    EXPECT_EQ(std::tuple(count, std::string(name), size[0], size[1], size[2]),
              std::tuple(1, "Box", ni, nj, levels));
    CGOK(cg_coord_read(fn, 1, 1, "CoordinateZ", RealDouble, lo, hi, v.data()));
    for (int p = 0; p < nodes; ++p)
        EXPECT_EQ(v[p], 0.1 * (p / (ni * nj))) << p;

    CGOK(cg_biter_read(fn, 1, name, &count));
    EXPECT_EQ(count, n);
    CGOK(cg_goto(fn, 1, "BaseIterativeData_t", 1, "end"));
    CGOK(cg_array_info(1, name, &type, &dim, size));
    CGOK(cg_array_read_as(1, RealDouble, t.data()));
    EXPECT_EQ(std::tuple(std::string(name), dim, size[0], t),
              std::tuple("TimeValues", 1, n, times));
    CGOK(cg_goto(fn, 1, "Zone_t", 1, "ZoneIterativeData_t", 1, "end"));
    CGOK(cg_array_info(1, name, &type, &dim, size));
    CGOK(cg_array_read_as(1, Character, pointers.data()));
    for (int s = 1; s <= n; ++s) // n < 10
        expected += "FlowSolution" + std::to_string(s) + std::string(19, ' ');
    EXPECT_EQ(std::tuple(std::string(name), type, dim, size[0], size[1], pointers),
              std::tuple("FlowSolutionPointers", Character, 2, 32, n, expected));
    CGOK(cg_nsols(fn, 1, 1, &count));
    EXPECT_EQ(count, n);
    for (int s = 1; s <= n; ++s) {
        CGOK(cg_sol_info(fn, 1, 1, s, name, &where));
        EXPECT_EQ(std::tuple(std::string(name), where),
                  std::tuple(expected.substr(32 * s - 32, 13), Vertex));
        for (const char* field : fields) {
            CGOK(cg_field_read(fn, 1, 1, s, field, RealDouble, lo, hi, v.data()));
            for (int p = 0; p < nodes; ++p)
                EXPECT_EQ(v[p], nodevalue(p, s)) << field << p;
        }
    }
    cg_close(fn);
}

TEST_F(Kavel, ResultsOfEachRunAsRawCgnsSeesThem) {
    run(5, {0.5, 1.0, 1.5});
    expectresults(file, 5, {0.5, 1.0, 1.5});
    run(2, {0.5, 1.0}); // a second run, with another vertical resolution, replaces them
    expectresults(file, 2, {0.5, 1.0});

    const int fid = openselect(); // a later session: a time not after the last is refused
    int ier = 0;
    CG_KAVEL_WRITE_SOL_TIME_F(1.0, ier);
    EXPECT_NE(ier, 0);
    CG_CLOSE_F(fid, ier);
    expectresults(file, 2, {0.5, 1.0});
}

} // namespace
} // namespace riffle::platform
