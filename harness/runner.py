"""The runner: one plan on many boards at once, a live line per board, a
summary at the end, reports for the factory's systems, and the record of
every step in the results database as it ends. The plan's questions for
the operator are asked at the terminal, or on the station's page when one
is served.

    harness/run PLAN --board TARGET[@SERIAL] [--board ...] [--scan]
                [--station NAME] [--operator NAME] [--db URL | --no-db]
                [--junit FILE] [--json FILE] [--jobs N] [--real-time]
                [--log-dir DIR] [--workdir DIR] [--serve [HOST:]PORT [--lang LANG]]
    harness/station PLAN --board TARGET [--board ...] --serve [HOST:]PORT ...

Exit status: 0 every board passed, 1 a board failed, 2 a bad plan, command
line or record; 130 after SIGINT, 143 after SIGTERM (what ran is recorded
and reported). A station runs until one of those signals.
"""
import argparse
import getpass
import itertools
import os
import re
import select
import signal
import socket
import sys
import tempfile
import threading
import time
import uuid
from dataclasses import dataclass, field
from datetime import datetime, timezone
from pathlib import Path

from . import plan as plans
from . import report
from .client import ConsoleError
from .protocol import decode
from .transports import open_board, parse_target

VERSION_COMMAND = 'display version mainboard'
# Boards whose tool the runner can start again after it stopped answering.
RESTARTABLE = ('box', 'exec')
DEFAULT_DB = 'sqlite:///results.sqlite'
# How long the boards get to wind down after a stop before the run is closed.
STOP_GRACE = 20.0


class Stopped(Exception):
    """The run was stopped (SIGINT, SIGTERM): the board's plan ends here."""


@dataclass
class StepRecord:
    seq: int
    name: str
    phase: str
    command: str
    expected: str
    verdict: str | None = None
    ok: bool = False
    skipped: bool = True
    why: str | None = None
    duration: float = 0.0
    attempts: list = field(default_factory=list)
    measurements: list = field(default_factory=list)
    text: str = ''
    raw: bytes = b''
    started: str = ''
    ended: str = ''
    confirmation: str | None = None
    rerun: bool = False

    @property
    def status(self):
        return 'skipped' if self.skipped else ('passed' if self.ok else 'failed')


@dataclass
class BoardRecord:
    seq: int
    label: str
    target: str
    steps: list
    scanned: str | None = None
    serial: str | None = None
    identity: dict = field(default_factory=dict)
    reruns: list = field(default_factory=list)
    events: list = field(default_factory=list)
    visit: str | None = None
    verdict: str = 'fail'
    error: str | None = None
    banner: str = ''
    version: str = ''
    started: str = ''
    ended: str = ''
    duration: float = 0.0

    def all_steps(self):
        return self.steps + self.reruns

    def count(self, what):
        return sum(s.status == what for s in self.all_steps())

    def first_failure(self):
        if self.error:
            return self.error
        bad = next((s for s in self.all_steps() if s.status == 'failed'), None)
        return f'{bad.name}: {bad.why}' if bad else ''


def now():
    return datetime.now(timezone.utc).isoformat(timespec='seconds')


class NoRecord:
    """--no-db: the record's calls, kept nowhere."""
    spool = None

    def start_run(self, run):
        return uuid.uuid4().hex

    def start_visit(self, run_id, visit):
        return uuid.uuid4().hex

    def __getattr__(self, name):
        return lambda *args, **kwargs: None


class Lines:
    """Lines typed at the terminal (or by a scanner that types like one),
    read with a time-out and a way to give up. Reads the descriptor itself:
    a buffered reader would keep lines that select() then never sees."""

    def __init__(self, stream):
        self.stream, self.rest, self.ended = stream, b'', False
        try:
            self.fd = stream.fileno()
        except (AttributeError, OSError, ValueError):
            self.fd = None      # a stream without one (a test's StringIO)
        self.tty = self.fd is not None and os.isatty(self.fd)

    def read(self, deadline=None, stopped=lambda: False):
        """A line without its end; None at the end of input, the deadline or a stop."""
        if self.fd is None:
            line = self.stream.readline()
            return line.rstrip('\r\n') if line else None
        while b'\n' not in self.rest:
            left = 0.2 if deadline is None else min(0.2, deadline - time.monotonic())
            if self.ended or stopped() or left <= 0:
                return None
            if select.select([self.fd], [], [], left)[0]:
                chunk = os.read(self.fd, 4096)
                self.ended = not chunk
                self.rest += chunk or (b'\n' if self.rest else b'')
        line, _, self.rest = self.rest.partition(b'\n')
        return line.decode('utf-8', 'replace').rstrip('\r')


