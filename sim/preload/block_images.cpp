// Block images: the board's disks and USB stick partitions are image files of
// the state, block/<name>, shown as /dev/<name>. Opening /dev/<name> opens the
// state's image (never a device of this PC, in the box or outside it). Like
// a block device the image keeps its size: O_TRUNC is ignored, a seek past
// the end fails with EINVAL and a write stops at the end (a short write, and
// ENOSPC at the end itself). "write./dev/<name>" and "read./dev/<name>" in
// fail/ make writes and reads fail (a disk with bad sectors).
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

std::string image_of(const char *path)
{
    return "block/" + std::string(path + 5);
}

off_t image_size(int fd)
{
    struct stat st {};
    return sys::fstat(fd, &st) == 0 ? st.st_size : -1;
}

// The injected result of a read or write, journaled, if one is due.
bool injected(const char *op, const char *path, size_t len, ssize_t &ret)
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

ssize_t block_image_write(const char *path, int fd, const void *buf, size_t len)
{
    ssize_t ret = 0;
    if (injected("write", path, len, ret))
        return ret;
    off_t size = image_size(fd);
    off_t pos = sys::lseek(fd, 0, SEEK_CUR);
    if (size >= 0 && pos >= size) {
        errno = ENOSPC;
        return -1;
    }
    size_t room = size >= 0 && pos >= 0 ? static_cast<size_t>(size - pos) : len;
    return sys::write(fd, buf, len < room ? len : room);
}

ssize_t block_image_read(const char *path, int fd, void *buf, size_t len)
{
    ssize_t ret = 0;
    return injected("read", path, len, ret) ? ret : sys::read(fd, buf, len);
}

}  // namespace bsim
