"""clear information: nothing without a yes; with it the runtime wipe, the
eMMC and RAID partitions formatted for real, the recorder stopped, the data
partition emptied and unmounted, and exactly three areas of each disk
zeroed."""
import os
import subprocess

import pytest

from boardbox import build_dir, image_digest, undo_onlcr

pytestmark = [pytest.mark.needs_cli, pytest.mark.skipif(
    not os.access('/dev/fuse', os.R_OK | os.W_OK), reason='FUSE is not open to this user')]
MIDDLE = 0x2880000
# Files of the recorder; the recorder's database server, named so that no
# command line of this script matches "dbserver" itself.
SETUP = ('mkdir -p /var/runtime/cfg /var/runtime/mmc /var/log /var/logbackup; '
         'echo zone > /var/runtime/cfg/localtime; echo m > /var/runtime/mmc/keep; '
         'echo x > /var/runtime/other; echo l > /var/log/msg; ')
SERVER = 'cp /usr/bin/sleep /tmp/db""server; (/tmp/db""server 1000 &); '
# A keeper that names the server on its command line but is a shell by name:
# "ps | grep" finds it, killall never does.
KEEPER = '(sh -c "sleep 1000000; :" db""server-keeper &); '
AFTER = "; echo; echo ==; find /var/runtime /var/log /var/logbackup /var/fs_disk; ps | grep -c '[d]bserver'; true"


def clearing_box(box_factory, recorder=SERVER):
    board = box_factory(fast=True, timeout=30,
                        run=['/bin/sh', '-c', f'{SETUP}{recorder}{build_dir()}/cli -d{AFTER}'])
    board.attach_disk(0, 'sda', 32 << 30)
    with open(board.path('block/sda'), 'r+b') as disk:
        for s in [*range(0, 200), *range(MIDDLE - 8, MIDDLE + 136), *range(-200, 0)]:
            disk.seek(s * 512, os.SEEK_SET if s >= 0 else os.SEEK_END)
            disk.write(os.urandom(512))
    return board


def answer(board, keys):
    board.send('clear information\r')
    board.expect('Are you sure?(Y/N)')
    board.send(keys + '\r')
    return undo_onlcr(board.expect_prompt(timeout=60)).rstrip(b"\r")


def leave(board):
    board.send('quit\r')
    board.expect_prompt()
    board.send('quit\r')
    assert board.wait(30) == 0
    return board.child.before.split(b'==')[-1].split()


def test_anything_but_yes_changes_nothing(box_factory):
    board = clearing_box(box_factory).start()
    board.enter_equipment()
    before = image_digest(board.path('block/sda')), board.read('runtime/first_use')
    for keys in ('n', '', 'yes', 'Y\x7fn'):
        assert answer(board, keys).endswith(b'test result:pass\r\n$$')
    assert (image_digest(board.path('block/sda')), board.read('runtime/first_use')) == before
    assert not board.journal('drv', 'DRV_DevSupportHdPart')
    assert b'/var/runtime/other' in leave(board)


def zeroed(disk, first, count):
    disk.seek(first * 512, os.SEEK_SET if first >= 0 else os.SEEK_END)
    return disk.read(count * 512) == bytes(count * 512)


