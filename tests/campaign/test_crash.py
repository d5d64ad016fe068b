"""SIGKILL at random moments of busy days and of starts: what a killed daemon leaves, and what the next one makes of it.

    CRASH_KILLS    how many lives end so (default 3)
    CRASH_SEED     what decides about modes, calls and moments (default 1)
    CRASH_REPORT   a file that gets one JSON line a life

Every recording that the log or a row tells of is looked at after each kill:

    in Calls           one that the log tells of; final file whole, byte by byte, with the checksum of the row; so it
                       stays for all lives to come
    stopped            whole in one of its places: as written, converted, or encrypted
    running            as far as its header says it plays and is what the line carried; the header is at most
                       HEADER_AGE_S older than the kill; its row is in ActiveCalls once the log has told so

Where the machine was too slow for its own simulated cards, which they tell, only the audio is not compared.

A life begins on what the one before left: it has to come up without an error, to leave finished recordings and rows
alone, and to record the next busy day. Each third kill takes the children of the daemon along, as a supervisor's would.
"""

import json
import os
import random
import re
import signal
import subprocess
import time
from dataclasses import replace
from pathlib import Path

from day import CARDS, CLEAR, MODES, ORIGINALS, WORK_ROOTS, BusyDay, Cards, Service
from day import channels_of, expected_audio, install_tools, is_archived, is_final, is_whole
from day import line_of, md5
from harness import AUDIO_BYTES_PER_S, BLOCK_BYTES, HEADER_BYTES, Daemon, header
from harness import path_of, rows, store_settings, wait_until

KILLS = int(os.environ.get("CRASH_KILLS", "3"))
SEED = os.environ.get("CRASH_SEED", "1")
REPORT = os.environ.get("CRASH_REPORT")

# A header is written every fifth second, by a loop that may be a pass late, of what the card has reported.
HEADER_AGE_S = 5
LATE_BYTES = AUDIO_BYTES_PER_S // 2 + BLOCK_BYTES
# A start waits ten seconds for the cards; what it does, it does before and after.
START_S = ((0, 0.2), (9.9, 10.6))
ERROR_FILE = Path("/var/morvex/data/err_crec.dat")
DRIVER_INI = Path("/var/morvex/data/ShConfig.ini")
TUNED = "[Tuned]\n" + "".join(f"Value{i}={i * i}\n" for i in range(900))  # by hand, and nobody else has it


# -- the kill --------------------------------------------------------------------------------------------------------


def children_of(pid):
    """All processes that descend from this one, the nearest first."""
    parents = {}
    for status in Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = status.read_text().rsplit(")", 1)[1].split()
        except OSError:
            continue
        parents.setdefault(int(fields[1]), []).append(int(status.parent.name))
    found = [pid]
    for parent in found:
        found.extend(parents.get(parent, []))
    return found[1:]


