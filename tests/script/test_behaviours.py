"""script/behaviours: each test is one line of a document, or of a source, in a small tree."""

import subprocess
from pathlib import Path

import pytest

BEHAVIOURS = Path(__file__).resolve().parents[2] / "script" / "behaviours"

HEAD = "| What happens | Test |\n|---|---|\n"
ROWS = [
    ("a unit test", "| rings | `Line.Rings` |", ""),
    ("a parametrised one", "| rings | `Lines.RingTwice` |", ""),
    ("a test of the whole daemon", "| rings | `test_line.py::test_ring` |", ""),
    ("two tests", "| rings | `Line.Rings`, `test_line.py::test_ring` |", ""),
    ("a unit test that is gone", "| rings | `Line.Sings` |", "no test Line.Sings"),
    ("a test that is gone beside one that is there", "| rings | `Line.Rings`, `Line.Sings` |", "no test Line.Sings"),
    ("a test of another file", "| rings | `test_bell.py::test_ring` |", "no test test_bell.py::test_ring"),
    ("no test at all", "| rings | surely |", "no test"),
    ("a test beside what happens does not count", "| `Line.Rings` | surely |", "no test"),
]
SOURCES = [
    ("a text that the document tells", 'lg(LOG_ERR, "Bell broken");', ""),
    ("its end of line is not told", 'lg(LOG_ERR, "Bell broken\\n");', ""),
    ("a text that it does not tell", 'lg(LOG_WARNING, "Bell lost");', 'nothing on "Bell lost" of line.cpp'),
    (
        "both texts of a call",
        'lg(f ? LOG_ERR : LOG_WARNING, f ? "Bell broken" : "Bell lost");',
        'nothing on "Bell lost" of line.cpp',
    ),
    ("the place of a failed system call", 'LogCapiError("Ring bell");', 'nothing on "Ring bell" of line.cpp'),
    ("the place of a failed driver call", 'LogSsmError("SsmRing");', 'nothing on "SsmRing" of line.cpp'),
    ("what the error file alone gets", 'WriteErrCrec("No bell");', 'nothing on "No bell" of line.cpp'),
    ("one of these that is told", 'LogCapiError("Bell broken");', ""),
    ("what the log tells of itself", 'Send(LOG_WARNING, "Bells left out");', 'nothing on "Bells left out" of line.cpp'),
    ("a line of a lower level", 'lg(LOG_NOTICE, "Bell rings");', ""),
]


def run(root):
    return subprocess.run([BEHAVIOURS, "--root", root], capture_output=True, text=True, check=False)


@pytest.fixture
def tree(tmp_path):
    for folder in ("src", "docs", "tests/unit", "tests/e2e"):
        (tmp_path / folder).mkdir(parents=True)
    (tmp_path / "docs/behaviour.md").write_text("Bell broken\n", encoding="utf-8")
    unit_tests = "TEST_F(Line, Rings) {\nTEST_P(Lines,\n  RingTwice) {\n"
    (tmp_path / "tests/unit/line_test.cpp").write_text(unit_tests, encoding="utf-8")
    (tmp_path / "tests/e2e/test_line.py").write_text("def test_ring(daemon):\n", encoding="utf-8")
    return tmp_path


def told(done, text):
    assert done.stderr == ""
    assert done.stdout == (f"behaviours: {text}\n" if text else "")
    assert done.returncode == (1 if text else 0)


@pytest.mark.parametrize("row, error", [row[1:] for row in ROWS], ids=[row[0] for row in ROWS])
@pytest.mark.parametrize("document", ["behaviour.md", "security.md"])
def test_row(tree, document, row, error):
    with (tree / "docs" / document).open("a", encoding="utf-8") as text:
        lines = 1 if document == "behaviour.md" else 0
        text.write(HEAD + row + "\n")
    told(run(tree), error and f"docs/{document}:{lines + 3}: {error}")


def test_table_without_tests(tree):
    (tree / "docs/security.md").write_text("| Who | What |\n|---|---|\n| a neighbour | links |\n", encoding="utf-8")
    told(run(tree), "")


@pytest.mark.parametrize("line, error", [row[1:] for row in SOURCES], ids=[row[0] for row in SOURCES])
def test_log_text(tree, line, error):
    (tree / "src/line.cpp").write_text(line + "\n", encoding="utf-8")
    told(run(tree), error and f"docs/behaviour.md: {error}")


def test_suite_of_two_files(tree):
    (tree / "tests/unit/bell_test.cpp").write_text("TEST(Line, Falls) {\nTEST(Bell, Rings) {\n", encoding="utf-8")
    told(run(tree), "suite Line in bell_test.cpp and line_test.cpp")
