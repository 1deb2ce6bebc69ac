"""Where a hub is plugged in: location paths, such as "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)", and the
short port ids that are made of them."""
from __future__ import annotations

import re
from typing import NamedTuple


class PortId(NamedTuple):
    """A port as a person names it: "1-3" is port 3 of root hub 1, of the controller "1400"."""

    controller: str = ""
    port: str = ""

    @property
    def whole(self) -> str:
        return f"{self.controller}/{self.port}" if self.controller else self.port

    @property
    def device(self) -> str:
        """Without the interface of a composite device."""
        return self.whole.split(":")[0]

    def names(self, text: str) -> bool:
        return bool(self.port) and text.upper() in (self.port.upper(), self.whole.upper())


def read_port_id(location: str) -> PortId:
    """The port id of a location; empty if that names no USB port."""
    steps = [_step(text) for text in location.split("#")]
    roots = [at for at, (name, _) in enumerate(steps) if name == "USBROOT"]
    if not roots or not steps[roots[0]][1].isdecimal():
        return PortId()
    before = steps[:roots[0]]
    if before and before[0] == ("PCIROOT", "0"):
        before = before[1:]
    port = str(int(steps[roots[0]][1]) + 1)
    separator = "-"
    for name, argument in steps[roots[0] + 1:]:
        if name == "USBMI":
            port += ":" + argument
        elif name == "USB":
            port += separator + argument
            separator = "."
        else:
            return PortId()
    return PortId(".".join(argument for _, argument in before), port)


def is_location(location: str, wanted: str) -> bool:
    """Whether ``wanted`` is the location, or a number of whole steps at its end."""
    whole, end = location.upper(), wanted.upper()
    return bool(end) and (whole == end or whole.endswith("#" + end))


def _step(text: str) -> tuple[str, str]:
    """Of "USB(3)": "USB" and "3"."""
    found = re.fullmatch(r"([^(]*)\((.*)\)", text)
    return (found[1], found[2]) if found else (text, "")
