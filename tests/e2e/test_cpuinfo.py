"""test cpu info, which no board's table lists: through the engine in the
box, on the board's /proc/cpuinfo."""
import pytest

from boardbox import build_dir, parse_frame

pytestmark = pytest.mark.needs_cli


def test_cpu_type_from_the_hardware_line(box_run):
    engine = build_dir() / 'tests/engine_lines'
    status, out = box_run('/bin/sh', '-c', f'{engine} "test cpu info"; ls /tmp; '
                          'grep -v Hardware /proc/cpuinfo > /tmp/c; cat /tmp/c > /proc/cpuinfo; '
                          f'{engine} "test cpu info"')
    assert status == 0
    first, second = (parse_frame(f + b'$$') for f in out.split(b'$$')[:2])
    fixed = b'\nCPU frequency    : 2.2GHZ\r\nCPU cores        : 4\r\n'
    assert (first.result, first.body) == ('pass', b'CPU type         : PLM7140' + fixed)
    assert (second.result, second.body) == ('pass', b'CPU type         :(null)' + fixed[1:])
    assert b'cpuinfo_value' not in out
