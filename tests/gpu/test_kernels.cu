// The kernels on the GPU against the same kernels on the CPU: the momentum predictor, the strain
// rate, a coloured sweep of the line smoother and a sum of squared divergences over one box of
// random fields. A kernel that writes its own points gives the same bits on both (the build keeps
// a*b + c unfused on both); the sum is formed in another order and agrees to round-off. Without
// a GPU the test reports itself skipped.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>

#include "flow/momentum_k.hpp"
#include "flow/smagorinsky_k.hpp"
#include "pressure/linesweep_m.hpp"
#include "pressure/multigrid_k.hpp"
#include "pressure/projection_k.hpp"
#include "run/device_m.hpp"
#include "run/loops.hpp"
#include "run/loops_cuda.cuh"

namespace riffle {
namespace {

constexpr int nx = 24, ny = 20, nz = 16;

Field3<double> randomfield(unsigned seed, double lo = -1.0, double hi = 1.0) {
    Field3<double> f(Range{-1, nx + 1}, Range{-1, ny + 1}, Range{-1, nz + 1});
    std::mt19937_64 gen(seed);
    std::uniform_real_distribution<double> value(lo, hi);
    for (std::size_t n = 0; n < f.size(); ++n)
        f.data()[n] = value(gen);
    return f;
}

// The host field and its copy on the device.
struct Pair {
    Field3<double> host;
    device::Field<double> gpu;
    explicit Pair(Field3<double> f) : host(std::move(f)), gpu(host) { gpu.upload(host); }
    [[nodiscard]] bool same() const {
        Field3<double> back(host.irange(), host.jrange(), host.krange());
        gpu.download(back);
        return std::memcmp(back.data(), host.data(), host.size() * sizeof(double)) == 0;
    }
};

using CView = ConstView3<double>;
using View = View3<double>;

// The kernels as the solver's routines call them, over given views (functors, so that the CPU
// and the GPU drivers take the same object).
struct Predictor {
    CView uo, vo, wo, nut;
    View u, fu, fuo;
    flow::MomentumCoefficients m;
    double dt;
    RIFFLE_HD void operator()(int i, int j, int k) const {
        const double h = flow::rhsu(uo, vo, wo, nut, m, i, j, k);
        u(i, j, k) = flow::abstep(h, fu(i, j, k), fuo(i, j, k), uo(i, j, k), dt);
    }
};
struct Strain {
    CView u, v, w;
    View out;
    RIFFLE_HD void operator()(int i, int j, int k) const {
        out(i, j, k) = flow::magnitude(flow::strainrate(u, v, w, 0.05, 0.04, 0.02, i, j, k));
    }
};
struct Line {
    View phi;
    CView src;
    const double* bm;
    int colour;
    double cx, cy, cz;
    RIFFLE_HD void operator()(int h, int j) const {
        const int i = pressure::colouredline(h, j, colour, 0, nx);
        if (i != 0) pressure::solveline(phi, src, i, j, nz, cx, cy, cz, bm);
    }
};
struct Divergence {
    CView u, v, w;
    RIFFLE_HD double operator()(int i, int j, int k) const {
        const double d = pressure::celldivergence(u, v, w, i, j, k, 0.05, 0.04, 0.02);
        return d * d;
    }
};

TEST(GpuKernels, SameBitsAsTheCpu) {
    Pair uo(randomfield(1)), vo(randomfield(2)), wo(randomfield(3)), nut(randomfield(4, 0.0, 1e-3));
    Pair u(randomfield(5)), fu(randomfield(6)), fuo(randomfield(7)), s(randomfield(8));
    const flow::MomentumCoefficients c{0.05, 0.04, 0.02, 1e-6, 0.3};
    const double dt = 1e-3;
    const loops::Box box{{1, nx}, {1, ny}, {1, nz}};
    loops::forbox(box,
                  Predictor{uo.host.cview(), vo.host.cview(), wo.host.cview(), nut.host.cview(),
                            u.host.view(), fu.host.view(), fuo.host.view(), c, dt});
    loops::gpu::forbox(box,
                       Predictor{uo.gpu.cview(), vo.gpu.cview(), wo.gpu.cview(), nut.gpu.cview(),
                                 u.gpu.view(), fu.gpu.view(), fuo.gpu.view(), c, dt});
    EXPECT_TRUE(u.same() && fu.same() && fuo.same()) << "momentum predictor";

    loops::forbox(box, Strain{uo.host.cview(), vo.host.cview(), wo.host.cview(), s.host.view()});
    loops::gpu::forbox(box, Strain{uo.gpu.cview(), vo.gpu.cview(), wo.gpu.cview(), s.gpu.view()});
    EXPECT_TRUE(s.same()) << "strain rate";

    // One coloured sweep: each colour's lines at once, the colours one after the other.
    const double cx = 400.0, cy = 625.0, cz = 2500.0;
    double bm[nz + 1];
    pressure::eliminateddiagonal(-2.0 * (cx + cy + cz), cz, -1.0, 1.0, nz, bm);
    device::Buffer<double> bmgpu(nz + 1);
    bmgpu.upload(bm);
    Pair phi(randomfield(9)), src(randomfield(10));
    for (int colour = 0; colour < 2; ++colour) {
        loops::forplane(Range{1, (nx + 1) / 2}, Range{1, ny},
                        Line{phi.host.view(), src.host.cview(), bm, colour, cx, cy, cz});
        loops::gpu::forplane(
            Range{1, (nx + 1) / 2}, Range{1, ny},
            Line{phi.gpu.view(), src.gpu.cview(), bmgpu.data(), colour, cx, cy, cz});
    }
    EXPECT_TRUE(phi.same()) << "coloured line sweep";

    const double cpu =
        loops::sumbox(box, Divergence{u.host.cview(), vo.host.cview(), wo.host.cview()});
    const double gpu =
        loops::gpu::sumbox(box, Divergence{u.gpu.cview(), vo.gpu.cview(), wo.gpu.cview()});
    EXPECT_NEAR(gpu, cpu, 1e-13 * cpu);
    std::printf("gpu kernels on %s: sum of squared divergences %.17g (cpu %.17g)\n",
                device::gpuname().c_str(), gpu, cpu);
}

} // namespace
} // namespace riffle

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (riffle::device::gpucount() == 0) {
        std::printf("no GPU: the GPU tests are skipped\n");
        return 77;
    }
    return RUN_ALL_TESTS();
}
