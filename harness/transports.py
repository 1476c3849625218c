"""Board targets and the links behind them. Each link is a small driver:
read(timeout) -> bytes (b'' when nothing came within timeout; EOFError once
the far end is gone), write(bytes, timeout) -> how many of the bytes it took
within timeout (0 when none fit), close().

    box[:SCENARIO[+SCENARIO...]]   the simulated board (sim/boardsim)
    serial:DEVICE[:BAUD]           a serial line (pyserial; 115200 by default)
    tcp:HOST:PORT                  a console server in raw mode (ser2net)
    exec:COMMAND                   a program's terminal (sh -c COMMAND on a pty)
    labgrid:ENV.yaml               the console of a labgrid target
"""
import asyncio
import os
import select
import shutil
import socket
import sys
import tempfile
import threading
from contextlib import contextmanager
from pathlib import Path

import pexpect

from .client import Console, ConsoleError

REPO = Path(__file__).resolve().parents[1]
SCENARIOS = REPO / 'sim' / 'scenarios'
# One launcher of sim/boardsim: the box's fixtures.
sys.path.insert(0, str(REPO / 'sim' / 'box'))
from boardbox import DIMENSIONS, Box  # noqa: E402

CONSOLE_BAUD = 115200


def quick(child):
    # pexpect waits 50 ms before each send, for programs that drop what
    # comes before they are ready; the tool flushes its input at start anyway.
    child.delaybeforesend = None
    return child


def fd_write(fd, data, timeout):
    """What of data a descriptor takes within timeout (a far end that does
    not read must not stop the harness)."""
    if not select.select([], [fd], [], max(timeout, 0))[1]:
        return 0
    os.set_blocking(fd, False)
    try:
        return os.write(fd, data)
    except BlockingIOError:
        return 0
    except OSError as err:
        raise EOFError(str(err)) from None
    finally:
        os.set_blocking(fd, True)


def serial_write(port, write, data, timeout):
    # pyserial's non-blocking write says how much it took, but spins while
    # nothing fits: wait until something does. A socket:// port (labgrid's raw
    # network port) keeps its socket aside.
    waitable = getattr(port, '_socket', None) or port
    if not select.select([], [waitable], [], max(timeout, 0))[1]:
        return 0
    if port.write_timeout != 0:  # each change sets the port up again
        port.write_timeout = 0
    return write(data) or 0


class PtyLink:
    """A program on a pseudo-terminal (pexpect): sh -c COMMAND."""

    def __init__(self, command):
        self.command = command
        self.child = self.spawn()

    def spawn(self):
        return quick(pexpect.spawn('/bin/sh', ['-c', self.command], dimensions=DIMENSIONS,
                                   env=dict(os.environ, TERM=os.environ.get('TERM', 'vt100'))))

    def read(self, timeout):
        try:
            return self.child.read_nonblocking(65536, timeout)
        except pexpect.TIMEOUT:
            return b''
        except pexpect.EOF:
            raise EOFError from None

    def write(self, data, timeout):
        return fd_write(self.child.child_fd, data, timeout)

    def restart(self):
        self.close()
        self.child = self.spawn()

    def close(self):
        self.child.close(force=True)


class BoxLink(PtyLink):
    """A box running the tool (boardbox.Box), its state in WORKDIR/state,
    or in a temporary directory that close() removes."""

    def __init__(self, scenarios, real_time, workdir):
        self.scratch = None if workdir else tempfile.mkdtemp(prefix='board-')
        self.state = Path(workdir or self.scratch) / 'state'
        self.options = dict(args=(), fast=not real_time, scenarios=scenarios)
        self.child = self.spawn()

    def spawn(self):
        self.box = Box(self.state, **self.options).start()
        return quick(self.box.child)

    def restart(self):
        self.box.close()
        self.child = self.spawn()

    def close(self):
        self.box.close()
        if self.scratch:
            shutil.rmtree(self.scratch, ignore_errors=True)


