"""The folder that script/demo leaves: its tables, and its page as a browser shows it. The recordings are made here, of
sounds that stand in for speech."""

import importlib.util
import os
import re
import shutil
import subprocess
import sys
import time
from html.parser import HTMLParser
from pathlib import Path

import pytest

from harness import SOURCE, header, path_of

sys.path.insert(0, str(SOURCE / "demo"))
import main  # noqa: E402  its directory had to be named first
import page  # noqa: E402
import report  # noqa: E402
from calls import ALAW, GSM, INCOMING, MP3, OUTGOING, Call, Order, Speech  # noqa: E402

FOLDER = Path("/tmp/demo-output")
SILENCE = b"\xd5"
LEAD, TAIL = SILENCE * 4000, SILENCE * 4000  # half a second each
DAY = 1706659200  # 2024-01-31 00:00:00 UTC
SWEEPS = {"high": "900-300", "low": "200-700"}
TREMOLO = ("tremolo", "2", "70")  # so that every moment differs
HIGH, LOW = (Speech(name, "", f"<{name}> & so on") for name in SWEEPS)
ORDERS = (Order("recording", 1.0, "silence"), Order("silenced", 1.0, "sound"))
SIDES = ("left: the caller", "right: the party called")

CALLS = {
    "whole": Call(1, "whole", INCOMING, "0301234567", speeches=(HIGH,)),
    "silenced": Call(2, "silenced", OUTGOING, "110", local="200", speeches=(HIGH,), orders=ORDERS),
    "trunk": Call(25, "both directions", INCOMING, "0302", local="300", speeches=(HIGH, LOW), sides=SIDES),
    "gsm": Call(3, "in GSM", INCOMING, "0303", encoding=GSM, speeches=(HIGH,)),
    "mp3": Call(4, "in MP3", INCOMING, "0304", encoding=MP3, speeches=(HIGH,)),
    "short": Call(5, "too short", OUTGOING, "0305"),
    "wrong": Call(6, "with a fault", INCOMING, "0306", speeches=(HIGH,)),
    "lost": Call(7, "without a recording", INCOMING, "0307", speeches=(LOW,)),
}
LOG = "[2] Call starts\n[2] Remote: 1\n[25] Call starts\n[2] Remote: 110\n[2] Recording to file <a>\n[2] Call stops\n"


def sox(*arguments):
    subprocess.run(["sox", "-D", *arguments], check=True)


def write_wav(path, audio, channels=1):
    path.write_bytes(header(channels, len(audio)) + audio)


def record(name, path):
    """The recording of a call as it should be, but for that with a fault."""
    high, low = ((report.WORK / f"{each}.al").read_bytes() for each in SWEEPS)
    raw = ["-t", "al", "-r", "8000", "-c", "1", report.WORK / "high.al"]
    if name == "silenced":
        write_wav(path, LEAD + high[:8000] + SILENCE * 12000 + high[20000:] + TAIL)
    elif name == "trunk":
        left, right = LEAD + high + TAIL, LEAD + TAIL + low
        write_wav(path, bytes(byte for pair in zip(left, right) for byte in pair), channels=2)
    elif name == "gsm":
        sox(*raw, "-e", "gsm-full-rate", path, "pad", "0.5", "0.5")
    elif name == "mp3":
        sox(*raw, "-C", "16.4", path, "pad", "0.5", "0.5")
    elif name == "wrong":
        write_wav(path, LEAD + low + TAIL)
    else:
        write_wav(path, LEAD + high + TAIL)


def row_of(name, call):
    extension = "mp3" if call.encoding == MP3 else "wav"
    row = {
        "linenr": call.line,
        "direction": call.direction,
        "remote": call.remote,
        "local": call.local,
        "encoding": call.encoding,
        "directory": "day",
        "filename": f"20240131_00000{call.line % 10}_{call.line:03}_01.{extension}",
        "startdate": DAY + call.line,
        "duration": 5,
    }
    record(name, path_of(row))
    return {**row, "callextra": f"chk: {report.sha256(path_of(row))}\r\nchktype: sha256\r\n"}


