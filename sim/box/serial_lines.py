"""The board's serial lines: a pseudo-terminal per line of the state's
serial/ directory, linked into the box as /dev/ttyS<n>, with the fixture the
factory plugs into it on the far end:

    loopback        a plug that sends back what it receives
    cable=ttyS<m>   a null-modem cable to another line of the board
    master          a remote RS-485 master: a test packet every every_ms
                    (1000), len (16) bytes of payload; each echo is journaled
    gps             the GPS receiver: the sentences of gps/nmea, with their
                    checksums, once a second at gps/receiver_baud (9600); a
                    UART set to another rate (gps/baud) reads garbage

Words after the mode change what leaves a line, read at every transfer:
pulled (nothing arrives), drop=N (byte N of each transfer is lost),
corrupt=N (byte N has its low bit flipped), delay_ms=N (arrives late),
rate=N (the wire carries N bits a second whatever the UARTs are set to);
silent keeps a receiver quiet; vtime=N (tenths of a second) ends a read that
waited that long for nothing with no bytes, as a UART left in timed mode.

Bytes reach the board as a UART delivers them: one every 10 bits at the
sending end's speed, on the box's clock (its clock file's xN speeds the
wire up with it). The GPS receiver's sentences arrive whole.
Everything the board sends on a line is appended to capture/ttyS<n> of the
state, so a test reads what crossed the wire.

    serial_lines.py ROOT STATE   (as root, in the box's mount namespace)

Returns once the lines are linked; a child serves them until the box ends.
"""
import collections
import fcntl
import heapq
import os
import re
import selectors
import struct
import sys
import termios
import time

import daemon

TIOCSPTLCK = 0x40045431
TIOCGPTN = 0x80045430
SPEEDS = {getattr(termios, 'B%d' % r): r for r in (1200, 2400, 4800, 9600, 19200, 38400,
                                                   57600, 115200, 230400)}


def words(path):
    try:
        with open(path) as f:
            text = f.read().split()
    except OSError:
        return None, {}
    opts = dict(w.split('=', 1) if '=' in w else (w, '') for w in text)
    return (text[0].split('=')[0] if text else None), opts


def number(opts, key, default):
    try:
        return int(opts[key], 0)
    except (KeyError, ValueError):
        return default


def raw(fd, vtime=0):
    attrs = termios.tcgetattr(fd)
    attrs[0] = attrs[1] = attrs[3] = 0
    attrs[2] = termios.CS8 | termios.CREAD | termios.CLOCAL | termios.B9600
    vtime = min(max(vtime, 0), 255)
    attrs[6][termios.VMIN], attrs[6][termios.VTIME] = (0, vtime) if vtime else (1, 0)
    termios.tcsetattr(fd, termios.TCSANOW, attrs)


def speed(fd):
    # On a pty master the kernel answers with the board side's attributes.
    return SPEEDS.get(termios.tcgetattr(fd)[2] & termios.CBAUD, 0)


def box_speed(state):
    """Box seconds per real second: the xN of the box's clock file."""
    try:
        with open(os.path.join(state, 'clock')) as f:
            found = re.search(r'x([0-9.]+)', f.read())
    except OSError:
        return 1.0
    return float(found.group(1)) if found else 1.0


def garble(data):
    return bytes((b * 7 + 0x35) & 0xFF for b in data)


def nmea(path):
    out = b''
    try:
        lines = open(path, 'rb').read().splitlines()
    except OSError:
        return out
    for line in lines:
        body = line.strip().lstrip(b'$').split(b'*')[0]
        if body:
            check = 0
            for b in body:
                check ^= b
            out += b'$%s*%02X\r\n' % (body, check)
    return out


class Line:
    def __init__(self, root, state, name):
        self.name, self.state = name, state
        self.conf = os.path.join(state, 'serial', name)
        self.master = os.open(os.path.join(root, 'dev/pts/ptmx'), os.O_RDWR | os.O_NOCTTY)
        fcntl.ioctl(self.master, TIOCSPTLCK, struct.pack('i', 0))
        num = struct.unpack('I', fcntl.ioctl(self.master, TIOCGPTN, b'\0' * 4))[0]
        # Held open so the master never sees a hang-up between the tool's opens.
        self.slave = os.open(os.path.join(root, 'dev/pts', str(num)), os.O_RDWR | os.O_NOCTTY)
        raw(self.slave)
        os.set_blocking(self.master, False)
        link = os.path.join(root, 'dev', name)
        if os.path.lexists(link):
            os.unlink(link)
        os.symlink('pts/%d' % num, link)
        self.echo = b''
        self.sent = b''
        self.wire = collections.deque()  # (real time the first byte is due, byte time, bytes)
        self.wire_free = 0.0             # when the last queued byte has arrived
        self.capture = os.path.join(state, 'capture', name)

    def mode(self):
        return words(self.conf)


