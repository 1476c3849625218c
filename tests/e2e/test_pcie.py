"""test pcie N|all status: the real lspci on the board's PCI devices; the
slot status, which no rule installs, through the engine in the box."""
import pytest

from boardbox import build_dir, parse_frame

pytestmark = pytest.mark.needs_cli


def link(width, speed):
    return b'pcie width: Width x%s\n\r\npcie speed: %sGT/s' % (width, speed)


@pytest.mark.parametrize('bus1, shown', [
    ('width=4 speed=2.5', link(b'4', b'2.5')),
    ('width=2 speed=5', link(b'2', b'5')),
    ('width=4 speed=8', link(b'4', b'8')),
    # lspci's longer line is read 39 characters at a time.
    ('width=2 speed=8 max_width=4', b'pcie width: Width x2 (downgr\r\npcie speed: 8GT/s'),
])
def test_a_number_reads_the_first_link(box_factory, bus1, shown):
    board = box_factory(fast=True)
    board.write('pcie/1', bus1)
    board.write('pcie/3', 'down')  # channel 2: never asked for
    board.start().enter_equipment()
    for port in ('2', '-7'):
        frame = board.command(f'test pcie {port} status')
        assert (frame.result, frame.body) == ('pass', shown)


def test_links_missing_down_or_without_status(box_factory):
    board = box_factory(fast=True)
    board.write('pcie/2', 'down')  # and no device on bus 1
    board.write('pcie/3', 'nocap')
    board.write('pcie/4', 'width=1 speed=5')
    board.start().enter_equipment()
    frame = board.command('test pcie all status')
    assert frame.result == 'fail'
    assert frame.lines == [
        b'CPU to RTL8111_A test:', b'error: the 0000:01:00.0 channel is NULL',
        b'EQU_PCIe_GetPCIeLinkStatus chipname = RTL8111_A',
        b'CPU to RTL8111_B test:', b'error: the 0000:02:00.0 channel is ERROR',
        b'EQU_PCIe_GetPCIeLinkStatus chipname = RTL8111_B',
        b'CPU to RTL8111_C test:', b'error: the 0000:03:00.0 channel is ERROR',
        b'EQU_PCIe_GetPCIeLinkStatus chipname = RTL8111_C',
        b'CPU to 88SE9215 test:', *link(b'1', b'5').split(b'\r\n')]
    frame = board.command('test pcie 0 status')
    assert frame.lines == [b'error: the 0000:01:00.0 channel is NULL', b"can't get the pcie status"]
    for port in ('4', 'abc'):
        assert board.command(f'test pcie {port} status').lines[0] == \
            b'net port number must be 0-3 or all'


def test_slot_status_from_configuration_space(box_factory):
    board = box_factory(fast=True, run=[str(build_dir() / 'tests/engine_lines'), 'test pcieslot 1',
                                        'test pcieslot 0', 'test pcieslot 2'])
    board.write('pcie/1', 'width=4 speed=5')
    board.write('pcie/3', 'nocap')
    board.start()
    assert board.wait() == 0
    frames = [parse_frame(f + b'$$') for f in board.child.before.split(b'$$')[:-1]]
    assert [(f.result, f.body) for f in frames] == [
        ('pass', b'PCIE_SWITCH to 8111A test:ok\r\npcie width: x4\r\npcie speed: 5.0 GT/s'),
        ('pass', b'PCIE_SWITCH to 9215 test:error\r\npcie width: x0\r\npcie speed: 0.0 GT/s'),
        ('fail', b'failed to slot  please  check 0-1')]


def test_slot_status_without_the_device(box_factory):
    board = box_factory(fast=True, run=[str(build_dir() / 'tests/engine_lines'), 'test pcieslot 0'])
    board.seed('pcie')
    board.remove('pcie/3')
    board.start()
    assert board.wait() == 0
    frame = parse_frame(board.child.before.split(b'$$')[0] + b'$$')
    assert (frame.result, frame.body) == (
        'fail', b'failed to open /sys/bus/pci/devices/0000:03:00.0/config')
