"""captures_test.py QZHID QZHUB SUPPORT: hubs that repeat captures, and what 'qzhid explain' says about
captures. SUPPORT is the folder of captures.py."""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

QZHID, QZHUB = (os.path.abspath(program) for program in sys.argv[1:3])
sys.path.append(sys.argv[3])
import captures  # pylint: disable=wrong-import-position

HUB = {"name": "hub", "port": "3.1"}
REPLAY = {"name": "hub", "kind": "replay", "port": "3.1", "capture": "given.pcapng"}
KEYBOARD = {"name": "keyboard", "kind": "other", "port": "5"}
WRITE = {"on": "request", "request": "40/C8", "nth": 100, "device": "hub"}
HEADER, REPORT = 64, 320  # bytes of a packet with an output report


def qzhid(*arguments):
    return subprocess.run([QZHID, "--virtual", *arguments], capture_output=True, timeout=120, text=True,
                          stdin=subprocess.DEVNULL, check=False)


def machine(*devices, **more):
    pathlib.Path("scenario.json").write_text(json.dumps({"time": "virtual", "devices": devices, **more}))


def update(log="", image="new.bin", command="update"):
    """Updates or recovers the hub, and returns what the program wrote and the log without what differs each time: handles, and
    the name of the copy of the image."""
    pathlib.Path(log).unlink(missing_ok=True)
    done = qzhid(command, "--image", image, "--yes", "--retries", "0", "--wait", "0", "--log", log)
    return done, re.sub(r"0x[0-9a-f]{8,}|qzhid-\w+/", "OTHER", pathlib.Path(log).read_text())


def command_for(hub):
    return "recover" if (hub or {}).get("running") == "rom" else "update"


def capture(*faults, hub=None, others=()):
    """Updates a hub, and returns the same and what the worker process captured."""
    for old in pathlib.Path().glob("wire*"):
        old.unlink()
    machine({**HUB, **(hub or {})}, *others, capture="wire.pcapng", faults=faults)
    done, log = update("first.log", command=command_for(hub))
    return done, log, captures.packets("wire-2.pcapng")


def explain(*arguments):
    done = qzhid("explain", *arguments, "--json")
    return done.returncode, json.loads(done.stdout)


def jobs(account):
    return [job for log in account["logs"] for session in log["sessions"] for job in session["jobs"]]


# How other programs write the packets.
FORMS = {
    "pcapng": lambda file, packets: captures.pcapng(file, captures.USBMON, packets),
    "pcapng of a big-endian computer": lambda file, packets: captures.pcapng(
        file, captures.USBMON, [(time, captures.big_endian(packet)) for time, packet in packets], order=">"),
    "pcapng with old blocks": lambda file, packets: captures.pcapng(file, captures.USBMON, packets, old=True),
    "pcap of QEMU": lambda file, packets: captures.pcap(
        file, captures.USBMON, [(time, captures.qemu(packet)) for time, packet in packets]),
    "pcap": lambda file, packets: captures.pcap(file, captures.USBMON, packets),
    "pcap of a big-endian computer": lambda file, packets: captures.pcap(
        file, captures.USBMON, [(time, captures.big_endian(packet)) for time, packet in packets], order=">"),
    "pcap with nanoseconds": lambda file, packets: captures.pcap(file, captures.USBMON, packets, ticks=10**9),
    "short headers": lambda file, packets: captures.pcap(
        file, captures.USBMON_SHORT, [(time, captures.short(packet)) for time, packet in packets]),
    "USBPcap": lambda file, packets: captures.pcap(
        file, captures.USBPCAP, [(time, captures.usbpcap(packet)) for time, packet in packets]),
    "USBPcap with stages": lambda file, packets: captures.pcap(
        file, captures.USBPCAP, [(time, each) for time, packet in packets for each in captures.usbpcap_stages(packet)]),
}


class CapturesTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        os.chdir(scratch.name)
        self.addCleanup(os.chdir, "/")
        subprocess.run([QZHUB, "image", "--out", "new.bin", "--version", "0210"], check=True)

    def give(self, packets, form="pcap"):
        FORMS[form]("given.pcapng", packets)


