"""test rtc: the chip, nvram and the box's own clock; zone names both ways."""
import re
import shutil
import time
from datetime import datetime, timezone
from pathlib import Path

import pytest

pytestmark = pytest.mark.needs_cli
REPO = Path(__file__).resolve().parents[2]


def test_settime_sets_chip_nvram_and_box_clock(board, box_run):
    host_before = time.time()
    frame = board.command('test rtc settime 23:59:30 2030-12-31', timeout=20)
    assert (frame.result, frame.body) == ('pass', b'RTC_Chip time set is 23:59:30 2030-12-31')
    ahead = datetime(2030, 12, 31, 23, 59, 30, tzinfo=timezone.utc).timestamp() - time.time()
    assert abs(int(board.read('rtc')) - ahead) < 5
    # hwclock -s moved the box's clock (fast: it also runs twenty times faster).
    assert abs(int(board.read('clock').split()[0]) - ahead) < 300
    assert (board.read('nvram/rtcdate'), board.read('nvram/rtctime')) == (
        '2030-12-31\n', '23:59:30\n')
    frame = board.command('test rtc gettime')
    assert frame.body_raw.startswith(b'\r\nRTC_Chip saved')
    saved, now = frame.body.split(b'\r\n')
    assert saved == b'RTC_Chip saved set time is 23:59:30 2030-12-31'
    assert re.fullmatch(rb'RTC_Chip time get is (23:59:[3-5]\d 2030-12-31|00:00:\d\d 2031-01-01) ',
                        now)
    board.line('quit')
    # The chip kept running across runs; date in the box shows it once hwclock -s ran.
    status, out = box_run('/bin/sh', '-c', 'hwclock -s && date -u +%Y-%m-%d', state=board.state)
    assert status == 0 and re.search(rb'2030-12-31|2031-01-01', out)
    assert time.time() - host_before < 60


@pytest.mark.parametrize('time_, date', [
    ('24:00:00', '2020-01-01'), ('1:02:03', '2020-01-01'), ('12:00:00', '2019-02-29'),
    ('12:00:00', '1999-12-31'), ('12:00:00', '2038-01-01'), ('12:00:00', '2020-1-01'),
])
def test_validators_refuse(board, time_, date):
    assert b'test result' not in board.line(f'test rtc settime {time_} {date}')
    assert board.journal('open', '/dev/rtc') == []


def test_rtc_nodes_in_order_and_failures(box_factory, tmp_path):
    # The box's /dev is made at start: the board has only its third RTC name.
    shutil.copytree(REPO / 'sim' / 'default-state' / 'dev', tmp_path / 'st' / 'dev')
    (tmp_path / 'st' / 'dev' / 'rtc').unlink()
    (tmp_path / 'st' / 'dev' / 'misc').mkdir()
    (tmp_path / 'st' / 'dev' / 'misc' / 'rtc').touch()
    board = box_factory(state=tmp_path / 'st', fast=True).start()
    board.enter_equipment()
    assert board.command('test rtc settime 00:00:00 2000-02-29').result == 'pass'
    assert {e.name for e in board.journal('open') if 'rtc' in e.name} == {'/dev/misc/rtc'}
    board.remove('dev/misc/rtc')
    assert board.command('test rtc gettime').body == b'open rtc dev failed'
    board.write('dev/misc/rtc', '')
    board.fail('ioctl./dev/misc/rtc.0x4024700a')
    assert board.command('test rtc settime 00:00:00 2024-02-29').body == b'write rtc failed'
    board.fail('ioctl./dev/misc/rtc.0x80247009')
    assert board.command('test rtc gettime').body == b'read rtc failed'
    board.unfail('ioctl./dev/misc/rtc.0x80247009')
    board.remove('nvram/rtctime')
    frame = board.command('test rtc gettime')
    assert frame.result == 'fail' and frame.body.endswith(b'\r\nread rtc time from flash error')
    frame = board.command('test rtc battery')
    assert (frame.result, frame.body) == ('pass', b'')


# Every row of the zone tables is in test_tables.py; here the long name's cuts.
def test_setzone_cuts_a_long_name(board):
    typed, sent = 'Europe/' + 'X' * 40, 'Europe/' + 'X' * 24
    frame = board.command(f'test rtc setzone {typed}')
    assert (frame.result, frame.body) == ('pass', f'TimeZone setzone: {typed[:31]}'.encode())
    assert [e['zone'] for e in board.journal('drv', 'DRV_PerpCtl', 0x1610)] == [sent]
    assert board.read('nvram/factory_timezone') == typed[:31] + '\n'


def test_zone_failures(board):
    board.fail('DRV_PerpCtl.0x1610')
    assert board.command('test rtc setzone GMT+8').body == b'set time zone GMT-8 failed'
    board.remove('nvram/factory_timezone')
    assert board.command('test rtc getzone').body.endswith(b'\r\nsave factory_timezone=GMT-8 to flash error')
    board.fail('DRV_PerpCtl.0x1611')
    assert board.command('test rtc getzone').body == b'get time zone failed'


def test_nvram_failures(board):
    # A fresh board has never stored a date.
    frame = board.command('test rtc gettime')
    assert (frame.result, frame.lines[-1]) == ('fail', b'read rtc date from flash error')
    for skip, message in ((0, b'save rtc date to flash error'), (1, b'save rtc time to flash error')):
        board.fail('ioctl./dev/hal_nvram.0x40615', skip=skip)
        frame = board.command('test rtc settime 12:00:00 2024-01-01')
        assert (frame.result, frame.lines[-1]) == ('fail', message)
