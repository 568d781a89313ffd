#include "run/tecplot_m.hpp"

#include "run/nodes_k.hpp"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "run/console_m.hpp"
#include "run/loops.hpp"
#include "run/messages.hpp"
#include "run/restart_m.hpp"

namespace riffle {

namespace {

constexpr const char* title = "TITLE = \"3D Navier-Stockes Equations\" ";
constexpr const char* flowvariables = "VARIABLES = x, y, z, u, v, w, vort, Q ";
constexpr const char* bedvariables = "VARIABLES = x, y, z";

// Values per node line and the length of one line: each value is preceded by a blank, because a
// value fills its 20-character field completely and neighbours would otherwise run together.
constexpr int nodevalues = 8;
constexpr int linelength = nodevalues * (1 + e2014width) + 1;

constexpr int mantissadigits = 14;

// ---- node values ----------------------------------------------------------------------------

inline double fourfaces(double a, double b, double c, double d) { return 0.25 * (a + b + c + d); }

// Bed height at node (i,j): the mean of zb over the four cells that share the node.
inline double nodebed(const Field2d& zb, int i, int j) {
    return 0.25 * (zb(i, j) + zb(i + 1, j) + zb(i, j + 1) + zb(i + 1, j + 1));
}

// ---- output ---------------------------------------------------------------------------------

[[noreturn]] void writeerror(const std::string& name, int err) {
    throw std::runtime_error(std::string(messages::error_write) + name + " (" + std::strerror(err) +
                             ")");
}

// A text file written under a temporary name beside its own and renamed into place by close():
// a write that fails, or a run that dies, never leaves an empty or partial file under the name.
class TextFile {
public:
    explicit TextFile(std::string name) : name_(std::move(name)), partial_(name_ + ".tmp") {
        f_ = std::fopen(partial_.c_str(), "w");
        if (f_ == nullptr) writeerror(name_, errno);
    }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    ~TextFile() {
        if (f_ != nullptr) { // left by a failure: drop the partial file
            std::fclose(f_);
            std::remove(partial_.c_str());
        }
    }
    void write(std::string_view text) {
        if (std::fwrite(text.data(), 1, text.size(), f_) != text.size()) writeerror(name_, errno);
    }
    void line(const std::string& rec) {
        write(rec);
        write("\n");
    }
    void close() {
        std::FILE* f = f_;
        f_ = nullptr;
        int err = std::fclose(f) != 0 ? errno : 0;
        if (err == 0 && std::rename(partial_.c_str(), name_.c_str()) != 0) err = errno;
        if (err != 0) {
            std::remove(partial_.c_str());
            writeerror(name_, err);
        }
    }

private:
    std::string name_, partial_;
    std::FILE* f_ = nullptr;
};

} // namespace

void e2014(double value, char* field) {
    if (!std::isfinite(value)) {
        const std::string_view word = std::isnan(value) ? "NaN"
                                      : value > 0       ? "Infinity"
                                                        : "-Infinity";
        std::memset(field, ' ', e2014width);
        std::memcpy(field + e2014width - word.size(), word.data(), word.size());
        return;
    }
    char digits[mantissadigits];
    int exponent = 0; // of the mantissa 0.d1d2...d14
    if (value == 0.0) {
        std::memset(digits, '0', mantissadigits);
    } else {
        // d.ddddddddddddde+XX, correctly rounded to 14 significant digits; the carry of a
        // rounding such as 9.99...9 -> 1.0e+01 is already in the exponent.
        char text[32];
        const auto r = std::to_chars(text, text + sizeof text, std::fabs(value),
                                     std::chars_format::scientific, mantissadigits - 1);
        digits[0] = text[0];
        std::memcpy(digits + 1, text + 2, mantissadigits - 1);
        const char* e = text + 2 + (mantissadigits - 1); // at the 'e'
        std::from_chars(e + 2, r.ptr, exponent);
        if (e[1] == '-') exponent = -exponent;
        exponent += 1;
    }
    char* p = field;
    // A negative value has no room left for the zero before the point.
    if (std::signbit(value)) {
        *p++ = '-';
    } else {
        *p++ = '0';
    }
    *p++ = '.';
    std::memcpy(p, digits, mantissadigits);
    p += mantissadigits;
    const int magnitude = exponent < 0 ? -exponent : exponent;
    if (magnitude <= 99) {
        *p++ = 'E';
        *p++ = exponent < 0 ? '-' : '+';
        *p++ = static_cast<char>('0' + magnitude / 10);
        *p++ = static_cast<char>('0' + magnitude % 10);
    } else {
        // Three exponent digits take the place of the E.
        *p++ = exponent < 0 ? '-' : '+';
        *p++ = static_cast<char>('0' + magnitude / 100);
        *p++ = static_cast<char>('0' + magnitude / 10 % 10);
        *p++ = static_cast<char>('0' + magnitude % 10);
    }
}

std::string e2014(double value) {
    std::string text(e2014width, ' ');
    e2014(value, text.data());
    return text;
}

void tecplotflow(const Storage& st, const std::string& outpath, const std::string& outfile, int n) {
    const std::string name = outputname(outpath, outfile, std::to_string(n) + ".plt");
    TextFile out(name);
    out.line(console::record(title));
    out.line(console::record(flowvariables));
    out.line(console::record("ZONE , i=", st.imax + 1, " j= ", st.jmax + 1, " K= ", st.kmax + 1,
                             ", F=POINT"));

    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const double dx = st.dx, dy = st.dy, dz = st.dz;
    const double xmin = st.xmin, ymin = st.ymin, zmin = st.zmin;
    const auto u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    const auto vort = st.vort.cview(), qc = st.qc.cview();
    const Field2d& zb = st.zb;

    // One k-plane of lines at a time. Every line has the same length, so the rows of a plane are
    // formatted side by side by the threads, each into its own stretch of the buffer.
    const std::size_t rowlength = static_cast<std::size_t>(imax + 1) * linelength;
    std::string plane(rowlength * static_cast<std::size_t>(jmax + 1), ' ');
    char* const first = plane.data();
    for (int k = 0; k <= kmax; ++k) {
        const double z = k * dz + zmin;
        loops::forpoints(jmax + 1, [&](long long row) {
            const int j = static_cast<int>(row);
            const double y = j * dy + ymin;
            char* p = first + static_cast<std::size_t>(j) * rowlength;
            for (int i = 0; i <= imax; ++i) {
                double values[nodevalues] = {i * dx + xmin, y, z, 0.0, 0.0, 0.0, 0.0, 0.0};
                // A node at or below the bed keeps its zeros; a node exactly on it counts as below.
                if (!(z <= nodebed(zb, i, j))) {
                    values[3] =
                        fourfaces(u(i, j, k), u(i, j + 1, k), u(i, j, k + 1), u(i, j + 1, k + 1));
                    values[4] =
                        fourfaces(v(i, j, k), v(i + 1, j, k), v(i, j, k + 1), v(i + 1, j, k + 1));
                    values[5] =
                        fourfaces(w(i, j, k), w(i + 1, j, k), w(i, j + 1, k), w(i + 1, j + 1, k));
                    values[6] = eightcells(vort, i, j, k);
                    values[7] = eightcells(qc, i, j, k);
                }
                for (const double value : values) {
                    *p++ = ' ';
                    e2014(value, p);
                    p += e2014width;
                }
                *p++ = '\n';
            }
        });
        out.write(plane);
    }
    out.close();
}

void tecplotbed(const Storage& st, int n) {
    const std::filesystem::path name =
        std::filesystem::temp_directory_path() / ("tecbedform" + std::to_string(n) + ".plt");
    TextFile out(name.string());
    out.line(console::record(title));
    out.line(console::record(bedvariables));
    out.line(console::record("ZONE , i=", st.imax + 1, " j= ", st.jmax + 1, ", F=POINT"));
    for (int j = 0; j <= st.jmax; ++j) {
        for (int i = 0; i <= st.imax; ++i) {
            out.line(
                console::record(i * st.dx + st.xmin, j * st.dy + st.ymin, nodebed(st.zb, i, j)));
        }
    }
    out.close();
}

} // namespace riffle
