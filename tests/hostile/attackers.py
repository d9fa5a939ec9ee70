"""Thousands of clients of one hostile kind, each an endless task: attackers.py KIND PORT COUNT. When all of them are
there it prints a line; for a line that it reads it prints what they have done, as JSON, and goes on until its input
ends."""

from __future__ import annotations

import asyncio
import base64
import json
import random
import socket
import ssl
import struct
import sys
import zlib
from collections import Counter
from collections.abc import Awaitable, Callable

import wire
from processes import raise_descriptor_limit

HOST = "127.0.0.1"
# So many at once are on their way to be connected.
CONNECTING = 200
STAGGER_SECONDS = 2
# Many, since a connection that ends keeps its port for a minute.
SOURCE_ADDRESSES = 50

UPLOAD = b"POST /upload HTTP/1.1\r\nHost: x\r\nContent-Length: 1000000\r\n\r\n"
# Just above the least that systems have.
SMALL_BUFFER = 4096
# Heads for which there is room, and of 100,000 bytes, for which there is none.
MANY_FIELDS = [b"".join(b"X-Number-%d: %d\r\n" % (i, i) for i in range(count)) for count in (250, 5000)]
# As many as are served, more than that, and more than a field has room for.
MANY_RANGES = [b",".join(b"%d-%d" % (2 * i, 2 * i) for i in range(count)) for count in (16, 800, 2000)]
PINGS = wire.frame(wire.PING, b"p" * 125) * 10
FRAGMENTS = wire.frame(wire.CONTINUATION, b"", fin=False) * 9 + wire.frame(wire.CONTINUATION, b"f", fin=False)
BOMB_BYTES = 64 << 20


