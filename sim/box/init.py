"""PID 1 of the board: starts the program in the box's root, passes on the
signals the launcher forwards, reaps orphans, and records how the program
ended (exit status or signal) for the launcher. The program itself must not
be PID 1: the kernel drops the signals an init raises on itself, so a tool
that dies by re-raising a fatal signal would live on.

    init.py PROG ARGS...   (environment: BOX_ROOT BOX_RUN BOX_STATE BOX_CLOCK
                            BOX_PRELOAD, set by the board script)
"""
import ctypes
import os
import signal
import subprocess
import sys
import time

STATE_IN_BOX = '/boardsim'
# Capabilities whose reach is the host, whatever the namespaces: the clock,
# kernel modules, raw I/O, reboot, device nodes (so no host disk node can be
# made in the private /dev).
DROPPED_CAPS = (25, 16, 17, 22, 27)
PR_CAPBSET_DROP = 24
FORWARDED = (signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGQUIT)
EM_AARCH64 = 183
# Programs of the board's processor run under qemu-user (mkroot puts the runner
# there), never through the host's binfmt handlers.
EMULATE = '/run/boardsim/emulate'


def host_pid():
    # /proc here is still the host's, so "self" names us as the host sees us.
    with open('/proc/self/stat') as stat:
        return int(stat.read().split()[0])


def asan_options():
    # A sanitized tool finds the preload ahead of the ASan runtime.
    options = os.environ.get('ASAN_OPTIONS', '')
    if 'verify_asan_link_order' not in options:
        options = ':'.join(filter(None, [options, 'verify_asan_link_order=0']))
    return options


def box_env():
    env = {
        'PATH': '/bin:/sbin:/usr/bin:/usr/sbin',
        'HOME': '/root',
        'TERM': os.environ.get('TERM', 'vt100'),
        'BOARDSIM_STATE': STATE_IN_BOX,
        'LD_PRELOAD': os.environ['BOX_PRELOAD'],
        'ASAN_OPTIONS': asan_options(),
    }
    for name in ('BOARDSIM_DEBUG', 'UBSAN_OPTIONS', 'LSAN_OPTIONS'):
        if name in os.environ:
            env[name] = os.environ[name]
    if os.environ.get('BOX_CLOCK'):
        # The box's own clock: the time library reads its offset (and, with
        # --fast, its speed of twenty) from a file that setting the time
        # rewrites; sleeps and monotonic clocks keep the same proportions.
        # ping and tftp keep real time: their packets meet a real peer. ping's
        # one-second alarm scaled down to whole seconds would be no alarm at
        # all, and a fast tftp repeats its write request before the server
        # answers, so a second server process truncates the upload.
        env.update(FAKETIME_TIMESTAMP_FILE=os.environ['BOX_CLOCK'], FAKETIME_DONT_RESET='1',
                   DONT_FAKE_MONOTONIC='0', FAKETIME_NO_CACHE='1', FAKETIME_SKIP_CMDS='ping,tftp')
    return env


def for_board(path):
    # Called after the chroot; a program not found is left for execvpe to report.
    try:
        with open(path, 'rb') as prog:
            head = prog.read(20)
    except OSError:
        return False
    return head[:4] == b'\x7fELF' and int.from_bytes(head[18:20], 'little') == EM_AARCH64


def start(argv):
    libc = ctypes.CDLL(None, use_errno=True)
    pid = os.fork()
    if pid:
        return pid
    try:
        for sig in FORWARDED:
            signal.signal(sig, signal.SIG_DFL)
        for cap in DROPPED_CAPS:
            libc.prctl(PR_CAPBSET_DROP, cap, 0, 0, 0)
        os.chroot(os.environ['BOX_ROOT'])
        os.chdir('/')
        if os.uname().machine != 'aarch64' and for_board(argv[0]):
            argv = [EMULATE] + argv
        os.execvpe(argv[0], argv, box_env())
    except OSError as err:
        print(f'boardsim: {argv[0]}: {err.strerror}', file=sys.stderr)
        os._exit(127)


def unmount_fuse():
    """FUSE mounts still standing are unmounted before the box ends, and
    their programs waited for, so that every image is complete."""
    root = os.environ['BOX_ROOT']
    records = os.path.join(root, 'run', 'boxmounts')
    for name in os.listdir(records) if os.path.isdir(records) else []:
        with open(os.path.join(records, name)) as record:
            pid, target = record.read().split()
        subprocess.run(['umount', root + target], stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline:
            try:
                if os.waitpid(int(pid), os.WNOHANG)[0]:
                    break
            except ChildProcessError:
                break
            time.sleep(0.01)


def main(argv):
    run = os.environ['BOX_RUN']
    with open(os.path.join(run, 'init.pid'), 'w') as out:
        out.write(f'{host_pid()}\n')
    child = 0
    pending = []

    def forward(sig, _frame):
        if child:
            os.kill(child, sig)
        else:
            pending.append(sig)

    for sig in FORWARDED:
        signal.signal(sig, forward)
    child = start(argv)
    for sig in pending:
        os.kill(child, sig)
    while True:
        try:
            pid, status = os.waitpid(-1, 0)
        except ChildProcessError:
            return 1
        if pid == child:
            break
    unmount_fuse()
    if os.WIFSIGNALED(status):
        ended, code = f'signal {os.WTERMSIG(status)}', 128 + os.WTERMSIG(status)
    else:
        code = os.waitstatus_to_exitcode(status)
        ended = f'exit {code}'
    with open(os.path.join(run, 'status'), 'w') as out:
        out.write(ended + '\n')
    return code


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
