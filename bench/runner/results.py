"""What came out: medians, ratios, targets, and the JSON file."""

from __future__ import annotations

import json
import os
import platform
import statistics
import subprocess
import time
from dataclasses import dataclass, field
from pathlib import Path

from subjects import PEER, SUBJECTS
from work import BEST_PEER, Item, Metric, Target


@dataclass
class SubjectResult:
    rounds: list[dict[str, float]] = field(default_factory=list)
    failure: str = ""

    def values(self, key: str) -> list[float]:
        return [values[key] for values in self.rounds if key in values]

    def median(self, key: str) -> float | None:
        values = self.values(key)
        return statistics.median(values) if values else None


@dataclass(frozen=True)
class Verdict:
    target: Target
    metric: Metric
    reference: str  # the subject that it came down to
    value: float | None
    met: bool

    def text(self) -> str:
        bound = f"{'≥' if self.target.kind == 'ratio' else '≤'} {self.target.bound:g}{self._unit()}"
        if self.target.kind == "difference":
            bound += f" beyond {self._reference_title()}"
        elif self.reference:
            bound += f" × {self._reference_title()}"
        digits = 2 if self._is_ratio() else max(self.metric.digits, 1)
        value = "no value" if self.value is None else f"{self.value:.{digits}f}{self._unit()}"
        return f"{value} ({bound})"

    def _unit(self) -> str:
        return "" if self._is_ratio() else f" {self.metric.unit}"

    def _is_ratio(self) -> bool:
        return self.target.kind in ("ratio", "at most")

    def _reference_title(self) -> str:
        return SUBJECTS[self.reference].title if self.reference in SUBJECTS else self.reference


@dataclass
class ItemResult:
    item: Item
    subjects: dict[str, SubjectResult]

    def median(self, subject: str, metric: Metric) -> float | None:
        result = self.subjects.get(subject)
        return result.median(metric.key) if result else None

    def best_peer(self, metric: Metric) -> str | None:
        peers = [
            (value, name)
            for name in self.subjects
            if SUBJECTS[name].family == PEER and (value := self.median(name, metric)) is not None
        ]
        if not peers:
            return None
        return (max if metric.higher_is_better else min)(peers)[1]

    def ratio(self, subject: str, reference: str | None, metric: Metric) -> float | None:
        value = self.median(subject, metric)
        base = self.median(reference, metric) if reference else None
        return value / base if value is not None and base else None

    def verdicts(self) -> list[Verdict]:
        return [self._verdict(target) for target in self.item.targets if target.subject in self.subjects]

    def _verdict(self, target: Target) -> Verdict:
        metric = next((m for m in self.item.metrics if m.key == target.metric), self.item.metrics[0])
        reference = target.reference
        if reference == BEST_PEER:
            reference = self.best_peer(metric) or BEST_PEER
        if target.kind in ("ratio", "at most"):
            value = self.ratio(target.subject, reference, metric)
            met = value is not None and (value >= target.bound if target.kind == "ratio" else value <= target.bound)
            return Verdict(target, metric, reference, value, met)
        value = self.median(target.subject, metric)
        if target.kind == "difference" and value is not None:
            base = self.median(reference, metric)
            value = value - base if base is not None else None
        return Verdict(target, metric, reference, value, value is not None and value <= target.bound)


PACKAGES = (
    "libmicrohttpd12", "libboost1.[0-9][0-9]-dev", "libcivetweb1", "libcpp-httplib0.11", "libwebsockets17", "nginx", "wrk",
    "libbenchmark1debian", "g++-12",
)


def machine(packages: tuple[str, ...] = PACKAGES) -> dict[str, object]:
    """Where and with what the figures were taken."""
    model = next(
        (line.partition(":")[2].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
         if line.startswith("model name")),
        platform.machine(),
    )
    memory_kib = int(Path("/proc/meminfo").read_text().split()[1])
    return {
        "date": time.strftime("%Y-%m-%d"),
        "cpu": model,
        "cores": os.cpu_count(),
        "memory_gib": round(memory_kib / 1024 / 1024, 1),
        "kernel": platform.release(),
        "system": _system_name(),
        "packages": _installed(packages),
    }


def _system_name() -> str:
    for line in Path("/etc/os-release").read_text().splitlines():
        if line.startswith("PRETTY_NAME="):
            return line.partition("=")[2].strip('"')
    return platform.system()


def _installed(patterns: tuple[str, ...]) -> dict[str, str]:
    """The versions of the installed packages whose names match."""
    query = ["dpkg-query", "-W", "-f=${db:Status-Status} ${Package} ${Version}\\n"]
    found = {}
    try:
        for pattern in patterns:
            lines = subprocess.run([*query, pattern], capture_output=True, text=True, check=False).stdout.splitlines()
            found.update(line.split()[1:] for line in lines if line.startswith("installed "))
    except FileNotFoundError:
        pass
    return found


def to_json(results: list[ItemResult], micro: list[dict[str, object]], about: dict[str, object]) -> dict[str, object]:
    return {
        **about,
        "items": [_item_to_json(result) for result in results],
        "micro": micro,
    }


def _item_to_json(result: ItemResult) -> dict[str, object]:
    item = result.item
    return {
        "name": item.name,
        "title": item.title,
        "metrics": {metric.key: metric.unit for metric in item.metrics},
        "subjects": {
            name: {
                "median": {metric.key: subject.median(metric.key) for metric in item.metrics},
                "rounds": subject.rounds,
                **({"failure": subject.failure} if subject.failure else {}),
            }
            for name, subject in result.subjects.items()
        },
        "targets": [
            {"subject": verdict.target.subject, "text": verdict.text(), "met": verdict.met}
            for verdict in result.verdicts()
        ],
    }


def from_json(path: Path, items: list[Item]) -> tuple[list[ItemResult], dict[str, object]]:
    """Reads what to_json() made: the results, and the rest as it is."""
    content = json.loads(path.read_text())
    by_name = {item.name: item for item in items}
    results = [
        ItemResult(
            by_name[entry["name"]],
            {
                name: SubjectResult(subject["rounds"], subject.get("failure", ""))
                for name, subject in entry["subjects"].items()
                if name in SUBJECTS
            },
        )
        for entry in content.pop("items")
        if entry["name"] in by_name
    ]
    return results, content
