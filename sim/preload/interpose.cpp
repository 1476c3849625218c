// LD_PRELOAD front of the board simulator (libboardsim.so): thin wrappers
// around open/openat/fopen/close/fclose/ioctl/access. Each one asks the path
// and descriptor tables (paths.cpp) whether the call is the board's; if not,
// it calls the real function untouched. Board nodes (/dev/hal_*,
// /dev/harddisk) get an anonymous memory file as their descriptor and their
// requests go to nodes.cpp; the board's proc files (/proc/watchdog_status,
// /proc/disk/*, /proc/sys/kernel/printk) open their copy under
// $BOARDSIM_STATE/proc. The real functions are looked up once; errno is
// left as the caller would see it from the real call.
#undef _FORTIFY_SOURCE
#include "../common/fault.h"
#include "../common/journal.h"
#include "../common/state.h"
#include "../common/sys.h"
#include "nodes.h"
#include "paths.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace bsim;

namespace {

using OpenFn = int (*)(const char *, int, ...);
using OpenAtFn = int (*)(int, const char *, int, ...);
using FopenFn = FILE *(*)(const char *, const char *);

struct Real {
    OpenFn open;
    OpenFn open64;
    OpenAtFn openat;
    OpenAtFn openat64;
    FopenFn fopen;
    FopenFn fopen64;
    int (*close)(int);
    int (*fclose)(FILE *);
    int (*ioctl)(int, unsigned long, ...);
    int (*access)(const char *, int);
};

template <class T>
T next(const char *name)
{
    return reinterpret_cast<T>(dlsym(RTLD_NEXT, name));
}

const Real &real()
{
    static const Real r = {
        next<OpenFn>("open"),
        next<OpenFn>("open64"),
        next<OpenAtFn>("openat"),
        next<OpenAtFn>("openat64"),
        next<FopenFn>("fopen"),
        next<FopenFn>("fopen64"),
        next<int (*)(int)>("close"),
        next<int (*)(FILE *)>("fclose"),
        next<int (*)(int, unsigned long, ...)>("ioctl"),
        next<int (*)(const char *, int)>("access"),
    };
    return r;
}

std::string flags_text(int flags)
{
    static constexpr struct {
        int bit;
        const char *name;
    } kBits[] = {{O_CREAT, "O_CREAT"}, {O_EXCL, "O_EXCL"},      {O_NOCTTY, "O_NOCTTY"},
                 {O_TRUNC, "O_TRUNC"}, {O_APPEND, "O_APPEND"},  {O_NONBLOCK, "O_NONBLOCK"},
                 {O_SYNC, "O_SYNC"},   {O_CLOEXEC, "O_CLOEXEC"}};
    int acc = flags & O_ACCMODE;
    std::string s = acc == O_RDONLY ? "O_RDONLY" : acc == O_WRONLY ? "O_WRONLY" : "O_RDWR";
    int rest = flags & ~O_ACCMODE;
    for (const auto &b : kBits) {
        if ((rest & b.bit) == b.bit) {
            s += std::string("|") + b.name;
            rest &= ~b.bit;
        }
    }
    if (rest) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "|0x%x", static_cast<unsigned>(rest));
        s += buf;
    }
    return s;
}

bool needs_mode(int flags)
{
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
}

// The descriptor a board path opens to: a memory file for a node, the
// state copy for a proc file.
int open_backing(const PathClaim &pc, int flags, mode_t mode)
{
    if (pc.kind == Claim::Node) {
        const char *name = claim_name(pc.id);
        return sys::memfd(name + 5, (flags & O_CLOEXEC) ? MFD_CLOEXEC : 0);
    }
    std::string target = state_materialize(pc.redirect);
    return real().open(target.c_str(), flags, mode);
}

int board_open(const PathClaim &pc, int flags, mode_t mode)
{
    int saved = errno;
    const char *name = claim_name(pc.id);
    JournalLine line("open", name);
    Fault f;
    if (fault_check(std::string("open.") + name, f)) {
        line.word("flags", flags_text(flags));
        line.finish(-1, f.err);
        debug(std::string("open ") + name + ": injected failure");
        errno = f.err;
        return -1;
    }
    int fd = open_backing(pc, flags, mode);
    int err = fd < 0 ? errno : 0;
    if (fd >= 0) {
        fd_track(fd, pc.id);
        line.num("fd", fd);
    }
    line.word("flags", flags_text(flags));
    line.finish(fd, err);
    debug(std::string("open ") + name + " -> fd " + std::to_string(fd));
    errno = fd < 0 ? err : saved;
    return fd;
}

FILE *board_fopen(const PathClaim &pc, const char *mode)
{
    int saved = errno;
    const char *name = claim_name(pc.id);
    JournalLine line("open", name);
    Fault f;
    if (fault_check(std::string("open.") + name, f)) {
        line.word("mode", mode);
        line.finish(-1, f.err);
        debug(std::string("fopen ") + name + ": injected failure");
        errno = f.err;
        return nullptr;
    }
    FILE *fp = nullptr;
    if (pc.kind == Claim::Node) {
        int fd = open_backing(pc, O_RDWR, 0);
        fp = fd >= 0 ? fdopen(fd, mode) : nullptr;
        if (fd >= 0 && fp == nullptr)
            sys::close(fd);
    } else {
        fp = real().fopen(state_materialize(pc.redirect).c_str(), mode);
    }
    int err = fp ? 0 : errno;
    int fd = fp ? fileno(fp) : -1;
    if (fp) {
        fd_track(fd, pc.id);
        line.num("fd", fd);
    }
    line.word("mode", mode);
    line.finish(fd, err);
    debug(std::string("fopen ") + name + " -> fd " + std::to_string(fd));
    errno = fp ? saved : err;
    return fp;
}

