"""The clients of the long run: threads that do one thing again and again, at a modest pace, and verify every answer."""

from __future__ import annotations

import random
import socket
import ssl
import struct
import threading
import time
import traceback
from collections import Counter

from demo import dial


class WrongAnswer(Exception):
    """An answer of other bytes than it should be."""


def check(holds: bool, what: str) -> None:
    if not holds:
        raise WrongAnswer(what)


class Tally:
    """What the clients have done, by kind. Any thread."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._done: Counter[str] = Counter()
        self._errors: list[str] = []

    def did(self, kind: str) -> None:
        with self._lock:
            self._done[kind] += 1

    def failed(self, kind: str) -> None:
        """Notes the exception that is being handled."""
        with self._lock:
            self._errors.append(f"{kind}: {traceback.format_exc(limit=-3).strip()}")

    def done(self) -> Counter[str]:
        with self._lock:
            return Counter(self._done)

    def errors(self) -> list[str]:
        with self._lock:
            return list(self._errors)


class Client(threading.Thread):
    """Acts about every `period` seconds until it is told to stop. Any exception of a client is an error of the server:
    those that break off on purpose expect what then happens to them."""

    kind = ""
    period = 1.0

    def __init__(
        self, port: int, tls: ssl.SSLContext | None, seed: str, tally: Tally, stopping: threading.Event, warm_up_end: float
    ) -> None:
        super().__init__(name=self.kind, daemon=True)
        self.port = port
        self.tls = tls
        self.random = random.Random(seed)
        self._tally = tally
        self._stopping = stopping
        self._warm_up_end = warm_up_end

    def run(self) -> None:
        # They don't all begin at once.
        self.wait(self.random.uniform(0, self.period))
        while not self._stopping.is_set():
            try:
                self.act()
                self._tally.did(self.kind)
            except Exception:
                self._tally.failed(self.kind)
                self.disconnect()
            self.wait(self.period * self.random.uniform(0.5, 1.5))
        self.disconnect()

    def act(self) -> None:
        raise NotImplementedError

    def dial(self) -> socket.socket:
        return dial(self.port, self.tls)

    def wait(self, seconds: float) -> None:
        """Waits, but for no longer than the run lasts."""
        self._stopping.wait(seconds)

    def disconnect(self) -> None:
        """Lets go of a connection that is kept between acts."""

    def size(self, greatest: int) -> int:
        """Bytes of a body: small ones as often as large ones. While the server warms up mostly the largest, so that its
        allocator has seen the worst when the watch begins."""
        if time.monotonic() < self._warm_up_end and self.random.random() < 0.7:
            return greatest
        return min(greatest, int(2 ** self.random.uniform(0, greatest.bit_length())))


class KeepingClient(Client):
    """Keeps a connection from one act to the next."""

    def __init__(self, *arguments: object) -> None:
        super().__init__(*arguments)
        self._connection = None

    def connect(self):
        """A connection, which has close()."""
        raise NotImplementedError

    def connection(self):
        if not self._connection:
            self._connection = self.connect()
        return self._connection

    def disconnect(self) -> None:
        if self._connection:
            self._connection.close()
            self._connection = None


def read_exactly(connection: socket.socket, size: int) -> bytes:
    data = bytearray()
    while len(data) < size:
        piece = connection.recv(min(size - len(data), 1 << 18))
        check(piece != b"", f"the connection ended after {len(data)} of {size} bytes")
        data += piece
    return bytes(data)


def reset(connection: socket.socket) -> None:
    """Closes so that the system sends a reset."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def break_off(connection: socket.socket, chance: random.Random) -> None:
    """Ends a connection without manners, one way or the other."""
    if chance.random() < 0.5:
        reset(connection)
    else:
        connection.close()
