"""test esata: the name from /proc/disk/global, and a sector test that
leaves its pattern on the disk."""
import os

import pytest

pytestmark = pytest.mark.needs_cli
ABSENT = b'esata status\xa3\xbaabsent '


def test_sector_test_leaves_the_pattern_and_nothing_else(board):
    image = board.path('block/sdc')
    with open(image, 'r+b') as disk:
        before = os.urandom(300 * 512)
        disk.write(before)
    # A write the disk acknowledged but lost is caught by the read-back.
    board.fail('write./dev/sdc', ret=512, times=1)
    assert board.command('test esata sector').body == b'esata test..........error'
    assert board.command('test esata sector').result == 'pass'  # one sector by default
    with open(image, 'rb') as disk:
        assert disk.read(3 * 512) == before[:512] + b'\xa5' * 512 + before[1024:1536]
    assert board.command('test esata sector 255').body == b'esata test..........ok'
    with open(image, 'rb') as disk:
        after = disk.read(300 * 512)
    assert after[:512] == before[:512]
    assert after[512:256 * 512] == b'\xa5' * 255 * 512
    assert after[256 * 512:] == before[256 * 512:]
    assert [e.name for e in board.journal('close')][-1] == '/dev/sdc'
    # A negative number is a number, out of range.
    for times in ('0', '256', '-5'):
        refusal = b'error:times must between 1 ~ 255'
        frame = board.command(f'test esata sector {times}')
        assert (frame.result, frame.body) == ('fail', refusal)


@pytest.mark.parametrize('text, status, sector', [
    ('hdd0: sda\n', [ABSENT, b'esata status : absent'], [ABSENT, b'esata test..........error']),
    ('esata: NUL\n', [b'esata status : absent'], [b'esata test..........error']),
    ('esata: sdaa\nESATA: NUL\n', [b'esata status : absent'], [b'esata test..........error']),
    ('esata: NUL\nEsata: sdaa\n', [b'esata status : present'], [b'esata test..........ok']),
])
def test_name_from_the_proc_file(board, text, status, sector):
    board.write('proc/disk/global', text)
    assert board.command('test esata status').body.split(b'\r\n') == status
    assert board.command('test esata sector 1').body.split(b'\r\n') == sector
