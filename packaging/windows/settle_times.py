#!/usr/bin/env python3
"""settle_times.py INSTALLER SECONDS: makes that the time, since 1970, at which a Windows installer says that it was
made and saved; the tools that write installers always take the real one."""
import pathlib
import struct
import subprocess
import sys

FIRST_SECTION = 44  # where the summary says where its properties are
FILE_TIME = 64
SECONDS_FROM_1601_TO_1970 = 11644473600


def settled(summary, seconds):
    """The summary with that time in all its properties that are times."""
    result = bytearray(summary)
    (section,) = struct.unpack_from("<I", summary, FIRST_SECTION)
    (count,) = struct.unpack_from("<I", summary, section + 4)
    for index in range(count):
        (offset,) = struct.unpack_from("<I", summary, section + 12 + 8 * index)
        (kind,) = struct.unpack_from("<I", summary, section + offset)
        if kind == FILE_TIME:
            struct.pack_into("<Q", result, section + offset + 4, (seconds + SECONDS_FROM_1601_TO_1970) * 10_000_000)
    return bytes(result)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    installer = pathlib.Path(sys.argv[1])
    summary = subprocess.run(["msiinfo", "extract", installer, "\5SummaryInformation"], check=True,
                             capture_output=True).stdout
    contents = installer.read_bytes()
    if not summary or contents.count(summary) != 1:
        sys.exit(f"settle_times.py: the summary is not in one piece in {installer}")
    installer.write_bytes(contents.replace(summary, settled(summary, int(sys.argv[2]))))


if __name__ == "__main__":
    main()
