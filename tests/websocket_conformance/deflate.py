"""A client's half of permessage-deflate (RFC 7692): the server's answer, and both directions of the data."""

import dataclasses
import zlib

from wire import BrokenRule

TAIL = b"\x00\x00\xff\xff"

SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT = "server_no_context_takeover", "client_no_context_takeover"
SERVER_WINDOW, CLIENT_WINDOW = "server_max_window_bits", "client_max_window_bits"

WINDOW_BITS = [str(bits) for bits in range(8, 16)]


@dataclasses.dataclass(frozen=True)
class Agreement:
    """What an answer to an offer says."""
    server_no_context: bool = False
    client_no_context: bool = False
    server_window: int = 15
    client_window: int = 15


def offered_parameters(offer):
    """From name to value of the parameters of one well-formed offer; None where there is no value."""
    parameters = {}
    for text in offer.split(";")[1:]:
        name, equals, value = (part.strip() for part in text.partition("="))
        parameters[name] = value.strip('"') if equals else None
    return parameters


def agreement(answer, offer):
    """The agreement of a server's Sec-WebSocket-Extensions, which has to fit the offer that it accepts."""
    name, *texts = (part.strip() for part in answer.split(";"))
    if name != "permessage-deflate":
        raise BrokenRule(f"9.1: the server agreed to {answer!r}, which was not offered")
    offered, answered = offered_parameters(offer), {}
    for text in texts:
        key, equals, value = (part.strip() for part in text.partition("="))
        if key in answered:
            raise BrokenRule(f"7692 7.1: {key} stands twice in {answer!r}")
        answered[key] = value.strip('"') if equals else None
    for key, value in answered.items():
        if key in (SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT):
            is_valid = value is None
        else:
            is_valid = key in (SERVER_WINDOW, CLIENT_WINDOW) and value in WINDOW_BITS
        if not is_valid:
            raise BrokenRule(f"7692 7.1: {key}={value} in {answer!r}")
    for key in (SERVER_NO_CONTEXT, SERVER_WINDOW):
        if key in offered and key not in answered:
            raise BrokenRule(f"7692 7.1: the offer has {key}, and the answer {answer!r} has not")
    if CLIENT_WINDOW in answered and CLIENT_WINDOW not in offered:
        raise BrokenRule("7692 7.1.2.2: client_max_window_bits was answered and not offered")
    for key in (SERVER_WINDOW, CLIENT_WINDOW):
        if key in answered and int(answered[key]) > int(offered.get(key) or 15):
            raise BrokenRule(f"7692 7.1.2: {key} is larger in {answer!r} than in the offer")
    return Agreement(SERVER_NO_CONTEXT in answered, CLIENT_NO_CONTEXT in answered,
                     int(answered.get(SERVER_WINDOW, 15)), int(answered.get(CLIENT_WINDOW, 15)))


def compressor(window=15, level=6, strategy=zlib.Z_DEFAULT_STRATEGY):
    # zlib has no raw window of 256 bytes; but with one of 512 it looks back no farther than 250.
    return zlib.compressobj(level, zlib.DEFLATED, -max(window, 9), 8, strategy)


def compressed(message, with_compressor=None):
    """The payload of a compressed message."""
    deflater = with_compressor or compressor()
    data = deflater.compress(message) + deflater.flush(zlib.Z_SYNC_FLUSH)
    # Behind a flush there is nothing left to flush: the octet is the header of an empty block.
    return data[:-len(TAIL)] or b"\0"


class Inflater:
    """Inflates the server's messages, and finds references farther back than the agreed window."""

    # So much of a message is taken byte by byte: zlib then looks back into a window of exactly the agreed size.
    STRICT_SIZE = 70_000

    def __init__(self, agreed):
        self.agreed = agreed
        # Nothing can look back farther than the largest window.
        self.strict_size = self.STRICT_SIZE if agreed.server_window < 15 else 0
        self.stream = self._new_stream()

    def __call__(self, data):
        if self.agreed.server_no_context:
            self.stream = self._new_stream()
        try:
            return self._inflate(data + TAIL)
        except zlib.error as error:
            raise BrokenRule(f"7692 7.2.2: what the server sent does not inflate: {error}") from None

    def _new_stream(self):
        return zlib.decompressobj(-self.agreed.server_window)

    def _inflate(self, data):
        inflated, position = bytearray(), 0
        while position < len(data):
            if self.stream.eof:
                self.stream = self._new_stream()
            if len(inflated) < self.strict_size:
                inflated += self._inflate_octet(data[position:position + 1])
                position += 1
            else:
                inflated += self.stream.decompress(data[position:])
                position = len(data) - len(self.stream.unused_data)
        return bytes(inflated)

    def _inflate_octet(self, octet):
        inflated = bytearray()
        part = self.stream.decompress(octet, 1)
        while part or self.stream.unconsumed_tail:
            inflated += part
            part = self.stream.decompress(self.stream.unconsumed_tail, 1)
        return inflated