class Lines:
    def __init__(self, root, state):
        self.state = state
        self.lines = {}
        for name in sorted(os.listdir(os.path.join(state, 'serial'))):
            if name.startswith('ttyS') and name[4:].isdigit():
                self.lines[name] = Line(root, state, name)
        self.timers = []  # (due, seq, action)
        self.seq = 0
        self.sel = selectors.DefaultSelector()
        for line in self.lines.values():
            self.sel.register(line.master, selectors.EVENT_READ, line)
            self.later(0, self.tick, line)

    def later(self, secs, action, *args):
        self.seq += 1
        heapq.heappush(self.timers, (time.monotonic() + secs, self.seq, action, args))

    def journal(self, text):
        daemon.journal(self.state, text)

    def deliver(self, line, data, opts, baud=0):
        """Sends data towards the board's end of line, as the words say, at
        baud (0: at once)."""
        if 'pulled' in opts or not data:
            return
        drop, flip = number(opts, 'drop', -1), number(opts, 'corrupt', -1)
        if 0 <= flip < len(data):
            data = data[:flip] + bytes([data[flip] ^ 1]) + data[flip + 1:]
        if 0 <= drop < len(data):
            data = data[:drop] + data[drop + 1:]
        baud = number(opts, 'rate', baud)
        byte_time = 10.0 / baud / box_speed(self.state) if baud > 0 else 0.0
        self.later(number(opts, 'delay_ms', 0) / 1000.0, self.send, line, data, byte_time)

    def send(self, line, data, byte_time):
        """Puts data on the wire behind what is already on it."""
        start = max(time.monotonic(), line.wire_free)
        line.wire_free = start + len(data) * byte_time
        line.wire.append((start, byte_time, data))
        if len(line.wire) == 1:
            self.pump(line)

    def pump(self, line):
        """Hands the board the bytes that have arrived by now."""
        now = time.monotonic()
        while line.wire:
            start, byte_time, data = line.wire[0]
            count = len(data) if byte_time <= 0 else min(len(data), int((now - start) / byte_time))
            if count:
                self.put(line, data[:count])
            if count < len(data):
                start += count * byte_time
                line.wire[0] = (start, byte_time, data[count:])
                # A millisecond at least between wake-ups: bytes come in small batches.
                self.later(max(start + byte_time - now, 0.001), self.pump, line)
                return
            line.wire.popleft()

    def put(self, line, data):
        try:
            os.write(line.master, data)
        except (BlockingIOError, OSError):
            pass  # a full queue loses bytes, as a real UART overruns

    def received(self, line):
        try:
            data = os.read(line.master, 4096)
        except (BlockingIOError, OSError):
            return
        os.makedirs(os.path.dirname(line.capture), exist_ok=True)
        with open(line.capture, 'ab') as f:
            f.write(data)
        mode, opts = line.mode()
        baud = speed(line.master)
        if mode == 'loopback':
            self.deliver(line, data, opts, baud)
        elif mode == 'cable' and opts.get('cable') in self.lines:
            peer = self.lines[opts['cable']]
            if speed(peer.master) != baud:
                data = garble(data)
            self.deliver(peer, data, opts, baud)
        elif mode == 'master':
            self.master_echo(line, data)

    def master_echo(self, line, data):
        line.echo += data
        while line.sent and len(line.echo) >= len(line.sent):
            got, line.echo = line.echo[:len(line.sent)], line.echo[len(line.sent):]
            self.journal('serial /dev/%s echo len=%d -> %d' % (line.name, len(got),
                                                               0 if got == line.sent else -1))

    def tick(self, line):
        mode, opts = line.mode()
        if mode == 'gps':
            self.later(1.0, self.tick, line)
            raw(line.slave, number(opts, 'vtime', 0))  # the receiver's line, whoever opens it
            if 'silent' in opts or 'pulled' in opts:
                return
            data = nmea(os.path.join(self.state, 'gps/nmea'))
            rate, _ = words(os.path.join(self.state, 'gps/baud'))
            own, _ = words(os.path.join(self.state, 'gps/receiver_baud'))
            if (rate or '9600') != (own or '9600'):
                data = garble(data)
            self.deliver(line, data, opts)
        elif mode == 'master':
            self.later(number(opts, 'every_ms', 1000) / 1000.0, self.tick, line)
            size = number(opts, 'len', 16) & 0xFF
            line.sent = b'\xff\xff\xff\xff' + bytes([size, 1]) + bytes(range(size))
            line.echo = b''
            self.deliver(line, line.sent, opts, speed(line.master))
        else:
            self.later(1.0, self.tick, line)

    def run(self):
        while True:
            wait = max(0.0, self.timers[0][0] - time.monotonic()) if self.timers else None
            for key, _ in self.sel.select(wait):
                self.received(key.data)
            now = time.monotonic()
            while self.timers and self.timers[0][0] <= now:
                _, _, action, args = heapq.heappop(self.timers)
                action(*args)


def main(root, state):
    if not os.path.isdir(os.path.join(state, 'serial')):
        return 0
    lines = Lines(root, state)
    daemon.serve(lines.run)
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1], sys.argv[2]))
