"""Common services failing under the commands that use them: the MII socket
and register read behind the chip check, an empty shell capture behind the
clearing's wait for the recorder."""
import pytest

pytestmark = pytest.mark.needs_cli


@pytest.mark.parametrize('target, message', [
    ('socket.1', b'open socket failed! [Input/output error]'),
    ('ioctl.eth1.0x8948', b'failed read mdio [0x1:0x0]Input/output error'),
])
def test_phy_access_failing(board, target, message):
    board.fail(target)
    frame = board.command('test chipcheck netboard', timeout=30)
    assert frame.result == 'fail' and message in frame.lines


def test_process_count_without_output(board):
    # No count reads as a recorder still running: the clearing waits and asks again.
    board.fail('exec.wc')
    board.send('clear information\r')
    board.expect('Are you sure?(Y/N)')
    board.send('y\r')
    board.expect(b'\r\nfgets error[ps | grep dbserver | grep -v grep | wc -l]\r\n')
    board.unfail('exec.wc')
    assert b'test result:' in board.expect_prompt(timeout=120)
    assert board.journal('exec', 'wc')[0].result == 1
