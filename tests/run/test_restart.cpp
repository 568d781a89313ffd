// Restart files: every saved array comes back bit for bit (awkward values, trimmed names, a second
// write replacing the first whole; records laid out otherwise: the kept fuzz inputs); damaged,
// short, missing, non-finite and wrong-grid files stop the run with the saved-results error. The
// continued run against the run in one go is checked end to end (tests/e2e/test_restart.py), the
// exact bytes of the file by the regression digests.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "run/restart_m.hpp"
#include "support/box.hpp"
#include "support/scratch.hpp"

namespace riffle {
namespace {

namespace fs = std::filesystem;
using testsupport::Scratch;

std::string slurp(const fs::path& f) {
    std::ostringstream s;
    s << std::ifstream(f).rdbuf();
    return s.str();
}

// Three multigrid levels; the bed set as start-up sets it.
Storage grid(int kmax = 4) {
    Storage st = testsupport::box(6, 4, kmax, 0.5, 0.25, 0.125);
    st.zb.fill(0.0);
    return st;
}

// Every saved array filled with values of every size and sign, negative zero, the smallest
// subnormal and the largest double mixed in.
void fillsaved(Storage& st, unsigned seed) {
    std::mt19937_64 gen(seed);
    std::uniform_real_distribution<double> mant(-1.0, 1.0);
    std::uniform_int_distribution<int> exp(-300, 300);
    const double odd[] = {-0.0, 5e-324, 1.7976931348623157e308, 0.1, 1.0 / 3.0};
    std::size_t n = 0;
    const auto fill = [&](double* a, std::size_t size) {
        for (std::size_t m = 0; m < size; ++m, ++n)
            a[m] = n % 97 == 0 ? odd[n % 5] : std::ldexp(mant(gen), exp(gen));
    };
    for (int l = st.lmin; l <= 0; ++l)
        fill(st.mg(l).phi.data(), st.mg(l).phi.size());
    for (Field3d* a : {&st.uo, &st.vo, &st.wo, &st.fu, &st.fv, &st.fw, &st.nut})
        fill(a->data(), a->size());
    fill(st.zb.data(), st.zb.size());
    st.npt = 1;
    for (auto& a : st.ptdata)
        fill(a.data(), 1);
}

// Every saved value bit for bit over 0..n+1 in each direction (the range in the file), and zb.
void expectsame(const Storage& a, const Storage& b) {
    const auto same = [](const Field3d& x, const Field3d& y, int ni, int nj, const char* name) {
        int differ = 0;
        for (int k = 0; k <= x.krange().hi; ++k)
            for (int j = 0; j <= nj + 1; ++j)
                for (int i = 0; i <= ni + 1; ++i)
                    differ += std::memcmp(&x(i, j, k), &y(i, j, k), sizeof(double)) != 0;
        EXPECT_EQ(differ, 0) << name;
    };
    for (int l = a.lmin; l <= 0; ++l)
        same(a.mg(l).phi, b.mg(l).phi, a.mg(l).ni, a.mg(l).nj, "phi");
    for (auto m : {&Storage::uo, &Storage::vo, &Storage::wo, &Storage::fu, &Storage::fv,
                   &Storage::fw, &Storage::nut})
        same(a.*m, b.*m, a.imax, a.jmax, "a saved field");
    int differ = 0;
    for (int j = 0; j <= a.jmax + 1; ++j)
        for (int i = 0; i <= a.imax + 1; ++i)
            differ += std::memcmp(&a.zb(i, j), &b.zb(i, j), sizeof(double)) != 0;
    EXPECT_EQ(differ, 0) << "zb";
    for (int m = 0; m < 6; ++m)
        EXPECT_EQ(std::memcmp(&a.ptdata[m][0], &b.ptdata[m][0], 8), 0);
}

TEST(Restart, RoundTripIsBitForBit) {
    Scratch s;
    Storage st = grid();
    ASSERT_EQ(st.lmin, -2);
    restartwrite(st, 1, 0.5, "  " + s.dir.string() + "  ", " run "); // names are trimmed
    fillsaved(st, 11);
    restartwrite(st, 37, 1.2345678901234567, s.dir.string(), "run");
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(s.dir))
        names.push_back(e.path().filename());
    EXPECT_EQ(names, std::vector<std::string>{"run.dat"}); // no temporary file left behind

    Storage back = grid();
    back.u.fill(9.0);
    restartread(back, (s.dir / "run.dat").string() + "   ");
    restartcheck(6, 4, 4, (s.dir / "run.dat").string()); // returns: the dry run accepts it
    EXPECT_EQ(back.istep, 37);
    EXPECT_EQ(back.time, 1.2345678901234567);
    expectsame(st, back);
    // The velocity continues from the saved level everywhere, the unsaved ghost at -1 included.
    for (auto [x, xo] : {std::pair{&back.u, &back.uo}, {&back.v, &back.vo}, {&back.w, &back.wo}})
        EXPECT_EQ(std::memcmp(x->data(), xo->data(), x->size() * sizeof(double)), 0);
    EXPECT_EQ(back.u(-1, 2, 2), 0.0);

    try {
        restartwrite(st, 1, 0.5, "/nonexistent-riffle-folder", "run");
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("/nonexistent-riffle-folder/run.dat"),
                  std::string::npos)
            << e.what();
    }
}

// The reporter prints on stdout and waits for the operator: the child reads an empty stdin and
// writes its stdout into stderr, where the death test looks.
fs::path childscratch;
void readinchild(const fs::path& dir, const char* file, bool dryrun = false) {
    childscratch = dir;
    std::atexit([] { fs::remove_all(childscratch); });
    if (std::freopen("/dev/null", "r", stdin) == nullptr) std::abort();
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    Storage st = grid();
    if (dryrun) {
        restartcheck(st.imax, st.jmax, st.kmax, (dir / file).string());
    } else {
        restartread(st, (dir / file).string());
    }
}

TEST(RestartDeathTest, ShortDamagedMissingNonFiniteOrLargerFileStopsTheRun) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Scratch s;
    Storage st = grid();
    fillsaved(st, 7);
    restartwrite(st, 3, 1.5, s.dir.string(), "run");
    const std::string full = slurp(s.dir / "run.dat");
    const std::size_t at = full.find(' ', full.size() / 2), item = full.find(' ', at + 1) + 1;
    std::ofstream(s.dir / "short.dat") << full.substr(0, at);
    std::string damaged = full, nan = full;
    std::ofstream(s.dir / "damaged.dat") << damaged.replace(item, 3, "x.y");
    std::ofstream(s.dir / "nan.dat") << nan.replace(item, full.find(' ', item) - item, "NaN");
    restartwrite(grid(8), 3, 1.5, s.dir.string(), "larger");

    const char* message = " ERROR : Failed to read the saved results \\.\\.\\.";
    for (const char* file : {"short.dat", "damaged.dat", "missing.dat", "nan.dat"})
        EXPECT_EXIT(readinchild(s.dir, file), testing::ExitedWithCode(EXIT_FAILURE), message)
            << file;
    EXPECT_EXIT(readinchild(s.dir, "larger.dat", true), testing::ExitedWithCode(EXIT_FAILURE),
                message);
}

} // namespace
} // namespace riffle
