"""Serial ports and the GPS receiver over the box's pseudo-terminals: the
loopback plug on ttyS0, the null-modem cable between ttyS6 and ttyS1, a
remote RS-485 master, the NMEA feeder on ttyS9."""
import re
import resource

import pytest

from boardbox import build_dir

pytestmark = pytest.mark.needs_cli


def opens_and_closes(box, tty):
    return (len([e for e in box.journal('open', tty) if e.result >= 0]),
            len(box.journal('close', tty)))


def test_loopbacks_pass_at_the_rate_set(board):
    for kind in (258, 257, 255, 256, 7):
        assert board.command(f'test rs 232 loopback 64 3 {kind} 0', timeout=30).passed
    assert board.command('test 485 0 1 loopback 16 1 258', timeout=30).passed
    assert board.command('test 485 0 set rate 115200').passed
    assert board.command('test 485 1 0 loopback 255 2 256', timeout=30).passed
    sets = board.journal('ioctl', request=0x5402)
    assert [(e.name, e['speed']) for e in sets[-2:]] == [('/dev/ttyS1', '115200'),
                                                         ('/dev/ttyS6', '115200')]
    assert {(e['cflag'], e['oflag'], e['lflag'], e['vmin'], e['vtime']) for e in sets} == {
        ('0x8bd', '0x0', '0x0', '1', '1'), ('0x18b2', '0x0', '0x0', '1', '1')}
    opened = board.journal('open', '/dev/ttyS0')
    assert opened[0]['flags'] == 'O_RDWR|O_NOCTTY|O_NONBLOCK'
    assert opens_and_closes(board, '/dev/ttyS0') == (5, 5)
    assert opens_and_closes(board, '/dev/ttyS6') == (2, 2)


@pytest.mark.parametrize('line, words, message', [
    ('ttyS0', 'loopback pulled', b'No data within five seconds'),
    ('ttyS0', 'loopback delay_ms=8000', b'No data within five seconds'),
    ('ttyS0', 'loopback drop=9', b'error: recieve No.0 packet failed, txlen = 22 rxlen = 21'),
    ('ttyS0', 'loopback corrupt=3',
     b'error: No.0 packet syn info error[0xff, 0xff, 0xff, 0xfe]'),
    ('ttyS0', 'loopback corrupt=4', b'error: No.0 packet pkt len error, tx 16, rx 17'),
    ('ttyS0', 'loopback corrupt=5', b'error: No.0 packet pkt num error, tx 2, rx 3'),
    ('ttyS0', 'loopback corrupt=10',
     b'error: No.0 packet pkt content error:tx[4] = 2, rx[4] = 3'),
    ('ttyS6', 'cable=ttyS1 pulled', b'No data within five seconds'),
])
def test_transfer_faults(board, line, words, message):
    board.write(f'serial/{line}', words)
    command = 'test rs 232 loopback 16 2 2 0' if line == 'ttyS0' else \
        'test 485 0 1 loopback 16 2 2'
    frame = board.command(command, timeout=30)
    assert (frame.result, frame.body) == ('fail', message)
    # The RS-232 port is closed; a failed RS-485 pair stays held open.
    assert opens_and_closes(board, '/dev/ttyS0') == ((1, 1) if line == 'ttyS0' else (0, 0))
    assert opens_and_closes(board, '/dev/ttyS1') == ((0, 0) if line == 'ttyS0' else (1, 0))


@pytest.mark.parametrize('target, message, closes', [
    ('open./dev/ttyS0', b"can't open the device:/dev/ttyS0!\n", 0),
    ('ioctl./dev/ttyS0.0x5401', b'Failed to get serial port attributes', 1),
    ('ioctl./dev/ttyS0.0x5402', b'setup /dev/ttyS0 error!', 1),
    ('write./dev/ttyS0', b'error: send No.0 packet failed', 1),
])
def test_port_setup_failures(board, target, message, closes):
    board.fail(target)
    frame = board.command('test rs 232 loopback 16 1 0 0')
    assert (frame.result, frame.body) == ('fail', message)
    assert len(board.journal('close', '/dev/ttyS0')) == closes


