"""The programs of the benchmark run, and what they compare is whole. Nothing is timed: see script/bench for figures."""

import sys
from types import SimpleNamespace

import pytest

from harness import SOURCE

sys.path.insert(0, str(SOURCE / "bench"))

import rows as benchmark  # noqa: E402
from machine import PLAIN, STEREO, judged  # noqa: E402

SECONDS = 2


@pytest.mark.parametrize("name", benchmark.SMOKE)
def test_row_runs(name, monkeypatch):
    monkeypatch.setattr(benchmark, "SETTLE_S", 0.5)
    monkeypatch.setattr(benchmark, "CALL_LINES", 20)
    monkeypatch.setattr(benchmark, "CALLS_AT_ONCE", 4)
    monkeypatch.setattr(benchmark, "STALLED_LINES", 20)
    monkeypatch.setattr("machine.CARD_CHANNELS", 60)  # so that some rows need a second card
    figures = benchmark.SMOKE[name](SECONDS, None)
    daemon = figures["daemon"]
    assert daemon["files"] >= figures["lines"]
    assert (daemon["wrong_headers"], daemon["missing_bytes"], daemon["missing_files"]) == (0, 0, 0)
    if daemon.get("overruns", 0) == 0:  # else the machine was too slow for its own cards
        assert daemon["wrong_bytes"] == 0
    if "files" in figures.get("floor", {}):
        assert figures["floor"]["files"] >= figures["lines"]
    if name.startswith("stop"):
        assert (daemon["rows"], daemon["rows_left"]) == (figures["lines"] + 1, 0)


DUE = {0: [4096, 2048, 6144]}


@pytest.mark.parametrize(
    "kind, lengths, missing_bytes, missing_files",
    [
        (PLAIN, {"98": 4096, "99": 2048, "00": 6144}, 0, 0),
        (PLAIN, {"98": 6144, "99": 2048, "00": 8192}, 0, 0),  # what came before the end was handled
        (PLAIN, {"98": 6144, "99": 0, "00": 6144}, 2048, 0),  # more of one call makes up for no other
        (PLAIN, {"98": 4096, "99": 2048}, 6144, 1),
        (PLAIN, {}, 12288, 3),
        (STEREO, {"98": 8192, "99": 2048, "00": 12288}, 2048, 0),
    ],
)
def test_missing_audio_is_counted_by_call(kind, lengths, missing_bytes, missing_files):
    names = {f"20260101_120000_001_{number}.wav": length for number, length in lengths.items()}
    found = judged(SimpleNamespace(kind=kind), {"lengths": names}, DUE)
    assert found == {"missing_bytes": missing_bytes, "missing_files": missing_files}


def test_other_lines_make_up_for_nothing():
    names = {"20260101_120000_002_01.wav": 2048}
    assert judged(SimpleNamespace(kind=PLAIN), {"lengths": names}, {0: [2048], 1: [2048]})["missing_bytes"] == 2048
