"""Changes the sources one small step at a time and looks whether a test notices. ./dev mutate runs this.

A mutant is one change of one line: a turned comparison, another constant, a condition that always holds, a statement
that is gone. It is compiled in a copy of the tree, and the tests of its directory are run until one of them fails. A
mutant that no test notices has survived: a test is missing, or the change means nothing. What means nothing stands with
its reason in tools/mutants-explained.txt, and is not tried again.
"""

from __future__ import annotations

import argparse
import csv
import hashlib
import os
import queue
import random
import re
import resource
import shutil
import subprocess
import sys
import threading
import time
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

EVENT_SERVING = ["tests/server/server_tests", "tests/integration/event_serving_tests", "tests/integration/tls_event_tests"]
SESSION_SERVING = [
    "tests/integration/integration_tests --gtest_filter=*SessionServing*",
    "tests/integration/event_serving_tests --gtest_filter=SessionEventServing*",
    "tests/integration/tls_serving_tests --gtest_filter=TlsSessionServing*",
]

# The test programs, with arguments, that a file of src/ is to be judged by before the whole's, the quickest first. Where
# the first argument is a script, that runs the program.
# The longest name that its path begins with holds.
UNIT_TESTS = {
    "frame": ["tests/frame/frame_tests", "tests/request/request_tests"],
    "request": ["tests/request/request_tests"],
    "engine": ["tests/engine/engine_tests", "tests/server/server_tests"],
    "server": ["tests/server/server_tests"],
    # What only servers that wait by events have.
    **{f"server/{name}": EVENT_SERVING for name in (
        "Acceptor", "Admissions", "ClientLife", "ConnectionTable", "ConnectionWatch", "Deadline", "Drain", "Exchange",
        "LingeringCloses", "Refusals")},
    "server/RequestFiling": ["tests/server/server_tests", *SESSION_SERVING],
    "server/SessionHandshake": SESSION_SERVING,
    "streams": ["tests/streams/streams_allocation_tests", "tests/streams/streams_tests",
                "tests/reliability/reliability_model_tests", "tests/server/server_tests"],
    "session": [
        "tests/session/session_codec_tests",
        "tests/session/session_opening_tests",
        "tests/session/session_output_test",
        "tests/session/session_test",
        "tests/session/session_memory_test",
        "tests/session/session_allocation_test",
        "tests/session/session_stress_test",
        *SESSION_SERVING,
    ],
    "session/pool": [
        "tests/session/pool/session_pool_test",
        "tests/session/pool/session_pool_fault_test",
        "tests/session/session_test",
        "tests/session/session_stress_test",
        *SESSION_SERVING,
    ],
    "websocket": [
        "tests/websocket/websocket_codec_test",
        "tests/websocket/websocket_connection_test",
        "tests/websocket/websocket_allocation_test",
        "tests/websocket/websocket_pool_test",
    ],
    "engine/FileBody": ["tests/engine/engine_tests", "tests/app/files/app_files_tests"],
    # What only servers that wait by events use.
    **{f"engine/{name}": ["tests/engine/engine_tests", *EVENT_SERVING] for name in (
        "LossReason", "PeerEnd", "SendProgress", "ShutReminder", "SocketWatch")},
    "engine/Form": ["tests/engine/engine_tests", "tests/integration/integration_tests --gtest_filter=*Form*"],
    "request/Strict": ["tests/request/request_tests", "tests/integration/integration_tests --gtest_filter=*Strict*"],
    "tls": ["tests/tls/tls_tests", "tests/integration/tls_event_tests", "tests/integration/tls_serving_tests"],
    "app/body": ["tests/app/body/app_body_tests", "tests/app/serving/app_body_serving_tests"],
    "app/encoding": ["tests/app/encoding/app_encoding_tests"],
    "app/events": ["tests/app/events/app_events_tests", "tests/app/events/app_events_memory_tests"],
    "app/files": ["tests/app/files/app_files_tests", "tests/app/serving/app_body_serving_tests"],
    "app/kernel": [
        "tests/app/kernel/app_kernel_tests",
        "tests/app/kernel/app_courier_tests",
        "tests/app/serving/app_serving_tests",
        "tests/app/serving/app_body_serving_tests",
        "tests/app/events/app_events_tests",
        "tests/app/sockets/app_sockets_tests",
        "tests/reliability/reliability_app_fault_tests",
    ],
    "app/middleware": ["tests/app/middleware/app_middleware_tests"],
    "app/request": ["tests/app/request/app_request_tests", "tests/app/serving/app_body_serving_tests"],
    "app/routing": ["tests/app/routing/app_routing_tests"],
    "app/run": [
        "tests/app/run/app_run_tests",
        "tests/app/run/app_life_tests",
        "tests/app/run/app_run_server tests/app/run/running.py tls",
    ],
    "app/sockets": ["tests/app/sockets/app_sockets_tests"],
    "app/testing": ["tests/app/testing/app_testing_tests", "tests/app/testing/app_client_tests"],
}
APP_WHOLE_TESTS = [
    "tests/app/serving/app_serving_tests",
    "tests/app/run/app_run_tests",
    "tests/app/testing/app_client_tests",
]
WHOLE_TESTS = [
    "tests/reliability/reliability_fault_tests",
    "tests/reliability/reliability_tests",
    "tests/integration/integration_tests",
    "tests/reliability/reliability_event_fault_tests",
    "tests/integration/event_serving_tests",
]

