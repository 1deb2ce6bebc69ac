"""Finds and services USB hub controllers through their vendor HID interface.

    import qzhidapi

    for hub in qzhidapi.list_hubs():
        print(hub.port_id, hub.state, hub.version)
    with qzhidapi.Hub("1-3.1") as hub:
        hub.update("new.bin", progress=print)

All work happens on the calling thread. A process has one connection: one hub can be open, and one call can
run; update_hubs() uses a process for each hub.
"""
from .errors import (HubClosed, HubInUse, HubLost, InLoader, LibraryError, NoSuchHub, PermissionDenied,
                     QzHidError, Refused, RequestFailed, UpdateFailed, WrongUse)
from .hub import Hub, I2CTarget
from .hubs import HubInfo, HubState, Version, list_devices, list_hubs
from .log import log_to, record_crashes, stop_log
from .several import HubOutcome, update_hubs
from .update import UpdateResult
from .virtual import Machine, virtual
from ._session import use_library

__version__ = "1.0.0"
__all__ = ["Hub", "HubClosed", "HubInUse", "HubInfo", "HubLost", "HubOutcome", "HubState", "I2CTarget",
           "InLoader", "LibraryError", "Machine", "NoSuchHub", "PermissionDenied", "QzHidError", "Refused",
           "RequestFailed", "UpdateFailed", "UpdateResult", "Version", "WrongUse", "list_devices", "list_hubs",
           "log_to", "record_crashes", "stop_log", "update_hubs", "use_library", "virtual"]
