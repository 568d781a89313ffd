#include "run/results_m.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "ibm/wallmodel_m.hpp"
#include "platform/kavellib.hpp"
#include "run/casefile_m.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"
#include "run/statistics_m.hpp"
#include "run/wholestate_m.hpp"

namespace riffle {

namespace pf = platform;

namespace {

// The node average `value`(i, j, k) over the nodes, or zero at the nodes at or below the bed
// where `inbedzero` says so.
template <class Value>
void averagenodes(const Storage& st, const NodeArrays& nodes, bool inbedzero, Value value,
                  Field3d& out) {
    // The bed at the nodes covers the whole grid; a block reads it at its offset.
    const int gi = st.ioffset(), gj = st.joffset();
    const ConstView2<double> elev = nodes.elev.cview();
    const ConstView3<double> z3 = nodes.z3.cview();
    const View3<double> o = out.view();
    // Every node is averaged on its own.
    loops::forbox({{0, st.imax}, {0, st.jmax}, {0, st.kmax}}, [=](int i, int j, int k) {
        const bool fluid = !inbedzero || elev(i + gi, j + gj) < z3(i, j, k);
        o(i, j, k) = fluid ? value(i, j, k) : 0.0;
    });
}

} // namespace

void nodeaveraging(const Storage& st, const NodeArrays& nodes, NodeField field, Field3d& out) {
    const auto average = [&](bool inbedzero, auto value) {
        averagenodes(st, nodes, inbedzero, value, out);
    };
    const ConstView3<double> u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    const ConstView3<double> p = st.p.cview(), vort = st.vort.cview(), qc = st.qc.cview();
    switch (field) {
    case NodeField::unode:
        return average(true, [=](int i, int j, int k) { return nodeu(u, i, j, k); });
    case NodeField::vnode:
        return average(true, [=](int i, int j, int k) { return nodev(v, i, j, k); });
    case NodeField::wnode:
        return average(true, [=](int i, int j, int k) { return nodew(w, i, j, k); });
    // The pressure is written everywhere, inside the bed too.
    case NodeField::pnode:
        return average(false, [=](int i, int j, int k) { return eightcells(p, i, j, k); });
    case NodeField::vortnode:
        return average(true, [=](int i, int j, int k) { return eightcells(vort, i, j, k); });
    case NodeField::qnode:
        return average(true, [=](int i, int j, int k) { return eightcells(qc, i, j, k); });
    }
}

void writeresults(const Storage& st, NodeArrays& nodes) {
    // On several ranks rank 0 gathers each node field of the blocks into one field of the whole
    // grid and writes it (a node on a block face is the same value on both blocks).
    const bool blocks = st.dec.distributed(), root = myrank() == 0;
    static Field3d whole;
    if (blocks && root && !whole.allocated()) {
        whole.allocate(Range{0, st.iwhole()}, Range{0, st.jwhole()}, Range{0, st.kmax});
    }
    int ier = 0;
    if (root) pf::CG_KAVEL_WRITE_SOL_TIME_F(st.time, ier);
    casewritten(st, ier);
    const std::pair<const char*, NodeField> fields[] = {
        {"VelocityX", NodeField::unode},    {"VelocityY", NodeField::vnode},
        {"VelocityZ", NodeField::wnode},    {"Pressure", NodeField::pnode},
        {"Vorticity", NodeField::vortnode}, {"Coherent", NodeField::qnode}};
    for (const auto& [name, field] : fields) {
        nodeaveraging(st, nodes, field, nodes.node);
        const Field3d* out = &nodes.node;
        if (blocks) {
            gather(nodes.node, Range{0, st.imax}, Range{0, st.jmax}, st.dec.i0, st.dec.j0,
                   root ? &whole : nullptr);
            out = &whole;
        }
        if (root) pf::CG_KAVEL_WRITE_SOL_REAL_F(name, out->data(), ier);
        casewritten(st, ier);
    }
    if (st.iwallmodel == 1) writebedshear(st);
    // The solution reaches the disk whole, or (if the run dies first) not at all.
    if (root) pf::CG_KAVEL_FLUSH_F(ier);
    casewritten(st, ier);
}

void writebedshear(const Storage& st) {
    const bool blocks = st.dec.distributed(), root = myrank() == 0;
    ibm::BedShearNodes b;
    ibm::bedshearnodes(st.geometry(), st.conditions(), st.bed(), b);
    // On several ranks each field goes through a plane of the block's nodes to rank 0's plane of
    // the whole grid, as the box's fields do.
    static Field3d mine, whole;
    if (blocks && !mine.allocated()) {
        mine.allocate(Range{0, st.imax}, Range{0, st.jmax}, Range{0, 0});
        if (root) whole.allocate(Range{0, st.iwhole()}, Range{0, st.jwhole()}, Range{0, 0});
    }
    const std::pair<const char*, const std::vector<double>*> fields[] = {
        {"BedShearStress", &b.tau}, {"BedShearStressX", &b.taux}, {"BedShearStressY", &b.tauy}};
    int ier = 0;
    for (const auto& [name, values] : fields) {
        const double* out = values->data();
        if (blocks) {
            std::copy(values->begin(), values->end(), mine.data());
            gather(mine, Range{0, st.imax}, Range{0, st.jmax}, st.dec.i0, st.dec.j0,
                   root ? &whole : nullptr);
            out = whole.data();
        }
        if (root) pf::CG_KAVEL_WRITE_BED_SOL_REAL_F(name, out, ier);
        casewritten(st, ier);
    }
}

void nodeheights(const Storage& st, Field3d& z3) {
    for (int k = z3.krange().lo; k <= z3.krange().hi; ++k)
        for (int j = z3.jrange().lo; j <= z3.jrange().hi; ++j)
            for (int i = z3.irange().lo; i <= z3.irange().hi; ++i)
                z3(i, j, k) = st.zmin + k * st.dz;
}

// The statistics file; on several ranks rank 0 writes it from the sums gathered over the whole
// grid, with the node heights of the whole grid.
void statisticsoutput(const Storage& st, const NodeArrays& nodes) {
    if (!st.dec.distributed()) {
        writestatistics(st, nodes);
        return;
    }
    const Storage* whole = filesource(st, Part::statistics);
    if (whole == nullptr) return;
    static NodeArrays wholenodes;
    if (!wholenodes.z3.allocated()) {
        wholenodes.z3.allocate(Range{0, whole->imax}, Range{0, whole->jmax}, Range{0, st.kmax});
        nodeheights(st, wholenodes.z3);
        // Every rank holds the bed of the whole grid at the nodes.
        wholenodes.elev.allocate(nodes.elev.irange(), nodes.elev.jrange());
        std::copy(nodes.elev.data(), nodes.elev.data() + nodes.elev.size(), wholenodes.elev.data());
    }
    writestatistics(*whole, wholenodes);
}

} // namespace riffle
