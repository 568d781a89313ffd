#include "run/casecheck_m.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>
#include <tuple>

#include "platform/kavellib.hpp"
#include "run/casefile_m.hpp"
#include "run/console_m.hpp"
#include "run/restart_m.hpp"
#include "run/storage_m.hpp"

namespace riffle {

namespace {

namespace pf = platform;

using console::quoted;
const auto numbertext = console::shorttext;

class Problems {
public:
    explicit Problems(const CaseInput& in) : in_(in) {}

    void add(std::string line) { lines_.push_back(std::move(line)); }

    // The value the solver holds for a key: the stored one, or the zero of absent storage.
    [[nodiscard]] std::optional<double> stored(std::string_view key, bool integer) const {
        return in_.condition ? in_.condition(key, integer) : std::nullopt;
    }
    [[nodiscard]] double held(std::string_view key, bool integer = false) const {
        return stored(key, integer).value_or(0.0);
    }

    // "KEY" = VALUE: WHAT, or "KEY" is missing (read as 0): WHAT.
    void key(std::string_view key, bool integer, const std::string& what) {
        const std::optional<double> v = stored(key, integer);
        add(quoted(key) + (v ? " = " + numbertext(*v) : std::string(" is missing (read as 0)")) +
            ": " + what);
    }
    void finite(std::string_view k, const std::string& meaning) {
        if (!std::isfinite(held(k))) key(k, false, meaning + " must be a finite number");
    }
    void positive(std::string_view k, const std::string& meaning) {
        if (!(std::isfinite(held(k)) && held(k) > 0.0))
            key(k, false, meaning + " must be a positive number");
    }

    std::vector<std::string> lines_;

private:
    const CaseInput& in_;
};

void checkbedgrid(const CaseInput& in, Problems& p) {
    if (in.ni < 1 || in.nj < 1) {
        p.add("the case file has no bed grid (zone \"Bed\" of base \"Case\")");
        return;
    }
    if (in.ni < 2 || in.nj < 2) {
        p.add("the bed grid has " + std::to_string(in.ni) + " x " + std::to_string(in.nj) +
              " nodes: at least 2 are needed in each direction");
        return;
    }
    const std::size_t nodes = static_cast<std::size_t>(in.ni) * static_cast<std::size_t>(in.nj);
    const auto at = [&](std::size_t n) {
        return " at node (" + std::to_string(n % in.ni) + ", " + std::to_string(n / in.ni) + ")";
    };
    if (in.x.size() != nodes || in.y.size() != nodes) {
        p.add("the bed grid's node coordinates cannot be read");
    } else {
        for (std::size_t n = 0; n < nodes; ++n) {
            if (!std::isfinite(in.x[n]) || !std::isfinite(in.y[n])) {
                p.add("the bed grid's coordinates are x = " + numbertext(in.x[n]) +
                      ", y = " + numbertext(in.y[n]) + at(n) + ": they must be finite numbers");
                break;
            }
        }
        // The box comes from the first and the last node.
        for (const auto& [c, axis, size] :
             {std::tuple{&in.x, "x", "length"}, std::tuple{&in.y, "y", "width"}}) {
            const double lo = c->front(), hi = c->back();
            if (std::isfinite(lo) && std::isfinite(hi) && !(hi > lo)) {
                p.add(std::string("the bed grid's corner nodes span ") + axis + " from " +
                      numbertext(lo) + " to " + numbertext(hi) + ": the box needs a positive " +
                      size);
            }
        }
    }
    if (in.elevation.size() != nodes) {
        p.add("\"Elevation\" is missing from the bed grid: the bed must be given at every node");
        return;
    }
    for (std::size_t n = 0; n < nodes; ++n) {
        if (!std::isfinite(in.elevation[n])) {
            p.add("\"Elevation\" = " + numbertext(in.elevation[n]) + at(n) +
                  ": the bed elevation must be a finite number");
            break;
        }
    }
}

// Bytes the run holds at its peak: every field with the multigrid levels, and the node arrays.
std::uint64_t runbytes(int imax, int jmax, int kmax) {
    Storage st;
    st.imax = imax;
    st.jmax = jmax;
    st.kmax = kmax;
    levelcount(st);
    const std::uint64_t nodes = static_cast<std::uint64_t>(imax + 1) *
                                static_cast<std::uint64_t>(jmax + 1) *
                                static_cast<std::uint64_t>(kmax + 1);
    return allocationbytes(st) + 7 * 8 * nodes;
}

std::string gib(std::uint64_t bytes) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f GiB", static_cast<double>(bytes) / (1u << 30));
    return buf;
}

void checkverticalcount(const CaseInput& in, Problems& p) {
    const double n = p.held("kmaxItm", true);
    if (!(n >= 1 && n <= 30)) {
        p.key("kmaxItm", true,
              "2^kmaxItm vertical cells must number at least 2 and at most 2^30, so kmaxItm "
              "must lie in 1..30");
        return;
    }
    if (in.ni < 2 || in.nj < 2) return;
    const int kmax = kmaxfromexponent(static_cast<int>(n));
    const std::uint64_t nodes = static_cast<std::uint64_t>(in.ni) *
                                static_cast<std::uint64_t>(in.nj) *
                                static_cast<std::uint64_t>(kmax + 1);
    const std::uint64_t memory = in.memory != 0 ? in.memory : physicalmemory();
    const std::uint64_t bytes = runbytes(in.ni - 1, in.nj - 1, kmax);
    const std::string grid = std::to_string(in.ni - 1) + " x " + std::to_string(in.nj - 1) + " x " +
                             std::to_string(kmax) + " cells";
    // Node arrays are indexed with 32-bit counts.
    if (nodes > (std::uint64_t{1} << 31)) {
        p.key("kmaxItm", true, "the grid of " + grid + " has more nodes than 2^31");
    } else if (bytes > memory) {
        p.key("kmaxItm", true,
              "the grid of " + grid + " needs " + gib(bytes) + ", more than the " + gib(memory) +
                  " of memory of this machine");
    }
}

} // namespace

