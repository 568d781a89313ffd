// The case builder: each class of refusal with the line it names, the bed shapes against hand
// values, the default box bottom and discharge, the --check report. The
// interpolation of surveyed beds: test_bedcsv.cpp; a written case read back: the platform tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "casebuild.hpp"
#include "check.hpp"
#include "support/scratch.hpp"

namespace riffle::casebuilder {
namespace {

namespace fs = std::filesystem;

Case build(const std::string& text, const fs::path& folder = {}) {
    return buildcase(parserecipe(text, "t.recipe", folder));
}

Value value(const Case& c, std::string_view key) {
    return std::ranges::find(c.conditions, key, &platform::Condition::key)->value;
}
double real(const Case& c, std::string_view key) { return std::get<double>(value(c, key)); }

// What a call throws as RecipeError, or "(no error)".
template <class F> std::string refusal(F f) {
    try {
        f();
    } catch (const RecipeError& e) {
        return e.what();
    }
    return "(no error)";
}

TEST(Recipe, LinesReadOrRefusedNamingTheirLine) {
    const Case read = build("# a flume\n   \n  cflItm   =   0.25   # Courant number\nkmaxItm=3\n"
                            "outfileItm = \"run #1\"  # kept whole\noutpathItm = results/a b\n");
    EXPECT_EQ(std::tuple(value(read, "cflItm"), value(read, "kmaxItm"), value(read, "outfileItm"),
                         value(read, "outpathItm")),
              std::tuple(Value(0.25), Value(3), Value(std::string("run #1")),
                         Value(std::string("results/a b"))));
    const testsupport::Scratch s;
    const struct {
        std::string text;
        int line;
        std::string what, csv = {}; // a bed file b.csv beside the recipe, named in its errors
    } cases[] = {
        {"ni = 65\ncflitm = 0.3\n", 2, "unknown key \"cflitm\" (did you mean \"cflItm\"?)"},
        {"# note\nwhatever\n", 2, "expected \"key = value\""},
        {"kmaxItm = 4.0\n", 1, "\"kmaxItm\" needs a 32-bit integer, got \"4.0\""},
        {"#\ncflItm = 0.3x\n", 2, "\"cflItm\" needs a number, got \"0.3x\""},
        {"cflItm = 1\n\ncflItm = 2\n", 3, "\"cflItm\" given twice (first on line 1)"},
        {"cflItm =   # none\n", 1, "no value for \"cflItm\""},
        {"= 3\n", 1, "no key before \"=\""},
        {"outfileItm = \"abc\n", 1, "no closing quote"},
        {"outfileItm = \"abc\" d\n", 1, "text after the closing quote"},
        {"outfileItm = " + std::string(201, 'a'), 1, "longer than the solver's 200 characters"},
        {"ni = 1\n", 1, "ni = 1 leaves no cell"},
        {"xmin = 1\nxmax = 0.5\n", 2, "xmax = 0.5 must be greater than xmin = 1"},
        {"ni = 60000\nnj = 60000\n", 2, "more than the 2147483647"},
        {"kmaxItm = 32\n", 1, "kmaxItm = 32 gives no vertical cells"},
        {"bed = dune\n", 1, "bed must be flat, sinusoid, dunes or csv, got \"dune\""},
        {"height = 0.1\n#\nbed = flat\n", 1, "\"height\" does not apply to bed = flat"},
        {"bed = sinusoid\nwavelength = -1\n", 2, "wavelength = -1 must be positive"},
        {"bed = dunes\nleeangle = 90\n", 2, "leeangle = 90 must lie strictly between"},
        {"bed = dunes\nheight = 0.1\nleeangle = 10\n", 3, "not less than the dune length 0.4"},
        {"bed = csv\n", 1, "bed = csv needs csvfile"},
        {"bed = csv\ncsvfile = nowhere.csv\n", 2, "cannot read the bed file \"nowhere.csv\""},
        {"zmaxItm = -0.5\n", 1, "zmaxItm = -0.5 must lie above the lowest bed point z = 0"},
        {"zminItm = 0.2\n", 1, "zmaxItm = 0.1 must be greater than zminItm = 0.2"},
        {"velocity = 0.3\ndischargeItm = 0.01\n", 2, "either velocity or dischargeItm"},
        {"", 4, "expected three numbers \"x, y, z\", got \"1,2\"", "x,y,z\n0,0,1\n\n1,2\n"},
        {"", 0, "no x, y, z rows", "x,y,z\n# nothing\n"},
    };
    for (const auto& c : cases) {
        const std::string e = refusal([&] {
            (void)build(c.csv.empty() ? c.text : "bed = csv\ncsvfile = b.csv\n",
                        c.csv.empty() ? fs::path() : s.file("b.csv", c.csv).parent_path());
        });
        std::string where = c.csv.empty() ? "t.recipe" : s.file("b.csv").string();
        if (c.line > 0) where.append(":").append(std::to_string(c.line));
        EXPECT_TRUE(e.starts_with(where.append(": ")) && e.find(c.what) != e.npos &&
                    e.find('\n') == e.npos)
            << e << "\nfrom: " << c.text << c.csv;
    }
    EXPECT_EQ(refusal([] { (void)readrecipe("/nonexistent/flat.recipe"); }),
              "/nonexistent/flat.recipe: cannot read the recipe");
}

TEST(BedShapes, GridSinusoidAndDunesAtHandValues) {
    const platform::BedGrid g = gridnodes({0.1, 0.3, -1.0, 2.0, 4, 3});
    EXPECT_EQ(g.y, std::vector<double>({-1, -1, -1, -1, 0.5, 0.5, 0.5, 0.5, 2, 2, 2, 2}));
    for (int n = 0; n < 12; ++n)
        EXPECT_NEAR(g.x[n], 0.1 + 0.2 / 3 * (n % 4), 1e-15) << n;
    EXPECT_EQ(g.x[7], 0.3); // each row ends on xmax exactly

    // Nodes every 0.1 m, a quarter wave, from the phase origin at xmin.
    const Case c = build("bed = sinusoid\nxmin = 1\nxmax = 1.8\nni = 9\nnj = 3\n"
                         "level = 0.05\namplitude = 0.01\nwavelength = 0.4\n");
    const double quarter[] = {0.05, 0.06, 0.05, 0.04};
    for (int n = 0; n < 27; ++n)
        EXPECT_NEAR(c.bed.elevation[n], quarter[n % 9 % 4], 1e-15) << n;

    // Dunes 0.02 high and 0.4 long from a trough at 0.01, the lee at 30 degrees; any period.
    const Dune d{0.01, 0.02, 0.4, 30.0};
    const double lee = 0.02 / std::tan(std::numbers::pi / 6), stoss = 0.4 - lee;
    EXPECT_NEAR(d.leelength(), lee, 1e-15);
    for (const double trough : {-0.3, 0.9}) {
        const double x[] = {0, stoss / 4, stoss / 2, stoss, 0.4 - lee / 4}; // the crest at stoss
        const double z[] = {0.01, 0.02 - 0.01 * std::sqrt(0.5), 0.02, 0.03, 0.015};
        for (int n = 0; n < 5; ++n)
            EXPECT_NEAR(d.elevation(trough + x[n], 0.5), z[n], 1e-15) << n;
    }
}

TEST(DefaultBox, BedOneCellAboveZminAndDischargeFromVelocity) {
    for (int n : {1, 4}) {
        const Case c = build("bed = dunes\nlevel = 0.01\nkmaxItm = " + std::to_string(n) + "\n");
        const double zmin = real(c, "zminItm"), dz = (real(c, "zmaxItm") - zmin) / (1 << n);
        EXPECT_NEAR(zmin + dz, 0.01, 1e-15) << "kmaxItm = " << n;
    }
    const Case one = build("level = 0.02\nkmaxItm = 0\n"); // one cell: the bed at its centre
    EXPECT_NEAR(0.5 * (real(one, "zminItm") + real(one, "zmaxItm")), 0.02, 1e-15);

    // 0.3 m/s over a bed at 0.02 in the 0.8 m long, 0.2 m wide box up to 0.1: 0.3 * 0.2 * 0.08;
    // a sinusoid over whole wavelengths has its mean at its level.
    for (const char* bed : {"", "bed = sinusoid\nni = 81\n"})
        EXPECT_NEAR(
            real(build(bed + std::string("level = 0.02\nvelocity = 0.3\n")), "dischargeItm"),
            0.0048, 1e-14)
            << bed;
}

TEST(CaseCheck, KeyStatusesProblemsAndWarnings) {
    // With a fixed step the step is read and the Courant number is not; a real switch is tested
    // through its low 32 bits, so iInitialItm = 1.0 reads as off.
    const Case c = build("timetypeItm = 1\niInitialItm = 1.0\n");
    auto stored = asstored(c.conditions);
    std::erase_if(stored, [](auto& k) { return k.key == "timestepItm"; });
    for (auto& k : stored)
        if (k.key == "epsItm" || k.key == "kpoismaxItm") k.datatype = "RealDouble", k.value = 0.0;
    stored.push_back({"cflitm", "RealDouble", 1, 0.3});
    const Report r = checkcase(stored, c.bed);
    using enum Status; // igammaItm: not read with iCycleItm = 1
    for (const auto& [key, status] : {std::pair{"timestepItm", missing},
                                      {"cflItm", notread},
                                      {"epsItm", wrongtype},
                                      {"kpoismaxItm", wrongtype},
                                      {"xInitItm", notread},
                                      {"kmaxItm", ok},
                                      {"igammaItm", notread}})
        EXPECT_EQ(std::ranges::find(r.keys, key, [](auto& k) { return k.condition->key; })->status,
                  status)
            << key;
    EXPECT_EQ(r.problems(), 4); // three keys, and the solver refuses the missing step
    EXPECT_EQ(r.errors, std::vector<std::string>{"\"timestepItm\" is missing (read as 0): the "
                                                 "fixed time step must be a positive number"});
    EXPECT_EQ(r.others, std::vector<std::string>{"cflitm"});
    ASSERT_EQ(r.warnings.size(), 1u);
    EXPECT_TRUE(r.warnings[0].starts_with("iInitialItm = 1 is tested through the low 32 bits"));

    // Each a line once in the errors (E) or the warnings (W); an empty line: no error at all.
    // (A flat bed at 0 in a box from 0 to 0.1 of 16 cells lies below zc(1) = 0.003125.)
    const struct {
        const char *recipe, *line, *in;
    } poor[] = {
        // one row per distinct line
        {"zminItm = 0\n", "lies below the first cell centre zc(1) = 0.003125", "W"},
        {"level = 0.2\nzminItm = 0\ndischargeItm = 0.01\n", "reaches the top of the box", "W"},
        {"endtimeItm = 0.5\nstarttimeItm = 0.5\n", "exactly one step", "W"},
        {"timetypeItm = 1\ntimestepItm = 0.0008\n", "inside the bed is then not set to zero", "W"},
        {"timetypeItm = 1\ntimestepItm = 0.00079\n", "", "W"},
        {"ni = 2\n", "1 cell in x", "W"},
        {"bed = sinusoid\nwavelength = 0.3\n", "not periodic in x", "W"},
        {"timetypeItm = 2\n",
         "\"timetypeItm\" = 2: it must be 0 (step from \"cflItm\") or 1 "
         "(fixed \"timestepItm\"); with any other value no time step is read and time does not "
         "advance",
         "E"},
        {"dtTecplotItm = 0\n", "", "E"}, // not read: Tecplot off
        {"TecplotItm = 1\ndtTecplotItm = 0\n", "\"dtTecplotItm\" = 0: ", "E"}};
    for (const auto& [recipe, line, in] : poor) {
        const Case b = build(recipe);
        const Report q = checkcase(asstored(b.conditions), b.bed);
        EXPECT_EQ(std::ranges::count_if(in[0] == 'E' ? q.errors : q.warnings,
                                        [&](auto& w) { return w.find(line) != w.npos; }),
                  *line ? 1 : 0)
            << recipe;
    }
}

} // namespace
} // namespace riffle::casebuilder
