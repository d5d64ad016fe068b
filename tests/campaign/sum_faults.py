"""The figures that the rows of script/faults have left, as two tables for people."""

import json
import sys
from pathlib import Path


def main():
    figures = [json.loads(line) for line in Path(sys.argv[1]).read_text().splitlines()]
    calls = [one for one in figures if "compared" in one]
    hangs = [one for one in figures if "missing_most" in one]
    print(f"{'row':60} {'seconds':>8} {'compared':>9} {'descr.':>7} {'threads':>8} {'KiB':>7}")
    for one in sorted(calls, key=lambda one: one["campaign"]):
        name = f"{one['campaign']}: {one['row']}"
        held = f"{one['descriptors']:7} {one['threads']:8} {one['memory_kib']:7}"
        values = f"{one['seconds']:8} {one['compared']:9} {held}"
        print(f"{name:60} {values}")
    print(f"{len(calls)} rows, {sum(one['compared'] for one in calls)} bytes compared in the clean calls after them")
    if hangs:
        print()
        print(f"{'hang':50} {'seconds':>8} {'lost, worst line':>17} {'lost, 8 lines':>14} {'twice':>9} {'played':>9}")
    for one in hangs:
        values = f"{one['missing_most']:17} {one['missing_all']:14} {one['repeated_all']:9} {one['played_all']:9}"
        print(f"{one['row'].removesuffix(': bytes'):50} {one['hang_s']:8} {values}")


main()
