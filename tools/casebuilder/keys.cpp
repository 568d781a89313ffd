#include "keys.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <ostream>

#include "messages.hpp"

namespace riffle::casebuilder {

namespace {

constexpr Default computed{0.0, {}, Default::computed};
constexpr Default none{0.0, {}, Default::none};

// clang-format off
constexpr std::array<RecipeKey, 16> recipekeytable{{
    {"output", KeyType::string, computed,
     "case file to write, relative to the current folder; default: the recipe's base name + .cgns"},
    {"xmin", KeyType::real, {0.0}, "upstream end of the bed grid (m)"},
    {"xmax", KeyType::real, {0.8}, "downstream end of the bed grid (m)"},
    {"ymin", KeyType::real, {0.0}, "one side of the bed grid (m)"},
    {"ymax", KeyType::real, {0.2}, "other side of the bed grid (m)"},
    {"ni", KeyType::integer, {65}, "nodes along x (cells + 1)"},
    {"nj", KeyType::integer, {17}, "nodes along y (cells + 1)"},
    {"velocity", KeyType::real, {0.35},
     "bulk velocity (m/s) that sets dischargeItm = velocity * width * (zmaxItm - mean bed level)"},
    {"bed", KeyType::string, {0.0, "flat"}, "bed shape: flat, sinusoid, dunes or csv"},
    {"level", KeyType::real, {0.0},
     "bed level (m): flat bed; mean level of the sinusoid; trough level of the dunes",
     "flat sinusoid dunes"},
    {"amplitude", KeyType::real, {0.005}, "half the trough-to-crest height of the sinusoid (m)",
     "sinusoid"},
    {"wavelength", KeyType::real, {0.4}, "wavelength of the sinusoid along x (m)", "sinusoid"},
    {"height", KeyType::real, {0.02}, "dune height, trough to crest (m)", "dunes"},
    {"length", KeyType::real, {0.4}, "dune length along x, trough to trough (m)", "dunes"},
    {"leeangle", KeyType::real, {30.0},
     "angle of the straight lee face to the horizontal (degrees)", "dunes"},
    {"csvfile", KeyType::string, none, "file of x, y, z rows, relative to the recipe's folder",
     "csv"},
}};
// clang-format on

struct ConditionDefault {
    std::string_view key;
    Default value;
};

// One default per calculation condition, in reading order.
constexpr std::array<ConditionDefault, conditionkeys.size()> conditiondefaults{{
    {"kmaxItm", {4}},      // 16 cells in the vertical
    {"zminItm", computed}, // one cell height below the lowest bed point
    {"zmaxItm", {0.1}},
    {"viscItm", {1.0e-6}}, // water at 20 degrees C
    {"densItm", {1000.0}},
    {"gravityItm", {9.81}},
    {"dischargeItm", computed}, // from velocity
    {"timetypeItm", {0}},
    {"timestepItm", {0.001}},
    {"cflItm", {0.3}},
    {"xBoundItm", {0}},
    {"yBoundItm", {0}},
    {"zBoundItm", {0}},
    {"iInitialItm", {0.0}},
    {"xInitItm", {0.35}},
    {"yInitItm", {0.0}},
    {"zInitItm", {0.0}},
    {"iPerturbItmItm", {0.0}},
    {"amplitudeItm", {0.0}},
    {"iBedPerturbItm", {0}},
    {"BAmplitudeItm", {0.0}},
    {"StatisticsItm", {0}},
    {"StatStartItm", {0.0}},
    {"starttimeItm", {0.0}},
    {"endtimeItm", {2.0}},
    {"HotstartItm", {0}},
    {"StartfileItm", {0.0, "./flow.dat"}},
    {"TimeInitialItm", {1}},
    {"OTimeItm", {0.1}},
    {"HotoutItm", {0}},
    {"dtHotoutItm", {0.5}},
    {"TecplotItm", {0}},
    {"dtTecplotItm", {0.5}},
    {"outpathItm", {0.0, "."}},
    {"outfileItm", {0.0, "flow"}},
    {"BedItm", {1}},
    {"SedimentItm", {1.0}},
    {"RoughItm", {2.5}},    // 2.5 mm / 2.5 = the same 1 mm grain
    {"iWallModelItm", {0}}, // the plain solver's eddy viscosity at the bed
    {"smagorinskyItm", {0.1}},
    {"iIBMItm", {1}},
    {"iCycleItm", {1}},
    {"igammaItm", {1}},
    {"ipresItm", {2}},
    {"ipostsItm", {2}},
    {"kpoismaxItm", {5}},
    {"epsItm", {0}},
}};

constexpr bool defaultsfollowtable() {
    for (std::size_t i = 0; i < conditionkeys.size(); ++i)
        if (conditionkeys[i].key != conditiondefaults[i].key) return false;
    return true;
}
static_assert(defaultsfollowtable(), "one default per calculation condition, in reading order");

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// Levenshtein distance, one row at a time.
std::size_t editdistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diag = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t up = row[j];
            row[j] =
                std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] == b[j - 1] ? 0u : 1u)});
            diag = up;
        }
    }
    return row[b.size()];
}

} // namespace