class Progress:
    """One line per board: redrawn in place on a terminal. Elsewhere (a log,
    a CI job) a line per failure as it happens and one per board as it ends:
    16 boards' steps line by line, interleaved, are not readable. A question
    for the operator holds the lines while it waits for its answer."""

    def __init__(self, boards, out=None, lines=None):
        self.out, self.lock = out or sys.stdout, threading.Lock()
        self.tty = self.out.isatty()
        self.boards = {b.seq: b for b in boards}
        self.lines = {b.seq: f'{b.label}  waiting' for b in boards}
        self.drawn = 0
        self.held = None            # notes that came while a question was open
        self.asking = threading.Lock()
        self.input = lines or Lines(sys.stdin)

    def update(self, board, text, note=None):
        with self.lock:
            self.boards[board.seq] = board
            width = max(len(b.label) for b in self.boards.values())
            self.lines[board.seq] = f'{board.label:<{width}}  {text}'
            note = note and f'{board.label:<{width}}  {note}'
            if self.held is not None:
                self.held += [note] if note and not self.tty else []
            elif self.tty:
                self._draw()
            elif note:
                print(note, file=self.out, flush=True)

    def _draw(self):
        if self.drawn:
            self.out.write(f'\x1b[{self.drawn}F')
        for seq in sorted(self.lines):
            self.out.write('\x1b[2K' + self.lines[seq][:200] + '\n')
        self.out.flush()
        self.drawn = len(self.lines)

    def ask(self, prompt, check, timeout=None, stopped=lambda: False):
        """The operator's line, one question at a time; the live lines are
        drawn anew below the question and its answer. check(line) gives
        (answer, None), or (None, why) to ask again."""
        with self.asking:
            with self.lock:
                self.held = []
            try:
                return self._ask(prompt, check, timeout, stopped)
            finally:
                with self.lock:
                    for note in self.held:
                        print(note, file=self.out)
                    self.held, self.drawn = None, 0
                    if self.tty:
                        self._draw()
                    self.out.flush()

    def _ask(self, prompt, check, timeout, stopped):
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            self.out.write(prompt)
            self.out.flush()
            line = self.input.read(deadline, stopped)
            # A terminal echoes what is typed; a log shows it here.
            self.out.write('\n' if line is None else '' if self.input.tty else line + '\n')
            if line is None:
                return None
            answer, why = check(line)
            if why is None:
                return answer
            self.out.write(f'  {why}\n')


def terminal_question(step, pattern):
    """The question as asked at the terminal and the check of its answer."""
    def choose(line):
        typed = line.strip()
        same = [c for c in step.choices if c == typed] or \
               [c for c in step.choices if c.lower() == typed.lower()]
        return (same[0], None) if len(same) == 1 else (None, 'answer ' + ' or '.join(step.choices))

    def scan(line):
        value = line.strip()
        if value and (not pattern or re.fullmatch(pattern, value)):
            return value, None
        return None, f'{value!r} does not match {pattern}' if value else 'nothing scanned'

    if step.ask == 'prompt':
        return f'{step.question} [Enter]: ', lambda line: ('OK', None)
    if step.ask == 'judge':
        return f'{step.question} [{"/".join(step.choices)}]: ', choose
    return f'{step.question}: ', scan


def db_step(step):
    """A step as the record keeps it."""
    keys = ('seq', 'name', 'phase', 'command', 'status', 'verdict', 'ok', 'why', 'started',
            'ended', 'attempts', 'text', 'raw', 'confirmation')
    row = {k: getattr(step, k) for k in keys}
    measurements = [dict(name=m['name'], value=m['value'], ok=m['ok'], why=m['why'],
                         **{k: m['limits'].get(k) for k in ('low', 'high', 'equals', 'in', 'unit')})
                    for m in step.measurements]
    return dict(row, expected=step.expected, duration=round(step.duration, 3),
                measurements=measurements)


