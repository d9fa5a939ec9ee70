"""A page of the guides shows what is in its files, and its commands do what it says.

usage: page.py REPOSITORY PAGE   the blocks of code alone
       page.py REPOSITORY PAGE --run PROGRAMS STANDIN   the commands as well

A block of code belongs to the last file before it that the page links to, and is that file: whole, or in pieces, where
lines with "..." in a comment stand for what is left out.

Blocks of "sh" are run one after the other in one directory. One that ends with a start of the program is the first
terminal, one that ends with "curl --no-buffer" the third. A block of "text" is what comes out of the commands before it,
or, where the sentence before it says so, what the first or third terminal shows by then; "..." is anything.

PROGRAMS is the directory where the tree's build has the program. Where the page shows a CMakeLists.txt the page's own
commands build it, with STANDIN, a directory with a CMakeLists.txt, for the library's source tree.
"""

import fcntl
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

PATIENCE = 60
PORT = 8181
PROGRAM = ("./build/plants ", "./build/plants\n", "systemd-socket-activate ")
ELLIPSIS = re.compile(r"^\s*(//|#|<!--)?\s*\.\.\.\s*(-->)?$")
RUN = {"sh", "text", "console"}


def fail(*what):
    """Ends the test."""
    sys.exit("FAILED: " + " ".join(str(part) for part in what))


class Block:
    """What stands between fences."""

    def __init__(self, language, line, before):
        self.language, self.line, self.before = language, line, before
        self.text = ""


def blocks_of(page):
    """The blocks of a page in their order, each with the text since the one before."""
    found, before, block = [], "", None
    for number, line in enumerate(page.read_text().splitlines(), 1):
        fence = re.match(r"^```(\w*)$", line)
        if fence and block is None:
            block = Block(fence[1], number, before)
            found.append(block)
        elif fence:
            block, before = None, ""
        elif block is not None:
            block.text += line + "\n"
        else:
            before += line + "\n"
    return found


# ---- Code ----


def dedent(lines):
    """Without the blanks that all begin with."""
    margin = min((len(line) - len(line.lstrip()) for line in lines if line.strip()), default=0)
    return [line[margin:] for line in lines]


def pieces_of(text):
    """Runs of lines between those that stand for others."""
    pieces, piece = [], []
    for line in text.splitlines():
        if ELLIPSIS.match(line):
            pieces.append(piece)
            piece = []
        else:
            piece.append(line)
    pieces.append(piece)
    # What is left out may be separated by an empty line.
    stripped = ["\n".join(lines).strip("\n").splitlines() for lines in pieces]
    return [piece for piece in stripped if piece]


def files_of(page, text):
    """The files of examples that a part of the page links to."""
    links = re.findall(r"\]\(([^)#]+)\)", text)
    return [page.parent / link for link in links if "examples/" in link and (page.parent / link).is_file()]


def check_code(page, block, files):
    """The block is the last of the files."""
    where = f"{page}:{block.line}:"
    if not files:
        fail(where, "this block shows no file that the text before it links to")
    whole = files[-1].read_text()
    pieces = pieces_of(block.text)
    if len(pieces) == 1 and not any(ELLIPSIS.match(line) for line in block.text.splitlines()):
        if block.text != whole:
            fail(where, "this is not", files[-1])
        return
    lines, place = whole.splitlines(), 0
    for piece in pieces:
        wanted = dedent(piece)
        while place + len(piece) <= len(lines) and dedent(lines[place : place + len(piece)]) != wanted:
            place += 1
        if place + len(piece) > len(lines):
            fail(where, "these lines do not stand in", files[-1], "in this order:\n" + "\n".join(piece))
        place += len(piece)


# ---- Commands ----


def matches(expected, actual, whole):
    """Whether a text has come out."""
    pattern = "".join(".*" if part == "..." else re.escape(part) for part in re.split(r"(\.\.\.)", expected))
    return bool((re.fullmatch if whole else re.search)(pattern.replace(r"\ ", " "), actual))


def split_last(commands):
    """The last command of several, and what stands before it."""
    lines = commands.splitlines(keepends=True)
    begin = len(lines) - 1
    while begin > 0 and lines[begin - 1].endswith("\\\n"):
        begin -= 1
    return "".join(lines[:begin]), "".join(lines[begin:])


class Terminal:
    """A command that goes on."""

    def __init__(self, runner, script, name):
        self.log = open(runner.work / f"{name}.log", "w+b")
        self.process = subprocess.Popen(
            ["bash", "-ec", script], cwd=runner.directory, env=runner.environment, stdin=subprocess.DEVNULL,
            stdout=self.log, stderr=subprocess.STDOUT, start_new_session=True,
        )

    def shows(self):
        """All of it so far."""
        self.log.seek(0)
        return self.log.read().decode(errors="replace")

    def await_(self, is_there, what):
        """Until its output is so."""
        deadline = time.monotonic() + PATIENCE
        while not is_there():
            if time.monotonic() > deadline or self.process.poll() is not None and not is_there():
                fail(what, "\n--- the terminal shows:\n" + self.shows())
            time.sleep(0.02)

    def end(self):
        """Ctrl-C."""
        os.killpg(self.process.pid, signal.SIGINT)
        status = self.process.wait(PATIENCE)
        if status not in (0, 130, -signal.SIGINT):
            fail(f"the program ended with {status}\n" + self.shows())

    def close(self):
        """In any case."""
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        self.log.close()


