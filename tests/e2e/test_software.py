"""test software status|update|shutdown against the upgrade program and
poweroff stand-ins: the status file they leave, their failures."""
import pytest

pytestmark = pytest.mark.needs_cli


def test_update_and_status(board):
    frame = board.command('test software status')
    assert (frame.result, frame.lines) == ('fail', [])
    assert board.command('test software update').passed
    # "\n" alone before the status, and the line's newline dropped.
    assert board.command('test software status').text.startswith(
        b'\r\n@\nStatus: upgrade success\r\ntest result:pass')
    board.fail('exec.fullupgrade', ret=3)
    frame = board.command('test software update')
    assert (frame.result, frame.lines) == ('fail', [b'error: update all failed'])
    assert board.command('test software status').lines == [b'\nStatus: upgrade failed']
    assert [e.line for e in board.journal('exec', 'fullupgrade')] == \
        ['exec fullupgrade -> 0', 'exec fullupgrade -> 3']


def test_shutdown(board):
    assert board.command('test software shutdown').passed
    assert board.read('proc/sys/kernel/printk').split()[0] == '4'
    assert [e.line for e in board.journal('exec', 'poweroff')] == ['exec poweroff -> 0']
    board.fail('exec.poweroff')
    frame = board.command('test software shutdown')
    assert (frame.result, frame.lines) == ('fail', [b'error: shutdown failed'])
