"""The judgement of script/demo: it passes a good recording and sees each way in which one can be bad."""

import random
import subprocess
import sys
from pathlib import Path

import pytest

from harness import header, path_of

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "demo"))
import compare  # noqa: E402  its directory had to be named first
import main  # noqa: E402
import report  # noqa: E402
from calls import ALAW, INCOMING, Call, Speech  # noqa: E402

SILENCE = b"\xd5"
SPEECH = random.Random(1).randbytes(5 * compare.RATE).strip(SILENCE)
OTHER = random.Random(2).randbytes(5 * compare.RATE).strip(SILENCE)
LEAD, TAIL = SILENCE * 300, SILENCE * 5000
FIRST, LAST = 16000, 32000  # the stretch of SPEECH that is silenced below
MP3_DELAY = 576 + 529  # samples that its encoder and its decoder put before the sound


def changed(audio, at):
    return audio[:at] + bytes([audio[at] ^ 1]) + audio[at + 1 :]


BAD_RECORDINGS = {
    "another speech": LEAD + OTHER + TAIL,
    "one byte is wrong": LEAD + changed(SPEECH, 20000) + TAIL,
    "one byte is missing": LEAD + SPEECH[:20000] + SPEECH[20001:] + TAIL,
    "one byte stands twice": LEAD + SPEECH[:20000] + SPEECH[19999:] + TAIL,
    "the end is missing": LEAD + SPEECH[:-1],
    "sound before it": changed(LEAD, 5) + SPEECH + TAIL,
    "sound after it": LEAD + SPEECH + changed(TAIL, 4000),
    "nothing but silence": LEAD + TAIL,
    "nothing at all": b"",
}


def test_exact_recording_is_accepted():
    found = compare.exact(LEAD + SPEECH + TAIL, SPEECH)
    assert found == compare.Found(f"{len(SPEECH)} bytes played, all equal", (len(LEAD),))


@pytest.mark.parametrize("label", BAD_RECORDINGS)
def test_inexact_recording_is_refused(label):
    with pytest.raises(compare.Different):
        compare.exact(BAD_RECORDINGS[label], SPEECH)


def interleaved(left, right):
    length = max(len(left), len(right))
    pairs = zip(left.ljust(length, SILENCE), right.ljust(length, SILENCE))
    return bytes(byte for pair in pairs for byte in pair)


def test_each_side_of_a_stereo_recording_is_compared():
    good = interleaved(LEAD + SPEECH, OTHER + TAIL)
    verdict = f"{len(SPEECH)} bytes played, all equal; {len(OTHER)} bytes played, all equal"
    assert compare.exact_stereo(good, [SPEECH, OTHER]) == compare.Found(verdict, (len(LEAD), 0))
    for bad in (
        interleaved(LEAD + OTHER, SPEECH + TAIL),
        interleaved(LEAD + SPEECH, changed(OTHER, 100) + TAIL),
        interleaved(LEAD + changed(SPEECH, 100), OTHER + TAIL),
    ):
        with pytest.raises(compare.Different):
            compare.exact_stereo(bad, [SPEECH, OTHER])


def silenced(first, last):
    return LEAD + SPEECH[:first] + SILENCE * (last - first) + SPEECH[last:] + TAIL


BAD_SILENCES = {
    "nothing is silenced": LEAD + SPEECH + TAIL,
    "too short": silenced(FIRST, FIRST + 4000),
    "too long": silenced(FIRST, FIRST + 24000),
    "sound within": changed(silenced(FIRST, LAST), len(LEAD) + 20000),
    "a wrong byte elsewhere": changed(silenced(FIRST, LAST), len(LEAD) + 35000),
    "the call got shorter": LEAD + SPEECH[:FIRST] + SPEECH[LAST:] + TAIL,
    "sound after it": changed(silenced(FIRST, LAST), len(LEAD) + len(SPEECH) + 10),
    "another speech": LEAD + OTHER + TAIL,
}


def test_silenced_stretch_is_measured():
    verdict = f"{len(SPEECH)} bytes played, 16000 of them (2.0 s) silenced, all others equal"
    found = compare.exact_but_silenced(silenced(FIRST, LAST), SPEECH, 1.0, 2.5)
    assert found == compare.Found(verdict, (len(LEAD),), (len(LEAD) + FIRST, len(LEAD) + LAST))


@pytest.mark.parametrize("label", BAD_SILENCES)
def test_wrong_silence_is_refused(label):
    with pytest.raises(compare.Different):
        compare.exact_but_silenced(BAD_SILENCES[label], SPEECH, 1.0, 2.5)


def sox(*arguments):
    subprocess.run(["sox", *arguments], check=True)


