"""A hub that is open."""
from __future__ import annotations

import contextlib
import ctypes
import errno
import os
import sys
import time
from ctypes import byref, c_uint8
from types import TracebackType
from typing import Callable, Iterator, Optional, Union

from ._library import Library
from ._port_lock import port_lock
from ._session import SESSION
from ._signals import deferred
from .errors import HubClosed, HubLost, QzHidError, RequestFailed
from .hubs import HubInfo, HubState, Version, attached, pick, read_state
from .image import Path, private_copy, read_image
from .update import Progress, Rules, UpdateResult, Writer

AT_ONCE = 128  # bytes in a request
GPIO_LINES = 24
FLASH_BUSY = 1
FLASH_WAIT = 60.0
# An EEPROM does not acknowledge while it stores a page, which takes it some milliseconds.
PAGE_TRIES = 20
BETWEEN_TRIES = 0.002
Data = Union[bytes, bytearray, memoryview]


class Hub:
    """The hub that the selector names (port id, name, location, "VID:PID"; None: the only one), for a with
    statement. A process has one connection, so one hub can be open at a time, and one call can run."""

    def __init__(self, selector: Optional[str] = None) -> None:
        self._selector = selector
        self._info: Optional[HubInfo] = None
        self._is_open = False
        self._handle: Optional[int] = None  # while the connection is this hub's

    def open(self) -> Hub:
        if self._is_open:
            return self
        with SESSION.call() as library:
            SESSION.claim(self)
            try:
                self._info = pick(library, self._selector)
                self._handle = self._connect(library, self._info)
                self._is_open = True
            finally:
                if not self._is_open:
                    SESSION.release(self)
        return self

    def close(self) -> None:
        if not self._is_open:
            return
        with SESSION.call() as library:
            self._drop(library)
            self._is_open = False
            SESSION.release(self)

    def __enter__(self) -> Hub:
        return self.open()

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    @property
    def info(self) -> HubInfo:
        """The hub as it was listed when it was opened."""
        if self._info is None:
            raise HubClosed("the hub is not open", "use it in a with statement, or call open()")
        return self._info

    # ---- Firmware

    def state(self) -> HubState:
        """Its ids, and the version that it runs."""
        with self._call() as library:
            self._drop(library)
            return read_state(library, self._find(library))

    def version(self) -> Optional[Version]:
        """The version of its firmware; None in the loader."""
        return self.state().version

    def update(self, image: Path, progress: Optional[Progress] = None, retries: int = 2, wait: float = 30, *,
               force: bool = False, allow_older: bool = False, sha256: Optional[str] = None,
               flash_size: Optional[int] = None, stay_in_loader: bool = False) -> UpdateResult:
        """Writes an image, checks it and starts it. After a failure waits ``wait`` seconds for the hub to
        return, and tries again, from the loader, too. ``progress`` is called with 0 to 100 on this thread.
        Raises Refused, before anything is written, when the image is not for this hub."""
        return self._update(image, progress, retries, wait, Rules(force=force, allow_older=allow_older),
                            sha256, flash_size, stay_in_loader)

    def recover(self, image: Path, progress: Optional[Progress] = None, retries: int = 2, wait: float = 30, *,
                sha256: Optional[str] = None, flash_size: Optional[int] = None) -> UpdateResult:
        """Writes an image to a hub that is in its loader because an update was interrupted."""
        return self._update(image, progress, retries, wait, Rules(recover=True), sha256, flash_size, False)

    def _update(self, image: Path, progress: Optional[Progress], retries: int, wait: float, rules: Rules,
                sha256: Optional[str], flash_size: Optional[int], stay_in_loader: bool) -> UpdateResult:
        data = read_image(image, sha256, flash_size)
        info = self.info
        with deferred(), self._call() as library, private_copy(data) as copy:
            self._drop(library)
            with port_lock(info.location, SESSION.is_virtual, info.label):
                writer = Writer(library, info.location, copy, progress, wait, stay_in_loader)
                return writer.run(info.label, rules, retries)

    # ---- GPIO

    def gpio_get(self, line: int) -> int:
        """The level of a line, 0 to 23."""
        level = c_uint8()
        self._request("reading the line", lambda library, handle: library.QZ_HidGPIOR(
            handle, _in_range(line, "line", 0, GPIO_LINES - 1), byref(level), 1))
        return level.value

    def gpio_drive(self, line: int, level: int) -> None:
        """Drives a line, 0 to 23, low (0) or high (1)."""
        self._request("driving the line", lambda library, handle: library.QZ_HidGPIOW(
            handle, _in_range(line, "line", 0, GPIO_LINES - 1), _in_range(level, "level", 0, 1)))

    def gpio_set(self, number: int, level: int) -> None:
        """Sets a line by the hub's own numbering."""
        self._request("setting the line", lambda library, handle: 0 if library.QZ_HidSetHubGPIO(
            handle, _in_range(number, "number", 0, 0xFFFF), _in_range(level, "level", 0, 1)) else 1)

    # ---- I2C

    def i2c(self, target: int, memory_bytes: int = 2, speed: int = 0) -> I2CTarget:
        """A target behind the hub, by its address as the hub's I2C master takes it."""
        return I2CTarget(self, _in_range(target, "target", 1, 0xFF),
                         _in_range(memory_bytes, "memory_bytes", 0, 5), _in_range(speed, "speed", 0, 2))

    def block_command(self, commands: tuple[int, int, int], address: int, offset: int = 0,
                      data: Data = b"") -> None:
        """One raw command block: three command bytes, the sum of address and offset, 0 to 54 bytes."""
        pool = _buffer(data)
        first, second, third = (_in_range(command, "command", 0, 0xFF) for command in commands)
        _in_range(len(pool), "the length of the data", 0, 54)
        self._request("the block command", lambda library, handle: library.QZ_MST_HidI2CBlock(
            handle, first, second, third, _in_range(address, "address", 0, 0xFFFFFFFF),
            _in_range(offset, "offset", 0, 0xFFFFFFFF), pool, len(pool)))

    # ---- The flash memory behind the hub

    def flash_write(self, address: int, data: Data) -> None:
        """Writes bytes, and waits until the flash is ready."""
        self._send(address, data, "QZ_HidI2CBlockWriteFlash")

    def flash_stage(self, address: int, data: Data) -> None:
        """Stages bytes."""
        self._send(address, data, "QZ_Stage_Flash")

    def flash_erase(self) -> None:
        """Erases the whole flash, and waits until that is done."""
        self._await_flash()
        self._request("erasing the flash", lambda library, handle: library.QZ_HidI2CBlockEraseFlash(handle))
        self._await_flash()

    def flash_status(self) -> int:
        """Its status byte; 1 means busy."""
        status = c_uint8()
        self._request("reading the flash's status",
                      lambda library, handle: library.QZ_HidI2CBlockStatus(handle, byref(status)))
        return status.value

    def _send(self, address: int, data: Data, function: str) -> None:
        _in_range(address, "address", 0, 0x100000000 - len(data))
        for at in range(0, len(data), AT_ONCE):
            part = _buffer(data[at:at + AT_ONCE])
            self._await_flash()
            self._request(f"the transfer after {at} bytes", lambda library, handle: getattr(library, function)(
                handle, address + at, part, len(part)))
        self._await_flash()

    def _await_flash(self) -> None:
        end = time.monotonic() + FLASH_WAIT
        while self.flash_status() == FLASH_BUSY:
            if time.monotonic() > end:
                raise QzHidError("the flash is still busy after a minute", "look at flash_status() and try again",
                                 hub=self.info.label)
            time.sleep(0.001)

    # ---- The connection

    @contextlib.contextmanager
    def _call(self) -> Iterator[Library]:
        """The library, for one operation on this hub."""
        if not self._is_open:
            raise HubClosed("the hub is not open", "use it in a with statement, or call open()")
        with SESSION.call() as library:
            if not self._is_open:  # another thread has closed it
                raise HubClosed("the hub is not open any more", "call open() again")
            yield library

    def _request(self, what: str, request: Callable[[Library, int], int]) -> None:
        """Sends a request, on a connection that is made anew where an update, a version or a list has
        ended it."""
        with self._call() as library:
            if self._handle is None or library.connected is not self:
                self._drop(library)
                self._handle = self._connect(library, self._find(library))
            status = request(library, self._handle)
            if status == 0:
                return
            if all(hub.location != self.info.location for hub in attached(library)):
                raise HubLost(f"{what} failed, and the hub is gone", "plug it in again and try again",
                              hub=self.info.label)
            raise RequestFailed(f"{what} failed with status {status} ({_meaning(status)})",
                                "check the address and that the hub runs its firmware", status=status,
                                hub=self.info.label)

    def _connect(self, library: Library, hub: HubInfo) -> int:
        handle = library.QZ_OpenHid(hub.instance)
        if not handle:
            raise HubLost("the hub does not answer", "unplug it, plug it in again and try again", hub=hub.label)
        library.connected = self
        return int(handle)

    def _drop(self, library: Library) -> None:
        if self._handle is not None:
            library.QZ_CloseDev(self._handle)
            library.connected = None
        self._handle = None

    def _find(self, library: Library) -> HubInfo:
        """The hub in a fresh list: its instance may have changed."""
        for hub in attached(library):
            if hub.location == self.info.location and hub.openable:
                return hub
        raise HubLost("the hub is gone", "plug it in again and try again", hub=self.info.label)


