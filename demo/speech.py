"""Speech, made on the spot: espeak-ng says it, sox brings it to what a telephone line carries."""

import subprocess

SILENCE = b"\xd5"  # in A-law

# Played after the last word, so that the card has reported all that was said when the file has come to its end.
PAUSE_S = "0.6"


def make(speech, folder):
    """Writes <name>.al, raw A-law at 8000 bytes a second, which begins with the first sound."""
    wide, narrow = folder / f"{speech.name}.wav", folder / f"{speech.name}.al"
    subprocess.run(["espeak-ng", "-v", speech.voice, "-s", "165", "-w", wide, speech.text], check=True)
    # Without dither, which would fill the pause with noise.
    shape = ["rate", "8000", "norm", "-3", "pad", "0", PAUSE_S]
    subprocess.run(["sox", "-D", wide, "-t", "al", "-c", "1", narrow, *shape], check=True)
    narrow.write_bytes(narrow.read_bytes().lstrip(SILENCE))


def spoken(speech, folder):
    """The bytes of a speech without the silence around it."""
    return (folder / f"{speech.name}.al").read_bytes().strip(SILENCE)
