"""The record's database: runs, board visits, steps, measurements and events,
committed as they happen, in SQLite (one station) or PostgreSQL (a plant).

    record = open_record('sqlite:///results.sqlite')
    run = record.start_run({...}); visit = record.start_visit(run, {...})
    record.add_step(visit, {...}); record.end_visit(visit, 'pass', ended)

One small layer over the DB-API drivers: the SQL is written once with `?`
placeholders and SQLite's spelling, and translated for psycopg2. When the
database goes away mid-run the calls go on into a spool file of JSON lines,
which import_spool() loads later.
"""
import base64
import json
import os
import re
import sqlite3
import sys
import threading
import uuid
from pathlib import Path

try:
    import psycopg2
except ImportError:  # a station on SQLite needs no PostgreSQL driver
    psycopg2 = None


class RecordError(Exception):
    """One line a person can act on."""


# Each entry upgrades the schema by one version; an older database gets the
# ones it lacks when it is opened. Append, never edit a shipped entry.
MIGRATIONS = [
    [   # 1: the record itself
        """CREATE TABLE runs (
            id TEXT PRIMARY KEY, station TEXT, operator TEXT, host TEXT,
            plan_name TEXT, plan_version TEXT, plan_path TEXT, plan_sha256 TEXT,
            argv TEXT, started TEXT, ended TEXT, status TEXT)""",
        """CREATE TABLE visits (
            id TEXT PRIMARY KEY, run_id TEXT NOT NULL REFERENCES runs (id),
            seq INTEGER, label TEXT, target TEXT, serial TEXT, identity TEXT,
            station TEXT, operator TEXT, plan_name TEXT, plan_version TEXT,
            plan_sha256 TEXT, started TEXT, ended TEXT, verdict TEXT, error TEXT,
            first_failure TEXT)""",
        """CREATE TABLE steps (
            visit_id TEXT NOT NULL REFERENCES visits (id), seq INTEGER NOT NULL,
            name TEXT, phase TEXT, command TEXT, expected TEXT, status TEXT,
            verdict TEXT, ok INTEGER, why TEXT, attempts INTEGER,
            attempts_json TEXT, started TEXT, ended TEXT,
            duration DOUBLE PRECISION, text TEXT, raw BLOB,
            PRIMARY KEY (visit_id, seq))""",
        """CREATE TABLE measurements (
            visit_id TEXT NOT NULL, step_seq INTEGER NOT NULL, step_name TEXT,
            name TEXT NOT NULL, value_num DOUBLE PRECISION, value_text TEXT,
            unit TEXT, low DOUBLE PRECISION, high DOUBLE PRECISION, equals TEXT,
            in_list TEXT, ok INTEGER, why TEXT,
            PRIMARY KEY (visit_id, step_seq, name),
            FOREIGN KEY (visit_id, step_seq) REFERENCES steps (visit_id, seq))""",
    ],
    [   # 2: restarts and interrupts; the indexes the results queries use
        """CREATE TABLE events (
            id TEXT PRIMARY KEY, visit_id TEXT NOT NULL REFERENCES visits (id),
            at TEXT, kind TEXT, detail TEXT)""",
        'CREATE INDEX events_visit ON events (visit_id)',
        'CREATE INDEX visits_run ON visits (run_id)',
        'CREATE INDEX visits_serial ON visits (serial)',
        'CREATE INDEX visits_started ON visits (started)',
        'CREATE INDEX measurements_name ON measurements (step_name, name)',
        "CREATE INDEX steps_failed ON steps (name) WHERE status = 'failed'",
    ],
]

RUN_KEYS = ('station', 'operator', 'host', 'plan_name', 'plan_version',
            'plan_path', 'plan_sha256', 'argv', 'started')
VISIT_KEYS = ('seq', 'label', 'target', 'serial', 'station', 'operator', 'started')
STEP_KEYS = ('seq', 'name', 'phase', 'command', 'expected', 'status', 'verdict',
             'ok', 'why', 'attempts', 'attempts_json', 'started', 'ended',
             'duration', 'text', 'raw')
