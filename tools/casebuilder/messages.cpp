#include "messages.hpp"

#include <cmath>
#include <cstdio>

#include "run/console_m.hpp"

namespace riffle::casebuilder {

std::string numbertext(double value) { return console::shorttext(value); }

std::string quoted(std::string_view text) { return console::quoted(text); }

std::string located(std::string_view file, int line, std::string_view message) {
    std::string out(file);
    if (line > 0) {
        out += ':';
        out += std::to_string(line);
    }
    out += ": ";
    out += message;
    return out;
}

namespace msg {

namespace {
std::string q(std::string_view s) { return quoted(s); }
std::string n(double v) { return numbertext(v); }
} // namespace

std::string no_value(std::string_view key) { return "no value for " + q(key); }

std::string unknown_key(std::string_view key, std::string_view suggestion) {
    std::string m = "unknown key " + q(key);
    if (!suggestion.empty()) m += " (did you mean " + q(suggestion) + "?)";
    return m;
}

std::string given_twice(std::string_view key, int firstline) {
    return q(key) + " given twice (first on line " + std::to_string(firstline) + ")";
}

std::string needs_number(std::string_view key, std::string_view text) {
    return q(key) + " needs a number, got " + q(text);
}

std::string needs_integer(std::string_view key, std::string_view text) {
    return q(key) + " needs a 32-bit integer, got " + q(text);
}

std::string text_too_long(std::string_view key, std::size_t limit) {
    return q(key) + " is longer than the solver's " + std::to_string(limit) + " characters";
}

std::string unknown_bed(std::string_view text) {
    return "bed must be flat, sinusoid, dunes or csv, got " + q(text);
}

std::string not_for_bed(std::string_view key, std::string_view bed) {
    return q(key) + " does not apply to bed = " + std::string(bed);
}

std::string csv_needs_file() { return "bed = csv needs csvfile = FILE"; }

std::string too_few_nodes(std::string_view key, int count) {
    return std::string(key) + " = " + std::to_string(count) +
           " leaves no cell: at least 2 nodes are needed";
}

std::string not_increasing(std::string_view lowkey, double low, std::string_view highkey,
                           double high) {
    return std::string(highkey) + " = " + n(high) + " must be greater than " + std::string(lowkey) +
           " = " + n(low);
}

std::string grid_too_large(double nodes) {
    return "the 3-D grid would have " + n(nodes) +
           " nodes, more than the 2147483647 a case file can hold";
}

std::string kmax_out_of_range(int exponent) {
    return "kmaxItm = " + std::to_string(exponent) +
           " gives no vertical cells: kmax = 2^n needs n in 0..31";
}

std::string must_be_positive(std::string_view key, double value) {
    return std::string(key) + " = " + n(value) + " must be positive";
}

std::string lee_angle_range(double degrees) {
    return "leeangle = " + n(degrees) + " must lie strictly between 0 and 90 degrees";
}

std::string lee_too_long(double height, double degrees, double leelength, double length) {
    return "a dune of height " + n(height) + " with a " + n(degrees) +
           " degree lee needs a lee face " + n(leelength) +
           " long, not less than the dune length " + n(length);
}

std::string top_not_above_bed(double zmax, double zbmin) {
    return "zmaxItm = " + n(zmax) + " must lie above the lowest bed point z = " + n(zbmin);
}

std::string no_water(double zmax, double meanbed) {
    return "zmaxItm = " + n(zmax) + " leaves no water above the mean bed level " + n(meanbed) +
           ", so velocity cannot set the discharge";
}

std::string velocity_and_discharge() { return "give either velocity or dischargeItm, not both"; }

std::string cannot_open_bedfile(std::string_view path) {
    return "cannot read the bed file " + q(path);
}

std::string bad_bed_row(std::string_view text) {
    return "expected three numbers \"x, y, z\", got " + q(text);
}

std::string warn_bed_below_first_centre(double zbmin, double zc1) {
    return "the lowest bed point z = " + n(zbmin) +
           " lies below the first cell centre zc(1) = " + n(zc1) +
           ": the bed there is felt only through the bottom boundary";
}

std::string warn_bed_reaches_top(double zbmax, double zmax) {
    return "the highest bed point z = " + n(zbmax) +
           " reaches the top of the box zmaxItm = " + n(zmax) + ": the flow is blocked there";
}

std::string warn_endtime(double starttime, double endtime) {
    return "endtimeItm = " + n(endtime) + " is not after starttimeItm = " + n(starttime) +
           ": exactly one step is made";
}

std::string warn_free_solid(double timestep) {
    return "timestepItm = " + n(timestep) +
           " is not below 0.0008: the flow inside the bed is then not set to zero each step, and "
           "on a fine grid it can grow until the run diverges";
}

std::string warn_courant(double timestep, double courant, double velocity, double dx) {
    const auto two = [](double v) { // two significant digits
        char text[32];
        std::snprintf(text, sizeof text, "%.2g", v);
        return std::string(text);
    };
    return "timestepItm = " + n(timestep) + " gives a Courant number of " + two(courant) +
           " at the bulk velocity " + two(velocity) + " m/s over cells " + two(dx) +
           " m long: above 1 the flow blows up within a few steps; a fixed step below " +
           two(dx / velocity) + " s, or timetypeItm = 0 with cflItm, keeps it below 1";
}

std::string warn_few_cells(char axis, int cells) {
    return "the grid has " + std::to_string(cells) + " cell" + (cells == 1 ? "" : "s") + " in " +
           axis + ": at least 2 are needed for differences across the periodic or wall boundary";
}

std::string warn_switch_view(std::string_view key, double value) {
    return std::string(key) + " = " + n(value) +
           " is tested through the low 32 bits of its bit pattern, which are 0 for it: the switch "
           "acts as 0";
}

std::string warn_discharge(double discharge) {
    return "dischargeItm = " + n(discharge) + " is not positive: no flow is driven downstream";
}

std::string warn_not_periodic(char axis, double jump) {
    return std::string("the bed is not periodic in ") + axis +
           ": the first and last node rows differ by up to " + n(jump) +
           ", so it jumps at the periodic " + axis + " boundary";
}

std::string warn_extension(std::string_view output) {
    return q(output) + " does not end in .cgns, the only extension ParaView recognises";
}

std::string replayed_journal(std::string_view casepath) {
    return std::string(casepath) + ": completed the update a crash interrupted, from " +
           std::string(casepath) + ".journal";
}

const char* const usage =
    "usage: riffle-case RECIPE [-o OUT.cgns] | --check CASE.cgns | --list-keys | --version | "
    "--help";

const char* const help =
    "riffle-case: write a Riffle case file from a recipe, or check a case file.\n"
    "\n"
    "  riffle-case RECIPE [-o OUT.cgns]\n"
    "      Reads RECIPE (\"key = value\" lines, # comments) and writes the case file: the bed "
    "grid\n"
    "      with its elevation and every calculation condition, defaults for those not given.\n"
    "      OUT defaults to the recipe's \"output\" key, else to the recipe's base name + .cgns in\n"
    "      the current folder. On an error prints one line FILE:LINE: message and writes nothing.\n"
    "  riffle-case --check CASE.cgns\n"
    "      Lists every calculation condition in the order the solver reads it, with its value,\n"
    "      and says which are missing, stored with the wrong type or not read; then warnings.\n"
    "  riffle-case --list-keys\n"
    "      Lists every recipe key with its default and meaning.\n"
    "  riffle-case --version\n"
    "      The version, the commit and the build's options.\n"
    "  riffle-case --help\n"
    "      This text.\n"
    "\n"
    "Exit status: 0 success (for --check: nothing the solver reads is missing or of the wrong\n"
    "type; warnings do not count); 1 a recipe error, an unreadable file, or (--check) a missing\n"
    "or wrongly typed condition; 2 a wrong command line.\n"
    "The manual is docs/case-builder.md (installed in share/doc/riffle).\n";

} // namespace msg
} // namespace riffle::casebuilder
