"""What is measured: the items, the subjects of each, how a round goes, and the targets."""

from __future__ import annotations

import time
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable

from processes import BenchError, HeldConnections, Server, probe_plain, run_json
from subjects import Setup

# What a client may take beyond its time before it counts as stuck.
PATIENCE_SECONDS = 60
STREAM_BYTES = 100_000_000
WHOLE_BYTES = 64 * 1024 * 1024
KIB = 1024


@dataclass(frozen=True)
class Metric:
    key: str
    title: str
    unit: str
    higher_is_better: bool
    digits: int = 0


@dataclass(frozen=True)
class Target:
    """What one subject has to reach in one metric."""

    subject: str
    bound: float
    # A subject's name, BEST_PEER, or none for a bound on the value itself.
    reference: str = ""
    # The least "ratio" to the reference, the one that is "at most" wanted, the "difference" from it, or the "value".
    kind: str = "ratio"
    # Where the item has several metrics; otherwise the first.
    metric: str = ""


BEST_PEER = "best peer"


@dataclass(frozen=True)
class Context:
    programs: Path
    scratch: Path  # for files that programs serve, or serve with
    seconds: float | None  # of each timed measurement, if asked for
    quick: bool

    def program(self, name: str) -> str:
        return str(self.programs / name)

    def load_seconds(self, connections: int) -> int:
        """wrk counts in whole seconds, and its first answers at many connections are late."""
        if self.seconds is not None:
            return max(1, round(self.seconds))
        return 2 if connections >= 1000 and not self.quick else 1

    def echo_seconds(self) -> float:
        if self.seconds is not None:
            return self.seconds
        return 0.5 if self.quick else 1.2


Measure = Callable[[Context, Server], dict[str, float]]


@dataclass(frozen=True)
class Item:
    name: str
    group: str
    title: str
    subjects: tuple[str, ...]
    metrics: tuple[Metric, ...]
    measure: Measure
    setup: Setup = Setup()
    targets: tuple[Target, ...] = ()
    # What each Vireo subject's ratio is taken to, and what those are called together.
    baselines: dict[str, str] = field(default_factory=dict)
    base: str = "the bare engine"
    # The metrics that are plotted; without any the first.
    plotted: tuple[str, ...] = ()
    # A new server for each measurement, because the first use is what is measured.
    fresh: bool = False
    most_rounds: int = 1000
    # Where less than the noise of a few is looked for; not with --quick.
    least_rounds: int = 1


def short_base(item: Item) -> str:
    """A word for what its ratios are taken to."""
    return item.base.removeprefix("the ").split()[0]


def with_cpu(server: Server, run: Callable[[], dict[str, float]]) -> dict[str, float]:
    """Adds the CPU seconds that the server used meanwhile, and those of them in user space."""
    before = server.cpu_times()
    values = run()
    after = server.cpu_times()
    values["cpu_s"] = sum(after) - sum(before)
    values["user_s"] = after[0] - before[0]
    server.check()
    return values


# ---- Plain requests ----


def load_command(connections: int, seconds: int, url: str, *options: str) -> list[str]:
    """wrk, which prints its totals."""
    threads = 1 if connections == 1 else 2
    script = str(Path(__file__).parent.parent / "client" / "load.lua")
    return ["wrk", f"-t{threads}", f"-c{connections}", f"-d{seconds}s", "--timeout", "10s", "-s", script, *options, url]


def measure_load(server: Server, command: list[str], connections: int, seconds: int,
                 answer_bytes: int) -> dict[str, float]:
    """Runs wrk. @param answer_bytes: of the answer that was verified, head included."""
    values = with_cpu(server, lambda: run_json(command, seconds + PATIENCE_SECONDS))
    if values["errors"] != 0:
        raise BenchError(f"{values['errors']:.0f} requests failed")
    if values["requests"] == 0:
        raise BenchError("no answers")
    # What came must be so many of that answer, but for the last one on each connection.
    if abs(values["bytes"] - values["requests"] * answer_bytes) > (connections + 1) * answer_bytes:
        raise BenchError(f"{values['bytes']:.0f} bytes for {values['requests']:.0f} answers of {answer_bytes}")
    values["rate"] = values["requests"] / values["seconds"]
    values["cpu_us"] = values["cpu_s"] * 1e6 / values["requests"]
    values["user_us"] = values["user_s"] * 1e6 / values["requests"]
    return values


