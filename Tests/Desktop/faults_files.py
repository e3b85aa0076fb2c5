"""The disk is full, and folders cannot be written, are something else, or go away."""

import errno
import json
import os
import shutil
from pathlib import Path
from typing import Any, Callable

from accessible import AccessibleProgram
from fault_suite import Scene, fault
from isolation import SMALL_DISK
from model_server import ModelServer
from processes import kill
from quenda_program import Quenda
from waiting import wait_until

ACCESSIBLE = {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}
FILLER_WORDS = "Remove filler words (um, uh, erm)"
PAGE = os.sysconf("SC_PAGE_SIZE")
LARGEST = "ggml-large-v3-turbo.bin"


# What a person does

def open_settings(scene: Scene) -> tuple[AccessibleProgram, Any]:
    scene.choose_in_menu("Settings…")
    seen = AccessibleProgram(scene.desktop.environment, scene.quenda.process.pid)
    return seen, seen.window("Quenda Settings")


def change_setting(scene: Scene) -> None:
    """Clicks a check box in the settings, which saves them."""
    seen, window = open_settings(scene)
    seen.press(wait_until(lambda: seen.find(window, "check box", FILLER_WORDS), "the check box"))
    wait_until(lambda: seen.find(window, "check box", FILLER_WORDS), "the window to live on")
    scene.editor.focus()


def saved(quenda: Quenda) -> Any:
    """The setting in the file; nothing if the file cannot be read."""
    try:
        return json.loads((quenda.data / "config.json").read_text())["removeFillerWords"]
    except (OSError, ValueError, KeyError):
        return None


def expect_saved(scene: Scene) -> None:
    """Another change is saved."""
    file = scene.quenda.data / "config.json"

    def written() -> int:
        return file.stat().st_mtime_ns if file.exists() else 0
    before = written()
    change_setting(scene)
    wait_until(lambda: written() != before and saved(scene.quenda) is not None,
               "the settings to be saved")


# The disk is full

def fill_disk(scene: Scene) -> None:
    filler = SMALL_DISK / "filler"
    scene.on_end(lambda: filler.unlink(missing_ok=True))
    with open(filler, "wb", buffering=0) as file:
        for size in (PAGE, 1):
            try:
                while True:
                    file.write(bytes(size))
            except OSError as error:
                Scene.check(error.errno == errno.ENOSPC, str(error))


def free_disk() -> None:
    (SMALL_DISK / "filler").unlink()


def on_small_disk(*names: str, **options: Any) -> Callable[[Scene], dict[str, Any]]:
    def prepare(scene: Scene) -> dict[str, Any]:
        scene.end()
        for entry in SMALL_DISK.iterdir():
            shutil.rmtree(entry) if entry.is_dir() else entry.unlink()
        made = {"folders": {name: SMALL_DISK / name for name in names}, "variables": ACCESSIBLE}
        return made | options
    return prepare


@fault("goes on with the settings in memory; saved when there is room again",
       options=on_small_disk("data"))
def disk_full_for_the_settings(scene: Scene) -> str:
    file = scene.quenda.data / "config.json"
    file.unlink()  # or what it gives back would be room enough to write it again
    fill_disk(scene)
    change_setting(scene)
    wait_until(file.exists, "the attempt to save")
    scene.check(saved(scene.quenda) is None, "there was room for the settings")
    scene.next_dictation()
    free_disk()
    expect_saved(scene)
    return f"saved then (meanwhile, {file.name} was empty)"


def fill_last_page(log: Path) -> None:
    """Lets no room be left in what the file takes on the disk already."""
    stamp = "2000-01-01 00:00:00 "
    while left := -log.stat().st_size % PAGE:
        length = left if left > len(stamp) else left + PAGE
        with open(log, "a", encoding="utf-8") as file:
            file.write(stamp.ljust(length - 1, "-") + "\n")


@fault("goes on without its log, also starting the engine; logs when there is room again",
       options=on_small_disk("state"))
def disk_full_for_the_log(scene: Scene) -> str:
    quenda = scene.quenda
    # Or the next engine, which gets a file of its own, would free what the last one's takes.
    os.truncate(quenda.log_file.with_name("whisper-server.log"), 0)
    fill_last_page(quenda.log_file)
    fill_disk(scene)
    size = quenda.log_file.stat().st_size
    scene.check(size % PAGE == 0, "something was logged meanwhile")
    [engine] = quenda.engines()
    scene.dictate()
    scene.expect_words()
    kill(engine)
    wait_until(lambda: quenda.engines() not in ([], [engine]), "another engine")
    scene.check(quenda.log_file.stat().st_size == size, "there was room for the log")
    free_disk()
    scene.choose_in_menu("Restart Engine")
    scene.expect_log("engine: Ready")
    return "dictated and restarted unlogged; logs again"


