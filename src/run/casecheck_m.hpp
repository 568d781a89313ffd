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
    // Memory the grid may take; 0: this machine's physical memory.
    std::uint64_t memory = 0;
};

// Every problem found, in the order the solver reads its input; empty when the case can run.
[[nodiscard]] std::vector<std::string> caseproblems(const CaseInput& in);

// Reads what caseproblems needs through the platform calls from the case file selected by
// CG_KAVEL_INIT_F. Nothing is written.
[[nodiscard]] CaseInput readcaseinput();

}  // namespace riffle
