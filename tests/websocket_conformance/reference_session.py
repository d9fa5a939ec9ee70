"""An echo over the frames of RFC 6455 and RFC 7692, the reference server's half. It shares no code with the suite's
client."""

import codecs
import struct
import zlib

CONTINUATION, TEXT, BINARY, CLOSE, PING, PONG = 0, 1, 2, 8, 9, 10

TAIL = b"\x00\x00\xff\xff"

# Codes that may be sent: those of the RFC and of IANA's registry, and the applications'.
CODES = {*range(1000, 1004), *range(1007, 1015), *range(3000, 5000)}


class Failure(Exception):
    """Fails the connection with a code."""

    def __init__(self, code):
        super().__init__(code)
        self.code = code


class Deflate:
    """Both directions of compressed messages."""

    def __init__(self, compression, limit, defects):
        self.compression = compression
        self.limit = limit
        self.defects = defects
        self.inflater = self.deflater = None

    def compress(self, message):
        if self.deflater is None or not (self.compression.server_keeps_context or "context-kept" in self.defects):
            window = 15 if "window-ignored" in self.defects else max(self.compression.server_window, 9)
            self.deflater = zlib.compressobj(6, zlib.DEFLATED, -window)
        data = self.deflater.compress(message) + self.deflater.flush(zlib.Z_SYNC_FLUSH)
        if "tail-kept" in self.defects:
            return data
        return data[:-len(TAIL)] or b"\0"

    def inflate(self, data):
        if self.inflater is None or not self.compression.client_keeps_context or "context-lost" in self.defects:
            self.inflater = zlib.decompressobj(-15)
        try:
            return self._inflate(data + TAIL)
        except zlib.error:
            if "garbage-is-empty" in self.defects:
                return b""
            raise Failure(1007) from None

    def _inflate(self, data):
        inflated = b""
        while data:
            if "no-inflated-limit" in self.defects:
                inflated += self.inflater.decompress(data)
            else:
                inflated += self.inflater.decompress(data, self.limit + 1 - len(inflated))
            if len(inflated) > self.limit and "no-inflated-limit" not in self.defects:
                raise Failure(1009)
            data = self.inflater.unconsumed_tail
            if self.inflater.eof and "final-is-the-end" not in self.defects:
                data = self.inflater.unused_data
                self.inflater = zlib.decompressobj(-15)
        return inflated


