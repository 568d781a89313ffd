#include "casebuild.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <initializer_list>
#include <sstream>

#include "bedcsv.hpp"
#include "messages.hpp"

namespace riffle::casebuilder {

namespace {

// The recipe's values with the defaults filled in, and the lines to blame for errors.
class Settings {
public:
    explicit Settings(const Recipe& recipe) : recipe_(recipe) {}

    [[nodiscard]] Value value(std::string_view key) const {
        if (const Entry* e = recipe_.find(key)) return e->value;
        if (const RecipeKey* r = findrecipekey(key)) return defaultvalue(r->type, r->value);
        return defaultvalue(findcondition(key)->type, conditiondefault(key));
    }
    [[nodiscard]] double real(std::string_view key) const { return std::get<double>(value(key)); }
    [[nodiscard]] int integer(std::string_view key) const { return std::get<int>(value(key)); }
    [[nodiscard]] std::string text(std::string_view key) const {
        return std::get<std::string>(value(key));
    }
    [[nodiscard]] bool given(std::string_view key) const { return recipe_.find(key) != nullptr; }

    // The line of the first of `keys` that the recipe gives (the most likely culprit first);
    // 0 if it gives none of them.
    [[nodiscard]] int line(std::initializer_list<std::string_view> keys) const {
        for (std::string_view k : keys)
            if (const Entry* e = recipe_.find(k)) return e->line;
        return 0;
    }
    [[noreturn]] void fail(std::initializer_list<std::string_view> keys,
                           const std::string& m) const {
        recipe_.fail(line(keys), m);
    }

