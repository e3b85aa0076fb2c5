"""The fault suite: what can go wrong on a person's machine, done to the running program for real.

How to add a fault. Groups are files faults_GROUP.py beside this one, listed in GROUPS; add a group
there and, in CMakeLists.txt, with quenda_fault_test(GROUP). A fault is one function:

    from fault_suite import Scene, fault

    @fault("an alert with the engine's words; restarted")      # what is expected, for the table
    def engine_killed(scene: Scene) -> str:                    # its name: "engine killed"
        [engine] = scene.quenda.engines()
        kill(engine)                                           # the fault itself
        scene.expect_log("engine: whisper-server crashed")     # since this fault began
        return "told, restarted"                               # what was seen, for the table

It gets a desktop with a voice and an editor and the program, ready. What is not as expected raises
(scene.check(...), scene.expect_...(), any wait_until). Before it returns it repairs what a person
would repair (plug the microphone in again), not more. Afterwards the suite itself dictates, and
looks for the words in the document and for stalls of the main thread: both are expected of every
fault, so no fault says them.

Faults of a group run one after the other on one desktop and with one program, as long as they want
the same program: `@fault(..., settings={...}, relay=True)` takes the options of Quenda
(quenda_program.py), and a fault with others than its predecessor gets a new program; so does every
one with fresh=True, and the one after a fault that failed. What takes minutes is full_only=True: it
runs with --full, or when it is named. What has a near relative in its group is slow=True: it is
left out with --quick, as the ordinary tests run the suite. What the thread sanitizer makes the
program too slow for is full_speed=True. Options that need the scene are a function:
`@fault(..., options=lambda scene: {...})`; it may prepare the place before the program starts. Other
programs are started with scene.desktop.start, which ends them with the desktop.
"""

import argparse
import importlib
import sys
import time
import traceback
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Callable, Optional

import keyboard as keys
import sanitizer
from dictation import hold_and_speak
from isolation import isolate
from quenda_program import Quenda
from stalls import Stall, describe_where, longest
from status_item import StatusItem, has_host, named, start_panel, titles
from virtual_desktop import VirtualDesktop
from waiting import now_ns, wait_until

GROUPS = ("engine", "answers", "installation", "network", "files", "clock",
          "sound", "microphone", "keys", "desktop", "ending")

# Beyond the waits that are asked for and those for a processor; see Stall.own.
MOST_STALL_MS = 100.0 * sanitizer.slowdown()
SENTENCE = "the quick brown fox"
BRIEF_SENTENCE = "brown fox"
ALERT = "Transcription failed"


@dataclass(frozen=True)
class Fault:
    name: str
    expectation: str
    run: Callable[["Scene"], str]
    fresh: bool
    slow: bool
    full_only: bool
    full_speed: bool
    options: Optional[Callable[["Scene"], dict[str, Any]]]
    fixed_options: dict[str, Any]


@dataclass
class Outcome:
    fault: Fault
    seen: str
    passed: bool
    stall: Optional[Stall] = None
    seconds: float = 0.0
    watched: bool = True


_faults: dict[str, list[Fault]] = {}


def fault(expectation: str, *, fresh: bool = False, slow: bool = False,
          full_only: bool = False, full_speed: bool = False,
          options: Optional[Callable[["Scene"], dict[str, Any]]] = None,
          **fixed_options: Any) -> Callable[[Callable[["Scene"], str]], Callable[["Scene"], str]]:
    """Enters a function into the suite; see the top of this file."""
    def enter(function: Callable[["Scene"], str]) -> Callable[["Scene"], str]:
        group = function.__module__.removeprefix("faults_")
        _faults.setdefault(group, []).append(Fault(
            function.__name__.replace("_", " "), expectation, function, fresh, slow, full_only,
            full_speed, options, fixed_options))
        return function
    return enter


