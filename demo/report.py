"""What came of it: the table of Calls, and the folder with the recordings and a page that shows and plays them."""

import csv
import datetime
import hashlib
import re
import shutil
import subprocess
from dataclasses import dataclass

import compare
import page
import picture
from appliance import path_of
from calls import GSM, INCOMING, Call
from machine import WORK

ENCODINGS = {554: "A-law", 551: "GSM", 801: "MP3"}
DIRECTIONS = {0: "incoming", 1: "outgoing", 2: "internal"}
LINE_END = "\r\n"
SHOWN_DIGITS = 12  # of a checksum

# Below the folder; the recordings stand in it by themselves.
PARTS = "page"

# Of what the log says of a call, the first of these count for most.
LOG_MATTERS = (
    "Silencing set to 1",
    "Silencing set to 0",
    "RecOnDmd: ",
    "Duration too short",
    "Recording to file",
    "Recording stopped",
    "Incoming call",
    "Outgoing call",
    "Remote: ",
    "Call starts",
    "Call stops",
)
LOG_SHOWN = 5


@dataclass(frozen=True)
class Judged:
    """A call of the demo, and what was found of it."""

    call: Call
    verdict: str
    row: dict = None  # of Calls, when there is one, and its file
    found: compare.Found = None  # None when it is wrong
    log: tuple = ()


def checksum_of(row):
    """The checksum that the daemon has stored with the call."""
    pairs = dict(line.split(": ", 1) for line in row["callextra"].split(LINE_END) if ": " in line)
    return pairs.get("chk", "")


