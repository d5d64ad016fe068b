"""One run of one row of the benchmark, in a sandbox with a database. script/bench calls it.

usage: run.py ROW SECONDS DISK COMMIT OUT

Writes the figures of this commit to OUT as JSON; a row that this machine cannot have says why in them.
"""

import json
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1] / "tests"
sys.path[:0] = [str(TESTS / "e2e"), str(TESTS / "campaign")]

from machine import Trouble  # noqa: E402
from rows import ROWS  # noqa: E402


def main():
    row, seconds, disk, commit, out = sys.argv[1:]
    try:
        figures = ROWS[row](float(seconds), disk)
    except Trouble as trouble:
        figures = {"trouble": str(trouble)}
    Path(out).write_text(json.dumps({"commit": commit, **figures}, indent=1) + "\n")
    return 1 if "trouble" in figures else 0


if __name__ == "__main__":
    sys.exit(main())
