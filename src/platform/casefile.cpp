// Making and inspecting case files (layout in kavellib.hpp): the case builder writes a new case
// with writecasefile, and its check reads the conditions and the bed back. Unlike the solver's
// calls, these throw CaseFileError, whose one-line message names the file, the step and the CGNS
// library's own error text.
#include "platform/casefile.hpp"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/cgnsutil.hpp"

namespace riffle::platform {

namespace {

namespace cu = cgnsutil;

[[noreturn]] void fail(const std::string& path, const std::string& step, const std::string& why) {
    throw CaseFileError("case file " + path + ": " + step + ": " + why);
}

void check(int rc, const std::string& path, const std::string& step) {
    if (rc == CG_OK) return;
    // The library reports a refused write as its own error; the system's reason is in errno.
    const int err = errno;
    const bool disk = err == ENOSPC || err == EDQUOT || err == EFBIG || err == EIO || err == EROFS;
    throw CaseFileError("case file " + path + ": " + step + ": " + cu::describe(rc),
                        disk ? err : 0);
}

// Closes a file on every way out of a scope; a close that matters is made by hand and checked.
struct OpenFile {
    int fn = 0;
    OpenFile() = default;
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() {
        if (fn != 0) cg_close(fn);
    }
};

// Removes a temporary file on every way out of a scope unless it was renamed into place.
struct TemporaryFile {
    std::string path;
    bool kept = false;
    explicit TemporaryFile(std::string p) : path(std::move(p)) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        std::error_code ec;
        if (!kept) std::filesystem::remove(path, ec);
    }
};

// One condition as a DataArray_t under the current node: I4(1), R8(1) or C1(len) without a NUL.
int writecondition(const Condition& c) {
    return std::visit(
        [&c](const auto& v) {
            using V = std::decay_t<decltype(v)>;
            const cgsize_t one = 1;
            if constexpr (std::is_same_v<V, int>) {
                return cg_array_write(c.key.c_str(), Integer, 1, &one, &v);
            } else if constexpr (std::is_same_v<V, double>) {
                return cg_array_write(c.key.c_str(), RealDouble, 1, &one, &v);
            } else {
                const auto length = static_cast<cgsize_t>(v.size());
                return cg_array_write(c.key.c_str(), Character, 1, &length, v.data());
            }
        },
        c.value);
}

void writecase(int fn, const std::string& path, const BedGrid& bed,
               const std::vector<Condition>& conditions) {
    // /Flow first: viewers that open only the first base then show the results.
    int flow = 0, cas = 0;
    check(cg_base_write(fn, cu::flow_base, 3, 3, &flow), path, "writing base /Flow");
    check(cg_base_write(fn, cu::case_base, 2, 2, &cas), path, "writing base /Case");

    check(cg_goto(fn, cas, "end"), path, "going to /Case");
    check(cg_user_data_write(cu::conditions_node), path, "writing /Case/CalculationConditions");
    check(cg_gopath(fn, cu::conditions_path), path, "going to /Case/CalculationConditions");
    for (const Condition& c : conditions) {
        check(writecondition(c), path, "writing condition " + c.key);
    }

    const cgsize_t size[6] = {bed.ni, bed.nj, bed.ni - 1, bed.nj - 1, 0, 0};
    int Z = 0, C = 0, S = 0, F = 0;
    check(cg_zone_write(fn, cas, cu::bed_zone, size, Structured, &Z), path,
          "writing zone /Case/Bed");
    check(cg_coord_write(fn, cas, Z, RealDouble, "CoordinateX", bed.x.data(), &C), path,
          "writing /Case/Bed coordinates");
    check(cg_coord_write(fn, cas, Z, RealDouble, "CoordinateY", bed.y.data(), &C), path,
          "writing /Case/Bed coordinates");
    check(cg_sol_write(fn, cas, Z, cu::attributes_node, Vertex, &S), path,
          "writing /Case/Bed/NodeAttributes");
    check(cg_field_write(fn, cas, Z, S, RealDouble, cu::elevation_field, bed.elevation.data(), &F),
          path, "writing /Case/Bed/NodeAttributes/Elevation");
}

// Base /Bed of a results file: zone Surface under the box's columns, with the one time of the
// box's solution, its pointer to FlowSolution1 (`pointer`, padded to 32) and its fields.
void writesurface(int fn, const std::string& path, const BedSurface& s, double time,
                  const std::string& pointer) {
    int B = 0, Z = 0, C = 0, S = 0, F = 0;
    check(cg_base_write(fn, cu::surface_base, 2, 3, &B), path, "writing base /Bed");
    check(cg_biter_write(fn, B, cu::base_iter_node, 1), path, "writing the time of /Bed");
    check(cg_goto(fn, B, "BaseIterativeData_t", 1, "end"), path, "writing the time of /Bed");
    const cgsize_t one = 1;
    check(cg_array_write(cu::time_values, RealDouble, 1, &one, &time), path, "the time of /Bed");
    const cgsize_t size[6] = {s.ni, s.nj, s.ni - 1, s.nj - 1, 0, 0};
    check(cg_zone_write(fn, B, cu::surface_zone, size, Structured, &Z), path,
          "writing zone /Bed/Surface");
    for (const auto& [name, values] :
         {std::pair{"CoordinateX", s.x}, {"CoordinateY", s.y}, {"CoordinateZ", s.z}})
        check(cg_coord_write(fn, B, Z, RealDouble, name, values, &C), path,
              std::string("writing /Bed/Surface ") + name);
    check(cg_ziter_write(fn, B, Z, cu::zone_iter_node), path, "writing the /Bed pointers");
    check(cg_goto(fn, B, "Zone_t", Z, "ZoneIterativeData_t", 1, "end"), path, "/Bed pointers");
    const cgsize_t pdims[2] = {32, 1};
    check(cg_array_write(cu::sol_pointers, Character, 2, pdims, pointer.data()), path,
          "writing the /Bed pointers");
    check(cg_sol_write(fn, B, Z, (std::string(cu::sol_prefix) + "1").c_str(), Vertex, &S), path,
          "writing the /Bed solution");
    for (const NodeField& f : s.fields)
        check(cg_field_write(fn, B, Z, S, RealDouble, f.name.c_str(), f.values, &F), path,
              "writing /Bed " + f.name);
}

// Opens an existing case file for reading; closes it on leaving the caller's scope.
void openforreading(const std::string& path, OpenFile& file) {
    check(cu::openfile(path, CG_MODE_READ, file.fn), path, "opening");
}

// Makes a new CGNS file at `path` through `write` (given the open file), under a temporary name
// beside `path` that is renamed into place at the end: the rename within one folder is atomic,
// so an interrupted write never leaves a half-made file at `path`.
template <class Write> void writeatomically(const std::string& path, Write write) {
    TemporaryFile temporary{path + ".tmp" + std::to_string(::getpid())};
    {
        OpenFile file;
        errno = 0;
        if (cg_open(temporary.path.c_str(), CG_MODE_WRITE, &file.fn) != CG_OK) {
            // A folder that is missing or closed to us: the system's reason.
            const int err = errno;
            throw CaseFileError("case file " + path + ": creating " + temporary.path + ": " +
                                    cu::describe(CG_ERROR),
                                err == ENOENT || err == ENOTDIR || err == EACCES ? err : 0);
        }
        write(file.fn);
        const int fn = file.fn;
        file.fn = 0;
        check(cg_close(fn), path, "closing " + temporary.path);
    }
    std::error_code ec;
    std::filesystem::rename(temporary.path, path, ec);
    if (ec) fail(path, "renaming " + temporary.path + " into place", ec.message());
    temporary.kept = true;
}

} // namespace