class Runner:
    """One reader of one page."""

    def __init__(self, repository, work, programs, standin, builds):
        self.work = pathlib.Path(work)
        self.directory = self.work
        self.terminals = {}
        tools = self.work / "tools"
        tools.mkdir()
        # The library's source tree, as a clone of it would be; building it again would take minutes.
        clone = f'mkdir -p vireo && ln -sfn "{repository}/examples" vireo/examples && cp "{standin}/CMakeLists.txt" vireo/'
        scripts = {"sudo": 'exec "$@"', "apt-get": ":", "git": clone}
        if not builds:
            scripts["cmake"] = f'mkdir -p build && for i in "{programs}"/plants*; do ln -sf "$i" build/; done'
        if shutil.which("systemd-socket-activate") is None:
            activate = f"{repository}/tests/integration/activate.py"
            scripts["systemd-socket-activate"] = f'exec "{sys.executable}" "{activate}" "{PORT}" -- "${{@:2}}"'
        for name, script in scripts.items():
            (tools / name).write_text(f"#!/usr/bin/env bash\nset -e\n{script}\n")
            (tools / name).chmod(0o755)
        self.environment = {**os.environ, "PATH": f"{tools}:{os.environ['PATH']}", "VIREO": "repository", "LC_ALL": "C.UTF-8"}
        self.output = ""

    def begin_in_the_middle(self):
        """What the pages before this one have left."""
        self.environment["VIREO"] = "repository"
        subprocess.run(["git", "clone"], cwd=self.work, env=self.environment, check=True)
        self.directory = self.work / "plants"
        self.directory.mkdir()

    def commands(self, block, where):
        """A block of commands."""
        before, command = split_last(block.text)
        if command.startswith(PROGRAM):
            if "first" in self.terminals:
                self.terminals.pop("first").end()
            self.terminals["first"] = Terminal(self, f"{before}exec {command}", "first")
            self.terminals["first"].await_(is_serving, f"{where} the program does not serve")
        elif command.startswith("curl --no-buffer"):
            head = self.work / "head"
            listening = Terminal(self, before + command.replace("curl", f'exec curl --dump-header "{head}"', 1), "third")
            self.terminals["third"] = listening
            listening.await_(lambda: head.exists() and b"\r\n\r\n" in head.read_bytes(), f"{where} nobody answers")
        else:
            script = block.text + '\npwd >"$WHERE"\n'
            place = self.work / "place"
            done = subprocess.run(
                ["bash", "-ec", script], cwd=self.directory, env={**self.environment, "WHERE": str(place)},
                stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=5 * PATIENCE, check=False,
            )
            if done.returncode != 0:
                first = self.terminals.get("first")
                fail(where, f"these commands end with {done.returncode}:\n{block.text}{done.stdout}{done.stderr}",
                     "\n--- the server:\n" + first.shows() if first else "")
            self.directory = pathlib.Path(place.read_text().strip())
            self.output = done.stdout

    def shows(self, block, where):
        """A block of what comes out."""
        spoken = block.before.strip().split("\n\n")[-1]
        for name in ("first", "third"):
            if f"{name} terminal" in spoken:
                terminal = self.terminals[name]
                for line in block.text.splitlines():
                    terminal.await_(lambda line=line: matches(line, terminal.shows(), False), f"{where} no such line: {line}")
                return
        if not matches(block.text.rstrip("\n"), self.output.rstrip("\n"), True):
            fail(where, f"the page says:\n{block.text}\nbut it is:\n{self.output}")

    def close(self):
        """Ends what runs."""
        for terminal in self.terminals.values():
            terminal.close()


def is_serving():
    """Whether somebody listens at the port of the pages."""
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", PORT)) == 0


def run(repository, page, blocks, programs, standin):
    """Does what the page says."""
    # The pages' port is fixed: the runs of such tests on one machine, of whatever users, take turns.
    os.umask(0)
    lock = open(f"/tmp/vireo-port-{PORT}.lock", "a")
    os.umask(0o022)
    fcntl.flock(lock, fcntl.LOCK_EX)
    builds = any("CMakeLists.txt" in block.before and block.language == "cmake" for block in blocks)
    with tempfile.TemporaryDirectory() as work:
        runner = Runner(repository, work, programs, standin, builds)
        try:
            if not any("git clone" in block.text for block in blocks):
                runner.begin_in_the_middle()
            for block in blocks:
                where = f"{page}:{block.line}:"
                if block.language == "sh":
                    runner.commands(block, where)
                elif block.language == "text":
                    runner.shows(block, where)
            if "first" in runner.terminals:
                runner.terminals.pop("first").end()
        finally:
            runner.close()


def main():
    """Looks at one page."""
    repository, page = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
    blocks = blocks_of(page)
    files, checked = [], 0
    for block in blocks:
        files += files_of(page, block.before)
        if block.language not in RUN:
            check_code(page, block, files)
            checked += 1
    if checked == 0:
        fail(page, "has no code")
    print(f"ok: {checked} blocks are those of the files")
    if sys.argv[3:4] == ["--run"]:
        run(repository, page, blocks, *sys.argv[4:6])
        print("ok: the commands do what the page says")


main()
