"""What the server held, over time."""

from __future__ import annotations

import csv
import os
import statistics
import time
from collections.abc import Callable
from dataclasses import astuple, dataclass, fields
from pathlib import Path

from processes import Server

# The limit of growth, and the share of a run at both of its ends that is compared.
GROWTH_LIMIT = 0.02
WINDOW = 0.2


@dataclass(frozen=True)
class Sample:
    """One look at the server."""

    seconds: float
    memory_bytes: int
    descriptors: int
    threads: int
    cpu_seconds: float
    acts: int


@dataclass(frozen=True)
class Watched:
    """A quantity that must not grow."""

    key: str
    title: str
    unit: str
    divisor: float = 1.0
    # What stands for many values.
    level: Callable[[list[float]], float] = statistics.fmean
    # Less growth than this is chance.
    grain: float = 0.0

    def of(self, sample: Sample) -> float:
        return getattr(sample, self.key) / self.divisor


def lower_quartile(values: list[float]) -> float:
    return sorted(values)[len(values) // 4]


# Most of the time a part of the memory is that of bodies and messages on their way, which come and go.
WATCHED = (
    Watched("memory_bytes", "Memory of its own (anonymous resident)", "MiB", 1 << 20, lower_quartile),
    Watched("descriptors", "Descriptors", "", grain=1.0),
    Watched("threads", "Threads", ""),
)


def take(server: Server, begin: float, acts: int) -> Sample:
    """Looks at the server. Raises when it is gone."""
    server.check()
    process = Path(f"/proc/{server.pid}")
    return Sample(
        seconds=round(time.monotonic() - begin, 1),
        memory_bytes=server.memory_bytes(),
        descriptors=len(os.listdir(process / "fd")),
        threads=len(os.listdir(process / "task")),
        cpu_seconds=server.cpu_seconds(),
        acts=acts,
    )


def write_csv(samples: list[Sample], path: Path) -> None:
    with path.open("w", newline="") as file:
        writer = csv.writer(file)
        writer.writerow(field.name for field in fields(Sample))
        writer.writerows(astuple(sample) for sample in samples)


@dataclass(frozen=True)
class Growth:
    """A quantity at both ends of the watched time: its level in each window."""

    watched: Watched
    first: float
    last: float

    @property
    def share(self) -> float:
        return self.last / self.first - 1

    @property
    def is_too_much(self) -> bool:
        return self.share >= GROWTH_LIMIT and self.last - self.first >= self.watched.grain

    def __str__(self) -> str:
        unit = f" {self.watched.unit}" if self.watched.unit else ""
        return f"{self.watched.title}: {self.first:.2f}{unit} -> {self.last:.2f}{unit} ({self.share:+.2%})"


def growths(samples: list[Sample], warm_up_seconds: float) -> list[Growth]:
    warm = [sample for sample in samples if sample.seconds >= warm_up_seconds]
    count = max(1, int(len(warm) * WINDOW))
    windows = (warm[:count], warm[-count:])
    return [
        Growth(watched, *(watched.level([watched.of(sample) for sample in window]) for window in windows))
        for watched in WATCHED
    ]
