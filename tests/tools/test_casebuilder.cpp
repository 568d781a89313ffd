// The case builder: recipe syntax and its errors with their lines, the bed shapes against hand
// values and geometry, the default box bottom, the interpolation of surveyed points, a written
// case read back, the --check report, and the bundled recipes.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <random>

#include "bedcsv.hpp"
#include "bedshape.hpp"
#include "casebuild.hpp"
#include "check.hpp"
#include "recipe.hpp"
#include "support/scratch.hpp"

namespace riffle::casebuilder {
namespace {

namespace fs = std::filesystem;

using testsupport::Scratch;

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

Case build(const std::string& text, const fs::path& folder = {}) {
    return buildcase(parserecipe(text, "t.recipe", folder));
}

// The one-line message of the error that reading and building `text` throws.
std::string errorof(const std::string& text, const fs::path& folder = {}) {
    try {
        (void)build(text, folder);
    } catch (const RecipeError& e) {
        return e.what();
    }
    return "(no error)";
}

double real(const Case& c, std::string_view key) {
    for (const auto& cond : c.conditions)
        if (cond.key == key) return std::get<double>(cond.value);
    ADD_FAILURE() << key << " not in the case";
    return NAN;
}

double lowest(const platform::BedGrid& bed) {
    return *std::min_element(bed.elevation.begin(), bed.elevation.end());
}

// ---- recipe syntax ------------------------------------------------------------------------------

TEST(RecipeParsing, CommentsBlanksSpacesAndQuotes) {
    const Recipe r = parserecipe("# a flume\n"
                                 "   \n"
                                 "  cflItm   =   0.25   # Courant number\n"
                                 "outfileItm = \"run #1\"  # kept whole\n"
                                 "outpathItm = results/a b\n"
                                 "kmaxItm=3\n"
                                 "viscItm = 1e-6\n",
                                 "cases/t.recipe", {});
    ASSERT_EQ(r.entries.size(), 5u);
    EXPECT_EQ(std::get<double>(r.find("cflItm")->value), 0.25);
    EXPECT_EQ(r.find("cflItm")->line, 3);
    EXPECT_EQ(std::get<std::string>(r.find("outfileItm")->value), "run #1");
    EXPECT_EQ(std::get<std::string>(r.find("outpathItm")->value), "results/a b");
    EXPECT_EQ(std::get<int>(r.find("kmaxItm")->value), 3);
    EXPECT_EQ(r.find("kmaxItm")->line, 6);
    EXPECT_EQ(std::get<double>(r.find("viscItm")->value), 1e-6);
    EXPECT_EQ(r.stem, "t");
}

TEST(RecipeParsing, EachErrorNamesItsLine) {
    const std::string longtext(201, 'a');
    const struct {
        std::string text, where, what;
    } cases[] = {
        {"ni = 65\ncflitm = 0.3\n",
         "t.recipe:2: ", "unknown key \"cflitm\" (did you mean \"cflItm\"?)"},
        {"\n\nkmax = 3\n", "t.recipe:3: ", "(did you mean \"kmaxItm\"?)"},
        {"leeangel = 20\n", "t.recipe:1: ", "(did you mean \"leeangle\"?)"},
        {"# note\nwhatever\n", "t.recipe:2: ", "expected \"key = value\""},
        {"kmaxItm = 4.0\n", "t.recipe:1: ", "\"kmaxItm\" needs a 32-bit integer, got \"4.0\""},
        {"ni = 99999999999\n", "t.recipe:1: ", "needs a 32-bit integer"},
        {"#\ncflItm = 0.3x\n", "t.recipe:2: ", "\"cflItm\" needs a number, got \"0.3x\""},
        {"cflItm = nan\n", "t.recipe:1: ", "needs a number"},
        {"cflItm = 1\n\ncflItm = 2\n", "t.recipe:3: ", "\"cflItm\" given twice (first on line 1)"},
        {"cflItm =   # none\n", "t.recipe:1: ", "no value for \"cflItm\""},
        {"= 3\n", "t.recipe:1: ", "no key before \"=\""},
        {"outfileItm = \"abc\n", "t.recipe:1: ", "no closing quote"},
        {"outfileItm = \"abc\" d\n", "t.recipe:1: ", "text after the closing quote"},
        {"outfileItm = " + longtext + "\n",
         "t.recipe:1: ", "longer than the solver's 200 characters"},
        // What the values mean together.
        {"ni = 1\n", "t.recipe:1: ", "ni = 1 leaves no cell"},
        {"nj = 0\n", "t.recipe:1: ", "nj = 0 leaves no cell"},
        {"xmin = 1\nxmax = 0.5\n", "t.recipe:2: ", "xmax = 0.5 must be greater than xmin = 1"},
        {"ymax = 0\n", "t.recipe:1: ", "ymax = 0 must be greater than ymin = 0"},
        {"ni = 60000\nnj = 60000\n", "t.recipe:2: ", "more than the 2147483647"},
        {"kmaxItm = 32\n", "t.recipe:1: ", "kmaxItm = 32 gives no vertical cells"},
        {"bed = dune\n", "t.recipe:1: ", "bed must be flat, sinusoid, dunes or csv, got \"dune\""},
        {"height = 0.1\n#\nbed = flat\n",
         "t.recipe:1: ", "\"height\" does not apply to bed = flat"},
        {"bed = sinusoid\nwavelength = -1\n", "t.recipe:2: ", "wavelength = -1 must be positive"},
        {"bed = dunes\nleeangle = 90\n", "t.recipe:2: ", "leeangle = 90 must lie strictly between"},
        {"bed = dunes\nheight = 0.1\nleeangle = 10\n",
         "t.recipe:3: ", "not less than the dune length 0.4"},
        {"bed = csv\n", "t.recipe:1: ", "bed = csv needs csvfile"},
        {"bed = csv\ncsvfile = nowhere.csv\n",
         "t.recipe:2: ", "cannot read the bed file \"nowhere.csv\""},
        {"zmaxItm = -0.5\n",
         "t.recipe:1: ", "zmaxItm = -0.5 must lie above the lowest bed point z = 0"},
        {"zminItm = 0.2\n", "t.recipe:1: ", "zmaxItm = 0.1 must be greater than zminItm = 0.2"},
        {"velocity = 0.3\ndischargeItm = 0.01\n",
         "t.recipe:2: ", "either velocity or dischargeItm"},
    };
    for (const auto& c : cases) {
        const std::string e = errorof(c.text);
        EXPECT_TRUE(e.starts_with(c.where)) << e << "\nfrom: " << c.text;
        EXPECT_TRUE(contains(e, c.what)) << e << "\nfrom: " << c.text;
        EXPECT_FALSE(contains(e, "\n")) << "one line: " << e;
    }
}

TEST(RecipeParsing, UnreadableRecipeIsNamed) {
    std::string e = "(no error)";
    try {
        (void)readrecipe("/nonexistent/flat.recipe");
    } catch (const RecipeError& err) {
        e = err.what();
    }
    EXPECT_EQ(e, "/nonexistent/flat.recipe: cannot read the recipe");
}

// ---- bed shapes ---------------------------------------------------------------------------------

TEST(BedShapes, GridNodesUniformWithExactCorners) {
    const platform::BedGrid g = gridnodes({0.1, 0.3, -1.0, 2.0, 4, 3});
    ASSERT_EQ(g.x.size(), 12u);
    EXPECT_EQ(g.x[3], 0.3); // last node of the first row: i runs fastest
    EXPECT_EQ(g.y[3], -1.0);
    EXPECT_EQ(g.x[4], 0.1); // first node of the second row
    EXPECT_EQ(g.y[4], 0.5);
    EXPECT_EQ(g.y[11], 2.0);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(g.x[i + 1] - g.x[i], 0.2 / 3, 1e-15);
}

TEST(BedShapes, SinusoidAtQuarterWaves) {
    const Case c = build("bed = sinusoid\nxmin = 1\nxmax = 1.8\nni = 9\nnj = 3\n"
                         "level = 0.05\namplitude = 0.01\nwavelength = 0.4\n");
    // Nodes every 0.1 m, a quarter wave, from the phase origin at xmin.
    const double expect[] = {0.05, 0.06, 0.05, 0.04, 0.05, 0.06, 0.05, 0.04, 0.05};
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(c.bed.elevation[j * 9 + i], expect[i], 1e-15);
}

TEST(BedShapes, DuneCrestTroughAndPeriod) {
    const Dune d{0.01, 0.02, 0.4, 30.0};
    const double lee = 0.02 / std::tan(std::numbers::pi / 6); // 0.0346 m
    EXPECT_NEAR(d.leelength(), lee, 1e-15);
    EXPECT_NEAR(d.elevation(0.5, 0.5), 0.01, 1e-15);                   // trough
    EXPECT_NEAR(d.elevation(0.5 + 0.4 - lee, 0.5), 0.03, 1e-15);       // crest
    EXPECT_NEAR(d.elevation(0.5 + (0.4 - lee) / 2, 0.5), 0.02, 1e-15); // half way up the stoss
    EXPECT_NEAR(d.elevation(0.5 + 0.4 - lee / 2, 0.5), 0.02, 1e-15);   // half way down the lee
    for (double x : {0.0, 0.13, 0.37, 0.39}) {
        EXPECT_NEAR(d.elevation(x, 0.5), d.elevation(x + 0.4, 0.5), 1e-15) << x;
        EXPECT_NEAR(d.elevation(x, 0.5), d.elevation(x - 0.8, 0.5), 1e-15) << x;
    }
}

TEST(BedShapes, DuneGridLeeSlopeAndGentleStoss) {
    const int ni = 801; // dx = 1 mm
    const Case c =
        build("bed = dunes\nni = 801\nnj = 3\nlevel = 0.01\nheight = 0.02\nlength = 0.4\n"
              "leeangle = 30\n");
    const double dx = 0.001, tanlee = std::tan(std::numbers::pi / 6);
    const double stoss = 0.4 - 0.02 / tanlee;
    const double gentlest =
        std::numbers::pi * 0.02 / (2 * stoss); // steepest slope of the half cosine
    int leepairs = 0;
    double steepestrise = 0.0, top = -1.0;
    for (int i = 0; i + 1 < ni; ++i) {
        const double x0 = std::fmod(c.bed.x[i], 0.4), x1 = x0 + dx;
        const double slope =
            (c.bed.elevation[i + 1] - c.bed.elevation[i]) / (c.bed.x[i + 1] - c.bed.x[i]);
        if (x0 > stoss && x1 <= 0.4) {
            EXPECT_NEAR(slope, -tanlee, 1e-9) << "lee face between nodes " << i << " and " << i + 1;
            ++leepairs;
        }
        steepestrise = std::max(steepestrise, slope);
        top = std::max(top, c.bed.elevation[i]);
    }
    EXPECT_GE(leepairs, 2 * 33); // 34.6 mm of lee face on each of the two dunes
    EXPECT_LE(steepestrise, gentlest + 1e-12);
    EXPECT_LT(steepestrise, tanlee / 5);
    EXPECT_LE(top, 0.03 + 1e-15);
    EXPECT_GE(top, 0.03 - tanlee * dx); // the crest lies within a node spacing
    EXPECT_DOUBLE_EQ(lowest(c.bed), 0.01);
    for (int i = 0; i < ni; ++i)
        EXPECT_EQ(c.bed.elevation[i], c.bed.elevation[2 * ni + i]);  // uniform in y
    EXPECT_NEAR(c.bed.elevation[0], c.bed.elevation[ni - 1], 1e-15); // periodic in x
}

// ---- the box and the flow -----------------------------------------------------------------------

TEST(DefaultBox, LowestBedPointOneCellAboveZmin) {
    for (int n : {1, 3, 4, 6}) {
        const Case c = build("bed = dunes\nlevel = 0.01\nkmaxItm = " + std::to_string(n) + "\n");
        const double zmin = real(c, "zminItm"), zmax = real(c, "zmaxItm");
        const double dz = (zmax - zmin) / (1 << n);
        EXPECT_NEAR(zmin + dz, lowest(c.bed), 1e-15) << "kmaxItm = " << n;
        EXPECT_DOUBLE_EQ(lowest(c.bed), 0.01);
    }
    // A single cell: the bed sits at its centre.
    const Case one = build("level = 0.02\nkmaxItm = 0\n");
    EXPECT_NEAR(0.5 * (real(one, "zminItm") + real(one, "zmaxItm")), 0.02, 1e-15);
    // A given bottom is kept.
    EXPECT_EQ(real(build("zminItm = -0.05\n"), "zminItm"), -0.05);
}

TEST(DefaultBox, DischargeFromBulkVelocityAndMeanDepth) {
    // 0.3 m/s over a flat bed at 0.02 in a 0.2 m wide box up to 0.1: 0.3 * 0.2 * 0.08.
    EXPECT_NEAR(real(build("level = 0.02\nvelocity = 0.3\n"), "dischargeItm"), 0.0048, 1e-15);
    // A sinusoid over whole wavelengths has its mean at its level.
    EXPECT_NEAR(
        real(build("bed = sinusoid\nlevel = 0.02\nvelocity = 0.3\nni = 81\n"), "dischargeItm"),
        0.0048, 1e-14);
    EXPECT_EQ(real(build("dischargeItm = 0.01\n"), "dischargeItm"), 0.01);
}

// ---- surveyed beds ------------------------------------------------------------------------------

TEST(CsvBed, RowsHeaderCommentsAndErrors) {
    const Scratch s;
    const auto pts = readpoints(
        s.file("a.csv", "x, y, z\n# survey\n0,0,1\n1 0 2\n\n0.5, 1, 3  # note\n"), "a.csv");
    ASSERT_TRUE(pts);
    ASSERT_EQ(pts->size(), 3u);
    EXPECT_EQ((*pts)[1].x, 1.0);
    EXPECT_EQ((*pts)[2].z, 3.0);
    EXPECT_FALSE(readpoints(s.file("none.csv"), "none.csv"));

    const struct {
        std::string text, what;
    } bad[] = {{"0,0,1\n1,2\n", "b.csv:2: expected three numbers \"x, y, z\", got \"1,2\""},
               {"x,y,z\n0,0,1\n\n0,1,abc\n", "b.csv:4: expected three numbers"},
               {"0,0,1,4\n", "b.csv:1: expected three numbers"},
               {"0,,1\n", "b.csv:1: expected three numbers"},
               {"x,y,z\n# nothing\n", "b.csv: no x, y, z rows"}};
    for (const auto& b : bad) {
        std::string e = "(no error)";
        try {
            (void)readpoints(s.file("b.csv", b.text), "b.csv");
        } catch (const RecipeError& err) {
            e = err.what();
        }
        EXPECT_TRUE(e.starts_with(b.what)) << e;
    }
    // Through a recipe: the bed file is found beside the recipe and named in its errors.
    const fs::path csv = s.file("c.csv", "0 0 0\n1 1\n");
    const std::string e = errorof("bed = csv\ncsvfile = c.csv\n", csv.parent_path());
    EXPECT_TRUE(e.starts_with(csv.string() + ":2: expected three numbers")) << e;
}

TEST(CsvBed, ExactHitsTakenAsTheyAre) {
    const Scratch s;
    std::string text;
    auto z = [](int i, int j) { return std::to_string(0.01 * std::sin(7.0 * i + 3.0 * j)); };
    for (int j = 0; j < 5; ++j)
        for (int i = 0; i < 9; ++i) // every node of a 9 x 5 grid over [0, 0.8] x [0, 0.2]
            text += std::to_string(0.1 * i) + "," + std::to_string(0.05 * j) + "," + z(i, j) + "\n";
    const Case c =
        build("bed = csv\ncsvfile = s.csv\nni = 9\nnj = 5\n", s.file("s.csv", text).parent_path());
    for (int j = 0; j < 5; ++j)
        for (int i = 0; i < 9; ++i) EXPECT_EQ(c.bed.elevation[j * 9 + i], std::stod(z(i, j)));
}

TEST(CsvBed, PlaneReproducedFromScatteredPoints) {
    auto plane = [](double x, double y) { return 0.02 + 0.05 * x - 0.03 * y; };
    std::mt19937 gen(12345);
    std::uniform_real_distribution<double> ux(-0.1, 0.9), uy(-0.1, 0.3);
    std::vector<Point> pts;
    for (int n = 0; n < 400; ++n) {
        const double x = ux(gen), y = uy(gen);
        pts.push_back({x, y, plane(x, y)});
    }
    const Interpolator f(pts, 1e-12);
    int nodes = 0;
    for (int i = 0; i <= 16; ++i)
        for (int j = 0; j <= 4; ++j, ++nodes) {
            const double x = 0.05 * i, y = 0.05 * j;
            EXPECT_NEAR(f(x, y), plane(x, y), 1e-12) << x << ", " << y;
        }
    EXPECT_EQ(nodes, 85);
}

TEST(CsvBed, NearestPointsMatchAFullSearch) {
    // A dense cluster and a sparse spread, queried inside, between and far outside them.
    std::mt19937 gen(7);
    std::normal_distribution<double> cluster(0.0, 0.01);
    std::uniform_real_distribution<double> spread(-1.0, 1.0);
    std::vector<Point> pts;
    for (int n = 0; n < 300; ++n) pts.push_back({0.3 + cluster(gen), 0.2 + cluster(gen), 0.0});
    for (int n = 0; n < 100; ++n) pts.push_back({spread(gen), 0.5 * spread(gen), 0.0});
    const Interpolator f(pts, 1e-12);
    for (int q = 0; q < 200; ++q) {
        const bool close = q % 2 == 0;
        const double x = close ? 0.3 + 0.05 * spread(gen) : 3.0 * spread(gen);
        const double y = close ? 0.2 + 0.05 * spread(gen) : 2.0 * spread(gen);
        std::vector<double> all;
        for (const Point& p : pts) all.push_back((p.x - x) * (p.x - x) + (p.y - y) * (p.y - y));
        std::sort(all.begin(), all.end());
        const auto near = f.nearest(x, y);
        ASSERT_EQ(near.size(), 8u);
        for (std::size_t k = 0; k < near.size(); ++k) {
            EXPECT_EQ(near[k].d2, all[k]) << "query " << x << ", " << y << ", neighbour " << k;
            const Point& p = pts[near[k].index];
            EXPECT_EQ((p.x - x) * (p.x - x) + (p.y - y) * (p.y - y), near[k].d2);
        }
    }
}

TEST(CsvBed, CollinearPointsGiveTheWeightedMeanAndNoOvershoot) {
    // Weights 1/0.25^2 = 16 and 1/0.75^2 = 16/9: (16/9 * 1)/(16 + 16/9) = 0.1.
    const Interpolator line({{0, 0, 0}, {1, 0, 1}}, 1e-12);
    EXPECT_NEAR(line(0.25, 0.0), 0.1, 1e-15);
    // The plane z = x inside a square survey; outside it the value stays within the points'.
    const Interpolator steep({{0, 0, 0}, {1, 0, 1}, {0, 1, 0}, {1, 1, 1}}, 1e-12);
    EXPECT_NEAR(steep(0.5, 0.5), 0.5, 1e-15);
    EXPECT_NEAR(steep(0.9, 0.2), 0.9, 1e-15);
    EXPECT_EQ(steep(5.0, 0.5), 1.0);
}

// ---- the written case ---------------------------------------------------------------------------

TEST(WrittenCase, EveryConditionReadsBackWithItsType) {
    const Scratch s;
    const Case c =
        build("bed = sinusoid\ncflItm = 0.25\noutfileItm = run1\nkmaxItm = 3\nni = 9\nnj = 4\n");
    const std::string path = s.file("w.cgns").string();
    platform::writecasefile(path, c.bed, c.conditions);

    const auto stored = platform::listconditions(path);
    auto find = [&](std::string_view key) {
        return std::find_if(stored.begin(), stored.end(),
                            [&](const auto& sc) { return sc.key == key; });
    };
    ASSERT_EQ(stored.size(), conditionkeys.size());
    for (const KeySpec& cond : conditionkeys) {
        const auto it = find(cond.key);
        ASSERT_NE(it, stored.end()) << cond.key;
        const char* type = cond.type == KeyType::integer ? "Integer"
                           : cond.type == KeyType::real  ? "RealDouble"
                                                         : "Character";
        EXPECT_EQ(it->datatype, type) << cond.key;
        if (cond.type != KeyType::string) {
            EXPECT_EQ(it->length, 1) << cond.key;
        }
    }
    EXPECT_EQ(std::get<double>(find("cflItm")->value), 0.25);
    EXPECT_EQ(std::get<std::string>(find("outfileItm")->value), "run1");
    EXPECT_EQ(std::get<int>(find("kmaxItm")->value), 3);

    const platform::BedGrid bed = platform::readbed(path);
    EXPECT_EQ(bed.ni, 9);
    EXPECT_EQ(bed.nj, 4);
    EXPECT_EQ(bed.x, c.bed.x);
    EXPECT_EQ(bed.y, c.bed.y);
    EXPECT_EQ(bed.elevation, c.bed.elevation);
    EXPECT_EQ(checkcase(stored, bed).problems(), 0);
}

// ---- the check ----------------------------------------------------------------------------------

const KeyReport& statusof(const Report& r, std::string_view key) {
    return *std::find_if(r.keys.begin(), r.keys.end(),
                         [&](const KeyReport& k) { return k.condition->key == key; });
}

bool warns(const Report& r, std::string_view part) {
    return std::any_of(r.warnings.begin(), r.warnings.end(),
                       [&](const std::string& w) { return contains(w, part); });
}
bool refuses(const Report& r, std::string_view line) {
    return std::find(r.errors.begin(), r.errors.end(), line) != r.errors.end();
}

TEST(CaseCheck, MissingWrongTypeAndNotRead) {
    const Case c = build("");
    auto stored = asstored(c.conditions);
    const Report clean = checkcase(stored, c.bed);
    EXPECT_EQ(clean.problems(), 0);
    EXPECT_TRUE(clean.warnings.empty()) << clean.warnings.front();
    EXPECT_EQ(statusof(clean, "timestepItm").status, Status::notread); // timetypeItm = 0
    EXPECT_EQ(statusof(clean, "igammaItm").status, Status::notread);   // iCycleItm = 1
    EXPECT_EQ(statusof(clean, "cflItm").status, Status::ok);

    auto drop = [&](std::string_view key) {
        std::erase_if(stored, [&](const auto& sc) { return sc.key == key; });
    };
    drop("cflItm");
    drop("timestepItm"); // not read: no harm
    for (auto& sc : stored) {
        if (sc.key == "epsItm") {
            sc.datatype = "RealDouble";
            sc.value = 0.0;
        }
        if (sc.key == "kpoismaxItm") sc.length = 2; // an array, not one number
    }
    stored.push_back({"cflitm", "RealDouble", 1, 0.3});
    const Report r = checkcase(stored, c.bed);
    EXPECT_EQ(r.problems(), 4);  // three keys, and the solver refuses a missing Courant number
    EXPECT_EQ(r.errors, std::vector<std::string>{"\"cflItm\" is missing (read as 0): the "
                                                 "Courant number must be a positive number"});
    EXPECT_EQ(statusof(r, "cflItm").status, Status::missing);
    EXPECT_EQ(statusof(r, "epsItm").status, Status::wrongtype);
    EXPECT_EQ(statusof(r, "kpoismaxItm").status, Status::wrongtype);
    EXPECT_EQ(statusof(r, "timestepItm").status, Status::notread);
    EXPECT_EQ(r.others, std::vector<std::string>{"cflitm"});

    // With a fixed step the missing step is needed and the Courant number no longer is.
    drop("timetypeItm");
    stored.push_back({"timetypeItm", "Integer", 1, 1});
    const Report fixed = checkcase(stored, c.bed);
    EXPECT_EQ(statusof(fixed, "timestepItm").status, Status::missing);
    EXPECT_EQ(statusof(fixed, "cflItm").status, Status::notread);
}

TEST(CaseCheck, RealSwitchesTestedThroughTheirLowBits) {
    const platform::BedGrid bed = build("").bed;
    // 1.0 has a zero low half, so the switch reads as off...
    const Report one = checkcase(asstored(build("iInitialItm = 1.0\n").conditions), bed);
    EXPECT_EQ(statusof(one, "xInitItm").status, Status::notread);
    EXPECT_TRUE(warns(one, "iInitialItm = 1 is tested through the low 32 bits"));
    // ... while the smallest subnormal, bit pattern 1, reads as on.
    auto stored = asstored(build("").conditions);
    for (auto& sc : stored)
        if (sc.key == "iPerturbItmItm") sc.value = std::bit_cast<double>(std::uint64_t{1});
    const Report tiny = checkcase(stored, bed);
    EXPECT_EQ(statusof(tiny, "amplitudeItm").status, Status::ok);
    EXPECT_FALSE(warns(tiny, "iPerturbItmItm"));
}

TEST(CaseCheck, WarningsForPoorRuns) {
    auto check = [](const std::string& recipe) {
        const Case c = build(recipe);
        return checkcase(asstored(c.conditions), c.bed);
    };
    // Flat bed at 0 in a box from 0 to 0.1 of 16 cells: the bed lies below zc(1) = 0.003125.
    EXPECT_TRUE(warns(check("zminItm = 0\n"), "lies below the first cell centre zc(1) = 0.003125"));
    EXPECT_FALSE(warns(check("zminItm = -0.004\n"), "first cell centre")); // zc(1) = -0.00075
    EXPECT_TRUE(warns(check("level = 0.2\nzminItm = 0\ndischargeItm = 0.01\n"),
                      "reaches the top of the box"));
    EXPECT_TRUE(refuses(check("timetypeItm = 1\ntimestepItm = 0\n"),
                        "\"timestepItm\" = 0: the fixed time step must be a positive number"));
    EXPECT_TRUE(refuses(check("timetypeItm = 2\n"),
                        "\"timetypeItm\" = 2: it must be 0 (step from \"cflItm\") or 1 (fixed "
                        "\"timestepItm\"); with any other value no time step is read and time "
                        "does not advance"));
    EXPECT_TRUE(warns(check("endtimeItm = 0.5\nstarttimeItm = 0.5\n"), "exactly one step"));
    EXPECT_TRUE(warns(check("ni = 2\n"), "1 cell in x"));
    EXPECT_TRUE(warns(check("nj = 2\n"), "1 cell in y"));
    EXPECT_TRUE(warns(check("bed = sinusoid\nwavelength = 0.3\n"), "not periodic in x"));
    EXPECT_TRUE(refuses(check("OTimeItm = 0\n"),
                        "\"OTimeItm\" = 0: the interval of result writes must be a positive number"));
    EXPECT_TRUE(check("dtTecplotItm = 0\n").errors.empty()); // not read: Tecplot off
    EXPECT_EQ(check("TecplotItm = 1\ndtTecplotItm = 0\n").errors.size(), 1u);
}

// ---- the bundled recipes and the program --------------------------------------------------------

TEST(BundledRecipes, BuildCleanly) {
    for (const std::string name : {"flat", "dune"}) {
        const Case c = buildcase(
            readrecipe(std::string(RIFFLE_TEST_SOURCE_DIR) + "/cases/" + name + ".recipe"));
        const Report r = checkcase(asstored(c.conditions), c.bed);
        EXPECT_EQ(r.problems(), 0) << name;
        EXPECT_TRUE(r.warnings.empty()) << name << ": " << r.warnings.front();
        EXPECT_EQ(c.output, name + ".cgns");
        EXPECT_EQ((c.bed.ni - 1) * (c.bed.nj - 1), 64 * 16) << name;
        if (name == "dune") {
            const double top = *std::max_element(c.bed.elevation.begin(), c.bed.elevation.end());
            EXPECT_NEAR(top, 0.02,
                        0.0125 * std::tan(std::numbers::pi / 6)); // crest within a node spacing
        }
    }
}

TEST(Program, ExitStatusAndNoOutputOnError) {
    const fs::path exe = fs::path(RIFFLE_TEST_BUILD_DIR) / "tools/casebuilder/riffle-case";
    ASSERT_TRUE(fs::exists(exe)) << "build the riffle-case target first";
    const Scratch s;
    auto run = [&](const std::string& args) {
        const std::string cmd = exe.string() + " " + args + " >" + s.file("out.txt").string() +
                                " 2>" + s.file("err.txt").string();
        const int status = std::system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    auto read = [&](const char* name) {
        std::ifstream in(s.file(name));
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    const fs::path bad = s.file("bad.recipe", "ni = 65\n\ncflitm = 0.3\n");
    EXPECT_EQ(run(bad.string() + " -o " + s.file("bad.cgns").string()), 1);
    EXPECT_EQ(read("err.txt"),
              bad.string() + ":3: unknown key \"cflitm\" (did you mean \"cflItm\"?)\n");
    EXPECT_FALSE(fs::exists(s.file("bad.cgns")));

    const fs::path good = s.file("good.recipe", "cflItm = 0.3\n");
    EXPECT_EQ(run(good.string() + " -o " + s.file("good.cgns").string()), 0);
    EXPECT_EQ(run("--check " + s.file("good.cgns").string()), 0);
    EXPECT_TRUE(contains(read("out.txt"), "All conditions the solver reads are present"));

    // A case without conditions: every key the solver reads is missing.
    platform::writecasefile(s.file("bare.cgns").string(), build("").bed, {});
    EXPECT_EQ(run("--check " + s.file("bare.cgns").string()), 1);
    EXPECT_TRUE(
        contains(read("out.txt"), "cflItm          real     -                       MISSING"))
        << read("out.txt");
    EXPECT_EQ(run("--check"), 2);
    EXPECT_EQ(run(""), 2);
}

} // namespace
} // namespace riffle::casebuilder
