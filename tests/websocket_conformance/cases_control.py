"""Pings and pongs (RFC 6455, 5.5)."""

import wire
from cases import Group, InAnyOrder, Pieces, Pongs
from wire import BINARY, CLOSE, CONTINUATION, PING, PONG, TEXT, Message, Pong

HELLO, HELLO_BACK = wire.frame(TEXT, b"hello"), Message(TEXT, b"hello")

group = Group("control")

# ---------------------------------------------------------------------------------------------------------------------
# Pings are answered with their payload.

for size in (0, 1, 2, 4, 7, 63, 64, 124, 125):
    payload = wire.octets(size)
    group.case(f"ping.{size}", "5.5.3", f"a ping of {size} bytes is answered with the same bytes",
               wire.frame(PING, payload), Pong(payload))
    group.case(f"ping.{size}.each-byte", "5.5.3", "a ping may arrive byte by byte", Pieces(wire.frame(PING, payload)),
               Pong(payload))
group.case("ping.all-sizes", "5.5.2", "a ping has up to 125 bytes",
           *(step for size in range(126) for step in (wire.frame(PING, bytes(size)), Pong(bytes(size)))))
group.case("ping.not-utf8", "5.5.2", "a ping's payload is no text", wire.frame(PING, b"\xff\xfe\xc0\x80\0"),
           Pong(b"\xff\xfe\xc0\x80\0"))
group.case("ping.one-after-the-other", "5.5.3", "each ping is answered",
           *(step for i in range(10) for step in (wire.frame(PING, b"%d" % i), Pong(b"%d" % i))))
for name, sizes in {"at-once": None, "chopped": (3,)}.items():
    pings = b"".join(wire.frame(PING, b"%d" % i) for i in range(10))
    group.case(f"ping.ten-in-a-row.{name}", "5.5.3", "of pings in a row the last has to be answered, the others may be",
               Pieces(pings, sizes or (len(pings),)), Pongs(tuple(b"%d" % i for i in range(10))))
group.case("ping.before-a-message", "5.5.2", "a ping and a message behind it are both answered",
           wire.frame(PING, b"p") + HELLO, InAnyOrder((Pong(b"p"), HELLO_BACK)))
group.case("ping.behind-a-message", "5.5.2", "a message and a ping behind it are both answered",
           HELLO + wire.frame(PING, b"p"), InAnyOrder((HELLO_BACK, Pong(b"p"))))
group.case("ping.behind-a-long-message", "5.5.2", "a message and a ping behind it are both answered",
           wire.frame(BINARY, wire.octets(100_000)) + wire.frame(PING, b"p"),
           InAnyOrder((Message(BINARY, wire.octets(100_000)), Pong(b"p"))))

# ---------------------------------------------------------------------------------------------------------------------
# Between fragments.

for name, payload in {"empty": b"", "short": b"ping", "125-bytes": wire.octets(125)}.items():
    group.case(f"between.{name}", "5.4", "a ping between fragments is answered before the message is whole",
               wire.frame(TEXT, b"hel", fin=False) + wire.frame(PING, payload), Pong(payload),
               wire.frame(CONTINUATION, b"lo"), HELLO_BACK)
group.case("between.each-fragment", "5.4", "pings may stand between all fragments",
           *(step for i in range(5) for step in (
               wire.frame(CONTINUATION if i else TEXT, b"%d" % i, fin=False) + wire.frame(PING, b"ping %d" % i),
               Pong(b"ping %d" % i))),
           wire.frame(CONTINUATION, b"!"), Message(TEXT, b"01234!"))
group.case("between.at-once", "5.4", "a ping between fragments is no part of the message",
           wire.frame(TEXT, b"hel", fin=False) + wire.frame(PING, b"p") + wire.frame(CONTINUATION, b"lo"),
           InAnyOrder((Pong(b"p"), HELLO_BACK)))
group.case("between.at-once-byte-by-byte", "5.4", "a ping between fragments is no part of the message",
           Pieces(wire.frame(TEXT, b"hel", fin=False) + wire.frame(PING, b"p") + wire.frame(CONTINUATION, b"lo")),
           InAnyOrder((Pong(b"p"), HELLO_BACK)))
