"""Writing an image to one hub, and trying again when that fails."""
from __future__ import annotations

import time
from ctypes import byref, c_uint16
from typing import Callable, NamedTuple, NoReturn, Optional

from . import _abi
from ._library import Library, narrow
from .errors import (FIND_HUB, PLUG_IN_AGAIN, RECOVER, HubLost, InLoader, QzHidError, Refused, UpdateFailed)
from .hubs import HubInfo, HubState, Version, attached, not_openable, read_state, with_handle
from .image import Image, identify

BETWEEN_LISTS = 0.1
Progress = Callable[[int], object]


class Rules(NamedTuple):
    """Which hubs may be written."""

    recover: bool = False  # only hubs in their loader
    force: bool = False  # also hubs that run the version, or are other products of the vendor
    allow_older: bool = False  # also hubs that run a newer version
    takes_loader: bool = False  # also hubs in their loader


class UpdateResult(NamedTuple):
    """What became of the hub: ``outcome`` is "updated" or "current"; ``before`` and ``runs`` are versions
    such as "2.10", or "loader"."""

    outcome: str
    before: str
    runs: str
    retries: int


def check(hub: HubInfo, state: HubState, image: Image, rules: Rules) -> bool:
    """Whether the hub is to be written; False when it runs the image. Raises Refused or InLoader."""

    def refuse(what: str, remedy: str) -> NoReturn:
        raise Refused(what, remedy, hub=hub.label, runs=state.runs)

    if image.vid != state.vid:
        refuse(f"the image is for vendor {image.vid:04X}, the hub is of vendor {state.vid:04X}",
               "use an image for this hub")
    if state.version is None:  # a loader may have a product id of its own, so only the vendor counts
        if rules.recover or rules.takes_loader:
            return True
        raise InLoader("the hub is in its loader", RECOVER, hub=hub.label, runs=state.runs)
    if image.pid != state.pid and not rules.force:
        refuse(f"the image is for product {image.pid:04X}, the hub is product {state.pid:04X}",
               "use an image for this hub, or force=True to write it anyway")
    if image.version == state.version and not rules.force:
        return False
    if rules.recover:
        refuse(f"the hub runs its firmware {state.runs}",
               "nothing needs to be recovered; update() writes another version")
    if image.version < state.version and not rules.allow_older:
        refuse(f"the hub runs {state.runs}, which is newer than the image's {image.version}",
               "use a newer image, or allow_older=True to write it anyway")
    return True


class Writer:
    """Writes the image in the file ``copy`` to the hub at that location."""

    def __init__(self, library: Library, location: str, copy: str, progress: Optional[Progress],
                 wait: float, stay_in_loader: bool) -> None:
        self._library = library
        self._location = location
        self._copy = copy
        self._progress = progress
        self._wait = wait
        self._stay_in_loader = stay_in_loader
        self._raised: Optional[BaseException] = None  # by the progress callback

    def run(self, label: str, rules: Rules, retries: int) -> UpdateResult:
        try:
            result = self._run(label, rules, retries)
        except QzHidError as error:
            raise error from self._raised
        if self._raised is not None:
            raise self._raised
        return result

    def _run(self, label: str, rules: Rules, retries: int) -> UpdateResult:
        hub, state = self._look(label)
        image: Image = with_handle(self._library, hub, lambda handle: identify(self._library, handle, self._copy))
        before = state.runs
        if not check(hub, state, image, rules):
            return UpdateResult("current", before, before, 0)
        trouble = ""
        for tries in range(retries + 1):
            try:
                runs = with_handle(self._library, hub, lambda handle: self._write(handle, image)).runs
                return UpdateResult("updated", before, runs, tries)
            except QzHidError as error:
                trouble = error.what
            hub, state = self._look(hub.label, trouble)
            self._check_return(trouble, hub, state, image, rules)
            # The hub may have come back only after the library had stopped waiting for it.
            if state.version == image.version and before != state.runs:
                return UpdateResult("updated", before, state.runs, tries)
        trouble += ", and the hub "
        if state.version is None:
            raise InLoader(trouble + "is in its loader", RECOVER, hub=hub.label, runs=state.runs)
        raise UpdateFailed(f"{trouble}runs {state.runs}", "try again; with log_to(FILE) the log says why it failed",
                           hub=hub.label, runs=state.runs)

    def _write(self, handle: int, image: Image) -> HubState:
        library = self._library
        library.QZ_DllPassPara(1 if self._stay_in_loader else 0)
        callback = _abi.ProgressCallback(self._report)
        if not library.QZ_UpdateDev(handle, narrow(self._copy), callback):
            raise UpdateFailed("the update failed")
        version = c_uint16()
        running = bool(library.QZ_ReadDevVersion(handle, byref(version)))
        if not self._stay_in_loader and not (running and version.value == image.version):
            raise UpdateFailed("the image is written, but not started")
        return HubState(image.vid, image.pid, Version(version.value) if running else None)

    def _report(self, percent: int) -> None:
        """Nothing that the callback raises may end the update: the hub would be left without firmware."""
        if self._progress is None or self._raised is not None:
            return
        try:
            self._progress(percent)
        except BaseException as error:
            self._raised = error

    def _look(self, label: str, trouble: str = "") -> tuple[HubInfo, HubState]:
        """Waits for the hub, also one that leaves while it is asked."""
        before = trouble + ", and " if trouble else ""
        remedy = FIND_HUB if trouble else PLUG_IN_AGAIN
        hub = self._await()
        for _ in range(2):
            if hub is None:
                raise HubLost(before + ("the hub has left the bus" if trouble else "the hub is gone"), remedy,
                              hub=label)
            if not hub.openable:
                denied = not_openable(hub)
                raise HubLost(f"{trouble}, and {denied.what}", denied.remedy, hub=hub.label) if trouble else denied
            try:
                return hub, read_state(self._library, hub)
            except HubLost:
                hub = self._await()
        raise HubLost(before + "the hub does not answer", remedy, hub=label)

    def _await(self) -> Optional[HubInfo]:
        """The hub; None when it does not come back."""
        end = time.monotonic() + self._wait
        while True:
            found = [hub for hub in attached(self._library) if hub.location == self._location]
            usable = [hub for hub in found if hub.openable]
            if len(usable) == 1:
                return usable[0]
            if time.monotonic() >= end:
                return found[0] if found and not usable else None
            time.sleep(BETWEEN_LISTS)

    @staticmethod
    def _check_return(trouble: str, hub: HubInfo, state: HubState, image: Image, rules: Rules) -> None:
        """Raises HubLost when the hub that is at the port after a try cannot be the one before."""
        try:
            check(hub, state, image, Rules(force=rules.force, allow_older=True, takes_loader=True))
        except Refused:
            raise HubLost(f"{trouble}, and another hub has taken its place", FIND_HUB,
                          hub=hub.label) from None
