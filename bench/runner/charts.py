"""Draws the plots as SVG that reads on light and dark pages."""

from __future__ import annotations

from html import escape
from pathlib import Path

from results import ItemResult
from subjects import ENGINE, SUBJECTS, VIREO
from table import number
from work import Metric, short_base

WIDTH = 924
LABEL_WIDTH = 264
VALUE_WIDTH = 180
BAR_HEIGHT = 14
BAR_STEP = 20
TITLE_HEIGHT = 26
PANEL_GAP = 18
MARGIN = 16

TITLES = {
    "plain": "Plain requests",
    "streams": "Streams",
    "websocket": "WebSocket echo",
    "sessions": "Sessions of WebSockets",
    "websocket-latency": "One busy WebSocket beside idle ones",
    "waiting": "Late answers",
    "idle": "Idle connections",
    "tls": "TLS",
    "app": "The toolkit",
    "throughput": "Options for throughput",
    "throughput-streams": "Streams with the options for throughput",
    "throughput-idle": "Idle connections with the options for throughput",
    "growth": "Cost of a request with many connections",
    "life": "Start and stop",
}

# A page that shows the file as an image passes its colour scheme on; without one the greys suit both.
STYLE = """
text { font: 12px system-ui, "Segoe UI", Helvetica, Arial, sans-serif; fill: #6b7280; }
.title { font-weight: 600; font-size: 13px; }
.own { font-weight: 600; }
.value { font-variant-numeric: tabular-nums; }
.engine { fill: #9ca3af; } .vireo { fill: #0d9488; } .peer { fill: #7c86c9; }
.range { stroke: #6b7280; stroke-width: 1; }
@media (prefers-color-scheme: dark) {
    text { fill: #b3bac5; } .range { stroke: #d1d5db; }
    .engine { fill: #6b7280; } .vireo { fill: #2dd4bf; } .peer { fill: #8b93d6; }
}
"""


def write_charts(results: list[ItemResult], directory: Path) -> None:
    """One file for each group of items."""
    directory.mkdir(parents=True, exist_ok=True)
    for group in dict.fromkeys(result.item.group for result in results):
        path = directory / f"{group}.svg"
        path.write_text(_draw(TITLES[group], [result for result in results if result.item.group == group]))
        print(f"drew {path}")


def _draw(title: str, results: list[ItemResult]) -> str:
    parts: list[str] = []
    y = MARGIN
    for result in results:
        for metric in _plotted(result):
            panel, y = _draw_panel(result, metric, y)
            parts += panel
            y += PANEL_GAP
    height = y - PANEL_GAP + MARGIN
    return (
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" height="{height}" '
        f'role="img" aria-label="{escape(title)}">\n<title>{escape(title)}</title>\n<style>{STYLE}</style>\n'
        + "\n".join(parts)
        + "\n</svg>\n"
    )


def _plotted(result: ItemResult) -> list[Metric]:
    metrics = result.item.metrics
    return [metric for metric in metrics if metric.key in result.item.plotted] or [metrics[0]]


def _draw_panel(result: ItemResult, metric: Metric, y: int) -> tuple[list[str], int]:
    """One item: a bar for each subject's median, and a line from its least to its greatest round."""
    names = [name for name in result.subjects if result.median(name, metric) is not None]
    greatest = max((max(result.subjects[name].values(metric.key)) for name in names), default=0) or 1
    scale = (WIDTH - 2 * MARGIN - LABEL_WIDTH - VALUE_WIDTH) / greatest
    better = "more is better" if metric.higher_is_better else "less is better"
    title = result.item.title
    heading = f"{title[0].upper()}{title[1:]}: {metric.title}, {better}"
    parts = [f'<text class="title" x="{MARGIN}" y="{y + 14}">{escape(heading)}</text>']
    y += TITLE_HEIGHT
    left = MARGIN + LABEL_WIDTH
    for name in names:
        subject = SUBJECTS[name]
        values = result.subjects[name].values(metric.key)
        median = result.median(name, metric)
        own = " own" if subject.family == VIREO else ""
        kind = subject.family if subject.family in (ENGINE, VIREO) else "peer"
        middle = y + BAR_HEIGHT / 2
        text_y = y + BAR_HEIGHT - 3
        low, high = left + max(min(values), 0) * scale, left + max(values) * scale
        base = result.ratio(name, result.item.baselines.get(name), metric)
        note = f" ({base:.2f} of {short_base(result.item)})" if base is not None else ""
        parts += [
            f'<text class="label{own}" x="{left - 8}" y="{text_y}" text-anchor="end">{escape(subject.title)}</text>',
            f'<rect class="{kind}" x="{left}" y="{y}" width="{max(median, 0) * scale:.1f}" height="{BAR_HEIGHT}"/>',
            f'<line class="range" x1="{low:.1f}" y1="{middle}" x2="{high:.1f}" y2="{middle}"/>',
            f'<text class="value{own}" x="{high + 6:.1f}" y="{text_y}">'
            f"{escape(number(median, metric))} {escape(metric.unit)}{note}</text>",
        ]
        y += BAR_STEP
    return parts, y
