"""A whole desktop for one test or one demonstration: X server, window manager, session bus, sound
server with a virtual microphone, and folders of its own. Call isolation.isolate() first.

    with VirtualDesktop() as desktop:
        editor = desktop.open_editor()
        quenda = desktop.start_quenda()
        quenda.wait_until_ready()
        desktop.keyboard.down(keyboard.RIGHT_ALT)
        ...
"""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path
from types import TracebackType
from typing import Any, Optional, Union

from cloud_service import CloudService
from editor import Editor
from keyboard import Keyboard
from quenda_program import Quenda
from sound import Sound, speech
from waiting import wait_until

REPOSITORY = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUENDA_BUILD_DIR", REPOSITORY / "build" / "dev"))
QUENDA_BINARY = Path(os.environ.get("QUENDA_BIN", BUILD / "bin" / "quenda"))
RECOGNISER = BUILD / "testbin" / "sphinx-whisper-server"

# What a program may take over from the outer environment; everything else is the desktop's own.
_INHERITED = ("PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS")


class VirtualDesktop:
    """Starts everything when entered and ends everything it started when left."""

    def __init__(self, panel: bool = False, compositor: bool = False) -> None:
        self._wants_panel = panel
        self._wants_compositor = compositor
        self._processes: list[tuple[str, subprocess.Popen]] = []
        self.programs: list[Quenda] = []
        self._home_count = 0

    def __enter__(self) -> "VirtualDesktop":
        self.folder = Path(tempfile.mkdtemp(prefix="quenda-desktop."))
        try:
            self._start_everything()
        except BaseException:
            self.print_logs()
            self.stop()
            raise
        return self

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        if error is not None:
            self.print_logs()
        self.stop()

    def _start_everything(self) -> None:
        self.home = self.folder / "home"
        self.runtime = self.folder / "run"
        self.logs = self.folder / "logs"
        for folder, mode in ((self.home, 0o755), (self.runtime, 0o700), (self.logs, 0o755)):
            folder.mkdir(mode=mode)
        self.environment = {name: os.environ[name] for name in _INHERITED if name in os.environ}
        bus = f"unix:path={self.runtime}/bus"
        self.environment |= {
            "HOME": str(self.home), "USER": "person", "LOGNAME": "person", "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": str(self.runtime), "TMPDIR": str(self.folder),
            "XDG_SESSION_TYPE": "x11", "GSETTINGS_BACKEND": "memory", "NO_AT_BRIDGE": "0",
            # One bus stands for both: nothing here may talk to the machine's own.
            "DBUS_SESSION_BUS_ADDRESS": bus, "DBUS_SYSTEM_BUS_ADDRESS": bus,
        }
        self._start_display()
        self.start(["dbus-daemon", "--session", "--nofork", "--nopidfile",
                    f"--address={bus}"], "dbus")
        wait_until((self.runtime / "bus").exists, "the session bus")
        self.start(["openbox", "--sm-disable"], "openbox")
        wait_until(lambda: "window id" in self.output("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"),
                   "the window manager")
        self.run("xsetroot", "-solid", "#3f5873")
        if self._wants_compositor:
            self.start(["xcompmgr", "-n"], "xcompmgr")
        if self._wants_panel:
            self.start(["tint2"], "tint2")
            wait_until(lambda: self.find_window("tint2"), "the panel")
        self.sound = Sound(self.start, self.environment)
        self.keyboard = Keyboard(self.environment["DISPLAY"])

    def _start_display(self) -> None:
        ours, theirs = os.pipe()
        self.start(["Xvfb", "-displayfd", str(theirs), "-noreset", "-nolisten", "tcp",
                    "-screen", "0", "1280x800x24"], "xvfb", pass_fds=[theirs])
        os.close(theirs)
        with os.fdopen(ours) as announced:
            number = announced.readline().strip()
        if not number.isdigit():
            raise RuntimeError("the X server does not start")
        self.environment["DISPLAY"] = f":{number}"

    # Processes

    def start(self, command: list[str], name: str, **options: Any) -> subprocess.Popen:
        """Starts a program on this desktop; what it prints goes to logs/NAME.log."""
        options.setdefault("env", self.environment)
        options.setdefault("stdin", subprocess.DEVNULL)
        with open(self.logs / f"{name}.log", "ab") as log:
            options.setdefault("stdout", log)
            process = subprocess.Popen(command, stderr=log, **options)
        self._processes.append((name, process))
        return process

    def run(self, *command: str, **options: Any) -> None:
        """Runs a program on this desktop to its end."""
        options.setdefault("stdin", subprocess.DEVNULL)
        subprocess.run(command, env=self.environment, check=True, timeout=30, **options)

    def output(self, *command: str) -> str:
        """What a program prints; empty if it fails."""
        result = subprocess.run(command, env=self.environment, capture_output=True, text=True,
                                stdin=subprocess.DEVNULL, timeout=30, check=False)
        return result.stdout if result.returncode == 0 else ""

    # Windows

    def find_window(self, name: str) -> str:
        """A visible window whose title or class matches; its id or nothing."""
        for kind in ("--name", "--class"):
            found = self.output("xdotool", "search", "--onlyvisible", kind, name).split()
            if found:
                return found[0]
        return ""

    def screenshot(self, file: Union[str, Path]) -> None:
        self.run("import", "-silent", "-window", "root", str(file))

    # Programs

    def open_editor(self, name: str = "letter.txt", content: str = "") -> Editor:
        """The text editor with an empty document, focused."""
        return Editor(self.start, self.environment, self.keyboard, self.home / name, content)

    def open_xterm(self, file: Path) -> str:
        """A terminal, focused, that writes what is typed into `file`; its window."""
        self.start(["xterm", "-T", "typewriter", "-fa", "DejaVu Sans Mono", "-e", "sh", "-c",
                    'exec cat > "$1"', "sh", str(file)], "xterm")
        window = wait_until(lambda: self.find_window("^typewriter$"), "the terminal's window")
        wait_until(file.exists, "the program in the terminal")
        self.run("xdotool", "windowactivate", "--sync", window)
        return window

    def start_quenda(self, **options: Any) -> Quenda:
        """The program under test with empty folders of its own; see Quenda for the options."""
        self._home_count += 1
        options.setdefault("binary", QUENDA_BINARY)
        options.setdefault("engine", RECOGNISER)
        quenda = Quenda(self.start, self.environment, self.folder / f"quenda{self._home_count}",
                        **options)
        self.programs.append(quenda)
        return quenda

    def start_cloud_service(self) -> CloudService:
        """A transcription service on loopback, see CloudService."""
        return CloudService(self.start, self.environment, self.folder / "cloud", RECOGNISER)

    # Speech and clipboard

    def speech(self, text: str) -> Path:
        """A WAV file with the text, spoken."""
        file = self.folder / f"speech-{abs(hash(text))}.wav"
        return file if file.exists() else speech(text, file)

    def say(self, text: str) -> None:
        """Speaks into the microphone; returns when the last word was said."""
        self.sound.play(self.speech(text))

    def own_clipboard(self, data: Path, target: str) -> subprocess.Popen:
        """Lets xclip own the clipboard with the file's bytes until another owner comes."""
        owner = self.start(["xclip", "-quiet", "-selection", "clipboard", "-t", target, "-i",
                            str(data)], "xclip")
        wait_until(lambda: target in self.clipboard_targets(), "xclip to own the clipboard")
        return owner

    def clipboard_targets(self) -> list[str]:
        return self.output("timeout", "3", "xclip", "-o", "-selection", "clipboard", "-t",
                           "TARGETS").split()

    def clipboard(self, target: str = "UTF8_STRING") -> Optional[bytes]:
        """The clipboard's bytes in that format; nothing if it holds none."""
        result = subprocess.run(["timeout", "3", "xclip", "-o", "-selection", "clipboard", "-t",
                                 target], env=self.environment, capture_output=True,
                                stdin=subprocess.DEVNULL, check=False)
        return result.stdout if result.returncode == 0 else None

    # The end

    def print_logs(self) -> None:
        """What went wrong may stand in the logs of the programs."""
        for quenda in self.programs:
            print(f"--- {quenda.log_file}\n{quenda.log()}", file=sys.stderr)
        for log in sorted(self.logs.iterdir()):
            if text := log.read_text(errors="replace").strip():
                print(f"--- {log.name}\n{text[-3000:]}", file=sys.stderr)

    def stop(self) -> None:
        """Ends everything, the last started first."""
        if hasattr(self, "keyboard"):
            self.keyboard.close()
        for _, process in reversed(self._processes):
            if process.poll() is None:
                process.send_signal(signal.SIGCONT)
                process.terminate()
                try:
                    process.wait(2)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
            if process.stdout is not None:
                process.stdout.close()
        self._processes.clear()
        shutil.rmtree(self.folder, ignore_errors=True)
