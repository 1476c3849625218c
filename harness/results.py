"""The record's questions: what happened to a board, the yield, the steps that
fail most, a measurement's spread against its limits, one page of all of it.

    harness/results [--db URL] [--json] board SERIAL | yield [--since DATE]
        [--plan NAME] [--station NAME] | pareto | measure STEP.NAME | html FILE
        | import SPOOL

The database does the counting (GROUP BY, window functions): a plant's record
holds millions of steps, and only the answer crosses the connection.
Exit status: 0 answered, 1 no visit of the board, 2 a bad command line or
database.
"""
import argparse
import difflib
import html
import io
import json
import os
import sys
import tempfile
from datetime import date, datetime
from pathlib import Path

from . import db

DEFAULT_DB = 'sqlite:///results.sqlite'
FINISHED = "v.verdict IN ('pass', 'fail')"
# A visit without a serial number is a board of its own.
BOARD = "coalesce(v.serial, 'visit ' || v.id)"
DAY = 'substr(v.started, 1, 10)'
HIST_BINS = 20


class Refused(Exception):
    """A question the record cannot answer; `status` is the exit status."""

    def __init__(self, message, status=2):
        super().__init__(message)
        self.status = status


def where(filters):
    """SQL conditions over visits `v` and their parameters."""
    conds, params = ['1 = 1'], []
    if filters.get('since'):
        conds.append('v.started >= ?')
        params.append(filters['since'])
    for key in ('plan', 'station'):
        if filters.get(key):
            conds.append(f"v.{'plan_name' if key == 'plan' else key} = ?")
            params.append(filters[key])
    return ' AND '.join(conds), params


# ---- board ----

def board(rec, serial):
    rows = rec.query(
        'SELECT started, ended, station, operator, plan_name, plan_version, target, verdict,'
        ' first_failure, error FROM visits WHERE serial = ? ORDER BY started, id', (serial,))
    if not rows:
        raise Refused(f'no visit of board {serial}', 1)
    keys = ('started', 'ended', 'station', 'operator', 'plan', 'plan_version', 'target',
            'verdict', 'first_failure')
    visits = [dict(zip(keys, r)) for r in rows]
    for v, r in zip(visits, rows):
        v['verdict'] = v['verdict'] or 'open'
        v['first_failure'] = v['first_failure'] or r[9]
    return {'serial': serial, 'visits': visits}


def board_text(answer):
    n = len(answer['visits'])
    rows = [(v['started'], v['station'], v['operator'],
             ' '.join(filter(None, (v['plan'], v['plan_version']))), v['target'],
             v['verdict'], v['first_failure']) for v in answer['visits']]
    return (f"board {answer['serial']}: {n} visit{'s' if n != 1 else ''}\n"
            + table(('started', 'station', 'operator', 'plan', 'target', 'verdict',
                     'first failure'), rows))


# ---- yield ----

def yield_(rec, filters):
    cond, params = where(filters)
    # Each board belongs to the day of its first finished visit; its verdicts
    # are its first and last finished visits (in the filter's window). One
    # grouping finds both: a visit's key is its start, its id for a tie, and
    # its verdict as the last character.
    key = "v.started || v.id || CASE WHEN v.verdict = 'pass' THEN 'p' ELSE 'f' END"
    cohort = rec.query(f"""
        WITH b AS (
          SELECT min({key}) AS first, max({key}) AS last, count(*) - 1 AS retests
          FROM visits v WHERE {FINISHED} AND {cond} GROUP BY {BOARD})
        SELECT substr(first, 1, 10), count(*),
               sum(CASE WHEN substr(first, length(first)) = 'p' THEN 1 ELSE 0 END),
               sum(CASE WHEN substr(last, length(last)) = 'p' THEN 1 ELSE 0 END), sum(retests)
        FROM b GROUP BY substr(first, 1, 10)""", params)
    unfinished = rec.query(f"""
        SELECT {DAY}, sum(CASE WHEN v.verdict = 'interrupted' THEN 1 ELSE 0 END),
               sum(CASE WHEN v.verdict IS NULL THEN 1 ELSE 0 END)
        FROM visits v WHERE (v.verdict IS NULL OR v.verdict = 'interrupted') AND {cond}
        GROUP BY {DAY}""", params)
    days = {}
    for day, *counts in cohort:
        days[day] = dict(zip(('boards', 'first_pass', 'final_pass', 'retests'), map(int, counts)))
    for day, interrupted, open_ in unfinished:
        days.setdefault(day, {}).update(interrupted=int(interrupted), open=int(open_))
    rows = [yield_row(dict(day=d, **days[d])) for d in sorted(days)]
    total = yield_row({k: sum(r[k] for r in rows) for k in COUNTS} | {'day': 'total'})
    return {'filter': {k: v for k, v in filters.items() if v}, 'days': rows, 'total': total}


