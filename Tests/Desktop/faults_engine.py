"""The engine dies, hangs, lies or is taken away."""

import os
import signal

from fault_suite import Scene, fault
from processes import kill
from waiting import wait_until

RESTARTING = "engine: whisper-server crashed — restarting…"
UNEXPECTED = "Unexpected response from whisper-server."


def inferences(scene: Scene) -> int:
    """How many the running engine has begun."""
    return scene.quenda.engine_log().count("inference begins")


@fault("“crashed — restarting…”; ready again")
def engine_killed_while_idle(scene: Scene) -> str:
    [engine] = scene.quenda.engines()
    kill(engine)
    scene.expect_log(RESTARTING)
    scene.expect_log("engine: Ready")
    return "told and restarted"


@fault("an alert; nothing inserted; ready again")
def engine_killed_while_it_recognises(scene: Scene) -> str:
    scene.quenda.control(ANSWER="never")
    begun = inferences(scene)
    scene.dictate()
    wait_until(lambda: inferences(scene) > begun, "the inference")
    [engine] = scene.quenda.engines()
    kill(engine)
    scene.quenda.control()
    scene.expect_log(RESTARTING)
    scene.expect_alert("")
    scene.expect_nothing_inserted()
    scene.expect_log("engine: Ready")
    return scene.logged("dictation: failed")[0]


@fault("the words come when it goes on")
def engine_stopped_for_two_seconds(scene: Scene) -> str:
    [engine] = scene.quenda.engines()
    os.kill(engine, signal.SIGSTOP)
    scene.dictate()
    scene.expect_nothing_inserted()
    os.kill(engine, signal.SIGCONT)
    return f"came: {scene.expect_words()}"
