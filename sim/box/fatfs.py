#!/usr/bin/python3
"""fatfs.py IMAGE DIR: the FAT file system of IMAGE on DIR (FUSE, foreground).
mtools makes every change; open files live in memory until flush, fsync or
release. mtools reaches the image, opened once, through /proc/self/fd, so the
board's journal shows the one open a kernel mount makes."""
import errno
import os
import re
import stat
import subprocess
import sys
import tempfile
import time

# fusepy looks for libfuse with ldconfig, which the box's /sbin lacks.
os.environ.setdefault('FUSE_LIBRARY_PATH', 'libfuse.so.2')
from fusepy import FUSE, FuseOSError, Operations  # noqa: E402

# The kernel mounts FAT file systems whose geometry mtools' sanity check refuses.
ENV = dict(os.environ, MTOOLS_SKIP_CHECK='1')
# mdir's lines: 8.3 name, size or <DIR>, date, time, long name if any.
ENTRY = re.compile(r'(.{8}) (.{3}) +(<DIR>|\d+) +(\d{4}-\d\d-\d\d) +(\d+:\d\d) ?(?: (.+))?$')


class File:
    def __init__(self, data):
        self.data, self.dirty, self.users = bytearray(data), False, 0


class FatFs(Operations):
    def __init__(self, fd):
        self.fd, self.image, self.size = fd, f'/proc/self/fd/{fd}', os.fstat(fd).st_size
        self.listings = {}  # directory -> {lower-case name: (name, is dir, size, mtime)}
        self.files = {}  # path -> File, while open

    def mtools(self, *args, fail=errno.EIO):
        run = subprocess.run([args[0], '-i', self.image, *args[1:]], env=ENV,
                             capture_output=True, pass_fds=(self.fd,))
        if args[0] not in ('mdir', 'mtype'):
            self.listings.clear()  # even a failed change may have changed the image
        if run.returncode:
            raise FuseOSError(errno.ENOSPC if b'Disk full' in run.stderr else
                              errno.ENOENT if b'not found' in run.stderr else fail)
        return run.stdout

    def listing(self, path):
        if path not in self.listings:
            entries = {}
            listed = self.mtools('mdir', '-a', '-f', '::' + path)
            for line in listed.decode(errors='replace').splitlines():
                m = ENTRY.match(line)
                if not m or m[1].strip() in ('.', '..'):
                    continue
                name = m[6] or m[1].rstrip() + ('.' + m[2].rstrip() if m[2].strip() else '')
                mtime = time.mktime(time.strptime(m[4] + m[5], '%Y-%m-%d%H:%M'))
                size = int(m[3]) if m[3].isdigit() else 0
                entries[name.lower()] = (name, m[3] == '<DIR>', size, mtime)
            self.listings[path] = entries
        return self.listings[path]

    def lookup(self, path):
        return self.listing(os.path.dirname(path)).get(os.path.basename(path).lower())

    def entry(self, path):
        found = self.lookup(path)
        if not found:
            raise FuseOSError(errno.ENOENT)
        return found

    def getattr(self, path, fh=None):
        if path == '/':
            return dict(st_mode=stat.S_IFDIR | 0o755, st_nlink=2)
        _, is_dir, size, mtime = self.entry(path)
        size = len(self.files[path].data) if path in self.files else size
        mode = stat.S_IFDIR | 0o755 if is_dir else stat.S_IFREG | 0o644
        return dict(st_mode=mode, st_nlink=1, st_size=size, st_mtime=mtime, st_atime=mtime,
                    st_ctime=mtime)

    def readdir(self, path, fh):
        return ['.', '..'] + [e[0] for e in self.listing(path).values()]

    def load(self, path):
        if self.entry(path)[1]:
            raise FuseOSError(errno.EISDIR)
        return self.files.get(path) or File(self.mtools('mtype', '::' + path))

    def store(self, path, data, mtime=None):
        with tempfile.NamedTemporaryFile() as tmp:
            tmp.write(data)
            tmp.flush()
            if mtime is not None:
                os.utime(tmp.name, (mtime, mtime))
            self.mtools('mcopy', '-o', *(['-m'] if mtime is not None else []), tmp.name, '::' + path)

    def open(self, path, flags):
        f = self.files[path] = self.load(path)
        f.users += 1
        return 0

    def create(self, path, mode, fi=None):
        self.store(path, b'')
        return self.open(path, os.O_RDWR)

    def read(self, path, size, offset, fh):
        return bytes(self.files[path].data[offset:offset + size])

    def write(self, path, data, offset, fh):
        f = self.files[path]
        # The kernel's FAT takes the clusters at the write: a full stick fails
        # it. What the image holds of the file already counts as taken.
        end = offset + len(data)
        if end > len(f.data) and end - self.entry(path)[2] > self.free():
            raise FuseOSError(errno.ENOSPC)
        f.data.extend(bytes(max(0, offset - len(f.data))))
        f.data[offset:offset + len(data)] = data
        f.dirty = True
        return len(data)

    def truncate(self, path, length, fh=None):
        f = self.load(path)
        del f.data[length:]
        f.data.extend(bytes(length - len(f.data)))
        f.dirty = True
        if not f.users:
            self.store(path, f.data)

    def flush(self, path, *_):
        f = self.files.get(path)
        if f and f.dirty:
            self.store(path, f.data)
            f.dirty = False

    fsync = flush

    def release(self, path, fh):
        self.flush(path)
        f = self.files[path]
        f.users -= 1
        if not f.users:
            del self.files[path]

    def utimens(self, path, times=None):
        # mtools sets no time of its own, but mcopy -m keeps the source's.
        if not self.entry(path)[1]:
            f = self.load(path)
            self.store(path, f.data, (times or (0, time.time()))[1])
            f.dirty = False

    def unlink(self, path):
        self.mtools('mdel', '::' + path)
        self.files.pop(path, None)

    def mkdir(self, path, mode):
        self.mtools('mmd', '::' + path)

    def rmdir(self, path):
        self.mtools('mrd', '::' + path, fail=errno.ENOTEMPTY)

    def rename(self, old, new):
        target = self.lookup(new)
        if target:
            self.mtools('mrd' if target[1] else 'mdel', '::' + new, fail=errno.ENOTEMPTY)
        try:
            self.mtools('mmove', '::' + old, '::' + new)
        except FuseOSError:
            # mtools 4.0.32's mmove aborts on a few renames within a directory
            # (the only entry of the root to a long name): copy a file instead.
            _, is_dir, _, mtime = self.entry(old)
            if is_dir:
                raise
            self.store(new, self.mtools('mtype', '::' + old), mtime)
            self.mtools('mdel', '::' + old)
        for p in [p for p in self.files if p == old or p.startswith(old + '/')]:
            self.files[new + p[len(old):]] = self.files.pop(p)

    def free(self):
        found = re.search(rb'([\d ]+) bytes free', self.mtools('mdir', '::/'))
        return int(found[1].replace(b' ', b''))

    def statfs(self, path):
        blocks = self.free() // 512
        return dict(f_bsize=512, f_frsize=512, f_blocks=self.size // 512, f_bfree=blocks,
                    f_bavail=blocks, f_namemax=255)


def main(source, mountpoint):
    try:
        fs = FatFs(os.open(source, os.O_RDWR))
        fs.listing('/')
    except OSError as e:
        sys.exit(f'fatfs.py: {source}: no FAT file system to serve ({e.strerror})')
    FUSE(fs, mountpoint, foreground=True, nothreads=True, fsname=source)


if __name__ == '__main__':
    main(*sys.argv[1:])
