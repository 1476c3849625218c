"""test mainboard|netboard temperature LOW HIGH and test heat SLOT ctrl on|off:
the sensor's reading against signed, inclusive limits; the heater lines
(written 0 for on) in the GPIO journal."""
import pytest

pytestmark = pytest.mark.needs_cli

HEADER = b'CHIP  LOW_LIMIT  CURRENT_TEMPERATURE HIGH_LIMIT  STATUS'


@pytest.mark.parametrize('board_name, chip, reading, low, high, status', [
    ('mainboard', 1, 35, -10, 60, 'normal'),
    ('netboard', 0, 40, 40, 40, 'normal'),          # equal limits, reading on both
    ('mainboard', 1, -20, -100, -21, 'abnormal'),   # signed, one below the high limit
    ('netboard', 0, -100, -100, 100, 'normal'),
    ('mainboard', 1, 101, -100, 100, 'abnormal'),
])
def test_reading_against_limits(board, board_name, chip, reading, low, high, status):
    board.write(f'temperature/{board_name}', str(reading))
    frame = board.command(f'test {board_name} temperature {low} {high}')
    line = b'%d%6d%11d%20d%17s' % (chip, low, reading, high, status.encode())
    assert frame.lines == [HEADER, line]
    assert frame.result == ('pass' if status == 'normal' else 'fail')


def test_limits_refused_and_sensor_failure(board):
    for limits in ('-101 0', '0 101'):
        frame = board.command(f'test mainboard temperature {limits}')
        assert frame.result is None
        assert b'the temperature value or format not support, should be -100 ~ 100' in frame.text
    frame = board.command('test mainboard temperature 10 9')
    assert frame.lines == [b'low temperature should smaller than high temperature']
    assert not board.journal('drv', 'DRV_PerpCtl', 0x160E)
    # A lone "-" and "-0" read as 0.
    board.write('temperature/mainboard', '1')
    assert board.command('test mainboard temperature - -0').lines == \
        [HEADER, b'%d%6d%11d%20d%17s' % (1, 0, 1, 0, b'abnormal')]
    board.fail('DRV_PerpCtl.0x163c')
    frame = board.command('test netboard temperature 0 50')
    assert (frame.result, frame.lines) == ('fail', [b'Failed to get netboard temperature'])


def heater_requests(box, since=0):
    return [(e.request, int(e['bit']), int(e.fields.get('mode', e.fields.get('value'))))
            for e in box.journal('ioctl', '/dev/hal_gpio', since=since) if e['group'] == '0']


def test_heaters_switch_inverted_lines(board):
    assert board.command('test heat all ctrl on').passed
    assert heater_requests(board) == [(0x4061F, 21, 1), (0x40610, 21, 0),
                                      (0x4061F, 22, 1), (0x40610, 22, 0)]
    assert board.command('test heat 1 ctrl off').passed
    assert (board.read('gpio/0.21'), board.read('gpio/0.22')) == ('0\n', '1\n')
    assert board.command('test heat - ctrl off').passed  # a lone "-" is slot 0
    assert (board.read('gpio/0.21'), board.read('gpio/0.22')) == ('1\n', '1\n')
    for slot, message in (('2', b'the Slot you input should be 0/1'),
                          ('both', b'the Slot you input should be all')):
        assert message in board.command(f'test heat {slot} ctrl on').text
    assert b'Cmd can only be on or off' in board.command('test heat 0 ctrl warm').text


def test_heater_failure_stops_at_slot_0(board):
    board.fail('ioctl./dev/hal_gpio.0x40610')
    mark = board.mark()
    frame = board.command('test heat all ctrl on')
    assert (frame.result, frame.lines) == ('fail', [
        b'set gpio value failed, GpioIdx 0, BitIdx 21,  Value 0',
        b'GpioControl failed, GpioIndex = 0, GpioBit = 21, HeatState = 0',
        b'error:set heat module [0] state fail!'])
    assert [bit for _, bit, _ in heater_requests(board, mark)] == [21, 21]
