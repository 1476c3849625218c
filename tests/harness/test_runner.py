"""The runner end to end on a box: verdicts against expectations, limits,
retries, a restart after the tool went silent (the setup run again), a stop,
a setup step that fails, and both reports read back as a CI server and a
production system would."""
import json
import re
import shutil
import subprocess
import xml.etree.ElementTree as ET

import pytest

from harness import runner
from harness.transports import REPO

PLAN = '''
name = "runner"
[[setup]]
name = "server"
command = "set serverip 192.168.1.1"

[[setup]]
name = "cool"
command = "test mainboard temperature 0 85"
  [[setup.measure]]
  pattern = '(?m)^\\d+\\s+-?\\d+\\s+(?P<main>-?\\d+)\\s'
  main = { high = 60 }

[[steps]]
name = "leds"
command = "test led on"

[[steps]]
name = "clock unset"
command = "test rtc gettime"
expect = "fail"

[[steps]]
name = "temperature"
command = "test mainboard temperature 0 85"
  [[steps.measure]]
  pattern = '(?m)^\\d+\\s+-?\\d+\\s+(?P<main>-?\\d+)\\s'
  main = { low = 0, high = 85, unit = "degC" }

[[steps]]
name = "temperature tight"
command = "test mainboard temperature 0 85"
retries = 1
continue_on_fail = true
  [[steps.measure]]
  pattern = '(?m)^\\d+\\s+-?\\d+\\s+(?P<main>-?\\d+)\\s'
  main = { high = 1 }

[[steps]]
name = "silent receiver"
command = "test nvrgps get satellite 0"
timeout = 1
continue_on_fail = true

[[steps]]
name = "after restart"
command = "download manuinfo manuinfo.txt"

[[steps]]
name = "silent again"
command = "test nvrgps get satellite 0"
timeout = 1
continue_on_fail = true

[[steps]]
name = "wipe"
command = "clear information"
answer = "Y"

[[steps]]
name = "clock"
command = "test rtc gettime"

[[steps]]
name = "never"
command = "test led on"
'''


