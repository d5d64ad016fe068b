"""script/coverage: a source of a few lines, a gcovr that says how often each ran, and a list of those that did not."""

import json
import os
import subprocess
from pathlib import Path

import pytest

COVERAGE = Path(__file__).resolve().parents[2] / "script" / "coverage"

SOURCE = """int Ring(bool fBell) {
  // A bell may be away.
  if (!fBell) {
    Knock();

    return 1;
  }
  if (Broken()) {
    return 1;
  }
  return 0;
}
"""
RUNS = {1: 5, 3: 5, 4: 0, 6: 0, 8: 5, 9: 5, 11: 5}  # of the lines that count
AWAY = """src/bell.cpp: bells are never away
  if (!fBell) {
- Knock();
- return 1;
"""
ROWS = [
    ("lines that are named", AWAY, []),
    ("lines that are not", "", ["src/bell.cpp:4: not reached: Knock();", "src/bell.cpp:6: not reached: return 1;"]),
    (
        "one of two named",
        "src/bell.cpp: away\n  if (!fBell) {\n- Knock();\n",
        ["src/bell.cpp:6: not reached: return 1;"],
    ),
    ("a comment", "# Bells\n\n" + AWAY, []),
    (
        "a line that is reached",
        AWAY + "src/bell.cpp: none\n- return 0;\n",
        ["tests/unreached.txt:6: reached: return 0;"],
    ),
    ("a line that is reached in some runs", AWAY + "src/bell.cpp: none\n? return 0;\n", []),
    ("a line that is not, in this run", AWAY.replace("-", "?"), []),
    (
        "a line that is not there",
        AWAY + "src/bell.cpp: gone\n- Sing();\n",
        ["tests/unreached.txt:5: not in src/bell.cpp"],
    ),
    (
        "lines that do not follow each other",
        AWAY + "src/bell.cpp: none\n  Knock();\n? }\n",
        ["tests/unreached.txt:5: not in src/bell.cpp"],
    ),
    (
        "a line that stands twice",
        AWAY + "src/bell.cpp: which\n? return 1;\n",
        ["tests/unreached.txt:5: more than once in src/bell.cpp"],
    ),
    (
        "a line without code",
        AWAY + "src/bell.cpp: none\n  return 0;\n- }\n",
        ["tests/unreached.txt:7: no code of its own: }"],
    ),
    (
        "a file that is not there",
        AWAY + "src/door.cpp: gone\n- Open();\n",
        ["tests/unreached.txt:5: not in src/door.cpp"],
    ),
]


def run(root, listed):
    (root / "src").mkdir()
    (root / "src/bell.cpp").write_text(SOURCE)
    (root / "tests").mkdir()
    (root / "tests/unreached.txt").write_text(listed)
    lines = [{"line_number": number, "count": count, "branches": []} for number, count in RUNS.items()]
    lines.append({"line_number": 12, "count": 0, "branches": [], "gcovr/noncode": True})
    (root / "report.json").write_text(json.dumps({"files": [{"file": "src/bell.cpp", "lines": lines}]}))
    gcovr = root / "gcovr"
    gcovr.write_text(f"#!/bin/sh\nexec cat {root}/report.json\n")
    gcovr.chmod(0o755)
    environment = {**os.environ, "PATH": f"{root}:{os.environ['PATH']}"}
    return subprocess.run([COVERAGE, "--root", root], env=environment, capture_output=True, text=True, check=False)


@pytest.mark.parametrize("listed, errors", [row[1:] for row in ROWS], ids=[row[0] for row in ROWS])
def test_list(tmp_path, listed, errors):
    done = run(tmp_path, listed)
    assert done.stderr == ""
    table = done.stdout.splitlines()
    assert table[0].split() == "src/bell.cpp 5 of 7 lines 71.4 % 0 of 0 branches 100.0 %".split()
    assert table[3:] == errors
    assert done.returncode == (1 if errors else 0)


@pytest.mark.parametrize("listed", ["- return 0;\n", "src/bell.cpp\n", "src/bell.cpp:\n"])
def test_list_that_cannot_be_read(tmp_path, listed):
    done = run(tmp_path, listed)
    assert done.returncode == 1
    assert done.stderr.startswith("tests/unreached.txt:1: ")
