"""Starts the programs of the benchmark and reads from /proc what they use."""

from __future__ import annotations

import ctypes
import json
import os
import resource
import select
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path
from typing import Callable, NoReturn

CLOCK_TICKS = os.sysconf("SC_CLK_TCK")
START_SECONDS = 20
STOP_SECONDS = 5


class BenchError(Exception):
    """A program failed, or an answer was not what it should be."""


def run_program(main: Callable[[], int]) -> NoReturn:
    """Ends the process with what main() returns; a failure is told in a line, and a signal ends what was started."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        sys.exit(main())
    except BenchError as error:
        print(f"bench: {error}", file=sys.stderr)
        sys.exit(1)
    except KeyboardInterrupt:
        sys.exit(130)


def raise_descriptor_limit() -> None:
    """wrk opens one descriptor for each connection, and inherits the limit from here."""
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


def _die_with_runner() -> None:
    pr_set_pdeathsig = 1
    ctypes.CDLL(None).prctl(pr_set_pdeathsig, signal.SIGTERM)


class Ports:
    """Consecutive free ports. No port is given twice: one that was just used may still be waiting for its end."""

    def __init__(self, first: int = 20100, last: int = 32000) -> None:
        self._next = first
        self._last = last

    def take(self, count: int) -> int:
        while self._next + count <= self._last:
            first = self._next
            blocked = next((port for port in range(first, first + count) if not self._is_free(port)), None)
            if blocked is None:
                self._next = first + count
                return first
            self._next = blocked + 1
        raise BenchError("no free ports")

    @staticmethod
    def _is_free(port: int) -> bool:
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
            except OSError:
                return False
            return True


class Server:
    """A running server program."""

    def __init__(self, command: list[str], port: int, ports: int, log: Path, environment: dict[str, str]) -> None:
        """@param ports: how many consecutive ones it listens on."""
        self.port = port
        self.ports = ports
        self._log = log
        with log.open("ab") as output:
            self._process = subprocess.Popen(
                command,
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=output,
                env={**os.environ, **environment},
                preexec_fn=_die_with_runner,
            )
        begin = time.monotonic()
        self._wait_until_it_listens()
        self.start_seconds = time.monotonic() - begin

    def _wait_until_it_listens(self) -> None:
        deadline = time.monotonic() + START_SECONDS
        awaited = list(range(self.port, self.port + self.ports))
        while time.monotonic() < deadline:
            if self._process.poll() is not None:
                raise BenchError(f"the server ended at its start, see {self._log}")
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", awaited[0])) == 0:
                    awaited.pop(0)
            if not awaited:
                return
            time.sleep(0.001)
        self.stop()
        raise BenchError("the server does not listen")

    @property
    def pid(self) -> int:
        return self._process.pid

    def reload(self) -> None:
        """Asks it to read its files again."""
        self._process.send_signal(signal.SIGHUP)

    def finish(self, seconds: float) -> None:
        """Lets it end in its own time, and with success."""
        self._process.terminate()
        try:
            status = self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise BenchError(f"the server did not end within {seconds:.0f} s") from None
        if status != 0:
            raise BenchError(f"the server ended with {status}, see {self._log}")

    def end(self, seconds: float) -> dict[str, float]:
        """The same. Returns the JSON object that it has printed last."""
        self.finish(seconds)
        return json.loads(self._log.read_text().splitlines()[-1])

    def stop(self) -> None:
        self._process.terminate()
        try:
            self._process.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()

    def check(self) -> None:
        if self._process.poll() is not None:
            raise BenchError(f"the server died, see {self._log}")

    def _pids(self) -> list[int]:
        """The process and its descendants: nginx serves in children."""
        pids = [self.pid]
        for pid in pids:
            for children in Path(f"/proc/{pid}/task").glob("*/children"):
                pids += [int(child) for child in children.read_text().split()]
        return pids

    def cpu_times(self) -> tuple[float, float]:
        """The seconds in user space, and in the kernel."""
        user = kernel = 0
        for pid in self._pids():
            fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
            user += int(fields[11])
            kernel += int(fields[12])
        return user / CLOCK_TICKS, kernel / CLOCK_TICKS

    def cpu_seconds(self) -> float:
        return sum(self.cpu_times())

    def _status_bytes(self, name: str) -> int:
        total = 0
        for pid in self._pids():
            for line in Path(f"/proc/{pid}/status").read_text().splitlines():
                if line.startswith(name + ":"):
                    total += int(line.split()[1]) * 1024
        return total

    def memory_bytes(self) -> int:
        """Its own memory: what it has allocated and touched."""
        return self._status_bytes("RssAnon")

    def peak_bytes(self) -> int:
        """The most memory since the last reset, code and files included."""
        return self._status_bytes("VmHWM")

    def reset_peak(self) -> None:
        for pid in self._pids():
            Path(f"/proc/{pid}/clear_refs").write_text("5")


def run_json(command: list[str], timeout: float) -> dict[str, float]:
    """Runs a client and returns the JSON object that it prints."""
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=timeout)
    except subprocess.TimeoutExpired:
        raise BenchError(f"{Path(command[0]).name} did not end within {timeout:.0f} s") from None
    if done.returncode != 0:
        raise BenchError(done.stderr.strip().splitlines()[-1] if done.stderr.strip() else f"exit {done.returncode}")
    line = next((line for line in done.stdout.splitlines() if "{" in line), None)
    if line is None:
        raise BenchError(f"{Path(command[0]).name} printed no result")
    return json.loads(line[line.index("{") :])


class HeldConnections:
    """A client that has opened its connections and does nothing."""

    def __init__(self, command: list[str], timeout: float) -> None:
        self._process = subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            preexec_fn=_die_with_runner,
        )
        ready = select.select([self._process.stdout], [], [], timeout)[0]
        if not ready or not self._process.stdout.readline():
            self._process.kill()
            error = self._process.communicate()[1].strip()
            raise BenchError(error or f"the connections were not open within {timeout:.0f} s")

    def ask(self) -> dict[str, float]:
        """Sends the client a line and returns the JSON object that it prints then."""
        self._process.stdin.write("\n")
        self._process.stdin.flush()
        line = self._process.stdout.readline()
        if not line:
            raise BenchError(self._process.communicate()[1].strip() or "the client has ended")
        return json.loads(line)

    def __enter__(self) -> HeldConnections:
        return self

    def __exit__(self, *_: object) -> None:
        try:
            self._process.communicate(timeout=STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.communicate()


def probe_plain(port: int, path: str) -> int:
    """Verifies the plain answer. Returns its bytes, head included."""
    with socket.create_connection(("127.0.0.1", port), timeout=5) as connection:
        return ask_plain(connection, path=path)


def ask_plain(connection: socket.socket, header: str = "", path: str = "/") -> int:
    """The same on a connection. @param header: one that the request has, with its line end."""
    connection.sendall(f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1\r\n{header}\r\n".encode())
    answer = b""
    while b"\r\n\r\n" not in answer or not answer.endswith(b"Hello, World"):
        piece = connection.recv(65536)
        if not piece:
            break
        answer += piece
    head, _, body = answer.partition(b"\r\n\r\n")
    if not head.startswith(b"HTTP/1.1 200 ") or body != b"Hello, World":
        raise BenchError(f"an answer of other bytes: {answer[:200]!r}")
    return len(answer)