class ReplayTest(CapturesTest):
    def check_replay(self, done, log, device=None, command="update"):
        machine(device or REPLAY)
        again, log_again = update("again.log", command=command)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (again.returncode, again.stdout, again.stderr))
        self.assertEqual(log, log_again)

    def test_an_update_of_a_replayed_hub_has_the_same_log(self):
        for hub in {}, {"dual_bank": True}, {"out_endpoint": "both"}, {"running": "rom"}:
            with self.subTest(hub=hub):
                done, log, packets = capture(hub=hub)
                self.assertEqual(0, done.returncode, done.stderr)
                self.give(packets)
                self.check_replay(done, log, command=command_for(hub))

    def test_captures_of_all_programs_are_replayed(self):
        done, log, packets = capture()
        for form in FORMS:
            with self.subTest(form):
                self.give(packets, form)
                self.check_replay(done, log)

    def test_a_failure_is_replayed_too(self):
        for fault in ({**WRITE, "action": "stall"}, {**WRITE, "action": "power_loss", "return_ms": 500},
                      {"on": "reset", "nth": 1, "action": "never_return"}, {**WRITE, "action": "fail", "code": 110}):
            with self.subTest(fault):
                done, log, packets = capture(fault)
                self.give(packets)
                self.check_replay(done, log)

    def test_a_host_that_differs_is_told_the_frame_and_the_byte(self):
        _, _, packets = capture()
        self.give(packets)
        machine(REPLAY)
        subprocess.run([QZHUB, "image", "--out", "other.bin", "--version", "0211"], check=True)
        done, _ = update("other.log", "other.bin")
        (message,) = [line for line in done.stderr.splitlines() if line.startswith("virtualhub:")]
        words = re.fullmatch(r"virtualhub: hub: the host sends 0x(..) as byte (\d+) of the report, which is 0x(..) "
                             r"in frame (\d+), byte (\d+)", message)
        sent, place, captured, frame, byte = words.groups()
        packet = packets[int(frame) - 1][1]
        self.assertEqual(int(captured, 16), packet[int(byte)])
        self.assertEqual(HEADER + int(place) - 1, int(byte), "an ID that is 0 is not in the frame")
        offset = int.from_bytes(packet[HEADER + 2:HEADER + 6], "little") + int(place) - 65
        self.assertEqual(int(sent, 16), pathlib.Path("other.bin").read_bytes()[offset])
        self.assertNotEqual(0, done.returncode)

    def test_what_differs_in_kind_is_said_as_well(self):
        _, _, packets = capture()
        self.give(packets[:20])
        machine(REPLAY)
        done = qzhid("gpio", "get", "3")
        self.assertRegex(done.stderr, "virtualhub: hub: the host sends .* in frame 19, byte 6[45]")
        self.give(packets[:14 + 2 * 14])
        done = qzhid("info")
        self.assertIn("virtualhub: hub: the capture ends with frame 42", done.stderr)

    def test_the_hub_keeps_its_captured_descriptors_in_a_new_capture(self):
        _, _, packets = capture(hub={"dual_bank": True}, others=())
        self.give(packets)
        machine(REPLAY, capture="again.pcapng")
        update("again.log")
        again = captures.packets("again-2.pcapng")
        self.assertEqual([packet[8:16] + packet[28:] for _, packet in packets],
                         [packet[8:16] + packet[28:] for _, packet in again])

    def test_one_of_several_hubs_is_chosen_by_its_addresses(self):
        # A capture with two hubs: the packets of another one are mixed in.
        _, _, packets = capture(others=())
        other = [(time, packet[:8].replace(packet[:1], bytes([packet[0] ^ 0x80])) + packet[8:11] + b"\x50" + packet[12:])
                 for time, packet in packets[:60]]
        self.give(sorted(packets + other, key=lambda pair: pair[0]))
        machine(REPLAY)
        done = qzhid("list")
        self.assertIn('/devices/0/capture: given.pcapng has hubs at 1.1 and 1.80 at the same time; "addresses" must name '
                      "those of one", done.stderr)
        machine({**REPLAY, "addresses": ["1.80"]})
        self.assertEqual((0, ""), (qzhid("list").returncode, qzhid("list").stderr))
        machine({**REPLAY, "addresses": ["1-80"]})
        self.assertIn('/devices/0/addresses/0: an address is written as "1.7"', qzhid("list").stderr)

    def test_a_process_that_begins_in_the_middle_gets_a_first_frame(self):
        done, log, packets = capture()
        twice = [(time, packet[:7] + b"\1" + packet[8:]) for time, packet in packets[14:42]]
        self.give(packets[:14] + twice + packets[14:])
        machine(REPLAY)
        self.assertIn("virtualhub: hub:", update("again.log")[0].stderr)
        self.check_replay(done, log, {**REPLAY, "first_frame": 15 + len(twice)})

    def test_a_capture_without_the_arrival_is_replayed_with_what_the_hub_says_itself(self):
        done, log, packets = capture()
        self.give(packets[14:])
        self.check_replay(done, log)

    def test_captures_that_cannot_be_used_are_rejected(self):
        _, _, packets = capture()
        self.give(packets)
        whole = pathlib.Path("given.pcapng").read_bytes()
        long = bytearray(whole)
        long[24 + 8:24 + 12] = b"\xff" * 4
        answer = next(i for i, (_, packet) in enumerate(packets) if packet[8:11] == b"C\x02\x80" and len(packet) == HEADER + 256)
        cut = [(time, packet[:200] if i == answer else packet) for i, (time, packet) in enumerate(packets)]
        FORMS["pcap"]("cut", cut)
        captures.pcap("network", 1, packets)
        captures.pcap("empty", 220, [])
        captures.pcap("short", 220, [(0, b"x" * 40)])
        captures.pcap("keyboard", 220, packets[:1])
        for name, data, words in (
                ("missing", None, "cannot be opened: No such file or directory"),
                ("text", b"no capture at all", "is no capture"), ("short-magic", b"\xd4", "is no capture"),
                ("half-heading", whole[:20], "ends in its heading"),
                ("long", bytes(long), "is damaged at byte 24, after frame 0: a packet has a length of 4294967295"),
                ("cut", None, f"has only a part of the answer in frame {answer + 1}; whole packets are needed"),
                ("network", None, "has no packets of usbmon, USBPcap or QEMU, but of link type 1"),
                ("empty", None, "has no packets"), ("short", None, "has a frame 1 of 40 bytes, which must have 64"),
                ("keyboard", None, "has no requests to a hub"), (".", None, "is a folder")):
            if data is not None:
                pathlib.Path(name).write_bytes(data)
            machine({**REPLAY, "capture": name})
            done = qzhid("list")
            self.assertIn(f"virtualhub: scenario.json: /devices/0/capture: {name} {words}\n", done.stderr)

    def test_a_last_packet_that_is_cut_off_is_ignored(self):
        done, log, packets = capture()
        self.give(packets + packets[-1:])
        whole = pathlib.Path("given.pcapng").read_bytes()
        for size in len(packets[-1][1]) + 15, 10:
            pathlib.Path("given.pcapng").write_bytes(whole[:-size])
            self.check_replay(done, log)


