// Block images: the board's disks and USB stick partitions are image files of
// the state, block/<name>, shown as /dev/<name>. Opening /dev/<name> opens the
// state's image (never a device of this PC, in the box or outside it). Like
// a block device the image keeps its size: O_TRUNC is ignored, a seek past
// the end fails with EINVAL and a write stops at the end (a short write, and
// ENOSPC at the end itself). Sectors listed in badsectors/<name> (512-byte
// sector numbers) cannot be read, as a medium error; other faulted reads and
// writes are decided with the other kinds' in board.cpp.
//
// A quick prefix (state file quick/<name>: a sector count, read at the open)
// lets a test reach the far sectors of a large disk without paying for the
// near ones: those sectors read as zeros whatever the image holds, what is
// written there stays in the writing process's memory (a sector written back
// to zeros is forgotten), they are never journaled or faulted. A
// transfer across the prefix's end stops there (a short transfer).
#include "../common/fault.h"
#include "../common/journal.h"
#include "../common/state.h"
#include "../common/sys.h"
#include "kinds.h"
#include "real.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace bsim {

namespace {

std::string image_of(const char *path)
{
    return "block/" + std::string(path + 5);
}

off_t image_size(int fd)
{
    struct stat st {};
    return sys::fstat(fd, &st) == 0 ? st.st_size : -1;
}

constexpr off_t kSector = 512;

struct Quick {
    off_t limit = 0;  // the prefix, in bytes
    off_t size = 0;   // an image keeps its size: no fstat per seek
    off_t pos = -1;   // the position while it lies in the prefix, else -1
    std::map<off_t, std::array<unsigned char, kSector>> kept;  // sectors not zero
};

std::mutex g_quickLock;
std::unordered_map<int, Quick> g_quick;
std::atomic<bool> g_anyQuick{false};

// Copies between buf and the prefix's sectors from q.pos on; the count.
size_t quick_copy(Quick &q, void *buf, size_t len, bool writing)
{
    size_t n = static_cast<size_t>(std::min<off_t>(static_cast<off_t>(len), q.limit - q.pos));
    auto *bytes = static_cast<unsigned char *>(buf);
    for (size_t done = 0; done < n;) {
        off_t at = q.pos + static_cast<off_t>(done);
        size_t in = static_cast<size_t>(at % kSector);
        size_t k = std::min(static_cast<size_t>(kSector) - in, n - done);
        auto it = q.kept.find(at / kSector);
        if (writing) {
            auto &sector = it != q.kept.end() ? it->second : q.kept[at / kSector];
            std::memcpy(sector.data() + in, bytes + done, k);
            if (std::all_of(sector.begin(), sector.end(), [](unsigned char b) { return b == 0; }))
                q.kept.erase(at / kSector);
        } else if (it != q.kept.end()) {
            std::memcpy(bytes + done, it->second.data() + in, k);
        } else {
            std::memset(bytes + done, 0, k);
        }
        done += k;
    }
    return n;
}

// Moves fd to `to`: in the prefix only in our books, beyond it for real.
off_t place(int fd, off_t to)
{
    {
        std::lock_guard<std::mutex> hold(g_quickLock);
        auto it = g_quick.find(fd);
        if (it != g_quick.end()) {
            it->second.pos = to < it->second.limit ? to : -1;
            if (to < it->second.limit)
                return to;
        }
    }
    return sys::lseek(fd, to, SEEK_SET);
}

// The size and position of an image's descriptor, the prefix's if it has one.
void size_and_position(int fd, int whence, off_t &size, off_t &pos)
{
    {
        std::lock_guard<std::mutex> hold(g_quickLock);
        auto it = g_quick.find(fd);
        if (it != g_quick.end()) {
            size = it->second.size;
            pos = it->second.pos;
        }
    }
    if (size < 0)
        size = image_size(fd);
    if (pos < 0 && whence == SEEK_CUR)
        pos = sys::lseek(fd, 0, SEEK_CUR);
}

}  // namespace

bool block_quick_transfer(int fd, void *buf, size_t len, bool writing, ssize_t &rc)
{
    if (!g_anyQuick.load())
        return false;
    std::lock_guard<std::mutex> hold(g_quickLock);
    auto it = g_quick.find(fd);
    if (it == g_quick.end() || it->second.pos < 0)
        return false;
    Quick &q = it->second;
    size_t n = quick_copy(q, buf, len, writing);
    rc = static_cast<ssize_t>(n);
    q.pos += static_cast<off_t>(n);
    if (q.pos == q.limit) {
        q.pos = -1;
        sys::lseek(fd, q.limit, SEEK_SET);
    }
    return true;
}

void block_image_forget(int fd)
{
    if (!g_anyQuick.load())
        return;
    std::lock_guard<std::mutex> hold(g_quickLock);
    g_quick.erase(fd);
}

bool block_image(const char *path)
{
    std::string_view p(path);
    return p.starts_with("/dev/") && p.size() > 5 && p.find('/', 5) == std::string_view::npos &&
           state_has_file(image_of(path));
}

int block_image_open(const char *path, int flags, mode_t mode)
{
    int fd = real().open(state_path(image_of(path)).c_str(), flags & ~(O_TRUNC | O_CREAT), mode);
    int64_t sectors = fd < 0 ? 0 : state_num("quick/" + std::string(path + 5), 0);
    block_image_forget(fd);
    if (sectors > 0) {
        off_t size = image_size(fd);
        std::lock_guard<std::mutex> hold(g_quickLock);
        g_quick[fd] = Quick{std::min(static_cast<off_t>(sectors) * kSector, size), size};
        g_anyQuick.store(true);
    }
    return fd;
}

off_t block_image_seek(int fd, off_t off, int whence)
{
    off_t size = -1;
    off_t pos = -1;
    size_and_position(fd, whence, size, pos);
    off_t base = whence == SEEK_SET ? 0 : whence == SEEK_END ? size : pos;
    if (size < 0 || base < 0 || (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) ||
        off > size - base || base + off < 0) {
        errno = EINVAL;
        return -1;
    }
    return place(fd, base + off);
}

ssize_t block_image_write(int fd, const void *buf, size_t len)
{
    off_t size = image_size(fd);
    off_t pos = sys::lseek(fd, 0, SEEK_CUR);
    if (size >= 0 && pos >= size) {
        errno = ENOSPC;
        return -1;
    }
    size_t room = size >= 0 && pos >= 0 ? static_cast<size_t>(size - pos) : len;
    return sys::write(fd, buf, len < room ? len : room);
}

bool block_image_unreadable(int fd, const char *path, size_t len)
{
    auto bad = state_read("badsectors/" + std::string(path + 5));
    off_t pos = bad ? sys::lseek(fd, 0, SEEK_CUR) : -1;
    if (pos < 0 || len == 0)
        return false;
    off_t first = pos / kSector, last = (pos + static_cast<off_t>(len) - 1) / kSector;
    for (const std::string &word : split_words(*bad)) {
        int64_t sector = 0;
        if (parse_num(word, sector) && sector >= first && sector <= last) {
            JournalLine line("read", path);
            line.num("len", static_cast<int64_t>(len));
            line.num("sector", sector);
            line.finish(-1, EIO);
            errno = EIO;
            return true;
        }
    }
    return false;
}

}  // namespace bsim
