"""test edid PORT: the manufacturer of the monitor on each HDMI connector,
from real EDID blocks through the real hexdump."""
import subprocess

import pytest

pytestmark = pytest.mark.needs_cli


def test_monitor_makers_by_port(board):
    shown = [(p, board.command(f'test edid {p}')) for p in ('0', '1', 'x')]
    assert [(p, f.result, f.body) for p, f in shown] == [
        ('0', 'pass', b'HDMI Manufacturer Name: GSM'), ('1', 'pass', b'HDMI Manufacturer Name: DEL'),
        ('x', 'pass', b'HDMI Manufacturer Name: GSM')]
    assert len(board.journal('exec', 'modetest')) == 3
    assert board.command('test edid 2').lines[0] == \
        b'VGA\xa3\xba0,HDMI0\xa3\xba1,HDMI0\xa3\xba2 , please check you input'
    for connector, maker in ((1, 'DEL'), (2, 'GSM')):
        edid = board.path(f'sys/class/drm/card0/card0-HDMI-A-{connector}/edid')
        out = subprocess.run(['edid-decode', '--check', str(edid)], capture_output=True, text=True)
        assert out.returncode == 0 and f'Manufacturer: {maker}' in out.stdout, out.stdout


def test_no_monitor(box_factory):
    board = box_factory(fast=True)
    board.write('hdmi/1', 'none')  # unplugged: an empty EDID
    board.remove('hdmi/2')         # no such connector
    board.start().enter_equipment()
    frames = [board.command(f'test edid {port}') for port in ('0', '1')]
    assert [(f.result, f.lines[-1]) for f in frames] == [('fail', b'error: get edid failed')] * 2
    assert frames[0].lines[0].startswith(b'hexdump: /sys/class/drm/card0/card0-HDMI-A-2/edid')
