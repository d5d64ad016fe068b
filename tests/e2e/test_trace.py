"""The bit-stream trace: its four files to the byte, what it costs the calls, and what is left after it."""

import re
import subprocess
import time
from pathlib import Path

from harness import BUILD, counted_audio, counting, order, path_of, rows, soxi, wait_until
from station_sites import story

CARDS = "card ATP8 1001 4\ncard DST8 1002 4"  # driver channels 0 to 3 are analogue lines, 4 to 7 telephones
TRACED = 5
LOG = Path("/recordings/log")
LINE_STATUS = Path("/var/morvex/data/linestatus.dat")
OK = "OK\n"
FLAG = b"\x7e"

DCH_HEADER = "[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen."
DMSG_HEADER = b"[Ch] Seconds\n"
TIME = r"\d\d:\d\d:\d\d\.\d\d\d"


def start_trace(daemon, channel=TRACED):
    """Returns when the daemon traces, the place in the log before the order."""
    mark = daemon.mark()
    assert order(f"bittrace_start {channel}") == OK
    daemon.wait_line(f"Starting bit stream tracing on channel {channel}", mark)
    wait_until("the driver traces", lambda: tracing() == [channel] and (LOG / "dmsg.log").exists())
    return mark


def tracing():
    """Driver channels that the cards record to a file."""
    status = subprocess.run([BUILD / "sim" / "cardsim", "status"], check=True, capture_output=True, text=True).stdout
    return [int(ch) for ch in re.findall(r"^ch=(\d+) .* tracing=1 ", status, re.MULTILINE)]


def stop_trace(daemon, mark):
    assert order("bittrace_stop") == OK
    daemon.wait_line("Stopped bit stream tracing", mark)


def generate(daemon):
    """Messages on the traced telephone, in parts of a second; and on another, which the trace passes over."""
    daemon.cards(f"ch {TRACED} offhook", f"ch {TRACED + 1} display Nobody", f"ch {TRACED} display 0301234567")
    daemon.cards(f"ch {TRACED} audio 3", f"ch {TRACED} key 7", f"ch {TRACED} dchannel 0x6E sub 1 xtra 2 hex 00ff10")


def check_dch(seconds):
    """The signalling: when each line came is known up to the length of the trace."""
    lines = (LOG / "dch.log").read_text().splitlines()

    def data(kind, length, frame):
        return rf"{TIME} DST ch\[  {TRACED}\] CmdType\[{kind}\] Len\[ {length:2}\] Data--> {frame}"

    def event(code, sub, xtra, length):
        return rf"\[0{TRACED}\] +(\d+) {code:08x} {sub:08x} {xtra:08x} {length:08x}"

    expected = [
        re.escape(DCH_HEADER),
        data("S", 1, " 1 "),
        data("U", 4, " 8  0  0  0 "),
        event(0x0008, 0, 0, 0),
        data("D", 14, " 8 10  0  0 30 33 30 31 32 33 34 35 36 37 "),
        event(0x1008, 0, 0, 10),
        data("V", 4, "4a 10  3  0 "),
        event(0x104A, 3, 0, 0),
        data("U", 4, " 6 10 37  0 "),
        event(0x1006, 0x37, 0, 0),
        data("D", 7, "6e  0  1  0  0 ff 10 "),
        event(0x6E, 1, 2, 3),
    ]
    assert len(lines) == len(expected), lines
    for line, pattern in zip(lines, expected):
        match = re.fullmatch(pattern, line)
        assert match, (line, pattern)
        if match.groups():
            assert len(line) == len("[05] ") + 8 + 4 * 9
            assert 0 <= int(match.group(1)) <= seconds
    return lines


def check_bits():
    """Pieces of 40 bytes: flags, and each frame between two of them."""
    bits = (LOG / "trace.bit").read_bytes()
    assert len(bits) % 40 == 0
    frames = [
        b"\x08\0\0\0",
        b"\x08\x10\0\x000301234567",
        b"\x4a\x10\x03\0",
        b"\x06\x10\x37\0",
        b"\x6e\0\x01\0\0\xff\x10",
    ]
    assert [frame for frame in bits.split(FLAG) if frame] == frames


def check_wav(seconds):
    """Audio of the traced channel, which the driver writes by itself."""
    path = LOG / "trace.wav"
    assert [soxi(path, option) for option in ("-e", "-r", "-c")] == ["A-law", "8000", "1"]
    audio = path.read_bytes()[44:]
    assert int(soxi(path, "-s")) == len(audio)
    assert 0 < len(audio) <= (seconds + 1) * 8000
    assert audio == counting(len(audio))