MEASURE_KEYS = ('visit_id', 'step_seq', 'step_name', 'name', 'value_num',
                'value_text', 'unit', 'low', 'high', 'equals', 'in_list', 'ok', 'why')


def _insert(table, keys):
    return (f"INSERT INTO {table} ({', '.join(keys)}) VALUES "
            f"({', '.join('?' * len(keys))}) ON CONFLICT DO NOTHING")


# -- the two drivers -------------------------------------------------------

class _Driver:
    begin = 'BEGIN'

    @staticmethod
    def adapt(value):
        return value

    def transaction(self, work, begin=None):
        """WORK(run) in one transaction; run(sql, params) gives the rows."""
        cur = self.conn.cursor()
        cur.execute(begin or self.begin)
        try:
            result = work(_runner(cur, self.sql, self.adapt))
            cur.execute('COMMIT')
            return result
        except BaseException:
            _quietly(cur.execute, 'ROLLBACK')
            raise

    def close(self):
        self.conn.close()


class _SQLite(_Driver):
    kind = 'sqlite'
    # The write lock at once: a reader that turns writer waits no busy timeout.
    begin = 'BEGIN IMMEDIATE'
    lost = (sqlite3.OperationalError, sqlite3.InterfaceError)
    error = sqlite3.Error

    def __init__(self, url):
        path = Path(url[len('sqlite:///'):])
        _check_dir(url, path)
        try:
            # Several runners on one file: WAL lets readers and one writer
            # go on together, the busy timeout queues the writers.
            self.conn = sqlite3.connect(path, timeout=30, isolation_level=None,
                                        check_same_thread=False)
            self.conn.execute('PRAGMA busy_timeout = 30000')
            self.conn.execute('PRAGMA journal_mode = WAL')
            # Each commit survives the runner's death (SIGKILL); only a power
            # cut may take the last few, for no fsync per step.
            self.conn.execute('PRAGMA synchronous = NORMAL')
            self.conn.execute('PRAGMA foreign_keys = ON')     # as PostgreSQL does
        except sqlite3.Error as e:
            raise RecordError(f'cannot open the database {url}: {e}') from None

    @staticmethod
    def sql(text):
        return text

    def batch(self, statements):
        self.transaction(lambda run: [run(*s) for s in statements])

    def fix(self, row):
        return tuple(row)


class _Postgres(_Driver):
    kind = 'postgresql'

    def __init__(self, url):
        if psycopg2 is None:
            raise RecordError(f'cannot open {_shown(url)}: python3-psycopg2 is not installed')
        self.lost = (psycopg2.OperationalError, psycopg2.InterfaceError)
        self.error = psycopg2.Error
        try:
            # A server whose host vanished, not even refusing, is found lost
            # within seconds rather than holding every board's next step.
            self.conn = psycopg2.connect(url, connect_timeout=10, keepalives_idle=5,
                                         keepalives_interval=2, keepalives_count=3,
                                         tcp_user_timeout=10000)
            self.conn.autocommit = True     # transactions are ours: a call is one round trip
        except psycopg2.Error as e:
            reason = ' '.join(str(e).split())
            raise RecordError(f'cannot open the database {_shown(url)}: {reason}') from None

    @staticmethod
    def sql(text):
        # `?` becomes psycopg2's %s; a literal % must be doubled; quoted text
        # is left as written.
        return re.sub(r"'[^']*'|\?|%", lambda m: {'?': '%s', '%': '%%'}.get(
            m.group(), m.group().replace('%', '%%')), re.sub(r'\bBLOB\b', 'BYTEA', text))

    def batch(self, statements):
        # Statements sent as one text are one transaction, in one round trip.
        cur = self.conn.cursor()
        cur.execute(b'; '.join(cur.mogrify(self.sql(sql), [self.adapt(p) for p in params])
                               for sql, params in statements))

    @staticmethod
    def adapt(value):
        # PostgreSQL's text refuses NUL; the raw bytes keep the console as it was.
        return value.replace('\x00', '\ufffd') if isinstance(value, str) else value

    def fix(self, row):
        return tuple(bytes(v) if isinstance(v, memoryview) else v for v in row)