def page_measurements(measurements):
    return [dict(name=m['name'], value=m['value'], unit=m['limits'].get('unit'),
                 limits=m['limits'], ok=m['ok']) for m in measurements]


def earlier(attempts):
    """What the tries before the last one said: a retried step shows them all."""
    return '; '.join(f'attempt {a["n"]}: {a["why"]}' for a in attempts[:-1])


class BoardRun:
    def __init__(self, plan, board, ctx, workdir=None):
        self.plan, self.board, self.ctx = plan, board, ctx
        self.options, self.progress, self.record = ctx.options, ctx.progress, ctx.record
        self.workdir = workdir or board.label
        self.console = None
        self.clock = time.monotonic()
        self.lock = threading.Lock()
        self.stopped = self.completed = self.ended = False
        self.setup_ran = 0
        self.rerunning = False
        self.recorded = set()
        self.lost = None  # why the console stopped answering

    @property
    def slot(self):
        return self.board.seq + 1

    # -- stopping from another thread --

    def stop(self):
        """Ends the board's tool now (its box removed); the board's thread
        then finds its console gone and ends the visit."""
        with self.lock:
            self.stopped = True
            console = self.console
        if console:
            try:
                console.link.close()
            except Exception:  # noqa: BLE001 - a link half gone is gone enough
                pass

    def checkpoint(self):
        if self.stopped:
            raise Stopped()

    def attach(self, console):
        with self.lock:
            self.console = console
        self.checkpoint()

    # -- what the operator sees --

    def publish(self, kind, **event):
        if self.ctx.page:
            self.ctx.page.publish({'type': kind, 'slot': self.slot, **event})

    def show_board(self):
        board = self.board
        self.publish('board', state='running', serial=board.serial, identity=board.identity,
                     plan=self.ctx.plan_title, total=len(board.steps))

    def show(self, i, step, record=None):
        total, elapsed = len(self.board.steps), time.monotonic() - self.clock
        line, note, why = f'{i + 1}/{total} {step.name}  {elapsed:6.1f} s', None, None
        if record and not record.ok:
            line, why = f'{line}  FAIL {record.why}', record.why
            note = f'FAIL {i + 1}/{total} {step.name}: {record.why}'
        elif record and len(record.attempts) > 1:
            why = f'passed on attempt {len(record.attempts)} ({earlier(record.attempts)})'
            line, note = f'{line}  {why}', f'RETRIED {i + 1}/{total} {step.name}: {why}'
        elif record:
            line += '  pass'
        self.progress.update(self.board, line, note)
        self.publish('step', index=i, total=total, name=step.name,
                     state=record.status if record else 'running', why=why,
                     elapsed=round(elapsed, 1),
                     measurements=page_measurements(record.measurements) if record else [])

    # -- the board's thread --

    def open(self):
        opts = self.options
        workdir = Path(opts.workdir, self.workdir.replace('/', '_').replace(':', '_'))
        workdir.mkdir(parents=True, exist_ok=True)
        log = Path(opts.log_dir, f'{workdir.name}.log') if opts.log_dir else None
        self.attach(open_board(self.board.target, real_time=opts.real_time,
                               workdir=workdir, log=log))
        self.board.banner = decode(self.console.banner)
        self.read_identity()

    def read_identity(self):
        """Each identity command once; a value not found is absent."""
        board, texts = self.board, {}
        for command in dict.fromkeys([VERSION_COMMAND] + [i.command for i in self.plan.identity]):
            if not self.console.usable:
                break  # the first step starts the tool again; these stay absent
            result = self.console.run(command)
            self.checkpoint()
            self.note_lost(command, result)
            texts[command] = result.text
        board.version = texts.get(VERSION_COMMAND, '')
        board.identity = {i.name: i.read(texts.get(i.command, '')) for i in self.plan.identity}
        board.serial = board.scanned or board.identity.get('serial')
        board.label = board.serial or board.label
        self.record.set_identity(board.visit, board.identity, board.serial)
        self.show_board()

    def note_lost(self, name, result):
        if not self.console.usable:
            self.lost = f'{name}: {result.message or result.verdict}'

    def step(self, step, record):
        record.started = now()
        if step.command:
            self.command(step, record)
        if step.ask and (record.ok or not step.command):
            self.ask(step, record)
        record.ended = now()
        return record.ok

    def command(self, step, record):
        for attempt in range(step.retries + 1):
            self.checkpoint()
            if not self.console.usable:
                self.recover()
            started, record.skipped = now(), False
            result = self.console.run(step.command, timeout=step.timeout, answer=step.answer)
            self.checkpoint()
            self.note_lost(step.name, result)
            outcome = plans.judge(step, result)
            record.verdict, record.ok, record.why = result.verdict, outcome.ok, outcome.why
            record.duration += result.duration
            record.attempts.append(dict(n=attempt + 1, verdict=result.verdict, why=outcome.why,
                                        duration=round(result.duration, 3), started=started,
                                        confirmation=result.confirmation))
            record.measurements = [dict(name=m.name, value=m.value, ok=m.ok, why=m.why,
                                        limits=m.limit.as_dict()) for m in outcome.measurements]
            record.text, record.raw = result.text, result.raw
            record.confirmation = result.confirmation
            if outcome.ok or (result.verdict == 'timeout' and self.console.kind not in RESTARTABLE):
                break
        if not record.ok and len(record.attempts) > 1:
            record.why += f' ({len(record.attempts)} attempts)'

    def ask(self, step, record):
        """The operator's answer: who gave it and when go into the step's
        attempt and its text; a scan's value is its measurement."""
        started, clock, record.skipped = now(), time.monotonic(), False
        timeout = None if step.command else step.timeout
        reply = self.ctx.ask(self, step, timeout)
        self.checkpoint()
        verdict, why = plans.judge_answer(step, reply, timeout)
        if reply and step.serial and not why:
            why = self.take_serial(reply['answer'])
            verdict = 'fail' if why else verdict
        said = {'question': step.question, 'answer': None, 'by': None, 'at': None, **(reply or {})}
        if step.command:    # the judgement ends the command's last try
            record.attempts[-1].update(said, judged=verdict, why=why)
        else:
            record.verdict = verdict
            record.attempts.append(dict(n=1, verdict=verdict, why=why, started=started,
                                        duration=round(time.monotonic() - clock, 3), **said))
        record.ok, record.why = why is None, why
        record.duration += time.monotonic() - clock
        if reply and step.ask == 'scan':
            record.measurements.append(dict(name='value', value=reply['answer'], ok=why is None,
                                            why=why, limits={}))
        line = (f'{step.question} => {reply["answer"]} (by {reply["by"]} at {reply["at"]})'
                if reply else f'{step.question} => no answer')
        record.text = f'{record.text}\n{line}' if record.text else line

    def take_serial(self, serial):
        """A scanned label as the board's serial number; why not, or None."""
        board = self.board
        if board.scanned and serial != board.scanned:
            return f"label {serial!r} is not the board's serial number {board.scanned!r}"
        try:
            check_serial(self.plan, serial, 'the label')
        except ValueError as e:
            return str(e)
        board.serial = board.scanned = board.label = serial
        self.record.set_identity(board.visit, board.identity, serial)
        self.show_board()
        return None

    def recover(self):
        """A new start of the tool, then the setup steps that had run, again:
        the tool forgot what they set."""
        if self.console.kind not in RESTARTABLE or self.rerunning:
            raise ConsoleError('the tool stopped answering; the board plan stops here')
        self.console.restart()
        self.checkpoint()
        why, self.lost = self.lost or 'the tool stopped answering', None
        self.event('restart', why)
        restarts = sum(e['kind'] == 'restart' for e in self.board.events)
        self.rerunning = True  # a setup step that hangs again ends the board's plan
        try:
            for step in self.plan.setup[:self.setup_ran]:
                again = StepRecord(len(self.board.all_steps()),
                                   f'{step.name} (after restart {restarts})', 'setup',
                                   step.command, step.expect, rerun=True)
                self.board.reruns.append(again)
                if not self.finish_step(again, self.step(step, again)):
                    raise ConsoleError(f'{step.name}: failed after a restart; '
                                       'the board plan stops here')
        finally:
            self.rerunning = False

    def event(self, kind, detail):
        at = now()
        self.board.events.append(dict(kind=kind, detail=detail, at=at))
        if self.board.visit:
            self.record.add_event(self.board.visit, kind, detail, at)

    def finish_step(self, record, ok):
        self.recorded.add(record.seq)
        self.record.add_step(self.board.visit, db_step(record))
        return ok

    def run(self, started_by=None):
        board = self.board
        board.started = now()
        visit = dict(seq=board.seq, label=board.label, target=board.target,
                     serial=board.scanned, station=self.ctx.station,
                     operator=self.options.operator, started=board.started)
        board.visit = self.record.start_visit(self.ctx.run_id, visit)
        try:
            if started_by:
                self.event('start', started_by)
            self.progress.update(board, 'starting')
            self.show_board()
            if board.scanned:
                check_serial(self.plan, board.scanned, 'the scanned label')
            self.open()
            self.steps()
            self.completed = True
        except Exception as e:  # noqa: BLE001 - after a stop, whatever the torn link raised
            if not self.stopped:
                self.fail(e)
        finally:
            self.close()
            self.finish()

    def fail(self, error):
        """The board cannot go on: the steps not run are skipped."""
        self.board.error = str(error) or type(error).__name__
        self.completed = True
        self.skip_rest(0, f'not run: {self.board.error}')
        if not isinstance(error, (ConsoleError, OSError, EOFError, ValueError)):
            raise error

    def close(self):
        with self.lock:
            console, self.console = self.console, None
        if console and self.stopped:
            console.link.close()  # a restart may have begun a new box since the stop
        elif console:
            console.close()

    def finish(self):
        """Ends the visit once: its verdict, or interrupted by a stop."""
        with self.lock:
            if self.ended:
                return
            self.ended = True
        board = self.board
        board.ended = now()
        board.duration = time.monotonic() - self.clock
        failed = board.error or not all(s.ok for s in board.all_steps())
        board.verdict = 'interrupted' if not self.completed else ('fail' if failed else 'pass')
        if board.verdict == 'interrupted':
            for step in board.all_steps():
                if step.seq not in self.recorded:  # cut short: not run
                    step.skipped, step.why = True, f'not run: stopped by {self.ctx.signal_name()}'
        if board.visit:
            if board.verdict == 'interrupted':
                self.event('interrupt', self.ctx.signal_name())
            self.record.end_visit(board.visit, board.verdict, board.ended, error=board.error,
                                  first_failure=board.first_failure() or None)
        ended = f'{board.verdict}  {board.duration:.1f} s'
        if board.verdict == 'fail':
            ended += f'  {board.first_failure()}'
        self.progress.update(board, ended, self.ended_note())
        if board.verdict != 'interrupted':
            self.publish('verdict', verdict=board.verdict, serial=board.serial,
                         first_failure=board.first_failure() or None)

    def ended_note(self):
        b = self.board
        note = (f'{b.verdict.upper()}  {b.count("passed")} passed, {b.count("failed")} failed, '
                f'{b.count("skipped")} skipped  {b.duration:.1f} s')
        return note + (f'  {b.first_failure()}' if b.verdict == 'fail' else '')

    def steps(self):
        planned = self.plan.setup + self.plan.steps
        for i, (step, record) in enumerate(zip(planned, self.board.steps)):
            self.checkpoint()
            self.show(i, step)
            ok = self.finish_step(record, self.step(step, record))
            self.setup_ran += record.phase == 'setup'
            self.show(i, step, record)
            if not self.console.usable and self.console.kind not in RESTARTABLE:
                self.board.error = (f'{step.name}: the tool stopped answering; '
                                    'the board plan stops here')
                why = f'not run: {self.board.error}'
            elif ok or (record.phase == 'step' and step.continue_on_fail):
                continue
            elif record.phase == 'setup':
                why = f'not run: setup step {step.name} failed'
            else:
                why = f'not run: {step.name} failed and continue_on_fail is off'
            return self.skip_rest(i + 1, why)

    def skip_rest(self, start, why):
        for record in self.board.steps[start:]:
            if record.seq not in self.recorded:
                record.why = why
                self.finish_step(record, False)


