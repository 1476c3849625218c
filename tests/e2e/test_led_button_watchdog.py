"""The LED, reset-key and watchdog commands typed at the tool in the box: the
LED worker's cycle and "led off" as the GPIO journal shows them, the reset
key's verdicts and time validator, and the watchdog test with the status the
watchdog driver reports. The box runs time fast, so the flash cycle and the
watchdog's five seconds are short.
"""
import time

import pytest

pytestmark = pytest.mark.needs_cli

CYCLE = [(b, 1) for b in (22, 24, 26, 28, 23, 25, 27, 29)] + \
        [(b, 0) for b in (22, 24, 26, 28)] + [(b, 1) for b in (22, 24, 26, 28)] + \
        [(b, 0) for b in (23, 25, 27, 29)]
ALL_OFF = [(b, 1) for b in (23, 25, 27, 29, 22, 24, 26, 28)]
GPIO_SET = 0x40610


@pytest.fixture
def board(box_factory):
    """The tool in equipment mode on a fast board."""
    box = box_factory(fast=True).start()
    box.enter_equipment()
    return box


def led_writes(box, since=0):
    return [(int(e['bit']), int(e['value']))
            for e in box.journal('ioctl', '/dev/hal_gpio', GPIO_SET, since) if e['group'] == '3']


def test_led_cycle_then_off_leaves_all_off(board):
    start = time.monotonic()
    assert board.command('test led off').passed   # never flashed: at once
    assert time.monotonic() - start < 1
    assert led_writes(board) == ALL_OFF
    mark = board.mark()
    assert board.command('test led on').passed
    deadline = time.monotonic() + 10
    while len(led_writes(board, mark)) < 2 * len(CYCLE) and time.monotonic() < deadline:
        time.sleep(0.02)
    assert board.command('test led off').passed
    writes = led_writes(board, mark)
    assert writes[-8:] == ALL_OFF
    assert len(writes) >= 2 * len(CYCLE) + 8
    assert writes[:-8] == CYCLE * ((len(writes) - 8) // len(CYCLE))
    assert all(board.read(f'gpio/3.{bit}') == '1\n' for bit in range(22, 30))


def test_reset_key_verdicts_and_time_validator(board):
    assert board.command('test reset button').passed
    assert board.command('test reset button 255').passed
    board.write('keys/reset', 'released')
    frame = board.command('test reset button 1')
    assert (frame.result, frame.body) == ('fail', b"error: reset button isn't pressed")
    keys = board.journal('ioctl', '/dev/hal_gpio', 0x40636)
    assert [(e['arg'], e.result) for e in keys] == [('15', 0), ('15', 0), ('15', -1)]
    for bad in ('0', '256', '-5', '18446744073709551617'):
        frame = board.command(f'test reset button {bad}')
        assert frame.result is None
        assert frame.text.startswith(b'\r\ntime can only be 1~255s, please check')
    assert len(board.journal('ioctl', '/dev/hal_gpio', 0x40636)) == 3


def watchdog_status(box, timeout):
    """The driver's status file with the given timeout (armed: time left = timeout)."""
    box.write('proc/watchdog_status', ''.join('%-12s: %-12s\n' % kv for kv in (
        ('name', 'hal_wdt'), ('mode', 0), ('timeleft', 0), ('timeout', timeout))))


def watchdog_descriptors(box):
    """(opened, closed) counts of /dev/hal_watchdog."""
    return (len([e for e in box.journal('open', '/dev/hal_watchdog') if e.result >= 0]),
            len(box.journal('close', '/dev/hal_watchdog')))


def test_watchdog_passes_and_stays_armed(board):
    frame = board.command('test watchdog', timeout=20)
    assert (frame.result, frame.body) == ('pass', b'')
    arm = board.journal('ioctl', '/dev/hal_watchdog', 0x70108)
    assert [(e['mode'], e['rest'], e.result) for e in arm] == [('1', '00,' * 7 + '00', 0)]
    assert [e['bytes'] for e in board.journal('drv', 'DRV_PerpCtl', 0x1628)] == ['00,07,ff']
    assert watchdog_descriptors(board) == (1, 0)


@pytest.mark.parametrize('setup, message', [
    (lambda box: watchdog_status(box, 0), b'Failed to test watchdog'),
    (lambda box: watchdog_status(box, 1), b'Failed to test watchdog'),
    (lambda box: box.fail('ioctl./dev/hal_watchdog.0x70108'), b'Failed to test watchdog'),
    (lambda box: box.fail('DRV_PerpCtl.0x1628'), b''),
])
def test_watchdog_failures_close_the_device(board, setup, message):
    setup(board)
    frame = board.command('test watchdog', timeout=20)
    assert (frame.result, frame.body) == ('fail', message)
    assert watchdog_descriptors(board) == (1, 1)
