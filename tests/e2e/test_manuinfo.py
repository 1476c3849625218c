"""Manufacturing text and boot logos, moved to and from the test PC's TFTP server."""
import hashlib
import io
import random
import tarfile

import pytest

pytestmark = pytest.mark.needs_cli


def test_display_manuinfo_whole_and_device_part(board):
    board.write('nvram/ManuInfo', 'SN=A1;HW=2#FACTORY=x#')
    assert board.command('display manuinfo').body_raw == b'\r\nSN=A1;HW=2#FACTORY=x#'
    assert board.command('display device manuinfo').body == b'SN=A1;HW=2##'
    board.write('nvram/ManuInfo', 'no marks')
    assert board.command('display device manuinfo').body == b'no marks##'
    board.remove('nvram/ManuInfo')
    assert board.command('display manuinfo').result == 'fail'


def test_transfers_refused_without_server_address(board):
    for line in ('download logo bootlogo.tar', 'upload logo res.skin.tar'):
        frame = board.command(line)
        assert (frame.result, frame.body) == (
            'fail', b'the serverip is wrong,please check the serverip')
    frame = board.command('download manuinfo manu.txt')
    assert (frame.result, frame.body) == ('fail', b'error: you have not set the serverip')
    # Nothing on the partition: the check finds no archive to unpack.
    assert board.command('check logo bootlogo.tar', timeout=20).result == 'fail'


def tar_of(name, data):
    """A tar archive holding one file."""
    buf = io.BytesIO()
    with tarfile.open(fileobj=buf, mode='w') as tar:
        info = tarfile.TarInfo(name)
        info.size = len(data)
        tar.addfile(info, io.BytesIO(data))
    return buf.getvalue()


def test_manuinfo_download_keeps_5120_bytes(board):
    text = b'SN=A1;HW=2#' + b'x' * 6000
    board.path('tftp/manu.txt').write_bytes(text)
    assert board.command('set serverip 192.168.1.1').passed
    frame = board.command('download manuinfo manu.txt', timeout=20)
    # BusyBox tftp draws its progress bar on the console first.
    assert frame.passed and frame.body.endswith(b'\r\nPlease check the test result')
    assert board.path('nvram/ManuInfo').read_bytes().rstrip(b'\n') == text[:5120]
    # Read back into a terminated text: the last byte of a full field is not shown.
    assert board.command('display manuinfo').body == text[:5119]
    assert board.command('display device manuinfo').body == b'SN=A1;HW=2##'
    assert board.command('download manuinfo absent.txt', timeout=20).result == 'fail'


@pytest.mark.parametrize('name', ['bootlogo.tar', 'res.skin.tar'])
def test_logo_download_check_upload(board, name):
    picture = bytes(range(256)) * 40
    logo = tar_of('bootlogo.jpg', picture) if name.startswith('boot') else picture
    board.path(f'tftp/{name}').write_bytes(logo)
    assert board.command('set serverip 192.168.1.1').passed
    assert board.command(f'download logo {name}', timeout=30).passed
    image = board.path('block/mmcblk0p7').read_bytes()
    assert image.startswith(b'\x1f\x8b') == name.startswith('res.')
    frame = board.command(f'check logo {name}', timeout=30)
    summed = picture if name.startswith('boot') else logo
    # The sum's line ends with a line break of its own.
    assert frame.passed and frame.body_raw.endswith(
        f'\r\nmd5:{hashlib.md5(summed).hexdigest()}\r\n'.encode())
    board.path(f'tftp/{name}').unlink()
    assert board.command(f'upload logo {name}', timeout=30).passed
    assert board.path(f'tftp/{name}').read_bytes() == logo


CHECK = b'\r\nPlease check the test result'


@pytest.mark.parametrize('fault, line, message', [
    (None, 'check logo bootlogo', b'Analyse bootlogo fail\n' + CHECK),
    (None, 'download logo absent.tar',
     b'-l /tmp/absent.tar -r absent.tar failed\r\n\rTFTP Failed' + CHECK),
    # Nothing unpacks from a partition without a res archive.
    (None, 'check logo res.skin.tar', b'md5sum execute fail' + CHECK),
    ('exec.md5sum', 'check logo res.skin.tar', b'get md5 info fail' + CHECK),
    ('exec.rm', 'upload logo logo.bin', b'\r\n\rRmFile Failed'),
    ('ioctl./dev/hal_nvram.0x40615', 'download manuinfo manu.txt',
     CHECK + b'\r\nFailed to set nvram value(SN=A1) of ManuInfo, errno(Input/output error)\n'),
])
def test_transfer_and_sum_failures(board, fault, line, message):
    board.path('tftp/manu.txt').write_bytes(b'SN=A1')
    board.path('block/mmcblk0p7').write_bytes(tar_of('logo.bin', b'logo').ljust(2 << 20, b'\0'))
    assert board.command('set serverip 192.168.1.1').passed
    if fault:
        # A sum tool that exits 0 without a word leaves an empty sum file.
        board.fail(fault, ret=0 if fault == 'exec.md5sum' else None)
    frame = board.command(line, timeout=30)
    assert frame.result == 'fail' and frame.body.endswith(message)


def test_logo_partition_cleared_before_each_archive(board):
    # The partition is a block device: dd neither grows nor truncates it,
    # so only the clear keeps a longer archive's tail from staying behind.
    image = board.path('block/mmcblk0p7')
    image.write_bytes(b'\xa5' * (2 << 20))
    assert board.command('set serverip 192.168.1.1').passed
    for size in (1_200_000, 3000):
        picture = random.Random(size).randbytes(size)
        board.path('tftp/bootlogo.tar').write_bytes(tar_of('bootlogo.jpg', picture))
        assert board.command('download logo bootlogo.tar', timeout=60).passed
        data = image.read_bytes()
        with tarfile.open(fileobj=io.BytesIO(data)) as outer:
            inner = outer.extractfile('bootlogo.tar').read()
        with tarfile.open(fileobj=io.BytesIO(inner)) as logo:
            assert logo.extractfile('bootlogo.jpg').read() == picture
        assert len(data) == 2 << 20 and len(data.rstrip(b'\0')) < size + 4096


@pytest.mark.parametrize('tool, message', [
    ('dd', b'(/bin/dd if=/dev/zero of=/dev/mmcblk0p7 bs=1M count=2 2>/dev/null && /bin/dd '
           b'if=bootlogo.tar.tar of=/dev/mmcblk0p7 bs=1M count=2) fail, lRet=256\n'),
    ('tar', b'(bootlogo.tar) fail, lRet=256\n'),
])
def test_logo_download_with_a_failing_tool(board, tool, message):
    board.path('tftp/bootlogo.tar').write_bytes(tar_of('bootlogo.jpg', b'jpg'))
    assert board.command('set serverip 192.168.1.1').passed
    board.fail(f'exec.{tool}')
    frame = board.command('download logo bootlogo.tar', timeout=30)
    assert frame.result == 'fail' and frame.body.endswith(message + CHECK)
    assert board.path('block/mmcblk0p7').read_bytes() == bytes(2 << 20)
