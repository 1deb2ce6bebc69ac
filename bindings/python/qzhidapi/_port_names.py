"""The names that a user has given to ports: lines such as "bay 3 = 1-3.1" in qzhid/ports.conf."""
from __future__ import annotations

import os
import pathlib
import sys

from .errors import QzHidError


def read_port_names() -> dict[str, str]:
    """Names and port ids. Throws QzHidError when the user's file is not usable."""
    folder = _config_folder()
    file = folder / "qzhid" / "ports.conf"
    names: dict[str, str] = {}
    if not str(folder) or not file.exists():
        return names
    try:
        lines = file.read_text("utf-8", "surrogateescape").splitlines()
    except OSError as error:
        raise _unusable(file, error.strerror or "it cannot be read") from None
    for number, line in enumerate(lines, 1):
        line = line.split("#")[0].strip()
        if not line:
            continue
        name, _, port = (part.strip() for part in line.partition("="))
        if not name or not port:
            raise _unusable(file, f"line {number} is not NAME = PORT")
        if name in names:
            raise _unusable(file, f"line {number} names '{name}' again")
        names[name] = port
    return names


def _config_folder() -> pathlib.Path:
    if sys.platform == "win32":
        return pathlib.Path(os.environ.get("APPDATA", ""))
    chosen = os.environ.get("XDG_CONFIG_HOME", "")
    return pathlib.Path(chosen) if chosen.startswith("/") else pathlib.Path.home() / ".config"


def _unusable(file: pathlib.Path, why: str) -> QzHidError:
    return QzHidError(f"the port names in {file} are not usable: {why}",
                      "correct the file; its lines look like this: bay 3 = 1-3.1")