def _runner(cur, translate, adapt):
    def run(sql, params=()):
        cur.execute(translate(sql), [adapt(p) for p in params])
        return cur.fetchall() if cur.description else []
    return run


def _quietly(call, *args):
    try:
        call(*args)
    except Exception:
        pass


def _shown(url):
    return re.sub(r'(//[^:/@]*:)[^@/]*@', r'\1***@', url)


def _check_dir(url, path):
    # A probe file says it for root too, where access() says yes to anything;
    # SQLite's journal needs the directory writable, not just the file.
    parent = path.parent.absolute()
    # Unique per call: two stations of one process may open the file at once.
    probe = parent / f'.{path.name}.{uuid.uuid4().hex}.probe'
    try:
        os.close(os.open(probe, os.O_CREAT | os.O_EXCL | os.O_WRONLY, 0o600))
        os.unlink(probe)
    except FileNotFoundError:
        raise RecordError(f'cannot open the database {url}: no directory {parent}') from None
    except OSError as e:
        raise RecordError(f'cannot open the database {url}: cannot write in '
                          f'{parent} ({e.strerror})') from None


def _driver(url):
    if url.startswith('sqlite:///') and len(url) > len('sqlite:///'):
        return _SQLite(url)
    if url.startswith(('postgresql://', 'postgres://')):
        return _Postgres(url)
    raise RecordError(f'unknown database URL {_shown(url)!r}: use sqlite:///PATH '
                      'or postgresql://USER@HOST/DBNAME')


# -- the schema ------------------------------------------------------------

def _migrate(db, url):
    def work(run):
        if db.kind == 'postgresql':  # stations opening one new database at once
            run('SELECT pg_advisory_xact_lock(2029)')
        run('CREATE TABLE IF NOT EXISTS schema_version (version INTEGER NOT NULL)')
        have = run('SELECT max(version) FROM schema_version')[0][0] or 0
        if have > len(MIGRATIONS):
            raise RecordError(f'the database {_shown(url)}: schema version {have} is newer '
                              f"than this harness's {len(MIGRATIONS)}: use a newer harness")
        for version in range(have + 1, len(MIGRATIONS) + 1):
            for sql in MIGRATIONS[version - 1]:
                run(sql)
            run('DELETE FROM schema_version')
            run('INSERT INTO schema_version VALUES (?)', [version])
    db.transaction(work)


# -- the record ------------------------------------------------------------

def open_record(url, spool_dir=None):
    """Open (creating or upgrading the schema of) the database at URL."""
    db = _driver(url)
    try:
        _migrate(db, url)
    except RecordError:
        db.close()
        raise
    except db.error as e:
        db.close()
        reason = ' '.join(str(e).split())
        raise RecordError(f'cannot open the database {_shown(url)}: {reason}') from None
    return Record(db, url, spool_dir)


