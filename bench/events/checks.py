"""What a server that waits by events is held to: the checks, how each measures, and its bounds."""

from __future__ import annotations

import socket
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

from drains import drains, rolling_restart
from processes import BenchError, Ports, Server, run_json
from streams import measure_streams

PATIENCE_SECONDS = 60
MIB = 1024 * 1024
WINDOW_MIB = 1  # the default upload window
PACED_BYTES_PER_SECOND = 10_000_000

EVENT = "event"
POLLING = "polling"


@dataclass(frozen=True)
class Context:
    programs: Path
    scratch: Path
    quick: bool
    ports: Ports
    waiting: str
    # Starts a server that waits so, with these options; it is stopped with the check at the latest.
    start: Callable[..., Server]

    def client(self, *arguments: object) -> list[str]:
        return [str(self.programs / "bench-http-client"), *(str(argument) for argument in arguments)]

    def pick(self, quick: int, full: int) -> int:
        return quick if self.quick else full


@dataclass(frozen=True)
class Value:
    """One number of a check, and what it has to be."""

    key: str
    title: str
    unit: str = ""
    digits: int = 0
    bound: float | None = None
    # Of the ratio to polling, not of the number itself.
    is_ratio: bool = False
    at_least: bool = False
    # What a machine that does other things beside may add: the bound times so much fails.
    slack: float = 1.0

    def is_met(self, number: float, slack: float = 1.0) -> bool:
        if self.bound is None:
            return True
        return number >= self.bound / slack if self.at_least else number <= self.bound * slack

    def fails(self, number: float) -> bool:
        return not self.is_met(number, self.slack)

    def wanted(self) -> str:
        if self.bound is None:
            return ""
        return f"{'≥' if self.at_least else '≤'} {self.bound:g}{' ×' if self.is_ratio else ''}"


Measure = Callable[[Context, Server], dict[str, float]]


@dataclass(frozen=True)
class Check:
    name: str
    title: str
    measure: Measure
    values: tuple[Value, ...]
    modes: tuple[str, ...] = (POLLING, EVENT)
    # Whether it asks the same of both.
    is_alike: bool = True
    rounds: int = 1
    quick_rounds: int = 1
    options: tuple[str, ...] = ()


# ---- Late answers ----


def _late(context: Context, server: Server) -> dict[str, float]:
    before = server.cpu_seconds()
    values = run_json(context.client("slow", "--port", server.port, "--count", 200), PATIENCE_SECONDS)
    return {"cpu_s": server.cpu_seconds() - before, "p99_ms": values["instant_p99_us"] / 1000}


# ---- Event streams ----


def _streams(context: Context, server: Server) -> dict[str, float]:
    # With more the polling server answers nobody in time.
    count = 50 if context.waiting == POLLING else context.pick(3000, 9000)
    return measure_streams(str(context.programs / "bench-http-client"), server, count, context.pick(3, 10))


# ---- Uploads ----


def _paced(context: Context, server: Server) -> dict[str, float]:
    size = context.pick(5 * PACED_BYTES_PER_SECOND, 1024 * MIB)
    # What the first upload makes the program allocate once is no part of it.
    run_json(context.client("put", "--port", server.port, "--bytes", 10 * MIB), PATIENCE_SECONDS)
    before = server.memory_bytes()
    server.reset_peak()
    idle = server.peak_bytes()
    # Who polls takes all of it at once, and answers when it is read.
    silence = size // PACED_BYTES_PER_SECOND + PATIENCE_SECONDS
    command = context.client("put", "--port", server.port, "--path", "/paced", "--bytes", size, "--silence", silence)
    run_json(command, silence + PATIENCE_SECONDS)
    return {"size_mib": size / MIB, "idle_mib": before / MIB, "peak_mib": (server.peak_bytes() - idle) / MIB}


def _refused(context: Context, server: Server) -> dict[str, float]:
    body = context.scratch / "gibibyte"
    with body.open("wb") as file:
        file.truncate(1024 * MIB)
    result = {"sent_mib": 0.0, "sent_expect_mib": 0.0, "failures": 0.0}
    for path, status in (("/refused", "413"), ("/private", "401")):
        for expectation, key in (("Expect:", "sent_mib"), ("Expect: 100-continue", "sent_expect_mib")):
            command = ["curl", "--silent", "--output", "/dev/null", "--write-out", "%{http_code} %{size_upload}"]
            command += ["--header", expectation, "--upload-file", str(body), f"http://127.0.0.1:{server.port}{path}"]
            done = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE_SECONDS)
            answered, sent = done.stdout.split()
            result["failures"] += 0 if done.returncode == 0 and answered == status else 1
            result[key] = max(result[key], int(sent) / MIB)
    body.unlink()
    return result


ABORTED_HEAD = b"PUT /upload HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 10000000\r\n\r\n"
PIECE = b"x" * 20000


def _connect(port: int) -> socket.socket:
    connection = socket.create_connection(("127.0.0.1", port), timeout=PATIENCE_SECONDS)
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return connection


def _end_with_data(connection: socket.socket) -> None:
    # Both are there before the server looks.
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_CORK, 1)
    connection.sendall(ABORTED_HEAD + PIECE)
    connection.close()


def _end_without_data(connection: socket.socket) -> None:
    connection.sendall(ABORTED_HEAD + PIECE)
    time.sleep(0.001)
    connection.close()


def _reset(connection: socket.socket) -> None:
    connection.sendall(ABORTED_HEAD + PIECE)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
    connection.close()


