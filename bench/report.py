#!/usr/bin/python3
"""What the runs of the benchmark found: medians, the machine, a table and pictures.

usage: report.py --one FILE         one line about a run
       report.py OUT DISK           OUT/runs/*.json to OUT/results.json, OUT/table.md, OUT/*.png
"""

import json
import os
import re
import statistics
import subprocess
import sys
from pathlib import Path

from names import KINDS, NAMES

TAKEN_DELAYS = ("taken", "written")


# -- figures ---------------------------------------------------------------------------------------------------------


def flat(figures, prefix=""):
    """The numbers of a run by their path: "daemon.delays.taken.max_ms"."""
    found = {}
    for name, value in figures.items():
        if isinstance(value, dict):
            found.update(flat(value, f"{prefix}{name}."))
        elif isinstance(value, (int, float)):
            found[prefix + name] = value
    return found


def medians(runs):
    """Of each number that all runs have. What is lost is summed: no run may hide it."""
    numbers = [flat(run) for run in runs]
    common = set(numbers[0]).intersection(*numbers[1:]) if numbers else set()
    result = {}
    for name in sorted(common):
        values = [one[name] for one in numbers]
        lost = re.search(r"wrong_bytes|missing_bytes|missing_files|wrong_headers|overruns|late_s|rows_left", name)
        result[name] = sum(values) if lost else statistics.median(values)
    return result


def results(out):
    rows = {}
    for name in NAMES:
        runs = [json.loads(file.read_text()) for file in sorted((out / "runs").glob(f"{name}.*.json"))]
        whole = [run for run in runs if "trouble" not in run]
        if runs:
            rows[name] = {
                "runs": runs,
                "measured": len(whole),
                "trouble": sorted({run["trouble"] for run in runs if "trouble" in run}),
                "commit": runs[0].get("commit", "unknown"),
                "median": medians(whole),
            }
    return rows


def machine(disk):
    def said(*command):
        return subprocess.run(command, check=False, capture_output=True, text=True).stdout.strip()

    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    memory_kb = int(re.search(r"MemTotal:\s+(\d+)", Path("/proc/meminfo").read_text())[1])
    return {
        "date": said("date", "-u", "+%Y-%m-%d"),
        "processor": cpu[1] if cpu else "unknown",
        "processors": os.cpu_count(),
        "memory_gib": round(memory_kb / 2**20, 1),
        "kernel": said("uname", "-r"),
        "file system of the recordings": said("findmnt", "-n", "-o", "FSTYPE", "-T", disk),
        "PostgreSQL": said("sh", "-c", "/usr/lib/postgresql/*/bin/postgres --version | tail -n 1"),
        "its settings": "on the same machine; its cluster in memory, so no commit waits for a disk",
        "compiler": said("sh", "-c", "c++ --version | head -n 1"),
    }


# -- table -----------------------------------------------------------------------------------------------------------

COLUMNS = {
    "ratio": "ratio",
    "us an event": "daemon.us_per_event",
    "floor": "floor.us_per_event",
    "taken p50": "daemon.delays.taken.p50_ms",
    "p99.9": "daemon.delays.taken.p99_9_ms",
    "max ms": "daemon.delays.taken.max_ms",
    "written p50": "daemon.delays.written.p50_ms",
    "p99.9 ": "daemon.delays.written.p99_9_ms",
    "max ms ": "daemon.delays.written.max_ms",
    "bytes wrong": "daemon.wrong_bytes",
    "missing": "daemon.missing_bytes",
    "files missing": "daemon.missing_files",
    "cards late s": "daemon.late_s",
}
SHOWN = set(COLUMNS.values())


def cell(value):
    if value is None:
        return ""
    return f"{value:,.3f}".rstrip("0").rstrip(".") if isinstance(value, float) else f"{value:,}"


def table(rows, about):
    lines = ["| | |", "|---|---|", *(f"| {name} | {value} |" for name, value in about.items()), ""]
    lines.append(f"| row | commit | runs | {' | '.join(COLUMNS)} | beside |")
    lines.append("|---" * (len(COLUMNS) + 4) + "|")
    for name, row in rows.items():
        median = row["median"]
        beside = [
            f"{path.removeprefix('daemon.').replace('floor.', 'bare ')} {cell(value)}"
            for path, value in median.items()
            if path not in SHOWN and re.fullmatch(r"(daemon|floor)\.\w*(_s|_ns|_per_\w+|rows|rows_left|_sample)", path)
            and not path.endswith(("late_s", "us_per_event"))
        ]
        cells = [cell(median.get(path)) for path in COLUMNS.values()]
        measured = f"{name} | {row['commit']} | {row['measured']}"
        lines.append(f"| {measured} | {' | '.join(cells)} | {'; '.join(beside + row['trouble'])} |")
    return "\n".join(lines) + "\n"


# -- pictures --------------------------------------------------------------------------------------------------------


def series(rows, kind, path):
    """Sizes and values of the rows of a kind."""
    points = []
    for size in KINDS[kind][1]:
        median = rows.get(f"{kind}-{size}", {}).get("median", {})
        if path in median:
            points.append((size, median[path]))
    return points


def picture(out, name, title, unit, curves):
    """Values against lines, both on logarithmic axes; nothing where there are not two points."""
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(8, 5))
    drawn = False
    for label, points in curves:
        if len(points) > 1:
            axes.plot(*zip(*points), marker="o", label=label)
            drawn = True
    if drawn:
        axes.set(xscale="log", yscale="log", xlabel="lines, or pairs", ylabel=unit, title=title)
        axes.grid(True, which="both", alpha=0.3)
        axes.legend()
        figure.savefig(out / f"{name}.png", dpi=100, bbox_inches="tight")
    pyplot.close(figure)


def pictures(out, rows):
    for kind in ("lines", "stereo", "mono"):
        picture(
            out,
            f"cost_{kind}",
            f"CPU of an event: {KINDS[kind][0]}",
            "microseconds",
            [(program, series(rows, kind, f"{program}.us_per_event")) for program in ("daemon", "floor")],
        )
        picture(
            out,
            f"delay_{kind}",
            f"Delay of audio: {KINDS[kind][0]}",
            "milliseconds",
            [
                (f"{program}, {what}, {how}", series(rows, kind, f"{program}.delays.{what}.{path}_ms"))
                for program in ("daemon", "floor")
                for what in TAKEN_DELAYS
                for how, path in (("p99.9", "p99_9"), ("longest", "max"))
            ],
        )


# -- both ------------------------------------------------------------------------------------------------------------


def one_line(file):
    if not file.exists():
        return f"  no figures: see {file}.log"
    figures = json.loads(file.read_text())
    if "trouble" in figures:
        return f"  not measured: {figures['trouble']}"
    shown = {name: value for name, value in flat(figures).items() if name in SHOWN or re.search(r"(_per_\w+|_ns|_s)$", name)}
    return "  " + "  ".join(f"{name.removeprefix('daemon.')}={cell(value)}" for name, value in shown.items())


def main():
    if sys.argv[1] == "--one":
        print(one_line(Path(sys.argv[2])))
        return
    out = Path(sys.argv[1])
    rows, about = results(out), machine(sys.argv[2])
    (out / "results.json").write_text(json.dumps({"machine": about, "rows": rows}, indent=1) + "\n")
    (out / "table.md").write_text(table(rows, about))
    pictures(out, rows)
    print((out / "table.md").read_text())


if __name__ == "__main__":
    main()
