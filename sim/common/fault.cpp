// Fault-file parsing and the shared call counter behind skip= and times=.
#include "fault.h"

#include "journal.h"
#include "state.h"
#include "sys.h"

#include <cerrno>
#include <cstdint>
#include <sys/file.h>

namespace bsim {

namespace {

struct Rule {
    long ret = -1;
    int err = EIO;
    int64_t skip = 0;
    int64_t times = -1;
};

Rule parse_rule(const std::string &text)
{
    Rule r;
    int64_t n = 0;
    if (auto v = key_value(text, "errno")) {
        int e = errno_value(*v);
        r.err = e ? e : EIO;
    }
    if (auto v = key_value(text, "ret"); v && parse_num(*v, n))
        r.ret = static_cast<long>(n);
    if (auto v = key_value(text, "skip"); v && parse_num(*v, n))
        r.skip = n;
    if (auto v = key_value(text, "times"); v && parse_num(*v, n))
        r.times = n;
    return r;
}

// Returns how many calls matched before this one, counting this one in.
int64_t next_call_index(const std::string &target)
{
    std::string path = state_path("fail/" + target + ".count");
    int fd = sys::open(path.c_str(), O_RDWR | O_CREAT, 0644);
    if (fd < 0)
        return 0;
    sys::flock(fd, LOCK_EX);
    char buf[32] = {};
    ssize_t n = sys::read(fd, buf, sizeof buf - 1);
    int64_t count = 0;
    if (n > 0)
        parse_num(std::string(buf, static_cast<size_t>(n)), count);
    std::string next = std::to_string(count + 1) + "\n";
    ::syscall(SYS_lseek, fd, 0, SEEK_SET);
    ::syscall(SYS_ftruncate, fd, 0);
    sys::write(fd, next.data(), next.size());
    sys::flock(fd, LOCK_UN);
    sys::close(fd);
    return count;
}

}  // namespace

bool fault_check(const std::string &target, Fault &out)
{
    if (state_dir().empty())
        return false;
    auto text = state_read("fail/" + target);
    if (!text)
        return false;
    Rule r = parse_rule(*text);
    if (r.skip > 0 || r.times >= 0) {
        int64_t idx = next_call_index(target);
        if (idx < r.skip)
            return false;
        if (r.times >= 0 && idx >= r.skip + r.times)
            return false;
    }
    out.ret = r.ret;
    out.err = r.err;
    return true;
}

bool fault_check2(const std::string &specific, const std::string &general, Fault &out)
{
    return fault_check(specific, out) || fault_check(general, out);
}

}  // namespace bsim
