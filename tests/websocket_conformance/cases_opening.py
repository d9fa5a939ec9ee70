"""Opening handshakes (RFC 6455, 4): which are accepted, and how the others are answered."""

import wire
from cases import Group
from opening import ANY_BUT_SWITCHING, ANY_ERROR, KEY, PROTOCOL, Opening
from wire import BINARY, PING, TEXT, Message, Pong

BAD_REQUEST = frozenset({400})
# A version that cannot be read is as well one that is not known.
BAD_OR_UNKNOWN_VERSION = frozenset({400, 426})
FORBIDDEN = frozenset({403})

HELLO = wire.frame(TEXT, b"hello")
HELLO_BACK = Message(TEXT, b"hello")

group = Group("opening")


def opens(id, section, title, fields=(), steps=(HELLO, HELLO_BACK), request=(), **more):
    group.case(id, section, title, *steps, opening=Opening(dict(fields), **dict(request)), **more)


def refuses(id, section, title, statuses, fields=(), **request):
    group.case(id, section, title, opening=Opening(dict(fields), refused=statuses, **request))


# ---------------------------------------------------------------------------------------------------------------------
# What has to be accepted.

opens("plain", "4.2.2", "the smallest opening handshake is accepted and says all that it has to")
opens("query", "4.2.1", "a resource name may have a query", request={"query": "?a=b&c=%20"})

for number, value in enumerate(["WebSocket", "WEBSOCKET", "webSocket", "  websocket  ", "\twebsocket"]):
    opens(f"upgrade.token.{number}", "4.2.1", "the token of Upgrade is taken in any case, and between blanks",
          {"Upgrade": (value,)})
for number, values in enumerate([("foo, websocket",), ("websocket, foo/2",), ("foo", "websocket"),
                                 ("websocket", "foo"), (",websocket,",)]):
    opens(f"upgrade.list.{number}", "4.2.1", "websocket may be one protocol of several in Upgrade", {"Upgrade": values})

for number, value in enumerate(["upgrade", "UPGRADE", "uPgRaDe", "  Upgrade  ", "keep-alive, Upgrade",
                                "Upgrade, keep-alive", "keep-alive,Upgrade", "keep-alive , upgrade",
                                "keep-alive,\tupgrade", ", Upgrade ,", "TE, keep-alive, Upgrade, X-Foo"]):
    opens(f"connection.token.{number}", "4.2.1", "the token of Connection is taken in any case and in any list",
          {"Connection": (value,)})
for number, values in enumerate([("keep-alive", "Upgrade"), ("Upgrade", "keep-alive"), ("keep-alive", "TE, upgrade"),
                                 ("Upgrade", "Upgrade")]):
    opens(f"connection.repeated.{number}", "4.2.1", "a repeated Connection is one list", {"Connection": values})

for number, name in enumerate(["upgrade", "UPGRADE", "uPGRADE"]):
    opens(f"name.upgrade.{number}", "4.2.1", "names of fields are taken in any case",
          {"Upgrade": (), name: ("websocket",)})
opens("name.all-lower-case", "4.2.1", "names of fields are taken in any case",
      {"Upgrade": (), "Connection": (), "Host": (), "Sec-WebSocket-Version": (), "upgrade": ("websocket",),
       "connection": ("upgrade",), "host": ("{host}:{port}",), "sec-websocket-version": ("13",)})

for number, value in enumerate(["AQIDBAUGBwgJCgsMDQ4PEA==", "AAAAAAAAAAAAAAAAAAAAAA==", "/////////////////////w==",
                                "+/+/+/+/+/+/+/+/+/+/+w==", "  " + KEY + "  "]):
    opens(f"key.{number}", "4.2.2", "Sec-WebSocket-Accept belongs to the key", {"Sec-WebSocket-Key": (value,)})

opens("unknown-fields", "4.2.1", "fields that nobody knows are ignored",
      {"Cookie": ("a=b",), "X-Unknown": ("1", "2"), "Sec-WebSocket-Unknown": ("x",), "Pragma": ("no-cache",)})
opens("long-field", "4.2.1", "a field of 2000 bytes is no reason to refuse", {"X-Long": ("x" * 2000,)})
opens("unknown-extension", "9.1", "an extension that the server does not know is declined",
      {"Sec-WebSocket-Extensions": ("x-unknown",)})
opens("unknown-extension-with-parameters", "9.1", "an extension that the server does not know is declined",
      {"Sec-WebSocket-Extensions": ('x-unknown; a=1; b="two", x-other',)})

# ---------------------------------------------------------------------------------------------------------------------
# How the request arrives.

for size in (1, 2, 7, 64):
    opens(f"pieces.{size}", "4.1", "the request may arrive in pieces", pieces=(size,))
