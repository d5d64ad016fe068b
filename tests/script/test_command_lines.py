"""The command lines of all scripts: help costs nothing, and what is wrong is refused before anything happens.

Each script runs in a copy of the tree, with programs in PATH that tell when they are called: those that build, install
or mount.
"""

import ast
import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(__file__).resolve().parents[2]
FOLDER = sorted((SOURCE / "script").iterdir())
SCRIPTS = [f"script/{path.name}" for path in FOLDER if path.is_file() and os.access(path, os.X_OK)] + [".ci/run"]
TRAPS = "apt-get cmake ctest clang-format clang-tidy gcovr git mount nsenter runuser unshare".split()
# What the scripts look for by name in the tree.
FILES = ("fuzz/iniedit_fuzz.cpp", *(f"tests/campaign/test_{name}.py" for name in ("faults_disk", "hangs", "neighbour")))


def python(script):
    return "python3" in (SOURCE / script).read_text().splitlines()[0]


def head(script):
    """The comment or the text that a script begins with."""
    text = (SOURCE / script).read_text()
    if python(script):
        return ast.get_docstring(ast.parse(text), clean=False)
    lines = text.splitlines()[1:]
    lines = lines[: next(i for i, line in enumerate(lines) if not line.startswith("#"))]
    return "".join(re.sub("^# ?", "", line) + "\n" for line in lines if not line.startswith("# shellcheck "))


def contents(folder):
    return {path: path.read_bytes() if path.is_file() else None for path in folder.rglob("*")}


class Tree:
    def __init__(self, folder):
        self.root = folder / "tree"
        for name in ("script", ".ci", "bench"):
            shutil.copytree(SOURCE / name, self.root / name)
        for name in FILES:
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            (self.root / name).touch()
        self.traps = folder / "traps"
        self.traps.mkdir()
        for name in TRAPS:
            (self.traps / name).write_text(f"#!/bin/sh\necho {name} >>{folder}/called\nexit 1\n")
            (self.traps / name).chmod(0o755)
        self.called = folder / "called"

    def run(self, script, *arguments, directory="."):
        """Status, output and errors of a script, which must not do anything."""
        before = contents(self.root)
        done = subprocess.run(
            [self.root / script, *arguments],
            env={**os.environ, "PATH": f"{self.traps}:{os.environ['PATH']}"},
            cwd=self.root / directory,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            check=False,
        )
        assert not self.called.exists(), self.called.read_text()
        assert contents(self.root) == before
        return done.returncode, done.stdout, done.stderr


@pytest.fixture(name="tree")
def fixture_tree(tmp_path):
    return Tree(tmp_path)


@pytest.mark.parametrize("option", ["--help", "-h"])
@pytest.mark.parametrize("script", SCRIPTS)
def test_help_is_the_head_of_the_script(tree, script, option):
    assert f"usage: {script}" in head(script)
    assert tree.run(script, option) == (0, head(script), "")


@pytest.mark.parametrize("script", ["script/crash", "script/sandbox", "script/layers", ".ci/run"])
def test_help_from_another_directory(tree, script):
    folder, name = script.split("/")
    done = subprocess.run([f"./{name}", "--help"], cwd=tree.root / folder, capture_output=True, text=True, check=True)
    assert done.stdout == head(script)


@pytest.mark.parametrize("script", SCRIPTS)
def test_unknown_option_is_refused(tree, script):
    name = script.split("/")[-1]
    usage = next(line for line in head(script).splitlines() if line.startswith("usage: "))
    known = " ".join([*re.findall("--[a-z]+", usage), "--help"])
    text = "unrecognized arguments: --nosuch" if python(script) else f"unknown option --nosuch; known: {known}"
    assert tree.run(script, "--nosuch") == (2, "", f"{name}: {text} (see --help)\n")


WRONG = [
    ("script/bootstrap bulid", "bootstrap: unknown group bulid; known: build test lint demo bench package"),
    ("script/bootstrap build bulid", "bootstrap: unknown group bulid; known: build test lint demo bench package"),
    ("script/test --preset", "test: --preset needs a value: --preset PRESET"),
    ("script/test --preset relase", "test: unknown preset relase; known: release debug asan tsan"),
    ("script/test --rerun-failed", "test: unknown option --rerun-failed; known: --preset --help"),
    ("script/demo --build", "demo: --build needs a value: --build DIR"),
    ("script/demo --build nowhere", "demo: no src/morvex_crec in nowhere"),
    ("script/demo one two", "demo: unexpected argument two"),
    ("script/sandbox", "sandbox: no command"),
    ("script/sandbox --cards", "sandbox: --cards needs a value: --cards FILE"),
    ("script/sandbox --cards nowhere true", "sandbox: no file nowhere"),
    ("script/sandbox --keep nowhere true", "sandbox: no directory nowhere"),
    ("script/sandbox-enter --in", "sandbox-enter: --in needs a value: --in TEXT"),
    ("script/sandbox-init true", "sandbox-init: only from script/sandbox"),
    ("script/sandbox-pg", "sandbox-pg: no action; known: create start stop kill restart"),
    ("script/sandbox-pg stopp", "sandbox-pg: unknown action stopp; known: create start stop kill restart"),
    ("script/sandbox-pg stop start", "sandbox-pg: unexpected argument start"),
    ("script/crash --kill 3", "crash: unknown option --kill; known: --kills --seed --jobs --build --help"),
    ("script/crash --kills many", "crash: not a whole number from 1: many"),
    ("script/crash --jobs 0", "crash: not a whole number from 1: 0"),
    ("script/crash 300", "crash: unexpected argument 300"),
    ("script/soak --lines --minutes 3", "soak: --lines needs a value: --lines N"),
    ("script/powerloss --rounds", "powerloss: --rounds needs a value: --rounds N"),
    ("script/faults disk", "faults: unknown file disk; known: faults_disk hangs neighbour"),
    ("script/syscalls kill", "syscalls: unknown kind kill; known: refusals kills starts allocations"),
    ("script/fuzz 60", "fuzz: unknown target 60; known: iniedit"),
    ("script/format src", "format: unexpected argument src"),
    ("script/lint nowhere.cpp", "lint: no file nowhere.cpp"),
    ("script/test-display many", "test-display: not a whole number from 1: many"),
    ("script/test-display 5 6 7", "test-display: unexpected argument 7"),
    (
        ".ci/run lint tset",
        "run: unknown step tset; known: test campaign demo lint asan coverage tsan valgrind fuzz",
    ),
    ("script/layers src", "layers: unrecognized arguments: src"),
    ("script/coverage --build", "coverage: argument --build: expected one argument"),
]


