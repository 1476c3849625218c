"""test x4tox2 / x2tox4: the package from the test PC's TFTP server, the
operator's confirmation, the board's lane tool. No command sets the server
address yet, so the transfers run through the engine in the box with one."""
import pytest

from boardbox import build_dir, parse_frame

pytestmark = pytest.mark.needs_cli


def test_package_names_and_server_address(board):
    assert board.command('test x4tox2 foo').lines[0] == \
        b'file name is foo, it must be 1X4.tar.bz2 or 2X2.tar.bz2, please check'
    frame = board.command('test x4tox2 1X4.tar.bz2')
    assert (frame.result, frame.body) == ('fail', b'error: x4tox2 update, pkg name must be 2X2.tar.bz2')
    frame = board.command('test x2tox4 1X4.tar.bz2')
    assert (frame.result, frame.body) == ('fail', b'error: you have not set the serverip')


def test_switch_confirm_refuse_and_failures(box_factory):
    lines = ['test x4tox2 2X2.tar.bz2', 'test x2tox4 1X4.tar.bz2', 'test x2tox4 1X4.tar.bz2',
             'test x4tox2 2X2.tar.bz2']
    board = box_factory(fast=True, run=[str(build_dir() / 'tests/engine_lines'), '-s',
                                        '192.168.1.1', *lines])
    board.start()
    out = []
    for i, answer in enumerate('yny'):
        out.append(board.expect('Are you sure?(Y/N)'))
        if i == 2:  # the lane tool fails, and the last package is gone from the server
            board.fail('exec.x4tox2')
            board.remove('tftp/2X2.tar.bz2')
        board.send(answer + '\r')
    assert board.wait() == 0
    frames = b''.join(out + [board.child.before]).split(b'$$')[:-1]
    frames = [parse_frame(f + b'$$') for f in frames]
    assert [(f.result, f.lines[-1:]) for f in frames] == [
        ('pass', [b'y']), ('pass', [b'n']),
        ('fail', [b'x2 to x4 update is failed']),
        ('fail', [b'error: tftp -g 192.168.1.1 -l /tmp/2X2.tar.bz2 -r 2X2.tar.bz2 failed'])]
    runs = [(e.args, e.result) for e in board.journal('exec', 'x4tox2')]
    assert runs == [(['-p', '/tmp/2X2.tar.bz2'], 0), (['-p', '/tmp/1X4.tar.bz2'], 1)]
    assert board.read('pcie_lanes') == '2x2\n'