class Run:
    """The boards of one run, or a station's visits, and the signal that
    stopped it, if any."""

    def __init__(self, plan, boards, options, record, run_id, station, out=None, page=None,
                 lines=None, slots=None):
        self.plan, self.options, self.record = plan, options, record
        self.run_id, self.station, self.page = run_id, station, page
        self.plan_title = f'{plan.name} {plan.version}'.strip()
        self.operator = options.operator or getpass.getuser()
        self.progress = Progress(slots or boards, out, lines)
        self.signum = None
        self.boards = [BoardRun(plan, board, self) for board in boards]

    def signal_name(self):
        return signal.Signals(self.signum).name if self.signum else 'stopped'

    def stop(self, signum, frame=None):
        if self.signum is None:
            self.signum = signum
            for board in list(self.boards):
                board.stop()

    def ask(self, board, step, timeout):
        """The operator's answer, on the page when one is served, else at the
        terminal: {'answer', 'by', 'at'}, or None."""
        pattern = step.pattern or (self.plan.serial_pattern if step.serial else None)
        if self.page:
            return self.page.ask(board.slot, step.ask, step.question,
                                 list(step.choices) or None, pattern, timeout)
        prompt, check = terminal_question(step, pattern)
        answer = self.progress.ask(f'{board.board.label}: {prompt}', check, timeout,
                                   lambda: board.stopped)
        return answer and {'answer': answer, 'by': f'{self.operator} (terminal)', 'at': now()}

    def run(self):
        gate = threading.Semaphore(self.options.jobs or len(self.boards))

        def one(board):
            with gate:
                if self.signum is None:
                    board.run()

        threads = [threading.Thread(target=one, args=(b,), daemon=True) for b in self.boards]
        for t in threads:
            t.start()
        self.join(threads)

    def keep_open(self, slots):
        """A station: each slot runs the plan once per start (a click or a
        scanned label on the page), a visit each time, until a signal."""
        threads = [threading.Thread(target=self.serve_slot, args=(seq, *slot), daemon=True)
                   for seq, slot in enumerate(slots)]
        for t in threads:
            t.start()
        while self.signum is None:
            time.sleep(0.2)
        self.join(threads)

    def serve_slot(self, seq, label, target):
        for visit in itertools.count(1):
            start = self.page.wait_start(seq + 1)
            if start is None or self.signum is not None:
                return
            board = new_board(self.plan, seq, start['serial'] or label, target, start['serial'])
            run = BoardRun(self.plan, board, self, workdir=f'{label}.{visit}')
            self.boards.append(run)
            if self.signum is not None:
                run.stop()      # the stop came as it started
            run.run(started_by=start['by'])

    def join(self, threads):
        deadline = None
        for t in threads:
            while t.is_alive() and (deadline is None or time.monotonic() < deadline):
                t.join(0.2)
                if self.signum is not None and deadline is None:
                    deadline = time.monotonic() + STOP_GRACE
                    if self.page:
                        self.page.close()     # its questions and starts let go
        for board in list(self.boards):
            board.finish()  # after a stop: a board not begun, or still stuck


