"""Deflate streams (RFC 1951) as payloads of compressed messages, without their last four octets: 00 00 ff ff."""

import zlib

import deflate
import wire


def bits(*fields):
    """Octets from fields: numbers with their count of bits, the lowest first, or Huffman codes as text."""
    text = "".join(field if isinstance(field, str) else format(field[0], f"0{field[1]}b")[::-1] for field in fields)
    text += "0" * (-len(text) % 8)
    return bytes(int(text[i:i + 8][::-1], 2) for i in range(0, len(text), 8))


# The first three bits of a block, and fixed codes.
FIXED, DYNAMIC, RESERVED = (2, 3), (4, 3), (6, 3)
EMPTY_STORED_HEADER = (0, 3)
END_OF_BLOCK = "0000000"


def literal(character):
    return format(0x30 + ord(character), "08b")


# A length of 258, of 3, and distances of 32768 and of 1.
LENGTH_258, LENGTH_3 = "11000101", "0000001"
DISTANCE_32768, DISTANCE_1 = ("11101", (8191, 13)), ("00000",)


def stored(data, is_final=False):
    return bytes([is_final]) + len(data).to_bytes(2, "little") + (len(data) ^ 0xFFFF).to_bytes(2, "little") + data


def with_flushes(message, mode):
    """A message in several blocks."""
    deflater = deflate.compressor()
    data = b"".join(deflater.compress(part) + deflater.flush(mode) for part in wire.in_pieces(message, (700,)))
    return (data + deflater.flush(zlib.Z_SYNC_FLUSH))[:-len(deflate.TAIL)]


def finished(message):
    """A message whose last block says that it is the last; the octet behind it is the header of an empty block."""
    deflater = deflate.compressor()
    return deflater.compress(message) + deflater.flush(zlib.Z_FINISH)


def by_strategy(message, strategy, level=6):
    return deflate.compressed(message, deflate.compressor(15, level, strategy))


TEXT = wire.letters(4000)
RANDOM = wire.octets(32_768)

VALID = {
    # The examples of RFC 7692, 7.2.3.
    "example.hello": (bytes.fromhex("f248cdc9c90700"), b"Hello"),
    "example.stored": (bytes.fromhex("000500faff48656c6c6f00"), b"Hello"),
    "example.final": (bytes.fromhex("f348cdc9c9070000"), b"Hello"),
    "example.two-blocks": (bytes.fromhex("f24805000000ffffcac9c90700"), b"Hello"),
    "example.empty": (b"\0", b""),
    "empty.fixed": (bits(FIXED, END_OF_BLOCK, EMPTY_STORED_HEADER), b""),
    "empty.two-fixed": (bits(FIXED, END_OF_BLOCK, FIXED, END_OF_BLOCK, EMPTY_STORED_HEADER), b""),
    "empty.stored": (stored(b"") + b"\0", b""),
    "empty.final": (b"\x03\x00\x00", b""),
    "empty.stored-final": (stored(b"", True) + b"\0", b""),
    "stored.one": (stored(b"x") + b"\0", b"x"),
    "stored.many": (b"".join(stored(bytes([i])) for i in range(50)) + b"\0", bytes(range(50))),
    "stored.65535": (stored(wire.octets(65_535)) + b"\0", wire.octets(65_535)),
    "stored.100000": (by_strategy(wire.octets(100_000), zlib.Z_DEFAULT_STRATEGY, 0), wire.octets(100_000)),
    "stored.final": (stored(b"Hello", True) + b"\0", b"Hello"),
    "fixed": (by_strategy(TEXT, zlib.Z_FIXED), TEXT),
    "dynamic": (deflate.compressed(TEXT), TEXT),
    "huffman-only": (by_strategy(TEXT, zlib.Z_HUFFMAN_ONLY), TEXT),
    "run-length": (by_strategy(b"a" * 500 + b"b" * 3000, zlib.Z_RLE), b"a" * 500 + b"b" * 3000),
    "blocks.sync": (with_flushes(TEXT, zlib.Z_SYNC_FLUSH), TEXT),
    "blocks.full": (with_flushes(TEXT, zlib.Z_FULL_FLUSH), TEXT),
    "blocks.partial": (with_flushes(TEXT, zlib.Z_PARTIAL_FLUSH), TEXT),
    "final.dynamic": (finished(TEXT) + b"\0", TEXT),
    "final.then-block": (finished(b"Hel") + deflate.compressed(b"lo"), b"Hello"),
    "final.then-final": (finished(b"Hel") + finished(b"lo") + b"\0", b"Hello"),
    "final.stored-then-block": (stored(b"Hel", True) + deflate.compressed(b"lo"), b"Hello"),
    "match.longest": (bits(FIXED, literal("x"), LENGTH_258, *DISTANCE_1, END_OF_BLOCK, EMPTY_STORED_HEADER),
                      b"x" * 259),
    "match.farthest": (stored(RANDOM) + bits(FIXED, LENGTH_258, *DISTANCE_32768, END_OF_BLOCK, EMPTY_STORED_HEADER),
                       RANDOM + RANDOM[:258]),
}

INVALID = {
    "reserved-block": bits(RESERVED) + bytes(8),
    "reserved-block.final": b"\x07" + bytes(8),
    "stored.length-not-complemented": bytes.fromhex("0005000000") + b"Hello",
    "stored.one-bit-off": bytes.fromhex("000500fbff") + b"Hello",
    "match.no-data": bits(FIXED, LENGTH_3, *DISTANCE_1, END_OF_BLOCK, EMPTY_STORED_HEADER),
    "match.too-far": bits(FIXED, literal("x"), LENGTH_3, *DISTANCE_32768, END_OF_BLOCK, EMPTY_STORED_HEADER),
    "match.length-286": bits(FIXED, literal("x"), "11000110", *DISTANCE_1, END_OF_BLOCK) + bytes(4),
    "match.length-287": bits(FIXED, literal("x"), "11000111", *DISTANCE_1, END_OF_BLOCK) + bytes(4),
    "match.distance-30": bits(FIXED, literal("x"), LENGTH_3, "11110", END_OF_BLOCK) + bytes(4),
    "match.distance-31": bits(FIXED, literal("x"), LENGTH_3, "11111", END_OF_BLOCK) + bytes(4),
    "dynamic.too-many-lengths": bits(DYNAMIC, (31, 5), (0, 5), (0, 4)) + bytes(20),
    "dynamic.too-many-distances": bits(DYNAMIC, (0, 5), (31, 5), (0, 4)) + bytes(20),
    "dynamic.no-codes": bits(DYNAMIC, (0, 5), (0, 5), (15, 4)) + bytes(60),
    "dynamic.too-many-codes": bits(DYNAMIC, (0, 5), (0, 5), (15, 4), *[(1, 3)] * 19) + bytes(20),
    "zlib-header": zlib.compress(b"Hello"),
    "gzip-header": bytes.fromhex("1f8b0800000000000003") + deflate.compressed(b"Hello"),
    "ones": b"\xff" * 20,
    "after-data": deflate.compressed(TEXT) + bytes.fromhex("0000ffff") + bits(RESERVED) + bytes(8),
}

# Streams that end inside a block, and what inflates of them: the sender did not do as it has to, and the receiver may
# notice.
OPEN = {
    "no-octet": (b"", b""),
    "tail-not-removed": (deflate.compressed(b"Hello") + deflate.TAIL, b"Hello"),
    "without-the-empty-block": (bytes.fromhex("f248cdc9c907"), b"Hello"),
    "final-without-the-empty-block": (bytes.fromhex("f348cdc9c90700"), b"Hello"),
}