def measure_get(connections: int, path: str = "/", browser: bool = False) -> Measure:
    """Of the plain answer."""

    def measure(context: Context, server: Server) -> dict[str, float]:
        answer_bytes = probe_plain(server.port, path)
        seconds = context.load_seconds(connections)
        command = load_command(connections, seconds, f"http://127.0.0.1:{server.port}{path}")
        if browser:
            command += ["--", "browser"]
        return measure_load(server, command, connections, seconds, answer_bytes)

    return measure


RATE = Metric("rate", "requests/s", "/s", True)
CPU_PER_REQUEST = Metric("cpu_us", "server CPU a request", "µs", False, 1)
USER_CPU_PER_REQUEST = Metric("user_us", "of it in user space", "µs", False, 1)
P50 = Metric("p50_us", "median", "µs", False)
P99 = Metric("p99_us", "99 %", "µs", False)

HTTP_PEERS = ("beast", "civetweb", "httplib", "nginx")
INLINE_BASELINES = {"vireo-inline": "engine-inline", "before-inline": "engine-inline"}
WORKER_BASELINES = {"vireo-workers": "engine-handover", "before-workers": "engine-handover"}
VIREO_BOTH = ("vireo-inline", "vireo-workers")


def _plain_items() -> list[Item]:
    return [
        Item(
            f"get-12B-{connections}",
            "plain",
            f"GET 12 bytes, {connections} connection{'s' if connections > 1 else ''}",
            ("engine-inline", "engine-handover", *VIREO_BOTH, *HTTP_PEERS),
            (RATE, CPU_PER_REQUEST, P50, P99),
            measure_get(connections),
            Setup(connections=connections),
            (
                Target("vireo-inline", 0.92, "engine-inline"),
                Target("vireo-workers", 1.0, "engine-handover"),
            ),
            {**INLINE_BASELINES, **WORKER_BASELINES},
        )
        for connections in (1, 16, 128, 1000)
    ] + [
        Item(
            "get-browser-64",
            "plain",
            "browser-like GET, 64 connections",
            ("engine-inline", "engine-maps", "engine-handover", *VIREO_BOTH, *HTTP_PEERS),
            (RATE, CPU_PER_REQUEST, P50, P99),
            measure_get(64, browser=True),
            Setup(connections=64),
            (
                Target("vireo-inline", 0.86, "engine-inline"),
                Target("vireo-workers", 1.0, "engine-handover"),
            ),
            {**INLINE_BASELINES, **WORKER_BASELINES},
        )
    ]


# ---- Streams ----

MB_PER_S = Metric("mb_per_s", "MB/s", "MB/s", True)
PEAK = Metric("peak_mb", "peak memory", "MB", False)


def transfer(arguments: list[str]) -> Measure:
    """By bench-http-client, which compares what comes."""

    def measure(context: Context, server: Server) -> dict[str, float]:
        server.reset_peak()
        command = [context.program("bench-http-client"), arguments[0], "--port", str(server.port), *arguments[1:]]
        values = with_cpu(server, lambda: run_json(command, PATIENCE_SECONDS))
        values["peak_mb"] = server.peak_bytes() / 1e6
        return values

    return measure


def _stream_item(name: str, title: str, arguments: list[str], at_once: int, each: int, peers: tuple[str, ...],
                 bound: float) -> Item:
    return Item(
        f"{name}-{at_once}",
        "streams",
        f"{title}, {at_once} at once",
        ("engine-inline", "vireo-workers", *peers),
        (MB_PER_S, PEAK),
        transfer([*arguments, "--connections", str(at_once), "--each", str(each)]),
        Setup(connections=at_once, workers=at_once + 2),
        # One transfer at a time is shown beside the target, which is for eight.
        (Target("vireo-workers", bound, "engine-inline"),) if at_once == 8 else (),
        {"vireo-workers": "engine-inline", "before-workers": "engine-inline"},
    )


def _stream_items() -> list[Item]:
    items = []
    size = str(STREAM_BYTES)
    all_peers = ("beast", "civetweb", "httplib", "nginx")
    # nginx reads files, whose length is known, and has no handler that takes an upload.
    programs = ("beast", "civetweb", "httplib")
    for at_once, each in ((1, 5), (8, 1)):
        for length, peers in (("known", all_peers), ("unknown", programs)):
            items.append(
                _stream_item(f"download-{length}", f"download of 100 MB, {length} length",
                             ["get", "--path", f"/{length}", "--bytes", size], at_once, each, peers, 0.75)
            )
        for length, options in (("known", []), ("unknown", ["--chunked"])):
            items.append(
                _stream_item(f"upload-{length}", f"upload of 100 MB, {length} length",
                             ["put", "--bytes", size, *options], at_once, each, programs, 0.85)
            )
        items.append(
            _stream_item("whole-64MiB", "64 MiB released whole",
                         ["get", "--path", "/whole", "--bytes", str(WHOLE_BYTES)], at_once, each, (), 0.8)
        )
    return items


