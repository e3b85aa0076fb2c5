"""Microphones of unusual rates and channels."""

import re
import time

from fault_suite import Scene, fault
from waiting import wait_until

CHANGED = "audio: default input device changed to "
RECOGNISED = "the words come; length and loudness are right"
FULL_SCALE = 32767
VOICE = 0.7  # the loudest that the voice is played, of full scale


def dictate_from(scene: Scene, rate: int, channels: int, *options: str,
                 words: bool = True, share: float = 1.0) -> str:
    """Dictates from a microphone of that kind. The engine gets it at 16 kHz, in one channel.

    options  further ones of module-remap-source
    words    whether the sentence can be recognised
    share    how much of the voice's loudness is left when the channels are mixed
    """
    sound = scene.desktop.sound
    sound.plug_in("special", "Special Microphone", f"rate={rate}", f"channels={channels}",
                  *options)
    try:
        form = sound.format("special")
        scene.check(form.endswith(f"{channels}ch {rate}Hz"), f"the microphone became {form}")
        scene.expect_log(CHANGED + "Special Microphone")
        begun = time.monotonic()
        scene.dictate()
        held = time.monotonic() - begun
        heard = scene.expect_words() if words else wait_until(scene.inserted, "any words", 30)[0]
        took = re.findall(r"inference begins: (\d+) ms, loudest sample (\d+)",
                          scene.quenda.engine_log())[-1]
    finally:
        sound.set_default("microphone")
        sound.keep_running("microphone")
        sound.remove_microphone("special")
        scene.expect_log(CHANGED + "Virtual Microphone")
    recorded, loudest = int(took[0]) / 1000, int(took[1]) / FULL_SCALE
    # What is not recorded is the time until the key is heard and the first sample there.
    scene.check(held - 0.6 < recorded < held + 0.1, f"{recorded} s recorded of {held:.2f} s")
    scene.check(0.6 * VOICE * share < loudest < 1.3 * VOICE * share,
                f"the loudest sample is {loudest:.3f}, not about {VOICE * share:.3f}")
    return f"“{heard}”, {recorded:.2f} s of {held:.2f} s, peak {loudest:.2f}"


# The recogniser knows voices with all their high tones only.
@fault("some words come; length and loudness are right")
def microphone_at_8_kHz_mono(scene: Scene) -> str:
    return dictate_from(scene, 8000, 1, words=False)


@fault(RECOGNISED, slow=True)
def microphone_at_44100_Hz_mono(scene: Scene) -> str:
    return dictate_from(scene, 44100, 1)


@fault(RECOGNISED)
def microphone_at_44100_Hz_stereo(scene: Scene) -> str:
    return dictate_from(scene, 44100, 2)


@fault(RECOGNISED)
def microphone_at_96_kHz_stereo(scene: Scene) -> str:
    return dictate_from(scene, 96000, 2)


@fault(RECOGNISED, slow=True)
def microphone_at_192_kHz_mono(scene: Scene) -> str:
    return dictate_from(scene, 192000, 1)


@fault(RECOGNISED)
def microphone_at_192_kHz_with_8_channels(scene: Scene) -> str:
    return dictate_from(scene, 192000, 8)


@fault(RECOGNISED)
def microphone_with_the_voice_on_one_of_8_channels(scene: Scene) -> str:
    return dictate_from(scene, 48000, 8, "remix=no",
                        "channel_map=front-left,aux1,aux2,aux3,aux4,aux5,aux6,aux7",
                        share=1 / 8)
