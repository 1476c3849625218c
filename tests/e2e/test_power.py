"""test powers INDEX status: the supply's three flags, a supply that is not
there, an index other than 1 or 2."""
import pytest

pytestmark = pytest.mark.needs_cli


def test_power_supplies(board):
    board.write('power/2', 'present=1 work=0 fan=1')
    frame = board.command('test powers 2 status')
    assert (frame.result, frame.lines) == ('pass', [
        b'prnstatus:  present', b'fanstatus:  normal', b'workstatus: abnormal'])
    board.write('power/1', 'present=0 work=0 fan=0')
    frame = board.command('test powers 1 status')
    assert (frame.result, frame.lines) == ('pass', [
        b'prnstatus:  absent', b'fanstatus:  abnormal', b'workstatus: abnormal'])
    assert [e['index'] for e in board.journal('drv', 'DRV_PerpCtl', 0x1629)] == ['2', '1']
    board.remove('power/2')
    frame = board.command('test powers 2 status')
    assert (frame.result, frame.lines) == ('fail', [b'Get power status failed!'])
    frame = board.command('test powers 3 status')
    assert (frame.result, frame.lines) == ('fail', [b'error: index must be 1 or 2 ,please check!'])
    assert len(board.journal('drv', 'DRV_PerpCtl', 0x1629)) == 3
