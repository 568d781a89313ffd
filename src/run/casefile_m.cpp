#include "run/casefile_m.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/kavellib.hpp"
#include "run/halo_m.hpp"
#include "run/messages.hpp"

namespace riffle {

namespace pf = platform;

// On several ranks rank 0 alone has the case file open: it reads, and every rank gets the value.
void readinteger(const char* key, int& value) {
    int ier = 0;
    if (myrank() == 0) pf::CG_KAVEL_READ_INTEGER_F(key, value, ier);
    if (rankcount() > 1) broadcast(value);
}
void readreal(const char* key, double& value) {
    int ier = 0;
    if (myrank() == 0) pf::CG_KAVEL_READ_REAL_F(key, value, ier);
    if (rankcount() > 1) broadcast(value);
}
void readstring(const char* key, std::string& value) {
    int ier = 0;
    if (myrank() == 0) pf::CG_KAVEL_READ_STRING_F(key, value, ier);
    if (rankcount() > 1) broadcast(value);
}

int kmaxfromexponent(int n) {
    // The range test is made on the exponent as an unsigned number, so a negative n fails it too.
    if (static_cast<std::uint32_t>(n) > 31u) return 0;
    return static_cast<std::int32_t>(std::uint32_t{1} << n); // n = 31 wraps to a negative count
}

void gridsetup(Storage& st, NodeArrays& nodes) {
    int ni = 0, nj = 0, ier = 0;
    // Several ranks: rank 0 reads the grid and builds the 3-D node coordinates for the grid write;
    // every rank gets the sizes, the box and the bed of the whole grid.
    const bool root = myrank() == 0, several = rankcount() > 1;
    if (root) pf::CG_KAVEL_GOTOGRIDCOORD2D_F(ni, nj, ier);
    if (several) {
        broadcast(ni);
        broadcast(nj);
    }
    int n = 0;
    readinteger("kmaxItm", n);
    st.imax = ni - 1;
    st.jmax = nj - 1;
    st.kmax = kmaxfromexponent(n);

    const Range ni_r{0, st.imax}, nj_r{0, st.jmax}, nk_r{0, st.kmax};
    const std::uint64_t nodecount = static_cast<std::uint64_t>(ni) *
                                    static_cast<std::uint64_t>(nj) *
                                    static_cast<std::uint64_t>(st.kmax + 1);
    try {
        if (nodecount > (std::uint64_t{1} << 31)) throw std::bad_alloc();
        if (root) {
            for (Field3d* a : {&nodes.x3, &nodes.y3, &nodes.z3, &nodes.node}) {
                a->allocate(ni_r, nj_r, nk_r);
            }
        }
        nodes.elev.allocate(ni_r, nj_r);
    } catch (const std::bad_alloc&) {
        errorreport(2);
    }

    if (root) {
        // The k = 0 plane of x3 and y3 holds the 2-D node coordinates (i fastest, as stored).
        pf::CG_KAVEL_GETGRIDCOORD2D_F(nodes.x3.data(), nodes.y3.data(), ier);
        pf::CG_KAVEL_READ_GRID_REAL_NODE_F("Elevation", nodes.elev.data(), ier);
        // The box comes from two corner nodes only; the grid is taken as uniform and
        // axis-aligned.
        st.xmin = nodes.x3(0, 0, 0);
        st.ymin = nodes.y3(0, 0, 0);
        st.xmax = nodes.x3(st.imax, st.jmax, 0);
        st.ymax = nodes.y3(st.imax, st.jmax, 0);
    }
    if (several) {
        broadcast(nodes.elev.data(), nodes.elev.size());
        for (double* x : {&st.xmin, &st.ymin, &st.xmax, &st.ymax})
            broadcast(*x);
    }
    readreal("zminItm", st.zmin);
    readreal("zmaxItm", st.zmax);
    st.dx = (st.xmax - st.xmin) / st.imax;
    st.dy = (st.ymax - st.ymin) / st.jmax;
    st.dz = (st.zmax - st.zmin) / st.kmax;

    if (!root) return;
    for (int k = 0; k <= st.kmax; ++k) {
        for (int j = 0; j <= st.jmax; ++j) {
            for (int i = 0; i <= st.imax; ++i) {
                nodes.x3(i, j, k) = nodes.x3(i, j, 0);
                nodes.y3(i, j, k) = nodes.y3(i, j, 0);
                nodes.z3(i, j, k) = st.zmin + k * st.dz;
            }
        }
    }
}

void writegrid(const Storage& st, const NodeArrays& nodes) {
    int ier = 0;
    pf::CG_KAVEL_WRITEGRIDCOORD3D_F(st.imax + 1, st.jmax + 1, st.kmax + 1, nodes.x3.data(),
                                    nodes.y3.data(), nodes.z3.data(), ier);
    casewritten(st, ier);
}

void casewritten(const Storage& st, int ier) {
    if (ier == 0) return;
    throw std::runtime_error(std::string(messages::error_write) +
                             (st.casename.empty() ? std::string("of the case") : st.casename) +
                             " (" + pf::lastwriteproblem() + ")");
}

void writebedsurface(const Storage& st, const NodeArrays& nodes) {
    // The whole grid's nodes, also on several ranks (rank 0 writes).
    const int ni = st.iwhole() + 1, nj = st.jwhole() + 1;
    const std::size_t count = static_cast<std::size_t>(ni) * static_cast<std::size_t>(nj);
    std::vector<double> x(count), y(count);
    for (int j = 0, at = 0; j < nj; ++j) {
        for (int i = 0; i < ni; ++i, ++at) {
            x[static_cast<std::size_t>(at)] = st.xmin + i * st.dx;
            y[static_cast<std::size_t>(at)] = st.ymin + j * st.dy;
        }
    }
    int ier = 0;
    pf::CG_KAVEL_WRITEBEDSURFACE_F(ni, nj, x.data(), y.data(), nodes.elev.data(), ier);
    casewritten(st, ier);
}

void readphysics(Storage& st) {
    readreal("viscItm", st.visc);
    readreal("densItm", st.dens);
    readreal("gravityItm", st.gravity);
    readreal("dischargeItm", st.discharge);
    readinteger("timetypeItm", st.timetype);
    if (st.timetype == 1) readreal("timestepItm", st.dt);
    if (st.timetype == 0) readreal("cflItm", st.cfl);
    int xbound = 0, ybound = 0, zbound = 0;
    readinteger("xBoundItm", xbound);
    readinteger("yBoundItm", ybound);
    readinteger("zBoundItm", zbound);
    setboundarycodes(st, xbound, ybound, zbound);
}

void setboundarycodes(Storage& st, int xbound, int ybound, int zbound) {
    if (xbound == 0) {
        for (int f : {west, east}) {
            st.ibu[f] = st.ibv[f] = st.ibw[f] = st.ibp[f] = 0;
            st.ubval[f] = st.vbval[f] = st.wbval[f] = 0.0;
        }
    }
    // Any other x switch sets nothing: the codes stay periodic either way.
    for (int f : {south, north}) {
        if (ybound != 0) {
            st.ibu[f] = st.ibv[f] = st.ibw[f] = -1; // side walls
            st.ibp[f] = 1;
        } else {
            st.ibu[f] = st.ibv[f] = st.ibw[f] = st.ibp[f] = 0;
        }
        st.ubval[f] = st.vbval[f] = st.wbval[f] = 0.0;
    }
    const int topcode = zbound == 0 ? 1 : -1; // free-slip or no-slip lid for u and v
    st.ibu[top] = st.ibv[top] = topcode;
    st.ibu[bottom] = -1;
    st.ibv[bottom] = -1;
    // w and p take these pairs whatever the switch: w vanishes at the lid, p has zero gradient.
    st.ibw[bottom] = 1;
    st.ibw[top] = -1;
    st.ibp[bottom] = -1;
    st.ibp[top] = 1;
    for (int f : {bottom, top})
        st.ubval[f] = st.vbval[f] = st.wbval[f] = 0.0;
}

void readinitialconditions(Storage& st) {
    readreal("iInitialItm", st.iInitial);
    // The switches are tested through the low half of their bit pattern, so a whole-number real
    // (1.0 included) never tests equal to 1: kept on purpose, cases depend on it.
    if (int32view(st.iInitial) == 1) {
        readreal("xInitItm", st.xInit);
        readreal("yInitItm", st.yInit);
        readreal("zInitItm", st.zInit);
    }
    readreal("iPerturbItmItm", st.iPerturb);
    if (int32view(st.iPerturb) == 1) readreal("amplitudeItm", st.amplitude);
}

namespace {

// The cell-centred bed of an imax x jmax grid and its ghost rows, over (0:imax+1, 0:jmax+1).
void bedcentres(const Storage& st, const Field2d& elev, int imax, int jmax, Field2d& zb) {
    for (int j = 1; j <= jmax; ++j) {
        for (int i = 1; i <= imax; ++i) {
            zb(i, j) = 0.25 * (elev(i - 1, j - 1) + elev(i, j - 1) + elev(i - 1, j) + elev(i, j));
        }
    }
    // Ghost rows: |code| 1 copies the neighbouring row, 0 wraps periodically. The y rows first,
    // so the corners take the x rule applied to finished y rows.
    const double c3 = std::abs(st.ibp[south]), c4 = std::abs(st.ibp[north]);
    for (int i = 0; i <= imax + 1; ++i) {
        zb(i, 0) = c3 * zb(i, 1) + (1.0 - c3) * zb(i, jmax);
        zb(i, jmax + 1) = c4 * zb(i, jmax) + (1.0 - c4) * zb(i, 1);
    }
    const double c1 = std::abs(st.ibp[west]), c2 = std::abs(st.ibp[east]);
    for (int j = 0; j <= jmax + 1; ++j) {
        zb(0, j) = c1 * zb(1, j) + (1.0 - c1) * zb(imax, j);
        zb(imax + 1, j) = c2 * zb(imax, j) + (1.0 - c2) * zb(1, j);
    }
}

} // namespace

void buildzb(Storage& st, const Field2d& elev) {
    if (!st.dec.distributed()) {
        bedcentres(st, elev, st.imax, st.jmax, st.zb);
        return;
    }
    // Several ranks: every block keeps the bed of the whole box (a plane, small beside the
    // fields), indexed from its own origin, so a search near a block face or across a periodic
    // face reads the bed as on one process.
    const Decomposition& d = st.dec;
    Field2d whole(Range{0, d.imaxg + 1}, Range{0, d.jmaxg + 1});
    bedcentres(st, elev, d.imaxg, d.jmaxg, whole);
    st.zb.allocate(Range{-d.i0, d.imaxg + 1 - d.i0}, Range{-d.j0, d.jmaxg + 1 - d.j0});
    std::copy(whole.data(), whole.data() + whole.size(), st.zb.data());
}

void readoutputsettings(Storage& st) {
    readreal("OTimeItm", st.otime);
    readinteger("HotoutItm", st.hotout);
    if (st.hotout == 1) readreal("dtHotoutItm", st.dthotout);
    readinteger("TecplotItm", st.tecplot);
    if (st.tecplot == 1) readreal("dtTecplotItm", st.dttecplot);
    readstring("outpathItm", st.outpath);
    readstring("outfileItm", st.outfile);
}

void readroughness(Storage& st) {
    st.ks = 1.0;
    readinteger("BedItm", st.ibed);
    if (st.ibed == 1) {
        readreal("SedimentItm", st.ks);
    } else if (st.ibed == 2) {
        readreal("RoughItm", st.ks);
        st.ks /= 2.5; // roughness height to equivalent grain size
    }
    // With the bed's settings, so that the first write of the results knows whether the bed
    // shear stress is among them.
    readinteger("iWallModelItm", st.iwallmodel);
}

void readsolversettings(Storage& st) {
    readreal("smagorinskyItm", st.cs);
    readinteger("iIBMItm", st.iIBM);
    int icycle = 0;
    readinteger("iCycleItm", icycle);
    if (icycle == 1) {
        st.igamma = 1;
    } else {
        readinteger("igammaItm", st.igamma);
    }
    readinteger("ipresItm", st.ipres);
    readinteger("ipostsItm", st.iposts);
    readinteger("kpoismaxItm", st.kpoismax);
    readinteger("epsItm", st.eps);
}

} // namespace riffle
