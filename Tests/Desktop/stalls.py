"""The main thread's stalls as the program's own watch noted them (see StallWatch.cpp)."""

import json
from dataclasses import dataclass
from pathlib import Path
from typing import Optional


# What tells in a function's name, or in that of its library, that the main thread waits for the X
# server, for a message bus, or for another thread.
_SERVER_WAITS = ("(libxcb.",)
_BUS_WAITS = ("QDBus",)
_LAUNCHES = ("__clone ", "__clone3 ", "vfork ", "fork ")
_THREAD_WAITS = ("pthread_cond_", "futex", "QSemaphore::acquire", "pthread_mutex_", "QMutex",
                 "sem_wait", "pthread_join", "QThread::wait")
_INNERMOST = 6  # frames; deeper ones do not tell what it waits for


@dataclass(frozen=True)
class Stall:
    """One time span in which the main thread took no event. Times in ms."""

    start_ns: int
    length: float
    computing: float
    queued: float
    pkill: float
    server: float = 0.0  # what the X server waited for a processor
    buses: float = 0.0  # what the message buses and the panel waited for one
    launch: float = 0.0  # what a child of it, that it was just starting, waited for one
    threads: float = 0.0  # what the program's other threads waited for one, added up
    where: tuple[tuple[str, ...], ...] = ()  # the functions it was in, the innermost first

    @property
    def others(self) -> float:
        """How long it can at most have waited for somebody who had no processor: for the X server
        or a bus, if it was seen to wait for that, for a program that it starts, or for another
        thread of its own. (What the first two answer is read by such a thread.)"""
        waited = self.length - self.computing - self.queued - self.pkill
        for_server = self._was_seen(_SERVER_WAITS)
        for_launch = self._was_seen(_LAUNCHES)
        for_bus = self._was_seen(_BUS_WAITS)
        for_thread = for_server or for_bus or self._was_seen(_THREAD_WAITS)
        possible = for_server * self.server + for_bus * self.buses + for_launch * self.launch \
            + for_thread * self.threads
        return max(0.0, min(waited, possible))

    def _was_seen(self, names: tuple[str, ...]) -> bool:
        return any(name in function for functions in self.where
                   for function in functions[:_INNERMOST] for name in names)

    @property
    def own(self) -> float:
        """What is the program's own: without the wait for pkill, which is asked for, and without
        that for a processor, which a loaded machine has none of, be it the main thread's or that of
        the X server and the threads it may have waited for. What it computed counts always."""
        return max(self.computing, self.length - self.queued - self.pkill - self.others)

    def __str__(self) -> str:
        parts = [f"{name} {length:.0f}" for name, length in (
            ("computing", self.computing), ("pkill", self.pkill), ("no processor", self.queued),
            ("others without one", self.others))
            if length >= 0.5]
        return f"{self.own:.0f} ms" + (f" (of {self.length:.0f}: {', '.join(parts)})" if parts
                                       else "")


def read_stalls(file: Path, since_ns: int = 0, has_ended: bool = False) -> Optional[list[Stall]]:
    """The stalls that ended after `since_ns`, in order; nothing if nobody watches.

    has_ended  whether the program has ended, and well: what its main thread has not come back from
               is its end
    """
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
        if has_ended and not noted["over"]:
            continue
        found[noted["start_ns"]] = Stall(noted["start_ns"], noted["length_ms"], noted["cpu_ms"],
                                         noted["queued_ms"], noted["pkill_ms"],
                                         noted["server_ms"], noted["buses_ms"], noted["launch_ms"], noted["threads_ms"],
                                         tuple(map(tuple, noted["where"])))
    return [stall for stall in found.values() if stall.start_ns + stall.length * 1e6 >= since_ns]


def longest(stalls: list[Stall]) -> Optional[Stall]:
    return max(stalls, key=lambda stall: stall.own, default=None)


def describe_longest(stalls: list[Stall]) -> str:
    worst = longest(stalls)
    return f"longest stall {worst}" if worst else "no stall over 20 ms"


def describe_where(stall: Stall) -> str:
    """The functions that the main thread was in, for each moment that somebody looked."""
    return "\n".join(f"main thread: {' < '.join(functions)}" for functions in stall.where)
