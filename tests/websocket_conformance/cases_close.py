"""Closing handshakes (RFC 6455, 5.5.1 and 7)."""

import wire
from cases import Group, InAnyOrder, OneOf, Pieces
from wire import BINARY, CLOSE, CONTINUATION, PING, TEXT, Close, Message, Pong

HELLO, HELLO_BACK = wire.frame(TEXT, b"hello"), Message(TEXT, b"hello")

# The client closes in all of them; in all of them the TCP connection has to end behind the server's close frame, and
# there is one.
group = Group("close", replies=False)

# ---------------------------------------------------------------------------------------------------------------------
# Codes.

for code in (*range(1000, 1004), *range(1007, 1015), 3000, 3001, 3500, 3999, 4000, 4001, 4500, 4998, 4999):
    # A server has no use for 1010, and may say 1000 instead (7.4.1).
    answer = OneOf((Close(1010), Close(1000))) if code == 1010 else Close(code)
    group.case(f"code.{code}", "5.5.1", f"the code {code} is echoed", wire.close_frame(code), answer)
    group.case(f"code.{code}.with-reason", "5.5.1", f"the code {code} is echoed, with or without its reason",
               wire.close_frame(code, b"because"), answer)
for code in (0, 1, 125, 500, 999, 1004, 1005, 1006, 1015, 1016, 1017, 1099, 1100, 1999, 2000, 2500, 2999, 5000, 5001,
             9999, 32768, 59395, 65535):
    group.case(f"bad-code.{code}", "7.4", f"the code {code} must not be sent", wire.close_frame(code), Close(1002))
    group.case(f"bad-code.{code}.with-reason", "7.4", f"the code {code} must not be sent, with a reason either",
               wire.close_frame(code, b"because"), Close(1002))

group.case("empty", "5.5.1", "a close frame without a code is answered without one, or with 1000: that is left open",
           wire.close_frame(), OneOf((Close(None), Close(1000))))
for octet in (b"\0", b"\3", b"\xe8", b"\xff"):
    group.case(f"one-byte.{octet.hex()}", "5.5.1", "one byte is no code", wire.frame(CLOSE, octet), Close(1002))

# ---------------------------------------------------------------------------------------------------------------------
# Reasons.

for size in (1, 2, 3, 61, 122, 123):
    group.case(f"reason.{size}", "5.5.1", f"a reason may have {size} bytes", wire.close_frame(1000, wire.letters(size)),
               Close(1000))
for name, reason in {"greek": "κόσμε", "four-bytes": "😀" * 30, "zero": "\0", "last": "\U0010ffff"}.items():
    group.case(f"reason.{name}", "5.5.1", "a reason is UTF-8", wire.close_frame(3000, reason.encode()), Close(3000))
for reason in (b"\xff", b"\x80", b"\xc0\x80", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xe2\x82", b"\xc3", b"fine\xfe",
               b"\xf8\x88\x80\x80\x80", "κόσμε".encode()[:-1], b"x" * 120 + b"\xe2\x82"):
    group.case(f"bad-reason.{reason.hex()[-12:]}", "8.1", "a reason that is not UTF-8 fails the connection",
               wire.close_frame(1000, reason), Close(1007))

# ---------------------------------------------------------------------------------------------------------------------
# How it arrives.

group.case("pieces.each-byte", "5.5.1", "a close frame may arrive byte by byte",
           Pieces(wire.close_frame(1000, b"because")), Close(1000))
for position in range(1, 8):
    group.case(f"cut.{position}", "5.5.1", "a close frame may be cut anywhere",
               *wire.split_at(wire.close_frame(1000), position), Close(1000))
for name, key in {"zeros": bytes(4), "ones": b"\xff" * 4}.items():
    group.case(f"mask.{name}", "5.3", "any key masks a close frame",
               wire.frame(CLOSE, wire.close_payload(4000, b"bye"), key=key), Close(4000))
group.case("behind-the-request", "4.1", "a close frame may follow the opening request at once", Close(1000),
           behind=wire.close_frame(1000))

