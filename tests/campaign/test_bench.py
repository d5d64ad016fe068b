"""The programs of the benchmark run, and what they compare is whole. Nothing is timed: see script/bench for figures."""

import sys

import pytest

from harness import SOURCE

sys.path.insert(0, str(SOURCE / "bench"))

import rows as benchmark  # noqa: E402

SECONDS = 2


@pytest.mark.parametrize("name", benchmark.SMOKE)
def test_row_runs(name, monkeypatch):
    monkeypatch.setattr(benchmark, "SETTLE_S", 0.5)
    monkeypatch.setattr(benchmark, "CALL_LINES", 20)
    monkeypatch.setattr(benchmark, "CALLS_AT_ONCE", 4)
    figures = benchmark.SMOKE[name](SECONDS, None)
    daemon = figures["daemon"]
    assert daemon["files"] >= figures["lines"]
    assert (daemon["wrong_headers"], daemon.get("missing_bytes", 0)) == (0, 0)
    if daemon.get("overruns", 0) == 0:  # else the machine was too slow for its own cards
        assert daemon["wrong_bytes"] == 0
    if "files" in figures.get("floor", {}):
        assert figures["floor"]["files"] >= figures["lines"]
    if name.startswith("stop"):
        assert (daemon["rows"], daemon["rows_left"]) == (figures["lines"] + 1, 0)
