#!/usr/bin/python3
"""Tries a Debian package where there is nothing else, for scripts/package --try: makes a minimal
system of the release that this machine runs, from where this machine gets its packages, installs
the package there with all it depends on, dictates once with it, and removes it again.

    try_package.py PACKAGE

Needs root, and the network for the system's packages. The dictation itself has no network but a
loopback, and nothing is mounted, running or left in a folder when the program ends, whether it
succeeds, fails or is interrupted.
"""

import os
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from desktop_test import SENTENCE
from dictation import hold_and_speak
from isolation import isolate
from package_install import files_of, output
from virtual_desktop import RECOGNISER, VirtualDesktop

MACHINE = "machine"  # where the machine's own files lie in the system, while dictating
MODEL = Path("/usr/share/pocketsphinx")
# What changes by itself, and what a package manager remembers.
CHANGING = ("dev", "proc", "run", "sys", "tmp", "var/cache", "var/lib/apt", "var/lib/dpkg",
            "var/log", MACHINE, str(MODEL)[1:])


def release() -> str:
    """The code name of the machine's release."""
    for line in Path("/etc/os-release").read_text(encoding="utf-8").splitlines():
        if line.startswith("VERSION_CODENAME="):
            return shlex.split(line.partition("=")[2])[0]
    sys.exit("try_package: this machine's release has no name")


def sources() -> list[tuple[str, str, str]]:
    """Where the machine gets its release from: addresses, suites and components."""
    name = release()
    listed = output("apt-get", "indextargets", "--format",
                    "$(SITE) $(RELEASE) $(COMPONENT) $(ORIGIN)", "Created-By: Packages")
    found = {tuple(line.split()[:3]) for line in listed.splitlines()
             if len(line.split()) == 4 and line.split()[3] == "Debian"
             and line.split()[1].split("-")[0] == name}
    if not any(suite == name for _, suite, _ in found):
        sys.exit(f"try_package: apt knows no source of {name}; try apt-get update")
    return sorted(found)  # type: ignore[arg-type]


