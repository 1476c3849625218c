"""The command reference's generator (build/cmdref) on a copy of the sources:
it writes the checked-in reference, and refuses a module header that would
make the reference wrong or incomplete."""
import os
import shutil
import subprocess
from pathlib import Path

import pytest

REPO = Path(__file__).resolve().parents[2]
CMDREF = Path(os.environ.get('CLI_BUILD_DIR', REPO / 'build')).resolve() / 'cmdref'
# What make docs captured on the simulated board (tools/cmdref-capture).
EXAMPLES = CMDREF.parent / 'cmdref-examples.out'


@pytest.fixture
def tree(tmp_path):
    if not CMDREF.is_file() or not EXAMPLES.is_file():
        pytest.skip(f'{CMDREF} is not built or {EXAMPLES} not captured (make docs-check)')
    shutil.copytree(REPO / 'src', tmp_path / 'src')
    (tmp_path / 'sim/default-state').mkdir(parents=True)
    shutil.copy(REPO / 'sim/default-state/board_id', tmp_path / 'sim/default-state')
    return tmp_path


def generate(tree):
    return subprocess.run([str(CMDREF), str(tree), str(tree / 'commands.md'), str(EXAMPLES)],
                          capture_output=True, text=True, check=False)


def test_the_sources_make_the_checked_in_reference(tree):
    assert generate(tree).returncode == 0
    assert (tree / 'commands.md').read_bytes() == (REPO / 'docs/commands.md').read_bytes()


@pytest.mark.parametrize('module, old, new, complaint', [
    # A stated range is tried at both ends against the validator.
    ('button', '<time>  1~255', '<time>  1~254', 'EQU_Cmd_Button: <time> is not 1~254'),
    ('temperature', '<temp_low>     -100~100', '<temp_low>     -99~100',
     'EQU_Cmd_Temperature: <temp_low> is not -99~100'),
    # Checked at the prompt but undocumented.
    ('usb', "//   <port num>  0~1 or all (the board's USB ports; checked, not used)\n", '',
     'EQU_Cmd_Usb: <port num> has a validator but no "Values:" line'),
    ('watchdog', '// Pass: the watchdog', '// On a pass the watchdog',
     'equ_cmd_watchdog.cpp: the header comment has no "Pass: ... Fail: ..." paragraph'),
])
def test_a_header_that_would_mislead_stops_generation(tree, module, old, new, complaint):
    path = tree / 'src' / f'equ_cmd_{module}.cpp'
    text = path.read_text(encoding='utf-8')
    assert old in text
    path.write_text(text.replace(old, new), encoding='utf-8')
    result = generate(tree)
    assert result.returncode != 0 and complaint in result.stderr
