"""The console client: answers cut into verdicts from recorded console bytes,
then a box board for confirmations and time-outs."""
import time

import pytest

from harness.client import LIMIT, Console, ConsoleError
from harness.protocol import BANNER, parse_answer, parse_frame, text_of
from harness.timeouts import default_timeout
from harness.transports import open_board

PROMPT = len('[PLM7140-equipment]')
BAR = b'|' + b'*' * 40 + b'|'
# What the box's console showed after each command's echo (bars shortened).
RECORDED = {
    'tftp progress': (b'\r\r\n@\rmanu.txt   100% ' + BAR + b'  292k  0:00:00 ETA\rmanu.txt   100% '
                      + BAR + b'  292k  0:00:00 ETA\r\n\r\r\nPlease check the test result'
                      b'\r\r\ntest result:pass\r\r\n$$'),
    'busybox glued': (b"\r\r\n@2+0 records in\r\n2+0 records out\r\ntftp: can't open '/tmp/x.tar': "
                      b"No such file or directory\r\n\r\r\nerror: tftp -p 192.168.1.1 -l /tmp/x.tar "
                      b"-r x.tar failed\r\r\n\rTFTP Failed\r\r\ntest result:fail\r\r\n$$"),
    'gbk': b'\r\r\n@\r\r\nesata status\xa3\xbaabsent \r\r\ntest result:fail\r\r\n$$',
    'validator': (b'\r\r\nthe temperature value or format not support, should be -100 ~ 100\r\r\n'
                  + b' ' * 48 + b'^\r\r\nWrong Command Input!'),
    'incomplete': b'\r\r\n' + b' ' * 30 + b'^\r\r\nInComplete Command Input!',
    'ambiguous': b'\r\r\n' + b' ' * 26 + b'^\r\r\nAmbiguous Command Input!',
}


@pytest.mark.parametrize('name, verdict, text, message, caret', [
    ('tftp progress', 'pass', 'manu.txt   100% ' + BAR.decode() + '  292k  0:00:00 ETA\n'
     'Please check the test result', None, None),
    ('busybox glued', 'fail', "2+0 records in\n2+0 records out\ntftp: can't open '/tmp/x.tar': "
     "No such file or directory\nerror: tftp -p 192.168.1.1 -l /tmp/x.tar -r x.tar failed\n"
     "TFTP Failed", None, None),
    ('gbk', 'fail', 'esata status：absent ', None, None),
    ('validator', 'refused', 'the temperature value or format not support, should be -100 ~ 100',
     'Wrong Command Input!', 27),
    ('incomplete', 'incomplete', '', 'InComplete Command Input!', 9),
    ('ambiguous', 'refused', '', 'Ambiguous Command Input!', 5),
])
def test_answers(name, verdict, text, message, caret):
    answer = parse_answer(RECORDED[name], PROMPT)
    assert (answer.verdict, text_of(answer.lines), answer.message, answer.caret) == \
        (verdict, text, message, caret)


def test_frame_keeps_the_handlers_bytes():
    frame = parse_frame(b'\r\r\n@\r\r\nTemperature: 43\r\r\ntest result:pass\r\r\n$$\r\r\n')
    assert frame.passed and frame.lines == [b'Temperature: 43']
    assert frame.body_raw == b'\r\nTemperature: 43'


@pytest.mark.parametrize('command, baud, wait', [
    # A packet: (15060000 / baud + 100) ms, then 5 s for one that never comes.
    ('test rs 232 loopback 64 255 0 0', 9600, 255 * 1.668 + 5),
    ('test rs 232 loopback 64 255 0 0', 115200, 255 * 0.230 + 5),
    ('test 485 0 1 loopback 16 40 0', 9600, 40 * 1.668 + 5),
    ('ping  -c 30 192.168.1.1', 9600, 3 + 30 + 10),
    ('test watchdog', 9600, 5),
    ('test led on', 9600, 0),
])
def test_timeouts_follow_the_tools_waits(command, baud, wait):
    assert default_timeout(command, baud) == pytest.approx(max(10, wait * 1.25 + 5))


class Scripted:
    """A console that shows `shown`, a chunk a read, and takes everything,
    or shows nothing and takes nothing."""
    def __init__(self, shown=()):
        self.shown, self.takes = iter(shown), bool(shown)

    def read(self, timeout):
        return next(self.shown, None) or time.sleep(timeout) or b''

    def write(self, data, timeout):
        return len(data) if self.takes else time.sleep(timeout) or 0


def scripted(shown=()):
    console = Console(Scripted(shown), target='scripted', kind='exec')
    console.usable, console.mode = True, 'equipment'
    return console


