"""A client's connection to the server under test. Whoever waits, waits for an event, and not for long."""

import collections
import socket
import ssl
import time

import deflate
import opening
import wire

# For whatever has to come next; it is far more than a slow machine takes.
PATIENCE_SECONDS = 60

RECEIVED_AT_ONCE = 1 << 18


class Peer:
    def __init__(self, target, tls_context=None, patience=PATIENCE_SECONDS, connected=None):
        """A connected socket, if there is one, is ready for the opening handshake."""
        self.target = target
        self.patience = patience
        self.socket = connected or self._connect(tls_context)
        self.decoder = wire.Decoder()
        self.events = collections.deque()
        # What permessage-deflate was agreed to be; None without it.
        self.agreed = None
        self.deflater = None

    def _connect(self, tls_context):
        connection = socket.create_connection((self.target.host, self.target.port), timeout=self.patience)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        if tls_context:
            connection = tls_context.wrap_socket(connection, server_hostname=self.target.host)
        return connection

    def open(self, wanted, behind=b"", pieces=None):
        """Does an opening handshake, with more bytes behind the request's head. Returns the answer.

        The pieces, if any, split head and bytes into sizes that are sent one by one.
        """
        for piece in wire.in_pieces(wanted.request(self.target) + behind, pieces):
            self.send(piece)
        received = b""
        while (found := opening.response_in(received)) is None:
            part = self._receive()
            if not part:
                raise wire.BrokenRule(f"4.2.2: the connection ended without an answer, after {received!r}")
            received += part
        response, rest = found
        self.agreed = wanted.check(response)
        if self.agreed:
            self.decoder.inflater = deflate.Inflater(self.agreed)
        if response.status == 101:
            self.events += self.decoder.feed(rest)
        return response

    def send(self, data):
        """Sends, unless the server has ended the connection: whether it may have is for the next event to show."""
        try:
            self.socket.sendall(data)
        except (ConnectionError, ssl.SSLError):
            pass

    def payload_of(self, message, level=6):
        """A message as it is sent, with the reserved bits of its first frame: compressed with the agreed context and
        window if there is an agreement."""
        if self.agreed is None:
            return message, 0
        if self.deflater is None or self.agreed.client_no_context:
            self.deflater = deflate.compressor(self.agreed.client_window, level)
        return deflate.compressed(message, self.deflater), wire.RSV1

    def send_message(self, opcode, message, level=6):
        """Sends a message in one frame."""
        payload, bits = self.payload_of(message, level)
        self.send(wire.frame(opcode, payload, rsv=bits))

    def next_event(self):
        """The next message, pong or close, or the end of the connection. The server's pings are answered on the way."""
        deadline = time.monotonic() + self.patience
        while True:
            while self.events:
                event = self.events.popleft()
                if not isinstance(event, wire.Ping):
                    return event
                self.send(wire.frame(wire.PONG, event.payload))
            if time.monotonic() > deadline:
                raise TimeoutError
            part = self._receive()
            if not part:
                self.decoder.ends()
                return wire.End()
            self.events += self.decoder.feed(part)

    def close(self):
        self.socket.close()

    def _receive(self):
        """What came; nothing once the connection has ended, in whatever way."""
        try:
            return self.socket.recv(RECEIVED_AT_ONCE)
        except (ConnectionError, ssl.SSLEOFError, ssl.SSLZeroReturnError):
            return b""
