"""What can go wrong with the dictation key."""

import os
import subprocess
import sys
import time
from contextlib import contextmanager
from pathlib import Path
from typing import Iterator

import keyboard as keys
import sanitizer
from fault_suite import SENTENCE, Scene, fault
from waiting import now_ns, wait_until
from x_connections import cut_all_but_the_first

LOCK = Path(__file__).with_name("screen_lock.py")
LEFT_ALT = 64
LEFT_SHIFT = 50
LISTENER = "^Quenda key listener$"  # the title of its window, which is never shown
LONGEST_DEAF_SECONDS = 35  # a watchdog looks every 30 s

STORM_SECONDS = 5
FULL_STORM_SECONDS = 60
MOST_GROWTH_MB = 20
MOST_FILES_MORE = 4
MOST_SECONDS_TO_REST = 5.0


def wait_until_recording(scene: Scene) -> None:
    wait_until(scene.desktop.sound.is_recorded, "the program to record")


def wait_until_not_recording(scene: Scene) -> None:
    wait_until(lambda: not scene.desktop.sound.is_recorded(), "the end of the recording")


def begin_to_speak(scene: Scene, key: int = keys.RIGHT_ALT) -> None:
    """Holds the key and says the sentence; the key stays held."""
    scene.editor.focus()
    scene.desktop.keyboard.down(key)
    wait_until_recording(scene)
    scene.desktop.say(SENTENCE)


# The connection that keys are heard on

def cut_connections(scene: Scene) -> None:
    scene.check(cut_all_but_the_first(scene.quenda.process.pid) > 0, "there is no such connection")


def wait_until_heard(scene: Scene) -> str:
    """Presses the key until it is heard; how long that took."""
    began = time.monotonic()

    def hears_the_key() -> bool:
        scene.desktop.keyboard.down(keys.RIGHT_ALT)
        time.sleep(0.2)
        heard = scene.desktop.sound.is_recorded()
        scene.desktop.keyboard.up(keys.RIGHT_ALT)
        return heard
    wait_until(hears_the_key, "the program to hear the key again", LONGEST_DEAF_SECONDS, 0.3)
    wait_until_not_recording(scene)
    scene.expect_nothing_inserted()
    return f"heard after {time.monotonic() - began:.1f} s"


@fault("the key is heard again at once")
def key_connection_lost_while_idle(scene: Scene) -> str:
    cut_connections(scene)
    return wait_until_heard(scene)


@fault("the key is heard again at once")
def key_connection_killed_by_its_window(scene: Scene) -> str:
    [window] = scene.desktop.output("xdotool", "search", "--name", LISTENER).split()
    scene.desktop.run("xkill", "-id", window, stdout=subprocess.DEVNULL)
    return wait_until_heard(scene)


@fault("the recording ends; the words come")
def key_connection_lost_while_the_key_is_held(scene: Scene) -> str:
    begin_to_speak(scene)
    time.sleep(0.1)
    cut_connections(scene)
    wait_until_not_recording(scene)
    words = scene.expect_words()
    scene.desktop.keyboard.up(keys.RIGHT_ALT)
    return f"“{words}” came"


# Other keys

@fault("the other key changes nothing; the words come at the release", slow=True)
def left_key_tapped_while_the_right_one_is_held(scene: Scene) -> str:
    begin_to_speak(scene)
    scene.desktop.keyboard.tap(LEFT_ALT)
    time.sleep(0.1)
    scene.check(scene.desktop.sound.is_recorded(), "the recording ended")
    scene.desktop.keyboard.up(keys.RIGHT_ALT)
    return f"“{scene.expect_words()}” came"


# The two keys have one flag, and it tells of a release only when both are up.
@fault("recorded on until the next release; then the words come")
def both_keys_held_and_the_right_one_let_go_first(scene: Scene) -> str:
    begin_to_speak(scene)
    scene.desktop.keyboard.down(LEFT_ALT)
    scene.desktop.keyboard.up(keys.RIGHT_ALT)
    scene.desktop.keyboard.up(LEFT_ALT)
    time.sleep(0.3)
    scene.check(scene.desktop.sound.is_recorded(), "the recording ended")
    scene.expect_nothing_inserted()
    scene.desktop.keyboard.tap(keys.RIGHT_ALT)
    return f"“{scene.expect_words()}” came at the next release"


@fault("the words come, pasted although the other keys are held")
def modifiers_held_over_the_paste(scene: Scene) -> str:
    begin_to_speak(scene)
    held = (LEFT_SHIFT, keys.RIGHT_CONTROL)
    for key in held:
        scene.desktop.keyboard.down(key)
    try:
        scene.desktop.keyboard.up(keys.RIGHT_ALT)
        words = scene.expect_words()
    finally:
        for key in held:
            scene.desktop.keyboard.up(key)
    return f"“{words}” came"


# The session's lock

