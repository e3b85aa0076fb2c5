"""The machine's clock is set while the program runs."""

import re
import time
from pathlib import Path
from typing import Any

import sanitizer
from dictation import hold_and_speak
from fault_suite import Scene, fault
from waiting import wait_until

LIBRARY = "libfaketime.so.1"
HOUR = 3600
DAY = 24 * HOUR
CONF = "Quenda.conf"


def clock_file(scene: Scene) -> Path:
    return scene.desktop.folder / "clock"


def set_clock(scene: Scene, seconds: int) -> None:
    """The clock on the wall goes that much fast, or slow; the time since the start does not."""
    fresh = clock_file(scene).with_suffix(".new")
    fresh.write_text(f"{seconds:+d}\n")
    fresh.replace(clock_file(scene))


def own_clock(scene: Scene) -> dict[str, Any]:
    """The program, alone, with a clock that can be set."""
    set_clock(scene, 0)
    [library] = Path("/usr/lib").glob(f"*/faketime/{LIBRARY}")
    return {"variables": {
        "LD_PRELOAD": sanitizer.preloaded(library), "FAKETIME_TIMESTAMP_FILE": str(clock_file(scene)),
        "FAKETIME_NO_CACHE": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1",
        "DONT_FAKE_MONOTONIC": "1", "NO_FAKE_STAT": "1"}}


def logged_days_off(scene: Scene) -> float:
    """How far the clock of the log's last line is from ours."""
    stamp = scene.quenda.log().splitlines()[-1][:19]
    return (time.mktime(time.strptime(stamp, "%Y-%m-%d %H:%M:%S")) - time.time()) / DAY


def jump_while_speaking(scene: Scene, seconds: int) -> str:
    scene.editor.focus()
    hold_and_speak(scene.desktop, scene.desktop.speech("the quick brown fox"),
                   while_speaking=lambda: set_clock(scene, seconds))
    scene.expect_words()
    line = scene.expect_log(" audio → ")
    lengths = re.findall(r"(\d+\.\d)s", line)
    scene.check(len(lengths) == 2 and all(float(length) < 60 for length in lengths), line)
    off = logged_days_off(scene) * DAY
    scene.check(abs(off - seconds) < 60, f"the program's clock is {off:.0f} s off")
    return line


@fault("held time and recognition's time are right", options=own_clock)
def clock_forward_by_a_day_while_speaking(scene: Scene) -> str:
    return jump_while_speaking(scene, DAY)


@fault("held time and recognition's time are right", options=own_clock)
def clock_back_by_a_year_while_speaking(scene: Scene) -> str:
    return jump_while_speaking(scene, -365 * DAY)


@fault("nothing is unloaded or given up", options=own_clock)
def clock_forward_and_back_while_idle(scene: Scene) -> str:
    engines = scene.quenda.engines()
    for seconds in (30 * DAY, -30 * DAY, 0):
        set_clock(scene, seconds)
        time.sleep(0.7)
        scene.check(scene.quenda.engines() == engines, "another engine")
    scene.check(not scene.logged("engine:"), str(scene.logged("engine:")))
    return "the same engine, ready"


@fault("the model's loading takes its own time", slow=True,
       options=lambda scene: own_clock(scene) | {"controls": {"LOAD_DELAY_MS": "3000"},
                                                 "ready": False})
def clock_forward_while_the_engine_loads(scene: Scene) -> str:
    scene.dictate()  # waits for the model, 90 s at most
    set_clock(scene, DAY)
    words = scene.expect_words()
    return f"“{words}” came"


@fault("at most one look in 20 hours; none while the last one lies ahead", options=own_clock)
def clock_set_between_two_looks_for_updates(scene: Scene) -> str:
    variables = own_clock(scene)["variables"]
    config = scene.desktop.folder / "clock-config"
    seen = []
    stored = ""
    for hours, looks in ((0, True), (19, False), (21, True), (-100, False)):
        scene.end()
        set_clock(scene, hours * HOUR)
        scene.start(folders={"config": config}, variables=variables,
                    settings={"checkForUpdates": True}, first_launch=bool(stored))
        file = config / "Quenda" / CONF

        def look() -> str:
            return "".join(line for line in file.read_text().splitlines()
                           if line.startswith("lastUpdateCheck"))
        if looks:
            wait_until(lambda before=stored: look() != before, "a look for updates")
        else:
            time.sleep(0.5)
        scene.check((look() != stored) == looks, f"at {hours:+d} h: {look()} after {stored}")
        stored = look()
        seen.append(f"{hours:+d} h {'looked' if looks else 'did not'}")
    return ", ".join(seen)