def board_labels(names):
    """A label named twice (box, box) gets a number each."""
    seen = {}
    labels = []
    for name in names:
        seen[name] = seen.get(name, 0) + 1
        labels.append(f'{name}#{seen[name]}' if names.count(name) > 1 else name)
    return labels


def new_board(plan, seq, label, target, serial):
    steps = [StepRecord(i, s.name, 'setup', s.command, s.expect) for i, s in enumerate(plan.setup)]
    steps += [StepRecord(len(steps) + i, s.name, 'step', s.command, s.expect)
              for i, s in enumerate(plan.steps)]
    return BoardRecord(seq, label, target, steps, scanned=serial, serial=serial)


def summary(boards, out=None):
    out = out or sys.stdout
    rows = [(b.label, b.serial or '-', b.identity.get('board') or '-') for b in boards]
    widths = [max(len(title), *(len(r[i]) for r in rows))
              for i, title in enumerate(('board', 'serial', 'board id'))]
    head = '  '.join(f'{t:<{w}}' for t, w in zip(('board', 'serial', 'board id'), widths))
    print(f'\n{head}  passed  failed  skipped  time s  first failure', file=out)
    for b, row in zip(boards, rows):
        cells = '  '.join(f'{c:<{w}}' for c, w in zip(row, widths))
        print(f'{cells}  {b.count("passed"):>6}  {b.count("failed"):>6}  '
              f'{b.count("skipped"):>7}  {b.duration:>6.1f}  {b.first_failure()}', file=out)
    good = sum(b.verdict == 'pass' for b in boards)
    print(f'{good} of {len(boards)} boards passed', file=out)