def download(scene: Scene) -> tuple[AccessibleProgram, Any]:
    """Has the first model of the settings downloaded; the window."""
    seen, window = open_settings(scene)
    seen.press(wait_until(lambda: seen.find(window, "push button", "Download"), "the button"))
    return seen, window


def expect_download_error(scene: Scene, seen: AccessibleProgram, window: Any, reason: str) -> str:
    """The reason stands in the window, and nothing remains on the disk."""
    text = f"The file could not be saved: {reason}."
    wait_until(lambda: seen.find(window, "label", text), f"“{text}” in the window", 20)
    scene.editor.focus()
    left = [file for file in scene.quenda.data.rglob("*") if ".part" in file.name]
    scene.check(not left, f"left behind: {left}")
    return f"“{text}”"


def with_model_server(prepare: Callable[[Scene], dict[str, Any]]
                      ) -> Callable[[Scene], dict[str, Any]]:
    def prepared(scene: Scene) -> dict[str, Any]:
        made = prepare(scene)
        server = ModelServer()
        server.release()
        scene.on_end(server.stop)
        return made | {"variables": ACCESSIBLE | {"QUENDA_MODEL_BASE_URL": server.base_url}}
    return prepared


@fault("the reason under the model; nothing left behind",
       options=with_model_server(on_small_disk("data")))
def disk_full_for_a_model(scene: Scene) -> str:
    told = expect_download_error(scene, *download(scene), "No space left on device")
    scene.check(shutil.disk_usage(SMALL_DISK).free > 1 << 20, "the disk is still full")
    return told


@fault("the reason under the model", options=with_model_server(lambda scene: {}), slow=True)
def models_folder_replaced_by_a_file(scene: Scene) -> str:
    models = scene.quenda.data / "models"
    shutil.rmtree(models, ignore_errors=True)
    models.touch()
    told = expect_download_error(scene, *download(scene), "Not a directory")
    models.unlink()
    return told


def while_downloading(scene: Scene, change: Callable[[Path], None]) -> tuple[Any, Any]:
    """Does something to the models' folder when half of the model has come; the window."""
    seen, window = download(scene)
    models = scene.quenda.data / "models"
    wait_until(lambda: any(file.stat().st_size > 1 << 20 for file in models.glob("*.part*")),
               "a part of the model", 20)
    change(models)
    _servers[0].release()
    return seen, window


_servers: list[ModelServer] = []  # of the fault that runs


def slow_download(scene: Scene) -> dict[str, Any]:
    """The second half of a model comes when it is released."""
    _servers[:] = [ModelServer()]
    scene.on_end(_servers[0].stop)
    return {"variables": ACCESSIBLE | {"QUENDA_MODEL_BASE_URL": _servers[0].base_url},
            "prepare": lambda quenda: (quenda.data / "models").mkdir()}


@fault("the reason under the model; nothing left behind", options=slow_download)
def models_folder_removed_during_a_download(scene: Scene) -> str:
    window = while_downloading(scene, shutil.rmtree)
    return expect_download_error(scene, *window, "No such file or directory")


@fault("the reason under the model; no model that is not whole", options=slow_download, slow=True)
def models_folder_read_only_during_a_download(scene: Scene) -> str:
    window = while_downloading(scene, lambda models: read_only(scene, models))
    text = "The file could not be saved: Permission denied."
    wait_until(lambda: window[0].find(window[1], "label", text), f"“{text}” in the window", 20)
    scene.editor.focus()
    whole = list((scene.quenda.data / "models").glob("*.bin"))
    scene.check(not whole, f"there is {whole}")
    return f"“{text}”"


# Folders

def read_only(scene: Scene, *places: Path) -> None:
    """Nobody may write there until the fault is over."""
    for place in places:
        mode = place.stat().st_mode
        place.chmod(mode & ~0o222)
        scene.on_end(lambda place=place, mode=mode: place.chmod(mode))
    probe = places[0] / "probe" if places[0].is_dir() else places[0]
    try:
        open(probe, "ab").close()
    except PermissionError:
        return
    raise AssertionError("permissions do not hold for this user")


def restart_engine_unlogged(scene: Scene) -> None:
    engines = scene.quenda.engines()
    scene.choose_in_menu("Restart Engine")
    wait_until(lambda: scene.quenda.engines() not in ([], engines)
               and len(scene.quenda.engines()) == 1, "another engine")
    scene.expect_status("Ready — model.bin")


def expect_logged_again(scene: Scene) -> None:
    scene.mark()
    scene.choose_in_menu("Restart Engine")
    scene.expect_log("engine: Ready")


