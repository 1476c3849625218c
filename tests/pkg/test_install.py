"""What the board gets from cmake --install of the tested build
($CLI_TOOL_BUILD_DIR, else $CLI_BUILD_DIR, else build/)."""
import os
import re
import subprocess
from pathlib import Path

import pytest

REPO = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get('CLI_TOOL_BUILD_DIR',
                            os.environ.get('CLI_BUILD_DIR', REPO / 'build'))).resolve()
RUNTIME = {'libc.so.6', 'libstdc++.so.6', 'libdriver.so'}


@pytest.fixture(scope='module')
def root(tmp_path_factory):
    if not (BUILD / 'cli').is_file():
        pytest.skip(f'{BUILD}/cli is not built')
    dest = tmp_path_factory.mktemp('board')
    subprocess.run(['cmake', '--install', str(BUILD), '--prefix', '/usr', '--strip'],
                   env=dict(os.environ, DESTDIR=str(dest)), check=True, capture_output=True)
    return dest


def test_the_board_gets_the_tool_alone(root):
    files = [str(p.relative_to(root)) for p in root.rglob('*') if not p.is_dir()]
    assert files == ['usr/bin/cli']


def test_tool_needs_only_libc_libstdcxx_and_the_driver(root):
    cli = root / 'usr/bin/cli'
    dynamic = subprocess.run(['readelf', '-d', str(cli)], capture_output=True, text=True,
                             check=True).stdout
    assert set(re.findall(r'\(NEEDED\)\s+Shared library: \[(.+)\]', dynamic)) <= RUNTIME
    assert 'RPATH' not in dynamic and 'RUNPATH' not in dynamic
    data = cli.read_bytes()
    for tree in (BUILD, REPO):
        assert str(tree).encode() not in data
