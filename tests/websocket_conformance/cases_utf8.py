"""Texts (RFC 6455, 5.6 and 8.1): what is UTF-8 comes back, and anything else fails the connection with 1007, as early
as its bytes make that certain."""

import wire
from cases import Group, Pieces
from wire import BINARY, CONTINUATION, PING, TEXT, Message, Pong

group = Group("utf8")

# ---------------------------------------------------------------------------------------------------------------------
# What is UTF-8.

SCALARS = (0x00, 0x01, 0x0A, 0x0D, 0x1F, 0x20, 0x7E, 0x7F, 0x80, 0x81, 0xBF, 0xC0, 0xFF, 0x100, 0x7BF, 0x7C0, 0x7FF,
           0x800, 0x801, 0xFFF, 0x1000, 0x2028, 0x20AC, 0xCFFF, 0xD000, 0xD7FF, 0xE000, 0xE001, 0xFDD0, 0xFEFF, 0xFFFD,
           0xFFFE, 0xFFFF, 0x10000, 0x10001, 0x1F600, 0x1FFFE, 0x3FFFF, 0x40000, 0xFFFFF, 0x100000, 0x10FFFE, 0x10FFFF)

for scalar in SCALARS:
    text = chr(scalar).encode()
    group.echoed(f"scalar.{scalar:06x}", "8.1", f"U+{scalar:04X} is a character", TEXT, text)
group.echoed("scalar.all-boundaries", "8.1", "characters of all lengths follow each other", TEXT,
             "".join(map(chr, SCALARS)).encode())
group.echoed("scalar.every-256th", "8.1", "characters of all planes follow each other", TEXT,
             "".join(chr(c) for c in range(0, 0x110000, 256) if not 0xD800 <= c < 0xE000).encode())

TEXTS = {"greek": "κόσμε", "mixed": "aß€😀z", "combining": "e\u0301\u0323", "four-bytes": "😀" * 5,
         "order-mark": "\ufeffx"}

for name, text in TEXTS.items():
    encoded = text.encode()
    group.echoed(f"text.{name}", "8.1", "a text of several bytes for each character", TEXT, encoded)
    group.echoed(f"text.{name}.each-byte", "8.1", "characters may be cut between TCP segments", TEXT, encoded,
                 sizes=(1,))
    group.echoed(f"text.{name}.byte-fragments", "5.6", "characters may be cut between fragments", TEXT, encoded,
                 wire.fragments(TEXT, [bytes([octet]) for octet in encoded]))
group.echoed("text.long", "8.1", "a long text of characters of four bytes", TEXT, ("😀" * 20_000).encode())
group.echoed("text.long.chopped", "8.1", "a long text may be cut inside of its characters", TEXT,
             ("€" * 30_000).encode(), sizes=(1001,))
group.echoed("text.long.fragments", "8.1", "a long text may be cut inside of its characters", TEXT,
             ("€" * 30_000).encode(), wire.fragments(TEXT, wire.in_pieces(("€" * 30_000).encode(), (1000,))))

for name, text in {"two": b"\xc3\xa9", "three": b"\xe2\x82\xac", "four": b"\xf0\x9f\x98\x80",
                   "greek": "κόσμε".encode()}.items():
    for position in range(1, len(text)):
        first, second = wire.split_at(text, position)
        group.case(f"cut.{name}.{position}.fragments", "5.6", "a character cut between fragments is waited for",
                   wire.frame(TEXT, first, fin=False) + wire.frame(PING, b"p"), Pong(b"p"),
                   wire.frame(CONTINUATION, second), Message(TEXT, text))
        group.echoed(f"cut.{name}.{position}.empty-fragments", "5.6", "empty fragments may stand inside a character",
                     TEXT, text, wire.fragments(TEXT, [first, b"", b"", second]))
        group.case(f"cut.{name}.{position}.segments", "8.1", "a character may be cut between TCP segments",
                   *wire.split_at(wire.frame(TEXT, text), 6 + position), Message(TEXT, text))

