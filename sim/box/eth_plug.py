"""What the factory plugs into the board's Ethernet ports, on the test PC's
end of each veth (pc<n> for eth<n>), chosen by the state's eth/eth<n>, read
at every frame:

    cable           the test PC itself: its kernel answers (ping, TFTP); words
                    after it add a host on the same cable:
                    host=IP     answers ARP and ping for IP (not the PC's)
                    lose=N,...  but not the Nth echo request it sees (counted
                                from 1 since the box started)
    loopback        a loopback plug: every frame the board sends comes back
                    as it was sent; words after it spoil it:
                    corrupt=N   byte N of each frame has its low bit flipped
                    drop        nothing comes back

Each frame a plug sends back (or drops) is journaled:
    plug eth1 reflect type=0x0806 len=1504 -> 0      (-1: corrupted or dropped)
and kept as the plug received it in capture/eth<n>.pcap of the state (the
libpcap file format: tcpdump -r reads it), so a test reads what crossed the
wire.
The test PC's own address stays on the port, so its kernel still answers
what reaches it.

    eth_plug.py STATE   (in the test PC's network namespace)

Returns once the ports are open; a child serves them until the box ends.
"""
import os
import selectors
import socket
import struct
import sys
import time

import daemon

ETH_P_ALL = 0x0003
PACKET_OUTGOING = 4
LINKTYPE_ETHERNET = 1


def capture(path, frame):
    """Appends the frame to a libpcap file, started with its header."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, 'ab') as f:
        if f.tell() == 0:
            f.write(struct.pack('<IHHiIII', 0xA1B2C3D4, 2, 4, 0, 0, 65535, LINKTYPE_ETHERNET))
        now = time.time()
        f.write(struct.pack('<IIII', int(now), int(now % 1 * 1e6), len(frame), len(frame)))
        f.write(frame)


def checksum(data):
    data += b'\0' * (len(data) % 2)
    total = sum(struct.unpack('!%dH' % (len(data) // 2), data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return struct.pack('!H', ~total & 0xFFFF)


class Host:
    """A second host on a cable: its ARP and echo replies, crafted here, so
    that a test can make it lose a chosen echo request."""
    MAC = bytes.fromhex('020000000050')

    def __init__(self):
        self.echoes = 0

    def answer(self, frame, ip, lose):
        """The reply to a frame for `ip` (an ARP request or an echo request
        not lost), or None."""
        reply = self.arp_reply(frame, ip)
        head = 14 + (frame[14] & 0x0F) * 4 if len(frame) > 34 else len(frame)
        if reply or frame[12:14] != b'\x08\0' or len(frame) <= head or frame[23] != 1 \
                or frame[30:34] != ip or frame[head] != 8:
            return reply
        self.echoes += 1
        return None if self.echoes in lose else self.echo_reply(frame, head)

    def arp_reply(self, frame, ip):
        if frame[12:14] != b'\x08\x06' or frame[20:22] != b'\0\1' or frame[38:42] != ip:
            return None
        arp = frame[14:20] + b'\0\2' + self.MAC + ip + frame[22:32]
        return frame[6:12] + self.MAC + frame[12:14] + arp

    def echo_reply(self, frame, head):
        """The IPv4 header with its addresses swapped, the ICMP type 0."""
        icmp = b'\0\0\0\0' + frame[head + 4:]
        icmp = icmp[:2] + checksum(icmp) + icmp[4:]
        iph = frame[14:24] + b'\0\0' + frame[30:34] + frame[26:30] + frame[34:head]
        iph = iph[:10] + checksum(iph) + iph[12:]
        return frame[6:12] + self.MAC + frame[12:14] + iph + icmp


def plug_words(path):
    try:
        with open(path) as f:
            text = f.read().split()
    except OSError:
        return None, {}
    return (text[0] if text else None), dict(
        w.split('=', 1) if '=' in w else (w, '') for w in text[1:])


class Plugs:
    def __init__(self, state):
        self.state = state
        self.sel = selectors.DefaultSelector()
        for name in sorted(os.listdir(os.path.join(state, 'eth'))):
            if not name.startswith('eth'):
                continue
            sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
            try:
                sock.bind(('pc' + name[3:], 0))
            except OSError:  # a port the box did not cable
                sock.close()
                continue
            self.sel.register(sock, selectors.EVENT_READ, name)
        self.hosts = {}

    def journal(self, text):
        daemon.journal(self.state, text)

    def received(self, sock, port):
        frame, addr = sock.recvfrom(65536)
        mode, opts = plug_words(os.path.join(self.state, 'eth', port))
        if addr[2] == PACKET_OUTGOING:
            return
        if mode == 'cable' and 'host' in opts:
            lose = {int(n) for n in opts.get('lose', '').split(',') if n.isdigit()}
            reply = self.hosts.setdefault(port, Host()).answer(
                frame, socket.inet_aton(opts['host']), lose)
            if reply:
                sock.send(reply)
            return
        if mode != 'loopback':
            return
        capture(os.path.join(self.state, 'capture', port + '.pcap'), frame)
        spoilt = 'drop' in opts
        where = opts.get('corrupt', '')
        if where.isdigit() and int(where) < len(frame):
            i = int(where)
            frame = frame[:i] + bytes([frame[i] ^ 1]) + frame[i + 1:]
            spoilt = True
        kind = int.from_bytes(frame[12:14], 'big') if len(frame) >= 14 else 0
        self.journal('plug %s reflect type=0x%04x len=%d -> %d' % (
            port, kind, len(frame), -1 if spoilt else 0))
        if 'drop' not in opts:
            sock.send(frame)

    def run(self):
        while True:
            for key, _ in self.sel.select():
                self.received(key.fileobj, key.data)


def main(state):
    if not os.path.isdir(os.path.join(state, 'eth')):
        return 0
    plugs = Plugs(state)
    daemon.serve(plugs.run)
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1]))
