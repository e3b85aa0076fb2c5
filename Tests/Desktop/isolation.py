"""Runs the present program again in namespaces of its own.

Inside, it sees only its own processes, has a loopback of its own and a private place for X
sockets, so nothing it starts meets anything else on the machine, and everything it started ends
when it does. Works for root and, where the kernel grants user namespaces, for everybody.
"""

import os
import shutil
import subprocess
import sys
from pathlib import Path

from waiting import wait_until

_MARK = "QUENDA_DESKTOP_ISOLATED"

# What a suite of faults has besides: a disk that is soon full, the system's file that tells names
# of hosts and the one that tells who else knows them, to be changed at will, a pkill that takes its time, as long as told, and a network, to
# be switched off and on.
SMALL_DISK = Path("/mnt")
SMALL_DISK_BYTES = 2 << 20
_CONTROLS = Path("/srv")
HOSTS_FILE = _CONTROLS / "hosts"
RESOLVER_FILE = _CONTROLS / "resolv.conf"
PKILL_SECONDS_FILE = _CONTROLS / "pkill-seconds"
NETWORK_ADDRESS = "10.99.0.1"
_NETWORK_PIPE = _CONTROLS / "network"

# Everything that needs a capability, before the program proper starts without any.
_PREPARE = r"""
set -e
mkdir -p -m 1777 /tmp/.X11-unix
mount -t tmpfs -o mode=1777 tmpfs /tmp/.X11-unix
ip link set lo up
[ -z "$QUENDA_FAULTS" ] || {
  mount -t tmpfs -o "mode=1777,size=$QUENDA_FAULTS" tmpfs /mnt
  mount -t tmpfs -o mode=1777 tmpfs /srv
  echo 53 >/proc/sys/net/ipv4/ip_unprivileged_port_start # a name server may be played
  printf '127.0.0.1 localhost\n' >/srv/hosts
  printf 'nameserver 192.0.2.1\n' >/srv/resolv.conf
  chmod 666 /srv/hosts /srv/resolv.conf
  mount --bind /srv/hosts /etc/hosts
  mount --bind /srv/resolv.conf /etc/resolv.conf
  mkdir /srv/real
  cp -L /usr/bin/pkill /srv/real/pkill
  printf '0\n' >/srv/pkill-seconds
  chmod 666 /srv/pkill-seconds
  {
    printf '#!/bin/sh\nread -r seconds </srv/pkill-seconds\n'
    printf '[ "$seconds" = 0 ] || sleep "$seconds"\nexec /srv/real/pkill "$@"\n'
  } >/srv/pkill
  chmod 755 /srv/pkill
  mount --bind /srv/pkill /usr/bin/pkill
  mkfifo -m 622 /srv/network
  exec 3<>/srv/network # for both ways, so that nobody who opens it waits and it never ends
  ip address add 10.99.0.1/32 dev lo
  while read -r change <&3; do ip address "$change" 10.99.0.1/32 dev lo || true; done &
  exec 3<&-
}
unset QUENDA_FAULTS
exec "$@"
"""


def _user_namespaces_work(options: list[str]) -> bool:
    return subprocess.run(["unshare", *options, "--mount", "true"], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0


def switch_network(on: bool) -> None:
    """Takes NETWORK_ADDRESS away, so that there is no way to it, or brings it back."""
    def is_on() -> bool:
        return f" {NETWORK_ADDRESS}/" in subprocess.run(
            ["ip", "-o", "address", "show", "lo"], capture_output=True, text=True,
            stdin=subprocess.DEVNULL, check=True).stdout
    if is_on() != on:
        _NETWORK_PIPE.write_text("add\n" if on else "del\n")
        wait_until(lambda: is_on() == on, "the switch of the network")


def isolate(faults: bool = False) -> None:
    """Returns inside the namespaces; outside it never returns. `faults`: with SMALL_DISK,
    HOSTS_FILE, RESOLVER_FILE, PKILL_SECONDS_FILE and switch_network()."""
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
    os.environ["QUENDA_FAULTS"] = str(SMALL_DISK_BYTES) if faults else ""
    sys.stdout.flush()
    os.execvp("unshare", ["unshare", *options, "--pid", "--net", "--mount", "--ipc",
                          "--mount-proc", "--fork", "--kill-child", shell, "-c", _PREPARE, shell, *drop, sys.executable, *sys.argv])
