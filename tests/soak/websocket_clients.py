"""The clients of the long run that speak the WebSocket protocol of a server with the library's defaults."""

from __future__ import annotations

import base64
import contextlib
import hashlib
import os
import socket
import struct

import wire
from clients import Client, KeepingClient, break_off, check, read_exactly
from http_clients import PATTERN, PERIOD
from wire import BINARY, CONTINUATION, TEXT

GREATEST_MESSAGE = 512 << 10
GUID = b"258EAFA5-E914-47DA-95CA-C5AB0DC85B11"


def handshake(connection: socket.socket) -> None:
    key = base64.b64encode(os.urandom(16))
    connection.sendall(
        b"GET /ws HTTP/1.1\r\nHost: x\r\nUpgrade: WebSocket\r\nConnection: Upgrade\r\n"
        b"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + key + b"\r\n\r\n"
    )
    # Nothing follows the head: the server speaks only when it is spoken to.
    head = b""
    while not head.endswith(b"\r\n\r\n"):
        piece = connection.recv(4096)
        check(piece != b"", "the connection ended inside the opening handshake")
        head += piece
    accept = base64.b64encode(hashlib.sha1(key + GUID).digest())
    check(head.startswith(b"HTTP/1.1 101 ") and b"Sec-WebSocket-Accept: " + accept in head, "a bad opening handshake")


def frame(opcode: int, payload: bytes, final: bool = True) -> bytes:
    return wire.frame(opcode, payload, final, key=os.urandom(4))


def read_message(connection: socket.socket) -> tuple[int, bytes]:
    message = b""
    opcode = None
    while True:
        first, length = read_exactly(connection, 2)
        opcode = first & 0x0F if opcode is None else opcode
        if length == 126:
            (length,) = struct.unpack(">H", read_exactly(connection, 2))
        elif length == 127:
            (length,) = struct.unpack(">Q", read_exactly(connection, 8))
        message += read_exactly(connection, length)
        if first & 0x80:
            return opcode, message


def pieces_of(message: bytes, count: int) -> list[bytes]:
    step = max(1, -(-len(message) // count))
    return [message[i : i + step] for i in range(0, len(message), step)] or [b""]


class WebSocketClient(KeepingClient):
    def connect(self) -> socket.socket:
        connection = self.dial()
        handshake(connection)
        return connection


class Echoer(WebSocketClient):
    """Has messages echoed, whole and in fragments."""

    kind = "WebSocket echo"
    period = 0.2
    greatest = 2000

    def act(self) -> None:
        connection = self.connection()
        opcode = self.random.choice([TEXT, BINARY])
        phase = self.random.randrange(PERIOD)
        message = PATTERN[phase : phase + self.size(self.greatest)]
        pieces = pieces_of(message, self.random.choice([1, 1, 3]))
        for i, piece in enumerate(pieces):
            connection.sendall(frame(CONTINUATION if i else opcode, piece, i == len(pieces) - 1))
        check(read_message(connection) == (opcode, message), "the echo is another message")


class GreatEchoer(Echoer):
    kind = "WebSocket echo, up to 512 KiB"
    period = 2.0
    greatest = GREATEST_MESSAGE


class PassingEchoer(Echoer):
    kind = "WebSocket echo, new connection"
    period = 0.6

    def act(self) -> None:
        super().act()
        self.disconnect()


class Idler(WebSocketClient):
    """Looks on at a connection on which nothing ever happens."""

    kind = "idle WebSocket"
    period = 10.0

    def act(self) -> None:
        connection = self.connection()
        connection.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            connection.recv(1)
            check(False, "an idle connection was closed, or written to")


class WebSocketBreaker(Client):
    """Breaks WebSockets off at every stage."""

    kind = "WebSocket broken off"
    period = 0.8

    def act(self) -> None:
        # The server may close first: it does so at a frame that it rejects.
        with self.dial() as connection, contextlib.suppress(ConnectionError):
            handshake(connection)
            stage = self.random.choice(
                [self._nothing, self._half_frame, self._half_message, self._unread_echo, self._rejected_frame]
            )
            stage(connection)
            break_off(connection, self.random)

    def _nothing(self, connection: socket.socket) -> None:
        pass

    def _half_frame(self, connection: socket.socket) -> None:
        whole = frame(BINARY, PATTERN[:100000])
        connection.sendall(whole[: self.random.choice([1, 3, 9, 50000])])

    def _half_message(self, connection: socket.socket) -> None:
        connection.sendall(frame(BINARY, PATTERN[:3000], final=False))

    def _unread_echo(self, connection: socket.socket) -> None:
        connection.sendall(frame(BINARY, PATTERN[:GREATEST_MESSAGE]))
        connection.recv(self.random.randrange(1, 100000))

    def _rejected_frame(self, connection: socket.socket) -> None:
        connection.sendall(frame(3, b"abc"))
        check(connection.recv(1) == b"", "a rejected frame was answered")
