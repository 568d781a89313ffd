// The keys a recipe may hold, their types and defaults: the builder's own keys (grid, bed shape,
// output, bulk velocity) and every calculation condition of the solver under its own name, each
// with a default that gives a sensible run of a small laboratory flume: 0.8 m long, 0.2 m wide,
// 0.1 m deep over a bed near z = 0, 1 mm sand, water at 0.35 m/s.
#pragma once

#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "run/conditions_m.hpp"

namespace riffle::casebuilder {

// A recipe value: integer, real or text, by the type of its key.
using Value = std::variant<int, double, std::string>;

// Texts are cut to this length by the solver's buffers; longer ones are refused.
inline constexpr std::size_t max_text = 200;

// A default: a number (for integer and real keys) or a text; or computed by the builder from the
// rest of the case (zminItm, dischargeItm, output); or none at all (csvfile).
struct Default {
    enum Source { fixed, computed, none };
    double number = 0.0;
    std::string_view text{};
    Source source = fixed;
};

// A key of the builder's own, not stored in the case file as such.
struct RecipeKey {
    std::string_view key;
    KeyType type;
    Default value;
    std::string_view meaning;
    // Bed shapes the key applies to, separated by blanks; empty: applies always.
    std::string_view shapes{};
};

[[nodiscard]] std::span<const RecipeKey> recipekeys();

// The recipe key or the condition of that exact name, or nothing.
[[nodiscard]] const RecipeKey* findrecipekey(std::string_view key);
[[nodiscard]] const KeySpec* findcondition(std::string_view key);
[[nodiscard]] std::optional<KeyType> keytype(std::string_view key);

// Default of a calculation condition (computed for zminItm and dischargeItm).
[[nodiscard]] Default conditiondefault(std::string_view key);

// The value of a default for a key of the given type (not for computed defaults).
[[nodiscard]] Value defaultvalue(KeyType type, const Default& d);

// The known key nearest to `word` for "did you mean": a match ignoring case, or ignoring case and
// a missing "Itm" suffix, first; else
// the key with the fewest single-letter edits, if that is at most a third of the word's length
// (at least 1); empty when none is near.
[[nodiscard]] std::string nearestkey(std::string_view word,
                                     const std::vector<std::string_view>& keys);
// All recipe keys and condition keys.
[[nodiscard]] std::vector<std::string_view> allkeys();

// Text of a value as the recipe and the report show it (strings in quotes).
[[nodiscard]] std::string valuetext(const Value& v);
[[nodiscard]] std::string_view typetext(KeyType type);

// Every recipe key with its type, default and meaning, as --list-keys prints them.
void printkeys(std::ostream& out);

} // namespace riffle::casebuilder
