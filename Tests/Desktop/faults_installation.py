"""The engine's port, its program or its model is taken away."""

import os
import shutil
import socket
from pathlib import Path
from typing import Any

from fault_suite import Scene, fault
from processes import kill
from quenda_program import PORT
from virtual_desktop import RECOGNISER
from waiting import wait_until

RESTARTING = "engine: whisper-server crashed — restarting…"
PROBLEM = "Engine problem — open Settings"


class OtherProgram:
    """A web server that has the engine's port, and shares it with nobody."""

    def __init__(self) -> None:
        self._listener = socket.socket()
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)

        def taken() -> bool:
            try:
                self._listener.bind(("127.0.0.1", PORT))
            except OSError:
                return False
            return True
        wait_until(taken, "the engine's port to be free", 5, 0.001)
        self._listener.listen()

    def close(self) -> None:
        self._listener.close()


@fault("“crashed — restarting…”; ready when the port is free", fresh=True)
def port_taken_by_another_program(scene: Scene) -> str:
    [engine] = scene.quenda.engines()
    kill(engine)
    other = OtherProgram()
    scene.expect_log("exited unexpectedly (status 1, crash 2 in window)")
    scene.expect_log(RESTARTING, times=2)
    scene.check("cannot listen" in scene.quenda.engine_log(), scene.quenda.engine_log())
    scene.expect_status(PROBLEM)
    other.close()
    scene.expect_log("engine: Ready")
    return "told, ready then"


def own_engine(scene: Scene) -> dict[str, Any]:
    """A copy of the engine that may be spoilt."""
    copy = scene.desktop.folder / "own" / "whisper-server"
    copy.parent.mkdir(exist_ok=True)
    copy.unlink(missing_ok=True)
    shutil.copy2(RECOGNISER, copy)
    return {"engine": copy}


def replace(file: Path, content: bytes, mode: int) -> None:
    fresh = file.with_suffix(".new")
    fresh.write_bytes(content)
    fresh.chmod(mode)
    fresh.replace(file)


@fault("goes on with the old one, then with the new one", options=own_engine)
def binary_replaced_by_a_new_one(scene: Scene) -> str:
    binary = Path(scene.quenda.engine_file)
    [engine] = scene.quenda.engines()
    replace(binary, binary.read_bytes(), 0o755)
    scene.next_dictation()
    scene.check(scene.quenda.engines() == [engine], "another engine runs")
    scene.choose_in_menu("Restart Engine")
    scene.expect_log("engine: Ready")
    return "dictated with both"


@fault("“Could not launch whisper-server: …”; “Restart Engine” when repaired", options=own_engine)
def binary_replaced_by_nonsense(scene: Scene) -> str:
    binary = Path(scene.quenda.engine_file)
    whole = binary.read_bytes()
    replace(binary, b"\x7fELF, but no more", 0o755)
    scene.choose_in_menu("Restart Engine")
    told = scene.expect_log("engine: Could not launch whisper-server: ")
    scene.expect_status(PROBLEM)
    replace(binary, whole, 0o755)
    scene.choose_in_menu("Restart Engine")
    scene.expect_log("engine: Ready")
    return f"“{told.removeprefix('engine: ')}”, started by the menu"


@fault("“whisper-server not found. …”; “Restart Engine” when repaired", options=own_engine, slow=True)
def binary_no_longer_a_program(scene: Scene) -> str:
    binary = Path(scene.quenda.engine_file)
    [engine] = scene.quenda.engines()
    binary.chmod(0o644)
    kill(engine)
    told = scene.expect_log("engine: whisper-server not found. ")
    scene.expect_status(PROBLEM)
    binary.chmod(0o755)
    scene.choose_in_menu("Restart Engine")
    scene.expect_log("engine: Ready")
    return f"“{told.removeprefix('engine: ')}”, started by the menu"


WHOLE_MODEL = 1 << 20


def own_model(scene: Scene) -> dict[str, Any]:
    """A model that may be spoilt, and an engine that minds."""
    model = scene.desktop.folder / "own-model.bin"
    model.write_bytes(bytes(WHOLE_MODEL))
    return {"model": model, "controls": {"MODEL_BYTES": str(WHOLE_MODEL)}}


@fault("“crashed — restarting…”; ready when it is whole again", options=own_model)
def model_truncated(scene: Scene) -> str:
    model = scene.desktop.folder / "own-model.bin"
    os.truncate(model, WHOLE_MODEL // 2)
    scene.choose_in_menu("Restart Engine")
    scene.expect_log("exited unexpectedly (status 3, crash 1 in window)")
    scene.expect_log(RESTARTING)
    scene.expect_status(PROBLEM)
    os.truncate(model, WHOLE_MODEL)
    scene.expect_log("engine: Ready")
    return "told, ready then"


@fault("“No model installed yet. …”; “Restart Engine” when it is back", options=own_model, slow=True)
def model_removed(scene: Scene) -> str:
    model = scene.desktop.folder / "own-model.bin"
    model.unlink()
    scene.next_dictation()  # it is in the engine's memory
    scene.choose_in_menu("Restart Engine")
    told = scene.expect_log("engine: No model installed yet. Open Settings to download one.")
    scene.expect_status(PROBLEM)
    model.write_bytes(bytes(WHOLE_MODEL))
    scene.choose_in_menu("Restart Engine")
    scene.expect_log("engine: Ready")
    return f"“{told.removeprefix('engine: ')}”, started by the menu"
