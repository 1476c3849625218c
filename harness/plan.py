"""Test plans: TOML files (tomllib) of setup steps and steps, each a command
line with the verdict it wants and the values it measures, OpenHTF-style:
a regular expression's named groups, each with its limits.

    name = "smoke"
    version = "3"                   # the plan's own revision, kept in the record
    serial_pattern = 'PLM7140[A-D]\\d{10}'  # what a scanned serial number must look like
    [identity]                      # read once after the tool starts
    board = { command = "display version mainboard", pattern = 'BOARD\\s*: (\\S+)' }
    [defaults]                      # any step key, for every step lacking it
    continue_on_fail = true
    [[setup]]
    name = "server address"
    command = "set serverip 192.168.1.1"
    [[steps]]
    name = "temperature"
    command = "test mainboard temperature 0 85"
    expect = "pass"                 # or "fail"
    timeout = 30                    # default: harness/timeouts.py
    answer = "Y"                    # typed at "Are you sure?(Y/N)"
    retries = 0
      [[steps.measure]]
      pattern = 'temperature (?P<main>-?\\d+)'
      main = { low = 0, high = 85, unit = "degC" }
"""
import hashlib
import re
import tomllib
from dataclasses import dataclass, field
from pathlib import Path

STEP_KEYS = {'name', 'command', 'expect', 'timeout', 'answer', 'retries',
             'continue_on_fail', 'measure'}
LIMIT_KEYS = {'low', 'high', 'equals', 'in', 'unit'}
VERDICTS = ('pass', 'fail')


class PlanError(Exception):
    pass


@dataclass
class Limit:
    low: float | None = None
    high: float | None = None
    equals: object = None
    in_: list | None = None
    unit: str | None = None

    def check(self, value):
        """None when value is within the limits, else why not."""
        if (self.low is not None or self.high is not None) and isinstance(value, str):
            return 'not a number'
        if self.low is not None and not value >= self.low:
            return f'below low {self.low}'
        if self.high is not None and not value <= self.high:
            return f'above high {self.high}'
        if self.equals is not None and value != _like(self.equals, value):
            return f'not equal to {self.equals}'
        if self.in_ is not None and value not in [_like(v, value) for v in self.in_]:
            return f'not in {self.in_}'
        return None

    def as_dict(self):
        d = {'low': self.low, 'high': self.high, 'equals': self.equals,
             'in': self.in_, 'unit': self.unit}
        return {k: v for k, v in d.items() if v is not None}


@dataclass
class Measure:
    pattern: str
    limits: dict


@dataclass
class Step:
    name: str
    command: str
    expect: str = 'pass'
    timeout: float | None = None
    answer: str | None = None
    retries: int = 0
    continue_on_fail: bool = False
    measure: list = field(default_factory=list)


@dataclass
class Identity:
    """A value that tells which board this is: the one group of `pattern`
    in what `command` prints."""
    name: str
    command: str
    pattern: str

    def read(self, text):
        match = re.search(self.pattern, text)
        return match.group(1) if match else None


@dataclass
class Plan:
    name: str
    description: str
    setup: list
    steps: list
    path: Path
    version: str = ''
    identity: list = field(default_factory=list)
    serial_pattern: str | None = None
    sha256: str = ''

    def serial_ok(self, serial):
        return self.serial_pattern is None or re.fullmatch(self.serial_pattern, serial) is not None


@dataclass
class Measured:
    name: str
    value: object
    limit: Limit
    ok: bool
    why: str | None = None


@dataclass
class Outcome:
    ok: bool
    measurements: list
    why: str | None


def number(text):
    """The group's text as int or float, or the text itself."""
    for kind in (int, float):
        try:
            return kind(text)
        except ValueError:
            pass
    return text


def _like(limit, value):
    # "equals = 3" against the text "3" compares numbers; a text limit against
    # a number compares texts.
    if isinstance(value, str):
        return str(limit)
    return limit


def _limit(where, name, raw):
    if not isinstance(raw, dict):
        raise PlanError(f'{where}: limits of {name} must be a table')
    bad = set(raw) - LIMIT_KEYS
    if bad:
        raise PlanError(f'{where}: unknown limit key {sorted(bad)[0]!r} for {name}')
    for key in ('low', 'high'):
        if key in raw and not isinstance(raw[key], (int, float)):
            raise PlanError(f'{where}: {key} of {name} must be a number')
    if 'in' in raw and not isinstance(raw['in'], list):
        raise PlanError(f'{where}: in of {name} must be a list')
    return Limit(raw.get('low'), raw.get('high'), raw.get('equals'), raw.get('in'), raw.get('unit'))


