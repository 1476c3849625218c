// Raw system calls for the simulator's own file work. The preload wraps the
// libc entry points (open, close, ioctl, ...), so nothing in the simulator may
// call them for its own bookkeeping: that would recurse and pollute the
// journal. Each call returns -1 and sets errno on failure, like libc.
#pragma once
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <ctime>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace bsim::sys {

inline int open(const char *path, int flags, mode_t mode = 0)
{
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, mode));
}

inline int close(int fd)
{
    return static_cast<int>(::syscall(SYS_close, fd));
}

inline ssize_t read(int fd, void *buf, size_t len)
{
    return ::syscall(SYS_read, fd, buf, len);
}

inline ssize_t write(int fd, const void *buf, size_t len)
{
    return ::syscall(SYS_write, fd, buf, len);
}

inline off_t lseek(int fd, off_t off, int whence)
{
    return static_cast<off_t>(::syscall(SYS_lseek, fd, off, whence));
}

inline int mkdir(const char *path, mode_t mode)
{
    return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

inline int rename(const char *from, const char *to)
{
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

inline int unlink(const char *path)
{
    return static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

inline int stat(const char *path, struct stat *st)
{
    return static_cast<int>(::syscall(SYS_newfstatat, AT_FDCWD, path, st, 0));
}

inline int fstat(int fd, struct stat *st)
{
    return static_cast<int>(::syscall(SYS_newfstatat, fd, "", st, AT_EMPTY_PATH));
}

inline int flock(int fd, int op)
{
    return static_cast<int>(::syscall(SYS_flock, fd, op));
}

inline int memfd(const char *name, unsigned flags)
{
    return static_cast<int>(::syscall(SYS_memfd_create, name, flags));
}

inline long pid()
{
    return ::syscall(SYS_getpid);
}

inline long tid()
{
    return ::syscall(SYS_gettid);
}

// The host's clock, past any time library preloaded ahead of us: the RTC
// runs on it whatever the box's own clock says.
inline time_t host_now()
{
    struct timespec ts {};
    ::syscall(SYS_clock_gettime, CLOCK_REALTIME, &ts);
    return ts.tv_sec;
}

}  // namespace bsim::sys
