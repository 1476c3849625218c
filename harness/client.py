"""The console client: starts the tool on a board's console, enters the
equipment mode and runs commands, each giving a Result. The console is
reached through a link (harness/transports.py): anything with
read(timeout) -> bytes (b'' when nothing came; EOFError at the end),
write(bytes) and close().
"""
import os
import re
import time
from dataclasses import dataclass, field

from . import protocol
from .timeouts import BAUD, default_timeout

START_TIMEOUT = 60.0
# A console showing nothing gets a line break this often while the tool is
# being reached: a serial line shows no prompt until a key is pressed.
POKE = 2.0
# After a time-out: how long a line break gets to bring the prompt back.
RECOVER = 5.0
QUIET = 0.3
# What a command that waits for nothing gets (entering equipment mode).
STEP = 10.0
TOOL = b'cli'
# A shell's prompt ends in "# " or "$ "; BusyBox's ash then asks for the
# cursor position.
SHELL_PROMPT = re.compile(rb'[#$] (?:\x1b\[6n)?\Z')
LOGIN = re.compile(rb'login: ?\Z')
PASSWORD = re.compile(rb'[Pp]assword: ?\Z')
SET_RATE = re.compile(r'test (?:rs 232 set rate (\d+)|485 \S+ set rate (\d+))')
# A command is one line: a line break, an escape sequence or a Tab in it
# would type more than the plan says.
CONTROL = re.compile(r'[\x00-\x1f\x7f-\x9f]')
# A step's output past LIMIT keeps its first and last HALF bytes: a flood
# must not fill the reports nor the memory.
LIMIT = 1 << 20
HALF = LIMIT // 2
# What goes to the console is written in pieces, what comes back read
# between them: a far end whose echo nobody reads stops reading.
PIECE = 64
POLL = 0.05


class ConsoleError(Exception):
    pass


@dataclass
class Result:
    """A command's outcome. verdict: 'pass', 'fail', 'refused',
    'incomplete' or 'timeout'. lines: the handler's lines (bytes); text:
    the same decoded, progress redraws collapsed. message: the refusal's
    text, or why a time-out ended. caret: the refusal caret's column in
    the command. confirmation: what was typed at "Are you sure?(Y/N)"
    (None when not asked). raw: the console's bytes after the echo up to
    the prompt."""
    command: str
    verdict: str
    lines: list = field(default_factory=list)
    text: str = ''
    message: str | None = None
    caret: int | None = None
    confirmation: str | None = None
    duration: float = 0.0
    raw: bytes = b''

    @property
    def passed(self):
        return self.verdict == 'pass'


def bounded(raw, dropped):
    """raw with its middle past LIMIT dropped (dropped bytes went before),
    and a line in their place saying how many."""
    over = max(len(raw) - LIMIT, 0)
    if not dropped + over:
        return raw
    return raw[:HALF] + b'\r\n[%d bytes dropped]\r\n' % (dropped + over) + raw[HALF + over:]


def at_end(pattern):
    return re.compile(re.escape(pattern) + rb'\Z')


