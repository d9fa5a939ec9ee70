"""Bad paths through the network: a proxy that does to each connection what was chosen for it."""

from __future__ import annotations

import asyncio
import contextlib
import enum
import random
import socket
import struct
import threading
from dataclasses import dataclass

HOST = "127.0.0.1"

# What is passed on at once where nothing else was chosen.
AT_ONCE = 1 << 16
# So many pieces are of the chosen size and the rest is larger, or single bytes would take the whole run.
SMALL_PIECES = 400
# The system doubles it, and has a least size of its own.
TINY_BUFFER = 4096


class Fate(enum.Enum):
    """How a path ends."""

    NONE = "with its ends"
    RESET = "cut by a reset"
    CLOSE = "cut by an orderly close"
    # Nothing is passed on any more, and nobody is told.
    SILENCE = "cut by silence"


@dataclass(frozen=True)
class Way:
    """One direction of a path."""

    delay: float = 0.0
    piece: int = AT_ONCE
    # Between two small pieces.
    gap: float = 0.0
    # Bytes a second; 0 for any number.
    rate: float = 0.0
    stall_after: int = -1
    stall: float = 0.0
    # Bytes after which the path's fate comes; never if negative.
    cut_after: int = -1

    @staticmethod
    def drawn(chance: random.Random, longest_stall: float) -> Way:
        stalls = chance.random() < 0.3
        return Way(
            delay=chance.choice([0, 0, 0.001, 0.01, 0.05]),
            piece=chance.choice([AT_ONCE, AT_ONCE, 1, 7, 100, 1460]),
            gap=chance.choice([0, 0, 0.0005]),
            rate=chance.choice([0, 0, 100e3, 1e6]),
            stall_after=size(chance) if stalls else -1,
            stall=chance.uniform(0, longest_stall),
        )


@dataclass(frozen=True)
class Path:
    """What happens to one connection."""

    to_server: Way
    to_client: Way
    has_tiny_buffers: bool
    fate: Fate

    @staticmethod
    def drawn(chance: random.Random, longest_stall: float, fates: list[Fate]) -> Path:
        ways = [Way.drawn(chance, longest_stall) for _ in range(2)]
        fate = chance.choice([Fate.NONE, *fates])
        if fate is not Fate.NONE:
            which = chance.randrange(2)
            ways[which] = Way(**{**vars(ways[which]), "cut_after": size(chance)})
        return Path(*ways, chance.random() < 0.3, fate)


GOOD = Path(Way(), Way(), False, Fate.NONE)


@dataclass
class Line:
    """A connection over a path."""

    path: Path
    # Before either end can notice.
    is_cut: bool = False


def size(chance: random.Random, greatest: int = 1 << 18) -> int:
    """Small ones as often as large ones."""
    return min(greatest, int(2 ** chance.uniform(0, greatest.bit_length())))


def reset(connection: socket.socket) -> None:
    """Closes so that the system sends a reset."""
    with contextlib.suppress(OSError):
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


class _Cut(Exception):
    """The fate of a path has come."""


