// The journaling file driver, the replay of a journal and the H5Fopen that puts the driver on
// the solver's open of its case (see casejournal.hpp).
//
// Journal layout (every number an unsigned 64-bit little-endian word):
//   "RIFFLEJ1"  magic
//   target      size of the case after the commit
//   count       number of regions
//   count x     address, length, then `length` bytes to write at `address`
//   checksum    64-bit FNV-1a of every byte before it
// Replaying writes the regions and then sets the case's size to `target`; doing it twice gives the
// same file, so a crash during a replay is repaired by the next one.
#include "platform/casejournal.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "platform/casefile.hpp"

namespace riffle::platform {

namespace casejournal {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char journal_magic[8] = {'R', 'I', 'F', 'F', 'L', 'E', 'J', '1'};
constexpr const char* journal_suffix = ".journal";
constexpr const char* partial_suffix = ".journal.tmp";
constexpr std::size_t word = 8;
// Largest address the driver serves: the largest file offset (as HDF5's own POSIX driver).
constexpr haddr_t max_address = static_cast<haddr_t>(std::numeric_limits<off_t>::max());

// ---- journal encoding --------------------------------------------------------------------------

void putword(Bytes& out, std::uint64_t v) {
    for (std::size_t b = 0; b < word; ++b)
        out.push_back(static_cast<unsigned char>(v >> (8 * b)));
}

std::uint64_t getword(const unsigned char* p) {
    std::uint64_t v = 0;
    for (std::size_t b = 0; b < word; ++b)
        v |= static_cast<std::uint64_t>(p[b]) << (8 * b);
    return v;
}

std::uint64_t fnv1a(const unsigned char* p, std::size_t n) {
    std::uint64_t h = 14695981039346656037ULL;
    for (std::size_t i = 0; i < n; ++i) {
        h ^= p[i];
        h *= 1099511628211ULL;
    }
    return h;
}

// Staged bytes by address: disjoint regions, none touching the next.
using Regions = std::map<haddr_t, Bytes>;

Bytes encode(haddr_t target, const Regions& regions) {
    std::size_t size = 4 * word;
    for (const auto& [addr, bytes] : regions)
        size += 2 * word + bytes.size();
    Bytes out;
    out.reserve(size);
    out.insert(out.end(), std::begin(journal_magic), std::end(journal_magic));
    putword(out, target);
    putword(out, regions.size());
    for (const auto& [addr, bytes] : regions) {
        putword(out, addr);
        putword(out, bytes.size());
        out.insert(out.end(), bytes.begin(), bytes.end());
    }
    putword(out, fnv1a(out.data(), out.size()));
    return out;
}

// One region of a decoded journal: `length` bytes at `data`, to go to `addr`.
struct Span {
    std::uint64_t addr, length;
    const unsigned char* data;
};

// The regions and target size of a journal; false when it is not a whole journal.
bool decode(const Bytes& in, std::uint64_t& target, std::vector<Span>& spans) {
    if (in.size() < 4 * word ||
        !std::equal(std::begin(journal_magic), std::end(journal_magic), in.begin()))
        return false;
    const std::size_t body = in.size() - word;
    if (getword(in.data() + body) != fnv1a(in.data(), body)) return false;
    target = getword(in.data() + word);
    const std::uint64_t count = getword(in.data() + 2 * word);
    std::size_t at = 3 * word;
    for (std::uint64_t r = 0; r < count; ++r) {
        if (body - at < 2 * word) return false;
        const std::uint64_t addr = getword(in.data() + at), length = getword(in.data() + at + word);
        at += 2 * word;
        if (length > body - at || addr > target || length > target - addr) return false;
        spans.push_back({addr, length, in.data() + at});
        at += length;
    }
    return at == body && target <= max_address;
}

// ---- plain file I/O ----------------------------------------------------------------------------

// The errno of the driver's last failed write to the disk (0: none yet).
int lastfailure = 0;

bool writeall(int fd, const unsigned char* p, std::uint64_t n, std::uint64_t at) {
    while (n > 0) {
        const ssize_t w = ::pwrite(fd, p, n, static_cast<off_t>(at));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) {
            lastfailure = w < 0 ? errno : ENOSPC; // a write of nothing: no room
            return false;
        }
        p += w;
        n -= static_cast<std::uint64_t>(w);
        at += static_cast<std::uint64_t>(w);
    }
    return true;
}

// Sets the file's size to `size` unless it has it already.
bool resize(int fd, std::uint64_t size) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) return false;
    if (static_cast<std::uint64_t>(info.st_size) == size) return true;
    if (::ftruncate(fd, static_cast<off_t>(size)) == 0) return true;
    lastfailure = errno;
    return false;
}

