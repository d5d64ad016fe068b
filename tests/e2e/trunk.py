"""What the trunk runs have in common: the cards, noise to play, and what a mixed recording should hold."""

import random
from pathlib import Path

from harness import HEADER_BYTES, path_of, wait_until

# A station card, a card that is away, and two trunk cards: one block of circuits and two.
CARDS = """
card DST-32 2001 32
card DTP-60 3001 60
card DTP-120 3002 120
"""
STORED_LIST = {"CardList": "Syn2001,Syn2999,Syn3001,Syn3002", "Syn2999_MaxChannels": "16"}

NOISE_PERIOD = 4096
NOISE = random.Random(1).randbytes(NOISE_PERIOD)
PROBE_BYTES = 64


def play_noise(daemon, channel, law):
    """Puts the noise on a channel, over and over; law is "al" or "ul"."""
    path = Path(f"/recordings/noise.{law}")
    path.write_bytes(NOISE)
    daemon.cards(f"ch {channel} play file {path} loop")


def decode_alaw(code):
    code ^= 0x55
    segment, step = code >> 4 & 7, code & 15
    size = 16 * step + 8 if segment == 0 else (16 * step + 264) << (segment - 1)
    return size if code & 0x80 else -size


def encode_alaw(sample):
    if -8 < sample < 0:
        return 0x5A  # falls between the levels, to the end of the first segment
    levels = [16 * i if i < 32 else ((i & 15) + 16) << ((i >> 4) + 3) for i in range(128)]
    size = sample if sample >= 0 else -8 - sample
    code = max(i for i, level in enumerate(levels) if level <= size)
    return code ^ (0xD5 if sample >= 0 else 0x55)


def mixing_table():
    """The A-law byte for each two A-law bytes, at 256 * one + other."""
    linear = [decode_alaw(code) for code in range(256)]
    known = {}
    table = bytearray()
    for one in linear:
        for other in linear:
            total = max(-32768, min(32767, one + other))
            if total not in known:
                known[total] = encode_alaw(total)
            table.append(known[total])
    return bytes(table)


def noise_from(place, count):
    """So many bytes of the noise, from some place of it."""
    return (NOISE[place:] + NOISE * (count // NOISE_PERIOD + 1))[:count]


def find_noise(audio, combine):
    """The place at which the noise began, where combine(noise) begins as this audio does; None when there is none."""
    for place in range(NOISE_PERIOD):
        if combine(noise_from(place, PROBE_BYTES)) == audio[:PROBE_BYTES]:
            return place
    return None


def wait_for_audio(call, count):
    """Waits until so many bytes of audio have reached the file."""
    path = path_of(call)
    wait_until(f"{count} bytes in {path.name}", lambda: path.exists() and path.stat().st_size >= HEADER_BYTES + count)
