"""Reports of a plan's run: JUnit XML for CI servers (Jenkins, GitLab) and
JSON, the whole record, for a factory's production systems.

JUnit: one testsuite per board, one testcase per step (setup steps too),
a failure holding the command, why and the tool's lines, skipped for steps
not run, each measurement as properties STEP.NAME (the value),
STEP.NAME.limits (low/high/equals/in/unit) and STEP.NAME.ok.
"""
import json
import xml.etree.ElementTree as ET

from .protocol import decode


def _counts(board):
    return dict(tests=len(board.steps), failures=board.count('failed'),
                errors=1 if board.error else 0, skipped=board.count('skipped'))


def _limits(limits):
    return ' '.join(f'{k}={v}' for k, v in limits.items())


def _testcase(suite, plan, step):
    case = ET.SubElement(suite, 'testcase', classname=plan.name, name=step.name,
                         time=f'{step.duration:.3f}')
    if step.skipped:
        ET.SubElement(case, 'skipped', message='not run')
        return
    if step.measurements:
        props = ET.SubElement(case, 'properties')
        for m in step.measurements:
            key = f'{step.name}.{m["name"]}'
            ET.SubElement(props, 'property', name=key, value=str(m['value']))
            ET.SubElement(props, 'property', name=key + '.limits', value=_limits(m['limits']))
            ET.SubElement(props, 'property', name=key + '.ok', value=str(m['ok']).lower())
    if not step.ok:
        failure = ET.SubElement(case, 'failure', message=step.why or '', type=step.verdict or '')
        failure.text = f'{step.command}\n{step.text}'


def junit(plan, boards):
    root = ET.Element('testsuites', name=plan.name)
    totals = dict(tests=0, failures=0, errors=0, skipped=0)
    for board in boards:
        counts = _counts(board)
        for k in totals:
            totals[k] += counts[k]
        suite = ET.SubElement(root, 'testsuite', name=board.label, timestamp=board.started,
                              time=f'{board.duration:.3f}', **{k: str(v) for k, v in counts.items()})
        props = ET.SubElement(suite, 'properties')
        ET.SubElement(props, 'property', name='target', value=board.target)
        ET.SubElement(props, 'property', name='plan', value=str(plan.path))
        if board.error:
            error = ET.SubElement(suite, 'error', message=board.error)
            error.text = board.error
        for step in board.steps:
            _testcase(suite, plan, step)
        out = ET.SubElement(suite, 'system-out')
        out.text = '\n'.join(f'$ {s.command}\n{decode(s.raw)}' for s in board.steps if not s.skipped)
    root.set('time', f'{max((b.duration for b in boards), default=0):.3f}')
    for k, v in totals.items():
        root.set(k, str(v))
    return ET.ElementTree(root)


def write_junit(path, plan, boards):
    tree = junit(plan, boards)
    ET.indent(tree)
    tree.write(path, encoding='utf-8', xml_declaration=True)


def _status(step):
    return 'skipped' if step.skipped else ('passed' if step.ok else 'failed')


def _step(step):
    return dict(name=step.name, phase=step.phase, status=_status(step), command=step.command,
                expected=step.expected, verdict=step.verdict, ok=step.ok,
                skipped=step.skipped, why=step.why, duration=round(step.duration, 3),
                attempts=step.attempts, measurements=step.measurements,
                text=step.text, raw=decode(step.raw))


def record(plan, boards):
    return dict(plan=dict(name=plan.name, description=plan.description, path=str(plan.path)),
                boards=[dict(label=b.label, target=b.target, verdict=b.verdict, error=b.error,
                             banner=b.banner, version=b.version, started=b.started,
                             ended=b.ended, duration=round(b.duration, 3),
                             passed=b.count('passed'), failed=b.count('failed'),
                             skipped=b.count('skipped'), steps=[_step(s) for s in b.steps])
                        for b in boards])


def write_json(path, plan, boards):
    with open(path, 'w', encoding='utf-8') as f:
        json.dump(record(plan, boards), f, indent=1, ensure_ascii=False)
        f.write('\n')
