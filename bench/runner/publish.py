"""Fills the tables of docs/performance.md, between its markers."""

from __future__ import annotations

import re
import textwrap
from pathlib import Path

from charts import TITLES
from processes import BenchError
from results import ItemResult, Verdict
from subjects import SUBJECTS
from table import header, number, ratio
from work import Item


def fill_document(results: list[ItemResult], about: dict[str, object], path: Path, prefix: str) -> None:
    """@param prefix: of the names of the places for what this run is and has reached."""
    text = path.read_text()
    extent = (f"{about['rounds']} rounds in {about['minutes']:.0f} minutes, of which the host took "
              f"{about['stolen_percent']:g} %")
    text = _fill(text, f"{prefix}run", _run_text(about["machine"], extent))
    text = _fill(text, f"{prefix}targets", _targets_table(results))
    for group in dict.fromkeys(result.item.group for result in results):
        of_group = [result for result in results if result.item.group == group]
        text = _fill(text, group, f"![{TITLES[group]}](performance/{group}.svg)\n\n{_group_tables(of_group)}")
    if about["micro"]:
        text = _fill(text, "micro", _micro_table(about["micro"]))
    path.write_text(text)
    print(f"filled {path}")


def fill_events(rows: list[list[str]], about: dict[str, object], path: Path) -> None:
    """What a server that waits by events is held to. @param rows of a table, its head first."""
    run = _run_text(about["machine"], f"{about['minutes']:.0f} minutes")
    path.write_text(_fill(path.read_text(), "events", f"{run}\n\n{_rows(rows)}"))
    print(f"filled {path}")


def _fill(text: str, name: str, content: str) -> str:
    begin, end = f"<!-- {name}: generated -->", f"<!-- end of {name} -->"
    filled, count = re.subn(
        re.escape(begin) + ".*?" + re.escape(end), lambda _: f"{begin}\n\n{content}\n\n{end}", text, flags=re.DOTALL
    )
    if count != 1:
        raise BenchError(f"the document has no place for '{name}'")
    return filled


def _rows(rows: list[list[str]]) -> str:
    head, *body = rows
    lines = ["| " + " | ".join(head) + " |", "|" + "|".join([" --- ", *(" ---: " for _ in head[1:])]) + "|"]
    return "\n".join([*lines, *("| " + " | ".join(row) + " |" for row in body)])


def _run_text(machine: dict[str, object], extent: str) -> str:
    packages = ", ".join(f"{name} {version}" for name, version in machine["packages"].items())
    text = (
        f"One run on {machine['date']}: {extent}, on {machine['cpu']} with {machine['cores']} cores and "
        f"{machine['memory_gib']} GiB, {machine['system']}, Linux {machine['kernel']}. Packages: {packages}."
    )
    return textwrap.fill(text, 118, break_long_words=False, break_on_hyphens=False)


def _targets_table(results: list[ItemResult]) -> str:
    """The missed ones first."""
    verdicts = [(_work(result.item, verdict), verdict) for result in results for verdict in result.verdicts()]
    rows = [["Work", "Subject", "Reached (wanted)", ""]]
    for title, verdict in sorted(verdicts, key=lambda pair: pair[1].met):
        subject = SUBJECTS[verdict.target.subject].title
        rows.append([title, subject, verdict.text(), "met" if verdict.met else "**missed**"])
    return _rows(rows)


def _work(item: Item, verdict: Verdict) -> str:
    """The item, and the metric where it is not the one that comes first."""
    return item.title if verdict.metric is item.metrics[0] else f"{item.title}, {verdict.metric.title}"


def _group_tables(results: list[ItemResult]) -> str:
    return "\n\n".join(f"**{result.item.title}**\n\n{_item_table(result)}" for result in results)


def _item_table(result: ItemResult) -> str:
    item = result.item
    main = item.metrics[0]
    best = result.best_peer(main)
    ratios = [f"to {item.base}", "to the best peer"] if item.baselines else []
    rows = [["", *(header(metric) for metric in item.metrics), *ratios]]
    for name, subject in result.subjects.items():
        if subject.failure:
            rows.append([SUBJECTS[name].title, f"failed: {subject.failure}", *("" for _ in rows[0][2:])])
            continue
        values = [number(subject.median(metric.key), metric) for metric in item.metrics]
        to_bare = ratio(result.ratio(name, item.baselines.get(name), main))
        to_peer = ratio(result.ratio(name, best, main)) if name in item.baselines else ""
        rows.append([SUBJECTS[name].title, *values, *([to_bare, to_peer] if ratios else [])])
    return _rows(rows)


def _micro_table(micro: list[dict[str, object]]) -> str:
    rows = [["", "ns", "GB/s"]]
    for entry in micro:
        rate = entry.get("gb_per_s")
        rows.append([f"`{entry['name']}`", f"{entry['ns']:,.1f}", "" if rate is None else f"{rate:.2f}"])
    return _rows(rows)
