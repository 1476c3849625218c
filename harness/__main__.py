"""/usr/bin/python3 -m harness run PLAN --board TARGET ... (harness/runner.py),
/usr/bin/python3 -m harness station PLAN --board TARGET ... --serve PORT (the same, kept open),
/usr/bin/python3 -m harness results COMMAND ... (harness/results.py)."""
import sys

if len(sys.argv) < 2 or sys.argv[1] not in ('run', 'station', 'results'):
    sys.exit('usage: python3 -m harness run PLAN --board TARGET [...] | station PLAN --board '
             'TARGET [...] --serve PORT | results COMMAND [...] (see harness/run --help, '
             'harness/station --help, harness/results --help)')
if sys.argv[1] == 'run':
    from .runner import main
elif sys.argv[1] == 'station':
    from .runner import station_main as main
else:
    from .results import main
sys.exit(main(sys.argv[2:]))
