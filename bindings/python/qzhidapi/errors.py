"""Why a call ended without doing its work."""
from __future__ import annotations

from typing import Optional


class QzHidError(Exception):
    """What failed, on which hub, what that hub runs now, and what to do about it.

    ``what``         what failed
    ``hub``          the hub as messages name it, "1-3.1 (bay 3)"; empty where none is concerned
    ``runs``         what the hub runs, "2.10" or "loader"; None when that is not known
    ``remedy``       what to do next
    ``outcome``      what became of the hub in an update: "refused", "loader", "lost" or "failed"
    ``exit_status``  what ``qzhid`` and ``python -m qzhidapi`` end with
    """

    outcome = "failed"
    exit_status = 1

    def __init__(self, what: str, remedy: str = "", *, hub: str = "", runs: Optional[str] = None) -> None:
        super().__init__(what, remedy)
        self.what = what
        self.remedy = remedy
        self.hub = hub
        self.runs = runs

    def __str__(self) -> str:
        text = f"hub {self.hub}: {self.what}" if self.hub else self.what
        return f"{text}; {self.remedy}" if self.remedy else text


class UpdateFailed(QzHidError):
    """All tries failed, and the hub runs a firmware; usually the one from before."""


class RequestFailed(QzHidError):
    """The hub, or what is behind it, refused a request. ``status`` is the library's result."""

    def __init__(self, what: str, remedy: str = "", *, status: int, hub: str = "",
                 runs: Optional[str] = None) -> None:
        super().__init__(what, remedy, hub=hub, runs=runs)
        self.status = status


class LibraryError(QzHidError):
    """The library cannot be loaded, or is not the one that this package is for."""


class WrongUse(QzHidError):
    """The program did what it must not do."""

    exit_status = 2


class HubClosed(WrongUse):
    """The hub is not open, or not open any more."""


class HubInUse(WrongUse):
    """This process already uses the library: another hub is open, or another call is running."""


class NoSuchHub(QzHidError):
    """No hub is attached, or none that is meant."""

    exit_status = 3


class PermissionDenied(QzHidError):
    """This user has no permission to open the hub, or another program has it open for itself."""

    outcome = "refused"
    exit_status = 4


class Refused(QzHidError):
    """The image is not for this hub, or is not an image; nothing was written."""

    outcome = "refused"
    exit_status = 5


class HubLost(QzHidError):
    """The hub left the bus, or does not answer."""

    outcome = "lost"
    exit_status = 6


class InLoader(QzHidError):
    """The hub is in its loader and waits for an image."""

    outcome = "loader"
    exit_status = 7


# What to do about it, where several places say so.
PLUG_IN_AGAIN = "unplug it, plug it in again and try again"
FIND_HUB = "unplug it, plug it in again, and call recover() if it is in its loader"
RECOVER = "call recover() with an image for it"