class ExplainCaptureTest(CapturesTest):
    def test_a_capture_and_its_log_tell_the_same(self):
        faults = [None, {**WRITE, "action": "stall"}, {**WRITE, "action": "power_loss", "return_ms": 500},
                  {"on": "request", "request": "40/00", "device": "hub", "action": "stall"},
                  {"on": "request", "request": "40/00", "device": "hub", "action": "lose_write"},
                  {"on": "request", "request": "40/E8", "device": "hub", "action": "stall"},
                  {"on": "request", "request": "C0/D8", "nth": 7, "device": "hub", "action": "stall"},
                  {"on": "request", "request": "40/E9", "device": "hub", "action": "stall"}]
        for hub in {}, {"dual_bank": True}, {"running": "rom"}:
            for fault in faults if hub != {"running": "rom"} else faults[:3]:
                if hub == {"dual_bank": True} and fault and fault["request"] == "40/00":
                    continue
                with self.subTest(hub=hub, fault=fault):
                    _, _, packets = capture(*([fault] if fault else []), hub=hub)
                    self.give(packets)
                    status, wire = explain("given.pcapng")
                    _, log = explain("first.log")
                    (seen,) = [job for job in jobs(wire) if job["title"] == "update"]
                    (told,) = [job for job in jobs(log) if job["title"] == "update"]
                    names = ("call", "result", "hub", "version", "in_loader")
                    self.assertEqual({name: told[name] for name in names}, {name: seen[name] for name in names})
                    # A step that sends nothing is not in a capture.
                    steps = [step["step"] for step in told["steps"] if step["step"] != "load the image"]
                    if not hub and not fault:
                        self.assertEqual(steps, [step["step"] for step in seen["steps"]])
                    self.assertEqual((1, 1) if fault else (0, 0), (status, wire["problems"]))
                    if fault:
                        same = ("step", "what", "hub", "advice", "code", "code_name", "request")
                        self.assertEqual({name: told["problem"][name] for name in same},
                                         {name: seen["problem"][name] for name in same})
                        self.assertEqual(0, wire["logs"][0]["unknown_lines"])

    def test_steps_have_milliseconds_and_the_places_of_the_hub(self):
        _, _, packets = capture()
        self.give(packets)
        _, account = explain("given.pcapng")
        (log,) = account["logs"]
        (session,) = log["sessions"]
        self.assertEqual(("capture", len(packets), ["1.1", "1.2", "1.3"]), (log["kind"], log["lines"], session["addresses"]))
        took = {step["step"]: step["milliseconds"] for step in jobs(account)[1]["steps"]}
        self.assertEqual(601, took["erase"])
        self.assertEqual(868, took["wait for the loader"])
        frames = [job["first_line"] for job in jobs(account)]
        self.assertEqual(frames, sorted(frames))

    def test_what_was_not_written_is_found_when_it_is_read_back(self):
        _, _, packets = capture({**WRITE, "nth": 20, "action": "lose_write"})
        self.give(packets)
        status, account = explain("given.pcapng")
        (problem,) = [job["problem"] for job in jobs(account) if job["problem"]]
        self.assertEqual((1, "check"), (status, problem["step"]))
        self.assertRegex(problem["what"], r"0xFF was read back at 0x0009\w\w, where 0x\w\w was written")

    def test_a_capture_that_ends_in_an_update_says_where(self):
        _, _, packets = capture()
        reset = next(i for i, (_, packet) in enumerate(packets) if packet[HEADER:HEADER + 2] == b"\x40\0")
        for end, step, words in ((reset + 2, "wait for the loader", "the capture ends, and the hub has not come back"),
                                 (reset + 100, "write", "the capture ends: the program ended there, or the capture is cut"),
                                 (reset + 101, "write", "the capture ends")):
            self.give(packets[:end])
            status, account = explain("given.pcapng")
            (job,) = [job for job in jobs(account) if job["problem"]]
            self.assertEqual((1, "unfinished", step), (status, job["result"], job["problem"]["step"]))
            self.assertIn(words, job["problem"]["what"])

    def test_a_cut_capture_and_one_without_the_arrival_are_marked(self):
        _, _, packets = capture()
        self.give(packets[14:])
        self.assertEqual((True, False), tuple(explain("given.pcapng")[1]["logs"][0][name] for name in ("cut_at_start", "cut_at_end")))
        self.give(packets)
        whole = pathlib.Path("given.pcapng").read_bytes()
        pathlib.Path("given.pcapng").write_bytes(whole[:-5])
        self.assertEqual((False, True), tuple(explain("given.pcapng")[1]["logs"][0][name] for name in ("cut_at_start", "cut_at_end")))

    def test_requests_outside_updates_are_counted_by_kind(self):
        machine({**HUB, "i2c": []}, capture="wire.pcapng")
        qzhid("info")
        qzhid("i2c", "read", "--target", "0xA2", "--memory", "0x10", "--length", "4")
        status, account = explain("wire.pcapng")
        self.assertEqual(0, status)
        titles = [job["title"] for job in jobs(account)]
        self.assertEqual(24, titles.count("read a GPIO line"))
        status, account = explain("wire-2.pcapng")
        (problem,) = [job["problem"] for job in jobs(account) if job["problem"]]
        self.assertIn("read 4 bytes from the I2C target 0xA2 at 0x000010", problem["what"])
        self.assertEqual((1, "EPIPE"), (status, problem["code_name"]))

    def test_text_page_and_standard_input_have_the_account_too(self):
        _, _, packets = capture({**WRITE, "action": "stall"})
        self.give(packets)
        done = qzhid("explain", "given.pcapng", "--html", "page.html")
        self.assertIn("      frame   ", done.stdout)
        self.assertIn("2E7C:0818 running 1.02", done.stdout)
        self.assertRegex(done.stdout, r"erase 0\.60\d s")
        page = pathlib.Path("page.html").read_text()
        self.assertIn("Frame ", page)
        with open("given.pcapng", "rb") as stream:
            again = subprocess.run([QZHID, "explain", "-"], stdin=stream, capture_output=True, text=True, check=False)
        self.assertEqual(done.stdout.replace("given.pcapng", "standard input"), again.stdout)

    def test_a_damaged_capture_is_no_account(self):
        _, _, packets = capture()
        FORMS["pcapng"]("given.pcapng", packets)
        data = bytearray(pathlib.Path("given.pcapng").read_bytes())
        data[2000] ^= 0xFF
        for at in range(1000, 3000, 44):
            damaged = bytes(data[:at]) + b"\1\0\0\0" + bytes(data[at + 4:])
            pathlib.Path("damaged").write_bytes(damaged)
            done = qzhid("explain", "damaged")
            self.assertIn(done.returncode, (0, 1))
        pathlib.Path("damaged").write_bytes(bytes(data[:32]) + b"\1\0\0\0" + bytes(data[36:]))
        self.assertIn("the capture damaged is damaged at byte 28, after frame 0", qzhid("explain", "damaged").stderr)


os.environ["QZ_VIRTUAL_HUB"] = "scenario.json"
unittest.main(argv=sys.argv[:1])
