// What the solver will make of a case: for every calculation condition, in reading order, whether
// it is read (its read-when condition holds for the values the solver will hold, a missing or
// mistyped key counting as zero, as in its zero-initialised storage), and whether it is stored
// with the type the solver reads (I4 for integers, R8 for reals, both of length 1; C1 for text).
// Then warnings for cases that run, but poorly: a bed below the first cell centre, no vertical
// cells, a time step that cannot advance, one step only, too few cells, a bed that jumps at a
// periodic boundary, and the like (messages.hpp has them all).
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "keys.hpp"
#include "platform/casefile.hpp"

namespace riffle::casebuilder {

enum class Status { ok, missing, wrongtype, notread };

struct KeyReport {
    const KeySpec* condition = nullptr;
    Status status = Status::missing;
    std::string stored; // stored data type and length, e.g. "RealDouble(1)"; empty if absent
    std::optional<Value> value; // the stored value, where it is an integer, real or text
    std::string reason;         // for a key that is not read: the switch that rules it out
    bool readable = false;      // stored with the type and length the solver reads
};

struct Report {
    std::vector<KeyReport> keys;     // one per calculation condition, in reading order
    std::vector<std::string> others; // stored keys the solver does not know (it ignores them)
    std::vector<std::string> warnings;
    std::vector<std::string> errors; // what the solver refuses to compute (caseproblems)
    platform::BedGrid bed;

    // Keys the solver reads that are missing or stored with the wrong type, and the errors.
    [[nodiscard]] int problems() const;
};

// With `files`, the files a run from the current folder would meet only later count among the
// errors too, in the solver's words: the output folder and the restart file of a hot start.
[[nodiscard]] Report checkcase(const std::vector<platform::StoredCondition>& stored,
                               const platform::BedGrid& bed, bool files = false);

// The conditions as a case file stores them, so the builder can check a case before writing it.
[[nodiscard]] std::vector<platform::StoredCondition>
asstored(const std::vector<platform::Condition>& conditions);

// The report as --check prints it.
void printreport(std::ostream& out, const Report& report);

} // namespace riffle::casebuilder
