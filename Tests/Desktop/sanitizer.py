"""What a build with a sanitizer costs: such a program computes more slowly, keeps what was freed for
a while, and wants its sanitizer's library loaded before any other."""

import subprocess
from functools import cache
from pathlib import Path
from typing import Optional

from virtual_desktop import QUENDA_BINARY

# The upper ends of what the sanitizers' documentation gives for time, with what the watch of the
# main thread costs; the address sanitizer holds back up to 256 MB of freed memory.
SLOWDOWNS = {"libasan": 4.0, "libtsan": 15.0}
HELD_BACK_MB = {"libasan": 256.0, "libtsan": 256.0}


@cache
def library() -> Optional[Path]:
    """The sanitizer's library that the program under test is linked with, if there is one."""
    listed = subprocess.run(["ldd", QUENDA_BINARY], capture_output=True, text=True, check=True)
    for line in listed.stdout.splitlines():
        name, _, place = line.strip().partition(" => ")
        if name.split(".")[0] in SLOWDOWNS:
            return Path(place.split()[0])
    return None


def _kind() -> str:
    found = library()
    return found.name.split(".")[0] if found else ""


def slowdown() -> float:
    """How many times the time of an ordinary build a computation may take."""
    return SLOWDOWNS.get(_kind(), 1.0)


def held_back_mb() -> float:
    """How much more memory than an ordinary build the program may keep."""
    return HELD_BACK_MB.get(_kind(), 0.0)


def preloaded(*libraries: Path) -> str:
    """The value of LD_PRELOAD that loads these."""
    first = library()
    return " ".join(str(each) for each in ((first,) if first else ()) + libraries)
