"""Servers that end while they are asked: every request that one has taken is answered."""

from __future__ import annotations

import json
import random
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path

from processes import BenchError, Server

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tests" / "support"))
from websocket import CLOSE, WebSocket  # noqa: E402

DRAIN_SECONDS = 10
LISTENING_SECONDS = 20
UPLOAD_BYTES = 3_000_000
UPLOAD_HEAD = b"PUT /upload HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: %d\r\n\r\n" % UPLOAD_BYTES
GOING_AWAY = b"\x03\xe9"


def start_load(port: int, connections: int) -> subprocess.Popen:
    """wrk, until it is interrupted."""
    script = Path(__file__).parent.parent / "client" / "load.lua"
    command = ["wrk", "-t1", f"-c{connections}", "-d600s", "--timeout", "10s"]
    command += ["-s", str(script), f"http://127.0.0.1:{port}/"]
    return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)


def end_load(load: subprocess.Popen) -> dict[str, float]:
    load.send_signal(signal.SIGINT)
    output = load.communicate(timeout=DRAIN_SECONDS)[0]
    return json.loads(output[output.index("RESULT") + len("RESULT") :])


class Client(threading.Thread):
    """Asks until nobody accepts it any more."""

    def __init__(self, port: int) -> None:
        super().__init__(daemon=True)
        self.port = port
        self.answered = 0
        self.failures: list[str] = []
        self.start()

    def run(self) -> None:
        try:
            while True:
                self.visit()
        except ConnectionRefusedError:
            pass
        except OSError as error:
            self.failures.append(f"{type(self).__name__}: {error}")

    def connect(self) -> socket.socket:
        return socket.create_connection(("127.0.0.1", self.port), timeout=DRAIN_SECONDS)

    def visit(self) -> None:
        """Makes a connection and uses it to its end. Counts the answers."""
        raise NotImplementedError


class Uploader(Client):
    def visit(self) -> None:
        with self.connect() as connection:
            head = b""
            while b"connection: close" not in head.lower():
                connection.sendall(UPLOAD_HEAD + bytes(UPLOAD_BYTES))
                answer = b""
                while not answer.endswith(b"damaged %d" % UPLOAD_BYTES):
                    piece = connection.recv(65536)
                    if not piece:
                        raise ConnectionError("the server has closed the connection")
                    answer += piece
                head = answer.partition(b"\r\n\r\n")[0]
                self.answered += 1


class Listener(Client):
    def visit(self) -> None:
        with self.connect() as connection:
            connection.sendall(b"GET /events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            answer = b""
            # One that was ended before it began has a length.
            while not answer.endswith((b"\r\n0\r\n\r\n", b"\r\n\r\n:\n\n")):
                piece = connection.recv(65536)
                if not piece:
                    raise ConnectionError("the server has cut a stream")
                answer += piece
            self.answered += 1


class Talker(Client):
    """Counts WebSockets that were told of the end."""

    def visit(self) -> None:
        web_socket = WebSocket(self.port)
        message = (None, b"")
        while message[0] != CLOSE:
            web_socket.send(b"echo")
            message = web_socket.receive()
        if message[1][:2] != GOING_AWAY:
            raise ConnectionError(f"a WebSocket is closed with {message[1]!r}")
        web_socket.send(message[1], CLOSE)
        web_socket.close()
        self.answered += 1


def drains(context, _: Server) -> dict[str, float]:
    """Each with a server of its own."""
    count = context.pick(10, 300)
    result = {"drains": float(count), "requests": 0.0, "web_sockets": 0.0, "lost": 0.0, "cut": 0.0, "broken": 0.0}
    for _ in range(count):
        server = context.start("--drain-ms", str(DRAIN_SECONDS * 1000))
        load = start_load(server.port, 32)
        clients = [kind(server.port) for kind in (Uploader, Listener, Talker) for _ in range(3)]
        time.sleep(random.uniform(0.2, 0.6))
        report = server.end(2 * DRAIN_SECONDS)
        loaded = end_load(load)
        for client in clients:
            client.join(DRAIN_SECONDS)
            if client.is_alive():
                client.failures.append(f"{type(client).__name__}: no end")
        failures = [failure for client in clients for failure in client.failures]
        for failure in failures:
            print(f"bench: {failure}", file=sys.stderr)
        answered = sum(client.answered for client in clients if not isinstance(client, Talker))
        result["requests"] += report["requests"]
        result["web_sockets"] += sum(client.answered for client in clients if isinstance(client, Talker))
        result["lost"] += abs(report["requests"] - loaded["requests"] - answered)
        result["cut"] += report["cut"]
        result["broken"] += loaded["lost"] + len(failures)
    return result


# ---- A rolling restart ----

PROXY = """
global
    stats socket unix@{scratch}/haproxy.socket level admin
defaults
    mode http
    timeout connect 5s
    timeout client 60s
    timeout server 60s
frontend world
    bind 127.0.0.1:{port}
    default_backend servers
backend servers
    option httpchk GET /health
    http-check expect status 200
    http-reuse safe
    default-server check inter 100ms fall 1 rise 1
    server first 127.0.0.1:{first}
    server second 127.0.0.1:{second}
"""
GRACE_MS = 1000


def _await_server(scratch: Path, name: str) -> None:
    """Waits until the proxy sends requests there."""
    deadline = time.monotonic() + LISTENING_SECONDS
    while time.monotonic() < deadline:
        with socket.socket(socket.AF_UNIX) as connection:
            if connection.connect_ex(str(scratch / "haproxy.socket")) == 0:
                connection.sendall(b"show stat\n")
                table = b""
                while piece := connection.recv(65536):
                    table += piece
                rows = [line.split(",") for line in table.decode().splitlines()]
                if any(row[:2] == ["servers", name] and row[17] == "UP" for row in rows):
                    return
        time.sleep(0.05)
    raise BenchError(f"the proxy does not see the {name} server")


def rolling_restart(context, _: Server) -> dict[str, float]:
    options = ("--drain-ms", str(DRAIN_SECONDS * 1000), "--grace-ms", str(GRACE_MS))
    servers = {name: context.start(*options) for name in ("first", "second")}
    port = context.ports.take(1)
    configuration = context.scratch / "haproxy.cfg"
    configuration.write_text(
        PROXY.format(scratch=context.scratch, port=port, first=servers["first"].port, second=servers["second"].port)
    )
    program = shutil.which("haproxy", path="/usr/sbin:/usr/bin")
    with (context.scratch / "haproxy.log").open("wb") as log:
        proxy = subprocess.Popen([program, "-db", "-f", str(configuration)], stdout=log, stderr=log)
    result = {"restarts": 0.0, "cut": 0.0}
    try:
        for name in servers:
            _await_server(context.scratch, name)
        load = start_load(port, 32)
        begin = time.monotonic()
        while time.monotonic() < begin + context.pick(5, 30):
            for name, server in servers.items():
                result["cut"] += server.end(2 * DRAIN_SECONDS)["cut"]
                servers[name] = context.start(*options, port=server.port)
                _await_server(context.scratch, name)
                result["restarts"] += 1
        loaded = end_load(load)
    finally:
        proxy.terminate()
        proxy.wait()
    return {**result, "requests": loaded["requests"], "failed": loaded["errors"]}
