// The multigrid solve on blocks of a divided box, against the solve of the whole box on one
// process: on every rank grid of the rank count, with periodic and wall side faces, V- and
// W-cycles. After three cycles the residual is within twice that of one process (the block faces
// relax a sweep behind, as thread blocks do; the differences are printed beside those of two
// threads against one); converged, the two solutions agree to round-off.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "pressure/multigridp_m.hpp"
#include "run/casefile_m.hpp"
#include "run/halo_m.hpp"

namespace riffle {
namespace {

constexpr int ni = 32, nj = 24, nk = 16;

// The largest unit, at most the hierarchy's depth, that leaves every block two units a side.
int unitfor(std::array<int, 2> grid, int lmin) {
    for (int u = 1 << -lmin; u > 1; u /= 2) {
        bool fits = true;
        for (int c = 0; c < grid[0]; ++c)
            fits = fits && blockspan(ni, grid[0], c, u).size >= 2 * u;
        for (int c = 0; c < grid[1]; ++c)
            fits = fits && blockspan(nj, grid[1], c, u).size >= 2 * u;
        if (fits) return u;
    }
    return 1;
}

// The box on cells of 0.05 x 0.04 x 0.01, a source varying in every direction, phi = 0.
Storage problem(const Decomposition& d, bool walls) {
    Storage st;
    st.dec = d;
    st.imax = d.distributed() ? d.ni : ni;
    st.jmax = d.distributed() ? d.nj : nj;
    st.kmax = nk;
    st.dx = 0.05;
    st.dy = 0.04;
    st.dz = 0.01;
    setboundarycodes(st, 0, walls ? 1 : 0, 0);
    allocation(st);
    for (int l = 0; l >= st.lmin; --l)
        st.mg(l).phi.fill(0.0);
    const int i0 = d.distributed() ? d.i0 : 0, j0 = d.distributed() ? d.j0 : 0;
    for (int k = 1; k <= nk; ++k)
        for (int j = 1; j <= st.jmax; ++j)
            for (int i = 1; i <= st.imax; ++i)
                st.mg(0).src(i, j, k) =
                    std::sin(0.7 * (i + i0)) * std::cos(0.4 * (j + j0)) + 0.05 * k;
    return st;
}

double residual(Storage& st) {
    double r = 0.0;
    pressure::operatorp(st, 0);
    pressure::residualp(st, 0);
    pressure::resnormp(st, 0, r);
    return r;
}

// Largest difference of level 0's phi from the reference, over the largest reference value.
double difference(const Field3<double>& phi, const Field3<double>& ref) {
    double d = 0.0, m = 0.0;
    for (int k = 1; k <= nk; ++k)
        for (int j = 1; j <= nj; ++j)
            for (int i = 1; i <= ni; ++i) {
                d = std::max(d, std::abs(phi(i, j, k) - ref(i, j, k)));
                m = std::max(m, std::abs(ref(i, j, k)));
            }
    return d / m;
}

TEST(DistributedPoisson, BlocksSolveTheWholeBoxProblem) {
    const int n = rankcount(), rank = myrank();
    const int lmin = coarsestlevel(ni, nj, nk);
    for (int px = 1; px <= n; ++px) {
        if (n % px != 0 || (px > 1 && ni / px < minblock) ||
            (n / px > 1 && nj / (n / px) < minblock))
            continue;
        const std::array<int, 2> grid{px, n / px};
        for (const bool walls : {false, true}) {
            for (const int igamma : {1, 2}) {
                const Decomposition d =
                    decompose(grid, rank, ni, nj, true, !walls, unitfor(grid, lmin));
                Storage blocks = problem(d, walls);
                Storage one = problem(Decomposition{}, walls),
                        two = problem(Decomposition{}, walls);
                Field3<double> whole(Range{0, ni + 1}, Range{0, nj + 1}, Range{0, nk + 1});
                for (int cycles : {3, 30}) {
                    const int more = cycles == 3 ? 3 : 27;
                    for (int c = 0; c < more; ++c)
                        pressure::multigridp(blocks, 0, igamma, 2, 2, 100);
                    const double rblocks = residual(blocks);
                    gather(blocks.mg(0).phi, Range{1, d.ni}, Range{1, d.nj}, d.i0, d.j0,
                           rank == 0 ? &whole : nullptr);
                    if (rank != 0) continue;
                    omp_set_num_threads(1);
                    for (int c = 0; c < more; ++c)
                        pressure::multigridp(one, 0, igamma, 2, 2, 100);
                    omp_set_num_threads(2);
                    for (int c = 0; c < more; ++c)
                        pressure::multigridp(two, 0, igamma, 2, 2, 100);
                    omp_set_num_threads(1);
                    const double rone = residual(one);
                    const double dblocks = difference(whole, one.mg(0).phi);
                    const double dthreads = difference(two.mg(0).phi, one.mg(0).phi);
                    std::printf("%dx%d %s igamma %d, %2d cycles: residual %.3e (one process %.3e), "
                                "blocks - one %.2e, two threads - one %.2e\n",
                                px, n / px, walls ? "walls" : "periodic", igamma, cycles, rblocks,
                                rone, dblocks, dthreads);
                    if (cycles == 3) {
                        EXPECT_LT(rblocks, 2.0 * rone);
                    } else {
                        EXPECT_LT(dblocks, 1e-10);
                    }
                }
            }
        }
    }
}

} // namespace
} // namespace riffle
