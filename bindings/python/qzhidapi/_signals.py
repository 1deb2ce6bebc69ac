"""Signals that would end the program in the middle of an update."""
from __future__ import annotations

import contextlib
import signal
import threading
from typing import Any, Iterator

ENDING = [getattr(signal, name) for name in ("SIGINT", "SIGTERM", "SIGHUP", "SIGBREAK") if hasattr(signal, name)]


@contextlib.contextmanager
def deferred() -> Iterator[None]:
    """They take effect when the block ends. Python delivers signals to the main thread only."""
    if threading.current_thread() is not threading.main_thread():
        yield
        return
    came: list[int] = []
    before: dict[int, Any] = {}
    for number in ENDING:
        if signal.getsignal(number) is not None:  # None: not one of Python's handlers
            before[number] = signal.signal(number, lambda number, _: came.append(number))
    try:
        yield
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)
        for number in dict.fromkeys(came):
            signal.raise_signal(number)