group.echoed("binary", "5.6", "a binary message is no text", BINARY, b"\xff\xfe\xc0\x80\xed\xa0\x80\xf4\x90\x80\x80")
group.echoed("binary.fragments", "5.6", "a binary message in fragments is no text", BINARY, b"\xff\xfe\xc0\x80",
             wire.fragments(BINARY, [b"\xff\xfe", b"\xc0", b"\x80"]))
group.case("next-text-is-new", "8.1", "no state of a text is left for the next one",
           wire.frame(TEXT, b"\xc3\xa9") + wire.frame(BINARY, b"\xe2\x82") + wire.frame(TEXT, b"\xc3\xa9"),
           Message(TEXT, b"\xc3\xa9"), Message(BINARY, b"\xe2\x82"), Message(TEXT, b"\xc3\xa9"))

# ---------------------------------------------------------------------------------------------------------------------
# What is not: the bytes, and how many of them make it certain. Of each the rest would make a character of it, if any
# could.

INVALID = {
    "continuation.80": (b"\x80", 1), "continuation.bf": (b"\xbf", 1), "continuation.two": (b"\x80\xbf", 1),
    "continuation.after-two-bytes": (b"\xc3\xa9\x80", 3), "continuation.after-three-bytes": (b"\xe2\x82\xac\x80", 4),
    "continuation.after-four-bytes": (b"\xf0\x9f\x98\x80\x80", 5),
    "overlong.2.c080": (b"\xc0\x80", 1), "overlong.2.c0af": (b"\xc0\xaf", 1), "overlong.2.c1bf": (b"\xc1\xbf", 1),
    "overlong.3.e08080": (b"\xe0\x80\x80", 2), "overlong.3.e080af": (b"\xe0\x80\xaf", 2),
    "overlong.3.e09fbf": (b"\xe0\x9f\xbf", 2),
    "overlong.4.f0808080": (b"\xf0\x80\x80\x80", 2), "overlong.4.f08080af": (b"\xf0\x80\x80\xaf", 2),
    "overlong.4.f08fbfbf": (b"\xf0\x8f\xbf\xbf", 2),
    "overlong.5.f880808080": (b"\xf8\x80\x80\x80\x80", 1), "overlong.6.fc8080808080": (b"\xfc\x80\x80\x80\x80\x80", 1),
    "surrogate.d800": (b"\xed\xa0\x80", 2), "surrogate.db7f": (b"\xed\xad\xbf", 2),
    "surrogate.dbff": (b"\xed\xaf\xbf", 2), "surrogate.dc00": (b"\xed\xb0\x80", 2),
    "surrogate.dfff": (b"\xed\xbf\xbf", 2), "surrogate.pair": (b"\xed\xa0\xbd\xed\xb8\x80", 2),
    "beyond.110000": (b"\xf4\x90\x80\x80", 2), "beyond.13ffff": (b"\xf4\xbf\xbf\xbf", 2),
    "beyond.140000": (b"\xf5\x80\x80\x80", 1), "beyond.1fffff": (b"\xf7\xbf\xbf\xbf", 1),
    "long.200000": (b"\xf8\x88\x80\x80\x80", 1), "long.3ffffff": (b"\xfb\xbf\xbf\xbf\xbf", 1),
    "long.4000000": (b"\xfc\x84\x80\x80\x80\x80", 1), "long.7fffffff": (b"\xfd\xbf\xbf\xbf\xbf\xbf", 1),
    "octet.fe": (b"\xfe", 1), "octet.ff": (b"\xff", 1),
    "cut-short.c3-ascii": (b"\xc3a", 2), "cut-short.e2-ascii": (b"\xe2a\xac", 2),
    "cut-short.e282-ascii": (b"\xe2\x82a", 3), "cut-short.f0-ascii": (b"\xf0a\x98\x80", 2),
    "cut-short.f09f-ascii": (b"\xf0\x9fa\x80", 3), "cut-short.f09f98-ascii": (b"\xf0\x9f\x98a", 4),
    "cut-short.c3-c3": (b"\xc3\xc3\xa9", 2), "cut-short.e282-e2": (b"\xe2\x82\xe2\x82\xac", 3),
    "cut-short.f09f98-f0": (b"\xf0\x9f\x98\xf0\x9f\x98\x80", 4), "cut-short.e282-c0": (b"\xe2\x82\xc0", 3),
    "latin-1": (b"caf\xe9 noir", 5),
}

