"""Sums up what script/powerloss has reported: python3 sum_powerloss.py REPORT.json..."""

import json
import sys
from pathlib import Path

names = [Path(name) for name in sys.argv[1:]]
modes = [json.loads(line) for name in names if name.exists() for line in name.read_text().splitlines()]
print(f"modes in which every state was good   {len(modes)}")
print(f"recordings                            {sum(mode['recordings'] for mode in modes)}")
print(f"states of the disk                    {sum(mode['states'] for mode in modes)}")
sys.exit(0 if modes else 1)
