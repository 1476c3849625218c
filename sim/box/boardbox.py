"""Driving the tool on the simulated board (sim/boardsim) from a test: start a
box, type at its console, cut each command's output into its frame, read and
change the board's state directory, read the journal, inject faults, replay
console transcripts.

    box = Box(tmp_path / 'state', args=('-d',)).start()
    box.enter_equipment()
    frame = box.command('test led on')      # Frame(result='pass', lines=[...])
    assert box.journal(kind='ioctl', name='/dev/hal_gpio')
    assert box.quit() == 0
"""
import hashlib
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from dataclasses import dataclass, field
from pathlib import Path

import pexpect

REPO = Path(__file__).resolve().parents[2]
if str(REPO) not in sys.path:
    sys.path.insert(0, str(REPO))
# The console protocol is the harness's; tests take it from here too.
from harness.protocol import MODEL, Frame, parse_frame, prompts, undo_onlcr  # noqa: E402,F401

BOARDSIM = REPO / 'sim' / 'boardsim'
DEFAULT_STATE = REPO / 'sim' / 'default-state'
# Rows and columns of the box's terminal: wide enough that no line of the
# tool wraps.
DIMENSIONS = (50, 250)

KEYS = {
    'enter': b'\r', 'tab': b'\t', 'bs': b'\b', 'del': b'\x7f', 'esc': b'\x1b',
    'up': b'\x1b[A', 'down': b'\x1b[B', 'right': b'\x1b[C', 'left': b'\x1b[D',
    'ins': b'\x1b[2~', 'f5': b'\x1b[15~',
}
ESCAPES = {'r': b'\r', 'n': b'\n', 't': b'\t', 'b': b'\b', 'e': b'\x1b', '\\': b'\\',
           '{': b'{'}


def build_dir():
    return Path(os.environ.get('CLI_BUILD_DIR', REPO / 'build')).resolve()


def tool_build_dir():
    """The build whose cli is tested: $CLI_TOOL_BUILD_DIR (the board's aarch64
    build, run under qemu-user), else the PC's build. Everything else the
    tests run (the preload of PC programs, helpers like serial_slave) comes
    from build_dir()."""
    return Path(os.environ.get('CLI_TOOL_BUILD_DIR', build_dir())).resolve()


def console_log(child):
    """With CLI_CONSOLE_LOG set, everything the child shows is appended to
    that file (tools/msgcov reads it to see which messages a run reached).
    Each of pytest-xdist's workers keeps a file of its own (LOG.gw0, ...):
    two consoles' output in one file could split a message."""
    path = os.environ.get('CLI_CONSOLE_LOG')
    if path:
        worker = os.environ.get('PYTEST_XDIST_WORKER')
        path = f'{path}.{worker}' if worker else path
        child.logfile_read = open(path, 'ab')  # closed with the child


def tool_built():
    return (tool_build_dir() / 'cli').is_file()


EM_AARCH64 = 183


def for_board(path):
    """Whether a program is built for the board's processor (aarch64)."""
    with open(path, 'rb') as prog:
        head = prog.read(20)
    return head[:4] == b'\x7fELF' and int.from_bytes(head[18:20], 'little') == EM_AARCH64


def tool_argv(in_box=False):
    """The words that start the tool, under qemu-user when it is the board's
    build (through sim/box/emulate, which the box has in /run/boardsim)."""
    cli = tool_build_dir() / 'cli'
    if os.uname().machine == 'aarch64' or not for_board(cli):
        return [str(cli)]
    emulate = '/run/boardsim/emulate' if in_box else str(REPO / 'sim' / 'box' / 'emulate')
    return [emulate, str(cli)]


# ---- the journal ----

@dataclass
class Entry:
    """A journal line: kind (drv, open, ioctl, close, exec), name (function,
    path or program), request (int or None), fields (name -> text, quotes
    and escapes removed), args (the words without "=", e.g. an exec's
    arguments), result (int or None), errno (name or None), line (as read)."""
    kind: str
    name: str
    request: int | None
    fields: dict = field(default_factory=dict)
    args: list = field(default_factory=list)
    result: int | None = None
    errno: str | None = None
    line: str = ''

    def __getitem__(self, key):
        return self.fields[key]


TOKEN = re.compile(r'(\w+)=("(?:[^"\\]|\\.)*"|\S+)|(\S+)')


def unquote(value):
    if not value.startswith('"'):
        return value
    return (value[1:-1].encode('latin-1').decode('unicode_escape'))


