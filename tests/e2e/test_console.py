"""The console as the operator sees it: user and equipment mode, the line
editor's keys, history, "?" and Tab continuation and the line length limit,
replayed from the transcripts under transcripts/ byte for byte; the terminal
modes on the way in and on every way out (quit, SIGTERM, SIGHUP).
"""
import os
import re
import signal
import subprocess
import termios
import time
from pathlib import Path

import pexpect
import pytest

TRANSCRIPTS = Path(__file__).parent / 'transcripts'

# Named keys of the transcripts, as a VT100-style terminal sends them.
KEYS = {
    'up': b'\x1b[A', 'down': b'\x1b[B', 'right': b'\x1b[C', 'left': b'\x1b[D',
    'ins': b'\x1b[2~', 'f5': b'\x1b[15~', 'bs': b'\b', 'del': b'\x7f', 'tab': b'\t',
}
ESCAPES = {'r': b'\r', 'n': b'\n', 't': b'\t', 'b': b'\b', 'e': b'\x1b', '\\': b'\\'}


def decode(text):
    """Transcript text to bytes: {key} names, backslash escapes, \\xNN."""
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


def load(name):
    """Steps of a transcript: (line number, keys typed or None, output)."""
    steps = []
    for num, line in enumerate((TRANSCRIPTS / name).read_text().splitlines(), 1):
        if line.startswith('> '):
            steps.append((num, decode(line[2:]), b''))
        elif line.startswith('< '):
            if not steps or steps[-1][2]:
                steps.append((num, None, b''))
            lnum, keys, out = steps[-1]
            steps[-1] = (lnum, keys, out + decode(line[2:]))
    return steps


def read_exact(child, count, timeout=5.0):
    """Up to count bytes of output, waiting at most timeout for them."""
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


def play(child, name):
    for num, keys, expected in load(name):
        if keys:
            child.send(keys)
        got = read_exact(child, len(expected))
        assert got == expected, f'{name}:{num}'


def settle(child, quiet=0.3):
    """Whatever the tool still prints within a quiet spell."""
    got = b''
    while True:
        try:
            got += child.read_nonblocking(4096, timeout=quiet)
        except (pexpect.TIMEOUT, pexpect.EOF):
            return got


# ---- a tool on a pseudo-terminal, on the simulated board ----

def build_dir():
    return Path(os.environ.get('CLI_BUILD_DIR', Path(__file__).parents[2] / 'build'))


def spawn_cli(state, args=('-d',), env_extra=None):
    """The tool with the board's nodes emulated and its own state directory.
    Only "-d" runs belong here: the kill list must run inside the box."""
    assert any(arg.startswith('-') and ('d' in arg or 'h' in arg) for arg in args)
    env = dict(os.environ, BOARDSIM_STATE=str(state),
               LD_PRELOAD=str(build_dir() / 'sim' / 'libboardsim.so'),
               ASAN_OPTIONS='verify_asan_link_order=0:detect_leaks=1')
    env.update(env_extra or {})
    child = pexpect.spawn(str(build_dir() / 'cli'), list(args), env=env, timeout=10)
    return child


@pytest.fixture
def tool(tmp_path):
    child = spawn_cli(tmp_path / 'state')
    yield child
    if child.isalive():
        child.kill(signal.SIGKILL)
    child.close(force=True)


def enter_equipment(child):
    child.expect_exact(b'<PLM7140>')
    child.send(b'en_equipment\r')
    child.expect_exact(b'[PLM7140-equipment]')


def finish(child):
    child.expect(pexpect.EOF, timeout=10)
    child.close()
    return child.exitstatus


# ---- transcripts ----

def test_user_mode(tool):
    play(tool, 'user_mode.txt')
    assert finish(tool) == 0


@pytest.mark.parametrize('name', ['editing.txt', 'history.txt', 'continuation.txt',
                                  'long_line.txt'])
def test_equipment_mode(tool, name):
    enter_equipment(tool)
    play(tool, name)
    assert settle(tool) == b''


# ---- the terminal on the way in and out ----

def lflags(child):
    return termios.tcgetattr(child.child_fd)[3]


def oflags(child):
    return termios.tcgetattr(child.child_fd)[1]


def test_raw_while_running_and_restored_on_quit(tool):
    tool.expect_exact(b'<PLM7140>')
    assert not lflags(tool) & (termios.ICANON | termios.ECHO | termios.ISIG)
    assert oflags(tool) & termios.OPOST
    tool.send(b'q\r')
    tool.expect(pexpect.EOF)
    # The pty keeps the last attributes the tool set.
    assert lflags(tool) & termios.ICANON and lflags(tool) & termios.ECHO
    tool.close()
    assert tool.exitstatus == 0


@pytest.mark.parametrize('sig', [signal.SIGTERM, signal.SIGHUP])
def test_fatal_signal_restores_the_terminal(tool, sig):
    enter_equipment(tool)
    tool.send(b'test led')
    tool.expect_exact(b'test led')
    tool.kill(sig)
    tool.expect(pexpect.EOF)
    assert lflags(tool) & termios.ICANON and lflags(tool) & termios.ECHO
    tool.close()
    assert tool.signalstatus == sig


def test_control_keys_are_not_signals(tool):
    tool.expect_exact(b'<PLM7140>')
    tool.send(b'\x03\x1a\x1c\x04')
    assert settle(tool) == b''
    tool.send(b'Q\r')
    assert finish(tool) == 0


def test_no_terminal_on_input(tmp_path):
    env = dict(os.environ, BOARDSIM_STATE=str(tmp_path),
               LD_PRELOAD=str(build_dir() / 'sim' / 'libboardsim.so'),
               ASAN_OPTIONS='verify_asan_link_order=0:detect_leaks=1')
    with open(os.devnull, 'rb') as devnull:
        run = subprocess.run([str(build_dir() / 'cli'), '-d'], stdin=devnull,
                             capture_output=True, env=env, timeout=10)
    assert run.returncode == 1
    assert run.stderr == b'\r\nFailed to set attributes\n'
    assert run.stdout.endswith(b'EQUIPMENT_TEST_OK\r\n**********************')
