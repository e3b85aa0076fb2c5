"""Figures that need a desktop: dictations, the program when idle, the pill, the windows."""

import os
import subprocess
import time
from pathlib import Path
from typing import Optional

import keyboard as keys
from dictation import measure
from editor import Editor
from figures import Figure
from quenda_program import Quenda
from virtual_desktop import VirtualDesktop
from waiting import now_ns, wait_until

SPOKEN = "the quick brown fox"
TAP_SECONDS = 0.2  # shorter than a dictation: recorded, then dropped
RESTORED_SECONDS = 1.2  # by then the clipboard is its owner's again


def _ms(begin: int, end: int) -> float:
    return (end - begin) / 1e6


# Dictations

def _tap(desktop: VirtualDesktop, quenda: Quenda) -> dict[str, float]:
    """Milliseconds from the key event to each of the program's marks."""
    before = len(quenda.trace())
    pressed = desktop.keyboard.down(keys.RIGHT_ALT)
    try:
        time.sleep(TAP_SECONDS)
    finally:
        desktop.keyboard.up(keys.RIGHT_ALT)
    wait_until(lambda: any(event == "release" for _, event in quenda.trace()[before:]),
               "the release")
    time.sleep(0.1 + time.monotonic_ns() % 10 / 1000)  # out of step with the source's period
    return {event: _ms(pressed, when) for when, event in quenda.trace()[before:]}


def _bare_records(desktop: VirtualDesktop, programs: Path, runs: int) -> list[float]:
    return [float(line) for line in
            desktop.output(str(programs / "bare-pulse-record"), str(runs)).split()]


def _paste_by_tools(desktop: VirtualDesktop, editor: Editor, text: str) -> float:
    """Milliseconds of xclip and xdotool from the start to the text in the document."""
    changes = len(editor.changes())
    started = now_ns()
    desktop.run("xclip", "-selection", "clipboard", "-i", input=text.encode(),
                stdin=None, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    desktop.run("xdotool", "key", "ctrl+v")
    return _ms(started, editor.wait_for_insertion(changes).time_ns)


def key_press(programs: Path, quick: bool) -> list[Figure]:
    with VirtualDesktop(panel=True) as desktop:
        desktop.open_editor()
        quenda = desktop.start_quenda(trace=True)
        quenda.wait_until_ready()
        time.sleep(2)
        taps, bare = [], []
        for _ in range(3 if quick else 6):
            bare += _bare_records(desktop, programs, 5)
            taps += [_tap(desktop, quenda) for _ in range(5)]
        quenda.terminate()

    def to(mark: str, since: Optional[str] = None) -> list[float]:
        return [tap[mark] - (tap[since] if since else 0) for tap in taps if mark in tap]
    if len(to("first-sample")) < len(taps):
        raise RuntimeError("not every key press led to a recording")
    return [
        Figure("key press to first sample", "ms", to("first-sample"), "bare libpulse stream", bare,
               most=25, most_ratio=2.0),
        Figure("  of it: key event to its handling", "ms", to("press")),
        Figure("  of it: handling to first sample", "ms", to("first-sample", "press")),
        Figure("key press to pill", "ms", to("pill"), most=50),
    ]


def dictation(programs: Path, quick: bool) -> list[Figure]:
    del programs
    overheads, pastes = [], []
    with VirtualDesktop(panel=True) as desktop:
        editor = desktop.open_editor()
        quenda = desktop.start_quenda(relay=True, trace=True)
        quenda.wait_until_ready()
        wav = desktop.speech(SPOKEN)
        editor.focus()
        for _ in range(3 if quick else 20):
            result = measure(desktop, quenda, editor, wav)
            if not result.arrived:
                raise RuntimeError("a transcript is not in the document")
            overheads.append(result.overhead_ms)
            time.sleep(RESTORED_SECONDS)
            pastes.append(_paste_by_tools(desktop, editor, result.transcript))
        quenda.terminate()
        quenda.wait_until_engine_gone()
    return [Figure("dictation without the engine", "ms", overheads, "xclip and xdotool", pastes,
                   most=60)]


# Idle

def _memory(pid: int) -> dict[str, float]:
    """Megabytes; Private is what the process shares with no other."""
    sizes: dict[str, float] = {"Private": 0}
    for line in Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]:
        name, value = line.split(":")
        sizes[name] = int(value.split()[0]) / 1024
        if name.startswith("Private_") and name != "Private_Hugetlb":
            sizes["Private"] += sizes[name]
    return sizes