ABORTS = {"fin_data": _end_with_data, "fin": _end_without_data, "rst": _reset}


def _time_get(port: int) -> float:
    begin = time.monotonic()
    with _connect(port) as connection:
        connection.sendall(b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
        answer = b""
        while piece := connection.recv(65536):
            answer += piece
    if not answer.startswith(b"HTTP/1.1 200 ") or not answer.endswith(b"Hello, World"):
        raise BenchError(f"an answer of other bytes: {answer[:200]!r}")
    return time.monotonic() - begin


def _aborted(context: Context, server: Server) -> dict[str, float]:
    count = context.pick(200, 1000)
    result = {"count": float(count)}
    for kind, abort in ABORTS.items():
        for _ in range(count):
            abort(_connect(server.port))
        result[f"{kind}_ms"] = 1000 * _time_get(server.port)
    half_closed = []
    for _ in range(count):
        connection = _connect(server.port)
        connection.sendall(ABORTED_HEAD + PIECE)
        connection.shutdown(socket.SHUT_WR)
        half_closed.append(connection)
    result["half_ms"] = 1000 * _time_get(server.port)
    for connection in half_closed:
        connection.close()
    return result


# ---- Plain requests of workers ----


def _load(connections: int) -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        threads = 1 if connections == 1 else 2
        command = ["wrk", f"-t{threads}", f"-c{connections}", f"-d{context.pick(1, 2)}s", "--timeout", "10s"]
        command += ["-s", str(Path(__file__).parent.parent / "client" / "load.lua"), f"http://127.0.0.1:{server.port}/"]
        before = server.cpu_seconds()
        values = run_json(command, PATIENCE_SECONDS)
        if values["errors"] != 0 or values["requests"] == 0:
            raise BenchError(f"{values['errors']:.0f} requests failed, {values['requests']:.0f} did not")
        return {
            "rate": values["requests"] / values["seconds"],
            "cpu_us": (server.cpu_seconds() - before) * 1e6 / values["requests"],
            "p99_ms": values["p99_us"] / 1000,
        }

    return measure


def all_checks() -> list[Check]:
    probe = Value("p99_ms", "99 % of the plain requests beside", "ms", 2, bound=2, slack=25)
    next_get = {"bound": 100, "unit": "ms", "digits": 1, "slack": 10}
    return [
        *(
            Check(
                f"get-{connections}",
                f"GET 12 bytes from workers, {connections} connection{'s' if connections > 1 else ''}",
                _load(connections),
                (
                    Value("rate", "requests/s", bound=1.3, is_ratio=True, at_least=True, slack=1.6),
                    Value("cpu_us", "server CPU a request", "µs", 1),
                    Value("p99_ms", "99 %", "ms", 1),
                ),
                rounds=9,
                quick_rounds=3,
            )
            for connections in (1, 16, 128, 1000)
        ),
        Check(
            "late-200",
            "200 answers that take 500 ms",
            _late,
            (Value("cpu_s", "server CPU altogether", "s", 2, bound=0.3, slack=2), probe),
            rounds=5,
        ),
        Check(
            "streams",
            "idle event streams, 32 KiB of memory each",
            _streams,
            (
                Value("streams", "streams"),
                Value("cpu_percent", "CPU", "% of a core", 2, bound=1, slack=2),
                probe,
                Value("publish_ms", "an event reaches all after", "ms", bound=500, slack=6),
            ),
            is_alike=False,
            rounds=3,
            options=("--connection-memory", "32768"),
        ),
        Check(
            "paced-upload",
            "upload to a reader that takes 10 MB/s",
            _paced,
            (
                Value("size_mib", "upload", "MiB"),
                Value("peak_mib", "most memory beyond the idle server's", "MiB", 1, bound=WINDOW_MIB + 16),
            ),
        ),
        Check(
            "refused-upload",
            "1 GiB refused with 413 and 401 before it is read",
            _refused,
            (
                Value("sent_mib", "sent without Expect", "MiB", 2, bound=4),
                Value("sent_expect_mib", "sent with Expect", "MiB", 2, bound=4),
                Value("failures", "transfers that failed", bound=0),
            ),
            modes=(EVENT,),
        ),
        Check(
            "aborted-uploads",
            "uploads that are broken off, each kind in turn, against 4 workers; the next GET is answered after",
            _aborted,
            (
                Value("count", "uploads of each kind"),
                Value("fin_data_ms", "end together with data", **next_get),
                Value("fin_ms", "end after the data", **next_get),
                Value("rst_ms", "reset", **next_get),
                Value("half_ms", "half closed, answer awaited", **next_get),
            ),
            modes=(EVENT,),
        ),
        Check(
            "drains",
            "drains under wrk, uploads, event streams and WebSockets",
            drains,
            (
                Value("drains", "drains"),
                Value("requests", "requests that were taken"),
                Value("lost", "of them not answered", bound=0),
                Value("cut", "of them cut at the deadline", bound=0),
                Value("web_sockets", "WebSockets that were told"),
                Value("broken", "connections that broke", bound=0),
            ),
            modes=(EVENT,),
        ),
        Check(
            "rolling-restart",
            "restart of two servers in turn behind HAProxy",
            rolling_restart,
            (
                Value("restarts", "restarts"),
                Value("requests", "requests", bound=100_000, at_least=True, slack=50),
                Value("failed", "of them failed", bound=0),
                Value("cut", "of them cut at the deadline", bound=0),
            ),
            modes=(EVENT,),
        ),
    ]