// The whole of a file; false (errno set) when it cannot be read.
bool readwhole(const std::string& path, Bytes& out) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    unsigned char chunk[1 << 16];
    for (;;) {
        const ssize_t r = ::read(fd, chunk, sizeof chunk);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            const int err = errno;
            ::close(fd);
            errno = err;
            return false;
        }
        if (r == 0) break;
        out.insert(out.end(), chunk, chunk + r);
    }
    ::close(fd);
    return true;
}

// Writes the journal whole under a temporary name and renames it into place.
bool writejournal(const std::string& journal, haddr_t target, const Regions& regions) {
    const std::string partial = journal + ".tmp"; // CASE.journal.tmp
    const int fd = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        lastfailure = errno;
        return false;
    }
    const Bytes bytes = encode(target, regions);
    bool written = writeall(fd, bytes.data(), bytes.size(), 0);
    if (::close(fd) != 0 && written) {
        lastfailure = errno;
        written = false;
    }
    if (written && ::rename(partial.c_str(), journal.c_str()) != 0) {
        lastfailure = errno;
        written = false;
    }
    if (!written) {
        ::unlink(partial.c_str());
        return false;
    }
    return true;
}

// ---- the driver --------------------------------------------------------------------------------

// One open file. HDF5 sees the H5FD_t part; the rest is the driver's.
struct JournalFile : H5FD_t {
    int fd = -1;
    dev_t device = 0;
    ino_t inode = 0;
    std::string journal;   // path of CASE.journal
    haddr_t eoa = 0;       // end of the space HDF5 has allocated
    haddr_t eof = 0;       // size of the file as HDF5 sees it
    haddr_t committed = 0; // size of the file on disk at the last commit
    haddr_t cut = 0;       // lowest truncation since then (= committed when none)
    Regions staged;        // writes below `committed` since then
    // Set by the first write or truncation the disk refused: HDF5's view no longer matches what
    // reached the disk, so no commit may follow; abandon() keeps the last one.
    bool failed = false;
    bool abandoned = false; // given up: the disk is no longer touched
};

// The files the driver has open (the solver holds one case).
std::vector<JournalFile*> openfiles;

JournalFile& self(H5FD_t* file) { return *static_cast<JournalFile*>(file); }
const JournalFile& self(const H5FD_t* file) { return *static_cast<const JournalFile*>(file); }

// Keeps [addr, addr + n) in memory, merged with the regions it overlaps or touches.
void stage(Regions& staged, haddr_t addr, const unsigned char* p, std::size_t n) {
    const haddr_t end = addr + n;
    auto first = staged.upper_bound(addr);
    if (first != staged.begin()) {
        const auto prev = std::prev(first);
        if (prev->first + prev->second.size() >= addr) first = prev;
    }
    if (first != staged.end() && first->first <= addr &&
        first->first + first->second.size() >= end) { // inside one region: the usual rewrite
        std::memcpy(first->second.data() + (addr - first->first), p, n);
        return;
    }
    haddr_t lo = addr, hi = end;
    auto last = first;
    for (; last != staged.end() && last->first <= end; ++last) {
        lo = std::min(lo, last->first);
        hi = std::max(hi, last->first + last->second.size());
    }
    Bytes merged(hi - lo);
    for (auto r = first; r != last; ++r)
        std::copy(r->second.begin(), r->second.end(), merged.begin() + (r->first - lo));
    std::memcpy(merged.data() + (addr - lo), p, n);
    staged.erase(first, last);
    staged.emplace(lo, std::move(merged));
}

