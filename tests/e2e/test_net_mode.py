"""Port speed and duplex through the driver library: the records sent per
port group, a mode the driver answers out of range, failing requests."""
import pytest

pytestmark = pytest.mark.needs_cli


def modes(board, request, since=0):
    return [(e['group'], e.fields.get('mode'), e.result)
            for e in board.journal('drv', 'DRV_PerpCtl', request, since=since)]


@pytest.mark.parametrize('board_id', [0x44130109, 0x44130222])
def test_set_and_read_back(box_factory, board_id):
    board = box_factory(fast=True, board_id=board_id).start()
    board.enter_equipment()
    frame = board.command('set ethernet all status speed auto duplex auto')
    assert frame.passed and len(frame.lines) == 20
    assert modes(board, 0x1600) == [('1', '0', 0)] * 3 + [('2', '0', 0)] * 17
    mark = board.mark()
    assert board.command('set ethernet 4 status speed 100 duplex full').passed
    assert board.command('get ethernet all status').body == b'GE0 mode speed: auto\nduplex: auto'
    assert board.command('get ethernet 19 status').body == b'GE19 mode speed: 100\nduplex: full'
    assert modes(board, 0x1600, mark) == [('2', '7', 0)]
    assert modes(board, 0x1601, mark) == [('1', '0', 0), ('2', '7', 0)]
    # The validators refuse other words; nothing is sent.
    mark = board.mark()
    for command in ('set ethernet 1 status speed 50 duplex full',
                    'set ethernet 1 status speed 10 duplex none'):
        assert board.command(command).result is None
    assert board.journal('drv', since=mark) == []


def test_driver_answers_and_failures(board):
    board.write('portmode/1', '12')
    frame = board.command('get ethernet 0 status')
    assert (frame.result, frame.lines) == ('fail', [
        b'Error:GE0 get Mode error', b'Error:GE0 get Mode error',
        b'GE0 mode speed: auto\nduplex: auto'])
    board.fail('DRV_PerpCtl.0x1601')
    assert board.command('get ethernet 3 status').lines == [b'Error:GE3 get Mode error']
    board.fail('DRV_PerpCtl.0x1600', skip=1, times=1)
    frame = board.command('set ethernet all status speed 10 duplex half')
    assert (frame.result, frame.lines[:3]) == ('fail', [
        b'GE0 mode speed: 10\nduplex: half', b'Error:GE1 set Mode error',
        b'GE1 mode speed: 10\nduplex: half'])
    assert board.read('portmode/2') == '5\n'
