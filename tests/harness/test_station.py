"""The runner with its page in headless Chromium: four boxes, one overheated,
answered by clicking; a station whose slots are started on the page, a
visit each time, until a signal; and the same questions at the terminal.
Screenshots go to the build directory (station-*.png)."""
import json
import os
import signal
import sqlite3
import subprocess
import sys
from pathlib import Path

import pytest

from harness.transports import REPO
from test_page import By, card, wait, browser  # noqa: F401  the page's Chromium

REASON = 'temperature mainboard: mainboard 105 degC above high 85'
PLAN = '''name = "station"
version = "1"
serial_pattern = 'SN\\d{4}'
[[steps]]
name = "loopback plug"
prompt = "Insert the RS-232 loopback plug"
[[steps]]
name = "temperature mainboard"
command = "test mainboard temperature 0 85"
  [[steps.measure]]
  pattern = '(?m)^\\d+\\s+-?\\d+\\s+(?P<mainboard>-?\\d+)\\s'
  mainboard = { low = 0, high = 85, unit = "degC" }
[[steps]]
name = "leds"
command = "test led on"
judge = "Are all panel LEDs green?"
choices = { Yes = "pass", No = "fail" }
'''


@pytest.fixture
def shot(browser):  # noqa: F811
    out = Path(os.environ.get('CLI_BUILD_DIR') or REPO / 'build')
    return lambda name: browser.save_screenshot(str(out / f'station-{name}.png'))


def start(tmp_path, script, boards, *args, plan=PLAN, **popen):
    (tmp_path / 'plan.toml').write_text(plan)
    argv = [sys.executable, str(REPO / 'harness' / script), 'plan.toml', '--db', 'sqlite:///r.sqlite',
            '--json', 'r.json', '--workdir', 'work', '--operator', 'ana']
    return subprocess.Popen(argv + [a for b in boards for a in ('--board', b)] + list(args), cwd=tmp_path,
                            stdout=subprocess.PIPE, text=True, **popen)


def click(browser, slot, text):  # noqa: F811
    wait(browser, lambda b: [x for x in card(b, slot).find_elements(By.TAG_NAME, 'button')
                             if x.text == text])[0].click()


def verdict(browser, slot):  # noqa: F811
    return card(browser, slot).find_element(By.CLASS_NAME, 'verdict').text


def rows(tmp_path, sql):
    with sqlite3.connect(tmp_path / 'r.sqlite') as db:
        return db.execute(sql).fetchall()


@pytest.mark.needs_cli
def test_four_boxes_answered_on_the_page(tmp_path, browser, shot):  # noqa: F811
    run = start(tmp_path, 'run', ['box', 'box:overheat', 'box', 'box'], '--serve', '127.0.0.1:0')
    browser.get(run.stdout.readline().split()[-1])
    browser.execute_script('window.sameLoad = true')
    for slot in (1, 2, 3, 4):
        wait(browser, lambda b: 'Insert the RS-232 loopback plug' in card(b, slot).text)
        assert 'Step 1 of 3' in card(browser, slot).text
    shot('run-asking')
    for slot in (1, 2, 3, 4):
        click(browser, slot, 'OK')
    wait(browser, lambda b: verdict(b, 2) == 'FAIL' and REASON in card(b, 2).text)
    for slot in (1, 3, 4):
        wait(browser, lambda b: 'Are all panel LEDs green?' in card(b, slot).text)
        assert 'Step 3 of 3' in card(browser, slot).text
    shot('run-judging')
    for slot in (1, 3, 4):
        click(browser, slot, 'Yes')
    wait(browser, lambda b: all(verdict(b, s) == 'PASS' for s in (1, 3, 4)))
    shot('run-done')
    assert run.wait(60) == 1 and browser.execute_script('return window.sameLoad') is True
    # Not a line per step per board: a failure as it came, a line per board, the table.
    out = run.stdout.read().splitlines()
    assert out[0] == f'box:overheat  FAIL 2/3 {REASON}' and len(out) == 1 + 4 + 7, out
    answers = rows(tmp_path, "SELECT v.label, s.name, s.status, s.attempts_json, s.text FROM steps s"
                             " JOIN visits v ON v.id = s.visit_id WHERE s.name != 'temperature mainboard'"
                             ' ORDER BY v.seq, s.seq')
    assert [(label, name, status) for label, name, status, *_ in answers] == [
        ('box#1', 'loopback plug', 'passed'), ('box#1', 'leds', 'passed'),
        ('box:overheat', 'loopback plug', 'passed'), ('box:overheat', 'leds', 'skipped'),
        ('box#2', 'loopback plug', 'passed'), ('box#2', 'leds', 'passed'),
        ('box#3', 'loopback plug', 'passed'), ('box#3', 'leds', 'passed')]
    for *_, attempts, text in answers[:3] + answers[4:]:
        said = json.loads(attempts)[-1]
        assert said['by'] == '127.0.0.1' and said['at'].startswith('20') and said['answer'] in text
    assert answers[3][4] == '' and 'continue_on_fail is off' in rows(
        tmp_path, "SELECT why FROM steps WHERE status = 'skipped'")[0][0]


