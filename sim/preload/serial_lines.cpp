// Serial lines: /dev/ttyS<n> are real pseudo-terminals that the box links in,
// with its fixtures on the far ends (sim/box/serial_lines.py). The preload
// only watches them: opens, closes, terminal requests, reads and writes are
// journaled (the attributes a port was given, decoded; the byte counts, with
// the box's time, so a test sees how long the tool waited between them) and
// can be made to fail; the data and the requests themselves go to the
// kernel's tty layer untouched.
#include "../common/fault.h"
#include "../common/journal.h"
#include "../common/state.h"
#include "kinds.h"
#include "real.h"

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>

namespace bsim {

namespace {

unsigned speed_of(tcflag_t cflag)
{
    static constexpr struct {
        tcflag_t bits;
        unsigned rate;
    } kSpeeds[] = {{B1200, 1200},     {B2400, 2400},     {B4800, 4800},    {B9600, 9600},
                   {B19200, 19200},   {B38400, 38400},   {B57600, 57600},  {B115200, 115200},
                   {B230400, 230400}, {B460800, 460800}, {B921600, 921600}};
    for (const auto &s : kSpeeds) {
        if ((cflag & CBAUD) == s.bits)
            return s.rate;
    }
    return 0;
}

// An injected failure of this request on this line, journaled; else false.
bool line_fails(const char *path, unsigned long req, JournalLine &line, long &rc, int &err)
{
    char code[32];
    std::snprintf(code, sizeof code, ".0x%lx", req);
    Fault f;
    if (!fault_check(std::string("ioctl.") + path + code, f))
        return false;
    rc = f.ret;
    err = f.err;
    line.finish(rc, err);
    return true;
}

ssize_t journal_transfer(JournalLine &line, size_t len, ssize_t rc)
{
    int err = errno;
    line.num("len", static_cast<int64_t>(len));
    line.finish(rc, rc < 0 ? err : 0);
    errno = err;
    return rc;
}

}  // namespace

bool serial_line(const char *path)
{
    std::string_view p(path);
    if (!p.starts_with("/dev/ttyS") || p.size() == 9)
        return false;
    for (char c : p.substr(9)) {
        if (c < '0' || c > '9')
            return false;
    }
    return state_has_file("serial/" + std::string(p.substr(5)));
}

int serial_line_request(const char *path, int fd, unsigned long req, const void *arg, LineCall call)
{
    int saved = errno;
    JournalLine line("ioctl", path);
    line.request(static_cast<uint32_t>(req));
    if (req == TCFLSH)
        line.num("arg", static_cast<int64_t>(reinterpret_cast<intptr_t>(arg)));
    if (req == TCSETS || req == TCSETSW || req == TCSETSF) {
        const auto *t = static_cast<const termios *>(arg);
        line.num("speed", speed_of(t->c_cflag));
        line.hex("cflag", t->c_cflag);
        line.hex("iflag", t->c_iflag);
        line.hex("oflag", t->c_oflag);
        line.hex("lflag", t->c_lflag);
        line.num("vmin", t->c_cc[VMIN]);
        line.num("vtime", t->c_cc[VTIME]);
    }
    long rc = 0;
    int err = 0;
    if (line_fails(path, req, line, rc, err)) {
        errno = err;
        return static_cast<int>(rc);
    }
    int ret = call(fd, req, arg);
    err = ret != 0 ? errno : 0;
    line.finish(ret, err);
    errno = ret != 0 ? err : saved;
    return ret;
}

ssize_t serial_line_read(const char *path, int fd, void *buf, size_t len)
{
    JournalLine line("read", path);
    ssize_t rc = real().read(fd, buf, len);
    return journal_transfer(line, len, rc);
}

ssize_t serial_line_write(const char *path, int fd, const void *buf, size_t len)
{
    JournalLine line("write", path);
    ssize_t rc = real().write(fd, buf, len);
    return journal_transfer(line, len, rc);
}

}  // namespace bsim
