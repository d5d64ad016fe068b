"""What the MP3 and the GSM run have in common: each needs a daemon of its own, as the encoding is read at start."""

import subprocess
from pathlib import Path

from harness import AUDIO_BYTES_PER_S, counted_audio, path_of, soxi, wait_until

CARDS = "card ATP8 1001 8"


def record_one_call(daemon):
    """One kept call. Returns its row and a copy of the G.711 file that the daemon converted and removed."""
    daemon.cards("ch 0 play counting", "ch 0 offhook")
    active = daemon.active_call(1)
    running = Path(f"{path_of(active)}.g711")
    wait_until("2 s of audio", lambda: running.exists() and running.stat().st_size > 2 * AUDIO_BYTES_PER_S)
    assert not path_of(active).exists()
    with running.open("rb") as audio:  # what is open can be read when its name is gone
        daemon.cards("ch 0 onhook")
        call = daemon.finished_call(active["remoteid"])
        original = Path("/recordings/original.wav")
        original.write_bytes(audio.read())

    assert not running.exists()
    assert path_of(call).stat().st_mode & 0o777 == 0o777
    counted_audio(original)
    return call, original


def check_recording(daemon, extension, code, kind, options):
    """Records one call: `code` is its encoding in the row, `kind` what soxi says by an option, `options` those of sox."""
    call, original = record_one_call(daemon)
    assert call["filename"] == call["remoteid"] + extension
    assert call["encoding"] == code
    path = path_of(call)
    for option, answer in {"-r": "8000", "-c": "1", **kind}.items():
        assert soxi(path, option) == answer
    expected = Path("/recordings/expected" + extension)
    subprocess.run(["sox", original, *options, expected], check=True)
    assert path.read_bytes() == expected.read_bytes()
