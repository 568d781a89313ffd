#include "run/restart_m.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "run/messages.hpp"

namespace riffle {

namespace {

// ---- text of numbers ------------------------------------------------------------------------

// Appends the list-directed text of a real, identical to console::realtext ("%.16E": 17
// significant digits) but without a round trip through printf for each of millions of values.
void appendreal(std::string& buf, double value) {
    if (std::isnan(value)) {
        buf += "NaN";
        return;
    }
    if (std::isinf(value)) {
        buf += value > 0 ? "Infinity" : "-Infinity";
        return;
    }
    char text[40];
    const auto r =
        std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, 16);
    char* e = std::find(text, r.ptr, 'e');
    if (e != r.ptr) *e = 'E';
    buf.append(text, r.ptr);
}

void appendint(std::string& buf, long long value) {
    char text[24];
    const auto r = std::to_chars(text, text + sizeof text, value);
    buf.append(text, r.ptr);
}

// One list-directed record: a leading blank, then the items separated by one blank.
template <class... Reals> void realrecord(std::string& buf, Reals... values) {
    ((buf += ' ', appendreal(buf, values)), ...);
    buf += '\n';
}

// ---- file names -----------------------------------------------------------------------------

std::string_view trimblanks(std::string_view s) {
    const auto first = s.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    const auto last = s.find_last_not_of(' ');
    return s.substr(first, last - first + 1);
}

[[noreturn]] void writeerror(const std::string& name, int err) {
    throw std::runtime_error(std::string(messages::error_write) + name + " (" + std::strerror(err) +
                             ")");
}

// ---- writing --------------------------------------------------------------------------------

// Text file written in large blocks; any failure removes the partial file and throws.
class BlockWriter {
public:
    BlockWriter(std::string path, std::string shownname)
        : path_(std::move(path)), shown_(std::move(shownname)) {
        f_ = std::fopen(path_.c_str(), "w");
        if (f_ == nullptr) writeerror(shown_, errno);
        buf_.reserve(blocksize + 4096);
    }
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;
    ~BlockWriter() {
        if (f_ != nullptr) { // left by an exception: drop the partial file
            std::fclose(f_);
            std::remove(path_.c_str());
        }
    }

    std::string& buffer() { return buf_; }
    void maybeflush() {
        if (buf_.size() >= blocksize) flush();
    }
    // Flushes, forces the data to the disk and closes; throws on any failure.
    void close() {
        flush();
        if (std::fflush(f_) != 0 || ::fsync(::fileno(f_)) != 0) fail(errno);
        std::FILE* f = f_;
        f_ = nullptr;
        if (std::fclose(f) != 0) {
            const int err = errno;
            std::remove(path_.c_str());
            writeerror(shown_, err);
        }
    }

private:
    static constexpr std::size_t blocksize = std::size_t{1} << 20;
    void flush() {
        if (!buf_.empty() && std::fwrite(buf_.data(), 1, buf_.size(), f_) != buf_.size()) {
            fail(errno);
        }
        buf_.clear();
    }
    [[noreturn]] void fail(int err) {
        std::fclose(f_);
        f_ = nullptr;
        std::remove(path_.c_str());
        writeerror(shown_, err);
    }