@dataclass
class Scene:
    """What a fault happens in."""

    desktop: VirtualDesktop
    full_length: bool = False  # whether what is shortened for every day is to last
    quenda: Quenda = field(init=False)
    _options: Optional[dict[str, Any]] = None

    def __post_init__(self) -> None:
        self._bus = self.desktop.environment["DBUS_SESSION_BUS_ADDRESS"]
        start_panel(self.desktop.start, self.desktop.home)
        wait_until(lambda: has_host(self._bus), "the panel to show items")
        self.editor = self.desktop.open_editor()
        self._changes = 0
        self._log_lines = 0
        self._at_end: list[Callable[[], Any]] = []

    def on_end(self, action: Callable[[], Any]) -> None:
        """What is to be done when this fault is over, after the next dictation."""
        self._at_end.append(action)

    def finish(self) -> None:
        while self._at_end:
            self._at_end.pop()()

    # The program

    def start(self, ready: bool = True, **options: Any) -> Quenda:
        """Ends the program, if one runs, and starts it anew with the given options."""
        self.end()
        self.quenda = self.desktop.start_quenda(**({"trace": True} | options))
        self._options = None
        self._log_lines = 0
        self.quenda.wait_for_log("app: launched Quenda")
        if ready:
            self.quenda.wait_until_ready()
        return self.quenda

    def end(self) -> None:
        """Ends the program; it has to end well."""
        if not hasattr(self, "quenda") or self.quenda.process.poll() is not None:
            return
        status = self.quenda.terminate()
        self.check(status == 0, f"the program ended with {status}")
        self.quenda.wait_until_engine_gone()

    def begin(self, wanted: Fault, fresh: bool) -> None:
        """The program as the fault wants it, and marks for what is new since."""
        made = wanted.options(self) if wanted.options else {}
        options = wanted.fixed_options | made
        running = self._options is not None and self.quenda.process.poll() is None
        if fresh or wanted.fresh or made or not running or options != self._options:
            self.start(**options)
            self._options = None if made else options
        self.mark()

    def mark(self) -> None:
        """What was logged and inserted up to now does not count any more."""
        self._changes = len(self.editor.changes())
        self._log_lines = len(self.quenda.messages())

    # What a person does

    def dictate(self, text: str = SENTENCE,
                before_speaking: Optional[Callable[[], None]] = None) -> None:
        """Holds the key, speaks, lets go."""
        self.editor.focus()
        hold_and_speak(self.desktop, self.desktop.speech(text), before_speaking=before_speaking)

    def dismiss_alert(self, title: str = ALERT) -> None:
        """Waits for the alert and presses its default button."""
        window = wait_until(lambda: self.desktop.find_window(title), f"the alert “{title}”", 20)
        self.desktop.run("xdotool", "windowactivate", "--sync", window)
        self.desktop.keyboard.tap(keys.RETURN)
        wait_until(lambda: not self.desktop.find_window(title), "the end of the alert")
        self.editor.focus()

    def history(self) -> list[str]:
        """The recent dictations in the program's menu, the newest first."""
        item = StatusItem(self._bus, self.quenda.process.pid)
        try:
            item.wait_until_shown()
            recent = item.open(item.entry("Recent Dictations").id)
            return titles(recent)[:-2]  # less the line and “Clear History”
        finally:
            item.close()

    def menu_titles(self) -> list[str]:
        """What the program's menu holds."""
        item = StatusItem(self._bus, self.quenda.process.pid)
        try:
            item.wait_until_shown()
            return [entry.title for entry in item.open() if entry.visible]
        finally:
            item.close()

    def choose_in_menu(self, title: str) -> None:
        """Opens the program's menu and clicks an entry."""
        item = StatusItem(self._bus, self.quenda.process.pid)
        try:
            item.wait_until_shown()
            item.click(named(item.open(), title))
        finally:
            item.close()

    # What is expected

    @staticmethod
    def check(condition: Any, otherwise: str) -> None:
        if not condition:
            raise AssertionError(otherwise)

    def logged(self, message: str) -> list[str]:
        """The log's lines since the fault began that contain the message."""
        return [line for line in self.quenda.messages()[self._log_lines:] if message in line]

    def expect_log(self, message: str, seconds: float = 20.0, times: int = 1) -> str:
        """Waits until the message was logged since the fault began; the whole line."""
        def there() -> list[str]:
            self.check(self.quenda.process.poll() is None, "the program ended")
            return self.logged(message)[times - 1:]
        return wait_until(there, f"“{message}” in the log", seconds)[0]

    def expect_alert(self, message: str, seconds: float = 20.0) -> None:
        """The dictation failed with that description, the alert said so and was dismissed."""
        line = self.expect_log("dictation: failed after ", seconds)
        self.check(message in line, f"“{message}” is not what was told: {line}")
        self.dismiss_alert()

    def failure(self) -> str:
        """The description of the dictation that failed since the fault began."""
        [line] = self.logged("dictation: failed after ")
        return line.partition(" — ")[2]

    def memory_mb(self) -> float:
        """The most resident memory that the program ever had."""
        status = Path(f"/proc/{self.quenda.process.pid}/status").read_text()
        [peak] = [line for line in status.splitlines() if line.startswith("VmHWM:")]
        return int(peak.split()[1]) / 1024

    def expect_status(self, title: str, seconds: float = 10.0) -> None:
        """The first line of the program's menu, where its state is told."""
        wait_until(lambda: title in self.menu_titles(), f"“{title}” in the menu", seconds, 0.1)

    def inserted(self) -> list[str]:
        """The texts that the document took in since the fault began."""
        return [c.text for c in self.editor.changes()[self._changes:] if c.kind == "insert"]

    def expect_nothing_inserted(self) -> None:
        self.check(not self.inserted(), f"came into the document: {self.inserted()}")

    def expect_words(self, seconds: float = 30.0) -> str:
        """Words come into the document. On a loaded machine, where the sound has gaps, they may
        not be those that were spoken."""
        return wait_until(self.inserted, "the words in the document", seconds)[0]

    def next_dictation(self) -> None:
        """The dictation after the fault, which has to work."""
        wait_until(lambda: self.quenda.process.poll() is not None or self._engine_usable(),
                   "an engine for the next dictation", 20)
        self.check(self.quenda.process.poll() is None, "the program ended")
        self._changes = len(self.editor.changes())
        heard = self._times_heard()
        # A loaded machine's sound server may be so late that nothing of a brief sentence is left.
        self.dictate(BRIEF_SENTENCE, before_speaking=lambda: wait_until(
            lambda: self._times_heard() > heard, "the microphone's first sample"))
        self.expect_words()
        self.check(len(self.inserted()) == 1, f"more than once: {self.inserted()}")

    def _times_heard(self) -> int:
        return sum(event == "first-sample" for _, event in self.quenda.trace())

    def _engine_usable(self) -> bool:
        states = [line for line in self.quenda.messages()
                  if line in ("engine: Ready", "engine: Stopped") or line.startswith(
                      ("engine: Loading", "engine: Idle", "engine: whisper-server ",
                       "engine: No model", "engine: Could not"))
                  and "exited unexpectedly" not in line]
        # A cloud service needs no engine.
        return not states or states[-1] == "engine: Ready" or states[-1].startswith("engine: Idle")


