"""test hdd: the sector test on real disk images puts back every byte, also
when a sector fails; presence, capacity and the slot words."""
import os

import pytest

from boardbox import image_digest

pytestmark = pytest.mark.needs_cli


def seed(image, sectors):
    with open(image, 'r+b') as disk:
        for s in sectors:
            disk.seek(s * 512)
            disk.write(os.urandom(512))


def left_open(board, node):
    opened = [e['fd'] for e in board.journal('open', node) if 'fd' in e.fields]
    closed = [e['fd'] for e in board.journal('close', node)]
    return len(opened) - len(closed)


def test_sector_test_restores_every_byte(box_factory):
    board = box_factory(fast=True)
    board.attach_disk(1, 'sdb', 12 * 512)  # a disk that ends at sector 12
    board.start().enter_equipment()
    sda, sdb = board.path('block/sda'), board.path('block/sdb')
    seed(sda, range(0, 300))
    seed(sdb, range(0, 12))
    before = image_digest(sda), image_digest(sdb)
    assert board.command('test hdd 0 0 255 read').body == b'Slot  0 test..........ok'
    # Sector 12 is the first past the disk: counting to it tests it. Any count
    # is a count (2^64 does not wrap to 0): it ends at the disk's end.
    assert board.command('test hdd 0 1 11 write').passed
    for count in (12, 1 << 64):
        frame = board.command(f'test hdd 0 1 {count} write')
        assert (frame.result, frame.body) == ('fail', b'Slot  1 test read old data of sector 12 '
                                              b'error\r\nSlot  1 test..........error')
    # The third write is sector 2's pattern: reported, put back, the rest tested.
    board.fail('write./dev/sda', skip=2, times=1)
    assert board.command('test hdd 0 0 4 read').body == (
        b'Slot  0 test write test data to sector 2 error\r\nSlot  0 test..........error')
    assert (image_digest(sda), image_digest(sdb)) == before
    assert left_open(board, '/dev/sda') == 0
    board.fail('write./dev/sda', skip=1, times=1)
    assert board.command('test hdd 0 0 4 read').body == (
        b'Slot  0 write old data back to sector 1 error\r\nSlot  0 test..........error')


def test_sectors_past_2_gib_are_put_back(box_factory):
    # A 32-bit byte offset wraps at sector 4194304 and its seek fails: the
    # pattern would land where the last transfer left off. The sectors
    # before are a quick prefix, so the run gets there in seconds.
    wrap = 1 << 22
    board = box_factory(fast=True)
    board.write('quick/sda', str(wrap - 4))
    board.start().enter_equipment()
    sda = board.path('block/sda')
    seed(sda, range(wrap - 4, wrap + 8))
    before = image_digest(sda)
    frame = board.command(f'test hdd 0 0 {wrap + 4} read', timeout=600)
    assert (frame.result, frame.body) == ('pass', b'Slot  0 test..........ok')
    assert image_digest(sda) == before


def test_slots_presence_and_capacity(box_factory):
    board = box_factory(fast=True)
    board.detach_disk(1)
    board.attach_disk(2, 'sdc', 4000787030016)
    board.write('proc/disk/global', 'esata: NUL')
    board.start().enter_equipment()
    frame = board.command('test hdd 0 all 1 read')
    assert frame.result == 'fail' and frame.body.split(b'\r\n') == [
        b'Slot  0 test..........ok', b'Failed to get disk name of slot 1',
        b'Slot  1 get name..........error', b'Slot  2 test..........ok',
        b'Failed to get disk name of slot 3', b'Slot  3 get name..........error']
    assert board.command('test hdd all present').body == (
        b'hdd  0 is: present \r\nhdd  1 is: absent \r\nhdd  2 is: present \r\nhdd  3 is: absent ')
    # A good presence query leaves the node open, one per slot.
    assert left_open(board, '/dev/harddisk') == 4
    # The slot printed is the slot tested: 2^32 is not slot 0.
    assert board.command(f'test hdd {1 << 32} present').body == b'hdd 4294967296 is: absent '
    assert board.command('test hdd 0 2 capacity').body == b'hdd capacity : 3726gb '
    assert board.command('test hdd 0 1 capacity').body == b'hdd capacity : 0gb '
    board.fail('ioctl./dev/harddisk.0x40500')
    assert board.command('test hdd 2 present').body == b'Failed to get present info\n'
    board.fail('ioctl./dev/harddisk.0x40510')
    assert board.command('test hdd 0 2 capacity').body_raw == b'\r\nFailed to get harddisk info\n'
    board.fail('open./dev/sda', errno='ENXIO')  # present, but gone by the open
    assert board.command('test hdd 0 0 1 read').body == b'\n /dev/sda open fail!'



@pytest.mark.parametrize('line, message', [
    ('test hdd 0 0 1 readwrite', b'cmd can only be read or read, please check'),
    ('test hdd 0 4 1 read', b'slot should between 0 and 3'),
    ('test hdd 0 0 0 read', b'Invalid input!number should >0'),
])
def test_validators(board, line, message):
    assert message in board.line(line)
    assert board.journal('open', '/dev/sda') == []


# A disk that loses a write, a sector that cannot be read back, a slot word
# the slot rule let through.
@pytest.mark.parametrize('fault, line, body', [
    (('write./dev/sda', dict(ret=512, times=1)), 'test hdd 0 0 2 read',
     b'error:Slot  0 write != read data of sector 1\r\nSlot  0 test..........error'),
    (('read./dev/sda', dict(skip=1, times=1)), 'test hdd 0 0 2 read',
     b'Slot  0 test read test data of sector 1 error\r\nSlot  0 test..........error'),
    (None, 'test hdd 0 first 1 read', b'cmd can only be 0~3 or all'),
])
def test_sector_faults(board, fault, line, body):
    if fault:
        board.fail(fault[0], **fault[1])
    frame = board.command(line)
    assert (frame.result, frame.body) == ('fail', body)