group.case("between.several", "5.4", "several pings may stand between two fragments",
           wire.frame(BINARY, b"a", fin=False) + b"".join(wire.frame(PING, b"%d" % i) for i in range(3)),
           Pongs((b"0", b"1", b"2")), wire.frame(CONTINUATION, b"b"), Message(BINARY, b"ab"))
group.case("between.pong", "5.4", "a pong between fragments is no part of the message",
           wire.frame(TEXT, b"hel", fin=False) + wire.frame(PONG, b"p") + wire.frame(CONTINUATION, b"lo"), HELLO_BACK)
group.case("between.masks", "5.3", "a ping between fragments has a key of its own",
           wire.frame(TEXT, b"hel", fin=False, key=b"\1\2\3\4") + wire.frame(PING, b"ping", key=b"\5\6\7\x08"),
           Pong(b"ping"), wire.frame(CONTINUATION, b"lo", key=b"\xff\xfe\xfd\xfc"), HELLO_BACK)
group.case("between.inside-a-character", "5.4", "a ping between fragments is no part of a character",
           wire.frame(TEXT, b"\xe2\x82", fin=False) + wire.frame(PING, b"\xff"), Pong(b"\xff"),
           wire.frame(CONTINUATION, b"\xac"), Message(TEXT, b"\xe2\x82\xac"))

# ---------------------------------------------------------------------------------------------------------------------
# Pongs that nobody asked for.

for size in (0, 1, 125):
    group.case(f"pong.unsolicited.{size}", "5.5.3", "a pong that nobody asked for is not answered",
               wire.frame(PONG, wire.octets(size)) + HELLO, HELLO_BACK)
group.case("pong.unsolicited.ten", "5.5.3", "pongs that nobody asked for are not answered",
           b"".join(wire.frame(PONG, b"%d" % i) for i in range(10)) + HELLO, HELLO_BACK)
group.case("pong.and-ping", "5.5.3", "a pong does not take the place of a ping's answer",
           wire.frame(PONG, b"same") + wire.frame(PING, b"same"), Pong(b"same"))
group.case("pong.not-utf8", "5.5.3", "a pong's payload is no text", wire.frame(PONG, b"\xff\xc0") + HELLO, HELLO_BACK)
group.case("pong.alone", "5.5.3", "a pong alone is not answered", wire.frame(PONG, b"x"))

# ---------------------------------------------------------------------------------------------------------------------
# What a control frame cannot be.

KINDS = {PING: "ping", PONG: "pong", CLOSE: "close"}

for opcode, name in KINDS.items():
    closes = {"replies": opcode != CLOSE}
    payload = wire.close_payload(1000) if opcode == CLOSE else b""
    for size in (126, 127, 128, 200, 65535, 65536):
        group.refused(f"too-long.{name}.{size}", "5.5", "a control frame has at most 125 bytes", 1002,
                      wire.frame(opcode, payload.ljust(size, b"x")), **closes)
    group.refused(f"fragmented.{name}.empty", "5.5", "a control frame is not fragmented", 1002,
                  wire.frame(opcode, payload, fin=False), **closes)
    group.refused(f"fragmented.{name}.continued", "5.5", "a control frame is not fragmented", 1002,
                  wire.frame(opcode, payload, fin=False) + wire.frame(CONTINUATION, b"x"), **closes)
    group.refused(f"fragmented.{name}.inside-a-message", "5.5", "a control frame is not fragmented", 1002,
                  wire.frame(TEXT, b"a", fin=False) + wire.frame(opcode, payload, fin=False), **closes)
    group.refused(f"too-long.{name}.inside-a-message", "5.5", "a control frame has at most 125 bytes", 1002,
                  wire.frame(TEXT, b"a", fin=False) + wire.frame(opcode, payload.ljust(126, b"x")), **closes)
group.case("too-long.ping.after-a-message", "5.5", "what came before is still echoed",
           HELLO + wire.frame(PING, bytes(126)) + HELLO, HELLO_BACK, wire.Close(1002))