# Seconds beyond what the tests take unchanged, and how many times as long. A mutant that hangs is noticed, too.
PATIENCE_SECONDS = 60
PATIENCE_FACTOR = 10

# Of address space: a mutant that allocates without end must not take the machine with it.
MEMORY_BYTES = 8 << 30

KILL_GOAL = 0.92
# Fewer tell too little to fail the run.
JUDGED_COUNT = 100

KILLED, TIMED_OUT, SURVIVED = "killed", "timed out", "survived"
# Those that are not tried: no test could notice the first, and there is nothing to run of the others.
EXPLAINED, EQUAL, INVALID = "explained", "same code", "does not compile"


@dataclass(frozen=True)
class Mutant:
    """One change: the line of a file, from 1, and what stands there instead."""

    file: str
    line: int
    kind: str
    before: str
    after: str
    # The line of code in front, which tells equal lines of a file apart.
    previous: str

    @property
    def directory(self) -> str:
        return str(Path(*Path(self.file).parts[1:-1]))

    @property
    def tests(self) -> list[str]:
        names = [name for name in UNIT_TESTS if self.file.startswith(f"src/{name}")]
        whole = APP_WHOLE_TESTS if self.file.startswith("src/app/") else WHOLE_TESTS
        return list(dict.fromkeys((UNIT_TESTS[max(names, key=len)] if names else []) + whole))

    @property
    def change(self) -> str:
        return f"{self.before.strip()}  ->  {self.after.strip()}"


@dataclass(frozen=True)
class Verdict:
    mutant: Mutant
    result: str
    by: str
    seconds: float


# ---- Making mutants ----

# The layout of the sources puts blanks around binary operators and nothing else.
EXCHANGES = [
    ("comparison", r"(?<= )==(?= )", "!="),
    ("comparison", r"(?<= )!=(?= )", "=="),
    ("comparison", r"(?<= )<(?= )", "<="),
    ("comparison", r"(?<= )<=(?= )", "<"),
    ("comparison", r"(?<= )>(?= )", ">="),
    ("comparison", r"(?<= )>=(?= )", ">"),
    ("logic", r"(?<= )&&(?= )", "||"),
    ("logic", r"(?<= )\|\|(?= )", "&&"),
    ("logic", r"(?<![\w)\]!])!(?=[\w(])", ""),
    ("arithmetic", r"(?<= )\+(?= )", "-"),
    ("arithmetic", r"(?<= )-(?= )", "+"),
    ("arithmetic", r"(?<= )\+=(?= )", "-="),
    ("arithmetic", r"(?<= )-=(?= )", "+="),
    ("arithmetic", r"\+\+(?=\w)", "--"),
    ("arithmetic", r"(?<= )\*(?= )", "/"),
    ("arithmetic", r"(?<= )%(?= )", "*"),
    ("constant", r"\btrue\b", "false"),
    ("constant", r"\bfalse\b", "true"),
]
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|\d+)(?=[uU]?[lL]*\b)(?![\w.']*[\w']*::)")
CONDITION = re.compile(r"(\bif|\bwhile|\} else if) \((.+)\) \{$")
STATEMENT = re.compile(r"^(?!return\b|using\b|const\b|auto\b|static\b|throw\b|case\b|delete\b|friend\b|namespace\b|break\b|continue\b)"
                       r"(\(void\))?[A-Za-z_][\w:.]*(->[\w.]+|\([^;]*\)(\.|->)\w+|\[[^\]]*\])*(\(.*\)| [-+|&]?= .*|\+\+|--);$"
                       r"|^(\+\+|--)[\w.>-]+;$|^(break|continue);$")


