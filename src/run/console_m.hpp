// Console and text-file records in list-directed form: one record per line, a leading blank,
// items separated by one blank (none added after an item that already ends in a blank, so a
// label such as "Time Step          = " keeps its own spacing); integers in plain decimal, reals in
// E form with 17 significant digits (enough to read back the same double), character items as they
// stand. Also the operator pause, which never blocks a batch run.
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
template <class... Items> [[nodiscard]] std::string record(const Items&... items) {
    std::string rec;
    (appenditem(rec, items), ...);
    return rec;
}

// Writes one record and a line end to stdout.
template <class... Items> void writeline(const Items&... items) {
    std::string rec = record(items...);
    rec += '\n';
    std::fwrite(rec.data(), 1, rec.size(), stdout);
}

// Text of a real in the list-directed form used by every record.
[[nodiscard]] std::string realtext(double value);

// Shortest text that reads back as the same double ("0.1", "1e-06", "nan"), for messages.
[[nodiscard]] std::string shorttext(double value);
// `text` in double quotes, as keys and fixed texts are shown in messages.
[[nodiscard]] std::string quoted(std::string_view text);

// Waits for the operator to press Enter. Returns at once when standard input is closed, at end
// of file or not readable, so batch runs and CI never hang here.
void pause();

// One progress line on standard error, kept only when standard error is a terminal: step,
// simulated time of the end time, percent, steps per second and the time left, redrawn in place
// at most four times a second. Nothing of it reaches standard output. When standard output is the
// same terminal, the line is taken away before each step report and put back after it.
class ProgressLine {
public:
    ProgressLine(double starttime, double endtime);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine();

    // Before the step report is written to standard output.
    void beforereport() const;
    // After the report of step `istep`, which reached `time`.
    void afterreport(int istep, double time);

private:
    void draw() const;
    void erase() const;
    bool shown_ = false, sharesterminal_ = false;
    long steps_ = 0; // made in this run (a restart's step count does not start at 0)
    double start_, end_, wallstart_, lastdraw_ = -1.0;
    std::string text_;
};

// Takes the progress line away, if one is shown, before a message goes to the terminal.
void clearprogress();

} // namespace riffle::console
