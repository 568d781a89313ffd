// The solver's calls on real case files: a case from writecasefile read back through them, failed
// reads and a bad file leaving everything untouched, and failed writes leaving no trace.
// The journal that makes case-file updates crash-safe: a whole journal is replayed, a torn or
// corrupt one dropped with the case left alone; the solver's open of its case gets the journaling
// driver and its lock keeps replays out. (Runs killed mid-commit: tests/e2e/test_crash.py.)

#include <algorithm>
#include <cstdint>
#include <hdf5.h>

#include "platform/casejournal.hpp"
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
    // StartfileItm is cut to the solver's 200-character buffers.
    EXPECT_EQ(std::tuple(k, cfl, out, start), std::tuple(3, 0.5, "results", std::string(200, 'p')));
    EXPECT_EQ(std::count(failed.begin(), failed.end(), 0), 0) << testing::PrintToString(failed);
    EXPECT_EQ(std::tuple(iv, rv, sv, kept),
              std::tuple(-5, -5.0, "keep", std::vector(ni * nj, -7.0)));

    // The case builder's view: the same bed, the conditions in stored order with their types.
    EXPECT_EQ(readbed(file).elevation, bed.elevation);
    const std::vector<StoredCondition> c = listconditions(file);
    ASSERT_EQ(c.size(), 6u);
    for (const auto& [n, type, length] : {std::tuple{0, "Integer", 1},
                                          {1, "RealDouble", 1},
                                          {2, "Character", 7},
                                          {5, "Integer", 2}})
        EXPECT_EQ(std::tuple(c[n].datatype, c[n].length), std::tuple(type, length)) << c[n].key;
    EXPECT_EQ(std::get<std::string>(c[4].value), std::string(250, 'p')); // shown whole
}

TEST_F(Kavel, BadFileRefusedUntouchedAndFailedWritesLeaveNoTrace) {
    const fs::path text = scratch.file("text.cgns", "kmaxItm = 3\n");
    int fid = -3, ier = 0;
    CG_OPEN_F(text, mode_modify, fid, ier);
    EXPECT_EQ(std::tuple(ier != 0, fid, contents(text)), std::tuple(true, -3, "kmaxItm = 3\n"));
    EXPECT_THROW(readbed(text), CaseFileError);
    const std::string before = contents(file);
    BedGrid shortx = bed;
    shortx.x.pop_back();
    EXPECT_THROW(writecasefile(file, shortx, {}), CaseFileError);
    EXPECT_THROW(writecasefile(file, bed, {{"bad/key", 1}}), CaseFileError); // '/' refused by CGNS
    EXPECT_TRUE(contents(file) == before);
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.dir), {}), 2); // the case and text.cgns
}

using namespace testsupport;

// A journal of one region, byte by byte: "RIFFLEJ1", the case's size after the commit, the number
// of regions, the region's address and length and bytes, then the 64-bit FNV-1a of all before it
// (every number a little-endian 64-bit word).
std::string journal(std::uint64_t size, std::uint64_t at, const std::string& bytes) {
    std::string j = "RIFFLEJ1";
    auto word = [&](std::uint64_t v) {
        for (int b = 0; b < 8; ++b)
            j += static_cast<char>(v >> (8 * b));
    };
    word(size), word(1), word(at), word(bytes.size());
    j += bytes;
    std::uint64_t h = 14695981039346656037ULL;
    for (const unsigned char c : j)
        h = (h ^ c) * 1099511628211ULL;
    word(h);
    return j;
}

TEST(CaseJournal, WholeJournalReplayedTornOrCorruptOneDropped) {
    const testsupport::Scratch s;
    const std::string path = s.file("case", "abcdefghij").string(), j = path + ".journal";
    const std::string whole = journal(12, 8, "XYZW");
    std::string corrupt = whole;
    corrupt[41] ^= 1; // the second byte of the region
    for (const std::string& bad : {whole.substr(0, whole.size() - 1), corrupt}) {
        std::ofstream(j) << bad;
        std::ofstream(j + ".tmp") << "half a journal"; // a journal whose writing was cut short
        EXPECT_FALSE(replayjournal(path));
        EXPECT_EQ(std::tuple(contents(path), fs::exists(j), fs::exists(j + ".tmp")),
                  std::tuple("abcdefghij", false, false));
    }
    std::ofstream(j) << whole;
    EXPECT_TRUE(replayjournal(path));
    EXPECT_EQ(std::tuple(contents(path), fs::exists(j)), std::tuple("abcdefghXYZW", false));
    EXPECT_FALSE(replayjournal(path)); // nothing left to do
}

TEST_F(Kavel, SolverOpenTakesTheJournalDriverAndItsLockKeepsReplaysOut) {
    int fid = openselect(), ier = 1;
    hid_t id = 0; // the only file HDF5 has open
    ASSERT_EQ(H5Fget_obj_ids(H5F_OBJ_ALL, H5F_OBJ_FILE, 1, &id), 1);
    const hid_t fapl = H5Fget_access_plist(id);
    EXPECT_EQ(H5Pget_driver(fapl), casejournal::driver());
    H5Pclose(fapl);
    std::ofstream(file + ".journal") << "RIFFLEJ1 not a whole journal";
    EXPECT_FALSE(replayjournal(file)); // the run holds the case: its journal is its own
    EXPECT_TRUE(fs::exists(file + ".journal"));
    fs::remove(file + ".journal");
    CG_CLOSE_F(fid, ier);
}

} // namespace
} // namespace riffle::platform
