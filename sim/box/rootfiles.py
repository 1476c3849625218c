"""The files of the board's root, laid out in one process (a fork and exec
for each of the few hundred would cost the box most of its start): the
directories, BusyBox's applet links, the stand-ins and the box's own tools,
and the names in /dev. mkroot then mounts what comes from elsewhere.

    rootfiles.py ROOT BOXDIR STATE BUILD... TOOL_BUILD
"""
import os
import shutil
import subprocess
import sys

DIRS = ('bin', 'sbin', 'dev/pts', 'dev/shm', 'proc', 'sys', 'tmp', 'var/run', 'var/log', 'var/tmp',
        'var/runtime', 'run/boardsim', 'root', 'mnt', 'usr', 'etc', 'boardsim',
        'update')
STICKY = ('tmp', 'var/tmp', 'dev/shm')
HOST_NODES = ('null', 'zero', 'full', 'random', 'urandom', 'tty')
# The box's own tools, from sim/box, where the board keeps them. mount and
# umount hand FAT sticks to FUSE (fatfs.py).
TOOLS = {'update': 'bin/update', 'x4tox2': 'bin/x4tox2', 'fullupgrade': 'update/fullupgrade',
         'mount': 'bin/mount', 'fatfs.py': 'bin/fatfs.py', 'emulate': 'run/boardsim/emulate'}
TOOLS_TWICE = {'mount': 'bin/umount'}
EM_AARCH64 = 183


def touch(path):
    open(path, 'a').close()


def install(src, dest):
    # A file of the same name (a BusyBox link) gives way.
    if os.path.lexists(dest):
        os.unlink(dest)
    shutil.copy(src, dest)


def script_names(script):
    with open(script) as text:
        for line in text:
            if line.startswith('#   names: '):
                return line.split()[2:]
    return []


def applets(root):
    listing = subprocess.run(['busybox', '--list-full'], check=True, capture_output=True, text=True)
    shutil.copy(shutil.which('busybox'), f'{root}/bin/busybox')
    for path in listing.stdout.split():
        where = 'sbin' if path.startswith(('sbin/', 'usr/sbin/')) else 'bin'
        link = f'{root}/{where}/{os.path.basename(path)}'
        if not os.path.lexists(link):
            os.symlink('/bin/busybox', link)


def tools(root, boxdir):
    # Stand-ins, and the applets that tests make fail, replace the applet of
    # the same name, or sit in /bin.
    for script in ('standin', 'faultable'):
        for name in script_names(f'{boxdir}/{script}'):
            where = 'sbin' if os.path.islink(f'{root}/sbin/{name}') else 'bin'
            install(f'{boxdir}/{script}', f'{root}/{where}/{name}')
    for table in (TOOLS, TOOLS_TWICE):
        for name, dest in table.items():
            install(f'{boxdir}/{name}', f'{root}/{dest}')


def cli(root, tool_build):
    """cli on the shell's PATH, as on the board; the board's aarch64 build
    runs under qemu-user (the box has no binfmt handlers)."""
    tool = f'{tool_build}/cli'
    if not os.path.isfile(tool):
        return
    with open(tool, 'rb') as prog:
        head = prog.read(20)
    if os.uname().machine == 'aarch64' or int.from_bytes(head[18:20], 'little') != EM_AARCH64:
        os.symlink(tool, f'{root}/bin/cli')
        return
    with open(f'{root}/bin/cli', 'w') as script:
        script.write(f'#!/bin/sh\nexec /{TOOLS["emulate"]} {tool} "$@"\n')
    os.chmod(f'{root}/bin/cli', 0o755)


def dev(root, state):
    # Names only: mkroot binds the host's harmless nodes over them, and the
    # preload answers the board's (the state's dev/).
    names = list(HOST_NODES) + (['fuse'] if os.path.exists('/dev/fuse') else [])
    boards = os.path.join(state, 'dev')
    if os.path.isdir(boards):
        names += [n for n in os.listdir(boards) if os.path.isfile(os.path.join(boards, n))]
    for name in names:
        touch(f'{root}/dev/{name}')
    links = {'ptmx': 'pts/ptmx', 'fd': '/proc/self/fd', 'stdin': '/proc/self/fd/0',
             'stdout': '/proc/self/fd/1', 'stderr': '/proc/self/fd/2'}
    for name, target in links.items():
        os.symlink(target, f'{root}/dev/{name}')


def dirs(root, builds):
    for d in DIRS:
        os.makedirs(f'{root}/{d}', exist_ok=True)
    for d in STICKY:
        os.chmod(f'{root}/{d}', 0o1777)
    # The host's libraries at their own paths: a link stays a link, a
    # directory is a mount point.
    for d in ('/lib', '/lib32', '/lib64', '/libx32'):
        if os.path.islink(d):
            os.symlink(os.readlink(d), root + d)
        elif os.path.isdir(d):
            os.makedirs(root + d)
    for build in builds:
        os.makedirs(root + build, exist_ok=True)


def main(root, boxdir, state, *builds):
    dirs(root, builds)
    applets(root)
    tools(root, boxdir)
    cli(root, builds[-1])
    dev(root, state)
    return 0


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
