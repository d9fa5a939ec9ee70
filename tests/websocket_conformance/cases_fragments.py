"""Messages in fragments (RFC 6455, 5.4)."""

import wire
from cases import NAMES, Group, Pieces
from wire import BINARY, CONTINUATION, PING, PONG, TEXT, Message

group = Group("fragments")

# Sizes of the fragments of one message.
SHAPES = [(1, 1), (0, 1), (1, 0), (0, 0), (0, 0, 0), (1, 0, 1), (0, 1, 0), (5, 5, 5), (125, 126, 127), (126, 1),
          (1, 126), (65535, 1), (1, 65535), (65535, 65536), (65536, 0, 65536), (0,) * 10, (0,) * 9 + (1,),
          (1,) + (0,) * 9, (1,) * 10, (1, 2, 3, 4, 5, 6, 7, 8, 9, 10), (100_000, 100_000)]


def shape_name(sizes):
    return "-".join(map(str, sizes)) if len(set(sizes)) != 1 else f"{len(sizes)}-of-{sizes[0]}"


def parts_of(opcode, sizes):
    whole = wire.letters(sum(sizes)) if opcode == TEXT else wire.octets(sum(sizes))
    return wire.split_at(whole, *(sum(sizes[:i]) for i in range(1, len(sizes))))


for opcode, name in NAMES.items():
    for sizes in SHAPES:
        parts = parts_of(opcode, sizes)
        group.echoed(f"shape.{name}.{shape_name(sizes)}", "5.4", "a message is all its fragments in their order",
                     opcode, b"".join(parts), wire.fragments(opcode, parts))
    for sizes in ((1, 1), (0, 1, 0), (125, 126, 127), (1,) * 10):
        parts = parts_of(opcode, sizes)
        group.echoed(f"each-byte.{name}.{shape_name(sizes)}", "5.4", "fragments may arrive byte by byte", opcode,
                     b"".join(parts), wire.fragments(opcode, parts), sizes=(1,))
    for sizes in ((3000, 3000), (65535, 1, 65536)):
        parts = parts_of(opcode, sizes)
        group.echoed(f"chopped.{name}.{shape_name(sizes)}", "5.4", "pieces need not end where fragments end", opcode,
                     b"".join(parts), wire.fragments(opcode, parts), sizes=(1001,))
    for count in (100, 1000):
        parts = parts_of(opcode, (10,) * count)
        group.echoed(f"many.{name}.{count}", "5.4", f"a message may have {count} fragments", opcode, b"".join(parts),
                     wire.fragments(opcode, parts))
    parts = parts_of(opcode, (64,) * 4096)
    group.echoed(f"many.{name}.4096", "5.4", "a long message may have 4096 fragments", opcode, b"".join(parts),
                 wire.fragments(opcode, parts))

group.case("two-messages", "5.4", "one message in fragments may follow another",
           b"".join(wire.fragments(TEXT, [b"on", b"e"]) + wire.fragments(BINARY, [b"t", b"w", b"o"])),
           Message(TEXT, b"one"), Message(BINARY, b"two"))
group.case("then-whole", "5.4", "a message in one frame may follow one in fragments",
           *wire.fragments(TEXT, [b"on", b"e"]), wire.frame(TEXT, b"two"), *wire.fragments(TEXT, [b"", b""]),
           Message(TEXT, b"one"), Message(TEXT, b"two"), Message(TEXT, b""))
group.case("waiting-for-the-last", "5.4", "what is not whole is not echoed; a ping in the middle is",
           wire.frame(TEXT, b"a", fin=False) + wire.frame(CONTINUATION, b"b", fin=False) + wire.frame(PING, b"p"),
           wire.Pong(b"p"), wire.frame(CONTINUATION), Message(TEXT, b"ab"))

# ---------------------------------------------------------------------------------------------------------------------
# A continuation that continues nothing.

for size in (0, 5, 126):
    for name, fin in {"last": True, "first": False}.items():
        group.refused(f"no-start.{name}.{size}", "5.4", "a continuation needs a message to continue", 1002,
                      wire.frame(CONTINUATION, b"x" * size, fin))
group.case("no-start.after-a-message", "5.4", "a whole message cannot be continued",
           wire.frame(TEXT, b"whole") + wire.frame(CONTINUATION, b"more"), Message(TEXT, b"whole"), wire.Close(1002))
group.case("no-start.after-fragments", "5.4", "a message cannot be continued behind its last fragment",
           b"".join(wire.fragments(TEXT, [b"who", b"le"])) + wire.frame(CONTINUATION, b"more"), Message(TEXT, b"whole"),
           wire.Close(1002))
group.refused("no-start.after-a-ping", "5.4", "a control frame cannot be continued", 1002,
              wire.frame(PING, b"p"), wire.Pong(b"p"), wire.frame(CONTINUATION, b"more"))
group.refused("no-start.after-a-pong", "5.4", "a control frame cannot be continued", 1002,
              wire.frame(PONG, b"p") + wire.frame(CONTINUATION, b"more"))
group.refused("no-start.each-byte", "5.4", "a continuation needs a message to continue", 1002,
              Pieces(wire.frame(CONTINUATION, b"hello")))

# ---------------------------------------------------------------------------------------------------------------------
# A new message inside a message.

for first, first_name in NAMES.items():
    for second, second_name in NAMES.items():
        for name, fin in {"whole": True, "fragment": False}.items():
            group.refused(f"inside.{first_name}.{second_name}.{name}", "5.4",
                          "no message begins before the former one has ended", 1002,
                          wire.frame(first, b"a", fin=False), wire.frame(second, b"b", fin))
        group.refused(f"inside.{first_name}.{second_name}.after-continuation", "5.4",
                      "no message begins before the former one has ended", 1002,
                      wire.frame(first, b"a", fin=False) + wire.frame(CONTINUATION, b"b", fin=False)
                      + wire.frame(second, b"c"))
group.refused("inside.after-an-empty-fragment", "5.4", "an empty fragment begins a message", 1002,
              wire.frame(TEXT, fin=False) + wire.frame(TEXT, b"b"))
group.refused("inside.after-a-ping", "5.4", "a ping does not end a message", 1002,
              wire.frame(TEXT, b"a", fin=False) + wire.frame(PING, b"p"), wire.Pong(b"p"), wire.frame(TEXT, b"b"))
