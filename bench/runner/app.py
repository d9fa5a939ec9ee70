"""The toolkit beside the core that it stands on, with the same options and with the core's own, and beside nginx.
./dev bench --app runs this."""

from __future__ import annotations

import os
import resource
import subprocess
import time
from pathlib import Path

from processes import BenchError, Server
from streams import measure_streams
from subjects import Setup, files_of
from work import CPU_PER_REQUEST, KIB, MB_PER_S, P50, P99, RATE, Context, Item, Metric, Target, measure_get, transfer

ROOT = Path(__file__).resolve().parents[2]

FILE_BYTES = KIB * KIB
FILES_AT_ONCE = 8
STREAMS = 10000
# Between two heartbeats of a stream.
HEARTBEAT_SECONDS = 25
# The last of those that there may be, and the only one where there is one.
ROUTE = "/routes/0/items/7"

BASELINES = {"toolkit-quick": "vireo-inline-same", "toolkit-workers": "vireo-workers-same"}


def install_files(scratch: Path) -> None:
    """Puts the file where programs serve it from: as much of the streamed body."""
    directory = files_of(scratch)
    directory.mkdir(exist_ok=True)
    with (scratch / "stream").open("rb") as stream:
        (directory / "mebibyte").write_bytes(stream.read(FILE_BYTES))


def _streams(context: Context, server: Server) -> dict[str, float]:
    count, seconds = (3000, 3) if context.quick else (STREAMS, HEARTBEAT_SECONDS)
    return measure_streams(context.program("bench-http-client"), server, count, seconds)


def _compile(context: Context) -> dict[str, float]:
    """The first example as an application compiles it."""
    includes = [ROOT / "include", context.programs.parent / "include"]
    command = [os.environ.get("CXX", "g++"), "-std=c++20", "-O2", *(f"-I{path}" for path in includes), "-c",
               str(ROOT / "examples" / "hello" / "main.cpp"), "-o", str(context.scratch / "hello.o")]
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    begin = time.monotonic()
    if subprocess.run(command, check=False).returncode != 0:
        raise BenchError("it does not compile")
    seconds = time.monotonic() - begin
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return {"cpu_s": after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, "seconds": seconds}


def all_items() -> list[Item]:
    return [
        *(
            Item(
                f"app-get-{connections}",
                "app",
                f"GET 12 bytes, {connections} connection{'s' if connections > 1 else ''}",
                ("vireo-inline", "vireo-workers", "vireo-inline-same", "vireo-workers-same", "toolkit-quick",
                 "toolkit-workers"),
                (RATE, CPU_PER_REQUEST, P50, P99),
                measure_get(connections),
                Setup(connections=connections),
                (
                    Target("toolkit-quick", 0.85, "vireo-inline-same"),
                    Target("toolkit-workers", 0.95, "vireo-workers-same"),
                ),
                BASELINES,
                base="the core with the same options",
                least_rounds=9,
            )
            for connections in (1, 16, 128)
        ),
        Item(
            "app-routes",
            "app",
            "GET 12 bytes by a route with a parameter, 16 connections",
            ("toolkit-quick", "toolkit-routes"),
            (RATE, CPU_PER_REQUEST, P50, P99),
            measure_get(16, ROUTE),
            Setup(connections=16),
            (Target("toolkit-routes", 0.97, "toolkit-quick"),),
            {"toolkit-routes": "toolkit-quick"},
            base="one route",
            least_rounds=9,
        ),
        Item(
            "app-static",
            "app",
            f"file of 1 MiB, {FILES_AT_ONCE} at once",
            ("toolkit-quick", "toolkit-workers", "nginx"),
            (MB_PER_S,),
            transfer(["get", "--path", "/files/mebibyte", "--bytes", str(FILE_BYTES),
                      "--connections", str(FILES_AT_ONCE), "--each", "400"]),
            Setup(connections=FILES_AT_ONCE, files=True),
            (Target("toolkit-quick", 0.9, "nginx"), Target("toolkit-workers", 0.9, "nginx")),
            {"toolkit-quick": "nginx", "toolkit-workers": "nginx"},
            base="nginx",
        ),
        Item(
            "app-streams",
            "app",
            f"{STREAMS:,} event streams; the toolkit's have a heartbeat every {HEARTBEAT_SECONDS} s",
            ("vireo-events", "toolkit-workers"),
            (
                Metric("cpu_percent", "CPU", "% of a core", False, 2),
                Metric("p99_ms", "99 % of the plain requests beside", "ms", False, 2),
                Metric("publish_ms", "an event reaches all after", "ms", False),
            ),
            _streams,
            Setup(connections=STREAMS, workers=4),
            (
                Target("toolkit-workers", 1, kind="value"),
                # What else the machine does delays both.
                Target("toolkit-workers", 1, "vireo-events", "difference", "p99_ms"),
                Target("toolkit-workers", 500, kind="value", metric="publish_ms"),
            ),
            {"toolkit-workers": "vireo-events"},
            plotted=("cpu_percent", "publish_ms"),
            most_rounds=1,
            base="the core's",
        ),
        Item(
            "app-compile",
            "app",
            "the ten lines of examples/hello are compiled",
            ("hello",),
            (Metric("cpu_s", "CPU", "s", False, 2), Metric("seconds", "time", "s", False, 2)),
            lambda context, _: _compile(context),
            targets=(Target("hello", 1.5, kind="value"),),
        ),
    ]