@pytest.fixture(scope="module")
def played(tmp_path_factory):
    """Four seconds of a sound whose every moment differs, and four of another."""
    folder = tmp_path_factory.mktemp("played")
    for name, sweep in (("speech", "300-900"), ("other", "800-350")):
        sox("-n", "-r", "8000", "-c", "1", folder / f"{name}.al", "synth", "4", "sine", sweep, "tremolo", "2", "70")
    return folder


def stored(played, extension, *effects):
    """The sound as a recording of it would be stored, with a second of silence before it."""
    path = played / f"stored.{extension}"
    options = ["-e", "gsm-full-rate"] if extension == "wav" else ["-C", "16.4"]
    sox("-t", "al", "-r", "8000", "-c", "1", played / "speech.al", *options, path, *(effects or ("pad", "1", "1")))
    return path


def judge(played, path, name="speech"):
    speech = played / f"{name}.al"
    return compare.alike(path, speech, speech.read_bytes())


@pytest.mark.parametrize("extension", ["wav", "mp3"])
def test_compressed_recording_is_accepted(played, extension):
    found = judge(played, stored(played, extension))
    assert found.verdict.startswith("4.0 s played, each second alike by ")
    delay = MP3_DELAY if extension == "mp3" else 0
    assert abs(found.starts[0] - compare.RATE - delay) < compare.FRAME


@pytest.mark.parametrize("extension", ["wav", "mp3"])
def test_compressed_recording_of_another_sound_is_refused(played, extension):
    with pytest.raises(compare.Different):
        judge(played, stored(played, extension), name="other")


@pytest.mark.parametrize(
    "effects",
    [
        pytest.param(("trim", "0", "2.5", "pad", "1", "1"), id="the end is missing"),
        pytest.param(("trim", "0", "2", "2.5", "pad", "1", "2"), id="a gap of half a second"),
        pytest.param(("pad", "1", "0.5@2", "1"), id="half a second of silence within"),
        pytest.param(("reverse", "pad", "1", "1"), id="played backwards"),
        pytest.param(("speed", "1.05", "pad", "1", "1"), id="too fast"),
    ],
)
@pytest.mark.parametrize("extension", ["wav", "mp3"])
def test_compressed_recording_with_a_fault_is_refused(played, extension, effects):
    with pytest.raises(compare.Different):
        judge(played, stored(played, extension, *effects))


# -- the row of a call -----------------------------------------------------------------------------------------------

SAID = Call(1, "said", INCOMING, "0301234567", speeches=(Speech("said", "", ""),), line_name="Desk")
SHORT = Call(3, "too short", INCOMING, "110")
GOOD_ROW = {
    "linenr": 1,
    "direction": INCOMING,
    "remote": "0301234567",
    "local": "",
    "encoding": ALAW,
    "directory": "day",
    "filename": "20240131_142305_001_01_Desk.wav",
}


@pytest.fixture(scope="module")
def good_row():
    """A row of Calls with its recording, and the speech that was played."""
    main.WORK.mkdir()
    (main.WORK / "said.al").write_bytes(SPEECH + TAIL)
    path = path_of(GOOD_ROW)
    path.parent.mkdir()
    audio = LEAD + SPEECH + TAIL
    path.write_bytes(header(1, len(audio)) + audio)
    return {**GOOD_ROW, "callextra": f"chk: {report.sha256(path)}\r\nchktype: sha256\r\n"}


def test_good_row_is_accepted(good_row):
    assert main.check_call(SAID, [good_row]).verdict == f"{len(SPEECH)} bytes played, all equal"


BAD_ROWS = {
    "direction": {"direction": 1},
    "remote number": {"remote": "0301234568"},
    "local number": {"local": "200"},
    "encoding": {"encoding": 555},
    "no line name in the file name": {"filename": "20240131_142305_001_01.wav"},
    "no file": {"filename": "20240131_142305_001_02_Desk.wav"},
    "checksum": {"callextra": "chk: 00\r\nchktype: sha256\r\n"},
    "no checksum": {"callextra": "chk: \r\n"},
    "no row of this line": {"linenr": 2},
}


@pytest.mark.parametrize("label", BAD_ROWS)
def test_wrong_row_is_refused(good_row, label):
    with pytest.raises(compare.Different):
        main.check_call(SAID, [{**good_row, **BAD_ROWS[label]}])


def test_call_recorded_twice_is_refused(good_row):
    with pytest.raises(compare.Different):
        main.check_call(SAID, [good_row, good_row])


def test_call_too_short_to_keep_leaves_neither_row_nor_file(good_row):
    assert main.check_call(SHORT, [good_row]) == compare.Found("nothing was kept of it")
    with pytest.raises(compare.Different):
        main.check_call(SHORT, [{**good_row, "linenr": 3}])
    (path_of(good_row).parent / "20240131_142305_003_01.wav").touch()
    with pytest.raises(compare.Different):
        main.check_call(SHORT, [good_row])
