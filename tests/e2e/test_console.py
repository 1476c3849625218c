"""The console as the operator sees it: user and equipment mode, the line
editor's keys, history, "?" and Tab continuation and the line length limit,
replayed in the box from the transcripts under transcripts/ byte for byte;
the terminal modes on the way in and on every way out (quit, SIGTERM, SIGHUP,
no terminal at all), seen on the tool's own pseudo-terminal.
"""
import os
import signal
import subprocess
import termios
from pathlib import Path

import pexpect
import pytest

from boardbox import build_dir, play_transcript

TRANSCRIPTS = Path(__file__).parent / 'transcripts'


def settle(child, quiet=0.3):
    """Whatever the tool still prints within a quiet spell."""
    got = b''
    while True:
        try:
            got += child.read_nonblocking(4096, timeout=quiet)
        except (pexpect.TIMEOUT, pexpect.EOF):
            return got


# ---- a tool on a pseudo-terminal, on the simulated board ----

def tool_env(state, path_dir=None):
    """The board's nodes emulated, with state; path_dir goes first on PATH."""
    # Without the preload the printk level would be the host's.
    assert (build_dir() / 'sim' / 'libboardsim.so').is_file()
    env = dict(os.environ, BOARDSIM_STATE=str(state),
               LD_PRELOAD=str(build_dir() / 'sim' / 'libboardsim.so'),
               ASAN_OPTIONS='verify_asan_link_order=0:detect_leaks=1')
    if path_dir:
        env['PATH'] = f'{path_dir}:{env["PATH"]}'
    return env


def spawn_cli(state, args=('-d',), path_dir=None):
    """The tool with its own state directory. Only "-d" runs belong here:
    the kill list must run inside the box."""
    assert any(arg.startswith('-') and ('d' in arg or 'h' in arg) for arg in args)
    return pexpect.spawn(str(build_dir() / 'cli'), list(args), env=tool_env(state, path_dir),
                         timeout=10)


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


# ---- transcripts, replayed in the box ----

@pytest.mark.needs_cli
def test_user_mode(box_factory):
    board = box_factory().start()
    play_transcript(board, TRANSCRIPTS / 'user_mode.txt')
    assert board.wait() == 0


@pytest.mark.needs_cli
@pytest.mark.parametrize('name', ['editing.txt', 'history.txt', 'continuation.txt',
                                  'long_line.txt'])
def test_equipment_mode(box, name):
    box.enter_equipment()
    play_transcript(box, TRANSCRIPTS / name)
    assert box.settle() == b''


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
    with open(os.devnull, 'rb') as devnull:
        run = subprocess.run([str(build_dir() / 'cli'), '-d'], stdin=devnull,
                             capture_output=True, env=tool_env(tmp_path), timeout=10)
    assert run.returncode == 1
    assert run.stderr == b'\r\nFailed to set attributes\n'
    assert run.stdout.endswith(b'EQUIPMENT_TEST_OK\r\n**********************')