// Drops what is staged at or past `size`.
void clip(Regions& staged, haddr_t size) {
    auto r = staged.lower_bound(size);
    staged.erase(r, staged.end());
    if (!staged.empty()) {
        auto& [addr, bytes] = *staged.rbegin();
        if (addr + bytes.size() > size) bytes.resize(size - addr);
    }
}

// Brings the file on disk to the state HDF5 sees: the journal is written, then its regions and the
// new size into the file, then the journal is removed.
bool writecommit(JournalFile& f) {
    if (f.staged.empty() && f.cut == f.committed) {
        f.committed = f.cut = f.eof; // only new space was written
        return true;
    }
    const haddr_t target = f.eof;
    // Bytes cut away and not written since read as zeros: zeros must replace them on disk too.
    const haddr_t zerosend = std::min(f.committed, target);
    for (haddr_t at = f.cut; at < zerosend;) {
        const auto next = f.staged.upper_bound(at); // the first region that starts after `at`
        if (next != f.staged.begin()) {
            const auto prev = std::prev(next);
            if (prev->first + prev->second.size() > at) { // `at` is staged already
                at = prev->first + prev->second.size();
                continue;
            }
        }
        const haddr_t gapend = next == f.staged.end() ? zerosend : std::min(zerosend, next->first);
        const Bytes zeros(gapend - at, 0);
        stage(f.staged, at, zeros.data(), zeros.size());
        at = gapend;
    }
    if (!writejournal(f.journal, target, f.staged)) return false;
    for (const auto& [addr, bytes] : f.staged) {
        if (!writeall(f.fd, bytes.data(), bytes.size(), addr)) return false;
    }
    // Only now may a new commit begin: a journal left behind would be replayed over it.
    if (!resize(f.fd, target) || ::unlink(f.journal.c_str()) != 0) return false;
    f.staged.clear();
    f.committed = f.cut = target;
    return true;
}

// A commit, refused once the disk has refused anything: a failed commit may have left the file's
// state and HDF5's apart too.
bool commit(JournalFile& f) {
    if (f.failed || f.abandoned) return false;
    if (writecommit(f)) return true;
    f.failed = true;
    return false;
}

H5FD_t* dopen(const char* name, unsigned flags, hid_t /*fapl*/, haddr_t maxaddr) {
    if (name == nullptr || *name == '\0' || maxaddr == 0 || maxaddr == HADDR_UNDEF ||
        maxaddr > max_address)
        return nullptr;
    try {
        std::error_code ec;
        const std::string journal = std::filesystem::absolute(name, ec).string() + journal_suffix;
        if (ec) return nullptr;
        const bool rw = (flags & H5F_ACC_RDWR) != 0;
        // A journal not yet replayed means the file on disk may be half-updated.
        if (rw && ::access(journal.c_str(), F_OK) == 0) return nullptr;
        int oflags = (rw ? O_RDWR : O_RDONLY) | O_CLOEXEC;
        if ((flags & H5F_ACC_TRUNC) != 0) oflags |= O_TRUNC;
        if ((flags & H5F_ACC_CREAT) != 0) oflags |= O_CREAT;
        if ((flags & H5F_ACC_EXCL) != 0) oflags |= O_EXCL;
        const int fd = ::open(name, oflags, 0666);
        if (fd < 0) return nullptr;
        struct stat info {};
        if (::fstat(fd, &info) != 0) {
            ::close(fd);
            return nullptr;
        }
        auto* f = new JournalFile();
        f->fd = fd;
        f->device = info.st_dev;
        f->inode = info.st_ino;
        f->journal = journal;
        f->eof = f->committed = f->cut = static_cast<haddr_t>(info.st_size);
        openfiles.push_back(f);
        return f;
    } catch (const std::exception&) {
        return nullptr;
    }
}