@pytest.mark.parametrize("line, error", WRONG, ids=[row[0] for row in WRONG])
def test_wrong_line_is_refused(tree, line, error):
    assert tree.run(*line.split()) == (2, "", f"{error} (see --help)\n")


def test_unknown_row_of_the_benchmark_is_refused(tree):
    names = subprocess.run([tree.root / "script/bench", "--list"], capture_output=True, text=True, check=True).stdout
    assert tree.run("script/bench", "nosuch") == (2, "", f"bench: no such row; there are {' '.join(names.split())}\n")


def test_folder_of_somebody_else_is_left_alone(tree):
    (tree.root / "mine").mkdir()
    (tree.root / "mine/letter.wav").touch()
    error = f"demo: {tree.root}/mine holds something that is not of a demo\n"
    assert tree.run("script/demo", "mine") == (2, "", error)
    assert tree.run("script/demo", "../mine", directory="script") == (2, "", error)


# -- what is right -----------------------------------------------------------------------------------------------------

ORDINARY = """
ALL= JOBS=4 BUILD=build KEEP=() FOLDER= FILES=()
parse_options "--all ALL" "--jobs N JOBS" "--build DIR BUILD" "--keep DIR KEEP..." "FOLDER FOLDER" "FILE FILES..." -- "$@"
printf '%s\\n' "$ALL" "$JOBS" "$BUILD" "${KEEP[*]}" "$FOLDER" "${FILES[*]}"
"""
BEGINNING = """
TEXT= COMMAND=()
parse_options "--in TEXT TEXT" "{} COMMAND COMMAND..." -- "$@"
printf '%s\\n' "$TEXT" "${{COMMAND[*]}}"
"""
COMMAND, CTEST = BEGINNING.format("--"), BEGINNING.format("-")
RIGHT = [
    ("nothing", ORDINARY, [], ["", "4", "build", "", "", ""]),
    ("a switch", ORDINARY, ["--all"], ["1", "4", "build", "", "", ""]),
    ("values", ORDINARY, ["--build", "a b", "--jobs", "12"], ["", "12", "a b", "", "", ""]),
    ("the last of two counts", ORDINARY, ["--jobs", "1", "--jobs", "2"], ["", "2", "build", "", "", ""]),
    ("one that adds", ORDINARY, ["--keep", "a", "--keep", "b"], ["", "4", "build", "a b", "", ""]),
    ("arguments", ORDINARY, ["a", "b", "c"], ["", "4", "build", "", "a", "b c"]),
    ("options among them", ORDINARY, ["a", "--all", "b", "--jobs", "3", "c"], ["1", "3", "build", "", "a", "b c"]),
    ("arguments like options", ORDINARY, ["--", "--all", "-x", "--"], ["", "4", "build", "", "--all", "-x --"]),
    ("a hyphen alone", ORDINARY, ["-"], ["", "4", "build", "", "-", ""]),
    ("a value with a hyphen", ORDINARY, ["--build", "-a"], ["", "4", "-a", "", "", ""]),
    ("a command", COMMAND, ["--in", "x", "ls", "-l", "--in", "y"], ["x", "ls -l --in y"]),
    ("a command behind hyphens", COMMAND, ["--in", "x", "--", "--odd", "--"], ["x", "--odd --"]),
    ("no command", COMMAND, ["--in", "x"], ["x", ""]),
    ("a short option of another", CTEST, ["--in", "x", "-R", "name", "--in", "y"], ["x", "-R name --in y"]),
    ("a long option of another", CTEST, ["--", "--in", "y"], ["", "--in y"]),
]


@pytest.mark.parametrize("script, arguments, values", [row[1:] for row in RIGHT], ids=[row[0] for row in RIGHT])
def test_right_line_is_read(tmp_path, script, arguments, values):
    (tmp_path / "try").write_text(f"set -eu\nsource {SOURCE}/script/options.bash\n{script}")
    done = subprocess.run(["bash", tmp_path / "try", *arguments], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout.splitlines(), done.stderr) == (0, values, "")


# -- what a demo leaves behind -----------------------------------------------------------------------------------------


def test_demo_builds_all_that_an_installation_takes():
    lists = [SOURCE / folder / "CMakeLists.txt" for folder in ("src", "sim", "tools")]
    installed = {name for path in lists for name in re.findall(r"install\(TARGETS (\w+)", path.read_text())}
    built = set(re.search(r"--target (.*)", (SOURCE / "script/demo").read_text())[1].split())
    assert installed and installed <= built
