"""The main thread's stalls as the program's own watch noted them (see StallWatch.cpp)."""

import json
from dataclasses import dataclass
from pathlib import Path
from typing import Optional


@dataclass(frozen=True)
class Stall:
    """One time span in which the main thread took no event. Times in ms."""

    start_ns: int
    length: float
    computing: float
    queued: float
    pkill: float

    @property
    def own(self) -> float:
        """What is the program's own: without the wait for pkill, which is asked for, and without
        that for a processor, which a loaded machine has none of."""
        return max(0.0, self.length - self.queued - self.pkill)

    def __str__(self) -> str:
        parts = [f"{name} {length:.0f}" for name, length in (
            ("computing", self.computing), ("pkill", self.pkill), ("no processor", self.queued))
            if length >= 0.5]
        return f"{self.own:.0f} ms" + (f" (of {self.length:.0f}: {', '.join(parts)})" if parts
                                       else "")


def read_stalls(file: Path, since_ns: int = 0) -> Optional[list[Stall]]:
    """The stalls that ended after `since_ns`, in order; nothing if nobody watches."""
    try:
        lines = file.read_text(encoding="utf-8").splitlines()
    except FileNotFoundError:
        return None
    found: dict[int, Stall] = {}
    for line in lines:
        try:
            noted = json.loads(line)
        except ValueError:
            continue  # is being written
        found[noted["start_ns"]] = Stall(noted["start_ns"], noted["length_ms"], noted["cpu_ms"],
                                         noted["queued_ms"], noted["pkill_ms"])
    return [stall for stall in found.values() if stall.start_ns + stall.length * 1e6 >= since_ns]


def longest(stalls: list[Stall]) -> Optional[Stall]:
    return max(stalls, key=lambda stall: stall.own, default=None)


def describe_longest(stalls: list[Stall]) -> str:
    worst = longest(stalls)
    return f"longest stall {worst}" if worst else "no stall over 20 ms"
