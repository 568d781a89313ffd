#include "run/console_m.hpp"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>

namespace riffle::console {

void appenditem(std::string& rec, std::string_view text) {
    // Character items follow the separating blank as they stand; a label that ends in a blank
    // (such as "Time Step          = ") therefore keeps its own spacing before the value.
    if (rec.empty() || rec.back() != ' ') rec += ' ';
    rec += text;
}
void appenditem(std::string& rec, const char* text) { appenditem(rec, std::string_view(text)); }
void appenditem(std::string& rec, const std::string& text) {
    appenditem(rec, std::string_view(text));
}

void appenditem(std::string& rec, double value) {
    if (rec.empty() || rec.back() != ' ') rec += ' ';
    rec += realtext(value);
}

std::string realtext(double value) {
    std::array<char, 40> buf{};
    if (std::isnan(value)) return "NaN";
    if (std::isinf(value)) return value > 0 ? "Infinity" : "-Infinity";
    const int n = std::snprintf(buf.data(), buf.size(), "%.16E", value);
    return {buf.data(), static_cast<std::size_t>(n)};
}

void pause() {
    std::fflush(stdout);
    // Read raw bytes up to a line end: no stdio buffering state is left behind, and a closed or
    // exhausted stdin (read returns 0 or fails) ends the wait at once.
    char c = 0;
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, &c, 1);
        if (n == 1 && c != '\n') continue;
        if (n < 0 && errno == EINTR) continue;
        return;
    }
}

}  // namespace riffle::console
