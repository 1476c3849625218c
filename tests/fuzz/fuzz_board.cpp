// The fuzz targets' board: the tool in-process, inside the box. The calls
// below replace the C library's for the whole program, because thousands of
// inputs a second must neither wait nor start programs:
//  - waits end at once on the main thread; the tool's own threads (the LED
//    worker, an RS-485 slave) sleep at most 10 ms, so none of them spins;
//  - no shell command, pipe or program is started (system() succeeds, popen()
//    reads nothing, fork() fails);
//  - the terminal calls on the console succeed without a terminal, so the
//    loop runs on a pipe.
// Everything else (device nodes, requests, the driver library) is the box's.
#include "fuzz_board.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include "drv_api.h"
#include "equ_board.h"

namespace {

pthread_t g_main_thread;
constexpr long kThreadNapNs = 10'000'000;

template <class T>
T next(const char *name)
{
    return reinterpret_cast<T>(dlsym(RTLD_NEXT, name));
}

ssize_t discard(void *, const char *, size_t ulLen)
{
    return static_cast<ssize_t>(ulLen);
}

bool on_main_thread(void)
{
    return pthread_equal(pthread_self(), g_main_thread) != 0;
}

int thread_nap(void)
{
    static const auto real = next<int (*)(const timespec *, timespec *)>("nanosleep");
    const timespec nap{0, kThreadNapNs};
    return real(&nap, nullptr);
}

}  // namespace

extern "C" {

int nanosleep(const struct timespec *, struct timespec *)
{
    return on_main_thread() ? 0 : thread_nap();
}

int clock_nanosleep(clockid_t, int, const struct timespec *, struct timespec *)
{
    return on_main_thread() ? 0 : thread_nap();
}

unsigned int sleep(unsigned int)
{
    return on_main_thread() ? 0 : static_cast<unsigned>(thread_nap());
}

int usleep(useconds_t)
{
    return on_main_thread() ? 0 : thread_nap();
}

int select(int nfds, fd_set *rd, fd_set *wr, fd_set *ex, struct timeval *tv)
{
    static const auto real = next<int (*)(int, fd_set *, fd_set *, fd_set *, timeval *)>("select");
    timeval now{0, 0};
    return real(nfds, rd, wr, ex, on_main_thread() ? &now : tv);
}

int poll(struct pollfd *fds, nfds_t n, int timeout)
{
    static const auto real = next<int (*)(pollfd *, nfds_t, int)>("poll");
    return real(fds, n, on_main_thread() ? 0 : timeout);
}

int system(const char *cmd)
{
    return cmd == nullptr ? 1 : 0;
}

FILE *popen(const char *, const char *)
{
    return fopen("/dev/null", "r");
}

int pclose(FILE *fp)
{
    return fclose(fp);
}

pid_t fork(void)
{
    errno = EAGAIN;
    return -1;
}

int tcgetattr(int fd, struct termios *t)
{
    static const auto real = next<int (*)(int, termios *)>("tcgetattr");
    if (fd == STDIN_FILENO) {
        memset(t, 0, sizeof(*t));
        return 0;
    }
    return real(fd, t);
}

int tcsetattr(int fd, int how, const struct termios *t)
{
    static const auto real = next<int (*)(int, int, const termios *)>("tcsetattr");
    return fd == STDIN_FILENO ? 0 : real(fd, how, t);
}

}  // extern "C"

void fuzz_board_init(void)
{
    g_main_thread = pthread_self();
    // What the tool prints goes nowhere, without a system call per piece;
    // programs it starts (none here) would find /dev/null on descriptor 1.
    int fd = open("/dev/null", O_WRONLY);
    if (fd >= 0) {
        dup2(fd, STDOUT_FILENO);
        close(fd);
    }
    cookie_io_functions_t stIo{nullptr, discard, nullptr, nullptr};
    if (FILE *fp = fopencookie(nullptr, "w", stIo)) {
        setvbuf(fp, nullptr, _IOFBF, 1 << 16);
        stdout = fp;
    }
    uint32_t u32BoardId = 0;
    if (DRV_Init(200) != 0 || DRV_SysCtl(DRV_SYS_GET_BOARD_ID, &u32BoardId) != 0 ||
        EQU_BoardDescCreat(u32BoardId, &gpstEquBoardDesc) != 0 || gpstEquBoardDesc == nullptr) {
        fprintf(stderr, "fuzz: the board did not start (run in the box)\n");
        _exit(2);
    }
}

void fuzz_register_commands(void)
{
    for (uint32_t u32Idx = 0; u32Idx < gpstEquBoardDesc->u32CmdNum; u32Idx++) {
        gpstEquBoardDesc->pfnCmdTbl[u32Idx]();
    }
}
