"""Sums up what script/powerloss has reported: python3 sum_powerloss.py REPORT.json..."""

import json
import sys
from pathlib import Path

names = [Path(name) for name in sys.argv[1:]]
runs = [json.loads(line) for name in names if name.exists() for line in name.read_text().splitlines()]
print(f"runs in which every state was good    {len(runs)}")
print(f"recordings                            {sum(run['recordings'] for run in runs)}")
print(f"states of the disk                    {sum(run['states'] for run in runs)}")
sys.exit(0 if runs else 1)
