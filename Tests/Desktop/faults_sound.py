"""The sound server or the microphone goes away or hangs."""

import os
import signal
import time

import keyboard as keys
from dictation import hold_and_speak
from fault_suite import Scene, fault
from processes import kill
from waiting import wait_until

MICROPHONE = "Virtual Microphone"
CHANGED = "audio: default input device changed to "
NO_RECORDING = "Could not start recording"
SILENCE = "Quenda can't hear anything"
LEFT = "insert: no focused text element — left transcript on clipboard"
NO_DEVICE = "audio: recording failed to start — No audio input device available."


def begin_to_speak(scene: Scene) -> None:
    """Holds the key and speaks; the key stays held."""
    scene.editor.focus()
    scene.desktop.keyboard.down(keys.RIGHT_ALT)
    wait_until(scene.desktop.sound.is_recorded, "the program to record")
    scene.desktop.say("hello world")


def let_go(scene: Scene) -> None:
    scene.desktop.keyboard.up(keys.RIGHT_ALT)


def expect_cancelled(scene: Scene) -> None:
    """Whatever was said is not recognised."""
    time.sleep(0.8)
    scene.expect_nothing_inserted()
    scene.check(not scene.logged("dictation: "), "there was a dictation")


def expect_no_recording(scene: Scene) -> None:
    """The key is answered by the alert that says why there can be no recording."""
    scene.desktop.keyboard.tap(keys.RIGHT_ALT)
    scene.expect_log(NO_DEVICE)
    scene.dismiss_alert(NO_RECORDING)


def kill_server(scene: Scene) -> None:
    kill(scene.desktop.sound.server.pid)
    scene.desktop.sound.server.wait()


def restart_server(scene: Scene) -> None:
    scene.desktop.sound.start_server()
    scene.expect_log(CHANGED + MICROPHONE)


# Pure silence

# The words are for the window in front, and that is an alert, which takes none.
@fault("an alert; what is said while it is in front is left on the clipboard, and told so")
def microphone_that_is_silent(scene: Scene) -> str:
    scene.editor.focus()
    scene.desktop.keyboard.down(keys.RIGHT_ALT)
    wait_until(scene.desktop.sound.is_recorded, "the program to record")
    time.sleep(0.6)
    let_go(scene)
    wait_until(lambda: scene.desktop.find_window(SILENCE), f"the alert “{SILENCE}”")
    wait_until(lambda: not scene.editor.has_focus(), "the alert in front")
    hold_and_speak(scene.desktop, scene.desktop.speech("the quick brown fox"))
    scene.expect_log(LEFT)
    time.sleep(1.2)  # for what would be put back
    words = scene.history()[0]
    scene.check(scene.desktop.clipboard() == words.encode(), "the words are not on the clipboard")
    scene.expect_nothing_inserted()
    scene.dismiss_alert(SILENCE)
    scene.desktop.keyboard.chord(keys.LEFT_CONTROL, keys.V_KEY)
    scene.check(scene.expect_words() == words, f"pasted by hand: {scene.inserted()}")
    return f"alert; “{words}” was on the clipboard"


# The server

@fault("the device is “none”; the key gives an alert; the new server is found")
def sound_server_killed_while_idle(scene: Scene) -> str:
    kill_server(scene)
    scene.expect_log(CHANGED + "none")
    expect_no_recording(scene)
    restart_server(scene)
    return f"alert “{NO_RECORDING}”, reconnected"


@fault("the dictation is cancelled; the new server is found")
def sound_server_killed_while_recording(scene: Scene) -> str:
    begin_to_speak(scene)
    kill_server(scene)
    scene.expect_log(CHANGED + "none")
    let_go(scene)
    expect_cancelled(scene)
    restart_server(scene)
    return "cancelled, reconnected"


@fault("what was said until then is recognised")
def sound_server_stopped_while_recording(scene: Scene) -> str:
    scene.editor.focus()
    scene.desktop.keyboard.down(keys.RIGHT_ALT)
    wait_until(scene.desktop.sound.is_recorded, "the program to record")
    scene.desktop.say("the quick brown fox")
    os.kill(scene.desktop.sound.server.pid, signal.SIGSTOP)
    try:
        let_go(scene)
        return f"“{scene.expect_words()}” came"
    finally:
        os.kill(scene.desktop.sound.server.pid, signal.SIGCONT)


@fault("no words; cancelled when the server has not answered")
def sound_server_stopped_before_the_key(scene: Scene) -> str:
    server = scene.desktop.sound.server.pid
    os.kill(server, signal.SIGSTOP)
    try:
        scene.desktop.keyboard.down(keys.RIGHT_ALT)
        scene.expect_log(CHANGED)
        let_go(scene)
        scene.desktop.keyboard.tap(keys.RIGHT_ALT)
    finally:
        os.kill(server, signal.SIGCONT)
    expect_cancelled(scene)
    wait_until(lambda: not scene.desktop.sound.is_recorded(), "the end of every recording")
    return "cancelled"


# The microphone

@fault("the device is “none”; the key gives an alert; the next one is found")
def microphone_unplugged_while_idle(scene: Scene) -> str:
    scene.desktop.sound.remove_microphone("microphone")
    scene.expect_log(CHANGED + "none")
    expect_no_recording(scene)
    scene.desktop.sound.plug_in("microphone", MICROPHONE)
    scene.expect_log(CHANGED + MICROPHONE)
    return f"alert “{NO_RECORDING}”, found again"


@fault("the dictation is cancelled; the next microphone is found")
def microphone_unplugged_while_recording(scene: Scene) -> str:
    begin_to_speak(scene)
    scene.desktop.sound.remove_microphone("microphone")
    scene.expect_log(CHANGED + "none")
    let_go(scene)
    expect_cancelled(scene)
    scene.desktop.sound.plug_in("microphone", MICROPHONE)
    scene.expect_log(CHANGED + MICROPHONE)
    return "cancelled, found again"


@fault("the dictation is cancelled; the other microphone is used", slow=True)
def microphone_unplugged_with_another_there(scene: Scene) -> str:
    sound = scene.desktop.sound
    sound.add_microphone("second", "Second Microphone")
    begin_to_speak(scene)
    sound.remove_microphone("microphone")
    scene.expect_log(CHANGED + "Second Microphone")
    let_go(scene)
    expect_cancelled(scene)
    sound.keep_running("second")
    scene.dictate()
    words = scene.expect_words()
    sound.plug_in("microphone", MICROPHONE)
    sound.remove_microphone("second")
    scene.expect_log(CHANGED + MICROPHONE)
    return f"cancelled; then “{words}” from the other"