# ---- WebSockets ----

MESSAGES = Metric("rate", "messages/s", "/s", True)
WS_PEERS = ("beast", "civetweb", "libwebsockets")
WS_SUBJECTS = ("engine-inline", "vireo-inline", *WS_PEERS)
WS_BASELINES = {"vireo-inline": "engine-inline", "before-inline": "engine-inline"}
SESSION_SUBJECTS = ("engine-inline", "vireo-sessions", "vireo-inline", *WS_PEERS)
SESSION_BASELINES = {"vireo-sessions": "engine-inline", **WS_BASELINES}


def _echo_command(context: Context, server: Server, connections: int, size: int, idle: int = 0) -> list[str]:
    return [
        context.program("bench-websocket-client"),
        *("--port", str(server.port)),
        *("--connections", str(connections)),
        *("--bytes", str(size)),
        *("--idle", str(idle)),
        *("--seconds", str(context.echo_seconds())),
    ]


def _echo(connections: int, size: int) -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        command = _echo_command(context, server, connections, size)
        values = with_cpu(server, lambda: run_json(command, context.echo_seconds() + PATIENCE_SECONDS))
        values["cpu_us"] = values["cpu_s"] * 1e6 / max(values["messages"], 1)
        return values

    return measure


def _echo_beside_idle(idle: int) -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        timeout = context.echo_seconds() + PATIENCE_SECONDS
        alone = run_json(_echo_command(context, server, 1, 125), timeout)
        beside = run_json(_echo_command(context, server, 1, 125, idle), timeout)
        return {
            "p99_us": beside["p99_us"],
            "p50_us": beside["p50_us"],
            "p99_alone_us": alone["p99_us"],
            "growth_us": beside["p99_us"] - alone["p99_us"],
            "rate": beside["rate"],
        }

    return measure


CPU_PER_MESSAGE = Metric("cpu_us", "server CPU a message", "µs", False, 1)


def _echo_item(size_name: str, size: int, connections: int, bound: float | None, sessions: bool = False) -> Item:
    """@param bound of what is the library's own there: the defined WebSockets, or sessions beside them."""
    return Item(
        f"{'sessions' if sessions else 'ws'}-{size_name}-{connections}",
        "sessions" if sessions else "websocket",
        f"WebSocket echo of {size_name.replace('B', ' B').replace('Ki ', ' Ki').replace('Mi ', ' Mi')}, "
        f"{connections} connection{'s' if connections > 1 else ''}",
        SESSION_SUBJECTS if sessions else WS_SUBJECTS,
        (MESSAGES, CPU_PER_MESSAGE, P50, P99),
        _echo(connections, size),
        Setup(connections=connections, web_socket=True),
        () if bound is None else (Target("vireo-sessions" if sessions else "vireo-inline", bound, BEST_PEER),),
        SESSION_BASELINES if sessions else WS_BASELINES,
    )


def _websocket_items() -> list[Item]:
    return [
        _echo_item("125B", 125, 1, None),
        _echo_item("125B", 125, 64, 0.8),
        _echo_item("125B", 125, 1000, 0.8),
        _echo_item("16KiB", 16 * KIB, 16, 0.8),
        _echo_item("1MiB", KIB * KIB, 4, 1.0),
        Item(
            "ws-beside-1000-idle",
            "websocket-latency",
            "one busy WebSocket beside 1,000 idle ones",
            WS_SUBJECTS,
            (
                Metric("p99_us", "99 %", "µs", False),
                Metric("p99_alone_us", "99 % alone", "µs", False),
                Metric("growth_us", "difference", "µs", False),
                Metric("p50_us", "median", "µs", False),
            ),
            _echo_beside_idle(1000),
            Setup(connections=1001, web_socket=True),
            (Target("vireo-inline", 1000, kind="value", metric="growth_us"),),
            WS_BASELINES,
        ),
    ]


# ---- Waiting and idle connections ----

# A daemon of the engine's takes 1,020 connections unless told otherwise, and the library doesn't tell it otherwise: the
# connections go to so many servers in one process.
ENGINE_PORTS_FOR_5000 = 5
ENGINE_PORTS_FOR_MANY = 10


