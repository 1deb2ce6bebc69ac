"""The library in this process: one call at a time, and one connection."""
from __future__ import annotations

import contextlib
import os
import threading
from typing import TYPE_CHECKING, Iterator, Optional, Union

from . import _library
from .errors import HubInUse

if TYPE_CHECKING:
    from .hub import Hub

ONE_AT_A_TIME = "use a process for each hub, as update_hubs() does"


class Session:
    """Which library is used, and by whom."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._library: Optional[_library.Library] = None
        self._files: list[str] = []
        self.is_virtual = False
        self.open_hub: Optional[Hub] = None

    @contextlib.contextmanager
    def call(self) -> Iterator[_library.Library]:
        """The library, for the calls of one operation. A second operation at the same time, also one of a
        progress callback, is rejected."""
        if not self._lock.acquire(blocking=False):
            raise HubInUse("another call is running in this process",
                           "wait for it to return: make all calls from one thread, not from a callback")
        try:
            if self._library is None:
                self._library = _library.Library(self._files or _library.candidates(self.is_virtual))
            yield self._library
        finally:
            self._lock.release()

    def use(self, files: list[str], is_virtual: bool) -> None:
        """From now on uses other files, those that are found when there are none."""
        with self._exclusive():
            if self._library is not None:
                self._library.unload()
            self._library = None
            self._files = files
            self.is_virtual = is_virtual

    def chosen(self) -> tuple[list[str], bool]:
        """What ``use`` was called with."""
        return self._files, self.is_virtual

    def claim(self, hub: Hub) -> None:
        """Makes that hub the open one."""
        if self.open_hub is not None and self.open_hub is not hub:
            raise HubInUse(f"hub {self.open_hub.info.label} is open, and a process has one connection",
                           f"close that hub first, or {ONE_AT_A_TIME}")
        self.open_hub = hub

    def release(self, hub: Hub) -> None:
        if self.open_hub is hub:
            self.open_hub = None

    @contextlib.contextmanager
    def _exclusive(self) -> Iterator[None]:
        if self.open_hub is not None or not self._lock.acquire(blocking=False):
            raise HubInUse("the library is being used", "close the hub first")
        try:
            yield
        finally:
            self._lock.release()


SESSION = Session()


def use_library(file: Union[str, os.PathLike[str], None]) -> None:
    """Uses that file as the library instead of the one that came with the package or is installed;
    None for the usual one. A file in a folder "virtual" is taken for a virtual library."""
    path = "" if file is None else os.fspath(file)
    SESSION.use([path] if path else [], os.path.basename(os.path.dirname(path)) == "virtual")
