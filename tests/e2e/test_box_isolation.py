"""What the tool does in the box stays in the box: the kill list meets only
the box's processes, the printk level and kernel settings written inside
leave the host's alone, and the box's interfaces and addresses never show on
the host. And the box shows the board, not this PC: /sys, /proc/bus and /dev
hold what the board's state puts there."""
import os
import shutil
import time
import subprocess
from pathlib import Path

import pytest

from boardbox import tool_argv

HOST_PRINTK = Path('/proc/sys/kernel/printk')
DEFAULT_STATE = Path(__file__).resolve().parents[2] / 'sim' / 'default-state'
# Describe no hardware: the pty instance, the standard streams, null and co.
HARMLESS_DEV = {'fd', 'full', 'null', 'ptmx', 'pts', 'random', 'shm', 'stderr', 'stdin',
                'stdout', 'tty', 'urandom', 'zero'}


@pytest.fixture
def host_mainsvc(tmp_path):
    """A host process carrying a name on the tool's kill list."""
    copy = tmp_path / 'mainsvc'
    shutil.copy('/usr/bin/sleep', copy)
    proc = subprocess.Popen([str(copy), '300'])
    yield proc
    proc.kill()
    proc.wait()


def in_box_service(then):
    # The same name inside the box; its end (137 = SIGKILL) is printed.
    return ('cp /usr/bin/sleep /tmp/mainsvc; /tmp/mainsvc 300 & svc=$!; '
            f'{then}; wait $svc; echo "mainsvc ended $?"')


def test_killall_reaches_only_the_box(box_run, host_mainsvc):
    status, out = box_run('/bin/sh', '-c', in_box_service('sleep 0.2; killall -9 mainsvc'))
    assert status == 0, out
    assert b'mainsvc ended 137' in out
    assert host_mainsvc.poll() is None


@pytest.mark.needs_cli
def test_kill_list_and_printk_stay_in_the_box(box_factory, host_mainsvc):
    host_printk = HOST_PRINTK.read_text()
    board = box_factory(run=['/bin/sh', '-c', in_box_service(' '.join(tool_argv(in_box=True)))],
                        fast=True).start()
    board.ready()
    host_links = subprocess.run(['ip', '-o', 'addr'], capture_output=True, text=True).stdout
    board.send('q\r')
    board.expect('mainsvc ended 137')
    assert board.wait() == 0
    assert host_mainsvc.poll() is None, 'a host process was killed from inside the box'
    assert HOST_PRINTK.read_text() == host_printk
    assert board.read('proc/sys/kernel/printk').split()[0] == '0'
    for name in ('pc0', 'pc1', '192.168.1.', '192.168.2.'):
        assert name not in host_links


def host_network():
    return [subprocess.run(['ip', '-o', what], capture_output=True, text=True).stdout
            for what in ('link', 'addr')]


@pytest.mark.needs_cli
def test_addresses_set_in_the_box_stay_there(box_factory):
    before = host_network()
    board = box_factory(fast=True).start()
    board.enter_equipment()
    assert board.command('test ethernet setmac 02:11:22:33:44:55').passed
    assert board.command('set deviceip 192.168.1.77 1').passed
    assert board.command('set deviceip 192.168.2.77 0').passed
    assert board.quit() == 0
    assert host_network() == before


def test_kernel_settings_are_read_only_in_the_box(box_run):
    script = ('echo 3 > /proc/sys/kernel/printk && cat /proc/sys/kernel/printk; '
              'echo 1 > /proc/sys/vm/drop_caches && echo vm-written; '
              'date -s 2001-01-01 >/dev/null 2>&1; date +year-%Y; exit 0')
    status, out = box_run('/bin/sh', '-c', script)
    assert status == 0
    assert out.startswith(b'3\r\n')
    # The box keeps a clock of its own: date -s moves it, never the host's.
    assert b'vm-written' not in out and b'year-2001' in out
    assert time.gmtime().tm_year > 2001


def test_the_box_shows_the_board_not_the_host(box_factory):
    board = box_factory(run=['/bin/sh', '-c', 'cd / && find sys proc/bus dev ! -path "dev/pts/*"; '
                             'cat /sys/bus/pci/devices/0000:05:00.0/vendor; '
                             '(exec 3</dev/hal_sc) 2>/dev/null && echo hal_sc-opened; exit 0'])
    shutil.copytree(DEFAULT_STATE / 'dev', board.path('dev'))
    board.remove('dev/hal_sc')  # a board without the storage-card node
    board.path('pcie').mkdir()  # nor its PCIe devices and monitors
    board.path('hdmi').mkdir()
    board.write('sys/bus/pci/devices/0000:05:00.0/vendor', '0x1b4b')
    status, out = board.start().wait(), board.child.before.decode()
    assert status == 0, out
    seen = out.split()
    # The time library's shared memory is the box's own, in its /dev/shm.
    dev = {p[4:] for p in seen if p.startswith('dev/') and not p.startswith('dev/shm/')}
    nodes = {p.name for p in (DEFAULT_STATE / 'dev').iterdir()} - {'hal_sc'}
    # Storage images and serial lines of the state, and FUSE for the sticks.
    nodes |= {p.name for d in ('mmc', 'md', 'block', 'serial') for p in board.path(d).iterdir()}
    assert dev - HARMLESS_DEV == nodes | {'fuse'}
    assert not [p for p in seen if p.startswith('proc/bus/')]
    assert {p for p in seen if p.startswith('sys/')} == {
        'sys/bus', 'sys/bus/pci', 'sys/bus/pci/devices', 'sys/bus/pci/devices/0000:05:00.0',
        'sys/bus/pci/devices/0000:05:00.0/vendor'}
    assert '0x1b4b' in seen and 'hal_sc-opened' not in seen


def host_storage():
    """The host's block devices (with their first sectors where readable),
    its mounts, and the files the storage commands write on a board."""
    heads = {}
    for dev in Path('/dev').iterdir():
        if not dev.is_block_device():
            continue  # never open other nodes: a watchdog would arm
        try:
            with open(dev, 'rb') as disk:
                heads[dev.name] = disk.read(64 * 1024)
        except OSError:
            heads[dev.name] = 'unreadable'
    mounts = Path('/proc/self/mountinfo').read_text()
    files = {p: os.path.lexists(p) for p in ('/localtime', '/mmc', '/var/runtime', '/var/fs_disk',
                                             '/tmp/esata_name', '/var/usb_disk_sdd1')}
    return Path('/proc/partitions').read_text(), heads, mounts, files


@pytest.mark.needs_cli
def test_storage_commands_stay_in_the_box(box_factory):
    before = host_storage()
    board = box_factory(fast=True, timeout=30).start()
    board.enter_equipment()
    for line in ('test hdd 0 all 3 read', 'test esata sector 5', 'test usb access all'):
        board.command(line)
    board.send('clear information\r')
    board.expect('(Y/N)')
    board.send('y\r')
    assert b'test result:pass' in board.expect_prompt(timeout=60)
    assert host_storage() == before
    assert board.quit() == 0
