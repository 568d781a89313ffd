#include "recipe.hpp"

#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>

namespace riffle::casebuilder {

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trim(std::string_view s) {
    const auto first = s.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    const auto last = s.find_last_not_of(blanks);
    return s.substr(first, last - first + 1);
}

// Whole-text numbers only: "0.3x", "" and "1 2" are refused. A leading "+" is allowed.
template <class T> std::optional<T> parsenumber(std::string_view text) {
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
    T value{};
    const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc{} || ptr != text.data() + text.size() || text.empty()) return std::nullopt;
    if constexpr (std::is_floating_point_v<T>) {
        if (!std::isfinite(value)) return std::nullopt;
    }
    return value;
}

} // namespace

const Entry* Recipe::find(std::string_view key) const {
    const auto it = entries.find(key);
    return it == entries.end() ? nullptr : &it->second;
}

void Recipe::fail(int line, const std::string& message) const {
    throw RecipeError(located(name, line, message));
}

std::optional<Value> parsevalue(KeyType type, std::string_view text) {
    switch (type) {
    case KeyType::integer:
        if (auto v = parsenumber<int>(text)) return Value{*v};
        return std::nullopt;
    case KeyType::real:
        if (auto v = parsenumber<double>(text)) return Value{*v};
        return std::nullopt;
    case KeyType::string:
        return Value{std::string(text)};
    }
    return std::nullopt;
}

Recipe parserecipe(std::string_view text, const std::string& name,
                   const std::filesystem::path& folder) {
    Recipe recipe;
    recipe.name = name;
    recipe.folder = folder;
    recipe.stem = std::filesystem::path(name).stem().string();
    const std::vector<std::string_view> known = allkeys();

    int line = 0;
    while (!text.empty()) {
        ++line;
        const auto eol = text.find('\n');
        std::string_view raw = text.substr(0, eol);
        text = eol == std::string_view::npos ? std::string_view{} : text.substr(eol + 1);

        const auto eq = raw.find('=');
        const auto hash = raw.find('#');
        if (eq == std::string_view::npos || hash < eq) {
            if (trim(raw.substr(0, hash)).empty()) continue; // blank or comment-only line
            recipe.fail(line, msg::expected_key_value);
        }
        const std::string_view key = trim(raw.substr(0, eq));
        std::string_view rest = trim(raw.substr(eq + 1));
        std::string_view value;
        if (!rest.empty() && rest.front() == '"') {
            const auto close = rest.find('"', 1);
            if (close == std::string_view::npos) recipe.fail(line, msg::unterminated_quote);
            value = rest.substr(1, close - 1);
            const std::string_view after = trim(rest.substr(close + 1));
            if (!after.empty() && after.front() != '#') recipe.fail(line, msg::text_after_quote);
        } else {
            value = trim(rest.substr(0, rest.find('#')));
        }

        if (key.empty()) recipe.fail(line, msg::no_key);
        const std::optional<KeyType> type = keytype(key);
        if (!type) recipe.fail(line, msg::unknown_key(key, nearestkey(key, known)));
        if (const Entry* first = recipe.find(key))
            recipe.fail(line, msg::given_twice(key, first->line));
        if (value.empty()) recipe.fail(line, msg::no_value(key));

        std::optional<Value> parsed = parsevalue(*type, value);
        if (!parsed) {
            recipe.fail(line, *type == KeyType::integer ? msg::needs_integer(key, value)
                                                        : msg::needs_number(key, value));
        }
        if (*type == KeyType::string && value.size() > max_text)
            recipe.fail(line, msg::text_too_long(key, max_text));
        recipe.entries.emplace(std::string(key), Entry{std::move(*parsed), line});
    }
    return recipe;
}

Recipe readrecipe(const std::string& path) {
    std::error_code ec;
    std::ifstream in(path, std::ios::binary);
    if (!in || std::filesystem::is_directory(path, ec))
        throw RecipeError(located(path, 0, msg::cannot_read_recipe));
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad()) throw RecipeError(located(path, 0, msg::cannot_read_recipe));
    return parserecipe(text, path, std::filesystem::path(path).parent_path());
}

} // namespace riffle::casebuilder
