"""capture_test.py SAMPLE QZHUB: captures hold what the recorder has, as tshark reads them."""
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

SAMPLE, QZHUB = sys.argv[1:3]
START = 1709802302  # when virtual time begins: 2024-03-07 09:05:02
NONE, STALL, GONE, CUT_OFF, BAD_REPORT, SYSTEM_CODE = 0, 1, 2, 3, 4, 13
STATUS = {NONE: 0, STALL: -32, GONE: -19, CUT_OFF: -71, BAD_REPORT: -32}
ERASE = "00 40 E8 00 01 00 00 00 00" + 312 * " 00"
ENABLE = "00 40 02 03 00 7C 2E 00 00" + 312 * " 00"
STATUS_BLOCK = "00 C0 09 00 00 00 00 14 00" + 312 * " 00"
UNKNOWN = "00 40 7F 00 00 00 00 00 00" + 312 * " 00"
RESET = "00 40 00 00 00 00 00 00 00" + 312 * " 00"
NUMBERED_ENABLE, NUMBERED_STATUS = "F0" + ENABLE[2:], "F0" + STATUS_BLOCK[2:]


class Packet:
    """One packet: tshark's reading of it, and its bytes."""

    def __init__(self, source):
        usb = source["layers"]["usb"]
        frame = bytes.fromhex(source["layers"]["frame_raw"][0])
        self.time = source["layers"]["frame"]["frame.time_epoch"]
        self.id, self.kind = usb["usb.urb_id"], usb["usb.urb_type"].strip("'")
        self.transfer, self.endpoint = int(usb["usb.transfer_type"], 16), int(usb["usb.endpoint_address"], 16)
        self.device = int(usb["usb.bus_id"]), int(usb["usb.device_address"])
        self.status, self.length = int(usb["usb.urb_status"]), int(usb["usb.urb_len"])
        self.marks = usb["usb.setup_flag"].strip("'"), usb["usb.data_flag"].strip("'")
        self.setup, self.data = frame[40:48], frame[64:]
        assert len(self.data) == int(usb["usb.data_len"])
        assert self.time == f'{usb["usb.urb_ts_sec"]}.{int(usb["usb.urb_ts_usec"]):06}000'


