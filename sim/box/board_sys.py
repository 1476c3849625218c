"""The board's sysfs entries whose content is binary, rendered at each start
of the box from the state's text files into its sys/ (the box's /sys):

    pcie/<bus>     the device at 0000:0<bus>:00.0 (buses 1-4): "width=N speed=S"
                   (S in GT/s: 2.5, 5, 8, 16) for a link that is up, with
                   "max_width=M" when it trained narrower than it can run, "down" for
                   one that is down (configuration space reads all ones),
                   "nocap" for a device without a PCIe capability; no file, no
                   device
    hdmi/<n>       the monitor on connector HDMI-A-<n> (1, 2): its maker's
                   three letters (DEL), or "none" when unplugged (an empty
                   EDID); no file, no connector

Other buses and connectors in sys/ are left as they are.

    board_sys.py STATE
"""
import shutil
import struct
import sys
from pathlib import Path

PCI_DEVICES = 'sys/bus/pci/devices'
DRM_CARD = 'sys/class/drm/card0'
# Speeds as the link status field codes them (GT/s).
SPEED_CODE = {'2.5': 1, '5': 2, '8': 3, '16': 4}
# What sits on each bus of the board: three Ethernet controllers, one SATA.
PARTNER = {1: (0x10ec, 0x8168, 0x020000, 0x15), 2: (0x10ec, 0x8168, 0x020000, 0x15),
           3: (0x10ec, 0x8168, 0x020000, 0x15), 4: (0x1b4b, 0x9215, 0x010601, 0x11)}
CONNECTORS = (1, 2)
PCIE_CAP = 0x40  # where the board's devices keep their PCIe capability


def config_space(bus, width, speed, max_width=None):
    """256 bytes of a type-0 header with a PCIe endpoint capability; the link
    can run at max_width lanes (its width unless given)."""
    vendor, device, klass, rev = PARTNER.get(bus, PARTNER[1])
    c = bytearray(256)
    struct.pack_into('<HHHHI', c, 0, vendor, device, 0x0007, 0x0010, rev | klass << 8)
    if width:
        c[0x34] = PCIE_CAP
        struct.pack_into('<BBH', c, PCIE_CAP, 0x10, 0, 0x0002)
        link = SPEED_CODE[speed] | int(width) << 4
        cap = SPEED_CODE[speed] | int(max_width or width) << 4
        struct.pack_into('<I', c, PCIE_CAP + 0x0c, cap)    # link capabilities
        struct.pack_into('<H', c, PCIE_CAP + 0x12, link)   # link status
    else:
        struct.pack_into('<H', c, 6, 0)  # no capability list
    return bytes(c)


def pci(state, bus, width, speed=None, max_width=None):
    """Writes (or with width 'absent' removes) the device on bus BUS."""
    bus = int(bus)
    d = Path(state) / PCI_DEVICES / f'0000:{bus:02x}:00.0'
    shutil.rmtree(d, ignore_errors=True)
    if width == 'absent':
        return
    d.mkdir(parents=True)
    vendor, device, klass, _ = PARTNER.get(bus, PARTNER[1])
    if width == 'down':
        config = b'\xff' * 256
    else:
        config = config_space(bus, None if width == 'nocap' else width, speed, max_width)
    (d / 'config').write_bytes(config)
    for name, value in (('vendor', f'0x{vendor:04x}'), ('device', f'0x{device:04x}'),
                        ('class', f'0x{klass:06x}'), ('irq', '0')):
        (d / name).write_text(value + '\n')
    (d / 'resource').write_text('0x0000000000000000 ' * 2 + '0x0000000000000000\n')


def maker_id(code):
    """Three letters A-Z as the EDID's big-endian 5-bit triple."""
    a, b, c = (ord(ch) - 64 for ch in code)
    return a << 10 | b << 5 | c


def descriptor(tag, text):
    return bytes([0, 0, 0, tag, 0]) + (text.encode() + b'\n').ljust(13, b' ')[:13]


def edid_block(code, name='HDMI MONITOR', serial='00001'):
    """A 128-byte EDID 1.3 base block: digital input, 1920x1080 at 60 Hz."""
    b = bytearray(b'\x00\xff\xff\xff\xff\xff\xff\x00')
    b += struct.pack('>H', maker_id(code)) + struct.pack('<HI', 0x2419, 1) + bytes([10, 30])
    b += bytes([1, 3, 0x80, 53, 30, 0x78, 0x0e])
    b += bytes.fromhex('ee91a3544c99260f5054') + bytes([0x21, 0x08, 0x00])
    b += bytes([0xd1, 0xc0]) + b'\x01\x01' * 7
    b += bytes.fromhex('023a801871382d40582c450013 2b21 00001e'.replace(' ', ''))
    b += bytes.fromhex('000000fd00384c1e53110' + '00a202020202020')
    b += descriptor(0xfc, name) + descriptor(0xff, serial) + b'\x00'
    b.append(-sum(b) & 0xff)
    assert len(b) == 128
    return bytes(b)


def edid(state, connector, code):
    """A monitor of maker CODE on connector HDMI-A-N, none (an empty EDID),
    or no connector at all (absent)."""
    d = Path(state) / DRM_CARD / f'card0-HDMI-A-{int(connector)}'
    shutil.rmtree(d, ignore_errors=True)
    if code == 'absent':
        return
    d.mkdir(parents=True)
    (d / 'edid').write_bytes(b'' if code == 'none' else edid_block(code))
    (d / 'status').write_text('disconnected\n' if code == 'none' else 'connected\n')


def render(state):
    state = Path(state)
    for bus in PARTNER:
        words = (state / 'pcie' / str(bus)).read_text().split() \
            if (state / 'pcie' / str(bus)).is_file() else ['absent']
        fields = dict(w.split('=', 1) for w in words if '=' in w)
        pci(state, bus, fields.get('width', words[0]), fields.get('speed'),
            fields.get('max_width'))
    for connector in CONNECTORS:
        f = state / 'hdmi' / str(connector)
        edid(state, connector, f.read_text().strip() if f.is_file() else 'absent')


if __name__ == '__main__':
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    render(sys.argv[1])
