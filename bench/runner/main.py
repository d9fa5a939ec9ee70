"""Measures the library beside the bare engine and its peers. ./dev bench builds the programs and runs this."""

from __future__ import annotations

import argparse
import json
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import app
import charts
import publish
import subjects
import table
import throughput
import tls
from processes import BenchError, Ports, Server, raise_descriptor_limit, run_program
from results import PACKAGES, ItemResult, SubjectResult, from_json, machine, to_json
from subjects import SUBJECTS, Subject
from work import Context, Item, all_items, session_items

FULL_ROUNDS = 5
QUICK_ROUNDS = 2
MICRO = "micro"
# More makes the ratios of one run differ from those of the next by more than their targets' distance.
MAX_STOLEN_PERCENT = 5.0
# What is measured apart from the rest, with results and a place in the document of its own.
TLS = "tls"
SESSIONS = "sessions"
APP = "app"
THROUGHPUT = "throughput"


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./dev bench", description="Measures the library beside the bare engine and its peers."
    )
    parser.add_argument("--quick", action="store_true", help="two short rounds, without the peers that take a thread a connection")
    part = parser.add_mutually_exclusive_group()
    part.add_argument(
        "--tls", dest="part", action="store_const", const=TLS, default="",
        help="measure TLS beside nginx, and nothing else: about 4 minutes",
    )
    part.add_argument(
        "--sessions", dest="part", action="store_const", const=SESSIONS,
        help="measure sessions of WebSockets, and nothing else: about 7 minutes",
    )
    part.add_argument(
        "--app", dest="part", action="store_const", const=APP,
        help="measure the toolkit beside the core and nginx, and nothing else: about 7 minutes",
    )
    part.add_argument(
        "--throughput", dest="part", action="store_const", const=THROUGHPUT,
        help="measure the options for throughput beside the bare engine and peers, and nothing else: about 10 minutes",
    )
    parser.add_argument("--only", metavar="REGEX", help=f"the items whose names it matches; '{MICRO}' is one of them")
    parser.add_argument(
        "--against", metavar="NAMES",
        help="run Vireo beside these only, comma-separated: engine, beast, civetweb, httplib, libwebsockets, nginx, "
             "or engine-inline and the like; none for nothing",
    )
    parser.add_argument(
        "--vireo", metavar="NAMES",
        help="of Vireo's subjects these only: inline, workers, sessions, toolkit-quick and the like",
    )
    parser.add_argument("--rounds", type=int, help=f"default {FULL_ROUNDS}, quick {QUICK_ROUNDS}")
    parser.add_argument("--seconds", type=float, help="of each timed measurement; wrk rounds it to whole ones")
    parser.add_argument("--list", action="store_true", help="list the items and end")
    parser.add_argument("--keep", metavar="NAME", help="keep a copy of this build of Vireo, for --before")
    parser.add_argument("--before", metavar="NAME", help="run a kept build beside the present one")
    parser.add_argument("--perf", action="store_true", help="profile the servers with perf (build/bench/perf)")
    parser.add_argument("--publish", action="store_true", help="write tables and plots to docs/")
    parser.add_argument("--from-results", action="store_true", help="don't measure: take the results of the last whole run")
    parser.add_argument("--newer-engine", type=Path, help=argparse.SUPPRESS)
    parser.add_argument("--build", type=Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


class Runner:
    """Runs items in interleaved rounds."""

    def __init__(self, options: argparse.Namespace) -> None:
        self._programs = options.build / "bench"
        self._logs = options.build / "logs"
        self._perf = options.build / "perf" if options.perf else None
        self._rounds = options.rounds or (QUICK_ROUNDS if options.quick else FULL_ROUNDS)
        self._against = options.against.split(",") if options.against else None
        self._vireo = options.vireo.split(",") if options.vireo else None
        self._before = options.before is not None
        self._scratch = options.build / "nginx"
        self._scratch.mkdir(exist_ok=True)
        self._context = Context(self._programs, self._scratch, options.seconds, options.quick)
        self._ports = Ports()
        self._missing: set[str] = set()
        shutil.rmtree(self._logs, ignore_errors=True)
        self._logs.mkdir(parents=True)
        if self._perf:
            self._perf.mkdir(exist_ok=True)

    @property
    def rounds(self) -> int:
        return self._rounds

    def run(self, item: Item) -> ItemResult:
        result = ItemResult(item, {name: SubjectResult() for name in self._chosen(item)})
        servers: dict[str, Server | None] = {}
        try:
            least = 1 if self._context.quick else item.least_rounds
            for number in range(min(max(self._rounds, least), item.most_rounds)):
                for name, subject_result in result.subjects.items():
                    if subject_result.failure:
                        continue
                    show_progress(f"{item.name}, round {number + 1}, {name}")
                    try:
                        if name not in servers:
                            servers[name] = self._start(SUBJECTS[name], item)
                        subject_result.rounds.append(self._measure(item, name, servers[name]))
                        if item.fresh:
                            stop(servers.pop(name))
                    except BenchError as error:
                        subject_result.failure = str(error)
        finally:
            for server in servers.values():
                stop(server)
        show_progress("")
        return result

    def _chosen(self, item: Item) -> list[str]:
        names = []
        for name in item.subjects:
            subject = SUBJECTS[name]
            if subject.family == subjects.VIREO:
                if self._vireo is None or subject.name.removeprefix("vireo-") in self._vireo:
                    names.append(name)
                    # A kept build may be older than these options, and than sessions.
                    before = subjects.before_name(name)
                    if self._before and not item.setup.tuned and before in SUBJECTS:
                        names.append(before)
            elif self._is_wanted(subject) and self._is_there(subject):
                names.append(name)
        return names

    def _is_wanted(self, subject: Subject) -> bool:
        if self._against is None:
            return not (self._context.quick and subject.thread_per_connection)
        return subject.matches(self._against)

    def _is_there(self, subject: Subject) -> bool:
        program = subject.program
        if shutil.which(program) if program == "nginx" else (self._programs / program).exists():
            return True
        if program not in self._missing:
            self._missing.add(program)
            print(f"bench: {program} is missing, so {subject.title} is left out", file=sys.stderr)
        return False

    def _start(self, subject: Subject, item: Item) -> Server | None:
        """@return none for what needs none."""
        if not subject.program:
            return None
        if subject.program == "nginx" or item.setup.tls or item.setup.files:
            self._write_stream_file()
        if item.setup.files:
            app.install_files(self._scratch)
        if item.setup.tls:
            tls.install_certificate(self._scratch, 0)
        ports = subjects.ports_of(subject, item.setup)
        port = self._ports.take(ports)
        line = subjects.command(subject, item.setup, port, self._programs, self._scratch)
        return Server(line, port, ports, self._logs / f"{item.name}-{subject.name}.log", subject.environment)

    def _write_stream_file(self) -> None:
        path = self._scratch / "stream"
        if not path.exists():
            client = str(self._programs / "bench-http-client")
            subprocess.run([client, "write-file", "--path", str(path)], check=True)

    def _measure(self, item: Item, name: str, server: Server | None) -> dict[str, float]:
        if self._perf is None or server is None or SUBJECTS[name].family == subjects.PEER:
            return item.measure(self._context, server)
        output = self._perf / f"{item.name}-{name}.data"
        perf = subprocess.Popen(
            ["perf", "record", "-q", "-F", "2000", "-g", "-p", str(server.pid), "-o", str(output)],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        )
        try:
            return item.measure(self._context, server)
        finally:
            perf.send_signal(signal.SIGINT)
            perf.wait()

    def run_micro(self, quick: bool) -> list[dict[str, object]]:
        show_progress("microbenchmarks")
        command = [str(self._programs / "bench-micro"), "--benchmark_format=json"]
        command.append(f"--benchmark_min_time={0.05 if quick else 0.3}")
        done = subprocess.run(command, capture_output=True, text=True, check=True)
        show_progress("")
        return [
            {
                "name": entry["name"],
                "ns": entry["cpu_time"],
                **({"gb_per_s": entry["bytes_per_second"] / 1e9} if "bytes_per_second" in entry else {}),
            }
            for entry in json.loads(done.stdout)["benchmarks"]
        ]


def stop(server: Server | None) -> None:
    if server is not None:
        server.stop()


def show_progress(text: str) -> None:
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def keep_build(build: Path, name: str) -> Path:
    """Copies the program and its library, so that a later build can be compared with this one."""
    directory = build / "kept" / name
    directory.mkdir(parents=True, exist_ok=True)
    for program in ("bench-vireo", "bench-app"):
        shutil.copy2(build / "bench" / program, directory)
    for library in (build / "src").rglob("libvireo*.so*"):
        shutil.copy2(library, directory, follow_symlinks=True)
    return directory


def items_of(options: argparse.Namespace) -> list[Item]:
    """Those of the part that is asked for."""
    return {"": all_items, TLS: tls.all_items, SESSIONS: session_items, APP: app.all_items, THROUGHPUT: throughput.all_items}[options.part]()


def chosen_items(options: argparse.Namespace) -> tuple[list[Item], bool]:
    """The items, and whether the microbenchmarks are among what was asked for."""
    items = items_of(options)
    if options.only is None:
        return items, not options.part
    pattern = re.compile(options.only)
    items = [item for item in items if pattern.search(item.name)]
    micro = not options.part and pattern.search(MICRO) is not None
    if not items and not micro:
        raise BenchError(f"no item is called {options.only}; --list shows them")
    return items, micro


def results_path(options: argparse.Namespace) -> Path:
    return options.build / (f"results-{options.part}.json" if options.part else "results.json")


class Host:
    """What the host of a virtual machine has taken of its cores' time since the object was made."""

    def __init__(self) -> None:
        self._begin = self._times()

    @staticmethod
    def _times() -> tuple[int, int]:
        """All, and what was stolen; proc(5) has the order. What guests took is in the first two already."""
        times = [int(word) for word in Path("/proc/stat").read_text().splitlines()[0].split()[1:9]]
        return sum(times), times[7]

    def stolen_percent(self) -> float:
        total, stolen = (now - then for now, then in zip(self._times(), self._begin))
        return round(100 * stolen / total, 1) if total else 0.0


def measure(options: argparse.Namespace) -> tuple[list[ItemResult], dict[str, object]]:
    items, with_micro = chosen_items(options)
    runner = Runner(options)
    begin = time.monotonic()
    host = Host()
    results = []
    for item in items:
        results.append(runner.run(item))
        table.print_item(results[-1])
        sys.stdout.flush()
    micro = runner.run_micro(options.quick) if with_micro else []
    table.print_micro(micro)
    packages = tls.PACKAGES if options.part == TLS else PACKAGES
    about = {"machine": machine(packages), "rounds": runner.rounds, "quick": options.quick,
             "minutes": round((time.monotonic() - begin) / 60, 1), "stolen_percent": host.stolen_percent()}
    content = to_json(results, micro, about)
    # A part of the work doesn't replace the figures of the whole.
    whole = options.only is None and options.against is None and options.vireo is None
    path = results_path(options) if whole else options.build / "results-part.json"
    path.write_text(json.dumps(content, indent=1) + "\n")
    print(f"\n{path}, after {about['minutes']} minutes, of which the host took {about['stolen_percent']} %")
    return results, {**about, "micro": micro}


def main() -> int:
    options = parse_arguments()
    if options.newer_engine:
        subjects.add_newer_engine(options.newer_engine)
    if options.list:
        for item in items_of(options):
            print(f"{item.name:28}{item.title}")
        if not options.part:
            print(f"{MICRO:28}microbenchmarks")
        return 0
    if options.publish and (options.only or options.against or options.vireo):
        raise BenchError("--publish wants the whole work")
    raise_descriptor_limit()
    if options.keep:
        print(f"kept in {keep_build(options.build, options.keep)}")
        if options.only is None:
            return 0
    if options.before:
        directory = options.build / "kept" / options.before
        if not directory.exists():
            raise BenchError(f"no build was kept as {options.before}")
        subjects.add_before(directory)
    if options.from_results:
        results, about = from_json(results_path(options), items_of(options))
        for result in results:
            table.print_item(result)
        table.print_micro(about["micro"])
    else:
        results, about = measure(options)
    if results:
        table.print_summary(results)
    if options.publish:
        if about["stolen_percent"] > MAX_STOLEN_PERCENT:
            raise BenchError(f"nothing is published: the host took {about['stolen_percent']} % of the time")
        documents = Path(__file__).resolve().parents[2] / "docs"
        charts.write_charts(results, documents / "performance")
        publish.fill_document(results, about, documents / "performance.md", f"{options.part}-" if options.part else "")
    return 1 if any(failed_own(result) for result in results) else 0


def failed_own(result: ItemResult) -> bool:
    """Whether a program of the project's own failed; a peer that did is shown in the table."""
    return any(
        subject.failure and SUBJECTS[name].family != subjects.PEER for name, subject in result.subjects.items()
    )


if __name__ == "__main__":
    run_program(main)
