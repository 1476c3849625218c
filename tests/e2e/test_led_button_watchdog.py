"""The LED, reset-key and watchdog commands typed at the tool on the
simulated board: the LED worker's cycle and "led off" as the GPIO journal
shows them, the reset key's verdicts and time validator, and the watchdog
test with the status the watchdog driver reports. Time runs ten times fast
(libfaketime) so the flash cycle and the watchdog's five seconds are short.
"""
import re
import time
from pathlib import Path

import pytest

from test_console import build_dir, enter_equipment, spawn_cli
from test_startup import fail, journal

FAKETIME = Path('/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1')
PASS = b'\r\ntest result:pass\r\n$$'
FAIL = b'\r\ntest result:fail\r\n$$'
CYCLE = [(b, 1) for b in (22, 24, 26, 28, 23, 25, 27, 29)] + \
        [(b, 0) for b in (22, 24, 26, 28)] + [(b, 1) for b in (22, 24, 26, 28)] + \
        [(b, 0) for b in (23, 25, 27, 29)]
ALL_OFF = [(b, 1) for b in (23, 25, 27, 29, 22, 24, 26, 28)]
PROMPT = b'[PLM7140-equipment]'
LED_WRITE = re.compile(r'ioctl /dev/hal_gpio 0x40610 group=3 bit=(\d+) value=(\d) ')


@pytest.fixture
def board(tmp_path):
    """The tool in equipment mode, and its state directory."""
    preload = f'{build_dir() / "sim" / "libboardsim.so"}:{FAKETIME}'
    state = tmp_path / 'state'
    child = spawn_cli(state, env_extra={'LD_PRELOAD': preload, 'FAKETIME': '+0 x10'})
    enter_equipment(child)
    yield child, state
    child.terminate(force=True)


def run(child, line, timeout=10):
    """What the tool prints for a typed line, between its echo and the next
    prompt, with the terminal's added carriage returns taken out."""
    child.send(line.encode() + b'\r')
    child.expect_exact(PROMPT, timeout=timeout)
    out = child.before.replace(b'\r\r\n', b'\r\n')
    assert out.startswith(line.encode()) and out.endswith(b'\r\n')
    return out[len(line):-2]


def led_writes(state):
    return [(int(m[1]), int(m[2])) for m in map(LED_WRITE.match, journal(state)) if m]


def wait_writes(state, count, timeout=10):
    deadline = time.monotonic() + timeout
    while len(led_writes(state)) < count and time.monotonic() < deadline:
        time.sleep(0.02)
    return led_writes(state)


def test_led_cycle_then_off_leaves_all_off(board):
    child, state = board
    start = time.monotonic()
    assert run(child, 'test led off') == b'\r\n@' + PASS   # never flashed: at once
    assert time.monotonic() - start < 1
    assert led_writes(state) == ALL_OFF
    (state / 'journal').unlink()
    assert run(child, 'test led on') == b'\r\n@' + PASS
    assert wait_writes(state, 2 * len(CYCLE))[:2 * len(CYCLE)] == CYCLE * 2
    assert run(child, 'test led off') == b'\r\n@' + PASS
    writes = led_writes(state)
    assert writes[-8:] == ALL_OFF
    assert writes[:-8] == CYCLE * ((len(writes) - 8) // len(CYCLE))
    for bit in range(22, 30):
        assert (state / 'gpio' / f'3.{bit}').read_text() == '1\n'


def test_reset_key_verdicts_and_time_validator(board):
    child, state = board
    assert run(child, 'test reset button') == b'\r\n@' + PASS
    assert run(child, 'test reset button 255') == b'\r\n@' + PASS
    (state / 'keys').mkdir(exist_ok=True)
    (state / 'keys' / 'reset').write_text('released\n')
    assert run(child, 'test reset button 1') == \
        b"\r\n@\r\nerror: reset button isn't pressed" + FAIL
    keys = [line for line in journal(state) if ' 0x40636 ' in line]
    assert [line.split(' -> ')[0] for line in keys] == ['ioctl /dev/hal_gpio 0x40636 arg=15'] * 3
    for bad in ('0', '256', '-5', '18446744073709551617'):
        out = run(child, f'test reset button {bad}')
        assert out.startswith(b'\r\ntime can only be 1~255s, please check')
        assert b'@' not in out
    assert len([line for line in journal(state) if ' 0x40636 ' in line]) == 3


def watchdog_status(state, timeout):
    """The driver's status file with the given timeout (armed: time left = timeout)."""
    path = state / 'proc' / 'watchdog_status'
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(''.join('%-12s: %-12s\n' % kv for kv in (
        ('name', 'hal_wdt'), ('mode', 0), ('timeleft', 0), ('timeout', timeout))))


def watchdog_descriptors(state):
    """(opened, closed) counts of /dev/hal_watchdog in the journal."""
    lines = journal(state)
    return (sum(line.startswith('open /dev/hal_watchdog fd=') for line in lines),
            sum(line.startswith('close /dev/hal_watchdog ') for line in lines))


def test_watchdog_passes_and_stays_armed(board):
    child, state = board
    assert run(child, 'test watchdog', timeout=20) == b'\r\n@' + PASS
    lines = journal(state)
    assert 'ioctl /dev/hal_watchdog 0x70108 mode=1 rest=00,00,00,00,00,00,00,00 -> 0' in lines
    assert 'drv DRV_PerpCtl 0x1628 bytes=00,07,ff -> 0' in lines
    assert watchdog_descriptors(state) == (1, 0)


@pytest.mark.parametrize('setup, message', [
    (lambda state: watchdog_status(state, 0), b'\r\nFailed to test watchdog'),
    (lambda state: watchdog_status(state, 1), b'\r\nFailed to test watchdog'),
    (lambda state: fail(state, 'ioctl./dev/hal_watchdog.0x70108'), b'\r\nFailed to test watchdog'),
    (lambda state: fail(state, 'DRV_PerpCtl.0x1628'), b''),
])
def test_watchdog_failures_close_the_device(board, setup, message):
    child, state = board
    setup(state)
    assert run(child, 'test watchdog', timeout=20) == b'\r\n@' + message + FAIL
    assert watchdog_descriptors(state) == (1, 1)
