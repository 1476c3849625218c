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


# (command pattern, the tool's longest wait in seconds from the match and the
# baud rate), first match wins; harness/README.md explains each row.
TABLE = [
    (r'test rs 232 loopback \d+ (?P<n>\d+)', lambda m, baud: serial_loopback(int(m['n']), baud)),
    (r'test 485 \S+ \S+ loopback \d+ (?P<n>\d+)',
     lambda m, baud: serial_loopback(int(m['n']), baud)),
    # The link: 3 queries 1 s apart; ping: a packet a second, 10 s for a reply.
    (r'ping -c (?P<n>\d+)', lambda m, baud: 3 + int(m['n']) + 10),
    # 5 queries 1 s apart a port: 20 copper ports, 2 fiber.
    (r'test ethernet all link copper', lambda m, baud: 100),
    (r'test ethernet \S+ link', lambda m, baud: 10),
    (r'test watchdog', lambda m, baud: 5),
    # 1 s, then 5 tries (the time: 20) of a pause (1 s; 0.25 s) and a read
    # that waits for the receiver's next burst, up to 1 s: a receiver
    # without a fix takes them all.
    (r'test nvrgps get satellite', lambda m, baud: 1 + 5 * (1 + 1)),
    (r'test nvrgps get gpstime', lambda m, baud: 1 + 20 * (0.25 + 1)),
    # A poll a second, 15 by default; the reset key: the driver's wait.
    (r'test powerkey button(?: (?P<n>\d+))?', lambda m, baud: int(m['n'] or 15) % 256),
    (r'test reset button', lambda m, baud: 30),
    # A chip reset and 5 s to settle, 4 tries.
    (r'test chipcheck', lambda m, baud: 30),
    # tftp's own retries, then unpacking.
    (r'(download|upload) (manuinfo|logo)|check logo|test x4tox2|test x2tox4', lambda m, baud: 60),
    # Each sector read, written, read back and restored with fsync; 4 slots.
    (r'test hdd \S+ \S+ (?P<n>\d+)', lambda m, baud: 4 * int(m['n']) * 0.1),
    (r'test esata sector(?: (?P<n>\d+))?', lambda m, baud: int(m['n'] or 1) * 0.1),
    # 2 s, then a mount, a write and a read on each port.
    (r'test usb access', lambda m, baud: 30),
    # Four mkfs.ext4, the eMMC, the disks; the one-step upgrade.
    (r'clear information', lambda m, baud: 600),
    (r'test software update', lambda m, baud: 600),
]
COMPILED = [(re.compile(pattern), wait) for pattern, wait in TABLE]


def default_timeout(command, baud=BAUD):
    """Seconds to wait for `command`'s prompt; baud is the serial rate the
    tool was last set to (its loopbacks take longer at 9600)."""
    line = ' '.join(command.split())
    for pattern, wait in COMPILED:
        match = pattern.match(line)
        if match:
            return max(DEFAULT, wait(match, baud) * MARGIN + SLACK)
    return DEFAULT
