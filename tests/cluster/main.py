"""Three processes behind HAProxy whose rooms are joined by Redis: what docs/scaling.md promises, with real ones.
./dev cluster runs this."""

from __future__ import annotations

import argparse
import asyncio
import os
import resource
import signal
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

from clients import HOST, PATIENCE_SECONDS, Member, come_back, enter, handshake
from services import Member as Process
from services import Proxy, Redis, free_ports

ROOMS = 30
# Messages of one sender in one part of the test.
MESSAGES = 40
# Opened at a time.
STEP = 100


class Failure(Exception):
    """A promise that was not kept."""


def expect(is_true: bool, what: str) -> None:
    if not is_true:
        raise Failure(what)


async def until(is_true: Callable[[], bool], what: str, seconds: float = PATIENCE_SECONDS) -> None:
    deadline = time.monotonic() + seconds
    while not is_true():
        expect(time.monotonic() < deadline, f"{what} takes too long")
        await asyncio.sleep(0.02)


class Sender:
    """A member of a room, at a process of its own choice, that says numbers."""

    def __init__(self, name: str, member: Member) -> None:
        self.name = name
        self.member = member
        self.number = 0

    @property
    def room(self) -> str:
        return self.member.room

    async def say(self, count: int, pause: float = 0.005) -> range:
        first = self.number
        for _ in range(count):
            self.member.say(f"{self.name} {self.number}")
            self.number += 1
            await asyncio.sleep(pause)
        return range(first, self.number)


class Cluster:
    def __init__(self, options: argparse.Namespace, directory: Path) -> None:
        ports = free_ports(4)
        self.redis = Redis(directory)
        self.processes = [
            Process(number, directory, options.program, port, self.redis.path) for number, port in enumerate(ports[1:], 1)
        ]
        self.proxy = Proxy(directory, options.configuration, ports[0], ports[1:])
        self.members: list[Member] = []

    def start(self) -> None:
        for program in (self.redis, *self.processes, self.proxy):
            program.start()

    def stop(self) -> None:
        for program in (self.proxy, *self.processes, self.redis):
            program.kill()

    async def fill(self, count: int) -> None:
        for begin in range(0, count, STEP):
            entering = [enter(self.proxy.port, f"r{number % ROOMS}") for number in range(begin, min(count, begin + STEP))]
            for member in await asyncio.gather(*entering):
                expect(member is not None, "a WebSocket was refused")
                self.members.append(member)

    async def sender(self, name: str, process: Process, room: str) -> Sender:
        member = await enter(process.port, room)
        expect(member is not None, f"the sender {name} was refused")
        return Sender(name, member)

    def of_room(self, sender: Sender) -> list[Member]:
        return [member for member in self.members if member.room == sender.room and not member.gone.done()]

    async def bring_back(self) -> tuple[int, int]:
        """Those that are gone come again. @return how many, and how often they were refused."""
        gone = [member for member in self.members if member.gone.done()]
        self.members = [member for member in self.members if not member.gone.done()]
        refusals = 0
        for member, count in await asyncio.gather(*(come_back(self.proxy.port, member.room) for member in gone)):
            self.members.append(member)
            refusals += count
        return len(gone), refusals


def has_all(member: Member, sender: Sender, numbers: range) -> bool:
    """Each once, and in order, with nothing between them."""
    got = member.numbers.get(sender.name, [])
    return got[-len(numbers) :] == list(numbers)


async def reaches_all(cluster: Cluster, senders: list[Sender], what: str) -> None:
    said = dict(zip(senders, await asyncio.gather(*(sender.say(MESSAGES) for sender in senders))))
    for sender, numbers in said.items():
        for member in cluster.of_room(sender):
            await until(lambda: has_all(member, sender, numbers), f"{what}: what {sender.name} says")


def in_order(member: Member) -> bool:
    return all(numbers == sorted(set(numbers)) for numbers in member.numbers.values())


