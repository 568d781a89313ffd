// Micro-benchmarks of the hot kernels on a box with a disturbed flow (argument 0: 64x32x16 cells,
// 1: 256x64x64), reported per cell:
//   build/bench/riffle-micro [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <bit>
#include <cmath>
#include <cstdint>

#include "flow/smagorinsky_m.hpp"
#include "flow/xvelocity_m.hpp"
#include "ibm/flagdeter_m.hpp"
#include "ibm/forcinglist_m.hpp"
#include "ibm/immersing_m.hpp"
#include "pressure/multigridp_m.hpp"
#include "run/casefile_m.hpp"
#include "run/initial_m.hpp"

namespace {

using riffle::Storage;

// A box of 64 x 32 x 16 cells (fits in cache) for size 0, of 256 x 64 x 64 cells (1 M) for size 1.
Storage disturbedbox(int size) {
    Storage st;
    st.imax = size == 0 ? 64 : 256;
    st.jmax = size == 0 ? 32 : 64;
    st.kmax = size == 0 ? 16 : 64;
    st.dx = st.dy = 0.025;
    st.dz = 0.0125;
    st.ymax = 0.8;
    st.zmax = 0.2;
    st.discharge = 0.05;
    st.dens = 1000.0;
    st.visc = 1e-6;
    st.dt = 1e-3;
    st.cs = 0.1;
    st.iPerturb = std::bit_cast<double>(std::uint64_t{1});
    st.amplitude = 0.05;
    riffle::allocation(st);
    riffle::initialfields(st);
    riffle::setboundarycodes(st, 0, 0, 0);
    st.igamma = 1;
    st.ipres = st.iposts = 2;
    return st;
}

void percell(benchmark::State& state, const Storage& st) {
    state.counters["ns/cell"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * st.imax * st.jmax * st.kmax,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void xvelocity(benchmark::State& state) {
    Storage st = disturbedbox(static_cast<int>(state.range(0)));
    for (auto _ : state)
        riffle::flow::xvelocity(st.geometry(), st.conditions(), st.clock(), st.flow());
    percell(state, st);
}
BENCHMARK(xvelocity)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void smagorinsky(benchmark::State& state) {
    Storage st = disturbedbox(static_cast<int>(state.range(0)));
    for (auto _ : state)
        riffle::flow::smagorinsky(st.geometry(), st.conditions(), st.flow(), st.bed());
    percell(state, st);
}
BENCHMARK(smagorinsky)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void smoothing(benchmark::State& state) {
    Storage st = disturbedbox(static_cast<int>(state.range(0)));
    riffle::pressure::sourcep(st.geometry(), st.conditions(), st.clock(), st.flow(),
                              st.hierarchy());
    for (auto _ : state)
        riffle::pressure::smoothingp(st, 0, 1);
    percell(state, st);
}
BENCHMARK(smoothing)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void vcycle(benchmark::State& state) {
    Storage st = disturbedbox(static_cast<int>(state.range(0)));
    riffle::pressure::sourcep(st.geometry(), st.conditions(), st.clock(), st.flow(),
                              st.hierarchy());
    for (auto _ : state)
        riffle::pressure::multigridp(st, 0, 1, 2, 2, 100);
    percell(state, st);
}
BENCHMARK(vcycle)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// Bed forcing over dunes 0.8 m long and 0.05 m high: wall-law variant 1..4 (argument 0..3), with
// the lists of forcing points (second argument 1, steady state: the lists are made before the
// timing) or searching at every call (0). Reported per forcing point of u, v and w.
void immersing(benchmark::State& state) {
    Storage st = disturbedbox(0);
    st.iIBM = static_cast<int>(state.range(0) / 2);
    st.ibed = static_cast<int>(state.range(0) % 2);
    st.ks = 1.0;
    for (int j = 0; j <= st.jmax + 1; ++j)
        for (int i = 0; i <= st.imax + 1; ++i)
            st.zb(i, j) = 0.03 + 0.025 * std::sin(2.0 * M_PI * st.dx * (i - 0.5) / 0.8);
    riffle::ibm::flagdeter(st);
    if (state.range(1) == 1) riffle::ibm::uselists(st);
    riffle::ibm::immersing(st);
    for (auto _ : state)
        riffle::ibm::immersing(st);
    long long points = 0;
    for (int k = 1; k <= st.kmax; ++k)
        for (int j = 1; j <= st.jmax; ++j)
            for (int i = 1; i <= st.imax; ++i)
                points += (st.iflagu(i, j, k) == 0) + (st.iflagv(i, j, k) == 0) +
                          (k < st.kmax && st.iflagw(i, j, k) == 0);
    state.counters["ns/point"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(points),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(immersing)
    ->ArgsProduct({{0, 1, 2, 3}, {0, 1}})
    ->ArgNames({"variant", "lists"})
    ->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
