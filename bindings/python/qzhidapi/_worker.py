"""The process that writes one hub, for update_hubs: a job on standard input, reports on standard output,
each a JSON object on a line."""
from __future__ import annotations

import contextlib
import json
import signal
import sys
from typing import Any

from . import errors
from ._port_lock import port_lock
from ._session import SESSION
from ._signals import ENDING
from .image import private_copy, read_image
from .update import Rules, Writer


def report(**message: Any) -> None:
    """The hub is written even when nobody reads any more."""
    with contextlib.suppress(OSError):
        print(json.dumps(message), flush=True)


def work(job: dict[str, Any]) -> None:
    SESSION.use([job["library"]], job["virtual"])
    location, label = job["location"], job["label"]
    with SESSION.call() as library, private_copy(read_image(job["image"], job["sha256"])) as copy, \
            port_lock(location, job["virtual"], label):
        writer = Writer(library, location, copy, lambda percent: report(progress=percent), job["wait"], False)
        result = writer.run(label, Rules(**job["rules"]), job["retries"])
    report(done=result._asdict())


def main() -> None:
    for number in ENDING:
        signal.signal(number, signal.SIG_IGN)  # the other process decides
    try:
        work(json.loads(sys.stdin.readline()))
    except errors.QzHidError as error:
        report(failed={"kind": type(error).__name__, "what": error.what, "remedy": error.remedy,
                       "hub": error.hub, "runs": error.runs})


if __name__ == "__main__":
    main()
