"""script/layers: each tree here is a house of two or three units, right but for the one thing that the test is about."""

import subprocess
from pathlib import Path

import pytest

LAYERS = Path(__file__).resolve().parents[2] / "script" / "layers"

DOCUMENT = "# Units\n\n<!-- layers: drawn by script/layers --write -->\nold\n<!-- end of layers -->\nThe end.\n"
TABLE = """
upper  # calls
  call: clock line
  line: clock
lower
  clock:
"""
SOURCES = {
    "src/call.h": '#include "line.h"\n#include <string>\n',
    "src/call_start.cpp": '#include "call.h"\n#include "clock.h"\n',
    "src/line.h": "",
    "src/line.cpp": '#include "line.h"\n#include "clock.h"\n',
    "src/clock.h": "",
}


class House:
    def __init__(self, root):
        self.root = root
        self.put("src/layers.txt", TABLE)
        self.put("docs/architecture.md", DOCUMENT)
        for name, text in SOURCES.items():
            self.put(name, text)
        (root / "sim").mkdir()
        (root / "tools").mkdir()
        assert self.layers("--write") == ""

    def put(self, name, text):
        (self.root / name).parent.mkdir(exist_ok=True, parents=True)
        (self.root / name).write_text(text, encoding="utf-8")

    def document(self):
        return (self.root / "docs/architecture.md").read_text(encoding="utf-8")

    def layers(self, *arguments):
        """What the script prints; it fails when and only when it prints something."""
        done = subprocess.run([LAYERS, "--root", self.root, *arguments], capture_output=True, text=True, check=False)
        assert done.stderr == ""
        assert (done.returncode != 0) == (done.stdout != "")
        return done.stdout


@pytest.fixture(name="house")
def fixture_house(tmp_path):
    return House(tmp_path)


def test_a_true_table_is_silent(house):
    assert house.layers() == ""


def test_an_include_that_no_row_allows_is_told_with_its_file(house):
    house.put("src/clock.cpp", '#include "clock.h"\n#include "line.h"\n')
    assert house.layers() == "layers: src/clock.cpp includes line.h, which src/layers.txt does not allow\n"


def test_a_row_that_no_include_needs_is_told(house):
    house.put("src/line.cpp", '#include "line.h"\n')
    assert house.layers() == "layers: src/layers.txt: line does not include clock\n"


def test_an_include_in_a_comment_is_none(house):
    house.put("src/line.cpp", '#include "line.h"\n// #include "clock.h"\n')
    assert house.layers() == "layers: src/layers.txt: line does not include clock\n"


def test_a_unit_without_a_row_is_told(house):
    house.put("src/signal.cpp", "")
    assert house.layers() == "layers: src/layers.txt: no row for signal\n"


def test_a_header_makes_a_unit_of_the_files_that_begin_with_its_name(house):
    house.put("src/call_end.cpp", "")
    assert house.layers() == ""
    house.put("src/call_end.h", "")
    assert house.layers() == "layers: src/layers.txt: no row for call_end\n"


def test_a_row_without_a_unit_is_told(house):
    house.put("src/layers.txt", TABLE + "  signal:\n")
    assert "layers: src/layers.txt: signal has a row and no file\n" in house.layers()


def test_a_row_that_points_upward_is_told_though_an_include_follows_it(house):
    house.put("src/layers.txt", TABLE.replace("clock:", "clock: line"))
    house.put("src/clock.h", '#include "line.h"\n')
    assert "layers: src/layers.txt: clock may include line, which is of a higher layer\n" in house.layers()


def test_a_circle_within_a_layer_is_told(house):
    house.put("src/layers.txt", TABLE.replace("line: clock", "line: clock call"))
    house.put("src/line.h", '#include "call.h"\n')
    told = house.layers()
    assert "layers: src/layers.txt: line may include itself, by way of others\n" in told
    assert "layers: src/layers.txt: call may include itself, by way of others\n" in told


def test_a_second_row_of_a_unit_is_told(house):
    house.put("src/layers.txt", TABLE + "  clock:\n")
    assert "layers: src/layers.txt: clock has two rows\n" in house.layers()


def test_a_row_may_go_on_in_a_second_line(house):
    house.put("src/layers.txt", TABLE.replace("call: clock line", "call: clock\n    line"))
    assert house.layers() == ""


def test_rooms_of_a_unit_include_each_other_and_are_one_to_all_others(house):
    house.put("src/layers.txt", TABLE.replace("line: clock", "line line_state: clock"))
    house.put("src/line_state.h", '#include "line.h"\n')
    house.put("src/line.cpp", '#include "line.h"\n#include "line_state.h"\n#include "clock.h"\n')
    house.put("src/call.h", '#include "line_state.h"\n')
    assert house.layers("--write") == ""
    assert '    line["line<br/>line_state"]\n' in house.document()
    house.put("src/line_state.h", '#include "call.h"\n')
    assert house.layers() == "layers: src/line_state.h includes call.h, which src/layers.txt does not allow\n"


def test_a_room_without_a_file_is_told(house):
    house.put("src/layers.txt", TABLE.replace("line: clock", "line line_state: clock"))
    assert "layers: src/layers.txt: line_state has a row and no file\n" in house.layers()


def test_simulated_cards_are_one_unit_wherever_they_lie(house):
    house.put("sim/library/cards.h", '#include "words.h"\n')
    house.put("sim/library/words.h", '#include "clock.h"\n')
    assert house.layers() == "layers: src/layers.txt: no row for sim\n"
    house.put("src/layers.txt", TABLE.replace("upper", "top\n  sim:\nupper"))
    assert "layers: sim/library/words.h includes clock.h, which src/layers.txt does not allow\n" in house.layers()


def test_the_picture_leaves_out_arrows_that_others_make(house):
    house.put("src/layers.txt", TABLE + "ground\n  text:\n")
    house.put("src/text.h", "")
    assert house.layers("--write") == ""
    document = house.document()
    assert 'subgraph layer0 ["upper"]\n    call\n    line\n  end\n' in document
    assert "  call --> line\n  line --> clock\n" in document
    assert "call --> clock" not in document


def test_arrows_into_the_lowest_layer_are_drawn_as_one(house):
    document = house.document()
    assert "  call --> line\n  layer0 --> layer1\n```\n" in document
    assert "--> clock" not in document


def test_the_text_around_the_picture_stays(house):
    before, _, after = DOCUMENT.partition("old\n")
    assert house.document().startswith(before)
    assert house.document().endswith(after)


def test_an_old_picture_is_told_and_drawn_anew(house):
    house.put("src/layers.txt", TABLE.replace("lower", "ground"))
    told = house.layers()
    assert told == "layers: docs/architecture.md: the picture is not that of src/layers.txt; script/layers --write draws it\n"
    assert house.layers("--write") == ""
    assert '["ground"]' in house.document()
    assert house.layers() == ""


def test_a_document_without_a_place_for_the_picture_is_told(house):
    house.put("docs/architecture.md", "# Units\n")
    assert "layers: docs/architecture.md: no place for the picture" in house.layers("--write")
    assert house.document() == "# Units\n"