@pytest.mark.parametrize('command, why', [
    ('test mainboard temperature 0 1\rtest led on', r"'\r'"), ('test led on\x1b[A', r"'\x1b'"),
    ('test led on\n', r"'\n'"), ('test\tled on', r"'\t'"), ('test led ?', 'help'),
    ('test led on\x9b', r"'\x9b'"), ('test led on', 'took no more of the command'),
])
def test_a_command_is_one_line_typed_within_its_time_out(command, why):
    try:  # to a console that takes nothing
        result = scripted().run(command, timeout=0.5)
        assert result.verdict == 'timeout' and why in result.message and result.duration < 1
    except ValueError as refused:
        assert why in str(refused)


@pytest.mark.parametrize('shown, error', [
    # The prompt again (for a line break sent before the shell showed it), then cli's echo.
    ([b'/ # ', b'\r\n/ # ', b'cli\r\nEQUIPMENT_TEST_OK\r\r\n<PLM7140>',
      b'\r\r\n[PLM7140-equipment]'], None),
    ([b'/ # ', b'cli\r\nsh: cli: not found\r\n/ # '], 'cli did not start'),
])
def test_a_shell_gets_cli_typed_once(shown, error):
    console = Console(Scripted(shown), target='scripted', kind='exec')
    if error:
        with pytest.raises(ConsoleError, match=error):
            console.start()
    else:
        assert console.start().banner == BANNER and console.mode == 'equipment'


@pytest.mark.parametrize('size', [1000, 3 * LIMIT])
def test_a_flood_keeps_its_head_and_tail(size):
    chunk = min(size, 4096)
    flood = [b'test flood\r\r\n@\r\r\nhead\r\r\n'] + [b'y' * chunk] * (size // chunk)
    end = b'\r\r\ntail\r\r\ntest result:pass\r\r\n$$\r\r\n[PLM7140-equipment]'
    console = scripted(flood + [end])
    result = console.run('test flood')
    assert len(console._buf) <= 2 * LIMIT  # read in bounded memory
    lines = result.text.split('\n')
    kept = sum(len(line) for line in lines if line.startswith('y'))
    assert result.passed and abs(len(result.raw) - min(size, LIMIT)) < 100
    assert lines[0] == 'head' and lines[-1] == 'tail'
    assert (f'[{size - kept} bytes dropped]' in lines) == (size > LIMIT)


@pytest.fixture
def box(tmp_path):
    console = open_board('box', workdir=tmp_path)
    yield console
    console.close()


@pytest.mark.needs_cli
def test_confirmation_answered_from_the_step(box):
    assert box.run('set serverip 192.168.1.1').passed
    refused = box.run('test x4tox2 2X2.tar.bz2')
    assert (refused.verdict, refused.confirmation) == ('pass', 'n')
    assert not (box.state / 'pcie_lanes').exists()
    confirmed = box.run('test x4tox2 2X2.tar.bz2', answer='y')
    assert (confirmed.verdict, confirmed.confirmation) == ('pass', 'y')
    assert (box.state / 'pcie_lanes').read_text().split() == ['2x2']


@pytest.mark.needs_cli
def test_timeouts_recover_or_leave_the_console_unusable(box):
    slow = box.run('test watchdog', timeout=0.02)
    assert slow.verdict == 'timeout' and 'brought it back' in slow.message and box.usable
    assert box.run('test led on').passed
    # A receiver that sends nothing leaves the tool in its read for good.
    (box.state / 'serial' / 'ttyS9').write_text('gps silent\n')
    stuck = box.run('test nvrgps get satellite 0', timeout=1)
    assert stuck.verdict == 'timeout' and not box.usable
    with pytest.raises(ConsoleError):
        box.run('test led on')
    box.restart()
    assert box.usable and box.run('test led on').passed


@pytest.mark.needs_cli
def test_the_serial_rate_is_the_one_the_tool_took(box):
    for command, verdict, baud in [('test rs 232 set rate 115200 0', 'pass', 115200),
                                   ('test rs 232 set rate 9600 7', 'fail', 115200),
                                   ('test rs 232 set rate 12345 0', 'refused', 115200),
                                   ('test 485 0 set rate 9600', 'pass', 9600),
                                   ('test 485 9 set rate 115200', 'fail', 9600)]:
        assert (box.run(command).verdict, box.baud) == (verdict, baud), command


@pytest.mark.needs_cli
def test_long_commands_never_block_the_console(box):
    # The tool echoes what it cannot keep; unread, its echo stops it reading.
    for length in 10_000, 100_000:
        result = box.run('x' * length, timeout=10)
        assert result.verdict == 'refused' and result.duration < 10 and box.usable
