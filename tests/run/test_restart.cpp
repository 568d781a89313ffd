// Restart files: a round trip that gives back every saved array bit for bit (and u = uo after the
// read), a run continued from a restart file equal bit for bit to the uninterrupted run, the
// record layout and number text of the list-directed form, records spread over lines, one file
// left after two writes, trimmed names, an unwritable folder, and the fatal error on a short,
// damaged, missing or non-finite file and, in the dry run too, on a file of a larger grid.
#include <gtest/gtest.h>

#include <omp.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "ibm/flagdeter_m.hpp"
#include "run/casefile_m.hpp"
#include "run/console_m.hpp"
#include "run/driver_m.hpp"
#include "run/restart_m.hpp"
#include "support/box.hpp"
#include "support/scratch.hpp"

namespace riffle {
namespace {

namespace fs = std::filesystem;

using testsupport::Scratch;

std::string slurp(const fs::path& f) {
    std::ifstream in(f);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> lines(const fs::path& f) {
    std::istringstream in(slurp(f));
    std::vector<std::string> all;
    for (std::string l; std::getline(in, l);) all.push_back(l);
    return all;
}

// Three multigrid levels; the bed set as start-up sets it (a fresh box leaves it unset, NaN in
// Debug, which a restart file may not hold).
Storage grid(int kmax = 4) {
    Storage st = testsupport::box(6, 4, kmax, 0.5, 0.25, 0.125);
    st.zb.fill(0.0);
    return st;
}

// Values of every size and sign, with the awkward ones (negative zero, subnormal, huge) mixed in.
void fillsaved(Storage& st, unsigned seed) {
    std::mt19937_64 gen(seed);
    std::uniform_real_distribution<double> mant(-1.0, 1.0);
    std::uniform_int_distribution<int> exp(-300, 300);
    const double odd[] = {-0.0, 5e-324, 1.7976931348623157e308, 0.1, 1.0 / 3.0};
    std::size_t n = 0;
    const auto value = [&] {
        return ++n % 97 == 0 ? odd[n % 5] : std::ldexp(mant(gen), exp(gen));
    };
    for (int l = st.lmin; l <= 0; ++l) {
        Field3d& phi = st.mg(l).phi;
        for (std::size_t m = 0; m < phi.size(); ++m) phi.data()[m] = value();
    }
    for (Field3d* a : {&st.uo, &st.vo, &st.wo, &st.fu, &st.fv, &st.fw, &st.nut})
        for (std::size_t m = 0; m < a->size(); ++m) a->data()[m] = value();
    for (std::size_t m = 0; m < st.zb.size(); ++m) st.zb.data()[m] = value();
    st.npt = 1;
    for (auto& a : st.ptdata) a[0] = value();
}

bool samebits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The 3-D arrays of the file in file order: phi of every level, then the seven of each cell.
std::vector<const Field3d*> saved(const Storage& st) {
    std::vector<const Field3d*> all;
    for (int l = st.lmin; l <= 0; ++l) all.push_back(&st.mg(l).phi);
    for (const Field3d* a : {&st.uo, &st.vo, &st.wo, &st.fu, &st.fv, &st.fw, &st.nut})
        all.push_back(a);
    return all;
}

std::size_t phicount(const Storage& st) {
    std::size_t n = 0;
    for (int l = st.lmin; l <= 0; ++l) n += st.mg(l).phi.size();
    return n;
}

// Every saved value bit for bit, over 0..n+1 in each direction (the range in the file), and zb.
void expectsame(const Storage& a, const Storage& b) {
    const auto fa = saved(a), fb = saved(b);
    for (std::size_t n = 0; n < fa.size(); ++n) {
        const Field3d &x = *fa[n], &y = *fb[n];
        int differ = 0;
        for (int k = 0; k <= x.krange().hi; ++k)
            for (int j = 0; j <= x.jrange().hi; ++j)
                for (int i = 0; i <= x.irange().hi; ++i)
                    differ += samebits(x(i, j, k), y(i, j, k)) ? 0 : 1;
        EXPECT_EQ(differ, 0) << "array " << n;
    }
    EXPECT_EQ(std::memcmp(a.zb.data(), b.zb.data(), a.zb.size() * sizeof(double)), 0);
}

TEST(Restart, RoundTripIsBitForBit) {
    Scratch s;
    Storage st = grid();
    ASSERT_EQ(st.lmin, -2);
    fillsaved(st, 11);
    restartwrite(st, 37, 1.2345678901234567, s.dir.string(), "run");

    Storage back = grid();
    back.u.fill(9.0);
    restartread(back, (s.dir / "run.dat").string());
    restartcheck(6, 4, 4, (s.dir / "run.dat").string());  // returns: the dry run accepts it too
    EXPECT_EQ(back.istep, 37);
    EXPECT_TRUE(samebits(back.time, 1.2345678901234567));
    expectsame(st, back);
    ASSERT_EQ(back.npt, 1);
    for (int a = 0; a < 6; ++a) EXPECT_TRUE(samebits(back.ptdata[a][0], st.ptdata[a][0]));
    // The velocity continues from the saved level everywhere, the unsaved ghost at -1 included.
    for (auto [x, xo] : {std::pair{&back.u, &back.uo}, {&back.v, &back.vo}, {&back.w, &back.wo}}) {
        EXPECT_EQ(std::memcmp(x->data(), xo->data(), x->size() * sizeof(double)), 0);
    }
    EXPECT_EQ(back.u(-1, 2, 2), 0.0);
}

TEST(Restart, RecordLayout) {
    Scratch s;
    Storage st = grid();
    fillsaved(st, 5);
    restartwrite(st, 4, 0.75, s.dir.string(), "run");
    const auto text = lines(s.dir / "run.dat");
    const std::size_t phis = phicount(st);
    const std::size_t cells = 8 * 6 * 6, plane = 8 * 6;
    ASSERT_EQ(text.size(), 1 + phis + cells + plane + 1 + 1);
    EXPECT_EQ(text[0], " 4 " + console::realtext(0.75));
    EXPECT_EQ(text[1], console::record(st.mg(st.lmin).phi(0, 0, 0)));  // coarsest level first
    EXPECT_EQ(text[phis], console::record(st.mg(0).phi(7, 5, 5)));
    // Every seven-value record in the program's list-directed form, in k, j, i order.
    std::size_t line = 1 + phis, wrong = 0;
    for (int k = 0; k <= 5; ++k)
        for (int j = 0; j <= 5; ++j)
            for (int i = 0; i <= 7; ++i, ++line)
                wrong += text[line] != console::record(st.uo(i, j, k), st.vo(i, j, k),
                                                       st.wo(i, j, k), st.fu(i, j, k),
                                                       st.fv(i, j, k), st.fw(i, j, k),
                                                       st.nut(i, j, k));
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(text[line], console::record(st.zb(0, 0)));
    EXPECT_EQ(text[line + plane - 1], console::record(st.zb(7, 5)));
    EXPECT_EQ(text[line + plane], " 1");
    EXPECT_EQ(text.back(), console::record(st.ptdata[0][0], st.ptdata[1][0], st.ptdata[2][0],
                                           st.ptdata[3][0], st.ptdata[4][0], st.ptdata[5][0]));
}

// Items may be spread over lines and blanks; what follows a record's last item on its line is
// not read.
TEST(Restart, RecordsMaySpanLines) {
    Scratch s;
    Storage st = grid();
    fillsaved(st, 3);
    restartwrite(st, 8, 2.5, s.dir.string(), "run");
    auto text = lines(s.dir / "run.dat");
    const std::size_t phis = phicount(st);
    text[0] = "\n   8\n\n  " + console::realtext(2.5) + "   trailing words";
    text[1] += " 1.0 2.0";
    std::string& seven = text[1 + phis];
    for (int cut = 0, at = 0; cut < 3; ++cut) {
        at = static_cast<int>(seven.find(' ', static_cast<std::size_t>(at) + 2));
        seven[static_cast<std::size_t>(at)] = '\n';
    }
    std::ofstream(s.dir / "edited.dat") << [&] {
        std::string all;
        for (const auto& l : text) all += l + "\n";
        return all;
    }();
    Storage back = grid();
    restartread(back, (s.dir / "edited.dat").string() + "   ");  // trailing blanks of the name
    EXPECT_EQ(back.istep, 8);
    EXPECT_EQ(back.time, 2.5);
    expectsame(st, back);
}

TEST(Restart, LaterWriteReplacesEarlierAndNamesAreTrimmed) {
    Scratch s;
    Storage st = grid();
    restartwrite(st, 1, 0.5, "  " + s.dir.string() + "  ", " run ");
    restartwrite(st, 2, 1.0, s.dir.string(), "run");
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(s.dir)) names.push_back(e.path().filename());
    EXPECT_EQ(names, std::vector<std::string>{"run.dat"});  // no temporary file left either
    Storage back = grid();
    restartread(back, (s.dir / "run.dat").string());
    EXPECT_EQ(back.istep, 2);
    EXPECT_EQ(back.time, 1.0);
}

TEST(Restart, UnwritableFolderNamesTheFile) {
    Storage st = grid();
    try {
        restartwrite(st, 1, 0.5, "/nonexistent-riffle-folder", "run");
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("/nonexistent-riffle-folder/run.dat"),
                  std::string::npos)
            << e.what();
    }
}

// A channel over a wavy bed with a disturbed flow, settings of a real run on one thread (the
// line smoother's order across threads is deliberately free).
Storage channel() {
    Storage st = testsupport::box(16, 8, 8, 0.0625, 0.0625, 0.0625);
    setboundarycodes(st, 0, 0, 0);
    st.timetype = 1;
    st.dt = 0.002;
    st.visc = 1e-6;
    st.discharge = 0.1;
    st.cs = 0.1;
    st.ks = 1.0;
    st.iIBM = 1;
    st.igamma = 1;
    st.ipres = 2;
    st.iposts = 2;
    st.kpoismax = 5;
    for (int j = 0; j <= 9; ++j)
        for (int i = 0; i <= 17; ++i) st.zb(i, j) = 0.1 + 0.05 * std::sin(0.4 * i + 0.3 * j);
    std::mt19937_64 gen(2);
    std::uniform_real_distribution<double> r(-0.05, 0.05);
    for (Field3d* a : {&st.u, &st.v, &st.w}) {
        const double mean = a == &st.u ? 0.5 : 0.0;
        for (std::size_t m = 0; m < a->size(); ++m) a->data()[m] = mean + r(gen);
    }
    velocityboundaries(st);
    storeold(st);
    ibm::flagdeter(st);
    return st;
}

// N steps in one go equal N/2 steps, a restart file, a fresh start from it and N/2 steps, bit for
// bit in the velocities: the file holds all the state a step carries over.
TEST(Restart, ContinuedRunFollowsUninterruptedRun) {
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    Scratch s;
    constexpr int nsteps = 8;
    Storage whole = channel();
    for (int n = 0; n < nsteps; ++n) advance(whole);

    Storage first = channel();
    for (int n = 0; n < nsteps / 2; ++n) advance(first);
    restartwrite(first, first.istep, first.time, s.dir.string(), "run");
    Storage second = channel();
    restartread(second, (s.dir / "run.dat").string());
    ibm::flagdeter(second);  // as at start-up
    for (int n = 0; n < nsteps / 2; ++n) advance(second);
    omp_set_num_threads(threads);

    EXPECT_EQ(second.istep, nsteps);
    EXPECT_TRUE(samebits(second.time, whole.time));
    for (auto [a, b, name] : {std::tuple{&whole.u, &second.u, "u"}, {&whole.v, &second.v, "v"},
                              {&whole.w, &second.w, "w"}}) {
        EXPECT_EQ(std::memcmp(a->data(), b->data(), a->size() * sizeof(double)), 0) << name;
    }
    EXPECT_GT(std::abs(whole.u(3, 3, 6) - first.u(3, 3, 6)), 1e-9);  // the flow did change
}

// The reporter prints on stdout and waits for the operator: the child reads an empty stdin and
// writes its stdout into stderr, where the death test looks. The child runs the test afresh in
// its own scratch folder and leaves through exit(), so it removes that folder at exit.
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
    const std::size_t phis = phicount(st);
    // Cut in the middle of the hundredth-odd record of seven values.
    std::size_t at = 0;
    for (std::size_t l = 0; l < 1 + phis + 100; ++l) at = full.find('\n', at) + 1;
    at = full.find(' ', at + 30);
    std::ofstream(s.dir / "short.dat") << full.substr(0, at);
    const std::size_t item = full.find(' ', at + 1) + 1;
    std::string damaged = full, nan = full;
    damaged.replace(item, 3, "x.y");
    std::ofstream(s.dir / "damaged.dat") << damaged;
    std::ofstream(s.dir / "nan.dat") << nan.replace(item, full.find(' ', item) - item, "NaN");
    restartwrite(grid(8), 3, 1.5, s.dir.string(), "larger");

    const char* message = " ERROR : Failed to read the saved results \\.\\.\\.";
    EXPECT_EXIT(readinchild(s.dir, "short.dat"), testing::ExitedWithCode(EXIT_FAILURE), message);
    EXPECT_EXIT(readinchild(s.dir, "damaged.dat"), testing::ExitedWithCode(EXIT_FAILURE), message);
    EXPECT_EXIT(readinchild(s.dir, "missing.dat"), testing::ExitedWithCode(EXIT_FAILURE), message);
    EXPECT_EXIT(readinchild(s.dir, "nan.dat"), testing::ExitedWithCode(EXIT_FAILURE), message);
    EXPECT_EXIT(readinchild(s.dir, "larger.dat", true), testing::ExitedWithCode(EXIT_FAILURE),
                message);
}

}  // namespace
}  // namespace riffle