void writecasefile(const std::string& path, const BedGrid& bed,
                   const std::vector<Condition>& conditions) {
    const auto nodes = static_cast<std::size_t>(bed.ni) * static_cast<std::size_t>(bed.nj);
    if (bed.ni < 1 || bed.nj < 1 || bed.x.size() != nodes || bed.y.size() != nodes ||
        bed.elevation.size() != nodes) {
        fail(path, "checking the bed grid",
             "arrays must hold ni*nj = " + std::to_string(bed.ni) + "*" + std::to_string(bed.nj) +
                 " values each");
    }
    writeatomically(path, [&](int fn) { writecase(fn, path, bed, conditions); });
}

void writeresultsfile(const std::string& path, int ni, int nj, int nk, const double* x,
                      const double* y, const double* z, double time,
                      const std::vector<NodeField>& fields, const std::string& notesnode,
                      const std::vector<std::pair<std::string, double>>& notes,
                      const BedSurface* surface) {
    if (surface != nullptr && (surface->ni != ni || surface->nj != nj)) {
        fail(path, "checking the bed surface",
             "it must have the box's " + std::to_string(ni) + " x " + std::to_string(nj) +
                 " node columns");
    }
    writeatomically(path, [&](int fn) {
        int B = 0, Z = 0, C = 0, S = 0, F = 0;
        check(cg_base_write(fn, cu::flow_base, 3, 3, &B), path, "writing base /Flow");
        const cgsize_t size[9] = {ni, nj, nk, ni - 1, nj - 1, nk - 1, 0, 0, 0};
        check(cg_zone_write(fn, B, cu::box_zone, size, Structured, &Z), path, "writing zone Box");
        for (const auto& [name, values] :
             {std::pair{"CoordinateX", x}, {"CoordinateY", y}, {"CoordinateZ", z}})
            check(cg_coord_write(fn, B, Z, RealDouble, name, values, &C), path, name);
        check(cg_biter_write(fn, B, cu::base_iter_node, 1), path, "writing the time");
        const cgsize_t one = 1;
        check(cg_goto(fn, B, "BaseIterativeData_t", 1, "end"), path, "writing the time");
        check(cg_array_write(cu::time_values, RealDouble, 1, &one, &time), path, "the time");
        check(cg_ziter_write(fn, B, Z, cu::zone_iter_node), path, "writing the pointers");
        check(cg_goto(fn, B, "Zone_t", Z, "ZoneIterativeData_t", 1, "end"), path, "pointers");
        std::string pointer = std::string(cu::sol_prefix) + "1";
        pointer.resize(32, ' ');
        const cgsize_t pdims[2] = {32, 1};
        check(cg_array_write(cu::sol_pointers, Character, 2, pdims, pointer.data()), path,
              "writing the pointers");
        check(cg_sol_write(fn, B, Z, (std::string(cu::sol_prefix) + "1").c_str(), Vertex, &S), path,
              "writing the solution");
        for (const NodeField& f : fields)
            check(cg_field_write(fn, B, Z, S, RealDouble, f.name.c_str(), f.values, &F), path,
                  "writing " + f.name);
        check(cg_goto(fn, B, "end"), path, "going to /Flow");
        check(cg_user_data_write(notesnode.c_str()), path, "writing " + notesnode);
        check(cg_goto(fn, B, notesnode.c_str(), 0, "end"), path, "going to " + notesnode);
        for (const auto& [name, value] : notes)
            check(cg_array_write(name.c_str(), RealDouble, 1, &one, &value), path, name);
        if (surface != nullptr) writesurface(fn, path, *surface, time, pointer);
    });
}

