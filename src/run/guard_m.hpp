// What ends a run before its end time, other than bad input: the operator's or the batch
// scheduler's signals, and a flow that is no longer finite.
//
// Signals. SIGTERM, SIGINT and SIGUSR2 ask the run to stop: it finishes the step under way,
// writes a restart file and the results of that time, closes the case and exits with
// `stopped_status`. A second such signal ends the process at once, as the signal always would;
// the case file keeps its last commit. SIGUSR1 asks for a restart file and the results now, and
// the run goes on. (mpirun forwards SIGUSR1 and SIGUSR2 to every rank; SIGTERM it answers with
// its own kill after a short grace.) On several ranks a request that reaches any rank is the
// request of all, taken at the same step.
//
// A flow that is no longer finite: a NaN or an infinity in a velocity anywhere reaches the sum of
// the divergence that every step forms already, so the check costs nothing while the flow is
// sound; only then are the fields searched for the first point that is not finite.
#pragma once

#include <string>

#include "run/storage_m.hpp"

namespace riffle::guard {

// The exit status of a run stopped by a signal after writing its restart file (sysexits'
// "temporary failure": the run can be continued).
inline constexpr int stopped_status = 75;

// Catches the signals above from here on.
void catchsignals();
// Puts back the signals' default actions and forgets the requests.
void releasesignals();

// The requests since the last call, agreed by every rank: the signal asking to stop (0: none),
// and whether a restart file and the results are asked for now (always with a stop).
struct Request {
    int stop = 0;
    bool write = false;
};
[[nodiscard]] Request takerequest(const Storage& st);

// "SIGTERM" and the like.
[[nodiscard]] std::string signalname(int sig);

// True while the step's time step and its divergence sum (over every rank) are finite numbers.
[[nodiscard]] bool finite(const Storage& st);

// The line that names where the flow stopped being finite: the time step, or the first point of
// u, v, w, p that holds NaN or an infinity (the points inside the box before the ghost layers;
// then u, v, w, p in that order, and k, j, i within each), by its indices in the whole box.
// Every rank calls it; rank 0's line is the one to print.
[[nodiscard]] std::string nonfinitereport(const Storage& st);

} // namespace riffle::guard
