"""Fixtures for the tests that run on the board in a box (see boardbox.py).

    box_factory(**options) -> Box, not started (state under tmp_path unless
                              state= is given); every box is closed at the end
    box                    -> Box running "cli -d", at its first prompt
    box_run(*argv, **opts) -> (exit status, output) of a program run in a box

Tests marked `needs_cli` are skipped while the tool is not built.
"""
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

from boardbox import Box, build_dir, tool_built  # noqa: E402


def pytest_configure(config):
    config.addinivalue_line('markers', 'needs_cli: runs the built tool in the box')


def pytest_collection_modifyitems(items):
    if tool_built():
        return
    skip = pytest.mark.skip(reason=f'{build_dir()}/cli is not built yet')
    for item in items:
        if item.get_closest_marker('needs_cli'):
            item.add_marker(skip)


@pytest.fixture
def box_factory(tmp_path):
    boxes = []

    def make(state=None, **options):
        board = Box(state or tmp_path / f'state{len(boxes)}', **options)
        boxes.append(board)
        return board

    yield make
    for board in boxes:
        board.close()


@pytest.fixture
def box(box_factory):
    board = box_factory().start()
    board.ready()
    return board


@pytest.fixture
def box_run(box_factory):
    def run(*argv, **options):
        board = box_factory(run=list(argv), **options).start()
        status = board.wait(options.get('timeout'))
        return status, board.child.before
    return run
