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
from harness.transports import REPO, PtyLink, TcpLink, open_board, parse_target

pytestmark = pytest.mark.needs_cli
SHELL = f'EXEC:{REPO}/sim/boardsim --fast --run /bin/sh,pty,setsid,ctty,stderr'


def smoke(tmp_path, *targets):
    """The shipped smoke plan through the runner, as a factory would run it."""
    report = tmp_path / 'smoke.json'
    boards = [arg for target in targets for arg in ('--board', target)]
    assert runner.main([str(REPO / 'harness/plans/smoke.toml'), *boards, '--json', str(report),
                        '--no-db']) == 0
    for board in json.loads(report.read_text())['boards']:
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


CONSOLE = 'targets:\n  main:\n    resources: {%s}\n    drivers: {%s}\n'
PORT = 'RawSerialPort: {port: /dev/ttyUSB0}'


def here(row, tmp_path):
    """TMP in a row: the test's own directory."""
    if isinstance(row, tuple):
        return tuple(here(value, tmp_path) for value in row)
    return row.replace('TMP', str(tmp_path)) if isinstance(row, str) else row


@pytest.mark.parametrize('target, address', [
    ('tcp:127.0.0.1', 'a host and a port'), ('tcp::2001', 'a host and a port'),
    ('tcp:127.0.0.1:x', "'x' is not"), ('tcp:127.0.0.1:65536', "'65536' is not"),
    ('tcp:127.0.0.1:0', "'0' is not"), ('tcp:[::1]:65535', ('::1', 65535)),
    ('serial:/dev/ttyUSB0:fast', "'fast' is not"), ('serial:/dev/ttyUSB0:0', "'0' is not"),
    ('serial:/dev/null:9600', ('/dev/null', 9600)),
    ('serial:TMP/usb-0:1.0', ('TMP/usb-0:1.0', 115200)),
    ('box:overheat+hdmi-unplugged', ['overheat', 'hdmi-unplugged']), ('box', []),
    ('box:overheat+no-such', "no scenario 'no-such'"), ('box:../scenarios', 'no scenario'),
    ('box:README.md', 'no scenario'), ('exec: ', 'no command'), ('usb:0', 'unknown board target'),
    ('labgrid:/no/such.yaml', 'No such file'), ('labgrid:/', 'Is a directory'),
    ('targets: [', 'not YAML'), ('options: {}', 'no target'), ('targets: {a: {}, b: {}}', 'no target'),
    (CONSOLE % (PORT, 'ShellDriver: {}'), 'no console driver'),
    (CONSOLE % ('', 'SerialDriver: {}'), 'no resource'),
    (CONSOLE % (PORT, 'SerialDriver: {}'), ('TMP/env.yaml', 'main')),
])
def test_targets_are_checked_before_any_board_starts(target, address, tmp_path):
    (tmp_path / 'usb-0:1.0').touch()  # a device named by its USB path
    if target.startswith(('targets', 'options')):  # a labgrid environment's text
        (tmp_path / 'env.yaml').write_text(target)
        target = 'labgrid:TMP/env.yaml'
    address = here(address, tmp_path)
    try:
        assert parse_target(here(target, tmp_path))[1] == address
    except ValueError as error:
        assert address in str(error) and '\n' not in str(error), error


def test_links_take_nothing_from_a_far_end_that_reads_nothing():
    with socket.create_server(('127.0.0.1', 0)) as server:
        for link in PtyLink('stty raw -echo; echo raw; sleep 30'), TcpLink(*server.getsockname()):
            link.read(1)  # the pty raw: a cooked line drops what does not fit and takes more
            started = time.monotonic()
            taken = [link.write(b'x' * (1 << 20), 0.05) for _ in range(6)]
            link.close()
            assert 0 < sum(taken) < 6 << 20 and taken[-2:] == [0, 0]
            assert time.monotonic() - started < 1


def test_serial(shell_tty, tmp_path):
    smoke(tmp_path, f'serial:{shell_tty}:115200')


