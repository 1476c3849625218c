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
    timeout = 30                    # seconds, 0.1 to 86400; default: harness/timeouts.py
    answer = "Y"                    # typed at "Are you sure?(Y/N)": Y, y, N or n
    retries = 0
      [[steps.measure]]
      pattern = 'temperature (?P<main>-?\\d+)'
      main = { low = 0, high = 85, unit = "degC" }
    [[steps]]                       # what a person does or sees: asked at the
    name = "leds"                   # terminal or on the station's page
    command = "test led on"         # optional, run first (judge only)
    judge = "Are all panel LEDs green?"
    choices = { Yes = "pass", No = "fail" }
    # prompt = "Insert the plug" (OK); scan = "Scan the label", pattern = '...',
    # serial = true (the value becomes the board's serial number)

A plan is refused at load, on one line naming the file, the line and the
step, when the tool could not take what it says or it cannot mean one thing.
"""
import hashlib
import math
import re
import tomllib
from dataclasses import dataclass, field
from functools import cached_property
from pathlib import Path

PLAN_KEYS = {'name', 'description', 'version', 'identity', 'serial_pattern',
             'defaults', 'setup', 'steps'}
STEP_KEYS = {'name', 'command', 'expect', 'timeout', 'answer', 'retries',
             'continue_on_fail', 'measure', 'prompt', 'judge', 'choices', 'scan', 'pattern',
             'serial'}
# What a person is asked: OK to a prompt, one of a judgement's choices, a scan.
ASKS = ('prompt', 'judge', 'scan')
# Keys that mean something only beside another; [defaults] fills them only there.
NEEDS = {'expect': 'command', 'answer': 'command', 'retries': 'command', 'measure': 'command',
         'choices': 'judge', 'pattern': 'scan', 'serial': 'scan'}
LIMIT_KEYS = {'low', 'high', 'equals', 'in', 'unit'}
VERDICTS = ('pass', 'fail')
# Who tests where is the station's business, not the plan's.
RUN_TIME_KEYS = {'station': '--station', 'operator': '--operator'}
# The tool's line editor keeps printable ASCII up to 99 characters, and "?"
# ends the line as a request for help: a plan command must fit all three.
LINE_MAX = 99
TYPABLE = re.compile(r'[ ->@-~]{1,%d}' % LINE_MAX)
# "Are you sure?(Y/N)" takes exactly y or Y as yes and anything else as no.
ANSWERS = ('Y', 'y', 'N', 'n')
TIMEOUT_MIN, TIMEOUT_MAX = 0.1, 24 * 3600.0
DECIMAL = re.compile(r'\s*[+-]?(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?\s*')
WHOLE = re.compile(r'\s*[+-]?\d+\s*')
# Ids print as hex (BOARD : 0x44130109).
HEX = re.compile(r'\s*0[xX][0-9a-fA-F]+\s*')


class PlanError(Exception):
    pass


class _Bad(Exception):
    """A refusal found inside the data; `key` (a key, or a tuple of keys and
    indexes) tells the loader where to look for its line."""

    def __init__(self, message, key=None):
        super().__init__(message)
        self.key = key


def number(text):
    """The group's text as int or float when it is a decimal number, else the text itself."""
    if WHOLE.fullmatch(text):
        return int(text)
    return float(text) if DECIMAL.fullmatch(text) else text


def numeric(text):
    """The number a value's text means (decimal or 0x hex), or None."""
    value = number(text)
    if isinstance(value, str):
        return int(text, 16) if HEX.fullmatch(text) else None
    return value


def _same(limit, text, value):
    # A number limit compares with the number the text means; a text limit
    # with the text as the tool printed it.
    return text == limit if isinstance(limit, str) else value is not None and value == limit


