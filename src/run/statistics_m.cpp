#include "run/statistics_m.hpp"

#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "ibm/flagdeter_m.hpp"
#include "ibm/wallmodel_m.hpp"
#include "platform/casefile.hpp"
#include "run/driver_m.hpp"
#include "run/halo_m.hpp"
#include "run/loops.hpp"
#include "run/messages.hpp"
#include "run/nodes_k.hpp"
#include "run/parallel.hpp"
#include "run/restart_m.hpp"

namespace riffle {

namespace {

enum Sum : int { su, sv, sw, sp, suu, svv, sww, suw, suv, svw, snut };

// The product u w where the momentum equations exchange them: on the x-z edges through node
// (i, j, k), at y between the node and its neighbours (cells j and j + 1), u the mean of the two
// faces above and below the edge and w of the two beside it; the mean of the two edges. Its time
// mean less the product of the mean node velocities is the resolved shear stress the stencils
// carry: a product of node means (four faces each) would smooth away a quarter of it on a
// coarse grid.
RIFFLE_HD inline double edgeuw(const ConstView3<double>& u, const ConstView3<double>& w, int i,
                               int j, int k) {
    double sum = 0.0;
    for (int jj = j; jj <= j + 1; ++jj) {
        sum += 0.5 * (u(i, jj, k) + u(i, jj, k + 1)) * 0.5 * (w(i, jj, k) + w(i + 1, jj, k));
    }
    return 0.5 * sum;
}

} // namespace

BedForces bedforces(const Storage& st) {
    const ConstView3<double> phi = st.mg(0).phi.cview();
    const ConstView3<std::int32_t> flag = st.iflagu.cview();
    const double facearea = st.dy * st.dz, drive = st.dens * st.fx * st.dx * st.dy * st.dz;
    // Every block sums its own faces: face 0 of a block is face imax of its western neighbour.
    const BedForces sum = loops::reducebox(
        loops::Box{{1, st.imax}, {1, st.jmax}, {1, st.kmax}}, BedForces{},
        [=](int i, int j, int k) {
            if (flag(i, j, k) == ibm::fluid) return BedForces{0.0, drive};
            return BedForces{-(phi(i + 1, j, k) - phi(i, j, k)) * facearea, 0.0};
        },
        [](BedForces a, BedForces b) {
            return BedForces{a.pressuredrag + b.pressuredrag, a.flowdriving + b.flowdriving};
        });
    const double area = st.iwhole() * st.dx * st.jwhole() * st.dy;
    return {allsum(st.dec, sum.pressuredrag) / area, allsum(st.dec, sum.flowdriving) / area};
}

void allocatestatistics(Storage& st) {
    const Range ri{0, st.imax}, rj{0, st.jmax}, rk{0, st.kmax};
    for (Field3d& a : st.stats.sum) {
        a.allocate(ri, rj, rk);
        a.fill(0.0);
    }
    for (Field3d& a : st.stats.bedsum) {
        a.allocate(ri, rj, Range{0, 0});
        a.fill(0.0);
    }
    st.stats.samples = 0;
    st.stats.bedsamples = 0;
    st.stats.sumfx = 0.0;
    st.stats.forcesamples = 0;
    st.stats.sumpressuredrag = 0.0;
    st.stats.sumflowdriving = 0.0;
}

void readstatistics(Storage& st) {
    readinteger("StatisticsItm", st.stats.enabled);
    if (st.stats.enabled != 1) return;
    readreal("StatStartItm", st.stats.start);
    allocatestatistics(st);
}

double fluidnodemean(const Storage& st, const NodeArrays& nodes, const Field3d& field) {
    const int gi = st.ioffset(), gj = st.joffset();
    // A block's last node in x (y) is the first of the block beyond its east (north) face: only
    // the block on the face of the box counts it, so the whole grid's nodes count once each, as
    // on one process.
    const int ilast = st.dec.ownsface(east) ? st.imax : st.imax - 1;
    const int jlast = st.dec.ownsface(north) ? st.jmax : st.jmax - 1;
    const ConstView2<double> elev = nodes.elev.cview();
    const ConstView3<double> z3 = nodes.z3.cview(), a = field.cview();
    struct SumCount {
        double sum, count;
    };
    const SumCount total = loops::reducebox(
        loops::Box{{0, ilast}, {0, jlast}, {0, st.kmax}}, SumCount{0.0, 0.0},
        [=](int i, int j, int k) {
            if (!(elev(i + gi, j + gj) < z3(i, j, k))) return SumCount{0.0, 0.0};
            return SumCount{eightcells(a, i, j, k), 1.0};
        },
        [](SumCount x, SumCount y) {
            return SumCount{x.sum + y.sum, x.count + y.count};
        });
    const double sum = allsum(st.dec, total.sum), count = allsum(st.dec, total.count);
    return count > 0.0 ? sum / count : 0.0;
}

void addsample(Storage& st, const NodeArrays& nodes) {
    Storage::StatisticSums& s = st.stats;
    if (s.enabled != 1 || !(st.time >= s.start)) return;
    // The step's pressure, measured from its mean over the fluid (see statistics_m.hpp).
    const Field3d& phifield = st.mg(0).phi;
    const double level = fluidnodemean(st, nodes, phifield);
    // The node values as the case file gets them (see nodeaveraging), at the fluid nodes only.
    // Every node is summed on its own, so the planes can be shared among threads.
    const int gi = st.ioffset(), gj = st.joffset();
    const ConstView2<double> elev = nodes.elev.cview();
    const ConstView3<double> z3 = nodes.z3.cview(), phi = phifield.cview();
    const ConstView3<double> u = st.u.cview(), v = st.v.cview(), w = st.w.cview();
    const ConstView3<double> nut = st.nut.cview();
    std::array<View3<double>, 11> sums;
    for (std::size_t m = 0; m < sums.size(); ++m)
        sums[m] = s.sum[m].view();
    loops::forbox({{0, st.imax}, {0, st.jmax}, {0, st.kmax}}, [=](int i, int j, int k) {
        // At or below the bed (the bed of the whole grid, at the block's offset).
        if (!(elev(i + gi, j + gj) < z3(i, j, k))) return;
        const double un = nodeu(u, i, j, k), vn = nodev(v, i, j, k);
        const double wn = nodew(w, i, j, k);
        const double add[11] = {un,
                                vn,
                                wn,
                                eightcells(phi, i, j, k) - level,
                                un * un,
                                vn * vn,
                                wn * wn,
                                edgeuw(u, w, i, j, k),
                                un * vn,
                                vn * wn,
                                eightcells(nut, i, j, k)};
        for (std::size_t m = 0; m < sums.size(); ++m)
            sums[m](i, j, k) += add[m];
    });
    if (st.iwallmodel == 1) {
        // The bed's nodes: the stress as the step left it, in the layout of the sums' planes.
        ibm::BedShearNodes b;
        ibm::bedshearnodes(st.geometry(), st.conditions(), st.bed(), b);
        const std::vector<double>* parts[3] = {&b.tau, &b.taux, &b.tauy};
        for (std::size_t m = 0; m < s.bedsum.size(); ++m) {
            double* sum = s.bedsum[m].data();
            const std::vector<double>& add = *parts[m];
            for (std::size_t at = 0; at < add.size(); ++at)
                sum[at] += add[at];
        }
        ++s.bedsamples;
        const BedForces f = bedforces(st);
        s.sumpressuredrag += f.pressuredrag;
        s.sumflowdriving += f.flowdriving;
        ++s.forcesamples;
    }
    if (s.samples == 0) s.first = st.time;
    s.last = st.time;
    s.sumfx += st.fx;
    ++s.samples;
}

std::array<std::vector<double>, 11> statisticfields(const Storage& st) {
    const Storage::StatisticSums& s = st.stats;
    const std::size_t count = static_cast<std::size_t>(st.imax + 1) * (st.jmax + 1) * (st.kmax + 1);
    std::array<std::vector<double>, 11> out;
    for (auto& a : out)
        a.assign(count, 0.0);
    if (s.samples == 0) return out;
    const double n = static_cast<double>(s.samples);
    const auto mean = [&](int m, std::size_t at) {
        return s.sum[static_cast<std::size_t>(m)].data()[at] / n;
    };
    // The sums are node arrays of exactly `count` values in the same order.
    for (std::size_t at = 0; at < count; ++at) {
        const double u = mean(su, at), v = mean(sv, at), w = mean(sw, at);
        out[0][at] = u;
        out[1][at] = v;
        out[2][at] = w;
        out[3][at] = mean(sp, at);
        out[4][at] = mean(suu, at) - u * u;
        out[5][at] = mean(svv, at) - v * v;
        out[6][at] = mean(sww, at) - w * w;
        out[7][at] = mean(suw, at) - u * w;
        out[8][at] = mean(suv, at) - u * v;
        out[9][at] = mean(svw, at) - v * w;
        out[10][at] = mean(snut, at);
    }
    return out;
}

std::array<std::vector<double>, 3> bedstatisticfields(const Storage& st) {
    const Storage::StatisticSums& s = st.stats;
    const std::size_t count = static_cast<std::size_t>(st.imax + 1) * (st.jmax + 1);
    std::array<std::vector<double>, 3> out;
    for (std::size_t m = 0; m < out.size(); ++m) {
        out[m].assign(count, 0.0);
        if (s.bedsamples == 0) continue;
        const double n = static_cast<double>(s.bedsamples);
        const double* sum = s.bedsum[m].data();
        for (std::size_t at = 0; at < count; ++at)
            out[m][at] = sum[at] / n;
    }
    return out;
}

std::string statisticsfilename(const Storage& st) {
    return outputname(st.outpath, st.outfile, "_stats.cgns");
}

void writestatistics(const Storage& st, const NodeArrays& nodes) {
    const auto fields = statisticfields(st);
    const std::size_t count = fields[0].size();
    // The solver's grid is uniform in x and y: the node coordinates follow from its spacing.
    std::vector<double> x(count), y(count);
    for (int k = 0, at = 0; k <= st.kmax; ++k)
        for (int j = 0; j <= st.jmax; ++j)
            for (int i = 0; i <= st.imax; ++i, ++at) {
                x[static_cast<std::size_t>(at)] = st.xmin + i * st.dx;
                y[static_cast<std::size_t>(at)] = st.ymin + j * st.dy;
            }
    std::vector<platform::NodeField> named;
    for (std::size_t m = 0; m < fields.size(); ++m)
        named.push_back({statisticnames[m], fields[m].data()});
    const std::string path = statisticsfilename(st);
    const double samples = static_cast<double>(st.stats.samples);
    const double meanforce = samples > 0.0 ? st.stats.sumfx / samples : 0.0;
    std::vector<std::pair<std::string, double>> notes = {{"StartTime", st.stats.first},
                                                         {"EndTime", st.stats.last},
                                                         {"Samples", samples},
                                                         {"MeanForceX", meanforce}};
    // With the wall-layer model on, the mean bed shear stress on the bed's surface, base /Bed.
    const bool bed = st.iwallmodel == 1;
    std::array<std::vector<double>, 3> bedfields;
    std::vector<double> bx, by, bz;
    platform::BedSurface surface;
    if (bed) {
        bedfields = bedstatisticfields(st);
        const std::size_t plane = bedfields[0].size();
        bx.resize(plane);
        by.resize(plane);
        bz.resize(plane);
        for (int j = 0, at = 0; j <= st.jmax; ++j)
            for (int i = 0; i <= st.imax; ++i, ++at) {
                bx[static_cast<std::size_t>(at)] = st.xmin + i * st.dx;
                by[static_cast<std::size_t>(at)] = st.ymin + j * st.dy;
                bz[static_cast<std::size_t>(at)] = nodes.elev(i, j);
            }
        surface = {st.imax + 1, st.jmax + 1, bx.data(), by.data(), bz.data(), {}};
        for (std::size_t m = 0; m < bedfields.size(); ++m)
            surface.fields.push_back({bedstatisticnames[m], bedfields[m].data()});
        notes.emplace_back("BedShearSamples", static_cast<double>(st.stats.bedsamples));
        const double n = static_cast<double>(st.stats.forcesamples);
        notes.emplace_back("MeanPressureDragX", n > 0.0 ? st.stats.sumpressuredrag / n : 0.0);
        notes.emplace_back("MeanFlowDrivingX", n > 0.0 ? st.stats.sumflowdriving / n : 0.0);
        notes.emplace_back("BedForceSamples", n);
    }
    try {
        platform::writeresultsfile(path, st.imax + 1, st.jmax + 1, st.kmax + 1, x.data(), y.data(),
                                   nodes.z3.data(), st.time, named, "Statistics", notes,
                                   bed ? &surface : nullptr);
    } catch (const platform::CaseFileError& e) {
        // A disk that refused the file is named as for every other output file.
        if (e.diskerror() == 0) throw std::runtime_error(e.what());
        throw std::runtime_error(std::string(messages::error_write) + path + " (" +
                                 std::strerror(e.diskerror()) + ")");
    }
}

} // namespace riffle
