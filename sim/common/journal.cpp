// Journal and debug log writers. Each line goes out in one write on an
// O_APPEND descriptor, so lines from several processes never interleave.
#include "journal.h"

#include "state.h"
#include "sys.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace bsim {

namespace {

struct ErrnoName {
    int value;
    const char *name;
};

constexpr ErrnoName kErrnoNames[] = {
    {EPERM, "EPERM"},         {ENOENT, "ENOENT"},
    {EINTR, "EINTR"},         {EIO, "EIO"},
    {ENXIO, "ENXIO"},         {EBADF, "EBADF"},
    {EAGAIN, "EAGAIN"},       {ENOMEM, "ENOMEM"},
    {EACCES, "EACCES"},       {EFAULT, "EFAULT"},
    {EBUSY, "EBUSY"},         {EEXIST, "EEXIST"},
    {ENODEV, "ENODEV"},       {EINVAL, "EINVAL"},
    {ENOTTY, "ENOTTY"},       {ENOSPC, "ENOSPC"},
    {EROFS, "EROFS"},         {ERANGE, "ERANGE"},
    {ENOSYS, "ENOSYS"},       {ETIMEDOUT, "ETIMEDOUT"},
    {EREMOTEIO, "EREMOTEIO"}, {EOPNOTSUPP, "EOPNOTSUPP"},
    {ENOMEDIUM, "ENOMEDIUM"},
};

void append_line(const char *file, std::string line)
{
    std::string path = state_path(file);
    if (path.empty())
        return;
    line += '\n';
    int fd = sys::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    if (fd < 0 && errno == ENOENT && make_parents(path))  // a state directory not made yet
        fd = sys::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    if (fd < 0)
        return;
    ssize_t n;
    do {
        n = sys::write(fd, line.data(), line.size());
    } while (n < 0 && errno == EINTR);
    sys::close(fd);
}

}  // namespace

JournalLine::JournalLine(const char *kind, const std::string &name)
    : line_(std::string(kind) + " " + name)
{
    // When the call was made, on the box's clock (libfaketime answers this
    // call in the box): a test measures the tool's pauses between calls, and
    // a blocking read that waits for data still shows when it was asked.
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    char at[40];
    std::snprintf(at, sizeof at, " at=%lld.%06ld", static_cast<long long>(now.tv_sec),
                  now.tv_nsec / 1000);
    at_ = at;
}

void JournalLine::request(uint32_t req)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, " 0x%x", req);
    line_ += buf;
}

void JournalLine::num(const char *key, int64_t v)
{
    line_ += std::string(" ") + key + "=" + std::to_string(v);
}

void JournalLine::hex(const char *key, uint64_t v)
{
    char buf[24];
    std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
    line_ += std::string(" ") + key + "=" + buf;
}

void JournalLine::word(const char *key, const std::string &v)
{
    line_ += std::string(" ") + key + "=" + v;
}

void JournalLine::text(const char *key, const char *s, size_t max)
{
    line_ += std::string(" ") + key + "=\"";
    for (size_t i = 0; i < max && s[i] != '\0'; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c == '"' || c == '\\') {
            line_ += '\\';
            line_ += static_cast<char>(c);
        } else if (c == '\n') {
            line_ += "\\n";
        } else if (c < 0x20 || c >= 0x7f) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02x", c);
            line_ += buf;
        } else {
            line_ += static_cast<char>(c);
        }
    }
    line_ += '"';
}

void JournalLine::bytes(const char *key, const void *p, size_t n)
{
    const unsigned char *b = static_cast<const unsigned char *>(p);
    line_ += std::string(" ") + key + "=";
    for (size_t i = 0; i < n; ++i) {
        char buf[4];
        std::snprintf(buf, sizeof buf, i ? ",%02x" : "%02x", b[i]);
        line_ += buf;
    }
}

void JournalLine::finish(long result, int err)
{
    line_ += " -> " + std::to_string(result);
    if (err != 0)
        line_ += " errno=" + errno_name(err);
    append_line("journal", line_ + at_);
}

std::string errno_name(int err)
{
    for (const ErrnoName &e : kErrnoNames) {
        if (e.value == err)
            return e.name;
    }
    return std::to_string(err);
}

int errno_value(const std::string &name)
{
    for (const ErrnoName &e : kErrnoNames) {
        if (name == e.name)
            return e.value;
    }
    int64_t v = 0;
    return (parse_num(name, v) && v > 0 && v < 4096) ? static_cast<int>(v) : 0;
}

bool debug_enabled()
{
    static const bool on = [] {
        const char *d = std::getenv("BOARDSIM_DEBUG");
        return d && std::strcmp(d, "1") == 0;
    }();
    return on;
}

void debug_line(const std::string &msg)
{
    int saved = errno;
    append_line("debug.log", "[" + std::to_string(sys::pid()) + "] " + msg);
    errno = saved;
}

}  // namespace bsim
