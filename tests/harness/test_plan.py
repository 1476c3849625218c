"""The plan's judge: limits on what the tool printed, numbers against text,
a pattern that finds nothing, and what [defaults] may and may not decide."""

import pytest

from harness import plan as plans
from harness.client import Result

STEP = 'name = "p"\n[[steps]]\nname = "v"\ncommand = "test led on"\n'


def load(tmp_path, text):
    path = tmp_path / 'plan.toml'
    path.write_text(text)
    return plans.load(path)


@pytest.mark.parametrize('limit, text, why', [
    ({'low': 0, 'high': 85}, '85', None),
    ({'low': 0, 'high': 85}, '-1', 'v -1 below low 0'),
    ({'low': 0, 'high': 85, 'unit': 'degC'}, '85.5', 'v 85.5 degC above high 85'),
    ({'low': 0}, 'n/a', 'v n/a not a number'),
    ({'high': 1}, 'nan', 'v nan not a number'),
    # A number limit against the number the text means, whatever its form.
    ({'equals': 1001}, '1001', None),
    ({'equals': 1001}, '0x3E9', None),
    ({'equals': 1001}, '1001.0', None),
    ({'equals': 1002}, '01001', 'v 01001 (1001) not equal to 1002'),
    ({'equals': 1002}, '0x3E9', 'v 0x3E9 (1001) not equal to 1002'),
    ({'equals': 1001}, '1_001', "v 1_001 not equal to 1001"),
    # A text limit against the text as printed.
    ({'equals': '1001'}, '1001', None),
    ({'equals': '1001'}, '1001.0', "v 1001.0 not equal to '1001'"),
    ({'in': [1, 'two']}, '1', None),
    ({'in': [1, 'two']}, 'two', None),
    ({'in': [1, 'two']}, '3', "v 3 not in [1, 'two']"),
])
def test_limits(tmp_path, limit, text, why):
    limits = ', '.join(f'{k} = {v!r}'.replace("'", '"') for k, v in limit.items())
    plan = load(tmp_path, STEP + f'[[steps.measure]]\npattern = "= (?P<v>\\\\S+)"\nv = {{ {limits} }}\n')
    outcome = plans.judge(plan.steps[0], Result('test led on', 'pass', text=f'value = {text}'))
    assert (outcome.ok, outcome.why) == (why is None, why)
    measured, = outcome.measurements
    assert measured.text == text and measured.value == plans.number(text)


def test_a_step_fails_on_its_verdict_or_a_pattern_that_finds_nothing(tmp_path):
    plan = load(tmp_path, STEP + '[[steps.measure]]\npattern = "temp (?P<t>\\\\d+)"\n'
                                 '[[steps.measure]]\npattern = "fan (?P<f>\\\\d+)?"\n')
    step = plan.steps[0]
    judged = [plans.judge(step, Result('x', verdict, text=text, message='hdd 0 is: absent'))
              for verdict, text in [('pass', 'temp 40 fan 3'), ('fail', 'temp 40 fan 3'),
                                    ('pass', 'fan 3'), ('pass', 'temp 40 fan ')]]
    assert [(o.ok, o.why) for o in judged] == [
        (True, None),
        (False, 'verdict fail, expected pass: hdd 0 is: absent'),
        (False, "pattern 'temp (?P<t>\\\\d+)' not found"),
        (False, 'f not found')]


@pytest.mark.parametrize('text, line', [
    # The overheated board's table: its row under the header's names.
    ('CHIP  LOW_LIMIT  CURRENT_TEMPERATURE HIGH_LIMIT  STATUS\n1     0        105       85  abnormal',
     'CHIP=1 LOW_LIMIT=0 CURRENT_TEMPERATURE=105 HIGH_LIMIT=85 STATUS=abnormal'),
    ('Envalid GSV msg!\nGE0 test ....... error\nGE1 test ....... ok', 'GE0 test ....... error'),
    ('port 0 test ... absent\nport 1 test ... absent\n', 'port 0 test ... absent (+1 more)'),
    ('PORT  STATUS\n0     up\n\n', 'PORT=0 STATUS=up'),        # nothing says why: the last row
    ('PORT  ERRORS', ''),
])
def test_a_failed_verdict_names_the_tools_line_that_failed(text, line):
    assert plans.failing_line(Result('x', 'fail', text=text)) == line


def test_defaults_fill_what_a_step_lacks_and_never_override_it(tmp_path):
    # The time-outs at the bounds a plan may give.
    plan = load(tmp_path, 'name = "p"\n[defaults]\ntimeout = 86400\nretries = 2\nanswer = "Y"\n'
                          'continue_on_fail = true\nexpect = "fail"\n'
                          '[[steps]]\nname = "own"\ncommand = "a"\ntimeout = 0.1\nretries = 0\n'
                          'answer = "n"\ncontinue_on_fail = false\nexpect = "pass"\n'
                          '[[steps]]\nname = "bare"\ncommand = "b"\n'
                          '[[steps]]\nname = "ask"\nprompt = "Plug in"\n')
    own, bare, ask = ((s.timeout, s.retries, s.answer, s.continue_on_fail, s.expect)
                      for s in plan.steps)
    assert own == (0.1, 0, 'n', False, 'pass')
    assert bare == (86400, 2, 'Y', True, 'fail')
    # A question takes the defaults that mean something for it, not a command's.
    assert ask == (86400, 0, None, True, 'pass') and plan.steps[2].command is None


def test_a_large_plan_loads_and_names_its_duplicate(tmp_path):
    steps = ''.join(f'[[steps]]\nname = "s{i}"\ncommand = "test led on"\n' for i in range(100_000))
    assert len(load(tmp_path, 'name = "big"\n' + steps).steps) == 100_000
    with pytest.raises(plans.PlanError, match=r":300003: step 100001 's7': step name 's7' used twice"):
        load(tmp_path, 'name = "big"\n' + steps + '[[steps]]\nname = "s7"\ncommand = "x"\n')
