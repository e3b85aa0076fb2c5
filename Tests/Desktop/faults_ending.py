"""The program is told to end, in every state."""

import os
import re
import signal
import threading
import time
from pathlib import Path
from typing import Any

import keyboard as keys
from fault_suite import Scene, fault
from model_server import ModelServer
from processes import is_alive
from waiting import Timeout, wait_until

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


@fault(ENDS + "; as if told once")
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


@fault(ENDS)
def told_to_end_with_the_settings_open(scene: Scene) -> str:
    copy(scene)
    scene.choose_in_menu("Settings…")
    wait_until(lambda: scene.desktop.find_window("^Quenda Settings$"), "the settings", 10)
    return expect_end(scene)


def downloading(scene: Scene) -> dict[str, Any]:
    """Launched for the first time, it downloads a model at once."""
    server = ModelServer()
    scene.on_end(server.stop)
    return {"first_launch": True, "model": Path("/nonexistent/model.bin"), "ready": False,
            "variables": {"QUENDA_MODEL_BASE_URL": server.base_url}}


@fault(ENDS + "; no half model", options=downloading)
def told_to_end_while_downloading(scene: Scene) -> str:
    copy(scene)
    models = scene.quenda.data / "models"

    def files() -> list[Path]:
        return [file for file in models.rglob("*") if file.is_file()] if models.exists() else []
    wait_until(lambda: any(file.stat().st_size for file in files()), "the download to begin", 15)
    seen = expect_end(scene)
    whole = [file.name for file in files() if file.suffix == ".bin"]
    scene.check(not whole, f"half a download is taken for a model: {whole}")
    return seen


def catch_pkill(scene: Scene, caught: list[int]) -> None:
    """Stops the program's pkill as soon as it is there."""
    children = Path(f"/proc/{scene.quenda.process.pid}/task/{scene.quenda.process.pid}/children")
    known = set(children.read_text().split())
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        for child in set(children.read_text().split()) - known:
            try:
                if Path(f"/proc/{child}/comm").read_text() == "pkill\n":
                    os.kill(int(child), signal.SIGSTOP)
                    caught.append(int(child))
                    return
            except OSError:
                pass  # it has just ended


@fault(ENDS + "; pkill is waited for")
def told_to_end_while_pkill_runs(scene: Scene) -> str:
    copy(scene)
    caught: list[int] = []
    catcher = threading.Thread(target=catch_pkill, args=(scene, caught))
    catcher.start()
    try:
        scene.choose_in_menu("Restart Engine")
    except Timeout:
        pass
    catcher.join()
    scene.check(caught, "pkill was not caught")

    def go_on() -> None:
        os.kill(caught[0], signal.SIGCONT)
    threading.Timer(0.5, go_on).start()
    return expect_end(scene)
