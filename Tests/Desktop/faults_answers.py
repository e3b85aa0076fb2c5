"""The engine answers what no engine should."""

from pathlib import Path

import sanitizer
from fault_suite import Scene, fault

HOSTILE = Path(__file__).with_name("hostile_engine.py")
UNEXPECTED = "Unexpected response from whisper-server."
TOO_LONG = "The server's answer is too long."
MOST_GROWTH_MB = 64  # the longest answer is 2 MB; some more is on its way in buffers


@fault("the words come when the answer is whole", before=HOSTILE)
def engine_that_answers_drop_by_drop(scene: Scene) -> str:
    scene.quenda.control(HOSTILE="drop_by_drop")
    scene.dictate()
    words = scene.expect_words()
    scene.quenda.control()
    return f"“{words}” came"


def lie(scene: Scene, message: str, **controls: str) -> str:
    before = scene.memory_mb()
    scene.quenda.control(**controls)
    scene.dictate()
    scene.expect_alert(message, 40)
    scene.quenda.control()
    scene.expect_nothing_inserted()
    growth = scene.memory_mb() - before
    scene.check(growth < MOST_GROWTH_MB + sanitizer.held_back_mb(),
                f"took {growth:.0f} MB of memory for it")
    return f"alert “{scene.failure()}”, +{growth:.0f} MB at most"


@fault("an alert", before=HOSTILE)
def engine_that_answers_garbage(scene: Scene) -> str:
    return lie(scene, UNEXPECTED, ANSWER="garbage")


@fault("an alert", before=HOSTILE, slow=True)
def engine_that_answers_another_type(scene: Scene) -> str:
    return lie(scene, UNEXPECTED, ANSWER="no-text")


@fault("an alert", before=HOSTILE)
def engine_that_does_not_speak_http(scene: Scene) -> str:
    return lie(scene, "", HOSTILE="bytes_that_are_not_http")


@fault("an alert", before=HOSTILE)
def engine_that_closes_mid_answer(scene: Scene) -> str:
    return lie(scene, "onnection", HOSTILE="half")


@fault("an alert", before=HOSTILE, slow=True)
def engine_that_closes_without_an_answer(scene: Scene) -> str:
    return lie(scene, "Connection closed", HOSTILE="nothing")


@fault("an alert; memory bounded", before=HOSTILE)
def engine_that_answers_2_GB(scene: Scene) -> str:
    return lie(scene, TOO_LONG, HOSTILE="two_gigabytes_unannounced")


@fault("an alert; memory bounded", before=HOSTILE, slow=True)
def engine_that_announces_2_GB(scene: Scene) -> str:
    return lie(scene, TOO_LONG, HOSTILE="two_gigabytes_announced")


@fault("an alert; memory bounded", before=HOSTILE)
def engine_whose_head_never_ends(scene: Scene) -> str:
    return lie(scene, TOO_LONG, HOSTILE="head_without_end")


@fault("the words in 2 MB of annotations come", before=HOSTILE, slow=True)
def engine_that_annotates_very_much(scene: Scene) -> str:
    scene.quenda.control(HOSTILE="megabytes_of_annotations")
    scene.dictate()
    words = scene.expect_words()
    scene.quenda.control()
    return f"“{words}” came"
