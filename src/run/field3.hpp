// Field3 and Field2: owning arrays over inclusive index ranges with ghost layers.
//
// The staggered grid addresses every array with its own inclusive bounds, e.g. u over
// (-1:imax+1, 0:jmax+1, 0:kmax+1). Storage is contiguous with i fastest, then j, then k, so an
// inner i loop is unit stride and vectorises. Element (i,j,k) sits at
//     (i - ilo) + (j - jlo)*sj + (k - klo)*sk.
// View and ConstView are non-owning, trivially copyable handles for use inside loop nests.
// With RIFFLE_BOUNDS_CHECK (the Debug build) every access is checked and an out-of-range
// index aborts with the offending triple; Release builds do no checking.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <type_traits>

// Marks a function that every back end runs (host and device code under a CUDA compiler): the
// kernels of the loop layer and the view accessors they call.
#if defined(__CUDACC__)
#define RIFFLE_HD __host__ __device__
#else
#define RIFFLE_HD
#endif

namespace riffle {

struct Range {
    int lo = 0;
    int hi = -1;
    [[nodiscard]] constexpr std::int64_t extent() const {
        return hi >= lo ? std::int64_t{hi} - lo + 1 : 0;
    }
};

namespace detail {
[[noreturn]] inline void out_of_range(int i, int j, int k, const Range& ri, const Range& rj,
                                      const Range& rk) {
    std::fprintf(stderr, "field index (%d,%d,%d) outside (%d:%d,%d:%d,%d:%d)\n", i, j, k, ri.lo,
                 ri.hi, rj.lo, rj.hi, rk.lo, rk.hi);
    std::abort();
}

// The value a fresh field holds in the Debug build: a signalling NaN for reals, so that a read of
// a never-written element shows up at once; a large sentinel for integers.
template <class T> constexpr T fresh_value() {
    if constexpr (std::is_floating_point_v<T>) {
        return std::numeric_limits<T>::signaling_NaN();
    } else {
        return std::numeric_limits<T>::min();
    }
}
} // namespace detail

template <class T> class ConstView3 {
public:
    ConstView3() = default;
    RIFFLE_HD ConstView3(const T* data, Range ri, Range rj, Range rk)
        : p_(data), ri_(ri), rj_(rj), rk_(rk), sj_(ri.extent()), sk_(ri.extent() * rj.extent()) {}

    [[nodiscard]] RIFFLE_HD const T& operator()(int i, int j, int k) const {
        return p_[offset(i, j, k)];
    }
    [[nodiscard]] Range irange() const { return ri_; }
    [[nodiscard]] Range jrange() const { return rj_; }
    [[nodiscard]] Range krange() const { return rk_; }

protected:
    [[nodiscard]] RIFFLE_HD std::ptrdiff_t offset(int i, int j, int k) const {
#ifdef RIFFLE_BOUNDS_CHECK
        if (i < ri_.lo || i > ri_.hi || j < rj_.lo || j > rj_.hi || k < rk_.lo || k > rk_.hi) {
            detail::out_of_range(i, j, k, ri_, rj_, rk_);
        }
#endif
        return (i - ri_.lo) + (j - rj_.lo) * sj_ + (k - rk_.lo) * sk_;
    }
    const T* p_ = nullptr;
    Range ri_, rj_, rk_;
    std::ptrdiff_t sj_ = 0, sk_ = 0;
};

template <class T> class View3 : public ConstView3<T> {
public:
    View3() = default;
    View3(T* data, Range ri, Range rj, Range rk) : ConstView3<T>(data, ri, rj, rk) {}
    [[nodiscard]] RIFFLE_HD T& operator()(int i, int j, int k) const {
        return const_cast<T&>(this->p_[this->offset(i, j, k)]);
    }
};

// Owning 3-D array. Allocation throws std::bad_alloc when the memory cannot be had; the
// storage module turns that into the program's fatal-error report.
template <class T> class Field3 {
public:
    Field3() = default;
    Field3(Range ri, Range rj, Range rk) { allocate(ri, rj, rk); }

    void allocate(Range ri, Range rj, Range rk) {
        ri_ = ri;
        rj_ = rj;
        rk_ = rk;
        n_ = static_cast<std::size_t>(ri.extent() * rj.extent() * rk.extent());
        data_.reset(new T[n_]); // contents undefined until the initial state is set
#ifdef RIFFLE_NAN_FILL
        fill(detail::fresh_value<T>());
#endif
    }

    [[nodiscard]] T& operator()(int i, int j, int k) { return data_[offset(i, j, k)]; }
    [[nodiscard]] const T& operator()(int i, int j, int k) const { return data_[offset(i, j, k)]; }

    [[nodiscard]] View3<T> view() { return {data_.get(), ri_, rj_, rk_}; }
    [[nodiscard]] ConstView3<T> view() const { return {data_.get(), ri_, rj_, rk_}; }
    [[nodiscard]] ConstView3<T> cview() const { return {data_.get(), ri_, rj_, rk_}; }

    void fill(T value) {
        for (std::size_t n = 0; n < n_; ++n)
            data_[n] = value;
    }

    [[nodiscard]] T* data() { return data_.get(); }
    [[nodiscard]] const T* data() const { return data_.get(); }
    [[nodiscard]] std::size_t size() const { return n_; }
    [[nodiscard]] Range irange() const { return ri_; }
    [[nodiscard]] Range jrange() const { return rj_; }
    [[nodiscard]] Range krange() const { return rk_; }
    [[nodiscard]] bool allocated() const { return data_ != nullptr; }

private:
    [[nodiscard]] std::ptrdiff_t offset(int i, int j, int k) const {
#ifdef RIFFLE_BOUNDS_CHECK
        if (i < ri_.lo || i > ri_.hi || j < rj_.lo || j > rj_.hi || k < rk_.lo || k > rk_.hi) {
            detail::out_of_range(i, j, k, ri_, rj_, rk_);
        }
#endif
        const std::ptrdiff_t sj = ri_.extent();
        const std::ptrdiff_t sk = sj * rj_.extent();
        return (i - ri_.lo) + (j - rj_.lo) * sj + (k - rk_.lo) * sk;
    }

    std::unique_ptr<T[]> data_;
    std::size_t n_ = 0;
    Range ri_, rj_, rk_;
};

// Owning 2-D array (i fastest) for the bed and other plane arrays.
// A read-only view of a plane of values over (i, j).
template <class T> class ConstView2 {
public:
    ConstView2() = default;
    RIFFLE_HD explicit ConstView2(ConstView3<T> plane) : plane_(plane) {}
    [[nodiscard]] RIFFLE_HD const T& operator()(int i, int j) const { return plane_(i, j, 0); }
    [[nodiscard]] Range irange() const { return plane_.irange(); }
    [[nodiscard]] Range jrange() const { return plane_.jrange(); }

private:
    ConstView3<T> plane_;
};

template <class T> class Field2 {
public:
    Field2() = default;
    Field2(Range ri, Range rj) { allocate(ri, rj); }

    void allocate(Range ri, Range rj) { plane_.allocate(ri, rj, Range{0, 0}); }
    [[nodiscard]] T& operator()(int i, int j) { return plane_(i, j, 0); }
    [[nodiscard]] const T& operator()(int i, int j) const { return plane_(i, j, 0); }
    void fill(T value) { plane_.fill(value); }
    [[nodiscard]] T* data() { return plane_.data(); }
    [[nodiscard]] const T* data() const { return plane_.data(); }
    [[nodiscard]] std::size_t size() const { return plane_.size(); }
    [[nodiscard]] Range irange() const { return plane_.irange(); }
    [[nodiscard]] Range jrange() const { return plane_.jrange(); }
    [[nodiscard]] ConstView2<T> cview() const { return ConstView2<T>(plane_.cview()); }

private:
    Field3<T> plane_;
};

} // namespace riffle