class Record:
    """The writer board threads share: each call is one transaction.

    SQLite has one writer at a time: one connection. PostgreSQL gets up to
    POOL connections, opened as the boards need them, so that their commits
    share the server's disk flushes rather than queue for one each."""
    POOL = 8

    def __init__(self, db, url, spool_dir=None):
        self.kind, self.spool, self._url = db.kind, None, url
        self._spool_dir = Path(spool_dir or '.').absolute()
        self._lock = threading.Condition()      # the idle connections, the spool
        self._idle, self._open = [db], 1
        self._most = self.POOL if db.kind == 'postgresql' else 1
        self._run_id = None

    # The public calls make their ids, then go through _call, which the spool
    # replays with the same arguments.

    def start_run(self, run):
        run_id = uuid.uuid4().hex
        self._run_id = self._run_id or run_id
        self._call('run', run_id, run)
        return run_id

    def start_visit(self, run_id, visit):
        visit_id = uuid.uuid4().hex
        self._call('visit', run_id, visit_id, visit)
        return visit_id

    def set_identity(self, visit_id, identity, serial):
        self._call('identity', visit_id, identity, serial)

    def add_step(self, visit_id, step):
        self._call('step', visit_id, step)

    def add_event(self, visit_id, kind, detail, at):
        self._call('event', uuid.uuid4().hex, visit_id, kind, detail, at)

    def end_visit(self, visit_id, verdict, ended, error=None, first_failure=None):
        self._call('end_visit', visit_id, verdict, ended, error, first_failure)

    def end_run(self, run_id, status, ended):
        self._call('end_run', run_id, status, ended)

    def query(self, sql, params=()):
        """Rows of SQL written with `?` placeholders, on either database."""
        if self.spool:
            raise RecordError(f'the database is lost; the records are in {self.spool}')
        try:
            # A plain BEGIN: a long report must not hold SQLite's write lock
            # against the runners.
            return self._using(lambda db: [db.fix(r) for r in db.transaction(
                lambda run: run(sql, params), 'BEGIN')])
        except _Lost as e:                  # _Failed too
            raise RecordError(f'the query failed: {e.reason}') from None

    def close(self):
        with self._lock:
            for db in self._idle:
                _quietly(db.close)
            self._open -= len(self._idle)
            self._idle = []

    def _call(self, what, *args):
        statements = getattr(_Calls, what)(*args)
        if not self.spool:
            try:
                return self._using(lambda db: db.batch(statements))
            except _Failed as e:
                raise RecordError(f'the database refused the {what}: {e.reason}') from None
            except _Lost as e:
                self._lose(e.reason)
        with self._lock:
            with open(self.spool, 'a', encoding='utf-8') as f:
                f.write(json.dumps({'call': what, 'args': args}, default=_encode) + '\n')

    def _using(self, work):
        """WORK(db) on an idle connection, or a new one while there are fewer
        than the most; _Lost when the database went away."""
        with self._lock:
            self._lock.wait_for(lambda: self._idle or self._open < self._most)
            db = self._idle.pop() if self._idle else None
            self._open += db is None
        try:
            db = db or _driver(self._url)
            result = work(db)
        except RecordError as e:            # no new connection: the server is gone
            self._drop(None)
            raise _Lost(str(e)) from None
        except db.lost as e:
            self._drop(db)
            raise _Lost(e) from None
        except db.error as e:
            self._drop(db, keep=True)
            raise _Failed(e) from None
        self._drop(db, keep=True)
        return result

    def _drop(self, db, keep=False):
        with self._lock:
            if keep:
                self._idle.append(db)
            else:
                self._open -= 1
                db and _quietly(db.close)
            self._lock.notify()

    def _lose(self, reason):
        with self._lock:
            if self.spool:
                return
            name = f'results-spool-{self._run_id or uuid.uuid4().hex}.jsonl'
            self.spool = self._spool_dir / name
        print(f'database lost ({reason}): the records go to {self.spool}; '
              f'load them with harness/results import {self.spool}', file=sys.stderr)


class _Lost(Exception):
    def __init__(self, error):
        super().__init__(error)
        self.reason = ' '.join(str(error).split()) or type(error).__name__


class _Failed(_Lost):
    """An error of the statement, not of the connection."""