def serve_address(text):
    """[HOST:]PORT for --serve: the page listens on 127.0.0.1 unless told."""
    host, colon, port = text.rpartition(':')
    if not port.isdigit() or int(port) > 65535:
        raise argparse.ArgumentTypeError(f'{text!r}: give [HOST:]PORT, a port from 0 to 65535')
    return (host.strip('[]') if colon else '127.0.0.1'), int(port)


def prog(station):
    return 'harness/station' if station else 'harness/run'


def parse_args(argv, station=False):
    ap = argparse.ArgumentParser(prog=prog(station), description=(
        'Keeps a test station open: each slot runs the plan whenever it is started on the page.'
        if station else 'Runs a test plan on boards.'))
    ap.add_argument('plan', help='the plan (TOML)')
    ap.add_argument('--board', dest='targets', action='append', required=True, metavar='TARGET',
                    help='box[:SCENARIO+...], serial:DEVICE[:BAUD], tcp:HOST:PORT, exec:COMMAND, '
                         'labgrid:ENV.yaml' + ('' if station else ', each with @SERIAL when scanned')
                         + ' (repeat for more boards)')
    if not station:
        ap.add_argument('--scan', action='store_true',
                        help='ask for each board\'s serial number (a barcode scanner\'s line)')
    ap.add_argument('--serve', type=serve_address, required=station, metavar='[HOST:]PORT',
                    help='serve the station\'s page (127.0.0.1 unless a host is given; '
                         'elsewhere actions need the token printed at start)')
    ap.add_argument('--lang', default='en', help='the page\'s words: harness/lang/LANG.toml')
    ap.add_argument('--station', default=socket.gethostname(), help='default: the host name')
    ap.add_argument('--operator', help='who runs the station')
    ap.add_argument('--db', default=DEFAULT_DB, metavar='URL',
                    help=f'the results database (default {DEFAULT_DB}; postgresql://USER@HOST/DB)')
    ap.add_argument('--no-db', action='store_true', help='keep no record in a database')
    ap.add_argument('--junit', metavar='FILE', help='write a JUnit XML report')
    ap.add_argument('--json', metavar='FILE', help='write the whole record as JSON')
    if not station:
        ap.add_argument('--jobs', type=int, default=0, metavar='N',
                        help='boards run at once (default all)')
    ap.add_argument('--real-time', action='store_true', help='box boards keep real time')
    ap.add_argument('--log-dir', metavar='DIR', help='keep each console\'s bytes there')
    ap.add_argument('--workdir', metavar='DIR', help='keep the boxes\' state there')
    args = ap.parse_args(argv)
    args.station_mode, args.scan = station, getattr(args, 'scan', False)
    args.jobs = getattr(args, 'jobs', 0)
    if args.jobs < 0:
        ap.error('--jobs must be 0 or more')
    return args


