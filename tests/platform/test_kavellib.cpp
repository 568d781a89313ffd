// The solver's calls on real case files: a case from writecasefile read back through them, failed
// reads and bad files leaving everything untouched, and a failed write leaving no trace.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <algorithm>

#include "support/case_kavel.hpp"

namespace riffle::platform {
namespace {

using namespace testsupport;

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

} // namespace
} // namespace riffle::platform
