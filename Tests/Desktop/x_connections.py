"""The connections that a program keeps to the X server, and cutting them from outside."""

import ctypes
import os
import socket
from pathlib import Path

_PIDFD_GETFD = 438  # the system call; the C library has no function for it


def _borrow(process_handle: int, descriptor: int) -> socket.socket | None:
    """The socket behind another process's descriptor; nothing if it is none."""
    libc = ctypes.CDLL(None, use_errno=True)
    copy = libc.syscall(_PIDFD_GETFD, process_handle, descriptor, 0)
    if copy < 0:
        raise OSError(ctypes.get_errno(), "pidfd_getfd")
    try:
        return socket.socket(fileno=copy)
    except OSError:
        os.close(copy)
        return None


def _is_to_x_server(connection: socket.socket) -> bool:
    try:
        peer = connection.getpeername()
    except OSError:
        return False
    name = peer if isinstance(peer, bytes) else str(peer).encode()
    return b"/tmp/.X11-unix/X" in name


def cut_all_but_the_first(process: int) -> int:
    """Cuts every connection of the process to the X server but the oldest, which is its
    toolkit's and without which it ends; how many were cut."""
    handle = os.pidfd_open(process)
    try:
        descriptors = sorted(int(entry.name) for entry in Path(f"/proc/{process}/fd").iterdir())
        sockets = [borrowed for descriptor in descriptors
                   if os.readlink(f"/proc/{process}/fd/{descriptor}").startswith("socket:")
                   and (borrowed := _borrow(handle, descriptor))]
    finally:
        os.close(handle)
    connections = [borrowed for borrowed in sockets if _is_to_x_server(borrowed)]
    for connection in connections[1:]:
        connection.shutdown(socket.SHUT_RDWR)
    for borrowed in sockets:
        borrowed.close()
    return len(connections[1:])
