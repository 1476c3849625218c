"""test watchdog: armed and left armed on a pass; every failure, from the
status the driver reports or from a request, closes the device."""
import pytest

pytestmark = pytest.mark.needs_cli


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
