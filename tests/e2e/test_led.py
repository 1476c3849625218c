"""test led on / off: the LED worker's flash cycle and the all-off sequence,
as the GPIO journal shows them."""
import time

import pytest

pytestmark = pytest.mark.needs_cli

CYCLE = [(b, 1) for b in (22, 24, 26, 28, 23, 25, 27, 29)] + \
        [(b, 0) for b in (22, 24, 26, 28)] + [(b, 1) for b in (22, 24, 26, 28)] + \
        [(b, 0) for b in (23, 25, 27, 29)]
ALL_OFF = [(b, 1) for b in (23, 25, 27, 29, 22, 24, 26, 28)]
GPIO_SET = 0x40610


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


def test_a_failed_cycle_ends_the_worker_for_good(board):
    board.fail(f'ioctl./dev/hal_gpio.{GPIO_SET:#x}')
    assert board.command('test led on').passed
    board.expect(b'\r\nsomething wrong with led thread!')
    board.unfail(f'ioctl./dev/hal_gpio.{GPIO_SET:#x}')
    mark = board.mark()
    assert board.command('test led on').passed
    assert board.command('test led off').passed   # no worker left to wait for
    assert led_writes(board, mark) == ALL_OFF
    board.fail(f'ioctl./dev/hal_gpio.{GPIO_SET:#x}', times=1)  # the odd set's first LED
    assert board.command('test led off').result == 'fail'
