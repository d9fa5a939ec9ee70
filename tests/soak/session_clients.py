"""The clients of the long run that speak WebSocket as browsers do, with every answer held to the RFCs."""

from __future__ import annotations

import contextlib
import socket
import threading

import opening
import wire
from clients import Client, KeepingClient, break_off, check, reset
from demo import HOST, PATIENCE_SECONDS
from peer import Peer
from wire import BINARY, CONTINUATION, TEXT

# What the demo takes at most, and what waits for a client at most.
MESSAGE_LIMIT = 1 << 20
GREATEST_MESSAGE = 512 << 10

# Of a client that reads late, so that the system keeps little for it.
RECEIVE_BUFFER = 64 << 10

# What messages are cut from. A character has up to three bytes.
CHARACTERS = wire.letters(GREATEST_MESSAGE).decode().translate({ord(","): "ü", ord("."): "世"})
OCTETS = wire.octets(GREATEST_MESSAGE)

PLAIN = opening.PLAIN
OFFERS = [
    opening.offering("permessage-deflate" + parameters)
    for parameters in (
        "",
        "; server_no_context_takeover; client_no_context_takeover",
        "; server_max_window_bits=10; client_max_window_bits=12",
    )
]


def expect(connection: Peer, *events: object) -> None:
    for event in events:
        came = connection.next_event()
        check(came == event, f"{came} came instead of {event}")


def say_goodbye(connection: Peer, code: int | None) -> None:
    connection.send(wire.close_frame(code, b"enough" if code else b""))
    expect(connection, wire.Close(code), wire.End())


def end_sending(connection: Peer) -> None:
    connection.socket.shutdown(socket.SHUT_WR)
    expect(connection, wire.End())


class SessionClient(Client):
    path = "/ws"

    def peer(self, path: str) -> Peer:
        """Connected, without an opening."""
        target = opening.Target("wss" if self.tls else "ws", HOST, self.port, path)
        return Peer(target, patience=PATIENCE_SECONDS, connected=self.dial())

    def open(self, path: str, wanted: opening.Opening) -> Peer:
        connection = self.peer(path)
        connection.open(wanted)
        return connection

    def connect(self) -> Peer:
        """With compression of one kind or another, or without."""
        return self.open(self.path, self.random.choice([PLAIN, *OFFERS]))

    def leave(self, connection: Peer) -> None:
        """Ends a session to which nothing is on its way in one of the ways that clients have, and looks at its end."""
        with contextlib.closing(connection):
            # The end of a TLS session would be another matter than that of its connection.
            way = self.random.choice([say_goodbye, reset] if self.tls else [say_goodbye, end_sending, reset])
            if way is say_goodbye:
                say_goodbye(connection, self.random.choice([None, 1000, 1001, 3000, 4999]))
            elif way is end_sending:
                end_sending(connection)
            else:
                reset(connection.socket)

    def message(self, opcode: int, greatest: int) -> bytes:
        size = self.size(greatest)
        begin = self.random.randrange(GREATEST_MESSAGE - size + 1)
        return CHARACTERS[begin : begin + size].encode() if opcode == TEXT else OCTETS[begin : begin + size]

    def check_echo(self, connection: Peer, greatest: int) -> None:
        """Has a message echoed, whole or in fragments, with a ping between two of them. Of several pings only the last
        one must be answered."""
        opcode = self.random.choice([TEXT, BINARY])
        message = self.message(opcode, greatest)
        payload, bits = connection.payload_of(message)
        cuts = sorted(self.random.randrange(len(payload) + 1) for _ in range(self.random.choice([0, 0, 1, 5])))
        frames = wire.fragments(opcode, wire.split_at(payload, *cuts), bits)
        pongs = []
        if cuts and self.random.random() < 0.5:
            ping = self.random.randbytes(self.random.randrange(126))
            frames.insert(self.random.randrange(1, len(frames)), wire.frame(wire.PING, ping))
            pongs.append(wire.Pong(ping))
        for frame in frames:
            connection.send(frame)
        expect(connection, *pongs, wire.Message(opcode, message))


class SessionEchoer(SessionClient, KeepingClient):
    """Has messages echoed over a session that it keeps."""

    kind = "session, echo"
    period = 0.2
    greatest = 2000

    def act(self) -> None:
        self.check_echo(self.connection(), self.greatest)


class GreatSessionEchoer(SessionEchoer):
    kind = "session, echo, up to 512 KiB"
    period = 2.0
    greatest = GREATEST_MESSAGE


class PassingSession(SessionClient):
    """Comes, has a few messages echoed, and goes."""

    kind = "session, come and gone"
    period = 0.4

    def act(self) -> None:
        connection = self.connect()
        for _ in range(self.random.randrange(4)):
            self.check_echo(connection, 2000)
        self.leave(connection)


class Subscriber(SessionClient):
    """Asks for the subprotocol that there is."""

    kind = "session, subprotocol"
    period = 2.0

    def act(self) -> None:
        wanted = opening.Opening({opening.PROTOCOL: ("chat, echo",)}, protocols=("echo",))
        with contextlib.closing(self.open("/ws", wanted)) as connection:
            say_goodbye(connection, 1000)


