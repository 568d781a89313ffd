// Tecplot ASCII point files of the flow (one per output time) and of the bed surface.
//
// Flow file outpath/outfile<n>.plt (blanks around outpath and outfile removed):
//      TITLE = "3D Navier-Stockes Equations"
//      VARIABLES = x, y, z, u, v, w, vort, Q
//      ZONE , i= <imax+1>  j= <jmax+1>  K= <kmax+1> , F=POINT
// (list-directed records: one leading blank, the title and variables lines end in a blank), then
// one line per grid node, k outermost, i innermost, holding x, y, z, u, v, w, vort, Q, each in the
// Fortran E20.14 form (see e2014) preceded by one blank.
// Node (i,j,k), i = 0..imax, is the corner shared by cells i and i+1 at x = i dx + xmin etc.
// u there is the mean of the four u faces u(i, j..j+1, k..k+1), v of v(i..i+1, j, k..k+1), w of
// w(i..i+1, j..j+1, k); vort and Q are eight-cell means over cells i..i+1, j..j+1, k..k+1. The
// node's bed height is the mean of zb over the four cells around it, and a node at or below it
// gets zero for all five flow values. The pressure is not written.
//
// Bed file <temporary folder>/tecbedform<n>.plt: TITLE, "VARIABLES = x, y, z", a zone record
// without K, and one list-directed record x y z per node (j outer, i inner), z the four-cell
// mean of zb. Nothing in the time loop writes it; it is there for looking at a bed on its own.
//
// An existing file of the same name is overwritten. A file that cannot be written throws
// std::runtime_error with a one-line message that names it.
#pragma once

#include <string>

#include "run/storage_m.hpp"

namespace riffle {

// Width of one value in the node lines.
inline constexpr int e2014width = 20;

// Writes `value` in the Fortran E20.14 form into exactly 20 characters at `field` (no
// terminator): "0.ddddddddddddddE+xx" with a mantissa in [0.1, 1) rounded to 14 digits; a negative
// value has no room for the leading zero and reads "-.dddd...E+xx"; zero is 0.00000000000000E+00
// (negative zero keeps its sign); a three-digit exponent drops the E ("0.10000000000000+101");
// NaN and the infinities are right-justified words ("NaN", "Infinity", "-Infinity").
void e2014(double value, char* field);
[[nodiscard]] std::string e2014(double value);

// The flow file numbered n. Reads u, v, w, vort, qc and zb; call vorticity first.
void tecplotflow(const Storage& st, const std::string& outpath, const std::string& outfile, int n);

// The bed file numbered n in the system's temporary folder.
void tecplotbed(const Storage& st, int n);

} // namespace riffle
