"""A measured figure beside its yardstick, and the table of all of them."""

import statistics
from dataclasses import dataclass, field
from typing import Any, Optional


@dataclass
class Figure:
    """What was measured of Quenda and of the yardstick, and what is aimed at.

    most         the largest allowed median, in the figure's unit
    most_ratio   the largest allowed ratio to the yardstick's median
    least_ratio  the smallest allowed ratio
    """

    name: str
    unit: str
    samples: list[float]
    yardstick: str = ""
    yardstick_samples: list[float] = field(default_factory=list)
    most: Optional[float] = None
    most_ratio: Optional[float] = None
    least_ratio: Optional[float] = None

    @property
    def median(self) -> float:
        return statistics.median(self.samples)

    @property
    def ratio(self) -> Optional[float]:
        if not self.yardstick_samples:
            return None
        base = statistics.median(self.yardstick_samples)
        return self.median / base if base else None

    @property
    def limit(self) -> str:
        parts = []
        if self.most is not None:
            parts.append(f"<= {self.most:g} {self.unit}")
        if self.most_ratio is not None:
            parts.append(f"<= {self.most_ratio:g}x")
        if self.least_ratio is not None:
            parts.append(f">= {self.least_ratio:g}x")
        return ", ".join(parts)

    @property
    def met(self) -> Optional[bool]:
        """Whether it keeps its limits; nothing where it has none."""
        kept = []
        if self.most is not None:
            kept.append(self.median <= self.most)
        if self.most_ratio is not None:
            kept.append(self.ratio is not None and self.ratio <= self.most_ratio)
        if self.least_ratio is not None:
            kept.append(self.ratio is not None and self.ratio >= self.least_ratio)
        return all(kept) if kept else None

    def as_object(self) -> dict[str, Any]:
        return {"figure": self.name, "unit": self.unit, "median": self.median,
                "samples": self.samples, "yardstick": self.yardstick or None,
                "yardstick_samples": self.yardstick_samples, "ratio": self.ratio,
                "limit": self.limit or None, "met": self.met}


def _number(value: float) -> str:
    return f"{value:.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def _spread(samples: list[float]) -> str:
    """The middle half of the runs; all of them where they are few."""
    if len(samples) < 2:
        return "once"
    low, high = min(samples), max(samples)
    if len(samples) >= 8:
        low, _, high = statistics.quantiles(samples, n=4, method="inclusive")
    return f"{_number(low)}..{_number(high)} of {len(samples)}"


HEAD = ("figure", "unit", "Quenda", "yardstick", "ratio", "limit", "", "noise", "yardstick's noise",
        "beside")


def _row(figure: Figure) -> tuple[str, ...]:
    beside = figure.yardstick_samples
    return (figure.name, figure.unit, _number(figure.median),
            _number(statistics.median(beside)) if beside else "",
            "" if figure.ratio is None else f"{figure.ratio:.2f}", figure.limit,
            {True: "met", False: "MISSED", None: ""}[figure.met], _spread(figure.samples),
            _spread(beside) if beside else "", figure.yardstick)


def table(figures: list[Figure]) -> str:
    rows = [HEAD, *map(_row, figures)]
    widths = [max(len(row[column]) for row in rows) for column in range(len(HEAD))]
    right = {2, 3, 4}
    return "\n".join(
        "  ".join(text.rjust(width) if column in right else text.ljust(width)
                  for column, (text, width) in enumerate(zip(row, widths))).rstrip()
        for row in rows)
