// Making and inspecting case files: what the case builder writes and what its --check reads.
// The layout is the one described in kavellib.hpp.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace riffle::platform {

// A CGNS call failed; the message names the file, the step and the library's own error text.
class CaseFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    CaseFileError(const std::string& what, int disk) : std::runtime_error(what), disk_(disk) {}
    // The errno of a disk that refused the write (no space, quota, file size limit, I/O error,
    // read-only file system); 0 for any other failure.
    [[nodiscard]] int diskerror() const { return disk_; }

private:
    int disk_ = 0;
};

// One calculation condition as stored: an integer (I4), a real (R8) or a string (C1).
struct Condition {
    std::string key;
    std::variant<int, double, std::string> value;
};

// The 2-D bed grid: ni x nj nodes, arrays of ni*nj values with i fastest.
struct BedGrid {
    int ni = 0, nj = 0;
    std::vector<double> x, y, elevation;
};

// Writes a new case file at `path` (replacing any file there): an empty /Flow base first, so that
// viewers that open only the first base show the results, then /Case with the conditions and the
// bed. Written to a temporary name beside `path` and renamed into place, so an interrupted write
// never leaves a half-made case. Throws CaseFileError.
void writecasefile(const std::string& path, const BedGrid& bed,
                   const std::vector<Condition>& conditions);

// One node field of a results file: its name and ni*nj*nk values, i fastest.
struct NodeField {
    std::string name;
    const double* values;
};

// The bed as a surface under the box of a results file: ni x nj nodes (the box's columns) with
// coordinates x, y, z (z the bed elevation) and its node fields, ni*nj values each, i fastest.
struct BedSurface {
    int ni = 0, nj = 0;
    const double* x = nullptr;
    const double* y = nullptr;
    const double* z = nullptr;
    std::vector<NodeField> fields;
};

// Writes a results file at `path` (replacing any file there) in the layout of a case file's
// results (base /Flow, zone Box of ni x nj x nk nodes with coordinates x, y, z, one solution
// FlowSolution1 at `time` holding `fields`), so that viewers open it as they open a case. Each
// of `notes` is stored as an R8(1) array under the UserDefinedData_t /Flow/`notesnode`. With a
// `surface`, a second base /Bed holds it as a case file does (zone Surface of ni x nj nodes, its
// fields in its own FlowSolution1 at `time`); without, there is no such base. Written to a
// temporary name beside `path` and renamed into place. Throws CaseFileError.
void writeresultsfile(const std::string& path, int ni, int nj, int nk, const double* x,
                      const double* y, const double* z, double time,
                      const std::vector<NodeField>& fields, const std::string& notesnode,
                      const std::vector<std::pair<std::string, double>>& notes,
                      const BedSurface* surface = nullptr);

// What is stored under a condition's key, for reports: its CGNS data type ("Integer",
// "RealDouble", "Character", ...), its length and, where the type is one of the three, its value.
struct StoredCondition {
    std::string key;
    std::string datatype;
    long length = 0;
    std::variant<std::monostate, int, double, std::string> value;
};

// Every condition stored in /Case/CalculationConditions, in stored order. Throws CaseFileError
// when the file cannot be opened or has no such node.
std::vector<StoredCondition> listconditions(const std::string& path);

// The bed grid of a case file; `elevation` stays empty when the grid has no "Elevation". Throws
// CaseFileError.
BedGrid readbed(const std::string& path);

} // namespace riffle::platform
