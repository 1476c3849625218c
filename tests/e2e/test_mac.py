"""MAC addresses set on the box's real interfaces through the socket request
and stored in nvram; an interface that refuses an address stops the command
there."""
import pytest

from boardbox import build_dir

pytestmark = pytest.mark.needs_cli


def macs_after_quit(board):
    assert board.quit() == 0
    return [line.split('link/ether ')[1].split()[0]
            for line in board.child.before.decode().splitlines() if 'link/ether' in line]


def test_addresses_carry_and_land_everywhere(box_factory):
    board = box_factory(fast=True, run=['/bin/sh', '-c', f'{build_dir()}/cli -d; ip -o link'])
    board.start().enter_equipment()
    frame = board.command('test ethernet setmac 00:11:22:33:44:ff')
    assert frame.lines == [b'macaddress0 Set is:00:11:22:33:44:FF',
                           b'macaddress1 Set is:00:11:22:33:45:00']
    assert (board.read('nvram/ethaddr'), board.read('nvram/eth1addr')) == \
        ('00:11:22:33:44:ff\n', '00:11:22:33:45:00\n')
    assert board.command('test ethernet getmac').lines == [b'macaddress0 is:00:11:22:33:44:FF',
                                                           b'macaddress1 is:00:11:22:33:45:00']
    assert macs_after_quit(board) == ['00:11:22:33:44:ff', '00:11:22:33:45:00']


def test_refusals(board):
    for mac in ('0:11:22:33:44:55', '00-11-22-33-44-55', '00:11:22:33:44', '00:00:00:00:00:00',
                'ff:ff:ff:ff:ff:ff', '00:11:22:33:44:5g'):
        assert board.command(f'test ethernet setmac {mac}').result is None, mac
    # The kernel refuses a multicast address: at eth0 nothing is stored; at
    # eth1 (fe:ff:.. carries into ff:00:..) eth0 keeps its new address.
    frame = board.command('test ethernet setmac 01:00:5e:00:00:01')
    assert (frame.result, frame.body) == ('fail', b'eth0 ioctl failed')
    frame = board.command('test ethernet setmac fe:ff:ff:ff:ff:ff')
    assert frame.lines == [b'macaddress0 Set is:FE:FF:FF:FF:FF:FF', b'eth1 ioctl failed']
    assert [e['name'] for e in board.journal('ioctl', '/dev/hal_nvram', 0x40615)] == ['ethaddr']
    board.fail('socket.1')
    assert board.command('test ethernet setmac 00:11:22:33:44:55').body == b'open socket failed!'
    assert board.journal('socket', '1')[-1].errno == 'EIO'


def test_an_interface_the_board_lacks(box_factory):
    board = box_factory(fast=True)
    board.write('eth/eth0', 'cable')
    board.start().enter_equipment()
    frame = board.command('test ethernet getmac')
    assert (frame.result, frame.lines[0], frame.lines[-1]) == (
        'fail', b'macaddress0 is:00:11:22:33:44:55ifconfig: eth1: error fetching interface '
        b'information: Device not found\n', b'fgets error!')
    frame = board.command('test ethernet setmac 02:00:00:00:00:01')
    assert (frame.result, frame.lines[-1]) == ('fail', b'eth1 ioctl failed')
    assert board.read('nvram/eth1addr') == '00:11:22:33:44:56\n'
