"""The program is told to end, in every state."""

import re
import signal
import threading
import time
from pathlib import Path
from typing import Any

import dbus

import keyboard as keys
from fault_suite import Scene, fault
from isolation import PKILL_SECONDS_FILE
from model_server import ModelServer
from processes import is_alive, running
from waiting import wait_until

# For its engine to end by itself, to be killed if it does not, and a clipboard to be handed over.
MOST_SECONDS = 3.0
LOG_LINE = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \S")
COPIED = "copied before"
ENDS = "exit status 0, nothing left running, the log whole"


def descendants(process: int) -> set[int]:
    """The process's living children, theirs, and so on."""
    found: set[int] = set()
    try:
        for task in Path(f"/proc/{process}/task").iterdir():
            for child in map(int, (task / "children").read_text().split()):
                if is_alive(child):
                    found |= {child} | descendants(child)
    except OSError:
        pass  # it has just ended
    return found


def copy(scene: Scene) -> None:
    """A person has copied something before."""
    file = scene.desktop.folder / "copied.txt"
    file.write_text(COPIED, encoding="utf-8")
    scene.desktop.own_clipboard(file, "UTF8_STRING")


def expect_end(scene: Scene, *signals: signal.Signals, clipboard: bool = True) -> str:
    """Tells the program to end; then it has ended well, and a new one is started.

    clipboard  whether what was copied before has to be there still
    """
    quenda = scene.quenda
    children = descendants(quenda.process.pid)
    began = time.monotonic()
    for one in signals or (signal.SIGTERM,):
        quenda.process.send_signal(one)
    status = quenda.process.wait(10)
    seconds = time.monotonic() - began
    scene.check(status == 0, f"exit status {status}")
    scene.check(seconds < MOST_SECONDS, f"it took {seconds:.1f} s")
    wait_until(lambda: not any(map(is_alive, children)), "the end of the program's children", 3)
    scene.check(not scene.desktop.sound.is_recorded(), "something records")
    log = quenda.log()
    broken = [line for line in log.splitlines() if not LOG_LINE.match(line)]
    scene.check(log.endswith("\n") and not broken, f"the log is not whole: {broken or log[-80:]!r}")
    if clipboard:
        held = (scene.desktop.clipboard() or b"").decode()
        scene.check(held == COPIED, f"the clipboard holds “{held}”")
    scene.start()
    return f"status 0 after {seconds:.1f} s, {len(children)} children ended"


@fault(ENDS, controls={"LOAD_DELAY_MS": "60000"}, ready=False)
def told_to_end_while_the_engine_starts(scene: Scene) -> str:
    copy(scene)
    scene.quenda.wait_for_log("engine: launched whisper-server")
    return expect_end(scene)


@fault(ENDS)
def told_to_end_when_idle(scene: Scene) -> str:
    copy(scene)
    return expect_end(scene)


@fault(ENDS + "; as if told once", slow=True)
def told_to_end_three_times_at_once(scene: Scene) -> str:
    copy(scene)
    return expect_end(scene, signal.SIGTERM, signal.SIGINT, signal.SIGTERM)


@fault(ENDS)
def told_to_end_while_recording(scene: Scene) -> str:
    copy(scene)
    scene.desktop.keyboard.down(keys.RIGHT_ALT)
    try:
        wait_until(scene.desktop.sound.is_recorded, "the program to record")
        return expect_end(scene)
    finally:
        scene.desktop.keyboard.up(keys.RIGHT_ALT)


@fault(ENDS + "; nothing inserted")
def told_to_end_while_transcribing(scene: Scene) -> str:
    copy(scene)
    scene.quenda.control(ANSWER="never")
    scene.dictate()
    scene.quenda.wait_for_engine_log("inference begins")
    seen = expect_end(scene)
    scene.expect_nothing_inserted()
    return seen


# The clipboard is the program's own then, and goes with it; the words are in the document.
@fault(ENDS + "; the words in the document")
def told_to_end_before_the_clipboard_is_back(scene: Scene) -> str:
    copy(scene)
    scene.dictate()
    words = scene.expect_words()
    seen = expect_end(scene, clipboard=False)
    scene.check(words in scene.editor.saved_text(), "the words are not in the document")
    return seen


@fault(ENDS)
def told_to_end_while_an_alert_is_open(scene: Scene) -> str:
    copy(scene)
    scene.quenda.control(ANSWER="garbage")
    scene.dictate()
    wait_until(lambda: scene.desktop.find_window("Transcription failed"), "the alert", 20)
    return expect_end(scene)


@fault(ENDS, slow=True)
def told_to_end_with_the_settings_open(scene: Scene) -> str:
    copy(scene)
    scene.choose_in_menu("Settings…")
    wait_until(lambda: scene.desktop.find_window("^Quenda Settings$"), "the settings", 10)
    return expect_end(scene)


_servers: list[ModelServer] = []  # of the fault that runs


def downloading(scene: Scene) -> dict[str, Any]:
    """Launched for the first time, it downloads a model at once."""
    server = ModelServer()
    _servers[:] = [server]
    scene.on_end(server.stop)
    return {"first_launch": True, "model": Path("/nonexistent/model.bin"), "ready": False,
            "variables": {"QUENDA_MODEL_BASE_URL": server.base_url}}


@fault(ENDS + "; no half model", options=downloading)
def told_to_end_while_downloading(scene: Scene) -> str:
    copy(scene)
    wait_until(lambda: _servers[0].asked, "the download to begin", 15)
    time.sleep(1.0)
    models = scene.quenda.data / "models"
    seen = expect_end(scene)
    whole = list(models.glob("*.bin"))
    scene.check(not whole, f"half a download is taken for a model: {whole}")
    return seen


@fault(ENDS + "; pkill is waited for")
def told_to_end_while_pkill_runs(scene: Scene) -> str:
    copy(scene)
    PKILL_SECONDS_FILE.write_text("1\n")
    clicking = threading.Thread(target=click_and_forget, args=(scene, "Restart Engine"))
    try:
        clicking.start()
        wait_until(lambda: running("/usr/bin/pkill -f"), "pkill")
        PKILL_SECONDS_FILE.write_text("0\n")
        return expect_end(scene)
    finally:
        PKILL_SECONDS_FILE.write_text("0\n")
        clicking.join()


def click_and_forget(scene: Scene, title: str) -> None:
    """Chooses in the menu; whether the program lives to see the end of it is not asked."""
    try:
        scene.choose_in_menu(title)
    except (AssertionError, dbus.DBusException):
        pass
