"""The library's log, which says why a call failed."""
from __future__ import annotations

import os

from ._library import FAILURES_ONLY, narrow
from ._session import SESSION
from .errors import QzHidError
from .image import Path


def log_to(path: Path, level: int = 0) -> None:
    """Logs to that file, which is emptied, lines of at least that level: 0 everything, 3 failures only. The
    first file stays the log for the life of the process."""
    with SESSION.call() as library:
        file = os.path.abspath(path)
        if library.QZ_SetLogPath(narrow(file)) != 1:
            raise QzHidError(f"the log {file} cannot be written",
                             "name a file in a folder that you have permission to write")
        library.QZ_ConfigLog(1, level)


def stop_log() -> None:
    """Logs nothing more."""
    with SESSION.call() as library:
        library.QZ_ConfigLog(0, FAILURES_ONLY)


def record_crashes() -> None:
    """From now on, a crash of the process writes a record to its current directory."""
    with SESSION.call() as library:
        library.QZ_GenerateDumplog()