def split_serial(board):
    """TARGET@SERIAL: the serial after the last '@' (one word, no '/'),
    else the whole is the target (exec:ssh user@host ...)."""
    target, at, serial = board.rpartition('@')
    if not at or any(c.isspace() or c == '/' for c in serial):
        return board, None
    if not serial:
        raise ValueError(f'{board!r}: no serial number after @')
    return target, serial


def check_serial(plan, serial, where):
    if not serial:
        raise ValueError(f'{where}: no serial number scanned')
    if not plan.serial_ok(serial):
        raise ValueError(f'{where}: serial number {serial!r} does not match the plan\'s '
                         f'serial_pattern {plan.serial_pattern!r}')
    return serial


def scan(plan, targets, serials, lines):
    """The missing serial numbers, one line per board as a scanner types it."""
    for i, target in enumerate(targets):
        if serials[i] is None:
            print(f'scan board {i + 1} ({target}): ', end='', flush=True)
            line = lines.read() or ''
            serials[i] = check_serial(plan, line.strip(), f'board {i + 1} ({target})')


def boards_of(plan, args):
    targets, serials = zip(*map(split_serial, args.targets))
    for target, serial in zip(targets, serials):
        parse_target(target)
        if serial and args.station_mode:
            raise ValueError(f'{target}@{serial}: a station takes each serial number from the '
                             'start of its slot (a scan on the page)')
        if serial:
            check_serial(plan, serial, target)
    return list(targets), list(serials)


