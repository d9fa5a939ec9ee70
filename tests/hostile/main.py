"""Attacks servers with thousands of clients of each hostile kind, and asks them meanwhile. ./dev hostile runs this."""

from __future__ import annotations

import argparse
import http.client
import json
import os
import ssl
import sys
import threading
import time
from dataclasses import dataclass
from pathlib import Path

from processes import BenchError, HeldConnections, Ports, Server, raise_descriptor_limit, run_program

HOST = "127.0.0.1"
HERE = Path(__file__).parent
KIB = 1 << 10

TARGET_P99_SECONDS = 0.05
REST_SECONDS = 60.0
STOP_SECONDS = 60.0

# What a server may hold besides what each connection takes: the chunks that are kept for later, and what each of 16
# workers has in its hands.
FIXED_BYTES = 32 * 64 * KIB + 16 * 512 * KIB
# What request, buffers and lists take beside the engine's memory of a connection.
HTTP_BYTES = 16 * KIB
ENGINE_BYTES = 32 * KIB
DEFINED_ENGINE_BYTES = 256 * KIB
# The library's own limit.
MAX_MESSAGE = 1 << 20


@dataclass(frozen=True)
class Kind:
    """Of clients, and the server that they attack."""

    name: str
    server: str
    # What one of them may make a server hold, beside the engine's memory.
    bytes_each: int
    # Why answers of workers may have to wait.
    reason: str = ""
    with_defaults: bool = False

    @property
    def title(self) -> str:
        return self.name.replace("_", " ")


