// The halo exchange between ranks, run under mpiexec on 1, 2 and 4 ranks: on every rank grid the
// rank count allows (1x2 and 2x1 on two, 1x4, 2x2 and 4x1 on four), with wall and periodic faces,
// a field holding its global index comes back exact in every halo cell that lies in the box or
// wraps across a periodic face shared by ranks, and untouched everywhere else (those cells are
// the boundary routines'). Rank 0 gathers and scatters blocks at their global indices; reductions
// combine in rank order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "run/halo_m.hpp"

namespace riffle {
namespace {

constexpr int imax = 16, jmax = 16, kmax = 3;
constexpr int untouched = -7;

int code(int ig, int jg, int k) { return ig + 100 * jg + 10000 * k; }

// The global index a halo cell mirrors along one direction, 0 where nothing may fill it.
int mirrored(int g, int n, int ranks, bool periodic) {
    if (g >= 1 && g <= n) return g;
    if (!periodic || ranks == 1) return 0;
    return (g - 1 + n) % n + 1;
}

template <class T> void checkexchange(const Decomposition& d, Range ri, Range rj) {
    Field3<T> f(ri, rj, Range{0, kmax + 1});
    for (int k = 0; k <= kmax + 1; ++k) {
        for (int j = rj.lo; j <= rj.hi; ++j) {
            for (int i = ri.lo; i <= ri.hi; ++i) {
                const bool owned = i >= 1 && i <= d.ni && j >= 1 && j <= d.nj;
                f(i, j, k) = static_cast<T>(owned ? code(i + d.i0, j + d.j0, k) : untouched);
            }
        }
    }
    exchange(d, f, d.ni, d.nj);
    int wrong = 0;
    for (int k = 0; k <= kmax + 1; ++k) {
        for (int j = rj.lo; j <= rj.hi; ++j) {
            for (int i = ri.lo; i <= ri.hi; ++i) {
                const int gi = mirrored(i + d.i0, imax, d.px, d.periodicx);
                const int gj = mirrored(j + d.j0, jmax, d.py, d.periodicy);
                const T want = static_cast<T>(gi > 0 && gj > 0 ? code(gi, gj, k) : untouched);
                if (f(i, j, k) != want && ++wrong <= 3) {
                    ADD_FAILURE() << "rank " << d.rank << " of " << d.px << "x" << d.py
                                  << " periodic " << d.periodicx << d.periodicy << ": (" << i << ","
                                  << j << "," << k << ") holds " << f(i, j, k) << ", wants "
                                  << want;
                }
            }
        }
    }
}

TEST(Halo, EveryHaloCellComesFromItsOwner) {
    const int n = rankcount();
    for (int px = 1; px <= n; ++px) {
        if (n % px != 0) continue;
        for (const bool periodicx : {false, true}) {
            for (const bool periodicy : {false, true}) {
                const Decomposition d =
                    decompose({px, n / px}, myrank(), imax, jmax, periodicx, periodicy, 1);
                // Cell-centred reals and flags, and the faces' second ghost layer in x and in y.
                checkexchange<double>(d, Range{0, d.ni + 1}, Range{0, d.nj + 1});
                checkexchange<std::int32_t>(d, Range{0, d.ni + 1}, Range{0, d.nj + 1});
                checkexchange<double>(d, Range{-1, d.ni + 1}, Range{0, d.nj + 1});
                checkexchange<std::int32_t>(d, Range{0, d.ni + 1}, Range{-1, d.nj + 1});
            }
        }
    }
}

// Rank 0 gathers the owned cells, then the nodes (shared along block faces), and hands each rank
// its block with a ring of halo back.
TEST(Halo, GatherAndScatterPlaceEveryBlockAtItsGlobalIndex) {
    const int n = rankcount();
    for (int px = 1; px <= n; ++px) {
        if (n % px != 0) continue;
        const Decomposition d = decompose({px, n / px}, myrank(), imax, jmax, false, true, 1);
        const Range k{0, kmax + 1};
        Field3<double> cells(Range{0, d.ni + 1}, Range{0, d.nj + 1}, k);
        Field3<double> nodes(Range{0, d.ni}, Range{0, d.nj}, k);
        cells.fill(untouched);
        for (int kk = k.lo; kk <= k.hi; ++kk) {
            for (int j = 0; j <= d.nj; ++j) {
                for (int i = 0; i <= d.ni; ++i) {
                    nodes(i, j, kk) = code(i + d.i0, j + d.j0, kk);
                    if (i > 0 && j > 0) cells(i, j, kk) = code(i + d.i0, j + d.j0, kk);
                }
            }
        }
        Field3<double> whole(Range{0, imax + 1}, Range{0, jmax + 1}, k);
        Field3<double>* root = myrank() == 0 ? &whole : nullptr;
        whole.fill(untouched);
        gather(cells, Range{1, d.ni}, Range{1, d.nj}, d.i0, d.j0, root);
        int wrong = 0;
        for (int kk = k.lo; kk <= k.hi && myrank() == 0; ++kk) {
            for (int j = 0; j <= jmax + 1; ++j) {
                for (int i = 0; i <= imax + 1; ++i) {
                    const bool in = i >= 1 && i <= imax && j >= 1 && j <= jmax;
                    wrong += whole(i, j, kk) != (in ? code(i, j, kk) : untouched);
                }
            }
        }
        gather(nodes, Range{0, d.ni}, Range{0, d.nj}, d.i0, d.j0, root);
        for (int kk = k.lo; kk <= k.hi && myrank() == 0; ++kk) {
            for (int j = 0; j <= jmax; ++j) {
                for (int i = 0; i <= imax; ++i)
                    wrong += whole(i, j, kk) != code(i, j, kk);
            }
        }
        EXPECT_EQ(wrong, 0) << px << "x" << n / px << " gathered";
        // Back out: every rank's block and its halo ring from rank 0's whole field.
        for (int kk = k.lo; kk <= k.hi && myrank() == 0; ++kk) {
            for (int j = 0; j <= jmax + 1; ++j) {
                for (int i = 0; i <= imax + 1; ++i)
                    whole(i, j, kk) = code(i, j, kk);
            }
        }
        cells.fill(untouched);
        scatter(cells, Range{0, d.ni + 1}, Range{0, d.nj + 1}, d.i0, d.j0, root);
        for (int kk = k.lo; kk <= k.hi; ++kk) {
            for (int j = 0; j <= d.nj + 1; ++j) {
                for (int i = 0; i <= d.ni + 1; ++i) {
                    wrong += cells(i, j, kk) != code(i + d.i0, j + d.j0, kk);
                }
            }
        }
        EXPECT_EQ(wrong, 0) << px << "x" << n / px << " scattered, rank " << myrank();
    }
}

TEST(Halo, ReductionsCombineInRankOrder) {
    const int n = rankcount(), r = myrank();
    const double mine = 0.1 * (r + 1);
    double sum = 0.1;
    for (int q = 1; q < n; ++q)
        sum += 0.1 * (q + 1);
    EXPECT_EQ(allsum(mine), sum); // the very bits of the sum taken in rank order
    EXPECT_EQ(allmax(mine), 0.1 * n);
    EXPECT_EQ(allmin(mine), 0.1);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(allmax(r == n - 1 ? nan : mine)));
    EXPECT_TRUE(std::isnan(allmin(r == 0 ? nan : mine)));
}

} // namespace
} // namespace riffle
