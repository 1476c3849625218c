"""Manufacturing text and boot logos: what is reachable without a server address."""
import pytest

pytestmark = pytest.mark.needs_cli


def test_display_manuinfo_whole_and_device_part(board):
    board.write('nvram/ManuInfo', 'SN=A1;HW=2#FACTORY=x#')
    assert board.command('display manuinfo').body == b'SN=A1;HW=2#FACTORY=x#'
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
