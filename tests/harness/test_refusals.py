"""Every bad plan and board target of the reliability trial, and the plan's
other refusals: harness/run exits 2 before any board starts, with one line
naming the problem (for a plan: the file, the line and the step), never a
traceback."""
import subprocess
import sys
from pathlib import Path

import pytest

RUN = Path(__file__).resolve().parents[2] / 'harness' / 'run'
HEAD = 'name = "trial"\n'
STEP = '[[steps]]\nname = "a"\ncommand = "test led on"\n'       # lines 2-4


def command(text):
    return HEAD + f'[[steps]]\nname = "a"\ncommand = "{text}"\n'   # the command on line 4


def step(extra):
    return HEAD + STEP + extra                                     # extra from line 5


def ask(extra):
    return HEAD + '[[steps]]\nname = "a"\n' + extra + '\n'       # extra from line 4


def measure(limits):
    return step('[[steps.measure]]\npattern = \'(?P<v>\\d+)\'\n' + limits + '\n')  # line 7


AT4, AT5, AT7 = "{plan}:4: step 1 'a': ", "{plan}:5: step 1 'a': ", "{plan}:7: step 1 'a': "
PLANS = [
    (command('test mainboard temperature 0 1\\rtest led on'),
     AT4 + "command holds the control character '\\r'"),
    (command('test led on\\u001b[A'), AT4 + "command holds the control character '\\x1b'"),
    (command('test led\\ton'), AT4 + "command holds the control character '\\t'"),
    (command('test led ?'), AT4 + 'command holds "?", which asks the tool for help'),
    (command('test led \\U0001F600'), AT4 + "command holds '\U0001F600': the tool's encoding (GBK)"),
    (command('test~led 温'), AT4 + "command holds '温': the tool's line editor takes printable ASCII only"),
    (command('x' * 100), AT4 + "command is 100 characters; the tool's line holds 99"),
    (command('x' * 10000), AT4 + 'command is 10000 characters'),
    (command(' '), AT4 + 'command is empty'),
    (HEAD + '[[steps]]\ncommand = "test led on"\n', "{plan}:2: step 1: name is missing"),
    (HEAD + '[[steps]]\nname = "a\\u001b"\ncommand = "x"\n', "{plan}:3: step 1 'a\\x1b': name holds"),
    (HEAD + STEP + STEP, "{plan}:6: step 2 'a': step name 'a' used twice (also step 1)"),
    (step('expct = "fail"'), AT5 + "unknown key 'expct'"),
    (step('expect = "passed"'), AT5 + 'expect must be "pass" or "fail"'),
    (step('timeout = nan'), AT5 + 'timeout must be a number of seconds, not nan'),
    (step('timeout = -inf'), AT5 + 'timeout must be a number of seconds, not -inf'),
    (step('timeout = true'), AT5 + 'timeout must be a number of seconds, not true'),
    (step('timeout = "30"'), AT5 + "timeout must be a number of seconds, not '30'"),
    (step('timeout = 0.05'), AT5 + 'timeout 0.05 s is outside 0.1 s to 86400 s'),
    (step('timeout = 86401'), AT5 + 'timeout 86401 s is outside'),
    (step('retries = true'), AT5 + 'retries must be a whole number, 0 or more, not true'),
    (step('retries = 1.5'), AT5 + 'retries must be a whole number, 0 or more, not 1.5'),
    (step('retries = -1'), AT5 + 'retries must be a whole number'),
    (step('continue_on_fail = "false"'), AT5 + "continue_on_fail must be true or false, not 'false'"),
    (step('continue_on_fail = 0'), AT5 + 'continue_on_fail must be true or false, not 0'),
    (step('answer = 1'), AT5 + 'answer must be "Y" or "N"'),
    (step('answer = "yes please"'), AT5 + 'answer must be "Y" or "N" (the tool takes exactly y or Y as yes, '
                                    "anything else as no), not 'yes please'"),
    (step('answer = "Y "'), AT5 + 'answer must be "Y" or "N"'),
    (step('measure = 5'), AT5 + 'measure must be [[steps.measure]] tables, not 5'),
    (step('[steps.measure]\npattern = "x"'), AT5 + 'measure must be [[steps.measure]] tables'),
    (step('[[steps.measure]]\npattern = 5'), "{plan}:6: step 1 'a': pattern must be text"),
    (step('[[steps.measure]]\npattern = "(x"'), "{plan}:6: step 1 'a': pattern '(x' is not a regular"),
    (step('[[steps.measure]]\nv = { low = 1 }'), AT5 + 'a measurement needs a pattern'),
    (measure('v = { low = 5, high = 1 }'), AT7 + 'v: low 5 is above high 1'),
    (measure('v = { low = nan }'), AT7 + 'v.low must be a number, not nan'),
    (measure('v = { high = inf }'), AT7 + 'v.high must be a number, not inf'),
    (measure('v = { high = true }'), AT7 + 'v.high must be a number, not true'),
    (measure('v = { low = "0" }'), AT7 + "v.low must be a number, not '0'"),
    (measure('v = { equals = nan }'), AT7 + 'v.equals must be a number or text, not nan'),
    (measure('v = { equals = false }'), AT7 + 'v.equals must be a number or text, not false'),
    (measure('v = { in = [[[[1]]]] }'), AT7 + 'v.in must be a number or text, not an array'),
    (measure('v = { in = [] }'), AT7 + 'v.in must be an array of numbers or texts, not an array'),
    (measure('v = { in = "1" }'), AT7 + "v.in must be an array of numbers or texts, not '1'"),
    (measure('v = { unit = 5 }'), AT7 + 'v.unit must be text, not 5'),
    (measure('v = { lo = 1 }'), AT7 + "unknown limit key 'lo' for v"),
    (measure('v = 5'), AT7 + 'limits of v must be a table'),
    (measure('w = { low = 1 }'), AT7 + "limits for 'w', which the pattern does not name"),
    # What the operator is asked.
    (ask('prompt = "Plug in"\nscan = "Label"'), AT5 + 'a step asks one question, not both prompt and scan'),
    (step('prompt = "Plug in"'), AT4 + 'a prompt runs no command: make the command a step of its own'),
    (ask('judge = "Green?"'), AT4 + 'judge needs choices, a table such as {{ Yes = "pass", No = "fail" }}'),
    (ask('judge = "Green?"\nchoices = { Yes = "passed" }'), AT5 + "choice 'Yes' must give \"pass\" or \"fail\", not 'passed'"),
    (ask('judge = "Green?"\nchoices = { No = "fail" }'), AT5 + 'no choice passes the step'),
    (ask('prompt = "Plug in"\nanswer = "Y"'), AT5 + 'answer goes with command, which this step has not'),
    (ask('scan = "L"\nserial = true') + '[[steps]]\nname = "b"\nscan = "L"\nserial = true\n',
     "{plan}:9: step 2 'b': the serial number is scanned once (also step 1)"),
    (HEAD + '[[setup]]\nname = "s"\nprompt = "Plug in"\n' + STEP,
     "{plan}:4: setup 1 's': setup steps run again after a restart: ask the operator in [[steps]]"),
    (HEAD + '[defaults]\nprompt = "x"\n' + STEP, "{plan}:3: [defaults] cannot give 'prompt'"),
    (HEAD + '[[setup]]\nname = "s"\ncommand = "set serverip 1.2.3.4\\r"\n' + STEP,
     "{plan}:4: setup 1 's': command holds the control character '\\r'"),
    (HEAD + '[defaults]\ntimeout = inf\n' + STEP,
     "{plan}:3: step 1 'a': timeout must be a number of seconds, not inf (from [defaults])"),
    (HEAD + '[defaults]\nname = "x"\n' + STEP, "{plan}:3: [defaults] cannot give 'name'"),
    (HEAD + 'defaults = 5\n' + STEP, '{plan}:2: defaults must be a table, not 5'),
    (HEAD + 'steps = "abc"\n', "{plan}:2: steps must be [[steps]] tables, not 'abc'"),
    (HEAD + '[steps]\nname = "a"\ncommand = "c"\n', '{plan}:2: steps must be [[steps]] tables, not a table'),
    (HEAD + 'steps = [[[[[1]]]]]\n', '{plan}:2: step 1: a step must be a table, not an array'),
    (HEAD + 'x = ' + '[' * 2000 + ']' * 2000 + '\n' + STEP, '{plan}:2: arrays or tables nested too deeply'),
    (HEAD, '{plan}: the plan has no steps'),
    (STEP, '{plan}: name is missing'),
    ('station = "line1"\n' + HEAD + STEP, '{plan}:1: station is given at run time (--station)'),
    (HEAD + 'operator = "ana"\n' + STEP, '{plan}:2: operator is given at run time (--operator)'),
    (HEAD + 'version = 1.10\n' + STEP, '{plan}:2: version must be text such as "1.10", not 1.1'),
    (HEAD + 'description = 5\n' + STEP, '{plan}:2: description must be text, not 5'),
    (HEAD + 'serial_pattern = 5\n' + STEP, '{plan}:2: serial_pattern must be text'),
    (HEAD + 'serial_pattern = "(["\n' + STEP, "{plan}:2: serial_pattern '([' is not a regular"),
    (HEAD + 'identity = 5\n' + STEP, '{plan}:2: identity must be a table of named values'),
    (HEAD + '[identity]\nboard = { command = "display version mainboard" }\n' + STEP,
     '{plan}:3: identity board: needs a command and a pattern, nothing else'),
    (HEAD + '[identity]\nboard = { command = "display version mainboard", pattern = "(.)(.)" }\n' + STEP,
     '{plan}:3: identity board: the pattern must have exactly one group'),
    (HEAD + '[identity.pcb]\ncommand = "display version ?"\npattern = "(.)"\n' + STEP,
     '{plan}:3: identity pcb: command holds "?"'),
    (HEAD + 'name = "again"\n', '{plan}: Cannot overwrite a value (at line 2, column 15)'),
    (None, 'No such file or directory'),
]
TARGETS = [
    ('box:no-such-scenario', 'no-such-scenario'),
    ('box:overheat+no-such-scenario', 'no-such-scenario'),
    ('tcp:127.0.0.1:99999', '99999'),
    ('tcp:127.0.0.1:0', 'tcp:127.0.0.1:0'),
    ('tcp:127.0.0.1:x', 'tcp:127.0.0.1:x'),
    ('tcp:127.0.0.1', 'tcp:127.0.0.1'),
    ('tcp::23', 'tcp::23'),
    ('serial:', 'serial:'),
    ('exec:', 'exec:'),
    ('ssh:board', 'ssh:board'),
    ('labgrid:{tmp}/missing.yaml', 'missing.yaml'),
    ('labgrid:{tmp}/not-yaml.yaml', 'not-yaml.yaml'),
    ('labgrid:{tmp}/no-target.yaml', 'no-target.yaml'),
    ('labgrid:{tmp}/no-console.yaml', 'no-console.yaml'),
]
LABGRID = {
    'not-yaml.yaml': 'targets: [main\n  : {',
    'no-target.yaml': 'options: {}\n',
    'no-console.yaml': 'targets:\n  main:\n    resources:\n      RawSerialPort:\n        port: /dev/null\n',
}
ROWS = [pytest.param(plan, 'box', expected, id=f'plan{i}') for i, (plan, expected) in enumerate(PLANS)]
ROWS += [pytest.param(step(''), target, expected, id=target) for target, expected in TARGETS]


@pytest.mark.parametrize('plan, target, expected', ROWS)
def test_refused_before_any_board(tmp_path, plan, target, expected):
    path = tmp_path / 'plan.toml'
    if plan is not None:
        path.write_text(plan)
    for name, text in LABGRID.items():
        (tmp_path / name).write_text(text)
    work = tmp_path / 'work'
    run = subprocess.run([sys.executable, str(RUN), str(path), '--board', target.format(tmp=tmp_path),
                          '--workdir', str(work)],
                         cwd=tmp_path, capture_output=True, text=True, timeout=60)
    assert (run.returncode, run.stdout) == (2, ''), run.stderr
    line, = run.stderr.splitlines()
    assert line.startswith('harness/run: ') and 'Traceback' not in line
    assert expected.format(plan=path, tmp=tmp_path) in line
    # A board's working directory is made before it starts.
    assert not work.exists()
