"""Whole tables and their boundaries, one box per table: every time-zone row
both ways through the driver, every GSV talker, and the ports either side of
each link selector's boundary. The rows are written here from the tables'
descriptions, not taken from the tool."""
import pytest

pytestmark = pytest.mark.needs_cli

PC = '192.168.1.1'

# Operator's form -> driver's (POSIX sign, city names for the fractions).
SET_ZONES = ([('GMT', 'GMT')] + [(f'GMT-{h}', f'GMT+{h}') for h in range(13)]
             + [(f'GMT+{h}', f'GMT-{h}') for h in range(15)]
             + [('GMT+3.5', 'Tehran'), ('GMT+4.5', 'Kabul'), ('GMT+5.5', 'Calcutta'),
                ('GMT+5.75', 'Katmandu'), ('GMT+6.5', 'Rangoon'), ('GMT+9.5', 'Adelaide'),
                ('GMT-3.5', 'Newfoundland'), ('GMT-4.5', 'Caracas')])
# Names without a row go to the driver as typed.
UNTRANSLATED = ['GMT-13', 'GMT-14', 'GMT+7.5', 'UTC', 'Tehran']
GET_ZONES = ([('GMT', 'GMT')] + [(f'GMT+{h}', f'GMT-{h}') for h in range(13)]
             + [(f'GMT-{h}', f'GMT+{h}') for h in range(15)]
             + [('UCT', 'UCT'), ('UTC', 'UTC'), ('IRST', 'GMT+3.5'), ('AFT', 'GMT+4.5'),
                ('IST', 'GMT+5.5'), ('NPT', 'GMT+5.75'), ('MMT', 'GMT+6.5'), ('CST', 'GMT+9.5'),
                ('NDT', 'GMT-3.5'), ('VET', 'GMT-4.5')])
# (shown, typed): the zone is shown as typed when both mean the same.
SAME_ZONE = [('GMT+3.5', 'Tehran'), ('GMT+4.5', 'Kabul'), ('GMT+5.5', 'Calcutta'),
             ('GMT+5.75', 'Katmandu'), ('GMT+6.5', 'Rangoon'), ('GMT+9.5', 'Adelaide'),
             ('GMT-3.5', 'Newfoundland'), ('GMT-4.5', 'Caracas'), ('GMT', 'GMT+0'),
             ('GMT', 'GMT-0')]


def shown(reported, typed):
    current = dict(GET_ZONES).get(reported, reported)
    return typed if (current, typed) in SAME_ZONE else current


def test_every_time_zone_row_both_ways(board):
    def getzone():
        return board.command('test rtc getzone').body.decode()

    wrong = []
    for typed, sent in SET_ZONES + [(name, name) for name in UNTRANSLATED]:
        since = board.mark()
        board.command(f'test rtc setzone {typed}')
        got = [e['zone'] for e in board.journal('drv', 'DRV_PerpCtl', 0x1610, since=since)]
        answer = getzone()
        want = f'rtc current getzone: {shown(sent, typed)}\r\nrtc factory getzone: {typed}'
        if (got, answer) != ([sent], want):
            wrong.append((typed, got, answer))
    # Reported names the operator never typed: the get table alone, then
    # with each typed form the equivalence keeps.
    typed_by_shown = {current: typed for current, typed in SAME_ZONE}
    for reported, current in GET_ZONES:
        board.write('timezone', reported)
        for typed in ('Europe/Paris', typed_by_shown.get(current)):
            if typed:
                board.write('nvram/factory_timezone', typed)
                want = f'rtc current getzone: {shown(reported, typed)}\r\nrtc factory getzone: {typed}'
                if (answer := getzone()) != want:
                    wrong.append((reported, typed, answer))
    assert wrong == []


def gsv(talker, count, messages=1):
    """A constellation's GSV group; each message repeats the count in view."""
    return [f'{talker}GSV,{messages},{n},{count},01,40,140,37' for n in range(1, messages + 1)]


# Counts whose every subset has its own sum: a talker left out shows.
GSV_RUNS = [
    (gsv('BD', '03', 2) + gsv('GP', '06', 3) + gsv('GL', '12') + gsv('GN', '24', 2)
     + ['GNZDA,081530.00,01,05,2024,00,00'], 45),
    (gsv('GN', '24') + gsv('GL', '12', 2) + gsv('GP', '06') + gsv('BD', '03'), 45),
    # Only a talker's first sentence counts, a bad one too.
    (gsv('GP', '123') + gsv('GP', '06') + gsv('BD', '03') + gsv('GL', '') + gsv('GL', '12')
     + gsv('GN', '24'), 27),
]


def test_every_gsv_talker_counts_once(board):
    seen = []
    for sentences, _ in GSV_RUNS:
        board.write('gps/nmea', '\n'.join(sentences))
        board.settle(1.2)  # the receiver sends the new sentences at its next tick
        seen.append(board.command('test nvrgps get satellite 0', timeout=30).body)
    assert seen == [f'Satellite Num: {total}\n'.encode() for _, total in GSV_RUNS]


# Ping waits for the link its selector names (1 for copper ports 0-3 and the
# fiber ports, 0 from copper port 4 on); the link test asks for the copper
# port itself and for port 0's link for every fiber port.
def ping_selector(port, kind):
    return 1 if kind == 'fiber' or port <= 3 else 0


def ping_expected(port, kind, up):
    name = f'SFP{port}' if kind == 'fiber' else f'GE{port}'
    if up[ping_selector(port, kind)]:
        return 'pass', b''
    lines = [f'error:port {name} link down'] + ([f'error:port {name} ping failed'] if kind else [])
    return 'fail', '\r\n'.join(lines).encode()


def link_expected(port, kind, up):
    name, link = (f'SFP{port}', up[0]) if kind == 'fiber' else (f'GE{port}', up[port])
    verdict = 'ok' if link else 'error'
    return ('pass' if link else 'fail'), f'{name} test ............... {verdict}'.encode()


LINK_STATES = [{0: True, 1: False, 3: True, 4: False}, {0: False, 1: True, 3: False, 4: True}]
PINGS = [(3, ''), (4, ''), (3, 'copper'), (4, 'copper'), (0, 'fiber'), (1, 'fiber')]
LINKS = [(3, 'copper'), (4, 'copper'), (1, 'fiber')]


def test_link_selectors_either_side_of_their_boundaries(board):
    seen, want = [], []
    for up in LINK_STATES:
        for port, state in up.items():
            board.write(f'link/{port}', 'up' if state else 'down')
        for port, kind in PINGS:
            frame = board.command(f'ping -c 1 {PC} {port} {kind}'.rstrip(), timeout=30)
            seen.append((port, kind, frame.result, frame.body))
            want.append((port, kind, *ping_expected(port, kind, up)))
        for port, kind in LINKS:
            frame = board.command(f'test ethernet {port} link {kind}', timeout=30)
            seen.append((port, kind, frame.result, frame.body))
            want.append((port, kind, *link_expected(port, kind, up)))
    assert seen == want
