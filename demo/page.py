"""The result of the demo as a page for people. It refers to files beside it alone, and all text in it is escaped."""

from dataclasses import dataclass
from html import escape
from urllib.parse import quote

STYLE = """\
:root { color-scheme: light dark; --text: #1b1b1b; --ground: #ffffff; --line: #767676; --link: #0645ad; }
@media (prefers-color-scheme: dark) {
  :root { --text: #ececec; --ground: #161616; --line: #8c8c8c; --link: #9ec1ff; }
}
body { margin: 0 auto; max-width: 60rem; padding: 1rem; font: 1rem/1.5 sans-serif; }
body { color: var(--text); background: var(--ground); }
a { color: var(--link); }
table { border-collapse: collapse; }
th, td { border: 1px solid var(--line); padding: 0.25rem 0.5rem; text-align: left; vertical-align: top; }
section { border-top: 1px solid var(--line); margin-top: 2rem; }
dl { display: grid; grid-template-columns: max-content minmax(0, 1fr); column-gap: 1rem; }
dt { font-weight: bold; }
dd { margin: 0; overflow-wrap: anywhere; }
figure { margin: 1rem 0; }
audio { display: block; width: 100%; max-width: 30rem; }
img { display: block; width: 100%; min-width: 38rem; height: auto; background: #ffffff; }
pre { margin: 0; }
.wide { overflow-x: auto; }
.wrong { font-weight: bold; text-decoration: underline; }
"""


@dataclass(frozen=True)
class Sound:
    name: str
    file: str
    text: str = ""  # what is said in it, or to be known about it


@dataclass(frozen=True)
class Picture:
    name: str
    file: str
    words: str  # where it is not seen


@dataclass(frozen=True)
class Entry:
    """A call. What it does not have is empty."""

    title: str
    line: int
    parties: str
    verdict: str
    good: bool
    began: str = ""
    length: str = ""
    encoding: str = ""
    file: str = ""
    checksum: str = ""
    sounds: tuple = ()
    pictures: tuple = ()
    log: tuple = ()


def verdict(entry):
    text = escape(entry.verdict)
    return text if entry.good else f'<strong class="wrong">{text}</strong>'


def link(file):
    return f'<a href="{quote(file)}">{escape(file)}</a>'


def wide(name, inside):
    """What may be wider than a narrow window, which then moves it alone."""
    return f'<div class="wide" role="group" tabindex="0" aria-label="{escape(name)}">\n{inside}</div>\n'


def overview(entries):
    heads = "".join(f'<th scope="col">{head}</th>' for head in ("Call", "Line", "Parties", "Length", "Verdict"))
    rows = "".join(
        f'<tr><th scope="row"><a href="#call{number}">{escape(entry.title)}</a></th><td>{entry.line}</td>'
        f"<td>{escape(entry.parties)}</td><td>{escape(entry.length or 'not kept')}</td><td>{verdict(entry)}</td></tr>\n"
        for number, entry in enumerate(entries, 1)
    )
    table = f"<caption>All calls</caption>\n<thead><tr>{heads}</tr></thead>\n<tbody>\n{rows}</tbody>\n"
    return wide("All calls", f"<table>\n{table}</table>\n")


def facts(entry):
    pairs = [
        ("Line", str(entry.line)),
        ("Parties", escape(entry.parties)),
        ("Began", escape(entry.began)),
        ("Length", escape(entry.length)),
        ("Encoding", escape(entry.encoding)),
        ("File", entry.file and link(entry.file)),
        ("SHA-256", escape(entry.checksum)),
        ("Verdict", verdict(entry)),
    ]
    return "<dl>\n" + "".join(f"<dt>{name}</dt><dd>{value}</dd>\n" for name, value in pairs if value) + "</dl>\n"


def sound(title, each):
    name = escape(each.name)
    text = f"<p>{escape(each.text)}</p>\n" if each.text else ""
    label = escape(f"{each.name}: {title}")
    player = f'<audio controls preload="metadata" aria-label="{label}" src="{quote(each.file)}"></audio>\n'
    return f"<figure>\n<figcaption>{name}</figcaption>\n{player}{text}</figure>\n"


def picture(each):
    image = f'<img src="{quote(each.file)}" alt="{escape(each.words)}">\n'
    return f"<figure>\n<figcaption>{escape(each.name)}</figcaption>\n{wide(each.name, image)}</figure>\n"


def section(number, entry):
    parts = [f'<section id="call{number}" aria-labelledby="title{number}">\n']
    parts.append(f'<h2 id="title{number}">Line {entry.line}: {escape(entry.title)}</h2>\n')
    parts.append(facts(entry))
    if entry.sounds:
        parts += ["<h3>To hear</h3>\n", *(sound(entry.title, each) for each in entry.sounds)]
    if entry.pictures:
        parts += ["<h3>To see</h3>\n", *map(picture, entry.pictures)]
    if entry.log:
        lines = "".join(f"{escape(line)}\n" for line in entry.log)
        parts += ["<h3>What the log says</h3>\n", wide("Log", f"<pre>{lines}</pre>\n")]
    parts.append("</section>\n")
    return "".join(parts)


def page(entries):
    wrong = sum(not entry.good for entry in entries)
    outcome = f"{wrong} of {len(entries)} calls WRONG" if wrong else f"{len(entries)} calls, all as they should be"
    title = f"Recorded calls: {outcome}"
    return (
        f'<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8">\n'
        f'<meta name="viewport" content="width=device-width, initial-scale=1">\n'
        f"<title>{title}</title>\n<style>\n{STYLE}</style>\n</head>\n<body>\n<main>\n<h1>{title}</h1>\n"
        "<p>Simulated cards played the calls, the daemon recorded them, and each recording was compared with what was"
        " played.</p>\n" + overview(entries) + "".join(section(*each) for each in enumerate(entries, 1)) + "</main>\n"
        "</body>\n</html>\n"
    )
