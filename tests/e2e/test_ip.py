"""Server and device addresses on the box's real interfaces: port 0 is eth1,
any other port eth0; what ifconfig gives for a port the board lacks."""
import pytest

from boardbox import build_dir

pytestmark = pytest.mark.needs_cli


def then_show(*shell):
    """cli in the box, then shell commands once it has quit."""
    return ['/bin/sh', '-c', f'{build_dir()}/cli -d; ' + '; '.join(shell)]


@pytest.mark.parametrize('board_id', [0x44130109, 0x44130222])
def test_device_addresses_reach_the_interfaces(box_factory, board_id):
    board = box_factory(fast=True, board_id=board_id, run=then_show('ip -o -4 addr')).start()
    board.enter_equipment()
    assert board.command('set deviceip 192.168.1.50 7').body == \
        b'deviceip port 1 set is:192.168.1.50'
    assert board.command('set deviceip 192.168.2.40').body == \
        b'deviceip port 0 set is:192.168.2.40'
    assert board.command('get deviceip').lines == [b'deviceip port 1 is 192.168.1.50',
                                                   b'deviceip port 0 is 192.168.2.40']
    # Reading takes the whole port number: 256 is not 0 here.
    for port, shown in (('0', b'0 is 192.168.2.40'), ('1', b'1 is 192.168.1.50'),
                        ('256', b'1 is 192.168.1.50')):
        assert board.command(f'get deviceip {port}').body == b'deviceip port ' + shown
    # ifconfig's own refusal is its business: the command passes.
    assert board.command('set deviceip 10..1.1 1').passed
    assert board.quit() == 0
    shown = board.child.before.decode()
    assert 'eth0    inet 192.168.1.50/24' in shown and 'eth1    inet 192.168.2.40/24' in shown


def test_address_check(board):
    refused = {
        '1.2.3.255': "ip address's fourth segment must be 1~254!",
        '0.1.2.3': "ip address's first segment must be 1~223!",
        '224.0.0.1': "ip address's first segment must be 1~223!",
        '1.256.3.4': "ip address's second segment must be 0~255!",
        '1.2.256.4': "ip address's third segment must be 0~255!",
        '1.2.3.4.5': 'a valid ip address must be four segments!',
        '1.2.3': "ip address's length must be 7~15 bits!",
        '.1.2.3.4': "ip address's first and last bits can't be .!",
        '1.2.x.4': "ip address's character must be 0~9\r\n ! ",
    }
    for address, message in refused.items():
        assert message.encode() in board.line(f'set serverip {address}'), address
    assert board.command('get serverip').body == b'you have not set the serverip'
    for address in ('1.2.3.4', '010.1.1.001', '192.168.0.254'):
        assert board.command(f'set serverip {address}').body == \
            f'serverip set is:{address}'.encode()


def test_a_port_the_board_lacks(box_factory):
    board = box_factory(fast=True)
    board.write('eth/eth0', 'cable')  # the board has eth0 only
    board.start().enter_equipment()
    frame = board.command('get deviceip')
    # ifconfig says why on its own error stream; the address comes out empty.
    assert frame.passed and frame.lines[-1] == b'deviceip port 0 is '
    assert b'eth1: error fetching interface information' in frame.body
