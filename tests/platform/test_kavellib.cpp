// The platform calls on real case files: a case written by writecasefile read back through every
// call; results over three times read back by an independent reader (h5py) and by cgnscheck; bad
// files refused untouched; earlier results removed when the grid is rewritten.
#include <cgnslib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/casefile.hpp"
#include "platform/kavellib.hpp"

namespace fs = std::filesystem;
using namespace riffle::platform;

namespace {

constexpr int ni = 4, nj = 3, nk = 5;
const std::string long_text(250, 'p');

std::string contents(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Exit status of a shell command; its output (with stderr) in `output`.
int shell(const std::string& command, std::string& output) {
    output.clear();
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return -1;
    char buf[512];
    while (std::fgets(buf, sizeof buf, pipe) != nullptr) output += buf;
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Hand values of a small bed: x = 0.5 i, y = 0.25 j, elevation = 0.01 i - 0.02 j.
BedGrid smallbed() {
    BedGrid bed{ni, nj, {}, {}, {}};
    for (int p = 0; p < ni * nj; ++p) {
        bed.x.push_back(0.5 * (p % ni));
        bed.y.push_back(0.25 * (p / ni));
        bed.elevation.push_back(0.01 * (p % ni) - 0.02 * (p / ni));
    }
    return bed;
}

// A field value that tells every node p = i + ni (j + nj k) and output step apart.
double fieldvalue(int p, int step) {
    return p % ni + 10.0 * (p / ni % nj) + 100.0 * (p / (ni * nj)) + 1000.0 * step;
}

// The independent reader, h5py (CGNS shapes reversed, data in the dataset " data"), checks what
// a viewer needs: bases in creation order Flow, Case; Box the only zone of /Flow; NumberOfSteps =
// len(TimeValues) = the times given; FlowSolutionPointers naming FlowSolution1..N padded with
// blanks to 32; the solutions in that order with the six fields R8(nk, nj, ni) as written; the
// conditions stored as I4(1), R8(1) and a bare C1. Arguments: file, node levels, times.
const char* h5script = R"(
import sys, h5py, numpy as np
f = h5py.File(sys.argv[1], 'r')
levels, times = int(sys.argv[2]), [float(t) for t in sys.argv[3:]]
d = lambda p: f[p][' data'][()]
def children(g, label):
    names = []
    g.id.links.iterate(names.append, idx_type=h5py.h5.INDEX_CRT_ORDER)
    return [n.decode() for n in names if g[n].attrs.get('label') == label]
assert children(f, b'CGNSBase_t') == ['Flow', 'Case'], children(f, b'CGNSBase_t')
assert children(f['Flow'], b'Zone_t') == ['Box'], children(f['Flow'], b'Zone_t')
n = len(times)
assert d('Flow/BaseIterativeData')[0] == n and list(d('Flow/BaseIterativeData/TimeValues')) == times
ptr = d('Flow/Box/ZoneIterativeData/FlowSolutionPointers')
assert [r.tobytes() for r in ptr] == [(b'FlowSolution%d' % s).ljust(32) for s in range(1, n + 1)]
assert children(f['Flow/Box'], b'FlowSolution_t') == ['FlowSolution%d' % s for s in range(1, n + 1)]
k, j, i = np.meshgrid(range(levels), range(3), range(4), indexing='ij')
assert np.array_equal(d('Flow/Box/GridCoordinates/CoordinateZ'), 0.1 * k)
assert np.array_equal(d('Flow/Box/GridCoordinates/CoordinateY'), 0.25 * j)
for s in range(1, n + 1):
    sol = f['Flow/Box/FlowSolution%d' % s]
    assert sorted(sol) == sorted(['VelocityX', 'VelocityY', 'VelocityZ', 'Pressure', 'Vorticity',
                                  'Coherent']), list(sol)
    for a in sol.values():
        assert a[' data'].dtype == np.float64 and a[' data'].shape == (levels, 3, 4), a
        assert np.array_equal(a[' data'], i + 10.0 * j + 100.0 * k + 1000.0 * s), a
c = 'Case/CalculationConditions/'
assert f[c + 'kmaxItm'].attrs['type'] == b'I4' and list(d(c + 'kmaxItm')) == [3]
assert f[c + 'cflItm'].attrs['type'] == b'R8' and list(d(c + 'cflItm')) == [0.5]
assert f[c + 'outpathItm'].attrs['type'] == b'C1' and d(c + 'outpathItm').tobytes() == b'results'
)";

// Each test gets its own folder with a fresh case.
class PlatformTest : public ::testing::Test {
protected:
    fs::path dir, file;
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::temp_directory_path() / ("riffle-platform-" + std::to_string(::getpid())) /
              (std::string(info->test_suite_name()) + "." + info->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
        file = dir / "case.cgns";
        writecasefile(file, smallbed(),
                      {{"kmaxItm", 3}, {"cflItm", 0.5}, {"outpathItm", std::string("results")},
                       {"iPerturbItmItm", 1.0}, {"StartfileItm", long_text}});
    }
    void TearDown() override { fs::remove_all(fs::path(dir).parent_path()); }

    // Opens the case for modification and selects it, as the solver does.
    int openselect() {
        int fid = 0, ier = 1;
        CG_OPEN_F(file, mode_modify, fid, ier);
        EXPECT_EQ(ier, 0);
        CG_KAVEL_INIT_F(fid, ier);
        EXPECT_EQ(ier, 0);
        return fid;
    }
    static void close(int fid) {
        int ier = 1;
        CG_CLOSE_F(fid, ier);
        EXPECT_EQ(ier, 0);
    }
    // The six fields of output step `step` into the solution just opened.
    static void writefields(int levels, int step) {
        std::vector<double> f(ni * nj * levels);
        for (std::size_t p = 0; p < f.size(); ++p) f[p] = fieldvalue(static_cast<int>(p), step);
        for (const char* name :
             {"VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent"}) {
            int ier = 1;
            CG_KAVEL_WRITE_SOL_REAL_F(name, f.data(), ier);
            EXPECT_EQ(ier, 0) << name;
        }
    }
    // One run: the 3-D grid (z = 0.1 k) of `levels` node levels, `steps` results at t = 0.5 s.
    void run(int levels, int steps) {
        const int fid = openselect(), n = ni * nj * levels;
        std::vector<double> x(n), y(n), z(n);
        for (int p = 0; p < n; ++p) {
            x[p] = 0.5 * (p % ni);
            y[p] = 0.25 * (p / ni % nj);
            z[p] = 0.1 * (p / (ni * nj));
        }
        int ier = 1;
        CG_KAVEL_WRITEGRIDCOORD3D_F(ni, nj, levels, x.data(), y.data(), z.data(), ier);
        EXPECT_EQ(ier, 0);
        for (int s = 1; s <= steps; ++s) {
            CG_KAVEL_WRITE_SOL_TIME_F(0.5 * s, ier);
            EXPECT_EQ(ier, 0);
            writefields(levels, s);
        }
        close(fid);
    }
    // Runs the h5py check on the case file.
    void h5check(int levels, const std::string& times) {
        std::ofstream(dir / "check.py") << h5script;
        const std::string command = "/usr/bin/python3 " + (dir / "check.py").string() + " " +
                                    file.string() + " " + std::to_string(levels) + " " + times;
        std::string out;
        EXPECT_EQ(shell(command, out), 0) << out;
    }
};

class CaseReading : public PlatformTest {};
class CaseFileHandling : public PlatformTest {};
class ResultWriting : public PlatformTest {};

// ---- Reading a case ------------------------------------------------------------------------

TEST_F(CaseReading, EveryCallReturnsWhatWasWritten) {
    const int fid = openselect();
    int gi = 0, gj = 0, k = 0, ier[7] = {1, 1, 1, 1, 1, 1, 1};
    double cfl = 0.0;
    std::string out, start;
    std::vector<double> x(ni * nj), y(ni * nj), e(ni * nj);
    CG_KAVEL_GOTOGRIDCOORD2D_F(gi, gj, ier[0]);
    CG_KAVEL_GETGRIDCOORD2D_F(x.data(), y.data(), ier[1]);
    CG_KAVEL_READ_GRID_REAL_NODE_F("Elevation", e.data(), ier[2]);
    CG_KAVEL_READ_INTEGER_F("kmaxItm", k, ier[3]);
    CG_KAVEL_READ_REAL_F("cflItm", cfl, ier[4]);
    CG_KAVEL_READ_STRING_F("outpathItm", out, ier[5]);
    CG_KAVEL_READ_STRING_F("StartfileItm", start, ier[6]);
    close(fid);
    EXPECT_EQ(std::vector<int>(ier, ier + 7), std::vector<int>(7, 0));
    EXPECT_EQ(gi, ni);
    EXPECT_EQ(gj, nj);
    const BedGrid hand = smallbed(), bed = readbed(file);
    for (const auto& v : {x, bed.x}) EXPECT_EQ(v, hand.x);
    for (const auto& v : {y, bed.y}) EXPECT_EQ(v, hand.y);
    for (const auto& v : {e, bed.elevation}) EXPECT_EQ(v, hand.elevation);
    EXPECT_EQ(bed.ni, ni);
    EXPECT_EQ(bed.nj, nj);
    EXPECT_EQ(k, 3);
    EXPECT_EQ(cfl, 0.5);
    EXPECT_EQ(out, "results");
    EXPECT_EQ(start, std::string(200, 'p'));  // cut to the solver's 200-character buffers
}

TEST_F(CaseReading, FailedReadsLeaveValuesUnchanged) {
    {  // Numbers of length 2, stored with the CGNS library itself.
        int fn = 0;
        const int ipair[2] = {1, 2};
        const double rpair[2] = {1.0, 2.0};
        const cgsize_t two = 2;
        ASSERT_EQ(cg_open(file.c_str(), CG_MODE_MODIFY, &fn), CG_OK);
        ASSERT_EQ(cg_gopath(fn, "/Case/CalculationConditions"), CG_OK);
        ASSERT_EQ(cg_array_write("ipairItm", Integer, 1, &two, ipair), CG_OK);
        ASSERT_EQ(cg_array_write("rpairItm", RealDouble, 1, &two, rpair), CG_OK);
        ASSERT_EQ(cg_close(fn), CG_OK);
    }
    const int fid = openselect();
    int ier = 0, iv = -5;
    double rv = -5.0;
    std::string sv = "keep";
    for (const char* key : {"iPerturbItmItm", "outpathItm", "ipairItm", "noSuchItm"}) {
        CG_KAVEL_READ_INTEGER_F(key, iv, ier);
        EXPECT_NE(ier, 0) << key;
    }
    std::vector<double> kept(ni * nj, -7.0);
    CG_KAVEL_READ_GRID_REAL_NODE_F("Roughness", kept.data(), ier);
    EXPECT_NE(ier, 0);
    EXPECT_EQ(kept, std::vector<double>(ni * nj, -7.0));
    for (const char* key : {"kmaxItm", "outpathItm", "rpairItm", "noSuchItm"}) {
        CG_KAVEL_READ_REAL_F(key, rv, ier);
        EXPECT_NE(ier, 0) << key;
        CG_KAVEL_READ_STRING_F(key == std::string("outpathItm") ? "cflItm" : key, sv, ier);
        EXPECT_NE(ier, 0) << key;
    }
    EXPECT_EQ(iv, -5);
    EXPECT_EQ(rv, -5.0);
    EXPECT_EQ(sv, "keep");
    close(fid);
}

TEST_F(CaseReading, ListOfConditionsWithTypesInStoredOrder) {
    const std::vector<StoredCondition> c = listconditions(file);
    ASSERT_EQ(c.size(), 5u);
    EXPECT_EQ(c[0].key + " " + c[0].datatype, "kmaxItm Integer");
    EXPECT_EQ(std::get<int>(c[0].value), 3);
    EXPECT_EQ(c[1].key + " " + c[1].datatype, "cflItm RealDouble");
    EXPECT_EQ(std::get<double>(c[1].value), 0.5);
    EXPECT_EQ(c[2].datatype + " " + std::to_string(c[2].length), "Character 7");
    EXPECT_EQ(std::get<std::string>(c[2].value), "results");
    EXPECT_EQ(c[3].key, "iPerturbItmItm");
    EXPECT_EQ(std::get<std::string>(c[4].value), long_text);  // the list shows strings whole
}

// ---- Opening and writing case files --------------------------------------------------------

TEST_F(CaseFileHandling, MissingTextEmptyAndForeignFilesRefusedUntouched) {
    const fs::path text = dir / "text.cgns", empty = dir / "empty.cgns", h5 = dir / "other.h5";
    std::ofstream(text) << "kmaxItm = 3\n";
    std::ofstream{empty};
    std::string out;
    shell("/usr/bin/python3 -c \"import h5py; h5py.File('" + h5.string() +
              "', 'w').create_dataset('a', data=[1, 2])\"",
          out);
    EXPECT_TRUE(fs::exists(h5)) << "h5py could not write a plain HDF5 file: " << out;
    for (const fs::path& p : {dir / "missing.cgns", text, empty, h5, dir}) {
        const std::string before = fs::is_regular_file(p) ? contents(p) : "";
        int fid = -3, ier = 0;
        CG_OPEN_F(p, mode_modify, fid, ier);
        EXPECT_NE(ier, 0) << p;
        EXPECT_EQ(fid, -3) << p;
        if (fs::is_regular_file(p)) {
            EXPECT_TRUE(contents(p) == before) << p << " was changed";
        }
        EXPECT_THROW(listconditions(p), CaseFileError) << p;
        EXPECT_THROW(readbed(p), CaseFileError) << p;
    }
    EXPECT_FALSE(fs::exists(dir / "missing.cgns"));
}

TEST_F(CaseFileHandling, InitWithoutCaseBaseFailsAndSelectsNothing) {
    const fs::path bare = dir / "bare.cgns";
    int fn = 0, B = 0;
    ASSERT_EQ(cg_open(bare.c_str(), CG_MODE_WRITE, &fn), CG_OK);
    ASSERT_EQ(cg_base_write(fn, "Flow", 3, 3, &B), CG_OK);
    ASSERT_EQ(cg_close(fn), CG_OK);
    const int good = openselect();  // a selection first, which the failed one must drop
    int fid = 0, ier = 0, gi = -1, gj = -1;
    CG_OPEN_F(bare, mode_modify, fid, ier);
    ASSERT_EQ(ier, 0);
    CG_KAVEL_INIT_F(fid, ier);
    EXPECT_NE(ier, 0);
    CG_KAVEL_GOTOGRIDCOORD2D_F(gi, gj, ier);
    EXPECT_NE(ier, 0);
    EXPECT_EQ(gi, -1);
    close(fid);
    close(good);
    EXPECT_THROW(readbed(bare), CaseFileError);
    EXPECT_THROW(listconditions(bare), CaseFileError);
}

TEST_F(CaseFileHandling, WriteReplacesWholeOrFailsLeavingNoTrace) {
    BedGrid bed = smallbed();
    bed.elevation.assign(ni * nj, 1.5);
    writecasefile(file, bed, {{"kmaxItm", 4}});
    EXPECT_EQ(readbed(file).elevation, bed.elevation);
    EXPECT_EQ(std::get<int>(listconditions(file).at(0).value), 4);

    const std::string before = contents(file);
    bed.x.pop_back();  // too short for the grid
    const std::vector<std::pair<BedGrid, std::string>> faults = {
        {bed, file.string()}, {smallbed(), "bad/key"}};  // '/' in a key: refused by CGNS itself
    for (const auto& [b, named] : faults) {
        try {
            writecasefile(file, b, {{"bad/key", 1}});
            ADD_FAILURE() << "written despite a fault";
        } catch (const CaseFileError& e) {
            const std::string what = e.what();
            EXPECT_NE(what.find(named), std::string::npos) << what;
            EXPECT_EQ(what.find('\n'), std::string::npos) << what;
        }
        EXPECT_TRUE(contents(file) == before);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
    EXPECT_THROW(writecasefile(dir / "no" / "case.cgns", smallbed(), {}), CaseFileError);
}

// ---- Writing results -----------------------------------------------------------------------

TEST_F(ResultWriting, ThreeTimesSeenByH5pyAndCgnscheck) {
    run(nk, 3);
    h5check(nk, "0.5 1.0 1.5");
    std::string out;
    if (shell("command -v cgnscheck", out) != 0) GTEST_SKIP() << "cgnscheck not installed";
    EXPECT_EQ(shell("cgnscheck " + file.string(), out), 0) << out;
    EXPECT_NE(out.find("checking complete"), std::string::npos) << out;
    EXPECT_EQ(out.find("ERROR"), std::string::npos) << out;
}

TEST_F(ResultWriting, RewritingTheGridRemovesEarlierResults) {
    run(nk, 3);
    run(2, 1);  // a second run on the same file, with another vertical resolution
    h5check(2, "0.5");
}

TEST_F(ResultWriting, TimeNotAfterTheLastIsRefusedWithItsFields) {
    run(nk, 2);  // times 0.5 and 1.0
    const int fid = openselect();
    int ier = 1;
    CG_KAVEL_WRITE_SOL_TIME_F(2.0, ier);  // appends to the results of the earlier session
    EXPECT_EQ(ier, 0);
    writefields(nk, 3);
    const std::vector<double> f(ni * nj * nk, -1.0);
    for (const double t : {2.0, 1.5}) {
        CG_KAVEL_WRITE_SOL_TIME_F(t, ier);
        EXPECT_NE(ier, 0) << t;
        CG_KAVEL_WRITE_SOL_REAL_F("VelocityX", f.data(), ier);
        EXPECT_NE(ier, 0) << t;  // not written over the solution at 2.0
    }
    close(fid);
    h5check(nk, "0.5 1.0 2.0");
}

}  // namespace
