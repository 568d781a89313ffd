// Pieces shared by the three momentum predictors (xvelocity, yvelocity, zvelocity).
#pragma once

namespace riffle::flow {

struct MomentumCoefficients {
    double dx, dy, dz, visc;
    double source; // driving acceleration of the component, plus the zero mean pressure gradient
};

// The Adams-Bashforth update: the previous right-hand side moves to fo, the new one to f, and the
// velocity advances from its old level. Both terms use the current dt, also after a change of
// step size.
inline double abstep(double h, double& f, double& fo, double old, double dt) {
    const double hold = f;
    fo = hold;
    f = h;
    return old + (3.0 * h - hold) * (0.5 * dt);
}

// The zero mean pressure gradient over the density, kept as written: with dens = 0 it turns the
// source into NaN instead of hiding the bad density.
inline double meanpressuregradient(double dens) { return -0.0 / dens; }

} // namespace riffle::flow
