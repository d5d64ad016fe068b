"""The trace of a station line, taken by the daemon, brings the same messages to another line by `cardsim replay`."""

import re
import subprocess
from pathlib import Path

import pytest

from harness import BUILD
import station_sites

CARDS = "card DST-2B 3001 2"

LOGS = Path("/recordings/log")
TRACED, REPLAYED = 0, 1  # driver channels

# A call as the traced line has it. What is no message of the D-channel is not in the trace.
CALL = r"""
+0   ch 0 sound on
+0   ch 0 ring on
+0   ch 0 display "Von: 0301234567\nM\xfcller \"A\\B\""
+0   ch 0 display ""
+1.5 ch 0 dchannel 0x1304 sub 0x102 xtra 7
+0   ch 0 offhook
+0   ch 0 audio 1
+2   ch 0 key 12*#
+0   ch 0 button function 3
+0   ch 0 mutelight off
+0   ch 0 display "12.03.2015\n"
+0   ch 0 dtmf 5
+1   ch 0 audio 0
+0   ch 0 onhook
"""

# What the daemon makes of it, on either line.
STORY = """\
Ring on (101f)
A new ring and expire remote
Message change:Von: 0301234567
M\\xfcller "A\\B"
Remote: 0301234567
Message change:
Ring off (1304)
Off hook
Call starts
Incoming, last ring: # s. ago
Starting recording
Recording to file <stamp>_01.wav
Audio change 1
Digits: 1
Digits: 12
Digits: 12*
Digits: 12*#
Function button 3 (100e.3)
MuteLight off
Message change:12.03.2015

Audio change 0
On hook
Call stops
Recording stopped (# s)
"""


def ctl(*words):
    ran = subprocess.run([BUILD / "tools" / "morvex_ctl", *words], capture_output=True, text=True)
    assert (ran.returncode, ran.stderr) == (0, ""), ran


def take_trace(daemon, channel, command, directory):
    """The files of a trace of this channel, taken while a command runs; the names of copies in the directory."""
    mark = daemon.mark()
    ctl("bittrace_start", str(channel))
    daemon.cards(f"wait traced {channel}")
    subprocess.run(command, check=True)
    ctl("bittrace_stop")
    daemon.wait_line("Stopped bit stream tracing", mark)
    daemon.cards("wait idle")
    files = [directory / name for name in ("dch.log", "dmsg.log")]
    for file in files:
        file.write_bytes((LOGS / file.name).read_bytes())
    return files


@pytest.fixture(scope="module")
def traces(daemon, tmp_path_factory):
    """The trace of the call, and that of its replay."""
    daemon.wait_orders()
    LOGS.mkdir()  # the appliance's installation has it; the daemon does not make it
    first, second = tmp_path_factory.mktemp("first"), tmp_path_factory.mktemp("second")
    scenario = first / "call.sim"
    scenario.write_text(CALL)
    traced = take_trace(daemon, TRACED, [BUILD / "sim" / "cardsim", "run", scenario], first)
    replay = [BUILD / "sim" / "cardsim", "replay", *traced, "--channel", str(REPLAYED)]
    return traced, take_trace(daemon, REPLAYED, replay, second)


def events(dch_log):
    """Second and values of each event, in order."""
    lines = re.findall(r"^\[\d+\] +(\d+) (\w{8} \w{8} \w{8} \w{8})$", dch_log.read_text(), re.MULTILINE)
    return [int(second) for second, _ in lines], [values for _, values in lines]


def test_replay_gives_the_same_messages_at_the_same_seconds(traces):
    (seconds, values), (replayed_seconds, replayed_values) = (events(dch_log) for dch_log, _ in traces)
    assert values == replayed_values == [
        "0000101f 00000000 00000000 00000000",
        "00001008 00000000 00000000 0000001c",
        "00001008 00000000 00000000 00000000",
        "00001304 00000102 00000007 00000000",
        "00000008 00000000 00000000 00000000",
        "0000104a 00000001 00000000 00000000",
        "00001006 00000031 00000000 00000000",
        "00001006 00000032 00000000 00000000",
        "00001006 0000002a 00000000 00000000",
        "00001006 00000023 00000000 00000000",
        "0000100e 00000003 00000000 00000000",
        "0000111e 00000000 00000000 00000000",
        "00001008 00000000 00000000 0000000b",
        "0000104a 00000000 00000000 00000000",
        "0000000e 00000000 00000000 00000000",
    ]
    # The second trace began before the replay did, and a busy machine is late, never early.
    assert all(0 <= again - once <= 3 for once, again in zip(seconds, replayed_seconds))
    assert seconds[-1] - seconds[0] in (4, 5)


def test_replay_gives_the_same_displays(traces):
    once, again = (re.sub(rb"^\[\d+\] +\d+ ", b"", dmsg.read_bytes(), flags=re.MULTILINE) for _, dmsg in traces)
    assert once == again
    assert once == (
        b"[Ch] Seconds\n"
        b'LCD message\nVon: 0301234567\nM\xfcller "A\\B"\n'
        b"LCD message\n\n"
        b"LCD message\n12.03.2015\n\n"
    )


# The recorder is deaf while it traces, and takes the messages when the trace has ended.
def test_daemon_makes_the_same_of_both(daemon, traces):
    original = station_sites.story(daemon, TRACED + 1)
    for line in ("Voice detected outside of call", "TDM DTMF detected: 5"):
        assert original.count(line + "\n") == 1
        original = original.replace(line + "\n", "")
    assert original == STORY
    assert station_sites.story(daemon, REPLAYED + 1) == STORY


def test_printed_scenario_is_the_replay(traces, tmp_path):
    dch_log, dmsg_log = traces[0]
    tool = [BUILD / "sim" / "cardsim"]
    scenario = tmp_path / "printed.sim"
    printed = subprocess.run([*tool, "replay", dch_log, dmsg_log, "--print"], check=True, capture_output=True).stdout
    scenario.write_bytes(printed)
    subprocess.run([*tool, "check", scenario], check=True)
    actions = [line.split(b"  ", 1)[1] for line in printed.splitlines() if not line.startswith(b"#")]
    assert actions == [
        b"ch 0 ring on",
        rb'ch 0 display "Von: 0301234567\nM\xfcller \"A\\B\""',
        b'ch 0 display ""',
        b"ch 0 dchannel 0x1304 sub 0x102 xtra 0x7",
        b"ch 0 offhook",
        b"ch 0 audio 1",
        b"ch 0 key 1",
        b"ch 0 key 2",
        b"ch 0 key *",
        b"ch 0 dchannel 0x1006 sub 0x23",
        b"ch 0 button function 3",
        b"ch 0 mutelight off",
        rb'ch 0 display "12.03.2015\n"',
        b"ch 0 audio 0",
        b"ch 0 onhook",
    ]