opens("behind.text", "4.1", "frames may follow the request at once", steps=(HELLO_BACK,), behind=HELLO)
opens("behind.text-in-pieces", "4.1", "frames may follow the request at once", steps=(HELLO_BACK,), behind=HELLO,
      pieces=(1,))
opens("behind.empty-text", "4.1", "frames may follow the request at once", steps=(Message(TEXT, b""),),
      behind=wire.frame(TEXT))
opens("behind.several-messages", "4.1", "frames may follow the request at once, and keep their order",
      steps=(HELLO_BACK, Message(BINARY, b"\0\1"), HELLO_BACK), behind=HELLO + wire.frame(BINARY, b"\0\1") + HELLO)
opens("behind.ping", "4.1", "a control frame may follow the request at once", steps=(Pong(b"early"),),
      behind=wire.frame(PING, b"early"))
for count in (1, 2, 5, 6, len(HELLO) - 1):
    opens(f"behind.part.{count}", "4.1", "a part of a frame may follow the request at once",
          steps=(HELLO[count:], HELLO_BACK), behind=HELLO[:count])
opens("behind.16384-bytes", "4.1", "long frames may follow the request at once",
      steps=(Message(BINARY, wire.octets(16384)),), behind=wire.frame(BINARY, wire.octets(16384)))
opens("behind.head-then-pieces", "4.1", "frames may follow in the piece that ends the request",
      steps=(HELLO_BACK, HELLO_BACK), behind=HELLO * 2, pieces=(50,))
group.refused("behind.broken-frame", "4.1", "what is wrong behind the request fails the connection", 1002,
              behind=wire.frame(3, b"x"))

# ---------------------------------------------------------------------------------------------------------------------
# What must not open a WebSocket.

for method in ("POST", "PUT", "HEAD", "DELETE", "OPTIONS"):
    fields = {} if method in ("HEAD", "DELETE", "OPTIONS") else {"Content-Length": ("0",)}
    refuses(f"method.{method.lower()}", "4.2.1", "only GET opens a WebSocket",
            ANY_BUT_SWITCHING if method in ("HEAD", "OPTIONS") else ANY_ERROR, fields, method=method)
refuses("method.get-in-lower-case", "4.2.1", "only GET opens a WebSocket, and methods have a case", ANY_ERROR,
        method="get")
refuses("http-1.0", "4.2.1", "HTTP/1.0 opens no WebSocket (RFC 9110, 7.8: its Upgrade is ignored)", ANY_BUT_SWITCHING,
        version="HTTP/1.0")
refuses("host-missing", "4.2.1", "a request without Host is refused", BAD_REQUEST, {"Host": ()})

for number, values in enumerate([(), ("websockets",), ("xwebsocket",), ("web socket",), ("h2c",), ("",),
                                 ("web", "socket"), ("websocket-x",)]):
    refuses(f"upgrade.{number}", "4.2.1", "without the token websocket in Upgrade it is an ordinary request",
            ANY_BUT_SWITCHING, {"Upgrade": values})
for number, values in enumerate([(), ("keep-alive",), ("Upgrades",), ("x-upgrade",), ("Up grade",), ("",),
                                 ("keep-alive; Upgrade",)]):
    refuses(f"connection.{number}", "4.2.1", "without the token upgrade in Connection it is an ordinary request",
            ANY_BUT_SWITCHING, {"Connection": values})

for name, values in {
        "missing": (), "empty": ("",), "15-bytes": ("AQIDBAUGBwgJCgsMDQ4P",), "17-bytes": ("AQIDBAUGBwgJCgsMDQ4PEBE=",),
        "1-byte": ("AQ==",), "without-padding": ("dGhlIHNhbXBsZSBub25jZQ",),
        "half-padding": ("dGhlIHNhbXBsZSBub25jZQ=",), "too-much-padding": ("dGhlIHNhbXBsZSBub25jZQ===",),
        "url-alphabet": ("-_-_-_-_-_-_-_-_-_-_-w==",), "foreign-character": ("dGhlIHNhbXBsZSBub25jZ!==",),
        "blank-inside": ("dGhlIHNhbXBs ZSBub25jZQ==",), "padding-inside": ("dGhl=HNhbXBsZSBub25jZQ==",),
        "more-behind": ("dGhlIHNhbXBsZSBub25jZQ==x",), "24-letters": ("A" * 24,), "two-in-a-list": (f"{KEY}, {KEY}",),
        "long": ("A" * 1000,)}.items():
    refuses(f"key.{name}", "4.2.1", "a key is base64 of 16 bytes", BAD_REQUEST, {"Sec-WebSocket-Key": values})
