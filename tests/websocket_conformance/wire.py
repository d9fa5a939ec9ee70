"""Frames as bytes, and a decoder that holds a server to every rule of RFC 6455 for what it sends."""

import dataclasses
import random

CONTINUATION, TEXT, BINARY, CLOSE, PING, PONG = 0, 1, 2, 8, 9, 10
RSV1, RSV2, RSV3 = 0x40, 0x20, 0x10

# The key of the RFC's examples. That keys cannot be foretold protects proxies, and there is none.
KEY = b"\x37\xfa\x21\x3d"


class BrokenRule(Exception):
    """What the server did is against a rule, which the text names."""


def masked(key, payload):
    """The payload with the key applied: masks, and unmasks."""
    size = len(payload)
    pattern = (key * (size // 4 + 1))[:size]
    return (int.from_bytes(payload, "little") ^ int.from_bytes(pattern, "little")).to_bytes(size, "little")


def length_field(length, bits=None):
    """The second octet of a header, still without the mask bit, and the extended length, in the shortest form or in
    that of 7, 16 or 64 bits."""
    if bits is None:
        bits = 7 if length < 126 else 16 if length < 65536 else 64
    if bits == 7:
        return length, b""
    return (126, length.to_bytes(2, "big")) if bits == 16 else (127, length.to_bytes(8, "big"))


def header(opcode, length, fin=True, rsv=0, key=KEY, bits=None):
    """A frame's header, which may announce more than follows."""
    short, extended = length_field(length, bits)
    return bytes([(0x80 if fin else 0) | rsv | opcode, (0x80 if key else 0) | short]) + extended + (key or b"")


def frame(opcode, payload=b"", fin=True, rsv=0, key=KEY, bits=None):
    """A frame as a client sends it: masked, unless the key is None."""
    return header(opcode, len(payload), fin, rsv, key, bits) + (masked(key, payload) if key else payload)


def close_payload(code=None, reason=b""):
    return b"" if code is None else code.to_bytes(2, "big") + reason


def close_frame(code=None, reason=b""):
    return frame(CLOSE, close_payload(code, reason))


def fragments(opcode, parts, rsv=0):
    """One message as a frame for each part. Reserved bits are for the first one."""
    last = len(parts) - 1
    return [frame(CONTINUATION if i else opcode, part, i == last, 0 if i else rsv) for i, part in enumerate(parts)]


def split_at(data, *positions):
    """The parts of the data between the positions."""
    edges = [0, *positions, len(data)]
    return [data[begin:end] for begin, end in zip(edges, edges[1:])]


def in_pieces(data, sizes):
    """The data as pieces of the sizes, over and over; as one piece without sizes."""
    if not sizes:
        return [data]
    pieces, begin = [], 0
    while begin < len(data):
        size = sizes[len(pieces) % len(sizes)]
        pieces.append(data[begin:begin + size])
        begin += size
    return pieces


def letters(size, seed=0):
    """Text in ASCII that no compression makes disappear."""
    draw = random.Random(f"letters {size} {seed}")
    return bytes(draw.choices(b"abcdefghijklmnopqrstuvwxyz     ,.", k=size))


def octets(size, seed=0):
    """Bytes that no compression makes smaller."""
    return random.Random(f"octets {size} {seed}").randbytes(size)


@dataclasses.dataclass(frozen=True)
class Message:
    opcode: int
    payload: bytes
    is_compressed: bool = dataclasses.field(default=False, compare=False)

    def __str__(self):
        return f"{'text' if self.opcode == TEXT else 'binary'} {abbreviated(self.payload)}"


@dataclasses.dataclass(frozen=True)
class Ping:
    payload: bytes

    def __str__(self):
        return f"ping {abbreviated(self.payload)}"


@dataclasses.dataclass(frozen=True)
class Pong:
    payload: bytes

    def __str__(self):
        return f"pong {abbreviated(self.payload)}"


@dataclasses.dataclass(frozen=True)
class Close:
    # None when the frame is empty.
    code: int | None
    reason: bytes = dataclasses.field(default=b"", compare=False)

    def __str__(self):
        return "close without a code" if self.code is None else f"close {self.code}"


@dataclasses.dataclass(frozen=True)
class End:
    """Of the TCP connection."""

    def __str__(self):
        return "the end of the connection"


def abbreviated(data):
    """Of a long payload its size and its first bytes."""
    return repr(data)[1:] if len(data) <= 24 else f"{repr(data[:16])[1:]}... of {len(data)} bytes"


def may_be_sent(code):
    """Whether the code may stand in a close frame: those of the RFC and of IANA's registry, and the applications'."""
    return code in range(1000, 1004) or code in range(1007, 1015) or code in range(3000, 5000)


class Decoder:
    """Turns what a server sends into messages and control frames.

    The inflater, if compression was agreed on, turns a message's compressed bytes into its payload.
    """

    def __init__(self, inflater=None):
        self.inflater = inflater
        self.buffer = bytearray()
        # Of the message whose last frame is still to come; the opcode is None between messages.
        self.opcode, self.is_compressed, self.parts = None, False, []
        self.is_closed = False

    def feed(self, data):
        """The events that the data completes."""
        self.buffer += data
        events = []
        while (parsed := self._take_frame()) is not None:
            if self.is_closed:
                raise BrokenRule("5.5.1: a frame came behind the close frame")
            event = self._control(*parsed) if parsed[2] >= CLOSE else self._data(*parsed)
            if event is not None:
                events.append(event)
        return events

    def ends(self):
        """Says that the connection has ended."""
        if self.buffer:
            raise BrokenRule(f"5.2: the connection ended inside a frame, after {bytes(self.buffer[:14])!r}")

    def _take_frame(self):
        """FIN, the reserved bits, the opcode and the payload of the next frame, once it is whole."""
        if len(self.buffer) < 2:
            return None
        first, second = self.buffer[:2]
        if second & 0x80:
            raise BrokenRule("5.1: the server masked a frame")
        extended = {126: 2, 127: 8}.get(second, 0)
        if len(self.buffer) < 2 + extended:
            return None
        length = int.from_bytes(self.buffer[2:2 + extended], "big") if extended else second
        if length_field(length)[0] != second:
            raise BrokenRule(f"5.2: the length {length} was not sent in the shortest form")
        end = 2 + extended + length
        if len(self.buffer) < end:
            return None
        payload = bytes(self.buffer[2 + extended:end])
        del self.buffer[:end]
        return bool(first & 0x80), first & 0x70, first & 0x0F, payload

    def _control(self, fin, rsv, opcode, payload):
        if opcode not in (CLOSE, PING, PONG):
            raise BrokenRule(f"5.2: the server sent the reserved opcode {opcode}")
        if not fin or rsv or len(payload) > 125:
            raise BrokenRule("5.5: a control frame is fragmented, has a reserved bit, or is longer than 125 bytes")
        if opcode == CLOSE:
            self.is_closed = True
            return self._close(payload)
        return Ping(payload) if opcode == PING else Pong(payload)

    @staticmethod
    def _close(payload):
        if not payload:
            return Close(None)
        code, reason = int.from_bytes(payload[:2], "big"), payload[2:]
        if len(payload) == 1 or not may_be_sent(code):
            raise BrokenRule(f"7.4: the server sent a close frame with {abbreviated(payload)}")
        check_text(reason, "5.5.1: the reason of a close frame")
        return Close(code, reason)

    def _data(self, fin, rsv, opcode, payload):
        if opcode not in (CONTINUATION, TEXT, BINARY):
            raise BrokenRule(f"5.2: the server sent the reserved opcode {opcode}")
        if (opcode == CONTINUATION) != (self.opcode is not None):
            raise BrokenRule(f"5.4: the opcode {opcode} {'inside' if self.opcode else 'outside'} a message")
        if rsv not in (0, RSV1) or (rsv and (self.inflater is None or opcode == CONTINUATION)):
            raise BrokenRule(f"5.2: the server set reserved bits that nothing defines: {rsv:#x}")
        if opcode != CONTINUATION:
            self.opcode, self.is_compressed, self.parts = opcode, bool(rsv), []
        self.parts.append(payload)
        if not fin:
            return None
        whole = b"".join(self.parts)
        if self.is_compressed:
            whole = self.inflater(whole)
        message = Message(self.opcode, whole, self.is_compressed)
        self.opcode = None
        if message.opcode == TEXT:
            check_text(whole, "5.6: a text")
        return message


def check_text(data, what):
    try:
        data.decode()
    except UnicodeDecodeError as error:
        raise BrokenRule(f"{what} is not UTF-8: {error}") from None