COUNTS = ('boards', 'first_pass', 'final_pass', 'retests', 'interrupted', 'open')


def yield_row(row):
    row = {k: row.get(k, 0) for k in ('day',) + COUNTS}
    for name, passed in (('first_pass_yield', 'first_pass'), ('final_yield', 'final_pass')):
        row[name] = round(row[passed] / row['boards'], 4) if row['boards'] else None
    return row


def yield_table(answer):
    return (('day', 'boards', 'first pass', 'FPY', 'final pass', 'final yield', 'retests',
             'interrupted', 'open'),
            [(r['day'], r['boards'], r['first_pass'], percent(r['first_pass_yield']),
              r['final_pass'], percent(r['final_yield']), r['retests'], r['interrupted'],
              r['open']) for r in answer['days'] + [answer['total']]])


def percent(x):
    return '-' if x is None else f'{100 * x:.1f}%'


# ---- pareto ----

def pareto(rec, filters):
    cond, params = where(filters)
    rows = rec.query(f"""
        WITH f AS (
          SELECT s.name, coalesce(s.why, '') AS why, {BOARD} AS board
          FROM steps s JOIN visits v ON v.id = s.visit_id
          WHERE s.status = 'failed' AND {cond}),
        r AS (
          SELECT name, why, count(*) AS n,
                 row_number() OVER (PARTITION BY name ORDER BY count(*) DESC, why) AS k
          FROM f GROUP BY name, why),
        t AS (SELECT name, count(DISTINCT board) AS boards, count(*) AS failures
              FROM f GROUP BY name)
        SELECT t.name, t.boards, t.failures, r.why, r.n
        FROM t JOIN r ON r.name = t.name AND r.k = 1
        ORDER BY t.boards DESC, t.failures DESC, t.name""", params)
    keys = ('step', 'boards', 'failures', 'reason', 'reason_count')
    return {'filter': {k: v for k, v in filters.items() if v},
            'steps': [dict(zip(keys, (r[0], int(r[1]), int(r[2]), r[3], int(r[4]))))
                      for r in rows]}


def pareto_table(answer):
    return (('step', 'boards', 'failures', 'most common reason', 'times'),
            [tuple(s.values()) for s in answer['steps']])


# ---- measure ----

def measure(rec, address, filters):
    step, _, name = address.rpartition('.')
    if not step or not name:
        raise Refused(f'measure takes STEP.NAME, not {address!r}')
    cond, params = where(filters)
    # The visits only when a filter needs them: the join triples the time.
    base = ('FROM measurements m' + (' JOIN visits v ON v.id = m.visit_id' if params else '')
            + f' WHERE m.step_name = ? AND m.name = ? AND {cond}')
    params = [step, name] + params
    # Sums taken about one of the values: no cancellation when the values are
    # large and their spread small.
    first = rec.query(f'SELECT m.value_num {base} AND m.value_num IS NOT NULL LIMIT 1', params)
    k = first[0][0] if first else 0
    (n, total, s1, s2, lo, hi, all_int, unit, *limits), = rec.query(
        'SELECT count(m.value_num), count(*), sum(m.value_num - ?),'
        ' sum((m.value_num - ?) * (m.value_num - ?)), min(m.value_num), max(m.value_num),'
        ' min(CASE WHEN m.value_num = round(m.value_num) THEN 1 ELSE 0 END), max(m.unit),'
        f' min(m.low), max(m.low), count(m.low), min(m.high), max(m.high), count(m.high) {base}',
        [k, k, k] + params)
    if not total:
        raise Refused(never_measured(rec, address))
    low, high, sets = limits[0], limits[3], 1
    if limits[0] != limits[1] or limits[3] != limits[4] or {limits[2], limits[5]} - {0, total}:
        # A plan changed them: the commonest pair.
        sets = rec.query(f'SELECT m.low, m.high, count(*) {base} GROUP BY m.low, m.high'
                         ' ORDER BY count(*) DESC', params)
        (low, high, _), sets = sets[0], len(sets)
    out = {'measurement': address, 'unit': unit, 'n': int(n), 'not_numbers': int(total - n),
           'mean': k + s1 / n if n else None, 'stdev': None, 'min': lo, 'max': hi,
           'low': low, 'high': high, 'limit_sets': sets, 'cpk': None, 'histogram': []}
    if n:
        out['stdev'] = max(0, (s2 - s1 * s1 / n) / (n - 1)) ** 0.5 if n > 1 else None
        out['cpk'] = cpk(out['mean'], out['stdev'], low, high)
        out['histogram'] = histogram(rec, base, params, lo, hi, bool(all_int))
    return out