class SlowReader(SessionClient):
    """Sends more than waits for it anywhere, and does not read for a while."""

    kind = "session, slow reader"
    period = 6.0
    messages = [OCTETS[i : i + (64 << 10)] for i in range(0, 448 << 10, 3 << 10)]

    def act(self) -> None:
        with contextlib.closing(self.open("/ws", PLAIN)) as connection:
            connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)
            sender = threading.Thread(target=self._send, args=(connection,), daemon=True)
            sender.start()
            self.wait(self.random.uniform(0.5, 4))
            expect(connection, *(wire.Message(BINARY, message) for message in self.messages))
            sender.join()
            say_goodbye(connection, 1000)

    def _send(self, connection: Peer) -> None:
        for message in self.messages:
            connection.send_message(BINARY, message)


class IdleSession(SessionClient, KeepingClient):
    """Looks on at a session on which nothing happens but the server's pings."""

    kind = "session, idle"
    period = 5.0

    def act(self) -> None:
        connection = self.connection()
        connection.socket.settimeout(self.period)
        with contextlib.suppress(TimeoutError):
            check(False, f"{connection.next_event()} came unasked")


class RoomVisitor(SessionClient):
    """Is several members of a room of its own, who come and go, and hear each other's texts in their order."""

    kind = "sessions in a room"
    period = 1.0
    most = 6

    def __init__(self, *arguments: object) -> None:
        super().__init__(*arguments)
        self._members: list[Peer] = []

    def act(self) -> None:
        if not self._members:
            self.path = f"/rooms/soak%20{self.random.randrange(10**12)}"
        wanted = self.random.randrange(self.most + 1)
        while len(self._members) > wanted:
            self.leave(self._members.pop(self.random.randrange(len(self._members))))
        while len(self._members) < wanted:
            self._join()
        self._talk()

    def disconnect(self) -> None:
        for member in self._members:
            member.close()
        self._members.clear()

    def _join(self) -> None:
        newcomer = self.connect()
        self._members.append(newcomer)
        # It is in when it hears itself.
        newcomer.send_message(TEXT, b"here I am")
        for member in self._members:
            expect(member, wire.Message(TEXT, b"here I am"))

    def _talk(self) -> None:
        """All speak at once. Meanwhile one may leave who has said nothing."""
        leaver = self._members.pop() if len(self._members) > 2 and self.random.random() < 0.3 else None
        texts = [
            [f"{speaker} ".encode() + self.message(TEXT, 2000) for _ in range(self.random.randrange(10))]
            for speaker in range(len(self._members))
        ]
        for speaker, member in enumerate(self._members):
            for text in texts[speaker]:
                member.send_message(TEXT, text)
        if leaver:
            break_off(leaver.socket, self.random)
        for member in self._members:
            self._listen(member, [iter(of_speaker) for of_speaker in texts], sum(map(len, texts)))

    @staticmethod
    def _listen(member: Peer, texts: list, count: int) -> None:
        for _ in range(count):
            came = member.next_event()
            check(isinstance(came, wire.Message), f"{came} came instead of a text")
            speaker = int(came.payload.split()[0])
            check(came == wire.Message(TEXT, next(texts[speaker], b"")), f"{came} came out of its order")


class Stranger(SessionClient):
    """A page of this server may have a session, and one from elsewhere may not."""

    kind = "session, foreign origin"
    period = 1.0

    def act(self) -> None:
        foreign = opening.Opening({"Origin": ("https://elsewhere.example",)}, refused=frozenset({403}))
        self.open(self.random.choice(["/ws", "/rooms/hall"]), foreign).close()
        own = opening.Opening({"Origin": ("{web}://{host}:{port}",)})
        with contextlib.closing(self.open("/ws", own)) as connection:
            say_goodbye(connection, 1000)


class SessionBreaker(SessionClient):
    """Breaks sessions off at every stage, and the protocol's rules."""

    kind = "session broken off"
    period = 0.6

    def act(self) -> None:
        stage = self.random.choice(
            [
                self._half_opening,
                self._half_frame,
                self._half_message,
                self._unread_echo,
                self._half_close,
                self._broken_rule,
            ]
        )
        if stage == self._half_opening:
            connection = self.peer("/ws")
        else:
            connection = self.connect()
        with contextlib.closing(connection):
            stage(connection)
            break_off(connection.socket, self.random)

    def _half_opening(self, connection: Peer) -> None:
        request = PLAIN.request(connection.target)
        connection.send(request[: self.random.randrange(1, len(request))])

    def _half_frame(self, connection: Peer) -> None:
        whole = wire.frame(BINARY, OCTETS[:100000])
        connection.send(whole[: self.random.choice([1, 3, 9, 50000])])

    def _half_message(self, connection: Peer) -> None:
        connection.send(wire.frame(TEXT, b"half a ", fin=False))

    def _unread_echo(self, connection: Peer) -> None:
        connection.send_message(BINARY, OCTETS)
        connection.socket.recv(self.random.randrange(1, 100000))

    def _half_close(self, connection: Peer) -> None:
        connection.send(wire.close_frame(1000))

    def _broken_rule(self, connection: Peer) -> None:
        frame, code = self.random.choice(
            [
                (wire.frame(3, b"abc"), 1002),
                (wire.frame(TEXT, b"abc", key=None), 1002),
                (wire.frame(CONTINUATION, b"abc"), 1002),
                (wire.frame(TEXT, b"\xff"), 1007),
                (wire.header(BINARY, MESSAGE_LIMIT + 1), 1009),
            ]
        )
        connection.send(frame)
        expect(connection, wire.Close(code))
        connection.send(wire.close_frame(code))
        expect(connection, wire.End())
