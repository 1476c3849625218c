"""The board's ports are cabled to a test PC that answers ping and runs a
TFTP server on the state directory's tftp/ (BusyBox tools, real transfers)."""
import hashlib


def test_ping_and_tftp_through_both_ports(box_run, tmp_path):
    state = tmp_path / 'state'
    (state / 'tftp').mkdir(parents=True)
    (state / 'tftp' / 'from_pc.bin').write_bytes(bytes(range(256)) * 40)
    script = ('cd /tmp && ping -c 1 -W 2 192.168.1.1 && ping -c 1 -W 2 192.168.2.1'
              ' && tftp -g -l got -r from_pc.bin 192.168.1.1 && md5sum got'
              ' && echo board > up.txt && tftp -p -l up.txt -r up.txt 192.168.2.1')
    status, out = box_run('/bin/sh', '-c', script, state=state)
    assert status == 0, out
    assert out.count(b'1 packets transmitted, 1 packets received') == 2
    assert hashlib.md5(bytes(range(256)) * 40).hexdigest().encode() + b'  got' in out
    assert (state / 'tftp' / 'up.txt').read_text() == 'board\n'


def test_addresses_of_the_board(box_run):
    status, out = box_run('/bin/sh', '-c', 'ifconfig eth0; ifconfig eth1')
    assert status == 0
    assert b'inet addr:192.168.1.100  Bcast' in out
    assert b'inet addr:192.168.2.100  Bcast' in out
    assert out.count(b'HWaddr ') == 2