class Attack:
    """One kind of clients."""

    def __init__(self, port: int) -> None:
        self.counts: Counter[str] = Counter()
        self._port = port
        self._loop = asyncio.get_running_loop()
        self._connecting = asyncio.Semaphore(CONNECTING)
        self._there = 0
        self._all_there = asyncio.Event()
        deflater = zlib.compressobj(wbits=-15)
        bomb = deflater.compress(bytes(BOMB_BYTES)) + deflater.flush(zlib.Z_SYNC_FLUSH)
        self._tls = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        self._bomb = wire.frame(wire.BINARY, bomb[:-4], rsv=wire.RSV1)

    async def hold(self, count: int, act: Callable[[socket.socket], Awaitable[None]]) -> list[asyncio.Task]:
        """Starts the clients. Returns when each has got its first connection."""
        tasks = [self._loop.create_task(self._client(act, count)) for _ in range(count)]
        await self._all_there.wait()
        return tasks

    async def _client(self, act: Callable[[socket.socket], Awaitable[None]], count: int) -> None:
        is_first = True
        while True:
            connection = socket.socket()
            try:
                connection.setblocking(False)
                if act == self.slow_readers:
                    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, SMALL_BUFFER)
                connection.setsockopt(socket.IPPROTO_IP, 24, 1)  # IP_BIND_ADDRESS_NO_PORT
                connection.bind((f"127.0.0.{2 + random.randrange(SOURCE_ADDRESSES)}", 0))
                async with self._connecting:
                    await self._loop.sock_connect(connection, (HOST, self._port))
                self.counts["connections"] += 1
                if is_first:
                    is_first = False
                    self._there += 1
                    if self._there == count:
                        self._all_there.set()
                    # They don't all act at once.
                    await asyncio.sleep(random.uniform(0, STAGGER_SECONDS))
                await act(connection)
            except OSError:
                self.counts["cut off by the server"] += 1
            finally:
                connection.close()
            await asyncio.sleep(random.uniform(0, 1))

    async def _send(self, connection: socket.socket, data: bytes, what: str = "") -> None:
        await self._loop.sock_sendall(connection, data)
        if what:
            self.counts[what] += 1

    async def _end_of(self, connection: socket.socket, data: bytes) -> bytes:
        """Reads on until the data ends with that, and for nothing until the connection ends."""
        received = b""
        while not data or not received.endswith(data):
            piece = await self._loop.sock_recv(connection, 1 << 16)
            if not piece:
                raise ConnectionError
            received = (received + piece)[-(1 << 16) :]
        return received

    async def _answer(self, connection: socket.socket) -> None:
        """Reads an answer that has a length."""
        received = b""
        length = None
        while length is None or len(received) < length:
            piece = await self._loop.sock_recv(connection, 1 << 16)
            if not piece:
                raise ConnectionError
            received += piece
            if length is None and b"\r\n\r\n" in received:
                head = received.partition(b"\r\n\r\n")[0].lower()
                length = len(head) + 4 + int(head.partition(b"content-length: ")[2].split(b"\r\n")[0])
                self.counts[head.split()[1].decode()] += 1

    async def nobody(self, connection: socket.socket) -> None:
        await self._end_of(connection, b"")

    async def slow_heads(self, connection: socket.socket) -> None:
        await self._send(connection, b"GET /inline HTTP/1.1\r\nHost: x\r\nX-Slow: ")
        while True:
            await asyncio.sleep(5)
            await self._send(connection, b"s", "bytes")

    async def slow_bodies(self, connection: socket.socket) -> None:
        await self._send(connection, UPLOAD)
        while True:
            await asyncio.sleep(5)
            await self._send(connection, b"s", "bytes")

    async def slow_readers(self, connection: socket.socket) -> None:
        await self._send(connection, b"GET /download?bytes=100000000 HTTP/1.1\r\nHost: x\r\n\r\n")
        while await self._loop.sock_recv(connection, 32):
            self.counts["reads"] += 1
            await asyncio.sleep(5)

    async def half_handshakes(self, connection: socket.socket) -> None:
        outgoing = ssl.MemoryBIO()
        session = self._tls.wrap_bio(ssl.MemoryBIO(), outgoing, server_hostname="localhost")
        try:
            session.do_handshake()
        except ssl.SSLWantReadError:
            await self._send(connection, outgoing.read(), "hellos")
        await self._end_of(connection, b"")

    async def _open(self, connection: socket.socket, extensions: bytes = b"") -> None:
        key = base64.b64encode(random.randbytes(16))
        await self._send(
            connection,
            b"GET /ws HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            b"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + key + b"\r\n" + extensions + b"\r\n",
        )
        await self._end_of(connection, b"\r\n\r\n")
        self.counts["WebSockets"] += 1

    async def ping_floods(self, connection: socket.socket) -> None:
        await self._open(connection)
        while True:
            await self._send(connection, PINGS)
            self.counts["pings"] += 10
            await asyncio.sleep(2)

    async def fragment_floods(self, connection: socket.socket) -> None:
        await self._open(connection)
        await self._send(connection, wire.frame(wire.BINARY, b"", fin=False))
        while True:
            await self._send(connection, FRAGMENTS)
            self.counts["fragments"] += 10
            await asyncio.sleep(2)

    async def bombs(self, connection: socket.socket) -> None:
        await self._open(connection, b"Sec-WebSocket-Extensions: permessage-deflate\r\n")
        await asyncio.sleep(random.uniform(0, 20))
        await self._send(connection, self._bomb, "bombs")
        await self._end_of(connection, b"")

    async def range_floods(self, connection: socket.socket) -> None:
        while True:
            ranges = random.choice(MANY_RANGES)
            await self._send(
                connection, b"GET /large.bin HTTP/1.1\r\nHost: x\r\nRange: bytes=" + ranges + b"\r\n\r\n", "requests"
            )
            await self._answer(connection)
            await asyncio.sleep(random.uniform(5, 15))

    async def many_headers(self, connection: socket.socket) -> None:
        while True:
            fields = random.choice(MANY_FIELDS)
            await self._send(connection, b"GET /inline HTTP/1.1\r\nHost: x\r\n" + fields + b"\r\n", "requests")
            await self._answer(connection)
            await asyncio.sleep(random.uniform(5, 15))

    async def aborted_uploads(self, connection: socket.socket) -> None:
        await self._send(connection, UPLOAD + bytes(random.randrange(20000)), "uploads")
        await asyncio.sleep(random.uniform(0, 10))
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))

    async def churn(self, connection: socket.socket) -> None:
        await self._send(connection, b"GET /inline HTTP/1.1\r\nHost: x\r\n\r\n", "requests")
        if random.random() < 0.5:
            await self._answer(connection)
        await asyncio.sleep(random.uniform(0, 10))


async def main(kind: str, port: str, count: str) -> None:
    attack = Attack(int(port))
    tasks = await attack.hold(int(count), getattr(attack, kind))
    print("ready", flush=True)
    reader = asyncio.StreamReader()
    await asyncio.get_running_loop().connect_read_pipe(lambda: asyncio.StreamReaderProtocol(reader), sys.stdin)
    while await reader.readline():
        print(json.dumps(attack.counts), flush=True)
    for task in tasks:
        task.cancel()
    await asyncio.gather(*tasks, return_exceptions=True)


raise_descriptor_limit()
asyncio.run(main(*sys.argv[1:]))
