"""The runner: one plan on many boards at once, a live line per board, a
summary at the end, reports for the factory's systems.

    harness/run PLAN --board TARGET [--board TARGET ...] [--junit FILE]
                [--json FILE] [--jobs N] [--real-time] [--log-dir DIR]

Exit status: 0 every board passed, 1 a board failed, 2 a bad plan or
command line.
"""
import argparse
import sys
import tempfile
import threading
import time
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


@dataclass
class StepRecord:
    name: str
    phase: str
    command: str
    expected: str
    verdict: str | None = None
    ok: bool = False
    skipped: bool = True
    why: str | None = None
    duration: float = 0.0
    attempts: int = 0
    measurements: list = field(default_factory=list)
    text: str = ''
    raw: bytes = b''


@dataclass
class BoardRecord:
    label: str
    target: str
    steps: list
    verdict: str = 'fail'
    error: str | None = None
    banner: str = ''
    version: str = ''
    started: str = ''
    ended: str = ''
    duration: float = 0.0

    def count(self, what):
        if what == 'skipped':
            return sum(s.skipped for s in self.steps)
        ok = what == 'passed'
        return sum(1 for s in self.steps if not s.skipped and s.ok == ok)

    def first_failure(self):
        if self.error:
            return self.error
        bad = next((s for s in self.steps if not s.skipped and not s.ok), None)
        return f'{bad.name}: {bad.why}' if bad else ''


def now():
    return datetime.now(timezone.utc).isoformat(timespec='seconds')


class Progress:
    """One line per board: redrawn in place on a terminal, else a line per
    finished step."""

    def __init__(self, boards, out=None):
        self.out, self.lock = out or sys.stdout, threading.Lock()
        self.tty = self.out.isatty()
        self.width = max(len(b.label) for b in boards)
        self.lines = {b.label: f'{b.label:<{self.width}}  waiting' for b in boards}
        self.drawn = False

    def update(self, board, text, done_line=None):
        with self.lock:
            self.lines[board.label] = f'{board.label:<{self.width}}  {text}'
            if self.tty:
                self._draw()
            elif done_line:
                print(f'{board.label:<{self.width}}  {done_line}', file=self.out, flush=True)

    def _draw(self):
        if self.drawn:
            self.out.write(f'\x1b[{len(self.lines)}F')
        for line in self.lines.values():
            self.out.write('\x1b[2K' + line[:200] + '\n')
        self.out.flush()
        self.drawn = True


class BoardRun:
    def __init__(self, plan, board, options, progress):
        self.plan, self.board, self.options, self.progress = plan, board, options, progress
        self.console = None
        self.clock = time.monotonic()

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
        self.console = open_board(self.board.target, real_time=opts.real_time,
                                  workdir=workdir, log=log)
        self.board.banner = decode(self.console.banner)
        version = self.console.run(VERSION_COMMAND)
        self.board.version = version.text

    def step(self, step, record):
        for attempt in range(step.retries + 1):
            record.attempts = attempt + 1
            if not self.console.usable:
                self.recover()
            result = self.console.run(step.command, timeout=step.timeout, answer=step.answer)
            outcome = plans.judge(step, result)
            record.verdict, record.ok, record.why = result.verdict, outcome.ok, outcome.why
            record.duration += result.duration
            record.measurements = [dict(name=m.name, value=m.value, ok=m.ok, why=m.why,
                                        limits=m.limit.as_dict()) for m in outcome.measurements]
            record.text, record.raw = result.text, result.raw
            if outcome.ok:
                return True
            if result.verdict == 'timeout' and self.console.kind not in RESTARTABLE:
                return False
        return False

    def recover(self):
        if self.console.kind not in RESTARTABLE:
            raise ConsoleError('the tool stopped answering; the board plan stops here')
        self.console.restart()

    def run(self):
        board = self.board
        board.started = now()
        try:
            self.progress.update(board, 'starting')
            self.open()
            self.steps()
        except (ConsoleError, OSError, EOFError) as e:
            board.error = str(e)
        finally:
            if self.console:
                self.console.close()
        board.ended = now()
        board.duration = time.monotonic() - self.clock
        board.verdict = 'pass' if not board.error and all(s.ok for s in board.steps) else 'fail'
        self.progress.update(board, f'{board.verdict}  {board.duration:.1f} s')

    def steps(self):
        for i, (step, record) in enumerate(zip(self.plan.setup + self.plan.steps, self.board.steps)):
            self.show(i, step)
            record.skipped = False
            ok = self.step(step, record)
            self.show(i, step, 'pass' if ok else f'FAIL {record.why}')
            if not self.console.usable and self.console.kind not in RESTARTABLE:
                self.board.error = f'{step.name}: the tool stopped answering; the board plan stops here'
                return
            if not ok and (record.phase == 'setup' or not step.continue_on_fail):
                return


