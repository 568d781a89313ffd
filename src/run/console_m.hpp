// Console and text-file records in list-directed form: one record per line, a leading blank,
// items separated by one blank (none added after an item that already ends in a blank, so a
// label such as "Time Step          = " keeps its own spacing); integers in plain decimal, reals in E form with 17 significant
// digits (enough to read back the same double), character items as they stand.
// Also the operator pause, which never blocks a batch run.
#pragma once

#include <concepts>
#include <cstdio>
#include <string>
#include <string_view>

namespace riffle::console {

void appenditem(std::string& rec, std::string_view text);
void appenditem(std::string& rec, const char* text);
void appenditem(std::string& rec, const std::string& text);
void appenditem(std::string& rec, double value);
void appenditem(std::string& rec, std::integral auto value) {
    if (rec.empty() || rec.back() != ' ') rec += ' ';
    rec += std::to_string(value);
}

// One list-directed record (without the line end).
template <class... Items>
[[nodiscard]] std::string record(const Items&... items) {
    std::string rec;
    (appenditem(rec, items), ...);
    return rec;
}

// Writes one record and a line end to stdout.
template <class... Items>
void writeline(const Items&... items) {
    std::string rec = record(items...);
    rec += '\n';
    std::fwrite(rec.data(), 1, rec.size(), stdout);
}

// Text of a real in the list-directed form used by every record.
[[nodiscard]] std::string realtext(double value);

// Waits for the operator to press Enter. Returns at once when standard input is closed, at end
// of file or not readable, so batch runs and CI never hang here.
void pause();

}  // namespace riffle::console