def mutants_of(file: str, text: str) -> list[Mutant]:
    found: list[Mutant] = []
    previous = ""
    in_comment = False
    for number, line in enumerate(text.splitlines(), 1):
        code = line.strip()
        in_comment = (in_comment or code.startswith("/*")) and "*/" not in code
        if in_comment or not code or code.startswith(("//", "#", "static_assert", "template", "*/")):
            continue
        found += [Mutant(file, number, kind, line, after, previous) for kind, after in _changes(line, code, previous)]
        previous = code
    return found


def _changes(line: str, code: str, previous: str) -> list[tuple[str, str]]:
    changes: list[tuple[str, str]] = []
    # What stands in a text or behind // is no code.
    covered = [match.span() for match in re.finditer(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)\'|//.*', line)]

    def is_code(position: int) -> bool:
        return not any(begin <= position < end for begin, end in covered)

    for kind, pattern, instead in EXCHANGES:
        for match in re.finditer(pattern, line):
            if is_code(match.start()):
                changes.append((kind, line[: match.start()] + instead + line[match.end() :]))
    for match in NUMBER.finditer(line):
        if is_code(match.start()):
            is_octal = match[0].startswith("0") and match[0].isdigit() and match[0] != "0"
            value = int(match[0], 8 if is_octal else 0) + 1
            changes.append(("constant", line[: match.start()] + (f"0{value:o}" if is_octal else str(value)) + line[match.end() :]))
    condition = CONDITION.search(line)
    if condition:
        begin, end = condition.span(2)
        changes.append(("condition", f"{line[:begin]}!({condition[2]}){line[end:]}"))
        if condition[1] != "while":
            changes.append(("condition", f"{line[:begin]}true{line[end:]}"))
        changes.append(("condition", f"{line[:begin]}false{line[end:]}"))
    if STATEMENT.match(code) and previous.endswith((";", "{", "}", ":")):
        changes.append(("removal", line[: len(line) - len(line.lstrip())] + ";"))
    return changes


def explained(root: Path, mutants: list[Mutant]) -> set[Mutant]:
    """Those that are explained. Raises when a line of the file means none or several."""
    known: set[Mutant] = set()
    file = ""
    for line in (root / "tools" / "mutants-explained.txt").read_text().splitlines():
        if line.startswith("src/"):
            file = line
        elif re.match("  [^ ]", line):
            meant = [
                mutant for mutant in mutants
                if mutant.file == file and line.strip() in (mutant.change, f"{mutant.change}  behind  {mutant.previous}")
            ]
            if len({mutant.line for mutant in meant}) != 1:
                raise SystemExit(f"mutate: explained, but there are {len(meant)} of it: {file}: {line.strip()}")
            known.update(meant)
    return known


# ---- Trying them ----