async def run(cluster: Cluster, options: argparse.Namespace) -> None:
    one, two, three = cluster.processes
    begin = time.monotonic()
    await cluster.fill(options.sockets)
    print(f"cluster: {options.sockets} sockets in {time.monotonic() - begin:.1f} s", flush=True)

    # ---- Everybody gets everything, in the order of its sender ----
    senders = [await cluster.sender(f"s{number}", cluster.processes[number % 3], f"r{number}") for number in range(6)]
    begin = time.monotonic()
    await reaches_all(cluster, senders, "a quiet service")
    deliveries = sum(len(cluster.of_room(sender)) for sender in senders) * MESSAGES
    print(f"cluster: {deliveries} deliveries in {time.monotonic() - begin:.1f} s", flush=True)

    # ---- One is killed: its own clients notice, nobody else ----
    steady = [sender for sender in senders if sender.member is not None and sender.name in ("s1", "s4", "s2", "s5")]
    saying = [asyncio.create_task(sender.say(MESSAGES)) for sender in steady]
    one.kill()
    said = [await each for each in saying]
    await until(lambda: any(member.gone.done() for member in cluster.members), "the end of those of a killed process")
    survivors = [member for member in cluster.members if not member.gone.done()]
    for sender, numbers in zip(steady, said):
        for member in (member for member in survivors if member.room == sender.room):
            await until(lambda: member.gone.done() or has_all(member, sender, numbers), "beside a killed process")
    lost, refusals = await cluster.bring_back()
    expect(lost > 0, "nobody was at the killed process")
    print(f"cluster: one process killed: {lost} sockets came back, {refusals} times refused", flush=True)
    await reaches_all(cluster, steady, "with two processes")

    # ---- It comes back, and another one drains ----
    one.start()
    await until(lambda: one.lines("listening at") >= 2, "the return to the bus")
    two.signal(signal.SIGTERM)
    await until(lambda: any(member.gone.done() for member in cluster.members), "the end of those of a drained process")
    await until(two.has_ended, "a drain")
    expect(two.wait() == 0, "a drain is an orderly end")
    codes = {member.gone.result() for member in cluster.members if member.gone.done()}
    expect(codes == {1001}, f"those of a drained process are told 1001, not {codes}")
    lost, refusals = await cluster.bring_back()
    expect(refusals == 0, f"{refusals} refusals while a process drained")
    print(f"cluster: one process drained: {lost} sockets came back, none was refused", flush=True)
    two.start()

    # ---- Redis goes for two seconds: who is with the sender gets everything, the others what the log says ----
    speakers = [sender for sender in senders if sender.name in ("s2", "s5")]
    await until(lambda: two.lines("listening at") >= 2, "the return to the bus")
    await reaches_all(cluster, speakers, "before Redis goes")
    before = [process.traffic() for process in cluster.processes]
    listened = [process.lines("listening at") for process in cluster.processes]
    published = three.lines("publishing at")
    cluster.redis.kill()
    saying = [asyncio.create_task(sender.say(400)) for sender in speakers]
    await asyncio.sleep(2)  # the time that it is away for
    cluster.redis.start()
    said = [await each for each in saying]
    await until(lambda: three.lines("publishing at") > published, "the return of a publisher")
    await until(lambda: all(process.lines("listening at") > count for process, count in zip(cluster.processes, listened)),
                "the return of the listeners")
    await reaches_all(cluster, speakers, "after Redis has come back")
    whole = partial = 0
    for sender, numbers in zip(speakers, said):
        for member in cluster.of_room(sender):
            got = set(member.numbers[sender.name])
            whole += all(number in got for number in numbers)
            partial += any(number not in got for number in numbers)
    expect(whole > 0 and partial > 0, f"{whole} sockets had everything, {partial} missed something")
    expect(all(in_order(member) for member in cluster.members), "something came twice, or late")
    after = [process.traffic() for process in cluster.processes]
    refused = after[2]["refused"] - before[2]["refused"]
    missed = [after[i]["missed"] - before[i]["missed"] for i in (0, 1)]
    expect(refused > 0, "nothing was refused without Redis")
    expect(all(count >= refused for count in missed), f"refused {refused}, but missed {missed}")
    print(f"cluster: Redis away for 2 s: {whole} sockets had everything, {partial} missed some of it; {refused} messages "
          f"refused, {missed} missed", flush=True)

    # ---- Redis hangs, and goes on: nothing comes twice or late ----
    published = three.lines("publishing at")
    cluster.redis.signal(signal.SIGSTOP)
    saying = [asyncio.create_task(sender.say(400, 0.01)) for sender in speakers]
    await asyncio.sleep(3)  # longer than an answer may take
    cluster.redis.signal(signal.SIGCONT)
    for each in saying:
        await each
    expect(three.lines("not publishing") >= 2, "nobody noticed that Redis hangs")
    await until(lambda: three.lines("publishing at") > published, "the return of a publisher")
    await reaches_all(cluster, speakers, "after Redis went on")
    expect(all(in_order(member) for member in cluster.members), "something came twice, or late, after Redis hung")
    print("cluster: Redis hung for 3 s: nothing came twice or late", flush=True)


