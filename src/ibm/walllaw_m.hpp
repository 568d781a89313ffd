// Wall law at the forcing points of the immersed bed: the velocity of a forcing point P from the
// flow at an image point R farther from the bed, and the eddy viscosity of a forcing cell centre.
//
// With F the foot of P on the bed, n = P - F, dP = |n|, e = n/dP, the image point starts at
// R = P + n. The velocity V at R is split into Vn = V.e and Vt = V - Vn e, Ut = |Vt|; with
// d = |R - P| + dP the friction velocity u* comes from a wall law at R, and P gets the rough-wall
// profile along the tangential direction:
//     Up = (u*/kappa) ln(dP/z0),   value = component of Up Vt/Ut,   z0 = ks/12/1000 (ks in mm).
// Four variants, chosen by (iIBM, ibed):
//   1 (0, 0)    trilinear V at R (R stepped out by dy/8 until enclosed by fluid), smooth-wall u*
//               from exp(kappa (Ut/u* - 5.1)) = d u*/visc by Newton;
//   2 (0, !=0)  as 1, rough-wall u* = kappa Ut/ln(d/z0);
//   3 (!=0, 0)  inverse-distance V at R, three-layer smooth-wall u* (viscous, buffer, log layer),
//               R stepped out by dy/4 while the law cannot be solved;
//   4 (!=0, !=0) inverse-distance V at R, rough-wall u*.
// Eddy viscosity: nut(P) = nut(R) dP/(dP + |R - P|), falling linearly to zero at the bed; nut(R)
// trilinear after stepping R into fluid cells (A, iIBM = 0) or inverse-distance (B, otherwise).
//
// Fields: u on x-faces (x(i), yc(j), zc(k)), v on y-faces, w on z-faces, nut and iflagp at cell
// centres; the flag arrays of the same points. Reads u, v, w, nut and the flags including their
// ghost layers (0 up to n+1; u at i = -1 only in the trilinear stencil); writes only `value`.
// Every routine is reentrant: locals and fixed-size arrays only, no allocation.
#pragma once

#include <cmath>

#include "ibm/bedview.hpp"
#include "ibm/pointsearch_m.hpp"
#include "run/storage_m.hpp"

