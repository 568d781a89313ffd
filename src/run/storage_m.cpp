#include "run/storage_m.hpp"

#include <unistd.h>

#include <bit>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>

#include "run/console_m.hpp"
#include "run/halo_m.hpp"
#include "run/messages.hpp"

namespace riffle {

Hierarchy::Hierarchy() = default;
Hierarchy::Hierarchy(Hierarchy&&) noexcept = default;
Hierarchy& Hierarchy::operator=(Hierarchy&&) noexcept = default;
Hierarchy::~Hierarchy() = default;

std::int32_t int32view(double slot) {
    // Little-endian: the first four bytes of the slot are the low half of the bit pattern.
    return static_cast<std::int32_t>(std::bit_cast<std::uint64_t>(slot) & 0xffffffffu);
}

int coarsestlevel(int imax, int jmax, int kmax) {
    int n = 0;
    if (imax >= 2) {
        int a = imax, b = jmax, c = kmax;
        while (a > 1 && b >= 2 && c >= 2) {
            --n;
            a /= 2;
            b /= 2;
            c /= 2;
        }
    }
    return n;
}

void levelcount(Storage& st) { st.lmin = coarsestlevel(st.imax, st.jmax, st.kmax); }

namespace {

struct Extents {
    Range cell_i, cell_j, cell_k; // cell-centred arrays
    Range face_i, face_j, face_k; // the extra ghost layer of a face array in its own direction
};

Extents extents(const Storage& st) {
    // The halo in x and y is as wide as the reach of the bed's interpolation blocks around a
    // forcing point, on one process as on a block of a divided box, the same for every array.
    const Range ri{1 - halowidth, st.imax + halowidth}, rj{1 - halowidth, st.jmax + halowidth};
    return {ri, rj, Range{0, st.kmax + 1}, ri, rj, Range{-1, st.kmax + 1}};
}

std::uint64_t cells(Range a, Range b, Range c) {
    return static_cast<std::uint64_t>(a.extent()) * static_cast<std::uint64_t>(b.extent()) *
           static_cast<std::uint64_t>(c.extent());
}

} // namespace

std::uint64_t physicalmemory() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pagesize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pagesize <= 0) return UINT64_MAX;
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pagesize);
}

std::uint64_t allocationbytes(const Storage& st) {
    const Extents e = extents(st);
    const std::uint64_t centre = cells(e.cell_i, e.cell_j, e.cell_k);
    const std::uint64_t uface = cells(e.face_i, e.cell_j, e.cell_k);
    const std::uint64_t vface = cells(e.cell_i, e.face_j, e.cell_k);
    const std::uint64_t wface = cells(e.cell_i, e.cell_j, e.face_k);
    std::uint64_t bytes = 0;
    for (int l = 0; l >= st.lmin; --l) {
        const int f = 1 << (-l);
        bytes +=
            3 * 8 *
            cells(Range{0, st.imax / f + 1}, Range{0, st.jmax / f + 1}, Range{0, st.kmax / f + 1});
    }
    // p, fu..fwo (6), nut, 7 strain arrays, vort, qc: 17 cell-centred reals.
    bytes += 17 * 8 * centre;
    bytes += 2 * 8 * (uface + vface + wface); // u, v, w and their old levels
    bytes += 2 * 4 * (uface + vface + wface); // flags and old flags
    bytes += 4 * centre;                      // iflagp
    bytes += 8 * cells(e.cell_i, e.cell_j, Range{0, 0});
    return bytes;
}

namespace {

void allocatelevel(mglevel& m, int ni, int nj, int nk) {
    m.ni = ni;
    m.nj = nj;
    m.nk = nk;
    const Range ri{0, m.ni + 1}, rj{0, m.nj + 1}, rk{0, m.nk + 1};
    // lphi is left unallocated: the solver forms the Laplacian inside its residual pass, and
    // operatorp allocates it when it is first asked for.
    for (Field3d* a : {&m.phi, &m.res, &m.src})
        a->allocate(ri, rj, rk);
}

// A block's hierarchy: its share of each level down to the level where one block unit is one
// cell (or the whole box's coarsest, if that comes first). Rank 0 also holds the whole box from
// that level down, where the coarse problem is gathered and solved.
void blockhierarchy(Storage& st) {
    const Decomposition& d = st.dec;
    const int lwhole = coarsestlevel(d.imaxg, d.jmaxg, st.kmax);
    int lblock = 0;
    while ((1 << -lblock) < d.unit && lblock > lwhole)
        --lblock;
    st.lmin = lblock;
    st.mglevels.clear();
    st.mglevels.resize(static_cast<std::size_t>(1 - lblock));
    for (int l = 0; l >= lblock; --l) {
        const Decomposition c = coarsened(d, l);
        allocatelevel(st.mg(l), c.ni, c.nj, st.kmax >> -l);
    }
    st.whole.reset();
    st.gathered = true;
    if (d.rank != 0) return;
    st.whole = std::make_unique<CoarseLevels>();
    CoarseLevels& w = *st.whole;
    w.grid.imax = d.imaxg;
    w.grid.jmax = d.jmaxg;
    w.grid.kmax = st.kmax;
    w.grid.lmin = lwhole;
    w.levels.mglevels.resize(static_cast<std::size_t>(1 - lwhole));
    for (int l = lblock; l >= lwhole; --l) {
        allocatelevel(w.levels.mg(l), d.imaxg >> -l, d.jmaxg >> -l, st.kmax >> -l);
        w.levels.mg(l).phi.fill(0.0);
    }
}

} // namespace

