"""captures_test.py RESULTS PROGRAMS: an update that usbmon has captured in the virtual machine holds the
same requests and answers as the capture of the virtual hub, the dissector knows all of them, they are the
same with every kernel, and a hub that repeats either capture is updated."""
import hashlib
import json
import os
import pathlib
import struct
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(SOURCE / "tests/support"))
import captures  # pylint: disable=wrong-import-position

DISSECTOR = SOURCE / "packaging/wireshark/qzhid.lua"
# Of all exchanges of an update, in order. It changes with what the library sends.
EXPECTED = "3ceab53ae5dcb9de"
FIELDS = ["qzhid.request", "qzhid.request.value", "qzhid.request.index", "qzhid.request.length", "qzhid.phase",
          "qzhid.data", "qzhid.status.version", "qzhid.status.firmware", "qzhid.result"]


def packets(events):
    """The events as usbmon's device gives them: headers of 48 bytes, and data."""
    while len(events) >= 48:
        seconds, microseconds, _, _, captured = struct.unpack_from("<qiiII", events, 16)
        yield seconds * 10**6 + microseconds, events[:48 + captured]
        events = events[48 + captured:]


def exchanges(file, which="qzhid", fields=tuple(FIELDS)):
    """The fields of each request, completion and answer."""
    columns = [word for field in fields for word in ("-e", field)]
    shown = subprocess.run(["tshark", "-r", file, "-X", f"lua_script:{DISSECTOR}", "-Y", which, "-T", "fields", *columns],
                           check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    # A packet that only asks for an answer has no field of these.
    return [line for line in shown.splitlines() if line.strip()]


def update_of_replay(file):
    """Updates a hub that repeats the capture; returns the exit status and what differed. The program
    lists the hubs, and its worker process lists them again, with ten requests."""
    first = exchanges(file, "qzhid.request", ["frame.number"])[10]
    with tempfile.TemporaryDirectory() as folder:
        def run(program, *arguments):
            return subprocess.run([programs / program, *arguments], cwd=folder, capture_output=True, text=True, check=False,
                                  stdin=subprocess.DEVNULL, env={**os.environ, "QZ_VIRTUAL_HUB": "scenario.json"})

        device = {"name": "hub", "kind": "replay", "port": "1", "capture": str(file), "first_frame": int(first)}
        pathlib.Path(folder, "scenario.json").write_text(json.dumps({"time": "virtual", "devices": [device]}))
        run("qzhub", "image", "--size", "65536", "--version", "0210", "--out", "new.bin")
        done = run("qzhid", "--virtual", "update", "--yes", "--image", "new.bin", "--retries", "0", "--wait", "0")
        return done.returncode, [line for line in done.stderr.splitlines() if line.startswith("virtualhub")]


def account_of(file):
    """What the program says of a capture: results and steps of the update in it."""
    done = subprocess.run([programs / "qzhid", "explain", "--json", file], stdout=subprocess.PIPE, check=False)
    sessions = [session for log in json.loads(done.stdout)["logs"] for session in log["sessions"]]
    return [(job["result"], [step["step"] for step in job["steps"]])
            for session in sessions for job in session["jobs"] if job["title"] == "update"]


results, programs = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
with tempfile.TemporaryDirectory() as scratch:
    usbmon, virtual = pathlib.Path(scratch, "update.pcap"), results / "update.pcapng"
    captures.pcap(usbmon, captures.USBMON_SHORT, packets((results / "update.usbmon").read_bytes()))
    kernel, unknown = exchanges(usbmon), exchanges(usbmon, "qzhid.unknown")
    replays = [update_of_replay(file) for file in (usbmon, virtual)]
    accounts = [account_of(file) for file in (usbmon, virtual)]
hub = exchanges(virtual)
requests = [line for line in hub if line.startswith("0x")]
checksum = hashlib.sha256("\n".join(hub).encode()).hexdigest()[:16]
print(f"{len(requests)} requests, checksum {checksum}")
problems = [
    (not 1000 < len(requests) < 2000, f"{len(requests)} requests"),
    (kernel != hub, f"usbmon has {len(kernel)} packets, the hub {len(hub)}; the first that differ: "
     f"{next(((k, h) for k, h in zip(kernel, hub) if k != h), 'none')}"),
    (unknown, f"unknown requests: {unknown}"),
    (checksum != EXPECTED, f"the checksum of the exchanges is {checksum} instead of {EXPECTED}"),
    (replays != 2 * [(0, [])], f"updates of replayed hubs: {replays}"),
    (accounts[0] != accounts[1] or [job[0] for job in accounts[0]] != ["done"], f"accounts: {accounts}"),
]
found = [what for is_bad, what in problems if is_bad]
sys.exit("\n".join(found) or 0)