def _slow(count: int) -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        command = [context.program("bench-http-client"), "slow", "--port", str(server.port), "--count", str(count)]
        values = with_cpu(server, lambda: run_json(command, PATIENCE_SECONDS))
        return {
            "cpu_s": values["cpu_s"],
            "instant_p50_ms": values["instant_p50_us"] / 1000,
            "instant_max_ms": values["instant_max_us"] / 1000,
            "slow_max_ms": values["slow_max_us"] / 1000,
        }

    return measure


def _idle_cpu(connections: int) -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        seconds = 3 if context.quick else 10
        with _held_websockets(context, server, connections):
            time.sleep(0.5)
            before = server.cpu_seconds()
            time.sleep(seconds)
            used = server.cpu_seconds() - before
        return {"cpu_percent": 100 * used / seconds}

    return measure


def _held_websockets(context: Context, server: Server, connections: int) -> HeldConnections:
    command = _echo_command(context, server, connections, 125) + ["--ports", str(server.ports), "--hold"]
    return HeldConnections(command, OPENING_SECONDS if connections >= MANY else PATIENCE_SECONDS)


def held_http(context: Context, server: Server, connections: int) -> HeldConnections:
    command = [context.program("bench-http-client"), "hold", "--port", str(server.port)]
    command += ["--ports", str(server.ports), "--connections", str(connections)]
    return HeldConnections(command, PATIENCE_SECONDS)


def idle_memory(connections: int, hold: Callable[[Context, Server, int], HeldConnections]) -> Measure:
    """Of connections that each had one answer or echo."""

    def measure(context: Context, server: Server) -> dict[str, float]:
        # What the first connections make the program allocate once is no part of it.
        with hold(context, server, 10):
            before = server.memory_bytes()
            with hold(context, server, connections):
                time.sleep(0.3)
                return {"kib": (server.memory_bytes() - before) / connections / KIB}

    return measure


def _idle_items() -> list[Item]:
    memory = (Metric("kib", "memory", "KiB", False, 1),)
    return [
        Item(
            "slow-200",
            "waiting",
            "200 answers that take 500 ms, and instant ones beside them",
            ("engine-handover", "vireo-workers", "beast", "civetweb", "httplib"),
            (
                Metric("cpu_s", "server CPU", "s", False, 2),
                Metric("instant_p50_ms", "median delay of an instant one", "ms", False, 2),
                Metric("instant_max_ms", "longest delay of one", "ms", False, 2),
            ),
            _slow(200),
            Setup(connections=204),
            baselines=WORKER_BASELINES,
            plotted=("cpu_s", "instant_max_ms"),
            most_rounds=5,
        ),
        Item(
            "mem-http-5000",
            "idle",
            "idle HTTP connection, of 5,000",
            ("engine-inline", "vireo-inline", "beast", "nginx"),
            memory,
            idle_memory(5000, held_http),
            Setup(connections=5010, ports=ENGINE_PORTS_FOR_5000),
            baselines=INLINE_BASELINES,
            fresh=True,
            most_rounds=3,
        ),
        Item(
            "mem-ws-5000",
            "idle",
            "idle WebSocket, of 5,000",
            ("engine-inline", "vireo-inline", "beast", "libwebsockets"),
            memory,
            idle_memory(5000, _held_websockets),
            Setup(connections=5010, ports=ENGINE_PORTS_FOR_5000, web_socket=True),
            (Target("vireo-inline", 4, "engine-inline", "difference"),),
            WS_BASELINES,
            fresh=True,
            most_rounds=3,
        ),
        Item(
            "idle-ws-cpu-1000",
            "idle",
            "1,000 idle WebSockets",
            WS_SUBJECTS,
            (Metric("cpu_percent", "CPU", "% of a core", False, 2),),
            _idle_cpu(1000),
            Setup(connections=1000, web_socket=True),
            (Target("vireo-inline", 3, kind="value"),),
            WS_BASELINES,
            most_rounds=1,
        ),
    ]


# ---- Sessions of RFC 6455 ----

# After how long without a byte the library sends a ping: what keeping alive costs is measured whole.
PING_INTERVAL_SECONDS = 45
# Half of what the usual limit of descriptors allows a process.
MANY = 10000
# A peer whose poll looks at all of them takes its time for so many.
OPENING_SECONDS = 240


