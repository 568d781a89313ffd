// The rule of the ghost layer at a face of the box, for a cell-centred field and the face's
// pressure code t: t * (adjacent interior) + (1 - |t|) * (opposite end of the line), so t = 0 is
// periodic, t = 1 zero gradient and t = -1 zero value on the face. The formula is applied even
// where a factor is 0, so a periodic face is an exact copy of the opposite end.
#pragma once

#include <cmath>

#include "run/loops.hpp"

namespace riffle {

RIFFLE_HD inline double ghost(double t, double adjacent, double opposite) {
    return t * adjacent + (1.0 - std::abs(t)) * opposite;
}

} // namespace riffle