@fault("goes on without its log", variables=ACCESSIBLE)
def log_folder_read_only(scene: Scene) -> str:
    folder = scene.quenda.log_file.parent
    log = scene.quenda.log()
    read_only(scene, folder, scene.quenda.log_file)
    restart_engine_unlogged(scene)
    scene.dictate()
    scene.expect_words()
    scene.check(scene.quenda.log() == log, "it was written to")
    scene.finish()
    expect_logged_again(scene)
    return "restarted and dictated unlogged; logs again"


def put_away(place: Path) -> Path:
    away = place.with_name(place.name + ".away")
    place.rename(away)
    return away


@fault("goes on without its log", variables=ACCESSIBLE, slow=True)
def log_folder_replaced_by_a_file(scene: Scene) -> str:
    folder = scene.quenda.log_file.parent
    away = put_away(folder)
    folder.touch()
    restart_engine_unlogged(scene)
    scene.dictate()
    scene.expect_words()
    scene.check(folder.is_file() and folder.stat().st_size == 0, "the file was touched")
    folder.unlink()
    away.rename(folder)
    expect_logged_again(scene)
    return "restarted and dictated unlogged; logs again"


@fault("logs where the link leads", variables=ACCESSIBLE)
def log_folder_replaced_by_a_symbolic_link(scene: Scene) -> str:
    folder = scene.quenda.log_file.parent
    folder.symlink_to(put_away(folder))
    expect_logged_again(scene)
    return "logged there"


@fault("makes it anew with the next line", fresh=True, variables=ACCESSIBLE)
def log_folder_removed(scene: Scene) -> str:
    shutil.rmtree(scene.quenda.log_file.parent)
    expect_logged_again(scene)
    mode = scene.quenda.log_file.stat().st_mode & 0o777
    scene.check(mode == 0o600, f"readable for others: {mode:o}")
    return "there again"


@fault("makes it anew with the next change", variables=ACCESSIBLE)
def settings_folder_removed(scene: Scene) -> str:
    shutil.rmtree(scene.quenda.data)
    expect_saved(scene)
    mode = (scene.quenda.data / "config.json").stat().st_mode & 0o777
    scene.check(mode == 0o600, f"readable for others: {mode:o}")
    return "there again"


@fault("goes on with the settings in memory", variables=ACCESSIBLE)
def settings_folder_read_only(scene: Scene) -> str:
    file = scene.quenda.data / "config.json"
    file.unlink(missing_ok=True)
    read_only(scene, scene.quenda.data)
    change_setting(scene)
    scene.check(not file.exists(), "it was written to")
    scene.finish()
    expect_saved(scene)
    return "saved when it could be written again"


@fault("goes on with the settings in memory", variables=ACCESSIBLE, slow=True)
def settings_folder_replaced_by_a_file(scene: Scene) -> str:
    away = put_away(scene.quenda.data)
    scene.quenda.data.touch()
    change_setting(scene)
    scene.check(scene.quenda.data.stat().st_size == 0, "the file was touched")
    scene.quenda.data.unlink()
    away.rename(scene.quenda.data)
    expect_saved(scene)
    return "saved when it was back"


@fault("never waits for the pipe", variables=ACCESSIBLE, slow=True)
def settings_file_replaced_by_a_link_to_a_pipe(scene: Scene) -> str:
    file = scene.quenda.data / "config.json"
    pipe = file.with_name("pipe")
    os.mkfifo(pipe)
    file.unlink()
    file.symlink_to(pipe)
    change_setting(scene)
    scene.check(file.is_symlink() and pipe.is_fifo(), "they were touched")
    file.unlink()
    expect_saved(scene)
    return "saved when it was gone"


@fault("defaults, “whisper-server not found. …”, until they can be read", variables=ACCESSIBLE)
def settings_file_not_readable_at_start(scene: Scene) -> str:
    quenda = scene.quenda
    settings = json.loads((quenda.data / "config.json").read_text())
    home = scene.desktop.folder / "unreadable"
    (home / "Quenda").mkdir(parents=True, exist_ok=True)
    file = home / "Quenda" / "config.json"

    def spoil(_: Any) -> None:
        file.unlink(missing_ok=True)
        os.mkfifo(file)
    scene.start(ready=False, folders={"data": home}, variables=ACCESSIBLE, prepare=spoil)
    told = scene.expect_log("engine: whisper-server not found. ")
    scene.check(file.is_fifo(), "the pipe was touched")
    file.unlink()
    scene.start(settings=settings, variables=ACCESSIBLE)
    return f"“{told.removeprefix('engine: ')[:32]}…”; all well when started with them"
