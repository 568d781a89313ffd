// The journaling driver under HDF5's own calls: an overwrite of data the committed file holds
// stays off the disk until the flush while reads see it, the flush leaves no journal, and a
// truncation reaches the disk at the flush; the solver's open of its case gets the driver, a
// reader's does not; a damaged journal is dropped untouched, and a run's lock keeps a replay out.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/casefile.hpp"
#include "platform/casejournal.hpp"
#include "platform/kavellib.hpp"
#include "support/scratch.hpp"

namespace fs = std::filesystem;
namespace pf = riffle::platform;
namespace cj = riffle::platform::casejournal;

namespace {

// Larger than HDF5's sieve buffer, so a whole write goes to the driver at once.
constexpr std::size_t count = 1 << 15;

std::string contents(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Whether the file on disk holds `v` at `offset` (read past HDF5).
bool ondisk(const fs::path& path, haddr_t offset, const std::vector<double>& v) {
    const std::string bytes(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(double));
    return contents(path).substr(offset, bytes.size()) == bytes;
}

void put(const fs::path& p, const std::string& text) { std::ofstream(p) << text; }

// The driver of the only file HDF5 has open.
hid_t opendriver() {
    hid_t ids[2] = {};
    EXPECT_EQ(H5Fget_obj_ids(H5F_OBJ_ALL, H5F_OBJ_FILE, 2, ids), 1);
    const hid_t fapl = H5Fget_access_plist(ids[0]);
    const hid_t driver = H5Pget_driver(fapl);
    H5Pclose(fapl);
    return driver;
}

}  // namespace

TEST(CaseJournal, OverwritesReachTheDiskAtTheFlushOnly) {
    const riffle::testsupport::Scratch scratch;
    const fs::path path = scratch.file("data.h5");
    const hsize_t dims = count;
    const std::vector<double> ones(count, 1.0), twos(count, 2.0);
    hid_t file = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    const hid_t space = H5Screate_simple(1, &dims, nullptr);
    hid_t set = H5Dcreate2(file, "d", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, H5P_DEFAULT,
                           H5P_DEFAULT);
    H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, ones.data());
    H5Sclose(space);
    H5Dclose(set);
    H5Fclose(file);

    cj::arm(path);
    file = H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
    cj::disarm();
    ASSERT_GE(file, 0);
    EXPECT_EQ(opendriver(), cj::driver());
    set = H5Dopen2(file, "d", H5P_DEFAULT);
    const haddr_t offset = H5Dget_offset(set);
    ASSERT_NE(offset, HADDR_UNDEF);
    EXPECT_GE(H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, twos.data()), 0);
    EXPECT_TRUE(ondisk(path, offset, ones));
    std::vector<double> back(count);
    H5Dread(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, back.data());
    EXPECT_EQ(back, twos);
    EXPECT_GE(H5Fflush(file, H5F_SCOPE_LOCAL), 0);
    EXPECT_TRUE(ondisk(path, offset, twos));
    EXPECT_FALSE(fs::exists(path.string() + ".journal"));
    H5Dclose(set);

    // The data set was the last thing in the file: HDF5 gives its space back by a truncation,
    // which the commit carries out.
    H5Ldelete(file, "d", H5P_DEFAULT);
    EXPECT_GE(H5Fflush(file, H5F_SCOPE_LOCAL), 0);
    EXPECT_LE(fs::file_size(path), offset);
    EXPECT_GE(H5Fclose(file), 0);
    file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    EXPECT_EQ(H5Lexists(file, "d", H5P_DEFAULT), 0);
    H5Fclose(file);
}

TEST(CaseJournal, SolverOpenTakesTheDriverAndItsLockKeepsReplaysOut) {
    const riffle::testsupport::Scratch scratch;
    const fs::path path = scratch.file("case.cgns");
    pf::writecasefile(path, {2, 2, {0, 1, 0, 1}, {0, 0, 1, 1}, {0, 0, 0, 0}}, {});
    const std::string journal = path.string() + ".journal";
    int fid = 0, ier = 1;
    pf::CG_OPEN_F(path, pf::mode_read, fid, ier);
    ASSERT_EQ(ier, 0);
    EXPECT_EQ(opendriver(), H5FD_SEC2);
    pf::CG_CLOSE_F(fid, ier);

    // A journal cut short (as a system crash may leave it) is dropped and the case left alone.
    const std::string before = contents(path);
    put(journal, "RIFFLEJ1 not a whole journal");
    put(journal + ".tmp", "half a journal");
    EXPECT_FALSE(pf::replayjournal(path));
    EXPECT_FALSE(fs::exists(journal));
    EXPECT_FALSE(fs::exists(journal + ".tmp"));
    EXPECT_TRUE(contents(path) == before);

    pf::CG_OPEN_F(path, pf::mode_modify, fid, ier);
    ASSERT_EQ(ier, 0);
    EXPECT_EQ(opendriver(), cj::driver());
    put(journal, "RIFFLEJ1 not a whole journal");
    EXPECT_FALSE(pf::replayjournal(path));  // the run holds the case: its journal is its own
    EXPECT_TRUE(fs::exists(journal));
    fs::remove(journal);
    pf::CG_CLOSE_F(fid, ier);
    EXPECT_EQ(ier, 0);
}
