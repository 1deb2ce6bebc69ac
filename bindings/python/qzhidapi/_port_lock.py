"""One process at a time writes the hub at a port, of this package or qzhid, of any user."""
from __future__ import annotations

import contextlib
import errno
import hashlib
import os
import sys
from typing import Iterator

from .errors import Refused


@contextlib.contextmanager
def port_lock(location: str, is_virtual: bool, label: str) -> Iterator[None]:
    """Raises Refused while another process writes the hub. The system releases the lock when the process
    dies."""
    whole = location
    if is_virtual:
        # Virtual hubs are different ones in each scenario, and without one in each process.
        scenario = os.environ.get("QZ_VIRTUAL_HUB", "")
        whole = os.path.join(os.getcwd(), scenario or str(os.getpid())) + "\n" + location
    # The system limits the length and the letters of names. qzhid uses the same ones.
    with _held("qzhid-" + hashlib.sha256(os.fsencode(whole)).hexdigest()) as held:
        if not held:
            raise Refused("another process is writing the hub", "wait until that has ended and try again",
                          hub=label)
        yield


if sys.platform == "win32":
    import ctypes
    from ctypes import wintypes

    WAIT_OBJECT_0, WAIT_ABANDONED = 0, 0x80

    @contextlib.contextmanager
    def _held(name: str) -> Iterator[bool]:
        system = ctypes.WinDLL("kernel32")
        system.CreateMutexW.restype = wintypes.HANDLE
        system.CreateMutexW.argtypes = [ctypes.c_void_p, wintypes.BOOL, wintypes.LPCWSTR]
        system.WaitForSingleObject.argtypes = [wintypes.HANDLE, wintypes.DWORD]
        system.ReleaseMutex.argtypes = system.CloseHandle.argtypes = [wintypes.HANDLE]
        mutex = system.CreateMutexW(None, False, "Global\\" + name)
        if not mutex:  # another user's
            yield False
            return
        held = system.WaitForSingleObject(mutex, 0) in (WAIT_OBJECT_0, WAIT_ABANDONED)
        try:
            yield held
        finally:
            if held:
                system.ReleaseMutex(mutex)
            system.CloseHandle(mutex)
else:
    import socket

    @contextlib.contextmanager
    def _held(name: str) -> Iterator[bool]:
        # A name without a file: all users share these names, and nothing of them is left.
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as lock:
            try:
                lock.bind("\0" + name)
            except OSError as error:  # a system without such sockets has no lock; no reason not to write
                yield error.errno != errno.EADDRINUSE
            else:
                yield True