std::span<const RecipeKey> recipekeys() { return recipekeytable; }

const RecipeKey* findrecipekey(std::string_view key) {
    const auto it = std::find_if(recipekeytable.begin(), recipekeytable.end(),
                                 [&](const RecipeKey& k) { return k.key == key; });
    return it == recipekeytable.end() ? nullptr : &*it;
}

const KeySpec* findcondition(std::string_view key) {
    const auto it = std::find_if(conditionkeys.begin(), conditionkeys.end(),
                                 [&](const KeySpec& k) { return k.key == key; });
    return it == conditionkeys.end() ? nullptr : &*it;
}

std::optional<KeyType> keytype(std::string_view key) {
    if (const RecipeKey* r = findrecipekey(key)) return r->type;
    if (const KeySpec* c = findcondition(key)) return c->type;
    return std::nullopt;
}

Default conditiondefault(std::string_view key) {
    for (const ConditionDefault& d : conditiondefaults)
        if (d.key == key) return d.value;
    return none;
}

Value defaultvalue(KeyType type, const Default& d) {
    switch (type) {
    case KeyType::integer:
        return static_cast<int>(d.number);
    case KeyType::real:
        return d.number;
    case KeyType::string:
        return std::string(d.text);
    }
    return {};
}

std::string nearestkey(std::string_view word, const std::vector<std::string_view>& keys) {
    const std::string w = lower(word);
    // The same key in other letter case, or without its "Itm" suffix.
    for (std::string_view k : keys)
        if (lower(k) == w || lower(k) == w + "itm") return std::string(k);
    const std::size_t limit = std::max<std::size_t>(1, word.size() / 3);
    std::string best;
    std::size_t bestdistance = limit + 1;
    for (std::string_view k : keys) {
        const std::size_t d = editdistance(w, lower(k));
        if (d < bestdistance) {
            bestdistance = d;
            best = k;
        }
    }
    return best;
}

std::vector<std::string_view> allkeys() {
    std::vector<std::string_view> keys;
    for (const RecipeKey& k : recipekeytable)
        keys.push_back(k.key);
    for (const KeySpec& k : conditionkeys)
        keys.push_back(k.key);
    return keys;
}

std::string valuetext(const Value& v) {
    if (const auto* i = std::get_if<int>(&v)) return std::to_string(*i);
    if (const auto* d = std::get_if<double>(&v)) return numbertext(*d);
    return quoted(std::get<std::string>(v));
}

std::string_view typetext(KeyType type) {
    switch (type) {
    case KeyType::integer:
        return "integer";
    case KeyType::real:
        return "real";
    case KeyType::string:
        return "string";
    }
    return "";
}

void printkeys(std::ostream& out) {
    auto row = [&](std::string_view key, KeyType type, const Default& d, std::string_view meaning) {
        std::string line = "  " + std::string(key);
        line.append(line.size() < 18 ? 18 - line.size() : 1, ' ');
        line += typetext(type);
        line.append(line.size() < 27 ? 27 - line.size() : 1, ' ');
        line += d.source == Default::computed ? std::string("(computed)")
                : d.source == Default::none   ? std::string("(none)")
                                              : valuetext(defaultvalue(type, d));
        line.append(line.size() < 41 ? 41 - line.size() : 1, ' ');
        out << line << meaning << "\n";
    };
    out << "Recipe keys (key, type, default, meaning):\n";
    for (const RecipeKey& k : recipekeytable)
        row(k.key, k.type, k.value, k.meaning);
    out << "Calculation conditions, in the order the solver reads them:\n";
    for (const KeySpec& k : conditionkeys)
        row(k.key, k.type, conditiondefault(k.key), k.meaning);
}

} // namespace riffle::casebuilder
