"""Compressed messages (RFC 7692, 6 and 7.2)."""

import blocks
import cases_utf8
import deflate
import opening
import wire
from cases import ComesCompressed, Compressed, Group, InAnyOrder, OneOf
from wire import BINARY, CLOSE, CONTINUATION, PING, PONG, RSV1, RSV2, RSV3, TEXT, Close, Message, Pong

# The RFC names no code for what does not inflate: it is data of the wrong kind, or against the protocol.
DOES_NOT_INFLATE = (1007, 1002)

HELLO = deflate.compressed(b"Hello")
HELLO_BACK = Message(TEXT, b"Hello")

group = Group("deflate", opening=opening.DEFLATE)


def exchange(*messages, opcode=TEXT, level=6):
    return [step for message in messages
            for step in (Compressed(opcode, message, level), Message(opcode, message))]


def compressed_frame(data, opcode=TEXT, **more):
    return wire.frame(opcode, data, rsv=RSV1, **more)


# ---------------------------------------------------------------------------------------------------------------------
# Sizes and contexts.

SIZES = (0, 1, 2, 5, 10, 32, 64, 100, 125, 126, 127, 128, 1000, 4096, 32767, 32768, 32769, 65535, 65536, 100_000)

for size in SIZES:
    group.case(f"size.text.{size}", "7692 7.2", f"a compressed text of {size} bytes is echoed",
               *exchange(wire.letters(size)))
    group.case(f"size.binary.{size}", "7692 7.2", f"{size} bytes that no compression makes smaller are echoed",
               *exchange(wire.octets(size), opcode=BINARY))
    group.case(f"size.zeros.{size}", "7692 7.2", f"{size} bytes that become very few are echoed",
               *exchange(bytes(size), opcode=BINARY))
for level in (0, 1, 9):
    group.case(f"level.{level}", "7692 7.2.1", "any effort of the client's inflates",
               *exchange(*[wire.letters(20_000)] * 3, level=level))

PARAMETERS = {
    "plain": "", "server-no-context": "; server_no_context_takeover",
    "client-no-context": "; client_no_context_takeover",
    "no-contexts": "; server_no_context_takeover; client_no_context_takeover",
    "client-window": "; client_max_window_bits",
    "window-9": "; server_max_window_bits=9; client_max_window_bits=9", "window-12": "; server_max_window_bits=12",
    "window-9-no-context": "; server_max_window_bits=9; server_no_context_takeover; client_max_window_bits=9"}
SEQUENCES = {
    "same": [wire.letters(2000)] * 4, "same-and-short": [b"Hello"] * 10,
    "from-far": [wire.letters(30_000)] * 3, "beyond-the-window": [wire.letters(40_000)] * 3,
    "growing": [wire.letters(3000)[:i * 100] for i in range(30)],
    "around-the-window": [wire.letters(i * 37, i) for i in range(100)],
    "changing": [wire.letters(1500), bytes(5000), b"", wire.letters(1500), b"", b"x", wire.letters(1500)]}
for name, parameters in PARAMETERS.items():
    for kind, messages in SEQUENCES.items():
        group.case(f"context.{name}.{kind}", "7692 7.1.1", "messages inflate with the contexts that were agreed on",
                   *exchange(*messages), opening=opening.offering("permessage-deflate" + parameters))
group.case("context.together", "7692 7.2.2", "messages that arrive at once share their context",
           *[Compressed(TEXT, wire.letters(700)) for _ in range(10)], *[Message(TEXT, wire.letters(700))] * 10)
group.case("used", "7692 6", "the server's contract: a long message that becomes short comes back compressed",
           Compressed(TEXT, b"x" * 50_000), ComesCompressed(Message(TEXT, b"x" * 50_000)))

# ---------------------------------------------------------------------------------------------------------------------
# Not compressed, on the same connection.

group.case("plain.alone", "7692 6", "a message may go without compression", wire.frame(TEXT, b"Hello"), HELLO_BACK)
group.case("plain.empty", "7692 6", "an empty message may go without compression", wire.frame(TEXT), Message(TEXT, b""))
group.case("plain.long", "7692 6", "a long message may go without compression", wire.frame(BINARY, wire.octets(70_000)),
           Message(BINARY, wire.octets(70_000)))
group.case("plain.between", "7692 7.2.2", "what is not compressed does not change the context",
           *exchange(wire.letters(2000)), wire.frame(TEXT, wire.letters(500, 1)), Message(TEXT, wire.letters(500, 1)),
           *exchange(wire.letters(2000)), wire.frame(BINARY, bytes(10)), Message(BINARY, bytes(10)),
           *exchange(wire.letters(2000)))