def run_fault(scene: Scene, wanted: Fault, fresh: bool) -> Outcome:
    began = time.monotonic()
    since = now_ns()
    try:
        scene.begin(wanted, fresh)
        since = now_ns()
        seen = wanted.run(scene)
        scene.next_dictation()
        outcome = Outcome(wanted, seen, True)
    except Exception as error:  # whatever it is, the other faults have their turn
        traceback.print_exc()
        scene.desktop.print_logs()
        outcome = Outcome(wanted, f"{type(error).__name__}: {error}", False)
    finally:
        scene.finish()
    stalls: list[Stall] = []
    for quenda in scene.desktop.programs:
        found = quenda.stalls(since)
        outcome.watched &= found is not None
        stalls += found or []
    outcome.stall = longest(stalls)
    if not outcome.watched:
        outcome.passed = False
        outcome.seen += "; this build does not watch its main thread"
    elif outcome.stall and outcome.stall.own > MOST_STALL_MS:
        outcome.passed = False
        outcome.seen += "; the main thread hung"
        print(describe_where(outcome.stall), file=sys.stderr)
    outcome.seconds = time.monotonic() - began
    return outcome


def run_group(group: str, wanted: list[Fault], full_length: bool) -> list[Outcome]:
    outcomes: list[Outcome] = []
    with VirtualDesktop() as desktop:
        scene = Scene(desktop, full_length)
        for one in wanted:
            print(f"{group}: {one.name} …", file=sys.stderr, flush=True)
            outcomes.append(run_fault(scene, one, bool(outcomes) and not outcomes[-1].passed))
            desktop.programs[:] = [q for q in desktop.programs if q.process.poll() is None]
        try:
            scene.end()
        except Exception as error:
            outcomes[-1].passed = False
            outcomes[-1].seen += f"; {error}"
    return outcomes