class Console:
    """The tool on one board's console (see open_board)."""

    def __init__(self, link, *, target, kind, log=None):
        self.link, self.target, self.kind = link, target, kind
        # USER:PASSWORD for a console that asks for a login.
        self.login = os.environ.get('HARNESS_LOGIN')
        self.state = getattr(link, 'state', None)
        self.log = log if log is None or hasattr(log, 'write') else open(log, 'ab')
        self.banner = b''
        self.model = protocol.MODEL
        self.mode = None
        self.baud = BAUD
        self.usable = False
        self._clear()

    # -- the link --

    def _clear(self):
        self._buf, self._mark, self._dropped = bytearray(), 0, 0

    def _send(self, data, deadline=None):
        """Writes data, reading what comes back, until the deadline; False
        when the console would not take it all by then."""
        deadline = deadline or time.monotonic() + STEP
        while data:
            left = deadline - time.monotonic()
            if left <= 0:
                return False
            taken = self.link.write(data[:PIECE], min(left, POLL))
            data = data[taken:]
            self._read(0 if taken else min(left, POLL))
        return True

    def _read(self, timeout):
        try:
            data = self.link.read(max(timeout, 0))
        except EOFError:
            self.usable = False
            raise
        if data and self.log:
            self.log.write(data)
            self.log.flush()
        self._buf += data
        if len(self._buf) > 2 * LIMIT:
            self._trim()
        return data

    def _trim(self):
        # Amortised: the middle goes once the buffer holds two bounds' worth.
        cut = len(self._buf) - LIMIT
        del self._buf[HALF:HALF + cut]
        self._dropped += cut
        if self._mark > HALF:
            self._mark = max(HALF, self._mark - cut)

    def _wait(self, patterns, deadline):
        """Reads until the buffer (past the mark) ends with one of the
        patterns; its index and match, or (None, None) at the deadline.
        self._end is where the match starts in the buffer."""
        while True:
            start = max(self._mark, len(self._buf) - 512)
            for index, pattern in enumerate(patterns):
                match = pattern.search(self._buf, start)
                if match:
                    self._end = match.start()
                    return index, match
            left = deadline - time.monotonic()
            if left <= 0:
                return None, None
            self._read(min(left, 1.0))

    def _drain(self, quiet=QUIET):
        while self._read(quiet):
            pass

    def _prompts(self):
        # The tool's "\r\n" before its prompt shows as "\r\r\n".
        return [at_end(b'\r' + p) for p in protocol.prompts(self.model)]

    # -- reaching the tool --

    def start(self):
        """Reaches the tool's user prompt (typing cli at a shell, quitting a
        tool left running so that its banner shows), then equipment mode."""
        try:
            self._start()
            self.enter_equipment()
        except EOFError:
            raise ConsoleError(f'{self.target}: the console ended: '
                               f'{protocol.decode(self._buf[-300:])!r}') from None
        return self

    def _start(self):
        deadline = time.monotonic() + START_TIMEOUT
        patterns = [protocol.USER_PROMPT, self._prompts()[1], SHELL_PROMPT, LOGIN, PASSWORD]
        self._clear()
        self._typed = {}
        while True:
            index, match = self._wait(patterns, min(deadline, time.monotonic() + POKE))
            if index == 0 and protocol.BANNER in self._buf:
                break
            if index is None and time.monotonic() >= deadline:
                raise ConsoleError(f'{self.target}: no prompt within {START_TIMEOUT:.0f} s')
            # What comes back while typing is already past the mark.
            self._mark = len(self._buf)
            self._send(self._reply(index))
        self.model = match.group(1).decode()
        banner = bytes(self._buf[:self._end])
        self.banner = banner.split(TOOL + b'\r\n', 1)[-1] if 2 in self._typed else banner
        self.usable, self.mode, self.baud = True, 'user', BAUD

    def _reply(self, index):
        """What to type at what the console shows (an index of _start's
        patterns, None for nothing) on the way to the tool's banner."""
        if index in (0, 1):
            return b'q\r'  # a tool left running: its banner comes at a new start
        if index is None:
            return b'\r'
        if index in self._typed:
            at, line = self._typed[index]
            # The prompt again for a line break sent before it showed: the
            # line typed there has not come back yet (a password never does).
            if index != 4 and line not in self._buf[at:]:
                return b''
            raise ConsoleError(f'{self.target}: {("cli did not start", "login refused")[index > 2]}: '
                               f'{protocol.decode(self._buf[-300:])!r}')
        if index != 2 and not self.login:
            raise ConsoleError(f'{self.target}: the console asks for a login; set HARNESS_LOGIN')
        line = TOOL if index == 2 else self.login.partition(':')[0 if index == 3 else 2].encode()
        self._typed[index] = (len(self._buf), line)
        return line + b'\r'

    def enter_equipment(self):
        self._clear()
        deadline = time.monotonic() + STEP
        self._send(b'en_equipment\r', deadline)
        index, _ = self._wait(self._prompts(), deadline)
        if index != 1:
            self.usable = False
            raise ConsoleError(f'{self.target}: no equipment prompt after en_equipment')
        self.mode = 'equipment'

    # -- commands --

    def run(self, command, timeout=None, answer=None):
        """Types a command in equipment mode and reads its answer; a
        confirmation is answered with `answer`, or refused ('n')."""
        if not self.usable:
            raise ConsoleError(f'{self.target}: the console is unusable; restart it')
        if '?' in command:
            raise ValueError('"?" asks for help, not a command')
        control = CONTROL.search(command)
        if control:
            raise ValueError(f'a command is one line: {command!r} holds {control.group()!r}')
        if self.mode != 'equipment':
            self.enter_equipment()
        timeout = timeout or default_timeout(command, self.baud)
        prompts = self._prompts() + [at_end(protocol.CONFIRM)]
        self._clear()
        confirmation, started = None, time.monotonic()
        try:
            if not self._send(command.encode(protocol.ENCODING) + b'\r', started + timeout):
                return self._lost(command, started, f'the console took no more of the command '
                                  f'within {timeout:.1f} s')
            while True:
                index, _ = self._wait(prompts, started + timeout)
                if index != 2:
                    break
                confirmation = answer or 'n'
                self._mark = len(self._buf)
                self._send(confirmation.encode() + b'\r', started + timeout)
        except EOFError:
            return self._lost(command, started, 'the console ended')
        if index is None:
            return self._timed_out(command, started, timeout)
        self.mode = ('user', 'equipment')[index]
        result = self._result(command, started, self._answer_bytes(command, self._end))
        result.confirmation = confirmation
        self._note_rate(result)
        return result

    def _answer_bytes(self, command, end=None):
        raw = bounded(bytes(self._buf[:end]), self._dropped)
        echo = command.encode(protocol.ENCODING)
        return raw[len(echo):] if raw.startswith(echo) else raw

    def _result(self, command, started, raw, verdict=None, message=None):
        answer = protocol.parse_answer(raw, len(protocol.equipment_prompt(self.model)))
        return Result(command, verdict or answer.verdict, answer.lines,
                      protocol.text_of(answer.lines), message=message or answer.message,
                      caret=None if verdict else answer.caret,
                      duration=time.monotonic() - started, raw=raw)

    def _timed_out(self, command, started, timeout):
        """A line break, then the prompt: a slow command; silence: a tool
        stuck in a read, which only a new start ends."""
        raw = self._answer_bytes(command)
        self._mark = len(self._buf)
        try:
            self._send(b'\r')
            index, _ = self._wait(self._prompts(), time.monotonic() + RECOVER)
            if index is not None:
                self._drain()
        except EOFError:
            index = None
        if index is None:
            self.usable = False
            why = f'no prompt within {timeout:.1f} s, nor after a line break: the tool is stuck'
        else:
            self.mode = ('user', 'equipment')[index]
            why = f'no prompt within {timeout:.1f} s; a line break brought it back'
        return self._result(command, started, raw, 'timeout', why)

    def _lost(self, command, started, why):
        self.usable = False
        return self._result(command, started, self._answer_bytes(command), 'timeout', why)

    def _note_rate(self, result):
        # The serial loopbacks' time-out follows the rate the tool was set to.
        match = SET_RATE.match(' '.join(result.command.split()))
        if match and result.passed:
            self.baud = int(match.group(1) or match.group(2))

    # -- life --

    def restart(self):
        """A new start of the tool (a box: a new box on the same state)."""
        if not hasattr(self.link, 'restart'):
            raise ConsoleError(f'{self.target}: a {self.kind} board cannot be restarted from here')
        self.link.restart()
        return self.start()

    def close(self):
        """Quits the tool when it answers, then closes the link."""
        try:
            if self.usable:
                for _ in range(2 if self.mode == 'equipment' else 1):
                    self._send(b'q\r')
                    self._wait(self._prompts() + [SHELL_PROMPT], time.monotonic() + 2)
        except (EOFError, OSError):
            pass
        self.usable = False
        self.link.close()
        if self.log:
            self.log.close()
            self.log = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
