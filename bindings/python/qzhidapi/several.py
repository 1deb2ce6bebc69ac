"""Several hubs at a time: a process for each, because a process has one connection."""
from __future__ import annotations

import hashlib
import json
import os
import pathlib
import queue
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from typing import Any, Callable, Iterable, NamedTuple, Optional, Union

from . import errors
from ._session import SESSION
from ._signals import deferred
from .errors import HubLost, QzHidError
from .hubs import HubInfo, not_openable
from .image import Path, private_copy, read_image


class HubOutcome(NamedTuple):
    """What became of one hub: ``outcome`` is "updated", "current", "refused", "loader", "lost" or "failed";
    ``before`` and ``runs`` are versions or "loader", None where that is not known; ``error`` says why it
    is neither updated nor current."""

    hub: HubInfo
    outcome: str
    before: Optional[str]
    runs: Optional[str]
    retries: int
    error: Optional[QzHidError]


Event = Union[int, HubOutcome, BaseException]


def update_hubs(hubs: Iterable[HubInfo], image: Path, progress: Optional[Callable[[HubInfo, int], object]] = None,
                retries: int = 2, wait: float = 30, *, jobs: int = 4, force: bool = False,
                allow_older: bool = False, sha256: Optional[str] = None) -> list[HubOutcome]:
    """Updates hubs of list_hubs(), also those in their loader, ``jobs`` at a time. ``progress`` is called on
    this thread. What it raises is raised when all hubs are done; what happens to a hub is only returned."""
    chosen = list(dict.fromkeys(hubs))
    with SESSION.call() as library:
        job: dict[str, Any] = {"library": library.path, "virtual": SESSION.is_virtual, "retries": retries, "wait": wait,
               "rules": {"force": force, "allow_older": allow_older, "takes_loader": True}}
    data = read_image(image, sha256)
    job["sha256"] = hashlib.sha256(data).hexdigest()
    events: queue.SimpleQueue[tuple[HubInfo, Event]] = queue.SimpleQueue()
    with deferred(), private_copy(data) as copy, ThreadPoolExecutor(max(1, jobs)) as pool:
        for hub in chosen:
            pool.submit(_write, {**job, "image": copy, "location": hub.location, "label": hub.label}, hub, events)
        return _collect(chosen, events, progress)


def _collect(hubs: list[HubInfo], events: queue.SimpleQueue[tuple[HubInfo, Event]],
             progress: Optional[Callable[[HubInfo, int], object]]) -> list[HubOutcome]:
    outcomes: dict[HubInfo, HubOutcome] = {}
    raised: Optional[BaseException] = None
    while len(outcomes) < len(hubs):
        hub, event = events.get()
        if isinstance(event, HubOutcome):
            outcomes[hub] = event
        elif isinstance(event, int) and progress is not None and raised is None:
            try:
                progress(hub, event)
            except BaseException as error:
                raised = error
    if raised is not None:
        raise raised
    return [outcomes[hub] for hub in hubs]


def _write(job: dict[str, Any], hub: HubInfo, events: queue.SimpleQueue[tuple[HubInfo, Event]]) -> None:
    """Runs the process for one hub. Its last event is the outcome, whatever happens."""
    if not hub.openable:
        return events.put((hub, _failed(hub, not_openable(hub))))
    outcome: Optional[HubOutcome] = None
    reason = "it ended too early"
    try:
        with _start() as process:
            assert process.stdin is not None and process.stdout is not None
            process.stdin.write(json.dumps(job) + "\n")
            process.stdin.close()
            for line in process.stdout:
                message = json.loads(line)
                if "progress" in message:
                    events.put((hub, message["progress"]))
                else:
                    outcome = _outcome(hub, message)
    except (OSError, ValueError) as error:
        reason = str(error)
    if outcome is None:
        outcome = _failed(hub, HubLost(f"the process that wrote the hub failed ({reason}), and the hub's state is "
                                       "unknown", errors.FIND_HUB, hub=hub.label))
    events.put((hub, outcome))


def _start() -> subprocess.Popen[str]:
    package = str(pathlib.Path(__file__).parent.parent)
    path = os.pathsep.join([package, *filter(None, [os.environ.get("PYTHONPATH")])])
    return subprocess.Popen([sys.executable, "-m", f"{__package__}._worker"], text=True, encoding="utf-8",
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, env={**os.environ, "PYTHONPATH": path})


def _outcome(hub: HubInfo, message: dict[str, Any]) -> HubOutcome:
    if "done" in message:
        return HubOutcome(hub=hub, error=None, **message["done"])
    failed = message["failed"]
    return _failed(hub, getattr(errors, failed.pop("kind"))(**failed))


def _failed(hub: HubInfo, error: QzHidError) -> HubOutcome:
    return HubOutcome(hub, error.outcome, None, error.runs, 0, error)
