// Flow statistics on blocks against one process, under mpiexec on 1 to 4 ranks and every rank
// grid the count allows: over a bed that cuts the lowest node layers, with a pressure and a bed
// shear stress that vary in every direction and from sample to sample, the sums that rank 0
// gathers give the one-process mean pressure (its level taken over the whole grid's fluid nodes,
// each once though the blocks on either side of a face both hold it) and forces on the bed region
// to round-off, and the same mean bed shear stress bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "run/halo_m.hpp"
#include "run/statistics_m.hpp"
#include "run/wholestate_m.hpp"

namespace riffle {
namespace {

constexpr int ni = 16, nj = 8, nk = 4, samples = 3;

// Sample n's step pressure of cell (gi, gj, k) and kinematic bed stress of column (gi, gj), in
// the whole grid's indices; the level of the pressure changes from sample to sample.
double pressure(int gi, int gj, int k, int n) {
    return std::sin(0.7 * gi + n) * std::cos(0.4 * gj) + 0.3 * k + 50.0 * n;
}
double stress(int gi, int gj, int c, int n) { return 0.01 * (gi + 3 * gj + 7 * c) + 0.1 * n; }

struct Sampled {
    Storage st;
    NodeArrays nodes;
};

// The box of 0.1 x 0.1 x 0.05 cells, statistics and the wall-layer model on, over a bed that
// lies between node layers 0 and 2; `d` the block (a default one: the whole box on one process).
void sample(Sampled& r, const Decomposition& d) {
    Storage& st = r.st;
    st.dec = d;
    st.imax = d.distributed() ? d.ni : ni;
    st.jmax = d.distributed() ? d.nj : nj;
    st.kmax = nk;
    st.dx = st.dy = 0.1;
    st.dz = 0.05;
    st.dens = 1000.0;
    setboundarycodes(st, 0, 0, 0);
    allocation(st);
    r.nodes.elev.allocate(Range{0, ni}, Range{0, nj});
    for (int j = 0; j <= nj; ++j)
        for (int i = 0; i <= ni; ++i)
            r.nodes.elev(i, j) = 0.02 * ((i + 2 * j) % 5) - 0.01;
    r.nodes.z3.allocate(Range{0, st.imax}, Range{0, st.jmax}, Range{0, nk});
    for (int k = 0; k <= nk; ++k)
        for (int j = 0; j <= st.jmax; ++j)
            for (int i = 0; i <= st.imax; ++i)
                r.nodes.z3(i, j, k) = st.dz * k;
    st.stats.enabled = 1;
    allocatestatistics(st);
    st.iwallmodel = 1;
    st.bedshear.allocate(Range{0, st.imax + 1}, Range{0, st.jmax + 1}, Range{0, 2});
    const int i0 = st.ioffset(), j0 = st.joffset();
    // The bed region: one or two face layers, by the face's place in the whole grid.
    for (int k = 0; k <= nk + 1; ++k)
        for (int j = 0; j <= st.jmax + 1; ++j)
            for (int i = 0; i <= st.imax + 1; ++i)
                st.iflagu(i, j, k) = k <= 1 + (i + i0 + j + j0) % 2 ? -1 : 1;
    Field3d& phi = st.mg(0).phi;
    for (int n = 1; n <= samples; ++n) {
        st.fx = 0.001 * n;
        for (int k = phi.krange().lo; k <= phi.krange().hi; ++k)
            for (int j = phi.jrange().lo; j <= phi.jrange().hi; ++j)
                for (int i = phi.irange().lo; i <= phi.irange().hi; ++i)
                    phi(i, j, k) = pressure(i + i0, j + j0, k, n);
        for (int c = 0; c <= 2; ++c)
            for (int j = 0; j <= st.jmax + 1; ++j)
                for (int i = 0; i <= st.imax + 1; ++i)
                    st.bedshear(i, j, c) = stress(i + i0, j + j0, c, n);
        st.u.fill(0.0), st.v.fill(0.0), st.w.fill(0.0), st.nut.fill(0.0);
        st.time = n;
        addsample(st, r.nodes);
    }
}

TEST(DistributedStatistics, BlocksGiveTheMeansOfOneProcess) {
    const int n = rankcount(), rank = myrank();
    Sampled one;
    sample(one, Decomposition{});
    const auto pone = statisticfields(one.st)[3];
    const auto bone = bedstatisticfields(one.st);
    int grids = 0;
    for (int px = 1; px <= n; ++px) {
        if (n % px != 0 || ni / px < minblock || nj / (n / px) < minblock) continue;
        ++grids;
        Sampled blocks;
        sample(blocks, decompose({px, n / px}, rank, ni, nj, true, true, 1));
        const Storage* whole = filesource(blocks.st, Part::statistics);
        if (rank != 0) continue;
        ASSERT_NE(whole, nullptr);
        EXPECT_EQ(std::tuple(whole->stats.samples, whole->stats.bedsamples),
                  std::tuple(samples, samples));
        const auto p = statisticfields(*whole)[3];
        double worst = 0.0, largest = 0.0;
        for (std::size_t at = 0; at < p.size(); ++at) {
            worst = std::max(worst, std::abs(p[at] - pone[at]));
            largest = std::max(largest, std::abs(pone[at]));
        }
        EXPECT_LT(worst, 1e-12 * 50.0 * samples) << px << "x" << n / px; // the levels' round-off
        EXPECT_GT(largest, 0.3);                                         // not all zero
        EXPECT_EQ(bedstatisticfields(*whole), bone) << px << "x" << n / px;
        // The forces on the bed region: sums over the blocks' faces, each face once.
        EXPECT_NEAR(whole->stats.sumpressuredrag, one.st.stats.sumpressuredrag, 1e-12);
        EXPECT_NEAR(whole->stats.sumflowdriving, one.st.stats.sumflowdriving, 1e-15);
        EXPECT_GT(std::abs(one.st.stats.sumpressuredrag), 1e-3);
        EXPECT_EQ(whole->stats.forcesamples, samples);
    }
    EXPECT_GE(grids, 1);
}

} // namespace
} // namespace riffle
