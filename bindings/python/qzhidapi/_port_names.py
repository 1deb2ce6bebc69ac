"""The names that a user has given to ports: lines such as "bay 3 = 1-3.1" in qzhid/ports.conf."""
from __future__ import annotations

import os
import pathlib
import re
import sys

from .errors import QzHidError

_PORT_ID = r"(.+/)?[0-9]+-[0-9]+(\.[0-9]+)*(:[0-9]+)?"
# What a selector means that is no name.
_OTHER = _PORT_ID + r"|(0x)?[0-9a-f]{1,4}:(0x)?[0-9a-f]{1,4}|instance:.*|usb.*\)"


def read_port_names() -> dict[str, str]:
    """Names and port ids. Throws QzHidError when the user's file is not usable."""
    folder = _config_folder()
    file = folder / "qzhid" / "ports.conf"
    names: dict[str, str] = {}
    if not str(folder) or not file.exists():
        return names
    try:
        if not file.is_file():
            raise _unusable(file, "it is not a regular file")
        lines = file.read_text("utf-8-sig", "surrogateescape").split("\n")
    except OSError as error:
        raise _unusable(file, error.strerror or "it cannot be read") from None
    for number, line in enumerate(lines, 1):
        line = line.split("#")[0].strip()
        if not line:
            continue
        name, _, port = (part.strip() for part in line.partition("="))
        reason = _why_not_usable(names, name, port)
        if reason:
            raise _unusable(file, f"line {number} {reason}")
        names[name] = port
    return names


def _why_not_usable(names: dict[str, str], name: str, port: str) -> str:
    if not name or not port:
        return "is not NAME = PORT"
    if re.search(r"[\x00-\x1f\x7f]", name):
        return "has a name with a control character"
    if re.fullmatch(_OTHER, name, re.I):
        return f"has the name '{name}', which already means something else"
    if not re.fullmatch(_PORT_ID, port):
        return f"has '{port}', which is not a port id"
    if name in names:
        return f"names '{name}' again"
    if port.upper() in (other.upper() for other in names.values()):
        return f"gives port {port} another name"
    return ""


def _config_folder() -> pathlib.Path:
    if sys.platform == "win32":
        return pathlib.Path(os.environ.get("APPDATA", ""))
    chosen = os.environ.get("XDG_CONFIG_HOME", "")
    return pathlib.Path(chosen) if chosen.startswith("/") else pathlib.Path.home() / ".config"


def _unusable(file: pathlib.Path, why: str) -> QzHidError:
    return QzHidError(f"the port names in {file} are not usable: {why}",
                      "correct the file; its lines look like this: bay 3 = 1-3.1")
