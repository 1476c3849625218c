"""The runner's page in headless Chromium (four boxes, one overheated,
answered by clicking), a station started on its page until a signal, and
the same questions at the terminal. Screenshots: build/station-*.png."""
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


def start(tmp_path, script, boards, *args, plan=PLAN, **popen):
    (tmp_path / 'plan.toml').write_text(plan)
    argv = [sys.executable, str(REPO / 'harness' / script), 'plan.toml', '--operator', 'ana',
            '--db', 'sqlite:///r.sqlite', '--json', 'r.json', '--workdir', 'work', *args]
    return subprocess.Popen(argv + [a for b in boards for a in ('--board', b)], cwd=tmp_path,
                            stdout=subprocess.PIPE, text=True, **popen)


def page(browser, proc):  # noqa: F811
    browser.get(proc.stdout.readline().split()[-1])     # station page: URL
    out = Path(os.environ.get('CLI_BUILD_DIR') or REPO / 'build')
    return lambda name: browser.save_screenshot(str(out / f'station-{name}.png'))


def click(browser, slot, text):  # noqa: F811
    wait(browser, lambda b: [x for x in card(b, slot).find_elements(By.TAG_NAME, 'button')
                             if x.text == text])[0].click()


def shows(browser, slot, *texts):  # noqa: F811
    wait(browser, lambda b: all(t in card(b, slot).text for t in texts))


def rows(tmp_path, sql):
    with sqlite3.connect(tmp_path / 'r.sqlite') as db:
        return db.execute(sql).fetchall()


@pytest.mark.needs_cli
def test_four_boxes_answered_on_the_page(tmp_path, browser):  # noqa: F811
    run = start(tmp_path, 'run', ['box', 'box:overheat', 'box', 'box'], '--serve', '127.0.0.1:0')
    shot = page(browser, run)
    browser.execute_script('window.sameLoad = true')
    for slot in (1, 2, 3, 4):
        shows(browser, slot, 'Step 1 of 3', 'Insert the RS-232 loopback plug')
    shot('run-asking')
    for slot in (1, 2, 3, 4):
        click(browser, slot, 'OK')
    shows(browser, 2, 'FAIL', REASON)
    for slot in (1, 3, 4):
        shows(browser, slot, 'Step 3 of 3', 'Are all panel LEDs green?')
    shot('run-judging')
    for slot in (1, 3, 4):
        click(browser, slot, 'Yes')
        shows(browser, slot, 'PASS')
    shot('run-done')
    assert run.wait(60) == 1 and browser.execute_script('return window.sameLoad')
    # Not a line per step per board: a failure as it came, a line per board, the table.
    out = run.stdout.read().splitlines()
    assert out[0] == f'box:overheat  FAIL 2/3 {REASON}' and len(out) == 1 + 4 + 7, out
    steps = rows(tmp_path, 'SELECT s.status, s.why, s.attempts_json, s.text FROM steps s JOIN visits'
                           " v ON v.id = s.visit_id WHERE s.seq != 1 ORDER BY v.seq, s.seq")
    assert [s[0] for s in steps] == ['passed'] * 3 + ['skipped'] + ['passed'] * 4
    assert steps[3][1] == 'not run: temperature mainboard failed and continue_on_fail is off'
    for _, _, attempts, text in steps[:3] + steps[4:]:
        said = json.loads(attempts)[-1]
        assert said['by'] == '127.0.0.1' and said['at'][:2] == '20' and f'=> {said["answer"]}' in text


@pytest.mark.needs_cli
def test_a_station_runs_each_slot_when_started_until_a_signal(tmp_path, browser):  # noqa: F811
    station = start(tmp_path, 'station', ['box', 'box:overheat'], '--serve', '0')
    shot = page(browser, station)
    for slot in (1, 2):
        click(browser, slot, 'Start')
        click(browser, slot, 'OK')
    click(browser, 1, 'Yes')
    shows(browser, 1, 'PASS')
    shows(browser, 2, 'FAIL', REASON)
    shot('done')
    # The result stays until the next start: here a scanned label.
    card(browser, 1).find_element(By.CSS_SELECTOR, '.start input').send_keys('SN0007\n')
    shows(browser, 1, 'SN0007', 'Insert the RS-232 loopback plug')
    shows(browser, 2, 'FAIL', REASON)
    shot('again')
    station.send_signal(signal.SIGTERM)
    assert station.wait(60) == 143
    assert rows(tmp_path, 'SELECT seq, serial, verdict, first_failure FROM visits'
                          ' ORDER BY serial IS NOT NULL, seq') == \
        [(0, None, 'pass', None), (1, None, 'fail', REASON), (0, 'SN0007', 'interrupted', None)]
    assert rows(tmp_path, 'SELECT count(DISTINCT run_id), max(r.status) FROM visits'
                          ' JOIN runs r ON r.id = run_id') == [(1, 'interrupted')]
    assert sorted(rows(tmp_path, 'SELECT kind, detail FROM events')) == \
        [('interrupt', 'SIGTERM')] + [('start', '127.0.0.1')] * 3


@pytest.mark.needs_cli
def test_questions_at_the_terminal_one_at_a_time(tmp_path):
    scan = '[[steps]]\nname = "label"\nscan = "Scan the label"\nserial = true\n'
    run = start(tmp_path, 'run', ['box', 'box:overheat'], '--no-db', stdin=subprocess.PIPE,
                plan=PLAN.replace('[[steps]]', scan + '[[steps]]', 1))
    said, serials = '', ['SN0002', 'SN0001', 'SN1']
    while (ch := run.stdout.read(1)):
        said += ch
        asked = said.rsplit('\n', 1)[-1]
        if asked.endswith(': ') and ('[' in asked or 'label' in asked):
            run.stdin.write(f'{serials.pop() if "label" in asked else "yes" * ("[Y" in asked)}\n')
            run.stdin.flush()
    assert run.wait(10) == 1
    # Each question with its answer on a line of its own; a wrong one asked again.
    lines = said.splitlines()
    assert [line.split(': ', 1)[1] for line in lines if 'Scan the label' in line] == \
        ['Scan the label: SN1', 'Scan the label: SN0001', 'Scan the label: SN0002']
    assert "  'SN1' does not match SN\\d{4}" in lines and len(lines) == 4 + 2 + 1 + 1 + 2 + 5
    boards = {b['target']: b for b in json.loads((tmp_path / 'r.json').read_text())['boards']}
    assert {boards['box']['serial'], boards['box:overheat']['serial']} == {'SN0001', 'SN0002'}
    leds = boards['box']['steps'][-1]['attempts'][-1]
    assert (leds['answer'], leds['by'], leds['judged']) == ('Yes', 'ana (terminal)', 'pass')
