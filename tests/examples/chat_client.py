"""Two members of the chat. usage: chat_client.py PORT COOKIE COOKIE"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "support"))
sys.dont_write_bytecode = True
from websocket import TEXT, WebSocket  # noqa: E402

port = int(sys.argv[1])
ada, bob = (WebSocket(port, "/room", "websocket", headers={"Cookie": cookie}) for cookie in sys.argv[2:])
# Each hears itself only once it is in.
for member, name in ((ada, b"Ada"), (bob, b"Bob")):
    member.send(b"hello")
    while member.receive() != (TEXT, name + b": hello"):
        pass
ada.send("Grüße".encode())
for member in (ada, bob):
    while member.receive() != (TEXT, "Ada: Grüße".encode()):
        pass
