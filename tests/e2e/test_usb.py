"""test usb: presence from /dev/harddisk and the access test through the
sticks' real FAT file systems (mounted in the box with fatfs.py, read back
afterwards with mtools)."""
import os
import re
import subprocess

import pytest

from boardbox import build_dir

pytestmark = [pytest.mark.needs_cli, pytest.mark.skipif(
    not os.access('/dev/fuse', os.R_OK | os.W_OK), reason='FUSE is not open to this user')]
ERROR = b'port 0 test ............ error\nport 1 test ............ error'
OK = b'port 0 test ............ ok\nport 1 test ............ ok'


def mdir(image):
    # Without MTOOLS_SKIP_CHECK: the image must pass mtools' own checks.
    return subprocess.run(['mdir', '-b', '-i', str(image), '::'], check=True,
                          capture_output=True, text=True).stdout.split()


def test_access_writes_through_fat_and_leaves_no_mount(box_factory):
    after = 'echo; grep -c usb_disk /proc/mounts; ls /var'
    board = box_factory(fast=True, run=['/bin/sh', '-c', f'{build_dir()}/cli -d; {after}'])
    stick = board.attach_stick(1, 'sde', partition=2)
    subprocess.run(['mcopy', '-i', str(stick), '/etc/hostname', '::keep.txt'], check=True)
    board.start().enter_equipment()
    assert board.command('test usb status 0').body == (
        b'port 0 test ............ present\nport 1 test ............ present')
    frame = board.command('test usb access all', timeout=30)
    assert frame.body == OK
    # Port 1's stick mounted at its second partition, after -1, 0 and 1 failed.
    assert [e.name for e in board.journal('open') if e.name.startswith('/dev/sd')] == [
        '/dev/sdd1', '/dev/sde2']
    # test.txt went through FAT and was removed: its cluster keeps the pattern.
    assert mdir(stick) == ['::/keep.txt'] and mdir(board.path('block/sdd1')) == []
    assert b'\xa5' * 512 in board.path('block/sdd1').read_bytes()
    board.send('quit\r')
    board.expect_prompt()
    board.send('quit\r')
    assert board.wait(20) == 0
    count, *listing = board.child.before.split(b'quit')[-1].split()
    # No mount left; the mounted points removed, the failed candidates' kept.
    assert count == b'0' and [n for n in listing if n.startswith(b'usb_disk')] == [
        b'usb_disk_sdd', b'usb_disk_sdd0', b'usb_disk_sde', b'usb_disk_sde0', b'usb_disk_sde1']


def test_sticks_that_do_not_mount(board):
    board.write('usb/1', 'name=sde present=-1 id=2')
    assert board.command('test usb status all').body == (
        b'port 0 test ............ absent\nport 1 test ............ absent')
    board.write('usb/1', 'name=sdd present=0 id=1')  # port 0's stick, seen twice
    assert board.command('test usb status all').body == (
        b'port 0 test ............ absent\nport 1 test ............ absent')
    board.write('usb/1', 'name=sde present=-1 id=2')
    assert board.command('test usb access 1', timeout=30).body == (
        b'Port : USB not all present.\r\n' + ERROR)
    # A stick without a file system: all 33 candidates fail, their
    # directories are removed.
    board.write('usb/1', 'name=sde present=1 id=2')
    with open(board.path('block/sdd1'), 'r+b') as stick:
        stick.write(bytes(64 << 10))
    assert board.command('test usb access 0', timeout=60).body == (
        b'error : mount sdd /var/usb_disk_sdd31 failed\r\n' + ERROR)
    board.fail('ioctl./dev/harddisk.0x40504')
    assert board.command('test usb status 0').body == (
        b'Failed to get usb info\r\nport 0 test ............ absent\nport 1 test ............ absent')
    assert b'Usb port number must be 0-1 or all' in board.line('test usb status 2')


def fill(stick):
    listing = subprocess.run(['mdir', '-i', str(stick), '::'], check=True, capture_output=True,
                             text=True).stdout
    with open(stick.parent / 'fill', 'wb') as out:
        out.truncate(int(re.search(r'([\d ]+) bytes free', listing)[1].replace(' ', '')))
    subprocess.run(['mcopy', '-i', str(stick), str(stick.parent / 'fill'), '::'], check=True)


# Port 0's stick fails, port 1's passes: the verdict names both.
@pytest.mark.parametrize('spoil, message', [
    (lambda s: subprocess.run(['mmd', '-i', str(s), '::test.txt'], check=True),
     b'Open /var/usb_disk_sdd1/test.txt failed, err: Is a directory'),
    (fill, b'write usb failed, real write len : 18446744073709551615'),
])
def test_stick_that_takes_no_test_file(box_factory, spoil, message):
    board = box_factory(fast=True)
    spoil(board.attach_stick(0, 'sdd'))
    board.start().enter_equipment()
    frame = board.command('test usb access all', timeout=30)
    assert (frame.result, frame.body) == ('fail', message + b'\r\n' + ERROR)
