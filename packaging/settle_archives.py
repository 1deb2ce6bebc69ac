#!/usr/bin/env python3
"""settle_archives.py ARCHIVE...: writes archives (.tar.gz, .zip) again, so that they do not say who made them, and in
which order the files were in their folders. The times of the files stay."""
import gzip
import io
import os
import sys
import tarfile
import zipfile


def settle_tar(path, draft):
    plain = io.BytesIO()
    with tarfile.open(path) as old, tarfile.open(fileobj=plain, mode="w") as new:
        for member in sorted(old, key=lambda member: member.name):
            member.uid = member.gid = 0
            member.uname = member.gname = "root"
            new.addfile(member, old.extractfile(member) if member.isfile() else None)
    with open(draft, "wb") as stream:
        stream.write(gzip.compress(plain.getvalue(), mtime=0))


def settle_zip(path, draft):
    with zipfile.ZipFile(path) as old, zipfile.ZipFile(draft, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as new:
        for member in sorted(old.infolist(), key=lambda member: member.filename):
            entry = zipfile.ZipInfo(member.filename, member.date_time)
            entry.external_attr = member.external_attr
            entry.compress_type = zipfile.ZIP_STORED if member.is_dir() else zipfile.ZIP_DEFLATED
            new.writestr(entry, old.read(member))


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    for path in sys.argv[1:]:
        draft = f"{path}.new"
        (settle_zip if path.endswith(".zip") else settle_tar)(path, draft)
        os.replace(draft, path)


if __name__ == "__main__":
    main()