herr_t dclose(H5FD_t* file) {
    JournalFile* f = &self(file);
    bool ok = false;
    try {
        ok = commit(*f); // nothing left after the library's last flush, as a rule
    } catch (const std::exception&) {
    }
    if (::close(f->fd) != 0) ok = false;
    std::erase(openfiles, f);
    delete f;
    return ok ? 0 : -1;
}

int dcmp(const H5FD_t* a, const H5FD_t* b) {
    const JournalFile &f = self(a), &g = self(b);
    if (f.device != g.device) return f.device < g.device ? -1 : 1;
    if (f.inode != g.inode) return f.inode < g.inode ? -1 : 1;
    return 0;
}

// The features of HDF5's POSIX driver, less the POSIX handle (a write through it would bypass
// the staging) and SWMR, so that HDF5 lays the file out as it would without this driver.
herr_t dquery(const H5FD_t* /*file*/, unsigned long* flags) {
    if (flags != nullptr) {
        *flags = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA |
                 H5FD_FEAT_DATA_SIEVE | H5FD_FEAT_AGGREGATE_SMALLDATA |
                 H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
    }
    return 0;
}

haddr_t dgeteoa(const H5FD_t* file, H5FD_mem_t /*type*/) { return self(file).eoa; }

herr_t dseteoa(H5FD_t* file, H5FD_mem_t /*type*/, haddr_t addr) {
    if (addr > max_address) return -1;
    self(file).eoa = addr;
    return 0;
}

haddr_t dgeteof(const H5FD_t* file, H5FD_mem_t /*type*/) { return self(file).eof; }

herr_t dgethandle(H5FD_t* file, hid_t /*fapl*/, void** handle) {
    if (handle == nullptr) return -1;
    *handle = &self(file).fd;
    return 0;
}

bool inrange(const JournalFile& f, haddr_t addr, size_t size) {
    return addr != HADDR_UNDEF && addr <= max_address && size <= max_address - addr &&
           addr + size <= f.eoa;
}

herr_t dread(H5FD_t* file, H5FD_mem_t /*type*/, hid_t /*dxpl*/, haddr_t addr, size_t size,
             void* buffer) {
    JournalFile& f = self(file);
    if (!inrange(f, addr, size) || buffer == nullptr) return -1;
    if (size == 0) return 0;
    auto* out = static_cast<unsigned char*>(buffer);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t r = ::pread(f.fd, out + done, size - done, static_cast<off_t>(addr + done));
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return -1;
        if (r == 0) { // past the end of the file: zeros
            std::memset(out + done, 0, size - done);
            break;
        }
        done += static_cast<std::size_t>(r);
    }
    const haddr_t end = std::min<haddr_t>(addr + size, f.committed);
    if (addr >= end) return 0;
    // Below the committed size the file on disk is the old state: cut bytes read as zeros,
    // staged ones as staged.
    if (f.cut < end) {
        const haddr_t from = std::max(addr, f.cut);
        std::memset(out + (from - addr), 0, end - from);
    }
    auto r = f.staged.upper_bound(addr);
    if (r != f.staged.begin()) --r;
    for (; r != f.staged.end() && r->first < end; ++r) {
        const haddr_t lo = std::max(addr, r->first);
        const haddr_t hi = std::min<haddr_t>(end, r->first + r->second.size());
        if (lo < hi) std::memcpy(out + (lo - addr), r->second.data() + (lo - r->first), hi - lo);
    }
    return 0;
}

herr_t dwrite(H5FD_t* file, H5FD_mem_t /*type*/, hid_t /*dxpl*/, haddr_t addr, size_t size,
              const void* buffer) {
    JournalFile& f = self(file);
    if (!inrange(f, addr, size) || buffer == nullptr || f.abandoned) return -1;
    if (size == 0) return 0;
    const auto* in = static_cast<const unsigned char*>(buffer);
    const haddr_t end = addr + size;
    try {
        if (addr < f.committed) stage(f.staged, addr, in, std::min(end, f.committed) - addr);
    } catch (const std::exception&) {
        return -1;
    }
    if (end > f.committed) {
        const haddr_t from = std::max(addr, f.committed);
        if (!writeall(f.fd, in + (from - addr), end - from, from)) {
            f.failed = true;
            return -1;
        }
    }
    f.eof = std::max(f.eof, end);
    return 0;
}