@pytest.mark.needs_cli
def test_a_station_runs_each_slot_when_started_until_a_signal(tmp_path, browser, shot):  # noqa: F811
    station = start(tmp_path, 'station', ['box', 'box:overheat'], '--serve', '0')
    browser.get(station.stdout.readline().split()[-1])
    for slot in (1, 2):
        click(browser, slot, 'Start')
        click(browser, slot, 'OK')
    click(browser, 1, 'Yes')
    wait(browser, lambda b: verdict(b, 1) == 'PASS' and verdict(b, 2) == 'FAIL')
    assert REASON in card(browser, 2).text
    shot('done')
    # The result stays until the next start: here a scanned label.
    wait(browser, lambda b: card(b, 1).find_element(By.CSS_SELECTOR, '.start input')).send_keys(
        'SN0007\n')
    wait(browser, lambda b: 'Insert the RS-232 loopback plug' in card(b, 1).text)
    assert 'SN0007' in card(browser, 1).text and verdict(browser, 2) == 'FAIL'
    shot('again')
    station.send_signal(signal.SIGTERM)
    assert station.wait(60) == 143
    visits = rows(tmp_path, 'SELECT seq, serial, verdict, first_failure FROM visits'
                            ' ORDER BY serial IS NOT NULL, seq')
    assert visits == [(0, None, 'pass', None), (1, None, 'fail', REASON),
                      (0, 'SN0007', 'interrupted', None)]
    assert rows(tmp_path, 'SELECT count(DISTINCT run_id), max(r.status) FROM visits'
                          ' JOIN runs r ON r.id = run_id') == [(1, 'interrupted')]
    assert sorted(rows(tmp_path, 'SELECT kind, detail FROM events')) == \
        [('interrupt', 'SIGTERM')] + [('start', '127.0.0.1')] * 3


@pytest.mark.needs_cli
def test_questions_at_the_terminal_one_at_a_time(tmp_path):
    """Without a page each question is a line at the terminal; two boards
    asking at once are asked in turn, and a wrong answer is asked again."""
    scan = '[[steps]]\nname = "label"\nscan = "Scan the label"\nserial = true\n'
    run = start(tmp_path, 'run', ['box', 'box:overheat'], '--no-db', stdin=subprocess.PIPE,
                plan=PLAN.replace('[[steps]]', scan + '[[steps]]', 1))
    said, serials, answers = '', ['SN0002', 'SN0001', 'SN1'], {'plug': '', 'green': 'yes'}
    while (ch := run.stdout.read(1)):
        said += ch
        asked = said.rsplit('\n', 1)[-1]
        if asked.endswith(': ') and ('[' in asked or 'label' in asked):
            typed = serials.pop() if 'label' in asked else answers['green' if 'green' in asked
                                                                   else 'plug']
            run.stdin.write(typed + '\n')
            run.stdin.flush()
    assert run.wait(10) == 1
    lines = said.splitlines()
    # Each question with its answer on its own line, the FAIL held until then.
    assert [line.split(': ', 1)[1] for line in lines if 'Scan the label' in line] == \
        ["Scan the label: SN1", 'Scan the label: SN0001', 'Scan the label: SN0002']
    assert "  'SN1' does not match SN\\d{4}" in lines
    assert sum('[Enter]: ' in line for line in lines) == 2
    report = json.loads((tmp_path / 'r.json').read_text())
    boards = {b['target']: b for b in report['boards']}
    assert {boards['box']['serial'], boards['box:overheat']['serial']} == {'SN0001', 'SN0002'}
    leds = boards['box']['steps'][-1]['attempts'][-1]
    assert (leds['answer'], leds['by'], leds['judged']) == ('Yes', 'ana (terminal)', 'pass')
    assert boards['box:overheat']['steps'][-1]['why'] == \
        'not run: temperature mainboard failed and continue_on_fail is off'
