"""Frames (RFC 6455, 5.2 and 5.3): lengths, masks, reserved bits and opcodes."""

import wire
from cases import NAMES, Group
from wire import BINARY, CLOSE, CONTINUATION, PING, PONG, RSV1, RSV2, RSV3, TEXT, Message

BOUNDARIES = (0, 1, 2, 124, 125, 126, 127, 128, 65534, 65535, 65536, 65537)

group = Group("framing")


def message_of(opcode, size):
    return wire.letters(size) if opcode == TEXT else wire.octets(size)


# ---------------------------------------------------------------------------------------------------------------------
# Lengths.

for opcode, name in NAMES.items():
    for size in (*BOUNDARIES, 100_000):
        group.echoed(f"length.{name}.{size}", "5.2", f"a {name} of {size} bytes is echoed", opcode,
                     message_of(opcode, size))
    for size in (0, 1, 125, 126, 1000):
        group.echoed(f"split.{name}.{size}.each-byte", "5.2", "a frame may arrive byte by byte", opcode,
                     message_of(opcode, size), sizes=(1,))
    for sizes in ((997,), (1460,), (4096, 1), (2, 4, 8, 65536)):
        for size in (65535, 65536):
            group.echoed(f"split.{name}.{size}.{'-'.join(map(str, sizes))}", "5.2", "a frame may arrive chopped",
                         opcode, message_of(opcode, size), sizes=sizes)

# The header of 2, 4 and 10 octets and the mask, cut at each place.
for size, header_size in ((5, 6), (126, 8), (65536, 14)):
    sent = wire.frame(BINARY, wire.octets(size))
    for position in range(1, header_size + 1):
        group.case(f"cut.{size}.{position}", "5.2", "a header may be cut anywhere", *wire.split_at(sent, position),
                   Message(BINARY, wire.octets(size)))

group.case("together.100-frames", "5.2", "many frames may arrive at once, and keep their order",
           b"".join(wire.frame(TEXT, b"%d" % i) for i in range(100)),
           *(Message(TEXT, b"%d" % i) for i in range(100)))
group.case("together.mixed", "5.2", "frames of all sizes may arrive at once, and keep their order",
           b"".join(wire.frame(BINARY, wire.octets(size)) for size in BOUNDARIES),
           *(Message(BINARY, wire.octets(size)) for size in BOUNDARIES))
group.case("together.not-aligned", "5.2", "pieces need not end where frames end",
           *wire.in_pieces(b"".join(wire.frame(BINARY, wire.octets(size)) for size in range(0, 300, 7)), (1000,)),
           *(Message(BINARY, wire.octets(size)) for size in range(0, 300, 7)))

for opcode, name in NAMES.items():
    for size, bits in ((0, 16), (1, 16), (125, 16), (0, 64), (1, 64), (125, 64), (126, 64), (65535, 64)):
        group.refused(f"length.not-minimal.{name}.{size}.{bits}", "5.2",
                      f"the length {size} in {bits} bits is not the shortest form", 1002,
                      wire.frame(opcode, message_of(opcode, size), bits=bits))
group.refused("length.not-minimal.continuation", "5.2", "the shortest form is for continuations, too", 1002,
              wire.frame(TEXT, b"a", fin=False), wire.frame(CONTINUATION, b"b", bits=16))
for size, bits in ((5, 16), (5, 64)):
    group.refused(f"length.not-minimal.ping.{bits}", "5.2", "the shortest form is for control frames, too", 1002,
                  wire.frame(PING, b"x" * size, bits=bits))

for name, length in {"alone": 1 << 63, "with-a-short-length": (1 << 63) + 5, "all-bits": (1 << 64) - 1}.items():
    group.refused(f"length.top-bit.{name}", "5.2", "the most significant bit of 64 bits must be 0", 1002,
                  wire.header(BINARY, length))

# ---------------------------------------------------------------------------------------------------------------------
# Masks.

for number, key in enumerate([bytes(4), b"\xff\xff\xff\xff", b"\0\0\0\1", b"\1\0\0\0", b"\x80\x81\x82\x83"]):
    for size in (1, 2, 3, 4, 5, 1000):
        message = wire.letters(size)
        group.echoed(f"mask.{number}.{size}", "5.3", "any key masks, from the payload's first byte on", TEXT, message,
                     [wire.frame(TEXT, message, key=key)])
