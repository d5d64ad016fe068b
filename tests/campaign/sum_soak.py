"""Sums up what the rests of script/soak have reported: python3 sum_soak.py REPORT.json"""

import json
import sys
from pathlib import Path

report = Path(sys.argv[1])
rests = [json.loads(line) for line in report.read_text().splitlines()] if report.exists() else []
if not rests:
    sys.exit("no rest was reached")


def total(key):
    return sum(rest[key] for rest in rests)


print(f"rests                                  {len(rests)}")
print(f"calls, each with its row               {total('calls')}")
print(f"  as their lines carried them          {total('as_carried')}")
print(f"  when the machine was too slow        {sum(rest['calls'] for rest in rests if rest['late_bytes'])}")
print(f"hours of audio                         {total('audio_s') / 3600:.1f}")
for name in ("own_kb", "resident_kb", "descriptors", "threads"):
    held = [rest[name] for rest in rests]
    print(f"{name:<38} {held[0]} first, {held[-1]} last, {min(held)} to {max(held)}")
