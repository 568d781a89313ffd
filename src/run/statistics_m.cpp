#include "run/statistics_m.hpp"

#include <stdexcept>

#include "platform/casefile.hpp"
#include "run/driver_m.hpp"
#include "run/restart_m.hpp"

namespace riffle {

namespace {

enum Sum : int { su, sv, sw, sp, suu, svv, sww, suw, suv, svw, snut };

}  // namespace

void allocatestatistics(Storage& st) {
    const Range ri{0, st.imax}, rj{0, st.jmax}, rk{0, st.kmax};
    for (Field3d& a : st.stats.sum) {
        a.allocate(ri, rj, rk);
        a.fill(0.0);
    }
    st.stats.samples = 0;
    st.stats.sumfx = 0.0;
}

void readstatistics(Storage& st) {
    readinteger("StatisticsItm", st.stats.enabled);
    if (st.stats.enabled != 1) return;
    readreal("StatStartItm", st.stats.start);
    allocatestatistics(st);
}

void addsample(Storage& st, const NodeArrays& nodes) {
    Storage::StatisticSums& s = st.stats;
    if (s.enabled != 1 || !(st.time >= s.start)) return;
    // The node values as the case file gets them (see nodeaveraging), at the fluid nodes only.
    // Every node is summed on its own, so the planes can be shared among threads.
    const int gi = st.ioffset(), gj = st.joffset();
#pragma omp parallel for schedule(static)
    for (int k = 0; k <= st.kmax; ++k) {
        for (int j = 0; j <= st.jmax; ++j) {
            for (int i = 0; i <= st.imax; ++i) {
                // At or below the bed (the bed of the whole grid, at the block's offset).
                if (!(nodes.elev(i + gi, j + gj) < nodes.z3(i, j, k))) continue;
                const double u = nodeu(st.u, i, j, k), v = nodev(st.v, i, j, k);
                const double w = nodew(st.w, i, j, k);
                const double add[11] = {u,     v,     w,     eightcells(st.p, i, j, k),
                                        u * u, v * v, w * w, u * w,
                                        u * v, v * w, eightcells(st.nut, i, j, k)};
                for (std::size_t m = 0; m < s.sum.size(); ++m) s.sum[m](i, j, k) += add[m];
            }
        }
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
    for (auto& a : out) a.assign(count, 0.0);
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
    try {
        platform::writeresultsfile(path, st.imax + 1, st.jmax + 1, st.kmax + 1, x.data(),
                                   y.data(), nodes.z3.data(), st.time, named, "Statistics",
                                   {{"StartTime", st.stats.first},
                                    {"EndTime", st.stats.last},
                                    {"Samples", samples},
                                    {"MeanForceX", meanforce}});
    } catch (const platform::CaseFileError& e) {
        throw std::runtime_error(e.what());
    }
}

}  // namespace riffle
