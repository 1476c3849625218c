"""The record's database, each test on SQLite and on a private PostgreSQL:
boards written at once read back exactly, an older schema upgraded in place,
a newer one and bad URLs refused, and a server lost mid-run spooled."""
import contextlib
import json
import os
import tempfile
from concurrent.futures import ThreadPoolExecutor

import pytest

from harness import db
from harness.db import RecordError, import_spool, open_record

T = '2026-11-25T13:40:02+00:00'
RAW = bytes(range(256)) * 8           # every byte value, a console's 2 KB


def step(seq):
    ok = seq % 5 != 3
    return {'seq': seq, 'name': f'step {seq}', 'phase': 'setup' if seq == 0 else 'step',
            'command': 'test mainboard temperature 0 85', 'expected': 'pass',
            'status': 'passed' if ok else 'failed', 'verdict': 'pass' if ok else 'fail',
            'ok': ok, 'why': None if ok else 'above high 85', 'started': T, 'ended': T,
            'duration': 0.25, 'text': f'line {seq}\x00\u6e29\u5ea6', 'raw': RAW + bytes([seq]),
            'attempts': [{'n': 1, 'verdict': 'pass', 'why': None, 'duration': 0.25, 'started': T}],
            'measurements': [
                {'name': 'mainboard', 'value': seq + 0.5, 'unit': 'degC', 'low': 0, 'high': 85,
                 'ok': ok, 'why': None},
                {'name': 'mode', 'value': 'on', 'in': ['on', 'off'], 'equals': None, 'ok': True}]}


def write_run(record, station, boards, steps):
    run = record.start_run({'station': station, 'operator': 'ana', 'host': 'pc1',
                            'plan_name': 'board', 'plan_version': '3', 'plan_path': '/p.toml',
                            'plan_sha256': 'ab12', 'argv': ['run', '--board', 'box'],
                            'started': T})

    def board(n):
        visit = record.start_visit(run, {'seq': n, 'label': f'box#{n}', 'target': 'box',
                                         'serial': None, 'station': station,
                                         'operator': 'ana', 'started': T})
        record.set_identity(visit, {'board': '0x44130109', 'mac': None}, f'{station}-{n}')
        for seq in range(steps):
            record.add_step(visit, step(seq))
        record.add_event(visit, 'restart', 'the console ended', T)
        record.end_visit(visit, 'fail', T, first_failure='step 3')
        return visit

    with ThreadPoolExecutor(8) as pool:
        visits = list(pool.map(board, range(boards)))
    record.end_run(run, 'done', T)
    return run, visits


def test_boards_written_at_once_read_back_exactly(db_url):
    with ThreadPoolExecutor(2) as pool:   # two stations, one new database, at once
        records = list(pool.map(open_record, [db_url] * 2))
        runs = list(pool.map(write_run, records, ['line1', 'line2'], [6, 6], [12, 12]))
    records[0].add_step(runs[0][1][0], dict(step(3), why='again'))  # a second add: no change
    record = open_record(db_url)            # what each call committed, seen from elsewhere
    visits = [v for _, vs in runs for v in vs]
    rows = record.query('SELECT visit_id, seq, raw, text, ok, attempts, attempts_json FROM steps')
    assert sorted(r[:2] for r in rows) == sorted((v, s) for v in visits for s in range(12))
    assert all(r[2:] == (RAW + bytes([r[1]]), f'line {r[1]}\ufffd\u6e29\u5ea6'
                         if record.kind == 'postgresql' else step(r[1])['text'],
                         int(r[1] % 5 != 3), 1, json.dumps(step(0)['attempts'])) for r in rows)
    assert record.query('SELECT why FROM steps WHERE seq = 3 AND visit_id = ?',
                        [runs[0][1][0]]) == [('above high 85',)]
    values = record.query("SELECT step_seq, value_num, value_text, low, high, in_list, ok "
                          "FROM measurements ORDER BY name, step_seq")
    assert len(values) == 2 * 12 * 12
    assert values[0] == (0, 0.5, None, 0.0, 85.0, None, 1)
    assert values[-1] == (11, None, 'on', None, None, '["on", "off"]', 1)
    assert record.query("SELECT count(*) FROM steps WHERE status = 'failed'") == [(12 * 2,)]
    visit_rows = record.query('SELECT serial, identity, plan_name, plan_version, plan_sha256, '
                              'verdict, first_failure FROM visits ORDER BY serial')
    assert visit_rows[0] == ('line1-0', '{"board": "0x44130109", "mac": null}', 'board', '3',
                             'ab12', 'fail', 'step 3')
    assert len(visit_rows) == 12
    assert record.query('SELECT count(*) FROM events WHERE kind = ?', ['restart']) == [(12,)]
    assert record.query("SELECT status, argv FROM runs WHERE station LIKE 'line%'") == \
        [('done', '["run", "--board", "box"]')] * 2
    if record.kind == 'sqlite':             # readers and writers at once on one file
        assert record.query('PRAGMA journal_mode') == [('wal',)]
    for r in records + [record]:
        r.close()


