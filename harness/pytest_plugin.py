"""pytest plugin: `pytest -p harness.pytest_plugin --board TARGET` gives tests a
`board` fixture, the console client on that board (see harness/README.md).

    def test_temperature(board):
        assert board.run('test mainboard temperature 0 85').passed

One board per pytest process (each pytest-xdist worker opens its own, so
give xdist box boards only); a board left unusable by a time-out is
restarted before the next test where its transport allows.
"""
import pytest

from .client import ConsoleError
from .transports import open_board


def pytest_addoption(parser):
    group = parser.getgroup('board', 'the board under test (harness)')
    group.addoption('--board', metavar='TARGET',
                    help='board target: box[:SCENARIO+...], serial:DEVICE[:BAUD], tcp:HOST:PORT, '
                         'exec:COMMAND, labgrid:ENV.yaml')
    group.addoption('--real-time', action='store_true',
                    help='a box board keeps real time instead of the fast clock')


@pytest.fixture(scope='session')
def board_console(request, tmp_path_factory):
    target = request.config.getoption('--board')
    if not target:
        pytest.skip('no --board TARGET given')
    console = open_board(target, real_time=request.config.getoption('--real-time'),
                         workdir=tmp_path_factory.mktemp('board'))
    yield console
    console.close()


@pytest.fixture
def board(board_console):
    if not board_console.usable:
        try:
            board_console.restart()
        except ConsoleError as err:
            pytest.fail(f'the board is unusable: {err}')
    return board_console
