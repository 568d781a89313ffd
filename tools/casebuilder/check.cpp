#include "check.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <ostream>

#include "messages.hpp"
#include "run/casecheck_m.hpp"
#include "run/storage_m.hpp"

namespace riffle::casebuilder {

namespace {

// CGNS data-type names as the case file reports them.
std::string_view storedtype(KeyType type) {
    switch (type) {
    case KeyType::integer:
        return "Integer";
    case KeyType::real:
        return "RealDouble";
    case KeyType::string:
        return "Character";
    }
    return "";
}

bool readable(const KeySpec& cond, const platform::StoredCondition& s) {
    return s.datatype == storedtype(cond.type) && (cond.type == KeyType::string || s.length == 1);
}

std::optional<Value> storedvalue(const platform::StoredCondition& s) {
    if (const auto* i = std::get_if<int>(&s.value)) return Value{*i};
    if (const auto* d = std::get_if<double>(&s.value)) return Value{*d};
    if (const auto* t = std::get_if<std::string>(&s.value)) return Value{*t};
    return std::nullopt;
}

// The values the solver holds after reading: the stored one where it is read, else the zero of
// its storage.
class Held {
public:
    void set(std::string_view key, Value v) {
        values_.insert_or_assign(std::string(key), std::move(v));
    }
    [[nodiscard]] const Value& operator[](std::string_view key) const {
        return values_.find(key)->second;
    }
    [[nodiscard]] double real(std::string_view key) const {
        const Value& v = (*this)[key];
        return std::holds_alternative<int>(v) ? std::get<int>(v) : std::get<double>(v);
    }
    [[nodiscard]] int integer(std::string_view key) const { return std::get<int>((*this)[key]); }
    // What a read-when test compares: an integer as it is, a real through its int32 view.
    [[nodiscard]] int tested(std::string_view key) const {
        const Value& v = (*this)[key];
        return std::holds_alternative<int>(v) ? std::get<int>(v) : int32view(std::get<double>(v));
    }

private:
    std::map<std::string, Value, std::less<>> values_;
};

Value zeroof(KeyType type) { return defaultvalue(type, Default{}); }

// Largest difference between the first and last node rows across x (or y).
double periodicjump(const platform::BedGrid& bed, bool alongx) {
    double jump = 0.0;
    const int lines = alongx ? bed.nj : bed.ni;
    for (int m = 0; m < lines; ++m) {
        const std::size_t first = alongx ? static_cast<std::size_t>(m) * bed.ni : m;
        const std::size_t last =
            alongx ? first + bed.ni - 1 : static_cast<std::size_t>(bed.nj - 1) * bed.ni + m;
        jump = std::max(jump, std::abs(bed.elevation[last] - bed.elevation[first]));
    }
    return jump;
}

std::vector<std::string> warnings(const Held& held, const Report& report) {
    std::vector<std::string> w;
    const platform::BedGrid& bed = report.bed;
    const bool hasbed = bed.ni >= 1 && bed.nj >= 1 &&
                        bed.elevation.size() == static_cast<std::size_t>(bed.ni) * bed.nj;

    // Box and bed (a vertical count or a box height the solver refuses is an error, not here).
    const int n = held.integer("kmaxItm");
    const double zmin = held.real("zminItm"), zmax = held.real("zmaxItm");
    double dz = 0.0;
    if (n >= 1 && n <= 30 && zmax > zmin) {
        dz = (zmax - zmin) / std::ldexp(1.0, n);
        if (hasbed) {
            const auto [lo, hi] = std::minmax_element(bed.elevation.begin(), bed.elevation.end());
            const double zc1 = zmin + 0.5 * dz;
            if (*lo < zc1) w.push_back(msg::warn_bed_below_first_centre(*lo, zc1));
            if (*hi >= zmax) w.push_back(msg::warn_bed_reaches_top(*hi, zmax));
        }
    }
    if (hasbed) {
        if (bed.ni - 1 < 2) w.push_back(msg::warn_few_cells('x', bed.ni - 1));
        if (bed.nj - 1 < 2) w.push_back(msg::warn_few_cells('y', bed.nj - 1));
        // A jump below a thousandth of a cell height cannot be seen by the flow.
        const double tolerance = dz > 0.0 ? 1e-3 * dz : 1e-12;
        // x is periodic whatever xBoundItm says; y only with yBoundItm = 0.
        if (const double j = periodicjump(bed, true); j > tolerance)
            w.push_back(msg::warn_not_periodic('x', j));
        if (held.integer("yBoundItm") == 0) {
            if (const double j = periodicjump(bed, false); j > tolerance)
                w.push_back(msg::warn_not_periodic('y', j));
        }
    }

    // Flow and time.
    if (const double q = held.real("dischargeItm"); !(q > 0.0)) w.push_back(msg::warn_discharge(q));
    const double start = held.real("starttimeItm"), end = held.real("endtimeItm");
    if (!(end > start)) w.push_back(msg::warn_endtime(start, end));
    // The solver zeroes the velocities inside the bed only after steps shorter than 0.8 ms; with
    // a longer fixed step, cells below the bed keep a flow of their own.
    if (const double dt = held.real("timestepItm");
        held.integer("timetypeItm") == 1 && dt >= 0.0008 && hasbed && dz > 0.0 &&
        *std::max_element(bed.elevation.begin(), bed.elevation.end()) > zmin + 0.5 * dz) {
        w.push_back(msg::warn_free_solid(dt));
    }
    // A fixed step that carries the bulk flow across more than one cell.
    if (const double dt = held.real("timestepItm");
        held.integer("timetypeItm") == 1 && dt > 0.0 && hasbed && bed.ni >= 2 && bed.nj >= 2 &&
        bed.x.size() == bed.elevation.size() && bed.y.size() == bed.elevation.size()) {
        const double mean = std::accumulate(bed.elevation.begin(), bed.elevation.end(), 0.0) /
                            static_cast<double>(bed.elevation.size());
        const double width = bed.y.back() - bed.y.front();
        const double dx = (bed.x.back() - bed.x.front()) / (bed.ni - 1);
        const double velocity = held.real("dischargeItm") / (width * (zmax - mean));
        const double courant = velocity * dt / dx;
        if (std::isfinite(courant) && courant > 1.0 && velocity > 0.0)
            w.push_back(msg::warn_courant(dt, courant, velocity, dx));
    }

    // Real-valued switches whose int32 view hides their value.
    for (const KeyReport& k : report.keys) {
        const std::string_view key = k.condition->key;
        const bool isswitch = std::any_of(conditionkeys.begin(), conditionkeys.end(),
                                          [&](const KeySpec& s) { return s.when == key; });
        if (isswitch && k.condition->type == KeyType::real && held.real(key) != 0.0 &&
            held.tested(key) == 0)
            w.push_back(msg::warn_switch_view(key, held.real(key)));
    }
    return w;
}

} // namespace

int Report::problems() const {
    return static_cast<int>(errors.size()) +
           static_cast<int>(std::count_if(keys.begin(), keys.end(), [](const KeyReport& k) {
               return k.status == Status::missing || k.status == Status::wrongtype;
           }));
}

Report checkcase(const std::vector<platform::StoredCondition>& stored, const platform::BedGrid& bed,
                 bool files) {
    Report report;
    report.bed = bed;
    Held held;
    for (const KeySpec& cond : conditionkeys) {
        KeyReport k;
        k.condition = &cond;
        const auto s =
            std::find_if(stored.begin(), stored.end(),
                         [&](const platform::StoredCondition& c) { return c.key == cond.key; });
        if (s != stored.end()) {
            k.stored = s->datatype + "(" + std::to_string(s->length) + ")";
            k.value = storedvalue(*s);
        }
        bool read = true;
        if (cond.op != WhenOp::always) {
            const int v = held.tested(cond.when);
            read = cond.op == WhenOp::equal ? v == cond.whenvalue : v != cond.whenvalue;
            if (!read) {
                k.reason = std::string(cond.when) + " = " + valuetext(held[cond.when]);
                const Value& w = held[cond.when];
                if (std::holds_alternative<double>(w) && std::get<double>(w) != v)
                    k.reason += ", tested as " + std::to_string(v);
            }
        }
        k.readable = s != stored.end() && readable(cond, *s) && k.value.has_value();
        const bool ok = k.readable;
        if (!read) {
            k.status = Status::notread;
        } else if (s == stored.end() && cond.optional) {
            k.status = Status::notread;
            k.reason = "absent (optional: off)";
        } else if (s == stored.end()) {
            k.status = Status::missing;
        } else {
            k.status = ok ? Status::ok : Status::wrongtype;
        }
        held.set(cond.key, k.status == Status::ok ? *k.value : zeroof(cond.type));
        report.keys.push_back(std::move(k));
    }
    for (const platform::StoredCondition& s : stored)
        if (!findcondition(s.key)) report.others.push_back(s.key);
    report.warnings = warnings(held, report);

    // What the solver refuses to compute, in its own words.
    CaseInput in;
    in.ni = bed.ni;
    in.nj = bed.nj;
    in.x = bed.x;
    in.y = bed.y;
    in.elevation = bed.elevation;
    in.condition = [&report](std::string_view key, bool) -> std::optional<double> {
        for (const KeyReport& k : report.keys) {
            if (k.condition->key != key || !k.readable || !k.value) continue;
            if (const auto* i = std::get_if<int>(&*k.value)) return *i;
            if (const auto* d = std::get_if<double>(&*k.value)) return *d;
        }
        return std::nullopt;
    };
    in.text = [&report](std::string_view key) -> std::optional<std::string> {
        for (const KeyReport& k : report.keys) {
            if (k.condition->key != key || !k.readable || !k.value) continue;
            if (const auto* t = std::get_if<std::string>(&*k.value)) return *t;
        }
        return std::nullopt;
    };
    report.errors = caseproblems(in);
    if (files) {
        for (std::string& e : outputproblems(in))
            report.errors.push_back(std::move(e));
        if (held.integer("HotstartItm") == 1) {
            const std::string startfile = in.text("StartfileItm").value_or(std::string());
            if (std::string e = restartfileproblem(startfile); !e.empty())
                report.errors.push_back(std::move(e));
        }
    }
    return report;
}

std::vector<platform::StoredCondition>
asstored(const std::vector<platform::Condition>& conditions) {
    std::vector<platform::StoredCondition> out;
    for (const platform::Condition& c : conditions) {
        platform::StoredCondition s{c.key, {}, 1, {}};
        if (const auto* i = std::get_if<int>(&c.value)) {
            s.datatype = storedtype(KeyType::integer);
            s.value = *i;
        } else if (const auto* d = std::get_if<double>(&c.value)) {
            s.datatype = storedtype(KeyType::real);
            s.value = *d;
        } else {
            const std::string& t = std::get<std::string>(c.value);
            s.datatype = storedtype(KeyType::string);
            s.length = static_cast<long>(t.size());
            s.value = t;
        }
        out.push_back(std::move(s));
    }
    return out;
}

void printreport(std::ostream& out, const Report& report) {
    const platform::BedGrid& bed = report.bed;
    if (!bed.elevation.empty() && bed.x.size() == bed.elevation.size() &&
        bed.y.size() == bed.elevation.size()) {
        const auto [lo, hi] = std::minmax_element(bed.elevation.begin(), bed.elevation.end());
        out << "Bed grid: " << bed.ni << " x " << bed.nj << " nodes, x "
            << numbertext(bed.x.front()) << " .. " << numbertext(bed.x.back()) << ", y "
            << numbertext(bed.y.front()) << " .. " << numbertext(bed.y.back()) << ", bed z "
            << numbertext(*lo) << " .. " << numbertext(*hi) << "\n";
    }
    out << "Calculation conditions in reading order:\n";
    for (const KeyReport& k : report.keys) {
        std::string line = "  ";
        auto column = [&](std::string_view text, std::size_t width) {
            line += text;
            line.append(text.size() < width ? width - text.size() : 1, ' ');
        };
        column(k.condition->key, 16);
        column(typetext(k.condition->type), 9);
        column(k.value ? valuetext(*k.value) : std::string("-"), 24);
        switch (k.status) {
        case Status::ok:
            break;
        case Status::notread:
            line += "not read (" + k.reason + ")";
            break;
        case Status::missing:
            line += "MISSING";
            break;
        case Status::wrongtype:
            line += "WRONG TYPE: stored " + k.stored + ", read as " +
                    std::string(typetext(k.condition->type));
            break;
        }
        const auto end = line.find_last_not_of(' ');
        out << line.substr(0, end + 1) << "\n";
    }
    for (const std::string& key : report.others)
        out << "  " << key << ": stored, but not a calculation condition (the solver ignores it)\n";
    for (const std::string& w : report.warnings)
        out << "warning: " << w << "\n";
    for (const std::string& e : report.errors)
        out << "error: " << e << "\n";
    const int problems = report.problems() - static_cast<int>(report.errors.size());
    if (problems == 0)
        out << "All conditions the solver reads are present with the right type.\n";
    else
        out << problems << " condition" << (problems == 1 ? " is" : "s are")
            << " missing or stored with the wrong type.\n";
    if (!report.errors.empty())
        out << "The solver refuses this case (\"ERROR : Failed to read the parameters ...\").\n";
}

} // namespace riffle::casebuilder
