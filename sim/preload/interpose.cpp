// LD_PRELOAD front of the board simulator (libboardsim.so): thin wrappers
// around open/openat/fopen/close/fclose/ioctl/access, read, write, lseek and fsync
// of the disk images, the termios calls of the serial lines, socket (for its fault
// injection), and the clock setters (settimeofday, clock_settime) that
// move the box's own clock. Each asks board.cpp
// whether the path or descriptor is the board's and otherwise calls the real
// function, looked up once, untouched. errno is left as the caller would see
// it from a real call.
#undef _FORTIFY_SOURCE
#include "board.h"
#include "real.h"

#include "../common/sys.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/time.h>
#include <sys/ioctl.h>
#include <termios.h>

using namespace bsim;

namespace {

template <class T>
T next(const char *name)
{
    return reinterpret_cast<T>(dlsym(RTLD_NEXT, name));
}

int do_open(const char *path, int flags, mode_t mode, OpenFn fn)
{
    Claim c = claim_path(path);
    if (c.kind != Backing::None)
        return board_open(c, flags, mode);
    board_passed("open", path);
    return fn(path, flags, mode);
}

// Only absolute paths are the board's, whatever dirfd is.
int do_openat(int dirfd, const char *path, int flags, mode_t mode, OpenAtFn fn)
{
    Claim c = claim_path(path);
    if (c.kind != Backing::None)
        return board_open(c, flags, mode);
    board_passed("openat", path);
    return fn(dirfd, path, flags, mode);
}

FILE *do_fopen(const char *path, const char *mode, FopenFn fn)
{
    Claim c = claim_path(path);
    if (c.kind != Backing::None)
        return board_fopen(c, mode);
    board_passed("fopen", path);
    return fn(path, mode);
}

// The box's own clock. The kernel will not let the box set the host's
// clock, so setting the time moves the offset in the time library's file
// (FAKETIME_TIMESTAMP_FILE: "+SECONDS [xSPEED]") that every process of the
// box reads; the speed part is kept. Outside a box the kernel answers.
int set_box_clock(time_t want)
{
    const char *file = getenv("FAKETIME_TIMESTAMP_FILE");
    if (file == nullptr) {
        struct timeval tv {
            want, 0
        };
        return static_cast<int>(syscall(SYS_settimeofday, &tv, nullptr));
    }
    char buf[128] = {0};
    int fd = sys::open(file, O_RDONLY);
    ssize_t n = fd >= 0 ? sys::read(fd, buf, sizeof buf - 1) : 0;
    if (fd >= 0)
        sys::close(fd);
    buf[n > 0 ? n : 0] = '\0';
    char *rest = nullptr;
    long long offset = std::strtoll(buf, &rest, 10);
    offset += static_cast<long long>(want - time(nullptr));
    std::string line = (offset < 0 ? "" : "+") + std::to_string(offset) + rest;
    if (line.back() != '\n')
        line += '\n';
    std::string tmp = std::string(file) + ".new";
    fd = sys::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0)
        return -1;
    bool ok = sys::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    sys::close(fd);
    return ok && sys::rename(tmp.c_str(), file) == 0 ? 0 : -1;
}

mode_t mode_arg(int flags, va_list ap)
{
    bool needs = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    return needs ? static_cast<mode_t>(va_arg(ap, int)) : 0;
}

}  // namespace

const Real &bsim::real()
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
        next<int (*)(int, termios *)>("tcgetattr"),
        next<int (*)(int, int, const termios *)>("tcsetattr"),
        next<int (*)(int, int)>("tcflush"),
        next<int (*)(int, int, int)>("socket"),
        next<ssize_t (*)(int, const void *, size_t)>("write"),
        next<ssize_t (*)(int, void *, size_t)>("read"),
        next<off_t (*)(int, off_t, int)>("lseek"),
        next<int (*)(int)>("fsync"),
    };
    return r;
}

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
    block_image_forget(fd);
    const char *path = board_forget(fd);
    int rc = real().close(fd);
    if (path)
        board_closed(path, fd, rc);
    return rc;
}

BSIM_EXPORT int fclose(FILE *fp)
{
    int fd = fp ? fileno(fp) : -1;
    block_image_forget(fd);
    const char *path = board_forget(fd);
    int rc = real().fclose(fp);
    if (path)
        board_closed(path, fd, rc);
    return rc;
}

BSIM_EXPORT int ioctl(int fd, unsigned long req, ...) noexcept
{
    va_list ap;
    va_start(ap, req);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (const NodeTable *node = board_node(fd))
        return board_ioctl(*node, fd, req, arg);
    // MII registers of the box's interfaces: never the host's PHYs.
    if (mii_request(fd, req))
        return mii_ioctl(req, arg);
    if (const char *line = board_line(fd)) {
        return serial_line_request(line, fd, req, arg, [](int f, unsigned long r, const void *a) {
            return real().ioctl(f, r, a);
        });
    }
    if (board_net_request(req))
        return board_net_ioctl(fd, req, arg);
    return real().ioctl(fd, req, arg);
}

