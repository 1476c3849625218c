"""Ping to the test PC once the link is up, and the link tests: the link
record's selector, links that come up late or never, a failing driver."""
import time

import pytest

pytestmark = pytest.mark.needs_cli

PC = '192.168.1.1'


def links(board, since):
    return [(e['sel'], e['port'], e['link']) for e in
            board.journal('drv', 'DRV_PerpCtl', 0x1605, since=since)]


def test_ping_waits_for_the_selected_link(board):
    mark = board.mark()
    assert board.command(f'ping -c 2 {PC}').passed
    assert board.command(f'ping -c 1 {PC} 5 copper').passed
    assert board.command(f'ping -c 1 {PC} 1 fiber').passed
    assert links(board, mark) == [('1', '1', '1'), ('0', '0', '1'), ('1', '1', '1')]
    board.write('link/1', 'down after=2')
    mark = board.mark()
    assert board.command(f'ping -c 1 {PC} 3').passed
    assert links(board, mark) == [('1', '1', '0'), ('1', '1', '0'), ('1', '1', '1')]


def test_link_down_and_lost_packets(board):
    board.write('link/1', 'down')
    frame = board.command(f'ping -c 1 {PC} 2')
    assert (frame.result, frame.body) == ('fail', b'error:port GE2 link down')
    assert board.command(f'ping -c 1 {PC} 1 copper').lines == [b'error:port GE1 link down',
                                                               b'error:port GE1 ping failed']
    assert board.command(f'ping -c 1 {PC} 0 fiber').lines == [b'error:port SFP0 link down',
                                                              b'error:port SFP0 ping failed']
    assert len(board.journal('drv', 'DRV_PerpCtl', 0x1605)) == 9
    assert board.command(f'ping -c 1 {PC} 2 fiber').body == b'Invalid port num[2] for fiber'
    # No one answers at .7 (a summary with nothing received); no route to
    # 10.9.9.9 (no summary at all).
    frame = board.command('ping -c 1 192.168.2.7 9 copper', timeout=30)
    assert (frame.result, frame.body) == ('fail', b'error:port GE9 ping failed')
    # A host that loses its second echo request: one answer of two fails.
    board.write('eth/eth0', 'cable host=192.168.1.50 lose=2')
    assert board.command('ping -c 1 192.168.1.50 9').passed
    frame = board.command('ping -c 2 192.168.1.50 9 copper', timeout=30)
    assert (frame.result, frame.body) == ('fail', b'error:port GE9 ping failed')
    frame = board.command('ping -c 1 10.9.9.9 9')
    assert (frame.result, frame.body) == ('fail', b'ping: sendto: Network is unreachable\n')


def test_driver_failure_ends_at_once(board):
    board.fail('DRV_PerpCtl.0x1605', errno='EIO')
    for command in (f'ping -c 1 {PC}', f'ping -c 1 {PC} 5 copper', f'ping -c 1 {PC} 1 fiber',
                    'test ethernet all link copper', 'test ethernet all link fiber'):
        frame = board.command(command)
        assert (frame.result, frame.body) == ('fail', b'failed get net link status'), command
    assert len(board.journal('drv', 'DRV_PerpCtl', 0x1605)) == 5


def test_link_per_port(board):
    board.write('link/3', 'down')
    board.write('link/7', 'down after=2')
    mark = board.mark()
    frame = board.command('test ethernet all link copper', timeout=30)
    assert (frame.result, frame.lines[3], frame.lines[7]) == (
        'fail', b'GE3 test ............... error', b'GE7 test ............... ok')
    assert frame.lines.count(b'GE0 test ............... ok') == 1 and len(frame.lines) == 20
    ports = [e['port'] for e in board.journal('drv', 'DRV_PerpCtl', 0x1605, since=mark)]
    assert (ports.count('3'), ports.count('7'), len(ports)) == (5, 3, 26)
    # A lone "-" and "-0" are port 0, not refused.
    for port in ('-', '-0'):
        assert board.command(f'test ethernet {port} link copper').body == \
            b'GE0 test ............... ok'
    # Every fiber port reads the record (0, 0): port 0's link.
    board.write('link/0', 'down')
    frame = board.command('test ethernet all link fiber', timeout=30)
    assert frame.lines == [b'SFP0 test ............... error', b'SFP1 test ............... error']
    assert board.command('test ethernet 7 link fiber').lines == \
        [b'SFP7 test ............... error']


def test_every_link_down_on_the_fast_clock(board):
    for port in range(20):
        board.write(f'link/{port}', 'down')
    start = time.monotonic()
    frame = board.command('test ethernet all link copper', timeout=60)
    took = time.monotonic() - start
    assert frame.lines[-1] == b'GE19 test ............... error'
    print(f'\nlink test, 20 ports down, 100 s of waits on the fast clock: {took:.2f} s')
    assert took < 15
