// What belongs to the board, the descriptor table, and the journal of opens
// and closes. A tracked descriptor also remembers its inode, so a number
// reused behind our back (dup2, close_range) is not mistaken for the board's.
#include "board.h"

#include "../common/fault.h"
#include "../common/journal.h"
#include "../common/state.h"
#include "../common/sys.h"
#include "real.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <sys/mman.h>

namespace bsim {

namespace {

constexpr int kMaxFd = 1 << 16;

struct Slot {
    std::atomic<const char *> path;  // null: not ours
    std::atomic<const NodeTable *> node;
    std::atomic<uint64_t> ino;
    std::atomic<bool> line;   // a serial line, watched only
    std::atomic<bool> block;  // a disk or stick image
};
Slot g_fds[kMaxFd];

// Board file paths are kept for the life of the process, so that a slot can
// hold a plain pointer; there are only as many as the state has files.
std::mutex g_namesLock;
std::atomic<const char *> g_names[1024];

const char *intern(const char *path)
{
    std::lock_guard<std::mutex> hold(g_namesLock);
    for (auto &slot : g_names) {
        const char *name = slot.load();
        if (name == nullptr) {
            char *copy = new char[std::strlen(path) + 1];
            std::strcpy(copy, path);
            slot.store(copy);
            return copy;
        }
        if (std::strcmp(name, path) == 0)
            return name;
    }
    return nullptr;  // full: the path is left to the system
}

uint64_t inode_of(int fd)
{
    int saved = errno;
    struct stat st {};
    uint64_t ino = sys::fstat(fd, &st) == 0
                       ? (static_cast<uint64_t>(st.st_dev) << 40) ^ static_cast<uint64_t>(st.st_ino)
                       : 0;
    errno = saved;
    return ino;
}

void track(int fd, const Claim &c)
{
    if (fd < 0 || fd >= kMaxFd)
        return;
    g_fds[fd].ino.store(inode_of(fd));
    g_fds[fd].node.store(c.node);
    g_fds[fd].line.store(c.kind == Backing::Line);
    g_fds[fd].block.store(c.kind == Backing::Block);
    g_fds[fd].path.store(c.path);
}

// The slot of fd if it is still the descriptor we opened, else null.
Slot *lookup(int fd)
{
    if (fd < 0 || fd >= kMaxFd || g_fds[fd].path.load() == nullptr)
        return nullptr;
    return inode_of(fd) == g_fds[fd].ino.load() ? &g_fds[fd] : nullptr;
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

// Journals an open whose outcome is fd (or -1 with err); "opt" is flags=
// for open and mode= for fopen.
void journal_open(const Claim &c, int fd, int err, const char *opt, const std::string &how)
{
    JournalLine line("open", c.path);
    if (fd >= 0)
        line.num("fd", fd);
    line.word(opt, how);
    line.finish(fd, fd < 0 ? err : 0);
    debug([&] { return std::string("open ") + c.path + " -> fd " + std::to_string(fd); });
}

// An injected failure of the open itself, journaled; errno is set.
bool open_fails(const Claim &c, const char *opt, const std::string &how)
{
    Fault f;
    if (!fault_check(std::string("open.") + c.path, f))
        return false;
    journal_open(c, -1, f.err, opt, how);
    errno = f.err;
    return true;
}

}  // namespace

Claim claim_path(const char *path)
{
    Claim c;
    if (path == nullptr || path[0] != '/')
        return c;
    int saved = errno;
    if (const NodeTable *node = request_node(path)) {
        if (!state_dir().empty() && state_has_file(path + 1))
            c = Claim{Backing::Node, node->path, node};
    } else if (!state_dir().empty() && serial_line(path)) {
        if (const char *name = intern(path))
            c = Claim{Backing::Line, name, nullptr};
    } else if (!state_dir().empty() && block_image(path)) {
        if (const char *name = intern(path))
            c = Claim{Backing::Block, name, nullptr};
    } else if (!state_dir().empty() && plain_file(path)) {
        if (const char *name = intern(path))
            c = Claim{Backing::File, name, nullptr};
    }
    errno = saved;
    return c;
}

int board_open(const Claim &c, int flags, mode_t mode)
{
    int saved = errno;
    std::string how = flags_text(flags);
    if (open_fails(c, "flags", how))
        return -1;
    int fd = c.node                     ? request_node_open(*c.node, flags)
             : c.kind == Backing::Line  ? real().open(c.path, flags, mode)
             : c.kind == Backing::Block ? block_image_open(c.path, flags, mode)
                                        : plain_file_open(c.path, flags, mode);
    int err = errno;
    track(fd, c);
    journal_open(c, fd, err, "flags", how);
    errno = fd < 0 ? err : saved;
    return fd;
}

FILE *board_fopen(const Claim &c, const char *mode)
{
    int saved = errno;
    if (open_fails(c, "mode", mode))
        return nullptr;
    FILE *fp = nullptr;
    if (c.node) {
        int fd = request_node_open(*c.node, O_RDWR);
        fp = fd >= 0 ? fdopen(fd, mode) : nullptr;
        if (fd >= 0 && fp == nullptr)
            sys::close(fd);
    } else if (c.kind == Backing::Line) {
        fp = real().fopen(c.path, mode);
    } else {
        fp = plain_file_fopen(c.path, mode);
    }
    int err = errno;
    int fd = fp ? fileno(fp) : -1;
    track(fd, c);
    journal_open(c, fd, err, "mode", mode);
    errno = fp ? saved : err;
    return fp;
}

int board_access(const Claim &c, int how)
{
    if (c.kind == Backing::Block)
        return real().access(state_path("block/" + std::string(c.path + 5)).c_str(), how);
    if (c.kind == Backing::Line)
        return real().access(c.path, how);
    return c.node ? 0 : plain_file_access(c.path, how);  // a node is read-write for all
}

const char *board_forget(int fd)
{
    if (fd < 0 || fd >= kMaxFd)
        return nullptr;
    const char *path = g_fds[fd].path.exchange(nullptr);
    return path && inode_of(fd) == g_fds[fd].ino.load() ? path : nullptr;
}

void board_closed(const char *path, int fd, int rc)
{
    int saved = errno;
    JournalLine line("close", path);
    line.num("fd", fd);
    line.finish(rc, rc ? saved : 0);
    debug([&] { return std::string("close ") + path + " fd " + std::to_string(fd); });
    errno = saved;
}

const NodeTable *board_node(int fd)
{
    Slot *s = lookup(fd);
    return s ? s->node.load() : nullptr;
}

const char *board_block(int fd)
{
    Slot *s = lookup(fd);
    return s && s->block.load() ? s->path.load() : nullptr;
}

const char *board_line(int fd)
{
    Slot *s = lookup(fd);
    return s && s->line.load() ? s->path.load() : nullptr;
}

int board_ioctl(const NodeTable &node, int fd, unsigned long req, void *arg)
{
    int saved = errno;
    int err = 0;
    long rc = request_node_ioctl(node, req, arg, err);
    debug([&] {
        return std::string("ioctl ") + node.path + " fd " + std::to_string(fd) + " -> " +
               std::to_string(rc);
    });
    errno = rc != 0 ? err : saved;
    return static_cast<int>(rc);
}

bool board_net_request(unsigned long req)
{
    return net_request(req) && !state_dir().empty();
}

int board_net_ioctl(int fd, unsigned long req, void *arg)
{
    int saved = errno;
    int err = 0;
    long rc = net_request_ioctl(req, arg, err);
    debug([&] { return "ioctl net fd " + std::to_string(fd) + " -> " + std::to_string(rc); });
    errno = rc != 0 ? err : saved;
    return static_cast<int>(rc);
}

bool board_socket_fails(int domain, int type, int &err)
{
    Fault f;
    if (!fault_check("socket." + std::to_string(domain), f))
        return false;
    JournalLine line("socket", std::to_string(domain));
    line.num("type", type);
    line.finish(-1, f.err);
    err = f.err;
    return true;
}

bool board_transfer_fails(const char *op, const char *path, size_t len, ssize_t &ret)
{
    Fault f;
    if (!fault_check(std::string(op) + "." + path, f))
        return false;
    JournalLine line(op, path);
    line.num("len", static_cast<int64_t>(len));
    line.finish(f.ret, f.err);
    errno = f.err;
    ret = f.ret;
    return true;
}

void board_passed(const char *what, const char *path)
{
    if (!debug_enabled() || path == nullptr)
        return;
    if (std::strncmp(path, "/dev/", 5) == 0 || std::strncmp(path, "/proc/", 6) == 0)
        debug_line(std::string(what) + " " + path + ": passed through");
}

}  // namespace bsim