@pytest.fixture(scope="module", name="rows")
def fixture_rows():
    """The rows of Calls, after the folder was filled from them."""
    os.environ["TZ"] = "UTC"
    time.tzset()
    report.WORK.mkdir()
    FOLDER.mkdir()
    Path("/recordings/day").mkdir()
    for name, sweep in SWEEPS.items():
        file = report.WORK / f"{name}.al"
        sox("-n", "-t", "al", "-r", "8000", "-c", "1", file, "synth", "4", "sine", sweep, *TREMOLO)
        sound = file.read_bytes()
        assert len(sound) == 32000
        file.write_bytes(b"\x55" + sound[1:-1] + b"\x55")  # silence neither first nor last
    rows = [row_of(name, call) for name, call in CALLS.items() if name not in ("short", "lost")]
    judged = [main.judge(call, rows, LOG) for call in CALLS.values()]
    report.deliver(judged, rows, FOLDER)
    return rows


# -- files -------------------------------------------------------------------------------------------------------------

STEMS = {name: f"20240131_00000{call.line % 10}_{call.line:03}_01" for name, call in CALLS.items()}
RECORDED = [name for name in CALLS if name not in ("short", "lost")]


def test_tables(rows):
    sums = {row["linenr"]: report.checksum_of(row) for row in rows}
    assert (FOLDER / "calls.csv").read_text() == (
        "start,line,direction,local,remote,seconds,file,encoding,sha256\n"
        f"2024-01-31T00:00:01,1,incoming,,0301234567,5,{STEMS['whole']}.wav,A-law,{sums[1]}\n"
        f"2024-01-31T00:00:02,2,outgoing,200,110,5,{STEMS['silenced']}.wav,A-law,{sums[2]}\n"
        f"2024-01-31T00:00:25,25,incoming,300,0302,5,{STEMS['trunk']}.wav,A-law,{sums[25]}\n"
        f"2024-01-31T00:00:03,3,incoming,,0303,5,{STEMS['gsm']}.wav,GSM,{sums[3]}\n"
        f"2024-01-31T00:00:04,4,incoming,,0304,5,{STEMS['mp3']}.mp3,MP3,{sums[4]}\n"
        f"2024-01-31T00:00:06,6,incoming,,0306,5,{STEMS['wrong']}.wav,A-law,{sums[6]}\n"
    )
    assert (FOLDER / "calls.txt").read_text() == report.calls_table(rows) + "\n"
    compared = (FOLDER / "compared.txt").read_text()
    alike = re.findall(r"alike by \d\.\d\d", compared)
    assert len(alike) == 2
    assert compared == (
        "LINE  CALL                 PLAYED AND RECORDED\n"
        "1     whole                32000 bytes played, all equal\n"
        "2     silenced             32000 bytes played, 12000 of them (1.5 s) silenced, all others equal\n"
        "25    both directions      32000 bytes played, all equal; 32000 bytes played, all equal\n"
        f"3     in GSM               4.0 s played, each second {alike[0]} or more\n"
        f"4     in MP3               4.0 s played, each second {alike[1]} or more\n"
        "5     too short            nothing was kept of it\n"
        "6     with a fault         WRONG: the 32000 bytes played are not in it as they are\n"
        "7     without a recording  WRONG: 0 recordings of it were kept, not one\n"
    )


def test_files(rows):
    expected = {"calls.txt", "calls.csv", "compared.txt", "index.html", *(row["filename"] for row in rows)}
    for name in RECORDED:
        expected |= {f"page/{STEMS[name]}_{each}" for each in ("high.wav", "waveforms.svg", "spectrogram.png")}
    expected |= {f"page/{STEMS['trunk']}_low.wav", f"page/{STEMS['gsm']}_decoded.wav"}
    assert {str(path.relative_to(FOLDER)) for path in FOLDER.rglob("*") if path.is_file()} == expected


