"""How the reference server answers opening handshakes. It shares no code with the suite's client."""

import base64
import binascii
import dataclasses
import hashlib
import re
import urllib.parse

TOKEN = r"[!#$%&'*+\-.^_`|~0-9A-Za-z]+"
PARAMETER = rf'({TOKEN})(?:=({TOKEN}|"{TOKEN}"))?'
EXTENSION = rf"({TOKEN})((?:[ \t]*;[ \t]*{PARAMETER})*)"
LIST = re.compile(rf"[ \t,]*{EXTENSION}[ \t]*(?:,[ \t]*(?:{EXTENSION}[ \t]*)?)*")

FLAGS = ("server_no_context_takeover", "client_no_context_takeover")
WINDOWS = ("server_max_window_bits", "client_max_window_bits")


@dataclasses.dataclass
class Compression:
    """What permessage-deflate was agreed to be."""
    server_keeps_context: bool = True
    client_keeps_context: bool = True
    server_window: int = 15


class Refusal(Exception):
    def __init__(self, status, *fields):
        super().__init__(status)
        self.status = status
        self.fields = fields


class Request:
    def __init__(self, head):
        lines = head.decode("latin-1").split("\r\n")
        self.method, self.target, self.version = lines[0].split(" ")
        self.fields = [tuple(part.strip() for part in line.split(":", 1)) for line in lines[1:]]

    def values(self, name):
        return [value for key, value in self.fields if key.lower() == name.lower()]

    def elements(self, name):
        return [element.strip() for value in self.values(name) for element in value.split(",")]


