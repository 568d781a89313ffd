// The solver's I/O calls over a CGNS case file (layout in kavellib.hpp).
//
// The calls keep one selection at module level (the program handles one case file per run): the
// file chosen by CG_KAVEL_INIT_F with its /Case base and Bed zone, and the newest FlowSolution of
// /Flow/Box written in this session. Every CGNS return code is checked; no call throws, each
// reports through `ier` (0 success, 1 failure) and a failed call writes nothing to its outputs.
// Results are appended step by step: each new time rewrites BaseIterativeData (NumberOfSteps,
// TimeValues) and ZoneIterativeData/FlowSolutionPointers whole, which is what viewers need to
// animate the solutions over time. The bed surface (base /Bed: the bed's node fields) is part of
// the grid: it is written before the first time and then gets its own solution, times and
// pointers at every time, so its zone holds one solution per output time as Box does. CG_OPEN_F
// accepts the read and modify modes only, and never hands a file that is not CGNS to the
// library's open.
//
// Crashes. A file opened for modifying goes through the journaling file driver of
// casejournal.hpp: whatever HDF5 writes in between, the file on disk keeps the state of the last
// commit, and a commit (the end of the grid write, CG_KAVEL_FLUSH_F, the close) writes the new
// state through a journal. So a run killed at any moment, in the middle of a commit too, leaves a
// whole CGNS file with every solution committed before the kill; the solution under way is there
// whole or not at all. A kill in the middle of a commit leaves its journal `FILE.journal`, which
// CG_OPEN_F (in either mode) and `riffle-case --check` write into the file before anything else
// reads it; until then the file itself may not open. A reader that opens the file while the run
// goes on sees the last commit (unless it opens in the short moment a commit writes into the
// file). A file opened for modifying is not locked the HDF5 way (which would keep readers out for
// the whole run); an open file description lock on it keeps a second run from writing the same
// file, and keeps a replay away from a running commit.
#include "platform/kavellib.hpp"

#include <cgns_io.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "platform/casefile.hpp"
#include "platform/casejournal.hpp"
#include "platform/cgnsutil.hpp"