def print_table(outcomes: list[Outcome]) -> None:
    rows = [("fault", "expectation", "seen", "longest stall", "")]
    for outcome in outcomes:
        rows.append((outcome.fault.name, outcome.fault.expectation,
                     " ".join(outcome.seen.split()), str(outcome.stall or "under 20 ms"),
                     ("ok" if outcome.passed else "FAILED") + f" ({outcome.seconds:.0f} s)"))
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for row in rows:
        print("  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip())


def parse() -> tuple[list[str], argparse.Namespace]:
    parser = argparse.ArgumentParser(
        prog="scripts/faults", description="Does to the running program what can go wrong on a "
        "person's machine, and tells what it made of it. Every fault has three more expectations: "
        f"the main thread never hangs for more than {MOST_STALL_MS:.0f} ms (but for pkill and for "
        "want of a processor), what goes wrong is told, and the next dictation works.")
    parser.add_argument("names", metavar="NAME", nargs="*",
                        help="a group, or part of a fault's name; all if none is given")
    parser.add_argument("--full", action="store_true",
                        help="let last what is shortened otherwise, as a minute of key presses")
    parser.add_argument("--quick", action="store_true",
                        help="leave out what has a near relative in its group")
    parser.add_argument("--list", action="store_true", help="only name the faults")
    arguments = parser.parse_args()
    return [name.replace("_", " ").lower() for name in arguments.names], arguments


def main() -> int:
    """Exit status 0 if everything was as expected."""
    sys.path.insert(0, str(Path(__file__).parent))
    names, arguments = parse()
    for group in GROUPS:
        importlib.import_module(f"faults_{group}")
    parts = [name for name in names if name not in GROUPS]
    chosen = {group: [one for one in _faults[group] if not names or group in names
                      or any(part in one.name.lower() for part in parts)]
              for group in GROUPS}
    if not (arguments.full or arguments.list or parts):
        chosen = {group: [one for one in wanted
                          if not one.full_only and not (arguments.quick and one.slow)]
                  for group, wanted in chosen.items()}
    if sanitizer.slowdown() > 10:
        chosen = {group: [one for one in wanted if not one.full_speed]
                  for group, wanted in chosen.items()}
    if not any(chosen.values()):
        print("no such fault; scripts/faults --list names them", file=sys.stderr)
        return 2
    if arguments.list:
        for group, wanted in chosen.items():
            for one in wanted:
                print(f"{group:13}{one.name:48}{one.expectation}")
        return 0
    isolate(faults=True)
    outcomes: list[Outcome] = []
    for group, wanted in chosen.items():
        if wanted:
            outcomes += run_group(group, wanted, arguments.full)
    print_table(outcomes)
    failed = sum(not outcome.passed for outcome in outcomes)
    print(f"{len(outcomes)} faults, {failed} not as expected")
    return 1 if failed else 0