herr_t dflush(H5FD_t* file, hid_t /*dxpl*/, hbool_t /*closing*/) {
    try {
        return commit(self(file)) ? 0 : -1;
    } catch (const std::exception&) {
        return -1;
    }
}

// HDF5 sets the file's size to its allocated end before each flush.
herr_t dtruncate(H5FD_t* file, hid_t /*dxpl*/, hbool_t /*closing*/) {
    JournalFile& f = self(file);
    if (f.abandoned) return -1;
    if (f.eoa == f.eof) return 0;
    if (f.eoa >= f.committed) {
        if (::ftruncate(f.fd, static_cast<off_t>(f.eoa)) != 0) {
            lastfailure = errno;
            f.failed = true;
            return -1;
        }
    } else {
        // The committed file keeps its bytes until the commit; what lay past its end goes now.
        if (!resize(f.fd, f.committed)) {
            f.failed = true;
            return -1;
        }
        f.cut = std::min(f.cut, f.eoa);
        clip(f.staged, f.eoa);
    }
    f.eof = f.eoa;
    return 0;
}

hid_t driverid = H5I_INVALID_HID;

herr_t dterminate() {
    driverid = H5I_INVALID_HID;
    return 0;
}

const H5FD_class_t journal_class = {
    .name = "riffle-journal",
    .maxaddr = max_address,
    .fc_degree = H5F_CLOSE_WEAK,
    .terminate = dterminate,
    .sb_size = nullptr, // no driver block in the superblock: the file stays plain
    .sb_encode = nullptr,
    .sb_decode = nullptr,
    .fapl_size = 0,
    .fapl_get = nullptr,
    .fapl_copy = nullptr,
    .fapl_free = nullptr,
    .dxpl_size = 0,
    .dxpl_copy = nullptr,
    .dxpl_free = nullptr,
    .open = dopen,
    .close = dclose,
    .cmp = dcmp,
    .query = dquery,
    .get_type_map = nullptr,
    .alloc = nullptr,
    .free = nullptr,
    .get_eoa = dgeteoa,
    .set_eoa = dseteoa,
    .get_eof = dgeteof,
    .get_handle = dgethandle,
    .read = dread,
    .write = dwrite,
    .flush = dflush,
    .truncate = dtruncate,
    .lock = nullptr, // the solver's run lock stands in for HDF5's, which it switches off
    .unlock = nullptr,
    .fl_map = H5FD_FLMAP_DICHOTOMY,
};

// ---- which open gets the driver ----------------------------------------------------------------

struct Armed {
    bool on = false;
    dev_t device = 0;
    ino_t inode = 0;
};
Armed armed; // CG_OPEN_F runs on the main thread only

bool isarmed(const char* name, unsigned flags) {
    if (!armed.on || name == nullptr || (flags & H5F_ACC_RDWR) == 0) return false;
    struct stat info {};
    return ::stat(name, &info) == 0 && info.st_dev == armed.device && info.st_ino == armed.inode;
}

// 0, or the errno of the failure to take the run lock (EAGAIN or EACCES: another holds it).
int lockcase(const std::string& path, int& fd) {
    // Non-blocking, so that a FIFO or device given as the case never holds the run up here.
    fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) return errno;
    struct stat info {};
    int err = 0;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        err = EINVAL;
    } else {
        struct flock whole {};
        whole.l_type = F_WRLCK;
        whole.l_whence = SEEK_SET;
        if (::fcntl(fd, F_OFD_SETLK, &whole) != 0) err = errno;
    }
    if (err != 0) {
        ::close(fd);
        fd = -1;
    }
    return err;
}

} // namespace

bool lockforrun(const std::string& casepath, int& fd) { return lockcase(casepath, fd) == 0; }