def parse_journal_line(line):
    head, _, tail = line.rpartition(' -> ')
    if not head:
        head, tail = line, ''
    words = head.split(' ', 2)
    kind, name = words[0], words[1] if len(words) > 1 else ''
    rest = words[2] if len(words) > 2 else ''
    request = None
    match = re.match(r'0x[0-9a-f]+(?= |$)', rest)
    if match and kind != 'exec':
        request = int(match.group(0), 16)
        rest = rest[match.end():]
    fields, args = {}, []
    for key, value, word in TOKEN.findall(rest):
        if key:
            fields[key] = unquote(value)
        else:
            args.append(word)
    result, errno = None, None
    if tail:
        parts = tail.split()
        result = int(parts[0]) if re.fullmatch(r'-?\d+', parts[0]) else None
        for part in parts[1:]:
            if part.startswith('errno='):
                errno = part[len('errno='):]
    return Entry(kind, name, request, fields, args, result, errno, line)


# ---- the box ----

class Box:
    """A board in a box running the tool (or `run`, another program) on a
    pseudo-terminal. The state directory is kept (tests read it after the
    run); `fast` runs time twenty times faster; `scenarios` names fault
    presets of sim/scenarios the box applies over the state."""

    def __init__(self, state, *, args=('-d',), board_id=None, fast=False, run=None,
                 timeout=10, model=MODEL, env=None, scenarios=()):
        self.state = Path(state)
        self.scenarios = list(scenarios)
        self.state.mkdir(parents=True, exist_ok=True)
        self.args = list(args)
        self.board_id = board_id
        self.fast = fast
        self.run = list(run) if run else None
        self.timeout = timeout
        self.model = model
        self.env = env
        self.child = None
        self.status = None

    # -- starting and ending --

    def command_line(self):
        argv = ['--state', str(self.state)]
        if self.board_id is not None:
            argv += ['--board-id', self.board_id if isinstance(self.board_id, str)
                     else hex(self.board_id)]
        if self.fast:
            argv.append('--fast')
        for name in self.scenarios:
            argv += ['--scenario', name]
        if self.run:
            return argv + ['--run'] + self.run
        return argv + ['--'] + self.args

    def start(self):
        env = dict(os.environ, CLI_BUILD_DIR=str(build_dir()), TERM='vt100')
        env.update(self.env or {})
        self.child = pexpect.spawn(str(BOARDSIM), self.command_line(), env=env,
                                   timeout=self.timeout, dimensions=DIMENSIONS)
        console_log(self.child)
        return self

    def __enter__(self):
        return self if self.child else self.start()

    def __exit__(self, *exc):
        self.close()

    def wait(self, timeout=None):
        """Waits for the end; the exit status, or minus the signal number."""
        self.child.expect(pexpect.EOF, timeout=timeout or self.timeout)
        self.child.close()
        self.status = (self.child.exitstatus if self.child.signalstatus is None
                       else -self.child.signalstatus)
        return self.status

    def quit(self, timeout=None):
        """Leaves the tool from either mode; its exit status."""
        if self.in_equipment_mode():
            self.send('quit\r')
            self.expect_prompt()
        self.send('quit\r')
        return self.wait(timeout)

    def kill(self, sig=signal.SIGTERM):
        """A signal to the program in the box (the launcher passes it on)."""
        self.child.kill(sig)

    def close(self):
        """Ends whatever still runs: a signal first, then the whole group."""
        if self.child is None or not self.child.isalive():
            if self.child is not None:
                self.child.close()
            return
        self.child.kill(signal.SIGTERM)
        deadline = time.monotonic() + 3
        while self.child.isalive() and time.monotonic() < deadline:
            time.sleep(0.05)
        if self.child.isalive():
            try:
                os.killpg(self.child.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        self.child.close(force=True)

    # -- the console --

    def send(self, data):
        """Types text (str, latin-1) or bytes as they are."""
        self.child.send(data.encode('latin-1') if isinstance(data, str) else data)

    def key(self, *names):
        """Named keys: enter, tab, bs, del, esc, up, down, left, right, ins, f5."""
        self.child.send(b''.join(KEYS[name] for name in names))

    def expect(self, pattern, timeout=None):
        """Waits for bytes (exact) or a compiled regex; the output before them."""
        if isinstance(pattern, str):
            pattern = pattern.encode('latin-1')
        if isinstance(pattern, bytes):
            self.child.expect_exact(pattern, timeout=timeout or self.timeout)
        else:
            self.child.expect(pattern, timeout=timeout or self.timeout)
        return self.child.before

    def prompts(self):
        return prompts(self.model)

    def expect_prompt(self, timeout=None):
        """Waits for the next prompt of either mode; the output before it."""
        self.child.expect_exact(self.prompts(), timeout=timeout or self.timeout)
        self.mode = ('user', 'equipment')[self.child.match_index]
        return self.child.before

    def in_equipment_mode(self):
        return getattr(self, 'mode', None) == 'equipment'

    def ready(self, timeout=None):
        """The banner and the first prompt; the output before it."""
        return self.expect_prompt(timeout)

    def enter_equipment(self):
        if getattr(self, 'mode', None) is None:
            self.ready()
        if not self.in_equipment_mode():
            self.send('en_equipment\r')
            self.expect_prompt()
        assert self.in_equipment_mode()

    def line(self, text, timeout=None):
        """Types a line and waits for the prompt; what came between, raw (the
        echo of the line included)."""
        self.send(text + '\r')
        return self.expect_prompt(timeout)

    def command(self, text, timeout=None):
        """Runs a command line in the current mode and returns its Frame."""
        raw = self.line(text, timeout)
        echo = text.encode('latin-1')
        if raw.startswith(echo):
            raw = raw[len(echo):]
        return parse_frame(raw + b'\r\n')

    def settle(self, quiet=0.3):
        """Whatever the tool prints until it stays quiet for `quiet` seconds."""
        got = b''
        while True:
            try:
                got += self.child.read_nonblocking(4096, timeout=quiet)
            except (pexpect.TIMEOUT, pexpect.EOF):
                return got

    # -- the board's state --

    def path(self, rel):
        return self.state / rel

    def read(self, rel, default=None):
        """A state file's text (None or `default` when it does not exist)."""
        path = self.path(rel)
        return path.read_text(encoding='latin-1') if path.exists() else default

    def write(self, rel, text):
        """Sets a state file (a newline is added when missing). A top-level
        directory made here holds only this file: once there, it is the
        whole truth (eth/eth0 alone is a board without eth1); seed() first
        to change one default among the others."""
        path = self.path(rel)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text if text.endswith('\n') else text + '\n', encoding='latin-1')

    def seed(self, rel):
        """The top-level directory of rel, from its defaults when not on disk yet."""
        top = Path(rel).parts[0]
        if not self.path(top).exists() and (DEFAULT_STATE / top).is_dir():
            shutil.copytree(DEFAULT_STATE / top, self.path(top))

    def remove(self, rel):
        self.path(rel).unlink(missing_ok=True)

    # -- storage: the words of the state and the images behind them --

    def set_word(self, rel, index, word):
        self.seed(rel)
        words = self.read(rel, '').split()
        words += ['0'] * (index + 1 - len(words))
        words[index] = str(word)
        self.write(rel, ' '.join(words))

    def attach_disk(self, slot, name, size):
        """A sparse disk image of `size` bytes in disk slot `slot`."""
        image = self.path('block') / name
        image.parent.mkdir(parents=True, exist_ok=True)
        with open(image, 'wb') as out:
            out.truncate(size)
        for rel, word in (('disk/present', 1), ('disk/capacity', size),
                          ('proc/disk/disk_name', name)):
            self.set_word(rel, slot, word)

    def detach_disk(self, slot):
        self.seed('proc')
        name = self.read('proc/disk/disk_name').split()[slot]
        self.path('block').joinpath(name).unlink(missing_ok=True)
        for rel, word in (('disk/present', 0), ('disk/capacity', 0),
                          ('proc/disk/disk_name', -1)):
            self.set_word(rel, slot, word)

    def attach_stick(self, port, name, partition=1, fat=True, size=16 << 20):
        """A stick in USB port `port`: /dev/<name><partition> holds a FAT
        file system (or nothing, fat=False)."""
        image = self.path('block') / f'{name}{partition}'
        image.parent.mkdir(parents=True, exist_ok=True)
        with open(image, 'wb') as out:
            out.truncate(size)
        if fat:
            subprocess.run(['mkfs.vfat', str(image)], check=True, capture_output=True)
        self.seed('usb')
        self.write(f'usb/{port}', f'name={name} present=1 id={port + 1}')
        return image

    def fail(self, target, *, ret=None, errno=None, skip=None, times=None):
        """Makes calls of `target` fail (DRV_Init, DRV_PerpCtl.0x1628,
        open./dev/hal_gpio, ioctl./dev/hal_gpio.0x40610, exec.poweroff, ...)."""
        lines = [f'{key}={value}' for key, value in
                 (('ret', ret), ('errno', errno), ('skip', skip), ('times', times))
                 if value is not None]
        path = self.path('fail') / target
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(''.join(line + '\n' for line in lines))
        self.path('fail').joinpath(target + '.count').unlink(missing_ok=True)

    def unfail(self, target):
        self.path('fail').joinpath(target).unlink(missing_ok=True)
        self.path('fail').joinpath(target + '.count').unlink(missing_ok=True)

    def journal_lines(self):
        text = self.read('journal', '')
        return text.splitlines()

    def mark(self):
        """A place in the journal, for journal(since=...)."""
        return len(self.journal_lines())

    def journal(self, kind=None, name=None, request=None, since=0):
        """Parsed journal entries, optionally only those of one kind, name or
        request, and only those after a mark."""
        entries = [parse_journal_line(line) for line in self.journal_lines()[since:]]
        return [entry for entry in entries
                if (kind is None or entry.kind == kind)
                and (name is None or entry.name == name)
                and (request is None or entry.request == request)]


