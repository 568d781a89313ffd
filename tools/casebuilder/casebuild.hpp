// From a recipe to a case: the bed grid with its elevation and every calculation condition, the
// given ones as given and the rest from their defaults (keys.hpp). Two defaults follow from the
// case itself:
//   zminItm       one cell height below the lowest bed point zbmin, so the bed lies inside the
//                 box and above the first cell centre: with dz = (zmax - zmin)/kmax,
//                 zmin + dz = zbmin, i.e. zmin = (kmax zbmin - zmax)/(kmax - 1); with a single
//                 cell (kmaxItm = 0) zmin = 2 zbmin - zmax, which puts the bed at the cell centre.
//   dischargeItm  velocity * (ymax - ymin) * (zmax - mean bed level), the mean taken over the
//                 cell-centred bed (the average of each cell's four corner nodes), as the
//                 solver forms it.
#pragma once

#include <string>
#include <vector>

#include "bedshape.hpp"
#include "platform/casefile.hpp"
#include "recipe.hpp"

namespace riffle::casebuilder {

struct Case {
    std::string output; // case file to write
    platform::BedGrid bed;
    std::vector<platform::Condition> conditions; // every condition, in reading order
};

// Throws RecipeError naming the recipe line (or bed-file line) at fault.
[[nodiscard]] Case buildcase(const Recipe& recipe);

// zmin that puts the lowest bed point zbmin exactly one cell height above the bottom of a box of
// 2^kmaxexponent cells reaching up to zmax.
[[nodiscard]] double defaultzmin(double zbmin, double zmax, int kmaxexponent);

} // namespace riffle::casebuilder
