"""What came of it: the table of Calls, and the folder with the recordings and their pictures."""

import datetime
import hashlib
import shutil
import subprocess

from appliance import path_of

ENCODINGS = {554: "A-law", 551: "GSM", 801: "MP3"}
DIRECTIONS = {0: "incoming", 1: "outgoing", 2: "internal"}
LINE_END = "\r\n"
SHOWN_DIGITS = 12  # of a checksum


def checksum_of(row):
    """The checksum that the daemon has stored with the call."""
    pairs = dict(line.split(": ", 1) for line in row["callextra"].split(LINE_END) if ": " in line)
    return pairs.get("chk", "")


def sha256(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


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
                datetime.datetime.fromtimestamp(row["startdate"]).strftime("%H:%M:%S"),
                str(row["linenr"]),
                DIRECTIONS[row["direction"]],
                row["local"] or "-",
                row["remote"] or "-",
                f"{row['duration']} s",
                row["filename"],
                ENCODINGS.get(row["encoding"], str(row["encoding"])),
                checksum_of(row)[:SHOWN_DIGITS],
            )
        )
    return table(("START", "LINE", "DIRECTION", "LOCAL", "REMOTE", "TIME", "FILE", "ENCODING", "SHA-256"), lines)


def deliver(rows, folder):
    """Copies the recordings and draws them; returns the names of the pictures."""
    pictures = []
    for row in rows:
        copy = folder / row["filename"]
        shutil.copyfile(path_of(row), copy)
        picture = copy.with_suffix(".png")
        title = f"line {row['linenr']}, {DIRECTIONS[row['direction']]}, {row['remote']}, {ENCODINGS[row['encoding']]}"
        picture_options = ["-x", "900", "-Y", "450", "-z", "70", "-t", title, "-c", row["filename"], "-o", picture]
        subprocess.run(["sox", copy, "-n", "spectrogram", *picture_options], check=True)
        pictures.append(picture.name)
    return pictures