def image_digest(path, block=4096):
    """A digest of an image's content that holes and written zeros leave
    alike; only the allocated extents are read, so a sparse terabyte is
    quick."""
    digest = hashlib.sha256()
    zero = bytes(block)
    with open(path, 'rb') as image:
        fd, size, pos = image.fileno(), os.fstat(image.fileno()).st_size, 0
        while pos < size:
            try:
                pos = os.lseek(fd, pos, os.SEEK_DATA)
            except OSError:
                break
            end = os.lseek(fd, pos, os.SEEK_HOLE)
            pos -= pos % block
            while pos < end:
                data = os.pread(fd, block, pos)
                if data.strip(b'\0'):
                    digest.update(pos.to_bytes(8, 'little') + data)
                pos += block
    digest.update(size.to_bytes(8, 'little'))
    return digest.hexdigest()


# ---- transcripts ----

def decode(text):
    """Transcript text to bytes: {key} names, \\r \\n \\t \\b \\e \\\\ \\{ and
    \\xNN escapes; everything else is latin-1 (GBK bytes as \\xNN)."""
    out = bytearray()
    pos = 0
    while pos < len(text):
        char = text[pos]
        if char == '{':
            end = text.index('}', pos)
            out += KEYS[text[pos + 1:end]]
            pos = end + 1
        elif char == '\\' and text[pos + 1] == 'x':
            out.append(int(text[pos + 2:pos + 4], 16))
            pos += 4
        elif char == '\\':
            out += ESCAPES[text[pos + 1]]
            pos += 2
        else:
            out += char.encode('latin-1')
            pos += 1
    return bytes(out)