void journal_close(int id, int fd, int rc, int err)
{
    JournalLine line("close", claim_name(id));
    line.num("fd", fd);
    line.finish(rc, rc ? err : 0);
    debug(std::string("close ") + claim_name(id) + " fd " + std::to_string(fd));
}

// With BOARDSIM_DEBUG=1, device and proc paths left to the system are
// logged too: that is where a node the simulator lacks shows up.
void debug_pass(const char *what, const char *path)
{
    if (path && (std::strncmp(path, "/dev/", 5) == 0 || std::strncmp(path, "/proc/", 6) == 0) &&
        debug_enabled()) {
        int saved = errno;
        debug(std::string(what) + " " + path + ": passed through");
        errno = saved;
    }
}

int do_open(const char *path, int flags, mode_t mode, OpenFn fn)
{
    PathClaim pc = claim_path(path);
    if (pc.kind != Claim::None)
        return board_open(pc, flags, mode);
    debug_pass("open", path);
    return fn(path, flags, mode);
}

int do_openat(int dirfd, const char *path, int flags, mode_t mode, OpenAtFn fn)
{
    PathClaim pc = claim_path(path);  // absolute paths only, whatever dirfd is
    if (pc.kind != Claim::None)
        return board_open(pc, flags, mode);
    debug_pass("openat", path);
    return fn(dirfd, path, flags, mode);
}

FILE *do_fopen(const char *path, const char *mode, FopenFn fn)
{
    PathClaim pc = claim_path(path);
    if (pc.kind != Claim::None)
        return board_fopen(pc, mode);
    debug_pass("fopen", path);
    return fn(path, mode);
}

mode_t mode_arg(int flags, va_list ap)
{
    return needs_mode(flags) ? static_cast<mode_t>(va_arg(ap, int)) : 0;
}

}  // namespace

#define BSIM_EXPORT extern "C" __attribute__((visibility("default")))

BSIM_EXPORT int open(const char *path, int flags, ...)
{
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return do_open(path, flags, mode, real().open);
}

BSIM_EXPORT int open64(const char *path, int flags, ...)
{
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return do_open(path, flags, mode, real().open64 ? real().open64 : real().open);
}

BSIM_EXPORT int openat(int dirfd, const char *path, int flags, ...)
{
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return do_openat(dirfd, path, flags, mode, real().openat);
}

BSIM_EXPORT int openat64(int dirfd, const char *path, int flags, ...)
{
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return do_openat(dirfd, path, flags, mode, real().openat64 ? real().openat64 : real().openat);
}

// Entry points of callers built with _FORTIFY_SOURCE.
BSIM_EXPORT int __open_2(const char *path, int flags)
{
    return do_open(path, flags, 0, real().open);
}

BSIM_EXPORT int __open64_2(const char *path, int flags)
{
    return do_open(path, flags, 0, real().open);
}

BSIM_EXPORT int __openat_2(int dirfd, const char *path, int flags)
{
    return do_openat(dirfd, path, flags, 0, real().openat);
}

BSIM_EXPORT int __openat64_2(int dirfd, const char *path, int flags)
{
    return do_openat(dirfd, path, flags, 0, real().openat);
}

BSIM_EXPORT FILE *fopen(const char *path, const char *mode)
{
    return do_fopen(path, mode, real().fopen);
}

BSIM_EXPORT FILE *fopen64(const char *path, const char *mode)
{
    return do_fopen(path, mode, real().fopen64 ? real().fopen64 : real().fopen);
}

BSIM_EXPORT int close(int fd)
{
    int id = fd_untrack(fd);
    int rc = real().close(fd);
    if (id >= 0) {
        int saved = errno;
        journal_close(id, fd, rc, saved);
        errno = saved;
    }
    return rc;
}

BSIM_EXPORT int fclose(FILE *fp)
{
    int fd = fp ? fileno(fp) : -1;
    int id = fd_untrack(fd);
    int rc = real().fclose(fp);
    if (id >= 0) {
        int saved = errno;
        journal_close(id, fd, rc, saved);
        errno = saved;
    }
    return rc;
}

BSIM_EXPORT int ioctl(int fd, unsigned long req, ...) noexcept
{
    va_list ap;
    va_start(ap, req);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    int id = fd_lookup(fd);
    if (id < 0 || !claim_is_node(id))
        return real().ioctl(fd, req, arg);
    int saved = errno;
    int err = 0;
    long rc = node_ioctl(claim_name(id), req, arg, err);
    debug(std::string("ioctl ") + claim_name(id) + " fd " + std::to_string(fd) + " -> " +
          std::to_string(rc));
    errno = rc != 0 ? err : saved;
    return static_cast<int>(rc);
}

BSIM_EXPORT int access(const char *path, int how) noexcept
{
    PathClaim pc = claim_path(path);
    if (pc.kind == Claim::Node)
        return 0;  // the node exists and is read-write for everyone
    if (pc.kind == Claim::Proc)
        return real().access(state_materialize(pc.redirect).c_str(), how);
    return real().access(path, how);
}