def test_yes_wipes_formats_and_stops_the_recorder(box_factory):
    board = clearing_box(box_factory)
    sda = board.path('block/sda')
    with open(sda, 'rb') as disk:
        kept = {s: os.pread(disk.fileno(), 512, s * 512) for s in (128, 199, MIDDLE - 1, MIDDLE + 128)}
    board.start().enter_equipment()
    out = answer(board, 'y')
    for line in (b'rm -rf /var/fs_disk/* success ', b'umount /var/fs_disk success ',
                 b'echo y|mkfs.ext4  /dev/md51 success ', b'Slot_0 format :pass\n',
                 b'Slot_1 format :fail\n', b'unable to FormatDisk !'):
        assert b'\r\n' + line in out
    assert out.endswith(b'test result:pass\r\n$$') and b'dbserver kill error' not in out
    # The 16 GB disk in slot 1 ends before the middle area: only its start is wiped.
    with open(sda, 'rb') as disk, open(board.path('block/sdb'), 'rb') as small:
        assert zeroed(disk, 0, 128) and zeroed(disk, MIDDLE, 128) and zeroed(disk, -128, 128)
        assert zeroed(small, 0, 128)
        assert all(os.pread(disk.fileno(), 512, s * 512) == data for s, data in kept.items())
    assert [e['slot'] for e in board.journal('drv', 'DRV_DiskCtl')] == ['0', '1']
    for image in ('mmc/mmcblk0p11', 'mmc/mmcblk0p12', 'md/md48', 'md/md51', 'data/fs_disk'):
        check = subprocess.run(['e2fsck', '-fn', str(board.path(image))], capture_output=True)
        assert check.returncode == 0, (image, check.stdout)
    listing = subprocess.run(['debugfs', '-R', 'ls', str(board.path('data/fs_disk'))],
                             capture_output=True, text=True).stdout.split()
    assert 'record' not in listing and '.fscheckfile' not in listing
    assert (board.read('runtime/first_use'), board.read('runtime/total_used')) == (
        '2000-00-00\n', 'days=0 hours=0\n')
    seen = leave(board)
    assert {b'/var/runtime/cfg/localtime', b'/var/runtime/mmc/keep'} <= set(seen)
    assert b'/var/runtime/other' not in seen and b'/var/log' not in seen
    assert seen[-1] == b'0'  # no database server left


def test_recorder_that_survives_every_kill(box_factory):
    board = clearing_box(box_factory, KEEPER).start()
    board.enter_equipment()
    # 50 tries 100 s apart: the box's clock runs a hundred times faster again.
    board.write('clock', '+0 x2000')
    out = answer(board, 'y')
    assert b'\r\ndbserver kill error\n\r\nrm -rf /var/fs_disk/* success ' in out
    assert out.endswith(b'test result:pass\r\n$$')
    assert leave(board)[-1] == b'1'


def test_without_data_partitions_or_disks(box_factory):
    board = box_factory(fast=True)
    board.write('disk/support_hdpart', '0')
    board.write('disk/present', '0 0 0 0')
    board.start().enter_equipment()
    out = answer(board, 'Y')
    assert out.endswith(b'\r\nNo Support 20G\r\nunable to FormatHdPart !\r\ntest result:pass\r\n$$')
    board.fail('open./dev/hal_runtime')
    assert b'Open hal_runtime failed\r\ntest result:fail' in answer(board, 'y')


# The disk wipe stops at the first slot it cannot handle; the clearing
# itself has passed by then.
@pytest.mark.parametrize('setup, tail', [
    (lambda b: b.fail('open./proc/disk/disk_name'),
     b'Failed to open /proc/disk/disk_name file\r\nDRVLib_GetDiskName failed, ulSlotnum:0'
     b'\r\nSlot_0 format :fail\n'),
    (lambda b: b.write('disk/slots', '1'),  # the driver lists fewer slots than the board has
     b'Slot_0 format :pass\n\r\nInvalid board slot 0 or disk slot 1'),
    # An empty slot is passed over: slot 1 is still wiped (it ends before the middle).
    (lambda b: b.write('disk/present', '0 1 0 0'), b'Slot_1 format :fail\n'),
])
def test_disk_wipe_failures(box_factory, setup, tail):
    board = box_factory(fast=True)
    board.seed('disk')  # the disks keep their sizes
    board.write('disk/support_hdpart', '0')
    setup(board)
    board.start().enter_equipment()
    assert answer(board, 'y').endswith(
        b'\r\n' + tail + b'\r\nunable to FormatDisk !\r\ntest result:pass\r\n$$')
