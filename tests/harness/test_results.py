"""harness/results against a small record written through the Record API, on
SQLite and PostgreSQL: each answer checked against figures worked out by hand."""
import json
import subprocess
import sys
import xml.etree.ElementTree as ET

import pytest

from conftest import REPO
from harness import results
from harness.db import open_record

# serial, day, time, station, verdict, temperature, failed steps and why, usb speed
# and its low limit (one plan's own)
VISITS = [
    ('SN1', 24, '10:00', 'line1', 'fail', 91, {'temperature': 'mainboard 91 above 85'}, None),
    ('SN2', 24, '11:00', 'line1', 'pass', 50, {}, (30, 20)),
    (None, 24, '12:00', 'line1', 'fail', 88, {'temperature': 'mainboard 88 above 85'}, None),
    ('SN6', 24, '13:00', 'line1', 'fail', 52, {'usb rw': 'no stick in usb 2'}, None),
    ('SN1', 25, '09:00', 'line1', 'pass', 60, {}, (34, 20)),
    ('SN6', 25, '09:30', 'line1', 'fail', 58, {'usb rw': 'no stick in usb 2'}, None),
    ('SN5', 25, '10:00', 'line2', 'fail', 91, {'temperature': 'mainboard 91 above 85'}, (32, 25)),
    ('SN3', 25, '11:00', 'line1', None, 55, {}, None),           # its runner was killed
    ('SN4', 25, '12:00', 'line1', 'interrupted', 54, {}, None),
]


def write_visit(rec, run, serial, day, time, station, verdict, temp, failed, speed):
    at = f'2026-11-{day}T{time}:00+00:00'
    visit = rec.start_visit(run, dict(seq=0, label='box#1', target='box', serial=serial,
                                      station=station, operator='ana', started=at))
    for seq, name, meas in ((0, 'temperature', dict(name='mainboard', value=temp, low=0,
                                                    high=85, unit='degC')),
                            (1, 'usb rw', speed and dict(name='speed', value=speed[0], low=speed[1]))):
        rec.add_step(visit, dict(seq=seq, name=name, phase='step', status='failed'
                                 if name in failed else 'passed', why=failed.get(name),
                                 started=at, measurements=[meas] if meas else []))
    if verdict:
        first = next((f'{n}: {w}' for n, w in failed.items()), None)
        rec.end_visit(visit, verdict, at, first_failure=first)


@pytest.fixture
def url(db_url):
    rec = open_record(db_url)
    run = rec.start_run(dict(station='line1', plan_name='board', plan_version='1.2',
                             started='2026-11-24T10:00:00+00:00'))
    for v in VISITS:
        write_visit(rec, run, *v)
    rec.close()
    return db_url


def ask(url, *argv, capsys):
    try:
        status = results.main(['--db', url, *argv])
    except SystemExit as e:
        status = e.code
    out, err = capsys.readouterr()
    return status, out, err


def ask_json(url, *argv, capsys):
    status, out, err = ask(url, '--json', *argv, capsys=capsys)
    assert (status, err) == (0, '')
    return json.loads(out)


def test_board_visits_oldest_first_open_and_interrupted(url, capsys):
    visits = ask_json(url, 'board', 'SN1', capsys=capsys)['visits']
    assert [(v['started'][:10], v['verdict'], v['first_failure'], v['plan']) for v in visits] \
        == [('2026-11-24', 'fail', 'temperature: mainboard 91 above 85', 'board'),
            ('2026-11-25', 'pass', None, 'board')]
    for serial, verdict in (('SN3', 'open'), ('SN4', 'interrupted')):
        status, out, _ = ask(url, 'board', serial, capsys=capsys)
        assert status == 0 and out.splitlines()[-1].split()[6] == verdict
    status, out, _ = ask(url, 'board', 'SN1', capsys=capsys)
    lines = out.splitlines()
    assert lines[0] == 'board SN1: 2 visits'
    assert lines[1].split()[:6] == ['started', 'station', 'operator', 'plan', 'target', 'verdict']
    assert lines[3].split()[1:6] == ['line1', 'ana', 'board', '1.2', 'box']


