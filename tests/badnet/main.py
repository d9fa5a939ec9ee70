"""Drives the demo through a bad network and looks at what comes of each exchange. ./dev badnet runs this."""

from __future__ import annotations

import argparse
import random
import re
import sys
import threading
import time
from collections.abc import Callable

import demo
import samples
from clients import (
    PATIENCE_SECONDS,
    Client,
    DefinedEchoer,
    Downloader,
    Getter,
    HalfCloser,
    Listener,
    PatientOne,
    Publisher,
    SessionEchoer,
    StreamReader,
    Tally,
    Uploader,
)
from paths import Fate, Network, Path, Way
from processes import BenchError, Ports, Server, raise_descriptor_limit

HTTP_CLIENTS: dict[type[Client], int] = {
    Getter: 2,
    Uploader: 3,
    Downloader: 3,
    StreamReader: 1,
    PatientOne: 1,
    Listener: 2,
}

# After which the server gives up who is silent. No other path keeps it waiting half as long.
CLIENT_TIMEOUT_MS = 4000
LONGEST_STALL = 1.0
# The deadlines of all that is silent, one after the other, and a busy machine.
REST_SECONDS = 60.0
STOP_SECONDS = 30.0
# Of each kind, still there at the stop.
LEFT_AT_STOP = 3


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./dev badnet", description="Drives the demo through a bad network, and looks at what comes of each exchange."
    )
    parser.add_argument("--seconds", type=float, default=60.0, help="default 60, divided among the ways to serve")
    parser.add_argument(
        "--acts", type=int, default=0,
        help="instead, so many acts of each client, without silent paths and, by events, with the library's deadlines",
    )
    parser.add_argument(
        "--mode", choices=["event", "tls", "defined"], action="append", help="default all of them, one after the other"
    )
    return demo.parse_arguments(parser)