std::vector<std::string> caseproblems(const CaseInput& in) {
    Problems p(in);
    checkbedgrid(in, p);
    checkverticalcount(in, p);

    p.finite("zminItm", "the bottom of the box");
    p.finite("zmaxItm", "the top of the box");
    const double zmin = p.held("zminItm"), zmax = p.held("zmaxItm");
    if (std::isfinite(zmin) && std::isfinite(zmax) && !(zmax > zmin)) {
        p.key("zmaxItm", false,
              "the top of the box must lie above \"zminItm\" = " + numbertext(zmin));
    }
    p.positive("viscItm", "the kinematic viscosity");
    p.positive("densItm", "the fluid density");
    p.finite("gravityItm", "the gravitational acceleration");
    p.finite("dischargeItm", "the discharge");
    const double timetype = p.held("timetypeItm", true);
    if (timetype == 1) {
        p.positive("timestepItm", "the fixed time step");
    } else if (timetype == 0) {
        p.positive("cflItm", "the Courant number");
    } else {
        p.key("timetypeItm", true,
              "it must be 0 (step from \"cflItm\") or 1 (fixed \"timestepItm\"); with any other "
              "value no time step is read and time does not advance");
    }
    // The real-valued switches are tested through the low half of their bits, as the solver does.
    if (int32view(p.held("iInitialItm")) == 1) {
        for (const char* k : {"xInitItm", "yInitItm", "zInitItm"})
            p.finite(k, "the initial velocity");
    }
    if (int32view(p.held("iPerturbItmItm")) == 1)
        p.finite("amplitudeItm", "the perturbation amplitude");
    if (p.held("iBedPerturbItm", true) == 1)
        p.finite("BAmplitudeItm", "the bed perturbation amplitude");
    if (p.held("StatisticsItm", true) == 1) {
        p.finite("StatStartItm", "the start time of the statistics");
    }
    p.finite("starttimeItm", "the start time");
    p.finite("endtimeItm", "the end time");
    p.positive("OTimeItm", "the interval of result writes");
    if (p.held("HotoutItm", true) == 1) p.positive("dtHotoutItm", "the restart interval");
    if (p.held("TecplotItm", true) == 1) p.positive("dtTecplotItm", "the Tecplot interval");
    const double ibed = p.held("BedItm", true);
    if (ibed == 1) p.finite("SedimentItm", "the grain size");
    if (ibed == 2) p.finite("RoughItm", "the roughness height");
    p.finite("smagorinskyItm", "the Smagorinsky constant");
    return p.lines_;
}

