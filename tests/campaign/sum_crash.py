"""Sums up what the lives of script/crash have reported: python3 sum_crash.py REPORT.json..."""

import collections
import json
import sys
from pathlib import Path

lives = [json.loads(line) for name in sys.argv[1:] for line in Path(name).read_text().splitlines()]
failed = [life for life in lives if "failed" in life]
days = [life for life in lives if life["moment"] == "day" and "failed" not in life]
unwritten = [life["unwritten_s"] for life in days if not life["late_bytes"]]
stopped = collections.Counter()
for life in days:
    stopped.update(life["stopped"])


def total(key):
    return sum(life[key] for life in days)


print(f"kills                                        {len(lives)}")
print(f"  in a start                                 {sum(life['moment'] == 'start' for life in lives)}")
print(f"  with a conversion or encryption running    {sum(life['children'] > 0 for life in days)}")
print(f"  that took the children along               {total('with_children')}")
print(f"  audio not compared: machine too slow       {sum(life['late_bytes'] > 0 for life in days)}")
print(f"calls begun                                  {total('calls')}")
print(f"recordings finished, all whole               {total('finished')}")
print(f"recordings stopped, all whole                {sum(stopped.values())}")
for place, count in sorted(stopped.items()):
    print(f"  {place:<43}{count}")
print(f"recordings running, all play                 {total('running')}")
print(f"  longest end that the header does not tell  {max(unwritten, default=0):.2f} s")
print(f"recordings whole on disk, but in no row      {total('no_row')}")
print(f"modes                                        {len({life['mode'] for life in lives})}")
for life in failed:
    print(f"FAILED seed {life['seed']} life {life['life']} ({life['mode']}): {life['failed']}")
sys.exit(1 if failed or not lives else 0)
