// Micro-benchmarks of the hot kernels on a 64x32x16 box with a disturbed flow, reported per cell:
//   build/bench/riffle-micro [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <bit>
#include <cstdint>

#include "flow/smagorinsky_m.hpp"
#include "flow/xvelocity_m.hpp"
#include "pressure/multigridp_m.hpp"
#include "run/casefile_m.hpp"
#include "run/initial_m.hpp"

namespace {

using riffle::Storage;

Storage disturbedbox() {
    Storage st;
    st.imax = 64;
    st.jmax = 32;
    st.kmax = 16;
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
    state.counters["ns/cell"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * st.imax * st.jmax * st.kmax,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void xvelocity(benchmark::State& state) {
    Storage st = disturbedbox();
    for (auto _ : state) riffle::flow::xvelocity(st);
    percell(state, st);
}
BENCHMARK(xvelocity)->Unit(benchmark::kMicrosecond);

void smagorinsky(benchmark::State& state) {
    Storage st = disturbedbox();
    for (auto _ : state) riffle::flow::smagorinsky(st);
    percell(state, st);
}
BENCHMARK(smagorinsky)->Unit(benchmark::kMicrosecond);

void smoothing(benchmark::State& state) {
    Storage st = disturbedbox();
    riffle::pressure::sourcep(st);
    for (auto _ : state) riffle::pressure::smoothingp(st, 0, 1);
    percell(state, st);
}
BENCHMARK(smoothing)->Unit(benchmark::kMicrosecond);

void vcycle(benchmark::State& state) {
    Storage st = disturbedbox();
    riffle::pressure::sourcep(st);
    for (auto _ : state) riffle::pressure::multigridp(st, 0, 1, 2, 2, 100);
    percell(state, st);
}
BENCHMARK(vcycle)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