@dataclass
class Limit:
    low: float | None = None
    high: float | None = None
    equals: object = None
    in_: list | None = None
    unit: str | None = None

    def check(self, text):
        """None when the value (its text as read, or a number) is within the
        limits, else why not."""
        text = text if isinstance(text, str) else str(text)
        value = numeric(text)
        if (self.low is not None or self.high is not None) and value is None:
            return 'not a number'
        if self.low is not None and not value >= self.low:
            return f'below low {self.low}'
        if self.high is not None and not value <= self.high:
            return f'above high {self.high}'
        if self.equals is not None and not _same(self.equals, text, value):
            return f'not equal to {self.equals!r}'
        if self.in_ is not None and not any(_same(v, text, value) for v in self.in_):
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
    command: str | None
    expect: str = 'pass'
    timeout: float | None = None
    answer: str | None = None
    retries: int = 0
    continue_on_fail: bool = False
    measure: list = field(default_factory=list)
    ask: str | None = None          # 'prompt', 'judge' or 'scan'
    question: str | None = None
    choices: dict = field(default_factory=dict)    # answer -> 'pass' | 'fail'
    pattern: str | None = None      # what a scan must match whole
    serial: bool = False            # the scan is the board's serial number


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
    text: str | None = None


@dataclass
class Outcome:
    ok: bool
    measurements: list
    why: str | None


# -- what a value may be --

def _shown(value):
    """A value as the plan wrote it, short, for a refusal."""
    if isinstance(value, bool):
        return str(value).lower()
    if isinstance(value, str) and len(value) > 40:
        return repr(value[:40]) + '...'
    if isinstance(value, (int, float, str)):
        return repr(value)
    return {list: 'an array', dict: 'a table'}.get(type(value), 'a date')


def _is_number(value):
    return isinstance(value, (int, float)) and not isinstance(value, bool)


def _finite(key, value, what='a number'):
    if not _is_number(value) or not math.isfinite(value):
        raise _Bad(f'{key} must be {what}, not {_shown(value)}', key)
    return value


def _text(key, value):
    if value is None:
        raise _Bad(f'{key} is missing', key)
    if not isinstance(value, str):
        raise _Bad(f'{key} must be text, not {_shown(value)}', key)
    if not value.strip():
        raise _Bad(f'{key} is empty', key)
    if not value.isprintable():
        odd = next(c for c in value if not c.isprintable())
        raise _Bad(f'{key} holds the control character {odd!r}', key)
    return value


def _command(key, value):
    if isinstance(value, str) and TYPABLE.fullmatch(value) and value.strip():
        return value
    _text(key, value)
    if '?' in value:
        raise _Bad(f'{key} holds "?", which asks the tool for help instead of running the line', key)
    if len(value) > LINE_MAX:
        raise _Bad(f"{key} is {len(value)} characters; the tool's line holds {LINE_MAX}", key)
    odd = next(c for c in value if not ' ' <= c <= '~')
    try:
        odd.encode('gbk')
        why = "the tool's line editor takes printable ASCII only"
    except UnicodeEncodeError:
        why = "the tool's encoding (GBK) has no such character"
    raise _Bad(f'{key} holds {odd!r}: {why}', key)


def _pattern(key, value):
    if not isinstance(value, str):
        raise _Bad(f'{key} must be text (a regular expression), not {_shown(value)}', key)
    try:
        return re.compile(value)
    except re.error as e:
        raise _Bad(f'{key} {value!r} is not a regular expression: {e}', key) from None


# -- steps --

def _match_value(key, value):
    if isinstance(value, str):
        return value
    return _finite(key, value, 'a number or text')


def _limit(name, raw):
    if not isinstance(raw, dict):
        raise _Bad(f'limits of {name} must be a table such as {{ low = 0, high = 85 }}', name)
    try:
        return _limit_values(name, raw)
    except _Bad as e:
        e.key = name
        raise


def _limit_values(name, raw):
    if not LIMIT_KEYS.issuperset(raw):
        raise _Bad(f'unknown limit key {min(raw.keys() - LIMIT_KEYS)!r} for {name}')
    get = raw.get
    low, high, equals, in_ = get('low'), get('high'), get('equals'), get('in')
    if low is not None:
        _finite(f'{name}.low', low)
    if high is not None:
        _finite(f'{name}.high', high)
    if low is not None and high is not None and low > high:
        raise _Bad(f'{name}: low {low} is above high {high}')
    if equals is not None:
        _match_value(f'{name}.equals', equals)
    if in_ is not None:
        if not isinstance(in_, list) or not in_:
            raise _Bad(f'{name}.in must be an array of numbers or texts, not {_shown(in_)}')
        in_ = [_match_value(f'{name}.in', v) for v in in_]
    unit = _text(f'{name}.unit', raw['unit']) if 'unit' in raw else None
    return Limit(low, high, equals, in_, unit)