def packets(file):
    text = subprocess.run(["tshark", "-r", file, "-T", "json", "-x"], check=True,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    return [Packet(packet["_source"]) for packet in json.loads(text)]


def scenario(folder, capture="wire.pcapng"):
    file = os.path.join(folder, "scenario.json")
    hub = {"timing": {"latency_us": 250, "erase_ms": 300, "leave_ms": 20, "return_ms": 100, "ready_ms": 0}}
    with open(file, "w", encoding="utf-8") as out:
        json.dump({"capture": capture, "record": True, "devices": [
            {"name": "hub", "port": "3.1", **hub},
            {"name": "two", "port": "2-1", "channels": [2], "out_endpoint": "only", **hub},
            {"name": "pad", "kind": "other", "port": "4", "vid": "0x1234", "pid": "0x5678",
             "output_report_length": 2, "input_report_length": 9, "plugged": False}],
            "faults": [{"on": "output", "device": "hub", "nth": 5, "action": "fail", "code": 5},
                       {"on": "output", "device": "hub", "nth": 6, "action": "fail", "code": 9999},
                       {"on": "output", "device": "hub", "nth": 7, "action": "lose_write"},
                       {"on": "output", "device": "hub", "nth": 9, "action": "unplug", "return_ms": 50}]}, out)
    return file


def run(folder, steps):
    """Carries out the steps; returns what was recorded of each exchange."""
    text = subprocess.run([SAMPLE, scenario(folder)], input="\n".join(steps) + "\n", check=True,
                          stdout=subprocess.PIPE, text=True).stdout
    records = []
    for line in text.splitlines():
        kind, time, error, code, data = line.split()
        records.append((kind, int(time), int(error), int(code), bytes.fromhex(data[1:])))
    return records


def wire(report):
    """A report as it travels: without its ID if that is 0."""
    return report[1:] if report[:1] == b"\0" else report


def at(microseconds):
    return f"{START + microseconds // 10**6}.{microseconds % 10**6:06}000"


class CaptureTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.file = os.path.join(self.folder, "wire.pcapng")

    def check_exchange(self, record, begin, end, device, interrupt=False):
        kind, time, error, code, report = record
        is_in = kind == "input"
        sent = b"" if is_in else wire(report)
        self.assertEqual((begin.id, device, device), (end.id, begin.device, end.device))
        for packet in begin, end:
            self.assertEqual((1 if interrupt else 2, 0x80 if is_in else 1 if interrupt else 0),
                             (packet.transfer, packet.endpoint))
        self.assertEqual(("S", -115, len(wire(report)), sent), (begin.kind, begin.status, begin.length, begin.data))
        asked = struct.pack("<BBHHH", 0xA1 if is_in else 0x21, 1 if is_in else 9,
                            (0x100 if is_in else 0x200) + report[0], 0, len(wire(report)))
        self.assertEqual(b"" if interrupt else asked, begin.setup.rstrip(b"\0") if interrupt else begin.setup)
        empty = "<" if is_in else ">"
        self.assertEqual(("-" if interrupt else "0", "0" if sent else empty),
                         tuple(mark.replace("\\0", "0").replace("\x00", "0") for mark in begin.marks))
        status = STATUS[error] if error != SYSTEM_CODE else -code if code < 134 else -71
        read = wire(report) if is_in and not error else b""
        length = len(wire(report)) if not error else 0
        self.assertEqual(("E" if error == GONE else "C", status, length, read),
                         (end.kind, end.status, end.length, end.data))
        self.assertEqual("-", end.marks[0])
        erase = 300000 if report[1:3] == b"\x40\xE8" and not error else 0
        self.assertEqual(at(time + erase), end.time)
        latency = 0 if error == GONE or device == (1, 3) else 250
        self.assertEqual(at(time - latency), begin.time)

    def test_each_exchange_is_there_as_the_recorder_has_it(self):
        steps = ["open hub", "output " + ENABLE, "output " + STATUS_BLOCK, "input 257 0", "input 257 0",
                 "output " + UNKNOWN, "output 00 40", "output " + ENABLE, "output " + ENABLE,
                 "output " + ENABLE, "input 257 0", "output " + ERASE, "output " + STATUS_BLOCK,
                 "output " + STATUS_BLOCK, "open two", "interrupt " + NUMBERED_ENABLE,
                 "interrupt " + NUMBERED_STATUS, "input 257 241",
                 "plug pad", "open pad", "output 00 01", "input 9 0"]
        records = run(self.folder, steps)
        self.assertEqual([NONE, NONE, NONE, STALL, STALL, BAD_REPORT, SYSTEM_CODE, SYSTEM_CODE, NONE, STALL,
                          STALL, CUT_OFF, GONE, NONE, NONE, NONE, STALL, STALL], [record[2] for record in records])
        exchanges = [p for p in packets(self.file)
                     if p.transfer == 1 or p.kind != "S" or p.setup[:2] in (b"\x21\x09", b"\xA1\x01")]
        reports = {p.id for p in exchanges if p.kind == "S"}
        exchanges = [p for p in exchanges if p.id in reports]
        self.assertEqual(2 * len(records), len(exchanges))
        for i, record in enumerate(records):
            device = (1, 1) if i < 13 else (2, 2) if i < 16 else (1, 3)
            with self.subTest(exchange=i):
                self.check_exchange(record, *exchanges[2 * i:2 * i + 2], device, interrupt=i in (13, 14))

    def test_an_arrival_shows_the_descriptors_and_each_present_device_has_its_own_address(self):
        run(self.folder, ["open hub", "output " + RESET, "sleep 500", "unplug two", "plug pad"] +
            130 * ["unplug pad", "plug pad"])
        all_packets = packets(self.file)
        requests = [(p.setup.hex(), p.data.hex()) for p in all_packets[:14] if p.kind == "S"]
        lengths = [18, 34, 4, 8, 16, 0, 29]
        self.assertEqual([f"{name}{length:02x}00" for name, length in zip(
            ["800600010000", "800600020000", "800600030000", "800602030904", "800601030904", "000901000000",
             "810600220000"], lengths)], [setup for setup, _ in requests])
        self.assertEqual(lengths, [len(p.data) for p in all_packets[:14] if p.kind == "C"])
        ids = {}
        for begin, end in zip(all_packets[::2], all_packets[1::2]):
            self.assertEqual((begin.id, "S", "C", 0), (end.id, begin.kind, end.kind, end.status))
            if begin.setup[:4] == b"\x80\x06\0\1":
                ids.setdefault(end.data[8:12].hex(), []).append(begin.device)
        self.assertEqual([(1, 1), (2, 2)], ids["7c2e1808"])
        self.assertEqual([(1, 3)], ids["7c2e1008"], "the hub in its loader")
        self.assertEqual(131, len(ids["34127856"]))
        self.assertNotIn((1, 3), ids["34127856"])
        self.assertEqual({1, *range(2, 128)} - {3}, {address for _, address in ids["34127856"]})

    def test_capinfos_and_the_dissectors_find_no_fault(self):
        run(self.folder, ["open hub", "output " + STATUS_BLOCK, "input 257 0"])
        text = subprocess.run(["capinfos", "-c", "-E", self.file], check=True, stdout=subprocess.PIPE, text=True).stdout
        self.assertIn("USB packets with Linux header and padding", text)
        self.assertRegex(text, r"Number of packets: +32\b")
        shown = subprocess.run(["tshark", "-r", self.file, "-Y", "usbhid.setup.bRequest || _ws.malformed || _ws.expert"], check=True,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
        self.assertEqual(["SET_REPORT", "GET_REPORT"], [line.split()[-2] for line in shown.splitlines()], shown)

    def test_each_process_makes_a_file_of_its_own(self):
        for _ in range(3):
            run(self.folder, ["open hub"])
        self.assertEqual(["scenario.json", "wire-2.pcapng", "wire-3.pcapng", "wire.pcapng"],
                         sorted(os.listdir(self.folder)))
        self.assertEqual(28, len(packets(os.path.join(self.folder, "wire-3.pcapng"))))

    def test_a_capture_that_cannot_be_written_is_reported_and_changes_nothing_else(self):
        done = subprocess.run([SAMPLE, scenario(self.folder, "none/wire.pcapng")], stderr=subprocess.PIPE, text=True,
                              input="open hub\noutput " + ENABLE + "\n", stdout=subprocess.PIPE, check=True)
        self.assertEqual(f"virtualhub: the capture {self.folder}/none/wire.pcapng cannot be created: "
                         "No such file or directory\n", done.stderr)
        self.assertIn("output 250 0 0 x0040", done.stdout)
        done = subprocess.run([QZHUB, "serve", "--capture", "/nowhere/x"], stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual((1, "qzhub: /nowhere/x cannot be created: No such file or directory\n"),
                         (done.returncode, done.stderr))

    def test_serve_replaces_the_file_that_it_is_given(self):
        with open(self.file, "w", encoding="utf-8") as old:
            old.write("old")
        with subprocess.Popen([QZHUB, "serve", "--listen", "127.0.0.1:0", "--capture", self.file],
                              stdout=subprocess.PIPE, text=True) as server:
            while not server.stdout.readline().startswith("listening"):
                pass
            server.terminate()
        self.assertEqual(28, len(packets(self.file)))
        self.assertEqual(["wire.pcapng"], os.listdir(self.folder))


if shutil.which("tshark") is None:
    print("skipped: no tshark")
    sys.exit(77)
unittest.main(argv=sys.argv[:1])