std::vector<std::string> outputproblems(const CaseInput& in) {
    Problems p(in);
    const bool restart = p.held("HotoutItm", true) == 1;
    const bool tecplot = p.held("TecplotItm", true) == 1;
    const bool statistics = p.held("StatisticsItm", true) == 1;
    if (!restart && !tecplot && !statistics) return {};
    const std::string outpath =
        in.text ? in.text("outpathItm").value_or(std::string()) : std::string();
    // The files are named outpath/outfile...: the folder is what comes before the name.
    const std::string folder = outputname(outpath, "", "");
    const std::string key = quoted("outpathItm") + " = " + quoted(outpath) + ": ";
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0) {
        p.add(key + "the output folder cannot be used (" + std::strerror(errno) + ")");
    } else if (!S_ISDIR(info.st_mode)) {
        p.add(key + "the output folder is not a folder");
    } else if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        p.add(key + "the output folder cannot be written (" + std::strerror(errno) + ")");
    }
    return p.lines_;
}

std::string restartfileproblem(const std::string& startfile) {
    const std::string key = quoted("StartfileItm") + " = " + quoted(startfile) + ": ";
    struct stat info {};
    if (::stat(startfile.c_str(), &info) != 0)
        return key + "the restart file cannot be read (" + std::strerror(errno) + ")";
    if (S_ISDIR(info.st_mode)) return key + "the restart file is a folder";
    if (::access(startfile.c_str(), R_OK) != 0)
        return key + "the restart file cannot be read (" + std::strerror(errno) + ")";
    return {};
}

CaseInput readcaseinput() {
    CaseInput in;
    int ni = 0, nj = 0, ier = 0;
    pf::CG_KAVEL_GOTOGRIDCOORD2D_F(ni, nj, ier);
    if (ier == 0 && ni >= 1 && nj >= 1) {
        in.ni = ni;
        in.nj = nj;
        try {
            const std::size_t nodes = static_cast<std::size_t>(ni) * static_cast<std::size_t>(nj);
            std::vector<double> x(nodes), y(nodes), elev(nodes);
            pf::CG_KAVEL_GETGRIDCOORD2D_F(x.data(), y.data(), ier);
            if (ier == 0) {
                in.x = std::move(x);
                in.y = std::move(y);
            }
            pf::CG_KAVEL_READ_GRID_REAL_NODE_F("Elevation", elev.data(), ier);
            if (ier == 0) in.elevation = std::move(elev);
        } catch (const std::bad_alloc&) {
            // Left empty: reported as unreadable.
        } catch (const std::length_error&) {
        }
    }
    in.condition = [](std::string_view key, bool integer) -> std::optional<double> {
        int rc = 0;
        if (integer) {
            int v = 0;
            pf::CG_KAVEL_READ_INTEGER_F(std::string(key), v, rc);
            if (rc == 0) return v;
        } else {
            double v = 0.0;
            pf::CG_KAVEL_READ_REAL_F(std::string(key), v, rc);
            if (rc == 0) return v;
        }
        return std::nullopt;
    };
    in.text = [](std::string_view key) -> std::optional<std::string> {
        int rc = 0;
        std::string v;
        pf::CG_KAVEL_READ_STRING_F(std::string(key), v, rc);
        if (rc == 0) return v;
        return std::nullopt;
    };
    return in;
}

} // namespace riffle