void allocation(Storage& st) {
    levelcount(st);
    if (allocationbytes(st) > physicalmemory()) errorreport(2);
    const Extents e = extents(st);
    try {
        if (st.dec.distributed()) {
            blockhierarchy(st);
        } else {
            st.mglevels.clear();
            st.mglevels.resize(static_cast<std::size_t>(1 - st.lmin));
            for (int l = 0; l >= st.lmin; --l) {
                const int f = 1 << (-l);
                allocatelevel(st.mg(l), st.imax / f, st.jmax / f, st.kmax / f);
            }
        }
        st.p.allocate(e.cell_i, e.cell_j, e.cell_k);
        st.u.allocate(e.face_i, e.cell_j, e.cell_k);
        st.v.allocate(e.cell_i, e.face_j, e.cell_k);
        st.w.allocate(e.cell_i, e.cell_j, e.face_k);
        st.uo.allocate(e.face_i, e.cell_j, e.cell_k);
        st.vo.allocate(e.cell_i, e.face_j, e.cell_k);
        st.wo.allocate(e.cell_i, e.cell_j, e.face_k);
        for (Field3d* a :
             {&st.fu, &st.fv, &st.fw, &st.fuo, &st.fvo, &st.fwo, &st.vort, &st.qc, &st.nut, &st.s11,
              &st.s22, &st.s33, &st.s12, &st.s13, &st.s23, &st.sabs}) {
            a->allocate(e.cell_i, e.cell_j, e.cell_k);
        }
        st.iflagu.allocate(e.face_i, e.cell_j, e.cell_k);
        st.iflagv.allocate(e.cell_i, e.face_j, e.cell_k);
        st.iflagw.allocate(e.cell_i, e.cell_j, e.face_k);
        st.iflagp.allocate(e.cell_i, e.cell_j, e.cell_k);
        st.iflaguo.allocate(e.face_i, e.cell_j, e.cell_k);
        st.iflagvo.allocate(e.cell_i, e.face_j, e.cell_k);
        st.iflagwo.allocate(e.cell_i, e.cell_j, e.face_k);
        st.zb.allocate(e.cell_i, e.cell_j);
        // Every point counts as fluid until the first classification against the bed.
        for (Field3i* a : {&st.iflagu, &st.iflagv, &st.iflagw, &st.iflagp, &st.iflaguo, &st.iflagvo,
                           &st.iflagwo}) {
            a->fill(1);
        }
        constexpr std::size_t npointsmax = 1; // room for one restart point
        for (auto& a : st.ptdata)
            a.assign(npointsmax, 0.0);
        st.ptindex.assign(npointsmax, 0);
    } catch (const std::bad_alloc&) {
        errorreport(2);
    } catch (const std::length_error&) {
        errorreport(2);
    }
}

void errorreport(int code, const std::string& detail) {
    if (myrank() != 0) {
        // Several ranks meet the same error: rank 0 reports it. The others leave a moment later,
        // so that the launcher, which ends the run when the first rank fails, lets it finish.
        std::this_thread::sleep_for(std::chrono::seconds(2));
        std::exit(EXIT_FAILURE);
    }
    switch (code) {
    case 1:
        console::writeline(messages::error_parameters);
        break;
    case 2:
        console::writeline(messages::error_allocate);
        break;
    case 3:
        console::writeline(messages::error_restart);
        break;
    default:
        break;
    }
    if (!detail.empty()) console::writeline(detail);
    console::pause();
    std::fflush(stdout);
    std::exit(EXIT_FAILURE);
}

} // namespace riffle