def test_trace_of_a_telephone(daemon):
    """The first trace of the process: it ends the calls, and takes linestatus.dat away."""
    daemon.cards("ch 0 play counting", "ch 0 offhook", f"ch {TRACED} play counting")
    call = daemon.active_call(1)
    wait_until("a second of audio", lambda: path_of(call).stat().st_size > 8000)
    assert LINE_STATUS.exists()
    for name in ("trace.wav", "trace.bit", "dch.log", "dmsg.log"):
        LOG.mkdir(exist_ok=True)
        (LOG / name).write_text("of an earlier trace")

    began = time.time()
    mark = start_trace(daemon)
    # Recordings have ended, and are finished: a trace begins when the workers have nothing left.
    finished = daemon.finished_call(call["remoteid"])
    assert rows("SELECT id FROM ActiveCalls") == []
    counted_audio(path_of(finished), shortest=8000)
    assert not LINE_STATUS.exists()

    assert order("bittrace_start 2") == "ERR: already started\n"
    assert order("silence 20240131_142305_007_42") == "E2: unknown call\n"  # actions still run
    generate(daemon)
    wait_until("the last message traced", lambda: (LOG / "trace.bit").stat().st_size > 8000)
    time.sleep(1.2)  # so that the files hold more than one second
    # The recorder is deaf: what the cards tell meanwhile waits.
    assert story(daemon, TRACED + 1, mark) == ""

    assert order("bittrace_stop") == OK
    daemon.wait_line("Stopped bit stream tracing", mark)
    seconds = int(time.time() - began) + 1
    assert tracing() == []
    lines = check_dch(seconds)
    elapsed = next(int(line.split()[1]) for line in lines if " 00001008 " in line)
    message = f"[05] {elapsed:8} LCD message\n0301234567\n".encode()
    assert (LOG / "dmsg.log").read_bytes() == DMSG_HEADER + message
    check_bits()
    check_wav(seconds)
    assert order("bittrace_stop") == "ERR: already stopped\n"


def test_recording_goes_on_after_the_trace(daemon):
    """Events that waited are taken, and line status comes back with the next change of a line's health."""
    mark = daemon.mark()
    telephone = daemon.active_call(TRACED + 1)  # picked up during the trace
    daemon.cards(f"ch {TRACED} onhook")
    daemon.finished_call(telephone["remoteid"])
    daemon.cards("ch 1 play counting", "ch 1 offhook")
    call = daemon.active_call(2)
    wait_until("audio", lambda: path_of(call).stat().st_size > 8000)
    daemon.cards("ch 1 onhook")
    finished = daemon.finished_call(call["remoteid"])
    counted_audio(path_of(finished))
    assert not LINE_STATUS.exists()
    daemon.cards("ch 2 state offline")
    daemon.wait_line("[3] Line health: offline", mark)
    wait_until("line status", LINE_STATUS.exists)  # written behind the log line
    assert "Line_3: offline\n" in LINE_STATUS.read_text()
    daemon.cards("ch 2 state standby")


def test_second_trace_lets_recordings_run_on(daemon):
    """Only the first trace ends the calls. The audio of a later one is lost to its recording, which then goes on."""
    daemon.cards("ch 3 play tone 440", "ch 3 offhook")
    call = daemon.active_call(4)
    wait_until("audio", lambda: path_of(call).stat().st_size > 8000)
    mark = start_trace(daemon, channel=0)
    length = path_of(call).stat().st_size
    time.sleep(0.6)
    assert path_of(call).stat().st_size == length
    stop_trace(daemon, mark)
    assert rows("SELECT id FROM ActiveCalls") == [{"id": call["id"]}]
    wait_until("audio again", lambda: path_of(call).stat().st_size > length + 8000)
    assert (LOG / "dmsg.log").read_bytes() == DMSG_HEADER
    daemon.cards("ch 3 onhook")
    daemon.finished_call(call["remoteid"])


def test_channel_that_does_not_exist_gives_empty_files(daemon):
    mark = daemon.mark()
    assert order("bittrace_start 4711") == OK
    daemon.wait_line("Starting bit stream tracing on channel 4711", mark)
    wait_until("files open", lambda: (LOG / "dmsg.log").exists())
    time.sleep(0.3)
    stop_trace(daemon, mark)
    assert (LOG / "dch.log").read_text() == DCH_HEADER + "\n"
    assert (LOG / "dmsg.log").read_bytes() == DMSG_HEADER
    assert (LOG / "trace.bit").read_bytes() == b""
    assert not (LOG / "trace.wav").exists()


def test_termination_during_a_trace(daemon):
    """Last: it ends the daemon. The files are closed; the calls are not ended a second time."""
    daemon.cards("ch 0 offhook")
    call = daemon.active_call(1)
    mark = start_trace(daemon)
    assert daemon.stop() == 0
    lines = daemon.log_after(mark)
    assert lines[-2:] == ["Closing extra threads", "MORVEX-CREC exit"]
    assert "Stopped bit stream tracing" in lines
    assert not [line for line in lines if line.startswith("[1] Recording stopped")]
    assert rows("SELECT id FROM ActiveCalls") == [{"id": call["id"]}]
    assert (LOG / "dch.log").read_text().startswith(DCH_HEADER + "\n")
    assert LINE_STATUS.exists()  # only the one Shutdown removes it
