"""runtime: the first-use date and run time the driver keeps, reset, shown
and recorded; the driver's failures."""
import pytest

pytestmark = pytest.mark.needs_cli
SHOW = 'runtime _display device work-time'
RESET = 'runtime _reset device work-time'


def test_display_reset_and_record(board):
    board.write('runtime/first_use', '2024-03-05')
    board.write('runtime/total_used', 'days=12 hours=7')
    assert board.command(SHOW).body == (
        b'First used date                  : 2024-03-05\r\n'
        b'Accumulated runtime              : 12 day(s) 7 hour(s)')
    assert board.command(RESET).body == b''
    assert board.command(SHOW).body == (
        b'First used date                  : 0000-00-00\r\n'
        b'Accumulated runtime              : 0 day(s) 0 hour(s)')
    assert board.read('runtime/total_used') == 'days=0 hours=0\n'
    board.command('runtime _device work-time record')
    assert board.read('runtime/record') == 'on\n'
    board.command('runtime undo _device work-time record')
    assert board.read('runtime/record') == 'off\n'
    assert {e.request for e in board.journal('ioctl', '/dev/hal_runtime')} == set(
        range(0x30209, 0x3020F))
    assert len(board.journal('open', '/dev/hal_runtime')) == len(
        board.journal('close', '/dev/hal_runtime'))


def test_failures(board):
    # A driver that takes the reset but keeps its record fails it silently.
    board.write('runtime/first_use', '2024-03-05')
    board.fail('ioctl./dev/hal_runtime.0x3020a', ret=0, errno=0)
    assert board.command(RESET).body == b'' and board.command(RESET).result == 'fail'
    board.unfail('ioctl./dev/hal_runtime.0x3020a')
    board.fail('ioctl./dev/hal_runtime.0x3020c', ret=0, errno=0)  # the run time kept
    for kept in ('days=3 hours=0', 'days=0 hours=5'):
        board.write('runtime/total_used', kept)
        assert board.command(RESET).body == b'' and board.command(RESET).result == 'fail'
    board.fail('ioctl./dev/hal_runtime.0x3020b')
    assert board.command(SHOW).body == b'ioctl: set first time failed'
    board.fail('ioctl./dev/hal_runtime.0x3020d')
    assert board.command('runtime _device work-time record').body == (
        b'ioctl: set runtime status failed')
    board.fail('open./dev/hal_runtime')
    assert board.command(RESET).body == b'Open hal_runtime failed'
    assert board.command(SHOW).body == b'Open runtime failed'
