// The journal that makes case-file updates crash-safe: a whole journal is replayed, a torn or
// corrupt one dropped with the case left alone; the solver's open of its case gets the journaling
// driver and its lock keeps replays out. (Runs killed mid-commit: tests/e2e/test_crash.py.)
#include <hdf5.h>

#include <cstdint>

#include "platform/casejournal.hpp"
#include "support/case_kavel.hpp"

namespace riffle::platform {
namespace {

using namespace testsupport;

// A journal of one region, byte by byte: "RIFFLEJ1", the case's size after the commit, the number
// of regions, the region's address and length and bytes, then the 64-bit FNV-1a of all before it
// (every number a little-endian 64-bit word).
std::string journal(std::uint64_t size, std::uint64_t at, const std::string& bytes) {
    std::string j = "RIFFLEJ1";
    auto word = [&](std::uint64_t v) {
        for (int b = 0; b < 8; ++b) j += static_cast<char>(v >> (8 * b));
    };
    word(size), word(1), word(at), word(bytes.size());
    j += bytes;
    std::uint64_t h = 14695981039346656037ULL;
    for (const unsigned char c : j) h = (h ^ c) * 1099511628211ULL;
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