def _switches(pid: int) -> dict[str, int]:
    """How often each thread has gone to sleep, by its id and name."""
    counts = {}
    for task in Path(f"/proc/{pid}/task").iterdir():
        status = (task / "status").read_text()
        count = next(int(line.split()[1]) for line in status.splitlines()
                     if line.startswith("voluntary_ctxt_switches"))
        counts[f"{task.name} {(task / 'comm').read_text().strip()}"] = count
    return counts


def _wakeups(pid: int, seconds: float) -> float:
    before, started = _switches(pid), time.monotonic()
    time.sleep(seconds)
    spent, after = time.monotonic() - started, _switches(pid)
    rates = {task: (count - before.get(task, 0)) / spent for task, count in after.items()}
    if os.environ.get("QUENDA_BENCH_THREADS"):
        print({task: round(rate, 2) for task, rate in rates.items() if rate}, flush=True)
    return sum(rates.values())


def idle(programs: Path, quick: bool) -> list[Figure]:
    launches, settle, seconds = (3, 3, 5) if quick else (9, 6, 20)
    names = ("Rss", "Pss", "Private")
    with VirtualDesktop(panel=True) as desktop:
        armed, shown = [], []
        for turn in range(launches):
            started = now_ns()
            tray = desktop.start([str(programs / "empty-tray")], "empty-tray",
                                 stdout=subprocess.PIPE, text=True)
            assert tray.stdout is not None
            shown.append(_ms(started, int(tray.stdout.readline())))
            if turn == launches - 1:
                time.sleep(settle)
                tray_memory, tray_wakeups = _memory(tray.pid), _wakeups(tray.pid, seconds)
            tray.terminate()
            tray.wait()

            quenda = desktop.start_quenda(trace=True)
            wait_until(lambda: "armed" in dict(map(reversed, quenda.trace())), "the armed hotkey")
            armed.append(_ms(quenda.started_ns, dict(map(reversed, quenda.trace()))["armed"]))
            quenda.wait_until_ready()
            if turn == launches - 1:
                time.sleep(settle)
                memory = _memory(quenda.process.pid)
                wakeups = [_wakeups(quenda.process.pid, seconds)]
            quenda.terminate()
            quenda.wait_until_engine_gone()
    yardstick = "empty Qt tray program"
    titles = {"Rss": "resident", "Pss": "its share", "Private": "its own"}
    return [
        Figure("launch to hotkey armed", "ms", armed, yardstick, shown),
        *(Figure(f"memory when idle, {titles[name]}", "MB", [memory[name]], yardstick,
                 [tray_memory[name]], most_ratio=1.6) for name in names),
        Figure("wake-ups when idle", "1/s", wakeups, yardstick, [tray_wakeups], most=2),
    ]


# Pill and windows

def _printed(desktop: VirtualDesktop, *command: str) -> dict[str, float]:
    """A program's line of names and values."""
    words = desktop.output(*command).split()
    if not words:
        raise RuntimeError(f"{Path(command[0]).name} failed")
    return {name: float(value) for name, value in zip(words[::2], words[1::2])}


def pill(programs: Path, quick: bool) -> list[Figure]:
    program, runs = str(programs / "pill-bench"), 2 if quick else 4
    seconds = "3" if quick else "5"
    with VirtualDesktop() as desktop:
        running, bare, hidden, shows = [], [], [], []
        for _ in range(runs):
            bare.append(_printed(desktop, program, "bare", seconds)["percent_of_core"])
            running.append(_printed(desktop, program, "pill", seconds)["percent_of_core"])
            hidden.append(_printed(desktop, program, "hidden", seconds)["wakeups"])
            shows.append(_printed(desktop, program, "show")["first_show_ms"])
    return [
        Figure("pill at 30 Hz", "% of a core", running, "bare widget, 30 Hz", bare, most_ratio=1.3),
        Figure(f"hidden pill, wake-ups in {seconds} s", "", hidden, most=0),
        Figure("pill painted, first time", "ms", shows, most=50),
    ]


def windows(programs: Path, quick: bool) -> list[Figure]:
    with VirtualDesktop() as desktop:
        runs = [_printed(desktop, str(programs / "window-bench"))
                for _ in range(2 if quick else 5)]

    def of(name: str, scale: float = 1) -> list[float]:
        return [run[name] / scale for run in runs]
    return [
        Figure("settings window, first time", "ms", of("settings_first_ms"), most=120),
        Figure("settings window, second time", "ms", of("settings_second_ms"), most=30),
        Figure("memory after all windows, its share", "MB", of("pss_after_kb", 1024), "before",
               of("pss_before_kb", 1024)),
    ]