class _Calls:
    """Each call's statements: inserts that a second time change nothing, and
    updates that set the same values again, so a spool may be loaded twice."""

    @staticmethod
    def run(run_id, run):
        values = [run.get(k) for k in RUN_KEYS]
        values[RUN_KEYS.index('argv')] = json.dumps(run.get('argv'))
        return [(_insert('runs', ('id',) + RUN_KEYS), [run_id] + values)]

    @staticmethod
    def visit(run_id, visit_id, visit):
        keys = ('id', 'run_id') + VISIT_KEYS
        # The plan comes from the run, so a visit is found by plan on its own.
        sql = (f"INSERT INTO visits ({', '.join(keys)}, plan_name, plan_version, plan_sha256)"
               f" SELECT {', '.join('?' * len(keys))}, plan_name, plan_version, plan_sha256"
               ' FROM runs WHERE id = ? ON CONFLICT DO NOTHING')
        return [(sql, [visit_id, run_id] + [visit.get(k) for k in VISIT_KEYS] + [run_id])]

    @staticmethod
    def identity(visit_id, identity, serial):
        return [('UPDATE visits SET identity = ?, serial = ? WHERE id = ?',
                 [json.dumps(identity, sort_keys=True), serial, visit_id])]

    @staticmethod
    def step(visit_id, step):
        row = dict(step, ok=_flag(step.get('ok')), attempts=len(step.get('attempts') or ()),
                   attempts_json=json.dumps(step.get('attempts') or []))
        out = [(_insert('steps', ('visit_id',) + STEP_KEYS),
                [visit_id] + [row.get(k) for k in STEP_KEYS])]
        for m in step.get('measurements') or ():
            out.append((_insert('measurements', MEASURE_KEYS),
                        _measurement(visit_id, step, m)))
        return out

    @staticmethod
    def event(event_id, visit_id, kind, detail, at):
        return [(_insert('events', ('id', 'visit_id', 'at', 'kind', 'detail')),
                 [event_id, visit_id, at, kind, detail])]

    @staticmethod
    def end_visit(visit_id, verdict, ended, error, first_failure):
        return [('UPDATE visits SET verdict = ?, ended = ?, error = ?, first_failure = ?'
                 ' WHERE id = ?', [verdict, ended, error, first_failure, visit_id])]

    @staticmethod
    def end_run(run_id, status, ended):
        return [('UPDATE runs SET status = ?, ended = ? WHERE id = ?', [status, ended, run_id])]


def _measurement(visit_id, step, m):
    value = m.get('value')
    number = _number(value)
    text = None if number is not None or value is None else str(value)
    in_list = None if m.get('in') is None else json.dumps(m['in'])
    equals = None if m.get('equals') is None else json.dumps(m['equals'])
    return [visit_id, step.get('seq'), step.get('name'), m.get('name'), number, text,
            m.get('unit'), _number(m.get('low')), _number(m.get('high')), equals,
            in_list, _flag(m.get('ok')), m.get('why')]


def _number(value):
    ok = isinstance(value, (int, float)) and not isinstance(value, bool)
    return float(value) if ok else None


def _flag(value):
    return None if value is None else int(bool(value))


# -- the spool -------------------------------------------------------------

def _encode(value):
    if isinstance(value, (bytes, bytearray, memoryview)):
        return {'$bytes': base64.b64encode(bytes(value)).decode('ascii')}
    return str(value)


def _decode(obj):
    if set(obj) == {'$bytes'}:
        return base64.b64decode(obj['$bytes'])
    return obj


def import_spool(record, path):
    """Load a spool's calls into RECORD in their order; the count of calls.
    Loading one twice changes nothing."""
    try:
        lines = Path(path).read_text(encoding='utf-8').splitlines()
    except (OSError, UnicodeError) as e:
        raise RecordError(f'cannot read the spool {path}: {e}') from None
    count = 0
    for n, line in enumerate(lines, 1):
        if not line.strip():
            continue
        try:
            entry = json.loads(line, object_hook=_decode)
            getattr(_Calls, entry['call'])
        except (ValueError, KeyError, AttributeError, TypeError):
            raise RecordError(f'{path}:{n}: not a line of a results spool') from None
        record._call(entry['call'], *entry['args'])
        if record.spool:    # lost again: what is left stays in the spool
            raise RecordError(f'the database went away at {path}:{n}; import it again later')
        count += 1
    return count
