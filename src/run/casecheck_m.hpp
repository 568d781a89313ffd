// Whether a case can be computed at all, decided before the solver changes anything in the case
// file. A case is refused when its input would make the solver compute infinities or NaN, or
// never reach its end time: no bed grid or fewer than 2 nodes in a direction, coordinates or
// "Elevation" that are not finite numbers, a vertical count below 2 cells or arrays beyond the
// machine's memory, a box without height, a viscosity or density that is not positive, a time
// step that is not positive, an output interval in use that is not positive, or any real
// condition the solver reads that is not a finite number. Missing keys are judged by the value
// the solver holds for them (zero), so an optional key left out is never a problem.
//
// Each problem is one line naming the key (in double quotes), its value and what is wrong, e.g.
//   "densItm" = 0: the fluid density must be a positive number
//   "kmaxItm" is missing (read as 0): 2^kmaxItm vertical cells must be at least 2 ...
// The solver prints the first after "ERROR : Failed to read the parameters ..."; riffle-case
// --check prints them all, in the same words.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace riffle {

struct CaseInput {
    // The bed grid: node counts (0 when the case has none), coordinates and "Elevation" with i
    // fastest; `elevation` is empty when the attribute is absent.
    int ni = 0, nj = 0;
    std::vector<double> x, y, elevation;
    // A calculation condition as stored (an integer key converted to double), or nothing when
    // the key is absent or stored with another type than the solver reads (`integer`: the
    // solver reads the key as an integer).
    std::function<std::optional<double>(std::string_view key, bool integer)> condition;
    // A text condition as stored, or nothing when it is absent or not text.
    std::function<std::optional<std::string>(std::string_view key)> text;
    // Memory the grid may take; 0: this machine's physical memory.
    std::uint64_t memory = 0;
};

// Every problem found, in the order the solver reads its input; empty when the case can run.
[[nodiscard]] std::vector<std::string> caseproblems(const CaseInput& in);

// The files a run would meet only after it has started, checked from the current folder, in the
// same words: the output folder ("outpathItm") must be a folder this process can write into
// wherever restart, Tecplot or statistics files are due. Empty when there is nothing to say.
[[nodiscard]] std::vector<std::string> outputproblems(const CaseInput& in);

// Why the restart file of a hot start cannot be read (it is missing, not a file, or not
// readable), e.g. "StartfileItm" = "run.dat": the restart file cannot be read (No such file or
// directory); empty when it can be opened.
[[nodiscard]] std::string restartfileproblem(const std::string& startfile);

// Reads what caseproblems needs through the platform calls from the case file selected by
// CG_KAVEL_INIT_F. Nothing is written.
[[nodiscard]] CaseInput readcaseinput();

} // namespace riffle
