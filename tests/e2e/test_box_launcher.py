"""The launcher and the fixtures: the program's end (status or signal) comes
out of the box, --state keeps the board across runs, --board-id and --fast
take effect, and a command's frame, the journal and fault injection read as
the tests expect."""
import signal
import time

import pytest

from boardbox import parse_frame, parse_journal_line


def test_status_and_state_pass_through(box_run, tmp_path):
    state = tmp_path / 'kept'
    status, _ = box_run('/bin/sh', '-c', 'echo one >> $BOARDSIM_STATE/runs; exit 3',
                        state=state, board_id='0x44130107')
    assert status == 3
    status, _ = box_run('/bin/sh', '-c', 'echo two >> $BOARDSIM_STATE/runs', state=state)
    assert status == 0
    assert (state / 'runs').read_text() == 'one\ntwo\n'
    assert (state / 'board_id').read_text().strip() == '0x44130107'
    assert (state / 'nvram' / 'ethaddr').exists()


def test_fast_time_shortens_sleeps_of_children_too(box_run):
    # 20 s of sleeps; the bound is half of that, so a loaded machine's slow
    # box start cannot fail it, while an uncompressed sleep always does.
    started = time.monotonic()
    status, _ = box_run('/bin/sh', '-c', 'sleep 10; sh -c "sleep 10"', fast=True)
    assert status == 0
    assert time.monotonic() - started < 10


def test_a_signal_ends_the_program_not_just_the_launcher(box_factory):
    board = box_factory(run=['/bin/sh', '-c', 'trap "exit 7" TERM; echo ready; '
                             'while :; do sleep 0.05; done']).start()
    board.expect('ready')
    board.kill(signal.SIGTERM)
    assert board.wait() == 7
    # A signal that comes before the program runs waits for it.
    board = box_factory(run=['/bin/sleep', '30']).start()
    board.kill(signal.SIGHUP)
    assert board.wait() == -signal.SIGHUP


@pytest.mark.needs_cli
def test_frame_and_journal(box):
    box.enter_equipment()
    mark = box.mark()
    frame = box.command('test led off')
    assert frame.result == 'pass' and frame.lines == []
    assert box.journal(kind='ioctl', name='/dev/hal_gpio', request=0x40610, since=mark)
    assert box.command('no such command').result is None
    assert box.quit() == 0
    assert box.journal(kind='exec', name='sync')


@pytest.mark.needs_cli
def test_injected_fault(box_factory):
    board = box_factory()
    board.fail('DRV_Init', errno='EBUSY')
    board.start()
    assert board.wait() == 255
    init = board.journal(kind='drv', name='DRV_Init')
    assert (init[0]['arg'], init[0].result, init[0].errno) == ('200', -1, 'EBUSY')


def test_frame_and_journal_parsing():
    frame = parse_frame(b'\r\r\n@\r\r\nAlarm 0 input get : open\r\nx\r\r\n'
                        b'test result:fail\r\r\n$$\r\r\n')
    assert (frame.result, frame.lines) == ('fail', [b'Alarm 0 input get : open\nx'])
    entry = parse_journal_line('ioctl /dev/hal_nvram 0x40614 name="a b\\"c" value="" '
                               '-> -1 errno=EIO')
    assert (entry.kind, entry.name, entry.request) == ('ioctl', '/dev/hal_nvram', 0x40614)
    assert entry.fields == {'name': 'a b"c', 'value': ''}
    assert (entry.result, entry.errno) == (-1, 'EIO')
    entry = parse_journal_line('exec poweroff -f -> 1')
    assert (entry.kind, entry.name, entry.args, entry.result) == ('exec', 'poweroff', ['-f'], 1)
