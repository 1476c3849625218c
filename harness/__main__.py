"""/usr/bin/python3 -m harness run PLAN --board TARGET ... (see harness/runner.py)."""
import sys

from .runner import main

if len(sys.argv) < 2 or sys.argv[1] != 'run':
    sys.exit('usage: python3 -m harness run PLAN --board TARGET [...] (see harness/run --help)')
sys.exit(main(sys.argv[2:]))
