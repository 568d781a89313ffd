// Wall-law variants at forcing points and the eddy viscosity of forcing cells (see the header for
// the equations), composed of the pointwise pieces of walllaw_k.hpp, and the friction-velocity
// laws. Reads u, v, w, nut, the flag arrays and zb; writes only the value handed in.
#include "ibm/walllaw_m.hpp"

#include "ibm/walllaw_k.hpp"

namespace riffle::ibm {

namespace {

// Variants 3 and 4 (smooth selects the three-layer law of variant 3).
double idwvariant(const BedView& bed, Point3 p, Point3 f, Component c, double& value, bool smooth) {
    const double z0 = roughnesslength(bed.ks);
    const Point3 n = p - f;
    const double dp = norm(n);
    if (dp <= z0) { // no shifting of P in these variants
        value = 0.0;
        return 0.0;
    }
    return idwimage(bed, p, dp, divide(n, dp), p + n, c, value, smooth);
}

// ---- three-layer law, one pass in the layer of the current u* -------------------------------

inline double newtonpass(double us, double ut, double d, double visc, Layer layer) {
    switch (layer) {
    case Layer::viscous: {
        const double f = us * us - visc * ut / d;
        return us - f / (2.0 * us);
    }
    case Layer::buffer: {
        const double ex = std::exp(buffer_rate * (ut / us + buffer_offset));
        return us - (ex - d * us / visc) / (-ex * buffer_rate * ut / (us * us) - d / visc);
    }
    case Layer::log:
    default: {
        const double ex = std::exp(log_rate * (ut / us - log_offset));
        return us - (ex - d * us / visc) / (-ex * log_rate * ut / (us * us) - d / visc);
    }
    }
}

// One pass of the smooth-wall Newton.
inline double smoothpass(double us, double ut, double d, double visc) {
    const double ex = std::exp(kappa * (ut / us - smooth_wall_b));
    return us - (ex - d * us / visc) / (-ex * kappa * ut / (us * us) - d / visc);
}

inline double fixedpointpass(double us, double ut, double d, double visc, Layer layer) {
    const double yplus = d * us / visc;
    switch (layer) {
    case Layer::viscous:
        return std::sqrt(visc * ut / d);
    case Layer::buffer:
        return ut / (buffer_slope * std::log(yplus) - buffer_offset);
    case Layer::log:
    default:
        return ut / (log_slope * std::log(yplus) + log_offset);
    }
}

// One pass of the three-layer law in the layer of the current u*.
inline double layerpass(double us, double ut, double d, double visc, bool newton, Layer& layer) {
    layer = layerof(d * us / visc);
    return newton ? newtonpass(us, ut, d, visc, layer) : fixedpointpass(us, ut, d, visc, layer);
}

} // namespace

double idwimage(const BedView& bed, Point3 p, double dp, Point3 e, Point3 r, Component c,
                double& value, bool smooth) {
    const double z0 = roughnesslength(bed.ks);
    const double step = step_idw * bed.dy;
    for (;;) {
        const Tangential t = tangential(idwvelocity(bed, r), e);
        if (t.ut == 0.0) {
            value = 0.0;
            return 0.0;
        }
        const double d = norm(r - p) + dp;
        if (!smooth) return setprofile(roughustar(t.ut, d, z0), dp, z0, t, c, value);
        const UstarSolve s = threelayerustar(t.ut, d, bed.visc, z0);
        if (s.converged) return setprofile(s.ustar, dp, z0, t, c, value);
        r = r + step * e; // no limit: farther out the law is solved again
    }
}

UstarSolve smoothustar(double ut, double d, double visc, double z0) {
    return smoothustarfrom(roughustar(ut, d, z0), ut, d, visc);
}

UstarSolve smoothustarfrom(double start, double ut, double d, double visc) {
    UstarSolve s;
    smoothustars(1, &start, &ut, &d, visc, &s);
    return s;
}

UstarSolve threelayerustar(double ut, double d, double visc, double z0) {
    return threelayerustarfrom(roughustar(ut, d, z0), ut, d, visc);
}

UstarSolve threelayerustarfrom(double start, double ut, double d, double visc) {
    UstarSolve s;
    threelayerustars(1, &start, &ut, &d, visc, &s);
    return s;
}

void smoothustars(int count, const double* start, const double* ut, const double* d, double visc,
                  UstarSolve* out) {
    double us[maxsolves];
    int pass[maxsolves];
    bool live[maxsolves];
    int left = count;
    for (int n = 0; n < count; ++n) {
        us[n] = start[n];
        pass[n] = 0;
        live[n] = true;
        out[n].converged = false;
    }
    while (left > 0) {
        for (int n = 0; n < count; ++n) {
            if (!live[n]) continue;
            const double next = smoothpass(us[n], ut[n], d[n], visc);
            const double change = std::fabs((next - us[n]) / next);
            us[n] = next;
            ++pass[n];
            // Ends when the change is small, or at once when it is not a number.
            if (change <= smooth_tol || std::isnan(change)) {
                out[n].converged = change <= smooth_tol;
                live[n] = false;
                --left;
            }
        }
    }
    for (int n = 0; n < count; ++n) {
        out[n].ustar = us[n];
        out[n].passes = pass[n];
    }
}

void threelayerustars(int count, const double* start, const double* ut, const double* d,
                      double visc, UstarSolve* out) {
    double us[maxsolves];
    int pass[maxsolves];
    bool newton[maxsolves], live[maxsolves];
    Layer layer[maxsolves];
    int left = count;
    for (int n = 0; n < count; ++n) {
        us[n] = start[n];
        pass[n] = 0;
        newton[n] = true;
        live[n] = true;
        out[n].converged = false;
    }
    while (left > 0) {
        for (int n = 0; n < count; ++n) {
            if (!live[n]) continue;
            const double next = layerpass(us[n], ut[n], d[n], visc, newton[n], layer[n]);
            const double change = std::fabs((next - us[n]) / next);
            us[n] = next;
            ++pass[n];
            if (change <= layer_tol) {
                out[n].converged = true;
            } else if (pass[n] < layer_maxpasses) {
                continue;
            } else if (newton[n]) { // Newton gave up: the fixed-point iteration from the start
                newton[n] = false;
                pass[n] = 0;
                us[n] = start[n];
                continue;
            }
            live[n] = false;
            --left;
        }
    }
    for (int n = 0; n < count; ++n) {
        out[n].ustar = us[n];
        out[n].passes = pass[n];
        out[n].newton = newton[n];
        out[n].layer = layer[n];
    }
}

double walltrismooth(const BedView& bed, Point3 p, Point3 f, Component c, double& value) {
    const double z0 = roughnesslength(bed.ks);
    const TrilinearGeometry g = trilineargeometry(bed, p, f, z0);
    const Tangential t = trilineartangential(bed, g);
    if (t.ut == 0.0) {
        value = 0.0;
        return 0.0;
    }
    // Friction velocity from the smooth-wall law at R, velocity at P from the rough-wall law:
    // the pairing is deliberate.
    const double ustar = smoothustar(t.ut, g.d, bed.visc, z0).ustar;
    return setprofile(ustar, g.dp, z0, t, c, value);
}

double walltrirough(const BedView& bed, Point3 p, Point3 f, Component c, double& value) {
    const double z0 = roughnesslength(bed.ks);
    const TrilinearGeometry g = trilineargeometry(bed, p, f, z0);
    const Tangential t = trilineartangential(bed, g);
    if (t.ut == 0.0) {
        value = 0.0;
        return 0.0;
    }
    return setprofile(roughustar(t.ut, g.d, z0), g.dp, z0, t, c, value);
}

double wallidwsmooth(const BedView& bed, Point3 p, Point3 f, Component c, double& value) {
    return idwvariant(bed, p, f, c, value, true);
}

double wallidwrough(const BedView& bed, Point3 p, Point3 f, Component c, double& value) {
    return idwvariant(bed, p, f, c, value, false);
}

double wallvelocity(const BedView& bed, Point3 p, Point3 f, Component c, double& value) {
    if (bed.iIBM == 0) {
        return bed.ibed == 0 ? walltrismooth(bed, p, f, c, value)
                             : walltrirough(bed, p, f, c, value);
    }
    return bed.ibed == 0 ? wallidwsmooth(bed, p, f, c, value) : wallidwrough(bed, p, f, c, value);
}

void eddytri(const BedView& bed, Point3 p, Point3 f, double& value) {
    const EddyImage im = eddytriimage(bed, p, f);
    if (im.zero) {
        value = 0.0;
        return;
    }
    value = trilinear(bed.nut, im.s) * im.dp / im.den;
}

void eddyidw(const BedView& bed, Point3 p, Point3 f, double& value) {
    const EddyImage im = eddyidwimage(p, f);
    if (im.zero) {
        value = 0.0;
        return;
    }
    value = idw(bed.nut, bed.iflagp, cgrid(bed), im.r) * im.dp / im.den;
}

void walleddy(const BedView& bed, Point3 p, Point3 f, double& value) {
    if (bed.iIBM == 0) {
        eddytri(bed, p, f, value);
    } else {
        eddyidw(bed, p, f, value);
    }
}

} // namespace riffle::ibm
