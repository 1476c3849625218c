"""The runner: one plan on many boards at once, a live line per board, a
summary at the end, reports for the factory's systems, and the record of
every step in the results database as it ends.

    harness/run PLAN --board TARGET[@SERIAL] [--board ...] [--scan]
                [--station NAME] [--operator NAME] [--db URL | --no-db]
                [--junit FILE] [--json FILE] [--jobs N] [--real-time]
                [--log-dir DIR] [--workdir DIR]

Exit status: 0 every board passed, 1 a board failed, 2 a bad plan, command
line or record; 130 after SIGINT, 143 after SIGTERM (what ran is recorded
and reported).
"""
import argparse
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


class Progress:
    """One line per board: redrawn in place on a terminal, else a line per
    finished step."""

    def __init__(self, boards, out=None):
        self.out, self.lock = out or sys.stdout, threading.Lock()
        self.tty = self.out.isatty()
        self.boards = boards
        self.lines = [f'{b.label}  waiting' for b in boards]
        self.drawn = False

    def update(self, board, text, done_line=None):
        with self.lock:
            width = max(len(b.label) for b in self.boards)
            self.lines[board.seq] = f'{board.label:<{width}}  {text}'
            if self.tty:
                self._draw()
            elif done_line:
                print(f'{board.label:<{width}}  {done_line}', file=self.out, flush=True)

    def _draw(self):
        if self.drawn:
            self.out.write(f'\x1b[{len(self.lines)}F')
        for line in self.lines:
            self.out.write('\x1b[2K' + line[:200] + '\n')
        self.out.flush()
        self.drawn = True


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


class BoardRun:
    def __init__(self, plan, board, ctx):
        self.plan, self.board, self.ctx = plan, board, ctx
        self.options, self.progress, self.record = ctx.options, ctx.progress, ctx.record
        self.console = None
        self.clock = time.monotonic()
        self.lock = threading.Lock()
        self.stopped = self.completed = self.ended = False
        self.setup_ran = 0
        self.rerunning = False
        self.recorded = set()
        self.lost = None  # why the console stopped answering

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

    # -- the board's thread --

    def show(self, i, step, done=None):
        total = len(self.board.steps)
        elapsed = time.monotonic() - self.clock
        line = f'{i + 1}/{total} {step.name}  {elapsed:6.1f} s'
        self.progress.update(self.board, line + (f'  {done}' if done else ''),
                             f'{i + 1}/{total} {step.name}: {done}' if done else None)

    def open(self):
        opts = self.options
        workdir = Path(opts.workdir, self.board.label.replace('/', '_').replace(':', '_'))
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

    def note_lost(self, name, result):
        if not self.console.usable:
            self.lost = f'{name}: {result.message or result.verdict}'

    def step(self, step, record):
        record.started = now()
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
        record.ended = now()
        return record.ok

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

    def run(self):
        board = self.board
        board.started = now()
        visit = dict(seq=board.seq, label=board.label, target=board.target,
                     serial=board.scanned, station=self.ctx.station,
                     operator=self.options.operator, started=board.started)
        board.visit = self.record.start_visit(self.ctx.run_id, visit)
        try:
            self.progress.update(board, 'starting')
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
        self.skip_rest(0)
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
                step.skipped = step.skipped or step.seq not in self.recorded  # cut short: not run
        if board.visit:
            if board.verdict == 'interrupted':
                self.event('interrupt', self.ctx.signal_name())
            self.record.end_visit(board.visit, board.verdict, board.ended, error=board.error,
                                  first_failure=board.first_failure() or None)
        self.progress.update(board, f'{board.verdict}  {board.duration:.1f} s')

    def steps(self):
        planned = self.plan.setup + self.plan.steps
        for i, (step, record) in enumerate(zip(planned, self.board.steps)):
            self.checkpoint()
            self.show(i, step)
            ok = self.finish_step(record, self.step(step, record))
            self.setup_ran += record.phase == 'setup'
            self.show(i, step, 'pass' if ok else f'FAIL {record.why}')
            if not self.console.usable and self.console.kind not in RESTARTABLE:
                self.board.error = (f'{step.name}: the tool stopped answering; '
                                    'the board plan stops here')
            elif ok or (record.phase == 'step' and step.continue_on_fail):
                continue
            return self.skip_rest(i + 1)

    def skip_rest(self, start):
        for record in self.board.steps[start:]:
            if record.seq not in self.recorded:
                self.finish_step(record, False)


