"""The station page: every slot of a run live in a browser, the plan's
questions answered there, each verdict readable from across the bench.

    station = Station([{'slot': 1, 'label': 'box#1', 'target': 'box'}], plan_name='board')
    station.start()                  # station.url (and station.token off loopback)
    station.publish({'type': 'board', 'slot': 1, ...})
    station.ask(1, 'judge', 'Are all panel LEDs green?', choices=['Yes', 'No'])

Standard library only: a threaded HTTP server, Server-Sent Events for the
pushes, the page's own files from harness/web and its words from
harness/lang/LANG.toml.
"""
import hmac
import ipaddress
import json
import queue
import re
import secrets
import socket
import threading
import time
import tomllib
import uuid
from collections import deque
from datetime import datetime, timezone
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from urllib.parse import parse_qs, urlsplit

HERE = Path(__file__).resolve().parent
LANG_DIR = HERE / 'lang'
FILES = {'/': ('index.html', 'text/html; charset=utf-8'),
         '/page.css': ('page.css', 'text/css; charset=utf-8'),
         '/page.js': ('page.js', 'text/javascript; charset=utf-8')}
TOKEN_HEADER = 'X-Station-Token'
KEEP_ALIVE = 15          # seconds between comments on a quiet stream (proxies drop idle ones)
HISTORY = 20
MAX_BODY = 64 * 1024
ACTION = re.compile(r'/slot/(\d+)/(start|answer)')


def now():
    return datetime.now(timezone.utc).isoformat(timespec='seconds')


def words(lang):
    """The page's words in LANG; a plant's partial table falls back to English."""
    path = LANG_DIR / f'{lang}.toml'
    if not re.fullmatch(r'[A-Za-z_-]+', lang) or not path.is_file():
        have = ', '.join(sorted(p.stem for p in LANG_DIR.glob('*.toml')))
        raise ValueError(f'no words for language {lang!r} (harness/lang has {have})')
    table = tomllib.loads((LANG_DIR / 'en.toml').read_text('utf-8'))
    table.update(tomllib.loads(path.read_text('utf-8')))
    return table


def is_loopback(host):
    if host == 'localhost':
        return True
    try:
        return ipaddress.ip_address(host).is_loopback
    except ValueError:
        return False


class Refused(Exception):
    """A request the station turns down; nothing changed."""

    def __init__(self, status, message):
        super().__init__(message)
        self.status = status


def new_card(slot, plan_name):
    return {'slot': slot['slot'], 'label': slot.get('label', str(slot['slot'])),
            'target': slot.get('target', ''), 'state': 'idle', 'serial': None,
            'identity': {}, 'plan': plan_name, 'total': 0, 'step': None,
            'measured': None, 'measurements': [], 'verdict': None,
            'first_failure': None, 'question': None, 'startable': False}


