"""The runner's record: each board under its identity in the database and
the reports, what stays after an interrupt, bad record inputs refused before
any board starts, and stations sharing one PostgreSQL."""
import hashlib
import io
import json
import signal
import sqlite3
import subprocess
import sys
import time
import xml.etree.ElementTree as ET

import pytest

from harness import runner
from harness.db import open_record
from harness.transports import REPO

PLAN = REPO / 'harness' / 'plans' / 'board.toml'
SHORT = '''name = "short"
serial_pattern = 'SN\\d{4}'
[[setup]]
name = "server"
command = "set serverip 192.168.1.1"
[[steps]]
name = "temperature"
command = "test mainboard temperature 0 85"
  [[steps.measure]]
  pattern = '(?m)^\\d+\\s+-?\\d+\\s+(?P<main>-?\\d+)\\s'
  main = { low = 0, high = 85 }
[[steps]]
name = "leds"
command = "test led on"
'''


def harness(*args, cwd, wait=True):
    argv = [sys.executable, str(REPO / 'harness' / 'run'), *map(str, args)]
    if not wait:
        return subprocess.Popen(argv, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return subprocess.run(argv, cwd=cwd, capture_output=True, text=True, timeout=300)


def rows(url, sql):
    record = open_record(url)
    try:
        return record.query(sql)
    finally:
        record.close()


def well_formed(path):
    return subprocess.run(['xmllint', '--noout', str(path)]).returncode == 0


@pytest.mark.needs_cli
def test_each_board_recorded_under_its_identity(tmp_path, db_url):
    ran = harness(PLAN, '--board', 'box@SN0001', '--board', 'box:overheat@SN0002',
                  '--station', 'line1', '--operator', 'ana', '--db', db_url,
                  '--junit', 'r.xml', '--json', 'r.json', cwd=tmp_path)
    assert ran.returncode == 1, ran.stderr
    sha = hashlib.sha256(PLAN.read_bytes()).hexdigest()
    assert well_formed(tmp_path / 'r.xml')
    suites = ET.parse(tmp_path / 'r.xml').findall('testsuite')
    assert [(s.get('hostname'), s.find('testcase').get('classname')) for s in suites] == \
        [('line1', 'board.SN0001'), ('line1', 'board.SN0002')]

    record = json.loads((tmp_path / 'r.json').read_text())
    assert [record['run'][k] for k in ('station', 'operator', 'plan_sha256', 'plan_path')] == \
        ['line1', 'ana', sha, str(PLAN)]
    boards = [(b['serial'], b['identity']['board'], b['verdict']) for b in record['boards']]
    # On a loaded PC's fast clock a serial loopback may lose a packet: only
    # the overheat's failure is certain.
    assert boards[1] == ('SN0002', '1001', 'fail') and boards[0][:2] == ('SN0001', '1001')

    visits = rows(db_url, 'SELECT v.serial, v.identity, v.station, v.operator, r.plan_sha256,'
                          ' v.verdict FROM visits v JOIN runs r ON r.id = v.run_id ORDER BY v.seq')
    assert [(s, json.loads(i)['board'], *rest) for s, i, *rest in visits] == \
        [(serial, board, 'line1', 'ana', sha, verdict) for serial, board, verdict in boards]
    steps = rows(db_url, 'SELECT v.serial, s.name, s.status, s.attempts_json, s.raw FROM steps s'
                         ' JOIN visits v ON v.id = s.visit_id'
                         " WHERE s.name IN ('temperature mainboard', 'pcie lanes x2')")
    assert sorted(row[:3] for row in steps) == [
        ('SN0001', 'pcie lanes x2', 'passed'), ('SN0001', 'temperature mainboard', 'passed'),
        ('SN0002', 'pcie lanes x2', 'passed'), ('SN0002', 'temperature mainboard', 'failed')]
    # What was typed at the question and the console's own bytes are kept.
    assert [json.loads(a)[0]['confirmation'] for _, n, _, a, _ in steps if n == 'pcie lanes x2'] \
        == ['Y', 'Y']
    assert all(b'test result:' in bytes(raw) for *_, raw in steps)
    assert rows(db_url, 'SELECT count(*) FROM steps') == [(118,)]


def steps_done(path):
    try:
        with sqlite3.connect(f'file:{path}?mode=ro', uri=True) as db:
            return db.execute('SELECT count(*) FROM steps').fetchone()[0]
    except sqlite3.Error:
        return 0


def left_behind(where):
    """Processes and mounts that name the run's directory, once they had a
    few seconds to go."""
    deadline = time.monotonic() + 10
    while True:
        ps = subprocess.run(['ps', '-eo', 'args'], capture_output=True, text=True).stdout
        mounts = subprocess.run(['findmnt', '-rn', '-o', 'TARGET'], capture_output=True,
                                text=True).stdout
        found = [line for line in (ps + mounts).splitlines() if where in line]
        if not found or time.monotonic() > deadline:
            return found
        time.sleep(0.2)


@pytest.mark.needs_cli
@pytest.mark.parametrize('sig, status, verdict', [
    (signal.SIGINT, 130, 'interrupted'),
    (signal.SIGTERM, 143, 'interrupted'),
    (signal.SIGKILL, -signal.SIGKILL, None),  # no chance to say: the visits stay open
])
def test_an_interrupted_run_keeps_every_finished_step(tmp_path, sig, status, verdict):
    url = f'sqlite:///{tmp_path}/r.sqlite'
    boards = [a for _ in range(4) for a in ('--board', 'box')]
    proc = harness(PLAN, *boards, '--db', url, '--json', 'r.json', '--junit', 'r.xml',
                   '--workdir', tmp_path / 'work', cwd=tmp_path, wait=False)
    deadline = time.monotonic() + 60
    while steps_done(tmp_path / 'r.sqlite') < 40 and time.monotonic() < deadline:
        time.sleep(0.1)
    proc.send_signal(sig)
    assert proc.wait(timeout=60) == status, proc.stderr.read()
    assert left_behind(str(tmp_path)) == []

    done = rows(url, 'SELECT v.seq, s.name FROM steps s JOIN visits v ON v.id = s.visit_id')
    assert 40 <= len(done) < 4 * 59
    # The step the stop cut short is not a failure of the board.
    assert rows(url, "SELECT count(*) FROM steps WHERE verdict = 'timeout'") == [(0,)]
    assert rows(url, 'SELECT verdict FROM visits') == [(verdict,)] * 4
    assert rows(url, 'SELECT status FROM runs') == [(verdict,)]
    if sig == signal.SIGKILL:
        assert not (tmp_path / 'r.json').exists()
        return
    name = signal.Signals(sig).name
    assert rows(url, 'SELECT kind, detail FROM events') == [('interrupt', name)] * 4
    record = json.loads((tmp_path / 'r.json').read_text())
    assert record['run']['status'] == 'interrupted'
    assert [b['label'] for b in record['boards']] == ['box#1', 'box#2', 'box#3', 'box#4']
    assert {(b['visit'] is not None, b['verdict']) for b in record['boards']} == {(True, 'interrupted')}
    ran = {(i, s['name']) for i, b in enumerate(record['boards'])
           for s in b['steps'] if s['status'] != 'skipped'}
    assert ran == set(done)
    assert well_formed(tmp_path / 'r.xml')


@pytest.mark.parametrize('case, message', [
    ('missing dir', 'no directory'),
    ('read-only dir', 'cannot write in /sys'),
    ('newer schema', 'newer than this harness'),
    ('no server', 'cannot open the database'),
    ('serial', "serial number 'SN12' does not match"),
    ('scanned serial', "board 2 (box): serial number 'PLM1' does not match"),
])
def test_bad_record_inputs_are_refused_before_any_board(tmp_path, capsys, monkeypatch, case,
                                                        message):
    plan = tmp_path / 'plan.toml'
    plan.write_text(SHORT)
    newer = tmp_path / 'newer.sqlite'
    with sqlite3.connect(newer) as db:
        db.execute('CREATE TABLE schema_version (version INTEGER)')
        db.execute('INSERT INTO schema_version VALUES (99)')
    db, boards = {
        'missing dir': (f'sqlite:///{tmp_path}/no/r.sqlite', 'box@SN0001'),
        'read-only dir': ('sqlite:////sys/r.sqlite', 'box@SN0001'),
        'newer schema': (f'sqlite:///{newer}', 'box@SN0001'),
        'no server': (f'postgresql://postgres@/x?host={tmp_path}', 'box@SN0001'),
        'serial': (f'sqlite:///{tmp_path}/r.sqlite', 'box@SN0001 --board box@SN12'),
        'scanned serial': (f'sqlite:///{tmp_path}/r.sqlite', 'box --board box --scan'),
    }[case]
    monkeypatch.setattr(sys, 'stdin', io.StringIO(' SN0001\r\nPLM1\n'))
    argv = [str(plan), '--db', db, '--workdir', str(tmp_path / 'work'), '--board', *boards.split()]
    assert runner.main(argv) == 2
    err = capsys.readouterr().err
    assert err.count('\n') == 1 and message in err, err
    assert not (tmp_path / 'work').exists()


@pytest.mark.needs_cli
def test_stations_share_one_postgresql(tmp_path, pg_url):
    plan = tmp_path / 'plan.toml'
    plan.write_text(SHORT)
    # Two boxes at a time per station: the four stations still write at once.
    runs = [harness(plan, *[a for n in range(8) for a in ('--board', f'box@SN{s}{n:03d}')],
                    '--station', f'line{s}', '--db', pg_url, '--jobs', 2,
                    '--workdir', tmp_path / f'w{s}',
                    cwd=tmp_path, wait=False) for s in range(4)]
    assert [r.wait(timeout=300) for r in runs] == [0] * 4, [r.stderr.read() for r in runs]
    assert sorted(rows(pg_url, 'SELECT station, status FROM runs')) == \
        [(f'line{s}', 'done') for s in range(4)]
    steps = rows(pg_url, "SELECT v.serial, s.seq, s.status, m.value_num FROM visits v"
                         " JOIN steps s ON s.visit_id = v.id"
                         " LEFT JOIN measurements m ON m.visit_id = v.id AND m.step_seq = s.seq")
    expected = {(f'SN{s}{n:03d}', seq) for s in range(4) for n in range(8) for seq in range(3)}
    assert sorted((serial, seq) for serial, seq, *_ in steps) == sorted(expected)
    assert {status for _, _, status, _ in steps} == {'passed'}
    assert sum(value is not None for *_, value in steps) == 32
