"""The pauses the tool must make, seen in the journal's times (the box's
clock, stamped as each call began), and serial lines that deliver a packet
no faster than their rate.

Both are measured on the real clock: on the fast one a few milliseconds of
scheduling on a loaded machine are a tenth of a one-second pause."""
import re

import pytest

pytestmark = pytest.mark.needs_cli

LINK = ('drv', 'DRV_PerpCtl', 0x1605)
GPS_OPEN = ('open', '/dev/ttyS9', None)
GPS_FLUSH = ('ioctl', '/dev/ttyS9', 0x540b)
GPS_READ = ('read', '/dev/ttyS9', None)

# command, state words, its pauses: (first call, its index), (second call, its index), seconds
WAITS = [
    ('test ethernet 2 link copper', {'link/2': 'down after=1'}, [((LINK, 0), (LINK, 1), 1.0)]),
    ('ping -c 1 192.168.1.1', {'link/1': 'down after=1'}, [((LINK, 0), (LINK, 1), 1.0)]),
    ('test watchdog', {}, [((('ioctl', '/dev/hal_watchdog', 0x70108), 0),
                            (('open', '/proc/watchdog_status', None), 0), 5.0)]),
    ('test rs 232 loopback 255 1 0 0', {}, [((('write', '/dev/ttyS0', None), 0),
                                             (('read', '/dev/ttyS0', None), 0),
                                             15060000 // 9600 / 1000 + 0.1)]),
    ('test nvrgps get satellite 0', {}, [((GPS_OPEN, 0), (GPS_FLUSH, 0), 1.0),
                                         ((GPS_FLUSH, 0), (GPS_READ, 0), 1.0)]),
    ('test nvrgps get gpstime', {}, [((GPS_OPEN, 0), (GPS_FLUSH, 0), 1.0),
                                     ((GPS_FLUSH, 0), (GPS_READ, 0), 0.25)]),
]


def stamp(entry):
    return float(re.search(r' at=([0-9.]+)$', entry.line).group(1))


def test_mandated_pauses_last_their_length(box_factory):
    board = box_factory().start()
    board.enter_equipment()
    seen = []
    for command, words, pauses in WAITS:
        for rel, text in words.items():
            board.remove(rel + '.count')
            board.write(rel, text)
        since = board.mark()
        assert board.command(command, timeout=30).passed, command
        for (first, i), (second, j), seconds in pauses:
            start = board.journal(*first, since=since)[i]
            end = board.journal(*second, since=since)[j]
            seen.append((command, round((stamp(end) - stamp(start)) / seconds, 3)))
    assert all(1.0 <= ratio <= 1.1 for _, ratio in seen), seen


@pytest.mark.parametrize('fast', [False, True])
def test_a_long_packet_needs_the_whole_wait(box_factory, fast):
    # 255 bytes of payload: the last of the packet's 261 bytes arrives 2600
    # bits after the first, which wakes the tool; it then waits 1.668 s at
    # 9600 baud. On the real clock the wire takes 0.95 of that: the tool's
    # wait passes, one 10% shorter would miss the last bytes; at 1.05 of it
    # the packet is cut short. The fast clock (its jitter 20 times larger)
    # shows the wire keeps to the box's time.
    wait = 15060000 // 9600 / 1000 + 0.1
    quick, slow = (1.05, 0.95) if not fast else (1.25, 0.8)
    board = box_factory(fast=fast).start()
    board.enter_equipment()
    board.write('serial/ttyS0', f'loopback rate={int(2600 / wait * quick)}')
    assert board.command('test rs 232 loopback 255 1 0 0', timeout=30).passed
    board.write('serial/ttyS0', f'loopback rate={int(2600 / wait * slow)}')
    frame = board.command('test rs 232 loopback 255 1 0 0', timeout=30)
    got = re.fullmatch(rb'error: recieve No\.0 packet failed, txlen = 261 rxlen = (\d+)',
                       frame.body)
    assert got and int(got.group(1)) < 261, frame.body
