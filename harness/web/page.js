// The station page: a snapshot, then one pushed event at a time (Server-Sent
// Events); each event carries its slot's whole card, so the page only draws.
'use strict';

const query = new URLSearchParams(location.search);
const token = query.get('token') || '';
const operator = query.get('operator') || '';
const cards = new Map();          // slot -> {el, parts, card, since, asked, started}
let words = {};
let ticker = null;
// [published, shown] in ms since the epoch, for the benchmark.
window.stationLatency = [];

function say(key, vars = {}) {
  let text = words[key] ?? key;
  for (const [k, v] of Object.entries(vars)) text = text.replaceAll('{' + k + '}', v);
  return text;
}

function make(tag, cls, text) {
  const el = document.createElement(tag);
  if (cls) el.className = cls;
  if (text !== undefined) el.textContent = text;
  return el;
}

function connect() {
  const events = new EventSource('events' + (token ? '?token=' + encodeURIComponent(token) : ''));
  events.onmessage = (e) => receive(JSON.parse(e.data));
  events.onerror = () => notice(say('offline'), true);
}

function receive(msg) {
  if (msg.type === 'snapshot') setup(msg);
  else if (msg.card) draw(msg.card, msg.at);
  if (msg.history) tally(msg.history, msg.yield);
  if (msg.type !== 'snapshot' && stationLatency.length < 50000)
    stationLatency.push([msg.at * 1000, Date.now()]);
}

function notice(text, offline) {
  const el = document.getElementById('notice');
  el.hidden = !text;
  el.textContent = text || '';
  document.body.classList.toggle('offline', !!offline);
}

function setup(snap) {
  words = snap.words;
  document.documentElement.lang = snap.lang;
  document.title = say('title') + ' · ' + snap.plan;
  document.getElementById('title').textContent = say('title');
  document.getElementById('plan').textContent = say('plan') + ': ' + snap.plan;
  document.getElementById('history-title').textContent = say('history');
  for (const th of document.querySelectorAll('[data-word]')) th.textContent = say(th.dataset.word);
  document.body.classList.toggle('readonly', !snap.can_act);
  notice(snap.can_act ? '' : say('view_only'));
  const n = snap.slots.length;
  document.body.classList.remove('few', 'some', 'many');
  document.body.classList.add(n <= 4 ? 'few' : n <= 16 ? 'some' : 'many');
  const main = document.getElementById('slots');
  main.replaceChildren();
  cards.clear();
  for (const card of snap.slots) {
    const view = build(card);
    main.append(view.el);
    cards.set(card.slot, view);
    draw(card, snap.at);
  }
}

function build(card) {
  const el = make('article', 'card');
  el.id = 'slot-' + card.slot;
  const parts = {
    label: make('span', 'label', card.label), serial: make('span', 'serial'),
    ident: make('div', 'ident'), state: make('div', 'state'),
    bar: make('div', 'bar'), where: make('div', 'where'),
    n: make('span', 'n'), name: make('span', 'name'), time: make('span', 'time'),
    meas: make('div', 'meas'), verdict: make('div', 'verdict'), why: make('div', 'why'),
    ask: make('div', 'ask'), start: make('div', 'start'),
  };
  const head = make('div', 'head');
  head.append(parts.label, parts.serial);
  parts.bar.append(make('i'));
  parts.where.append(parts.n, parts.name, parts.time);
  el.append(head, parts.ident, parts.state, parts.bar, parts.where, parts.meas,
            parts.verdict, parts.why, parts.ask, parts.start);
  return {el, parts, card, since: 0, asked: null, started: null};
}

function draw(card, at) {
  const view = cards.get(card.slot);
  if (!view) return;
  const p = view.parts;
  view.card = card;
  view.el.className = 'card ' + card.state + (card.question ? ' asking' : '') +
      (card.startable ? ' startable' : '');
  p.serial.textContent = card.serial || '';
  const id = card.identity || {};
  p.ident.textContent = [id.board && say('board') + ' ' + id.board, card.plan]
      .filter(Boolean).join(' · ');
  p.state.textContent = card.startable ? say('waiting') : card.verdict ? '' : say(card.state);
  progress(view, card.step, card.total, at);
  measurements(p.meas, card);
  p.verdict.textContent = card.verdict ? say(card.verdict) : '';
  p.why.textContent = card.first_failure || '';
  question(view, card);
  starter(view, card);
  if (card.state === 'running' && !ticker) ticker = setInterval(tick, 500);
}

