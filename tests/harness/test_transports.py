"""Each transport once, against a box: a serial line and a console server
are socat in front of the box's console running a shell, where the client
starts the tool by typing cli as on the board."""
import json
import socket
import subprocess
import sys
import time
import xml.etree.ElementTree as ET

import pytest

from harness import runner
from harness.protocol import BANNER
from harness.transports import REPO, open_board

pytestmark = pytest.mark.needs_cli
SHELL = f'EXEC:{REPO}/sim/boardsim --fast --run /bin/sh,pty,setsid,ctty,stderr'


def smoke(target, tmp_path):
    """The shipped smoke plan through the runner, as a factory would run it."""
    report = tmp_path / 'smoke.json'
    assert runner.main([str(REPO / 'harness/plans/smoke.toml'), '--board', target,
                        '--json', str(report), '--no-db']) == 0
    board = json.loads(report.read_text())['boards'][0]
    assert BANNER.decode() in board['banner'] and 'BOARD' in board['version']


def socat(address, ready):
    proc = subprocess.Popen(['socat', address, SHELL])
    deadline = time.monotonic() + 10
    while not ready() and time.monotonic() < deadline:
        time.sleep(0.05)
    return proc


@pytest.fixture
def shell_tty(tmp_path):
    """A pseudo-terminal whose far end is the box's console, at a shell."""
    tty = tmp_path / 'ttyBOARD'
    proc = socat(f'PTY,link={tty},raw,echo=0', tty.exists)
    yield tty
    proc.terminate()
    proc.wait(10)


def test_serial(shell_tty, tmp_path):
    smoke(f'serial:{shell_tty}:115200', tmp_path)


def test_labgrid_finds_a_tool_left_running(shell_tty, tmp_path):
    pytest.importorskip('labgrid')
    left = open_board(f'serial:{shell_tty}')
    assert left.run('test led on').passed
    left.link.close()  # a harness that died: the tool waits in equipment mode
    env = tmp_path / 'env.yaml'
    env.write_text(f'targets:\n  main:\n    resources:\n      RawSerialPort:\n'
                   f'        port: {shell_tty}\n    drivers:\n      SerialDriver: {{}}\n')
    smoke(f'labgrid:{env}', tmp_path)


def test_tcp(tmp_path):
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        port = probe.getsockname()[1]

    def listening():
        # Not by connecting: socat serves one connection.
        with open('/proc/net/tcp') as table:
            return any(f'0100007F:{port:04X}' in line and ' 0A ' in line for line in table)
    proc = socat(f'TCP-LISTEN:{port},bind=127.0.0.1,reuseaddr', listening)
    try:
        smoke(f'tcp:127.0.0.1:{port}', tmp_path)
    finally:
        proc.terminate()
        proc.wait(10)


def test_exec_logs_in_and_restarts(monkeypatch):
    monkeypatch.setenv('HARNESS_LOGIN', 'root:secret')
    login = ('printf "board login: "; read u; printf "Password: "; read p; '
             f'[ "$u:$p" = root:secret ] && exec {REPO}/sim/boardsim --fast -- -d')
    with open_board(f'exec:{login}') as console:
        assert console.run('display version mainboard').passed
        console.restart()
        assert console.run('test led on').passed


def test_pytest_plugin(tmp_path):
    (tmp_path / 'test_plan.py').write_text(
        "def test_version(board):\n    assert board.run('display version mainboard').passed\n\n"
        "def test_unknown(board):\n    assert board.run('test zz').verdict == 'refused'\n")
    junit = tmp_path / 'junit.xml'
    run = subprocess.run([sys.executable, '-m', 'pytest', '-q', '-p', 'harness.pytest_plugin',
                          '--board', 'box', '-n', '2', f'--junitxml={junit}', str(tmp_path)],
                         cwd=REPO, capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stdout + run.stderr
    suite = ET.parse(junit).getroot().find('testsuite')
    assert (suite.get('tests'), suite.get('failures'), suite.get('errors')) == ('2', '0', '0')