def board_labels(targets):
    """A target named twice (box, box) gets a number each."""
    seen = {}
    labels = []
    for target in targets:
        seen[target] = seen.get(target, 0) + 1
        many = targets.count(target) > 1
        labels.append(f'{target}#{seen[target]}' if many else target)
    return labels


def new_board(plan, label, target):
    steps = [StepRecord(s.name, 'setup', s.command, s.expect) for s in plan.setup]
    steps += [StepRecord(s.name, 'step', s.command, s.expect) for s in plan.steps]
    return BoardRecord(label, target, steps)


def run_plan(plan, targets, options, out=None):
    boards = [new_board(plan, label, target)
              for label, target in zip(board_labels(targets), targets)]
    progress = Progress(boards, out)
    gate = threading.Semaphore(options.jobs or len(boards))

    def one(board):
        with gate:
            BoardRun(plan, board, options, progress).run()

    threads = [threading.Thread(target=one, args=(b,), daemon=True) for b in boards]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    return boards


def summary(boards, out=None):
    out = out or sys.stdout
    width = max(len('board'), *(len(b.label) for b in boards))
    print(f'\n{"board":<{width}}  passed  failed  skipped  time s  first failure', file=out)
    for b in boards:
        print(f'{b.label:<{width}}  {b.count("passed"):>6}  {b.count("failed"):>6}  '
              f'{b.count("skipped"):>7}  {b.duration:>6.1f}  {b.first_failure()}', file=out)
    good = sum(b.verdict == 'pass' for b in boards)
    print(f'{good} of {len(boards)} boards passed', file=out)


def parse_args(argv):
    ap = argparse.ArgumentParser(prog='harness/run', description='Runs a test plan on boards.')
    ap.add_argument('plan', help='the plan (TOML)')
    ap.add_argument('--board', dest='targets', action='append', required=True, metavar='TARGET',
                    help='box[:SCENARIO+...], serial:DEVICE[:BAUD], tcp:HOST:PORT, exec:COMMAND, '
                         'labgrid:ENV.yaml (repeat for more boards)')
    ap.add_argument('--junit', metavar='FILE', help='write a JUnit XML report')
    ap.add_argument('--json', metavar='FILE', help='write the whole record as JSON')
    ap.add_argument('--jobs', type=int, default=0, metavar='N', help='boards run at once (default all)')
    ap.add_argument('--real-time', action='store_true', help='box boards keep real time')
    ap.add_argument('--log-dir', metavar='DIR', help='keep each console\'s bytes there')
    ap.add_argument('--workdir', metavar='DIR', help='keep the boxes\' state there')
    args = ap.parse_args(argv)
    if args.jobs < 0:
        ap.error('--jobs must be 0 or more')
    return args


def main(argv=None):
    args = parse_args(argv)
    try:
        plan = plans.load(args.plan)
        for target in args.targets:
            parse_target(target)
    except (plans.PlanError, ValueError) as e:
        print(f'harness/run: {e}', file=sys.stderr)
        return 2
    if args.log_dir:
        Path(args.log_dir).mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix='harness-') as tmp:
        args.workdir = args.workdir or tmp
        boards = run_plan(plan, args.targets, args)
    summary(boards)
    if args.junit:
        report.write_junit(args.junit, plan, boards)
    if args.json:
        report.write_json(args.json, plan, boards)
    return 0 if all(b.verdict == 'pass' for b in boards) else 1
