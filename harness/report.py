"""Reports of a plan's run: JUnit XML for CI servers (Jenkins, GitLab) and
JSON, the whole record, for a factory's production systems. Both are
written to a temporary file beside the target and renamed over it, so a
reader never sees half a report.

JUnit: one testsuite per board (hostname: the station; the target, plan,
its version and hash, station, operator, serial, identity and the board's
restarts as properties), one testcase per step (setup steps and their
re-runs after a restart too; classname PLAN.SERIAL, or PLAN.LABEL, so that
merged reports keep boards apart), a failure holding the command, why and
the tool's lines, skipped for steps not run (with why), each measurement as
properties STEP.NAME (the value), STEP.NAME.limits (low/high/equals/in/unit)
and STEP.NAME.ok, each try of a retried step as STEP.attempt.N, and the
operator's answer as STEP.answer, STEP.answer.by and STEP.answer.at.
Characters XML cannot hold (a progress bar's backspaces)
are shown as \\xNN.
"""
import json
import os
import re
import tempfile
import xml.etree.ElementTree as ET
from pathlib import Path

from .protocol import decode

# What XML 1.0 forbids: C0 controls but Tab, LF, CR; surrogates; U+FFFE/F.
NOT_XML = re.compile('[^\t\n\r\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]')


def xml_text(text):
    return NOT_XML.sub(lambda m: f'\\x{ord(m.group()):02x}', text)


def _counts(board):
    return dict(tests=len(board.all_steps()), failures=board.count('failed'),
                errors=1 if board.error else 0, skipped=board.count('skipped'))


def _limits(limits):
    return ' '.join(f'{k}={v}' for k, v in limits.items())


def _properties(parent, pairs):
    props = ET.SubElement(parent, 'properties')
    for name, value in pairs:
        ET.SubElement(props, 'property', name=name, value='' if value is None else str(value))


def _attempts(step):
    """Each try of a retried step, and who answered the operator's question and when."""
    pairs = []
    if len(step.attempts) > 1:
        for a in step.attempts:
            said = f'{a["verdict"]}: {a["why"]}' if a['why'] else a['verdict']
            pairs.append((f'{step.name}.attempt.{a["n"]}', said))
    said = next((a for a in step.attempts if a.get('question')), None)
    if said:
        pairs += [(f'{step.name}.answer{k}', said[key]) for k, key in
                  (('', 'answer'), ('.by', 'by'), ('.at', 'at'))]
    return pairs


def _testcase(suite, classname, step):
    case = ET.SubElement(suite, 'testcase', classname=classname, name=step.name,
                         time=f'{step.duration:.3f}')
    if step.skipped:
        ET.SubElement(case, 'skipped', message=step.why or 'not run')
        return
    pairs = []
    for m in step.measurements:
        key = f'{step.name}.{m["name"]}'
        pairs += [(key, m['value']), (key + '.limits', _limits(m['limits'])),
                  (key + '.ok', str(m['ok']).lower())]
    if step.confirmation is not None:
        pairs.append((f'{step.name}.confirmation', step.confirmation))
    pairs += _attempts(step)
    if pairs:
        _properties(case, pairs)
    if not step.ok:
        failure = ET.SubElement(case, 'failure', message=step.why or '', type=step.verdict or '')
        failure.text = '\n'.join(t for t in (step.command, step.text) if t)


def _suite(root, plan, board, run):
    suite = ET.SubElement(root, 'testsuite', name=board.label, hostname=run['station'],
                          timestamp=board.started, time=f'{board.duration:.3f}',
                          **{k: str(v) for k, v in _counts(board).items()})
    _properties(suite, [('target', board.target), ('plan', plan.path),
                        ('plan.version', plan.version), ('plan.sha256', plan.sha256),
                        ('station', run['station']), ('operator', run['operator']),
                        ('serial', board.serial), ('verdict', board.verdict)]
                + [(f'identity.{k}', v) for k, v in board.identity.items()]
                + [(e['kind'], f'{e["at"]} {e["detail"]}') for e in board.events])
    if board.error:
        error = ET.SubElement(suite, 'error', message=board.error)
        error.text = board.error
    classname = f'{plan.name}.{board.serial or board.label}'
    for step in board.all_steps():
        _testcase(suite, classname, step)
    out = ET.SubElement(suite, 'system-out')
    out.text = '\n'.join(f'$ {s.command}\n{decode(s.raw)}'
                         for s in board.all_steps() if s.command and not s.skipped)


def junit(plan, boards, run):
    root = ET.Element('testsuites', name=plan.name)
    totals = dict(tests=0, failures=0, errors=0, skipped=0)
    for board in boards:
        for k, v in _counts(board).items():
            totals[k] += v
        _suite(root, plan, board, run)
    root.set('time', f'{max((b.duration for b in boards), default=0):.3f}')
    for k, v in totals.items():
        root.set(k, str(v))
    for element in root.iter():
        element.text = element.text and xml_text(element.text)
        for k, v in element.attrib.items():
            element.set(k, xml_text(v))
    return ET.ElementTree(root)


def _atomic(path, write):
    path = Path(path)
    fd, tmp = tempfile.mkstemp(dir=path.parent, prefix=f'.{path.name}.')
    try:
        with os.fdopen(fd, 'wb') as f:
            write(f)
            f.flush()
            os.fsync(f.fileno())
        os.chmod(tmp, 0o644)
        os.replace(tmp, path)
    except BaseException:
        os.unlink(tmp)
        raise


def write_junit(path, plan, boards, run):
    tree = junit(plan, boards, run)
    ET.indent(tree)
    _atomic(path, lambda f: tree.write(f, encoding='utf-8', xml_declaration=True))


def _step(step):
    return dict(seq=step.seq, name=step.name, phase=step.phase, status=step.status,
                rerun=step.rerun, command=step.command, expected=step.expected,
                verdict=step.verdict, ok=step.ok, skipped=step.skipped, why=step.why,
                started=step.started, ended=step.ended, duration=round(step.duration, 3),
                attempts=step.attempts, confirmation=step.confirmation,
                measurements=step.measurements, text=step.text, raw=decode(step.raw))


def _board(b):
    return dict(label=b.label, target=b.target, serial=b.serial, scanned=b.scanned,
                identity=b.identity, visit=b.visit, verdict=b.verdict, error=b.error,
                banner=b.banner, version=b.version, started=b.started, ended=b.ended,
                duration=round(b.duration, 3), passed=b.count('passed'),
                failed=b.count('failed'), skipped=b.count('skipped'), events=b.events,
                steps=[_step(s) for s in b.all_steps()])


def record(plan, boards, run):
    return dict(run=run, plan=dict(name=plan.name, description=plan.description,
                                   version=plan.version, path=str(plan.path), sha256=plan.sha256),
                boards=[_board(b) for b in boards])


def write_json(path, plan, boards, run):
    text = json.dumps(record(plan, boards, run), indent=1, ensure_ascii=False) + '\n'
    _atomic(path, lambda f: f.write(text.encode('utf-8')))
