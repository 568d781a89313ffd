// Every text the case builder prints: recipe and bed-file errors, the warnings about a case that
// would run poorly, and the command-line usage. Kept in one place so that the manual
// (docs/case-builder.md) and the program say the same thing.
//
// Errors are one line, "FILE:LINE: what is wrong" (GCC style, so editors jump to the line), or
// "FILE: what is wrong" when no line is to blame. Warnings are sentences without a prefix; the
// caller adds "warning: ".
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace riffle::casebuilder {

// A recipe or bed file that cannot be turned into a case. what() is the whole one-line message.
class RecipeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Shortest text that reads back as the same double ("0.1", "1e-06", "30").
[[nodiscard]] std::string numbertext(double value);
// "text" in double quotes.
[[nodiscard]] std::string quoted(std::string_view text);
// "FILE:LINE: message", or "FILE: message" for line 0.
[[nodiscard]] std::string located(std::string_view file, int line, std::string_view message);

namespace msg {

// ---- recipe syntax ----------------------------------------------------------------------------
inline constexpr const char* cannot_read_recipe = "cannot read the recipe";
inline constexpr const char* expected_key_value = "expected \"key = value\"";
inline constexpr const char* no_key = "no key before \"=\"";
inline constexpr const char* unterminated_quote = "no closing quote";
inline constexpr const char* text_after_quote = "text after the closing quote";
[[nodiscard]] std::string no_value(std::string_view key);
[[nodiscard]] std::string unknown_key(std::string_view key, std::string_view suggestion);
[[nodiscard]] std::string given_twice(std::string_view key, int firstline);
[[nodiscard]] std::string needs_number(std::string_view key, std::string_view text);
[[nodiscard]] std::string needs_integer(std::string_view key, std::string_view text);
[[nodiscard]] std::string text_too_long(std::string_view key, std::size_t limit);

// ---- recipe meaning ---------------------------------------------------------------------------
[[nodiscard]] std::string unknown_bed(std::string_view text);
[[nodiscard]] std::string not_for_bed(std::string_view key, std::string_view bed);
[[nodiscard]] std::string csv_needs_file();
[[nodiscard]] std::string too_few_nodes(std::string_view key, int n);
[[nodiscard]] std::string not_increasing(std::string_view lowkey, double low,
                                         std::string_view highkey, double high);
[[nodiscard]] std::string grid_too_large(double nodes);
[[nodiscard]] std::string kmax_out_of_range(int n);
[[nodiscard]] std::string must_be_positive(std::string_view key, double value);
[[nodiscard]] std::string lee_angle_range(double degrees);
[[nodiscard]] std::string lee_too_long(double height, double degrees, double leelength,
                                       double length);
[[nodiscard]] std::string top_not_above_bed(double zmax, double zbmin);
[[nodiscard]] std::string no_water(double zmax, double meanbed);
[[nodiscard]] std::string velocity_and_discharge();

// ---- bed file (x, y, z rows) ------------------------------------------------------------------
[[nodiscard]] std::string cannot_open_bedfile(std::string_view path);
[[nodiscard]] std::string bad_bed_row(std::string_view text);
inline constexpr const char* no_bed_points = "no x, y, z rows";

// ---- warnings: a case that runs, but poorly ---------------------------------------------------
[[nodiscard]] std::string warn_bed_below_first_centre(double zbmin, double zc1);
[[nodiscard]] std::string warn_bed_reaches_top(double zbmax, double zmax);
[[nodiscard]] std::string warn_endtime(double starttime, double endtime);
[[nodiscard]] std::string warn_free_solid(double timestep);
[[nodiscard]] std::string warn_courant(double timestep, double courant, double velocity, double dx);
[[nodiscard]] std::string warn_few_cells(char axis, int cells);
[[nodiscard]] std::string warn_switch_view(std::string_view key, double value);
[[nodiscard]] std::string warn_discharge(double discharge);
[[nodiscard]] std::string warn_not_periodic(char axis, double jump);
[[nodiscard]] std::string warn_extension(std::string_view output);

// ---- --check: a case whose last update a crash interrupted -------------------------------------
[[nodiscard]] std::string replayed_journal(std::string_view casepath);

// ---- command line -----------------------------------------------------------------------------
extern const char* const usage;
extern const char* const help;

} // namespace msg
} // namespace riffle::casebuilder
