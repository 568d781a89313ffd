// Immersed-boundary forcing: the routines walk the lists of forcing points (forcinglist_m,
// forcingwalk_m), each split evenly among the threads. A forcing point's wall law reads only
// fluid points (flag 1), which no walk writes, so the result does not depend on how the points
// are shared. Where the driver has not switched the lists on (they are kept from the
// classification on), they are made afresh at every call from the flags as they stand.
#include "ibm/immersing_m.hpp"

#include "ibm/forcinglist_m.hpp"
#include "ibm/forcingwalk_m.hpp"

namespace riffle::ibm {

namespace {

void renewunlesskept(const BedParts& parts) {
    if (!parts.bed.forcing.enabled) ++parts.bed.forcing.classification; // made again below
}

} // namespace

void immersing(const BedParts& parts) {
    renewunlesskept(parts);
    forcevelocity(parts);
}

void immersingnut(const BedParts& parts) {
    renewunlesskept(parts);
    forceeddy(parts);
}

} // namespace riffle::ibm