class Station:
    def __init__(self, slots, *, plan_name, lang='en', host='127.0.0.1', port=0, token=None):
        self.words, self.lang = words(lang), lang
        self.plan_name, self.host, self.port = plan_name, host, port
        # Off loopback anyone on the line's network could press a button.
        self.token = token or (None if is_loopback(host) else secrets.token_urlsafe(18))
        self.cond = threading.Condition(threading.RLock())
        self.cards = {s['slot']: new_card(s, plan_name) for s in slots}
        self.questions, self.answered = {}, set()
        self.waiting, self.starts = set(), {}
        self.history, self.passed, self.finished = deque(maxlen=HISTORY), 0, 0
        self.clients, self.closed = set(), False
        self.server = self.thread = None
        self.url = None

    # -- life --------------------------------------------------------------
    def start(self):
        self.server = Server((self.host, self.port), self)
        self.port = self.server.server_address[1]
        # On every address the other screens on the line reach it by this PC's name.
        shown = self.host if self.host not in ('', '0.0.0.0', '::') else socket.gethostname()
        shown = f'[{shown}]' if ':' in shown else shown
        self.url = f'http://{shown}:{self.port}/'
        self.thread = threading.Thread(target=self.server.serve_forever, name='station-page',
                                       daemon=True)
        self.thread.start()
        return self

    def close(self):
        with self.cond:
            self.closed = True
            for q in self.clients:
                q.put(None)
            self.cond.notify_all()
        if self.server:
            self.server.shutdown()
            self.server.server_close()
            self.server = None

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.close()

    # -- what the runner calls -----------------------------------------------
    def publish(self, event):
        """Apply EVENT to its slot's card and push it to every open page."""
        with self.cond:
            card = self._card(event['slot'], KeyError)
            event = dict(event, at=time.time())
            getattr(self, '_on_' + event['type'], lambda c, e: None)(card, event)
            message = dict(event, card=card)
            if event['type'] == 'verdict':
                message.update(self._tally())
            data = json.dumps(message)
            for q in self.clients:
                q.put(data)

    def ask(self, slot, kind, text, choices=None, pattern=None, timeout=None):
        """Block until the page answers: {'answer', 'by', 'at'}; None on time-out."""
        if kind not in ('prompt', 'judge', 'scan'):
            raise ValueError(f'unknown question kind {kind!r}')
        choices = ['OK'] if kind == 'prompt' else list(choices or []) or None
        question = {'id': uuid.uuid4().hex[:12], 'kind': kind, 'text': text,
                    'choices': choices, 'pattern': pattern}
        with self.cond:
            self._card(slot, KeyError)
            self.questions[slot] = question
            self.publish({'type': 'ask', 'slot': slot, 'id': question['id'], 'kind': kind,
                          'text': text, 'choices': choices})
            self.cond.wait_for(lambda: 'reply' in question or self.closed, timeout)
            if 'reply' in question:
                return question['reply']
            self._close_question(slot, question, None, None)
            return None

    def wait_start(self, slot):
        """Block until the slot is started on the page: {'serial', 'by', 'at'}
        (None when the station closes)."""
        with self.cond:
            self._card(slot, KeyError)
            self.waiting.add(slot)
            self.publish({'type': 'waiting', 'slot': slot})
            self.cond.wait_for(lambda: slot in self.starts or self.closed)
            return self.starts.pop(slot, None)

    # -- what the page asks for ------------------------------------------------
    def answer(self, slot, body, by):
        with self.cond:
            self._card(slot)
            question = self.questions.get(slot)
            qid = body.get('id')
            if not isinstance(qid, str):
                raise Refused(400, "the answer must name its question's id")
            if question is None or question['id'] != qid:
                if qid in self.answered:
                    raise Refused(409, f'question {qid} on slot {slot} was already answered')
                raise Refused(409, f'slot {slot} has no open question {qid}')
            answer = body.get('answer')
            if not isinstance(answer, str):
                raise Refused(400, 'the answer must be text')
            self._check(question, answer)
            question['reply'] = {'answer': answer, 'by': by, 'at': now()}
            self._close_question(slot, question, answer, by)
            return question['reply']

    def start_slot(self, slot, body, by):
        with self.cond:
            card = self._card(slot)
            if card['state'] in ('running', 'starting'):
                raise Refused(409, f'slot {slot} is {card["state"]}')
            if slot not in self.waiting:
                raise Refused(409, f'slot {slot} is not waiting for a start')
            serial = body.get('serial')
            if serial is not None and not isinstance(serial, str):
                raise Refused(400, 'the serial must be text')
            serial = (serial or '').strip() or None
            self.waiting.discard(slot)
            self.starts[slot] = {'serial': serial, 'by': by, 'at': now()}
            self.publish({'type': 'start', 'slot': slot, 'serial': serial, 'by': by})
            self.cond.notify_all()
            return self.starts[slot]

    def subscribe(self, can_act):
        """A queue of the pushes to come, and the snapshot they follow."""
        with self.cond:
            q = queue.Queue()
            self.clients.add(q)
            snapshot = {'type': 'snapshot', 'at': time.time(), 'plan': self.plan_name,
                        'lang': self.lang, 'words': self.words, 'can_act': can_act,
                        'slots': list(self.cards.values()), **self._tally()}
            return q, json.dumps(snapshot)

    def unsubscribe(self, q):
        with self.cond:
            self.clients.discard(q)

    def allowed(self, given):
        return not self.token or hmac.compare_digest(given or '', self.token)

    # -- the cards -------------------------------------------------------------
    def _card(self, slot, error=None):
        card = self.cards.get(slot)
        if card is None:
            if error:
                raise error(f'no slot {slot} on this station')
            raise Refused(404, f'no slot {slot} on this station')
        return card

    @staticmethod
    def _check(question, answer):
        if question['choices'] and answer not in question['choices']:
            raise Refused(400, f'{answer!r} is not one of {", ".join(question["choices"])}')
        if question['kind'] == 'scan':
            pattern = question['pattern']
            if not answer.strip() or (pattern and not re.fullmatch(pattern, answer)):
                raise Refused(400, f'{answer!r} does not match the expected label {pattern}')

    def _close_question(self, slot, question, answer, by):
        del self.questions[slot]
        self.answered.add(question['id'])
        self.publish({'type': 'answered', 'slot': slot, 'id': question['id'],
                      'answer': answer, 'by': by})
        self.cond.notify_all()

    def _tally(self):
        return {'history': list(self.history),
                'yield': {'passed': self.passed, 'finished': self.finished}}

    def _on_board(self, card, e):
        card.update(state='running', serial=e.get('serial'), identity=e.get('identity') or {},
                    plan=e.get('plan') or self.plan_name, total=e.get('total') or 0, step=None,
                    measured=None, measurements=[], verdict=None, first_failure=None,
                    startable=False)

    def _on_step(self, card, e):
        card['step'] = {k: e.get(k) for k in ('index', 'total', 'name', 'state', 'why',
                                                'elapsed')}
        card['step']['at'] = e['at']
        if e.get('measurements'):
            card['measured'], card['measurements'] = e.get('name'), e['measurements']

    def _on_verdict(self, card, e):
        card.update(state=e['verdict'], verdict=e['verdict'],
                    first_failure=e.get('first_failure') or None,
                    serial=e.get('serial') or card['serial'],
                    startable=card['slot'] in self.waiting)
        self.finished += 1
        self.passed += e['verdict'] == 'pass'
        self.history.appendleft({'slot': card['slot'], 'label': card['label'],
                                 'serial': card['serial'], 'verdict': e['verdict'],
                                 'first_failure': card['first_failure'], 'at': now()})

    def _on_ask(self, card, e):
        card['question'] = {k: e[k] for k in ('id', 'kind', 'text', 'choices')}

    def _on_answered(self, card, e):
        card['question'] = None

    def _on_waiting(self, card, e):
        card['startable'] = card['state'] != 'running'

    def _on_start(self, card, e):
        card.update(state='starting', serial=e['serial'], step=None, measured=None,
                    measurements=[], verdict=None, first_failure=None, startable=False)