class CleanSystem:
    """A minimal Debian in a folder. Each command in it has processes and mounts of its own."""

    def __init__(self, root: Path) -> None:
        self.root = root

    def make(self) -> None:
        places = sources()
        mirror = next(site for site, suite, _ in places if suite == release())
        self._unshared("debootstrap", "--variant=minbase", release(), str(self.root), mirror)
        (self.root / "etc/apt/sources.list").write_text(
            "".join(f"deb {site} {suite} {component}\n" for site, suite, component in places),
            encoding="utf-8")
        # Nothing that is installed starts a service.
        no = self.root / "usr/sbin/policy-rc.d"
        no.write_text("#!/bin/sh\nexit 101\n", encoding="utf-8")
        no.chmod(0o755)
        for folder in (self.root / MACHINE, self.root / str(MODEL)[1:]):
            folder.mkdir(parents=True)
        self.root.chmod(0o755)
        self.run("apt-get", "update", "-qq")

    def _unshared(self, *command: str, options: tuple[str, ...] = ()) -> None:
        log = self.root.parent / "log"
        with open(log, "wb") as printed:
            done = subprocess.run(
                ["unshare", "--mount", "--pid", "--ipc", "--fork", "--kill-child", *options,
                 *command], stdin=subprocess.DEVNULL, stdout=printed, stderr=subprocess.STDOUT,
                env=os.environ | {"DEBIAN_FRONTEND": "noninteractive", "LC_ALL": "C.UTF-8",
                                  "PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}, check=False)
        if done.returncode != 0:
            sys.exit(f"{log.read_text(errors='replace')}\ntry_package: {command[0]} failed")

    def run(self, *command: str) -> None:
        """Runs a command in the system, as root."""
        proxies = [f"-oAcquire::{kind}::Proxy={value}" for kind in ("http", "https")
                   if (value := output("apt-config", "dump", f"Acquire::{kind}::Proxy",
                                       "--format", "%v").strip())]
        if command[0] == "apt-get":
            command = (command[0], *proxies, *command[1:])
        self._unshared("chroot", str(self.root), *command,
                       options=(f"--mount-proc={self.root / 'proc'}",))

    def files(self) -> set[str]:
        return files_of(self.root, CHANGING)

    def launcher(self, file: Path, program: str) -> Path:
        """Writes a script that starts the system's program, in the system, on this desktop."""
        user, group = os.getuid(), os.getgid()
        mounts = " && ".join(f"mount --rbind {outside} \"$0{inside}\"" for outside, inside in (
            ("/", f"/{MACHINE}"), (MODEL, MODEL), ("/proc", "/proc"), ("/dev", "/dev"),
            ("/tmp", "/tmp")))
        drop = "setpriv --ambient-caps -all --inh-caps -all --bounding-set -all"
        file.write_text(
            f"#!/bin/sh\nexec unshare --user --map-user={user} --map-group={group} --keep-caps "
            f"--mount sh -c '{mounts} && exec chroot \"$0\" {drop} {program} \"$@\"' "
            f"'{self.root}' \"$@\"\n", encoding="utf-8")
        file.chmod(0o755)
        return file


def recogniser(file: Path) -> Path:
    """Writes a script that runs the recogniser inside the system, which has none of its
    libraries, with the machine's own."""
    inside = Path("/", MACHINE)
    linked = output("ldd", RECOGNISER)
    loader = next(line.split()[0] for line in linked.splitlines() if "/ld-linux" in line)
    folders = {os.path.dirname(os.path.realpath(line.split(" => ")[1].split()[0]))
               for line in linked.splitlines() if " => /" in line}
    libraries = ":".join(f"{inside}{folder}" for folder in sorted(folders))
    file.write_text(f"#!/bin/sh\nexec {inside}{os.path.realpath(loader)} "
                    f"--library-path {libraries} {inside}{RECOGNISER} \"$@\"\n",
                    encoding="utf-8")
    file.chmod(0o755)
    return file


def dictate(system: CleanSystem) -> str:
    """One dictation with the system's own program; the words in the editor's document."""
    with VirtualDesktop() as desktop:
        editor = desktop.open_editor()
        quenda = desktop.start_quenda(
            binary=system.launcher(desktop.folder / "installed", "/usr/bin/quenda"),
            engine=recogniser(desktop.folder / "whisper-server"))
        quenda.wait_until_ready()
        editor.focus()
        hold_and_speak(desktop, desktop.speech(SENTENCE))
        words = editor.wait_for_insertion(seconds=60).text
        quenda.wait_for_log(f"→ {len(words)} chars in ")
        assert "brown fox" in words, words
        assert words in editor.saved_text()
        assert quenda.terminate() == 0, "the program did not end well"
        return words


def main() -> None:
    if sys.argv[1] == "--dictate":
        isolate()
        print(f"  heard: {dictate(CleanSystem(Path(sys.argv[2])))}")
        return
    package = Path(sys.argv[1]).resolve()
    if not package.is_file() or not RECOGNISER.is_file():
        sys.exit(f"try_package: {package} or {RECOGNISER} is not built")
    if os.getuid() != 0:
        sys.exit("try_package: making a system needs root")
    os.umask(0o022)
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit("try_package: interrupted"))
    began = time.monotonic()

    def tell(what: str) -> None:
        print(f"{time.monotonic() - began:6.1f} s  {what}", flush=True)

    with tempfile.TemporaryDirectory(prefix="quenda-system.") as folder:
        Path(folder).chmod(0o755)
        system = CleanSystem(Path(folder, "root"))
        system.make()
        tell("a minimal system is there")
        shutil.copy(package, system.root / "root")
        local = f"/root/{package.name}"
        install = ("apt-get", "install", "-y", "-qq", "--no-install-recommends", local)
        system.run(*install)
        tell("the package is installed with what it depends on")
        installed = system.files()
        system.run("apt-get", "purge", "-y", "-qq", "quenda")
        before = system.files()
        left = {file for file in before if "quenda" in file.lower()} - {local[1:]}
        if left:
            sys.exit(f"try_package: purged, it leaves {sorted(left)}")
        system.run(*install)
        subprocess.run([sys.executable, "-B", __file__, "--dictate", str(system.root)],
                       check=True, stdin=subprocess.DEVNULL)
        tell("it has dictated")
        for how in ("--remove", "--purge"):
            system.run("dpkg", how, "quenda")
            if system.files() != before:
                sys.exit(f"try_package: after {how}: {sorted(system.files() ^ before)}")
        tell(f"it is removed: {len(installed - before)} of its files and folders are gone, the "
             f"other {len(before)} are as before")


if __name__ == "__main__":
    main()
