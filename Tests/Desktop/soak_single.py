"""One dictation of any length: memory must grow by its samples alone, and come back afterwards."""

import threading
import time
from pathlib import Path
from typing import Optional

from footprint import anonymous_kb, status_field
from soak_desk import SoakDesk
from virtual_desktop import QUENDA_BINARY, VirtualDesktop

RATE = 16000
SAMPLE_BYTES = 4
WAV_BYTES = 2             # for each sample, in what is sent
SETTLED_KB = 2048         # what may be left of a dictation, and what may come besides its samples
LATE = 0.25               # seconds by which the recording may differ from the time between the keys


class Highest:
    """Looks at a process's memory all the time and keeps the highest figure."""

    def __init__(self, process: int, interval: float = 0.02) -> None:
        self._process = process
        self._interval = interval
        self._highest = 0
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._look, daemon=True)
        self._thread.start()

    def _look(self) -> None:
        while not self._over.wait(self._interval):
            try:
                self._highest = max(self._highest, anonymous_kb(self._process))
            except (OSError, ValueError):
                return

    def take(self) -> int:
        """The highest since it was taken last."""
        highest, self._highest = self._highest, 0
        return max(highest, anonymous_kb(self._process))

    def interval(self, seconds: float) -> None:
        self._interval = seconds

    def stop(self) -> None:
        self._over.set()
        self._thread.join()


def single(desktop: VirtualDesktop, seconds: float, shots: Optional[Path]) -> bool:
    desk = SoakDesk(desktop, QUENDA_BINARY,
                    {"activationMode": "toggle", "maxDictationSeconds": seconds + 300})
    for _ in range(5):
        desk.words()
    desk.rest()
    time.sleep(1)
    former = anonymous_kb(desk.pid)
    print(f"before: {former} kB")
    print(f"{'recorded, s':>12}{'memory, kB':>12}{'grown, kB':>11}{'its samples, kB':>17}"
          f"{'besides, kB':>13}{'highest since, kB':>19}")
    step = 60.0 if seconds > 300 else max(seconds / 5, 1.0)
    highest = Highest(desk.pid)
    worst = peak_besides = 0.0
    desk.begin()
    began = time.monotonic()
    photographed = 0
    while (passed := time.monotonic() - began) < seconds:
        due = min((int(passed / step) + 1) * step, seconds)
        wanted = [at for at in clock_pictures(seconds)[photographed:] if at <= due] if shots else []
        due = min([due, *wanted])
        time.sleep(max(0.0, began + due - time.monotonic()))
        if wanted:
            assert shots is not None
            photograph(desk, shots / f"pill-{due:.0f}s.png")
            photographed += 1
            continue
        passed = time.monotonic() - began
        memory, top = anonymous_kb(desk.pid), highest.take()
        samples = passed * RATE * SAMPLE_BYTES / 1024
        besides = memory - former - samples
        worst = max(worst, besides)
        peak_besides = max(peak_besides, top - former - samples)
        print(f"{passed:12.1f}{memory:12}{memory - former:11}{samples:17.0f}{besides:13.0f}"
              f"{top:19}", flush=True)
    highest.interval(0.002)
    highest.take()
    desk.end()
    held = time.monotonic() - began
    desk.asked[desk.service] += 1
    asked = time.monotonic()
    desk.expect_text()
    desk.wait_for_text()
    arrived = time.monotonic() - asked
    top = highest.take()
    highest.stop()
    heard = desk.note("local", desk.asked["local"])["samples"] / RATE
    whole = held * RATE * SAMPLE_BYTES / 1024
    sent = held * RATE * WAV_BYTES / 1024
    time.sleep(3)
    after = anonymous_kb(desk.pid)
    print(f"\nheld {held:.2f} s, sent {heard:.2f} s of sound; the text was there {arrived:.2f} s "
          "after the end")
    print(f"while recording: at most {worst:.0f} kB besides the samples ({peak_besides:.0f} kB "
          "for moments)")
    print(f"at the end: highest {top} kB = former {former} + samples {whole:.0f} + "
          f"{top - former - whole:.0f}, of which the file to send is {sent:.0f}")
    print(f"afterwards: {after} kB, {after - former:+} kB against before; "
          f"highest of all by the kernel: {status_field(desk.pid, 'VmHWM')} kB with files")
    desk.finish()
    status = desk.end_program()
    failed = [what for what, wrong in (
        ("it grows by more than its samples", worst > SETTLED_KB),
        ("it grows for moments by more than its samples", peak_besides > 4 * SETTLED_KB),
        ("it takes more than the samples and one file at the end",
         top - former - whole - sent > 4 * SETTLED_KB),
        ("it keeps memory afterwards", after - former > SETTLED_KB),
        ("sound is missing", abs(heard - held) > LATE),
        (f"the program ended with {status}", status != 0)) if wrong]
    for what in failed:
        print(f"FAILED: {what}")
    return not failed


def clock_pictures(seconds: float) -> list[float]:
    """When the pill's clock is worth a look."""
    return [at for at in (59.5, 61.5, 3599.5, 3601.5) if at < seconds] or [seconds / 2]


def photograph(desk: SoakDesk, file: Path) -> None:
    pill = desk.find_pill()
    if pill is None:
        raise AssertionError("no pill is shown while recording")
    desk.desktop.run("import", "-silent", "-window", "root", "-crop",
                     f"{pill.width}x{pill.height}+{pill.left}+{pill.top}", str(file))