class Network:
    """The proxy, on a thread of its own. A client says first what is to become of its connection."""

    def __init__(self, server_port: int) -> None:
        self._server_port = server_port
        self._lock = threading.Lock()
        # By the client's port, until they are there.
        self._lines: dict[int, Line] = {}
        self._silent: list[socket.socket] = []
        self._failure: BaseException | None = None
        self._listener = socket.create_server((HOST, 0), backlog=512)
        self._listener.setblocking(False)
        self._loop = asyncio.new_event_loop()
        self._accepting: asyncio.Task | None = None
        self._thread = threading.Thread(target=self._run, name="network", daemon=True)
        self._thread.start()

    def connect(self, path: Path, patience: float) -> tuple[socket.socket, Line]:
        """A client's end of a new connection. Its time-out is the patience."""
        line = Line(path)
        client = socket.socket()
        if path.has_tiny_buffers:
            shrink(client)
        client.settimeout(patience)
        client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        client.bind((HOST, 0))
        with self._lock:
            self._lines[client.getsockname()[1]] = line
        client.connect(self._listener.getsockname())
        return client, line

    def silent_count(self) -> int:
        with self._lock:
            return len(self._silent) // 2

    def release(self) -> None:
        """Ends the paths that went silent."""
        with self._lock:
            silent, self._silent = self._silent, []
        for connection in silent:
            reset(connection)

    def stop(self) -> None:
        self._loop.call_soon_threadsafe(self._accepting.cancel)
        self._thread.join()
        self.release()
        self._listener.close()
        if self._failure:
            raise self._failure

    def _run(self) -> None:
        asyncio.set_event_loop(self._loop)
        try:
            self._accepting = self._loop.create_task(self._accept())
            self._loop.run_until_complete(self._accepting)
        except asyncio.CancelledError:
            pass
        except BaseException as failure:  # told to who stops it
            self._failure = failure
        finally:
            self._loop.run_until_complete(self._end_tasks())
            self._loop.close()

    async def _end_tasks(self) -> None:
        tasks = asyncio.all_tasks(self._loop) - {asyncio.current_task()}
        for task in tasks:
            task.cancel()
        await asyncio.gather(*tasks, return_exceptions=True)

    async def _accept(self) -> None:
        serving: set[asyncio.Task] = set()
        while True:
            client, address = await self._loop.sock_accept(self._listener)
            with self._lock:
                line = self._lines.pop(address[1])
            task = self._loop.create_task(self._serve(client, line))
            serving.add(task)
            task.add_done_callback(serving.discard)

    async def _serve(self, client: socket.socket, line: Line) -> None:
        path = line.path
        server = socket.socket()
        ends = (client, server)
        for end in ends:
            end.setblocking(False)
            end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            if path.has_tiny_buffers:
                shrink(end)
        pumps: list[asyncio.Task] = []
        try:
            await self._loop.sock_connect(server, (HOST, self._server_port))
            pumps = [
                self._loop.create_task(self._pump(client, server, path.to_server)),
                self._loop.create_task(self._pump(server, client, path.to_client)),
            ]
            await asyncio.gather(*pumps)
        except _Cut:
            await self._end(pumps)
            line.is_cut = True
            self._cut(ends, path.fate)
            return
        except (OSError, asyncio.CancelledError):
            # One end has gone without manners, or the network has, and who is left sees the same.
            await self._end(pumps)
            for end in ends:
                reset(end)
            return
        for end in ends:
            end.close()

    @staticmethod
    async def _end(pumps: list[asyncio.Task]) -> None:
        for pump in pumps:
            pump.cancel()
        await asyncio.gather(*pumps, return_exceptions=True)

    def _cut(self, ends: tuple[socket.socket, socket.socket], fate: Fate) -> None:
        if fate is Fate.SILENCE:
            with self._lock:
                self._silent += ends
            return
        for end in ends:
            if fate is Fate.RESET:
                reset(end)
            else:
                end.close()

    async def _pump(self, source: socket.socket, sink: socket.socket, way: Way) -> None:
        passed = 0
        pieces = 0
        while data := await self._loop.sock_recv(source, AT_ONCE):
            await asyncio.sleep(way.delay)
            begin = 0
            while begin < len(data):
                if passed == way.cut_after:
                    raise _Cut
                if passed == way.stall_after:
                    await asyncio.sleep(way.stall)
                small = pieces < SMALL_PIECES
                end = min(len(data), begin + (way.piece if small else AT_ONCE))
                # Stall and cut come at their very bytes.
                for position in (way.stall_after, way.cut_after):
                    if passed < position:
                        end = min(end, begin + position - passed)
                await self._loop.sock_sendall(sink, data[begin:end])
                if small and way.gap:
                    await asyncio.sleep(way.gap)
                if way.rate:
                    await asyncio.sleep((end - begin) / way.rate)
                passed += end - begin
                begin = end
                pieces += 1
        with contextlib.suppress(OSError):
            sink.shutdown(socket.SHUT_WR)


def shrink(connection: socket.socket) -> None:
    for option in (socket.SO_RCVBUF, socket.SO_SNDBUF):
        connection.setsockopt(socket.SOL_SOCKET, option, TINY_BUFFER)
