"""Opening handshakes: the request, and what the answer has to be."""

import base64
import dataclasses
import hashlib
import re
import urllib.parse

import deflate
from wire import BrokenRule

# The RFC's example.
KEY = "dGhlIHNhbXBsZSBub25jZQ=="

GUID = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"

PROTOCOL, EXTENSIONS = "Sec-WebSocket-Protocol", "Sec-WebSocket-Extensions"

# Where the RFC does not say how a server answers what is no opening handshake at all.
ANY_BUT_SWITCHING = frozenset(range(200, 600))
# An error of the client's, or a method or version that is not served.
ANY_ERROR = frozenset(range(400, 500)) | {501, 505}

HEAD = re.compile(rb"HTTP/1\.[01] (\d{3})(?: [^\r\n]*)?\r\n((?:[^\r\n]+\r\n)*)\r\n")


@dataclasses.dataclass(frozen=True)
class Target:
    """Of the server under test. Fields of requests are written with its properties in braces."""
    scheme: str
    host: str
    port: int
    path: str

    @staticmethod
    def of(url):
        parts = urllib.parse.urlsplit(url)
        if parts.scheme not in ("ws", "wss"):
            raise ValueError(f"{url} is no URL of a WebSocket")
        return Target(parts.scheme, parts.hostname, parts.port or (443 if parts.scheme == "wss" else 80),
                      parts.path or "/")

    @property
    def texts(self):
        web = "https" if self.scheme == "wss" else "http"
        host = f"[{self.host}]" if ":" in self.host else self.host
        return {"web": web, "host": host, "port": self.port, "other_port": self.port ^ 1, "path": self.path,
                "default_port": 443 if self.scheme == "wss" else 80}


@dataclasses.dataclass(frozen=True)
class Response:
    status: int
    fields: tuple

    def values(self, name):
        return [value for key, value in self.fields if key.lower() == name.lower()]

    def tokens(self, name):
        """The elements of a list in lower case."""
        return [token.strip().lower() for value in self.values(name) for token in value.split(",")]


def response_in(received):
    """The final answer and what follows its head; None before the head is whole."""
    while match := HEAD.match(received):
        pairs = (line.split(b":", 1) for line in match[2].split(b"\r\n")[:-1])
        response = Response(int(match[1]), tuple((key.decode("latin-1"), value.strip().decode("latin-1"))
                                                 for key, value in pairs))
        received = received[match.end():]
        if response.status == 101 or response.status >= 200:
            return response, received
    return None


@dataclasses.dataclass(frozen=True)
class Opening:
    """A request that opens a WebSocket, as far as it is not changed.

    The fields replace those of the same name: each has a tuple of values, one for each line, or the empty tuple to be
    left out.
    """
    fields: dict = dataclasses.field(default_factory=dict)
    method: str = "GET"
    version: str = "HTTP/1.1"
    query: str = ""
    # The final statuses that may come instead of a WebSocket; None: it has to be opened.
    refused: frozenset | None = None
    # Names of fields of a refusal and the tokens that have to be there.
    refusal_fields: dict = dataclasses.field(default_factory=dict)
    # The subprotocols of which one has to be chosen; None: none.
    protocols: tuple = (None,)
    # The offers of permessage-deflate of which one has to be accepted; None: declining is allowed.
    offers: tuple = (None,)

    DEFAULTS = {"Host": ("{host}:{port}",), "Upgrade": ("websocket",), "Connection": ("Upgrade",),
                "Sec-WebSocket-Key": (KEY,), "Sec-WebSocket-Version": ("13",)}

    def request(self, target):
        fields = {**self.DEFAULTS, **self.fields}
        lines = [f"{self.method} {target.path}{self.query} {self.version}"]
        lines += [f"{name}: {value.format(**target.texts)}" for name, values in fields.items() for value in values]
        return "".join(line + "\r\n" for line in [*lines, ""]).encode("latin-1")

    def accept_value(self):
        key = {**self.DEFAULTS, **self.fields}["Sec-WebSocket-Key"][0].strip()
        return base64.b64encode(hashlib.sha1((key + GUID).encode()).digest()).decode()

    def check(self, response):
        """The agreement on compression, or None, if a WebSocket is opened; BrokenRule unless that is right."""
        if self.refused is not None:
            self._check_refusal(response)
            return None
        if response.status != 101:
            raise BrokenRule(f"4.2.2: the opening handshake was answered with {response.status}")
        for name, expected in (("Upgrade", ["websocket"]), ("Connection", ["upgrade"])):
            if response.tokens(name) != expected:
                raise BrokenRule(f"4.2.2: {name} of the 101 is {response.values(name)}")
        if response.values("Sec-WebSocket-Accept") != [self.accept_value()]:
            raise BrokenRule(f"4.2.2: Sec-WebSocket-Accept is {response.values('Sec-WebSocket-Accept')}")
        for name in ("Content-Length", "Transfer-Encoding"):
            if response.values(name):
                raise BrokenRule(f"9110 8.6: the 101 has {name}")
        if response.values(PROTOCOL) not in [[name] if name else [] for name in self.protocols]:
            raise BrokenRule(f"4.2.2: the chosen subprotocol is {response.values(PROTOCOL)}")
        return self._check_extensions(response.values(EXTENSIONS))

    def _check_refusal(self, response):
        if response.status not in self.refused:
            raise BrokenRule(f"4.2.2: the opening handshake was answered with {response.status}")
        for name, token in self.refusal_fields.items():
            if token not in response.tokens(name):
                raise BrokenRule(f"4.2.2: {name} of the refusal is {response.values(name)}")

    def _check_extensions(self, answers):
        if not answers:
            if None not in self.offers:
                raise BrokenRule("7692 5.1: the offer was declined")
            return None
        problems = []
        for offer in filter(None, self.offers):
            try:
                return deflate.agreement(",".join(answers), offer)
            except BrokenRule as problem:
                problems.append(str(problem))
        raise BrokenRule("; ".join(problems) or f"9.1: the extension {answers} was not offered as it has to be")


def offering(*offers, accepted=True, fields=()):
    """An opening with offers of permessage-deflate in one field, of which the one at the index has to be accepted.

    Accepted is True for the first, False for none, or a tuple of indices, with None for declining.
    """
    indices = (0,) if accepted is True else (None,) if accepted is False else accepted
    return Opening({EXTENSIONS: (", ".join(offers),), **dict(fields)},
                   offers=tuple(None if index is None else offers[index] for index in indices))


PLAIN = Opening()
DEFLATE = offering("permessage-deflate")
