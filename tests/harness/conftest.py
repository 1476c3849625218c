"""Shared by the harness's tests: the repository on sys.path; tests marked
`needs_cli` (a board in the box) are skipped while the tool is not built."""
import sys
from pathlib import Path

import pytest

REPO = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(REPO), str(REPO / 'sim' / 'box')]

from boardbox import tool_build_dir, tool_built  # noqa: E402


def pytest_configure(config):
    config.addinivalue_line('markers', 'needs_cli: runs the built tool in the box')


def pytest_collection_modifyitems(items):
    if tool_built():
        return
    skip = pytest.mark.skip(reason=f'{tool_build_dir()}/cli is not built yet')
    for item in items:
        if item.get_closest_marker('needs_cli'):
            item.add_marker(skip)