def _measure(raw):
    if not isinstance(raw, dict):
        raise _Bad(f'a measurement must be a table, not {_shown(raw)}')
    if 'pattern' not in raw:
        raise _Bad('a measurement needs a pattern')
    regex = _pattern('pattern', raw['pattern'])
    limits = {k: _limit(k, v) for k, v in raw.items() if k != 'pattern'}
    unknown = limits.keys() - regex.groupindex.keys()
    if unknown:
        name = min(unknown)
        raise _Bad(f'limits for {name!r}, which the pattern does not name', name)
    for group in regex.groupindex:
        limits.setdefault(group, Limit())
    return Measure(raw['pattern'], limits)


def _measures(raw):
    if not isinstance(raw, list):
        raise _Bad(f'measure must be [[steps.measure]] tables, not {_shown(raw)}', 'measure')
    found = []
    for i, m in enumerate(raw):
        try:
            found.append(_measure(m))
        except _Bad as e:
            e.key = ('measure', i, e.key)
            raise
    return found


def _step(raw, defaults):
    if not isinstance(raw, dict):
        raise _Bad(f'a step must be a table, not {_shown(raw)}')
    if not STEP_KEYS.issuperset(raw):
        bad = min(raw.keys() - STEP_KEYS)
        raise _Bad(f'unknown key {bad!r}', bad)
    raw = {**_applying(raw, defaults), **raw}
    ask = _ask(raw)
    get = raw.get
    expect, retries, go_on = get('expect', 'pass'), get('retries', 0), get('continue_on_fail', False)
    if expect not in VERDICTS:
        raise _Bad(f'expect must be "pass" or "fail", not {_shown(expect)}', 'expect')
    if type(retries) is not int or retries < 0:
        raise _Bad(f'retries must be a whole number, 0 or more, not {_shown(retries)}', 'retries')
    if type(go_on) is not bool:
        raise _Bad(f'continue_on_fail must be true or false, not {_shown(go_on)}', 'continue_on_fail')
    answer = get('answer')
    if answer is not None and answer not in ANSWERS:
        raise _Bad(f'answer must be "Y" or "N" (the tool takes exactly y or Y as yes, anything '
                   f'else as no), not {_shown(answer)}', 'answer')
    command = _command('command', get('command')) if 'command' in raw or not ask else None
    step = Step(_text('name', get('name')), command, expect, _timeout(get('timeout')), answer,
                retries, go_on, _measures(raw['measure']) if 'measure' in raw else [])
    return _question(step, raw, ask) if ask else step


def _applying(raw, defaults):
    """The defaults that mean something for this step: a command's keys
    where it has a command, a judgement's choices where it judges."""
    asks = any(k in raw for k in ASKS)
    have = set(raw) | ({'command'} if 'command' in defaults and not asks else set())
    return {k: v for k, v in defaults.items()
            if (k != 'command' or not asks) and (k not in NEEDS or NEEDS[k] in have)}


def _ask(raw):
    asks = [k for k in ASKS if k in raw]
    if len(asks) > 1:
        raise _Bad(f'a step asks one question, not both {asks[0]} and {asks[1]}', asks[1])
    ask = asks[0] if asks else None
    if ask in ('prompt', 'scan') and 'command' in raw:
        raise _Bad(f'a {ask} runs no command: make the command a step of its own', 'command')
    have = set(raw) | ({'command'} if not ask else set())
    for key, need in NEEDS.items():
        if key in raw and need not in have:
            raise _Bad(f'{key} goes with {need}, which this step has not', key)
    return ask


def _question(step, raw, ask):
    step.ask, step.question = ask, _text(ask, raw[ask])
    if ask == 'judge':
        step.choices = _choices(raw.get('choices'))
    if 'pattern' in raw:
        _pattern('pattern', raw['pattern'])
        step.pattern = raw['pattern']
    step.serial = raw.get('serial', False)
    if type(step.serial) is not bool:
        raise _Bad(f'serial must be true or false, not {_shown(step.serial)}', 'serial')
    return step


