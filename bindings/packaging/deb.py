"""The Debian package python3-qzhidapi, which uses the library of the package libqzhidapi1."""
import gzip
import hashlib
import os
import pathlib
import re
import subprocess
import tempfile

from .common import EPOCH, SOURCE, SUMMARY, VERSION, licence
from .wheel import FOLDER, metadata, modules

PLACE = "usr/lib/python3/dist-packages"
PACKAGING = SOURCE / "packaging"
MAINTAINER = re.search(r"^Maintainer: (.+)", (PACKAGING / "debian" / "control").read_text(), re.M)[1]
CONTROL = f"""Package: python3-qzhidapi
Version: {VERSION}
Architecture: all
Maintainer: {MAINTAINER}
Section: python
Priority: optional
Depends: python3 (>= 3.9), libqzhidapi1 (>= {VERSION})
Recommends: qzhidapi-tools
Description: service library for USB hub controllers - Python package
 {SUMMARY}.
 .
 This package contains the Python package qzhidapi, which calls the library.
"""
# Python compiles what it imports; who removes the package wants that removed, too.
SCRIPTS = {
    "postinst": "#!/bin/sh\nset -e\n[ \"$1\" != configure ] || ! command -v py3compile > /dev/null ||\n"
                "  py3compile -p python3-qzhidapi\n",
    "prerm": "#!/bin/sh\nset -e\n! command -v py3clean > /dev/null || py3clean -p python3-qzhidapi\n"
             f"rm -rf /{PLACE}/qzhidapi/__pycache__\n"}


def changelog():
    text = subprocess.run(["sh", PACKAGING / "changelog.sh", "debian", SOURCE / "CHANGELOG.md"], check=True,
                          capture_output=True).stdout
    return gzip.compress(text, 9, mtime=0)


def make(out):
    path = out / f"python3-qzhidapi_{VERSION}_all.deb"
    with tempfile.TemporaryDirectory() as work:
        root = pathlib.Path(work)
        files = {f"{PLACE}/{name}": data for name, data in modules().items()}
        files[f"{PLACE}/{FOLDER}/METADATA"] = metadata()
        files["usr/share/doc/python3-qzhidapi/copyright"] = licence()
        files["usr/share/doc/python3-qzhidapi/changelog.gz"] = changelog()
        sums = "".join(f"{hashlib.md5(data).hexdigest()}  {name}\n" for name, data in sorted(files.items()))
        files["DEBIAN/md5sums"] = sums.encode()
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