def test_older_schema_upgraded_in_place_newer_refused(db_url, monkeypatch):
    monkeypatch.setattr(db, 'MIGRATIONS', db.MIGRATIONS[:1])
    old = open_record(db_url)
    run = old.start_run({'station': 'old', 'plan_name': 'board'})
    old.close()
    monkeypatch.undo()
    record = open_record(db_url)
    assert record.query('SELECT version FROM schema_version') == [(len(db.MIGRATIONS),)]
    assert record.query('SELECT id, station FROM runs') == [(run, 'old')]
    with pytest.raises(RecordError, match='^the query failed: .*nope'):
        record.query('SELECT nope FROM runs')
    with pytest.raises(RecordError, match='^the database refused the step: (?i:.*foreign key)'):
        record.add_step('no such visit', step(0))
    write_run(record, 'new', 2, 3)                      # the events table is there now
    record.query('UPDATE schema_version SET version = 99')
    with pytest.raises(RecordError, match=f"schema version 99 is newer than this harness's "
                                          f'{len(db.MIGRATIONS)}: use a newer harness$'):
        open_record(db_url)


@contextlib.contextmanager
def unprivileged():
    """As nobody, for a read-only directory is writable to root."""
    if os.geteuid() != 0:
        yield
        return
    os.seteuid(65534)
    try:
        yield
    finally:
        os.seteuid(0)


BAD = [  # url (DIR: a directory of the test's, PG: the private server), message
    ('sqlite:///DIR/none/r.sqlite', r'no directory /.*/none$'),
    ('sqlite:///DIR/ro/r.sqlite', r'cannot write in /.*/ro \(Permission denied\)$'),
    ('mysql://ana@db1/results', r"unknown database URL 'mysql://ana@db1/results': use "),
    ('postgresql://pw:wrong@/postgres?host=PG', r'pw:\*\*\*@.*password authentication failed'),
    ('postgresql://postgres@/postgres?host=DIR', r'No such file or directory.* Is the server'),
]


@pytest.mark.parametrize('url, message', BAD)
def test_bad_database_refused_with_a_reason(url, message, request):
    if 'PG' in url:
        url = url.replace('PG', str(request.getfixturevalue('pg_server').socket))
    top = tempfile.mkdtemp()
    os.chmod(top, 0o755)
    os.mkdir(f'{top}/ro', 0o555)
    url = url.replace('DIR', top)
    try:
        with unprivileged(), pytest.raises(RecordError, match=message):
            open_record(url)
    finally:
        os.rmdir(f'{top}/ro')
        os.rmdir(top)


def test_server_lost_mid_run_spooled_then_imported(pg_server, pg_url, tmp_path, capfd):
    record = open_record(pg_url, spool_dir=tmp_path)
    run = record.start_run({'station': 'line1', 'plan_name': 'board'})
    visit = record.start_visit(run, {'seq': 0, 'label': 'box#1'})
    record.add_step(visit, step(0))
    pg_server.stop()
    try:
        for seq in range(1, 6):
            record.add_step(visit, step(seq))
        record.add_event(visit, 'interrupt', 'SIGTERM', T)
        record.end_visit(visit, 'interrupted', T)
        record.end_run(run, 'interrupted', T)
    finally:
        pg_server.start()
    assert record.spool == tmp_path / f'results-spool-{run}.jsonl'
    err = capfd.readouterr().err
    assert err.count('database lost') == 1
    assert err.endswith(f'load them with harness/results import {record.spool}\n')
    fresh = open_record(pg_url)
    assert [import_spool(fresh, record.spool) for _ in range(2)] == [8, 8]
    assert fresh.query('SELECT seq, raw FROM steps ORDER BY seq') == \
        [(s, step(s)['raw']) for s in range(6)]
    assert fresh.query('SELECT count(*) FROM measurements') == [(12,)]
    record.spool.write_text(record.spool.read_text().replace('"event"', '"evnt"'))
    with pytest.raises(RecordError, match=f'^{record.spool}:6: not a line of a results spool$'):
        import_spool(fresh, record.spool)
    assert fresh.query('SELECT v.verdict, r.status, e.detail FROM visits v JOIN runs r ON '
                       'r.id = v.run_id JOIN events e ON e.visit_id = v.id') == \
        [('interrupted', 'interrupted', 'SIGTERM')]
