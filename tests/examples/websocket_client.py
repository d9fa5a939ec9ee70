"""Drives the WebSocket examples. usage: websocket_client.py echo|broadcast PORT [PATH [UPGRADE]]"""

import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "support"))
sys.dont_write_bytecode = True
from websocket import BINARY, TEXT, WebSocket  # noqa: E402


def echo(*where):
    first, second = WebSocket(*where), WebSocket(*where)
    for opcode, size in ((TEXT, 0), (TEXT, 5), (BINARY, 125), (BINARY, 126), (BINARY, 65536), (BINARY, 1000000)):
        message = os.urandom(size) if opcode == BINARY else b"a" * size
        first.send(message, opcode)
        assert first.receive() == (opcode, message), size
    second.send(b"still there")
    assert second.receive() == (TEXT, b"still there")


def broadcast(*where):
    members = [WebSocket(*where) for _ in range(3)]
    # Each answer shows that its connection has entered the room.
    for number, member in enumerate(members):
        member.send(b"here %d" % number)
        while member.receive() != (TEXT, b"here %d" % number):
            pass
    members[0].send(b"to all")
    for member in members:
        while member.receive() != (TEXT, b"to all"):
            pass
    members[2].close()
    members[1].send(b"\x00\x01", BINARY)
    for member in members[:2]:
        assert member.receive() == (BINARY, b"\x00\x01")


{"echo": echo, "broadcast": broadcast}[sys.argv[1]](int(sys.argv[2]), *sys.argv[3:])
