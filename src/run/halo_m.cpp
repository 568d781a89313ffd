#include "run/halo_m.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "run/loops.hpp"
#include "run/storage_m.hpp"

#ifdef RIFFLE_MPI
#include <mpi.h>
#endif

namespace riffle {

namespace {
MessageCounts counts;

// Adds the time from its construction to its end to the message counts.
class Timed {
public:
    Timed() : start_(std::chrono::steady_clock::now()) {}
    ~Timed() {
        counts.seconds +=
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    Timed(const Timed&) = delete;
    Timed& operator=(const Timed&) = delete;

private:
    std::chrono::steady_clock::time_point start_;
};
} // namespace

const MessageCounts& messagecounts() { return counts; }

#ifdef RIFFLE_MPI

namespace {

// Whether a launcher of MPI processes started this one: mpirun (Open MPI), a PMIx or PMI process
// manager (Slurm's srun, MPICH's mpiexec) announce themselves in the environment of the processes
// they start. A plain start is one process, and does without the message layer altogether (its
// memory, its start-up time): exactly the program it always was.
bool launched() {
    for (const char* name : {"OMPI_COMM_WORLD_SIZE", "PMIX_RANK", "PMI_RANK", "PMI_SIZE"}) {
        if (std::getenv(name) != nullptr) return true;
    }
    return false;
}

} // namespace

Ranks::Ranks(int* argc, char*** argv) {
    if (!launched()) return;
    int provided = 0;
    // Only the master thread of each process sends and receives: the OpenMP teams work between
    // the exchanges.
    MPI_Init_thread(argc, argv, MPI_THREAD_FUNNELED, &provided);
}

Ranks::~Ranks() {
    int flag = 0;
    MPI_Initialized(&flag);
    if (flag != 0) MPI_Finalize();
}

namespace {

bool started() {
    int flag = 0;
    MPI_Initialized(&flag);
    int ended = 0;
    MPI_Finalized(&ended);
    return flag != 0 && ended == 0;
}

template <class T> MPI_Datatype mpitype() {
    if constexpr (std::is_same_v<T, double>) return MPI_DOUBLE;
    return MPI_INT32_T;
}

// Sends `layers` layers at `sendfirst` towards `to` and receives as many at `recvfirst` from
// `from`, in direction Dir (0 x, 1 y); the other horizontal index and k run over the whole field.
template <int Dir, class T>
void swap(Field3<T>& f, int sendfirst, int recvfirst, int layers, int to, int from, int tag,
          std::vector<T>& out, std::vector<T>& in, Range keep, Range keepk) {
    if (layers <= 0) return;
    const Range ri = f.irange(), rj = f.jrange(), rk = f.krange();
    const Range across = Dir == 0 ? rj : ri; // the horizontal index along the face
    const std::size_t count = static_cast<std::size_t>(layers * across.extent() * rk.extent());
    out.resize(count);
    in.resize(count);
    const auto view = f.view();
    const int extent = across.extent();
    const auto index = [=](int m, int a, int k) {
        return static_cast<std::size_t>(((k - rk.lo) * extent + (a - across.lo)) * layers + m);
    };
    T* const outp = out.data();
    loops::forbox({{0, layers - 1}, across, rk}, [=](int m, int a, int k) {
        outp[index(m, a, k)] = Dir == 0 ? view(sendfirst + m, a, k) : view(a, sendfirst + m, k);
    });
    if (to != MPI_PROC_NULL) counts.bytes += static_cast<double>(count * sizeof(T));
    MPI_Sendrecv(out.data(), static_cast<int>(count), mpitype<T>(), to, tag, in.data(),
                 static_cast<int>(count), mpitype<T>(), from, tag, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
    if (from == MPI_PROC_NULL) return; // a box face: nothing came, the halo stays as it is
    const T* const inp = in.data();
    const Range ka{std::max(rk.lo, keepk.lo), std::min(rk.hi, keepk.hi)};
    const Range aa{std::max(across.lo, keep.lo), std::min(across.hi, keep.hi)};
    loops::forbox({{0, layers - 1}, aa, ka}, [=](int m, int a, int k) {
        (Dir == 0 ? view(recvfirst + m, a, k) : view(a, recvfirst + m, k)) = inp[index(m, a, k)];
    });
}

template <class T> struct Buffers { std::vector<T> out, in; };

// One direction: the low halo from the low neighbour's last owned layers, the high halo from the
// high neighbour's first. A rank on a box face that is not periodic sends to and receives from
// nobody there (MPI_PROC_NULL).
template <int Dir, class T>
void exchangedirection(const Decomposition& d, Field3<T>& f, int n, int nother, bool boxedges,
                       bool wraps, Buffers<T>& b) {
    const int ranks = Dir == 0 ? d.px : d.py;
    if (ranks == 1) return; // the boundary routines wrap a direction held whole
    const Range r = Dir == 0 ? f.irange() : f.jrange();
    const int low = 1 - r.lo, high = r.hi - n;
    const int lowrank = d.neighbour[Dir == 0 ? west : south];
    const int highrank = d.neighbour[Dir == 0 ? east : north];
    const int lo = lowrank == noneighbour ? MPI_PROC_NULL : lowrank;
    const int hi = highrank == noneighbour ? MPI_PROC_NULL : highrank;
    // With boxedges, a halo that wraps across a periodic box face takes only the cells that lie
    // within the box in the other two directions: the rest are edges of the box's ghost layer.
    const Range all = Dir == 0 ? f.jrange() : f.irange();
    const Range allk = f.krange(), insidek{allk.lo + 1, allk.hi - 1};
    const bool otherlow = Dir == 0 ? d.ownsface(south) : d.ownsface(west);
    const bool otherhigh = Dir == 0 ? d.ownsface(north) : d.ownsface(east);
    const Range inside{otherlow ? 1 : all.lo, otherhigh ? nother : all.hi};
    const bool wrapslow = boxedges && d.ownsface(Dir == 0 ? west : south);
    const bool wrapshigh = boxedges && d.ownsface(Dir == 0 ? east : north);
    // Towards the high side: my last `low` owned layers fill the high neighbour's low halo.
    // Without wraps, a halo across a periodic box face keeps what it holds.
    const Range none{0, -1};
    const bool keeplow = !wraps && d.ownsface(Dir == 0 ? west : south);
    const bool keephigh = !wraps && d.ownsface(Dir == 0 ? east : north);
    swap<Dir>(f, n - low + 1, r.lo, low, hi, lo, 2 * Dir, b.out, b.in,
              keeplow ? none : (wrapslow ? inside : all), wrapslow ? insidek : allk);
    // Towards the low side: my first `high` owned layers fill the low neighbour's high halo.
    swap<Dir>(f, 1, n + 1, high, lo, hi, 2 * Dir + 1, b.out, b.in,
              keephigh ? none : (wrapshigh ? inside : all), wrapshigh ? insidek : allk);
}

template <class T>
void exchangefield(const Decomposition& d, Field3<T>& f, int ni, int nj, bool boxedges,
                   bool wraps) {
    if (!d.distributed()) return;
    const Timed timed;
    ++counts.exchanges;
    static Buffers<T> buffers; // kept between calls: no allocation once they are large enough
    exchangedirection<0>(d, f, ni, nj, boxedges, wraps, buffers);
    exchangedirection<1>(d, f, nj, ni, boxedges, wraps, buffers);
}

// The global box a rank's points map to: first and last i, first and last j.
using BoxHeader = std::array<int, 4>;

BoxHeader globalbox(Range li, Range lj, int i0, int j0) {
    return {li.lo + i0, li.hi + i0, lj.lo + j0, lj.hi + j0};
}

// Copies between a field and a packed buffer over the box (global indices for the global field,
// shifted by -offset for a local one), k running over the field's own range.
template <bool ToBuffer>
void copybox(const BoxHeader& b, int di, int dj, const View3<double>& f, Range rk, double* buf) {
    const std::size_t ni = static_cast<std::size_t>(b[1] - b[0] + 1);
    const std::size_t nj = static_cast<std::size_t>(b[3] - b[2] + 1);
    const loops::Box box{{b[0], b[1]}, {b[2], b[3]}, rk};
    loops::forbox(box, [=](int i, int j, int k) {
        double& packed = buf[(static_cast<std::size_t>(k - rk.lo) * nj +
                              static_cast<std::size_t>(j - box.j.lo)) *
                                 ni +
                             static_cast<std::size_t>(i - box.i.lo)];
        if constexpr (ToBuffer) {
            packed = f(i - di, j - dj, k);
        } else {
            f(i - di, j - dj, k) = packed;
        }
    });
}

std::size_t boxsize(const BoxHeader& b, Range rk) {
    if (b[1] < b[0] || b[3] < b[2]) return 0;
    return static_cast<std::size_t>(b[1] - b[0] + 1) * static_cast<std::size_t>(b[3] - b[2] + 1) *
           static_cast<std::size_t>(rk.extent());
}

std::vector<double>& boxbuffer(std::size_t n) {
    static std::vector<double> buf;
    if (buf.size() < n) buf.resize(n);
    return buf;
}

constexpr int tagheader = 10, tagbox = 11;

} // namespace

void gather(const Field3<double>& local, Range li, Range lj, int i0, int j0,
            Field3<double>* global) {
    const Timed timed;
    ++counts.gathers;
    const Range rk = local.krange();
    const BoxHeader mine = globalbox(li, lj, i0, j0);
    const auto lview =
        View3<double>(const_cast<double*>(local.data()), local.irange(), local.jrange(), rk);
    if (myrank() != 0) {
        const std::size_t n = boxsize(mine, rk);
        std::vector<double>& buf = boxbuffer(n);
        if (n > 0) copybox<true>(mine, i0, j0, lview, rk, buf.data());
        MPI_Send(mine.data(), 4, MPI_INT, 0, tagheader, MPI_COMM_WORLD);
        MPI_Send(buf.data(), static_cast<int>(n), MPI_DOUBLE, 0, tagbox, MPI_COMM_WORLD);
        return;
    }
    const View3<double> g = global->view();
    std::vector<double>& own = boxbuffer(boxsize(mine, rk));
    if (boxsize(mine, rk) > 0) {
        copybox<true>(mine, i0, j0, lview, rk, own.data());
        copybox<false>(mine, 0, 0, g, rk, own.data());
    }
    for (int r = 1; r < rankcount(); ++r) {
        BoxHeader b{};
        MPI_Recv(b.data(), 4, MPI_INT, r, tagheader, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
        const std::size_t n = boxsize(b, rk);
        std::vector<double>& buf = boxbuffer(n);
        MPI_Recv(buf.data(), static_cast<int>(n), MPI_DOUBLE, r, tagbox, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
        if (n > 0) copybox<false>(b, 0, 0, g, rk, buf.data());
    }
}

void scatter(Field3<double>& local, Range li, Range lj, int i0, int j0,
             const Field3<double>* global) {
    const Timed timed;
    ++counts.gathers;
    const Range rk = local.krange();
    const BoxHeader mine = globalbox(li, lj, i0, j0);
    if (myrank() != 0) {
        MPI_Send(mine.data(), 4, MPI_INT, 0, tagheader, MPI_COMM_WORLD);
        const std::size_t n = boxsize(mine, rk);
        std::vector<double>& buf = boxbuffer(n);
        MPI_Recv(buf.data(), static_cast<int>(n), MPI_DOUBLE, 0, tagbox, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
        if (n > 0) copybox<false>(mine, i0, j0, local.view(), rk, buf.data());
        return;
    }
    const auto g =
        View3<double>(const_cast<double*>(global->data()), global->irange(), global->jrange(), rk);
    for (int r = 1; r < rankcount(); ++r) {
        BoxHeader b{};
        MPI_Recv(b.data(), 4, MPI_INT, r, tagheader, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
        const std::size_t n = boxsize(b, rk);
        std::vector<double>& buf = boxbuffer(n);
        if (n > 0) copybox<true>(b, 0, 0, g, rk, buf.data());
        MPI_Send(buf.data(), static_cast<int>(n), MPI_DOUBLE, r, tagbox, MPI_COMM_WORLD);
    }
    const std::size_t n = boxsize(mine, rk);
    std::vector<double>& buf = boxbuffer(n);
    if (n > 0) {
        copybox<true>(mine, 0, 0, g, rk, buf.data());
        copybox<false>(mine, i0, j0, local.view(), rk, buf.data());
    }
}

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

void broadcast(int& x) { MPI_Bcast(&x, 1, MPI_INT, 0, MPI_COMM_WORLD); }
void broadcast(double& x) { MPI_Bcast(&x, 1, MPI_DOUBLE, 0, MPI_COMM_WORLD); }

void broadcast(double* data, std::size_t n) {
    // In pieces a count of int can hold.
    constexpr std::size_t piece = std::size_t{1} << 30;
    for (std::size_t at = 0; at < n; at += piece) {
        MPI_Bcast(data + at, static_cast<int>(std::min(piece, n - at)), MPI_DOUBLE, 0,
                  MPI_COMM_WORLD);
    }
}

void broadcast(std::string& text) {
    int n = static_cast<int>(text.size());
    broadcast(n);
    text.resize(static_cast<std::size_t>(n));
    MPI_Bcast(text.data(), n, MPI_CHAR, 0, MPI_COMM_WORLD);
}

std::vector<int> gatherlists(const std::vector<int>& mine) {
    const int n = rankcount();
    if (n == 1) return mine;
    int count = static_cast<int>(mine.size());
    std::vector<int> counts(static_cast<std::size_t>(n)), starts(static_cast<std::size_t>(n));
    MPI_Gather(&count, 1, MPI_INT, counts.data(), 1, MPI_INT, 0, MPI_COMM_WORLD);
    int total = 0;
    for (int r = 0; r < n; ++r) {
        starts[static_cast<std::size_t>(r)] = total;
        total += counts[static_cast<std::size_t>(r)];
    }
    std::vector<int> all(static_cast<std::size_t>(myrank() == 0 ? total : 0));
    MPI_Gatherv(mine.data(), count, MPI_INT, all.data(), counts.data(), starts.data(), MPI_INT, 0,
                MPI_COMM_WORLD);
    return all;
}

std::vector<double> allvalues(double x) {
    std::vector<double> all(static_cast<std::size_t>(rankcount()), x);
    if (all.size() > 1) {
        const Timed timed;
        ++counts.reductions;
        MPI_Allgather(&x, 1, MPI_DOUBLE, all.data(), 1, MPI_DOUBLE, MPI_COMM_WORLD);
    }
    return all;
}

#else // a build without the message layer: one process, nothing to exchange

Ranks::Ranks(int*, char***) {}
Ranks::~Ranks() = default;

namespace {
template <class T> void exchangefield(const Decomposition&, Field3<T>&, int, int, bool, bool) {}
} // namespace

int rankcount() { return 1; }
int myrank() { return 0; }
std::vector<int> gatherlists(const std::vector<int>& mine) { return mine; }
void broadcast(int&) {}
void broadcast(double&) {}
void broadcast(double*, std::size_t) {}
void broadcast(std::string&) {}

// One process: its box is the whole global field.
void gather(const Field3<double>& local, Range li, Range lj, int i0, int j0,
            Field3<double>* global) {
    for (int k = local.krange().lo; k <= local.krange().hi; ++k) {
        for (int j = lj.lo; j <= lj.hi; ++j) {
            for (int i = li.lo; i <= li.hi; ++i)
                (*global)(i + i0, j + j0, k) = local(i, j, k);
        }
    }
}

void scatter(Field3<double>& local, Range li, Range lj, int i0, int j0,
             const Field3<double>* global) {
    for (int k = local.krange().lo; k <= local.krange().hi; ++k) {
        for (int j = lj.lo; j <= lj.hi; ++j) {
            for (int i = li.lo; i <= li.hi; ++i)
                local(i, j, k) = (*global)(i + i0, j + j0, k);
        }
    }
}
std::vector<double> allvalues(double x) { return {x}; }

#endif

void exchange(const Decomposition& d, Field3<double>& f, int ni, int nj, bool boxedges) {
    exchangefield(d, f, ni, nj, boxedges, true);
}
void exchange(const Decomposition& d, Field3<std::int32_t>& f, int ni, int nj) {
    exchangefield(d, f, ni, nj, false, true);
}
void exchangeinside(const Decomposition& d, Field3<double>& f, int ni, int nj) {
    exchangefield(d, f, ni, nj, false, false);
}

// The sums and extrema run over the values in rank order. A NaN on any rank wins the extrema, as
// it would in a loop over the whole box that keeps the first NaN it meets.
double allsum(double x) {
    const std::vector<double> all = allvalues(x);
    double s = all.front(); // not 0 + x: a lone -0.0 keeps its sign
    for (std::size_t r = 1; r < all.size(); ++r)
        s += all[r];
    return s;
}

double allmax(double x) {
    const std::vector<double> all = allvalues(x);
    double m = all.front();
    for (const double v : all)
        m = (v > m || std::isnan(v)) && !std::isnan(m) ? v : m;
    return m;
}

double allmin(double x) {
    const std::vector<double> all = allvalues(x);
    double m = all.front();
    for (const double v : all)
        m = (v < m || std::isnan(v)) && !std::isnan(m) ? v : m;
    return m;
}

} // namespace riffle
