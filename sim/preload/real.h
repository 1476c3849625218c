// The real functions behind the preload's wrappers, looked up once with
// dlsym(RTLD_NEXT). The simulator reaches them only through these pointers;
// its own file work uses raw system calls (sys.h).
#pragma once
#include <cstdio>
#include <sys/types.h>
#include <termios.h>

namespace bsim {

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
    int (*tcgetattr)(int, termios *);
    int (*tcsetattr)(int, int, const termios *);
    int (*tcflush)(int, int);
    int (*socket)(int, int, int);
    ssize_t (*write)(int, const void *, size_t);
    ssize_t (*read)(int, void *, size_t);
    off_t (*lseek)(int, off_t, int);
    int (*fsync)(int);
};

const Real &real();

}  // namespace bsim