KINDS = (
    Kind("nobody", "demo", HTTP_BYTES, with_defaults=True),
    Kind("slow_heads", "demo", HTTP_BYTES, with_defaults=True),
    Kind("slow_bodies", "demo", HTTP_BYTES, "the demo's workers read uploads to their end", with_defaults=True),
    Kind("slow_readers", "demo", HTTP_BYTES, "the demo's workers write downloads to their end", with_defaults=True),
    Kind("many_headers", "demo", HTTP_BYTES, with_defaults=True),
    Kind("aborted_uploads", "demo", HTTP_BYTES + 64 * KIB, "workers read uploads until they break off", with_defaults=True),
    Kind("churn", "demo", HTTP_BYTES, with_defaults=True),
    # A session's own; a window to inflate with, and the least of a message, where there is compression.
    Kind("ping_floods", "demo", HTTP_BYTES + 16 * KIB),
    Kind("fragment_floods", "demo", HTTP_BYTES + 16 * KIB),
    Kind("bombs", "demo", HTTP_BYTES + 16 * KIB + 44 * KIB + 128 * KIB),
    Kind("half_handshakes", "tls", HTTP_BYTES + 32 * KIB),
    Kind("range_floods", "files", HTTP_BYTES + 16 * KIB),
)


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./dev hostile", description="Attacks servers with thousands of clients of each kind, and asks them meanwhile."
    )
    parser.add_argument("--count", type=int, help="of clients at once; default 5000, or 500 for less than 10 seconds")
    parser.add_argument("--seconds", type=float, default=20.0, help="for each kind, once all are there; default 20")
    parser.add_argument("--rounds", type=int, default=1, help="default 1; the sum of the memory is the same for all")
    parser.add_argument("--kind", action="append", choices=[kind.name for kind in KINDS], help="default all")
    parser.add_argument("--defined", action="store_true", help="with the library's defaults, and what there is with them")
    parser.add_argument("--demo", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--files", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


class Target:
    """A server that is attacked."""

    def __init__(self, options: argparse.Namespace, name: str, port: int) -> None:
        self.name = name
        self.paths = ["/small.txt"] if name == "files" else ["/inline", "/hello"]
        log = options.output / f"{name}.log"
        log.unlink(missing_ok=True)
        if name == "files":
            root = options.output / "files"
            root.mkdir(exist_ok=True)
            (root / "small.txt").write_text("hello world\n")
            (root / "large.bin").write_bytes(bytes(64 * KIB))
            command = [str(options.files), str(port), str(root)]
        else:
            mode = ["--defined"] if options.defined else ["--max-message", str(MAX_MESSAGE)]
            # A WebSocket over TLS takes four descriptors, of which many are set aside for them.
            mode += ["--tls-throw-away", "--no-websocket"] if name == "tls" else []
            command = [str(options.demo), "--port", str(port), *mode]
        # With one heap, see the long run.
        self.server = Server(command, port, 1, log, {"MALLOC_ARENA_MAX": "1"})
        self._ask(self.paths[0])
        self.descriptors = self._descriptors()
        self.base_bytes = self.server.memory_bytes()
        # Of the most expensive kind that there has been.
        self.bytes_each = 0

    def _descriptors(self) -> int:
        return len(os.listdir(f"/proc/{self.server.pid}/fd"))

    def _ask(self, path: str) -> bytes:
        connection: http.client.HTTPConnection
        if self.name == "tls":
            context = ssl.create_default_context()
            context.check_hostname = False
            context.verify_mode = ssl.CERT_NONE
            connection = http.client.HTTPSConnection(HOST, self.server.port, timeout=60, context=context)
        else:
            connection = http.client.HTTPConnection(HOST, self.server.port, timeout=60)
        try:
            connection.request("GET", path)
            return connection.getresponse().read()
        finally:
            connection.close()

    def wait_for_rest(self) -> None:
        """Its clients gone, it has to hold what it held before."""
        deadline = time.monotonic() + REST_SECONDS
        while True:
            held = {"descriptors": max(0, self._descriptors() - self.descriptors - 1)}
            if self.name != "files":
                statistics = json.loads(self._ask("/stats"))
                held |= {"requests": statistics["requestsActive"] - 1, "WebSockets": statistics["webSocketsOpen"]}
            if not any(held.values()):
                return
            if time.monotonic() > deadline:
                raise BenchError(f"clients that are gone left behind: {held}")
            time.sleep(0.1)


class Peak(threading.Thread):
    """The most memory that a server holds, until it is ended."""

    def __init__(self, server: Server) -> None:
        super().__init__(daemon=True)
        self._server = server
        self._ending = threading.Event()
        self.bytes = 0
        self.start()

    def run(self) -> None:
        while not self._ending.wait(0.1):
            self.bytes = max(self.bytes, self._server.memory_bytes())

    def end(self) -> int:
        self._ending.set()
        self.join()
        return self.bytes


def seconds_text(seconds: float) -> str:
    return f"{seconds * 1000:.0f} ms" if seconds < 10 else f"{seconds:.1f} s"


class Hostility:
    """All of it."""

    def __init__(self, options: argparse.Namespace) -> None:
        self._options = options
        self._count = options.count or (500 if options.seconds < 10 else 5000)
        self._ports = Ports()
        self._targets: dict[str, Target] = {}
        self._failures: list[str] = []

    def run(self) -> bool:
        wanted = [kind for kind in KINDS if not self._options.kind or kind.name in self._options.kind]
        if self._options.defined:
            wanted = [kind for kind in wanted if kind.with_defaults]
        print(f"hostile: {self._count} clients at once, {self._options.seconds:g} s each; MiB of memory", flush=True)
        print("| kind | asked | answers | p99 | longest | at most | the sum | at rest | what they did |")
        print("|---|---|---:|---:|---:|---:|---:|---:|---|", flush=True)
        try:
            for kind in wanted:
                self._attack_in_rounds(kind)
            for target in self._targets.values():
                target.server.finish(STOP_SECONDS)
        except BenchError as error:
            self._failures.append(str(error))
        finally:
            for target in self._targets.values():
                target.server.stop()
        for failure in self._failures:
            print(f"hostile: FAILED: {failure}", file=sys.stderr)
        print(f"hostile: {'FAILED' if self._failures else 'the servers stood it, and hold nothing of it'}")
        return not self._failures

    def _attack_in_rounds(self, kind: Kind) -> None:
        if kind.server not in self._targets:
            self._targets[kind.server] = Target(self._options, kind.server, self._ports.take(1))
        for _ in range(self._options.rounds):
            self._attack(kind, self._targets[kind.server])

    def _attack(self, kind: Kind, target: Target) -> None:
        program = [sys.executable, "-B"]
        way = "tls" if kind.server == "tls" else "plain"
        attackers = [*program, str(HERE / "attackers.py"), kind.name, str(target.server.port), str(self._count)]
        healthy = [*program, str(HERE / "healthy.py"), str(target.server.port), way, *target.paths]
        peak = Peak(target.server)
        # They ask while the others come, too.
        with HeldConnections(healthy, 20) as clients:
            with HeldConnections(attackers, 120) as attack:
                time.sleep(self._options.seconds)
                clients.ask()
                did = attack.ask()
            # Who waits for a worker gets its answer now.
            asked = clients.ask()
        most = peak.end()
        target.server.check()
        target.wait_for_rest()
        rest = target.server.memory_bytes()
        engine = DEFINED_ENGINE_BYTES if self._options.defined else ENGINE_BYTES
        # What a heap once had it mostly keeps, and what one kind has not touched of it the next one may. So the sum is
        # that of the most expensive so far, on top of what there was before the first: what leaks goes beyond it.
        target.bytes_each = max(target.bytes_each, engine + kind.bytes_each)
        bound = target.base_bytes + FIXED_BYTES + self._count * target.bytes_each
        if most > bound:
            self._failures.append(f"{kind.title}: {most / KIB:.0f} KiB, of {bound / KIB:.0f} that are stated")
        for path, figures in asked.items():
            self._tell(kind, path, figures, f"{most >> 20} | {bound >> 20} | {rest >> 20}", did)

    def _tell(self, kind: Kind, path: str, figures: dict, memory: str, did: dict) -> None:
        if figures["failures"] or not figures["count"]:
            self._failures.append(f"{kind.title}, {path}: {figures['failures'] or 'nobody was answered'}")
        late = ""
        if figures["p99"] > TARGET_P99_SECONDS:
            has_reason = kind.reason and path == "/hello"
            late = "; over the target" + (f": {kind.reason}" if has_reason else "")
        acts = ", ".join(f"{count} {what}" for what, count in did.items())
        print(
            f"| {kind.title} | {path} | {figures['count']} | {seconds_text(figures['p99'])} | "
            f"{seconds_text(figures['max'])} | {memory} | {acts}{late} |",
            flush=True,
        )


def main() -> int:
    options = parse_arguments()
    options.output.mkdir(parents=True, exist_ok=True)
    raise_descriptor_limit()
    return 0 if Hostility(options).run() else 1


run_program(main)