refuses("key.repeated", "11.3.1", "a key stands once", BAD_REQUEST, {"Sec-WebSocket-Key": (KEY, KEY)})
refuses("key.two", "11.3.1", "a key stands once", BAD_REQUEST,
        {"Sec-WebSocket-Key": (KEY, "AQIDBAUGBwgJCgsMDQ4PEA==")})

for version in (0, 1, 7, 8, 12, 14, 25, 99, 130, 255):
    refuses(f"version.{version}", "4.2.2", "another version is answered with 426 and with the version that is served",
            frozenset({426}), {"Sec-WebSocket-Version": (str(version),)},
            refusal_fields={"Sec-WebSocket-Version": "13", "Upgrade": "websocket", "Connection": "upgrade"})
for name, values in {"missing": (), "empty": ("",), "text": ("abc",), "leading-zero": ("013",), "sign": ("+13",),
                     "negative": ("-13",), "fraction": ("13.0",), "256": ("256",), "list": ("8, 13",),
                     "two": ("8", "13"), "hexadecimal": ("0xD",), "long": ("1" * 40,),
                     # 13 modulo 2^32 and 2^64: these do not fit an integer.
                     "above-32-bits": ("4294967309",), "above-64-bits": ("18446744073709551629",)}.items():
    refuses(f"version.{name}", "4.2.1", "a version is one number up to 255; without 13 it is refused",
            BAD_OR_UNKNOWN_VERSION, {"Sec-WebSocket-Version": values})

# ---------------------------------------------------------------------------------------------------------------------
# Subprotocols: the server knows one, `echo`.

for number, values in enumerate([("echo",), ("chat, echo",), ("echo, chat",), ("chat,echo,superchat",),
                                 ("chat", "echo"), ("echo", "chat"), ("chat, superchat", "x, echo"), ("  echo  ",),
                                 ("chat ,\techo",)]):
    opens(f"protocol.offered.{number}", "4.2.2", "the offered subprotocol that the server knows is chosen, once",
          {PROTOCOL: values}, request={"protocols": ("echo",)})
for number, values in enumerate([("chat",), ("chat, superchat",), ("echo2",), ("xecho",), ("echo.v1, chat",),
                                 ("e", "cho")]):
    opens(f"protocol.unknown.{number}", "4.2.2", "of subprotocols that the server does not know none is chosen",
          {PROTOCOL: values})
opens("protocol.other-case", "4.2.2", "what is chosen has been offered: `echo` was not; `Echo` may be chosen",
      {PROTOCOL: ("Echo",)}, request={"protocols": (None, "Echo")})

# ---------------------------------------------------------------------------------------------------------------------
# Origin: a page of the server's own, or a client that is no browser.

for name, (host, origin) in {
        "same": ("{host}:{port}", "{web}://{host}:{port}"),
        "name": ("example.com:8080", "{web}://example.com:8080"),
        "host-in-other-case": ("EXAMPLE.com:8080", "{web}://example.com:8080"),
        "without-ports": ("example.com", "{web}://example.com"),
        "default-port-in-host": ("example.com:{default_port}", "{web}://example.com"),
        "default-port-in-origin": ("example.com", "{web}://example.com:{default_port}"),
        "ipv6": ("[::1]:8080", "{web}://[::1]:8080")}.items():
    opens(f"origin.own.{name}", "10.2", "a page from the server's own origin is served",
          {"Host": (host,), "Origin": (origin,)})
for name, origin in {
        "other-host": "{web}://evil.example", "other-port": "{web}://{host}:{other_port}",
        "no-port": "{web}://{host}", "subdomain": "{web}://x.{host}:{port}",
        "suffix": "{web}://{host}:{port}.evil.example", "longer-port": "{web}://{host}:{port}0",
        "prefix": "{web}://evil{host}:{port}", "user": "{web}://{host}:{port}@evil.example", "null": "null",
        "file": "file://", "other-scheme": "ftp://{host}:{port}", "no-scheme": "{host}:{port}",
        "extension": "chrome-extension://abcdef", "list": "{web}://{host}:{port} {web}://evil.example",
        "scheme-alone": "{web}://"}.items():
    refuses(f"origin.foreign.{name}", "10.2", "a page from elsewhere is refused with 403", FORBIDDEN,
            {"Origin": (origin,)})
refuses("origin.two", "10.2", "two origins, of which one is foreign, are refused", frozenset({400, 403}),
        {"Origin": ("{web}://{host}:{port}", "{web}://evil.example")})
refuses("origin.host-is-not-own", "10.2", "an origin is compared with the Host of the request", FORBIDDEN,
        {"Host": ("example.com",), "Origin": ("{web}://{host}:{port}",)})