class Session:
    """Echoes until the connection is closed, with the given defects."""

    def __init__(self, connection, received, compression, limit, defects):
        self.connection = connection
        self.received = bytearray(received)
        self.limit = limit
        self.defects = defects
        self.deflate = Deflate(compression, limit, defects) if compression else None
        # Of the message whose last frame is still to come; the opcode is None between messages.
        self.opcode, self.is_compressed, self.parts = None, False, []
        self.characters = None
        self.is_closing = False

    def serve(self):
        try:
            while not self.is_closing:
                self._take_frame()
        except Failure as failure:
            self._close(failure.code)

    # -----------------------------------------------------------------------------------------------------------------
    # Bytes in and out.

    def _fill(self):
        part = self.connection.recv(1 << 18)
        if not part:
            raise ConnectionError
        self.received += part

    def _read(self, size):
        while len(self.received) < size:
            self._fill()
        data = bytes(self.received[:size])
        del self.received[:size]
        return data

    def _send(self, opcode, payload, rsv=0, fin=0x80):
        length = len(payload)
        if length < 126 and not (length == 125 and "boundary-of-125" in self.defects):
            header = struct.pack("!BB", fin | rsv | opcode, length)
        elif length < (0x10000 if "boundary-of-65535" not in self.defects else 0xFFFF):
            header = struct.pack("!BBH", fin | rsv | opcode, 126, length)
        else:
            header = struct.pack("!BBQ", fin | rsv | opcode, 127, length)
        if "masks" in self.defects:
            header = header[:1] + bytes([header[1] | 0x80]) + header[2:] + bytes(4)
        self.connection.sendall(header + payload)

    def _echo(self, opcode, payload, rsv):
        if "own-pings" in self.defects:
            self._send(PING, b"there?")
        if "opcode-sent" in self.defects:
            self._send(3, b"")
        if not self.defects & {"fragments", "fragments-with-opcode", "fragments-with-bits"}:
            self._send(opcode, payload, rsv | (0x20 if "bits-sent" in self.defects else 0))
            return
        half = len(payload) // 2
        self._send(opcode, payload[:half], rsv, fin=0)
        if "own-pings" in self.defects:
            self._send(PING, b"between")
        self._send(opcode if "fragments-with-opcode" in self.defects else CONTINUATION, payload[half:],
                   rsv if "fragments-with-bits" in self.defects else 0)

    def _close(self, code):
        self.is_closing = True
        if "half-a-frame" in self.defects:
            self.connection.sendall(b"\x88")
            return
        if "no-close" in self.defects:
            return
        if "always-1000" in self.defects:
            code = 1000
        if code is None and "1005-sent" in self.defects:
            code = 1005
        reason = b"why" if "reasons" in self.defects else b""
        if "bad-reasons" in self.defects:
            reason = b"\xff"
        payload = b"" if code is None else struct.pack("!H", code) + reason
        for _ in range(2 if "close-twice" in self.defects else 1):
            self._send(CLOSE, payload)

    # -----------------------------------------------------------------------------------------------------------------
    # Frames.

    def _take_frame(self):
        first, second = self._read(2)
        fin, rsv, opcode = bool(first & 0x80), first & 0x70, first & 0x0F
        length = self._length(second & 0x7F)
        if not second & 0x80 and "unmasked" not in self.defects:
            raise Failure(1002)
        key = self._read(4) if second & 0x80 else bytes(4)
        self._check_bits(rsv, opcode)
        if opcode >= CLOSE:
            self._check_control(fin, opcode, length)
            self._control(opcode, unmask(self._read(length), key, 0))
        elif opcode in (CONTINUATION, TEXT, BINARY):
            self._begin(fin, rsv, opcode)
            self._check_limit(length)
            self._data(length, key)
            self._end(fin)
        else:
            self._read(length)

    def _length(self, short):
        length, least = short, 0
        if short == 126:
            length, least = struct.unpack("!H", self._read(2))[0], 126
        if short == 127:
            length, least = struct.unpack("!Q", self._read(8))[0], 0x10000
        if length < least and "long-forms" not in self.defects:
            raise Failure(1002)
        if length >> 63:
            raise Failure(1009 if "top-bit" in self.defects else 1002)
        return length

    def _check_bits(self, rsv, opcode):
        if opcode not in (CONTINUATION, TEXT, BINARY, CLOSE, PING, PONG) and "opcodes" not in self.defects:
            raise Failure(1002)
        allowed = 0x40 if self.deflate and opcode in (TEXT, BINARY) else 0
        if "rsv1-anywhere" in self.defects and self.deflate:
            allowed = 0x40
        if rsv & ~allowed and "reserved-bits" not in self.defects:
            raise Failure(1002)

    def _check_control(self, fin, opcode, length):
        if (length > 125 and "long-pings" not in self.defects) or (not fin and "ping-fragments" not in self.defects):
            raise Failure(1002)

    def _control(self, opcode, payload):
        if opcode == CLOSE:
            self._take_close(payload)
        elif opcode == PING and "no-pong" not in self.defects:
            self._pong(payload[:125])
        elif opcode == PONG and "pongs-answered" in self.defects:
            self._send(PONG, payload)

    def _pong(self, payload):
        if "empty-pong" in self.defects:
            payload = b""
        if "long-pong" in self.defects:
            payload = payload.ljust(126)
        self._send(PONG, payload, fin=0 if "pong-in-fragments" in self.defects else 0x80)

    def _take_close(self, payload):
        if not payload:
            return self._close(None)
        code, reason = int.from_bytes(payload[:2], "big"), payload[2:]
        if len(payload) == 1 and "one-byte-close" in self.defects:
            return self._close(None)
        if len(payload) == 1 or (code not in CODES and "any-code" not in self.defects):
            raise Failure(1002)
        if "any-reason" not in self.defects:
            try:
                reason.decode()
            except UnicodeDecodeError:
                raise Failure(1007) from None
        self._close(code)
        if "goes-on" in self.defects:
            self.is_closing = False
        return None

    # -----------------------------------------------------------------------------------------------------------------
    # Messages.

    def _begin(self, fin, rsv, opcode):
        if opcode == CONTINUATION:
            if self.opcode is None:
                if "lone-continuations" not in self.defects:
                    raise Failure(1002)
                opcode = BINARY
        elif self.opcode is not None and "message-inside" not in self.defects:
            raise Failure(1002)
        if opcode != CONTINUATION:
            self.opcode, self.is_compressed, self.parts = opcode, bool(rsv & 0x40) and self.deflate is not None, []
            self.characters = self._new_characters()

    def _new_characters(self):
        if self.opcode != TEXT or "any-text" in self.defects:
            return None
        errors = "surrogatepass" if "surrogates" in self.defects else "strict"
        return codecs.getincrementaldecoder("utf-8")(errors)

    def _check_limit(self, length):
        before = 0 if "limit-per-frame" in self.defects else sum(map(len, self.parts))
        limit = self.limit - ("limit-off-by-one" in self.defects)
        if length > limit - before and "no-limit" not in self.defects:
            if "limit-after-payload" in self.defects:
                self._read(length)
            raise Failure(1009)

    def _data(self, length, key):
        parts, done = [], 0
        while done < length:
            if not self.received:
                self._fill()
            part = unmask(self._read(min(length - done, len(self.received))), key, done)
            done += len(part)
            parts.append(part)
            if not self.is_compressed and "late-text" not in self.defects:
                self._check_text(part)
        if "split-characters" in self.defects and self.characters:
            self._check_text(b"", True)
        self.parts.append(b"".join(parts))

    def _check_text(self, data, is_last=False):
        if self.characters is None:
            return
        try:
            self.characters.decode(data, is_last and "truncated-text" not in self.defects)
        except UnicodeDecodeError:
            raise Failure(1007) from None
        # Python waits for a surrogate's third byte.
        waiting = self.characters.getstate()[0]
        if waiting[:1] == b"\xed" and waiting[1:] >= b"\xa0" and "surrogates" not in self.defects:
            raise Failure(1007)

    def _end(self, fin):
        if not fin and "echo-of-fragments" not in self.defects:
            return
        opcode, message = self.opcode, b"".join(self.parts)
        if self.is_compressed:
            message = self.deflate.inflate(message)
        if (self.is_compressed and "inflated-text" not in self.defects) or "late-text" in self.defects:
            self._check_text(message)
        if not (self.is_compressed and "inflated-text" in self.defects):
            self._check_text(b"", True)
        self.opcode = None
        if self.deflate and len(message) > 60 and "never-compresses" not in self.defects:
            self._echo(opcode, self.deflate.compress(message), 0x40)
        else:
            self._echo(opcode, message, 0x40 if "bits-sent" in self.defects else 0)


def unmask(data, key, offset):
    """The data, which begins at the offset of a payload, without its mask."""
    size = len(data)
    pattern = (key * (size // 4 + 2))[offset % 4:offset % 4 + size]
    return (int.from_bytes(data, "big") ^ int.from_bytes(pattern, "big")).to_bytes(size, "big")