class SerialLink:
    def __init__(self, device, baud):
        import serial
        self.error = serial.SerialException
        self.port = serial.Serial(device, baud, timeout=0)

    def read(self, timeout):
        self.port.timeout = timeout
        try:
            data = self.port.read(1)
            return data + self.port.read(self.port.in_waiting) if data else data
        except self.error as err:
            raise EOFError(str(err)) from None

    def write(self, data, timeout):
        try:
            return serial_write(self.port, self.port.write, data, timeout)
        except self.error as err:
            raise EOFError(str(err)) from None

    def close(self):
        self.port.close()


class TcpLink:
    def __init__(self, host, port):
        self.sock = socket.create_connection((host, int(port)), timeout=10)

    def read(self, timeout):
        self.sock.settimeout(timeout)
        try:
            data = self.sock.recv(65536)
        except (TimeoutError, BlockingIOError):
            return b''
        if not data:
            raise EOFError('connection closed')
        return data

    def write(self, data, timeout):
        self.sock.settimeout(timeout)
        try:
            return self.sock.send(data)
        except (TimeoutError, BlockingIOError):
            return 0
        except OSError as err:
            raise EOFError(str(err)) from None

    def close(self):
        self.sock.close()


# labgrid's RemotePlace keeps one coordinator session for the whole process
# (its manager is a singleton) on an asyncio loop it runs from whichever thread
# sets up a target. The board threads take turns, each with the same loop as
# its own; reading and writing the console needs no loop.
LABGRID_TURN = threading.Lock()
LABGRID_LOOP = []


@contextmanager
def labgrid_turn():
    with LABGRID_TURN:
        if not LABGRID_LOOP:
            LABGRID_LOOP.append(asyncio.new_event_loop())
        asyncio.set_event_loop(LABGRID_LOOP[0])
        # Its client module hands autobahn the loop of the thread that first
        # imports it.
        import labgrid.remote.client  # noqa: F401
        import txaio
        txaio.config.loop = LABGRID_LOOP[0]
        yield


class LabgridLink:
    """The ConsoleProtocol driver of the environment's target (a
    SerialDriver on a RawSerialPort here, on a NetworkSerialPort when a
    coordinator hands out a remote place)."""

    def __init__(self, env_file, name):
        from labgrid import Environment
        from pexpect import TIMEOUT
        self.timeout_error = TIMEOUT
        with labgrid_turn():
            try:
                self.target = Environment(str(env_file)).get_target(name)
                self.console = self.target.get_driver('ConsoleProtocol')  # and activates it
            except OSError:
                raise
            except Exception as err:  # labgrid's own: a place not acquired, a bad resource
                raise ConsoleError(f'labgrid:{env_file}: {type(err).__name__}: '
                                   f'{" ".join(str(err).split())}') from None

    # The driver's own read and write: labgrid's public ones keep a stack of
    # steps that every thread shares, and boards read at once.
    def read(self, timeout):
        try:
            return self.console._read(size=1, timeout=timeout)
        except self.timeout_error:
            return b''

    def write(self, data, timeout):
        return serial_write(self.console.serial, self.console._write, data, timeout)

    def close(self):
        with labgrid_turn():
            self.target.deactivate(self.console)


def serial_address(target, rest):
    # A device's own name may hold colons (/dev/serial/by-path/...): an
    # existing path is a device at the default rate.
    device, colon, baud = rest.rpartition(':')
    if not colon or os.path.exists(rest):
        return rest, CONSOLE_BAUD
    if not baud.isdigit() or int(baud) == 0:
        raise ValueError(f'{target}: the baud rate {baud!r} is not a positive whole number '
                         '(serial:DEVICE[:BAUD])')
    return device, int(baud)


def tcp_address(target, rest):
    host, colon, port = rest.rpartition(':')
    if not colon or not host.strip('[]'):
        raise ValueError(f'{target}: a console server needs a host and a port (tcp:HOST:PORT)')
    if not port.isdigit() or not 1 <= int(port) <= 65535:
        raise ValueError(f'{target}: the port {port!r} is not a number from 1 to 65535')
    return host.strip('[]'), int(port)