def test_refused_input(board):
    refusals = {
        'test 485 0 0 loopback 10 1 0': b'RS485 serial loopback port should be different',
        'test 485 0 2 loopback 10 1 0':
            b'invalid RS485 port_tx num 0, port_rx num 0, should small than 2',
        'test rs 232 loopback 16 1 0 1': b'invalid RS232 port num 1 should small than 1',
        'test rs 232 set rate 9600 1': b'invalid RS232 port num 1 should be less than 1',
        'test 485 2 set rate 9600': b'invalid RS485 port num 2 should small than 2',
        # A negative port is refused, not taken for port 0.
        'test rs 232 loopback 16 1 0 -1': b'invalid RS232 port num -1 should small than 1',
        'test 485 -1 0 loopback 10 1 0':
            b'invalid RS485 port_tx num -1, port_rx num -1, should small than 2',
        # The engine takes a signed number for a port; the handlers do not.
        'test rs 232 set rate 9600 -1': b'rs232 port should be 0',
        'test 485 -1 set rate 9600': b'rs485 port should be 0~1',
    }
    for command, message in refusals.items():
        frame = board.command(command)
        assert (frame.result, frame.body_raw) == ('fail', b'\r\n' + message), command
    for command, message in {
        'test rs 232 set rate 38400 0': b'the BaudRate you input should be 9600 or 115200',
        'test rs 232 loopback 0 1 0 0': b'the uiPktLength you input should between 1 and 255',
        'test rs 232 loopback 16 256 0 0': b'the uiPktNum you input should between 1 and 255',
        'test rs 232 loopback 16 1 259 0':
            b'the uiPktContent you input should between 0 and 258',
        'test nvrgps get satellite 1': b'the satellite port only support 0',
        'test nvrgps get satellite -1': b'the satellite port only support 0',
        'test nvrgps set rate -5': b'Envalid BaudRate',
    }.items():
        assert message in board.line(command), command
    assert board.journal('open', '/dev/ttyS0') == []


def test_a_session_that_leaks_ports_past_an_fd_set(box_factory):
    # Each failed RS-485 loopback keeps its pair open; once the receiving
    # descriptor no longer fits an fd_set the wait fails instead of writing
    # past the set. The box inherits our descriptor limit: room above 1024.
    board = box_factory(fast=True)
    board.seed('serial')
    board.write('serial/ttyS6', 'cable=ttyS1 corrupt=3')
    limits = resource.getrlimit(resource.RLIMIT_NOFILE)
    if 0 <= limits[1] < 2048:
        pytest.skip('the descriptor limit leaves no room past an fd_set')
    resource.setrlimit(resource.RLIMIT_NOFILE, (max(limits[0], 2048), limits[1]))
    try:
        board.start().enter_equipment()
    finally:
        resource.setrlimit(resource.RLIMIT_NOFILE, limits)
    assert board.command('test 485 0 set rate 115200').passed
    board.child.delaybeforesend = None
    for _ in range(600):
        frame = board.command('test 485 0 1 loopback 1 1 0')
        if frame.body != b'error: No.0 packet syn info error[0xff, 0xff, 0xff, 0xfe]':
            break
    assert (frame.result, frame.body) == ('fail', b'select error')
    assert board.journal('open', '/dev/ttyS1')[-1].result >= 1024


def test_gps_satellites_and_time_from_the_stream(board):
    assert board.command('test nvrgps get satellite 0', timeout=30).body == \
        b'Satellite Num: 18\n'
    assert board.command('test nvrgps get gpstime', timeout=30).body == \
        b'Gpstime:08:15:30 2024-05-01'
    assert [e.request for e in board.journal(name='/dev/ttyS9') if e.kind == 'ioctl'] == \
        [0x540b, 0x540b]
    assert opens_and_closes(board, '/dev/ttyS9') == (2, 2)