# ---- Deliveries a second ----

FLOOD_BYTES = 100
FLOOD_SECONDS = 5


class Flooded(asyncio.Protocol):
    """One in a room that counts bytes."""

    def __init__(self, room: str) -> None:
        self.bytes = 0
        self.transport: asyncio.Transport | None = None
        self.room = room

    def connection_made(self, transport) -> None:
        self.transport = transport
        transport.write(handshake(self.room))

    def data_received(self, data: bytes) -> None:
        self.bytes += len(data)


async def measure(cluster: Cluster, count: int, members: int) -> None:
    """Members of one room, shared out to so many processes. A sender at each says as much as the others take: it goes on
    when what it has said before has come back to it."""
    loop = asyncio.get_running_loop()
    processes = cluster.processes[:count]
    flooded = [
        (await loop.create_connection(lambda: Flooded("flood"), HOST, processes[number % count].port))[1]
        for number in range(members)
    ]
    senders = [await cluster.sender(f"s{number}", process, "flood") for number, process in enumerate(processes)]
    stop = time.monotonic() + FLOOD_SECONDS

    async def flood(sender: Sender) -> None:
        while time.monotonic() < stop:
            for _ in range(10):
                sender.member.say(f"{sender.name} {sender.number:0{FLOOD_BYTES - len(sender.name) - 1}}")
                sender.number += 1
            while len(sender.member.numbers.get(sender.name, [])) < sender.number - 10:
                await asyncio.sleep(0.001)

    before = sum(each.bytes for each in flooded)
    begin = time.monotonic()
    await asyncio.gather(*(flood(sender) for sender in senders))
    seconds = time.monotonic() - begin
    deliveries = (sum(each.bytes for each in flooded) - before) / (FLOOD_BYTES + 2)
    print(f"cluster: {count} processes: {deliveries / seconds:.0f} deliveries a second to {members} sockets", flush=True)
    for each in flooded:
        each.transport.abort()
    for sender in senders:
        sender.member.leave()
    await asyncio.sleep(1)


async def measure_all(cluster: Cluster, rounds: int = 3) -> None:
    for _ in range(rounds):
        for count in (1, 2, 3):
            await measure(cluster, count, 300)


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./dev cluster", description="Three processes, HAProxy and Redis.")
    parser.add_argument("--sockets", type=int, default=3000, help="WebSockets in 30 rooms; default 3000")
    parser.add_argument("--measure", action="store_true", help="count deliveries a second with 1, 2 and 3 processes")
    parser.add_argument("--program", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--configuration", type=Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def main() -> int:
    options = parse_arguments()
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    os.environ["PATH"] += ":/usr/sbin"
    with tempfile.TemporaryDirectory(prefix="vireo-cluster-") as directory:
        cluster = Cluster(options, Path(directory))
        try:
            cluster.start()
            asyncio.run(measure_all(cluster) if options.measure else run(cluster, options))
        except Failure as failure:
            print(f"cluster: FAILED: {failure}", file=sys.stderr)
            for log in sorted(Path(directory).glob("*.log")):
                print(f"--- {log.name}\n{log.read_text()[-1500:]}", file=sys.stderr)
            return 1
        finally:
            cluster.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
