#include "run/decomposition_m.hpp"

#include <algorithm>
#include <climits>

#include "run/storage_m.hpp"

namespace riffle {

bool Decomposition::ownsface(int face) const {
    switch (face) {
    case west:
        return cx == 0;
    case east:
        return cx == px - 1;
    case south:
        return cy == 0;
    case north:
        return cy == py - 1;
    default:
        return true; // bottom and top: every block spans the whole depth
    }
}

bool Decomposition::appliesface(int face, int code) const {
    if ((face <= east ? px : py) == 1) return true;
    return ownsface(face) && code != 0;
}

Span blockspan(int n, int p, int c, int unit) {
    const int units = n / unit, rest = n % unit;
    const int base = units / p, extra = units % p;
    const int start = unit * (c * base + std::min(c, extra));
    int size = unit * (base + (c < extra ? 1 : 0));
    if (c == p - 1) size += rest;
    return {start, size};
}

namespace {

// Smallest and largest block of p blocks over n cells.
std::array<int, 2> blocksizes(int n, int p, int unit) {
    int least = INT_MAX, most = 0;
    for (int c = 0; c < p; ++c) {
        const int s = blockspan(n, p, c, unit).size;
        least = std::min(least, s);
        most = std::max(most, s);
    }
    return {least, most};
}

} // namespace

std::array<int, 2> rankgrid(int nranks, int imax, int jmax, int unit) {
    std::array<int, 2> best{0, 0};
    long long bestcost = LLONG_MAX;
    for (int px = nranks; px >= 1; --px) {
        if (nranks % px != 0) continue;
        const int py = nranks / px;
        const auto [ileast, imost] = blocksizes(imax, px, unit);
        const auto [jleast, jmost] = blocksizes(jmax, py, unit);
        if (ileast < minblock || jleast < minblock) continue;
        // Cells of halo a block exchanges per layer and level: a line of its y extent across each
        // x face that is cut, and of its x extent across each y face.
        const long long cost = (px > 1 ? 2LL * jmost : 0) + (py > 1 ? 2LL * imost : 0);
        if (cost < bestcost) {
            bestcost = cost;
            best = {px, py};
        }
    }
    return best;
}

Decomposition decompose(std::array<int, 2> grid, int rank, int imax, int jmax, bool periodicx,
                        bool periodicy, int unit) {
    Decomposition d;
    const auto [px, py] = grid;
    d.nranks = px * py;
    d.rank = rank;
    d.px = px;
    d.py = py;
    d.cx = rank % px;
    d.cy = rank / px;
    d.imaxg = imax;
    d.jmaxg = jmax;
    const Span si = blockspan(imax, px, d.cx, unit), sj = blockspan(jmax, py, d.cy, unit);
    d.i0 = si.start;
    d.j0 = sj.start;
    d.ni = si.size;
    d.nj = sj.size;
    d.periodicx = periodicx;
    d.periodicy = periodicy;
    d.unit = unit;
    const auto at = [&](int cx, int cy) { return cy * px + cx; };
    if (d.cx > 0 || periodicx) d.neighbour[west] = at((d.cx + px - 1) % px, d.cy);
    if (d.cx < px - 1 || periodicx) d.neighbour[east] = at((d.cx + 1) % px, d.cy);
    if (d.cy > 0 || periodicy) d.neighbour[south] = at(d.cx, (d.cy + py - 1) % py);
    if (d.cy < py - 1 || periodicy) d.neighbour[north] = at(d.cx, (d.cy + 1) % py);
    return d;
}

int chooseunit(int nranks, int imax, int jmax, int lmin) {
    for (int unit = 1 << -lmin; unit >= 1; unit /= 2) {
        const auto [px, py] = rankgrid(nranks, imax, jmax, unit);
        if (px == 0) continue;
        const auto [ileast, imost] = blocksizes(imax, px, unit);
        const auto [jleast, jmost] = blocksizes(jmax, py, unit);
        // Coarse units must not unbalance the blocks: at most a quarter more cells in the
        // largest than in the smallest (single cells always pass).
        const bool balanced = unit == 1 || (4 * imost <= 5 * ileast && 4 * jmost <= 5 * jleast);
        if (ileast >= 2 * unit && jleast >= 2 * unit && balanced) return unit;
    }
    return 0;
}

Decomposition coarsened(const Decomposition& d, int level) {
    Decomposition c = d;
    const int m = -level;
    c.i0 = d.i0 >> m;
    c.j0 = d.j0 >> m;
    c.ni = ((d.i0 + d.ni) >> m) - c.i0;
    c.nj = ((d.j0 + d.nj) >> m) - c.j0;
    c.imaxg = d.imaxg >> m;
    c.jmaxg = d.jmaxg >> m;
    c.unit = std::max(1, d.unit >> m);
    return c;
}

std::string undividable(int nranks, int imax, int jmax) {
    return "a grid of " + std::to_string(imax) + " x " + std::to_string(jmax) +
           " cells cannot be shared by " + std::to_string(nranks) +
           " ranks: each needs a block of at least " + std::to_string(minblock) + " x " +
           std::to_string(minblock) + " cells";
}

} // namespace riffle
