"""The console client: answers cut into verdicts from recorded console bytes,
then a box board for confirmations and time-outs."""
import pytest

from harness.client import ConsoleError
from harness.protocol import parse_answer, parse_frame, text_of
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


def test_timeouts_follow_the_tools_waits():
    # 255 packets at 9600 baud: 1,568 + 100 ms each; at 115200: 130 + 100 ms.
    assert default_timeout('test rs 232 loopback 64 255 0 0') > 255 * 1.668 + 5
    assert default_timeout('test rs 232 loopback 64 255 0 0', baud=115200) < 255 * 1.668
    assert default_timeout('ping  -c 30 192.168.1.1') > 30 + 10
    assert default_timeout('test watchdog') > 5
    assert default_timeout('test led on') == 10


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
