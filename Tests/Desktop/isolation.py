"""Runs the present program again in namespaces of its own.

Inside, it sees only its own processes, has a loopback of its own and a private place for X
sockets, so nothing it starts meets anything else on the machine, and everything it started ends
when it does. Works for root and, where the kernel grants user namespaces, for everybody.
"""

import os
import shutil
import subprocess
import sys

_MARK = "QUENDA_DESKTOP_ISOLATED"

# Where the disk is mounted that is soon full, for those who want one.
SMALL_DISK = "/mnt"
SMALL_DISK_BYTES = 2 << 20

# Everything that needs a capability, before the program proper starts without any.
_PREPARE = """
set -e
mkdir -p -m 1777 /tmp/.X11-unix
mount -t tmpfs -o mode=1777 tmpfs /tmp/.X11-unix
ip link set lo up
small_disk=$1; shift
[ "$small_disk" = 0 ] || mount -t tmpfs -o "mode=1777,size=$small_disk" tmpfs /mnt
exec "$@"
"""


def _user_namespaces_work(options: list[str]) -> bool:
    return subprocess.run(["unshare", *options, "--mount", "true"], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0


def isolate(small_disk: bool = False) -> None:
    """Returns inside the namespaces; outside it never returns.

    small_disk  whether SMALL_DISK is to be an empty disk of SMALL_DISK_BYTES
    """
    if os.environ.pop(_MARK, None):
        return
    # Root plays an ordinary user, as the programs expect to be run by one.
    user = os.getuid() or 1000
    group = os.getgid() or 1000
    options = ["--user", f"--map-user={user}", f"--map-group={group}", "--keep-caps"]
    drop = ["setpriv", "--ambient-caps", "-all", "--inh-caps", "-all", "--bounding-set", "-all"]
    if not _user_namespaces_work(options):
        if os.getuid() != 0:
            sys.exit("this machine grants no user namespaces: run as root")
        options, drop = [], []
    shell = shutil.which("sh") or "/bin/sh"
    path = os.environ.get("PATH", "")
    os.environ["PATH"] = f"{path}:/usr/sbin:/sbin"  # ip lives there
    os.environ[_MARK] = "1"
    sys.stdout.flush()
    os.execvp("unshare", ["unshare", *options, "--pid", "--net", "--mount", "--ipc",
                          "--mount-proc", "--fork", "--kill-child", shell, "-c", _PREPARE, shell,
                          str(SMALL_DISK_BYTES if small_disk else 0), *drop, sys.executable, *sys.argv])
