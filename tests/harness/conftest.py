"""Shared by the harness's tests: the repository on sys.path; tests marked
`needs_cli` (a board in the box) are skipped while the tool is not built."""
import sys
from pathlib import Path

REPO = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(REPO), str(REPO / 'sim' / 'box')]

from boardbox import pytest_configure, pytest_collection_modifyitems  # noqa: E402,F401

