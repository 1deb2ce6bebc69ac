"""The hubs that are attached."""
from __future__ import annotations

import dataclasses
from ctypes import POINTER, byref, c_uint16, c_uint32
from typing import Any, Callable, NamedTuple, Optional

from . import _abi
from ._library import Library
from ._location import PortId, is_location, read_port_id
from ._port_names import read_port_names
from ._session import SESSION
from .errors import PLUG_IN_AGAIN, HubLost, NoSuchHub, PermissionDenied, QzHidError, WrongUse

FAMILY_VENDOR = 0x2E7C


class Version(int):
    """A firmware version; 0x0210 is "2.10"."""

    def __str__(self) -> str:
        return f"{self >> 8:x}.{self & 0xFF:02x}"

    __repr__ = __str__


class HubState(NamedTuple):
    """What a hub says about itself. In the loader the ids may differ from the firmware's."""

    vid: int
    pid: int
    version: Optional[Version]  # None in the loader

    @property
    def runs(self) -> str:
        return "loader" if self.version is None else str(self.version)


@dataclasses.dataclass(frozen=True)
class HubInfo:
    """A hub of a list.

    ``port_id``   "1-3.1": where it is plugged in; stays the same when the hub resets
    ``name``      what the user calls the port; empty without a name
    ``vid, pid``  the ids on the bus
    ``location``  the whole path to the port, of which the port id is made
    ``instance``  good until this process lists again
    ``openable``  False: this user has no permission, or another program has it open for itself
    ``state``     "firmware", "loader", "no permission" or "silent"; "unknown" when it was not asked
    ``version``   of the firmware, if it runs that
    """

    port_id: str
    vid: int
    pid: int
    location: str
    instance: int
    level: int
    port: int
    name: str = ""
    locations: tuple[str, ...] = ()
    hardware_ids: tuple[str, ...] = ()
    openable: bool = True
    state: str = "unknown"
    version: Optional[Version] = None

    @property
    def label(self) -> str:
        """As messages name it: "1-3.1 (bay 3)"."""
        return self.port_id + (f" ({self.name})" if self.name else "")

    @property
    def _id(self) -> PortId:
        return read_port_id(self.location)


def list_hubs() -> list[HubInfo]:
    """All hubs of the family, each with what it runs. Those that cannot be opened come last."""
    with SESSION.call() as library:
        return [summarise(library, hub) for hub in attached(library)]


def list_devices(vid: int, pid: int) -> list[HubInfo]:
    """The HID devices with exactly these ids, of the family or not. Opens no device."""
    with SESSION.call() as library:
        return _named(_devices(library, vid, pid))


def attached(library: Library) -> list[HubInfo]:
    """All hubs of the family; none is asked what it runs. Releases the connection."""
    # This list opens no device, so it also holds hubs that this user has no permission to open. It
    # comes first, because instances are good for the last list.
    closed = [dataclasses.replace(hub, openable=False) for hub in _devices(library, FAMILY_VENDOR, None)]
    hubs: list[HubInfo] = []
    # Of a device whose interface has several collections, one is enough.
    for hub in _records(library, library.QZ_ListAllHidDev):
        if not hub.location or all(other.location != hub.location for other in hubs):
            hubs.append(hub)
    hubs += [hub for hub in closed if not any(_on_one_port(hub, other) for other in hubs)]
    return _named(hubs)


def pick(library: Library, selector: Optional[str]) -> HubInfo:
    """The hub that the selector names; without one, the only hub that is attached."""
    hubs = attached(library)
    if not hubs:
        raise NoSuchHub("no hub is attached", "plug one in")
    matching = [hub for hub in hubs if selector is None or is_named(hub, selector)]
    labels = ", ".join(hub.label for hub in hubs)
    if not matching:
        raise NoSuchHub(f"no hub matches '{selector}'", f"attached are: {labels}")
    if len(matching) > 1:
        what = "are attached" if selector is None else f"match '{selector}'"
        raise WrongUse(f"several hubs {what}",
                       f"choose one of: {', '.join(hub.label for hub in matching)}")
    if not matching[0].openable:
        raise not_openable(matching[0])
    return matching[0]


def is_named(hub: HubInfo, selector: str) -> bool:
    """Whether the selector names the hub: its port id, its name, its location or whole steps at the end
    of it, "VID:PID", "vid=VID" or "pid=PID". Letter case counts in names only."""
    if selector.lower() == f"instance:{hub.instance}":  # of a device without a port
        return True
    key, _, value = selector.partition("=")
    if value and key.lower() in ("vid", "pid"):
        return _is_id(hub.vid if key.lower() == "vid" else hub.pid, value)
    vid, colon, pid = selector.partition(":")
    return bool(selector) and (
        selector == hub.name or hub._id.names(selector) or is_location(hub.location, selector)
        or bool(colon) and _is_id(hub.vid, vid) and _is_id(hub.pid, pid))