class References(HTMLParser):
    """All that the page refers to, and the words for its pictures."""

    def __init__(self):
        super().__init__()
        self.found, self.words = [], {}
        self.feed((FOLDER / "index.html").read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        self.found += [value for name, value in attributes if name in ("src", "href")]
        if tag == "img":
            self.words[dict(attributes)["src"]] = dict(attributes)["alt"]


def test_page_refers_to_files_of_the_folder_alone(rows):
    found = References().found
    files = {str(path.relative_to(FOLDER)) for path in FOLDER.rglob("*") if path.is_file()}
    tables = {"calls.txt", "calls.csv", "compared.txt", "index.html"}
    assert {each for each in found if not each.startswith("#")} == files - tables
    assert [each for each in found if each.startswith("#")] == [f"#call{number}" for number in range(1, 9)]


def test_words_for_pictures(rows):
    words = References().words
    assert len(words) == 2 * len(RECORDED)
    spectrogram = "from 0 to 4000 Hz upwards; the darker the louder. Speech shows as stripes, silence is white."
    wanted = {
        "silenced": [
            "Waveforms, one below the other, over 5.0 s. Played: sound from 0.5 to 4.5 s. Recorded: sound from 0.5 to"
            " 4.5 s. Hatched in the last, and without sound: 1.5 to 3.0 s.",
            f"Spectrogram over 5.0 s, {spectrogram} Recorded: sound from 0.5 to 4.5 s.",
        ],
        "trunk": [
            "Waveforms, one below the other, over 5.0 s. Played, left: the caller: sound from 0.5 to 4.5 s."
            " Recorded, left: the caller: sound from 0.5 to 4.5 s."
            " Played, right: the party called: sound from 1.0 to 5.0 s."
            " Recorded, right: the party called: sound from 1.0 to 5.0 s.",
            f"Spectrogram over 5.0 s, {spectrogram} Recorded, left: the caller: sound from 0.5 to 4.5 s."
            " Recorded, right: the party called: sound from 1.0 to 5.0 s.",
        ],
        "wrong": [
            "Waveforms, one below the other, over 5.0 s. Recorded: sound from 0.5 to 4.5 s.",
            f"Spectrogram over 5.0 s, {spectrogram} Recorded: sound from 0.5 to 4.5 s.",
        ],
    }
    for name, each in wanted.items():
        stem = f"page/{STEMS[name]}"
        assert [words[f"{stem}_waveforms.svg"], words[f"{stem}_spectrogram.png"]] == each


def test_what_matters_of_the_log():
    assert report.log_of(2, LOG) == (
        "[2] Call starts",
        "[2] Remote: 110",
        "[2] Recording to file <a>",
        "[2] Call stops",
    )
    whole = "".join(f"[1] {matter}\n" for matter in reversed(report.LOG_MATTERS))
    assert report.log_of(1, whole) == tuple(f"[1] {matter}" for matter in reversed(report.LOG_MATTERS[:5]))
    assert report.log_of(3, LOG) == ()


def test_text_of_a_page():
    entries = [
        page.Entry(
            title="a <b> & \"c\"",
            line=9,
            parties="incoming from <1>",
            verdict="all 'equal'",
            good=True,
            began="2024-01-31 14:23:05",
            length="5 s",
            encoding="A-law",
            file="day 1 <x>.wav",
            checksum="00ff",
            sounds=(page.Sound("Played", "page/a&b.wav", '"Hello <you>"'), page.Sound("Recorded", "day 1 <x>.wav")),
            pictures=(page.Picture("Waveforms", "page/w#1.svg", 'sound "here" & there'),),
            log=("[9] <ESC>", "[9] & more"),
        ),
        page.Entry(title="none", line=3, parties="outgoing to 110", verdict="WRONG: <lost>", good=False),
    ]
    assert page.page(entries) == (SOURCE / "tests/data/demo_page.html").read_text(encoding="utf-8")
    assert "<h1>Recorded calls: 2 calls, all as they should be</h1>\n" in page.page([entries[0], entries[0]])


# -- in a browser ------------------------------------------------------------------------------------------------------


@pytest.fixture(scope="module", name="browser")
def fixture_browser(rows):
    """Chromium with the page, without a network."""
    there = all(map(shutil.which, ("chromium", "chromedriver"))) and importlib.util.find_spec("selenium")
    assert there, "no browser: script/bootstrap test installs chromium, chromium-driver and python3-selenium"
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    os.environ["HOME"] = "/tmp/home"  # for what a browser keeps
    Path("/tmp/home").mkdir()
    options = webdriver.ChromeOptions()
    for option in ("headless=new", "no-sandbox", "disable-gpu", "host-resolver-rules=MAP * ~NOTFOUND"):
        options.add_argument(f"--{option}")
    driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
    driver.get(f"file://{FOLDER}/index.html")
    yield driver
    driver.quit()


# As browsers see it: a promise for each sound and picture, kept when its size is known, broken when it cannot be read.
LOADED = """
const answer = arguments[arguments.length - 1];
const wait = (each, event) => new Promise(done => {
  each.addEventListener(event, done);
  each.addEventListener('error', done);
  each.load ? each.load() : each.src = each.src;
});
const sounds = [...document.querySelectorAll('audio')], pictures = [...document.querySelectorAll('img')];
const loaded = [...sounds.map(each => wait(each, 'loadedmetadata')), ...pictures.map(each => wait(each, 'load'))];
Promise.all(loaded).then(() =>
  answer([sounds.map(each => [each.getAttribute('src'), each.duration]),
          pictures.map(each => [each.getAttribute('src'), each.naturalWidth])]));
"""


def test_browser_plays_and_shows_all(browser, rows):
    assert browser.title == "Recorded calls: 2 of 8 calls WRONG"
    assert [len(browser.find_elements("css selector", each)) for each in ("tbody tr", "section")] == [8, 8]
    browser.set_script_timeout(60)
    sounds, pictures = browser.execute_async_script(LOADED)
    wanted = {}
    for name in RECORDED:
        wanted[f"page/{STEMS[name]}_high.wav"] = 4.0
        wanted[f"{STEMS[name]}.{'mp3' if name == 'mp3' else 'wav'}"] = 5.0
    wanted[f"page/{STEMS['trunk']}_low.wav"] = 4.0
    wanted[f"page/{STEMS['gsm']}_decoded.wav"] = wanted.pop(f"{STEMS['gsm']}.wav")
    assert {file: duration and round(duration, 0) for file, duration in sounds} == wanted
    assert len(pictures) == 2 * len(RECORDED)
    assert [file for file, width in pictures if not width] == []


def luminance(colour):
    parts = [int(part) / 255 for part in re.findall(r"\d+", colour)[:3]]
    red, green, blue = (part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(one, other):
    darker, lighter = sorted((luminance(one), luminance(other)))
    return (lighter + 0.05) / (darker + 0.05)


COLOURS = """
const of = (name, property) => getComputedStyle(document.querySelector(name))[property];
return [of('body', 'backgroundColor'), of('body', 'color'), of('a', 'color'), of('dd', 'color'), of('pre', 'color')];
"""


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_browser_shows_readable_colours(browser, scheme):
    feature = {"name": "prefers-color-scheme", "value": scheme}
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [feature]})
    ground, *colours = browser.execute_script(COLOURS)
    assert (luminance(ground) > 0.5) == (scheme == "light")
    assert min(contrast(ground, colour) for colour in colours) >= 4.5


@pytest.mark.parametrize("width", [400, 1200])
def test_page_is_no_wider_than_its_window(browser, width):
    size = {"width": width, "height": 800, "deviceScaleFactor": 1, "mobile": False}
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)
    of = "document.documentElement"
    page_width, room = browser.execute_script(f"return [{of}.scrollWidth, {of}.clientWidth]")
    assert page_width == room and width - 20 < room <= width  # what is missing is the bar to scroll by


def test_page_can_be_read_without_seeing_it(browser):
    def count(selector):
        return len(browser.find_elements("css selector", selector))

    assert count('html[lang="en"]') == count("h1") == count("table caption") == 1
    assert count("section[aria-labelledby] > h2[id]") == 8
    assert count("thead th[scope=col]") == 5 and count("tbody th[scope=row]") == 8
    assert count("img") > 0 and count('img:not([alt]), img[alt=""]') == 0
    assert count("audio") > 0 and count("audio:not([aria-label]), audio:not([controls])") == 0