group.case("mask.another-for-each-frame", "5.3", "each frame has a key of its own",
           b"".join(wire.frame(TEXT, b"hello", key=bytes([i, 255 - i, i ^ 85, 7])) for i in range(20)),
           *[Message(TEXT, b"hello")] * 20)
group.echoed("mask.another-for-each-fragment", "5.3", "each fragment has a key of its own", TEXT, b"hello, all",
             [wire.frame(TEXT, b"hel", fin=False, key=b"\1\2\3\4"),
              wire.frame(CONTINUATION, b"lo, ", fin=False, key=bytes(4)),
              wire.frame(CONTINUATION, b"all", key=b"\xff\xee\xdd\xcc")])

for opcode, name in {**NAMES, PING: "ping", PONG: "pong"}.items():
    for size in (0, 5):
        group.refused(f"unmasked.{name}.{size}", "5.1", "a frame without a mask fails the connection", 1002,
                      wire.frame(opcode, b"x" * size, key=None))
group.refused("unmasked.close", "5.1", "a close frame without a mask is no part of a closing handshake", 1002,
              wire.frame(CLOSE, wire.close_payload(1000), key=None), replies=False)
group.refused("unmasked.continuation", "5.1", "a fragment without a mask fails the connection", 1002,
              wire.frame(TEXT, b"a", fin=False), wire.frame(CONTINUATION, b"b", key=None))
group.refused("unmasked.long", "5.1", "a long frame without a mask fails the connection", 1002,
              wire.frame(BINARY, bytes(1000), key=None))
group.case("unmasked.second", "5.1", "a frame without a mask fails the connection, whatever came before",
           wire.frame(TEXT, b"first"), Message(TEXT, b"first"), wire.frame(TEXT, b"second", key=None),
           wire.Close(1002))

# ---------------------------------------------------------------------------------------------------------------------
# Reserved bits and opcodes.

RESERVED = {RSV1 * a | RSV2 * b | RSV3 * c: f"{a}{b}{c}"
            for a in (0, 1) for b in (0, 1) for c in (0, 1) if a or b or c}
OPCODES = {**NAMES, PING: "ping", PONG: "pong"}

for rsv, bits in RESERVED.items():
    for opcode, name in OPCODES.items():
        group.refused(f"reserved-bits.{bits}.{name}", "5.2", "reserved bits that no extension defines are 0", 1002,
                      wire.frame(opcode, b"hello", rsv=rsv))
    group.refused(f"reserved-bits.{bits}.close", "5.2", "reserved bits that no extension defines are 0", 1002,
                  wire.frame(CLOSE, wire.close_payload(1000), rsv=rsv), replies=False)
    group.refused(f"reserved-bits.{bits}.continuation", "5.2", "reserved bits that no extension defines are 0", 1002,
                  wire.frame(TEXT, b"a", fin=False), wire.frame(CONTINUATION, b"b", rsv=rsv))
    group.refused(f"reserved-bits.{bits}.first-fragment", "5.2", "reserved bits that no extension defines are 0", 1002,
                  wire.frame(TEXT, b"a", fin=False, rsv=rsv), wire.frame(CONTINUATION, b"b"))
for rsv in (RSV1, RSV2, RSV3):
    group.case(f"reserved-bits.{RESERVED[rsv]}.after-a-message", "5.2", "what came before is still echoed",
               wire.frame(TEXT, b"first") + wire.frame(TEXT, b"second", rsv=rsv) + wire.frame(TEXT, b"third"),
               Message(TEXT, b"first"), wire.Close(1002))

for opcode in (*range(3, 8), *range(11, 16)):
    for name, payload in {"empty": b"", "short": b"hello", "text": b"x" * 125}.items():
        group.refused(f"reserved-opcode.{opcode}.{name}", "5.2", f"the opcode {opcode} is reserved", 1002,
                      wire.frame(opcode, payload))
    group.refused(f"reserved-opcode.{opcode}.inside-a-message", "5.2", f"the opcode {opcode} is reserved", 1002,
                  wire.frame(TEXT, b"a", fin=False), wire.frame(opcode, b"b"))
for opcode in (3, 7, 11, 15):
    group.case(f"reserved-opcode.{opcode}.after-a-message", "5.2", "what came before is still echoed",
               wire.frame(TEXT, b"first") + wire.frame(opcode, b"second") + wire.frame(TEXT, b"third"),
               Message(TEXT, b"first"), wire.Close(1002))