def counts(row):
    return tuple(row[k] for k in results.COUNTS + ('first_pass_yield', 'final_yield'))


def test_yield_per_day_total_and_filters(url, capsys):
    # Day 24: SN1 (fail, then pass on the 25th), SN2 pass, the board without a
    # serial fails, SN6 fails twice; day 25: SN5 fails, SN3 open, SN4 interrupted.
    answer = ask_json(url, 'yield', capsys=capsys)
    assert [(r['day'], counts(r)) for r in answer['days']] == [
        ('2026-11-24', (4, 1, 2, 2, 0, 0, 0.25, 0.5)),
        ('2026-11-25', (1, 0, 0, 0, 1, 1, 0.0, 0.0))]
    assert counts(answer['total']) == (5, 1, 2, 2, 1, 1, 0.2, 0.4)
    for argv, total in ((('--since', '2026-11-25'), (3, 1, 1, 0, 1, 1, 0.3333, 0.3333)),
                        (('--station', 'line2'), (1, 0, 0, 0, 0, 0, 0.0, 0.0)),
                        (('--plan', 'other'), (0, 0, 0, 0, 0, 0, None, None))):
        assert counts(ask_json(url, 'yield', *argv, capsys=capsys)['total']) == total, argv
    status, out, _ = ask(url, 'yield', capsys=capsys)
    assert out.splitlines()[-1].split() == ['total', '5', '1', '20.0%', '2', '40.0%', '2',
                                            '1', '1']


def test_pareto_ranks_by_boards_with_commonest_reason(url, capsys):
    # usb rw failed more often (twice) than any board but on one board only.
    steps = ask_json(url, 'pareto', capsys=capsys)['steps']
    assert [tuple(s.values()) for s in steps] == [
        ('temperature', 3, 3, 'mainboard 91 above 85', 2),
        ('usb rw', 1, 2, 'no stick in usb 2', 2)]
    assert ask_json(url, 'pareto', '--station', 'line2', capsys=capsys)['steps'][0][
        'boards'] == 1
    status, out, _ = ask(url, 'pareto', capsys=capsys)
    assert out.splitlines()[2].split()[:3] == ['temperature', '3', '3']
    assert out.splitlines()[3] == 'usb rw            1         2  no stick in usb 2          2'


def test_measure_statistics_cpk_and_histogram(url, capsys):
    # Nine temperatures, sum 599: mean 66.556; sum of squares 42415, so
    # s = sqrt((42415 - 599**2 / 9) / 8) = 17.847; Cpk = (85 - 66.556) / (3 s).
    m = ask_json(url, 'measure', 'temperature.mainboard', capsys=capsys)
    assert (m['n'], m['min'], m['max'], m['low'], m['high'], m['unit']) == (9, 50, 91, 0, 85,
                                                                            'degC')
    assert (m['mean'], m['stdev'], m['cpk']) == pytest.approx((66.5556, 17.8473, 0.3445),
                                                              abs=1e-4)
    # Whole numbers from 50 to 91: bins of 3 from 50; 91 twice in the last.
    hist = m['histogram']
    assert (len(hist), hist[0]['from'], hist[-1]['to'], hist[-1]['count']) == (14, 50, 92, 2)
    assert [b['count'] for b in hist[:4]] == [2, 2, 1, 1] and sum(b['count'] for b in hist) == 9
    status, out, _ = ask(url, 'measure', 'temperature.mainboard', capsys=capsys)
    lines = out.splitlines()
    assert 'n 9' in lines[0] and 'Cpk 0.34' in lines[0] and lines[1] == '  ---- low 0 ----'
    assert lines[2 + 11].endswith('<- high 85') and lines[-1].rstrip().endswith('2')
    # One limit: the side it has. 30, 34, 32 MB/s against the commonest low,
    # 20: (32 - 20) / (3 * 2).
    speed = ask_json(url, 'measure', 'usb rw.speed', capsys=capsys)
    assert (speed['n'], speed['mean'], speed['stdev'], speed['low'], speed['limit_sets'],
            speed['cpk']) == (3, 32, 2, 20, 2, 2)
    assert 'limits changed' in ask(url, 'measure', 'usb rw.speed', capsys=capsys)[1]


