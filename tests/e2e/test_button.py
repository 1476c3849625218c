"""test reset button [time]: the verdicts from the key's state and the time
validator, which refuses before any request reaches the key."""
import pytest

pytestmark = pytest.mark.needs_cli


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
