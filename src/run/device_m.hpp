// The GPU of a CUDA build: whether there is one, its name, and storage on it. A Field on the
// device has the index ranges of a host field and hands out the same views, so a kernel reads
// it exactly as it reads host storage; up- and download copy whole arrays, halos included.
// Plain device allocations (never managed memory); a failed CUDA call ends the program with one
// line naming what was being done and the driver's reason.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "run/field3.hpp"

namespace riffle::device {

// GPUs the CUDA runtime sees (0 without a driver or a device), and the name of the first.
[[nodiscard]] int gpucount();
[[nodiscard]] std::string gpuname();

// Ends the program with "ERROR : GPU: WHAT (REASON)" when `status` is not success (an int, to
// keep the CUDA headers out of host code).
void check(int status, const char* what);

// Raw device bytes, owned.
class Bytes {
public:
    Bytes() = default;
    explicit Bytes(std::size_t n);
    ~Bytes();
    Bytes(Bytes&& o) noexcept : p_(o.p_), n_(o.n_) { o.p_ = nullptr, o.n_ = 0; }
    Bytes& operator=(Bytes&& o) noexcept;
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    [[nodiscard]] void* data() const { return p_; }
    [[nodiscard]] std::size_t size() const { return n_; }
    void upload(const void* host, std::size_t n);
    void download(void* host, std::size_t n) const;

private:
    void* p_ = nullptr;
    std::size_t n_ = 0;
};

// n values of T on the device.
template <class T> class Buffer {
public:
    explicit Buffer(std::size_t n) : bytes_(n * sizeof(T)), n_(n) {}
    [[nodiscard]] T* data() const { return static_cast<T*>(bytes_.data()); }
    void upload(const T* host) { bytes_.upload(host, n_ * sizeof(T)); }
    [[nodiscard]] std::vector<T> download() const {
        std::vector<T> host(n_);
        bytes_.download(host.data(), n_ * sizeof(T));
        return host;
    }

private:
    Bytes bytes_;
    std::size_t n_;
};

// A 3-D field on the device with the ranges of a host field.
template <class T> class Field {
public:
    explicit Field(const Field3<T>& like)
        : bytes_(like.size() * sizeof(T)), ri_(like.irange()), rj_(like.jrange()),
          rk_(like.krange()) {}
    [[nodiscard]] View3<T> view() const { return {data(), ri_, rj_, rk_}; }
    [[nodiscard]] ConstView3<T> cview() const { return {data(), ri_, rj_, rk_}; }
    void upload(const Field3<T>& host) { bytes_.upload(host.data(), host.size() * sizeof(T)); }
    void download(Field3<T>& host) const { bytes_.download(host.data(), host.size() * sizeof(T)); }

private:
    [[nodiscard]] T* data() const { return static_cast<T*>(bytes_.data()); }
    Bytes bytes_;
    Range ri_, rj_, rk_;
};

} // namespace riffle::device