    [[nodiscard]] const Recipe& recipe() const { return recipe_; }

private:
    const Recipe& recipe_;
};

constexpr std::string_view shapes[] = {"flat", "sinusoid", "dunes", "csv"};

std::string bedshape(const Settings& s) {
    const std::string bed = s.text("bed");
    if (std::find(std::begin(shapes), std::end(shapes), bed) == std::end(shapes))
        s.fail({"bed"}, msg::unknown_bed(bed));
    // A shape parameter given for another shape is a slip worth stopping for.
    for (const auto& [key, entry] : s.recipe().entries) {
        const RecipeKey* r = findrecipekey(key);
        if (!r || r->shapes.empty()) continue;
        std::istringstream words{std::string(r->shapes)};
        std::string word;
        bool applies = false;
        while (words >> word)
            applies = applies || word == bed;
        if (!applies) s.recipe().fail(entry.line, msg::not_for_bed(key, bed));
    }
    return bed;
}

GridExtent grid(const Settings& s) {
    GridExtent g{s.real("xmin"), s.real("xmax"),  s.real("ymin"),
                 s.real("ymax"), s.integer("ni"), s.integer("nj")};
    if (g.ni < 2) s.fail({"ni"}, msg::too_few_nodes("ni", g.ni));
    if (g.nj < 2) s.fail({"nj"}, msg::too_few_nodes("nj", g.nj));
    if (!(g.xmax > g.xmin))
        s.fail({"xmax", "xmin"}, msg::not_increasing("xmin", g.xmin, "xmax", g.xmax));
    if (!(g.ymax > g.ymin))
        s.fail({"ymax", "ymin"}, msg::not_increasing("ymin", g.ymin, "ymax", g.ymax));
    return g;
}

// A shape parameter that must be positive; blamed on its own line or, for a default, on `bed`.
double positive(const Settings& s, std::string_view key) {
    const double v = s.real(key);
    if (!(v > 0.0)) s.fail({key, "bed"}, msg::must_be_positive(key, v));
    return v;
}

void shape(const Settings& s, const std::string& bedname, const GridExtent& g,
           platform::BedGrid& bed) {
    if (bedname == "flat") {
        const double level = s.real("level");
        shapebed(bed, [&](double, double) { return level; });
    } else if (bedname == "sinusoid") {
        const double level = s.real("level"), amplitude = s.real("amplitude");
        const double wavelength = positive(s, "wavelength");
        shapebed(bed, [&](double x, double) {
            return sinusoid(x, g.xmin, level, amplitude, wavelength);
        });
    } else if (bedname == "dunes") {
        const Dune dune{s.real("level"), positive(s, "height"), positive(s, "length"),
                        s.real("leeangle")};
        if (!(dune.leeangle > 0.0 && dune.leeangle < 90.0))
            s.fail({"leeangle", "bed"}, msg::lee_angle_range(dune.leeangle));
        if (!(dune.leelength() < dune.length)) {
            s.fail({"leeangle", "height", "length", "bed"},
                   msg::lee_too_long(dune.height, dune.leeangle, dune.leelength(), dune.length));
        }
        shapebed(bed, [&](double x, double) { return dune.elevation(x, g.xmin); });
    } else { // csv
        if (!s.given("csvfile")) s.fail({"bed"}, msg::csv_needs_file());
        const std::filesystem::path file = s.recipe().folder / s.text("csvfile");
        std::optional<std::vector<Point>> points = readpoints(file, file.string());
        if (!points) s.fail({"csvfile"}, msg::cannot_open_bedfile(file.string()));
        // A point this close to a node is the node's own survey value.
        const double hit = 1e-9 * std::max(g.xmax - g.xmin, g.ymax - g.ymin);
        const Interpolator interpolate(std::move(*points), hit);
        shapebed(bed, interpolate);
    }
}

// Mean of the cell-centred bed: each cell's value is the average of its four corner nodes.
double meanbed(const platform::BedGrid& bed) {
    double sum = 0.0;
    for (int j = 0; j + 1 < bed.nj; ++j)
        for (int i = 0; i + 1 < bed.ni; ++i) {
            const std::size_t n = static_cast<std::size_t>(j) * bed.ni + i;
            sum += 0.25 * (bed.elevation[n] + bed.elevation[n + 1] + bed.elevation[n + bed.ni] +
                           bed.elevation[n + bed.ni + 1]);
        }
    return sum / (static_cast<double>(bed.ni - 1) * (bed.nj - 1));
}

} // namespace

double defaultzmin(double zbmin, double zmax, int kmaxexponent) {
    if (kmaxexponent == 0) return 2.0 * zbmin - zmax;
    const double kmax = std::ldexp(1.0, kmaxexponent);
    return (kmax * zbmin - zmax) / (kmax - 1.0);
}

Case buildcase(const Recipe& recipe) {
    const Settings s(recipe);
    Case c;
    const std::string bedname = bedshape(s);
    const GridExtent g = grid(s);

    const int n = s.integer("kmaxItm");
    if (n < 0 || n > 31) s.fail({"kmaxItm"}, msg::kmax_out_of_range(n));
    const double nodes = static_cast<double>(g.ni) * g.nj * (std::ldexp(1.0, n) + 1.0);
    if (nodes > INT_MAX) s.fail({"kmaxItm", "nj", "ni"}, msg::grid_too_large(nodes));

    c.bed = gridnodes(g);
    shape(s, bedname, g, c.bed);

    const double zbmin = *std::min_element(c.bed.elevation.begin(), c.bed.elevation.end());
    const double zmax = s.real("zmaxItm");
    double zmin = s.real("zminItm");
    if (s.given("zminItm")) {
        if (!(zmax > zmin))
            s.fail({"zmaxItm", "zminItm"}, msg::not_increasing("zminItm", zmin, "zmaxItm", zmax));
    } else {
        if (!(zmax > zbmin))
            s.fail({"zmaxItm", "level", "bed"}, msg::top_not_above_bed(zmax, zbmin));
        zmin = defaultzmin(zbmin, zmax, n);
    }

    double discharge = s.real("dischargeItm");
    if (s.given("dischargeItm") && s.given("velocity")) {
        s.fail({"dischargeItm", "velocity"}, msg::velocity_and_discharge());
    } else if (!s.given("dischargeItm")) {
        const double mean = meanbed(c.bed);
        if (!(zmax > mean)) s.fail({"zmaxItm", "level", "bed"}, msg::no_water(zmax, mean));
        discharge = s.real("velocity") * (g.ymax - g.ymin) * (zmax - mean);
    }

    for (const KeySpec& cond : conditionkeys) {
        Value v = s.value(cond.key);
        if (cond.key == "zminItm") v = zmin;
        if (cond.key == "dischargeItm") v = discharge;
        c.conditions.push_back({std::string(cond.key), std::move(v)});
    }
    c.output = s.given("output") ? s.text("output") : recipe.stem + ".cgns";
    return c;
}

} // namespace riffle::casebuilder
