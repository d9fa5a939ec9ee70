"""The terminal's view of the results."""

from __future__ import annotations

from results import ItemResult
from subjects import SUBJECTS, before_name
from work import Metric, short_base


def number(value: float | None, metric: Metric) -> str:
    return "–" if value is None else f"{value:,.{metric.digits}f}"


def ratio(value: float | None) -> str:
    return "" if value is None else f"{value:.2f}"


def header(metric: Metric) -> str:
    return metric.title if "/" in metric.title else f"{metric.title} [{metric.unit}]"


def print_item(result: ItemResult) -> None:
    """One item with all its subjects."""
    item = result.item
    main = item.metrics[0]
    best = result.best_peer(main)
    rows = [["", *(header(metric) for metric in item.metrics), f"/ {short_base(item)}", "/ best peer"]]
    for name, subject in result.subjects.items():
        row = [SUBJECTS[name].title]
        if subject.failure:
            row += [f"failed: {subject.failure}"]
        else:
            row += [number(subject.median(metric.key), metric) for metric in item.metrics]
            row += [ratio(result.ratio(name, item.baselines.get(name), main))]
            row += [ratio(result.ratio(name, best, main)) if name in item.baselines else ""]
        rows.append(row)
    print(f"\n{item.title}  ({item.name})")
    print_rows(rows)
    for verdict in result.verdicts():
        print(f"  {'met   ' if verdict.met else 'MISSED'}  {SUBJECTS[verdict.target.subject].title}: {verdict.text()}")


def print_rows(rows: list[list[str]]) -> None:
    """The first column to the left, the others to the right. A cell that is the last of a short row may be wide."""
    columns = max(len(row) for row in rows)
    full = [row for row in rows if len(row) == columns]
    widths = [max(len(row[i]) for row in full) for i in range(columns)]
    widths[0] = max(len(row[0]) for row in rows)
    for row in rows:
        cells = [row[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        print("  " + "  ".join(cells).rstrip())


def print_summary(results: list[ItemResult]) -> None:
    """One line for each item and Vireo's subjects."""
    rows = [["item", "subject", "value", "", "/ before", "/ base", "/ best peer", "target"]]
    for result in results:
        item = result.item
        main = item.metrics[0]
        best = result.best_peer(main)
        verdicts = {verdict.target.subject: verdict for verdict in result.verdicts()}
        for name in item.baselines:
            if name not in result.subjects:
                continue
            verdict = verdicts.get(name)
            target = "" if verdict is None else ("met: " if verdict.met else "MISSED: ") + verdict.text()
            rows.append([
                item.name,
                SUBJECTS[name].title,
                number(result.median(name, main), main),
                main.unit,
                ratio(_to_before(result, name, main)),
                ratio(result.ratio(name, item.baselines[name], main)),
                ratio(result.ratio(name, best, main)),
                target,
            ])
    print("\nRatios of medians; for CPU, memory and delays less is better.")
    left = {0, 1, 3, 7}
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        cells = [cell.ljust(w) if i in left else cell.rjust(w) for i, (cell, w) in enumerate(zip(row, widths))]
        print("  " + "  ".join(cells).rstrip())


def _to_before(result: ItemResult, name: str, metric: Metric) -> float | None:
    return result.ratio(name, before_name(name), metric)


def print_micro(micro: list[dict[str, object]]) -> None:
    if not micro:
        return
    rows = [["microbenchmark", "ns", "GB/s"]]
    for entry in micro:
        rate = entry.get("gb_per_s")
        rows.append([str(entry["name"]), f"{entry['ns']:,.1f}", "" if rate is None else f"{rate:.2f}"])
    print()
    print_rows(rows)
