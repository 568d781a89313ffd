#include "run/halo_m.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "run/storage_m.hpp"

#ifdef RIFFLE_MPI
#include <mpi.h>
#endif

namespace riffle {

#ifdef RIFFLE_MPI

Ranks::Ranks(int* argc, char*** argv) {
    int provided = 0;
    // Only the master thread of each process sends and receives: the OpenMP teams work between
    // the exchanges.
    MPI_Init_thread(argc, argv, MPI_THREAD_FUNNELED, &provided);
}

Ranks::~Ranks() { MPI_Finalize(); }

namespace {

bool started() {
    int flag = 0;
    MPI_Initialized(&flag);
    int ended = 0;
    MPI_Finalized(&ended);
    return flag != 0 && ended == 0;
}

template <class T>
MPI_Datatype mpitype() {
    if constexpr (std::is_same_v<T, double>) return MPI_DOUBLE;
    return MPI_INT32_T;
}

// Sends `layers` layers at `sendfirst` towards `to` and receives as many at `recvfirst` from
// `from`, in direction Dir (0 x, 1 y); the other horizontal index and k run over the whole field.
template <int Dir, class T>
void swap(Field3<T>& f, int sendfirst, int recvfirst, int layers, int to, int from, int tag,
          std::vector<T>& out, std::vector<T>& in) {
    if (layers <= 0) return;
    const Range ri = f.irange(), rj = f.jrange(), rk = f.krange();
    const Range across = Dir == 0 ? rj : ri;  // the horizontal index along the face
    const std::size_t count = static_cast<std::size_t>(layers * across.extent() * rk.extent());
    out.resize(count);
    in.resize(count);
    const auto view = f.view();
    const auto index = [&](int m, int a, int k) {
        return static_cast<std::size_t>(((k - rk.lo) * across.extent() + (a - across.lo)) * layers + m);
    };
#pragma omp parallel for schedule(static)
    for (int k = rk.lo; k <= rk.hi; ++k) {
        for (int a = across.lo; a <= across.hi; ++a) {
            for (int m = 0; m < layers; ++m) {
                out[index(m, a, k)] = Dir == 0 ? view(sendfirst + m, a, k) : view(a, sendfirst + m, k);
            }
        }
    }
    MPI_Sendrecv(out.data(), static_cast<int>(count), mpitype<T>(), to, tag, in.data(),
                 static_cast<int>(count), mpitype<T>(), from, tag, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
    if (from == MPI_PROC_NULL) return;  // a box face: nothing came, the halo stays as it is
#pragma omp parallel for schedule(static)
    for (int k = rk.lo; k <= rk.hi; ++k) {
        for (int a = across.lo; a <= across.hi; ++a) {
            for (int m = 0; m < layers; ++m) {
                (Dir == 0 ? view(recvfirst + m, a, k) : view(a, recvfirst + m, k)) = in[index(m, a, k)];
            }
        }
    }
}

template <class T>
struct Buffers {
    std::vector<T> out, in;
};

// One direction: the low halo from the low neighbour's last owned layers, the high halo from the
// high neighbour's first. A rank on a box face that is not periodic sends to and receives from
// nobody there (MPI_PROC_NULL).
template <int Dir, class T>
void exchangedirection(const Decomposition& d, Field3<T>& f, int n, Buffers<T>& b) {
    const int ranks = Dir == 0 ? d.px : d.py;
    if (ranks == 1) return;  // the boundary routines wrap a direction held whole
    const Range r = Dir == 0 ? f.irange() : f.jrange();
    const int low = 1 - r.lo, high = r.hi - n;
    const int lowrank = d.neighbour[Dir == 0 ? west : south];
    const int highrank = d.neighbour[Dir == 0 ? east : north];
    const int lo = lowrank == noneighbour ? MPI_PROC_NULL : lowrank;
    const int hi = highrank == noneighbour ? MPI_PROC_NULL : highrank;
    // Towards the high side: my last `low` owned layers fill the high neighbour's low halo.
    swap<Dir>(f, n - low + 1, r.lo, low, hi, lo, 2 * Dir, b.out, b.in);
    // Towards the low side: my first `high` owned layers fill the low neighbour's high halo.
    swap<Dir>(f, 1, n + 1, high, lo, hi, 2 * Dir + 1, b.out, b.in);
}

template <class T>
void exchangefield(const Decomposition& d, Field3<T>& f, int ni, int nj) {
    if (!d.distributed()) return;
    static Buffers<T> buffers;  // kept between calls: no allocation once they are large enough
    exchangedirection<0>(d, f, ni, buffers);
    exchangedirection<1>(d, f, nj, buffers);
}

}  // namespace

int rankcount() {
    if (!started()) return 1;
    int n = 1;
    MPI_Comm_size(MPI_COMM_WORLD, &n);
    return n;
}

int myrank() {
    if (!started()) return 0;
    int r = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &r);
    return r;
}

std::vector<double> allvalues(double x) {
    std::vector<double> all(static_cast<std::size_t>(rankcount()), x);
    if (all.size() > 1) {
        MPI_Allgather(&x, 1, MPI_DOUBLE, all.data(), 1, MPI_DOUBLE, MPI_COMM_WORLD);
    }
    return all;
}

void abortall(int status) {
    if (started() && rankcount() > 1) MPI_Abort(MPI_COMM_WORLD, status);
    std::exit(status);
}

#else  // a build without the message layer: one process, nothing to exchange

Ranks::Ranks(int*, char***) {}
Ranks::~Ranks() = default;

namespace {
template <class T>
void exchangefield(const Decomposition&, Field3<T>&, int, int) {}
}  // namespace

int rankcount() { return 1; }
int myrank() { return 0; }
std::vector<double> allvalues(double x) { return {x}; }
void abortall(int status) { std::exit(status); }

#endif

void exchange(const Decomposition& d, Field3<double>& f, int ni, int nj) {
    exchangefield(d, f, ni, nj);
}
void exchange(const Decomposition& d, Field3<std::int32_t>& f, int ni, int nj) {
    exchangefield(d, f, ni, nj);
}

// The sums and extrema run over the values in rank order. A NaN on any rank wins the extrema, as
// it would in a loop over the whole box that keeps the first NaN it meets.
double allsum(double x) {
    const std::vector<double> all = allvalues(x);
    double s = all.front();  // not 0 + x: a lone -0.0 keeps its sign
    for (std::size_t r = 1; r < all.size(); ++r) s += all[r];
    return s;
}

double allmax(double x) {
    const std::vector<double> all = allvalues(x);
    double m = all.front();
    for (const double v : all) m = (v > m || std::isnan(v)) && !std::isnan(m) ? v : m;
    return m;
}

double allmin(double x) {
    const std::vector<double> all = allvalues(x);
    double m = all.front();
    for (const double v : all) m = (v < m || std::isnan(v)) && !std::isnan(m) ? v : m;
    return m;
}

}  // namespace riffle