@contextmanager
def locked_screen(scene: Scene) -> Iterator[None]:
    """The keyboard is another program's meanwhile."""
    locker = scene.desktop.start([sys.executable, str(LOCK)], "screen-lock",
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    assert locker.stdin is not None and locker.stdout is not None
    scene.check(locker.stdout.readline() == "locked\n", "the screen could not be locked")
    try:
        yield
    finally:
        locker.stdin.close()
        locker.wait(5)


@fault("the release is heard, the recording ends; the words are in the menu")
def screen_locked_while_the_key_is_held(scene: Scene) -> str:
    begin_to_speak(scene)
    with locked_screen(scene):
        time.sleep(0.2)
        scene.check(scene.desktop.sound.is_recorded(), "the recording ended")
        scene.desktop.keyboard.up(keys.RIGHT_ALT)
        wait_until_not_recording(scene)
        told = scene.expect_log("chars in ")
        time.sleep(1.2)  # for a paste and what is put back after it
    words = scene.history()[0]
    # Which words these are is the sound's affair: on a loaded machine it has gaps.
    scene.check(f"→ {len(words)} chars in " in told, f"the menu keeps “{words}”; {told}")
    return f"“{words}” is in the menu" + (", not in the document" if not scene.inserted() else "")


# Many presses

def press_very_often(scene: Scene, seconds: float) -> int:
    """Presses 10 ms apart, for so long; how many."""
    presses = 0
    began = due = now_ns()
    while now_ns() - began < seconds * 1e9:
        scene.desktop.keyboard.down(keys.RIGHT_ALT)
        time.sleep(0.005)
        scene.desktop.keyboard.up(keys.RIGHT_ALT)
        presses += 1
        due += 10_000_000
        time.sleep(max(0.0, (due - now_ns()) / 1e9))
    return presses


def storm(scene: Scene) -> str:
    """Presses like mad. Nobody spoke, so nothing may come of it; soon all is at rest, and nothing
    is left behind.

    Where the machine is loaded, some recordings last for a third of a second and more. They must
    not be of pure silence, of which the program rightly tells with an alert."""
    scene.editor.focus()
    with scene.desktop.sound.hum():
        press_very_often(scene, 1)
        settle(scene)
        memory, files = resident_mb(scene), open_files(scene)
        presses = press_very_often(scene,
                                   FULL_STORM_SECONDS if scene.full_length else STORM_SECONDS)
        seconds = settle(scene)
    scene.expect_nothing_inserted()
    scene.check(scene.editor.has_focus(), "another window came to the front")
    scene.check(not scene.logged("dictation: failed"), "a dictation failed")
    grown, more = resident_mb(scene) - memory, open_files(scene) - files
    scene.check(grown < MOST_GROWTH_MB + sanitizer.held_back_mb(), f"{grown:.0f} MB more in memory")
    scene.check(more <= MOST_FILES_MORE, f"{more} more open files")
    return f"{presses} presses, at rest after {seconds:.1f} s, {grown:+.1f} MB, {more:+d} files"


def settle(scene: Scene) -> float:
    """Waits until the program has seen to all presses; cancels a recording that is left. The
    seconds it took."""
    began = time.monotonic()
    quiet = 0
    while quiet < 5:
        scene.check(time.monotonic() - began < MOST_SECONDS_TO_REST, "it does not come to rest")
        before = len(scene.quenda.trace())
        time.sleep(0.1)
        quiet = quiet + 1 if len(scene.quenda.trace()) == before else 0
    seconds = time.monotonic() - began - 0.5
    if scene.desktop.sound.is_recorded():
        scene.desktop.keyboard.tap(keys.ESCAPE)
    wait_until_not_recording(scene)
    return seconds


def resident_mb(scene: Scene) -> float:
    pages = Path(f"/proc/{scene.quenda.process.pid}/statm").read_text().split()[1]
    return int(pages) * os.sysconf("SC_PAGESIZE") / (1 << 20)


def open_files(scene: Scene) -> int:
    return len(os.listdir(f"/proc/{scene.quenda.process.pid}/fd"))


@fault("every one is a slip: nothing comes; at rest at once", trace=True, full_speed=True)
def presses_10_ms_apart(scene: Scene) -> str:
    return storm(scene)


@fault("every other one ends a recording: nothing comes; at rest at once; the next works",
       trace=True, settings={"activationMode": "toggle"}, slow=True, full_speed=True)
def presses_10_ms_apart_in_toggle_mode(scene: Scene) -> str:
    seen = storm(scene)
    scene.desktop.keyboard.tap(keys.RIGHT_ALT)
    wait_until_recording(scene)
    scene.desktop.say(SENTENCE)
    scene.desktop.keyboard.tap(keys.RIGHT_ALT)
    words = scene.expect_words()
    scene.start()  # the suite holds the key
    return f"{seen}; then “{words}”"
