"""A small WebSocket client on the standard library, for tests of the example programs."""

import base64
import hashlib
import os
import socket
import struct

TEXT, BINARY, CLOSE = 1, 2, 8
SECONDS = 60


class WebSocket:
    """One connection. `upgrade` is the spelling of the protocol's name: the server wants "WebSocket", browsers say
    "websocket". `tls` is an ssl.SSLContext, for a server that is known as localhost."""

    def __init__(self, port, path="/", upgrade="WebSocket", tls=None, headers=None):
        self._socket = socket.create_connection(("127.0.0.1", port), timeout=SECONDS)
        if tls is not None:
            self._socket = tls.wrap_socket(self._socket, server_hostname="localhost")
        self._buffer = b""
        key = base64.b64encode(os.urandom(16)).decode()
        lines = "".join(f"{name}: {value}\r\n" for name, value in (headers or {}).items())
        self._socket.sendall(
            f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nConnection: Upgrade\r\nUpgrade: {upgrade}\r\n"
            f"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: {key}\r\n"
            f"{lines}\r\n".encode()
        )
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            head += self._read(1)
        lines = head.decode().split("\r\n")
        if " 101 " not in lines[0]:
            raise ConnectionError(lines[0])
        headers = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in lines[1:])}
        accept = base64.b64encode(
            hashlib.sha1((key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11").encode()).digest()
        ).decode()
        assert headers["sec-websocket-accept"] == accept, headers

    def send(self, payload, opcode=TEXT):
        """Sends one message in one masked frame."""
        mask = os.urandom(4)
        size = len(payload)
        if size < 126:
            length = struct.pack("!B", 0x80 | size)
        elif size < 65536:
            length = struct.pack("!BH", 0x80 | 126, size)
        else:
            length = struct.pack("!BQ", 0x80 | 127, size)
        repeated = (mask * (size // 4 + 1))[:size]
        masked = (int.from_bytes(payload, "big") ^ int.from_bytes(repeated, "big")).to_bytes(size, "big")
        self._socket.sendall(bytes([0x80 | opcode]) + length + mask + masked)

    def receive(self):
        """The next message: its type and payload."""
        opcode, message = None, b""
        while True:
            first, second = self._read(2)
            assert second < 128, "a server does not mask"
            size = second
            if size == 126:
                (size,) = struct.unpack("!H", self._read(2))
            elif size == 127:
                (size,) = struct.unpack("!Q", self._read(8))
            opcode = opcode or first & 0x0F
            message += self._read(size)
            if first & 0x80:
                return opcode, message

    def close(self):
        self._socket.close()

    def _read(self, size):
        while len(self._buffer) < size:
            piece = self._socket.recv(65536)
            if not piece:
                raise ConnectionError("the server has closed the connection")
            self._buffer += piece
        piece, self._buffer = self._buffer[:size], self._buffer[size:]
        return piece
