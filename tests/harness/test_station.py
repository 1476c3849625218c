"""The runner's page in headless Chromium (four boxes, one overheated,
answered by clicking), a station started on its page until a signal, and
the same questions at the terminal. Screenshots: build/station-*.png."""
import json
import os
import signal
import sqlite3
import subprocess
import sys
import xml.etree.ElementTree as ET

import pytest

from boardbox import build_dir
from harness.transports import REPO
from test_page import By, card, wait, browser  # noqa: F401  the page's Chromium

REASON = 'temperature mainboard: mainboard 105 degC above high 85'
PLAN = REPO / 'harness' / 'plans' / 'operator.toml'
SN = 'PLM7140A000000000'


@pytest.fixture
def start(tmp_path):
    """python3 -m harness run|station on PLAN, ended with the test whatever happened."""
    procs = []

    def begin(command, boards, *args, **popen):
        argv = [sys.executable, '-m', 'harness', command, PLAN, '--operator', 'ana', '--db',
                'sqlite:///r.sqlite', '--junit', 'r.xml', '--workdir', 'work', *args]
        procs.append(subprocess.Popen(argv + [a for b in boards for a in ('--board', b)],
                                      cwd=tmp_path, stdout=subprocess.PIPE, text=True,
                                      env=dict(os.environ, PYTHONPATH=REPO), **popen))
        return procs[-1]
    yield begin
    for proc in procs:
        proc.terminate()
        proc.wait(60)


def page(browser, proc):  # noqa: F811
    browser.get(proc.stdout.readline().split()[-1])     # station page: URL
    return lambda name: browser.save_screenshot(str(build_dir() / f'station-{name}.png'))


def scan(browser, slot, serial, where='.ask'):  # noqa: F811
    wait(browser, lambda b: card(b, slot).find_element(By.CSS_SELECTOR, where + ' input')).send_keys(
        serial + '\n')


def click(browser, slot, text):  # noqa: F811
    wait(browser, lambda b: [x for x in card(b, slot).find_elements(By.TAG_NAME, 'button')
                             if x.text == text])[0].click()


def shows(browser, slot, *texts):  # noqa: F811
    wait(browser, lambda b: all(t in card(b, slot).text for t in texts))


def rows(tmp_path, sql):
    with sqlite3.connect(tmp_path / 'r.sqlite') as db:
        return db.execute(sql).fetchall()


@pytest.mark.needs_cli
def test_four_boxes_answered_on_the_page(tmp_path, browser, start):  # noqa: F811
    run = start('run', ['box', 'box:overheat', 'box', 'box'], '--serve', '127.0.0.1:0')
    shot = page(browser, run)
    browser.execute_script('window.sameLoad = true')
    for slot in (1, 2, 3, 4):
        shows(browser, slot, 'Step 1 of 4', "Scan the board's label")
    shot('run-asking')
    for slot in (1, 2, 3, 4):
        scan(browser, slot, f'{SN}{slot}')
        click(browser, slot, 'OK')
    shows(browser, 2, 'FAIL', REASON)
    for slot in (1, 3, 4):
        shows(browser, slot, f'{SN}{slot}', 'Step 4 of 4', 'Are all panel LEDs green?')
    for slot in (1, 3, 4):
        click(browser, slot, 'Yes')
        shows(browser, slot, 'PASS')
    shot('run-done')
    assert run.wait(60) == 1 and browser.execute_script('return window.sameLoad')
    # Not a line per step per board: a failure as it came, a line per board, the table.
    out = run.stdout.read().splitlines()
    assert out[0] == f'{SN}2  FAIL 3/4 {REASON}' and len(out) == 1 + 4 + 7, out
    steps = rows(tmp_path, 'SELECT why, attempts_json, text FROM steps WHERE seq != 2 ORDER BY why')
    assert len(steps) == 12 and steps[-1][0] == \
        'not run: temperature mainboard failed and continue_on_fail is off'
    for _, attempts, text in steps[:-1]:
        said = json.loads(attempts)[-1]
        assert said['by'] == '127.0.0.1' and said['at'][:2] == '20' and f'=> {said["answer"]}' in text


@pytest.mark.needs_cli
def test_a_station_runs_each_slot_when_started_until_a_signal(tmp_path, browser, start):  # noqa: F811
    station = start('station', ['box', 'box:overheat'], '--serve', '0')
    shot = page(browser, station)
    for slot in (1, 2):
        click(browser, slot, 'Start')
        scan(browser, slot, f'{SN}{slot}')
        click(browser, slot, 'OK')
    click(browser, 1, 'Yes')
    shows(browser, 1, 'PASS')
    shows(browser, 2, 'FAIL', REASON)
    shot('done')
    # The result stays until the next start: here a serial scanned into the slot,
    # which its label must show.
    scan(browser, 1, f'{SN}7', '.start')
    shows(browser, 1, f'{SN}7', "Scan the board's label")
    shows(browser, 2, 'FAIL', REASON)
    scan(browser, 1, f'{SN}8')
    shows(browser, 1, 'FAIL', f"label: label '{SN}8' is not the board's serial number '{SN}7'")
    click(browser, 2, 'Start')
    shows(browser, 2, "Scan the board's label")
    station.send_signal(signal.SIGTERM)
    assert station.wait(60) == 143
    assert rows(tmp_path, 'SELECT seq, serial, verdict FROM visits ORDER BY rowid') == [
        (0, f'{SN}1', 'pass'), (1, f'{SN}2', 'fail'), (0, f'{SN}7', 'fail'), (1, None, 'interrupted')]
    assert rows(tmp_path, 'SELECT status FROM runs') == [('interrupted',)]
    assert sorted(rows(tmp_path, 'SELECT kind, detail FROM events')) == \
        [('interrupt', 'SIGTERM')] + [('start', '127.0.0.1')] * 4


@pytest.mark.needs_cli
def test_questions_at_the_terminal_one_at_a_time(tmp_path, start):
    run = start('run', ['box', 'box:overheat'], stdin=subprocess.PIPE)
    said, serials = '', [f'{SN}2', f'{SN}1', 'SN1']
    while (ch := run.stdout.read(1)):
        said += ch
        asked = said.rsplit('\n', 1)[-1]
        if asked.endswith(': ') and ('[' in asked or 'label' in asked):
            print(serials.pop() if 'label' in asked else 'yes' * ('[Y' in asked), file=run.stdin,
                  flush=True)
    assert run.wait(10) == 1
    # Each question with its answer on a line of its own; a wrong one asked again.
    lines = said.splitlines()
    assert [line.split(': ', 1)[1] for line in lines if 'label:' in line] == \
        [f"Scan the board's label: {n}" for n in ('SN1', f'{SN}1', f'{SN}2')]
    assert "  'SN1' does not match PLM7140[A-D]\\d{10}" in lines and len(lines) == 15, lines
    assert rows(tmp_path, 'SELECT serial FROM visits ORDER BY serial') == [(f'{SN}1',), (f'{SN}2',)]
    props = {p.get('name'): p.get('value') for p in ET.parse(tmp_path / 'r.xml').iter('property')}
    assert (props['leds.answer'], props['leds.answer.by'], props['leds.answer.at'][:2]) == \
        ('Yes', 'ana (terminal)', '20')