BSIM_EXPORT int socket(int domain, int type, int protocol) noexcept
{
    int err = 0;
    if (board_socket_fails(domain, type, err)) {
        errno = err;
        return -1;
    }
    return real().socket(domain, type, protocol);
}

// Disk and stick images keep their size as a block device does; their
// reads and writes, and a serial line's writes, can be made to fail.
BSIM_EXPORT ssize_t write(int fd, const void *buf, size_t len)
{
    ssize_t rc = 0;
    if (block_quick_transfer(fd, const_cast<void *>(buf), len, true, rc))
        return rc;
    const char *image = board_block(fd);
    const char *path = image ? image : board_line(fd);
    if (path && board_transfer_fails("write", path, len, rc))
        return rc;
    if (image)
        return block_image_write(fd, buf, len);
    return path ? serial_line_write(path, fd, buf, len) : real().write(fd, buf, len);
}

BSIM_EXPORT ssize_t read(int fd, void *buf, size_t len)
{
    ssize_t rc = 0;
    if (block_quick_transfer(fd, buf, len, false, rc))
        return rc;
    const char *image = board_block(fd);
    if (image && board_transfer_fails("read", image, len, rc))
        return rc;
    if (image && block_image_unreadable(fd, image, len))
        return -1;
    const char *line = image ? nullptr : board_line(fd);
    return line ? serial_line_read(line, fd, buf, len) : real().read(fd, buf, len);
}

// A seek is where a descriptor is checked to still be the image's: the
// quick prefix's transfers in between trust it.
static off_t seek(int fd, off_t off, int whence)
{
    if (board_block(fd))
        return block_image_seek(fd, off, whence);
    block_image_forget(fd);
    return real().lseek(fd, off, whence);
}

BSIM_EXPORT off_t lseek(int fd, off_t off, int whence) noexcept
{
    return seek(fd, off, whence);
}

BSIM_EXPORT off_t lseek64(int fd, off_t off, int whence) noexcept
{
    return seek(fd, off, whence);
}

// An image's flush to this PC's disk is no part of the board (every reader
// sees the writes through the page cache) and would cost a disk wait per
// sector of a disk test.
BSIM_EXPORT int fsync(int fd)
{
    return board_block(fd) ? 0 : real().fsync(fd);
}

// The termios calls reach the kernel without our ioctl, so the serial lines
// watch them here, under the requests they stand for.
BSIM_EXPORT int tcgetattr(int fd, struct termios *t) noexcept
{
    const char *line = board_line(fd);
    if (line == nullptr)
        return real().tcgetattr(fd, t);
    return serial_line_request(line, fd, TCGETS, t, [](int f, unsigned long, const void *a) {
        return real().tcgetattr(f, static_cast<termios *>(const_cast<void *>(a)));
    });
}

BSIM_EXPORT int tcsetattr(int fd, int how, const struct termios *t) noexcept
{
    const char *line = board_line(fd);
    if (line == nullptr)
        return real().tcsetattr(fd, how, t);
    unsigned long req = how == TCSADRAIN ? TCSETSW : how == TCSAFLUSH ? TCSETSF : TCSETS;
    return serial_line_request(line, fd, req, t, [](int f, unsigned long r, const void *a) {
        int h = r == TCSETSW ? TCSADRAIN : r == TCSETSF ? TCSAFLUSH : TCSANOW;
        return real().tcsetattr(f, h, static_cast<const termios *>(a));
    });
}

BSIM_EXPORT int tcflush(int fd, int queue) noexcept
{
    const char *line = board_line(fd);
    if (line == nullptr)
        return real().tcflush(fd, queue);
    const void *arg = reinterpret_cast<const void *>(static_cast<intptr_t>(queue));
    return serial_line_request(line, fd, TCFLSH, arg, [](int f, unsigned long, const void *a) {
        return real().tcflush(f, static_cast<int>(reinterpret_cast<intptr_t>(a)));
    });
}

BSIM_EXPORT int access(const char *path, int how) noexcept
{
    Claim c = claim_path(path);
    return c.kind != Backing::None ? board_access(c, how) : real().access(path, how);
}

BSIM_EXPORT int settimeofday(const struct timeval *tv, const struct timezone *tz) noexcept
{
    (void)tz;  // the kernel's time zone is not the board's concern
    return tv ? set_box_clock(tv->tv_sec) : 0;
}

BSIM_EXPORT int clock_settime(clockid_t id, const struct timespec *ts) noexcept
{
    if (id != CLOCK_REALTIME) {
        errno = EINVAL;
        return -1;
    }
    return set_box_clock(ts->tv_sec);
}
