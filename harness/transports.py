"""Board targets and the links behind them. Each link is a small driver:
read(timeout) -> bytes (b'' when nothing came within timeout; EOFError once
the far end is gone), write(bytes), close().

    box[:SCENARIO[+SCENARIO...]]   the simulated board (sim/boardsim)
    serial:DEVICE[:BAUD]           a serial line (pyserial; 115200 by default)
    tcp:HOST:PORT                  a console server in raw mode (ser2net)
    exec:COMMAND                   a program's terminal (sh -c COMMAND on a pty)
    labgrid:ENV.yaml               the console of a labgrid target
"""
import os
import shutil
import socket
import sys
import tempfile
from pathlib import Path

import pexpect

from .client import Console

REPO = Path(__file__).resolve().parents[1]
# One launcher of sim/boardsim: the box's fixtures.
sys.path.insert(0, str(REPO / 'sim' / 'box'))
from boardbox import DIMENSIONS, Box  # noqa: E402

CONSOLE_BAUD = 115200


def quick(child):
    # pexpect waits 50 ms before each send, for programs that drop what
    # comes before they are ready; the tool flushes its input at start anyway.
    child.delaybeforesend = None
    return child


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
            return self.child.read_nonblocking(4096, timeout)
        except pexpect.TIMEOUT:
            return b''
        except pexpect.EOF:
            raise EOFError from None

    def write(self, data):
        self.child.send(data)

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

    def write(self, data):
        self.port.write(data)

    def close(self):
        self.port.close()


class TcpLink:
    def __init__(self, host, port):
        self.sock = socket.create_connection((host, int(port)), timeout=10)

    def read(self, timeout):
        self.sock.settimeout(timeout)
        try:
            data = self.sock.recv(4096)
        except (TimeoutError, BlockingIOError):
            return b''
        if not data:
            raise EOFError('connection closed')
        return data

    def write(self, data):
        self.sock.sendall(data)

    def close(self):
        self.sock.close()


class LabgridLink:
    """The ConsoleProtocol driver of the environment's target (a
    SerialDriver on a RawSerialPort here, on a NetworkSerialPort when a
    coordinator hands out a remote place)."""

    def __init__(self, env_file):
        from labgrid import Environment
        from pexpect import TIMEOUT
        self.timeout_error = TIMEOUT
        self.target = Environment(str(env_file)).get_target()
        self.console = self.target.get_driver('ConsoleProtocol')
        self.target.activate(self.console)

    def read(self, timeout):
        try:
            return self.console.read(size=1, timeout=timeout)
        except self.timeout_error:
            return b''

    def write(self, data):
        self.console.write(data)

    def close(self):
        self.target.deactivate(self.console)


def serial_address(rest):
    device, _, baud = rest.rpartition(':')
    return (device, int(baud)) if baud.isdigit() else (rest, CONSOLE_BAUD)


OPENERS = {
    'box': lambda rest, real_time, workdir: BoxLink([name for name in rest.split('+') if name],
                                                    real_time, workdir),
    'serial': lambda rest, *_: SerialLink(*serial_address(rest)),
    'tcp': lambda rest, *_: TcpLink(*rest.rsplit(':', 1)),
    'exec': lambda rest, *_: PtyLink(rest),
    'labgrid': lambda rest, *_: LabgridLink(rest),
}


def parse_target(target):
    """(kind, rest) of a board target; ValueError when it names none."""
    kind, _, rest = target.partition(':')
    if kind not in OPENERS or (kind != 'box' and not rest) or (kind == 'tcp' and ':' not in rest):
        raise ValueError(f'unknown board target {target!r} (box[:SCENARIO+...], serial:DEVICE[:BAUD], '
                         'tcp:HOST:PORT, exec:COMMAND, labgrid:ENV.yaml)')
    return kind, rest


def open_board(target, *, real_time=False, workdir=None, log=None):
    """A Console on the board `target` names, the tool started and in
    equipment mode. real_time: a box on the real clock, not the fast one;
    workdir: where a box keeps its state; log: a file (or path) that gets
    every byte the console shows."""
    kind, rest = parse_target(target)
    link = OPENERS[kind](rest, real_time, workdir)
    console = Console(link, target=target, kind=kind, log=log)
    try:
        return console.start()
    except BaseException:
        console.close()
        raise

