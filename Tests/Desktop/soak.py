#!/usr/bin/python3
"""Many dictations in a row on a virtual desktop, at speed: every transcript must arrive once and in
order, the clipboard must come back, and the program must not grow.

The X server, the sound server, the editor, the panel and the program's windows are real; the voice
is a tone, and the engine one that answers at once. Exit status 0 only if all came as it should and
no figure surely grows by more than its limit.
"""

import argparse
import math
import os
import random
import sys
import time
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Callable, Iterator

from footprint import Idle, Sample, footprint, idle, slope
from isolation import isolate
from soak_cards import Person
from soak_desk import SoakDesk, Wrong
from soak_single import single
from virtual_desktop import BUILD, QUENDA_BINARY, VirtualDesktop
from waiting import Timeout, now_ns
from x_resources import XResources

REPOSITORY = Path(__file__).resolve().parents[2]

# One hand of cards: what happens, in an order drawn anew each time.
HAND = (["words"] * 12 + ["calm"] * 4 + ["escape"] * 2 + ["pill"] + ["brief"] * 2 + ["fails"]
        + ["empty"] + ["overlap"] + ["menu"])
COMMANDS = ["commanded"] * 2 + ["command_cancels", "command_retries"]  # each for one of the words
COUNTS = {"overlap": 2, "menu": 0}  # dictations of a card where it is not one
FAILURES = ("error", "garbage", "cut")
WAYS = (("hold", "local"), ("toggle", "local"), ("toggle", "custom"), ("hold", "custom"))

SHORT = 100  # dictations up to which figures are taken after each, not only after a rest
LONG = 500  # measured dictations from which on small slopes can be told from chance
MEMORY = "memory (RssAnon), kB"
# Rise for every thousand dictations that is still taken as none, and the least rise over the whole
# run that is not put down to chance: a window's picture more or less, a heap that settles.
LIMITS = {MEMORY: (200.0, 300.0), "X pixmaps, kB": (50.0, 100.0)}
LIMIT_OF_COUNTS = (0.5, 1.0)
SHORT_RUN_KB = 4000.0
WAKEUPS = 2.0  # a second, more at the end than at the beginning


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/soak", description=__doc__)
    parser.add_argument("count", nargs="?", type=int, default=200, metavar="N",
                        help="how many dictations (default: %(default)s; the full run has 2000 and "
                        "takes about half an hour)")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--hour", dest="single", action="store_const", const=3610.0,
                      help="one dictation of an hour instead; it takes that long")
    what.add_argument("--single", type=float, metavar="SECONDS",
                      help="one dictation of that length instead")
    what.add_argument("--leaks", action="store_true",
                      help="20 dictations with the program of build/asan, whose leak check must "
                      "find nothing")
    parser.add_argument("--seed", type=int, help="for the order of what happens")
    parser.add_argument("--shots", type=Path, metavar="DIR",
                        help="with --hour or --single: pictures of the pill's clock go there")
    options = parser.parse_args()
    if options.count < 1 or (options.single is not None and options.single < 5):
        parser.error("too few dictations, or too short a one")
    if options.seed is None:
        options.seed = random.SystemRandom().randrange(10**6)
    if options.shots:
        options.shots = options.shots.resolve()
        options.shots.mkdir(parents=True, exist_ok=True)
    return options


@dataclass
class Figures:
    """What was measured, by name."""

    samples: dict[str, list[Sample]]

    def take(self, at: int, desk: SoakDesk, server: XResources) -> dict[str, float]:
        taken = footprint(desk.pid, server)
        for name, value in taken.items():
            self.samples.setdefault(name, []).append(Sample(at, desk.service, value))
        return taken


def play(desk: Person, card: str, failure: Callable[[], str]) -> None:
    if card == "fails":
        desk.fails(failure())
    else:
        getattr(desk, card)()


