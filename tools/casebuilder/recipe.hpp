// Reading a recipe: "key = value" lines, "#" starts a comment, blank lines are skipped. A value
// may be put in double quotes to keep a "#" or surrounding blanks. Every key must be known
// (keys.hpp) and given once; its value must fit the key's type (an integer key takes a 32-bit
// integer, a real key any finite number, a string key any text up to 200 characters). Whatever
// is wrong is thrown as a RecipeError "FILE:LINE: message".
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "keys.hpp"
#include "messages.hpp"

namespace riffle::casebuilder {

struct Entry {
    Value value;
    int line = 0; // where the recipe gives it
};

struct Recipe {
    std::string name;             // the recipe's path as given, for messages
    std::filesystem::path folder; // relative bed-file paths start here
    std::string stem;             // base name without extension: the default output name
    std::map<std::string, Entry, std::less<>> entries;

    [[nodiscard]] const Entry* find(std::string_view key) const;
    // Throws RecipeError "name:line: message" (line 0: no line).
    [[noreturn]] void fail(int line, const std::string& message) const;
};

// Reads and checks the recipe at `path`.
[[nodiscard]] Recipe readrecipe(const std::string& path);

// Checks recipe text; `name` is used in messages, `folder` for relative paths.
[[nodiscard]] Recipe parserecipe(std::string_view text, const std::string& name,
                                 const std::filesystem::path& folder);

// The value of `text` for a key of type `type`, or nothing if it does not fit.
[[nodiscard]] std::optional<Value> parsevalue(KeyType type, std::string_view text);

} // namespace riffle::casebuilder
