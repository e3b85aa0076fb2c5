"""What a process takes of the machine at one moment, and whether it grows over a run."""

import math
import os
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Iterable

from x_resources import XResources


def status_field(process: int, name: str, task: str = "") -> int:
    """A number of /proc/PID/status; kB for memory."""
    path = Path(f"/proc/{process}/task/{task}/status" if task else f"/proc/{process}/status")
    for line in path.read_text().splitlines():
        if line.startswith(name + ":"):
            return int(line.split()[1])
    raise ValueError(f"no {name} of {process}")


def anonymous_kb(process: int) -> int:
    """Resident memory of its own that no file stands behind."""
    return status_field(process, "RssAnon")


def children_of(process: int) -> int:
    return sum(len((task / "children").read_text().split())
               for task in Path(f"/proc/{process}/task").iterdir())


def descriptors(process: int) -> list[str]:
    """What the open descriptors lead to."""
    found = []
    for entry in Path(f"/proc/{process}/fd").iterdir():
        try:
            found.append(os.readlink(entry))
        except FileNotFoundError:
            pass  # closed meanwhile
    return found


def footprint(process: int, server: XResources) -> dict[str, float]:
    """The figures, by their names."""
    files = descriptors(process)
    held = server.held_by(process)
    pixmaps = held.pop("pixmap bytes")
    return {
        "memory (RssAnon), kB": anonymous_kb(process),
        "file descriptors": len(files),
        "of these timers (timerfd)": sum("[timerfd]" in file for file in files),
        "POSIX timers": Path(f"/proc/{process}/timers").read_text().count("ID:"),
        "threads": status_field(process, "Threads"),
        "child processes": children_of(process),
        "X connections": held.pop("connections"),
        "X resources": sum(held.values()),
        "X windows": held.get("WINDOW", 0),
        "X pixmaps, kB": pixmaps / 1024,
    }


@dataclass(frozen=True)
class Idle:
    """How much a process does while nobody asks anything of it."""

    wakeups: float      # a second, of all threads
    processor: float    # share of one processor, in per cent


def idle(process: int, seconds: float) -> Idle:
    """Watches it for that time."""
    def switches() -> dict[str, int]:
        found = {}
        for task in Path(f"/proc/{process}/task").iterdir():
            try:
                found[task.name] = status_field(process, "voluntary_ctxt_switches", task.name)
            except FileNotFoundError:
                pass  # a thread that has just ended
        return found

    def ticks() -> int:
        fields = Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
        return int(fields[11]) + int(fields[12])

    before, used, began = switches(), ticks(), time.monotonic()
    time.sleep(seconds)
    after, passed = switches(), time.monotonic() - began
    woke = sum(count - before.get(task, 0) for task, count in after.items())
    return Idle(woke / passed,
                100 * (ticks() - used) / os.sysconf("SC_CLK_TCK") / passed)


@dataclass(frozen=True)
class Sample:
    """A value after so many dictations. Only values of the same group, as "local" and "cloud",
    are compared: with another provider there is no engine, and so fewer descriptors."""

    at: int
    group: str
    value: float


@dataclass(frozen=True)
class Slope:
    """A straight line's rise through samples, for every thousand dictations, and half the width of
    its 95 % confidence interval; both not a number where there are too few."""

    rise: float
    margin: float

    @property
    def surely(self) -> float:
        """What it rises at the least."""
        return self.rise - self.margin


def _student(freedom: int) -> float:
    """The 97.5 % point of Student's distribution, by its expansion about the normal one."""
    z = 1.959964
    return z + (z**3 + z) / (4 * freedom) + (5 * z**5 + 16 * z**3 + 3 * z) / (96 * freedom**2)


def slope(samples: Iterable[Sample]) -> Slope:
    """Least squares over all groups with one slope and a level for each. What follows closely
    upon another sample tells little new: the margin allows for the residuals' correlation."""
    samples = list(samples)
    by_group: dict[str, list[Sample]] = {}
    for sample in samples:
        by_group.setdefault(sample.group, []).append(sample)
    centred = []
    for group in by_group.values():
        x, y = (sum(values) / len(group) for values in
                ([s.at for s in group], [s.value for s in group]))
        centred += [(s.at, s.at - x, s.value - y) for s in group]
    centred.sort()
    spread = sum(x * x for _, x, _ in centred)
    freedom = len(samples) - len(by_group) - 1
    if spread == 0 or freedom < 2:
        return Slope(math.nan, math.nan)
    rise = sum(x * y for _, x, y in centred) / spread
    rest = [y - rise * x for _, x, y in centred]
    squares = sum(r * r for r in rest)
    if squares < 1e-12:
        return Slope(1000 * rise, 0.0)
    follow = sum(a * b for a, b in zip(rest, rest[1:])) / squares
    follow = min(max(follow, 0.0), 0.95)
    error = math.sqrt(squares / freedom / spread * (1 + follow) / (1 - follow))
    return Slope(1000 * rise, 1000 * error * _student(freedom))