def idle_many(connections: int) -> Measure:
    """CPU over one interval of pings, and memory, of connections that each had one echo."""

    def measure(context: Context, server: Server) -> dict[str, float]:
        # What the first connections make the program allocate once is no part of it.
        with _held_websockets(context, server, 10):
            memory = server.memory_bytes()
            with _held_websockets(context, server, connections) as held:
                time.sleep(1)
                kib = (server.memory_bytes() - memory) / connections / KIB
                before = server.cpu_seconds()
                time.sleep(PING_INTERVAL_SECONDS)
                used = server.cpu_seconds() - before
                pings = held.ask()["pings"]
        server.check()
        return {"cpu_percent": 100 * used / PING_INTERVAL_SECONDS, "kib": kib, "pings": pings}

    return measure


def _broadcast(connections: int, size: int) -> Measure:
    """To all, again and again: the client wants each message on every connection before it sends the next."""

    def measure(context: Context, server: Server) -> dict[str, float]:
        command = _echo_command(context, server, connections, size) + ["--broadcast"]
        with HeldConnections(command, OPENING_SECONDS) as held:
            values = with_cpu(server, held.ask)
        values["cpu_us"] = values["cpu_s"] * 1e6 / values["messages"]
        return values

    return measure


def _compressed(connections: int, size: int) -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        seconds = context.echo_seconds()
        command = ["node", context.program("ws/client.mjs"), "--port", str(server.port)]
        command += ["--connections", str(connections), "--bytes", str(size), "--seconds", str(seconds)]
        values = with_cpu(server, lambda: run_json(command, seconds + PATIENCE_SECONDS))
        values["cpu_us"] = values["cpu_s"] * 1e6 / values["messages"]
        return values

    return measure


def session_items() -> list[Item]:
    """Sessions beside the defined WebSockets and the peers."""
    return [
        _echo_item("125B", 125, 64, 1.0, sessions=True),
        _echo_item("125B", 125, 1000, 1.0, sessions=True),
        _echo_item("16KiB", 16 * KIB, 16, 1.0, sessions=True),
        _echo_item("1MiB", KIB * KIB, 4, 1.0, sessions=True),
        Item(
            f"sessions-idle-{MANY}",
            "sessions",
            f"{MANY:,} idle WebSockets",
            ("engine-inline", "vireo-sessions", "beast", "libwebsockets"),
            (
                Metric("cpu_percent", "CPU", "% of a core", False, 2),
                Metric("kib", "memory of each", "KiB", False, 1),
                Metric("pings", "pings", "pings", False),
            ),
            idle_many(MANY),
            Setup(connections=MANY + 10, ports=ENGINE_PORTS_FOR_MANY, web_socket=True),
            (
                Target("vireo-sessions", 0.2, kind="value"),
                Target("vireo-sessions", 2, "engine-inline", "difference", "kib"),
            ),
            SESSION_BASELINES,
            plotted=("cpu_percent", "kib"),
            fresh=True,
            most_rounds=1,
        ),
        Item(
            f"sessions-broadcast-{MANY}",
            "sessions",
            f"broadcast of 1 KiB to {MANY:,} WebSockets",
            ("vireo-sessions", "libwebsockets"),
            (
                Metric("rate", "deliveries/s", "/s", True),
                Metric("cpu_us", "server CPU a delivery", "µs", False, 2),
                Metric("p50_us", "median", "µs", False),
                Metric("max_us", "the last one", "µs", False),
            ),
            _broadcast(MANY, KIB),
            Setup(connections=MANY, web_socket=True, arguments=("--broadcast",)),
            (Target("vireo-sessions", 0, "libwebsockets", "difference", "cpu_us"),),
            SESSION_BASELINES,
            plotted=("cpu_us",),
        ),
        Item(
            "sessions-compressed-16",
            "sessions",
            "echo of compressed texts of 1 KiB, 16 connections",
            ("vireo-sessions", "ws"),
            (MESSAGES, CPU_PER_MESSAGE, Metric("ratio", "text to bytes on the wire", "to 1", True, 2), P50, P99),
            _compressed(16, KIB),
            Setup(connections=16, web_socket=True, arguments=("--compress",)),
            (
                Target("vireo-sessions", 0, "ws", "difference", "cpu_us"),
                # Node's zlib is one of its own, which compresses these texts better by a twentieth at this level.
                Target("vireo-sessions", 0.94, "ws", metric="ratio"),
            ),
            SESSION_BASELINES,
            plotted=("cpu_us", "ratio"),
        ),
    ]


def all_items() -> list[Item]:
    return [*_plain_items(), *_stream_items(), *_websocket_items(), *_idle_items()]
