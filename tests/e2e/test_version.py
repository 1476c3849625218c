"""display version: straps, PCB revision and the upgrade tool's versions."""
import pytest

pytestmark = pytest.mark.needs_cli


@pytest.mark.parametrize('board_id, straps, pcb, shown', [
    (0x44130109, (1, 0, 0, 1), (1, 0), b'1001\r\nPCB              : Ver.C'),
    (0x44130222, (0, 1, 1, 0), (0, 1), b'0110\r\nPCB              : Ver.B'),
    # Straps that read differently backwards: bit 7 prints first.
    (0x44130109, (1, 1, 0, 0), (0, 0), b'1100\r\nPCB              : Ver.A'),
])
def test_version_report(box_factory, board_id, straps, pcb, shown):
    board = box_factory(board_id=board_id, fast=True).start()
    for bit, level in zip((7, 8, 9, 10), straps):
        board.write(f'gpio/4.{bit}', f'{level}\n')
    board.write('gpio/4.12', f'{pcb[0]}\n')
    board.write('gpio/4.13', f'{pcb[1]}\n')
    board.enter_equipment()
    frame = board.command('display version mainboard')
    assert frame.result == 'pass'
    assert frame.body == (b'BOARD            : ' + shown +
                          b'\r\nAPP              : V5.2.0_build240101'
                          b'\r\nAPP_NEW          : V5.2.1_build240301')
    assert {board.read(f'gpio/4.{b}.mode') for b in (7, 8, 9, 10, 12, 13)} == {'0\n'}


def test_version_failures(board):
    assert b'cmd can only be mainboard,please check' in board.line('display version netboard')
    board.fail('ioctl./dev/hal_gpio.0x40611')
    # The straps of the board id take their mode, the PCB's do not.
    board.fail('ioctl./dev/hal_gpio.0x4061f', skip=4)
    board.fail('exec.update')
    frame = board.command('display version mainboard')
    assert frame.result == 'fail'
    assert frame.lines.count(b'set gpio mode failed, GpioIdx 4, BitIdx 12,  SetMode 0') == 1
    lines = [l for l in frame.body.split(b'\r\n')
             if not l.startswith((b'get gpio value failed', b'set gpio mode failed'))]
    assert lines == [b'BOARD            : error', b'Get Board ID failed', b'PCB              : error',
                     b'Get Board Version failed', b'APP              :', b'APP_NEW          :']
