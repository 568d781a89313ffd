#include "bedshape.hpp"

#include <cmath>
#include <numbers>

namespace riffle::casebuilder {

platform::BedGrid gridnodes(const GridExtent& grid) {
    platform::BedGrid bed;
    bed.ni = grid.ni;
    bed.nj = grid.nj;
    const auto count = static_cast<std::size_t>(grid.ni) * static_cast<std::size_t>(grid.nj);
    bed.x.resize(count);
    bed.y.resize(count);
    bed.elevation.assign(count, 0.0);
    for (int j = 0; j < grid.nj; ++j) {
        // lerp gives the end values exactly, so the corner nodes carry xmax and ymax as given.
        const double y = std::lerp(grid.ymin, grid.ymax, static_cast<double>(j) / (grid.nj - 1));
        for (int i = 0; i < grid.ni; ++i) {
            const std::size_t n = static_cast<std::size_t>(j) * grid.ni + i;
            bed.x[n] = std::lerp(grid.xmin, grid.xmax, static_cast<double>(i) / (grid.ni - 1));
            bed.y[n] = y;
        }
    }
    return bed;
}

double sinusoid(double x, double x0, double level, double amplitude, double wavelength) {
    return level + amplitude * std::sin(2.0 * std::numbers::pi * (x - x0) / wavelength);
}

double Dune::leelength() const { return height / std::tan(leeangle * std::numbers::pi / 180.0); }

double Dune::stosslength() const { return length - leelength(); }

double Dune::elevation(double x, double x0) const {
    double s = std::fmod(x - x0, length);
    if (s < 0.0) s += length;
    const double stoss = stosslength();
    if (s <= stoss) return level + 0.5 * height * (1.0 - std::cos(std::numbers::pi * s / stoss));
    return level + height * (length - s) / leelength();
}

} // namespace riffle::casebuilder