@pytest.mark.needs_cli
def test_plan_on_a_box_and_its_reports(tmp_path, capsys):
    plan = tmp_path / 'plan.toml'
    plan.write_text(PLAN)
    # A GPS receiver that sends nothing: the tool's read blocks for good.
    serial = tmp_path / 'work' / 'box' / 'state' / 'serial'
    shutil.copytree(REPO / 'sim' / 'default-state' / 'serial', serial)
    (serial / 'ttyS9').write_text('gps silent\n')
    junit, record = tmp_path / 'r.xml', tmp_path / 'r.json'
    # exec:true: a board whose console ends before the tool starts.
    status = runner.main([str(plan), '--board', 'box', '--board', 'box:overheat',
                          '--board', 'exec:true', '--no-db',
                          '--workdir', str(tmp_path / 'work'), '--junit', str(junit),
                          '--json', str(record)])
    assert status == 1
    # Reports readable by the line's other accounts, as any file it writes.
    assert [oct(p.stat().st_mode & 0o777) for p in (junit, record)] == ['0o644'] * 2
    summary = capsys.readouterr().out.splitlines()[-4:]
    assert summary[0].split()[:6] == ['box', '-', '-', '11', '4', '1'], summary
    assert summary[1].split()[:6] == ['box:overheat', '-', '-', '1', '1', '10'], summary
    assert summary[2].split()[:6] == ['exec:true', '-', '-', '0', '0', '12'], summary
    assert 'the console ended' in summary[2] and summary[3] == '0 of 3 boards passed'
    assert re.search(r'temperature tight: main \d+ above high 1 \(2 attempts\)', summary[0])

    # The wipe's progress bar writes backspaces, which XML cannot hold.
    assert subprocess.run(['xmllint', '--noout', str(junit)]).returncode == 0
    suites = ET.parse(junit).getroot()
    assert [suites.get(k) for k in ('tests', 'failures', 'errors', 'skipped')] == ['40', '5', '1', '23']
    suite, hot, _ = suites.findall('testsuite')
    assert {c.get('classname') for c in suite.iter('testcase')} == {'runner.box'}
    assert {c.get('classname') for c in hot.iter('testcase')} == {'runner.box:overheat'}
    cases = {c.get('name'): c for c in suite.findall('testcase')}
    assert list(cases) == ['server', 'cool', 'leds', 'clock unset', 'temperature',
                           'temperature tight', 'silent receiver', 'after restart', 'silent again',
                           'wipe', 'clock', 'never', 'server (after restart 1)',
                           'cool (after restart 1)', 'server (after restart 2)',
                           'cool (after restart 2)']
    failed = {name for name, c in cases.items() if c.find('failure') is not None}
    assert failed == {'temperature tight', 'silent receiver', 'silent again', 'clock'}
    assert cases['never'].find('skipped').get('message') == \
        'not run: clock failed and continue_on_fail is off'
    tries = {p.get('name'): p.get('value') for p in cases['temperature tight'].iter('property')}
    assert re.fullmatch(r'pass: main \d+ above high 1', tries['temperature tight.attempt.1'])
    assert 'test rtc gettime\nFailed to get nvram' in cases['clock'].find('failure').text
    props = {p.get('name'): p.get('value') for p in cases['temperature'].iter('property')}
    assert 0 <= int(props['temperature.main']) <= 85
    assert props['temperature.main.limits'] == 'low=0 high=85 unit=degC' and len(props) == 3
    restarts = [p.get('value') for p in suite.find('properties') if p.get('name') == 'restart']
    assert [r.split(' ', 1)[1].split(':')[0] for r in restarts] == ['silent receiver', 'silent again']
    assert '\\x08' in suite.find('system-out').text

    box, overheat, gone = json.loads(record.read_text())['boards']
    assert gone['verdict'] == 'fail' and 'the console ended' in gone['error']
    assert 'EQUIPMENT_TEST_OK' in box['banner'] and 'BOARD' in box['version']
    steps = {s['name']: s for s in box['steps']}
    assert [a['n'] for a in steps['temperature tight']['attempts']] == [1, 2]
    assert steps['temperature tight']['measurements'][0]['limits'] == {'high': 1}
    assert steps['silent receiver']['verdict'] == 'timeout'
    # The setup ran again after the restart, so the transfer found its server.
    assert steps['after restart']['ok'] and steps['clock unset']['ok']
    assert all(steps[f'{name} (after restart {n})']['rerun'] for name in ('server', 'cool')
               for n in (1, 2))
    assert [e['kind'] for e in box['events']] == ['restart', 'restart']
    assert [s['status'] for s in box['steps'][-4:]] == ['passed'] * 4
    assert steps['wipe']['confirmation'] == 'Y' and steps['wipe']['attempts'][0]['confirmation'] == 'Y'
    assert cases['wipe'].find('properties/property').attrib == {'name': 'wipe.confirmation',
                                                                'value': 'Y'}
    assert steps['clock']['why'].startswith('verdict fail, expected pass')
    assert 'test result:fail\r' in steps['clock']['raw'] and 'test result' not in steps['clock']['text']
    # A failed setup step ends the board's plan, and the skipped steps say so.
    assert [s['status'] for s in overheat['steps']] == ['passed', 'failed'] + ['skipped'] * 10
    assert overheat['steps'][1]['why'] == 'main 105 above high 60'
    assert {s['why'] for s in overheat['steps'][2:]} == {'not run: setup step cool failed'}


@pytest.mark.parametrize('plan, message', [
    ('name = "x"\n[[steps]]\nname = "a"\ncommand = "test led on"\nexpct = "fail"\n', "unknown key 'expct'"),
    ('name = "x"\n[[steps]]\nname = "a"\ncommand = "c"\n[[steps]]\nname = "a"\ncommand = "d"\n',
     "'a' used twice"),
    ('name = "x"\n[[steps]]\nname = "a"\ncommand = "c"\n[[steps.measure]]\npattern = "(?P<t>\\\\d+)"\n'
     'v = { high = 1 }\n', "'v', which the pattern does not name"),
])
def test_bad_plans_are_refused_before_any_board(tmp_path, capsys, plan, message):
    path = tmp_path / 'plan.toml'
    path.write_text(plan)
    assert runner.main([str(path), '--board', 'box', '--no-db']) == 2
    assert message in capsys.readouterr().err
