// Path table of the board's device nodes and proc files, and the table of
// descriptors opened on them. A tracked descriptor also remembers its inode,
// so a number reused behind our back (dup2, close_range) is not mistaken
// for a board node.
#include "paths.h"

#include "../common/state.h"
#include "../common/sys.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace bsim {

namespace {

struct BoardPath {
    const char *path;
    Claim kind;
};

constexpr BoardPath kPaths[] = {
    {"/dev/hal_nvram", Claim::Node},
    {"/dev/hal_misc", Claim::Node},
    {"/dev/hal_gpio", Claim::Node},
    {"/dev/hal_rmc", Claim::Node},
    {"/dev/hal_sc", Claim::Node},
    {"/dev/hal_switch", Claim::Node},
    {"/dev/hal_runtime", Claim::Node},
    {"/dev/hal_watchdog", Claim::Node},
    {"/dev/harddisk", Claim::Node},
    {"/proc/watchdog_status", Claim::Proc},
    {"/proc/disk/disk_name", Claim::Proc},
    {"/proc/disk/global", Claim::Proc},
    {"/proc/sys/kernel/printk", Claim::Proc},
};
constexpr int kPathCount = static_cast<int>(sizeof kPaths / sizeof kPaths[0]);

constexpr int kMaxFd = 1 << 16;

// id + 1, so that the zero-filled table means "nothing tracked".
struct Slot {
    std::atomic<int16_t> tag;
    std::atomic<uint64_t> ino;
};
Slot g_fds[kMaxFd];

uint64_t inode_of(int fd)
{
    struct stat st {};
    if (sys::fstat(fd, &st) != 0)
        return 0;
    return (static_cast<uint64_t>(st.st_dev) << 40) ^ static_cast<uint64_t>(st.st_ino);
}

}  // namespace

PathClaim claim_path(const char *path)
{
    PathClaim c;
    if (path == nullptr || path[0] != '/')
        return c;
    for (int i = 0; i < kPathCount; ++i) {
        if (std::strcmp(path, kPaths[i].path) != 0)
            continue;
        if (state_dir().empty())
            return c;
        c.kind = kPaths[i].kind;
        c.id = i;
        if (c.kind == Claim::Proc)
            c.redirect = path + 1;  // "proc/..." relative to the state directory
        return c;
    }
    return c;
}

const char *claim_name(int id)
{
    return (id >= 0 && id < kPathCount) ? kPaths[id].path : "?";
}

bool claim_is_node(int id)
{
    return id >= 0 && id < kPathCount && kPaths[id].kind == Claim::Node;
}

void fd_track(int fd, int id)
{
    if (fd < 0 || fd >= kMaxFd)
        return;
    int saved = errno;
    g_fds[fd].ino.store(inode_of(fd));
    g_fds[fd].tag.store(static_cast<int16_t>(id + 1));
    errno = saved;
}

int fd_untrack(int fd)
{
    if (fd < 0 || fd >= kMaxFd)
        return -1;
    int id = g_fds[fd].tag.exchange(0) - 1;
    if (id < 0)
        return -1;
    int saved = errno;
    bool same = inode_of(fd) == g_fds[fd].ino.load();
    errno = saved;
    return same ? id : -1;
}

int fd_lookup(int fd)
{
    if (fd < 0 || fd >= kMaxFd)
        return -1;
    int id = g_fds[fd].tag.load() - 1;
    if (id < 0)
        return -1;
    int saved = errno;
    bool same = inode_of(fd) == g_fds[fd].ino.load();
    errno = saved;
    return same ? id : -1;
}

}  // namespace bsim
