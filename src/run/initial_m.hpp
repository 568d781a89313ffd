// The initial state: a uniform flow whose speed follows from the discharge, an optional
// deterministic disturbance that depends only on the cell indices (so a run starts from the same
// state whatever the thread count), and optional random bumps on the bed.
#pragma once

#include "run/storage_m.hpp"

namespace riffle {

// Index hash in [-1, 1]:  c = cos(19 - i + j/3 + k/7),  m = i + j - k,  r = 30 mod m
// (truncating division, r = 0 where m = 0),  h = sin(3 + c + i/9 + j - k + r).
[[nodiscard]] double indexhash(int i, int j, int k);

// Sets every field to its starting value (uniform flow, zero pressure, zero right-hand sides and
// eddy viscosity) and applies the index-hash disturbance when the iPerturb switch asks for it.
void initialfields(Storage& st);

// Adds uniform random bumps of amplitude BAmplitude to the node elevations, j outer, i inner.
// The generator has a fixed seed, so the same case always gets the same bed.
void bedroughening(Storage& st, Field2d& elev);

} // namespace riffle
