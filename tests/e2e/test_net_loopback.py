"""The loopback module's parts that no command reaches, run in the box by
build/tests/net_loopback: real 1504-byte frames against the loopback plug on
the test PC's end of eth1, the driver's internal loopback, the mode setter."""
import pytest

from boardbox import build_dir

pytestmark = pytest.mark.needs_cli


def run(box_factory, script, **state):
    board = box_factory(fast=True, run=['/bin/sh', '-c', f'B={build_dir()}/tests; {script}'])
    for rel, text in state.items():
        board.write(rel.replace('__', '/'), text)
    board.start()
    assert board.wait(60) == 0
    return board, board.child.before.decode().replace('\r', '')


def test_frames_come_back_from_the_plug(box_factory):
    board, out = run(box_factory, '$B/net_loopback raw eth1 64 3 256; $B/net_loopback raw eth1 '
                     '1500 2 258; $B/net_loopback raw eth1 300 1 257', eth__eth1='loopback')
    assert out.split() == ['result=0'] * 3
    ours = [e for e in board.journal('plug', 'eth1') if e['type'] == '0x0806']
    assert [(e['len'], e.result) for e in ours] == [('1504', 0)] * 6


def test_spoilt_plug_and_missing_plug(box_factory):
    script = ('$B/net_loopback raw eth1 64 1 7; echo "loopback drop" > /boardsim/eth/eth1; '
              '$B/net_loopback raw eth1 64 1 7; echo cable > /boardsim/eth/eth1; '
              '$B/net_loopback raw eth1 64 1 7')
    _, out = run(box_factory, script, eth__eth1='loopback corrupt=45')
    assert out.strip().split('\n\n') == ['send_packet is not equ to recv_packet 3\nresult=200',
                                         'over time\nresult=200', 'over time\nresult=200']


def test_raw_test_failures(box_factory):
    script = ('$B/net_loopback raw eth7 64 1 0; ip addr flush dev eth1; '
              '$B/net_loopback raw eth1 64 1 0; ifconfig eth0 down; $B/net_loopback raw eth0 64 1 0;'
              ' mkdir -p /boardsim/fail; touch /boardsim/fail/socket.17; '
              '$B/net_loopback raw eth0 64 1 0; touch /boardsim/fail/socket.2; '
              '$B/net_loopback raw eth0 64 1 0')
    _, out = run(box_factory, script)
    no_info = 'ioctl--get hardware addr failed!\ncan not get eth info\nresult=200'
    assert out.strip().split('\n\n') == [
        no_info, no_info, 'sendto failed, iNum: -1, strerr: Unknown error -1\nresult=200',
        'socket SOCK_PACKET failed!\nresult=200', 'socket failed!\ncan not get eth info\nresult=200']


def test_internal_loopback_and_mode_setter(box_factory):
    script = ('$B/net_loopback 1 10 64 2 258; $B/net_loopback all 1000 100 1 0; mkdir -p '
              '/boardsim/fail; touch /boardsim/fail/ioctl.eth0.0x89f0; $B/net_loopback 0 5 64 1 0;'
              ' touch /boardsim/fail/socket.1; $B/net_loopback 1 100 64 1 0; '
              '$B/net_loopback mode 1 10; $B/net_loopback mode 5 1000; '
              'touch /boardsim/fail/DRV_PerpCtl.0x1600; $B/net_loopback mode 5 100')
    board, out = run(box_factory, script)
    frames = out.split('$$')
    assert 'GE1 int loopback test ............... ok\ntest result:pass' in frames[0]
    assert frames[1].count('ok\n') == 2 and frames[1].count('net loop failed') == 18
    assert 'net loop failed\nGE0 int loopback test ............... error' in frames[2]
    assert 'open socket failed\nGE1 int loopback test ............... error' in frames[3]
    loops = board.journal('ioctl', request=0x89f0)
    assert [(e.name, e['speed'], e['len'], e['count'], e['content']) for e in loops[:3]] == [
        ('eth1', '1', '64', '2', '258'), ('eth0', '2', '100', '1', '0'),
        ('eth1', '2', '100', '1', '0')]
    assert [e.errno for e in loops[3:]] == ['ENODEV'] * 18 + ['EIO']
    assert [(e['port'], e['code']) for e in board.journal('drv', 'DRV_PerpCtl', 0x1600)
            if e.result == 0] == [('1', '7'), ('2', '9')]
    assert out.rstrip().endswith('Error:GE5 set Mode error\nresult=200')
