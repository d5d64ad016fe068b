"""The walk of docs/new-pbx.md, at a telephone that no profile fits: from calls that nobody sees to one with its number,
played again from the trace alone. Each command of the page that is used here stands there in these words."""

import os
import re
import subprocess
from pathlib import Path

import pytest

from harness import BUILD, SOURCE, Daemon, rows

PAGE = (SOURCE / "docs/new-pbx.md").read_text()
CARDS = "card ATP8 1001 4\ncard DST8 2015 2"
CHANNEL, LINE = 4, 5
LOG = Path("/recordings/log")
TRACE = Path("/tmp/trace")
NUMBER = "0301234567"
ENVIRONMENT = {**os.environ, "PATH": f"{BUILD / 'tools'}:{BUILD / 'sim'}:{os.environ['PATH']}"}

# A call comes, is answered and ends: two lamps that mean something at this PBX alone, and a display.
CALL = f"""
+0 ch {CHANNEL} ring on
+0 ch {CHANNEL} display "Anruf: {NUMBER}"
+1 ch {CHANNEL} ring off
+0 ch {CHANNEL} dchannel 0x1001 sub 1
+2 ch {CHANNEL} dchannel 0x1001 sub 2
"""
HANDLED = "+0 wait handled\n"
CONDITIONS = {"Syn2015_StartCndList": "1001.1", "Syn2015_StopCndList": "1001.2"}


def run(command):
    """A command of the page, with this site's channel in it; what it prints."""
    assert f"    {command}\n" in PAGE, command
    TRACE.mkdir(exist_ok=True)
    of_site = re.sub(r"(bittrace_start|--channel) \d+", rf"\1 {CHANNEL}", command)
    done = subprocess.run(of_site, shell=True, cwd=TRACE, env=ENVIRONMENT, check=True, capture_output=True, text=True)
    return done.stdout


def act(story):
    """Runs it on the cards."""
    scenario = TRACE.with_suffix(".sim")
    scenario.write_text(story)
    subprocess.run([BUILD / "sim/cardsim", "run", scenario], check=True)


@pytest.fixture(scope="module")
def traced():
    """A trace of the telephone while it is unknown: the log of the daemon that took it."""
    daemon = Daemon(CARDS).start()
    act(CALL + HANDLED)
    assert rows("SELECT id FROM ActiveCalls UNION SELECT id FROM Calls") == []
    run("mkdir -p /recordings/log")
    run("morvex_ctl bittrace_start 16")
    daemon.cards(f"wait traced {CHANNEL}")
    act(CALL)
    run("morvex_ctl bittrace_stop")
    daemon.wait_line("Stopped bit stream tracing")
    for name in ("dch.log", "dmsg.log"):
        (TRACE / name).write_bytes((LOG / name).read_bytes())
    assert daemon.stop() == 0
    return daemon.log_after(0)


def test_log_tells_the_channel_and_when_the_trace_runs(traced):
    assert f"Channel [{LINE}] {{{CHANNEL}}} <1,0> Type: 12" in traced
    assert f"Starting bit stream tracing on channel {CHANNEL}" in traced


def test_messages_tell_what_the_telephone_sends(traced):
    events = [line.split()[2:4] for line in (TRACE / "dch.log").read_text().splitlines() if line.startswith("[04] ")]
    assert events == [
        ["0000101f", "00000000"],
        ["00001008", "00000000"],
        ["00001020", "00000000"],
        ["00001001", "00000001"],
        ["00001001", "00000002"],
    ]


def test_display_tells_the_number(traced):
    assert f"{NUMBER}: taken" in run("morvex_display --ringing dmsg.log")


def test_scenario_of_the_trace_is_read(traced):
    run("cardsim replay dch.log dmsg.log --channel 8 --print > site.sim")
    assert run("cardsim check site.sim") == ""


def test_settings_and_the_trace_make_the_call(traced):
    for param, value in CONDITIONS.items():
        assert f"VALUES ('{param}', '{value}', 'crec')" in PAGE
    daemon = Daemon(CARDS, {"crec": CONDITIONS}).start()
    run("cardsim replay dch.log dmsg.log --channel 8")
    daemon.wait_line(f"[{LINE}] Call stops")
    (call,) = rows("SELECT remoteid FROM ActiveCalls UNION SELECT remoteid FROM Calls")
    finished = daemon.finished_call(call["remoteid"])
    assert (finished["linenr"], finished["direction"], finished["remote"], finished["isarchived"]) == (LINE, 0, NUMBER, 1)
    assert daemon.stop() == 0
