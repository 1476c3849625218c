"""test alarm get input N|all and test alarm set output WORD N|all: the
driver records, any word but "on" switching off, and the number of failed
ports as the verdict."""
import pytest

pytestmark = pytest.mark.needs_cli


def test_inputs(board):
    board.write('alarm/in.1', 'closed')
    frame = board.command('test alarm get input all')
    assert (frame.result, frame.lines) == ('pass', [b'Alarm 0 input get : open',
                                                    b'Alarm 1 input get : close'])
    board.remove('alarm/in.0')
    frame = board.command('test alarm get input all')
    assert (frame.result, frame.lines) == ('fail', [b'error:Alarm 0 input get failed',
                                                    b'Alarm 1 input get : close'])
    assert [e['input'] for e in board.journal('drv', 'DRV_PerpCtl', 0x1618)] == ['0', '1'] * 2
    for port in ('2', '-', '-0'):  # a port is digits alone
        assert b'Alarm input number must be 0-1 or all' in \
            board.command(f'test alarm get input {port}').text


def test_outputs(board):
    frame = board.command('test alarm set output on all')
    assert (frame.result, frame.lines) == ('pass', [b'Alarm 0 output set : on',
                                                    b'Alarm 1 output set : on'])
    frame = board.command('test alarm set output blink 1')
    assert (frame.result, frame.lines) == ('pass', [b'Alarm 1 output set : blink'])
    assert (board.read('alarm/out.0'), board.read('alarm/out.1')) == ('on\n', 'off\n')
    records = [(e['output'], e['state'], e['byte6'])
               for e in board.journal('drv', 'DRV_PerpCtl', 0x1619)]
    assert records == [('0', '1', '0'), ('1', '1', '0'), ('1', '0', '0')]
    board.fail('DRV_PerpCtl.0x1619', times=1)
    frame = board.command('test alarm set output off all')
    assert (frame.result, frame.lines) == ('fail', [b'error:Alarm 0 output set : off failed',
                                                    b'Alarm 1 output set : off'])
    for port in ('02x', '-0', '-'):
        assert b'Alarm output number must be 0-1 or all' in \
            board.command(f'test alarm set output on {port}').text