def open_record(args):
    if args.no_db:
        return NoRecord()
    from .db import RecordError, open_record as open_db
    try:
        return open_db(args.db)
    except RecordError as e:
        raise ValueError(str(e)) from None


def run_info(plan, args, argv):
    return dict(station=args.station, operator=args.operator, host=socket.gethostname(),
                plan_name=plan.name, plan_version=plan.version, plan_path=str(plan.path),
                plan_sha256=plan.sha256, argv=list(argv), started=now())


def main(argv=None, station=False):
    argv = sys.argv[1:] if argv is None else argv
    args = parse_args(argv, station)
    try:
        plan = plans.load(args.plan)
        targets, serials = boards_of(plan, args)
        record = open_record(args)
    except (plans.PlanError, ValueError) as e:  # a RecordError is a ValueError here
        print(f'{prog(station)}: {e}', file=sys.stderr)
        return 2
    try:
        return run_and_report(plan, args, argv, targets, serials, record)
    finally:
        record.close()


def station_main(argv=None):
    return main(argv, station=True)


def open_page(plan, args, labels, targets):
    """The station's page, listening before any board starts; its address
    (and off loopback its token) printed for the operator."""
    if not args.serve:
        return None
    from .page import Station
    host, port = args.serve
    page = Station([{'slot': i + 1, 'label': label, 'target': target}
                    for i, (label, target) in enumerate(zip(labels, targets))],
                   plan_name=f'{plan.name} {plan.version}'.strip(), lang=args.lang,
                   host=host, port=port)
    try:
        page.start()
    except OSError as e:
        raise ValueError(f'cannot serve the page on {host}:{port}: {e.strerror or e}') from None
    print(f'station page: {page.url}', flush=True)
    if page.token:
        print(f'station token: {page.token} (to start boards and answer, open '
              f'{page.url}?token={page.token})', flush=True)
    return page


def run_and_report(plan, args, argv, targets, serials, record):
    lines = Lines(sys.stdin)
    try:
        if args.scan:
            scan(plan, targets, serials, lines)
        labels = board_labels([s or t for t, s in zip(targets, serials)])
        page = open_page(plan, args, labels, targets)
    except ValueError as e:
        print(f'{prog(args.station_mode)}: {e}', file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    try:
        return run_boards(plan, args, argv, record, page, lines,
                          list(zip(labels, targets, serials)))
    finally:
        if page:
            page.close()


def run_boards(plan, args, argv, record, page, lines, boards):
    if args.log_dir:
        Path(args.log_dir).mkdir(parents=True, exist_ok=True)
    info = run_info(plan, args, argv)
    info['id'] = record.start_run(info)
    slots = [new_board(plan, i, *b) for i, b in enumerate(boards)]
    with tempfile.TemporaryDirectory(prefix='harness-') as tmp:
        args.workdir = args.workdir or tmp
        run = Run(plan, [] if args.station_mode else slots, args, record, info['id'],
                  args.station, page=page, lines=lines, slots=slots)
        old = {s: signal.signal(s, run.stop) for s in (signal.SIGINT, signal.SIGTERM)}
        try:
            if args.station_mode:
                run.keep_open([(label, target) for label, target, _ in boards])
            else:
                run.run()
            done = [b.board for b in run.boards]
            info['ended'] = now()
            info['status'] = 'interrupted' if run.signum else 'done'
            record.end_run(info['id'], info['status'], info['ended'])
            summary(done)
            if args.junit:
                report.write_junit(args.junit, plan, done, info)
            if args.json:
                report.write_json(args.json, plan, done, info)
        finally:
            for s, handler in old.items():
                signal.signal(s, handler)
    if run.signum:
        return 128 + run.signum
    return 0 if all(b.verdict == 'pass' for b in done) else 1