# ---------------------------------------------------------------------------------------------------------------------
# What stands before and behind it.

group.case("after-a-message", "5.5.1", "what came before the close frame is echoed", HELLO, HELLO_BACK,
           wire.close_frame(1000), Close(1000))
group.case("after-a-message.at-once", "5.5.1", "what came before the close frame is echoed, or not: the server may be "
           "closing by then", HELLO + wire.close_frame(1000), OneOf((HELLO_BACK, Close(1000))))
group.case("after-a-ping", "5.5.2", "a ping before the close frame is answered", wire.frame(PING, b"p"), Pong(b"p"),
           wire.close_frame(1000), Close(1000))
group.case("after-a-long-message", "5.5.1", "a long message is echoed whole before the connection is closed",
           wire.frame(BINARY, wire.octets(200_000)), Message(BINARY, wire.octets(200_000)), wire.close_frame(1001),
           Close(1001))
group.case("after-echo-and-ping", "5.5.1", "nothing is left behind the close frame",
           HELLO + wire.frame(PING, b"p"), InAnyOrder((HELLO_BACK, Pong(b"p"))), wire.close_frame(1000), Close(1000))
group.case("inside-a-message", "5.4", "a close frame may stand between fragments",
           wire.frame(TEXT, b"hel", fin=False) + wire.close_frame(1000), Close(1000))
group.case("inside-a-message.continued", "5.5.1", "the message's rest behind a close frame is ignored",
           wire.frame(TEXT, b"hel", fin=False) + wire.close_frame(1000) + wire.frame(CONTINUATION, b"lo"), Close(1000))
group.case("inside-a-character", "5.4", "a close frame inside a character is no error of the text",
           wire.frame(TEXT, b"\xe2\x82", fin=False) + wire.close_frame(1000), Close(1000))

BEHIND = {"text": HELLO, "binary": wire.frame(BINARY, b"\0"), "ping": wire.frame(PING, b"p"),
          "close": wire.close_frame(1000), "another-close": wire.close_frame(1001, b"again"),
          "bad-close": wire.close_frame(999), "bad-text": wire.frame(TEXT, b"\xff"),
          "reserved-opcode": wire.frame(3, b"x"), "reserved-bits": wire.frame(TEXT, b"x", rsv=0x70),
          "unmasked": wire.frame(TEXT, b"x", key=None), "continuation": wire.frame(CONTINUATION, b"x"),
          "fragment": wire.frame(TEXT, b"x", fin=False), "half-a-frame": HELLO[:4], "one-byte": b"\x81",
          "no-frame": b"GET / HTTP/1.1\r\n\r\n", "long": wire.frame(BINARY, bytes(10_000)),
          "ten-texts": HELLO * 10}
for name, behind in BEHIND.items():
    group.case(f"behind.{name}", "5.5.1", "what comes behind a close frame is ignored: the code is echoed, once",
               wire.close_frame(1000) + behind, Close(1000))

# ---------------------------------------------------------------------------------------------------------------------
# The server closes first.

group.case("failed.then-text", "7.1.7", "what comes behind the frame that failed the connection is ignored",
           wire.frame(3, b"x") + HELLO + wire.frame(PING, b"p"), Close(1002))
group.case("failed.then-close", "7.1.7", "a close frame behind the frame that failed the connection changes no code",
           wire.frame(3, b"x") + wire.close_frame(1000), Close(1002))
group.case("failed.twice", "7.1.7", "a connection fails once", wire.frame(3, b"x") + wire.frame(TEXT, b"\xff"),
           Close(1002))
group.case("failed.without-reply", "7.1.7", "the TCP connection ends soon, even if the client does not reply",
           wire.frame(TEXT, b"\xff"), Close(1007))
group.case("failed.then-reply", "7.1.1", "the TCP connection ends behind the client's reply", wire.frame(TEXT, b"\xff"),
           Close(1007), wire.close_frame(1007))
