#include "run/console_m.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>

namespace riffle::console {

namespace {

double wallclock() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void toerror(const std::string& text) {
    // Straight to the descriptor: standard error is unbuffered anyway, and the line must appear
    // whole, between the records of standard output.
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += static_cast<std::size_t>(n);
    }
}

const ProgressLine* current = nullptr; // the line shown, if any

} // namespace

ProgressLine::ProgressLine(double starttime, double endtime)
    : shown_(::isatty(STDERR_FILENO) == 1), start_(starttime), end_(endtime),
      wallstart_(wallclock()) {
    if (!shown_) return;
    sharesterminal_ = ::isatty(STDOUT_FILENO) == 1;
    current = this;
}

ProgressLine::~ProgressLine() {
    if (!shown_) return;
    erase();
    current = nullptr;
}

void ProgressLine::beforereport() const {
    if (shown_ && sharesterminal_) {
        std::fflush(stdout);
        erase();
    }
}

void ProgressLine::afterreport(int istep, double time) {
    if (!shown_) return;
    ++steps_;
    const double now = wallclock();
    if (lastdraw_ < 0.0 || now - lastdraw_ >= 0.25) {
        lastdraw_ = now;
        const double elapsed = std::max(now - wallstart_, 1e-9);
        const double span = end_ - start_;
        const double done = span > 0.0 ? std::clamp((time - start_) / span, 0.0, 1.0) : 1.0;
        // Time left from the simulated time gained per second of wall clock so far.
        const double left = done > 0.0 ? elapsed * (1.0 - done) / done : 0.0;
        const long seconds = std::lround(std::min(left, 359999.0));
        char buf[160];
        std::snprintf(buf, sizeof buf,
                      "step %d  t = %.6g of %.6g s  %.1f %%  %.1f steps/s  %ld:%02ld:%02ld left",
                      istep, time, end_, 100.0 * done, steps_ / elapsed, seconds / 3600,
                      seconds / 60 % 60, seconds % 60);
        text_ = buf;
    } else if (!sharesterminal_) {
        return; // unchanged, and still on the screen
    }
    if (sharesterminal_) std::fflush(stdout);
    draw();
}

void ProgressLine::draw() const { toerror("\r" + text_ + "\x1b[K"); }
void ProgressLine::erase() const { toerror("\r\x1b[K"); }

void clearprogress() {
    if (current != nullptr) toerror("\r\x1b[K");
}

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

std::string shorttext(double value) {
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, value);
    return {buf, r.ptr};
}

// Built by appending: g++ 12 at -O3 gives a false -Wrestrict on "literal" + std::string here.
std::string quoted(std::string_view text) {
    std::string out = "\"";
    out += text;
    out += '"';
    return out;
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

} // namespace riffle::console