namespace riffle::ibm {

inline constexpr double kappa = 0.4;         // von Karman constant
inline constexpr double smooth_wall_b = 5.1; // additive constant of the smooth-wall log law

// Three-layer smooth wall: viscous sublayer up to y+ = 5, buffer layer below y+ = 30, log layer.
inline constexpr double viscous_top = 5.0;
inline constexpr double log_bottom = 30.0;
inline constexpr double buffer_rate = 0.2, buffer_offset = 3.05; // y+ = exp(0.2 (Ut/u* + 3.05))
inline constexpr double log_rate = 0.4, log_offset = 5.5;        // y+ = exp(0.4 (Ut/u* - 5.5))
inline constexpr double buffer_slope = 5.0, log_slope = 2.5;     // the same, solved for Ut/u*

inline constexpr double smooth_tol = 1e-8; // relative change that ends the smooth-wall Newton
inline constexpr double layer_tol = 1e-6;  // the same for the three-layer law
inline constexpr int layer_maxpasses = 100;

enum class Component : int { x = 0, y = 1, z = 2 };

// Roughness length from the grain size in millimetres. The factor is the decimal as written, not
// 1/12, and the division by 1000 comes after it, so the bits match the established runs.
[[nodiscard]] RIFFLE_HD inline double roughnesslength(double ks) {
    return ks * 0.0833333333333333 / 1000.0;
}

// The two rough-wall laws with ln(d/z0) given: the logarithm depends on the geometry alone, so a
// list of forcing points keeps it between calls.
[[nodiscard]] RIFFLE_HD inline double roughustarln(double ut, double lnd) {
    return kappa * ut / lnd;
}
[[nodiscard]] RIFFLE_HD inline double roughprofileln(double ustar, double lndp) {
    return ustar / kappa * lndp;
}

// Rough-wall log law solved for u* at distance d: Ut/u* = (1/kappa) ln(d/z0).
[[nodiscard]] RIFFLE_HD inline double roughustar(double ut, double d, double z0) {
    return roughustarln(ut, std::log(d / z0));
}

// Rough-wall velocity at distance dp: Up = (u*/kappa) ln(dp/z0).
[[nodiscard]] RIFFLE_HD inline double roughprofile(double ustar, double dp, double z0) {
    return roughprofileln(ustar, std::log(dp / z0));
}

enum class Layer : int { viscous = 0, buffer = 1, log = 2 };

[[nodiscard]] RIFFLE_HD inline Layer layerof(double yplus) {
    if (yplus <= viscous_top) return Layer::viscous;
    if (yplus < log_bottom) return Layer::buffer;
    return Layer::log;
}

// Outcome of a friction-velocity iteration.
struct UstarSolve {
    double ustar = 0.0;
    int passes = 0; // passes of the iteration that produced ustar
    bool converged = false;
    bool newton = true;       // false: the fixed-point iteration produced ustar
    Layer layer = Layer::log; // layer of the last pass (three-layer law only)
};

// Smooth-wall law exp(kappa (Ut/u* - 5.1)) - d u*/visc = 0 by Newton from the rough-wall u*.
// Ends only when the relative change is <= 1e-8, or at once when that change is not a number.
[[nodiscard]] UstarSolve smoothustar(double ut, double d, double visc, double z0);
// The same from a given start (the rough-wall u*).
[[nodiscard]] UstarSolve smoothustarfrom(double start, double ut, double d, double visc);

// Three-layer smooth-wall law by Newton, then by fixed-point iteration if Newton fails; each pass
// takes the layer from y+ = d u*/visc of the current u*. Both start from the rough-wall u*, stop at
// a relative change <= 1e-6 and give up after 100 passes (converged = false when both give up).
[[nodiscard]] UstarSolve threelayerustar(double ut, double d, double visc, double z0);
[[nodiscard]] UstarSolve threelayerustarfrom(double start, double ut, double d, double visc);

// Up to maxsolves laws side by side, each from its own start, solved exactly as alone (the
// single-law routines above are these with one law): the passes of one are independent of those
// of the others, so the processor overlaps them. out[n] receives the outcome of law n.
inline constexpr int maxsolves = 8;
void smoothustars(int count, const double* start, const double* ut, const double* d, double visc,
                  UstarSolve* out);
void threelayerustars(int count, const double* start, const double* ut, const double* d,
                      double visc, UstarSolve* out);

// Velocity variants 1-4 at forcing point p with foot f: set the component c of the velocity into
// `value` and return the wall-normal gradient (u*/kappa)/dP (0 where the velocity is set to 0).
double walltrismooth(const BedView& bed, Point3 p, Point3 f, Component c, double& value);
double walltrirough(const BedView& bed, Point3 p, Point3 f, Component c, double& value);
double wallidwsmooth(const BedView& bed, Point3 p, Point3 f, Component c, double& value);
double wallidwrough(const BedView& bed, Point3 p, Point3 f, Component c, double& value);
// The variant of the run: (iIBM, ibed) = (0, 0) 1, (0, !=0) 2, (!=0, 0) 3, (!=0, !=0) 4.
double wallvelocity(const BedView& bed, Point3 p, Point3 f, Component c, double& value);

// Eddy-viscosity variants A (trilinear) and B (inverse distance) at cell centre p with foot f.
void eddytri(const BedView& bed, Point3 p, Point3 f, double& value);
void eddyidw(const BedView& bed, Point3 p, Point3 f, double& value);
// The variant of the run: A for iIBM = 0, B otherwise.
void walleddy(const BedView& bed, Point3 p, Point3 f, double& value);

} // namespace riffle::ibm
