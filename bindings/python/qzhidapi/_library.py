"""The library's file: where it is, and its functions."""
from __future__ import annotations

import ctypes
import os
import pathlib
import shutil
import sys
import tempfile
from typing import Any, Optional, Union

from . import _abi
from .errors import LibraryError

FOLDER = pathlib.Path(__file__).parent / "native"
FAILURES_ONLY = 3

if sys.platform == "win32":
    NAME = "QzHidAPI.dll"
    INSTALLED: list[str] = []
    INSTALLED_VIRTUAL: list[str] = []
else:
    NAME = "libQzHidAPI.so.1"
    INSTALLED = [NAME]
    INSTALLED_VIRTUAL = [f"{folder}/qzhidapi/virtual/{NAME}" for folder in (
        f"/usr/lib/{getattr(sys.implementation, '_multiarch', '')}", "/usr/local/lib", "/usr/lib")]


def candidates(is_virtual: bool) -> list[str]:
    """The files to try, in this order: those that came with this package, then those of the system."""
    if is_virtual:
        return [str(FOLDER / "virtual" / NAME), *INSTALLED_VIRTUAL]
    return [str(FOLDER / NAME), *INSTALLED]


class Library:
    """A library that is loaded. Its functions are attributes with the names of the exports."""

    def __init__(self, files: list[str]) -> None:
        self._dll = self._load(files)
        self.path = self._dll._name
        self.connected: Optional[object] = None  # the hub whose handle the one connection belongs to
        self._log_folder = ""
        for name, (result, parameters) in _abi.PROTOTYPES.items():
            setattr(self, name, self._bind(name, result, parameters))
        if sys.platform == "win32":
            self._keep_log_away()

    def __getattr__(self, name: str) -> Any:
        raise AttributeError(name)  # the exports are set above

    @staticmethod
    def _load(files: list[str]) -> ctypes.CDLL:
        reasons = []
        for file in files:
            try:
                return ctypes.CDLL(file)
            except OSError as error:
                reasons.append(str(error))
        raise LibraryError(f"the library cannot be loaded ({'; '.join(reasons)})",
                           "install libqzhidapi1 or the wheel for this system, or call use_library(FILE)")

    def _bind(self, name: str, result: Any, parameters: list[Any]) -> Any:
        try:
            function = getattr(self._dll, name)
        except AttributeError:
            raise LibraryError(f"the library {self.path} has no function {name}",
                               "use the library of this package's version") from None
        function.restype, function.argtypes = result, parameters
        return function

    def _keep_log_away(self) -> None:
        """On Windows, each new thread starts a log in the library's own folder, unless it has a path."""
        self._log_folder = tempfile.mkdtemp(prefix="qzhidapi-")
        self.QZ_SetLogPath(narrow(os.path.join(self._log_folder, "log.txt")))
        self.QZ_ConfigLog(0, FAILURES_ONLY)

    def unload(self) -> None:
        import _ctypes
        self.QZ_ConfigLog(0, FAILURES_ONLY)
        getattr(_ctypes, "FreeLibrary" if sys.platform == "win32" else "dlclose")(self._dll._handle)
        if self._log_folder:
            shutil.rmtree(self._log_folder, ignore_errors=True)


def narrow(path: Union[str, os.PathLike[str]]) -> bytes:
    """A path as the library takes it."""
    text = os.fspath(path)
    try:
        return text.encode("mbcs", "strict") if sys.platform == "win32" else os.fsencode(text)
    except UnicodeEncodeError:
        raise LibraryError(f"the library cannot take the path {text}",
                           "use a path of letters in the system's code page") from None