def _choices(choices):
    if not isinstance(choices, dict) or not choices:
        raise _Bad('judge needs choices, a table such as { Yes = "pass", No = "fail" }',
                   'choices' if choices is not None else 'judge')
    for answer, verdict in choices.items():
        _text('a choice', answer)
        if verdict not in VERDICTS:
            raise _Bad(f'choice {answer!r} must give "pass" or "fail", not {_shown(verdict)}',
                       'choices')
    if 'pass' not in choices.values():
        raise _Bad('no choice passes the step', 'choices')
    return dict(choices)


def _timeout(value):
    if value is None:
        return None
    _finite('timeout', value, 'a number of seconds')
    if not TIMEOUT_MIN <= value <= TIMEOUT_MAX:
        raise _Bad(f'timeout {value} s is outside {TIMEOUT_MIN} s to {TIMEOUT_MAX:.0f} s (24 h)',
                   'timeout')
    return value


# -- the plan --

def _identity(raw):
    if not isinstance(raw, dict):
        raise _Bad('identity must be a table of named values', 'identity')
    found = []
    for name, value in raw.items():
        try:
            if not isinstance(value, dict) or value.keys() != {'command', 'pattern'}:
                raise _Bad('needs a command and a pattern, nothing else')
            if _pattern('pattern', value['pattern']).groups != 1:
                raise _Bad('the pattern must have exactly one group', 'pattern')
            found.append(Identity(name, _command('command', value['command']), value['pattern']))
        except _Bad as e:
            raise _Bad(f'identity {name}: {e}', ('identity', name, e.key)) from None
    return found


def _serial_pattern(raw):
    if raw is not None:
        _pattern('serial_pattern', raw)
    return raw


def _top(data):
    for key, option in RUN_TIME_KEYS.items():
        if key in data:
            raise _Bad(f'{key} is given at run time ({option}), not in a plan', key)
    bad = data.keys() - PLAN_KEYS
    if bad:
        raise _Bad(f'unknown key {min(bad)!r}', min(bad))
    _text('name', data.get('name'))
    if not isinstance(data.get('description', ''), str):
        raise _Bad(f'description must be text, not {_shown(data["description"])}', 'description')
    version = data.get('version', '')
    # A float would lose its form: 1.10 would read 1.1.
    if not isinstance(version, str) and type(version) is not int:
        raise _Bad(f'version must be text such as "1.10", not {_shown(version)}', 'version')
    for phase in ('setup', 'steps'):
        if not isinstance(data.get(phase, []), list):
            raise _Bad(f'{phase} must be [[{phase}]] tables, not {_shown(data[phase])}', phase)
    if not data.get('steps'):
        raise _Bad('the plan has no steps')
    return _defaults(data.get('defaults', {}))


def _defaults(defaults):
    if not isinstance(defaults, dict):
        raise _Bad(f'defaults must be a table, not {_shown(defaults)}', 'defaults')
    # What a step asks is its own, and so is which scan is the serial number.
    bad = defaults.keys() - (STEP_KEYS - {'name', 'serial', *ASKS})
    if bad:
        raise _Bad(f'[defaults] cannot give {min(bad)!r}', ('defaults', min(bad)))
    return defaults


def _steps(data, defaults, where):
    steps = {}
    for phase in ('setup', 'steps'):
        found = steps[phase] = []
        for i, raw in enumerate(data.get(phase, [])):
            try:
                step = _step(raw, defaults)
                if step.ask and phase == 'setup':
                    raise _Bad('setup steps run again after a restart: ask the operator in '
                               '[[steps]]', step.ask)
                found.append(step)
            except _Bad as e:
                raise PlanError(where.step(phase, i, raw, defaults, e)) from None
    first, serial = {}, None
    for phase in ('setup', 'steps'):
        for i, step in enumerate(steps[phase]):
            if step.name in first:
                raise PlanError(where.step(phase, i, step.__dict__, {}, _Bad(
                    f'step name {step.name!r} used twice (also {first[step.name]})', 'name')))
            if step.serial and serial:
                raise PlanError(where.step(phase, i, step.__dict__, {}, _Bad(
                    f'the serial number is scanned once (also {serial})', 'serial')))
            first[step.name] = _label(phase, i)
            serial = serial or (step.serial and _label(phase, i))
    return steps['setup'], steps['steps']