namespace riffle::platform {

namespace {

namespace cu = cgnsutil;
namespace cj = casejournal;

// Width of one name in FlowSolutionPointers (a CGNS name is at most 32 characters).
constexpr int pointer_width = 32;
// Size of the solver's text buffers; longer strings are cut.
constexpr std::size_t string_capacity = 200;

struct Selection {
    int fid = 0;      // file handle of CG_KAVEL_INIT_F; 0 = nothing selected
    int casebase = 0; // index of /Case
    int bed = 0;      // index of /Case/Bed
    // /Flow, Box and the FlowSolution opened by the last successful CG_KAVEL_WRITE_SOL_TIME_F of
    // this selection; solution = 0 while none is open (none yet, or a grid or time write since).
    int flowbase = 0;
    int box = 0;
    int solution = 0;
    // The bed surface (base /Bed, zone Surface) and its FlowSolution opened by that same time
    // write; surfacesolution = 0 where the file has no surface or no solution of it is open.
    int surfacebase = 0;
    int surface = 0;
    int surfacesolution = 0;
};

Selection selected;

// The run lock of each file opened for modifying: its CGNS file number and the descriptor that
// holds the lock (closing the descriptor releases it).
struct RunLock {
    int fn = 0;
    int fd = -1;
};
std::vector<RunLock> runlocks;

// Brings the file on disk to the state of the calls made so far.
int flushfile(int fn) {
    int cgio = 0;
    if (const int rc = cg_get_cgio(fn, &cgio); rc != CG_OK) return rc;
    return cgio_flush_to_disk(cgio) == CG_OK ? CG_OK : CG_ERROR;
}

// Result of a call as the flag the callers expect.
int flag(bool ok) { return ok ? 0 : 1; }

// Locates /Flow and its 3-D zone Box.
int locatebox(int fn, int& B, int& Z) {
    int b = 0, z = 0;
    if (const int rc = cu::findbase(fn, cu::flow_base, b); rc != CG_OK) return rc;
    if (const int rc = cu::findzone(fn, b, cu::box_zone, z); rc != CG_OK) return rc;
    int indexdim = 0;
    if (const int rc = cg_index_dim(fn, b, z, &indexdim); rc != CG_OK) return rc;
    if (indexdim != 3) return cu::bad_layout;
    B = b;
    Z = z;
    return CG_OK;
}

// The output times written so far (none when /Flow has no BaseIterativeData yet).
int readtimes(int fn, int B, std::vector<double>& times) {
    char name[33] = {};
    int nsteps = 0;
    const int found = cg_biter_read(fn, B, name, &nsteps);
    if (found == CG_NODE_NOT_FOUND || (found == CG_OK && nsteps == 0)) {
        times.clear();
        return CG_OK;
    }
    if (found != CG_OK) return found;
    if (const int rc = cg_goto(fn, B, "BaseIterativeData_t", 1, "end"); rc != CG_OK) return rc;
    int A = 0;
    if (const int rc = cu::findarray(cu::time_values, A); rc != CG_OK) return rc;
    char aname[33] = {};
    DataType_t type = DataTypeNull;
    int ndim = 0;
    cgsize_t dims[CGIO_MAX_DIMENSIONS] = {};
    if (const int rc = cg_array_info(A, aname, &type, &ndim, dims); rc != CG_OK) return rc;
    if (ndim != 1 || dims[0] != nsteps) return cu::bad_layout;
    std::vector<double> t(static_cast<std::size_t>(nsteps));
    if (const int rc = cg_array_read_as(A, RealDouble, t.data()); rc != CG_OK) return rc;
    times = std::move(t);
    return CG_OK;
}

// "FlowSolution<n>" for n = 1..count, each padded with blanks to the pointer width, one after
// another (a C1(32, count) array).
std::string solutionpointers(int count) {
    std::string names;
    for (int n = 1; n <= count; ++n) {
        std::string one = cu::sol_prefix + std::to_string(n);
        one.resize(pointer_width, ' ');
        names += one;
    }
    return names;
}

// ZoneIterativeData/FlowSolutionPointers of zone Z naming FlowSolution1..nsteps. cg_ziter_write
// replaces an existing node with its children, so the array is written whole each time.
int writepointers(int fn, int B, int Z, int nsteps) {
    if (const int rc = cg_ziter_write(fn, B, Z, cu::zone_iter_node); rc != CG_OK) return rc;
    if (const int rc = cg_goto(fn, B, "Zone_t", Z, "ZoneIterativeData_t", 1, "end"); rc != CG_OK)
        return rc;
    const std::string pointers = solutionpointers(nsteps);
    const cgsize_t pdims[2] = {pointer_width, nsteps};
    return cg_array_write(cu::sol_pointers, Character, 2, pdims, pointers.data());
}

// The bed surface: base /Bed (2-D cells in 3-D space) in B and its zone Surface in Z, each 0
// where the file has none. A base of that name with other dimensions is another program's: it
// counts as none and is never written.
int findsurface(int fn, int& B, int& Z) {
    B = 0;
    Z = 0;
    int b = 0, z = 0;
    const int found = cu::findbase(fn, cu::surface_base, b);
    if (found == CG_NODE_NOT_FOUND) return CG_OK;
    if (found != CG_OK) return found;
    char name[33] = {};
    int celldim = 0, physdim = 0;
    if (const int rc = cg_base_read(fn, b, name, &celldim, &physdim); rc != CG_OK) return rc;
    if (celldim != 2 || physdim != 3) return CG_OK;
    B = b;
    const int zone = cu::findzone(fn, b, cu::surface_zone, z);
    if (zone == CG_OK) Z = z;
    return zone == CG_NODE_NOT_FOUND ? CG_OK : zone;
}

// BaseIterativeData of base B: NumberOfSteps and TimeValues `times`, written whole.
int writetimes(int fn, int B, const std::vector<double>& times) {
    const int nsteps = static_cast<int>(times.size());
    if (const int rc = cg_biter_write(fn, B, cu::base_iter_node, nsteps); rc != CG_OK) return rc;
    if (const int rc = cg_goto(fn, B, "BaseIterativeData_t", 1, "end"); rc != CG_OK) return rc;
    const cgsize_t ntimes = nsteps;
    return cg_array_write(cu::time_values, RealDouble, 1, &ntimes, times.data());
}

// Removes zone `name` of base B where there is one.
int removezone(int fn, int B, const char* name) {
    int Z = 0;
    const int found = cu::findzone(fn, B, name, Z);
    if (found == CG_NODE_NOT_FOUND) return CG_OK;
    if (found != CG_OK) return found;
    if (const int rc = cg_goto(fn, B, "end"); rc != CG_OK) return rc;
    return cg_delete_node(name);
}

int appendtime(double t) {
    const int fn = selected.fid;
    int B = 0, Z = 0;
    if (const int rc = locatebox(fn, B, Z); rc != CG_OK) return rc;
    std::vector<double> times;
    if (const int rc = readtimes(fn, B, times); rc != CG_OK) return rc;
    // Viewers step through the solutions in the order of TimeValues, which must ascend.
    if (!std::isfinite(t) || (!times.empty() && !(t > times.back()))) return cu::bad_layout;
    times.push_back(t);
    const int nsteps = static_cast<int>(times.size());

    // The solution first: if a later step fails, NumberOfSteps still names the previous one and
    // the next try writes over this half-made solution.
    // (GridLocation Vertex is the SIDS default, so the library stores no GridLocation node.)
    const std::string solname = cu::sol_prefix + std::to_string(nsteps);
    int S = 0;
    if (const int rc = cg_sol_write(fn, B, Z, solname.c_str(), Vertex, &S); rc != CG_OK) return rc;
    // The bed surface, where there is one, gets its solution of this time too.
    int SB = 0, SZ = 0, SS = 0;
    if (const int rc = findsurface(fn, SB, SZ); rc != CG_OK) return rc;
    if (SZ != 0) {
        if (const int rc = cg_sol_write(fn, SB, SZ, solname.c_str(), Vertex, &SS); rc != CG_OK)
            return rc;
    }

    // cg_biter_write replaces an existing node with its children, so the times are written whole
    // each time (as are the pointers).
    if (const int rc = writetimes(fn, B, times); rc != CG_OK) return rc;
    if (const int rc = writepointers(fn, B, Z, nsteps); rc != CG_OK) return rc;
    if (SZ != 0) {
        if (const int rc = writetimes(fn, SB, times); rc != CG_OK) return rc;
        if (const int rc = writepointers(fn, SB, SZ, nsteps); rc != CG_OK) return rc;
    }

    selected.flowbase = B;
    selected.box = Z;
    selected.solution = S;
    selected.surfacebase = SB;
    selected.surface = SZ;
    selected.surfacesolution = SS;
    return CG_OK;
}

int writesurface(int ni, int nj, const double* x, const double* y, const double* z) {
    const int fn = selected.fid;
    int B = 0, Z = 0;
    if (const int rc = locatebox(fn, B, Z); rc != CG_OK) return rc;
    // The surface lies under the box's node columns, and exists from the first output time on,
    // so that it holds a solution for every time.
    char zname[33] = {};
    cgsize_t box[9] = {};
    if (const int rc = cg_zone_read(fn, B, Z, zname, box); rc != CG_OK) return rc;
    if (box[0] != ni || box[1] != nj) return cu::bad_layout;
    std::vector<double> times;
    if (const int rc = readtimes(fn, B, times); rc != CG_OK) return rc;
    if (!times.empty()) return cu::bad_layout;
    // Another program's base of the name is left alone.
    int SB = 0, SZ = 0, C = 0, other = 0;
    if (const int rc = findsurface(fn, SB, SZ); rc != CG_OK) return rc;
    if (SB == 0 && cu::findbase(fn, cu::surface_base, other) == CG_OK) return cu::bad_layout;
    selected.surfacesolution = 0;

    // A surface of 2-D cells in 3-D space; writing the base replaces any there (with what it
    // held), so a surface written again in one session replaces the first.
    if (const int rc = cg_base_write(fn, cu::surface_base, 2, 3, &SB); rc != CG_OK) return rc;
    const cgsize_t size[6] = {ni, nj, ni - 1, nj - 1, 0, 0};
    if (const int rc = cg_zone_write(fn, SB, cu::surface_zone, size, Structured, &SZ); rc != CG_OK)
        return rc;
    if (const int rc = cg_coord_write(fn, SB, SZ, RealDouble, "CoordinateX", x, &C); rc != CG_OK)
        return rc;
    if (const int rc = cg_coord_write(fn, SB, SZ, RealDouble, "CoordinateY", y, &C); rc != CG_OK)
        return rc;
    if (const int rc = cg_coord_write(fn, SB, SZ, RealDouble, "CoordinateZ", z, &C); rc != CG_OK)
        return rc;
    return flushfile(fn);
}

int writegrid(int ni, int nj, int nk, const double* x, const double* y, const double* z) {
    const int fn = selected.fid;
    int B = 0;
    if (const int rc = cu::findbase(fn, cu::flow_base, B); rc == CG_NODE_NOT_FOUND) {
        // A file made without the empty /Flow base: /Flow is added after the existing bases, so a
        // viewer that opens only the first base must be pointed to it by hand.
        if (const int wrc = cg_base_write(fn, cu::flow_base, 3, 3, &B); wrc != CG_OK) return wrc;
    } else if (rc != CG_OK) {
        return rc;
    }
    char bname[33] = {};
    int celldim = 0, physdim = 0;
    if (const int rc = cg_base_read(fn, B, bname, &celldim, &physdim); rc != CG_OK) return rc;
    if (celldim != 3 || physdim != 3) return cu::bad_layout;

    // Remove the results of any earlier run, so that they never pile up in the file. (HDF5 does
    // not give the space back; the file keeps its size until it is repacked.)
    if (const int rc = removezone(fn, B, cu::box_zone); rc != CG_OK) return rc;
    // The library cannot remove a base: an earlier run's bed surface is replaced by an empty base.
    int SB = 0, SZ = 0;
    if (const int rc = findsurface(fn, SB, SZ); rc != CG_OK) return rc;
    if (SB != 0) {
        if (const int rc = cg_base_write(fn, cu::surface_base, 2, 3, &SB); rc != CG_OK) return rc;
    }
    char biname[33] = {};
    int nsteps = 0;
    if (const int rc = cg_biter_read(fn, B, biname, &nsteps); rc == CG_OK) {
        if (const int grc = cg_goto(fn, B, "end"); grc != CG_OK) return grc;
        if (const int drc = cg_delete_node(biname); drc != CG_OK) return drc;
    } else if (rc != CG_NODE_NOT_FOUND) {
        return rc;
    }
    selected.solution = 0;
    selected.surfacesolution = 0;

    int Z = 0;
    const cgsize_t size[9] = {ni, nj, nk, ni - 1, nj - 1, nk - 1, 0, 0, 0};
    if (const int rc = cg_zone_write(fn, B, cu::box_zone, size, Structured, &Z); rc != CG_OK)
        return rc;
    int C = 0;
    if (const int rc = cg_coord_write(fn, B, Z, RealDouble, "CoordinateX", x, &C); rc != CG_OK)
        return rc;
    if (const int rc = cg_coord_write(fn, B, Z, RealDouble, "CoordinateY", y, &C); rc != CG_OK)
        return rc;
    if (const int rc = cg_coord_write(fn, B, Z, RealDouble, "CoordinateZ", z, &C); rc != CG_OK)
        return rc;
    return flushfile(fn);
}

// A calculation condition of type T (int, double or std::string) into `value`.
template <typename T> int readkey(const std::string& key, T& value) {
    if (selected.fid == 0) return CG_ERROR;
    if (const int rc = cg_gopath(selected.fid, cu::conditions_path); rc != CG_OK) return rc;
    int A = 0;
    if (const int rc = cu::findarray(key.c_str(), A); rc != CG_OK) return rc;
    StoredCondition c;
    if (const int rc = cu::readcondition(A, c); rc != CG_OK) return rc;
    const T* stored = std::get_if<T>(&c.value);
    if (stored == nullptr) return cu::bad_layout;
    if constexpr (std::is_same_v<T, std::string>) {
        value = stored->substr(0, string_capacity);
    } else {
        value = *stored;
    }
    return CG_OK;
}

} // namespace

void CG_OPEN_F(const std::string& file, int mode, int& fid, int& ier) {
    // Only reading and modifying: the write mode would create or empty the file.
    int cgmode = 0;
    if (mode == mode_read) {
        cgmode = CG_MODE_READ;
    } else if (mode == mode_modify) {
        cgmode = CG_MODE_MODIFY;
    } else {
        ier = 1;
        return;
    }
    RunLock lock;
    if (cgmode == CG_MODE_MODIFY) {
        // Readers may open the file while the run writes it (see the top of this file). Set
        // before the library's first open, unless the user has chosen otherwise.
        ::setenv("HDF5_USE_FILE_LOCKING", "FALSE", 0);
        if (!cj::lockforrun(file, lock.fd)) {
            ier = 1;
            return;
        }
        // Under the lock: no other run is committing to the file while its journal is replayed.
        if (cj::replay(file, lock.fd) == cj::Replay::failed) {
            ::close(lock.fd);
            ier = 1;
            return;
        }
        cj::arm(file);
    } else {
        // A reader repairs the file too (unless a run holds it, which then commits by itself).
        try {
            replayjournal(file);
        } catch (const CaseFileError&) {
            ier = 1;
            return;
        }
    }
    int fn = 0;
    ier = flag(cu::openfile(file, cgmode, fn) == CG_OK);
    cj::disarm();
    if (ier != 0) {
        if (lock.fd >= 0) ::close(lock.fd);
        return;
    }
    fid = fn;
    if (lock.fd >= 0) {
        lock.fn = fn;
        runlocks.push_back(lock);
    }
}

void CG_CLOSE_F(int fid, int& ier) {
    if (fid == selected.fid) selected = Selection{};
    ier = flag(cg_close(fid) == CG_OK);
    // The lock is given up only after the library has closed the file.
    for (auto l = runlocks.begin(); l != runlocks.end(); ++l) {
        if (l->fn == fid) {
            ::close(l->fd);
            runlocks.erase(l);
            break;
        }
    }
}

void CG_KAVEL_INIT_F(int fid, int& ier) {
    // A failed selection leaves none, so that later reads fail instead of reading another file.
    selected = Selection{};
    int B = 0, Z = 0;
    ier = flag(cu::locatebed(fid, B, Z) == CG_OK);
    if (ier == 0) selected = Selection{fid, B, Z, 0, 0, 0};
}

void CG_KAVEL_GOTOGRIDCOORD2D_F(int& ni, int& nj, int& ier) {
    int i = 0, j = 0;
    ier = flag(selected.fid != 0 &&
               cu::bedsize(selected.fid, selected.casebase, selected.bed, i, j) == CG_OK);
    if (ier != 0) return;
    ni = i;
    nj = j;
}

void CG_KAVEL_GETGRIDCOORD2D_F(double* x, double* y, int& ier) {
    std::vector<double> xs, ys;
    ier = flag(selected.fid != 0 && x != nullptr && y != nullptr &&
               cu::readbedcoords(selected.fid, selected.casebase, selected.bed, xs, ys) == CG_OK);
    if (ier != 0) return;
    std::copy(xs.begin(), xs.end(), x);
    std::copy(ys.begin(), ys.end(), y);
}

void CG_KAVEL_READ_GRID_REAL_NODE_F(const std::string& name, double* values, int& ier) {
    std::vector<double> v;
    ier = flag(selected.fid != 0 && values != nullptr &&
               cu::readbedattribute(selected.fid, selected.casebase, selected.bed, name.c_str(),
                                    v) == CG_OK);
    if (ier != 0) return;
    std::copy(v.begin(), v.end(), values);
}

void CG_KAVEL_READ_INTEGER_F(const std::string& key, int& value, int& ier) {
    ier = flag(readkey(key, value) == CG_OK);
}

void CG_KAVEL_READ_REAL_F(const std::string& key, double& value, int& ier) {
    ier = flag(readkey(key, value) == CG_OK);
}

void CG_KAVEL_READ_STRING_F(const std::string& key, std::string& value, int& ier) {
    ier = flag(readkey(key, value) == CG_OK);
}

void CG_KAVEL_WRITEGRIDCOORD3D_F(int ni, int nj, int nk, const double* x, const double* y,
                                 const double* z, int& ier) {
    ier = flag(selected.fid != 0 && ni >= 1 && nj >= 1 && nk >= 1 && x != nullptr && y != nullptr &&
               z != nullptr && writegrid(ni, nj, nk, x, y, z) == CG_OK);
}

void CG_KAVEL_WRITE_SOL_TIME_F(double t, int& ier) {
    // A failed time leaves no solution open, so the fields that follow are refused rather than
    // written over the previous step's.
    selected.solution = 0;
    selected.surfacesolution = 0;
    ier = flag(selected.fid != 0 && appendtime(t) == CG_OK);
}

void CG_KAVEL_WRITE_SOL_REAL_F(const std::string& name, const double* values, int& ier) {
    int F = 0;
    ier = flag(selected.fid != 0 && selected.solution != 0 && values != nullptr &&
               cg_field_write(selected.fid, selected.flowbase, selected.box, selected.solution,
                              RealDouble, name.c_str(), values, &F) == CG_OK);
}

void CG_KAVEL_WRITEBEDSURFACE_F(int ni, int nj, const double* x, const double* y, const double* z,
                                int& ier) {
    ier = flag(selected.fid != 0 && ni >= 1 && nj >= 1 && x != nullptr && y != nullptr &&
               z != nullptr && writesurface(ni, nj, x, y, z) == CG_OK);
}

void CG_KAVEL_WRITE_BED_SOL_REAL_F(const std::string& name, const double* values, int& ier) {
    int F = 0;
    ier = flag(selected.fid != 0 && selected.surfacesolution != 0 && values != nullptr &&
               cg_field_write(selected.fid, selected.surfacebase, selected.surface,
                              selected.surfacesolution, RealDouble, name.c_str(), values,
                              &F) == CG_OK);
}

void CG_KAVEL_FLUSH_F(int& ier) {
    ier = flag(selected.fid != 0 && flushfile(selected.fid) == CG_OK);
}

std::string lastwriteproblem() {
    if (const int err = casejournal::lastwritefailure(); err != 0) return std::strerror(err);
    return cu::describe(CG_ERROR);
}

void CG_KAVEL_ABANDON_F() {
    casejournal::abandon();
    for (const RunLock& l : runlocks)
        ::close(l.fd);
    runlocks.clear();
    selected = Selection{};
}

} // namespace riffle::platform