def _limit_memory() -> None:
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Tree:
    """A copy of the source tree with a build of its own, for one thread."""

    def __init__(self, root: Path, directory: Path) -> None:
        self._source = directory / "source"
        self._build = directory / "build"
        self._original: dict[str, str] = {}
        self._objects: dict[str, str] = {}
        self._seconds: dict[str, float] = {}
        self._targets: set[str] = set()
        self._changed: str | None = None
        self._copy(root)

    def _copy(self, root: Path) -> None:
        """Files that did not change keep their time, so that little is compiled again."""
        command = ["git", "-c", f"safe.directory={root}", "ls-files", "--cached", "--others", "--exclude-standard"]
        names = subprocess.run(command, cwd=root, check=True, capture_output=True, text=True).stdout.splitlines()
        present = {str(path.relative_to(self._source)) for path in self._source.rglob("*") if path.is_file()}
        for name in present - set(names):
            (self._source / name).unlink()
        for name in names:
            source, target = root / name, self._source / name
            if source.is_file() and not (target.is_file() and target.read_bytes() == source.read_bytes()):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, target)

    def prepare(self) -> None:
        """Configures. Raises when that fails."""
        self._run_or_raise(
            ["cmake", "-S", self._source, "-B", self._build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
             "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -D_GLIBCXX_ASSERTIONS", "-DVIREO_BUILD_EXAMPLES=OFF"]
            + ([f"-DCMAKE_CXX_COMPILER_LAUNCHER={ccache}"] if (ccache := shutil.which("ccache")) else [])
        )
        self._targets = self._ninja_targets()

    def _prepare_test(self, test: str) -> None:
        """Builds the test from what is unchanged and runs it once. Raises when that fails."""
        self._run_or_raise(["ninja", "-C", self._build, test.split()[0]])
        begin = time.monotonic()
        if not self._passes(test, 600):
            raise SystemExit(f"mutate: {test} fails without any change")
        self._seconds[test] = time.monotonic() - begin

    def _ninja_targets(self) -> set[str]:
        done = subprocess.run(
            ["ninja", "-C", self._build, "-t", "targets", "all"], check=True, capture_output=True, text=True
        )
        return {line.partition(":")[0] for line in done.stdout.splitlines()}

    @staticmethod
    def _run_or_raise(command: list) -> None:
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            raise SystemExit(f"mutate: {command[0]} failed:\n{done.stdout[-3000:]}{done.stderr[-3000:]}")

    def _passes(self, test: str, seconds: float) -> bool:
        """@throws subprocess.TimeoutExpired"""
        program, *arguments = test.split()
        path = self._build / program
        command = [path, "--gtest_brief=1", "--gtest_fail_fast", *arguments]
        if arguments and arguments[0].endswith(".py"):
            command = [sys.executable, "-B", self._source / arguments[0], path, *arguments[1:]]
        done = subprocess.run(
            command, cwd=path.parent, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            timeout=seconds, preexec_fn=_limit_memory,
        )
        return done.returncode == 0

    def _object_of(self, file: str) -> str:
        relative = Path(file).relative_to("src")
        if relative.parts[0] == "app":
            return f"src/app/CMakeFiles/vireo_app_objects.dir/{relative.relative_to('app')}.o"
        return f"src/CMakeFiles/vireo_objects.dir/{relative}.o"

    def _digest(self, file: str) -> str:
        return hashlib.sha256((self._build / self._object_of(file)).read_bytes()).hexdigest()

    def _write(self, file: str, text: str) -> None:
        (self._source / file).write_text(text)

    def _change(self, file: str, text: str) -> None:
        self._write(file, text)
        self._changed = file

    def _restore(self) -> None:
        if self._changed:
            self._write(self._changed, self._original[self._changed])
            self._changed = None

    def _compiles(self, target: str) -> bool:
        return subprocess.run(["ninja", "-C", self._build, target], capture_output=True).returncode == 0

    def try_mutant(self, mutant: Mutant) -> Verdict:
        begin = time.monotonic()

        def verdict(result: str, by: str = "") -> Verdict:
            return Verdict(mutant, result, by, time.monotonic() - begin)

        if self._changed != mutant.file:
            self._restore()
        if mutant.file not in self._original:
            self._original[mutant.file] = (self._source / mutant.file).read_text()
            self._compiles(self._object_of(mutant.file))
            self._objects[mutant.file] = self._digest(mutant.file)
        lines = self._original[mutant.file].splitlines(keepends=True)
        lines[mutant.line - 1] = mutant.after + "\n"
        self._change(mutant.file, "".join(lines))
        if not self._compiles(self._object_of(mutant.file)):
            return verdict(INVALID)
        if self._digest(mutant.file) == self._objects[mutant.file]:
            return verdict(EQUAL)
        for test in mutant.tests:
            program = test.split()[0]
            if program not in self._targets:
                continue
            if test not in self._seconds:
                self._restore()
                self._prepare_test(test)
                self._change(mutant.file, "".join(lines))
            if not self._compiles(program):
                return verdict(INVALID)
            try:
                if not self._passes(test, PATIENCE_SECONDS + PATIENCE_FACTOR * self._seconds[test]):
                    return verdict(KILLED, Path(program).name)
            except subprocess.TimeoutExpired:
                return verdict(TIMED_OUT, Path(program).name)
        return verdict(SURVIVED)


