"""The Debian package python3-qzhidapi, which uses the library of the package libqzhidapi1."""
import os
import pathlib
import subprocess
import tempfile

from .common import AUTHORS, EPOCH, SUMMARY, VERSION, licence
from .wheel import FOLDER, metadata, modules

PLACE = "usr/lib/python3/dist-packages"
CONTROL = f"""Package: python3-qzhidapi
Version: {VERSION}
Architecture: all
Maintainer: {AUTHORS}
Section: python
Priority: optional
Depends: python3 (>= 3.9), libqzhidapi1 (>= {VERSION})
Recommends: qzhidapi-tools
Description: service library for USB hub controllers: Python package
 {SUMMARY}.
"""
# Python compiles what it imports; who removes the package wants that removed, too.
SCRIPTS = {
    "postinst": "#!/bin/sh\nset -e\n[ \"$1\" != configure ] || ! command -v py3compile > /dev/null ||\n"
                "  py3compile -p python3-qzhidapi\n",
    "prerm": "#!/bin/sh\nset -e\n! command -v py3clean > /dev/null || py3clean -p python3-qzhidapi\n"
             f"rm -rf /{PLACE}/qzhidapi/__pycache__\n"}


def make(out):
    path = out / f"python3-qzhidapi_{VERSION}_all.deb"
    with tempfile.TemporaryDirectory() as work:
        root = pathlib.Path(work)
        files = {f"{PLACE}/{name}": data for name, data in modules().items()}
        files[f"{PLACE}/{FOLDER}/METADATA"] = metadata()
        files["usr/share/doc/python3-qzhidapi/copyright"] = licence()
        files["DEBIAN/control"] = CONTROL.encode()
        for name, text in SCRIPTS.items():
            files[f"DEBIAN/{name}"] = text.encode()
        for name, data in files.items():
            _write(root / name, data, 0o755 if name.removeprefix("DEBIAN/") in SCRIPTS else 0o644)
        for folder in [root, *(inner for inner in root.rglob("*") if inner.is_dir())]:
            folder.chmod(0o755)
        subprocess.run(["dpkg-deb", "--root-owner-group", "--build", root, path], check=True,
                       stdout=subprocess.DEVNULL, env={**os.environ, "SOURCE_DATE_EPOCH": str(EPOCH)})
    return path


def _write(file, data, mode):
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(data)
    file.chmod(mode)
