"""test chipcheck mainboard|netboard: one line per chip instance, each chip
failing once from the board's state (no answer, wrong id, a register that
does not keep its value), and the PHY's registers as the tool left them."""
import shutil

import pytest

pytestmark = pytest.mark.needs_cli

MAIN = ['ATGM336H', 'LM75_A', 'LM75_B', 'JMB575', '8370MB_A', '8370MB_B', '8370MB_C', 'JL2101D']
NET = MAIN[2:]


def verdicts(names, bad=None):
    return [(b'%12s_%s' % tuple(n.encode().split(b'_')) if '_' in n else b'%14s' % n.encode())
            + (b'............error' if n == bad else b'............ok') for n in names]


def remove_dir(box, rel):
    shutil.rmtree(box.path(rel))


def test_healthy_boards(board):
    frame = board.command('test chipcheck mainboard', timeout=30)
    assert (frame.result, frame.lines) == ('pass', verdicts(MAIN))
    frame = board.command('test chipcheck netboard', timeout=30)
    assert (frame.result, frame.lines) == ('pass', verdicts(NET))
    # The PHY got the test value and then its own value back.
    mii = [(e.request, e['value']) for e in board.journal('ioctl', 'eth1')][:4]
    assert mii == [(0x8948, '0x1140'), (0x8949, '0x4140'), (0x8948, '0x4140'), (0x8949, '0x1140')]
    assert board.read('mdio/eth1/0x01/0x00') == '0x1140\n'
    i2c = [(e['bus'], e['addr']) for e in board.journal('ioctl', '/dev/hal_misc', 0x40608)]
    assert i2c == [('1', '0x48'), ('2', '0x48'), ('2', '0x48')]
    switches = [e['switch'] for e in board.journal('ioctl', '/dev/hal_switch', 0x40809)]
    assert switches == ['0', '1', '2'] * 2


@pytest.mark.parametrize('bad, setup, diagnostic', [
    ('ATGM336H', lambda b: b.write('gps/nmea', 'GNZDA,081530.00,01,05,2024,00,00'),
     b'Find String Fail [$GPTXT,01,01,01]'),
    ('ATGM336H', lambda b: b.fail('ioctl./dev/ttyS9.0x540b'), b'ioctl TCFLSH 0 failed'),
    ('LM75_B', lambda b: remove_dir(b, 'i2c/2'),
     b'Failed to read i2c device:48:0 No such device or address\n'),
    ('JMB575', lambda b: b.write('sata/0/0x00', '0x57400000'),
     b'\r\nFailed in EQU_ChipTestJMB575 at line 2024 product ID 0x57400000'),
    ('8370MB_B', lambda b: remove_dir(b, 'switch/1'),
     b'Failed to set Get SW Reg(2) value fail, errno(No such device)'),
    ('JL2101D', lambda b: b.write('mdio/eth1/0x01/0x00', '0x1140 stuck'),
     b'Failed ulVal = 0x1140 ulCheckValue = 0x4140'),
    ('JL2101D', lambda b: remove_dir(b, 'mdio/eth1/0x01'),
     b'Failed ulVal = 0xffff ulCheckValue = 0x4140'),
    ('JL2101D', lambda b: b.fail('ioctl.eth1.0x8949'),
     b'failed write mdio [0x1:0x0:0x4140]Input/output error'),
])
def test_each_chip_failing(board, bad, setup, diagnostic):
    setup(board)
    frame = board.command('test chipcheck mainboard', timeout=30)
    assert frame.result == 'fail'
    expected = verdicts(MAIN, bad)
    at = expected.index(verdicts([bad], bad)[0])
    assert frame.body == b'\r\n'.join(expected[:at] + [diagnostic] + expected[at:])


def test_jmb575_node_left_open_and_board_words(board):
    board.fail('ioctl./dev/hal_misc.0x40505')
    frame = board.command('test chipcheck netboard', timeout=30)
    assert frame.lines[1:4] == [b'', b'Failed in EQU_ChipTestJMB575 at line 2014 ', b'']
    assert frame.lines[4].startswith(b'Failed in EQU_ChipTestJMB575 at line 2024 product ID 0x')
    # LM75_B's read closes its descriptor, JMB575's stays open.
    assert (len(board.journal('open', '/dev/hal_misc')),
            len(board.journal('close', '/dev/hal_misc'))) == (2, 1)
    assert b'cmd can only be mainboard/netboard,please check' in \
        board.command('test chipcheck subboard').text
    assert board.command('test chipcheck resetline').result is None