def sha256(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def began(row):
    return datetime.datetime.fromtimestamp(row["startdate"])


def encoding(row):
    return ENCODINGS.get(row["encoding"], str(row["encoding"]))


def log_of(line, text):
    """What matters of what the daemon's log says of a line, in its order."""
    own = [each for each in text.splitlines() if each.startswith(f"[{line}] ")]
    last = {matter: i for i, each in enumerate(own) for matter in LOG_MATTERS if each.startswith(f"[{line}] {matter}")}
    chosen = [last[matter] for matter in LOG_MATTERS if matter in last][:LOG_SHOWN]
    return tuple(own[i] for i in sorted(chosen))


# -- tables ----------------------------------------------------------------------------------------------------------


def table(heading, lines):
    """Columns as wide as their widest cell, two blanks apart."""
    cells = [heading, *lines]
    widths = [max(len(line[i]) for line in cells) for i in range(len(heading))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in cells)


def calls_table(rows):
    lines = []
    for row in rows:
        lines.append(
            (
                began(row).strftime("%H:%M:%S"),
                str(row["linenr"]),
                DIRECTIONS[row["direction"]],
                row["local"] or "-",
                row["remote"] or "-",
                f"{row['duration']} s",
                row["filename"],
                encoding(row),
                checksum_of(row)[:SHOWN_DIGITS],
            )
        )
    return table(("START", "LINE", "DIRECTION", "LOCAL", "REMOTE", "TIME", "FILE", "ENCODING", "SHA-256"), lines)


def compared_table(judged):
    lines = [(str(each.call.line), each.call.title, each.verdict) for each in judged]
    return table(("LINE", "CALL", "PLAYED AND RECORDED"), lines)


def write_csv(rows, file):
    with file.open("w", newline="", encoding="utf-8") as text:
        writer = csv.writer(text, lineterminator="\n")
        writer.writerow(("start", "line", "direction", "local", "remote", "seconds", "file", "encoding", "sha256"))
        for row in rows:
            parties = DIRECTIONS[row["direction"]], row["local"], row["remote"]
            stored = row["duration"], row["filename"], encoding(row), checksum_of(row)
            writer.writerow((began(row).isoformat(), row["linenr"], *parties, *stored))


# -- page ------------------------------------------------------------------------------------------------------------


def parties(direction, remote, local):
    there, here = ("from", "for") if direction == INCOMING else ("to", "by")
    return f"{DIRECTIONS[direction]} {there} {remote}" + (f" {here} {local}" if local else "")


def as_wav(source, file):
    """A copy that every browser plays: 16-bit samples."""
    subprocess.run(["sox", "-D", *source, "-e", "signed-integer", "-b", "16", file], check=True)


def named(what, side):
    return f"{what}, {side}" if side else what


def played_sounds(call, stem, folder):
    for speech, side in zip(call.speeches, call.sides):
        file = f"{PARTS}/{stem}_{speech.name}.wav"
        as_wav([*compare.RAW_SPEECH, WORK / f"{speech.name}.al"], folder / file)
        yield page.Sound(named("Played", side), file, f'"{speech.text}"')


def recorded_sound(call, row, folder):
    """The recording itself, but for GSM, which no browser plays."""
    name = row["filename"]
    what = named("Recorded", ", ".join(call.sides))
    if row["encoding"] != GSM:
        return page.Sound(what, name)
    file = f"{PARTS}/{name.removesuffix('.wav')}_decoded.wav"
    as_wav([folder / name], folder / file)
    return page.Sound(what, file, "A copy in 16-bit samples, as browsers do not play GSM.")


def tracks_of(judged, folder):
    """Tracks of what was played, where it stands in the recording if it was found there, and of the recording."""
    call, recording = judged.call, folder / judged.row["filename"]
    played = []
    for speech, side, start in zip(call.speeches, call.sides, judged.found.starts if judged.found else ()):
        samples = compare.samples([*compare.RAW_SPEECH, WORK / f"{speech.name}.al"])
        played.append(picture.Track(named("Played", side), picture.sound(samples), start / compare.RATE))
    channels = int(subprocess.run(["soxi", "-c", recording], check=True, capture_output=True).stdout)
    # A wrong recording may have another number of them.
    sides = call.sides if channels == len(call.sides) else [f"channel {number}" for number in range(1, channels + 1)]
    recorded = []
    for number, side in enumerate(sides, 1):
        samples = compare.samples([recording], "remix", str(number))
        recorded.append(picture.Track(named("Recorded", side), picture.sound(samples)))
    return played, recorded


def pictures(judged, stem, folder):
    played, recorded = tracks_of(judged, folder)
    seconds = len(recorded[0].sound) / compare.RATE
    silenced_s = tuple(sample / compare.RATE for sample in judged.found.silenced) if judged.found else ()
    file = f"{PARTS}/{stem}_waveforms.svg"
    tracks = [track for pair in zip(played, recorded) for track in pair] or recorded
    yield page.Picture("Waveforms", file, picture.waveforms(tracks, seconds, silenced_s, folder / file))
    file = f"{PARTS}/{stem}_spectrogram.png"
    yield page.Picture("Spectrogram", file, picture.spectrogram(recorded, seconds, folder / file))


def entry(judged, folder):
    call, row = judged.call, judged.row
    common = {"title": call.title, "line": call.line, "verdict": judged.verdict, "good": judged.found is not None}
    if row is None:
        return page.Entry(parties=parties(call.direction, call.remote, call.local), log=judged.log, **common)
    name = row["filename"]
    stem = re.sub(r"\.\w+$", "", name)
    return page.Entry(
        parties=parties(row["direction"], row["remote"], row["local"]),
        began=began(row).strftime("%Y-%m-%d %H:%M:%S"),
        length=f"{row['duration']} s",
        encoding=encoding(row),
        file=name,
        checksum=checksum_of(row),
        sounds=(*played_sounds(call, stem, folder), recorded_sound(call, row, folder)),
        pictures=tuple(pictures(judged, stem, folder)),
        log=judged.log,
        **common,
    )


def deliver(judged, rows, folder):
    """Fills the folder."""
    (folder / PARTS).mkdir()
    for row in rows:
        if path_of(row).exists():
            shutil.copyfile(path_of(row), folder / row["filename"])
    (folder / "calls.txt").write_text(calls_table(rows) + "\n")
    (folder / "compared.txt").write_text(compared_table(judged) + "\n")
    write_csv(rows, folder / "calls.csv")
    entries = [entry(each, folder) for each in judged]
    (folder / "index.html").write_text(page.page(entries), encoding="utf-8")