std::vector<StoredCondition> listconditions(const std::string& path) {
    OpenFile file;
    openforreading(path, file);
    check(cg_gopath(file.fn, cu::conditions_path), path, "going to /Case/CalculationConditions");
    int narrays = 0;
    check(cg_narrays(&narrays), path, "counting the conditions");
    std::vector<StoredCondition> stored(static_cast<std::size_t>(narrays));
    for (int a = 1; a <= narrays; ++a) {
        check(cu::readcondition(a, stored[static_cast<std::size_t>(a - 1)]), path,
              "reading condition number " + std::to_string(a));
    }
    return stored;
}

BedGrid readbed(const std::string& path) {
    OpenFile file;
    openforreading(path, file);
    int B = 0, Z = 0;
    check(cu::locatebed(file.fn, B, Z), path, "finding /Case/Bed");
    BedGrid bed;
    check(cu::bedsize(file.fn, B, Z, bed.ni, bed.nj), path, "reading the size of /Case/Bed");
    check(cu::readbedcoords(file.fn, B, Z, bed.x, bed.y), path, "reading /Case/Bed coordinates");
    // A bed without "Elevation" is returned as it is, for the checks to name what is missing.
    if (const int rc = cu::readbedattribute(file.fn, B, Z, cu::elevation_field, bed.elevation);
        rc != CG_NODE_NOT_FOUND) {
        check(rc, path, "reading /Case/Bed/NodeAttributes/Elevation");
    }
    return bed;
}

} // namespace riffle::platform
