// Private helpers of the platform layer over the CGNS mid-level library; see cgnsutil.hpp.
#include "platform/cgnsutil.hpp"

#include <cgns_io.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <mutex>

namespace riffle::platform::cgnsutil {

namespace {

// The library prints its warnings on stdout unless a handler takes them; the solver's console
// output must stay its own. Errors need no handling here: the library keeps their text for
// cg_get_error() and every call's return code is checked.
void dropmessage(int /*level*/, char* /*message*/) {}

void quietlibrary() {
    static std::once_flag once;
    std::call_once(once, [] { cg_error_handler(dropmessage); });
}

} // namespace

std::string describe(int rc) {
    switch (rc) {
    case CG_OK:
        return "no error";
    case CG_NODE_NOT_FOUND:
        return "node not found";
    case missing_file:
        return "no such file";
    case not_cgns:
        return "unreadable or not a CGNS file";
    case bad_layout:
        return "node of unexpected type or shape";
    default:
        break;
    }
    std::string text = cg_get_error();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

int openfile(const std::string& path, int mode, int& fn) {
    quietlibrary();
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) return missing_file;
    // cgio_check_file reads only the leading bytes; cg_is_cgns then opens read-only and looks for
    // the CGNSLibraryVersion node, which rejects HDF5 files of other programs. Only after both
    // does cg_open see the file, whose modify mode would otherwise write into a foreign file.
    int type = CG_FILE_NONE;
    if (cgio_check_file(path.c_str(), &type) != CG_OK || type == CG_FILE_NONE) return not_cgns;
    if (cg_is_cgns(path.c_str(), &type) != CG_OK) return not_cgns;
    int handle = 0;
    if (const int rc = cg_open(path.c_str(), mode, &handle); rc != CG_OK) return rc;
    fn = handle;
    return CG_OK;
}

int findbase(int fn, const char* name, int& B) {
    int nbases = 0;
    if (const int rc = cg_nbases(fn, &nbases); rc != CG_OK) return rc;
    for (int b = 1; b <= nbases; ++b) {
        char bname[33] = {};
        int celldim = 0, physdim = 0;
        if (const int rc = cg_base_read(fn, b, bname, &celldim, &physdim); rc != CG_OK) return rc;
        if (std::strcmp(bname, name) == 0) {
            B = b;
            return CG_OK;
        }
    }
    return CG_NODE_NOT_FOUND;
}

int findzone(int fn, int B, const char* name, int& Z) {
    int nzones = 0;
    if (const int rc = cg_nzones(fn, B, &nzones); rc != CG_OK) return rc;
    for (int z = 1; z <= nzones; ++z) {
        char zname[33] = {};
        cgsize_t size[9] = {};
        if (const int rc = cg_zone_read(fn, B, z, zname, size); rc != CG_OK) return rc;
        if (std::strcmp(zname, name) == 0) {
            Z = z;
            return CG_OK;
        }
    }
    return CG_NODE_NOT_FOUND;
}

int findsol(int fn, int B, int Z, const char* name, int& S) {
    int nsols = 0;
    if (const int rc = cg_nsols(fn, B, Z, &nsols); rc != CG_OK) return rc;
    for (int s = 1; s <= nsols; ++s) {
        char sname[33] = {};
        GridLocation_t location = GridLocationNull;
        if (const int rc = cg_sol_info(fn, B, Z, s, sname, &location); rc != CG_OK) return rc;
        if (std::strcmp(sname, name) == 0) {
            S = s;
            return CG_OK;
        }
    }
    return CG_NODE_NOT_FOUND;
}

int findarray(const char* name, int& A) {
    int narrays = 0;
    if (const int rc = cg_narrays(&narrays); rc != CG_OK) return rc;
    for (int a = 1; a <= narrays; ++a) {
        char aname[33] = {};
        DataType_t type = DataTypeNull;
        int ndim = 0;
        cgsize_t dims[CGIO_MAX_DIMENSIONS] = {};
        if (const int rc = cg_array_info(a, aname, &type, &ndim, dims); rc != CG_OK) return rc;
        if (std::strcmp(aname, name) == 0) {
            A = a;
            return CG_OK;
        }
    }
    return CG_NODE_NOT_FOUND;
}

int locatebed(int fn, int& B, int& Z) {
    int b = 0, z = 0;
    if (const int rc = findbase(fn, case_base, b); rc != CG_OK) return rc;
    if (const int rc = findzone(fn, b, bed_zone, z); rc != CG_OK) return rc;
    ZoneType_t type = ZoneTypeNull;
    if (const int rc = cg_zone_type(fn, b, z, &type); rc != CG_OK) return rc;
    int indexdim = 0;
    if (const int rc = cg_index_dim(fn, b, z, &indexdim); rc != CG_OK) return rc;
    if (type != Structured || indexdim != 2) return bad_layout;
    B = b;
    Z = z;
    return CG_OK;
}

int bedsize(int fn, int B, int Z, int& ni, int& nj) {
    char zname[33] = {};
    cgsize_t size[9] = {};
    if (const int rc = cg_zone_read(fn, B, Z, zname, size); rc != CG_OK) return rc;
    ni = static_cast<int>(size[0]);
    nj = static_cast<int>(size[1]);
    return CG_OK;
}

int readbedcoords(int fn, int B, int Z, std::vector<double>& x, std::vector<double>& y) {
    int ni = 0, nj = 0;
    if (const int rc = bedsize(fn, B, Z, ni, nj); rc != CG_OK) return rc;
    const cgsize_t rmin[2] = {1, 1};
    const cgsize_t rmax[2] = {ni, nj};
    std::vector<double> xs(static_cast<std::size_t>(ni) * nj);
    std::vector<double> ys(xs.size());
    if (const int rc = cg_coord_read(fn, B, Z, "CoordinateX", RealDouble, rmin, rmax, xs.data());
        rc != CG_OK)
        return rc;
    if (const int rc = cg_coord_read(fn, B, Z, "CoordinateY", RealDouble, rmin, rmax, ys.data());
        rc != CG_OK)
        return rc;
    x = std::move(xs);
    y = std::move(ys);
    return CG_OK;
}

int readbedattribute(int fn, int B, int Z, const char* name, std::vector<double>& values) {
    int ni = 0, nj = 0, S = 0;
    if (const int rc = bedsize(fn, B, Z, ni, nj); rc != CG_OK) return rc;
    if (const int rc = findsol(fn, B, Z, attributes_node, S); rc != CG_OK) return rc;
    char sname[33] = {};
    GridLocation_t location = GridLocationNull;
    if (const int rc = cg_sol_info(fn, B, Z, S, sname, &location); rc != CG_OK) return rc;
    if (location != Vertex) return bad_layout;
    const cgsize_t rmin[2] = {1, 1};
    const cgsize_t rmax[2] = {ni, nj};
    std::vector<double> v(static_cast<std::size_t>(ni) * nj);
    if (const int rc = cg_field_read(fn, B, Z, S, name, RealDouble, rmin, rmax, v.data());
        rc != CG_OK)
        return rc;
    values = std::move(v);
    return CG_OK;
}

int readcondition(int A, StoredCondition& c) {
    char name[33] = {};
    DataType_t type = DataTypeNull;
    int ndim = 0;
    cgsize_t dims[CGIO_MAX_DIMENSIONS] = {};
    if (const int rc = cg_array_info(A, name, &type, &ndim, dims); rc != CG_OK) return rc;
    long length = 1;
    for (int d = 0; d < ndim; ++d)
        length *= dims[d];
    StoredCondition out;
    out.key = name;
    out.datatype = cg_DataTypeName(type);
    out.length = length;
    // Only the three forms of the layout carry a value: I4(1), R8(1) and a 1-D C1 string.
    if (ndim == 1 && length == 1 && type == Integer) {
        int v = 0;
        if (const int rc = cg_array_read(A, &v); rc != CG_OK) return rc;
        out.value = v;
    } else if (ndim == 1 && length == 1 && type == RealDouble) {
        double v = 0.0;
        if (const int rc = cg_array_read(A, &v); rc != CG_OK) return rc;
        out.value = v;
    } else if (ndim == 1 && type == Character) {
        std::string v(static_cast<std::size_t>(length), ' ');
        if (const int rc = cg_array_read(A, v.data()); rc != CG_OK) return rc;
        out.value = std::move(v);
    }
    c = std::move(out);
    return CG_OK;
}

} // namespace riffle::platform::cgnsutil
