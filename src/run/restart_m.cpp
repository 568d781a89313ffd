#include "run/restart_m.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

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
template <class... Reals>
void realrecord(std::string& buf, Reals... values) {
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
    throw std::runtime_error(std::string(messages::error_write) + name + " (" +
                             std::strerror(err) + ")");
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
        if (f_ != nullptr) {  // left by an exception: drop the partial file
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

[[noreturn]] void readfailure() { errorreport(3); }

inline bool separator(char c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// List-directed input over the text of a whole file: items are separated by blanks or line ends,
// a record's items may run over several lines, and endrecord() skips the rest of the line on
// which a record's last item stood.
class ListReader {
public:
    explicit ListReader(std::string_view text) : p_(text.data()), end_(text.data() + text.size()) {}

    [[nodiscard]] double real() {
        std::string_view t = item();
        if (t.size() > 1 && t.front() == '+') t.remove_prefix(1);
        double value = 0.0;
        const auto r = std::from_chars(t.data(), t.data() + t.size(), value);
        // A value out of range still parses (to an infinity or zero), as the text says so.
        if (r.ptr != t.data() + t.size() ||
            (r.ec != std::errc{} && r.ec != std::errc::result_out_of_range)) {
            readfailure();
        }
        return value;
    }
    [[nodiscard]] int integer() {
        std::string_view t = item();
        if (t.size() > 1 && t.front() == '+') t.remove_prefix(1);
        int value = 0;
        const auto r = std::from_chars(t.data(), t.data() + t.size(), value);
        if (r.ec != std::errc{} || r.ptr != t.data() + t.size()) readfailure();
        return value;
    }
    void endrecord() {
        while (p_ != end_ && *p_ != '\n') ++p_;
        if (p_ != end_) ++p_;
    }
    [[nodiscard]] std::size_t remaining() const { return static_cast<std::size_t>(end_ - p_); }

private:
    std::string_view item() {
        while (p_ != end_ && separator(*p_)) ++p_;
        if (p_ == end_) readfailure();  // the file ends inside a record
        const char* first = p_;
        while (p_ != end_ && !separator(*p_)) ++p_;
        return {first, static_cast<std::size_t>(p_ - first)};
    }
    const char* p_;
    const char* end_;
};

std::vector<char> wholefile(const std::string& name) {
    std::FILE* f = std::fopen(name.c_str(), "rb");
    if (f == nullptr) readfailure();
    struct stat info {};
    std::vector<char> text;
    if (::fstat(::fileno(f), &info) == 0 && info.st_size > 0) {
        text.resize(static_cast<std::size_t>(info.st_size));
        text.resize(std::fread(text.data(), 1, text.size(), f));
    }
    const bool bad = std::ferror(f) != 0;
    std::fclose(f);
    if (bad) readfailure();
    return text;
}

}  // namespace

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
                for (int i = 0; i <= m.ni + 1; ++i) realrecord(buf, phi(i, j, k));
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
        for (int i = 0; i <= imax + 1; ++i) realrecord(buf, st.zb(i, j));
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
    out.close();

    if (std::rename(partial.c_str(), name.c_str()) != 0) {
        const int err = errno;
        std::remove(partial.c_str());
        writeerror(name, err);
    }
}

void restartread(Storage& st, const std::string& startfile) {
    // Trailing blanks of a name are not part of it (the name comes from a fixed-length text).
    const std::string name(startfile.substr(0, startfile.find_last_not_of(' ') + 1));
    const std::vector<char> text = wholefile(name);
    ListReader in(std::string_view(text.data(), text.size()));

    st.istep = in.integer();
    st.time = in.real();
    in.endrecord();

    for (int l = st.lmin; l <= 0; ++l) {
        mglevel& m = st.mg(l);
        const auto phi = m.phi.view();
        for (int k = 0; k <= m.nk + 1; ++k) {
            for (int j = 0; j <= m.nj + 1; ++j) {
                for (int i = 0; i <= m.ni + 1; ++i) {
                    phi(i, j, k) = in.real();
                    in.endrecord();
                }
            }
        }
    }

    const int imax = st.imax, jmax = st.jmax, kmax = st.kmax;
    const auto uo = st.uo.view(), vo = st.vo.view(), wo = st.wo.view();
    const auto fu = st.fu.view(), fv = st.fv.view(), fw = st.fw.view();
    const auto nut = st.nut.view();
    for (int k = 0; k <= kmax + 1; ++k) {
        for (int j = 0; j <= jmax + 1; ++j) {
            for (int i = 0; i <= imax + 1; ++i) {
                uo(i, j, k) = in.real();
                vo(i, j, k) = in.real();
                wo(i, j, k) = in.real();
                fu(i, j, k) = in.real();
                fv(i, j, k) = in.real();
                fw(i, j, k) = in.real();
                nut(i, j, k) = in.real();
                in.endrecord();
            }
        }
    }

    for (int j = 0; j <= jmax + 1; ++j) {
        for (int i = 0; i <= imax + 1; ++i) {
            st.zb(i, j) = in.real();
            in.endrecord();
        }
    }

    st.npt = in.integer();
    in.endrecord();
    if (st.npt > 0) {
        // Six items of at least one character and a blank each: a count the rest of the file
        // cannot hold is a damaged file, refused before any memory is taken for it.
        const auto npt = static_cast<std::size_t>(st.npt);
        if (npt > in.remaining() / 12) readfailure();
        for (auto& a : st.ptdata) a.resize(std::max(a.size(), npt), 0.0);
        st.ptindex.resize(std::max(st.ptindex.size(), npt), 0);
        for (std::size_t n = 0; n < npt; ++n) {
            for (auto& a : st.ptdata) a[n] = in.real();
            in.endrecord();
        }
    }

    // The step continues from the saved previous level, ghost layers included.
    std::copy(st.uo.data(), st.uo.data() + st.uo.size(), st.u.data());
    std::copy(st.vo.data(), st.vo.data() + st.vo.size(), st.v.data());
    std::copy(st.wo.data(), st.wo.data() + st.wo.size(), st.w.data());
}

}  // namespace riffle