def run_cards(desk: Person, count: int, chance: random.Random,
              after: Callable[[int, str], None]) -> dict[str, int]:
    """Plays cards for so many dictations, or one more; `after` is told of each card. How often
    each came."""
    played: dict[str, int] = {}
    cards = HAND
    if desk.takes_commands:
        cards = cards[len(COMMANDS):] + COMMANDS
    # A short run also goes all four ways.
    block = len(HAND) if count >= SHORT else math.ceil(len(HAND) / len(WAYS))
    done = turns = 0
    hand: list[str] = []
    while done < count:
        if turns and turns % block == 0:
            desk.change(*WAYS[turns // block % len(WAYS)])
            played["settings changed"] = played.get("settings changed", 0) + 1
        turns += 1
        hand = hand or chance.sample(cards, len(cards))
        card = hand.pop()
        play(desk, card, lambda: chance.choice(FAILURES))
        played[card] = played.get(card, 0) + 1
        done += COUNTS.get(card, 1)
        after(done, card)
    return played


def judge(figures: Figures, measured: int) -> bool:
    """Prints the table; whether nothing surely grows."""
    print(f"\n{'figure':28}{'first':>10}{'last':>10}{'least':>10}{'most':>10}"
          f"{'per 1000 dictations':>24}  limit")
    well = True
    for name, samples in figures.samples.items():
        values = [s.value for s in samples]
        group = samples[-1].group
        first = next(s.value for s in samples if s.group == group)
        line = slope(samples)
        limit, tolerance = LIMITS.get(name, LIMIT_OF_COUNTS)
        if name in LIMITS and measured < LONG:
            tolerance = SHORT_RUN_KB
        rise = line.surely * (samples[-1].at - samples[0].at) / 1000
        grows = line.surely > limit and rise > tolerance
        well = well and not grows
        print(f"{name:28}{first:10.0f}{values[-1]:10.0f}{min(values):10.0f}{max(values):10.0f}"
              f"{line.rise:+15.2f} ± {line.margin:6.2f}  {limit:g}{'  GROWS' if grows else ''}")
    print(f"{sum(len(s) for s in list(figures.samples.values())[:1])} samples, each after a "
          "dictation; ± is half the 95 % confidence interval")
    return well


def judge_idle(before: Idle, after: Idle) -> bool:
    grows = after.wakeups > before.wakeups + WAKEUPS
    print(f"idle: {before.wakeups:.1f} wake-ups a second at the beginning, {after.wakeups:.1f} at "
          f"the end; {before.processor:.1f} and {after.processor:.1f} % of a processor"
          f"{'  GROWS' if grows else ''}")
    return not grows


def soak(desktop: VirtualDesktop, count: int, seed: int) -> bool:
    chance = random.Random(seed)
    print(f"program: {QUENDA_BINARY}", flush=True)
    desk = Person(desktop, QUENDA_BINARY, {})
    server = XResources(desktop.environment["DISPLAY"])
    warm_up = max(count // 5, 5)
    watch, every = (2.0, 10) if count < SHORT else (10.0, 100)
    figures = Figures({})
    began = time.monotonic()
    quiet: list[Idle] = []
    told = 0

    def after(done: int, card: str) -> None:
        nonlocal told
        if done > warm_up and not quiet:
            quiet.append(desk.when_idle(lambda: idle(desk.pid, watch)))
        if (card == "calm" or count < SHORT) and done > warm_up:
            figures.take(done, desk, server)
        if done // every > told:
            told = done // every
            taken = footprint(desk.pid, server)
            print(f"{done:5} dictations, {time.monotonic() - began:6.0f} s: "
                  + ", ".join(f"{name} {value:.0f}" for name, value in taken.items()
                              if name in (MEMORY, "file descriptors", "threads", "X resources")),
                  flush=True)

    played = run_cards(desk, count, chance, after)
    desk.calm()
    figures.take(count + 1, desk, server)
    quiet.append(desk.when_idle(lambda: idle(desk.pid, watch)))
    desk.finish()
    took = time.monotonic() - began
    print("\nplayed: " + ", ".join(f"{name} × {times}" for name, times in sorted(played.items())))
    print(f"{len(desk.expected)} transcripts arrived once and in order, {desk.failures} failures "
          f"were told; {took:.0f} s, {took / count:.2f} s for each dictation")
    well = judge(figures, count - warm_up)
    well = judge_idle(quiet[0], quiet[-1]) and well
    server.close()
    status = desk.end_program()
    desk.close()
    print(f"the program ended with {status}")
    return well and status == 0


def leaks(desktop: VirtualDesktop, seed: int) -> bool:
    binary = Path(os.environ.get("QUENDA_BIN", BUILD.with_name("asan") / "bin" / "quenda"))
    if not binary.is_file():
        print(f"there is no {binary}: build it with scripts/build asan quenda")
        return False
    if b"__asan_init" not in binary.read_bytes():
        print(f"{binary} was built without the address sanitizer")
        return False
    print(f"program: {binary}", flush=True)
    report = desktop.folder / "sanitizer"
    desk = Person(desktop, binary, {}, {
        "ASAN_OPTIONS": f"detect_leaks=1:fast_unwind_on_malloc=0:log_path={report}",
        "LSAN_OPTIONS": f"suppressions={REPOSITORY / 'Tests' / 'lsan.supp'}:max_leaks=20",
        "UBSAN_OPTIONS": f"print_stacktrace=1:log_path={report}"})
    run_cards(desk, 20, random.Random(seed), lambda done, card: None)
    desk.finish()
    status = desk.end_program(120)
    desk.close()
    found = sorted(desktop.folder.glob("sanitizer.*"))
    for file in found:
        text = file.read_text(errors="replace")
        print(text)
    complaints = [file for file in found if "ERROR: " in file.read_text(errors="replace")
                  or "runtime error" in file.read_text(errors="replace")]
    print(f"20 dictations under the sanitizers: exit status {status}, "
          f"{len(complaints)} reports")
    return status == 0 and not complaints


@contextmanager
def last_milestones(desktop: VirtualDesktop, into: list[str]) -> Iterator[None]:
    """Keeps the end of the program's trace for the message of a failure; the file goes with the
    desktop."""
    try:
        yield
    finally:
        for program in desktop.programs[-1:]:
            into += program.trace_file.read_text(encoding="ascii").splitlines(True)[-40:]


def main() -> int:
    options = parse()
    isolate()
    print(f"seed: {options.seed}", flush=True)
    latest: list[str] = []
    try:
        with VirtualDesktop() as desktop, last_milestones(desktop, latest):
            if options.single is not None:
                return 0 if single(desktop, options.single, options.shots) else 1
            if options.leaks:
                return 0 if leaks(desktop, options.seed) else 1
            return 0 if soak(desktop, options.count, options.seed) else 1
    except (Wrong, Timeout) as fault:  # the desktop has printed its logs
        print(f"now: {now_ns()}; the program's latest milestones:\n{''.join(latest)}")
        print(f"FAILED: {fault} (seed {options.seed})", flush=True)
        return 1


if __name__ == "__main__":
    sys.stdout.reconfigure(line_buffering=True)  # type: ignore[union-attr]
    if "--seed" not in " ".join(sys.argv) and "--help" not in sys.argv and "-h" not in sys.argv \
            and not os.environ.get("QUENDA_DESKTOP_ISOLATED"):
        # The program is run again inside its namespaces; the seed must stay the same.
        sys.argv += ["--seed", str(random.SystemRandom().randrange(10**6))]
    sys.exit(main())