def test_labgrid_finds_a_tool_left_running(shell_tty, tmp_path):
    pytest.importorskip('labgrid')
    left = open_board(f'serial:{shell_tty}')
    assert left.run('test led on').passed
    left.link.close()  # a harness that died: the tool waits in equipment mode
    env = tmp_path / 'env.yaml'
    env.write_text(f'targets:\n  main:\n    resources:\n      RawSerialPort:\n'
                   f'        port: {shell_tty}\n    drivers:\n      SerialDriver: {{}}\n')
    smoke(tmp_path, f'labgrid:{env}')


def free_port():
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        return probe.getsockname()[1]


def console_server(port):
    """A console server's raw port on a box's console (socat serves one
    connection, so it is seen listening in /proc, not by connecting)."""
    def listening():
        with open('/proc/net/tcp') as table:
            return any(f'0100007F:{port:04X}' in line and ' 0A ' in line for line in table)
    return socat(f'TCP-LISTEN:{port},bind=127.0.0.1,reuseaddr', listening)


@pytest.fixture
def ports(request):
    """The ports of console servers, one by default."""
    ports = [free_port() for _ in range(getattr(request, 'param', 1))]
    servers = [console_server(port) for port in ports]
    yield ports
    for proc in servers:
        proc.terminate()
        proc.wait(10)


def test_tcp(ports, tmp_path):
    smoke(tmp_path, f'tcp:127.0.0.1:{ports[0]}')


# Enough of labgrid's coordinator (a WAMP router and the two calls labgrid's
# client makes, without authentication) to hand out one acquired place.
COORDINATOR = """import asyncio, json, sys
from autobahn.asyncio.websocket import WebSocketServerFactory, WebSocketServerProtocol
calls = json.loads(sys.argv[2])
class Coordinator(WebSocketServerProtocol):
    def onConnect(self, request):
        return 'wamp.2.json'
    def onMessage(self, payload, binary):
        kind, *msg = json.loads(payload)
        reply = {1: lambda: [2, 1, {'roles': {'broker': {}, 'dealer': {}}}],
                 32: lambda: [33, msg[0], msg[0]], 48: lambda: [50, msg[0], {}, [calls[msg[2]]]],
                 6: lambda: [6, {}, 'wamp.close.normal']}
        self.sendMessage(json.dumps(reply[kind]()).encode())
asyncio.set_event_loop(loop := asyncio.new_event_loop())
factory = WebSocketServerFactory(f'ws://127.0.0.1:{sys.argv[1]}/ws')
factory.protocol = Coordinator
loop.run_until_complete(loop.create_server(factory, '127.0.0.1', int(sys.argv[1])))
print('ready', flush=True)
loop.run_forever()
"""


@pytest.mark.parametrize('ports', [2], indirect=True)
def test_labgrid_remote_places_from_the_runner(ports, tmp_path, monkeypatch):
    pytest.importorskip('labgrid')
    monkeypatch.setenv('LG_HOSTNAME', 'station')
    monkeypatch.setenv('LG_USERNAME', 'harness')
    resources, places = {}, {}
    for n, port in enumerate(ports):
        path = ['exporter', f'nvr{n}', 'NetworkSerialPort', 'console']
        resources[path[1]] = {path[3]: dict(cls=path[2], acquired=f'line3-{n}', avail=True, params=dict(
            host='127.0.0.1', port=port, protocol='raw'))}
        places[f'line3-{n}'] = dict(matches=[dict(zip(('exporter', 'group', 'cls', 'name'), path))],
                                    acquired='station/harness', allowed=['station/harness'],
                                    acquired_resources=[path])
    calls = {'org.labgrid.coordinator.get_resources': {'exporter': resources},
             'org.labgrid.coordinator.get_places': places}
    port = free_port()
    coordinator = subprocess.Popen([sys.executable, '-c', COORDINATOR, str(port), json.dumps(calls)],
                                   stdout=subprocess.PIPE)
    try:
        assert coordinator.stdout.readline() == b'ready\n'
        for place in places:
            (tmp_path / f'{place}.yaml').write_text(
                CONSOLE % (f'RemotePlace: {{name: {place}}}', 'SerialDriver: {}')
                + f'options: {{crossbar_url: "ws://127.0.0.1:{port}/ws"}}\n')
        smoke(tmp_path, *(f'labgrid:{tmp_path}/{place}.yaml' for place in places))
    finally:
        coordinator.terminate()
        coordinator.wait(10)


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
