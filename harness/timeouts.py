"""How long a harness waits for each command: the longest wait the tool
itself makes for it on the board's real clock, with a margin for a loaded
test PC. A command the table does not name gets DEFAULT."""
import re

DEFAULT = 10.0
MARGIN = 1.25
SLACK = 5.0
BAUD = 9600


def serial_loopback(count, baud):
    # Each packet: the sleep that lets it arrive, (15060000 / baud + 100) ms;
    # a packet that never comes costs the 5 s select.
    return count * (15060000 // baud + 100) / 1000 + 5


# (command pattern, what the tool waits, seconds from the match and the baud rate)
TABLE = [
    (r'test rs 232 loopback \d+ (?P<n>\d+)', 'packets x (15060000 / baud + 100) ms, + 5 s',
     lambda m, baud: serial_loopback(int(m['n']), baud)),
    (r'test 485 \S+ \S+ loopback \d+ (?P<n>\d+)', 'packets x (15060000 / baud + 100) ms, + 5 s',
     lambda m, baud: serial_loopback(int(m['n']), baud)),
    (r'ping -c (?P<n>\d+)', 'link: 3 queries 1 s apart; ping: 1 s a packet, 10 s for a reply',
     lambda m, baud: 3 + int(m['n']) + 10),
    (r'test ethernet all link copper', '5 queries 1 s apart on each of 20 ports', lambda m, baud: 100),
    (r'test ethernet \S+ link', '5 queries 1 s apart a port (2 fiber ports)', lambda m, baud: 10),
    (r'test watchdog', 'armed, then 5 s', lambda m, baud: 5),
    (r'test nvrgps get satellite', '1 s, then 5 reads 1 s apart', lambda m, baud: 6),
    (r'test nvrgps get gpstime', '1 s, then 20 reads 0.25 s apart', lambda m, baud: 6),
    (r'test powerkey button(?: (?P<n>\d+))?', 'a poll a second, 15 by default',
     lambda m, baud: int(m['n'] or 15) % 256),
    (r'test reset button', "the driver's wait for the press", lambda m, baud: 30),
    (r'test chipcheck', 'a reset and 5 s to settle, 4 tries; the GPS chip 3 s',
     lambda m, baud: 30),
    (r'(download|upload) (manuinfo|logo)|check logo|test x4tox2|test x2tox4',
     "tftp's own retries, then unpacking", lambda m, baud: 60),
    (r'test hdd \S+ \S+ (?P<n>\d+)', 'sectors read, written, read, restored with fsync, 4 slots',
     lambda m, baud: 4 * int(m['n']) * 0.1),
    (r'test esata sector(?: (?P<n>\d+))?', 'sectors written and read with fsync',
     lambda m, baud: int(m['n'] or 1) * 0.1),
    (r'test usb access', '2 s, then mount, write, read, unmount on each port', lambda m, baud: 30),
    (r'clear information', 'the wipe, four mkfs.ext4, the eMMC and the disks',
     lambda m, baud: 600),
    (r'test software update', 'the one-step upgrade', lambda m, baud: 600),
]
COMPILED = [(re.compile(pattern), wait) for pattern, _, wait in TABLE]


def default_timeout(command, baud=BAUD):
    """Seconds to wait for `command`'s prompt; baud is the serial rate the
    tool was last set to (its loopbacks take longer at 9600)."""
    line = ' '.join(command.split())
    for pattern, wait in COMPILED:
        match = pattern.match(line)
        if match:
            return max(DEFAULT, wait(match, baud) * MARGIN + SLACK)
    return DEFAULT
