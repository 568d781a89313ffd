// Restart files: everything the time loop needs to continue a run, as list-directed text.
//
// Records, one per line, each beginning with one blank, items separated by one blank, integers in
// plain decimal and reals with 17 significant digits (the E form of console::realtext), so a
// value read back is the same double:
//   1. istep time
//   2. phi of every multigrid level, coarsest first (l = lmin..0), one value per record, over
//      k = 0..nk+1 (outer), j = 0..nj+1, i = 0..ni+1 (inner) of that level, ghost layer included
//   3. uo vo wo fu fv fw nut at (i,j,k), seven per record, k = 0..kmax+1, j, i = 0..imax+1
//   4. zb, one per record, j = 0..jmax+1 (outer), i = 0..imax+1
//   5. npt
//   6. the six point arrays at point n, six per record, n = 1..npt
// The face arrays are saved from index 0: their extra ghost layer at -1 is not in the file, and
// neither is the pressure (the next Poisson solve starts from the saved phi instead).
//
// Writing goes to a temporary file beside the final one, which is then renamed over
// outpath/outfile.dat: a run stopped while writing never leaves a half-written file in place of
// the last good one. Every write replaces the previous file (the name carries no step number).
// A folder that cannot be written throws std::runtime_error with a one-line message naming the
// file.
//
// Reading mirrors the writes record by record in list-directed form: the items of a record may
// be spread over several lines or separated by several blanks, and what follows the last item of
// a record on its line is skipped. A missing file, a file that ends early or an item that does
// not parse ends the run through errorreport(3). The grid size is not in the file: a file written
// for another grid is noticed only if it runs out.
#pragma once

#include <string>

#include "run/storage_m.hpp"

namespace riffle {

// The name trim(adjustl(outpath)) + "/" + trim(adjustl(outfile)) + suffix: the blanks before and
// after each of the two parts are removed.
[[nodiscard]] std::string outputname(const std::string& outpath, const std::string& outfile,
                                     const std::string& suffix);

// Writes outpath/outfile.dat with `istep` and `time` and the fields of `st`.
void restartwrite(const Storage& st, int istep, double time, const std::string& outpath,
                  const std::string& outfile);

// Reads `startfile` into st (istep, time, phi, uo, vo, wo, fu, fv, fw, nut, zb and the point
// data), then sets u = uo, v = vo, w = wo over the whole arrays. Does not return on failure.
void restartread(Storage& st, const std::string& startfile);

}  // namespace riffle