class Run:
    """One run of the demo, in one mode."""

    def __init__(self, options: argparse.Namespace, mode: str, seconds: float, port: int) -> None:
        self._mode = mode
        self._seconds = seconds
        self._acts = options.acts
        self._tally = Tally()
        self._stop = threading.Event()
        self._failures: list[str] = []
        self._tls = None
        if mode == "tls":
            self._tls = demo.trusting()
        self._log = options.output / f"{mode}.log"
        self._log.unlink(missing_ok=True)
        arguments = {
            "event": ["--access-log", "-"],
            "tls": ["--access-log", "-", "--tls-throw-away"],
            "defined": ["--defined"],
        }[mode]
        # Polling, the engine may miss a close that comes together with bytes; then its time-out alone ends the connection.
        if not self._acts or mode == "defined":
            arguments += ["--client-timeout", str(CLIENT_TIMEOUT_MS)]
        self._server = Server([str(options.demo), "--port", str(port), *arguments], port, 1, self._log, {})
        self._network = Network(port)
        self._fates = [Fate.RESET, Fate.CLOSE, *([] if self._acts else [Fate.SILENCE])]
        self._chance = random.Random(f"{options.seed} {mode}")
        kinds = dict(HTTP_CLIENTS)
        kinds[DefinedEchoer if mode == "defined" else SessionEchoer] = 2
        # The end of a TLS session would be another matter than that of the connection.
        if mode != "tls":
            kinds[HalfCloser] = 1
        self._clients = [
            kind(
                self._network, f"{options.seed} {mode} {kind.__name__} {i}", self._tally, self._stop, self._draw, self._acts,
                self._tls,
            )
            for kind, count in kinds.items()
            for i in range(count)
        ]
        # It goes on until the last listener has heard what it wanted.
        self._published = threading.Event()
        self._publisher = Publisher(self._network, self._tally, self._tls, self._published)
        # Of lost exchanges, as the server counts them.
        self._reasons: dict[str, int] = {}

    def _draw(self, chance: random.Random) -> Path:
        return Path.drawn(chance, LONGEST_STALL, self._fates)

    def run(self) -> bool:
        """Whether all was as it has to be."""
        try:
            demo.statistics(self._server.port, self._tls)
            before = self._sample()
            self._publisher.start()
            for client in self._clients:
                client.start()
            if not self._acts:
                self._watch()
            self._end_clients()
            self._check_rest(before)
            self._stop_under_way()
        except BenchError as error:
            self._failures.append(str(error))
        finally:
            self._server.stop()
            self._network.stop()
        self._check_records()
        return self._tell()

    def _watch(self) -> None:
        end = time.monotonic() + self._seconds
        while time.monotonic() < end and not self._tally.errors:
            self._stop.wait(0.1)
            self._server.check()

    def _end_clients(self) -> None:
        if not self._acts:
            self._stop.set()
        for client in self._clients:
            client.join(4 * PATIENCE_SECONDS)
            if client.is_alive():
                self._failures.append(f"a client does not end: {client.kind}")
        self._published.set()
        self._publisher.join()
        if self._publisher.error:
            self._failures.append(self._publisher.error)

    def _sample(self) -> samples.Sample:
        return samples.take(self._server, 0.0, 0)

    def _check_rest(self, before: samples.Sample) -> None:
        """Silent paths are still there, and the server must come to hold what it held before the first client."""
        silent = self._network.silent_count()
        if self._mode == "defined":
            # Requests end by themselves. Of its WebSockets nobody asks whether they live.
            self._wait_until_none(lambda: self._left(before)[:1])
            self._network.release()
        self._wait_until_none(lambda: list(filter(None, self._left(before))))
        print(f"badnet: {self._mode}: at rest, after {silent} silent paths", flush=True)

    def _wait_until_none(self, left: Callable[[], list[str]]) -> None:
        deadline = time.monotonic() + REST_SECONDS
        while any(held := left()):
            if time.monotonic() > deadline:
                raise BenchError("at rest the server holds: " + ", ".join(held))
            # An idle stream shows that its path is dead by what it does not take.
            for _ in range(20):
                self._publisher.publish(Publisher.FILLING)
            time.sleep(0.1)

    def _left(self, before: samples.Sample) -> list[str]:
        """What the server holds too much of: requests, WebSockets, threads, descriptors; empty for what it does not."""
        statistics = demo.statistics(self._server.port, self._tls)
        self._reasons = statistics["abnormalEnds"]
        rest = self._sample()
        return [
            f"{what} {now} instead of {then}" if now > then else ""
            for what, now, then in (
                ("requests", statistics["requestsActive"], 1),
                ("WebSockets", statistics["webSocketsOpen"], 0),
                ("threads", rest.threads, before.threads),
                # The connection that asked may not be closed yet.
                ("descriptors", rest.descriptors, before.descriptors + 1),
            )
        ]

    def _stop_under_way(self) -> None:
        """Stops the server while exchanges of each kind are on paths that have gone silent, or creep."""
        creeping = Path(Way(piece=1, gap=0.01), Way(piece=1, gap=0.01), False, Fate.CLOSE)
        threads = []
        for client in self._clients:
            for _ in range(LEFT_AT_STOP):
                dead = Path(Way(), Way(cut_after=self._chance.randrange(300)), True, Fate.SILENCE)
                path = self._chance.choice([creeping, dead])
                threads.append(threading.Thread(target=client.act_at_the_end, args=(path,), daemon=True))
                threads[-1].start()
        time.sleep(0.5)  # for exchanges to be under way, at whatever stage
        begin = time.monotonic()
        self._server.finish(STOP_SECONDS)
        print(f"badnet: {self._mode}: stopped after {time.monotonic() - begin:.1f} s", flush=True)
        self._network.release()
        for thread in threads:
            thread.join(4 * PATIENCE_SECONDS)

    def _check_records(self) -> None:
        """Each request is told of once at most, and each that was answered to the last byte as an answer."""
        if self._mode == "defined":
            return
        statuses: dict[int, list[str]] = {}
        for number, status in re.findall(r"exchange=(\d+) HTTP/1.1\" (\S+)", self._log.read_text()):
            statuses.setdefault(int(number), []).append(status)
        for number, told in statuses.items():
            if len(told) != 1:
                self._failures.append(f"exchange {number} was told of {len(told)} times")
        for number in self._tally.answered:
            if statuses.get(number) != ["200"]:
                self._failures.append(f"exchange {number} was answered, and the records say {statuses.get(number)}")

    def _tell(self) -> bool:
        for kind in sorted({client.kind for client in self._clients}):
            print(
                f"badnet: {self._mode}: {self._tally.right[kind]:6} right, {self._tally.cut[kind]:6} cut off, of {kind}"
            )
        reasons = ", ".join(f"{count} {reason}" for reason, count in sorted(self._reasons.items()))
        print(f"badnet: {self._mode}: the server says of what it lost: {reasons or 'nothing was'}")
        for failure in self._failures + self._tally.errors:
            print(f"badnet: FAILED: {self._mode}: {failure}", file=sys.stderr)
        return not self._failures and not self._tally.errors


def main() -> int:
    options = parse_arguments()
    options.output.mkdir(parents=True, exist_ok=True)
    raise_descriptor_limit()
    modes = options.mode or ["event", "tls", "defined"]
    print(f"badnet: {', '.join(modes)}, --seed {options.seed}", flush=True)
    ports = Ports()
    passed = [Run(options, mode, options.seconds / len(modes), ports.take(1)).run() for mode in modes]
    print(f"badnet: {'passed' if all(passed) else 'FAILED'}; the servers' logs are in {options.output}")
    return 0 if all(passed) else 1


if __name__ == "__main__":
    sys.exit(main())