group.case("plain.fragments", "7692 6", "a message in fragments may go without compression",
           *wire.fragments(TEXT, [b"Hel", b"lo"]), HELLO_BACK, *exchange(b"Hello"))
group.refused("plain.bad-text", "8.1", "a text that is not compressed has to be UTF-8", 1007, wire.frame(TEXT, b"\xff"))

# ---------------------------------------------------------------------------------------------------------------------
# Fragments.

for position in range(len(HELLO) + 1):
    group.echoed(f"fragments.cut.{position}", "7692 6.1", "a compressed message may be cut anywhere", TEXT, b"Hello",
                 wire.fragments(TEXT, wire.split_at(HELLO, position), RSV1))
for name, size in {"short": 50, "long": 5000}.items():
    message = wire.letters(size)
    parts = [bytes([octet]) for octet in deflate.compressed(message)]
    group.echoed(f"fragments.each-byte.{name}", "7692 6.1", "a compressed message may have many fragments", TEXT,
                 message, wire.fragments(TEXT, parts, RSV1))
    group.echoed(f"fragments.empty-between.{name}", "7692 6.1", "empty fragments may stand in a compressed message",
                 TEXT, message, wire.fragments(TEXT, [b"", *(piece for part in parts for piece in (part, b""))], RSV1))
group.echoed("fragments.big", "7692 6.1", "the fragments of a compressed message may be long", BINARY,
             wire.octets(200_000),
             wire.fragments(BINARY, wire.in_pieces(deflate.compressed(wire.octets(200_000)), (70_000,)), RSV1))
group.echoed("fragments.segments", "7692 6.1", "a compressed message may arrive byte by byte", TEXT, b"Hello",
             wire.fragments(TEXT, wire.split_at(HELLO, 3), RSV1), sizes=(1,))
group.case("fragments.ping-between", "7692 6.1", "a ping between compressed fragments is not compressed",
           compressed_frame(HELLO[:3], fin=False) + wire.frame(PING, b"p"), Pong(b"p"),
           wire.frame(CONTINUATION, HELLO[3:]), HELLO_BACK)
group.case("fragments.at-once", "7692 6.1", "a ping between compressed fragments is no part of the message",
           compressed_frame(HELLO[:3], fin=False) + wire.frame(PING, b"p") + wire.frame(CONTINUATION, HELLO[3:]),
           InAnyOrder((Pong(b"p"), HELLO_BACK)))
group.case("fragments.close-between", "5.4", "a close frame may stand between compressed fragments",
           compressed_frame(HELLO[:3], fin=False) + wire.close_frame(1000), Close(1000), replies=False)
group.case("fragments.then-whole", "7692 6.1", "a message in one frame may follow one in fragments",
           *wire.fragments(TEXT, [HELLO[:2], HELLO[2:]], RSV1), HELLO_BACK, compressed_frame(HELLO), HELLO_BACK)

# ---------------------------------------------------------------------------------------------------------------------
# Reserved bits.

for opcode, name in {PING: "ping", PONG: "pong", CLOSE: "close"}.items():
    payload = wire.close_payload(1000) if opcode == CLOSE else b"p"
    group.refused(f"bits.{name}", "7692 6.1", "a control frame is never compressed", 1002,
                  wire.frame(opcode, payload, rsv=RSV1), replies=opcode != CLOSE)
    group.refused(f"bits.{name}.inside-a-message", "7692 6.1", "a control frame is never compressed", 1002,
                  compressed_frame(HELLO[:3], fin=False), wire.frame(opcode, payload, rsv=RSV1),
                  replies=opcode != CLOSE)
for name, rsv in {"compressed": RSV1, "plain": 0}.items():
    first = wire.frame(BINARY, HELLO[:3], fin=False, rsv=rsv)
    group.refused(f"bits.continuation.{name}", "7692 6.1", "RSV1 belongs to the first fragment alone", 1002,
                  first, wire.frame(CONTINUATION, HELLO[3:], rsv=RSV1))
    group.refused(f"bits.continuation.{name}.in-the-middle", "7692 6.1", "RSV1 belongs to the first fragment alone",
                  1002, first, wire.frame(CONTINUATION, HELLO[3:4], fin=False, rsv=RSV1))
for rsv, bits in {RSV2: "010", RSV3: "001", RSV2 | RSV3: "011", RSV1 | RSV2: "110", RSV1 | RSV3: "101",
                  RSV1 | RSV2 | RSV3: "111"}.items():
    for opcode, name in {TEXT: "text", BINARY: "binary", PING: "ping"}.items():
        group.refused(f"bits.{bits}.{name}", "5.2", "RSV2 and RSV3 have no meaning", 1002,
                      wire.frame(opcode, HELLO, rsv=rsv))
