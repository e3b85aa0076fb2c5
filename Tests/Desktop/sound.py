"""A sound server with a virtual microphone, and a voice to speak into it."""

import os
import subprocess
from contextlib import contextmanager
from pathlib import Path
from typing import Callable, Iterator, Optional

from waiting import wait_until

Start = Callable[..., subprocess.Popen]

VOICE = "slt"  # the clearest of flite's for the recogniser
HUM_VOLUME = "15%"  # PulseAudio's scale is cubic: less than a hundredth of full scale


def speech(text: str, file: Path) -> Path:
    """Writes `text`, spoken, as a WAV file."""
    raw = file.with_suffix(".flite.wav")
    subprocess.run(["flite", "-voice", VOICE, "-t", text, "-o", str(raw)], check=True,
                   stdin=subprocess.DEVNULL)
    # What the sound server runs at, and headroom against clipping.
    subprocess.run(["sox", str(raw), "-r", "48000", "-c", "2", str(file), "norm", "-3"],
                   check=True, stdin=subprocess.DEVNULL)
    raw.unlink()
    return file


class Sound:
    """Server, null sink and the sources made of it; what is played into the sink is heard in
    every microphone."""

    SINK = "speech"

    def __init__(self, start: Start, environment: dict[str, str]) -> None:
        self._start = start
        self._environment = environment
        self._modules: dict[str, str] = {}
        self._keeper: Optional[subprocess.Popen] = None
        self.start_server()

    def start_server(self) -> None:
        """Starts the sound server, anew if it was killed, with the one microphone."""
        self.let_idle()
        self._modules.clear()
        self.server = self._start(
            ["pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit",
             "--use-pid-file=no", "--log-target=stderr", "--log-level=error",
             "--load=module-native-protocol-unix",
             f"--load=module-null-sink sink_name={self.SINK} rate=48000 channels=2 "
             "sink_properties=device.description=Speech"], "pulseaudio")
        wait_until(lambda: self._pactl("info", check=False) is not None, "the sound server")
        self.plug_in("microphone", "Virtual Microphone")

    def _pactl(self, *arguments: str, check: bool = True) -> Optional[str]:
        result = subprocess.run(["pactl", *arguments], env=self._environment, text=True,
                                stdin=subprocess.DEVNULL, capture_output=True, check=False)
        if result.returncode != 0:
            if check:
                raise RuntimeError(f"pactl {' '.join(arguments)}: {result.stderr.strip()}")
            return None
        return result.stdout.strip()

    def add_microphone(self, name: str, description: str, *options: str) -> None:
        """A further source that hears the sink; `options` are module-remap-source's."""
        self._modules[name] = self._pactl(
            "load-module", "module-remap-source", f"master={self.SINK}.monitor",
            f"source_name={name}",
            f"source_properties=\"device.description='{description}'\"", *options) or ""

    def plug_in(self, name: str, description: str, *options: str) -> None:
        """A further microphone, in use from now on."""
        self.add_microphone(name, description, *options)
        self.set_default(name)
        self.keep_running(name)

    def format(self, name: str) -> str:
        """The source's own format, as the server tells it: "s16le 2ch 48000Hz"."""
        for line in (self._pactl("list", "short", "sources") or "").splitlines():
            fields = line.split("\t")
            if fields[1] == name:
                return fields[3]
        return ""

    def remove_microphone(self, name: str) -> None:
        self._pactl("unload-module", self._modules.pop(name))

    def set_default(self, name: str) -> None:
        self._pactl("set-default-source", name)

    def keep_running(self, name: str) -> None:
        """Keeps a recorder on the source: an idle null sink would delay the first sample of the
        next one by up to two seconds."""
        self.let_idle()
        self._keeper = self._start(["parec", "-d", name, "--latency-msec=10", "--raw",
                                    "/dev/null"], "parec")
        wait_until(lambda: "RUNNING" in (self._pactl("list", "short", "sources") or ""),
                   "a running source")
        # The sink has its next buffer planned up to two seconds ahead; waking up, it plans anew.
        self._pactl("suspend-sink", self.SINK, "1")
        self._pactl("suspend-sink", self.SINK, "0")

    def let_idle(self) -> None:
        if self._keeper:
            self._keeper.kill()
            self._keeper.wait()
            self._keeper = None

    def is_recorded(self) -> bool:
        """Whether any program but our own keeper records from a source."""
        listed = (self._pactl("list", "short", "source-outputs") or "").splitlines()
        keeper = 1 if self._keeper and self._keeper.poll() is None else 0
        # The remapped source itself records from the sink's monitor, one for each microphone.
        return len(listed) > keeper + len(self._modules)

    @contextmanager
    def hum(self) -> Iterator[None]:
        """Meanwhile the microphones deliver what a real one does when nobody speaks: next to
        nothing, but not the pure silence that only one without permission delivers. The server
        makes it itself, so that no load leaves a gap."""
        module = self._pactl("load-module", "module-sine", f"sink={self.SINK}") or ""
        try:
            [stream] = [line.split("\t")[0] for line in
                        (self._pactl("list", "short", "sink-inputs") or "").splitlines()
                        if "module-sine" in line]
            self._pactl("set-sink-input-volume", stream, HUM_VOLUME)
            yield
        finally:
            self._pactl("unload-module", module)

    def playing(self, wav: Path) -> subprocess.Popen:
        """Starts to play the file into the microphone; ends when the last sample was played."""
        return subprocess.Popen(["paplay", "-d", self.SINK, "--latency-msec=50", str(wav)],
                                env=self._environment, stdin=subprocess.DEVNULL)

    def play(self, wav: Path) -> None:
        """Plays the file into the microphone."""
        player = self.playing(wav)
        if player.wait() != 0:
            raise RuntimeError(f"could not play {os.fspath(wav)}")