def is_there(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    except OSError:
        return False


def kill(daemon, with_children):
    """Ends the daemon, and returns when nothing of it writes any more. How many children it had."""
    daemon.process.send_signal(signal.SIGSTOP)  # so that no child is born behind our back
    children = children_of(daemon.pid)
    daemon.process.kill()
    if with_children:
        for child in children:
            try:
                os.kill(child, signal.SIGKILL)
            except ProcessLookupError:
                pass
    wait_until("end of the children", lambda: not any(is_there(child) for child in children))
    daemon.wait_exit()
    return len(children)


# -- what was left ---------------------------------------------------------------------------------------------------


class Left:
    """The recordings of one life, by the name of their final file, as the log tells of them."""

    def __init__(self, lines, mode):
        self.mode = mode
        self.sources = {}
        self.added = set()  # those whose row is in ActiveCalls: the main thread adds it as it begins to record
        self.stopped = set()
        running = {}
        name = None
        for text in lines:
            if found := re.match(r"\[(\d+)\] Recording to file (.*)$", text):
                name = Path(found[2]).name.removesuffix(".g711")
                self.sources[name] = Path(found[2])
                running[found[1]] = name
            elif text.startswith("Added ActiveCalls to database (ID: "):
                self.added.add(name)
            elif found := re.match(r"\[(\d+)\] Recording stopped \(", text):
                self.stopped.add(running.pop(found[1]))

    def final(self, name):
        return self.sources[name].with_name(name)

    def archive(self, name):
        root = WORK_ROOTS[self.mode.secrecy]
        return path_of({"directory": self.sources[name].parent.relative_to(root), "filename": name})

    def found(self, name):
        """What there is of a recording, for whoever has to find out."""
        places = {self.sources[name], self.final(name), self.archive(name)}
        return {str(place): place.stat().st_size for place in places if place.exists()}

    def is_safe(self, name):
        """Whether the stopped recording is whole in one of its places."""
        source, final, archive = self.sources[name], self.final(name), self.archive(name)
        if source.exists() and is_whole(source.read_bytes(), line_of(name), self.mode):
            return "as written"
        if self.mode.converts and final.exists() and is_final(final.read_bytes(), name, self.mode):
            return "converted"
        if self.mode.secrecy != CLEAR and archive.exists() and is_archived(archive.read_bytes(), name, self.mode):
            return "encrypted"
        return None


def first_difference(one, other):
    """The first place where two texts of one length differ; None when they do not."""
    return next((place for place, pair in enumerate(zip(one, other)) if pair[0] != pair[1]), None)


def check_running(path, mode):
    """Seconds at the end of the file that its header does not tell of."""
    data = path.read_bytes()
    line = line_of(path)
    length = int.from_bytes(data[HEADER_BYTES - 4 : HEADER_BYTES], "little")  # what players go by
    audio = data[HEADER_BYTES:]
    assert data[:HEADER_BYTES] == header(channels_of(line, mode), length, mode.law_tag), path
    assert length <= len(audio), path
    place = None if mode.late else first_difference(audio, expected_audio(line, mode, len(audio)))
    assert place is None, f"{path}: wrong from byte {place} of {len(audio)}"
    rate = AUDIO_BYTES_PER_S * channels_of(line, mode)
    assert mode.late or len(audio) - length <= HEADER_AGE_S * rate + LATE_BYTES * channels_of(line, mode), path
    samples = subprocess.run(["/usr/bin/soxi", "-s", path], check=True, capture_output=True, text=True).stdout
    assert int(samples) == length // channels_of(line, mode), path
    return (len(audio) - length) / rate


def check_calls(names, mode):
    """All rows of Calls of this life, each with its file whole. Their ids and files, for the lives to come."""
    kept = {}
    for call in rows("SELECT * FROM Calls"):
        if call["filename"] not in names:
            continue
        data = path_of(call).read_bytes()
        assert is_archived(data, call["filename"], mode), f"row {call['remoteid']} without its recording"
        assert f"chk: {md5(data)}\r\n" in call["callextra"]
        kept[call["remoteid"]] = (call, md5(data))
    return kept


def last_row():
    return rows("SELECT coalesce(max(id), 0) AS id FROM Calls")[0]["id"]


def check_told(names, last, began):
    """The log has told of as many recordings as began, and of all that the rows behind `last` name."""
    assert len(names) >= began
    for call in rows(f"SELECT * FROM Calls WHERE id > {last}"):
        assert call["filename"] in names, f"row {call['remoteid']} of a recording that never began"


def check_settled(settled):
    """What was finished in earlier lives is as it was, row and file."""
    found = {call["remoteid"]: call for call in rows("SELECT * FROM Calls")}
    for remoteid, (call, digest) in settled.items():
        assert found.get(remoteid) == call
        assert md5(path_of(call).read_bytes()) == digest


# -- lives -----------------------------------------------------------------------------------------------------------


def check_left(lines, mode, settled, told):
    """Holds all recordings that these lines of the log tell of, and those of earlier lives, against the rules above."""
    left = Left(lines, mode)
    kept = check_calls(left.sources, mode)
    check_settled(settled)
    settled.update(kept)
    in_calls = {call["filename"] for call, _ in kept.values()}
    active = {call["filename"] for call in rows("SELECT filename FROM ActiveCalls")}
    told.update(finished=len(in_calls), running=0, stopped={}, unwritten_s=0, no_row=0)
    for name, source in left.sources.items():
        if name in in_calls:
            continue
        told["no_row"] += name not in active
        assert name in active or name in left.stopped or name not in left.added, f"running without its row: {source}"
        if name in left.stopped:
            place = left.is_safe(name)
            assert place, f"stopped and lost: {source}; there is {left.found(name)}"
            told["stopped"][place] = told["stopped"].get(place, 0) + 1
        else:
            told["running"] += 1
            told["unwritten_s"] = max(told["unwritten_s"], check_running(source, mode))


def live(rng, mode, settled, told):
    """One life, from its start to its kill."""
    ERROR_FILE.unlink(missing_ok=True)
    ini = DRIVER_INI.read_bytes()
    store_settings(mode.settings)
    daemon = Daemon(CARDS)
    try:
        if rng.random() < 0.125 and settled:
            told["moment"] = "start"
            daemon.launch()
            time.sleep(rng.uniform(*rng.choice(START_S)))
            kill(daemon, with_children=True)
            assert DRIVER_INI.read_bytes() == ini  # the same cards as ever: the new one is the old one
            check_settled(settled)
            return
        told["moment"] = "day"
        daemon.start()
        daemon.wait_orders()
        assert not ERROR_FILE.exists(), ERROR_FILE.read_text()
        check_settled(settled)
        cards = Cards()
        last = last_row()
        day = BusyDay(rng, cards)
        day.run(rng.uniform(0.5, 13))
        cards.do("wait handled")
        began = day.calls
        day.run(rng.uniform(0, 1))
        told.update(calls=day.calls, with_children=rng.random() < 1 / 3, late_bytes=cards.overruns())
        told["children"] = kill(daemon, told["with_children"])
        cards.close()
        assert not ERROR_FILE.exists(), ERROR_FILE.read_text()
        check_told(Left(daemon.log_after(0), mode).sources, last, began)
        check_left(daemon.log_after(0), replace(mode, late=told["late_bytes"] > 0), settled, told)
    except BaseException:
        print("\n".join(daemon.log_after(0)[-300:]))
        raise
    finally:
        if daemon.running:
            daemon.kill()


def report(told):
    if REPORT:
        with open(REPORT, "a") as lines:
            lines.write(json.dumps(told) + "\n")


def forget(settled):
    """Keeps the folders small: what was found whole many times over need not be looked at for ever."""
    for remoteid in list(settled)[:-200]:
        call, _ = settled.pop(remoteid)
        path_of(call).unlink()
    for original in ORIGINALS.iterdir():
        original.unlink()


def tune_driver():
    """A first start writes the driver's configuration, and a technician adds to it."""
    daemon = Daemon(CARDS, MODES[0].settings).start()
    assert daemon.stop() == 0
    with DRIVER_INI.open("a") as ini:
        ini.write(TUNED)
    assert Daemon(CARDS).start().stop() == 0  # its layout is the daemon's
    assert "Value899=" in DRIVER_INI.read_text()


def test_kills():
    install_tools()
    Service()
    tune_driver()
    settled = {}
    for life in range(KILLS):
        rng = random.Random(f"{SEED}/{life}")
        mode = rng.choice(MODES)
        told = {"seed": SEED, "life": life, "mode": str(mode)}
        try:
            live(rng, mode, settled, told)
        except BaseException as error:
            told["failed"] = str(error)[:300] or repr(error)
            report(told)
            raise
        report(told)
        forget(settled)

    # The last start, and its stop: a day that nobody kills ends with nothing left over.
    store_settings(MODES[0].settings)
    daemon = Daemon(CARDS).start()
    cards = Cards()
    day = BusyDay(random.Random(SEED), cards)
    last = last_row()
    day.run(3)
    assert daemon.stop() == 0
    check_settled(settled)
    assert len(rows(f"SELECT id FROM Calls WHERE id > {last}")) == day.calls
    names = Left(daemon.log_after(0), MODES[0]).sources
    check_told(names, last, day.calls)
    assert len(check_calls(names, MODES[0])) == day.calls
    assert not ERROR_FILE.exists(), ERROR_FILE.read_text()
    cards.close()