class I2CTarget:
    """A target behind a hub; valid while the hub is open."""

    def __init__(self, hub: Hub, target: int, memory_bytes: int, speed: int) -> None:
        self._hub = hub
        self._settings = (target, memory_bytes, speed)

    def read(self, memory: int, length: int) -> bytes:
        """Reads from that address of the target's memory on."""
        data = bytearray()
        while len(data) < length:
            part = (c_uint8 * min(AT_ONCE, length - len(data)))()
            at = _in_range(memory + len(data), "memory", 0, 0xFFFFFFFF)
            self._request("the I2C read", lambda library, handle: library.QZ_HidI2CRead(handle, at, part, len(part)))
            data += bytes(part)
        return bytes(data)

    def read_at(self, address: Data, length: int) -> bytes:
        """Reads up to 192 bytes, with the memory address as up to five bytes, least significant first."""
        part = (c_uint8 * _in_range(length, "length", 1, 192))()
        where = _buffer(address)
        _in_range(len(where), "the length of the address", 0, 5)
        self._request("the I2C read", lambda library, handle: library.QZ_HidI2CRead2(
            handle, where, len(where), part, length))
        return bytes(part)

    def write(self, memory: int, data: Data, page: int = 8) -> None:
        """Writes to the target's memory, page by page; ``page`` is its page size, and 8 is always safe."""
        _in_range(page, "page", 1, AT_ONCE)
        at = 0
        while at < len(data):
            part = _buffer(data[at:at + page - (memory + at) % page])
            self._write_page(_in_range(memory + at, "memory", 0, 0xFFFFFFFF), part, at)
            at += len(part)

    def _write_page(self, memory: int, part: ctypes.Array[c_uint8], written: int) -> None:
        def send(library: Library, handle: int) -> int:
            for _ in range(PAGE_TRIES if written else 1):
                status: int = library.QZ_HidI2CWrite(handle, memory, part, len(part))
                if status == 0:
                    break
                time.sleep(BETWEEN_TRIES)
            return status
        self._request(f"the I2C write after {written} written bytes", send)

    def _request(self, what: str, request: Callable[[Library, int], int]) -> None:
        self._hub._request(what, lambda library, handle: (
            library.QZ_HidI2CConfig(handle, *self._settings) or request(library, handle)))


def _buffer(data: Data) -> ctypes.Array[c_uint8]:
    return (c_uint8 * len(data)).from_buffer_copy(data)


def _in_range(value: int, name: str, least: int, most: int) -> int:
    """ctypes cuts what is too large."""
    if not least <= value <= most:
        raise ValueError(f"{name} is {value}, not {least} to {most}")
    return value


def _meaning(status: int) -> str:
    if status == 0xFFFFFFFF:
        return "rejected by the library"
    if sys.platform == "win32":
        return {31: "the hub or the target refused it", 1167: "the hub left", 121: "no answer in time"}.get(
            status, "a system error")
    return {errno.EPIPE: "the hub or the target refused it", errno.ENODEV: "the hub left",
            errno.EPROTO: "the hub left", errno.ETIMEDOUT: "no answer in time"}.get(status, os.strerror(status))
