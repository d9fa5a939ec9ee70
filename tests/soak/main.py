"""Keeps the demo under a mixed load of healthy and rude clients, and watches what it holds. ./dev soak runs this."""

from __future__ import annotations

import argparse
import sys
import threading
import time
from pathlib import Path

import demo
import plot
import samples
from clients import Client, Tally
from demo import PATIENCE_SECONDS
from http_clients import (
    Breaker,
    Downloader,
    EchoPoster,
    Getter,
    Inspector,
    Newcomer,
    PatientOne,
    StreamReader,
    Uploader,
)
from processes import Ports, Server
from session_clients import (
    MESSAGE_LIMIT,
    GreatSessionEchoer,
    IdleSession,
    PassingSession,
    RoomVisitor,
    SessionBreaker,
    SessionEchoer,
    SlowReader,
    Stranger,
    Subscriber,
)
from websocket_clients import Echoer, GreatEchoer, Idler, PassingEchoer, WebSocketBreaker

HTTP_CLIENTS: dict[type[Client], int] = {
    Getter: 2,
    Newcomer: 1,
    Inspector: 1,
    Uploader: 1,
    EchoPoster: 1,
    Downloader: 1,
    StreamReader: 1,
    PatientOne: 2,
    Breaker: 2,
}
SESSION_CLIENTS: dict[type[Client], int] = {
    SessionEchoer: 2,
    GreatSessionEchoer: 1,
    PassingSession: 2,
    Subscriber: 1,
    SlowReader: 1,
    IdleSession: 3,
    RoomVisitor: 2,
    Stranger: 1,
    SessionBreaker: 2,
}
DEFINED_CLIENTS: dict[type[Client], int] = {
    Echoer: 1,
    GreatEchoer: 1,
    PassingEchoer: 1,
    Idler: 5,
    WebSocketBreaker: 1,
}

WARM_UP = 0.25
SAMPLE_SECONDS = 2.0
REST_SECONDS = 20.0
# A shorter run sees the allocator find its level; its memory is only reported.
JUDGED_MINUTES = 10.0


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./dev soak", description="Keeps the demo under a mixed load, and watches what it holds."
    )
    parser.add_argument(
        "--minutes", type=float, default=2.0,
        help=f"default 2; from {JUDGED_MINUTES:.0f} minutes on, growth of the memory fails the run",
    )
    mode = parser.add_mutually_exclusive_group()
    mode.add_argument(
        "--defined", action="store_true", help="with the library's defaults, and with the WebSocket protocol that they have"
    )
    mode.add_argument("--tls", action="store_true", help="over TLS")
    parser.add_argument("--plot", type=Path, help="write the plot there, too")
    return demo.parse_arguments(parser)