def scenario_names():
    """The fault presets sim/boardsim knows: the files of sim/scenarios."""
    return sorted(p.name for p in SCENARIOS.iterdir()
                  if p.is_file() and p.name != 'README.md' and not p.name.startswith('.'))


def box_scenarios(target, rest):
    names = [name for name in rest.split('+') if name]
    known = scenario_names()
    unknown = [name for name in names if name not in known]
    if unknown:
        raise ValueError(f'{target}: no scenario {unknown[0]!r} (known: {" ".join(known)})')
    return names


def labgrid_env(target, rest):
    """The environment file, read as labgrid will read it: a target whose
    console has a driver and a resource to reach."""
    from labgrid.factory import target_factory
    from labgrid.protocol import ConsoleProtocol
    from labgrid.util.yaml import load
    try:
        with open(rest, encoding='utf-8') as file:
            config = load(file)
    except (OSError, UnicodeError) as err:
        raise ValueError(f'{target}: cannot read the file: {getattr(err, "strerror", err)}') from None
    except Exception as err:  # yaml's errors, which labgrid's loader raises as they come
        raise ValueError(f'{target}: not YAML: {" ".join(str(err).split())}') from None
    targets = config.get('targets') if isinstance(config, dict) else None
    name = labgrid_target(targets)
    if not name:
        raise ValueError(f'{target}: no target in "targets:" (main, or one target)')
    try:
        resources, drivers = target_factory.normalize_config(targets[name] or {})
    except Exception as err:
        raise ValueError(f'{target}: target {name}: {" ".join(str(err).split())}') from None
    if not any(issubclass(target_factory.drivers.get(d, object), ConsoleProtocol) for d in drivers):
        raise ValueError(f'{target}: target {name} has no console driver (SerialDriver)')
    if not resources:
        raise ValueError(f'{target}: target {name} has no resource for its console '
                         '(RawSerialPort, NetworkSerialPort, RemotePlace)')
    return rest, name


def labgrid_target(targets):
    """The target the client drives: "main", or the file's only one."""
    if not isinstance(targets, dict):
        return None
    if 'main' in targets:
        return 'main'
    return next(iter(targets)) if len(targets) == 1 else None


def exec_command(target, rest):
    if not rest.strip():
        raise ValueError(f'{target}: no command to run (exec:COMMAND)')
    return rest


# Each kind: what checks and takes its address apart, and what opens it.
KINDS = {
    'box': (box_scenarios, lambda names, real_time, workdir: BoxLink(names, real_time, workdir)),
    'serial': (serial_address, lambda address, *_: SerialLink(*address)),
    'tcp': (tcp_address, lambda address, *_: TcpLink(*address)),
    'exec': (exec_command, lambda command, *_: PtyLink(command)),
    'labgrid': (labgrid_env, lambda env, *_: LabgridLink(*env)),
}


def parse_target(target):
    """(kind, address) of a board target; ValueError, one line, when it
    names no board that could be opened."""
    kind, _, rest = target.partition(':')
    if kind not in KINDS or (kind != 'box' and not rest):
        raise ValueError(f'unknown board target {target!r} (box[:SCENARIO+...], serial:DEVICE[:BAUD], '
                         'tcp:HOST:PORT, exec:COMMAND, labgrid:ENV.yaml)')
    return kind, KINDS[kind][0](target, rest)

def open_board(target, *, real_time=False, workdir=None, log=None):
    """A Console on the board `target` names, the tool started and in
    equipment mode. real_time: a box on the real clock, not the fast one;
    workdir: where a box keeps its state; log: a file (or path) that gets
    every byte the console shows."""
    kind, address = parse_target(target)
    link = KINDS[kind][1](address, real_time, workdir)
    console = Console(link, target=target, kind=kind, log=log)
    try:
        return console.start()
    except BaseException:
        console.close()
        raise

