"""What a case is, how it is done, and the words in which the groups of cases are written.

A case opens a connection of its own and goes through its steps. Bytes are sent; events of wire.py have to come next,
exactly as they are. Behind the last step nothing else may come: unless the server has closed by then, the client does,
and its code has to be echoed. In the end the server has to end the TCP connection.
"""

import dataclasses

import wire
from opening import PLAIN, Opening
from wire import BINARY, TEXT, Close, Message


@dataclasses.dataclass(frozen=True)
class Pieces:
    """Bytes that are sent in pieces of the sizes, over and over."""
    data: bytes
    sizes: tuple = (1,)

    def __str__(self):
        return f"send in pieces of {self.sizes}: {hexadecimal(self.data)}"


@dataclasses.dataclass(frozen=True)
class Compressed:
    """A message that is sent compressed with the context and the window that were agreed on."""
    opcode: int
    message: bytes
    level: int = 6

    def __str__(self):
        return f"send compressed: {Message(self.opcode, self.message)}"


@dataclasses.dataclass(frozen=True)
class ComesCompressed:
    """The next event is the message, and the server has compressed it."""
    message: Message

    def __str__(self):
        return f"compressed: {self.message}"


@dataclasses.dataclass(frozen=True)
class OneOf:
    """The next event is one of these: what the RFC leaves open."""
    events: tuple

    def __str__(self):
        return " or ".join(map(str, self.events))


@dataclasses.dataclass(frozen=True)
class InAnyOrder:
    """The next events are these: a control frame may overtake a message."""
    events: tuple

    def __str__(self):
        return " and ".join(map(str, self.events))


@dataclasses.dataclass(frozen=True)
class Pongs:
    """Pongs for some of the pings in their order, and for the last one in any case (5.5.3)."""
    payloads: tuple

    def __str__(self):
        return f"pongs of {len(self.payloads)} pings, at least the last"


def hexadecimal(data):
    return data[:20].hex(" ") + (f" ... {len(data)} bytes" if len(data) > 20 else "")


class Mismatch(Exception):
    """Something else came than what had to."""

    def __init__(self, expected, came):
        super().__init__(f"expected {expected}; came {came}")


@dataclasses.dataclass(frozen=True)
class Case:
    id: str
    # Of RFC 6455, unless another one is named.
    section: str
    title: str
    steps: tuple = ()
    opening: Opening = PLAIN
    # What is sent together with the opening request, and the sizes of the pieces in which both are sent.
    behind: bytes = b""
    pieces: tuple | None = None
    # Whether a close frame of the server's gets a reply: not when it is one itself.
    replies: bool = True

    def run(self, connect):
        """Raises unless everything comes as it has to."""
        peer = connect()
        try:
            if peer.open(self.opening, self.behind, self.pieces).status == 101:
                came = None
                for step in self.steps:
                    came = perform(step, peer) or came
                finish(peer, came, self.replies)
        finally:
            peer.close()

    def __str__(self):
        steps = "; ".join(f"send {hexadecimal(step)}" if isinstance(step, bytes) else str(step) for step in self.steps)
        return f"{self.id} [{self.section}] {self.title}: {steps or 'the opening handshake'}"


def perform(step, peer):
    """Sends, or returns the event that came as it had to."""
    if isinstance(step, bytes):
        peer.send(step)
    elif isinstance(step, Pieces):
        for piece in wire.in_pieces(step.data, step.sizes):
            peer.send(piece)
    elif isinstance(step, Compressed):
        peer.send_message(step.opcode, step.message, step.level)
    elif isinstance(step, ComesCompressed):
        if not expect(peer, step.message).is_compressed:
            raise Mismatch(step, "the message, and not compressed")
    elif isinstance(step, InAnyOrder):
        missing = list(step.events)
        while missing:
            missing.remove(expect(peer, OneOf(tuple(missing))))
    elif isinstance(step, Pongs):
        left = list(step.payloads)
        while left:
            pong = expect(peer, OneOf(tuple(map(wire.Pong, left))))
            del left[:left.index(pong.payload) + 1]
    else:
        return expect(peer, step)
    return None


def expect(peer, expected):
    try:
        came = peer.next_event()
    except TimeoutError:
        raise Mismatch(expected, "nothing") from None
    if came not in (expected.events if isinstance(expected, OneOf) else (expected,)):
        raise Mismatch(expected, came)
    return came


def finish(peer, came, replies):
    if isinstance(came, wire.End):
        return
    if not isinstance(came, Close):
        peer.send(wire.close_frame(1000))
        expect(peer, Close(1000))
    elif replies:
        peer.send(wire.close_frame(came.code))
    expect(peer, wire.End())


CASES = []


class Group:
    """The cases whose ids begin with the name."""

    def __init__(self, name, **defaults):
        self.name = name
        self.defaults = defaults

    def case(self, id, section, title, *steps, **more):
        CASES.append(Case(f"{self.name}.{id}", section, title, steps, **{**self.defaults, **more}))

    def echoed(self, id, section, title, opcode, message, frames=None, sizes=None, **more):
        """A message, in one frame or the given ones, comes back."""
        sent = b"".join(frames or [wire.frame(opcode, message)])
        self.case(id, section, title, Pieces(sent, sizes) if sizes else sent, Message(opcode, message), **more)

    def refused(self, id, section, title, code, *sent, **more):
        """What is sent fails the connection with the code, or one of the codes."""
        codes = code if isinstance(code, tuple) else (code,)
        self.case(id, section, title, *sent, OneOf(tuple(map(Close, codes))), **more)


NAMES = {TEXT: "text", BINARY: "binary"}
