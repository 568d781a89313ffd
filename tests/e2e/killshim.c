/* Preloaded into riffle by tests/e2e/test_crash.py: kills the process with SIGKILL just before
 * the Nth change to a file whose path holds ".cgns" (the case and its journal): a pwrite, an
 * ftruncate, a rename or an unlink. RIFFLE_KILL_AT=N picks the change (0: none); at a normal exit
 * the number of changes made is written to the file named by RIFFLE_KILL_COUNT, if set. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

static long changes;

static int iscase(const char* path) { return path != NULL && strstr(path, ".cgns") != NULL; }

static int fdiscase(int fd) {
    char link[64], path[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = readlink(link, path, sizeof path - 1);
    if (n < 0) return 0;
    path[n] = '\0';
    return iscase(path);
}

static void change(void) {
    const char* at = getenv("RIFFLE_KILL_AT");
    if (++changes == (at != NULL ? atol(at) : 0)) kill(getpid(), SIGKILL);
}

__attribute__((destructor)) static void report(void) {
    const char* name = getenv("RIFFLE_KILL_COUNT");
    FILE* f = name != NULL ? fopen(name, "w") : NULL;
    if (f != NULL) {
        fprintf(f, "%ld\n", changes);
        fclose(f);
    }
}

#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

ssize_t pwrite(int fd, const void* buf, size_t n, off_t at) {
    if (fdiscase(fd)) change();
    return NEXT(pwrite)(fd, buf, n, at);
}

ssize_t pwrite64(int fd, const void* buf, size_t n, off64_t at) {
    if (fdiscase(fd)) change();
    return NEXT(pwrite64)(fd, buf, n, at);
}

int ftruncate(int fd, off_t size) {
    if (fdiscase(fd)) change();
    return NEXT(ftruncate)(fd, size);
}

int rename(const char* from, const char* to) {
    if (iscase(from) || iscase(to)) change();
    return NEXT(rename)(from, to);
}

int unlink(const char* path) {
    if (iscase(path)) change();
    return NEXT(unlink)(path);
}