class Opener:
    """Answers opening requests, with the given defects."""

    def __init__(self, defects):
        self.defects = defects

    def answer(self, head):
        """The answer's bytes, whether it opens a WebSocket, and the compression that was agreed on, if any."""
        try:
            fields, compression = self._accept(Request(head))
        except Refusal as refusal:
            lines = [f"HTTP/1.1 {refusal.status} Refused", *refusal.fields, "Content-Length: 0", "Connection: close"]
            return self._head(lines), False, None
        return self._head(["HTTP/1.1 101 Switching Protocols", *fields]), True, compression

    @staticmethod
    def _head(lines):
        return "".join(line + "\r\n" for line in [*lines, ""]).encode("latin-1")

    def _accept(self, request):
        self._check_request(request)
        key = self._key(request)
        self._check_version(request)
        self._check_origin(request)
        guid = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"
        if "wrong-accept" in self.defects:
            guid = guid.lower()
        accept = base64.b64encode(hashlib.sha1((key + guid).encode()).digest()).decode()
        fields = ["Upgrade: websocket", "Connection: Upgrade", f"Sec-WebSocket-Accept: {accept}"]
        if "two-connection-fields" in self.defects:
            fields.append("Connection: Upgrade")
        offered = request.elements("Sec-WebSocket-Protocol")
        if "first-protocol-only" in self.defects:
            offered = offered[:1]
        if "echo" in offered or "protocol-not-offered" in self.defects:
            fields.append("Sec-WebSocket-Protocol: echo")
        answered, compression = self._extensions(request)
        return fields + answered, compression

    def _check_request(self, request):
        if request.method != "GET" and "any-method" not in self.defects:
            raise Refusal(405)
        if request.version != "HTTP/1.1" or not request.values("Host"):
            raise Refusal(400)
        for name, token in (("Upgrade", "websocket"), ("Connection", "Upgrade")):
            elements = request.elements(name)
            if "first-field-only" in self.defects:
                elements = request.values(name)[:1]
            if "tokens-with-case" in self.defects:
                is_there = token in elements
            elif "tokens-by-prefix" in self.defects:
                is_there = any(element.lower().startswith(token.lower()) for element in elements)
            else:
                is_there = token.lower() in map(str.lower, elements)
            if not is_there:
                raise Refusal(404)

    def _key(self, request):
        keys = request.values("Sec-WebSocket-Key")
        if "any-key" in self.defects:
            return keys[0] if keys else ""
        try:
            size = len(base64.b64decode(keys[0], validate=True)) if len(keys) == 1 else 0
        except binascii.Error:
            size = 0
        if size != 16 or len(keys[0]) != 24:
            raise Refusal(400)
        return keys[0]

    def _check_version(self, request):
        versions = request.values("Sec-WebSocket-Version")
        if versions == ["13"] or "any-version" in self.defects:
            return
        if "number-overflows" in self.defects and len(versions) == 1 and versions[0].isdigit():
            if int(versions[0]) % (1 << 32) == 13:
                return
        if "version-without-help" in self.defects:
            raise Refusal(426)
        raise Refusal(426, "Sec-WebSocket-Version: 13", "Upgrade: websocket", "Connection: Upgrade")

    def _check_origin(self, request):
        own = normal_origin(f"http://{request.values('Host')[0]}")
        for origin in request.values("Origin"):
            is_own = normal_origin(origin) == own
            if "origin-by-prefix" in self.defects:
                is_own = origin.startswith("http://" + request.values("Host")[0])
            if not is_own and "any-origin" not in self.defects:
                raise Refusal(403)

    def _extensions(self, request):
        """The lines that answer the offers, and the compression."""
        values = request.values("Sec-WebSocket-Extensions")
        if "first-offer-field-only" in self.defects:
            values = values[:1]
        text = ",".join(values)
        if not text:
            return [], None
        if not LIST.fullmatch(text) and "malformed-offers" not in self.defects:
            raise Refusal(400)
        for name, parameters in ((match[1], match[2]) for match in re.finditer(EXTENSION, text)):
            if name == "permessage-deflate":
                compression, answer = self._offer(re.findall(PARAMETER, parameters))
                if compression:
                    return ["Sec-WebSocket-Extensions: " + "; ".join([name, *answer])], compression
                if "no-fallback" in self.defects:
                    break
        return [], None

    def _offer(self, parameters):
        """The compression that the offer's pairs of name and value ask for, and the answer; None to decline."""
        names = [name for name, _ in parameters]
        if len(set(names)) < len(names) and "duplicates" not in self.defects:
            return None, []
        compression, answer = Compression(), []
        for name, value in dict(parameters).items():
            if "no-quotes" not in self.defects:
                value = value.strip('"')
            if name in FLAGS and (not value or "flags-with-values" in self.defects):
                answer.append(name)
            elif name in WINDOWS and self._is_window(name, value):
                if name == "server_max_window_bits":
                    compression.server_window = int(value)
                if value and not (name == "server_max_window_bits" and "window-not-answered" in self.defects):
                    answer.append(f"{name}={value}")
            elif name in FLAGS + WINDOWS or "unknown-parameters" not in self.defects:
                return None, []
        if "client-window-not-offered" in self.defects and "client_max_window_bits" not in names:
            answer.append("client_max_window_bits=10")
        if "smaller-windows" in self.defects:
            compression.server_window, answer = self._smaller(compression, names)
        compression.server_keeps_context = "server_no_context_takeover" not in answer
        compression.client_keeps_context = "client_no_context_takeover" not in answer
        return compression, answer

    @staticmethod
    def _smaller(compression, names):
        """A server may limit itself unasked, and the client as far as that offers it; and it may keep no context."""
        window = min(compression.server_window, 10)
        answer = ["server_no_context_takeover", f"server_max_window_bits={window}"]
        if "client_max_window_bits" in names:
            answer.append("client_max_window_bits=8")
        return window, answer

    def _is_window(self, name, value):
        if not value:
            return name == "client_max_window_bits"
        if "any-window" in self.defects:
            return value.isdigit()
        if "leading-zeros" in self.defects:
            value = value.lstrip("0")
        return value in ("8", "9", "10", "11", "12", "13", "14", "15")


def normal_origin(text):
    """Scheme, host and port; None for what is no origin."""
    try:
        parts = urllib.parse.urlsplit(text)
        if parts.scheme != "http" or not parts.hostname or text != f"{parts.scheme}://{parts.netloc}":
            return None
        return None if "@" in parts.netloc else (parts.hostname, parts.port or 80)
    except ValueError:
        return None