def test_gps_streams_without_answers(board):
    board.write('gps/nmea', 'GPGSV,1,1,,\nBDGSV,1,1,123,\nGNZDA,081530.00,01,05,24,00,00\n')
    frame = board.command('test nvrgps get satellite 0', timeout=60)
    assert (frame.result, frame.body) == (
        'fail', b'\r\n'.join([b'Envalid GSV msg!'] * 5 + [b'get Satellite Num failed!\n']))
    frame = board.command('test nvrgps get gpstime', timeout=120)
    assert frame.body == b'\r\n'.join([b'Envalid ZDA msg!\r\nTry to get gps time again'] * 20 +
                                      [b'Get gps time failed'])
    # A UART at another rate than the receiver's reads garbage.
    board.write('gps/nmea', 'GPGSV,1,1,04,\n')
    assert board.command('test nvrgps set rate 115200').passed
    assert board.journal('drv', 'DRV_GPS_SetBaudRate')[-1]['baud'] == '115200'
    assert board.command('test nvrgps get satellite 0', timeout=60).result == 'fail'


def test_gps_port_failures_and_the_flush_leak(board):
    board.fail('open./dev/ttyS9')
    assert board.command('test nvrgps get gpstime').body == b'Open gps (/dev/ttyS9) failed'
    board.unfail('open./dev/ttyS9')
    board.fail('ioctl./dev/ttyS9.0x540b')
    frame = board.command('test nvrgps get satellite 0', timeout=30)
    assert (frame.result, frame.body) == ('fail', b'ioctl TCFLSH 0 failed')
    assert opens_and_closes(board, '/dev/ttyS9') == (1, 0)
    board.unfail('ioctl./dev/ttyS9.0x540b')
    board.write('serial/ttyS9', 'gps silent vtime=5')
    board.settle(1.5)  # the receiver sets its line at its next once-a-second tick
    frame = board.command('test nvrgps get satellite 0', timeout=30)
    assert frame.result == 'fail' and frame.body.startswith(b'Read GPS msg fail. fd(')
    assert opens_and_closes(board, '/dev/ttyS9') == (2, 1)


def test_silent_receiver_holds_the_tool_until_ended_from_outside(board):
    board.write('serial/ttyS9', 'gps silent')
    board.send('test nvrgps get satellite 0\r')
    assert b'$$' not in board.settle(2.0)
    board.kill()
    assert board.wait(10) != 0


# The master compares each echo with what it sent: one that reached the
# slave changed comes back changed.
@pytest.mark.parametrize('words, echoed', [('', 0), (' corrupt=8', -1)])
def test_slave_echoes_a_remote_master_and_stops_on_a_rate(box_factory, words, echoed):
    box = box_factory(fast=True, run=[str(build_dir() / 'tests/serial_slave'), '6', '60'])
    box.write('serial/ttyS6', 'master every_ms=300 len=64' + words)
    box.start()
    status = box.wait(30)
    out = box.child.before
    assert status == 0
    assert b'slave has already been enable' in out and b'stopped in' in out
    echoes = box.journal('serial', '/dev/ttyS6')
    assert echoes and all(e.result == echoed and e['len'] == '70' for e in echoes)
    assert opens_and_closes(box, '/dev/ttyS6') == (1, 1)


def test_cable_between_two_rates_garbles(box_run):
    # Line 1's end at 9600, then at 115200, line 6's at 9600.
    sent = b'cable test 0123456789'
    script = ('for r in 9600 115200; do stty -F /dev/ttyS6 raw -echo 9600; '
              'stty -F /dev/ttyS1 raw -echo $r; (sleep 0.3; printf "%s" > /dev/ttyS6) & '
              'echo "[$(timeout 5 dd if=/dev/ttyS1 bs=1 count=%d 2>/dev/null | od -An -tx1 | '
              'tr -d \' \\n\')]"; wait; done') % (sent.decode(), len(sent))
    status, out = box_run('/bin/sh', '-c', script, fast=True)
    same, other = (bytes.fromhex(h.decode()) for h in re.findall(rb'\[([0-9a-f]*)\]', out))
    assert status == 0 and same == sent
    assert len(other) == len(sent) and other != sent
