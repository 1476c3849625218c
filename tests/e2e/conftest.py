"""Fixtures shared by the e2e tests; the box driver is sim/box/boardbox.py.

    box_factory(**options) -> Box, not started; every box is closed at the end
    box / board            -> "cli -d" in a box at its first prompt / on a fast
                              board in equipment mode
    box_run(*argv, **opts) -> (exit status, output) of a program run in a box
    spawn_cli, run_cli     -> cli outside the box, on a pseudo-terminal / with
                              stdin not a terminal, the board's nodes emulated

Tests marked `needs_cli` are skipped while the tool is not built.
CLI_TOOL_BUILD_DIR=build-aarch64 runs every test against the board's binary
under qemu-user; start the tool with boardbox.tool_argv(), never by its path.
"""
import os
import signal
import subprocess
import sys
from pathlib import Path

import pexpect
import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / 'sim' / 'box'))

from boardbox import REPO, Box, build_dir, console_log, tool_argv, tool_build_dir  # noqa: E402
from boardbox import pytest_configure, pytest_collection_modifyitems  # noqa: E402,F401



@pytest.fixture
def box_factory(tmp_path):
    boxes = []

    def make(state=None, **options):
        board = Box(state or tmp_path / f'state{len(boxes)}', **options)
        boxes.append(board)
        return board

    yield make
    for board in boxes:
        board.close()


@pytest.fixture
def box(box_factory):
    board = box_factory().start()
    board.ready()
    return board


@pytest.fixture
def board(box_factory):
    # Fast time keeps the LED cycle and the watchdog's wait short.
    box = box_factory(fast=True).start()
    box.enter_equipment()
    return box


@pytest.fixture
def box_run(box_factory):
    def run(*argv, **options):
        board = box_factory(run=list(argv), **options).start()
        status = board.wait(options.get('timeout'))
        return status, board.child.before
    return run


# ---- the tool outside the box: for what the box's launcher would hide
# (the terminal's modes, signals, a killall stand-in first on PATH) ----

@pytest.fixture(scope='session')
def preloads(tmp_path_factory):
    # Each processor's preload where its loader's $LIB finds it (sim/box/preloads).
    where = tmp_path_factory.mktemp('preloads')
    subprocess.run([str(REPO / 'sim' / 'box' / 'preloads'), str(where),
                    *{str(d / 'sim' / 'libboardsim.so') for d in (build_dir(), tool_build_dir())}],
                   check=True)
    return where


def cli_env(state, preloads, path_dir=None):
    # Without the preload the printk level would be the host's.
    env = dict(os.environ, BOARDSIM_STATE=str(state),
               LD_PRELOAD=f'{preloads}/$LIB/libboardsim.so',
               ASAN_OPTIONS='verify_asan_link_order=0:detect_leaks=1')
    if path_dir:
        env['PATH'] = f'{path_dir}:{env["PATH"]}'
    return env


class Tool(pexpect.spawn):
    def finish(self):
        """Waits for the end; the exit status."""
        self.expect(pexpect.EOF, timeout=10)
        self.close()
        return self.exitstatus

    def quit(self):
        self.expect_exact(b'<PLM7140>')
        self.send(b'q\r')
        return self.finish()


def no_host_kills(args, path_dir):
    # Outside the box the kill list would reach the host's processes: it may
    # only run with a killall stand-in first on PATH.
    assert path_dir or any(a.startswith('-') and ('d' in a or 'h' in a) for a in args)


@pytest.fixture
def spawn_cli(preloads):
    tools = []

    def spawn(state, args=('-d',), path_dir=None):
        no_host_kills(args, path_dir)
        argv = tool_argv() + list(args)
        tools.append(Tool(argv[0], argv[1:], env=cli_env(state, preloads, path_dir), timeout=20))
        console_log(tools[-1])
        return tools[-1]

    yield spawn
    for tool in tools:
        if tool.isalive():
            tool.kill(signal.SIGKILL)
        tool.close(force=True)


@pytest.fixture
def run_cli(preloads):
    def run(state, *args, path_dir=None):
        no_host_kills(args, path_dir)
        with open(os.devnull, 'rb') as devnull:
            run = subprocess.run([*tool_argv(), *args], stdin=devnull, capture_output=True,
                                 env=cli_env(state, preloads, path_dir), timeout=20)
        if os.environ.get('CLI_CONSOLE_LOG'):  # for tools/msgcov, as the consoles are
            with open(os.environ['CLI_CONSOLE_LOG'], 'ab') as log:
                log.write(run.stdout)
        return run
    return run