@pytest.mark.parametrize('mean, sd, low, high, cpk', [
    (50, 5, 0, 85, 35 / 15), (50, 5, 20, 95, 2), (50, 5, None, 65, 1), (50, 5, 35, None, 1),
    (50, 5, None, None, None), (50, 0, 0, 85, None), (50, None, 0, 85, None)])
def test_cpk_sides(mean, sd, low, high, cpk):
    assert results.cpk(mean, sd, low, high) == pytest.approx(cpk)


def test_refusals(url, capsys, tmp_path):
    for argv, status, message in (
            (('board', 'SN9'), 1, 'no visit of board SN9'),
            (('measure', 'temperature.mainbord'), 2,
             'temperature.mainbord was never measured (did you mean temperature.mainboard?)'),
            (('measure', 'temperature'), 2, "measure takes STEP.NAME, not 'temperature'"),
            (('--db', f'sqlite:///{tmp_path}/none.sqlite', 'yield'), 2,
             f'no database at {tmp_path}/none.sqlite'),
            (('--db', 'mysql://x/y', 'pareto'), 2, "unknown database URL 'mysql://x/y'"),
            (('yield', '--since', 'monday'), 2, "not a date (YYYY-MM-DD): 'monday'"),
            (('import', f'{tmp_path}/none.jsonl'), 2, f'no spool file {tmp_path}/none.jsonl'),
            (('import', __file__), 2, f'{__file__}:1: not a line of a results spool')):
        got, out, err = ask(url, *argv, capsys=capsys)
        assert (got, out) == (status, '') and message in err and err.count('\n') == 1, argv
    assert not (tmp_path / 'none.sqlite').exists()


def test_html_page_self_contained(url, capsys, tmp_path):
    (tmp_path / 'pages').mkdir()
    page = tmp_path / 'pages' / 'shift.html'
    status, out, _ = ask(url, 'html', str(page), capsys=capsys)
    assert (status, out) == (0, f'wrote {page}\n') and list(page.parent.iterdir()) == [page]
    (tmp_path / 'plain').touch()
    assert page.stat().st_mode == (tmp_path / 'plain').stat().st_mode
    text = page.read_text()
    root = ET.fromstring(text[text.index('<html'):])
    # Yield, Pareto and a histogram per numeric measurement.
    assert len(root.findall('.//svg')) == 4
    drawn = {t.text for svg in root.iter('svg') for t in svg.iter('text')}
    assert {'usb rw', 'temperature', 'low 0', 'high 85', 'low 20'} <= drawn
    assert 'http' not in text and 'src=' not in text
    cells = [td.text for td in root.iter('td')]
    assert 'mainboard 91 above 85' in cells and '40.0%' in cells


def test_import_spool_and_entry_points(db_url, pg_server, tmp_path, capsys):
    # A station's record whose server went away before anything reached it.
    rec = open_record(pg_server.create_database(), spool_dir=tmp_path)
    pg_server.stop()
    try:
        run = rec.start_run(dict(station='line9', plan_name='board'))
        write_visit(rec, run, 'SN7', 26, '08:00', 'line9', 'pass', 50, {}, None)
    finally:
        pg_server.start()
        rec.close()
    spool = str(rec.spool)
    for _ in range(2):      # twice: the second changes nothing
        assert ask(db_url, 'import', spool, capsys=capsys)[:2] == (
            0, f'imported 5 records from {spool}\n')
    cmd = [[str(REPO / 'harness' / 'results')], [sys.executable, '-m', 'harness', 'results']]
    for argv in cmd:
        done = subprocess.run(argv + ['--db', db_url, '--json', 'board', 'SN7'], cwd=REPO,
                              capture_output=True, text=True)
        assert [v['station'] for v in json.loads(done.stdout)['visits']] == ['line9']
