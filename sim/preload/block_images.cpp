// Block images: the board's disks and USB stick partitions are image files of
// the state, block/<name>, shown as /dev/<name>. Opening /dev/<name> opens the
// state's image (never a device of this PC, in the box or outside it). Like
// a block device the image keeps its size: O_TRUNC is ignored, a seek past
// the end fails with EINVAL and a write stops at the end (a short write, and
// ENOSPC at the end itself). Sectors listed in badsectors/<name> (512-byte
// sector numbers) cannot be read, as a medium error; other faulted reads and
// writes are decided with the other kinds' in board.cpp.
#include "../common/fault.h"
#include "../common/journal.h"
#include "../common/state.h"
#include "../common/sys.h"
#include "kinds.h"
#include "real.h"

#include <cerrno>
#include <string>
#include <string_view>

namespace bsim {

namespace {

constexpr off_t kSector = 512;

std::string image_of(const char *path)
{
    return "block/" + std::string(path + 5);
}

off_t image_size(int fd)
{
    struct stat st {};
    return sys::fstat(fd, &st) == 0 ? st.st_size : -1;
}

}  // namespace

bool block_image(const char *path)
{
    std::string_view p(path);
    return p.starts_with("/dev/") && p.size() > 5 && p.find('/', 5) == std::string_view::npos &&
           state_has_file(image_of(path));
}

int block_image_open(const char *path, int flags, mode_t mode)
{
    return real().open(state_path(image_of(path)).c_str(), flags & ~(O_TRUNC | O_CREAT), mode);
}

off_t block_image_seek(int fd, off_t off, int whence)
{
    off_t size = image_size(fd);
    off_t base = whence == SEEK_SET ? 0 : whence == SEEK_END ? size : sys::lseek(fd, 0, SEEK_CUR);
    if (size < 0 || base < 0 || (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) ||
        off > size - base || base + off < 0) {
        errno = EINVAL;
        return -1;
    }
    return sys::lseek(fd, base + off, SEEK_SET);
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
