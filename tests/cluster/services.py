"""What the cluster is made of: processes of the example, Redis and HAProxy, all on loopback."""

from __future__ import annotations

import http.client
import re
import signal
import socket
import subprocess
import time
from pathlib import Path

from clients import HOST, PATIENCE_SECONDS


def free_ports(count: int) -> list[int]:
    sockets = [socket.socket() for _ in range(count)]
    for each in sockets:
        each.bind((HOST, 0))
    ports = [each.getsockname()[1] for each in sockets]
    for each in sockets:
        each.close()
    return ports


def wait_until(is_true, what: str) -> None:
    deadline = time.monotonic() + PATIENCE_SECONDS
    while not is_true():
        if time.monotonic() > deadline:
            raise RuntimeError(f"{what} takes too long")
        time.sleep(0.02)


class Program:
    """One that runs, with a log of its own."""

    def __init__(self, name: str, directory: Path, command: list[str]) -> None:
        self.name = name
        self.log = directory / f"{name}.log"
        self._command = command
        self._process: subprocess.Popen | None = None

    def start(self) -> None:
        with self.log.open("ab") as log:
            self._process = subprocess.Popen(self._command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        wait_until(self.is_ready, f"the start of {self.name}")

    def is_ready(self) -> bool:
        if self._process.poll() is not None:
            raise RuntimeError(f"{self.name} has ended: {self.log.read_text()[-2000:]}")
        return self.answers()

    def answers(self) -> bool:
        raise NotImplementedError

    def signal(self, number: int) -> None:
        self._process.send_signal(number)

    def wait(self) -> int:
        return self._process.wait(PATIENCE_SECONDS)

    def has_ended(self) -> bool:
        return self._process.poll() is not None

    def kill(self) -> None:
        if self._process and self._process.poll() is None:
            self._process.kill()
            self._process.wait()


def status_of(port: int, path: str) -> int:
    connection = http.client.HTTPConnection(HOST, port, timeout=PATIENCE_SECONDS)
    try:
        connection.request("GET", path)
        return connection.getresponse().status
    except OSError:
        return 0
    finally:
        connection.close()


class Member(Program):
    """A process of the example."""

    def __init__(self, number: int, directory: Path, program: Path, port: int, redis: Path) -> None:
        super().__init__(f"process{number}", directory, [str(program), str(port), str(redis)])
        self.port = port

    def answers(self) -> bool:
        return status_of(self.port, "/ready") == 200

    def traffic(self) -> dict[str, int]:
        connection = http.client.HTTPConnection(HOST, self.port, timeout=PATIENCE_SECONDS)
        connection.request("GET", "/traffic")
        text = connection.getresponse().read().decode()
        connection.close()
        return {name: int(count) for name, count in re.findall(r"(\w+) (\d+)", text)}

    def lines(self, part: str) -> int:
        return self.log.read_text().count(part)


class Redis(Program):
    def __init__(self, directory: Path) -> None:
        self.path = directory / "redis.sock"
        super().__init__(
            "redis", directory,
            ["redis-server", "--port", "0", "--unixsocket", str(self.path), "--save", "", "--appendonly", "no",
             "--dir", str(directory)],
        )

    def answers(self) -> bool:
        with socket.socket(socket.AF_UNIX) as asked:
            try:
                asked.connect(str(self.path))
                asked.sendall(b"PING\r\n")
                return asked.recv(100).startswith(b"+PONG")
            except OSError:
                return False


class Proxy(Program):
    """HAProxy with the example's configuration, at other ports."""

    def __init__(self, directory: Path, configuration: Path, port: int, ports: list[int]) -> None:
        text = configuration.read_text()
        for known, used in zip([8180, 8181, 8182, 8183], [port, *ports]):
            assert text.count(f":{known}") == 1, known
            text = text.replace(f":{known}", f":{used}")
        file = directory / "haproxy.cfg"
        file.write_text(text)
        super().__init__("haproxy", directory, ["haproxy", "-f", str(file)])
        self.port = port

    def answers(self) -> bool:
        return status_of(self.port, "/ready") == 200
