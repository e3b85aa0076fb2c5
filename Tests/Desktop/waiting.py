"""Waiting for something to become true, under a deadline."""

import time
from typing import Callable, TypeVar

T = TypeVar("T")


class Timeout(AssertionError):
    """What was waited for did not come."""


def now_ns() -> int:
    """CLOCK_MONOTONIC, the clock of every measurement here and of the program's own trace."""
    return time.clock_gettime_ns(time.CLOCK_MONOTONIC)


def wait_until(condition: Callable[[], T], what: str, seconds: float = 10.0,
               interval: float = 0.02) -> T:
    """The first true value of `condition`; raises Timeout naming `what` after `seconds`."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Timeout(f"not within {seconds:g} s: {what}")
        time.sleep(interval)