def _label(phase, index):
    return f'{"step" if phase == "steps" else phase} {index + 1}'


def load(path):
    path = Path(path).resolve()
    try:
        blob = path.read_bytes()
        text = blob.decode('utf-8')
        data = tomllib.loads(text)
    except (OSError, UnicodeDecodeError, tomllib.TOMLDecodeError) as e:
        raise PlanError(f'{path}: {e}') from None
    except RecursionError:
        where = _Where(path, text)
        raise PlanError(where.say(where.deepest(), 'arrays or tables nested too deeply')) from None
    where = _Where(path, text)
    try:
        defaults = _top(data)
        identity = _identity(data.get('identity', {}))
        serial_pattern = _serial_pattern(data.get('serial_pattern'))
    except _Bad as e:
        raise PlanError(where.plan(e)) from None
    setup, steps = _steps(data, defaults, where)
    return Plan(data['name'], data.get('description', ''), setup, steps, path,
                str(data.get('version', '')), identity, serial_pattern,
                hashlib.sha256(blob).hexdigest())


# -- where in the file: tomllib keeps no positions, so a refusal looks for
# -- its line in the text, by table headers and keys.

HEADER = re.compile(r'\s*(?:\[\[?)([^\]\[#]+)\]\]?\s*(?:#.*)?')


class _Where:
    def __init__(self, path, text):
        self.path, self.text = path, text

    @cached_property
    def lines(self):
        return self.text.splitlines()

    @cached_property
    def headers(self):
        return list(self._scan())

    def _scan(self):
        quoted = False
        for n, line in enumerate(self.lines):
            # A header-like line inside a multi-line string is text.
            quoted ^= (line.count('"""') + line.count("'''")) % 2 == 1
            match = not quoted and HEADER.fullmatch(line)
            if match:
                yield n, re.sub(r'[\s"\']', '', match.group(1))

    def _span(self, path, index, start=-1, end=None):
        """Lines (header, end) of the index-th table `path` between start and end."""
        end = len(self.lines) if end is None else end
        starts = [n for n, p in self.headers if p == path and start < n < end]
        if index >= len(starts):
            return None
        stop = next((n for n, p in self.headers
                     if n > starts[index] and not p.startswith(path + '.')), end)
        return starts[index], min(stop, end)

    def _key(self, key, start):
        stop = next((n for n, _ in self.headers if n > start), len(self.lines))
        pattern = re.compile(r'(?:^\s*|[{,]\s*)["\']?%s["\']?\s*=' % re.escape(str(key)))
        return next((n for n in range(max(start, 0), stop) if pattern.search(self.lines[n])), None)

    def _find(self, keys, table='', span=(-1, None)):
        """The line of a key path: keys, each array's name followed by an index."""
        (start, end), keys = span, list(keys)
        line = start if start >= 0 else None
        while keys and keys[0] is not None:
            key = keys.pop(0)
            index = keys.pop(0) if keys and isinstance(keys[0], int) else 0
            path = f'{table}.{key}' if table else str(key)
            sub = self._span(path, index, start, end)
            if sub:
                table, (start, end) = path, sub
                line = start
                continue
            n = self._key(key, start)
            if n is not None:
                line = start = n
            else:
                table = path  # defined by a dotted header: [identity.pcb]
        return line

    def say(self, line, message):
        return f'{self.path}:{line + 1}: {message}' if line is not None else f'{self.path}: {message}'

    def plan(self, bad):
        keys = bad.key if isinstance(bad.key, tuple) else (bad.key,)
        return self.say(self._find(keys), bad)

    def deepest(self):
        return max(range(len(self.lines)), key=lambda n: self.lines[n].count('['), default=None)

    def step(self, phase, index, raw, defaults, bad):
        keys = bad.key if isinstance(bad.key, tuple) else (bad.key,)
        name = raw.get('name') if isinstance(raw, dict) else None
        what = _label(phase, index) + (f' {name!r}' if isinstance(name, str) else '')
        if isinstance(raw, dict) and keys[0] not in raw and keys[0] in defaults:
            return self.say(self._find(('defaults',) + keys), f'{what}: {bad} (from [defaults])')
        span = self._span(phase, index)
        line = self._find(keys, phase, span) if span else self._find((phase,))
        return self.say(line, f'{what}: {bad}')


