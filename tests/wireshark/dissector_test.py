"""dissector_test.py SOURCE SAMPLE: what tshark shows of a hub's requests with the dissector."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE, SAMPLE = pathlib.Path(sys.argv[1]), sys.argv[2]
sys.path.append(str(SOURCE / "tests/support"))
import captures  # pylint: disable=wrong-import-position

DISSECTOR = SOURCE / "packaging/wireshark/qzhid.lua"
ENABLE = "40 02 03 00 7C 2E 00 00"
I2C = " A0 02 81"  # target 0xA0, two bytes of memory address, configured, speed 1

# Requests that succeed: setup packet and what follows it, data stage, and what is shown of request and
# answer.
GOOD = [
    (ENABLE, "", {"name": "Enable vendor commands", "qzhid.enable": "3"}, {}),
    ("C0 09 00 00 00 00 14 00", "", {"name": "Read status", "qzhid.phase": "preparing", "qzhid.request.length": "20"},
     {"qzhid.status.vid": "0x2e7c", "qzhid.status.pid": "0x0810", "qzhid.status.version": "0x0001",
      "qzhid.status.firmware": "0", "qzhid.status.isp": "1", "qzhid.status.dual_bank": "0"}),
    ("40 E8 00 01 00 00 00 00", "", {"name": "Erase flash", "qzhid.phase": "erasing", "qzhid.address": "0x00000100"}, {}),
    ("40 C8 80 00 01 00 04 00", "01020304",
     {"name": "Write flash", "qzhid.phase": "writing", "qzhid.address": "0x00010080", "qzhid.data": "01020304"}, {}),
    ("C0 D8 80 00 01 00 04 00", "", {"name": "Read flash", "qzhid.phase": "checking", "qzhid.address": "0x00010080"},
     {"qzhid.data": "01020304"}),
    ("40 08 07 50 00 00 00 00", "",
     {"name": "Set download slave", "qzhid.slave.mode": "0x07", "qzhid.slave.address": "0x50"}, {}),
    ("40 06 01 00 00 00 00 00", "", {"name": "Set I2C clock", "qzhid.clock": "1"}, {}),
    ("40 F6 00 00 00 00 03 00", "010203", {"name": "Configure I2C", "qzhid.data": "010203"}, {}),
    ("40 C6 00 10 00 00 02 00" + I2C, "beef",
     {"name": "Write I2C", "qzhid.i2c.target": "0xa0", "qzhid.i2c.memory": "0010", "qzhid.i2c.memory_bytes": "2",
      "qzhid.i2c.speed": "1", "qzhid.i2c.configured": "1", "qzhid.data": "beef"}, {}),
    ("C0 D6 00 10 00 00 02 00" + I2C, "", {"name": "Read I2C", "qzhid.i2c.target": "0xa0"}, {"qzhid.data": "beef"}),
    ("40 D6 00 10 00 00 02 00" + I2C, "", {"name": "Read I2C", "qzhid.i2c.target": "0xa0"}, {"qzhid.data": "beef"}),
    ("40 DC 42 01 00 00 02 00", "0a0b",
     {"name": "Write I2C block", "qzhid.i2c.target": "0x42", "qzhid.block.command": "0x01", "qzhid.data": "0a0b"}, None),
    ("C0 EC 42 02 00 00 01 00", "", {"name": "Read I2C block", "qzhid.i2c.target": "0x42"}, None),
    ("40 F1 10 00 00 00 02 00", "0c0d", {"name": "Write bridge flash", "qzhid.address": "0x00000010", "qzhid.data": "0c0d"}, {}),
    ("C0 F3 00 00 00 00 01 00", "", {"name": "Read bridge flash status"}, {"qzhid.bridge.status": "0"}),
    ("00 CF 20 00 00 00 01 00", "0e", {"name": "Stage bridge flash", "qzhid.address": "0x00000020", "qzhid.data": "0e"}, {}),
    ("C0 F3 00 00 00 00 01 00", "", {"name": "Read bridge flash status"}, {"qzhid.bridge.status": "0"}),
    ("40 F4 00 00 00 00 00 00", "", {"name": "Erase bridge flash"}, {}),
    ("40 F2 11 22", "", {"name": "Send raw block"}, {}),
    ("40 F5 11 22", "aa" * 128, {"name": "Send raw block with data", "qzhid.data": "aa" * 128}, {}),
    ("C0 04 00 03 00 00 01 00", "", {"name": "Read GPIO line", "qzhid.gpio.line": "3"}, {"qzhid.gpio.level": "1"}),
    ("40 0C 00 05 00 01 00 00", "", {"name": "Write GPIO line", "qzhid.gpio.line": "5", "qzhid.gpio.level": "1"}, {}),
    ("40 04 01 01 07 00 00 00", "", {"name": "Set hub GPIO", "qzhid.gpio.line": "7", "qzhid.gpio.level": "1"}, {}),
]
# Requests that the hub refuses, and the marks that they get.
BAD = [
    ("40 D9 02 00 00 00 00 00", "", "Validate image", "The hub refused the request"),
    ("40 C8 00 00 FF 00 01 00", "00", "Write flash", "A write to the flash failed"),
    ("40 7F 00 00 00 00 00 00", "", "Unknown request 0x407F", "Unknown vendor request"),
]
RESETS = [
    ("40 E9 01 01 00 00 00 00", "", {"name": "Reset to the firmware", "qzhid.phase": "starting the firmware"}, {}),
    ("40 00 00 00 00 00 00 00", "", {"name": "Reset to the loader", "qzhid.phase": "entering the loader"}, {}),
]
CHANNELS = {1: ("00", "0", 64), 2: ("F0", "241", 63)}

# As root, newer versions of tshark load no scripts.
NOT_ROOT = {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}


def report(channel, header, data):
    """An output report of 321 bytes."""
    first, _, size = CHANNELS[channel]
    whole = bytes.fromhex(first) + bytes.fromhex(header).ljust(size, b"\0") + bytes.fromhex(data)
    return whole.ljust(321, b"\0").hex(" ")


def is_in(header):
    return header.startswith("C0") or header.startswith("40 D6")


def shown(capture):
    """What is shown of each packet that the dissector knows: all fields, by name."""
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        script, copy = shutil.copyfile(DISSECTOR, f"{folder}/qzhid.lua"), shutil.copyfile(capture, f"{folder}/capture")
        for file in script, copy:
            os.chmod(file, 0o644)
        text = subprocess.run(["tshark", "-2", "-r", copy, "-X", f"lua_script:{script}", "-Y", "qzhid", "-T", "json"],
                              check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              env={**os.environ, "HOME": folder}, **NOT_ROOT)
    problems = [line for line in text.stderr.splitlines() if "Running as user" not in line]
    assert not problems, problems
    packets = []
    for packet in json.loads(text.stdout):
        layers = packet["_source"]["layers"]
        packets.append({"number": int(layers["frame"]["frame.number"]), "text": json.dumps(layers["qzhid"]),
                        **flat(layers["qzhid"])})
    return packets


def flat(tree):
    fields = {}
    for name, value in tree.items():
        if isinstance(value, dict):
            fields.update(flat(value))
        else:
            fields[name] = value.replace(":", "") if isinstance(value, str) else value
    return fields


class DissectorTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)

    def capture(self, requests, channel=1, names="hub"):
        """Sends the requests to a hub in its loader, and returns the file with the capture."""
        file = os.path.join(self.folder, "scenario.json")
        with open(file, "w", encoding="utf-8") as out:
            json.dump({"capture": "wire.pcapng", "record": True, "devices": [
                {"name": "hub", "port": "1", "running": "rom", "channels": [channel], "isp_supported": True,
                 "gpio_high": [3], "bridge_flash": {"busy_polls": 0}, "i2c": [
                     {"kind": "eeprom", "address": "0xA0"}, {"kind": "block", "address": "0x42"}]},
                {"name": "other", "kind": "other", "port": "2", "vid": "0x1234", "pid": "0x5678"}]}, out)
        steps = ["open " + names]
        for header, data in requests:
            steps.append("output " + report(channel, header, data))
            if is_in(header):
                steps.append(f"input 257 {CHANNELS[channel][1]}")
        subprocess.run([SAMPLE, file], input="\n".join(steps) + "\n", check=True, text=True, stdout=subprocess.DEVNULL)
        return os.path.join(self.folder, "wire.pcapng")

    def check(self, packets, rows):
        """The packets are those of the requests in the rows, with these fields."""
        names = dict(re.findall(r"\[0x(\w{4})\] = \{ name = \"(.*?)\"", DISSECTOR.read_text()))
        for header, data, request, answer in rows:
            with self.subTest(header=header):
                first, last = packets[0], packets[3 if is_in(header) else 1]
                del packets[:4 if is_in(header) else 2]
                key = header[:2] + header[3:5]
                self.assertEqual(request["name"], names[key])
                self.assertEqual(int(key, 16), int(first["qzhid.request"], 16))
                for name, value in {**request, "name": None}.items():
                    if value is not None:
                        self.assertEqual(value, first[name], name)
                self.assertEqual(str(first["number"]), last["qzhid.request_in"])
                if answer is None:  # the target decides
                    continue
                self.assertEqual("done", last["qzhid.result"])
                for name, value in answer.items():
                    self.assertEqual(value, last[name], name)
                if is_in(header):
                    self.assertEqual(str(last["number"]), first["qzhid.response_in"])
        self.assertEqual([], packets)

    def test_each_request_is_shown_with_its_fields_and_its_answer_on_both_channels(self):
        for channel in CHANNELS:
            with self.subTest(channel=channel):
                rows = GOOD + RESETS[:1]
                packets = shown(self.capture([row[:2] for row in rows], channel))
                self.assertEqual({str(channel)}, {p["qzhid.channel"] for p in packets if "qzhid.channel" in p})
                self.check(packets, rows)
                os.remove(os.path.join(self.folder, "wire.pcapng"))
        self.check(shown(self.capture([(ENABLE, "")] + [row[:2] for row in RESETS[1:]])), GOOD[:1] + RESETS[1:])

    def test_what_the_hub_refuses_is_marked(self):
        packets = shown(self.capture([(ENABLE, "")] + [row[:2] for row in BAD]))[2:]
        for header, _, name, mark in BAD:
            with self.subTest(name):
                request, completion = packets[:2]
                del packets[:2]
                self.assertEqual("stalled", completion["qzhid.result"])
                self.assertIn(mark, request["text"] + completion["text"])
        self.assertEqual([], packets)

    def test_the_dissector_names_the_requests_that_the_virtual_hub_knows(self):
        known = re.findall(r"^ +\{0x(\w{4}), \d, ", (SOURCE / "virtualhub/hub/hub_requests.cpp").read_text(), re.M)
        self.assertEqual(sorted(known), sorted(re.findall(r"\[0x(\w{4})\] = \{ name", DISSECTOR.read_text())))
        self.assertEqual(set(known), {row[0][:2] + row[0][3:5] for row in GOOD + RESETS + BAD[:1]})

    def test_other_devices_are_not_dissected(self):
        self.assertEqual([], shown(self.capture([row[:2] for row in GOOD[1:]], names="other")))

    def test_captures_of_usbmon_with_the_short_header_and_of_usbpcap_show_the_same(self):
        file = self.capture([row[:2] for row in GOOD + BAD])
        wanted = shown(file)
        self.assertEqual(4 * 8 + 2 * (len(GOOD) - 8 + len(BAD)), len(wanted))
        for link_type, convert in ((captures.USBMON_SHORT, captures.short), (captures.USBPCAP, captures.usbpcap)):
            with self.subTest(link_type):
                other = os.path.join(self.folder, "other")
                captures.pcap(other, link_type, [(time, convert(packet)) for time, packet in captures.packets(file)])
                self.assertEqual(wanted, shown(other))


if shutil.which("tshark") is None:
    print("skipped: no tshark")
    sys.exit(77)
unittest.main(argv=sys.argv[:1])
