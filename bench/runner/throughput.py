"""The library's options for throughput beside the bare engine with the same ones and beside peers, how the cost of a
request grows with the connections, and how long programs take to start and to stop. ./dev bench --throughput runs
this."""

from __future__ import annotations

import time

from processes import Server
from subjects import NEWER, SUBJECTS, Setup
from work import (
    CPU_PER_REQUEST, ENGINE_PORTS_FOR_5000, MB_PER_S, P50, P99, PEAK, RATE, STREAM_BYTES, USER_CPU_PER_REQUEST, Context, Item,
    Metric, Target, held_http, idle_many, idle_memory, measure_get, transfer,
)

INLINE = "vireo-throughput"
WORKERS = "vireo-throughput-workers"
# Those that make what a handler answers in their own process; nginx's is a constant of its configuration.
PEERS = ("beast", "node", "nginx")
BASELINES = {INLINE: "engine-inline", WORKERS: "engine-handover", f"{INLINE}{NEWER}": f"engine{NEWER}"}
MOST_AT_ONCE = 8
MOST_SOCKETS = 15000


def _gets() -> list[Item]:
    return [
        Item(
            f"throughput-get-{connections}",
            "throughput",
            f"GET 12 bytes, {connections} connections",
            ("engine-inline", f"engine{NEWER}", "engine-handover", INLINE, f"{INLINE}{NEWER}", WORKERS, *PEERS),
            (RATE, CPU_PER_REQUEST, USER_CPU_PER_REQUEST, P50, P99),
            measure_get(connections),
            Setup(connections=connections, tuned=True),
            (
                Target(INLINE, 0.9, "engine-inline"),
                Target(INLINE, 1.0, "nginx"),
                Target(INLINE, 1.15, "beast"),
                Target(INLINE, 1.0, "engine-inline", "difference", "cpu_us"),
                Target(WORKERS, 0.6 if connections < 128 else 0.7, INLINE),
                Target(WORKERS, 2.0, INLINE, "at most", "p99_us"),
            ),
            BASELINES,
        )
        for connections in (16, 128, 1000)
    ] + [
        Item(
            "throughput-browser-64",
            "throughput",
            "browser-like GET, 64 connections",
            ("engine-inline", f"engine{NEWER}", INLINE, f"{INLINE}{NEWER}", *PEERS),
            (RATE, CPU_PER_REQUEST, USER_CPU_PER_REQUEST, P50, P99),
            measure_get(64, browser=True),
            Setup(connections=64, tuned=True),
            (
                Target(INLINE, 0.8, "engine-inline"),
                # It makes maps of the head, and the others keep less of it.
                Target(INLINE, 1.0, "node"),
                Target(INLINE, 2.5, "engine-inline", "difference", "cpu_us"),
            ),
            BASELINES,
        )
    ]


def _transfers() -> list[Item]:
    size = str(STREAM_BYTES)
    return [
        Item(
            f"throughput-{name}",
            "throughput-streams",
            f"{name} of 100 MB, {MOST_AT_ONCE} at once",
            ("engine-inline", WORKERS, "beast", *peers),
            (MB_PER_S, PEAK),
            transfer([*arguments, "--bytes", size, "--connections", str(MOST_AT_ONCE), "--each", "1"]),
            Setup(connections=MOST_AT_ONCE, workers=MOST_AT_ONCE + 2, tuned=True),
            (Target(WORKERS, 0.9, "engine-inline"), Target(WORKERS, 1.0, "beast")),
            {WORKERS: "engine-inline"},
        )
        for name, arguments, peers in (
            ("download", ("get", "--path", "/known"), ("nginx",)),
            ("upload", ("put",), ()),
        )
    ]


def _growth() -> list[Item]:
    """The engine takes a thousand connections a thread, and is left out where there are more."""
    return [
        Item(
            f"growth-{connections}",
            "growth",
            f"GET 12 bytes, {connections:,} connection{'s' if connections > 1 else ''}",
            (*(("engine-inline",) if connections <= 1000 else ()), INLINE, "beast", "nginx"),
            (CPU_PER_REQUEST, RATE),
            measure_get(connections),
            Setup(connections=connections, tuned=True),
            baselines={INLINE: "nginx"},
            base="nginx",
            most_rounds=3,
        )
        for connections in (1, 10, 100, 1000, 10000)
    ]


def _idle() -> list[Item]:
    return [
        Item(
            "throughput-memory-5000",
            "throughput-idle",
            "idle connection, of 5,000 that have had an answer",
            ("engine-inline", INLINE, "beast", "nginx"),
            (Metric("kib", "memory", "KiB", False, 1),),
            idle_memory(5000, held_http),
            Setup(connections=5010, ports=ENGINE_PORTS_FOR_5000, tuned=True),
            (
                Target(INLINE, 1, "engine-inline", "difference"),
                Target(INLINE, 36, kind="value"),
            ),
            {INLINE: "engine-inline"},
            fresh=True,
            most_rounds=3,
        ),
        Item(
            f"sockets-{MOST_SOCKETS}",
            "throughput-idle",
            f"{MOST_SOCKETS:,} idle WebSockets, which are pinged",
            ("vireo-sessions",),
            (Metric("cpu_percent", "CPU", "% of a core", False, 2), Metric("kib", "memory of each", "KiB", False, 1)),
            idle_many(MOST_SOCKETS),
            Setup(connections=MOST_SOCKETS + 10, web_socket=True, tuned=True),
            plotted=("cpu_percent", "kib"),
            fresh=True,
            most_rounds=1,
        ),
    ]


def _start_and_stop(_: Context, server: Server) -> dict[str, float]:
    begin = time.monotonic()
    server.stop()
    return {"start_ms": server.start_seconds * 1000, "stop_ms": (time.monotonic() - begin) * 1000}


def _life() -> Item:
    return Item(
        "start-and-stop",
        "life",
        "a program starts, listens, and ends",
        ("engine-inline", INLINE, "toolkit-quick", "beast", "node", "nginx"),
        (Metric("start_ms", "until it listens", "ms", False, 1), Metric("stop_ms", "until it has ended", "ms", False, 1)),
        _start_and_stop,
        plotted=("start_ms", "stop_ms"),
        fresh=True,
    )


def all_items() -> list[Item]:
    """The newer engine's subjects are there where there is one."""
    return [
        Item(**{**vars(item), "subjects": tuple(name for name in item.subjects if name in SUBJECTS)})
        for item in [*_gets(), *_transfers(), *_growth(), *_idle(), _life()]
    ]
