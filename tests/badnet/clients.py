"""The clients behind the bad paths. What reaches them is right to the byte, or ends where the path was cut."""

from __future__ import annotations

import base64
import contextlib
import hashlib
import itertools
import json
import random
import socket
import ssl
import threading
import traceback
from collections import Counter
from collections.abc import Callable, Iterator

import opening
import wire
from paths import GOOD, HOST, Fate, Line, Network, Path, reset, size
from peer import Peer

# Far more than anything takes that is not cut, so that a busy machine is no error.
PATIENCE_SECONDS = 60
# Of a client whose path goes silent: it is the only one to notice.
SHORT_PATIENCE_SECONDS = 3.5

# The demo's downloads: the byte at position i is i mod 251.
PERIOD = 251
GREATEST = 1 << 17
PATTERN = bytes(range(PERIOD)) * (2 + GREATEST // PERIOD)

GREATEST_MESSAGE = 20000
OCTETS = wire.octets(GREATEST_MESSAGE)
DEFLATE_OR_NOT = [opening.PLAIN, opening.offering("permessage-deflate")]


class Wrong(Exception):
    """Other bytes came than should have."""


class Ended(Exception):
    """The connection ended before the exchange did."""


def check(holds: bool, what: str) -> None:
    if not holds:
        raise Wrong(what)


class Tally:
    """What came of the exchanges, by kind. Any thread."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self.right: Counter[str] = Counter()
        self.cut: Counter[str] = Counter()
        self.errors: list[str] = []
        # Of the requests that were answered to the last byte.
        self.answered: set[int] = set()
        self._numbers = itertools.count()

    def number(self) -> int:
        """For a request, by which the server's records know it."""
        return next(self._numbers)

    def was_answered(self, number: int) -> None:
        with self._lock:
            self.answered.add(number)

    def ended(self, kind: str, is_right: bool) -> None:
        with self._lock:
            (self.right if is_right else self.cut)[kind] += 1

    def failed(self, kind: str, line: Line) -> None:
        """Notes the exception that is being handled."""
        with self._lock:
            self.errors.append(f"{kind} on {line}: {traceback.format_exc(limit=-3).strip()}")


class HttpEnd:
    """A client's end of a connection: requests out, answers in, each byte in its place."""

    def __init__(self, connection: socket.socket, tally: Tally) -> None:
        self.socket = connection
        self._tally = tally
        self._buffer = b""
        self._number = 0

    def request(self, method: str, target: str, fields: str = "", body: bytes = b"") -> None:
        self._number = self._tally.number()
        target += f"{'&' if '?' in target else '?'}exchange={self._number}"
        head = f"{method} {target} HTTP/1.1\r\nHost: x\r\n{fields}\r\n".encode()
        # The server may have ended the connection, which the answer, or none, then shows.
        with contextlib.suppress(OSError):
            self.socket.sendall(head + body)

    def answer(self) -> Iterator[bytes]:
        """The body of the answer, as it comes."""
        status, *fields = self.head()
        check(status.startswith("HTTP/1.1 200 "), f"the answer is {status!r}")
        values = dict(field.lower().split(": ", 1) for field in fields)
        if values.get("transfer-encoding") == "chunked":
            yield from self._chunks()
        else:
            yield from self.exactly(int(values["content-length"]))
        self._tally.was_answered(self._number)

    def whole_answer(self) -> bytes:
        return b"".join(self.answer())

    def head(self) -> list[str]:
        while b"\r\n\r\n" not in self._buffer:
            self._receive()
        head, _, self._buffer = self._buffer.partition(b"\r\n\r\n")
        return head.decode().split("\r\n")

    def _chunks(self) -> Iterator[bytes]:
        while length := int(self._line(), 16):
            yield from self.exactly(length)
            check(self._line() == b"", "a chunk has no end")
        check(self._line() == b"", "there is a trailer")

    def _line(self) -> bytes:
        while b"\r\n" not in self._buffer:
            self._receive()
        line, _, self._buffer = self._buffer.partition(b"\r\n")
        return line

    def exactly(self, length: int) -> Iterator[bytes]:
        while length:
            if not self._buffer:
                self._receive()
            piece, self._buffer = self._buffer[:length], self._buffer[length:]
            length -= len(piece)
            yield piece

    def _receive(self) -> None:
        try:
            piece = self.socket.recv(1 << 16)
        except OSError as error:
            raise Ended(str(error)) from None
        if not piece:
            raise Ended("the end")
        self._buffer += piece


def check_prefixes(pieces: Iterator[bytes], expected: bytes) -> None:
    """Each byte when it comes, so that those before a cut are looked at, too."""
    position = 0
    for piece in pieces:
        check(expected[position : position + len(piece)] == piece, f"other bytes came at {position}")
        position += len(piece)
    check(position == len(expected), f"{position} of {len(expected)} bytes came")


class Client(threading.Thread):
    """Acts until it is told to stop, or so often, each time over a path that its seed chooses."""

    kind = ""
    # It ends its sending before the answer, which the server may take for its leave.
    may_be_left = False

    def __init__(
        self, network: Network, seed: str, tally: Tally, stopping: threading.Event, draw: Callable[[random.Random], Path],
        acts: int, tls: ssl.SSLContext | None,
    ) -> None:
        super().__init__(name=self.kind, daemon=True)
        self.random = random.Random(seed)
        self.tally = tally
        self._tls = tls
        self._network = network
        self._stopping = stopping
        self._draw = draw
        self._acts = acts

    def run(self) -> None:
        for _ in range(self._acts) if self._acts else itertools.count():
            if self._stopping.is_set():
                return
            self._act_once(self._draw(self.random))

    def act_at_the_end(self, path: Path) -> None:
        """Once more, over this path, while the server is stopped: it may be cut off. Any thread."""
        self._act_once(path, may_be_cut=True)

    def _act_once(self, path: Path, may_be_cut: bool = False) -> None:
        patience = SHORT_PATIENCE_SECONDS if path.fate is Fate.SILENCE else PATIENCE_SECONDS
        connection, line = self._network.connect(path, patience)
        try:
            try:
                if self._tls:
                    connection = self._tls.wrap_socket(connection, server_hostname=HOST)
            except OSError as error:
                raise Ended(str(error)) from None
            self.act(connection)
            self.tally.ended(self.kind, True)
        except Ended:
            if may_be_cut or self.may_be_left or line.is_cut:
                self.tally.ended(self.kind, False)
            else:
                self.tally.failed(self.kind, line)
        except Exception:
            self.tally.failed(self.kind, line)
        finally:
            self.leave(connection)

    def leave(self, connection: socket.socket) -> None:
        if self.random.random() < 0.3:
            reset(connection)
        else:
            connection.close()

    def act(self, connection: socket.socket) -> None:
        raise NotImplementedError


class Getter(Client):
    kind = "GETs"

    def act(self, connection: socket.socket) -> None:
        end = HttpEnd(connection, self.tally)
        for _ in range(self.random.randrange(1, 5)):
            end.request("GET", self.random.choice(["/hello", "/inline"]))
            check_prefixes(end.answer(), b"hello world\n")


class Uploader(Client):
    kind = "uploads"

    def act(self, connection: socket.socket) -> None:
        end = HttpEnd(connection, self.tally)
        phase = self.random.randrange(PERIOD)
        body = PATTERN[phase : phase + size(self.random, GREATEST)]
        target = self.random.choice(["/upload", "/echo"])
        if self.random.random() < 0.5:
            end.request("POST", target, f"Content-Length: {len(body)}\r\n", body)
        else:
            cut = self.random.randrange(1, len(body) + 1)
            chunks = b"".join(b"%x\r\n%s\r\n" % (len(part), part) for part in (body[:cut], body[cut:], b"") if part)
            end.request("POST", target, "Transfer-Encoding: chunked\r\n", chunks + b"0\r\n\r\n")
        if target == "/echo":
            check_prefixes(end.answer(), body)
        else:
            expected = {"size": len(body), "sha256": hashlib.sha256(body).hexdigest()}
            check(json.loads(end.whole_answer()) == expected, "other bytes were received")


class Downloader(Client):
    kind = "downloads"

    def act(self, connection: socket.socket) -> None:
        end = HttpEnd(connection, self.tally)
        length = size(self.random, GREATEST)
        end.request("GET", f"/download?bytes={length}")
        check_prefixes(end.answer(), PATTERN[:length])


class StreamReader(Client):
    kind = "paced streams"

    def act(self, connection: socket.socket) -> None:
        end = HttpEnd(connection, self.tally)
        chunks = self.random.randrange(1, 6)
        end.request("GET", f"/stream?chunks={chunks}&ms=50")
        lines = end.whole_answer().decode().splitlines()
        begins = [f"chunk {i} of {chunks} after " for i in range(1, chunks + 1)]
        check(len(lines) == chunks and all(map(str.startswith, lines, begins)), "the stream has other lines")


class PatientOne(Client):
    kind = "late answers"

    def act(self, connection: socket.socket) -> None:
        end = HttpEnd(connection, self.tally)
        end.request("GET", f"/slow?ms={self.random.randrange(10, 800)}")
        check(end.whole_answer().startswith(b"answered after "), "the late answer has other bytes")


class HalfCloser(Client):
    kind = "half-closed"
    may_be_left = True

    def act(self, connection: socket.socket) -> None:
        end = HttpEnd(connection, self.tally)
        target, expected = self.random.choice(
            [("/inline", b"hello world\n"), ("/hello", b"hello world\n"), (f"/download?bytes={GREATEST}", PATTERN[:GREATEST])]
        )
        end.request("GET", target)
        with contextlib.suppress(OSError):
            connection.shutdown(socket.SHUT_WR)
        check_prefixes(end.answer(), expected)


class Listener(Client):
    """Hears every event from its first one on, in order."""

    kind = "event streams"

    def act(self, connection: socket.socket) -> None:
        end = HttpEnd(connection, self.tally)
        end.request("GET", "/events")
        wanted = self.random.randrange(1, 15)
        text = b""
        for piece in end.answer():
            text += piece
            # All but the last one are whole.
            events = [int(event.split()[1]) for event in text.split(b"\n\n")[:-1] if event.startswith(b"data: ")]
            check(events == list(range(events[0], events[0] + len(events))) if events else True, f"the events are {events}")
            if len(events) >= wanted:
                return


class SessionEchoer(Client):
    kind = "WebSockets"

    def act(self, connection: socket.socket) -> None:
        target = opening.Target("ws", HOST, connection.getpeername()[1], "/ws")
        peer = Peer(target, connected=connection)
        try:
            peer.open(self.random.choice(DEFLATE_OR_NOT))
        except wire.BrokenRule as problem:
            # Cut inside the handshake.
            raise (Ended if "ended without an answer" in str(problem) else Wrong)(str(problem)) from None
        except TimeoutError as error:
            raise Ended(str(error)) from None
        for _ in range(self.random.randrange(1, 4)):
            message = OCTETS[: size(self.random, GREATEST_MESSAGE)]
            payload, bits = peer.payload_of(message)
            cut = self.random.randrange(len(payload) + 1)
            for frame in wire.fragments(wire.BINARY, wire.split_at(payload, cut), bits):
                peer.send(frame)
            self._expect(peer, wire.Message(wire.BINARY, message))
        peer.send(wire.close_frame(1000))
        self._expect(peer, wire.Close(1000))
        self._expect(peer, wire.End())

    @staticmethod
    def _expect(peer: Peer, event: object) -> None:
        try:
            came = peer.next_event()
        except TimeoutError as error:
            raise Ended(str(error)) from None
        except wire.BrokenRule as problem:
            raise (Ended if "ended inside" in str(problem) else Wrong)(str(problem)) from None
        if came == wire.End() != event:
            raise Ended("the end")
        check(came == event, f"{came} came instead of {event}")


class DefinedEchoer(Client):
    """Speaks the protocol of the library's defaults."""

    kind = "WebSockets"

    def act(self, connection: socket.socket) -> None:
        key = base64.b64encode(self.random.randbytes(16)).decode()
        end = HttpEnd(connection, self.tally)
        try:
            connection.sendall(
                b"GET /ws HTTP/1.1\r\nHost: x\r\nUpgrade: WebSocket\r\nConnection: Upgrade\r\n"
                b"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + key.encode() + b"\r\n\r\n"
            )
            check(end.head()[0].startswith("HTTP/1.1 101 "), "the WebSocket was refused")
            for _ in range(self.random.randrange(1, 4)):
                message = OCTETS[: size(self.random, GREATEST_MESSAGE)]
                connection.sendall(wire.frame(wire.BINARY, message))
                short, extended = wire.length_field(len(message))
                expected = bytes([0x80 | wire.BINARY, short]) + extended + message
                check_prefixes(end.exactly(len(expected)), expected)
        except OSError as error:
            raise Ended(str(error)) from None


class Publisher(threading.Thread):
    """Publishes events, each with a number, over a connection of its own that is a good one."""

    PERIOD_SECONDS = 0.05
    # The demo takes 8192 bytes.
    FILLING = b" " * 8000

    def __init__(self, network: Network, tally: Tally, tls: ssl.SSLContext | None, stopping: threading.Event) -> None:
        super().__init__(name="publisher", daemon=True)
        self._network = network
        self._tally = tally
        self._tls = tls
        self._stopping = stopping
        self._count = 0
        self.error = ""

    def run(self) -> None:
        try:
            while not self._stopping.wait(self.PERIOD_SECONDS):
                self.publish()
        except Exception:
            self.error = traceback.format_exc(limit=-3)

    def publish(self, filling: bytes = b"") -> None:
        connection, _ = self._network.connect(GOOD, PATIENCE_SECONDS)
        if self._tls:
            connection = self._tls.wrap_socket(connection, server_hostname=HOST)
        with connection:
            end = HttpEnd(connection, self._tally)
            text = b"%d" % self._count + filling
            end.request("POST", "/events", f"Content-Length: {len(text)}\r\n", text)
            end.whole_answer()
        self._count += 1
