"""Two members of the chat.

usage: chat_client.py PORT COOKIE COOKIE [PATH [PATH-OF-ANOTHER-ROOM [CERTIFICATE]]]
"""

import pathlib
import ssl
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "support"))
sys.dont_write_bytecode = True
from websocket import TEXT, WebSocket  # noqa: E402

port = int(sys.argv[1])
path = sys.argv[4] if len(sys.argv) > 4 else "/room"
tls = ssl.create_default_context(cafile=sys.argv[6]) if len(sys.argv) > 6 else None


def enter(room, cookie):
    return WebSocket(port, room, "websocket", tls, {"Cookie": cookie})


ada, bob = (enter(path, cookie) for cookie in sys.argv[2:4])
elsewhere = enter(sys.argv[5], sys.argv[3]) if len(sys.argv) > 5 else None
# Each hears itself only once it is in.
for member, name in ((ada, b"Ada"), (bob, b"Bob"), (elsewhere, b"Bob")):
    if member is None:
        continue
    member.send(b"hello")
    while member.receive() != (TEXT, name + b": hello"):
        pass
ada.send("Grüße".encode())
for member in (ada, bob):
    while member.receive() != (TEXT, "Ada: Grüße".encode()):
        pass
if elsewhere is not None:
    elsewhere.send(b"all quiet")
    heard = elsewhere.receive()
    if heard != (TEXT, b"Bob: all quiet"):
        raise SystemExit(f"a message of another room: {heard}")