# ---- The run ----


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./dev mutate", description="Changes the sources and looks whether a test notices.")
    parser.add_argument("--count", type=int, default=300, help="how many mutants that differ from the original; default 300")
    parser.add_argument("--only", metavar="REGEX", default="", help="of the files whose names it matches")
    parser.add_argument("--at", metavar="FILE:LINE", help="all mutants of one line")
    parser.add_argument("--seed", type=int, default=1, help="of the choice; default 1")
    parser.add_argument("--jobs", type=int, default=2, help="trees to work in at a time; default 2")
    parser.add_argument("--list", action="store_true", help="list the mutants and end")
    parser.add_argument("--root", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def all_mutants(root: Path) -> list[Mutant]:
    found: list[Mutant] = []
    for path in sorted((root / "src").rglob("*.cpp")):
        file = str(path.relative_to(root))
        if not file.endswith("_windows.cpp"):
            found += mutants_of(file, path.read_text())
    return found


def choose(options: argparse.Namespace, mutants: list[Mutant]) -> list[Mutant]:
    """Those asked for, in a random order."""
    found = [
        mutant for mutant in mutants
        if re.search(options.only, mutant.file) and options.at in (None, f"{mutant.file}:{mutant.line}")
    ]
    random.Random(options.seed).shuffle(found)
    return found


class Run:
    """Hands the mutants out to the trees and keeps what comes of them."""

    def __init__(self, options: argparse.Namespace, mutants: list[Mutant], known: set[Mutant]) -> None:
        self._options = options
        self._known = known
        self._lock = threading.Lock()
        self._wanted = options.count
        self._verdicts: list[Verdict] = []
        self._mutants: queue.Queue[Mutant] = queue.Queue()
        for mutant in mutants:
            self._mutants.put(mutant)
        # A file of its own for each run.
        self._file = (options.output / time.strftime("results-%Y%m%d-%H%M%S.csv")).open("x", newline="")
        self._table = csv.writer(self._file)
        self._table.writerow(["seed", "file", "line", "kind", "result", "by", "seconds", "before", "after"])

    def run(self) -> list[Verdict]:
        failures: list[BaseException] = []

        def work(number: int) -> None:
            try:
                tree = Tree(self._options.root, self._options.output / f"tree{number}")
                tree.prepare()
                while (mutant := self._next()) is not None:
                    is_known = mutant in self._known
                    self._keep(Verdict(mutant, EXPLAINED, "", 0) if is_known else tree.try_mutant(mutant))
            except BaseException as failure:
                failures.append(failure)

        threads = [threading.Thread(target=work, args=(i,)) for i in range(self._options.jobs)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        if failures:
            raise failures[0]
        return self._verdicts

    def _next(self) -> Mutant | None:
        with self._lock:
            if self._wanted <= 0 or self._mutants.empty():
                return None
            self._wanted -= 1
            return self._mutants.get()

    def _keep(self, verdict: Verdict) -> None:
        mutant = verdict.mutant
        with self._lock:
            if verdict.result in (EXPLAINED, EQUAL, INVALID):
                self._wanted += 1
            self._verdicts.append(verdict)
            self._table.writerow(
                [self._options.seed, mutant.file, mutant.line, mutant.kind, verdict.result, verdict.by, f"{verdict.seconds:.1f}",
                 mutant.before.strip(), mutant.after.strip()]
            )
            self._file.flush()
            if verdict.result == SURVIVED:
                print(f"mutate: survived: {mutant.file}:{mutant.line}: {mutant.change}", flush=True)


def report(verdicts: list[Verdict]) -> bool:
    """@return false when too many survived."""
    print(f"{'mutate:':8}{'directory':16}{'killed':>8}{'timed out':>11}{'survived':>10}{'share':>8}")
    counts: dict[str, Counter[str]] = {}
    for verdict in verdicts:
        for row in (verdict.mutant.directory, "all"):
            counts.setdefault(row, Counter())[verdict.result] += 1
    for row, count in sorted(counts.items(), key=lambda item: (item[0] == "all", item[0])):
        noticed = count[KILLED] + count[TIMED_OUT]
        tried = noticed + count[SURVIVED]
        share = f"{noticed / tried:.1%}" if tried else "-"
        print(f"{'mutate:':8}{row:16}{count[KILLED]:8}{count[TIMED_OUT]:11}{count[SURVIVED]:10}{share:>8}")
    total = counts.get("all", Counter())
    noticed = total[KILLED] + total[TIMED_OUT]
    tried = noticed + total[SURVIVED]
    print(
        f"mutate: {tried} mutants tried; besides {total[EXPLAINED]} that are explained, {total[EQUAL]} that make the same "
        f"code, {total[INVALID]} that make none"
    )
    return tried < JUDGED_COUNT or noticed >= KILL_GOAL * tried


def main() -> int:
    options = parse_arguments()
    every_mutant = all_mutants(options.root)
    known = explained(options.root, every_mutant)
    mutants = choose(options, every_mutant)
    if options.list:
        for mutant in mutants:
            print(f"{mutant.file}:{mutant.line}: {mutant.kind}: {mutant.change}")
        print(f"{len(mutants)} mutants")
        return 0
    options.output.mkdir(parents=True, exist_ok=True)
    # One tree finds what another has compiled, also that of another clone.
    os.environ |= {"CCACHE_BASEDIR": str(options.output), "CCACHE_NOHASHDIR": "1"}
    if report(Run(options, mutants, known).run()):
        return 0
    print(f"mutate: fewer than {KILL_GOAL:.0%} were noticed", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
