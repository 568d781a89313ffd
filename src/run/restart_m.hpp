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
// then, from a run with the flow statistics on (statistics_m.hpp):
//   7. samples first last sumfx
//   8. the eleven sums at each node, eleven per record, k = 0..kmax, j, i = 0..imax
//   9. p, one per record, k = 0..kmax+1, j, i = 0..imax+1
// and, when its wall-layer model was on too:
//  10. bedsamples
//  11. the three sums of the bed shear stress at each bed node, three per record, j, i = 0..imax
//  12. forcesamples sumpressuredrag sumflowdriving
// The face arrays are saved from index 0: their extra ghost layer at -1 is not in the file, and
// without statistics neither is the pressure (the next Poisson solve starts from the saved phi
// instead). A run without statistics passes over 7 to 12; a run with them reads a file that
// stops after 6, 9 or 11 and starts the sums it lacks afresh.
//
// Writing goes to a temporary file beside the final one, which is then renamed over
// outpath/outfile.dat: a run stopped while writing never leaves a half-written file in place of
// the last good one. Every write replaces the previous file (the name carries no step number).
// A folder that cannot be written throws std::runtime_error with a one-line message naming the
// file.
//
// Reading mirrors the writes record by record in list-directed form: the items of a record may
// be spread over several lines or separated by several blanks, and what follows the last item of
// a record on its line is skipped. A file is refused when it is missing, ends early, holds an item
// that does not parse, a value that is not finite (NaN, Infinity, or a number too large for a
// double; one too small for a double reads as zero), or a negative point count, or has anything
// but blanks after its last record. The grid size is not in the file: a file written for a
// smaller grid runs out and one for a larger grid leaves records over, so both are refused; only
// a grid with as many values in every part of the file (imax and jmax swapped, say) goes
// unnoticed. The parsing throws RestartError; restartread and restartcheck turn that into
// errorreport(3).
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "run/storage_m.hpp"

namespace riffle {

// The name trim(adjustl(outpath)) + "/" + trim(adjustl(outfile)) + suffix: the blanks before and
// after each of the two parts are removed.
[[nodiscard]] std::string outputname(const std::string& outpath, const std::string& outfile,
                                     const std::string& suffix);

// Writes outpath/outfile.dat with `istep` and `time` and the fields of `st`.
void restartwrite(const Storage& st, int istep, double time, const std::string& outpath,
                  const std::string& outfile);

// A restart file that cannot serve the grid at hand; what() says why, in one line.
class RestartError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads `text`, the contents of a restart file, into st (istep, time, phi, uo, vo, wo, fu, fv,
// fw, nut, zb and the point data), then sets u = uo, v = vo, w = wo over the whole arrays.
// Throws RestartError; st may then be partly overwritten.
void restartparse(Storage& st, std::string_view text);

// Parses `text` as restartparse would for a grid of imax x jmax x kmax cells and its multigrid
// levels, storing nothing. Throws RestartError.
void restartscan(int imax, int jmax, int kmax, std::string_view text);

// restartparse on the file `startfile` (trailing blanks dropped). Does not return on failure:
// errorreport(3).
void restartread(Storage& st, const std::string& startfile);

// A dry run of restartread for a grid of imax x jmax x kmax cells, made before anything is
// written, so a bad restart file stops the run while the case file still holds its old results.
// Does not return on failure: errorreport(3).
void restartcheck(int imax, int jmax, int kmax, const std::string& startfile);

} // namespace riffle