class Server(ThreadingHTTPServer):
    daemon_threads = True      # a page left open must not hold the station's end

    def __init__(self, address, station):
        self.address_family = socket.AF_INET6 if ':' in address[0] else socket.AF_INET
        self.station = station
        super().__init__(address, Handler)


class Handler(BaseHTTPRequestHandler):
    server_version = 'station-page'

    def log_message(self, *args):
        pass    # a station runs for a shift: no line per request on its terminal

    @property
    def station(self):
        return self.server.station

    def reply(self, status, body, kind='application/json'):
        data = body if isinstance(body, bytes) else json.dumps(body).encode()
        self.send_response(status)
        self.send_header('Content-Type', kind)
        self.send_header('Content-Length', str(len(data)))
        self.send_header('Cache-Control', 'no-store')
        self.end_headers()
        self.wfile.write(data)

    def do_GET(self):
        url = urlsplit(self.path)
        if url.path == '/events':
            token = parse_qs(url.query).get('token', [''])[0]
            return self.stream(self.station.allowed(token))
        if url.path not in FILES:
            return self.reply(404, {'error': f'nothing at {url.path}'})
        name, kind = FILES[url.path]
        self.reply(200, (HERE / 'web' / name).read_bytes(), kind)

    def stream(self, can_act):
        q, snapshot = self.station.subscribe(can_act)
        try:
            self.send_response(200)
            self.send_header('Content-Type', 'text/event-stream')
            self.send_header('Cache-Control', 'no-store')
            self.end_headers()
            data = snapshot
            while data is not None:
                self.wfile.write(f'data: {data}\n\n'.encode() if data else b': keep-alive\n\n')
                self.wfile.flush()
                try:
                    data = q.get(timeout=KEEP_ALIVE)
                except queue.Empty:
                    data = ''
        except OSError:
            pass    # the page went away
        finally:
            self.station.unsubscribe(q)

    def do_POST(self):
        try:
            self.reply(200, self.act())
        except Refused as e:
            self.reply(e.status, {'error': str(e)})

    def act(self):
        station = self.station
        if not station.allowed(self.headers.get(TOKEN_HEADER)):
            raise Refused(403, "this page is read-only: open it with the station's token "
                               "(?token=... as printed when the station started)")
        match = ACTION.fullmatch(urlsplit(self.path).path)
        if not match:
            raise Refused(404, f'nothing to do at {self.path}')
        body = self.body()
        name = str(body.get('by') or '').strip()[:40]
        by = f'{name} ({self.client_address[0]})' if name else self.client_address[0]
        slot = int(match[1])
        if match[2] == 'start':
            return station.start_slot(slot, body, by)
        return station.answer(slot, body, by)

    def body(self):
        # JSON only: a form posted from another site cannot pass for the page.
        if self.headers.get_content_type() != 'application/json':
            raise Refused(415, 'send JSON (Content-Type: application/json)')
        length = int(self.headers.get('Content-Length') or 0)
        if length > MAX_BODY:
            raise Refused(413, 'request too large')
        try:
            body = json.loads(self.rfile.read(length) or b'{}')
        except ValueError:
            raise Refused(400, 'the request is not JSON') from None
        if not isinstance(body, dict):
            raise Refused(400, 'the request must be a JSON object')
        return body