def _measure(where, raw):
    if not isinstance(raw, dict) or 'pattern' not in raw:
        raise PlanError(f'{where}: a measurement needs a pattern')
    try:
        regex = re.compile(raw['pattern'])
    except re.error as e:
        raise PlanError(f'{where}: bad pattern {raw["pattern"]!r}: {e}') from None
    limits = {k: _limit(where, k, v) for k, v in raw.items() if k != 'pattern'}
    unknown = set(limits) - set(regex.groupindex)
    if unknown:
        raise PlanError(f'{where}: limits for {sorted(unknown)[0]!r}, which the pattern does not name')
    for group in regex.groupindex:
        limits.setdefault(group, Limit())
    return Measure(raw['pattern'], limits)


def _step(where, raw, defaults):
    raw = {**defaults, **raw}
    bad = set(raw) - STEP_KEYS
    if bad:
        raise PlanError(f'{where}: unknown key {sorted(bad)[0]!r}')
    for key in ('name', 'command'):
        if not isinstance(raw.get(key), str) or not raw[key].strip():
            raise PlanError(f'{where}: {key} is missing')
    where = f'{where} ({raw["name"]})'
    if raw.get('expect', 'pass') not in VERDICTS:
        raise PlanError(f'{where}: expect must be pass or fail')
    retries = raw.get('retries', 0)
    if not isinstance(retries, int) or retries < 0:
        raise PlanError(f'{where}: retries must be a whole number')
    timeout = raw.get('timeout')
    if timeout is not None and (not isinstance(timeout, (int, float)) or timeout <= 0):
        raise PlanError(f'{where}: timeout must be a positive number of seconds')
    measures = [_measure(where, m) for m in raw.get('measure', [])]
    return Step(raw['name'], raw['command'], raw.get('expect', 'pass'), timeout,
                raw.get('answer'), retries, bool(raw.get('continue_on_fail', False)), measures)


def _identity(where, raw):
    if not isinstance(raw, dict):
        raise PlanError(f'{where}: identity must be a table of named values')
    found = []
    for name, value in raw.items():
        if not isinstance(value, dict) or set(value) != {'command', 'pattern'}:
            raise PlanError(f'{where}: identity {name} needs a command and a pattern, nothing else')
        try:
            groups = re.compile(value['pattern']).groups
        except (re.error, TypeError) as e:
            raise PlanError(f'{where}: identity {name}: bad pattern: {e}') from None
        if groups != 1:
            raise PlanError(f'{where}: identity {name}: the pattern must have exactly one group')
        found.append(Identity(name, value['command'], value['pattern']))
    return found


def _serial_pattern(where, raw):
    if raw is None:
        return None
    try:
        re.compile(raw)
    except (re.error, TypeError) as e:
        raise PlanError(f'{where}: bad serial_pattern: {e}') from None
    return raw


def load(path):
    path = Path(path).resolve()
    try:
        blob = path.read_bytes()
        data = tomllib.loads(blob.decode('utf-8'))
    except (OSError, UnicodeDecodeError, tomllib.TOMLDecodeError) as e:
        raise PlanError(f'{path}: {e}') from None
    bad = set(data) - {'name', 'description', 'version', 'identity', 'serial_pattern',
                       'defaults', 'setup', 'steps'}
    if bad:
        raise PlanError(f'{path}: unknown key {sorted(bad)[0]!r}')
    if not isinstance(data.get('name'), str):
        raise PlanError(f'{path}: the plan has no name')
    defaults = data.get('defaults', {})
    setup = [_step(f'{path}: setup {i + 1}', s, defaults) for i, s in enumerate(data.get('setup', []))]
    steps = [_step(f'{path}: step {i + 1}', s, defaults) for i, s in enumerate(data.get('steps', []))]
    names = [s.name for s in setup + steps]
    twice = sorted({n for n in names if names.count(n) > 1})
    if twice:
        raise PlanError(f'{path}: step name {twice[0]!r} used twice')
    if not steps:
        raise PlanError(f'{path}: the plan has no steps')
    return Plan(data['name'], data.get('description', ''), setup, steps, path,
                str(data.get('version', '')), _identity(path, data.get('identity', {})),
                _serial_pattern(path, data.get('serial_pattern')), hashlib.sha256(blob).hexdigest())


def _first_line(result):
    for line in (result.message, *result.text.splitlines()):
        if line and line.strip():
            return line.strip()
    return ''


def _measured(step, text):
    found, missing = [], None
    for m in step.measure:
        match = re.search(m.pattern, text)
        if not match:
            missing = missing or f'pattern {m.pattern!r} not found'
            continue
        for name, limit in m.limits.items():
            value = match.group(name)
            value = None if value is None else number(value)
            why = 'not found' if value is None else limit.check(value)
            found.append(Measured(name, value, limit, why is None,
                                  None if why is None else f'{name}={value} {why}'))
    return found, missing


def judge(step, result):
    """Whether the result meets the step: its verdict, then every value."""
    measurements, missing = _measured(step, result.text)
    why = None
    if result.verdict != step.expect:
        detail = _first_line(result)
        why = f'verdict {result.verdict}, expected {step.expect}' + (f': {detail}' if detail else '')
    why = why or missing or next((m.why for m in measurements if not m.ok), None)
    return Outcome(why is None, measurements, why)