for name, (octets, certain) in INVALID.items():
    title = f"{octets.hex(' ')} is not UTF-8"
    group.refused(f"invalid.{name}.alone", "8.1", title, 1007, wire.frame(TEXT, octets))
    text = "καλό ".encode() + octets + b" and more"
    group.refused(f"invalid.{name}.inside", "8.1", title, 1007, wire.frame(TEXT, text))
    end = len("καλό ".encode()) + certain
    sent = wire.frame(TEXT, text)
    group.refused(f"invalid.{name}.early-in-a-frame", "8.1",
                  f"{title}; that is certain after {certain} bytes, with the frame's rest still to come", 1007,
                  sent[:len(sent) - len(text) + end])
    group.refused(f"invalid.{name}.early-in-fragments", "8.1",
                  f"{title}; that is certain after {certain} bytes, with the last fragment still to come", 1007,
                  *(wire.frame(CONTINUATION if i else TEXT, text[i:i + 1], fin=False) for i in range(end)))

group.refused("invalid.each-byte", "8.1", "what is not UTF-8 may arrive byte by byte", 1007,
              Pieces(wire.frame(TEXT, b"\xce\xba\xed\xa0\x80")))
group.refused("invalid.late", "8.1", "the last of many bytes may be the wrong one", 1007,
              wire.frame(TEXT, b"x" * 70_000 + b"\xff"))
group.refused("invalid.early-in-a-long-frame", "8.1", "the first of many bytes is enough to fail the connection", 1007,
              wire.header(TEXT, 60_000) + wire.masked(wire.KEY, b"\xff"))
group.refused("invalid.second-message", "8.1", "a text is looked at, whatever came before", 1007,
              wire.frame(TEXT, b"fine"), Message(TEXT, b"fine"), wire.frame(TEXT, b"\xf5"))
group.refused("invalid.after-a-ping", "8.1", "a ping inside a character does not make it whole", 1007,
              wire.frame(TEXT, b"\xe2\x82", fin=False) + wire.frame(PING, b"\xac"), Pong(b"\xac"),
              wire.frame(CONTINUATION, b"a", fin=False))

# ---------------------------------------------------------------------------------------------------------------------
# Characters that are not whole when the text ends.

for octets in (b"\xc3", b"\xdf", b"\xe0\xa0", b"\xe2", b"\xe2\x82", b"\xed\x9f", b"\xef\xbf", b"\xf0", b"\xf0\x9f",
               b"\xf0\x9f\x98", b"\xf4\x8f\xbf"):
    name, title = octets.hex(), f"a text cannot end with {octets.hex(' ')}"
    group.refused(f"truncated.{name}.alone", "8.1", title, 1007, wire.frame(TEXT, octets))
    group.refused(f"truncated.{name}.behind-text", "8.1", title, 1007, wire.frame(TEXT, b"text " + octets))
    group.refused(f"truncated.{name}.fragments", "8.1", title, 1007,
                  *wire.fragments(TEXT, [b"text ", octets]))
    group.refused(f"truncated.{name}.empty-fragment", "8.1", title, 1007, *wire.fragments(TEXT, [octets, b""]))
    group.refused(f"truncated.{name}.next-message", "8.1", "the next message does not complete a character", 1007,
                  wire.frame(TEXT, octets) + wire.frame(TEXT, b"\xac"))
