#include "run/wholestate_m.hpp"

#include <algorithm>
#include <memory>

#include "run/halo_m.hpp"
#include "run/statistics_m.hpp"

namespace riffle {

namespace {

// The cells (or nodes) a block answers for in whole-box indices: its own, and the ghost layer of
// each box face it lies on.
Range ownedcells(const Decomposition& d, int n, int lowface, int highface) {
    return {d.ownsface(lowface) ? 0 : 1, d.ownsface(highface) ? n + 1 : n};
}

// A block's field into the whole box's: the cells it answers for (a node field: its nodes).
void gathercells(const Decomposition& d, const Field3d& local, int ni, int nj, int i0, int j0,
                 Field3d* whole) {
    gather(local, ownedcells(d, ni, west, east), ownedcells(d, nj, south, north), i0, j0, whole);
}
void gathernodes(const Decomposition& d, const Field3d& local, int ni, int nj, Field3d* whole) {
    gather(local, Range{0, ni}, Range{0, nj}, d.i0, d.j0, whole);
}

// The whole box's field into a block's: its cells and its halo as far as the box (with its ghost
// layer) reaches. What wraps across a periodic face comes from the neighbour after.
void scattercells(Field3d& local, int ngi, int ngj, int i0, int j0, const Field3d* whole) {
    const Range ri = local.irange(), rj = local.jrange();
    const Range li{std::max(ri.lo, -i0), std::min(ri.hi, ngi + 1 - i0)};
    const Range lj{std::max(rj.lo, -j0), std::min(rj.hi, ngj + 1 - j0)};
    scatter(local, li, lj, i0, j0, whole);
}

// Two fields of the same ranges: b takes a's values.
void copyfield(const Field3d& a, Field3d& b) { std::copy(a.data(), a.data() + a.size(), b.data()); }

} // namespace

Storage* wholestate(const Storage& st) {
    static std::unique_ptr<Storage> whole;
    if (myrank() != 0) return nullptr;
    if (!whole) {
        whole = std::make_unique<Storage>();
        Storage& w = *whole;
        w.imax = st.dec.imaxg;
        w.jmax = st.dec.jmaxg;
        w.kmax = st.kmax;
        w.dx = st.dx;
        w.dy = st.dy;
        w.dz = st.dz;
        w.xmin = st.xmin;
        w.xmax = st.xmax;
        w.ymin = st.ymin;
        w.ymax = st.ymax;
        w.zmin = st.zmin;
        w.zmax = st.zmax;
        w.ibu = st.ibu;
        w.ibv = st.ibv;
        w.ibw = st.ibw;
        w.ibp = st.ibp;
        allocation(w);
        for (int l = 0; l >= w.lmin; --l)
            w.mg(l).phi.fill(0.0);
        w.stats.enabled = st.stats.enabled;
        w.stats.start = st.stats.start;
        if (st.stats.enabled == 1) allocatestatistics(w);
    }
    return whole.get();
}

namespace {

// Gathers `part` of the blocks' state into rank 0's whole box (collective).
void gatherstate(const Storage& st, Part part) {
    Storage* const w = wholestate(st);
    if (w != nullptr) {
        w->outpath = st.outpath;
        w->outfile = st.outfile;
        w->istep = st.istep;
        w->time = st.time;
        w->npt = st.npt;
        w->ptdata = st.ptdata;
        w->ptindex = st.ptindex;
        w->stats.samples = st.stats.samples;
        w->stats.first = st.stats.first;
        w->stats.last = st.stats.last;
        w->stats.sumfx = st.stats.sumfx;
        w->stats.bedsamples = st.stats.bedsamples;
        w->stats.forcesamples = st.stats.forcesamples;
        w->stats.sumpressuredrag = st.stats.sumpressuredrag;
        w->stats.sumflowdriving = st.stats.sumflowdriving;
        w->iwallmodel = st.iwallmodel; // whether the files carry the bed's sums
    }
    const Decomposition& d = st.dec;
    // The bed is the whole box's on every rank: rank 0 copies its own.
    const auto bed = [&] {
        if (w == nullptr) return;
        for (int j = 0; j <= w->jmax + 1; ++j)
            for (int i = 0; i <= w->imax + 1; ++i)
                w->zb(i, j) = st.zb(i - d.i0, j - d.j0);
    };
    const auto cells = [&](Field3d Storage::*f) {
        gathercells(d, st.*f, st.imax, st.jmax, d.i0, d.j0, w ? &(w->*f) : nullptr);
    };
    if (part == Part::restart) {
        for (int l = 0; l >= st.lmin; --l) {
            const Decomposition c = coarsened(d, l);
            const mglevel& m = st.mg(l);
            gathercells(d, m.phi, m.ni, m.nj, c.i0, c.j0, w ? &w->mg(l).phi : nullptr);
        }
        // The coarser levels live on rank 0 alone.
        if (w != nullptr) {
            for (int l = st.lmin - 1; l >= w->lmin; --l)
                copyfield(st.whole->levels.mg(l).phi, w->mg(l).phi);
        }
        bed();
        for (Field3d Storage::*f : {&Storage::uo, &Storage::vo, &Storage::wo, &Storage::fu,
                                    &Storage::fv, &Storage::fw, &Storage::nut}) {
            cells(f);
        }
        if (st.stats.enabled == 1) cells(&Storage::p);
    }
    if (part == Part::flow) {
        for (Field3d Storage::*f :
             {&Storage::u, &Storage::v, &Storage::w, &Storage::p, &Storage::vort, &Storage::qc}) {
            cells(f);
        }
        bed();
    }
    if ((part == Part::restart || part == Part::statistics) && st.stats.enabled == 1) {
        for (std::size_t m = 0; m < st.stats.sum.size(); ++m) {
            gathernodes(d, st.stats.sum[m], st.imax, st.jmax, w ? &w->stats.sum[m] : nullptr);
        }
        if (st.iwallmodel == 1) {
            for (std::size_t m = 0; m < st.stats.bedsum.size(); ++m) {
                gathernodes(d, st.stats.bedsum[m], st.imax, st.jmax,
                            w ? &w->stats.bedsum[m] : nullptr);
            }
        }
    }
}

} // namespace

const Storage* filesource(const Storage& st, Part part) {
    if (!st.dec.distributed()) return &st;
    gatherstate(st, part);
    return wholestate(st);
}

void scatterrestart(Storage& st) {
    Storage* const w = wholestate(st);
    const Decomposition& d = st.dec;
    int istep = w ? w->istep : 0;
    double time = w ? w->time : 0.0;
    broadcast(istep);
    broadcast(time);
    st.istep = istep;
    st.time = time;
    if (w != nullptr) {
        st.npt = w->npt;
        st.ptdata = w->ptdata;
        st.ptindex = w->ptindex;
    }
    for (int l = 0; l >= st.lmin; --l) {
        const Decomposition c = coarsened(d, l);
        mglevel& m = st.mg(l);
        scattercells(m.phi, c.imaxg, c.jmaxg, c.i0, c.j0, w ? &w->mg(l).phi : nullptr);
        exchange(d, m.phi, m.ni, m.nj, true);
    }
    if (w != nullptr) {
        for (int l = st.lmin; l >= w->lmin; --l)
            copyfield(w->mg(l).phi, st.whole->levels.mg(l).phi);
    }
    for (Field3d Storage::*f : {&Storage::uo, &Storage::vo, &Storage::wo, &Storage::fu,
                                &Storage::fv, &Storage::fw, &Storage::nut, &Storage::p}) {
        if (f == &Storage::p && st.stats.enabled != 1) continue;
        scattercells(st.*f, d.imaxg, d.jmaxg, d.i0, d.j0, w ? &(w->*f) : nullptr);
        // The momentum terms are read at their own cells only: their halo keeps what the file
        // gave the box's ghost layer (a one-process run never writes those ghosts).
        const bool ownonly = f == &Storage::fu || f == &Storage::fv || f == &Storage::fw;
        if (!ownonly) exchange(d, st.*f, st.imax, st.jmax);
    }
    // The restart file carries the bed too: every rank takes the whole box's.
    Field2d bed(Range{0, d.imaxg + 1}, Range{0, d.jmaxg + 1});
    if (w != nullptr) {
        for (int j = 0; j <= d.jmaxg + 1; ++j)
            for (int i = 0; i <= d.imaxg + 1; ++i)
                bed(i, j) = w->zb(i, j);
    }
    broadcast(bed.data(), bed.size());
    std::copy(bed.data(), bed.data() + bed.size(), st.zb.data());
    if (st.stats.enabled == 1) {
        double scalars[8] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
        if (w != nullptr) {
            scalars[0] = static_cast<double>(w->stats.samples);
            scalars[1] = w->stats.first;
            scalars[2] = w->stats.last;
            scalars[3] = w->stats.sumfx;
            scalars[4] = static_cast<double>(w->stats.bedsamples);
            scalars[5] = static_cast<double>(w->stats.forcesamples);
            scalars[6] = w->stats.sumpressuredrag;
            scalars[7] = w->stats.sumflowdriving;
        }
        broadcast(scalars, 8);
        st.stats.samples = static_cast<long long>(scalars[0]);
        st.stats.first = scalars[1];
        st.stats.last = scalars[2];
        st.stats.sumfx = scalars[3];
        st.stats.bedsamples = static_cast<long long>(scalars[4]);
        st.stats.forcesamples = static_cast<long long>(scalars[5]);
        st.stats.sumpressuredrag = scalars[6];
        st.stats.sumflowdriving = scalars[7];
        for (std::size_t m = 0; m < st.stats.sum.size(); ++m) {
            scatter(st.stats.sum[m], Range{0, st.imax}, Range{0, st.jmax}, d.i0, d.j0,
                    w ? &w->stats.sum[m] : nullptr);
        }
        // The bed's sums too: the model's switch is read only after the restart file.
        for (std::size_t m = 0; m < st.stats.bedsum.size(); ++m) {
            scatter(st.stats.bedsum[m], Range{0, st.imax}, Range{0, st.jmax}, d.i0, d.j0,
                    w ? &w->stats.bedsum[m] : nullptr);
        }
    }
    // The step continues from the saved previous level, ghost layers included.
    std::copy(st.uo.data(), st.uo.data() + st.uo.size(), st.u.data());
    std::copy(st.vo.data(), st.vo.data() + st.vo.size(), st.v.data());
    std::copy(st.wo.data(), st.wo.data() + st.wo.size(), st.w.data());
}

} // namespace riffle