for opcode in (3, 7, 11, 15):
    group.refused(f"bits.reserved-opcode.{opcode}", "5.2", "a reserved opcode is not compressed either", 1002,
                  wire.frame(opcode, HELLO, rsv=RSV1))
group.refused("bits.continuation.alone", "5.4", "a continuation needs a message to continue", 1002,
              wire.frame(CONTINUATION, HELLO, rsv=RSV1))
group.refused("bits.inside-a-message", "5.4", "no message begins before the former one has ended", 1002,
              compressed_frame(HELLO[:3], fin=False), compressed_frame(HELLO))
group.refused("unmasked", "5.1", "a compressed frame needs a mask, too", 1002, compressed_frame(HELLO, key=None))
group.refused("not-minimal", "5.2", "a compressed frame's length has the shortest form, too", 1002,
              compressed_frame(HELLO, bits=16))

# ---------------------------------------------------------------------------------------------------------------------
# All that deflate can be.

for name, (data, message) in blocks.VALID.items():
    group.echoed(f"blocks.{name}", "7692 7.2", "what inflates is echoed", BINARY, message,
                 [compressed_frame(data, BINARY)])
    group.case(f"blocks.{name}.then-more", "7692 7.2", "the next message, which refers to none before it, is echoed",
               compressed_frame(data, BINARY), Message(BINARY, message), compressed_frame(HELLO), HELLO_BACK,
               compressed_frame(data, BINARY), Message(BINARY, message))
    group.echoed(f"blocks.{name}.fragments", "7692 7.2", "it may be cut between blocks and inside of them", BINARY,
                 message, wire.fragments(BINARY, wire.in_pieces(data, (max(1, len(data) // 5),)) or [b"", b""], RSV1))
for name, data in blocks.INVALID.items():
    group.refused(f"invalid.{name}", "7692 7.2.2", "what does not inflate fails the connection, with 1007 or 1002",
                  DOES_NOT_INFLATE, compressed_frame(data, BINARY))
    group.refused(f"invalid.{name}.fragments", "7692 7.2.2", "what does not inflate fails the connection, with 1007 or "
                  "1002", DOES_NOT_INFLATE, *wire.fragments(BINARY, wire.split_at(data, len(data) // 2), RSV1))
    group.refused(f"invalid.{name}.second", "7692 7.2.2", "a message that inflates does not help the next one",
                  DOES_NOT_INFLATE, compressed_frame(deflate.compressed(b""), BINARY), Message(BINARY, b""),
                  compressed_frame(data, BINARY))
for name, (data, message) in blocks.OPEN.items():
    group.case(f"open.{name}", "7692 7.2.2", "a block that is not whole: what inflates is echoed, or the connection "
               "fails", compressed_frame(data), OneOf((Message(TEXT, message), *map(Close, DOES_NOT_INFLATE))))

# ---------------------------------------------------------------------------------------------------------------------
# Texts.

ALL = "".join(map(chr, cases_utf8.SCALARS)).encode()
group.case("text.all-boundaries", "8.1", "characters of all lengths are echoed", *exchange(ALL, ALL))
group.echoed("text.each-byte", "8.1", "characters may be cut anywhere", TEXT, ALL,
             wire.fragments(TEXT, [bytes([octet]) for octet in deflate.compressed(ALL)], RSV1))
group.case("text.long", "8.1", "characters may be cut where the inflater pauses", *exchange("€".encode() * 50_000))
group.case("text.binary", "5.6", "a binary message is no text", *exchange(b"\xff\xc0\x80", opcode=BINARY))
for name, (octets, _) in cases_utf8.INVALID.items():
    group.refused(f"text.invalid.{name}", "8.1", f"{octets.hex(' ')} is not UTF-8", 1007,
                  compressed_frame(deflate.compressed("καλό ".encode() + octets + b" and more")))
for octets in (b"\xc3", b"\xe2\x82", b"\xf0\x9f\x98"):
    group.refused(f"text.truncated.{octets.hex()}", "8.1", f"a text cannot end with {octets.hex(' ')}", 1007,
                  compressed_frame(deflate.compressed(b"text " + octets)))
group.refused("text.invalid-behind-much", "8.1", "the last of many bytes may be the wrong one", 1007,
              compressed_frame(deflate.compressed(b"x" * 200_000 + b"\xff")))
group.refused("text.looks-fine-compressed", "8.1", "what is looked at is the inflated text", 1007,
              compressed_frame(deflate.compressed(b"\xff", deflate.compressor(level=0))))
