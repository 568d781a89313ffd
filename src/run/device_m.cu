#include "run/device_m.hpp"

#include <cuda_runtime.h>

#include <cstdio>
#include <cstdlib>

namespace riffle::device {

int gpucount() {
    int n = 0;
    return cudaGetDeviceCount(&n) == cudaSuccess ? n : 0;
}

std::string gpuname() {
    cudaDeviceProp prop{};
    if (gpucount() == 0 || cudaGetDeviceProperties(&prop, 0) != cudaSuccess) return {};
    return prop.name;
}

void check(int status, const char* what) {
    if (status == cudaSuccess) return;
    std::fflush(stdout);
    std::fprintf(stderr, "ERROR : GPU: %s (%s)\n", what,
                 cudaGetErrorString(static_cast<cudaError_t>(status)));
    std::exit(EXIT_FAILURE);
}

Bytes::Bytes(std::size_t n) : n_(n) {
    if (n > 0) check(cudaMalloc(&p_, n), "allocating device memory");
}

Bytes::~Bytes() {
    if (p_ != nullptr) cudaFree(p_);
}

Bytes& Bytes::operator=(Bytes&& o) noexcept {
    if (this != &o) {
        if (p_ != nullptr) cudaFree(p_);
        p_ = o.p_;
        n_ = o.n_;
        o.p_ = nullptr;
        o.n_ = 0;
    }
    return *this;
}

void Bytes::upload(const void* host, std::size_t n) {
    check(cudaMemcpy(p_, host, n, cudaMemcpyHostToDevice), "copying to the device");
}

void Bytes::download(void* host, std::size_t n) const {
    check(cudaMemcpy(host, p_, n, cudaMemcpyDeviceToHost), "copying from the device");
}

} // namespace riffle::device
