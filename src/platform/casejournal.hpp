// Crash-safe updates of a case file that the solver modifies: a redo journal under HDF5.
//
// HDF5 writes a flush's metadata in place, in many small writes, and has no commit of its own: a
// process killed in the middle leaves a file that points half to the old and half to the new
// state. So the solver's open of its case goes through a file driver of our own, which keeps the
// file on disk at the state of the last commit (a flush or the close):
//   - a write that falls below the size the file had at the last commit is kept in memory (reads
//     see it), as is a truncation below that size; a write past it goes to the file at once,
//     into space that the committed file does not use;
//   - a commit first writes what it kept to `CASE.journal` (under a temporary name, renamed into
//     place, with a checksum), then into the case, then removes the journal.
// A crash before the rename leaves the committed file with, at most, bytes past its end that
// HDF5 ignores; a crash after it leaves a whole journal, which replayjournal writes again into the
// case before anything else opens it. The file itself stays a plain HDF5 file: the driver stores
// nothing of its own in it. The guarantee covers the death of the process (a kill, a crash); the
// journal is not forced to the disk, so a power cut is not covered.
//
// The library (libcgns) opens files by itself; CG_OPEN_F arms the open it is about to make, and
// this module's H5Fopen, which takes the place of HDF5's in every program that links the
// platform layer, puts the driver on that one read-write open and passes every other call on.
#pragma once

#include <hdf5.h>

#include <string>

namespace riffle::platform {

// Completes a case-file update that a crash interrupted: a whole journal `CASE.journal` is
// written into the case and removed, a damaged one (from a write cut short) is only removed.
// True when the case was repaired. Leaves the case alone (false) while a run holds it. Throws
// CaseFileError when a whole journal cannot be applied; the journal is then kept.
bool replayjournal(const std::string& casepath);

namespace casejournal {

// Outcome of a replay.
enum class Replay {
    none,      // no journal
    replayed,  // a whole journal was written into the case and removed
    discarded, // a damaged journal was removed; the case was left as it was
    failed,    // the case could not be repaired (I/O error); the journal is kept
};

// Takes the run lock: an exclusive open-file-description lock on the whole case, tied to a
// descriptor of its own (opened for writing, returned in `fd`), so that it does not meet HDF5's
// own locks and no other close in the process releases it. False when another process holds it
// or the case cannot be opened for writing.
bool lockforrun(const std::string& casepath, int& fd);

// Replays the journal of `casepath` through `lockedfd`, a descriptor of the case that holds the
// run lock (the lock keeps a running solver's commit and a replay apart).
Replay replay(const std::string& casepath, int lockedfd);

// The next read-write H5Fopen of this file (the same file, however named) goes through the
// journaling driver; disarm() after the open, whether it succeeded or not.
void arm(const std::string& casepath);
void disarm();

// The errno of the driver's last failed write, truncation or journal creation (0: none).
int lastwritefailure();

// Gives up every file open through the driver after a failure: what was staged since the last
// commit is dropped, the file is cut back to its committed size (unless a whole journal of a
// commit that failed half-way is waiting to be replayed), and no later call of HDF5 writes to it
// again, a close at the process's exit included. The committed state is what remains.
void abandon();

// The driver's HDF5 identifier (registered on first use), for tests that set it on a fapl.
hid_t driver();

} // namespace casejournal
} // namespace riffle::platform