class Run:
    """The boards of one run and the signal that stopped it, if any."""

    def __init__(self, plan, boards, options, record, run_id, station, out=None):
        self.options, self.record, self.run_id, self.station = options, record, run_id, station
        self.progress = Progress(boards, out)
        self.signum = None
        self.boards = [BoardRun(plan, board, self) for board in boards]

    def signal_name(self):
        return signal.Signals(self.signum).name if self.signum else 'stopped'

    def stop(self, signum, frame=None):
        if self.signum is None:
            self.signum = signum
            for board in self.boards:
                board.stop()

    def run(self):
        gate = threading.Semaphore(self.options.jobs or len(self.boards))

        def one(board):
            with gate:
                if self.signum is None:
                    board.run()

        threads = [threading.Thread(target=one, args=(b,), daemon=True) for b in self.boards]
        for t in threads:
            t.start()
        deadline = None
        for t, board in zip(threads, self.boards):
            while t.is_alive() and (deadline is None or time.monotonic() < deadline):
                t.join(0.2)
                if self.signum is not None and deadline is None:
                    deadline = time.monotonic() + STOP_GRACE
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


def parse_args(argv):
    ap = argparse.ArgumentParser(prog='harness/run', description='Runs a test plan on boards.')
    ap.add_argument('plan', help='the plan (TOML)')
    ap.add_argument('--board', dest='targets', action='append', required=True, metavar='TARGET',
                    help='box[:SCENARIO+...], serial:DEVICE[:BAUD], tcp:HOST:PORT, exec:COMMAND, '
                         'labgrid:ENV.yaml, each with @SERIAL when scanned '
                         '(repeat for more boards)')
    ap.add_argument('--scan', action='store_true',
                    help='ask for each board\'s serial number (a barcode scanner\'s line)')
    ap.add_argument('--station', default=socket.gethostname(), help='default: the host name')
    ap.add_argument('--operator', help='who runs the station')
    ap.add_argument('--db', default=DEFAULT_DB, metavar='URL',
                    help=f'the results database (default {DEFAULT_DB}; postgresql://USER@HOST/DB)')
    ap.add_argument('--no-db', action='store_true', help='keep no record in a database')
    ap.add_argument('--junit', metavar='FILE', help='write a JUnit XML report')
    ap.add_argument('--json', metavar='FILE', help='write the whole record as JSON')
    ap.add_argument('--jobs', type=int, default=0, metavar='N',
                    help='boards run at once (default all)')
    ap.add_argument('--real-time', action='store_true', help='box boards keep real time')
    ap.add_argument('--log-dir', metavar='DIR', help='keep each console\'s bytes there')
    ap.add_argument('--workdir', metavar='DIR', help='keep the boxes\' state there')
    args = ap.parse_args(argv)
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


def scan(plan, targets, serials):
    """The missing serial numbers, one line per board as a scanner types it."""
    for i, target in enumerate(targets):
        if serials[i] is None:
            try:
                line = input(f'scan board {i + 1} ({target}): ')
            except EOFError:
                line = ''
            serials[i] = check_serial(plan, line.strip(), f'board {i + 1} ({target})')


def boards_of(plan, args):
    targets, serials = zip(*map(split_serial, args.targets))
    for target, serial in zip(targets, serials):
        parse_target(target)
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


def main(argv=None):
    argv = sys.argv[1:] if argv is None else argv
    args = parse_args(argv)
    try:
        plan = plans.load(args.plan)
        targets, serials = boards_of(plan, args)
        record = open_record(args)
    except (plans.PlanError, ValueError) as e:  # a RecordError is a ValueError here
        print(f'harness/run: {e}', file=sys.stderr)
        return 2
    try:
        return run_and_report(plan, args, argv, targets, serials, record)
    finally:
        record.close()


def run_and_report(plan, args, argv, targets, serials, record):
    try:
        if args.scan:
            scan(plan, targets, serials)
    except ValueError as e:
        print(f'harness/run: {e}', file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    if args.log_dir:
        Path(args.log_dir).mkdir(parents=True, exist_ok=True)
    info = run_info(plan, args, argv)
    info['id'] = record.start_run(info)
    labels = board_labels([s or t for t, s in zip(targets, serials)])
    boards = [new_board(plan, i, *b) for i, b in enumerate(zip(labels, targets, serials))]
    with tempfile.TemporaryDirectory(prefix='harness-') as tmp:
        args.workdir = args.workdir or tmp
        run = Run(plan, boards, args, record, info['id'], args.station)
        old = {s: signal.signal(s, run.stop) for s in (signal.SIGINT, signal.SIGTERM)}
        try:
            run.run()
            info['ended'] = now()
            info['status'] = 'interrupted' if run.signum else 'done'
            record.end_run(info['id'], info['status'], info['ended'])
            summary(boards)
            if args.junit:
                report.write_junit(args.junit, plan, boards, info)
            if args.json:
                report.write_json(args.json, plan, boards, info)
        finally:
            for s, handler in old.items():
                signal.signal(s, handler)
    if run.signum:
        return 128 + run.signum
    return 0 if all(b.verdict == 'pass' for b in boards) else 1
