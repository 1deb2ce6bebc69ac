"""captures_test.py RESULTS: an update that usbmon has captured in the virtual machine holds the same
requests and answers as the capture of the virtual hub, the dissector knows all of them, and they are the same
with every kernel."""
import hashlib
import pathlib
import struct
import subprocess
import sys
import tempfile

DISSECTOR = pathlib.Path(__file__).resolve().parents[2] / "packaging/wireshark/qzhid.lua"
# Of all exchanges of an update, in order. It changes with what the library sends.
EXPECTED = "3ceab53ae5dcb9de"
FIELDS = ["qzhid.request", "qzhid.request.value", "qzhid.request.index", "qzhid.request.length", "qzhid.phase",
          "qzhid.data", "qzhid.status.version", "qzhid.status.firmware", "qzhid.result"]


def pcap(events):
    """The events as usbmon's device gives them (headers of 48 bytes), as a file that tshark reads."""
    file = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 0x40000, 189)
    while len(events) >= 48:
        seconds, microseconds, _, _, captured = struct.unpack_from("<qiiII", events, 16)
        length = 48 + captured
        file += struct.pack("<IIII", seconds, microseconds, length, length) + events[:length]
        events = events[length:]
    return file


def exchanges(file, which="qzhid"):
    """The fields of each request, completion and answer."""
    columns = [word for field in FIELDS for word in ("-e", field)]
    shown = subprocess.run(["tshark", "-r", file, "-X", f"lua_script:{DISSECTOR}", "-Y", which, "-T", "fields", *columns],
                           check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    # A packet that only asks for an answer has no field of these.
    return [line for line in shown.splitlines() if line.strip()]


results = pathlib.Path(sys.argv[1])
with tempfile.NamedTemporaryFile() as converted:
    converted.write(pcap((results / "update.usbmon").read_bytes()))
    converted.flush()
    kernel, unknown = exchanges(converted.name), exchanges(converted.name, "qzhid.unknown")
hub = exchanges(results / "update.pcapng")
requests = [line for line in hub if line.startswith("0x")]
checksum = hashlib.sha256("\n".join(hub).encode()).hexdigest()[:16]
print(f"{len(requests)} requests, checksum {checksum}")
problems = [
    (not 1000 < len(requests) < 2000, f"{len(requests)} requests"),
    (kernel != hub, f"usbmon has {len(kernel)} packets, the hub {len(hub)}; the first that differ: "
     f"{next(((k, h) for k, h in zip(kernel, hub) if k != h), 'none')}"),
    (unknown, f"unknown requests: {unknown}"),
    (checksum != EXPECTED, f"the checksum of the exchanges is {checksum} instead of {EXPECTED}"),
]
found = [what for is_bad, what in problems if is_bad]
sys.exit("\n".join(found) or 0)
