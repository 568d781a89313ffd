#include "fuzz/targets.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "bedcsv.hpp"
#include "casebuild.hpp"
#include "run/initial_m.hpp"
#include "run/restart_m.hpp"
#include "run/storage_m.hpp"

namespace riffle::fuzz {

bool restart(std::string_view text) {
    static Storage st = [] {
        Storage s;
        s.imax = 4;
        s.jmax = 2;
        s.kmax = 2;
        allocation(s);
        initialfields(s);
        return s;
    }();
    std::string stored, scanned;
    try {
        restartparse(st, text);
    } catch (const RestartError& e) {
        stored = e.what();
    }
    try {
        restartscan(st.imax, st.jmax, st.kmax, text);
    } catch (const RestartError& e) {
        scanned = e.what();
    }
    if (stored != scanned) throw std::logic_error("read and dry run differ: " + stored + scanned);
    return stored.empty();
}

bool recipe(std::string_view text) {
    using namespace casebuilder;
    try {
        const Recipe r = parserecipe(text, "fuzz.recipe", "/nonexistent-riffle-folder");
        const auto given = [&](const char* key, int fallback) {
            const Entry* e = r.find(key);
            return e != nullptr ? std::get<int>(e->value) : fallback; // the type is checked
        };
        // A bed file is read by its own target; here it could name any file (/dev/zero).
        const Entry* bed = r.find("bed");
        if (bed != nullptr && std::get<std::string>(bed->value) == "csv") return true;
        if (1LL * given("ni", 65) * given("nj", 17) <= (1 << 14)) (void)buildcase(r);
        return true;
    } catch (const RecipeError&) {
        return false;
    }
}

bool bedcsv(std::string_view text) {
    using namespace casebuilder;
    std::vector<Point> points;
    try {
        points = parsepoints(text, "fuzz.csv");
    } catch (const RecipeError&) {
        return false;
    }
    const auto [xlo, xhi] = std::ranges::minmax(points, {}, &Point::x);
    const auto [ylo, yhi] = std::ranges::minmax(points, {}, &Point::y);
    const double x0 = xlo.x, y0 = ylo.y, w = xhi.x - x0, h = yhi.y - y0;
    const Interpolator at(std::move(points), 1e-9 * std::max(w, h));
    // The box's corners, centre and around it; then far from it (grid nodes may lie anywhere).
    for (const double fx : {-1.0, 0.0, 0.5, 1.0, 2.0})
        for (const double fy : {-1.0, 0.0, 0.5, 1.0, 2.0})
            (void)at(x0 + fx * w, y0 + fy * h);
    for (const double x : {-1e15, 0.0, 1e15})
        for (const double y : {-1e15, 0.0, 1e15})
            (void)at(x, y);
    return true;
}

} // namespace riffle::fuzz
