"""Clients of the cluster: WebSockets by the thousand, in one thread."""

from __future__ import annotations

import asyncio
import base64
import os
import random
import struct

HOST = "127.0.0.1"
TEXT, CLOSE, PING, PONG = 1, 8, 9, 10
# Far more than anything takes, so that a busy machine is no error.
PATIENCE_SECONDS = 60


def frame(opcode: int, payload: bytes) -> bytes:
    """One masked frame of less than 64 KiB; the mask is zero, which changes nothing."""
    size = len(payload)
    length = struct.pack("!B", 0x80 | size) if size < 126 else struct.pack("!BH", 0x80 | 126, size)
    return bytes([0x80 | opcode]) + length + b"\0\0\0\0" + payload


def handshake(room: str) -> bytes:
    key = base64.b64encode(os.urandom(16)).decode()
    return (
        f"GET /rooms/{room} HTTP/1.1\r\nHost: {HOST}\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
        f"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: {key}\r\n\r\n"
    ).encode()


class Member(asyncio.Protocol):
    """One in a room. What it gets is "SENDER NUMBER" but for the welcome."""

    def __init__(self, room: str) -> None:
        self.room = room
        self.entered: asyncio.Future[bool] = asyncio.get_running_loop().create_future()
        self.gone: asyncio.Future[int] = asyncio.get_running_loop().create_future()
        # By sender, all numbers in the order in which they came.
        self.numbers: dict[str, list[int]] = {}
        self.count = 0
        self._buffer = b""
        self._is_open = False
        self._code = 1006
        self._transport: asyncio.Transport | None = None

    def connection_made(self, transport) -> None:
        self._transport = transport
        transport.write(handshake(self.room))

    def data_received(self, data: bytes) -> None:
        self._buffer += data
        if not self._is_open:
            head, end, rest = self._buffer.partition(b"\r\n\r\n")
            if not end:
                return
            self._buffer = rest
            if b" 101 " not in head.split(b"\r\n")[0]:
                self._transport.close()
                return
            self._is_open = True
        self._take_frames()

    def _take_frames(self) -> None:
        begin = 0
        while len(self._buffer) - begin >= 2:
            size, at = self._buffer[begin + 1], begin + 2
            if size == 126:
                if len(self._buffer) < at + 2:
                    break
                (size,) = struct.unpack_from("!H", self._buffer, at)
                at += 2
            if len(self._buffer) < at + size:
                break
            self._take(self._buffer[begin] & 15, self._buffer[at : at + size])
            begin = at + size
        self._buffer = self._buffer[begin:]

    def _take(self, opcode: int, payload: bytes) -> None:
        if opcode == PING:
            self._transport.write(frame(PONG, payload))
        elif opcode == CLOSE:
            self._code = struct.unpack("!H", payload[:2])[0] if payload else 1005
            self._transport.write(frame(CLOSE, payload[:2]))
        elif opcode == TEXT and payload == b"welcome":
            self.entered.set_result(True)
        elif opcode == TEXT:
            sender, _, number = payload.decode().partition(" ")
            self.numbers.setdefault(sender, []).append(int(number))
            self.count += 1

    def connection_lost(self, _error) -> None:
        if not self.entered.done():
            self.entered.set_result(False)
        self.gone.set_result(self._code)

    def say(self, text: str) -> None:
        self._transport.write(frame(TEXT, text.encode()))

    def leave(self) -> None:
        self._transport.abort()


async def enter(port: int, room: str) -> Member | None:
    """@return none when it is refused."""
    loop = asyncio.get_running_loop()
    try:
        _, member = await loop.create_connection(lambda: Member(room), HOST, port)
    except OSError:
        return None
    return member if await asyncio.wait_for(member.entered, PATIENCE_SECONDS) else None


async def come_back(port: int, room: str) -> tuple[Member, int]:
    """As a client should: after a pause that is another for each. @return the member, and how often it was refused."""
    for refusals in range(1000):
        await asyncio.sleep(random.uniform(0, 0.5))
        member = await enter(port, room)
        if member:
            return member, refusals
    raise RuntimeError("nobody lets us in")
