"""What many event streams cost while nothing happens, and how fast an event reaches all of them."""

from __future__ import annotations

import statistics
import time

from processes import HeldConnections, Server, run_json

PATIENCE_SECONDS = 60


def measure_streams(client: str, server: Server, count: int, seconds: float) -> dict[str, float]:
    """@param client: the program that listens. @param seconds: for which nothing happens, and are plain requests beside."""
    port = ("--port", str(server.port))
    with HeldConnections([client, "listen", *port, "--streams", str(count)], PATIENCE_SECONDS) as listeners:
        # What they made the server do is done.
        time.sleep(1)
        before = server.cpu_seconds()
        time.sleep(seconds)
        idle = server.cpu_seconds() - before
        values = run_json([client, "probe", *port, "--seconds", str(seconds)], seconds + PATIENCE_SECONDS)
        published = [listeners.ask()["seconds"] for _ in range(3)]
    return {
        "streams": count,
        "cpu_percent": 100 * idle / seconds,
        "p99_ms": values["p99_us"] / 1000,
        "publish_ms": 1000 * statistics.median(published),
    }