Replay replay(const std::string& casepath, int lockedfd) {
    const std::string journal = casepath + journal_suffix;
    // A journal cut short while it was written: the commit never began, the case is whole.
    ::unlink((casepath + partial_suffix).c_str());
    Bytes bytes;
    if (!readwhole(journal, bytes)) return errno == ENOENT ? Replay::none : Replay::failed;
    std::uint64_t target = 0;
    std::vector<Span> spans;
    if (!decode(bytes, target, spans)) {
        return ::unlink(journal.c_str()) == 0 ? Replay::discarded : Replay::failed;
    }
    for (const Span& s : spans) {
        if (!writeall(lockedfd, s.data, s.length, s.addr)) return Replay::failed;
    }
    if (!resize(lockedfd, target) || ::unlink(journal.c_str()) != 0) return Replay::failed;
    return Replay::replayed;
}

void arm(const std::string& casepath) {
    struct stat info {};
    armed = ::stat(casepath.c_str(), &info) == 0 ? Armed{true, info.st_dev, info.st_ino} : Armed{};
}

void disarm() { armed = Armed{}; }

int lastwritefailure() { return lastfailure; }

void abandon() {
    for (JournalFile* f : openfiles) {
        if (f->abandoned) continue;
        f->abandoned = true;
        f->staged.clear();
        // A whole journal left by a commit that failed half-way carries the newer state, which
        // the next open writes in; without one, what lies past the committed end is dropped.
        struct stat info {};
        if (::stat(f->journal.c_str(), &info) != 0) resize(f->fd, f->committed);
    }
}

hid_t driver() {
    if (driverid < 0 || H5Iget_type(driverid) != H5I_VFL) driverid = H5FDregister(&journal_class);
    return driverid;
}

} // namespace casejournal

bool replayjournal(const std::string& casepath) {
    namespace cj = casejournal;
    struct stat info {};
    if (::stat((casepath + cj::journal_suffix).c_str(), &info) != 0 &&
        ::stat((casepath + cj::partial_suffix).c_str(), &info) != 0)
        return false;
    int fd = -1;
    const int err = cj::lockcase(casepath, fd);
    if (err == EAGAIN || err == EACCES) return false; // a run holds the case and commits itself
    if (err != 0) {
        throw CaseFileError("case file " + casepath +
                            ": replaying its journal: " + std::strerror(err));
    }
    const cj::Replay done = cj::replay(casepath, fd);
    ::close(fd);
    if (done == cj::Replay::failed) {
        throw CaseFileError("case file " + casepath +
                            ": replaying its journal: " + std::strerror(errno));
    }
    return done == cj::Replay::replayed;
}

} // namespace riffle::platform

// HDF5's H5Fopen, as libcgns calls it. The armed open gets the journaling driver on a copy of the
// library's file-access list; every other call goes on unchanged to HDF5.
extern "C" hid_t H5Fopen(const char* filename, unsigned flags, hid_t fapl) {
    namespace cj = riffle::platform::casejournal;
    using Open = hid_t (*)(const char*, unsigned, hid_t);
    static const Open real = [] {
        void* f = ::dlvsym(RTLD_NEXT, "H5Fopen", "HDF5_SERIAL_1.8.7"); // Debian's serial HDF5
        if (f == nullptr) f = ::dlsym(RTLD_NEXT, "H5Fopen");
        return reinterpret_cast<Open>(f);
    }();
    if (real == nullptr) return H5I_INVALID_HID;
    if (!cj::isarmed(filename, flags)) return real(filename, flags, fapl);
    cj::disarm();
    const hid_t copy = fapl == H5P_DEFAULT ? H5Pcreate(H5P_FILE_ACCESS) : H5Pcopy(fapl);
    if (copy < 0) return H5I_INVALID_HID;
    hid_t file = H5I_INVALID_HID;
    const hid_t id = cj::driver();
    if (id >= 0 && H5Pset_driver(copy, id, nullptr) >= 0) file = real(filename, flags, copy);
    H5Pclose(copy);
    return file;
}
