"""Sums up what the cases of script/syscalls have reported: python3 sum_syscalls.py REPORT.json..."""

import collections
import json
import sys
from pathlib import Path

names = [Path(name) for name in sys.argv[1:]]
cases = [json.loads(line) for name in names if name.exists() for line in name.read_text().splitlines()]
met = [case for case in cases if case.get("met")]
ends = collections.Counter(case["died"] for case in met if "died" in case)


def count(condition):
    return sum(1 for case in met if condition(case))


def recordings(case):
    return case["finished"] + case["running"] + sum(case["stopped"].values())


print(f"  cases                               {len(cases)}")
print(f"  met, that is the call came that far {len(met)}")
if any("whole" in case for case in met):
    print(f"  the call whole all the same         {count(lambda case: case.get('whole'))}")
    print(f"  not whole, and told                 {count(lambda case: case.get('whole') is False and case['told'])}")
for name, number in ends.items():
    print(f"  ended by {name:<26} {number}")
if any("finished" in case for case in met):
    print(f"  recordings looked at after the end  {sum(recordings(case) for case in met if 'finished' in case)}")


def split(title, part):
    """Lines of all cases that were met, by the call or by what befell it."""
    groups = collections.defaultdict(list)
    for case in met:
        groups[part(case["case"].split())].append(case)
    print(f"  {title:<10} met  whole  told")
    for name, group in sorted(groups.items()):
        whole = sum(1 for case in group if case.get("whole"))
        lost = sum(1 for case in group if case.get("whole") is False and case["told"])
        print(f"  {name:<10} {len(group):>3}  {whole:>5}  {lost:>4}")


if any(len(case["case"].split()) == 4 for case in met):  # thread, call, number and what befell it
    split("call", lambda words: words[1])
    split("fault", lambda words: words[-1])
late = sum(1 for case in cases if case.get("late"))
if late:
    print(f"  left out: machine too slow          {late}")
wrong = [case for case in cases if "wrong" in case]
for case in wrong:
    print(f"  FAILED {case['kind']} {case['case']}: {case['wrong']}")
sys.exit(1 if wrong or not cases else 0)
