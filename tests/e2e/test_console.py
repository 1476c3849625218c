"""The console as the operator sees it: every transcript under transcripts/
replayed in the box byte for byte; the terminal modes on the way in and on
every way out (quit, a signal in the middle of a test, no terminal at all).

A transcript that opens with output starts at the banner; one that opens
with typing starts at the equipment prompt. A new module adds its transcript
and nothing else.
"""
import resource
import signal
import termios
from pathlib import Path

import pexpect
import pytest

from boardbox import load_transcript, play_transcript

TRANSCRIPTS = sorted((Path(__file__).parent / 'transcripts').glob('*.txt'))


@pytest.mark.needs_cli
@pytest.mark.parametrize('path', TRANSCRIPTS, ids=[p.stem for p in TRANSCRIPTS])
def test_transcript(box_factory, path):
    board = box_factory().start()
    if load_transcript(path)[0][1] is not None:
        board.enter_equipment()
    play_transcript(board, path)
    assert board.settle() == b''
    if board.child.eof():
        assert board.wait() == 0


# ---- the terminal on the way in and out ----

def lflags(child):
    return termios.tcgetattr(child.child_fd)[3]


def restored(child):
    # The pty keeps the last attributes the tool set.
    return lflags(child) & termios.ICANON and lflags(child) & termios.ECHO


@pytest.fixture
def tool(tmp_path, spawn_cli):
    return spawn_cli(tmp_path / 'state')


def test_raw_while_running_and_restored_on_quit(tool):
    tool.expect_exact(b'<PLM7140>')
    assert not lflags(tool) & (termios.ICANON | termios.ECHO | termios.ISIG)
    assert termios.tcgetattr(tool.child_fd)[1] & termios.OPOST
    tool.send(b'q\r')
    tool.expect(pexpect.EOF)
    assert restored(tool)
    tool.close()
    assert tool.exitstatus == 0


@pytest.mark.parametrize('sig', [signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGQUIT,
                                 signal.SIGKILL])
def test_signal_mid_command_restores_what_it_can(tmp_path, spawn_cli, sig):
    (tmp_path / 'state' / 'keys').mkdir(parents=True)
    (tmp_path / 'state' / 'keys' / 'reset').write_text('released\n')
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))  # SIGQUIT leaves no core file
    tool = spawn_cli(tmp_path / 'state')
    tool.expect_exact(b'<PLM7140>')
    tool.send(b'en_equipment\r')
    tool.expect_exact(b'-equipment]')
    tool.send(b'test led on\r')
    tool.expect_exact(b'$$')
    # The LED worker flashes while the key test waits for a press.
    tool.send(b'test reset button 200\r')
    tool.expect_exact(b'@')
    tool.kill(sig)
    tool.expect(pexpect.EOF)
    assert bool(restored(tool)) == (sig != signal.SIGKILL)
    tool.close()
    assert tool.signalstatus == sig


def test_no_terminal_on_input(tmp_path, run_cli):
    run = run_cli(tmp_path, '-d')
    assert run.returncode == 1
    assert run.stderr == b'\r\nFailed to set attributes\n'
    assert run.stdout.endswith(b'EQUIPMENT_TEST_OK\r\n**********************')
