"""Talks to the demo's WebSockets with clients that others have written: websockets and aiohttp, both with their keep-alive.

usage: session_clients.py URL [CERTIFICATE]
URL begins with ws:// or wss:// and ends with the port; CERTIFICATE is whom to trust.
"""

import asyncio
import os
import ssl
import sys

import aiohttp
import websockets

SIZES = (0, 1, 125, 126, 65535, 65536, 200000)
# Pings go out so often, and the connection is used once more after some of them.
PING_SECONDS = 2
# In one of the clients a pong has half of the time until the next ping, and no more.
HEARTBEAT_SECONDS = 6
IDLE_SECONDS = 7
PATIENCE_SECONDS = 60


# What connect() of websockets returns and raises was another type before version 14.


def extensions_of(socket):
    return [extension.name for extension in getattr(socket, "protocol", socket).extensions]


def status_of(refusal):
    return getattr(refusal, "response", refusal).status_code


async def with_websockets(url, tls):
    options = {"ssl": tls, "ping_interval": PING_SECONDS, "ping_timeout": PATIENCE_SECONDS}
    async with websockets.connect(url + "/ws", subprotocols=["chat", "echo"], **options) as socket:
        assert socket.subprotocol == "echo", socket.subprotocol
        assert extensions_of(socket) == ["permessage-deflate"], extensions_of(socket)
        for size in SIZES:
            for message in (os.urandom(size), "Grüße! " * (size // 8)):
                await socket.send(message)
                assert await socket.recv() == message, size
        await socket.send(["in ", "three ", "pieces"])
        assert await socket.recv() == "in three pieces"
        await asyncio.sleep(IDLE_SECONDS)
        await socket.send("still there")
        assert await socket.recv() == "still there"
        await (await socket.ping(b"are you there?"))
    assert socket.close_code == 1000, socket.close_code
    print("ok: websockets")


async def with_aiohttp(url, tls):
    async with aiohttp.ClientSession() as session:
        options = {"ssl": tls, "heartbeat": HEARTBEAT_SECONDS, "protocols": ("echo",), "compress": 15}
        async with session.ws_connect(url + "/ws", **options) as socket:
            assert socket.protocol == "echo", socket.protocol
            for size in SIZES:
                message = os.urandom(size)
                await socket.send_bytes(message)
                assert await socket.receive_bytes() == message, size
            # Its heartbeat is looked at while it receives. That goes on: newer versions take a connection for lost where a
            # receive is cancelled.
            received = asyncio.ensure_future(socket.receive_str())
            done, _ = await asyncio.wait({received}, timeout=IDLE_SECONDS)
            assert not done, f"this came unasked: {received}"
            await socket.send_str("still there")
            assert await received == "still there"
        assert socket.close_code == 1000, socket.close_code
    print("ok: aiohttp")


async def in_a_room(url, tls):
    members = [await websockets.connect(url + "/rooms/tea%20time", ssl=tls) for _ in range(3)]
    stranger = await websockets.connect(url + "/rooms/coffee", ssl=tls)
    # Each hears itself only once it is in.
    for number, member in enumerate(members):
        await member.send(f"here {number}")
        while await member.recv() != f"here {number}":
            pass
    await members[0].send("to all")
    for member in members:
        while await member.recv() != "to all":
            pass
    await stranger.send("alone")
    assert await stranger.recv() == "alone"
    for socket in (*members, stranger):
        await socket.close()
    print("ok: rooms")


async def from_elsewhere(url, tls):
    try:
        await websockets.connect(url + "/ws", ssl=tls, origin="https://elsewhere.example")
    except websockets.InvalidHandshake as refusal:
        assert status_of(refusal) == 403, refusal
        print("ok: a page from elsewhere is refused")
        return
    raise AssertionError("a page from elsewhere was let in")


async def main(url, certificate=None):
    tls = ssl.create_default_context(cafile=certificate) if certificate else None
    for part in (with_websockets, with_aiohttp, in_a_room, from_elsewhere):
        await asyncio.wait_for(part(url, tls), PATIENCE_SECONDS)


asyncio.run(main(*sys.argv[1:]))