# A line of the tool's that says something went wrong; a table's header
# (CHIP  LOW_LIMIT  CURRENT_TEMPERATURE ...) never does.
FAILING = re.compile(r'\b(?:error|errors|fail|failed|failure|absent|abnormal|invalid|timeout|'
                     r'timed out|not|no|cannot|unable|wrong|bad|lost|missing|down)\b', re.I)
TABLE_HEADER = re.compile(r'[A-Z][A-Z0-9_]*(?:\s+[A-Z][A-Z0-9_]*)+')


def _row(lines, i):
    """A table's row with its header's names: CHIP=1 LOW_LIMIT=0 ..."""
    head = next((lines[j] for j in range(i - 1, -1, -1) if TABLE_HEADER.fullmatch(lines[j])), '')
    names, cells = head.split(), lines[i].split()
    if names and len(names) == len(cells):
        return ' '.join(f'{n}={c}' for n, c in zip(names, cells))
    return ' '.join(cells)


def failing_line(result):
    """What the tool said went wrong: its refusal or time-out message, else
    the first line that says so (and how many more do), else its last line
    that is not a table's header."""
    if result.message and result.message.strip():
        return ' '.join(result.message.split())
    lines = [line.strip() for line in result.text.splitlines() if line.strip()]
    rows = [i for i, line in enumerate(lines) if not TABLE_HEADER.fullmatch(line)]
    bad = [i for i in rows if FAILING.search(lines[i])]
    if bad:
        return _row(lines, bad[0]) + (f' (+{len(bad) - 1} more)' if len(bad) > 1 else '')
    return _row(lines, rows[-1]) if rows else ''


def _shown_value(text, value):
    # Both forms when the number differs from what the tool printed: 0x3E9 (1001).
    return text if value is None or str(value) == text.strip() else f'{text} ({value})'


def _measured(step, text):
    found, missing = [], None
    for m in step.measure:
        match = re.search(m.pattern, text)
        if not match:
            missing = missing or f'pattern {m.pattern!r} not found'
            continue
        for name, limit in m.limits.items():
            read = match.group(name)
            if read is None:
                found.append(Measured(name, None, limit, False, f'{name} not found'))
                continue
            why = limit.check(read)
            unit = f' {limit.unit}' if limit.unit else ''
            found.append(Measured(name, number(read), limit, why is None, None if why is None else
                                  f'{name} {_shown_value(read, numeric(read))}{unit} {why}', read))
    return found, missing


def judge(step, result):
    """Whether the result meets the step: its verdict and every value. The
    reason names first a value out of its limits (the most exact), then the
    tool's line that failed, then what was not found."""
    measurements, missing = _measured(step, result.text)
    why = next((m.why for m in measurements if not m.ok and m.value is not None), None)
    if not why and result.verdict != step.expect:
        why = f'verdict {result.verdict}, expected {step.expect}: ' + (
            failing_line(result) or 'the tool printed nothing more')
    why = why or missing or next((m.why for m in measurements if not m.ok), None)
    return Outcome(why is None, measurements, why)


def judge_answer(step, reply, timeout=None):
    """A person's answer against the step: (verdict, why); no reply is a time-out."""
    if reply is None:
        return 'timeout', f'no answer to "{step.question}"' + (
            f' within {timeout:g} s' if timeout else '')
    verdict = step.choices[reply['answer']] if step.ask == 'judge' else 'pass'
    if verdict == 'pass':
        return verdict, None
    return verdict, f'{reply["by"]} answered "{reply["answer"]}" to "{step.question}"'