def load_transcript(path):
    """Steps (line number, keys typed or None, exact output expected).
    '> ' lines are typed, '< ' lines are the output that follows (lines in a
    row are joined), '#' lines and blank lines are comments."""
    steps = []
    for num, line in enumerate(Path(path).read_text(encoding='latin-1').splitlines(), 1):
        if line.startswith('> '):
            steps.append((num, decode(line[2:]), b''))
        elif line.startswith('< '):
            if not steps or steps[-1][2]:
                steps.append((num, None, b''))
            lnum, keys, out = steps[-1]
            steps[-1] = (lnum, keys, out + decode(line[2:]))
    return steps


def read_exactly(child, count, timeout):
    got = b''
    deadline = time.monotonic() + timeout
    while len(got) < count and time.monotonic() < deadline:
        try:
            got += child.read_nonblocking(count - len(got), timeout=0.1)
        except pexpect.TIMEOUT:
            continue
        except pexpect.EOF:
            break
    return got


def play_transcript(box, path, timeout=None):
    """Replays a transcript against a running box, byte for byte; on the first
    difference an AssertionError names the file and line. Each step waits as
    long as the box's own expectations (the banner comes after the box's
    start, which a loaded machine slows)."""
    for num, keys, expected in load_transcript(path):
        if keys:
            box.child.send(keys)
        got = read_exactly(box.child, len(expected), timeout or box.timeout)
        assert got == expected, f'{path}:{num}: expected {expected!r}, got {got!r}'


# ---- pytest hooks the test suites' conftest files re-export ----

def pytest_configure(config):
    config.addinivalue_line('markers', 'needs_cli: runs the built tool in the box')


def pytest_collection_modifyitems(items):
    """Tests marked needs_cli are skipped while the tool is not built."""
    if tool_built():
        return
    import pytest
    skip = pytest.mark.skip(reason=f'{tool_build_dir()}/cli is not built yet')
    for item in items:
        if item.get_closest_marker('needs_cli'):
            item.add_marker(skip)
