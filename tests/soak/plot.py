"""Draws what the server held over time as SVG that reads on light and dark pages."""

from __future__ import annotations

from html import escape
from pathlib import Path

from charts import MARGIN, STYLE, WIDTH
from samples import WATCHED, Sample, Watched

PANEL_HEIGHT = 110
TITLE_HEIGHT = 22
AXIS_HEIGHT = 20
LEFT = 56

LINE_STYLE = """
.line { fill: none; stroke: #0d9488; stroke-width: 1.5; } .warm-up { fill: #6b7280; opacity: 0.12; }
.axis { stroke: #9ca3af; stroke-width: 0.5; }
@media (prefers-color-scheme: dark) { .line { stroke: #2dd4bf; } .axis { stroke: #6b7280; } }
"""


def write_plot(samples: list[Sample], warm_up_seconds: float, title: str, path: Path) -> None:
    """One panel for each watched quantity, each from zero, so that no growth looks larger than it is."""
    parts: list[str] = []
    y = MARGIN
    for watched in WATCHED:
        parts += _panel(samples, warm_up_seconds, watched, y)
        y += TITLE_HEIGHT + PANEL_HEIGHT + AXIS_HEIGHT + MARGIN
    path.write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {y}" width="{WIDTH}" height="{y}" role="img" '
        f'aria-label="{escape(title)}">\n<title>{escape(title)}</title>\n<style>{STYLE}{LINE_STYLE}</style>\n'
        + "\n".join(parts)
        + "\n</svg>\n"
    )


def _panel(samples: list[Sample], warm_up_seconds: float, watched: Watched, y: int) -> list[str]:
    values = [watched.of(sample) for sample in samples]
    end = max(sample.seconds for sample in samples) or 1
    greatest = 1.1 * max(values)
    top, bottom, right = y + TITLE_HEIGHT, y + TITLE_HEIGHT + PANEL_HEIGHT, WIDTH - MARGIN
    x_scale, y_scale = (right - LEFT) / end, PANEL_HEIGHT / greatest
    points = " ".join(
        f"{LEFT + sample.seconds * x_scale:.1f},{bottom - value * y_scale:.1f}" for sample, value in zip(samples, values)
    )
    heading = watched.title + (f", {watched.unit}" if watched.unit else "")
    return [
        f'<text class="title" x="{MARGIN}" y="{y + 14}">{escape(heading)}</text>',
        f'<rect class="warm-up" x="{LEFT}" y="{top}" width="{warm_up_seconds * x_scale:.1f}" height="{PANEL_HEIGHT}"/>',
        f'<polyline class="line" points="{points}"/>',
        f'<line class="axis" x1="{LEFT}" y1="{bottom}" x2="{right}" y2="{bottom}"/>',
        f'<text class="value" x="{LEFT - 6}" y="{bottom}" text-anchor="end">0</text>',
        f'<text class="value" x="{LEFT - 6}" y="{bottom - values[-1] * y_scale + 4:.1f}" text-anchor="end">'
        f"{values[-1]:.4g}</text>",
        f'<text class="value" x="{LEFT}" y="{bottom + 14}">0 min</text>',
        f'<text class="value" x="{LEFT + warm_up_seconds * x_scale:.1f}" y="{bottom + 14}">warm</text>',
        f'<text class="value" x="{right}" y="{bottom + 14}" text-anchor="end">{end / 60:.1f} min</text>',
    ]
