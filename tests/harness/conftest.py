"""Shared by the harness's tests: the repository on sys.path; tests marked
`needs_cli` (a board in the box) are skipped while the tool is not built."""
import sys
from pathlib import Path

REPO = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(REPO), str(REPO / 'sim' / 'box')]

from boardbox import pytest_configure, pytest_collection_modifyitems  # noqa: E402,F401


import pytest  # noqa: E402
import pg  # noqa: E402


@pytest.fixture(scope='session')
def pg_server():
    """A private PostgreSQL server for this pytest process (each xdist worker
    its own); pg_server.stop() and .start() take it away and back."""
    if not pg.available():
        pytest.skip('no PostgreSQL server installed')
    with pg.PgServer() as server:
        yield server


@pytest.fixture
def pg_url(pg_server):
    """A fresh database on the private server."""
    if not pg_server.running:
        pg_server.start()
    return pg_server.create_database()


@pytest.fixture(params=['sqlite', 'postgresql'])
def db_url(request, tmp_path):
    """Each record test once on SQLite, once on PostgreSQL."""
    if request.param == 'sqlite':
        return f'sqlite:///{tmp_path}/results.sqlite'
    return request.getfixturevalue('pg_url')
