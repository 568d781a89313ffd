// Every kernel header compiled as device code: a kernel that calls a function the device cannot
// run (one not marked RIFFLE_HD, or a host library call) fails to compile here. Each kernel is
// called once from one device function; nothing runs.
#include "flow/momentum_k.hpp"
#include "flow/smagorinsky_k.hpp"
#include "ibm/walllaw_k.hpp"
#include "pressure/multigrid_k.hpp"
#include "pressure/projection_k.hpp"
#include "pressure/vorticity_k.hpp"
#include "run/faces_k.hpp"
#include "run/nodes_k.hpp"

using namespace riffle;

__global__ void kernels(View3<double> a, ConstView3<double> b, ConstView3<double> c,
                        ConstView3<double> d, double* out) {
    const int i = 1 + static_cast<int>(threadIdx.x), j = 1, k = 1;
    const flow::MomentumCoefficients m{1.0, 1.0, 1.0, 1e-6, 0.0};
    double f = 0.0, fo = 0.0;
    out[0] = flow::abstep(flow::rhsu(a, b, c, d, m, i, j, k) + flow::rhsv(a, b, c, d, m, i, j, k) +
                              flow::rhsw(a, b, c, d, m, i, j, k),
                          f, fo, 0.0, 1.0);
    out[1] = flow::magnitude(flow::strainrate(a, b, c, 1.0, 1.0, 1.0, i, j, k));
    out[2] = pressure::celldivergence(a, b, c, i, j, k, 1.0, 1.0, 1.0) +
             pressure::corrected(1.0, 1.0, 2.0, 1.0, 1.0) +
             pressure::laplacian(b, i, j, k, 1.0, 1.0, 1.0) +
             pressure::pointvalue(1.0, 1.0, 1.0, 0.0, 1.0, 1.0, 1.0, 6.0) +
             pressure::nanmax(1.0, 2.0);
    pressure::prolongpoint(a, a, b, 2, 2, 2);
    pressure::restrictpoint(b, a, a, 1, 1, 1);
    const pressure::Gradient g = pressure::gradient(a, b, c, i, j, k, 1.0, 1.0, 1.0);
    out[3] = pressure::qcriterion(g) + pressure::vorticitymagnitude(g) + ghost(1.0, 2.0, 3.0) +
             nodeu(a, i, j, k) + nodev(b, i, j, k) + nodew(c, i, j, k) + eightcells(d, i, j, k);
}

// The bed's wall laws at a forcing point: image point, interpolation, friction velocity, profile.
__global__ void walllaws(ibm::BedView bed, double* out) {
    using namespace riffle::ibm;
    const Point3 p{0.1, 0.1, 0.1}, f{0.1, 0.1, 0.0};
    const double z0 = roughnesslength(bed.ks);
    const TrilinearGeometry g = trilineargeometry(bed, p, f, z0);
    const Tangential t = trilineartangential(bed, g);
    double value = 0.0;
    out[0] = setprofile(roughustar(t.ut, g.d, z0), g.dp, z0, t, Component::x, value);
    out[1] = norm(idwvelocity(bed, p)) + eddytriimage(bed, p, f).dp + eddyidwimage(p, f).dp;
    out[2] = bilinear(0.0, 1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0).z(0.5, 0.5) +
             keepinside(p, bed, clamp_margin).x + bednormal(bed, f).z;
}
