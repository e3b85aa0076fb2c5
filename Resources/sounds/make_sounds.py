#!/usr/bin/env python3
"""Makes the three cues of a dictation, next to this file: mono, 16 bits, 44.1 kHz.

They are sums of a few decaying tones, soft enough (-20 dB at the peak) not to startle
and not to be heard by the microphone as speech. Change a figure here and run it again.
"""

import array
import math
import pathlib
import sys
import wave

RATE = 44100
PEAK = 0.1  # -20 dB of full scale


def tone(seconds, start_hz, end_hz, decay, attack=0.004):
    """A tone that glides from one pitch to another and dies away."""
    samples = []
    phase = 0.0
    for index in range(int(seconds * RATE)):
        time = index / RATE
        glide = 1 - math.exp(-time * 3 / seconds)
        phase += 2 * math.pi * (start_hz + (end_hz - start_hz) * glide) / RATE
        rise = min(time / attack, 1.0)
        fall = min((seconds - time) / 0.01, 1.0)  # to nothing: no click at the end
        samples.append(math.sin(phase) * rise * fall * math.exp(-decay * time))
    return samples


def mix(*parts):
    """Adds (gain, samples) together and brings the loudest sample to PEAK."""
    length = max(len(samples) for _, samples in parts)
    total = [0.0] * length
    for gain, samples in parts:
        for index, sample in enumerate(samples):
            total[index] += gain * sample
    loudest = max(abs(sample) for sample in total)
    return [sample * PEAK / loudest for sample in total]


SOUNDS = {
    # The start: a drop falling into water.
    "Pop": mix((1.0, tone(0.09, 380, 760, 35)), (0.25, tone(0.06, 760, 1500, 60))),
    # The end: a light touch on a glass.
    "Tink": mix(
        (1.0, tone(0.16, 1760, 1760, 26)),
        (0.35, tone(0.12, 2640, 2640, 40)),
        (0.15, tone(0.08, 4690, 4690, 70)),
    ),
    # The cancel: breath over a bottle, sinking.
    "Bottle": mix((1.0, tone(0.24, 330, 220, 13, 0.012)), (0.3, tone(0.2, 660, 440, 20, 0.012))),
}


def main():
    folder = pathlib.Path(__file__).parent
    for name, samples in SOUNDS.items():
        data = array.array("h", (round(sample * 32767) for sample in samples))
        if sys.byteorder == "big":
            data.byteswap()
        with wave.open(str(folder / f"{name}.wav"), "wb") as file:
            file.setnchannels(1)
            file.setsampwidth(2)
            file.setframerate(RATE)
            file.writeframes(data.tobytes())


if __name__ == "__main__":
    main()
