#include "run/guard_m.hpp"

#include <atomic>
#include <cmath>
#include <csignal>
#include <limits>

#include "run/console_m.hpp"
#include "run/halo_m.hpp"
#include "run/messages.hpp"

namespace riffle::guard {

namespace {

// Set by the handlers, read by the time loop between steps.
std::atomic<int> stopsignal{0};
std::atomic<int> writeasked{0};
static_assert(std::atomic<int>::is_always_lock_free, "the handlers need a lock-free flag");

constexpr int stopsignals[] = {SIGTERM, SIGINT, SIGUSR2};

extern "C" void onstop(int sig) {
    int none = 0;
    if (!stopsignal.compare_exchange_strong(none, sig)) {
        // The second request: end now, as the signal does by default.
        std::signal(sig, SIG_DFL);
        std::raise(sig);
    }
}

extern "C" void onwrite(int) { writeasked.store(1); }

void handle(int sig, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART; // a read or write in progress goes on
    sigaction(sig, &action, nullptr);
}

} // namespace

void catchsignals() {
    for (const int sig : stopsignals)
        handle(sig, onstop);
    handle(SIGUSR1, onwrite);
}

void releasesignals() {
    for (const int sig : stopsignals)
        handle(sig, SIG_DFL);
    handle(SIGUSR1, SIG_DFL);
    stopsignal.store(0);
    writeasked.store(0);
}

Request takerequest(const Storage& st) {
    Request r{stopsignal.load(), writeasked.exchange(0) != 0};
    if (st.dec.distributed()) {
        // One value per rank: the signal number above the write bit; the largest wins, and a
        // stop writes anyway.
        const double agreed = allmax(2.0 * r.stop + (r.write ? 1.0 : 0.0));
        r.stop = static_cast<int>(agreed / 2.0);
        r.write = agreed >= 1.0;
    }
    if (r.stop != 0) r.write = true;
    return r;
}

std::string signalname(int sig) {
    switch (sig) {
    case SIGTERM:
        return "SIGTERM";
    case SIGINT:
        return "SIGINT";
    case SIGUSR1:
        return "SIGUSR1";
    case SIGUSR2:
        return "SIGUSR2";
    default:
        return "signal " + std::to_string(sig);
    }
}

bool finite(const Storage& st) { return std::isfinite(st.dt) && std::isfinite(st.divtotal); }

namespace {

// The first point of `f` over ri x rj x rk (k, j, i order) that is not finite, in the indices of
// the whole box; k = infinity when there is none.
struct Point {
    double k = std::numeric_limits<double>::infinity(), j = 0.0, i = 0.0, value = 0.0;
};

Point firstpoint(const Field3d& f, Range ri, Range rj, Range rk, int gi, int gj) {
    for (int k = rk.lo; k <= rk.hi; ++k)
        for (int j = rj.lo; j <= rj.hi; ++j)
            for (int i = ri.lo; i <= ri.hi; ++i)
                if (!std::isfinite(f(i, j, k))) {
                    return Point{static_cast<double>(k), static_cast<double>(j + gj),
                                 static_cast<double>(i + gi), f(i, j, k)};
                }
    return Point{};
}

// The value's kind as a number every rank can reduce, and back.
double kind(double v) { return std::isnan(v) ? 0.0 : v > 0 ? 1.0 : 2.0; }
std::string kindtext(double k) { return k == 0.0 ? "NaN" : k == 1.0 ? "Infinity" : "-Infinity"; }

} // namespace

std::string nonfinitereport(const Storage& st) {
    const std::string head = std::string(messages::error_nonfinite) + " at step " +
                             std::to_string(st.istep) + ", time " + console::shorttext(st.time) +
                             ": ";
    if (!std::isfinite(st.dt)) return head + "the time step dt = " + kindtext(kind(st.dt));
    const bool blocks = st.dec.distributed();
    const int gi = st.ioffset(), gj = st.joffset();
    const std::pair<const char*, const Field3d*> fields[] = {
        {"u", &st.u}, {"v", &st.v}, {"w", &st.w}, {"p", &st.p}};
    constexpr double none = std::numeric_limits<double>::infinity();
    for (const bool inside : {true, false}) {
        for (const auto& [name, field] : fields) {
            const Point p = inside ? firstpoint(*field, Range{1, st.imax}, Range{1, st.jmax},
                                                Range{1, st.kmax}, gi, gj)
                                   : firstpoint(*field, field->irange(), field->jrange(),
                                                field->krange(), gi, gj);
            double k = p.k, j = p.j, i = p.i, what = kind(p.value);
            if (blocks) {
                // The first point over every rank: the lowest k, then j, then i.
                k = allmin(p.k);
                j = allmin(p.k == k ? p.j : none);
                i = allmin(p.k == k && p.j == j ? p.i : none);
                what = allmax(p.k == k && p.j == j && p.i == i ? what : -1.0);
            }
            if (!std::isfinite(k)) continue;
            const auto index = [](double x) { return std::to_string(static_cast<long>(x)); };
            return head + name + " = " + kindtext(what) + " at (i, j, k) = (" + index(i) + ", " +
                   index(j) + ", " + index(k) + ")";
        }
    }
    return head + "the sum of the divergence = " + console::shorttext(st.divtotal);
}

} // namespace riffle::guard
