"""Lists hubs, updates and recovers them, and reads I2C targets. Exit statuses are those of qzhid."""
from __future__ import annotations

import argparse
import sys
from typing import Optional

from . import Hub, __version__, list_hubs, use_library
from ._library import candidates
from ._session import SESSION
from .errors import QzHidError, WrongUse


def number(text: str) -> int:
    return int(text, 0)


def add_writer(commands: argparse._SubParsersAction[argparse.ArgumentParser], name: str,
               text: str) -> argparse.ArgumentParser:
    command = commands.add_parser(name, help=text, description=text)
    command.add_argument("--hub", metavar="HUB", help="port id, name, location or VID:PID; default the only hub")
    command.add_argument("-i", "--image", metavar="FILE", required=True, help="the firmware image")
    command.add_argument("--sha256", metavar="HEX", help="refuse an image with another SHA-256")
    command.add_argument("--retries", metavar="N", type=int, default=2, help="tries after one that failed, default 2")
    command.add_argument("--wait", metavar="SECONDS", type=float, default=30,
                         help="how long to wait for a hub that left, default 30")
    return command


def parser() -> argparse.ArgumentParser:
    whole = argparse.ArgumentParser(prog="python -m qzhidapi", description=__doc__)
    whole.add_argument("--version", action="version", version=__version__)
    whole.add_argument("--library", metavar="FILE", help="use that file as the library")
    whole.add_argument("--virtual", action="store_true", help="use virtual hubs; QZ_VIRTUAL_HUB names the scenario")
    commands = whole.add_subparsers(dest="command", required=True, metavar="COMMAND")
    commands.add_parser("list", help="list the hubs that are attached")
    update = add_writer(commands, "update", "write a firmware image to a hub")
    update.add_argument("--force", action="store_true",
                        help="also if the hub runs this version, or is another product of the vendor")
    update.add_argument("--allow-older", action="store_true", help="also if the hub runs a newer version")
    add_writer(commands, "recover", "write a firmware image to a hub that is in its loader")
    read = commands.add_parser("i2c-read", help="read from an I2C target behind a hub")
    read.add_argument("--hub", metavar="HUB")
    read.add_argument("--target", metavar="ADDRESS", type=number, required=True)
    read.add_argument("--memory", metavar="ADDRESS", type=number, default=0)
    read.add_argument("--memory-bytes", metavar="N", type=number, default=2)
    read.add_argument("--length", metavar="N", type=number, required=True)
    return whole


def show_list() -> None:
    rows = [("PORT", "NAME", "VID:PID", "VERSION", "STATE")]
    rows += [(hub.port_id, hub.name or "-", f"{hub.vid:04X}:{hub.pid:04X}",
              "-" if hub.version is None else str(hub.version), hub.state) for hub in list_hubs()]
    if len(rows) == 1:
        print("no hub is attached")
        return
    widths = [max(len(row[at]) for row in rows) for at in range(5)]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def write(options: argparse.Namespace) -> None:
    def show(percent: int) -> None:
        print(f"\r{percent} %", end="", file=sys.stderr, flush=True)

    with Hub(options.hub) as hub:
        common = {"progress": show, "retries": options.retries, "wait": options.wait, "sha256": options.sha256}
        try:
            if options.command == "recover":
                result = hub.recover(options.image, **common)
            else:
                result = hub.update(options.image, force=options.force, allow_older=options.allow_older, **common)
        finally:
            print(file=sys.stderr)
        runs = "already runs {}" if result.outcome == "current" else "runs {} now"
        print(f"hub {hub.info.label} {runs.format(result.runs)}")


def read_i2c(options: argparse.Namespace) -> None:
    with Hub(options.hub) as hub:
        print(hub.i2c(options.target, options.memory_bytes).read(options.memory, options.length).hex(" "))


def main(arguments: Optional[list[str]] = None) -> int:
    options = parser().parse_args(arguments)
    try:
        if options.library:
            use_library(options.library)
        elif options.virtual:
            SESSION.use(candidates(is_virtual=True), is_virtual=True)
        {"list": lambda _: show_list(), "update": write, "recover": write,
         "i2c-read": read_i2c}[options.command](options)
    except QzHidError as error:
        print(f"qzhidapi: {error}", file=sys.stderr)
        return error.exit_status
    except ValueError as error:  # an option is out of its range
        print(f"qzhidapi: {error}", file=sys.stderr)
        return WrongUse.exit_status
    return 0


if __name__ == "__main__":
    sys.exit(main())
