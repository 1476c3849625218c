"""A private PostgreSQL server for the record's tests and benchmark: Debian's
server in a temporary directory, on a Unix socket only, run as `nobody`
when we are root (the server refuses root).

    with PgServer() as pg:
        url = pg.create_database()      # postgresql://postgres@/NAME?host=DIR
        pg.stop(); pg.start()           # the database going away and back

The role `pw` (password `secret`) needs its password; every other role is
trusted on the socket.
"""
import os
import pwd
import shutil
import subprocess
import tempfile
import uuid
from pathlib import Path

BIN = Path('/usr/lib/postgresql/15/bin')
PASSWORD_ROLE, PASSWORD = 'pw', 'secret'


def available():
    return (BIN / 'initdb').exists() and (BIN / 'pg_ctl').exists()


class PgServer:
    def __init__(self, durable=False):
        self.durable = durable      # fsync on: the benchmark's honest figures
        self.dir = Path(tempfile.mkdtemp(prefix='record-pg-'))
        self.data, self.socket = self.dir / 'data', self.dir / 'socket'
        self.running = False
        self.socket.mkdir()
        if os.geteuid() == 0:
            user = pwd.getpwnam('nobody')
            self._as = ['setpriv', f'--reuid={user.pw_uid}', f'--regid={user.pw_gid}',
                        '--clear-groups', '--']
            for path in (self.dir, self.socket):
                os.chown(path, user.pw_uid, user.pw_gid)
        else:
            self._as = []
        try:
            self._initdb()
            self.start()
            self.sql(f"CREATE ROLE {PASSWORD_ROLE} LOGIN SUPERUSER PASSWORD '{PASSWORD}'")
        except BaseException:
            self.close()
            raise

    def _pg(self, tool, *args):
        subprocess.run(self._as + [str(BIN / tool), *args], cwd=self.dir, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                       env=dict(os.environ, LC_ALL='C', HOME=str(self.dir)))

    def _initdb(self):
        self._pg('initdb', '-D', str(self.data), '-U', 'postgres', '-A', 'trust',
                 '-E', 'UTF8', '--locale=C', '--no-sync')
        conf = ["listen_addresses = ''", f"unix_socket_directories = '{self.socket}'",
                "password_encryption = 'scram-sha-256'", 'max_connections = 200']
        if not self.durable:
            conf += ['fsync = off', 'synchronous_commit = off', 'full_page_writes = off']
        with open(self.data / 'postgresql.conf', 'a') as f:
            f.write('\n'.join(conf) + '\n')
        (self.data / 'pg_hba.conf').write_text(
            f'local all {PASSWORD_ROLE} scram-sha-256\nlocal all all trust\n')

    def url(self, dbname='postgres', user='postgres', password=None):
        auth = user if password is None else f'{user}:{password}'
        return f'postgresql://{auth}@/{dbname}?host={self.socket}'

    def sql(self, statement):
        import psycopg2
        conn = psycopg2.connect(self.url())
        conn.autocommit = True
        try:
            conn.cursor().execute(statement)
        finally:
            conn.close()

    def create_database(self):
        name = f't{uuid.uuid4().hex[:12]}'
        self.sql(f'CREATE DATABASE {name}')
        return self.url(name)

    def start(self):
        self._pg('pg_ctl', '-D', str(self.data), '-l', str(self.dir / 'log'), '-w', 'start')
        self.running = True

    def stop(self):
        self._pg('pg_ctl', '-D', str(self.data), '-m', 'fast', '-w', 'stop')
        self.running = False

    def close(self):
        if self.running:
            self.stop()
        shutil.rmtree(self.dir, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