    std::string path_, shown_;
    std::FILE* f_ = nullptr;
    std::string buf_;
};

// ---- reading --------------------------------------------------------------------------------

inline bool separator(char c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// List-directed input over the text of a whole file: items are separated by blanks or line ends,
// a record's items may run over several lines, and endrecord() skips the rest of the line on
// which a record's last item stood. Every failure throws RestartError naming the line.
class ListReader {
public:
    explicit ListReader(std::string_view text)
        : begin_(text.data()), p_(text.data()), end_(text.data() + text.size()) {}

    [[nodiscard]] double real() {
        const std::string_view t = item();
        const std::string_view digits = unsigned_plus(t);
        double value = 0.0;
        const auto r = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (r.ptr != digits.data() + digits.size() ||
            (r.ec != std::errc{} && r.ec != std::errc::result_out_of_range)) {
            fail(messages::restart_not_number, t);
        }
        // Out of range leaves `value` untouched; strtod tells an overflow (an infinity, refused
        // below) from an underflow (zero or a subnormal of the right sign, as the text says).
        if (r.ec == std::errc::result_out_of_range) {
            value = std::strtod(std::string(digits).c_str(), nullptr);
        }
        if (!std::isfinite(value)) fail(messages::restart_not_finite, t);
        return value;
    }
    [[nodiscard]] int integer() {
        const std::string_view t = item();
        const std::string_view digits = unsigned_plus(t);
        int value = 0;
        const auto r = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (r.ec != std::errc{} || r.ptr != digits.data() + digits.size()) {
            fail(messages::restart_not_number, t);
        }
        return value;
    }
    void endrecord() {
        while (p_ != end_ && *p_ != '\n')
            ++p_;
        if (p_ != end_) ++p_;
    }
    [[nodiscard]] std::size_t remaining() const { return static_cast<std::size_t>(end_ - p_); }
    // Only blanks and line ends left.
    [[nodiscard]] bool atend() const {
        return std::all_of(p_, end_, [](char c) { return separator(c); });
    }
    // After the last record: nothing but blanks and line ends may follow.
    void finish() {
        while (p_ != end_ && separator(*p_))
            ++p_;
        if (p_ != end_) fail(messages::restart_left_over, {});
    }
    // Throws RestartError "line N: why item", the item cut to a readable length.
    [[noreturn]] void fail(const char* why, std::string_view t) const {
        constexpr std::size_t shown = 40;
        const auto line = 1 + std::count(begin_, std::min(p_, end_), '\n');
        std::string what = "line " + std::to_string(line) + ": " + why;
        what += t.substr(0, shown);
        if (t.size() > shown) what += "...";
        throw RestartError(what);
    }

private:
    // A leading "+" is allowed before digits (from_chars takes only "-"), not before a sign.
    static std::string_view unsigned_plus(std::string_view t) {
        if (t.size() > 1 && t.front() == '+' && t[1] != '-') t.remove_prefix(1);
        return t;
    }
    std::string_view item() {
        while (p_ != end_ && separator(*p_))
            ++p_;
        if (p_ == end_) fail(messages::restart_ends_early, {});
        const char* first = p_;
        while (p_ != end_ && !separator(*p_))
            ++p_;
        return {first, static_cast<std::size_t>(p_ - first)};
    }
    const char* begin_;
    const char* p_;
    const char* end_;
};

// The cell counts the records of a file follow.
struct Layout {
    int imax, jmax, kmax, lmin;
};

// Where parsed values go: into a run's storage ...
class StoreValues {
public:
    explicit StoreValues(Storage& st) : st_(st) {}
    void clock(int istep, double time) {
        st_.istep = istep;
        st_.time = time;
    }
    void phi(int l, int i, int j, int k, double v) { st_.mg(l).phi(i, j, k) = v; }
    void cell(int i, int j, int k, const std::array<double, 7>& v) {
        st_.uo(i, j, k) = v[0];
        st_.vo(i, j, k) = v[1];
        st_.wo(i, j, k) = v[2];
        st_.fu(i, j, k) = v[3];
        st_.fv(i, j, k) = v[4];
        st_.fw(i, j, k) = v[5];
        st_.nut(i, j, k) = v[6];
    }
    void bed(int i, int j, double v) { st_.zb(i, j) = v; }
    void pointcount(int npt) {
        st_.npt = npt;
        const auto n = static_cast<std::size_t>(npt);
        for (auto& a : st_.ptdata)
            a.resize(std::max(a.size(), n), 0.0);
        st_.ptindex.resize(std::max(st_.ptindex.size(), n), 0);
    }
    void point(std::size_t n, const std::array<double, 6>& v) {
        for (std::size_t a = 0; a < v.size(); ++a)
            st_.ptdata[a][n] = v[a];
    }
    // The running sums of the statistics, kept when this run has them on (and started afresh,
    // zero, when the file has none); a run without them passes over them.
    void statistics(long long samples, double first, double last, double sumfx) {
        if (st_.stats.enabled != 1) return;
        st_.stats.samples = samples;
        st_.stats.first = first;
        st_.stats.last = last;
        st_.stats.sumfx = sumfx;
    }
    void statisticsnode(int i, int j, int k, const std::array<double, 11>& v) {
        if (st_.stats.enabled != 1) return;
        for (std::size_t m = 0; m < v.size(); ++m)
            st_.stats.sum[m](i, j, k) = v[m];
    }
    // The pressure, which a run with statistics continues (so its case file's "Pressure" goes on
    // as in one run); a run without them starts it afresh from zero, as from any restart file.
    void pressure(int i, int j, int k, double v) {
        if (st_.stats.enabled == 1) st_.p(i, j, k) = v;
    }
    // The sums of the bed shear stress, kept by a run with statistics (whether its wall-layer
    // model is on is read only later; with it off they are never used).
    void bedstatistics(long long samples) {
        if (st_.stats.enabled == 1) st_.stats.bedsamples = samples;
    }
    void bednode(int i, int j, const std::array<double, 3>& v) {
        if (st_.stats.enabled != 1) return;
        for (std::size_t m = 0; m < v.size(); ++m)
            st_.stats.bedsum[m](i, j, 0) = v[m];
    }
    // The sums of the forces on the bed region, as those of the bed shear stress.
    void bedforces(long long samples, double pressuredrag, double flowdriving) {
        if (st_.stats.enabled != 1) return;
        st_.stats.forcesamples = samples;
        st_.stats.sumpressuredrag = pressuredrag;
        st_.stats.sumflowdriving = flowdriving;
    }

private:
    Storage& st_;
};

// ... or nowhere, for a dry run.
struct DiscardValues {
    void clock(int, double) {}
    void phi(int, int, int, int, double) {}
    void cell(int, int, int, const std::array<double, 7>&) {}
    void bed(int, int, double) {}
    void pointcount(int) {}
    void point(std::size_t, const std::array<double, 6>&) {}
    void statistics(long long, double, double, double) {}
    void statisticsnode(int, int, int, const std::array<double, 11>&) {}
    void pressure(int, int, int, double) {}
    void bedstatistics(long long) {}
    void bednode(int, int, const std::array<double, 3>&) {}
    void bedforces(long long, double, double) {}
};

// The records of a restart file for the grid `g`, in the order restartwrite writes them, each
// value handed to `sink` once parsed.
template <class Sink> void parserecords(std::string_view text, const Layout& g, Sink& sink) {
    ListReader in(text);
    const int istep = in.integer();
    const double time = in.real();
    in.endrecord();
    sink.clock(istep, time);

    for (int l = g.lmin; l <= 0; ++l) {
        const int ni = g.imax >> -l, nj = g.jmax >> -l, nk = g.kmax >> -l;
        for (int k = 0; k <= nk + 1; ++k) {
            for (int j = 0; j <= nj + 1; ++j) {
                for (int i = 0; i <= ni + 1; ++i) {
                    sink.phi(l, i, j, k, in.real());
                    in.endrecord();
                }
            }
        }
    }

    // uo vo wo fu fv fw nut
    std::array<double, 7> seven{};
    for (int k = 0; k <= g.kmax + 1; ++k) {
        for (int j = 0; j <= g.jmax + 1; ++j) {
            for (int i = 0; i <= g.imax + 1; ++i) {
                for (double& v : seven)
                    v = in.real();
                in.endrecord();
                sink.cell(i, j, k, seven);
            }
        }
    }

    for (int j = 0; j <= g.jmax + 1; ++j) {
        for (int i = 0; i <= g.imax + 1; ++i) {
            sink.bed(i, j, in.real());
            in.endrecord();
        }
    }

    const int npt = in.integer();
    in.endrecord();
    // Six items of at least one character, each followed by a blank or a line end (but the very
    // last): a count the rest of the file cannot hold is a damaged file, refused before any
    // memory is taken for it.
    if (npt < 0 || static_cast<std::size_t>(npt) > (in.remaining() + 1) / 12) {
        in.fail(messages::restart_bad_count, std::to_string(npt));
    }
    sink.pointcount(npt);
    std::array<double, 6> six{};
    for (std::size_t n = 0; n < static_cast<std::size_t>(npt); ++n) {
        for (double& v : six)
            v = in.real();
        in.endrecord();
        sink.point(n, six);
    }

    // The running sums of the statistics, when the run that wrote the file had them on: the
    // sample count, the times of the first and last sample and the sum of the driving
    // acceleration, the eleven sums of each node, and the pressure of each cell.
    if (!in.atend()) {
        const int samples = in.integer();
        const double first = in.real();
        const double last = in.real();
        const double sumfx = in.real();
        in.endrecord();
        if (samples < 0) in.fail(messages::restart_bad_count, std::to_string(samples));
        sink.statistics(samples, first, last, sumfx);
        std::array<double, 11> eleven{};
        for (int k = 0; k <= g.kmax; ++k) {
            for (int j = 0; j <= g.jmax; ++j) {
                for (int i = 0; i <= g.imax; ++i) {
                    for (double& v : eleven)
                        v = in.real();
                    in.endrecord();
                    sink.statisticsnode(i, j, k, eleven);
                }
            }
        }
        for (int k = 0; k <= g.kmax + 1; ++k) {
            for (int j = 0; j <= g.jmax + 1; ++j) {
                for (int i = 0; i <= g.imax + 1; ++i) {
                    sink.pressure(i, j, k, in.real());
                    in.endrecord();
                }
            }
        }
        // The sums of the bed shear stress, when the run that wrote the file had the wall-layer
        // model on too: their sample count, then three sums at each node of the bed.
        if (!in.atend()) {
            const int bedsamples = in.integer();
            in.endrecord();
            if (bedsamples < 0) in.fail(messages::restart_bad_count, std::to_string(bedsamples));
            sink.bedstatistics(bedsamples);
            std::array<double, 3> three{};
            for (int j = 0; j <= g.jmax; ++j) {
                for (int i = 0; i <= g.imax; ++i) {
                    for (double& v : three)
                        v = in.real();
                    in.endrecord();
                    sink.bednode(i, j, three);
                }
            }
            // Then the sums of the forces on the bed region and their sample count, when the
            // run that wrote the file had them.
            if (!in.atend()) {
                const int forcesamples = in.integer();
                const double pressuredrag = in.real();
                const double flowdriving = in.real();
                in.endrecord();
                if (forcesamples < 0)
                    in.fail(messages::restart_bad_count, std::to_string(forcesamples));
                sink.bedforces(forcesamples, pressuredrag, flowdriving);
            }
        }
    }
    in.finish();
}

// The whole text of `startfile`, trailing blanks of the name dropped (it comes from a
// fixed-length text).
std::string wholefile(const std::string& startfile) {
    const std::string name(startfile.substr(0, startfile.find_last_not_of(' ') + 1));
    std::FILE* f = std::fopen(name.c_str(), "rb");
    if (f == nullptr) throw RestartError(messages::restart_unreadable + name);
    struct stat info {};
    std::string text;
    if (::fstat(::fileno(f), &info) == 0 && info.st_size > 0) {
        text.resize(static_cast<std::size_t>(info.st_size));
        text.resize(std::fread(text.data(), 1, text.size(), f));
    }
    const bool bad = std::ferror(f) != 0;
    std::fclose(f);
    if (bad) throw RestartError(messages::restart_unreadable + name);
    return text;
}

} // namespace

std::string outputname(const std::string& outpath, const std::string& outfile,
                       const std::string& suffix) {
    std::string name(trimblanks(outpath));
    name += '/';
    name += trimblanks(outfile);
    name += suffix;
    return name;
}

void restartwrite(const Storage& st, int istep, double time, const std::string& outpath,
                  const std::string& outfile) {
    const std::string name = outputname(outpath, outfile, ".dat");
    const std::string partial = name + ".tmp";
    BlockWriter out(partial, name);
    std::string& buf = out.buffer();

    buf += ' ';
    appendint(buf, istep);
    buf += ' ';
    appendreal(buf, time);
    buf += '\n';

    for (int l = st.lmin; l <= 0; ++l) {
        const mglevel& m = st.mg(l);
        const auto phi = m.phi.cview();
        for (int k = 0; k <= m.nk + 1; ++k) {
            for (int j = 0; j <= m.nj + 1; ++j) {
                for (int i = 0; i <= m.ni + 1; ++i)
                    realrecord(buf, phi(i, j, k));
                out.maybeflush();
            }
        }
    }

    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const auto uo = st.uo.cview(), vo = st.vo.cview(), wo = st.wo.cview();
    const auto fu = st.fu.cview(), fv = st.fv.cview(), fw = st.fw.cview();
    const auto nut = st.nut.cview();
    for (int k = 0; k <= kmax + 1; ++k) {
        for (int j = 0; j <= jmax + 1; ++j) {
            for (int i = 0; i <= imax + 1; ++i) {
                realrecord(buf, uo(i, j, k), vo(i, j, k), wo(i, j, k), fu(i, j, k), fv(i, j, k),
                           fw(i, j, k), nut(i, j, k));
            }
            out.maybeflush();
        }
    }

    for (int j = 0; j <= jmax + 1; ++j) {
        for (int i = 0; i <= imax + 1; ++i)
            realrecord(buf, st.zb(i, j));
    }

    buf += ' ';
    appendint(buf, st.npt);
    buf += '\n';
    for (int n = 0; n < st.npt; ++n) {
        const auto& d = st.ptdata;
        const auto at = static_cast<std::size_t>(n);
        realrecord(buf, d[0][at], d[1][at], d[2][at], d[3][at], d[4][at], d[5][at]);
        out.maybeflush();
    }

    if (st.stats.enabled == 1) {
        const Storage::StatisticSums& s = st.stats;
        buf += ' ';
        appendint(buf, static_cast<int>(s.samples));
        buf += ' ';
        appendreal(buf, s.first);
        buf += ' ';
        appendreal(buf, s.last);
        buf += ' ';
        appendreal(buf, s.sumfx);
        buf += '\n';
        const auto& a = s.sum;
        for (int k = 0; k <= kmax; ++k) {
            for (int j = 0; j <= jmax; ++j) {
                for (int i = 0; i <= imax; ++i) {
                    realrecord(buf, a[0](i, j, k), a[1](i, j, k), a[2](i, j, k), a[3](i, j, k),
                               a[4](i, j, k), a[5](i, j, k), a[6](i, j, k), a[7](i, j, k),
                               a[8](i, j, k), a[9](i, j, k), a[10](i, j, k));
                }
                out.maybeflush();
            }
        }
        const auto pressure = st.p.cview();
        for (int k = 0; k <= kmax + 1; ++k) {
            for (int j = 0; j <= jmax + 1; ++j) {
                for (int i = 0; i <= imax + 1; ++i)
                    realrecord(buf, pressure(i, j, k));
                out.maybeflush();
            }
        }
        if (st.iwallmodel == 1) {
            buf += ' ';
            appendint(buf, static_cast<int>(s.bedsamples));
            buf += '\n';
            const auto& b = s.bedsum;
            for (int j = 0; j <= jmax; ++j) {
                for (int i = 0; i <= imax; ++i) {
                    realrecord(buf, b[0](i, j, 0), b[1](i, j, 0), b[2](i, j, 0));
                }
                out.maybeflush();
            }
            buf += ' ';
            appendint(buf, static_cast<int>(s.forcesamples));
            buf += ' ';
            appendreal(buf, s.sumpressuredrag);
            buf += ' ';
            appendreal(buf, s.sumflowdriving);
            buf += '\n';
        }
    }
    out.close();

    if (std::rename(partial.c_str(), name.c_str()) != 0) {
        const int err = errno;
        std::remove(partial.c_str());
        writeerror(name, err);
    }
}

void restartparse(Storage& st, std::string_view text) {
    StoreValues sink(st);
    parserecords(text, Layout{st.imax, st.jmax, st.kmax, st.lmin}, sink);

    // The step continues from the saved previous level, ghost layers included.
    std::copy(st.uo.data(), st.uo.data() + st.uo.size(), st.u.data());
    std::copy(st.vo.data(), st.vo.data() + st.vo.size(), st.v.data());
    std::copy(st.wo.data(), st.wo.data() + st.wo.size(), st.w.data());
}

void restartscan(int imax, int jmax, int kmax, std::string_view text) {
    DiscardValues sink;
    parserecords(text, Layout{imax, jmax, kmax, coarsestlevel(imax, jmax, kmax)}, sink);
}

void restartread(Storage& st, const std::string& startfile) {
    try {
        restartparse(st, wholefile(startfile));
    } catch (const RestartError&) {
        errorreport(3);
    }
}

void restartcheck(int imax, int jmax, int kmax, const std::string& startfile) {
    try {
        restartscan(imax, jmax, kmax, wholefile(startfile));
    } catch (const RestartError&) {
        errorreport(3);
    }
}

} // namespace riffle
