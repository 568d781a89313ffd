// Private helpers shared by kavellib.cpp and casefile.cpp: the node names of the case-file layout
// (see kavellib.hpp), a careful open that never touches a file that is not a CGNS file, lookups of
// nodes by name, and the reading of the bed grid and of one stored calculation condition.
//
// Every helper returns CG_OK (0) on success, otherwise a CGNS return code (the library's text is
// then in cg_get_error()) or one of the codes below for a fault that the library does not see.
#pragma once

#include <cgnslib.h>

#include <string>
#include <vector>

#include "platform/casefile.hpp"

namespace riffle::platform::cgnsutil {

// Names of the layout.
inline constexpr const char* flow_base = "Flow";
inline constexpr const char* case_base = "Case";
inline constexpr const char* bed_zone = "Bed";
inline constexpr const char* box_zone = "Box";
// The bed as a surface in 3-D space, for the bed's node fields over time: a base of its own (a
// zone of fewer dimensions than its base is not valid CGNS), written after /Flow and /Case.
inline constexpr const char* surface_base = "Bed";
inline constexpr const char* surface_zone = "Surface";
inline constexpr const char* conditions_node = "CalculationConditions";
inline constexpr const char* conditions_path = "/Case/CalculationConditions";
inline constexpr const char* attributes_node = "NodeAttributes";
inline constexpr const char* elevation_field = "Elevation";
inline constexpr const char* base_iter_node = "BaseIterativeData";
inline constexpr const char* time_values = "TimeValues";
inline constexpr const char* zone_iter_node = "ZoneIterativeData";
inline constexpr const char* sol_pointers = "FlowSolutionPointers";
inline constexpr const char* sol_prefix = "FlowSolution";

// Faults found by these helpers rather than by the library (kept clear of CGNS's codes 0..4).
inline constexpr int missing_file = 101; // no regular file at the path
inline constexpr int not_cgns = 102;     // unreadable, or not a CGNS file of a known type
inline constexpr int bad_layout = 103;   // a node exists but has another type or shape

// Words for a return code, for error messages: the library's text for its own codes.
std::string describe(int rc);

// Opens a CGNS file with cg_open (mode CG_MODE_READ or CG_MODE_MODIFY). The file's type is
// checked read-only first, so a missing, unreadable or foreign file is never opened for writing.
int openfile(const std::string& path, int mode, int& fn);

// 1-based index of the base, zone or flow solution with that name (CG_NODE_NOT_FOUND if none).
int findbase(int fn, const char* name, int& B);
int findzone(int fn, int B, const char* name, int& Z);
int findsol(int fn, int B, int Z, const char* name, int& S);
// 1-based index of the DataArray_t with that name under the node of the last cg_goto/cg_gopath.
int findarray(const char* name, int& A);

// Locates /Case and its zone Bed, which must be a structured 2-D zone.
int locatebed(int fn, int& B, int& Z);
// Node counts of the bed zone.
int bedsize(int fn, int B, int Z, int& ni, int& nj);
// Its node coordinates and a real node attribute of NodeAttributes (Vertex), ni*nj values each.
int readbedcoords(int fn, int B, int Z, std::vector<double>& x, std::vector<double>& y);
int readbedattribute(int fn, int B, int Z, const char* name, std::vector<double>& values);

// The DataArray_t number A under the current node as a stored condition: its type and length,
// and its value where it is an integer or real of length 1 or a 1-D string.
int readcondition(int A, StoredCondition& c);

} // namespace riffle::platform::cgnsutil
