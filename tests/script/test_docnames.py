"""script/docnames: each test is one line of a document beside one source."""

import subprocess
from pathlib import Path

import pytest

DOCNAMES = Path(__file__).resolve().parents[2] / "script" / "docnames"

SOURCE = "void Line::Ring(int iCount) { lg(1, \"rings %d\", iCount); } // --channel N\n"

ROWS = [
    ("a known name", "`Ring` tells `iCount`", ""),
    ("an unknown name", "`Sing` tells", "nothing is named Sing"),
    ("words without backticks are no names", "Sing tells", ""),
    ("text in backticks is no name", "`Sing tells`", ""),
    ("operation of its class", "`Line::Ring`", ""),
    ("operation of another class", "`Clock::Ring`", "nothing is named Clock::Ring"),
    ("argument in capitals", "`CHANNEL`", ""),
    ("a file that is there", "see line.cpp", ""),
    ("a file with its folder", "see src/line.cpp", ""),
    ("a file that is gone", "see clock.h", "no file clock.h"),
    ("operation in its file", "`Line::Ring` (line.cpp)", ""),
    ("operation in another file", "`Ring` (time.cpp)", "no Ring in time.cpp"),
]


@pytest.mark.parametrize("line, error", [row[1:] for row in ROWS], ids=[row[0] for row in ROWS])
@pytest.mark.parametrize("document", ["README.md", "docs/lines.md"])
def test_row(tmp_path, document, line, error):
    for folder in ("src", "docs"):
        (tmp_path / folder).mkdir()
    (tmp_path / "README.md").touch()
    (tmp_path / "src/line.cpp").write_text(SOURCE, encoding="utf-8")
    (tmp_path / "src/time.cpp").touch()
    (tmp_path / document).write_text("# Head\n" + line + "\n", encoding="utf-8")
    done = subprocess.run([DOCNAMES, "--root", tmp_path], capture_output=True, text=True, check=False)
    assert done.stderr == ""
    assert done.stdout == (f"docnames: {document}:2: {error}\n" if error else "")
    assert done.returncode == (1 if error else 0)