function progress(view, step, total, at) {
  const p = view.parts;
  if (!step) {
    p.bar.firstChild.style.width = '0';
    p.n.textContent = p.name.textContent = p.time.textContent = '';
    return;
  }
  const done = step.index + (step.state === 'running' ? 0 : 1);
  p.bar.firstChild.style.width = (100 * done / (step.total || total || 1)) + '%';
  p.n.textContent = say('step', {n: step.index + 1, total: step.total || total});
  p.name.textContent = step.name;
  // The board's time so far when the event left, then counted here: no polling.
  view.since = Date.now() - 1000 * ((step.elapsed || 0) + Math.max(0, at - step.at));
  clock(view);
}

function clock(view) {
  if (view.card.step) view.parts.time.textContent =
      say('seconds', {s: ((Date.now() - view.since) / 1000).toFixed(1)});
}

// A clock only while some board runs: an idle page does nothing at all.
function tick() {
  const running = [...cards.values()].filter((v) => v.card.state === 'running');
  if (!running.length) { clearInterval(ticker); ticker = null; }
  for (const view of running) clock(view);
}

// The unit is on the value already: a 230-pixel card has no room for it twice.
function limits(l = {}) {
  if (l.low !== undefined && l.high !== undefined) return `[${l.low}..${l.high}]`;
  if (l.low !== undefined) return `[≥${l.low}]`;
  if (l.high !== undefined) return `[≤${l.high}]`;
  if (l.equals !== undefined) return `[= ${l.equals}]`;
  return l.in ? `[${l.in.join(' | ')}]` : '';
}

function measurements(box, card) {
  box.replaceChildren(...card.measurements.map((m) => {
    const unit = m.unit || (m.limits && m.limits.unit) || '';
    const line = make('div', m.ok ? 'good' : 'bad',
                      `${m.name} ${m.value ?? '—'}${unit ? ' ' + unit : ''} ${limits(m.limits)}`);
    line.title = card.measured || '';
    return line;
  }));
}

function question(view, card) {
  const q = card.question;
  if ((q && q.id) === view.asked) return;    // keep what the operator is typing
  view.asked = q && q.id;
  const box = view.parts.ask;
  box.replaceChildren();
  if (!q) return;
  box.append(make('p', '', q.text));
  const send = (answer) => post(card.slot, 'answer', {id: q.id, answer}, box);
  if (q.kind === 'scan') box.append(scanner(say('scan_answer'), send));
  else for (const choice of q.choices) {
    const button = make('button', '', q.kind === 'prompt' ? say('ok') : choice);
    button.onclick = () => send(choice);
    box.append(button);
  }
  if (document.body.classList.contains('readonly')) box.append(make('span', '', say('asking')));
  // The scanner types where the focus is: take it unless someone is typing elsewhere.
  const input = box.querySelector('input');
  if (input && !(document.activeElement instanceof HTMLInputElement)) input.focus();
}

function starter(view, card) {
  if (card.startable === view.started) return;
  view.started = card.startable;
  const box = view.parts.start;
  box.replaceChildren();
  if (!card.startable) return;
  const button = make('button', '', say('start'));
  button.onclick = () => post(card.slot, 'start', {}, box);
  box.append(button, scanner(say('scan_serial'), (serial) => post(card.slot, 'start', {serial}, box)));
}

// A scanner types its line and Enter, as a person would.
function scanner(hint, send) {
  const input = make('input');
  input.placeholder = hint;
  input.onkeydown = (e) => {
    if (e.key === 'Enter' && input.value.trim()) { send(input.value.trim()); input.value = ''; }
  };
  return input;
}

async function post(slot, action, body, box) {
  const old = box.querySelector('.error');
  if (old) old.remove();
  const r = await fetch(`slot/${slot}/${action}`, {
    method: 'POST',
    headers: {'Content-Type': 'application/json', 'X-Station-Token': token},
    body: JSON.stringify({...body, by: operator}),
  });
  if (!r.ok) {
    const why = (await r.json().catch(() => ({}))).error || r.statusText;
    box.append(make('span', 'error', say('refused', {error: why})));
  }
}

function tally(history, counts) {
  const pct = counts.finished ? (100 * counts.passed / counts.finished).toFixed(1) : '0';
  document.getElementById('yield').textContent = counts.finished
    ? say('yield', {passed: counts.passed, finished: counts.finished, percent: pct})
    : say('no_boards');
  document.querySelector('#history tbody').replaceChildren(...history.map((b) => {
    const row = make('tr');
    const verdict = make('td', b.verdict, say(b.verdict));
    row.append(make('td', '', new Date(b.at).toLocaleTimeString(document.documentElement.lang)), make('td', '', b.label),
               make('td', '', b.serial || ''), verdict, make('td', '', b.first_failure || ''));
    return row;
  }));
}

connect();
