"""Virtual hubs, for tests of programs."""
from __future__ import annotations

import contextlib
import json
import os
import pathlib
import tempfile
from typing import Any, Iterator, Mapping, Optional, Union

from ._library import candidates
from ._session import SESSION

VARIABLE = "QZ_VIRTUAL_HUB"


class Machine:
    """The simulated computer that virtual hubs are attached to."""

    def __init__(self, scenario: pathlib.Path, control: Optional[str]) -> None:
        self.scenario = scenario
        self._control = control

    def plug(self, name: str, port: Optional[str] = None) -> None:
        self._add(f"plug {name}{' ' + port if port else ''}")

    def unplug(self, name: str) -> None:
        self._add(f"unplug {name}")

    def power_loss(self, name: str, milliseconds: int = 500) -> None:
        self._add(f"power-loss {name} {milliseconds}")

    def _add(self, line: str) -> None:
        if self._control is None:
            raise ValueError("the scenario names no control file")
        with open(self.scenario.parent / self._control, "a", encoding="utf-8") as control:
            control.write(line + "\n")


@contextlib.contextmanager
def virtual(scenario: Union[Mapping[str, Any], str, os.PathLike[str], None] = None,
            library: Union[str, os.PathLike[str], None] = None) -> Iterator[Machine]:
    """In this block, the hubs are those of the scenario: an object as docs/virtual-hub.md describes it, or
    the path of such a file. An object gets virtual time unless it says otherwise; its relative paths start
    in a temporary folder. ``library`` is the virtual library, unless the one of the package is meant."""
    files = candidates(is_virtual=True) if library is None else [os.fspath(library)]
    before, chosen = os.environ.get(VARIABLE), SESSION.chosen()
    with tempfile.TemporaryDirectory(prefix="qzhidapi-") as folder:
        machine = _machine(scenario, pathlib.Path(folder))
        SESSION.use(files, is_virtual=True)
        os.environ[VARIABLE] = str(machine.scenario)
        try:
            yield machine
        finally:
            if SESSION.open_hub is not None:
                SESSION.open_hub.close()
            SESSION.use(*chosen)  # flash contents are saved now
            if before is None:
                del os.environ[VARIABLE]
            else:
                os.environ[VARIABLE] = before


def _machine(scenario: Union[Mapping[str, Any], str, os.PathLike[str], None], folder: pathlib.Path) -> Machine:
    if isinstance(scenario, (str, os.PathLike)):
        file = pathlib.Path(scenario).absolute()
        return Machine(file, json.loads(file.read_text("utf-8")).get("control"))
    whole: dict[str, Any] = {"time": "virtual", "control": "hands.txt",
             **(scenario if scenario is not None else {"devices": [{"name": "hub", "port": "3.1"}]})}
    file = folder / "scenario.json"
    file.write_text(json.dumps(whole), "utf-8")
    return Machine(file, str(whole["control"]))