class Soak:
    """One run."""

    def __init__(self, options: argparse.Namespace) -> None:
        self._options = options
        self._seconds = options.minutes * 60
        self._warm_up = self._seconds * WARM_UP
        self._tally = Tally()
        self._stop = threading.Event()
        self._samples: list[samples.Sample] = []
        self._failures: list[str] = []
        ports = Ports()
        port = ports.take(1)
        log = options.output / "server.log"
        log.unlink(missing_ok=True)
        # With one heap: of several, each grows for many minutes to the most that its threads have ever held at once. 
        # What is larger than a page is no part of it and goes back at once, and the rest never does: what a heap of all
        # sizes can give back depends on where its last block happens to lie, and goes up and down by a fifth.
        environment = {
            "MALLOC_ARENA_MAX": "1",
            "MALLOC_MMAP_THRESHOLD_": "4096",
            "MALLOC_TRIM_THRESHOLD_": str(1 << 30),
        }
        mode = ["--defined"] if options.defined else ["--max-message", str(MESSAGE_LIMIT)]
        self._tls = demo.trusting() if options.tls else None
        if options.tls:
            mode.append("--tls-throw-away")
        kinds = HTTP_CLIENTS | (DEFINED_CLIENTS if options.defined else SESSION_CLIENTS)
        # It reads and writes at once, which Python lets no two threads do with one TLS session.
        if options.tls:
            kinds.pop(SlowReader, None)
        self._server = Server([str(options.demo), "--port", str(port), *mode], port, 1, log, environment)
        self._begin = time.monotonic()
        self._clients = [
            kind(
                port, self._tls, f"{options.seed} {kind.__name__} {i}", self._tally, self._stop, self._begin + self._warm_up
            )
            for kind, count in kinds.items()
            for i in range(count)
        ]

    def run(self) -> bool:
        try:
            demo.statistics(self._server.port, self._tls)
            before = self._sample()
            for client in self._clients:
                client.start()
            self._watch()
            self._end_clients()
            self._check_rest(before)
        finally:
            self._server.stop()
        # An error ends the run, maybe before there is anything to compare.
        if not self._tally.errors():
            self._judge()
        self._write()
        return not self._failures and not self._tally.errors()

    def _sample(self) -> samples.Sample:
        return samples.take(self._server, self._begin, sum(self._tally.done().values()))

    def _watch(self) -> None:
        reported = 0
        while (elapsed := time.monotonic() - self._begin) < self._seconds and not self._tally.errors():
            time.sleep(min(SAMPLE_SECONDS, self._seconds - elapsed))
            self._samples.append(self._sample())
            if int(elapsed / 60) > reported:
                reported = int(elapsed / 60)
                last = self._samples[-1]
                print(
                    f"soak: {reported} min, {last.acts} acts, {last.memory_bytes / (1 << 20):.2f} MiB, "
                    f"{last.descriptors} descriptors, {last.threads} threads, {last.cpu_seconds:.1f} s of CPU",
                    flush=True,
                )

    def _end_clients(self) -> None:
        self._stop.set()
        for client in self._clients:
            client.join(2 * PATIENCE_SECONDS)
            if client.is_alive():
                self._failures.append(f"a client does not end: {client.kind}")

    def _check_rest(self, before: samples.Sample) -> None:
        """With all clients gone the server must come to hold what it held before the first one."""
        deadline = time.monotonic() + REST_SECONDS
        while True:
            statistics = demo.statistics(self._server.port, self._tls)
            rest = self._sample()
            left = [
                f"{what} {now} instead of {then}"
                for what, now, then in (
                    ("requests", statistics["requestsActive"], 1),
                    ("WebSockets", statistics["webSocketsOpen"], 0),
                    ("threads", rest.threads, before.threads),
                )
                if now != then
            ]
            # The connection that asked may not be closed yet.
            if rest.descriptors > before.descriptors + 1:
                left.append(f"descriptors {rest.descriptors} instead of {before.descriptors}")
            if not left:
                print("soak: at rest the server holds what it held before the first client")
                return
            if time.monotonic() > deadline:
                self._failures.append("at rest the server holds: " + ", ".join(left))
                return
            time.sleep(0.5)

    def _judge(self) -> None:
        for growth in samples.growths(self._samples, self._warm_up):
            judged = self._options.minutes >= JUDGED_MINUTES or growth.watched.key == "threads"
            print(f"soak: {growth}" + ("" if judged else ", not judged in so short a run"))
            if judged and growth.is_too_much:
                self._failures.append(f"growth of {samples.GROWTH_LIMIT:.0%} or more: {growth}")

    def _write(self) -> None:
        samples.write_csv(self._samples, self._options.output / "samples.csv")
        title = f"The demo under mixed load for {self._options.minutes:g} minutes"
        for path in filter(None, (self._options.output / "soak.svg", self._options.plot)):
            plot.write_plot(self._samples, self._warm_up, title, path)
        for kind, count in sorted(self._tally.done().items()):
            print(f"soak: {count:8} {kind}")
        for failure in self._failures + self._tally.errors():
            print(f"soak: FAILED: {failure}", file=sys.stderr)


def main() -> int:
    options = parse_arguments()
    options.output.mkdir(parents=True, exist_ok=True)
    print(f"soak: {options.minutes:g} minutes, --seed {options.seed}", flush=True)
    passed = Soak(options).run()
    print(f"soak: {'passed' if passed else 'FAILED'}; samples and plot are in {options.output}")
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
