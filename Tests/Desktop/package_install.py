"""The Debian package: made of the present build, and installed where nothing else is touched."""

import os
import shutil
import subprocess
from pathlib import Path

from virtual_desktop import BUILD

_DPKG = Path("/var/lib/dpkg")


def output(*command: "str | Path") -> str:
    """What the command prints, errors included; it has to succeed."""
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}: {done.stdout}")
    return done.stdout


def make_package(folder: Path) -> Path:
    """The package of the present build, written below the folder."""
    os.umask(0o022)
    output("cpack", "--config", BUILD / "CPackConfig.cmake", "-G", "DEB", "-B", folder)
    return next(folder.glob("*.deb"))


def files_of(root: Path, without: tuple[str, ...] = ()) -> set[str]:
    """Everything below the folder, by its path there, but not what is in the folders `without`."""
    found: set[str] = set()
    for folder, folders, files in os.walk(root):
        place = os.path.relpath(folder, root)
        folders[:] = [name for name in folders
                      if os.path.normpath(os.path.join(place, name)) not in without]
        found.update(os.path.normpath(os.path.join(place, name)) for name in folders + files)
    return found


class SystemAlongside:
    """A system of its own for dpkg, in a folder: it knows of every package that this machine has,
    and has no file but of the package that is installed in it."""

    def __init__(self, root: Path) -> None:
        self.root = root
        database = root / "var/lib/dpkg"
        for folder in ("info", "updates", "triggers"):
            (database / folder).mkdir(parents=True)
        shutil.copy(_DPKG / "status", database / "status")

    def dpkg(self, *arguments: "str | Path") -> str:
        """Runs dpkg on this system, as if by root."""
        path = os.environ.get("PATH", "")
        return output("unshare", "--user", "--map-root-user", "env",
                      f"PATH={path}:/usr/sbin:/sbin", "LC_ALL=C.UTF-8", "dpkg",
                      f"--root={self.root}", "--force-script-chrootless", *arguments)

    def files(self) -> set[str]:
        """All but dpkg's own."""
        return files_of(self.root, ("var/lib/dpkg",)) - {"var", "var/lib"}

    def launcher(self, file: Path) -> Path:
        """Writes a program that starts this system's /usr/bin/quenda as the machine's own: for it
        alone, the folder's /usr lies over the machine's."""
        user, group = os.getuid(), os.getgid()
        drop = "setpriv --ambient-caps -all --inh-caps -all --bounding-set -all"
        file.write_text(
            f"#!/bin/sh\nexec unshare --user --map-user={user} --map-group={group} --keep-caps "
            "--mount sh -c 'mount -t overlay overlay -o \"lowerdir=$0/usr:/usr\" /usr && "
            f"exec {drop} /usr/bin/quenda \"$@\"' '{self.root}' \"$@\"\n", encoding="utf-8")
        file.chmod(0o755)
        return file
