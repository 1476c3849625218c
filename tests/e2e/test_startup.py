"""Start-up and shutdown of the tool on the simulated board: the options, the
printk level, the kill list, each step of the driver and board start-up and
what a failure there leaves done or undone (seen in the board's journal),
the banner, and the shutdown order ending in "sync".

The kill list is watched through a killall placed first on PATH that only
writes to the journal, so that these runs cannot reach a host process.
"""
import time
from pathlib import Path

import pytest

USAGE = (b'\r\nEQU_Usage: cli [options]'
         b'\r\n        -d   do not kill user tasks'
         b'\r\n        -p   do not disable kernel printk'
         b'\r\n        -h   show help'
         b'\r\n\n')
BANNER = b'\r\n**********************\r\nEQUIPMENT_TEST_OK\r\n**********************'
SERVICES = ['appwatch', 'panelagent', 'dbserver', 'mainsvc', 'websvc', 'mediasvc',
            'hwmanager']


def journal(state):
    path = Path(state) / 'journal'
    return path.read_text().splitlines() if path.exists() else []


def names(lines):
    """Each journal line cut to kind, name and request (and the fake tools' lines)."""
    return [' '.join(line.split()[:3]) if ' 0x' in line else ' '.join(line.split()[:2])
            for line in lines]


def printk(state):
    path = Path(state) / 'proc' / 'sys' / 'kernel' / 'printk'
    return path.read_text() if path.exists() else None


def fail(state, target):
    path = Path(state) / 'fail' / target
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text('')


@pytest.fixture
def fakes(tmp_path):
    """killall and sync stand-ins that note each call (with the time) in the journal."""
    bindir = tmp_path / 'bin'
    bindir.mkdir()
    for tool in ('killall', 'sync'):
        script = bindir / tool
        script.write_text('#!/bin/sh\n'
                          f'echo "fake {tool} $* at $(date +%s.%N)" >> "$BOARDSIM_STATE/journal"\n')
        script.chmod(0o755)
    return bindir


# ---- options ----

@pytest.mark.parametrize('args', [['-h'], ['-x'], ['-d', '-h', '-p'], ['-dp', '-y']])
def test_usage_ends_before_anything_is_done(tmp_path, fakes, run_cli, args):
    run = run_cli(tmp_path, *args, path_dir=fakes)
    assert run.returncode == 255
    assert run.stdout == USAGE
    bad = [a[-1] for a in args if a[-1] not in 'dhp']
    if bad:
        assert run.stderr.endswith(f"invalid option -- '{bad[0]}'\n".encode())
    assert journal(tmp_path) == []          # no driver call, no killall, no sync
    assert printk(tmp_path) is None


@pytest.mark.parametrize('args, level', [(['-d'], '0\n'), (['-d', '-p'], '7\n'),
                                         (['-pd'], '7\n')])
def test_printk_level_and_no_kills_with_d(tmp_path, fakes, spawn_cli, args, level):
    assert spawn_cli(tmp_path, args, path_dir=fakes).quit() == 0
    assert printk(tmp_path) == level
    assert not any('killall' in line for line in journal(tmp_path))


def test_kill_list_twice_with_a_pause_before_the_driver(tmp_path, fakes, spawn_cli):
    assert spawn_cli(tmp_path, [], path_dir=fakes).quit() == 0
    lines = journal(tmp_path)
    kills = [line.split() for line in lines if line.startswith('fake killall')]
    assert [k[2:4] for k in kills] == [['-9', s] for s in SERVICES] * 2
    first_drv = next(i for i, line in enumerate(lines) if line.startswith('drv '))
    assert all(lines.index(' '.join(k)) < first_drv for k in kills)
    stamps = [float(k[-1]) for k in kills]
    assert stamps[7] - stamps[6] >= 0.9     # the pause after the first pass
    assert stamps[7] - stamps[0] < 1.9      # and only one pause between the passes


# ---- start-up steps ----

@pytest.mark.parametrize('target, output, last', [
    ('DRV_Init', b'', 'drv DRV_Init'),
    ('DRV_SysCtl.0x1400', b'', 'drv DRV_SysCtl 0x1400'),
    ('open./dev/hal_rmc', b'\r\nFailed to open /dev/hal_rmc file', 'open /dev/hal_rmc'),
    ('ioctl./dev/hal_rmc.0x40113', b'\r\nFailed to set rmc to equtest mode',
     'close /dev/hal_rmc'),
])
def test_failed_step_exits_255_without_cleanup(tmp_path, run_cli, target, output, last):
    fail(tmp_path, target)
    run = run_cli(tmp_path, '-d')
    assert run.returncode == 255
    assert run.stdout == output
    steps = names(journal(tmp_path))
    # Nothing after the failed step: no GPS rate, no driver close, no rmc reset.
    assert steps[-1] == last
    assert 'drv DRV_GPS_SetBaudRate' not in steps
    assert 'drv DRV_DeInit' not in steps


# An unknown board and a failed GPS rate are only reported: the order of the
# steps and of the shutdown stays.
@pytest.mark.parametrize('unknown, output', [(False, BANNER), (True, (
    b'\r\nnot find board 0x12345678\r\nSetup gps port rate 9600 failed' + BANNER))])
def test_start_up_order_and_shutdown_order(tmp_path, fakes, spawn_cli, unknown, output):
    if unknown:
        (tmp_path / 'board_id').write_text('0x12345678\n')
        fail(tmp_path, 'DRV_GPS_SetBaudRate')
    child = spawn_cli(tmp_path, path_dir=fakes)
    child.expect_exact(b'<PLM7140>')
    assert child.before.replace(b'\r\r\n', b'\r\n') == output + b'\r\n'
    assert names(journal(tmp_path)) == [
        'open /proc/sys/kernel/printk', 'close /proc/sys/kernel/printk',
        'drv DRV_Init', 'drv DRV_SysCtl 0x1400',
        'open /dev/hal_rmc', 'ioctl /dev/hal_rmc 0x40113', 'close /dev/hal_rmc',
        'drv DRV_GPS_SetBaudRate']
    child.send(b'q\r')
    assert child.finish() == 0
    lines = journal(tmp_path)
    assert names(lines)[-5:] == ['drv DRV_DeInit', 'open /dev/hal_rmc',
                                 'ioctl /dev/hal_rmc 0x40113', 'close /dev/hal_rmc', 'fake sync']
    rmc = [line for line in lines if '0x40113' in line]
    assert 'mode=1' in rmc[0] and 'mode=0' in rmc[-1]


def cpu_ticks(pid):
    with open(f'/proc/{pid}/stat') as stat:
        return sum(int(f) for f in stat.read().rsplit(')', 1)[1].split()[11:13])


def test_banner_soon_and_idle_prompt_costs_no_cpu(tmp_path, spawn_cli):
    start = time.monotonic()
    child = spawn_cli(tmp_path)
    child.expect_exact(b'<PLM7140>')
    assert time.monotonic() - start < 2.0
    before = cpu_ticks(child.pid)
    time.sleep(2)
    assert cpu_ticks(child.pid) - before <= 2   # clock ticks (1/100 s) over two seconds
    child.send(b'q\r')
    assert child.finish() == 0
