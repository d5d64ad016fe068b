"""What was recorded against what was played.

A recording begins before its speech is played and ends after it, so a good one is: silence, the speech, silence.
In A-law each byte must be right. GSM and MP3 alter each sample on purpose; there the decoded sound must be alike in
every second of the speech, which finds another speech, a gap or a shift, but not a click of a few milliseconds.

Each comparison returns what it found, or raises Different.
"""

import array
import math
import subprocess
from dataclasses import dataclass
from operator import mul

RATE = 8000
HEADER_BYTES = 56
SILENCE = 0xD5
RAW_SPEECH = ["-t", "al", "-r", str(RATE), "-c", "1"]  # to sox, before the file of a speech

# Correlation of a second of speech with itself after GSM or MP3 at 8 kHz; that of two different speeches is near 0.
ALIKE = 0.7
FRAME = 80  # samples of one step of the coarse search
QUIET = 200  # mean amplitude below which a second says nothing


class Different(Exception):
    """The recording is not what was played."""


@dataclass(frozen=True)
class Found:
    """A good recording."""

    verdict: str  # for the person who watches
    starts: tuple = ()  # at which sample of the recording each speech begins
    silenced: tuple = ()  # the first sample of the stretch that is silenced, and the first behind it


def audio_of(path):
    return path.read_bytes()[HEADER_BYTES:]


def exact(audio, speech):
    """Every byte of the speech stands in the audio, in one piece, and nothing but silence around it."""
    start = audio.find(speech)
    if start < 0:
        raise Different(f"the {len(speech)} bytes played are not in it as they are")
    around = audio[:start] + audio[start + len(speech) :]
    if around.strip(bytes([SILENCE])):
        raise Different("there is sound before or after what was played")
    return Found(f"{len(speech)} bytes played, all equal", (start,))


def exact_stereo(audio, speeches):
    """Own side in the even bytes, the other in the odd ones."""
    sides = [exact(audio[side::2], speech) for side, speech in enumerate(speeches)]
    return Found("; ".join(side.verdict for side in sides), tuple(start for side in sides for start in side.starts))


def exact_but_silenced(audio, speech, shortest_s, longest_s):
    """The speech with one stretch of silence in its place, neither shorter nor longer, and all else exact."""
    start = audio.find(speech[:RATE])
    if start < 0:
        raise Different("the first second played is not in it as it is")
    piece = audio[start : start + len(speech)]
    wrong = [i for i, (got, played) in enumerate(zip(piece, speech)) if got != played]
    if len(piece) < len(speech) or not wrong:
        raise Different("it is cut short" if wrong else "nothing of it is silenced")
    first, last = wrong[0], wrong[-1] + 1
    if set(piece[first:last]) != {SILENCE}:
        raise Different(f"it differs from byte {first} to {last}, and not by silence")
    seconds = (last - first) / RATE
    if not shortest_s <= seconds <= longest_s:
        raise Different(f"{seconds:.1f} s of it are silenced, not {shortest_s} to {longest_s} s")
    if (audio[:start] + audio[start + len(speech) :]).strip(bytes([SILENCE])):
        raise Different("there is sound before or after what was played")
    verdict = f"{len(speech)} bytes played, {last - first} of them ({seconds:.1f} s) silenced, all others equal"
    return Found(verdict, (start,), (start + first, start + last))


def alike(recording, speech_file, speech):
    """The sound of a GSM or MP3 file against the speech, second by second."""
    got = samples([recording])
    played = samples([*RAW_SPEECH, speech_file])[: len(speech)]
    lag = best_lag(got, played)
    part = got[lag : lag + len(played)]
    if len(part) < len(played):
        raise Different(f"{len(part) / RATE:.1f} s of sound for {len(played) / RATE:.1f} s that were played")
    worst = 1.0
    for second in range(0, len(played), RATE):
        want, have = played[second : second + RATE], part[second : second + RATE]
        if sum(map(abs, want)) > QUIET * len(want):
            worst = min(worst, correlation(want, have))
    if worst < ALIKE:
        raise Different(f"a second of it is alike by {worst:.2f} only, where {ALIKE} is the least")
    return Found(f"{len(played) / RATE:.1f} s played, each second alike by {worst:.2f} or more", (lag,))


def samples(source, *effects):
    """A file as sox decodes it: 16-bit samples of one channel."""
    command = ["sox", "-D", *source, "-t", "s16", "-L", "-c", "1", "-", *effects]
    raw = subprocess.run(command, check=True, capture_output=True).stdout
    return array.array("h", raw[: len(raw) // 2 * 2])


def correlation(a, b):
    energy = math.sqrt(sum(map(mul, a, a)) * sum(map(mul, b, b)))
    return sum(map(mul, a, b)) / energy if energy else 0.0


def best_lag(got, played):
    """Where in `got` the speech begins: first by loudness in steps of a frame, then to the sample."""

    def loudness(sound):
        return [sum(map(abs, sound[i : i + FRAME])) for i in range(0, len(sound), FRAME)]

    loud_got, loud_played = loudness(got), loudness(played)
    coarse = max(
        range(max(1, len(loud_got) - len(loud_played) + 2)),
        key=lambda lag: correlation(loud_played, loud_got[lag : lag + len(loud_played)]),
    )
    # The loudest second decides between the samples near by.
    at = FRAME * max(range(len(loud_played)), key=lambda i: sum(loud_played[i : i + RATE // FRAME]))
    want = played[at : at + RATE]
    near = range(max(0, (coarse - 2) * FRAME), (coarse + 3) * FRAME)
    return max(near, key=lambda lag: correlation(want, got[lag + at : lag + at + RATE]))
