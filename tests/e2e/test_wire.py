"""What crosses the wire, read from the box's captures: the serial test
packets as the loopback plug and the null-modem cable received them, and the
raw Ethernet test frame as the loopback plug on eth1 received it. The
expected bytes are built here from the packet and frame descriptions, not
taken from the tool."""
import ctypes
import struct

import pytest

from boardbox import build_dir

pytestmark = pytest.mark.needs_cli


def draws():
    """The standard generator as a process that never seeds it sees it."""
    libc = ctypes.CDLL(None)
    libc.srand(1)
    return lambda: libc.rand()


def payload(code, length, rand):
    if code == 255:
        return bytes([0xFF] * length)
    if code == 256:
        return bytes(i % 255 for i in range(length))
    if code == 257:
        return bytes((length - i - 1) % 255 for i in range(length))
    if code == 258:
        return bytes(rand() % 127 for _ in range(length))
    return bytes([code & 0xFF] * length)


def packets(data, size):
    assert len(data) % size == 0, len(data)
    return [data[i:i + size] for i in range(0, len(data), size)]


def test_serial_packets_on_the_wire(board):
    rand = draws()
    runs = [(255, 2, 258), (7, 3, 257), (255, 1, 255), (64, 2, 256), (9, 1, 7), (3, 1, 0)]
    for length, count, code in runs:
        assert board.command(f'test rs 232 loopback {length} {count} {code} 0',
                             timeout=30).passed
    assert board.command('test 485 0 1 loopback 16 4 258', timeout=30).passed
    wire = board.path('capture/ttyS0').read_bytes()
    for length, count, code in runs:
        packet = b'\xff' * 4 + bytes([length, count]) + payload(code, length, rand)
        sent, wire = wire[:count * len(packet)], wire[count * len(packet):]
        assert packets(sent, len(packet)) == [packet] * count, (length, count, code)
    assert wire == b''
    # The second run draws on from where the first left the generator.
    packet = b'\xff' * 4 + bytes([16, 4]) + payload(258, 16, rand)
    assert packets(board.path('capture/ttyS6').read_bytes(), 22) == [packet] * 4


def frames(path):
    data = path.read_bytes()
    assert struct.unpack('<IHH', data[:8]) == (0xA1B2C3D4, 2, 4)
    pos, out = 24, []
    while pos < len(data):
        size = struct.unpack('<I', data[pos + 8:pos + 12])[0]
        out.append(data[pos + 16:pos + 16 + size])
        pos += 16 + size
    return out


def test_ethernet_test_frame_on_the_wire(box_factory):
    # The sender's address is copied as a string bounded to six bytes: what
    # follows a zero byte of the MAC goes out as zero.
    runs = [(64, 2, 7), (300, 1, 256), (300, 1, 257), (1500, 1, 258), (100, 1, 255),
            (80, 1, 300)]
    script = '; '.join(f'{build_dir()}/tests/net_loopback raw eth1 {n} {k} {c}' for n, k, c in runs)
    board = box_factory(fast=True, run=['/bin/sh', '-c', script])
    board.write('eth/eth1', 'loopback')
    board.write('nvram/eth1addr', '02:5a:00:33:44:55')
    board.start()
    assert board.wait(60) == 0
    assert board.child.before.decode().split() == ['result=0'] * len(runs)
    target = bytes([10, 64, 57, 10])
    ours = [f for f in frames(board.path('capture/eth1.pcap')) if f[38:42] == target]
    mac = bytes([0x02, 0x5A, 0, 0, 0, 0])
    header = (b'\xff' * 6 + mac + b'\x08\x06' + b'\x00\x01' + b'\x08\x00' + bytes([6, 4])
              + b'\x00\x01' + mac + b'192.' + bytes(6) + target)
    expected = []
    for length, count, code in runs:
        body = payload(code, min(length, 1462), draws())  # each run a fresh process
        expected += [(header + body).ljust(1504, b'\0')] * count
    assert ours == expected
