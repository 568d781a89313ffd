// The solver's calls on real case files: a case from writecasefile read back through them, failed
// reads and bad files leaving everything untouched, a failed write leaving no trace, and the
// results of several runs as raw CGNS calls see them against the layout of kavellib.hpp.
#include <cgnslib.h>
#include <gtest/gtest.h>
#include <hdf5.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "platform/casefile.hpp"
#include "platform/kavellib.hpp"
#include "support/scratch.hpp"

namespace riffle::platform {
namespace {

namespace fs = std::filesystem;

#define CGOK(call) ASSERT_EQ(call, CG_OK) << #call

constexpr int ni = 4, nj = 3;
const char* const fields[] = {"VelocityX", "VelocityY", "VelocityZ",
                              "Pressure",  "Vorticity", "Coherent"};

std::string contents(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return fs::is_regular_file(p) ? std::string(std::istreambuf_iterator<char>(in), {}) : "";
}

// A value that tells every node p = i + ni (j + nj k) and output step apart.
double nodevalue(int p, int step) {
    return p % ni + 10.0 * (p / ni % nj) + 100.0 * (p / (ni * nj)) + 1000.0 * step;
}

class Kavel : public ::testing::Test {
protected:
    const testsupport::Scratch scratch;
    const std::string file = scratch.file("case.cgns").string();
    BedGrid bed{ni, nj, {}, {}, {}}; // x = 0.5 i, y = 0.25 j, z = 0.01 i - 0.02 j
    void SetUp() override {
        for (int p = 0; p < ni * nj; ++p) {
            bed.x.push_back(0.5 * (p % ni));
            bed.y.push_back(0.25 * (p / ni));
            bed.elevation.push_back(0.01 * (p % ni) - 0.02 * (p / ni));
        }
        writecasefile(file, bed,
                      {{"kmaxItm", 3}, {"cflItm", 0.5}, {"outpathItm", std::string("results")},
                       {"iPerturbItmItm", 1.0}, {"StartfileItm", std::string(250, 'p')}});
    }
    // Opens the case for modifying and selects it, as the solver does.
    int openselect() {
        int fid = 0, ier = 1, selected = 1;
        CG_OPEN_F(file, mode_modify, fid, ier);
        CG_KAVEL_INIT_F(fid, selected);
        EXPECT_EQ(ier + selected, 0);
        return fid;
    }
    // The six fields of output step `step` at `n` nodes into the solution just opened.
    static void writefields(int n, int step) {
        std::vector<double> f(n);
        for (int p = 0; p < n; ++p) f[p] = nodevalue(p, step);
        for (const char* name : fields) {
            int ier = 1;
            CG_KAVEL_WRITE_SOL_REAL_F(name, f.data(), ier);
            EXPECT_EQ(ier, 0) << name;
        }
    }
    // A run: the 3-D grid of `levels` node levels (z = 0.1 k), then the fields at each time.
    void run(int levels, std::initializer_list<double> times) {
        const int fid = openselect(), n = ni * nj * levels;
        std::vector<double> x(n), y(n), z(n);
        for (int p = 0; p < n; ++p) x[p] = 0.5 * (p % ni), y[p] = 0.25 * (p / ni % nj);
        for (int p = 0; p < n; ++p) z[p] = 0.1 * (p / (ni * nj));
        int ier = 1, step = 0;
        CG_KAVEL_WRITEGRIDCOORD3D_F(ni, nj, levels, x.data(), y.data(), z.data(), ier);
        EXPECT_EQ(ier, 0);
        for (const double t : times) {
            CG_KAVEL_WRITE_SOL_TIME_F(t, ier);
            EXPECT_EQ(ier, 0) << t;
            writefields(n, ++step);
        }
        CG_CLOSE_F(fid, ier);
    }
};

TEST_F(Kavel, ReadsGiveWhatWasWrittenOrFailLeavingValuesUnchanged) {
    int fn = 0, gi = 0, gj = 0, k = 0, iv = -5;
    const int pair[2] = {1, 2};
    const cgsize_t two = 2; // a number of length 2, stored with the CGNS library itself
    CGOK(cg_open(file.c_str(), CG_MODE_MODIFY, &fn));
    CGOK(cg_gopath(fn, "/Case/CalculationConditions"));
    CGOK(cg_array_write("pairItm", Integer, 1, &two, pair));
    CGOK(cg_close(fn));
    const int fid = openselect();
    double cfl = 0.0, rv = -5.0;
    std::string out, start, sv = "keep";
    std::vector<double> x(ni * nj), y(ni * nj), e(ni * nj), kept(ni * nj, -7.0);
    std::vector<int> ier(7, 1), failed;
    CG_KAVEL_GOTOGRIDCOORD2D_F(gi, gj, ier[0]);
    CG_KAVEL_GETGRIDCOORD2D_F(x.data(), y.data(), ier[1]);
    CG_KAVEL_READ_GRID_REAL_NODE_F("Elevation", e.data(), ier[2]);
    CG_KAVEL_READ_INTEGER_F("kmaxItm", k, ier[3]);
    CG_KAVEL_READ_REAL_F("cflItm", cfl, ier[4]);
    CG_KAVEL_READ_STRING_F("outpathItm", out, ier[5]);
    CG_KAVEL_READ_STRING_F("StartfileItm", start, ier[6]);
    // A missing key, or one stored with another type or length than the call reads, fails.
    for (const char* key : {"iPerturbItmItm", "outpathItm", "pairItm", "noSuchItm"})
        CG_KAVEL_READ_INTEGER_F(key, iv, failed.emplace_back(0));
    for (const char* key : {"kmaxItm", "outpathItm", "noSuchItm"})
        CG_KAVEL_READ_REAL_F(key, rv, failed.emplace_back(0));
    for (const char* key : {"kmaxItm", "cflItm", "noSuchItm"})
        CG_KAVEL_READ_STRING_F(key, sv, failed.emplace_back(0));
    CG_KAVEL_READ_GRID_REAL_NODE_F("Roughness", kept.data(), failed.emplace_back(0));
    CG_CLOSE_F(fid, ier[0]);
    EXPECT_EQ(ier, std::vector<int>(7, 0));
    EXPECT_EQ(std::tuple(gi, gj, x, y, e), std::tuple(ni, nj, bed.x, bed.y, bed.elevation));
    EXPECT_EQ(std::tuple(k, cfl, out), std::tuple(3, 0.5, "results"));
    EXPECT_EQ(start, std::string(200, 'p')); // cut to the solver's 200-character buffers
    EXPECT_EQ(std::count(failed.begin(), failed.end(), 0), 0) << testing::PrintToString(failed);
    EXPECT_EQ(std::tuple(iv, rv, sv), std::tuple(-5, -5.0, "keep"));
    EXPECT_EQ(kept, std::vector(ni * nj, -7.0));

    // The case builder's view: the same bed, the conditions in stored order with their types.
    const BedGrid back = readbed(file);
    EXPECT_EQ(std::tuple(back.ni, back.nj, back.x, back.y, back.elevation),
              std::tuple(ni, nj, bed.x, bed.y, bed.elevation));
    const std::vector<StoredCondition> c = listconditions(file);
    ASSERT_EQ(c.size(), 6u);
    for (const auto& [n, key, type, length] : {std::tuple{0, "kmaxItm", "Integer", 1},
                                               {1, "cflItm", "RealDouble", 1},
                                               {2, "outpathItm", "Character", 7},
                                               {5, "pairItm", "Integer", 2}})
        EXPECT_EQ(std::tuple(c[n].key, c[n].datatype, c[n].length), std::tuple(key, type, length));
    EXPECT_EQ(std::get<std::string>(c[4].value), std::string(250, 'p')); // shown whole
}

TEST_F(Kavel, BadFilesRefusedUntouched) {
    const fs::path text = scratch.file("text.cgns", "kmaxItm = 3\n"), h5 = scratch.file("a.h5");
    const fs::path empty = scratch.file("empty.cgns"), nocase = scratch.file("nocase.cgns");
    std::ofstream{empty};
    H5Fclose(H5Fcreate(h5.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
    int fn = 0, B = 0, fid = -3, ier = 0, gi = -1, gj = -1;
    CGOK(cg_open(nocase.c_str(), CG_MODE_WRITE, &fn));
    CGOK(cg_base_write(fn, "Flow", 3, 3, &B));
    CGOK(cg_close(fn));
    for (const fs::path& p : {scratch.file("missing.cgns"), text, empty, h5, scratch.dir}) {
        const std::string before = contents(p);
        CG_OPEN_F(p, mode_modify, fid, ier);
        EXPECT_EQ(std::pair(ier != 0, fid), std::pair(true, -3)) << p;
        EXPECT_TRUE(contents(p) == before) << p << " was changed";
        EXPECT_THROW(listconditions(p), CaseFileError) << p;
        EXPECT_THROW(readbed(p), CaseFileError) << p;
    }
    EXPECT_FALSE(fs::exists(scratch.file("missing.cgns")));
    // A CGNS file without /Case: its selection fails and drops the one made before.
    const int good = openselect();
    CG_OPEN_F(nocase, mode_modify, fid, ier);
    ASSERT_EQ(ier, 0);
    CG_KAVEL_INIT_F(fid, ier);
    EXPECT_NE(ier, 0);
    CG_KAVEL_GOTOGRIDCOORD2D_F(gi, gj, ier);
    EXPECT_EQ(std::pair(ier != 0, gi), std::pair(true, -1));
    CG_CLOSE_F(fid, ier);
    CG_CLOSE_F(good, ier);
    EXPECT_THROW(readbed(nocase), CaseFileError);
    EXPECT_THROW(listconditions(nocase), CaseFileError);
}

TEST_F(Kavel, WriteReplacesTheCaseWholeOrFailsLeavingNoTrace) {
    bed.elevation.assign(ni * nj, 1.5);
    writecasefile(file, bed, {{"kmaxItm", 4}});
    EXPECT_EQ(readbed(file).elevation, bed.elevation);
    EXPECT_EQ(std::get<int>(listconditions(file).at(0).value), 4);
    const std::string before = contents(file);
    BedGrid shortx = bed;
    shortx.x.pop_back();
    for (const auto& [b, named] : {std::pair{shortx, file}, {bed, "bad/key"}}) {
        try {
            writecasefile(file, b, {{"bad/key", 1}}); // '/' in a name: refused by CGNS itself
            ADD_FAILURE() << "written despite a fault";
        } catch (const CaseFileError& e) {
            EXPECT_NE(std::string(e.what()).find(named), std::string::npos) << e.what();
        }
        EXPECT_TRUE(contents(file) == before);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.dir), {}), 1);
    EXPECT_THROW(writecasefile(scratch.file("no/case.cgns"), bed, {}), CaseFileError);
}

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
    for (int p = 0; p < nodes; ++p) EXPECT_EQ(v[p], 0.1 * (p / (ni * nj))) << p;

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
    for (int s = 1; s <= n; ++s)  // n < 10
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
            for (int p = 0; p < nodes; ++p) EXPECT_EQ(v[p], nodevalue(p, s)) << field << p;
        }
    }
    cg_close(fn);
}

TEST_F(Kavel, ResultsOfEachRunAsRawCgnsSeesThem) {
    run(5, {0.5, 1.0, 1.5});
    expectresults(file, 5, {0.5, 1.0, 1.5});
    run(2, {0.5, 1.0}); // a second run, with another vertical resolution, replaces them
    expectresults(file, 2, {0.5, 1.0});

    // A later session appends; a time not after the last is refused, and so are its fields.
    const int fid = openselect();
    int ier = 1;
    CG_KAVEL_WRITE_SOL_TIME_F(2.0, ier);
    EXPECT_EQ(ier, 0);
    writefields(ni * nj * 2, 3);
    for (const double t : {2.0, 1.5}) {
        CG_KAVEL_WRITE_SOL_TIME_F(t, ier);
        EXPECT_NE(ier, 0) << t;
        CG_KAVEL_WRITE_SOL_REAL_F("VelocityX", std::vector(ni * nj * 2, -1.0).data(), ier);
        EXPECT_NE(ier, 0) << t; // not written over the solution at 2.0
    }
    CG_CLOSE_F(fid, ier);
    expectresults(file, 2, {0.5, 1.0, 2.0});
}

} // namespace
} // namespace riffle::platform
