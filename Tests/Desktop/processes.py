"""Looking at the processes of this desktop; isolated, there are no others to be seen."""

import os
import signal
from pathlib import Path

from waiting import wait_until


def is_alive(process: int) -> bool:
    """Whether the process runs (one that has ended and was not waited for does not)."""
    try:
        return Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    except OSError:
        return False


def running(pattern: str = "") -> dict[int, str]:
    """Command lines of the living processes, but this one, that contain `pattern`, by id."""
    found: dict[int, str] = {}
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit() or int(entry.name) == os.getpid():
            continue
        try:
            command = (entry / "cmdline").read_bytes().replace(b"\0", b" ").decode().strip()
        except OSError:
            continue
        if command and pattern in command and is_alive(int(entry.name)):
            found[int(entry.name)] = command
    return found


def wait_until_gone(pattern: str, seconds: float = 5.0) -> None:
    """Waits until no process with `pattern` in its command line is left."""
    wait_until(lambda: not running(pattern), f"the end of every process with “{pattern}”", seconds)


def kill(process: int) -> None:
    """Ends one process of this desktop without giving it a say."""
    os.kill(process, signal.SIGKILL)