def not_openable(hub: HubInfo) -> PermissionDenied:
    return PermissionDenied(
        "the hub cannot be opened",
        "get permission for it (on Linux: the udev rule) or end the program that has it open", hub=hub.label)


def read_state(library: Library, hub: HubInfo) -> HubState:
    """Asks a hub of the last list. Releases the connection."""
    # A hub that answers and has no version is in its loader. But it may have left between the two
    # answers, so that counts only when it is so again.
    vid, pid, version = c_uint32(), c_uint32(), c_uint16()
    known = False
    for _ in range(2):
        if not known and not library.QZ_GetHubVIDPIDFromHidDevice(hub.instance, byref(vid), byref(pid)):
            raise HubLost("the hub does not answer", PLUG_IN_AGAIN, hub=hub.label)
        if not known:
            known = with_handle(library, hub,
                                lambda handle: bool(library.QZ_ReadDevVersion(handle, byref(version))))
    return HubState(vid.value, pid.value, Version(version.value) if known else None)


def with_handle(library: Library, hub: HubInfo, work: Callable[[int], Any]) -> Any:
    """Does the work on a handle of a hub of the last list."""
    library.connected = None
    handle = library.QZ_OpenHid(hub.instance)
    if not handle:
        raise HubLost("the hub does not answer", PLUG_IN_AGAIN, hub=hub.label)
    try:
        return work(handle)
    finally:
        library.QZ_CloseDev(handle)


def summarise(library: Library, hub: HubInfo) -> HubInfo:
    """The same hub with what it runs."""
    if not hub.openable:
        return dataclasses.replace(hub, state="no permission")
    try:
        version = read_state(library, hub).version
    except QzHidError:
        return dataclasses.replace(hub, state="silent")
    return dataclasses.replace(hub, state="loader" if version is None else "firmware", version=version)


def _devices(library: Library, vid: int, pid: Optional[int]) -> list[HubInfo]:
    # The library looks for both ids anywhere in the device's id, so the vendor's is found twice.
    found = _records(library, library.QZ_ListAllHidDevByVIDPID, vid, vid if pid is None else pid)
    return [device for device in found if device.vid == vid and pid in (None, device.pid)]


def _records(library: Library, function: Any, *ids: int) -> list[HubInfo]:
    library.connected = None
    records, count = POINTER(_abi.HidDevRecord)(), c_uint32()
    if not function(*ids, byref(records), byref(count)):
        return []
    try:
        return [_info(records[at]) for at in range(count.value)]
    finally:
        library.QZ_FreeDevList(records)


def _info(record: _abi.HidDevRecord) -> HubInfo:
    locations = _texts(record.LocationPath)
    return HubInfo(port_id="", vid=_id(record.VID), pid=_id(record.PID), location=(locations or ("",))[0],
                   instance=record.dwInst, level=record.Level, port=record.Port, locations=locations,
                   hardware_ids=_texts(record.HwID))


def _texts(units: Any) -> tuple[str, ...]:
    """Texts one after another, each zero-terminated, until an empty one."""
    return tuple(bytes(units).decode("utf-16-le", "replace").split("\0\0")[0].rstrip("\0").split("\0")
                 if units[0] else ())


def _id(units: Any) -> int:
    try:
        return int(bytes(units).decode("utf-16-le", "replace").rstrip("\0"), 16)
    except ValueError:
        return 0


def _is_id(number: int, text: str) -> bool:
    return 0 < len(text) <= 4 and all(c in "0123456789abcdefABCDEF" for c in text) and int(text, 16) == number


def _on_one_port(hub: HubInfo, other: HubInfo) -> bool:
    return hub.instance == other.instance or bool(hub._id.port) and hub._id.device == other._id.device


def _named(hubs: list[HubInfo]) -> list[HubInfo]:
    names = read_port_names() if hubs else {}
    on_several = len({hub._id.controller for hub in hubs}) > 1
    result = []
    for hub in hubs:
        shown = hub._id.whole if on_several else hub._id.port
        # One port of this number may have a name of its own, and those of other controllers another.
        name = sorted((("/" not in port, name) for name, port in names.items() if hub._id.names(port)))
        result.append(dataclasses.replace(
            hub, port_id=shown or f"instance:{hub.instance}", name=name[0][1] if name else ""))
    return result
