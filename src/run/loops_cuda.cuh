// The loop layer's CUDA back end: the same kernels as the OpenMP drivers of loops.hpp, launched
// over an index box on the GPU. A kernel is the lambda the CPU runs, marked __device__ as well
// (nvcc --extended-lambda), capturing views of device storage (device_m.hpp) and scalars.
//
// Order and bits. A kernel that writes only its own point gives the same bits as on the CPU
// where the arithmetic is the same: the build keeps a*b + c unfused (-fmad=false), as the CPU
// build does. A sum over a box is formed in a fixed order of its own (each block adds its
// threads' values as a tree in shared memory, the host adds the blocks in order), so it is the
// same on every run but rounds differently from the CPU's loop-order sum.
#pragma once

#include <cuda_runtime.h>

#include <cstddef>
#include <vector>

#include "run/device_m.hpp"
#include "run/loops.hpp"

namespace riffle::loops::gpu {

inline constexpr int threadsperblock = 256;

namespace detail {

// The point of linear index n of the box, i fastest.
struct Point {
    int i, j, k;
};
__device__ inline Point pointof(const Box& b, long long n) {
    const long long ni = b.i.hi - b.i.lo + 1, nj = b.j.hi - b.j.lo + 1;
    const int i = b.i.lo + static_cast<int>(n % ni);
    const int j = b.j.lo + static_cast<int>((n / ni) % nj);
    const int k = b.k.lo + static_cast<int>(n / (ni * nj));
    return {i, j, k};
}

inline long long pointcount(const Box& b) {
    const long long ni = b.i.hi - b.i.lo + 1, nj = b.j.hi - b.j.lo + 1, nk = b.k.hi - b.k.lo + 1;
    return ni > 0 && nj > 0 && nk > 0 ? ni * nj * nk : 0;
}

template <class Kernel> __global__ void boxkernel(Box b, long long count, Kernel f) {
    const long long n = static_cast<long long>(blockIdx.x) * blockDim.x + threadIdx.x;
    if (n >= count) return;
    const Point p = pointof(b, n);
    f(p.i, p.j, p.k);
}

template <class Kernel> __global__ void sumkernel(Box b, long long count, Kernel f, double* sums) {
    __shared__ double part[threadsperblock];
    const long long n = static_cast<long long>(blockIdx.x) * blockDim.x + threadIdx.x;
    double x = 0.0;
    if (n < count) {
        const Point p = pointof(b, n);
        x = f(p.i, p.j, p.k);
    }
    part[threadIdx.x] = x;
    __syncthreads();
    for (int half = threadsperblock / 2; half > 0; half /= 2) {
        if (static_cast<int>(threadIdx.x) < half) part[threadIdx.x] += part[threadIdx.x + half];
        __syncthreads();
    }
    if (threadIdx.x == 0) sums[blockIdx.x] = part[0];
}

inline unsigned blocksfor(long long count) {
    return static_cast<unsigned>((count + threadsperblock - 1) / threadsperblock);
}

} // namespace detail

// Runs f(i, j, k) at every point of the box, one GPU thread per point; returns when all are done.
template <class Kernel> void forbox(const Box& b, Kernel f) {
    const long long count = detail::pointcount(b);
    if (count == 0) return;
    detail::boxkernel<<<detail::blocksfor(count), threadsperblock>>>(b, count, f);
    device::check(cudaGetLastError(), "a loop over a box");
    device::check(cudaDeviceSynchronize(), "a loop over a box");
}

// Runs f(a, b) over a plane, as forplane of the CPU.
template <class Kernel> void forplane(Range a, Range b, Kernel f) {
    forbox({a, b, Range{0, 0}}, [=] __device__(int x, int y, int) { f(x, y); });
}

// The sum of f(i, j, k) over the box, in the fixed order described above.
template <class Kernel> double sumbox(const Box& b, Kernel f) {
    const long long count = detail::pointcount(b);
    if (count == 0) return 0.0;
    const unsigned blocks = detail::blocksfor(count);
    device::Buffer<double> sums(blocks);
    detail::sumkernel<<<blocks, threadsperblock>>>(b, count, f, sums.data());
    device::check(cudaGetLastError(), "a sum over a box");
    const std::vector<double> host = sums.download();
    double s = 0.0;
    for (const double x : host)
        s += x;
    return s;
}

} // namespace riffle::loops::gpu
