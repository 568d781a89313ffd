// The division of the box among ranks: blocks that tile each direction exactly in whole units, a
// rank grid chosen for the least halo, neighbours that wrap only across periodic faces.
#include <gtest/gtest.h>

#include "run/decomposition_m.hpp"
#include "run/storage_m.hpp"

namespace riffle {
namespace {

TEST(Decomposition, BlocksTileTheBoxInWholeUnits) {
    // 100 cells in units of 8 over 3 blocks: 12 units share 4 each, the 4 cells left over go to
    // the last block.
    EXPECT_EQ(blockspan(100, 3, 0, 8).start, 0);
    EXPECT_EQ(blockspan(100, 3, 0, 8).size, 32);
    EXPECT_EQ(blockspan(100, 3, 1, 8).start, 32);
    EXPECT_EQ(blockspan(100, 3, 2, 8).start, 64);
    EXPECT_EQ(blockspan(100, 3, 2, 8).size, 36);
    for (const auto [n, p, unit] : {std::array{257, 5, 4}, {64, 4, 16}, {13, 3, 1}, {96, 7, 2}}) {
        int next = 0;
        for (int c = 0; c < p; ++c) {
            const Span s = blockspan(n, p, c, unit);
            EXPECT_EQ(s.start, next);
            EXPECT_EQ(s.start % unit, 0);
            next = s.start + s.size;
        }
        EXPECT_EQ(next, n);
    }
}

TEST(Decomposition, RankGridKeepsTheHaloSmallAndBlocksWide) {
    // A long box is cut across its length; a square one, with ranks to spare, both ways.
    EXPECT_EQ(rankgrid(4, 256, 16, 1), (std::array{4, 1}));
    EXPECT_EQ(rankgrid(4, 16, 256, 1), (std::array{1, 4}));
    EXPECT_EQ(rankgrid(16, 256, 256, 1), (std::array{4, 4}));
    EXPECT_EQ(rankgrid(2, 16, 16, 1), (std::array{2, 1})); // a tie goes to x
    // A prime rank count on a narrow box, and more ranks than blocks of minblock cells.
    EXPECT_EQ(rankgrid(3, 8, 64, 1), (std::array{1, 3}));
    EXPECT_EQ(rankgrid(5, 16, 16, 1), (std::array{0, 0}));
    // Units of 8 cells leave 12 x 4 of them: no more than 3 blocks in y.
    EXPECT_EQ(rankgrid(8, 96, 32, 8), (std::array{8, 1}));
    EXPECT_EQ(rankgrid(4, 32, 32, 16), (std::array{2, 2}));
}

TEST(Decomposition, NeighboursWrapOnlyAcrossPeriodicFaces) {
    // 3 x 2 ranks; rank 3 sits at (0, 1): the west and north faces of the box.
    const Decomposition wall = decompose({3, 2}, 3, 48, 32, false, false, 1);
    EXPECT_EQ(wall.cx, 0);
    EXPECT_EQ(wall.cy, 1);
    EXPECT_EQ(wall.i0, 0);
    EXPECT_EQ(wall.j0, 16);
    EXPECT_EQ(wall.neighbour[west], noneighbour);
    EXPECT_EQ(wall.neighbour[east], 4);
    EXPECT_EQ(wall.neighbour[south], 0);
    EXPECT_EQ(wall.neighbour[north], noneighbour);
    EXPECT_TRUE(wall.ownsface(west) && wall.ownsface(north) && !wall.ownsface(east));
    const Decomposition wrap = decompose({3, 2}, 3, 48, 32, true, true, 1);
    EXPECT_EQ(wrap.neighbour[west], 5);
    EXPECT_EQ(wrap.neighbour[north], 0);
    EXPECT_TRUE(wrap.ownsface(west)); // the face is its, though the exchange fills it
}

} // namespace
} // namespace riffle