def cpk(mean, sd, low, high):
    """Process capability against the limits there are: one-sided with one."""
    if not sd:
        return None
    sides = [(high - mean) / (3 * sd)] if high is not None else []
    sides += [(mean - low) / (3 * sd)] if low is not None else []
    return min(sides) if sides else None


def histogram(rec, base, params, lo, hi, integral):
    """Bins over the values' range; whole numbers in bins of a whole width, so
    that no bin holds one value more than its neighbour by the binning alone."""
    if integral:
        width = max(1, -(-(hi - lo + 1) // HIST_BINS))
    else:
        width = (hi - lo) / HIST_BINS or 1
    bins = int((hi - lo) // width) + 1 if integral else (HIST_BINS if hi > lo else 1)
    counts = [0] * bins
    for k, c in rec.query(f'SELECT floor((m.value_num - ?) / ?) AS k, count(*) {base}'
                          ' AND m.value_num IS NOT NULL GROUP BY k', [lo, width] + params):
        counts[min(int(k), bins - 1)] += int(c)
    return [{'from': lo + i * width, 'to': lo + (i + 1) * width, 'count': c}
            for i, c in enumerate(counts)]


def never_measured(rec, address):
    names = [f'{s}.{n}' for s, n in rec.query(
        'SELECT DISTINCT step_name, name FROM measurements', ())]
    near = difflib.get_close_matches(address, names, 1)
    return f'{address} was never measured' + (f' (did you mean {near[0]}?)' if near else '')


def measure_text(m):
    def num(x):
        return '-' if x is None else f'{x:.6g}'
    head = (f"{m['measurement']}{' (' + m['unit'] + ')' if m['unit'] else ''}: n {m['n']}"
            f"  mean {num(m['mean'])}  stdev {num(m['stdev'])}  min {num(m['min'])}"
            f"  max {num(m['max'])}  low {num(m['low'])}  high {num(m['high'])}"
            f"  Cpk {'-' if m['cpk'] is None else format(m['cpk'], '.2f')}")
    if m['not_numbers']:
        head += f"\n{m['not_numbers']} values were not numbers"
    if m['limit_sets'] > 1:
        head += f"\nlimits changed over the record ({m['limit_sets']} sets): the commonest used"
    return '\n'.join(filter(None, (head, hist_text(m, num))))


def hist_text(m, num):
    """A bar per bin; a limit inside the range marks its bin, one outside
    gets a line of its own above or below."""
    bins = m['histogram']
    peak = max((b['count'] for b in bins), default=0) or 1
    marks = [(name, x) for name, x in (('low', m['low']), ('high', m['high'])) if x is not None]
    above = [f'  ---- {n} {num(x)} ----' for n, x in marks if bins and x < bins[0]['from']]
    below = [f'  ---- {n} {num(x)} ----' for n, x in marks if bins and x >= bins[-1]['to']]
    lines = []
    for b in bins:
        bar = '#' * round(40 * b['count'] / peak)
        inside = ''.join(f'  <- {n} {num(x)}' for n, x in marks if b['from'] <= x < b['to'])
        lines.append(f"  {num(b['from']):>10} .. {num(b['to']):<10} |{bar:<40} {b['count']}"
                     + inside)
    return '\n'.join(above + lines + below)


# ---- the page ----

def measured(rec, filters):
    cond, params = where(filters)
    return [f'{s}.{n}' for s, n in rec.query(
        'SELECT m.step_name, m.name FROM measurements m JOIN visits v ON v.id = m.visit_id'
        f' WHERE m.value_num IS NOT NULL AND {cond} GROUP BY m.step_name, m.name'
        ' ORDER BY m.step_name, m.name', params)]


def page(rec, filters):
    import matplotlib
    matplotlib.use('Agg')
    matplotlib.rcParams['svg.fonttype'] = 'none'      # text as text: no glyph outlines
    ys, par = yield_(rec, filters), pareto(rec, filters)
    ms = [measure(rec, a, filters) for a in measured(rec, filters)]
    parts = ['<h2>Yield</h2>', html_table(*yield_table(ys)), yield_plot(ys),
             '<h2>Failing steps</h2>', html_table(*pareto_table(par)), pareto_plot(par),
             '<h2>Measurements</h2>']
    for m in ms:
        parts += [f"<h3>{html.escape(m['measurement'])}</h3>",
                  f"<pre>{html.escape(measure_text(m).split(chr(10))[0])}</pre>", hist_plot(m)]
    title = 'The record' + ''.join(f', {k} {v}' for k, v in ys['filter'].items())
    return ('<!DOCTYPE html>\n<html><head><meta charset="utf-8"/>'
            f'<title>{html.escape(title)}</title><style>{STYLE}</style></head>\n<body>'
            f'<h1>{html.escape(title)}</h1>\n' + '\n'.join(parts) + '\n</body></html>\n')


STYLE = ('body{font-family:sans-serif;margin:2em}table{border-collapse:collapse}'
         'td,th{padding:2px 8px;border-bottom:1px solid #ccc;text-align:left}'
         '.n{text-align:right}svg{max-width:100%;height:auto}')


def html_table(headers, rows):
    def cells(tag, row):
        row = ['' if c is None else str(c) for c in row]
        right = ' class="n"'
        return ''.join(f'<{tag}{right * is_number(c)}>{html.escape(c)}</{tag}>' for c in row)
    return (f'<table><tr>{cells("th", headers)}</tr>'
            + ''.join(f'<tr>{cells("td", r)}</tr>' for r in rows) + '</table>')


def figure(height=3.2):
    from matplotlib.figure import Figure
    return Figure(figsize=(8, height))



def svg(fig, salt):
    import matplotlib
    import re
    matplotlib.rcParams['svg.hashsalt'] = salt        # ids unique across the page
    buf = io.StringIO()
    fig.savefig(buf, format='svg', bbox_inches='tight')
    text = buf.getvalue()
    text = text[text.index('<svg'):]
    # Inline in HTML: no namespace or metadata URLs, SVG 2's plain href.
    text = re.sub(r'<metadata>.*?</metadata>', '', text, flags=re.S)
    text = re.sub(r'\s+xmlns(:xlink)?="[^"]*"', '', text)
    return text.replace('xlink:href=', 'href=')


def yield_plot(ys):
    fig = figure()
    ax = fig.subplots()
    rows = [r for r in ys['days'] if r['boards']]
    days = [r['day'] for r in rows]
    lowest = 100
    for key, label in (('first_pass_yield', 'first pass'), ('final_yield', 'final')):
        values = [100 * r[key] for r in rows]
        lowest = min([lowest] + values)
        ax.plot(days, values, marker='o', label=label)
    ax.set_ylabel('yield %')
    ax.set_ylim(max(0, lowest - 5), 100.5)
    ax.set_xticks(days[::-(-len(days) // 12) or 1])    # a dozen dates at most
    ax.tick_params(axis='x', labelrotation=45)
    ax.legend(loc='lower right')
    return svg(fig, 'yield')


def pareto_plot(par, most=20):
    from matplotlib.ticker import MaxNLocator
    steps = par['steps'][:most][::-1]
    fig = figure(max(2.0, 0.3 * len(steps) + 1))
    ax = fig.subplots()
    ax.barh([s['step'] for s in steps], [s['boards'] for s in steps])
    ax.set_xlabel('boards failed')
    ax.xaxis.set_major_locator(MaxNLocator(integer=True))
    return svg(fig, 'pareto')


def hist_plot(m):
    from matplotlib.ticker import MaxNLocator
    fig = figure(2.6)
    ax = fig.subplots()
    bins = m['histogram']
    ax.bar([b['from'] for b in bins], [b['count'] for b in bins],
           width=[b['to'] - b['from'] for b in bins], align='edge', edgecolor='white')
    ax.yaxis.set_major_locator(MaxNLocator(integer=True))
    for name, color in (('low', 'red'), ('high', 'red')):
        if m[name] is not None:
            ax.axvline(m[name], color=color, linestyle='--', label=f'{name} {m[name]:g}')
    ax.set_xlabel(m['unit'] or m['measurement'])
    ax.set_ylabel('count')
    if m['low'] is not None or m['high'] is not None:
        ax.legend()
    return svg(fig, m['measurement'])


def write_atomic(path, text):
    path = Path(path)
    fd, tmp = tempfile.mkstemp(dir=path.parent, prefix=f'.{path.name}.')
    try:
        with os.fdopen(fd, 'w', encoding='utf-8') as f:
            f.write(text)
        mask = os.umask(0)
        os.umask(mask)
        os.chmod(tmp, 0o666 & ~mask)
        os.replace(tmp, path)
    except BaseException:
        os.unlink(tmp)
        raise


# ---- the command line ----

def table(headers, rows):
    """Aligned columns; numbers to the right."""
    rows = [['' if c is None else str(c) for c in r] for r in rows]
    widths = [max([len(h)] + [len(r[i]) for r in rows]) for i, h in enumerate(headers)]
    right = [bool(rows) and all(is_number(r[i]) for r in rows) for i in range(len(headers))]

    def line(cells):
        return '  '.join(c.rjust(w) if r else c.ljust(w)
                         for c, w, r in zip(cells, widths, right)).rstrip()
    return '\n'.join([line(headers), line('-' * w for w in widths)] + [line(r) for r in rows])


def is_number(cell):
    return cell.rstrip('%').replace('.', '', 1).lstrip('-').isdigit() or cell == '-'


def since(text):
    try:
        (datetime if 'T' in text else date).fromisoformat(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f'not a date (YYYY-MM-DD): {text!r}') from None
    return text


class Parser(argparse.ArgumentParser):
    def error(self, message):
        self.exit(2, f'{self.prog}: {message} (--help says more)\n')


def parser():
    ap = Parser(prog='harness/results', description="Answers from the record's database.")
    ap.add_argument('--db', default=DEFAULT_DB, metavar='URL',
                    help=f'the database (default {DEFAULT_DB})')
    ap.add_argument('--json', action='store_true', help='one JSON document, for machines')
    sub = ap.add_subparsers(dest='command', required=True, metavar='COMMAND')
    sub.add_parser('board', help="every visit of a board").add_argument('serial')
    cmds = {name: sub.add_parser(name, help=text) for name, text in (
        ('yield', 'boards, first-pass and final yield, retests, per day'),
        ('pareto', 'failing steps ranked by boards failed'),
        ('measure', "a measurement's statistics and histogram"),
        ('html', 'one self-contained page of all of it'))}
    cmds['measure'].add_argument('address', metavar='STEP.NAME')
    cmds['html'].add_argument('file')
    for cmd in cmds.values():
        cmd.add_argument('--since', type=since, metavar='DATE', help='visits from DATE on')
        cmd.add_argument('--plan', metavar='NAME', help="the plan's visits only")
        cmd.add_argument('--station', metavar='NAME', help="the station's visits only")
    sub.add_parser('import', help='load a spool file the runner left').add_argument('spool')
    return ap


def open_db(url, command):
    # A typo in a path must not leave an empty database behind to ask questions of.
    if command != 'import' and url.startswith('sqlite:///'):
        path = Path(url[len('sqlite:///'):])
        if not path.is_file():
            raise Refused(f'no database at {path}')
    return db.open_record(url)


def answer(rec, args):
    filters = {k: getattr(args, k, None) for k in ('since', 'plan', 'station')}
    if args.command == 'board':
        return board(rec, args.serial), board_text
    if args.command == 'yield':
        return yield_(rec, filters), lambda a: table(*yield_table(a))
    if args.command == 'pareto':
        return pareto(rec, filters), lambda a: table(*pareto_table(a))
    if args.command == 'measure':
        return measure(rec, args.address, filters), measure_text
    if args.command == 'html':
        write_atomic(args.file, page(rec, filters))
        return {'file': str(args.file)}, lambda a: f"wrote {a['file']}"
    if not Path(args.spool).is_file():
        raise Refused(f'no spool file {args.spool}')
    n = db.import_spool(rec, args.spool)
    return {'spool': args.spool, 'records': n}, lambda a: f"imported {n} records from {a['spool']}"


def main(argv=None):
    args = parser().parse_args(argv)
    try:
        rec = open_db(args.db, args.command)
        try:
            result, text = answer(rec, args)
        finally:
            rec.close()
    except (Refused, db.RecordError) as e:
        print(f'results: {e}', file=sys.stderr)
        return getattr(e, 'status', 2)
    except OSError as e:
        print(f'results: {e.filename or ""}: {e.strerror}', file=sys.stderr)
        return 2
    print(json.dumps(result, indent=1) if args.json else text(result))
    return 0
