// The host platform's solver I/O calls over a CGNS case file (CGNS mid-level library, HDF5).
//
// Layout of a case file (i fastest in every array):
//   /Flow                      CGNSBase_t, cell dim 3, phys dim 3 (results; the first base)
//     BaseIterativeData        NumberOfSteps N, TimeValues R8(N)
//     Box                      structured zone, node counts I x J x K
//       GridCoordinates        CoordinateX/Y/Z R8(I,J,K)
//       ZoneIterativeData      FlowSolutionPointers C1(32,N)
//       FlowSolution<n>        Vertex fields VelocityX ... Coherent, R8(I,J,K)
//   /Case                      CGNSBase_t, cell dim 2, phys dim 2 (the case)
//     CalculationConditions    UserDefinedData_t of DataArray_t named by key: I4(1), R8(1) or
//     C1(len) Bed                      structured zone I x J: GridCoordinates (X, Y),
//     NodeAttributes/Elevation
//   /Bed                       CGNSBase_t, cell dim 2, phys dim 3 (the bed's fields over time; only
//                              in a run that writes them)
//     BaseIterativeData        NumberOfSteps N, TimeValues R8(N), as in /Flow
//     Surface                  structured zone I x J: the bed as a surface under the box's columns
//       GridCoordinates        CoordinateX/Y/Z R8(I,J), Z the bed elevation
//       ZoneIterativeData      FlowSolutionPointers C1(32,N)
//       FlowSolution<n>        Vertex fields of the bed (e.g. BedShearStress), R8(I,J)
// (A zone of one node layer in /Flow would be invalid CGNS: a zone has the dimension of its base.)
//
// Every call reports through its last argument `ier`: 0 on success, non-zero otherwise. A failed
// read leaves the output variable unchanged. The read and write calls act on the file selected by
// CG_KAVEL_INIT_F.
//
// What a crash keeps: a run killed at any moment leaves a case file that opens, holding all that
// was committed before the kill (the grid and bed-surface writes commit themselves,
// CG_KAVEL_FLUSH_F each solution, the bed's with the box's), every solution whole; the solution
// being written when it died is there whole or not at all. A
// kill in the middle of a commit leaves the journal `FILE.journal` beside the file, and the file
// may not open until the journal is replayed into it, which the next CG_OPEN_F or `riffle-case
// --check` does by itself. This holds for the death of the process; nothing is forced to the disk,
// so a system crash or a power cut may lose more.
#pragma once

#include <string>

namespace riffle::platform {

// Open mode for CG_OPEN_F: 2 = modify (read and write an existing file).
inline constexpr int mode_read = 0;
inline constexpr int mode_modify = 2;

// Opens `file`; a missing, unreadable or non-CGNS file gives ier != 0 and leaves it untouched.
// First completes the last commit of a run that was killed in its middle (from `file`.journal).
void CG_OPEN_F(const std::string& file, int mode, int& fid, int& ier);
void CG_CLOSE_F(int fid, int& ier);

// Selects `fid` for the calls below and locates /Case and /Case/Bed (ier != 0 if either is
// missing).
void CG_KAVEL_INIT_F(int fid, int& ier);

// Node counts of the 2-D bed grid.
void CG_KAVEL_GOTOGRIDCOORD2D_F(int& ni, int& nj, int& ier);
// Its node coordinates; x and y hold ni*nj values each, i fastest.
void CG_KAVEL_GETGRIDCOORD2D_F(double* x, double* y, int& ier);
// A real node attribute of the bed grid (e.g. "Elevation"), ni*nj values.
void CG_KAVEL_READ_GRID_REAL_NODE_F(const std::string& name, double* values, int& ier);

// Calculation conditions. A missing key, a stored type other than the one asked for, or a number
// of length other than 1 gives ier != 0 and leaves `value` unchanged. Strings are cut to 200
// characters, the size of the solver's text buffers.
void CG_KAVEL_READ_INTEGER_F(const std::string& key, int& value, int& ier);
void CG_KAVEL_READ_REAL_F(const std::string& key, double& value, int& ier);
void CG_KAVEL_READ_STRING_F(const std::string& key, std::string& value, int& ier);

// Writes zone Box of /Flow with its node coordinates (each ni*nj*nk values, i fastest), first
// removing the results of any earlier run (zone Box and the times; an earlier bed surface leaves
// an empty base /Bed) so they never pile up.
void CG_KAVEL_WRITEGRIDCOORD3D_F(int ni, int nj, int nk, const double* x, const double* y,
                                 const double* z, int& ier);
// Appends a solution time: NumberOfSteps N+1, a new FlowSolution<N+1> at Vertex, pointers updated.
void CG_KAVEL_WRITE_SOL_TIME_F(double t, int& ier);
// Writes a node field (ni*nj*nk values of the Box zone) into the newest FlowSolution.
void CG_KAVEL_WRITE_SOL_REAL_F(const std::string& name, const double* values, int& ier);

// Writes the bed surface, base /Bed with its zone Surface: the ni x nj nodes under the box's
// columns, with coordinates x, y and z (the bed elevation), ni*nj values each, i fastest; commits
// itself as the grid write does. It belongs to the grid: written after
// CG_KAVEL_WRITEGRIDCOORD3D_F and before the first time, it then gets the times and a
// FlowSolution<n> of its own at each CG_KAVEL_WRITE_SOL_TIME_F, so its fields follow the output
// times of the flow. Refused (ier != 0, nothing written) when /Flow holds no Box of ni x nj nodes
// in plan or holds a time already, or when a base /Bed of other dimensions is in the file.
void CG_KAVEL_WRITEBEDSURFACE_F(int ni, int nj, const double* x, const double* y, const double* z,
                                int& ier);
// Writes a node field of the bed (ni*nj values of /Bed/Surface) into its newest FlowSolution.
void CG_KAVEL_WRITE_BED_SOL_REAL_F(const std::string& name, const double* values, int& ier);

// Commits the calls made so far to the selected file on disk (the grid write does this by
// itself): a crash at any later moment keeps them, a crash during the commit keeps them or none of
// them (see kavellib.cpp), and a reader sees them. The solver calls it after each solution time
// and its fields: a crash never leaves a solution with some fields only.
void CG_KAVEL_FLUSH_F(int& ier);

// Why the last failed write to the selected case did not reach the disk: the system's reason
// ("No space left on device") where the disk refused it, otherwise the CGNS library's message.
[[nodiscard]] std::string lastwriteproblem();
// Gives the selected case up after a failed write, instead of closing it: the file keeps its
// last commit (every solution flushed before), nothing later is written to it, the process's
// exit included, and the run lock is released. The selection is gone after.
void CG_KAVEL_ABANDON_F();

} // namespace riffle::platform
