"""The clients of the long run that speak HTTP."""

from __future__ import annotations

import contextlib
import hashlib
import http.client
import json
import socket
from collections.abc import Iterator

from clients import Client, break_off, check, reset
from demo import http_connection

# The demo's downloads: the byte at position i is i mod 251.
PERIOD = 251
PATTERN = bytes(range(PERIOD)) * (1 + (2 << 20) // PERIOD)

GREATEST_UPLOAD = 1 << 20
GREATEST_ECHO = 256 << 10
GREATEST_DOWNLOAD = 2 << 20


def body_of(size: int, phase: int) -> bytes:
    return PATTERN[phase : phase + size]


class HttpClient(Client):
    """Asks over a connection that it keeps, or over a new one each time."""

    keeps = True

    def __init__(self, *arguments: object) -> None:
        super().__init__(*arguments)
        self._kept: http.client.HTTPConnection | None = None

    def ask(
        self, method: str, target: str, body: bytes | Iterator[bytes] | None = None, headers: dict[str, str] | None = None
    ) -> bytes:
        connection = self._kept or http_connection(self.port, self.tls)
        self._kept = connection
        connection.request(method, target, body, headers or {})
        answer = connection.getresponse()
        content = answer.read()
        check(answer.status == 200, f"{method} {target} was answered with {answer.status}")
        if not self.keeps:
            self.disconnect()
        return content

    def disconnect(self) -> None:
        if self._kept:
            self._kept.close()
            self._kept = None


class Getter(HttpClient):
    kind = "small GET"
    period = 0.3

    def act(self) -> None:
        target = self.random.choice(["/hello", "/inline"])
        check(self.ask("GET", target) == b"hello world\n", f"{target} was answered with other bytes")


class Newcomer(Getter):
    kind = "small GET, new connection"
    period = 0.4
    keeps = False


class Inspector(HttpClient):
    kind = "many headers"
    period = 1.0

    def act(self) -> None:
        number = str(self.random.randrange(10**9))
        headers = {f"X-Number-{i}": number for i in range(10)} | {"Cookie": f"a={number}; b=two"}
        seen = json.loads(self.ask("GET", f"/inspect?number={number}&empty", headers=headers))
        check(seen["query"] == {"number": [number], "empty": [""]}, "the query arrived otherwise")
        check(seen["cookies"] == {"a": [number], "b": ["two"]}, "the cookies arrived otherwise")
        check(all(seen["headers"][f"x-number-{i}"] == [number] for i in range(10)), "the headers arrived otherwise")


class Uploader(HttpClient):
    kind = "upload"
    period = 2.0

    def act(self) -> None:
        body = body_of(self.size(GREATEST_UPLOAD), self.random.randrange(PERIOD))
        # An iterator has no length: such a body goes out in chunks.
        sent = body if self.random.random() < 0.5 else iter([body[i : i + 50000] for i in range(0, len(body), 50000)])
        seen = json.loads(self.ask("POST", "/upload", sent))
        check(seen["size"] == len(body), f"of {len(body)} bytes {seen['size']} arrived")
        check(seen["sha256"] == hashlib.sha256(body).hexdigest(), "other bytes arrived")


class EchoPoster(HttpClient):
    kind = "echoed upload"
    period = 2.0

    def act(self) -> None:
        body = body_of(self.size(GREATEST_ECHO), self.random.randrange(PERIOD))
        check(self.ask("POST", "/echo", body) == body, "the echo has other bytes")


class Downloader(HttpClient):
    kind = "download"
    period = 2.0

    def act(self) -> None:
        size = self.size(GREATEST_DOWNLOAD)
        check(self.ask("GET", f"/download?bytes={size}") == PATTERN[:size], "the download has other bytes")


class StreamReader(HttpClient):
    kind = "paced stream"
    period = 6.0

    def act(self) -> None:
        chunks = self.random.randrange(1, 8)
        lines = self.ask("GET", f"/stream?chunks={chunks}&ms=100").decode().splitlines()
        begins = [f"chunk {i} of {chunks} after " for i in range(1, chunks + 1)]
        check(len(lines) == chunks and all(map(str.startswith, lines, begins)), "the stream has other lines")


class PatientOne(HttpClient):
    kind = "slow answer"
    period = 4.0

    def act(self) -> None:
        ms = self.random.randrange(10, 1500)
        answer = self.ask("GET", f"/slow?ms={ms}")
        check(answer.startswith(b"answered after "), "the late answer has other bytes")


class Breaker(Client):
    """Breaks connections off at every stage of an exchange.

    While a request is on its way always with a reset: the engine misses an orderly close that arrives together with
    bytes of a request until the connection's time-out of six minutes (docs/reliability.md), and a worker that reads an
    unfinished upload waits as long. Soon none would be left.
    """

    kind = "broken off"
    period = 0.6

    def act(self) -> None:
        # The server may close first: it answers 4xx to half a head, for example.
        with self.dial() as connection, contextlib.suppress(ConnectionError):
            stage = self.random.choice(
                [self._nothing, self._half_head, self._half_upload, self._unread_download, self._unread_stream, self._late]
            )
            stage(connection)
            if connection.fileno() >= 0:
                break_off(connection, self.random)

    def _nothing(self, connection: socket.socket) -> None:
        pass

    def _half_head(self, connection: socket.socket) -> None:
        head = b"GET /hello?name=value HTTP/1.1\r\nHost: x\r\nCookie: a=b; c=d\r\n\r\n"
        connection.sendall(head[: self.random.randrange(1, len(head))])
        reset(connection)

    def _half_upload(self, connection: socket.socket) -> None:
        target = self.random.choice([b"/upload", b"/echo"])
        connection.sendall(b"POST " + target + b" HTTP/1.1\r\nHost: x\r\nContent-Length: 1000000\r\n\r\n")
        connection.sendall(body_of(self.random.randrange(1, 500000), 0))
        reset(connection)

    def _unread_download(self, connection: socket.socket) -> None:
        connection.sendall(b"GET /download?bytes=2000000 HTTP/1.1\r\nHost: x\r\n\r\n")
        connection.recv(self.random.randrange(1, 100000))

    def _unread_stream(self, connection: socket.socket) -> None:
        connection.sendall(b"GET /stream?chunks=20&ms=20 HTTP/1.1\r\nHost: x\r\n\r\n")
        connection.recv(self.random.randrange(1, 300))

    def _late(self, connection: socket.socket) -> None:
        connection.sendall(b"GET /slow?ms=500 HTTP/1.1\r\nHost: x\r\n\r\n")
