"""The station page in headless Chromium, driven from board threads as the
runner drives it: cards moving live, questions answered by clicking, PASS
and FAIL with the reason, refusals that change nothing, the token off
loopback, Chinese words, and 64 slots on one screen. Screenshots go to the
build directory (page-*.png)."""
import json
import os
import shutil
import threading
import time
import urllib.error
import urllib.request
from pathlib import Path

import pytest

from harness.page import Station
from harness.transports import REPO

webdriver = pytest.importorskip('selenium.webdriver')
from selenium.webdriver.chrome.service import Service  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.support.ui import WebDriverWait  # noqa: E402

CHROMIUM, DRIVER = '/usr/bin/chromium', '/usr/bin/chromedriver'
# Without the background-networking flags Chromium dials out and this
# machine's closed network refuses it.
FLAGS = ['--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage',
         '--disable-quic', '--no-first-run', '--disable-background-networking',
         '--disable-component-update', '--disable-sync']


def temperature(value):
    return [{'name': 'mainboard', 'value': value, 'unit': 'degC', 'ok': value <= 85,
             'limits': {'low': 0, 'high': 85, 'unit': 'degC'}}]


REASON = 'temperature mainboard: mainboard 105 degC above high 85'


def open_browser(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for flag in FLAGS + [f'--user-data-dir={profile}']:
        options.add_argument(flag)
    driver = webdriver.Chrome(service=Service(DRIVER), options=options)
    # The station's screen, whatever the headless window's frame takes.
    driver.execute_cdp_cmd('Emulation.setDeviceMetricsOverride',
                           {'width': 1920, 'height': 1080, 'deviceScaleFactor': 1, 'mobile': False})
    return driver


@pytest.fixture(scope='module')
def browser(tmp_path_factory):
    if not (shutil.which(CHROMIUM) and shutil.which(DRIVER)):
        pytest.skip('Chromium and its driver are not installed')
    driver = open_browser(tmp_path_factory.mktemp('chromium'))
    yield driver
    driver.quit()


@pytest.fixture
def shot(browser):
    out = Path(os.environ.get('CLI_BUILD_DIR') or REPO / 'build')
    out.mkdir(parents=True, exist_ok=True)
    return lambda name: browser.save_screenshot(str(out / f'page-{name}.png'))


def slots(n):
    return [{'slot': i, 'label': f'box#{i}', 'target': 'box'} for i in range(1, n + 1)]


def post(station, path, body, token=None, kind='application/json'):
    data = body if isinstance(body, bytes) else json.dumps(body).encode()
    req = urllib.request.Request(f'http://127.0.0.1:{station.port}{path}', data,
                                 {'Content-Type': kind})
    if token:
        req.add_header('X-Station-Token', token)
    try:
        with urllib.request.urlopen(req, timeout=5) as r:
            return r.status, json.load(r)
    except urllib.error.HTTPError as e:
        return e.code, json.load(e)


def board(station, slot, steps, pause=0.0, fail=None, asks=()):
    """What the runner publishes for one board; FAIL at step FAIL."""
    answers = []
    station.publish({'type': 'board', 'slot': slot, 'state': 'running', 'serial': f'SN{slot:06}',
                     'identity': {'board': f'PLM7140-{slot}'}, 'plan': 'board 1.2', 'total': steps})
    for i in range(steps):
        step = {'type': 'step', 'slot': slot, 'index': i, 'total': steps, 'name': f'step {i}',
                'elapsed': i * 0.5}
        station.publish(dict(step, state='running'))
        if i < len(asks):
            answers.append(station.ask(slot, *asks[i], timeout=30))
        time.sleep(pause)
        bad = i == fail
        station.publish(dict(step, name='temperature mainboard' if bad else step['name'],
                             measurements=temperature(105 if bad else 40 + i),
                             state='failed' if bad else 'passed'))
    station.publish({'type': 'verdict', 'slot': slot, 'verdict': 'fail' if fail is not None
                     else 'pass', 'first_failure': REASON if fail is not None else None,
                     'serial': f'SN{slot:06}'})
    return answers


def run_boards(station, jobs):
    results = {}
    threads = [threading.Thread(target=lambda s=s, kw=kw: results.update({s: board(station, s, **kw)}))
               for s, kw in jobs.items()]
    for t in threads:
        t.start()
    return threads, results


def until(check, timeout=10):
    deadline = time.monotonic() + timeout
    while not check():
        assert time.monotonic() < deadline, 'timed out'
        time.sleep(0.01)


def card(browser, slot):
    return browser.find_element(By.ID, f'slot-{slot}')


def wait(browser, check, timeout=20):
    return WebDriverWait(browser, timeout, 0.05).until(check)


def test_four_boards_live_with_questions_and_a_failure(browser, shot):
    with Station(slots(4), plan_name='board') as station:
        browser.get(station.url)
        browser.execute_script('window.sameLoad = true')
        wait(browser, lambda b: len(b.find_elements(By.CSS_SELECTOR, '.card')) == 4)
        assert not browser.find_elements(By.CSS_SELECTOR, '.card.startable')    # a run's
        threads, answers = run_boards(station, {
            1: dict(steps=6, pause=0.3), 2: dict(steps=6, pause=0.3, asks=[
                ('prompt', 'Insert the RS-232 loopback plug'),
                ('judge', 'Are all panel LEDs green?', ['Yes', 'No'])]),
            3: dict(steps=6, pause=0.3, fail=3), 4: dict(steps=6, pause=0.3)})
        # The cards move while the boards run: a step shown, then a later one.
        wait(browser, lambda b: 'Step 1 of 6' in card(b, 1).text)
        assert 'Board PLM7140-1 · board 1.2' in card(browser, 1).text
        wait(browser, lambda b: 'Step 3 of 6' in card(b, 1).text)
        ok = wait(browser, lambda b: card(b, 2).find_element(By.CSS_SELECTOR, '.ask button'))
        assert 'Insert the RS-232 loopback plug' in card(browser, 2).text and ok.text == 'OK'
        shot('four-asking')
        # No event comes while the plan waits: the card's clock runs on its own.
        ticked = card(browser, 2).find_element(By.CLASS_NAME, 'time').text
        wait(browser, lambda b: card(b, 2).find_element(By.CLASS_NAME, 'time').text != ticked)
        ok.click()
        wait(browser, lambda b: 'Are all panel LEDs green?' in card(b, 2).text)
        yes = card(browser, 2).find_elements(By.CSS_SELECTOR, '.ask button')
        assert [b.text for b in yes] == ['Yes', 'No']
        yes[0].click()
        for t in threads:
            t.join(30)
        wait(browser, lambda b: all(card(b, s).find_element(By.CLASS_NAME, 'verdict').text
                                    for s in (1, 2, 3, 4)))
        shot('four-done')
        assert [a['answer'] for a in answers[2]] == ['OK', 'Yes']
        assert all(a['by'] == '127.0.0.1' and a['at'].startswith('20') for a in answers[2])
        for s in (1, 2, 4):
            assert 'PASS' in card(browser, s).text and 'pass' in card(browser, s).get_attribute('class')
        faulty = card(browser, 3)
        assert 'FAIL' in faulty.text and REASON in faulty.text and 'fail' in faulty.get_attribute('class')
        rows = browser.find_elements(By.CSS_SELECTOR, '#history tbody tr')
        assert len(rows) == 4 and sum('FAIL' in r.text for r in rows) == 1
        assert 'Yield 3 of 4 passed (75.0%)' in browser.find_element(By.ID, 'yield').text
        assert browser.execute_script('return window.sameLoad') is True


def test_refusals_change_nothing():
    with pytest.raises(ValueError, match=r"no words for language 'xx' \(harness/lang has en, zh\)"):
        Station(slots(1), plan_name='board', lang='xx')
    # Only a station on loopback goes without a token.
    for host, needs in [('127.0.0.1', False), ('localhost', False), ('::1', False),
                        ('0.0.0.0', True), ('10.0.0.5', True), ('testpc4', True)]:
        assert bool(Station(slots(1), plan_name='board', host=host).token) == needs, host
    asked = {}
    with Station(slots(3), plan_name='board') as station:
        station.publish({'type': 'board', 'slot': 1, 'serial': 'SN1', 'total': 3})
        threading.Thread(target=lambda: asked.update(w=station.wait_start(3))).start()
        threading.Thread(target=lambda: asked.update(a=station.ask(
            1, 'judge', 'LEDs green?', ['Yes', 'No'], timeout=20))).start()
        until(lambda: 1 in station.questions and 3 in station.waiting)
        qid = station.questions[1]['id']
        before = json.dumps(station.cards)
        for path, body, status, says in [
                ('/slot/9/answer', {'id': qid, 'answer': 'Yes'}, 404, 'no slot 9'),
                ('/slot/2/answer', {'id': qid, 'answer': 'Yes'}, 409, 'no open question'),
                ('/slot/1/answer', {'id': 'other', 'answer': 'Yes'}, 409, 'no open question'),
                ('/slot/1/answer', {'id': qid, 'answer': 'Maybe'}, 400, 'not one of Yes, No'),
                ('/slot/1/answer', {'id': qid}, 400, 'must be text'),
                ('/slot/1/answer', {'id': [qid], 'answer': 'Yes'}, 400, "question's id"),
                ('/slot/1/answer', b'{"id": ', 400, 'not JSON'),
                ('/slot/1/start', {}, 409, 'slot 1 is running'),
                ('/slot/2/start', {}, 409, 'not waiting for a start'),
                ('/slot/3/start', {'serial': 5}, 400, 'serial must be text'),
                ('/nowhere', {}, 404, 'nothing to do')]:
            got, answer = post(station, path, body)
            assert got == status and says in answer['error'], path
        assert post(station, '/slot/1/answer', {}, kind='text/plain')[0] == 415
        assert json.dumps(station.cards) == before and 'a' not in asked
        assert post(station, '/slot/1/answer', {'id': qid, 'answer': 'No', 'by': 'Li'})[0] == 200
        status, body = post(station, '/slot/1/answer', {'id': qid, 'answer': 'Yes'})
        assert status == 409 and 'already answered' in body['error']
        until(lambda: 'a' in asked)
        assert asked['a']['answer'] == 'No' and asked['a']['by'] == 'Li (127.0.0.1)'
        # A scan takes only a label that matches; a question nobody answers times out.
        threading.Thread(target=lambda: asked.update(s=station.ask(
            2, 'scan', 'Scan the label', pattern=r'SN\d{4}', timeout=20))).start()
        until(lambda: 2 in station.questions)
        scan = station.questions[2]['id']
        assert post(station, '/slot/2/answer', {'id': scan, 'answer': 'SN12'})[0] == 400
        assert post(station, '/slot/2/answer', {'id': scan, 'answer': 'SN1234'})[0] == 200
        assert station.ask(1, 'prompt', 'nobody here', timeout=0.1) is None
        assert station.cards[1]['question'] is None and asked['s']['answer'] == 'SN1234'
    until(lambda: 'w' in asked)     # closing lets go of a slot waiting for its start
    assert asked['w'] is None


def test_chinese_read_only_without_token_then_started_with_it(browser, shot):
    with Station(slots(2), plan_name='board', lang='zh', host='0.0.0.0') as station:
        assert station.token
        local = f'http://127.0.0.1:{station.port}/'
        started = {}
        threading.Thread(target=lambda: started.update(s=station.wait_start(1))).start()
        board(station, 2, 3, fail=1)
        browser.get(local)
        wait(browser, lambda b: '失败' in card(b, 2).text and REASON in card(b, 2).text)
        wait(browser, lambda b: '只读' in b.find_element(By.ID, 'notice').text)
        assert not [b for b in browser.find_elements(By.TAG_NAME, 'button') if b.is_displayed()]
        status, body = post(station, '/slot/1/start', {'serial': 'SN9'})
        assert status == 403 and 'token' in body['error'] and 's' not in started
        assert post(station, '/slot/1/start', {}, token='wrong')[0] == 403
        shot('zh-read-only')
        browser.get(local + '?token=' + station.token)
        scan = wait(browser, lambda b: card(b, 1).find_element(By.CSS_SELECTOR, '.start input'))
        assert card(browser, 1).find_element(By.CSS_SELECTOR, '.start button').text == '开始'
        scan.send_keys('SN000777\n')
        wait(browser, lambda b: 'SN000777' in card(b, 1).text)
        shot('zh-started')
        until(lambda: 's' in started)
        assert started['s']['serial'] == 'SN000777'


def test_sixty_four_slots_fit_one_screen_and_keep_up(browser, shot):
    with Station(slots(64), plan_name='board') as station:
        browser.get(station.url)
        wait(browser, lambda b: len(b.find_elements(By.CSS_SELECTOR, '.card')) == 64)
        threads, _ = run_boards(station, {s: dict(steps=20, pause=0.1, fail=5 if s % 16 == 0
                                                  else None) for s in range(1, 65)})
        wait(browser, lambda b: 'degC' in card(b, 64).text)
        shot('64-running')
        for t in threads:
            t.join(60)
        wait(browser, lambda b: browser.execute_script(
            "return document.querySelectorAll('.card.pass, .card.fail').length") == 64)
        shot('64')
        late = browser.execute_script(
            'return stationLatency.map(([sent, shown]) => shown - sent).sort((a, b) => a - b)')
        assert len(late) == 64 * 42 and late[int(len(late) * 0.95)] < 1000
        bottom = browser.execute_script(
            "return Math.max(...[...document.querySelectorAll('.card')]"
            ".map(c => c.getBoundingClientRect().bottom))")
        assert bottom <= 1080 and len(browser.find_elements(By.CSS_SELECTOR, '.card.fail')) == 4
        assert len(browser.find_elements(By.CSS_SELECTOR, '#history tbody tr')) == 20
        # Nothing runs: the page's clock stops and it waits for the next push.
        wait(browser, lambda b: b.execute_script('return ticker') is None, 2)
