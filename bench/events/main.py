"""Holds a server that waits by events to its bounds, beside one that polls. ./dev bench --event runs this."""

from __future__ import annotations

import argparse
import functools
import json
import re
import shutil
import statistics
import sys
import time
from pathlib import Path

import publish
from checks import EVENT, POLLING, Check, Context, Value, all_checks
from processes import BenchError, Ports, Server, raise_descriptor_limit, run_program
from results import machine

HEAD = ["Work", "Number", POLLING, EVENT, "ratio", "wanted", ""]
PACKAGES = ("libmicrohttpd12", "curl", "haproxy", "wrk", "g++-12")


class Runner:
    """Runs checks in interleaved rounds, with a server for each way of waiting."""

    def __init__(self, options: argparse.Namespace) -> None:
        self._programs = options.build / "bench"
        self._logs = options.build / "logs-event"
        self._rounds = options.rounds
        self._quick = options.quick
        self._ports = Ports(first=22100)
        self._servers: list[Server] = []
        shutil.rmtree(self._logs, ignore_errors=True)
        self._logs.mkdir(parents=True)

    def run(self, check: Check) -> dict[str, list[dict[str, float]]]:
        """The numbers of each round, by the way of waiting."""
        rounds = self._rounds or (check.quick_rounds if self._quick else check.rounds)
        result: dict[str, list[dict[str, float]]] = {waiting: [] for waiting in check.modes}
        try:
            contexts = {waiting: self._context(waiting) for waiting in check.modes}
            servers = {waiting: context.start(*check.options) for waiting, context in contexts.items()}
            for _ in range(rounds):
                for waiting, server in servers.items():
                    result[waiting].append(check.measure(contexts[waiting], server))
                    server.check()
        finally:
            for server in self._servers:
                server.stop()
            self._servers.clear()
        return result

    def _context(self, waiting: str) -> Context:
        start = functools.partial(self._start, waiting)
        return Context(self._programs, self._logs, self._quick, self._ports, waiting, start)

    def _start(self, waiting: str, *options: str, port: int = 0) -> Server:
        """@param port: one that was taken before, or any."""
        port = port or self._ports.take(1)
        command = [str(self._programs / "bench-events"), "--port", str(port), "--waiting", waiting, *options]
        server = Server(command, port, 1, self._logs / f"{waiting}-{len(self._servers)}.log", {})
        self._servers.append(server)
        return server


def median(rounds: list[dict[str, float]], key: str) -> float | None:
    return statistics.median(values[key] for values in rounds) if rounds else None


def ratio(rounds: dict[str, list[dict[str, float]]], key: str) -> float | None:
    """To polling, in the rounds that stand beside each other."""
    pairs = [(event[key], polling[key]) for event, polling in zip(rounds[EVENT], rounds.get(POLLING, []))]
    ratios = [event / polling for event, polling in pairs if polling != 0]
    return statistics.median(ratios) if ratios else None


def text(number: float | None, digits: int) -> str:
    return "" if number is None else f"{number:,.{digits}f}"


def row(check: Check, value: Value, rounds: dict[str, list[dict[str, float]]]) -> tuple[list[str], bool]:
    """The cells of a number, and whether it fails."""
    event = median(rounds[EVENT], value.key)
    to_polling = ratio(rounds, value.key) if check.is_alike else None
    judged = to_polling if value.is_ratio else event
    verdict = "" if value.bound is None else "met" if value.is_met(judged) else "**missed**"
    title = f"{value.title} [{value.unit}]" if value.unit else value.title
    polling = median(rounds.get(POLLING, []), value.key)
    digits = value.digits
    cells = [title, text(polling, digits), text(event, digits), text(to_polling, 2), value.wanted(), verdict]
    return cells, value.fails(judged)


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./dev bench --event", description="Holds a server that waits by events to its bounds."
    )
    parser.add_argument("--quick", action="store_true", help="fewer rounds, streams and bytes: below 3 minutes")
    parser.add_argument("--only", metavar="REGEX", help="the checks whose names it matches")
    parser.add_argument("--rounds", type=int, help="of each check")
    parser.add_argument("--list", action="store_true", help="list the checks and end")
    parser.add_argument("--publish", action="store_true", help="write the table to docs/performance.md")
    parser.add_argument("--from-results", action="store_true", help="don't measure: take build/bench/results-event.json")
    parser.add_argument("--build", type=Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def main() -> int:
    options = parse_arguments()
    checks = [check for check in all_checks() if options.only is None or re.search(options.only, check.name)]
    if not checks:
        raise BenchError(f"no check is called {options.only}; --list shows them")
    if options.list:
        for check in checks:
            print(f"{check.name:20}{check.title}")
        return 0
    if options.publish and (options.only or options.quick or options.rounds):
        raise BenchError("--publish wants the whole work")
    path = options.build / "results-event.json"
    recorded = json.loads(path.read_text()) if options.from_results else None
    raise_descriptor_limit()
    runner = Runner(options)
    begin = time.monotonic()
    results = {}
    rows = []
    failed = []
    print(f"| {' | '.join(HEAD)} |\n|---|---|---:|---:|---:|---:|---|")
    for check in checks:
        results[check.name] = rounds = recorded["checks"][check.name] if recorded else runner.run(check)
        work = check.title
        for value in check.values:
            cells, fails = row(check, value, rounds)
            rows.append([work, *cells])
            print(f"| {' | '.join(rows[-1])} |", flush=True)
            work = ""
            if fails:
                failed.append(f"{check.name}, {value.title}")
    if recorded is None:
        minutes = round((time.monotonic() - begin) / 60, 1)
        recorded = {"machine": machine(PACKAGES), "minutes": minutes, "checks": results}
        path.write_text(json.dumps(recorded, indent=1) + "\n")
        print(f"\n{path}, after {minutes} minutes")
    if options.publish:
        publish.fill_events([HEAD, *rows], recorded, Path(__file__).resolve().parents[2] / "docs" / "performance.md")
    for failure in failed:
        print(f"bench: far from its bound: {failure}", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    run_program(main)
