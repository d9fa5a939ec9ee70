"""Messages up to the server's limit and beyond (RFC 6455, 7.4.1 and 10.4): 1009, from the header on."""

import deflate
import opening
import wire
from cases import NAMES, Group
from wire import BINARY, CONTINUATION, PING, RSV1, TEXT, Message, Pong

FRAGMENT = 60_000

# To be drawn, a message takes its time.
MOST_DRAWN = 1 << 20


def register(limit):
    """The cases for a server that takes messages of so many bytes at most."""
    plain(Group("limits"), limit)
    compressed(Group("limits.compressed", opening=opening.DEFLATE), limit)


def plain(group, limit):
    drawn = min(limit, MOST_DRAWN)
    for opcode, message in {TEXT: wire.letters(drawn), BINARY: wire.octets(drawn)}.items():
        group.echoed(f"{NAMES[opcode]}.drawn", "5.2", "a long message is echoed as it is", opcode, message)
    for opcode, name in NAMES.items():
        for size in (limit - 1, limit):
            group.echoed(f"{name}.{size - limit:+d}", "10.4", "a message up to the limit is echoed", opcode,
                         b"x" * size)
        for more in (1, 2, 1000, limit):
            group.refused(f"{name}.{more:+d}", "7.4.1", "the header tells that a message is too long", 1009,
                          wire.header(opcode, limit + more))
        for bits in (32, 33, 62):
            group.refused(f"{name}.2-to-the-{bits}", "7.4.1", "the header tells that a message is too long", 1009,
                          wire.header(opcode, 1 << bits))
        group.refused(f"{name}.first-fragment", "7.4.1", "a fragment alone may be too long", 1009,
                      wire.header(opcode, limit + 1, fin=False))
        group.refused(f"{name}.sum", "7.4.1", "the header of the fragment that exceeds the limit is enough", 1009,
                      wire.frame(opcode, bytes(limit), fin=False) + wire.header(CONTINUATION, 1))
        group.refused(f"{name}.sum-of-small", "7.4.1", "fragments count together", 1009,
                      *(wire.frame(CONTINUATION if i else opcode, bytes(FRAGMENT), fin=False)
                        for i in range(limit // FRAGMENT)), wire.header(CONTINUATION, limit % FRAGMENT + 1))
    group.refused("top-of-63-bits", "7.4.1", "the largest length overflows no sum", 1009,
                  wire.header(BINARY, (1 << 63) - 1))
    group.refused("sum.top-of-63-bits", "7.4.1", "the largest length overflows no sum", 1009,
                  wire.frame(BINARY, b"x" * 100, fin=False) + wire.header(CONTINUATION, (1 << 63) - 1))
    group.refused("sum.far", "7.4.1", "the header of a fragment that exceeds the limit by far is enough", 1009,
                  wire.frame(BINARY, b"x", fin=False) + wire.header(CONTINUATION, 1 << 40, fin=False))
    group.echoed("sum.exact", "10.4", "fragments up to the limit are echoed", BINARY, bytes(limit),
                 wire.fragments(BINARY, wire.in_pieces(bytes(limit), (FRAGMENT,))))
    group.echoed("sum.exact-then-empty", "10.4", "an empty fragment exceeds no limit", BINARY, bytes(limit),
                 wire.fragments(BINARY, [bytes(limit), b"", b""]))
    group.case("sum.with-pings", "10.4", "control frames between fragments do not count",
               wire.frame(BINARY, bytes(limit), fin=False) + wire.frame(PING, bytes(125)), Pong(bytes(125)),
               wire.frame(CONTINUATION), Message(BINARY, bytes(limit)))
    half = bytes(limit // 2 + 1)
    group.case("each-message-alone", "10.4", "messages do not count together",
               *[step for _ in range(3) for step in (wire.frame(BINARY, half), Message(BINARY, half))])
    group.case("after-a-message", "7.4.1", "what came before is still echoed",
               wire.frame(TEXT, b"first"), Message(TEXT, b"first"), wire.header(TEXT, limit + 1), wire.Close(1009))


def compressed(group, limit):
    def whole(opcode, payload):
        return wire.frame(opcode, deflate.compressed(payload), rsv=RSV1)

    for opcode, name in NAMES.items():
        for size in (limit - 1, limit):
            group.echoed(f"{name}.{size - limit:+d}", "10.4", "what inflates up to the limit is echoed", opcode,
                         b"x" * size, [whole(opcode, b"x" * size)])
        for size, more in ((limit + 1, "+1"), (limit * 2, "twice"), (limit * 20, "20-times")):
            group.refused(f"{name}.{more}", "7.4.1", "what inflates beyond the limit is refused", 1009,
                          whole(opcode, b"x" * size))
        parts = wire.in_pieces(deflate.compressed(b"x" * limit * 3), (100,))
        group.refused(f"{name}.fragments", "7.4.1", "fragments that inflate beyond the limit are refused", 1009,
                      *wire.fragments(opcode, parts, RSV1))
        group.refused(f"{name}.plain", "7.4.1", "what is not compressed has the same limit", 1009,
                      wire.header(opcode, limit + 1))
    group.refused("header", "7.4.1", "the header of a frame that is far too long even compressed is enough", 1009,
                  wire.header(BINARY, 1 << 40, rsv=RSV1))
    group.case("exact-twice", "10.4", "messages do not count together",
               *[step for _ in range(2) for step in (whole(BINARY, bytes(limit)), Message(BINARY, bytes(limit)))])
