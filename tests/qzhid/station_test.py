"""station_test.py SOURCE QZHID WORK: runs stations on virtual hubs that a control file plugs and
unplugs, kills them, and reads their records."""
import csv
import ctypes
import datetime
import hashlib
import json
import os
import pathlib
import platform
import pty
import random
import resource
import signal
import socket
import struct
import subprocess
import sys
import threading
import time

from jsonschema import Draft202012Validator

source, work = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[3])
program = os.path.abspath(sys.argv[2])
schema = json.loads((source / "docs/qzhid.schema.json").read_text())
validator = Draft202012Validator({**schema, "anyOf": [{"$ref": "#/$defs/record"}]})
image = work / "0210.bin"
patience = 60
failed = False
quick = {"latency_us": 200, "erase_ms": 10, "leave_ms": 1, "return_ms": 260, "ready_ms": 1}
slow = {**quick, "latency_us": 3000}


def check(condition, text):
    global failed
    if not condition:
        failed = True
        print(f"{bench.name}: {text}", file=sys.stderr)


def equal(wanted, got, text):
    check(wanted == got, f"{text}: {got} instead of {wanted}")


def until(condition, text):
    """Waits until the condition holds; returns what it gives."""
    end = time.monotonic() + patience
    while not (value := condition()):
        if time.monotonic() > end:
            print("".join(bench.printed[-40:]), file=sys.stderr)
            sys.exit(f"{bench.name}: no {text}")
        time.sleep(0.01)
    return value


class Bench:
    """A machine with a control file and a record file, and a station on it."""

    def __init__(self, name, devices, faults=()):
        global bench
        bench = self
        self.name, self.station, self.printed = name, None, []
        self.folder = work / name
        self.folder.mkdir()
        self.record, self.csv = self.folder / "units.jsonl", self.folder / "units.csv"
        self.scenario = self.write("scenario.json", devices, faults)
        (self.folder / "control").touch()

    def write(self, name, devices, faults=()):
        file = self.folder / name
        file.write_text(json.dumps({"state_folder": "state", "control": "control",
                                    "devices": devices, "faults": list(faults)}))
        return file

    def do(self, line):
        with open(self.folder / "control", "a") as control:
            control.write(line + "\n")

    def environment(self, scenario=None, **more):
        return {**os.environ, "QZ_VIRTUAL_HUB": str(scenario or self.scenario), **more}

    def run(self, *arguments, scenario=None):
        return subprocess.run([program, "--virtual", *map(str, arguments)], capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, env=self.environment(scenario), timeout=patience)

    def start(self, *arguments, stdin=subprocess.DEVNULL, before=None, csv=True, **environment):
        tables = ["--csv", self.csv] if csv else []
        command = [program, "--virtual", "station", "--image", image, "--record", self.record,
                   *tables, *arguments]
        self.station = subprocess.Popen(
            list(map(str, command)), stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            text=True, env=self.environment(**environment), start_new_session=True, preexec_fn=before)
        threading.Thread(target=self.listen, args=[self.station.stdout], daemon=True).start()

    def listen(self, output):
        for line in output:
            self.printed.append(line)

    def says(self, text):
        return any(text in line for line in list(self.printed))

    def await_text(self, text):
        until(lambda: self.says(text), f"'{text}'")

    def end(self):
        """Waits for the end; the exit status."""
        status = self.station.wait(patience)
        return status

    def stop(self):
        self.station.send_signal(signal.SIGINT)
        return self.end()

    def records(self):
        """Those in the file. A last line without an end is being written."""
        whole = self.record.read_text().split("\n")[:-1] if self.record.exists() else []
        return [json.loads(line) for line in whole]

    def await_records(self, count):
        until(lambda: len(self.records()) >= count, f"record {count}")
        return self.records()

    def check_files(self):
        """All records are as described, and the table holds the same."""
        text = self.record.read_text()
        check(not text or text.endswith("\n"), "the last line has no end")
        for record in self.records():
            for error in validator.iter_errors(record):
                check(False, f"a record is not as described: {error.message}: {record}")
        with open(self.csv, newline="") as file:
            header, *rows = csv.reader(file)
        texts = [["" if value is None else value if isinstance(value, str) else json.dumps(value)
                  for value in record.values()] for record in self.records()]
        equal(texts, rows, "the table")
        if texts:
            equal(list(self.records()[0]), header, "the header of the table")


def now():
    time_now = datetime.datetime.now(datetime.timezone.utc)
    return time_now.replace(microsecond=time_now.microsecond // 1000 * 1000)  # as in records


def hub(name, port, **members):
    return {"name": name, "port": port, "timing": quick, **members}


def outcomes(records):
    return [(record["bay"], record["outcome"]) for record in records]


def limit_files(size):
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, -1))


def refuse_fsync():
    """From now on, the kernel answers each fsync of this process with an input/output error."""
    call = {"x86_64": 74, "aarch64": 82}[platform.machine()]
    load, compare, answer = 0x20, 0x15, 0x06
    program = b"".join(struct.pack("HBBI", *step) for step in (
        (load, 0, 0, 0), (compare, 0, 1, call), (answer, 0, 0, 0x50005), (answer, 0, 0, 0x7FFF0000)))
    steps = ctypes.create_string_buffer(program)
    filter_ = ctypes.create_string_buffer(struct.pack("HP", len(program) // 8, ctypes.addressof(steps)))
    prctl = ctypes.CDLL(None).prctl
    if prctl(38, 1, 0, 0, 0) != 0 or prctl(22, 2, filter_, 0, 0) != 0:
        raise OSError("no filter for system calls")


def stall(device, request):
    return {"on": "request", "request": request, "count": 0, "device": device, "action": "stall"}


def outcomes_of_all_kinds():
    closed = {"on": "call", "service": "OpenHidDevice", "count": 0, "device": "closed",
              "action": "fail", "code": 13}
    bench = Bench("outcomes", [
        hub("old", "1"), hub("current", "2", image={"version": "0x0210"}),
        hub("foreign", "3", image={"vid": "0x2E7D"}), hub("closed", "4"),
        hub("loader", "5", image=None), hub("newer", "6", image={"version": "0x0300"}),
        hub("stranger", "7"), hub("broken", "8"), hub("stubborn", "9")],
        [closed, stall("broken", "40/C8"), stall("stubborn", "40/00")])
    bays, began = [f"--bay=b{port}=1-{port}" for port in (*range(1, 7), 8, 9)], now()
    bench.start(*bays, "--once", 8, "--retries", 0)
    equal(1, bench.end(), "exit status")
    told = {record["bay"]: (record["from"], record["runs"], record["outcome"], record["status"],
                            record["recovered"]) for record in bench.records()}
    equal({"b1": ("1.02", "2.10", "updated", 0, False), "b2": ("2.10", "2.10", "current", 0, False),
           "b3": ("1.02", "1.02", "refused", 5, False), "b4": ("?", "?", "refused", 4, False),
           "b5": ("loader", "2.10", "updated", 0, True), "b6": ("3.00", "3.00", "refused", 5, False),
           "b8": ("1.02", "loader", "loader", 7, False), "b9": ("1.02", "1.02", "failed", 1, False)},
          told, "records")
    equal(8, len(bench.records()), "number of records")
    for record in bench.records():
        if record["status"]:
            wanted = {"refused": "put the unit aside", "loader": "unplug it, and plug it in again",
                      "failed": "plug it into another bay once"}[record["outcome"]]
            bench.await_text(f"bay {record['bay']}: FAIL: {record['outcome']}: {record['what']}; {wanted}\n")
    record = next(record for record in bench.records() if record["bay"] == "b1")
    whole = {**record, "port_id": "1-1", "location": "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(1)",
             "label": None, "vid": "2E7C", "pid": "0818", "image": "0210.bin",
             "sha256": hashlib.sha256(image.read_bytes()).hexdigest(), "what": None, "next": None,
             "retries": 0, "program": bench.run("--version").stdout.split()[1],
             "host": socket.gethostname()}
    equal(whole, record, "a whole record")
    start, end = (datetime.datetime.fromisoformat(record[key].replace("Z", "+00:00"))
                  for key in ("start", "end"))
    check(began <= start and end <= now(), f"a unit from {start} to {end}")
    check(abs((end - start).total_seconds() - record["seconds"]) < 1, f"{record['seconds']} seconds")
    equal(1, sum("1-7" in line for line in bench.printed), "remarks on a hub that is in no bay")
    bench.check_files()


def a_done_hub_is_left_alone_until_it_is_unplugged():
    bench = Bench("left_alone", [hub("one", "1"), hub("two", "1", plugged=False)])
    bench.start("--bay", "a=1-1")
    bench.await_records(1)
    for _ in range(2):
        bench.do("power-loss one 800")
        time.sleep(1.5)  # the time in which nothing must happen
    equal(1, len(bench.records()), "records of a hub that resets")
    bench.do("unplug one")
    bench.await_text("unplugged")
    bench.do("plug two")
    equal([("a", "updated")] * 2, outcomes(bench.await_records(2)), "records")
    bench.await_text("bay a: PASS")
    equal(0, bench.stop(), "exit status")
    check(not bench.says("finished first"), "it waits for hubs that it does not write")
    bench.check_files()


def a_hub_that_is_pulled_out_is_the_same_one_or_lost():
    bench = Bench("pulled", [hub("one", "1", timing=slow), hub("two", "2", timing=slow)])
    bench.start("--wait", 4)
    for name, port in ("one", 1), ("two", 2):
        bench.await_text(f"1-{port}: writing")
        bench.do(f"unplug {name}")
    time.sleep(2.5)
    bench.do("plug one")
    records = {record["bay"]: record for record in bench.await_records(2)}
    equal(("updated", 1), tuple(records["1-1"][key] for key in ("outcome", "retries")), "put back")
    equal(("lost", 6, "?"), tuple(records["1-2"][key] for key in ("outcome", "status", "runs")), "lost")
    bench.await_text("and the hub has left the bus; check the cable, and plug it in again")
    bench.do("plug two")
    again = bench.await_records(3)[2]
    equal(("1-2", "loader", "updated", True),
          tuple(again[key] for key in ("bay", "from", "outcome", "recovered")), "plugged in again")
    equal(0, bench.stop(), "exit status")
    bench.check_files()


def a_lost_hub_is_left_alone_until_it_is_unplugged():
    while True:
        bench = Bench(f"lost{time.monotonic_ns()}", [hub("one", "1", timing=slow)])
        bench.start("--wait", 0)
        bench.await_text("writing")
        unplugged = time.monotonic()
        bench.do("unplug one")
        bench.await_records(1)
        bench.do("plug one")
        if time.monotonic() - unplugged < 1:  # so it was no unplugging
            break
        bench.station.kill()
    time.sleep(1.5)  # the time in which nothing must happen
    bench.stop()
    equal([("1-1", "lost")], outcomes(bench.records()), "records")


def an_interrupt_lets_the_hubs_be_finished():
    bench = Bench("interrupt", [hub("one", "1", timing=slow), hub("two", "2", plugged=False)])
    bench.start()
    bench.await_text("writing")
    bench.station.send_signal(signal.SIGINT)
    bench.await_text("finished first")
    bench.do("plug two")
    equal(0, bench.end(), "exit status")
    equal([("1-1", "updated")], outcomes(bench.records()), "records")


def labels_belong_to_the_bay_that_asks_first_or_the_next_hub():
    bench = Bench("labels", [hub("one", "1", plugged=False), hub("two", "2", plugged=False),
                             hub("three", "3", plugged=False)])
    keyboard, terminal = pty.openpty()
    bench.start("--ask-label", "--once", 3, stdin=terminal)
    until(bench.record.exists, "record file")
    os.write(keyboard, b"A-1\n\nA-1\nA-2\n")
    bench.await_text("A-2")
    bench.do("plug one")
    bench.await_records(1)
    for name, port in ("two", 2), ("three", 3):
        bench.do(f"plug {name}")
        bench.await_text(f"1-{port}: a hub has arrived; scan its label")
    equal(1, len(bench.records()), "records without a label")
    os.write(keyboard, b'  B "x", y\tz \n' * 2)  # read twice by mistake
    bench.await_records(2)
    bench.await_text('label B "x", y z was scanned again; it is that of bay 1-2')
    os.write(keyboard, b"C" * 201 + b"\n=C\xff\n")
    equal(0, bench.end(), "exit status")
    equal({"1-1": "A-2", "1-2": 'B "x", y z', "1-3": "=C\ufffd"},
          {record["bay"]: record["label"] for record in bench.records()}, "labels")
    bench.check_files()
    bench.start("--ask-label")
    equal(0, bench.end(), "exit status without a keyboard")


def a_full_disk_stops_the_line_before_the_next_unit():
    bench = Bench("full", [hub("one", "1"), hub("two", "2", plugged=False, timing=slow)])
    bench.start("--bay=a=1-1", "--bay=b=1-2", before=lambda: limit_files(1000))
    bench.await_text("the line has stopped: the record file")
    time.sleep(2.5)  # tried again, in vain
    equal("1.02", json.loads(bench.run("list", "--json").stdout)["hubs"][0]["version"], "what the hub runs")
    station = bench.station.pid
    resource.prlimit(station, resource.RLIMIT_FSIZE, (-1, -1))
    bench.await_records(1)
    bench.do("plug two")
    bench.await_text("bay b: writing")
    resource.prlimit(station, resource.RLIMIT_FSIZE, (bench.record.stat().st_size + 10, -1))
    until(lambda: sum("has stopped" in line for line in bench.printed) == 2, "second stop")
    check(not bench.says("bay b: PASS"), "a unit without a record has passed")
    equal(1, len(bench.records()), "records on a full disk")
    check(bench.record.read_text().endswith("\n"), "a part of a record")
    resource.prlimit(station, resource.RLIMIT_FSIZE, (-1, -1))
    equal([("a", "updated"), ("b", "updated")], outcomes(bench.await_records(2)), "records")
    bench.await_text("bay b: PASS")
    bench.stop()
    bench.check_files()


def there_is_room_for_the_units_under_way():
    bench = Bench("room", [hub("one", "1", timing=slow), hub("two", "2", timing=slow)])
    old = json.dumps({"schema": 1, "filler": "x" * 500000}, separators=(",", ":")) + "\n"
    bench.record.write_text(old)  # so that the limit, which is also that of the workers, is none to them
    bench.start("--once", 2, csv=False, before=lambda: limit_files(len(old) + 20000))
    bench.await_text("the line has stopped: the record file")  # with room for one of two
    equal(0, bench.end(), "exit status")
    equal(["updated"] * 2, [record["outcome"] for record in bench.records()[1:]], "records")


def a_record_that_is_not_on_the_disk_is_kept_and_printed_at_the_end():
    bench = Bench("kept", [hub("one", "1")])
    bench.start(csv=False, before=refuse_fsync)
    bench.await_text(f"the record file {bench.record} cannot be written: Input/output error")
    equal(1, bench.stop(), "exit status")
    check(not bench.says("PASS"), "a unit without a record has passed")
    equal("", bench.record.read_text(), "the record file")
    until(lambda: bench.says("the record file lacks 1 record"), "last message")
    equal(["updated"], [json.loads(line)["outcome"] for line in bench.printed if line.startswith("{")],
          "records on standard error")


def a_record_file_that_is_moved_stops_the_line():
    bench = Bench("moved", [hub("one", "1", plugged=False)])
    bench.start("--once", 1)
    until(lambda: bench.csv.exists() and bench.csv.stat().st_size > 0, "table")
    aside = bench.record.rename(bench.folder / "aside")
    bench.do("plug one")
    bench.await_text(f"the line has stopped: the record file {bench.record} was moved, replaced or deleted")
    equal("1.02", json.loads(bench.run("list", "--json").stdout)["hubs"][0]["version"], "what the hub runs")
    aside.rename(bench.record)
    equal(0, bench.end(), "exit status")
    equal([("1-1", "updated")], outcomes(bench.records()), "records")


def the_page_is_replaced_in_one_step():
    bench = Bench("page", [hub("one", "1")])
    page, link, pipe = (bench.folder / name for name in ("page.html", "link.html", "pipe"))
    page.touch()
    link.symlink_to(page.name)
    bench.start("--page", link)
    until(lambda: page.stat().st_size, "page")
    with open(page) as old:
        until(lambda: page.stat().st_ino != os.fstat(old.fileno()).st_ino, "next page")
        check(old.read().endswith("</html>\n"), "a part of a page")
    bench.await_text("PASS")
    bench.stop()
    check(link.is_symlink(), "the page has replaced a link")
    os.mkfifo(pipe)
    bench.start("--page", pipe, "--once", 1)
    equal(0, bench.end(), "exit status with a page that is a pipe")
    bench.await_text(f"the page {pipe} is not a regular file; the line goes on without it")


def files_are_repaired_or_refused():
    bench = Bench("files", [hub("one", "1")])
    bench.start("--once", 1)
    bench.end()
    whole, table = bench.record.read_text(), bench.csv.read_text()
    for end, aside in (whole[:50], whole[:50] + "\n"), (whole[:-1], None):
        bench.record.write_text(whole + end)
        bench.csv.write_text(table[:-7])
        bench.start("--once", 1)
        bench.end()
        torn = bench.folder / "units.jsonl.torn"
        equal(aside, torn.read_text() if torn.exists() else None, "moved aside")
        torn.unlink(missing_ok=True)
        equal(2 if aside else 3, len(bench.records()), "records")
        bench.check_files()
    for name, option, content in ("units.jsonl", "--record", "{}\n"), ("units.csv", "--csv", "a,b\n"):
        file = bench.folder / name
        file.write_text(content)
        more = [] if option == "--record" else ["--record", bench.folder / "new.jsonl"]
        result = bench.run("station", "--image", image, option, file, *more)
        equal((1, content), (result.returncode, file.read_text()), "a file of something else")
    known = {"--image": image, "--record": bench.record, "--csv": bench.csv, "--page": bench.folder / "page"}
    for one, other in ("--page", "--record"), ("--csv", "--record"), ("--page", "--image"), ("--log", "--page"):
        files = {**known, one: os.path.relpath(known[other])}
        before = [file.exists() and file.read_bytes() for file in known.values()]
        result = bench.run("station", *(word for pair in files.items() for word in pair), "--once", 1)
        equal((2, True), (result.returncode, "name the same file" in result.stderr), f"{one} as {other}")
        equal(before, [file.exists() and file.read_bytes() for file in known.values()], "files")
    for file in "/dev/full", bench.folder, "/nowhere/file":
        result = bench.run("station", "--image", image, "--record", file)
        equal((1, True), (result.returncode, "the record file" in result.stderr), f"record file {file}")


def a_wanted_number_of_units_is_not_exceeded():
    bench = Bench("number", [hub(f"h{port}", str(port)) for port in (1, 2, 3)])
    bench.start("--once", 2)
    equal(0, bench.end(), "exit status")
    equal(2, len(bench.records()), "records")
    versions = [entry["version"] for entry in json.loads(bench.run("list", "--json").stdout)["hubs"]]
    equal(["1.02", "2.10", "2.10"], sorted(versions), "what the hubs run")


def wrong_bays_are_rejected():
    bench = Bench("bays", [hub("one", "1")])
    for bays in ["a=1-1", "b=1-1"], ["a=1-1", "a=1-2"], ["a"], ["=1-1"], ["a="], ["a=b"], ["a=1-b"]:
        result = bench.run("station", "--image", image, "--record", bench.record,
                           *(f"--bay={bay}" for bay in bays))
        equal((2, False), (result.returncode, bench.record.exists()), f"bays {bays}")


def a_bay_is_one_port():
    other = {"location_paths": ["PCIROOT(0)#PCI(1500)#USBROOT(0)#USB(1)"]}
    bench = Bench("ports", [hub("one", "1"), hub("two", "2", usb=other)])
    bench.start("--bay=a=1-1", "--bay=b=1400/1-1")
    bench.await_records(1)
    bench.await_text("bay b has the same port as bay a, which gets its hubs")
    bench.await_text("hub 1500/1-1: its port belongs to no bay, so it is left alone")
    bench.do("unplug one")
    bench.await_text("bay a: unplugged")
    equal(0, bench.stop(), "exit status")
    equal([("a", "1400/1-1", "updated")], [(record["bay"], record["port_id"], record["outcome"])
                                           for record in bench.records()], "records")


def a_unit_whose_update_cannot_be_started_was_not_touched():
    bench = Bench("untouched", [hub("one", "1")])
    bench.start("--once", 1, TMPDIR="/nowhere")
    equal(1, bench.end(), "exit status")
    equal([("1-1", "not started")], outcomes(bench.records()), "records")
    bench.await_text("; call the engineer")
    bench.check_files()


def one_process_at_a_time_writes_a_hub():
    bench = Bench("turns", [hub("one", "1", timing=slow)])
    writer = subprocess.Popen([program, "--virtual", "update", "--image", image, "--yes"],
                              env=bench.environment(), stderr=subprocess.PIPE, text=True)
    until(lambda: "writing" in writer.stderr.readline(), "writing")
    for command in "update", "recover":
        result = bench.run(command, "--image", image, "--yes")
        equal((5, True), (result.returncode, "another process is writing the hub" in result.stderr), command)
    bench.start("--once", 1)
    bench.await_text("waiting for another process")
    other = bench.run("station", "--image", image, "--record", bench.record)
    equal((1, True), (other.returncode, "open in another" in other.stderr), "two stations on one file")
    writer.stderr.read()
    equal(0, writer.wait(patience), "exit status of the first")
    equal(0, bench.end(), "exit status of the station")
    equal([("1-1", "current")], outcomes(bench.records()), "records")


class Hands:
    """Plugs hubs into four bays, one after the other, each when the one before has passed."""

    def __init__(self, bench, hubs):
        self.bench = bench
        self.waiting = {port: [name for name in hubs if hubs[name] == port] for port in "1234"}
        self.seen = dict.fromkeys("1234", 0)  # records of the bay
        self.empty_until = dict.fromkeys("1234", 0.0)
        self.inside = dict.fromkeys("1234")
        self.kept = 1  # hubs of each bay that are not plugged in yet

    def turn(self):
        records = self.bench.records()
        for port in "1234":
            told = [record for record in records if record["port_id"] == "1-" + port]
            if self.inside[port] and len(told) > self.seen[port]:
                self.bench.do(f"unplug {self.inside[port]}")
                self.inside[port] = None
                self.empty_until[port] = time.monotonic() + 2.7
            is_empty = not self.inside[port] and time.monotonic() >= self.empty_until[port]
            if not is_empty or len(self.waiting[port]) <= self.kept:
                continue
            # What a station that was started meanwhile has recorded is of the hub before.
            self.seen[port] = len(told)
            self.inside[port] = self.waiting[port].pop(0)
            self.bench.do(f"plug {self.inside[port]}")
        return not any(self.inside.values()) and not any(self.waiting.values())


def workers():
    try:
        children = pathlib.Path(f"/proc/{bench.station.pid}/task/{bench.station.pid}/children").read_text()
    except OSError:
        return []
    return [int(child) for child in children.split()]


def nothing_is_lost_when_stations_are_killed():
    moments = random.Random(16)
    kills = 50
    hubs = {f"h{number}": "1234"[number % 4] for number in range(20)}
    bench = Bench("killed", [hub(name, port, plugged=False) for name, port in hubs.items()])
    hands = Hands(bench, hubs)
    for kill in range(kills):
        bench.printed.clear()
        bench.start()
        moment = moments.choice([moments.uniform(0.05, 0.5), moments.uniform(0.5, 1.7)])
        end = time.monotonic() + (0 if kill == kills - 1 else moment)
        if kill == kills - 1:  # leaves a hub in its loader
            hands.kept = 0
            until(lambda: bench.says(": writing") or hands.turn(), "hub that is written")
        while time.monotonic() < end:
            hands.turn()
            time.sleep(0.01)
        children = workers() if kill % 2 else []
        os.killpg(bench.station.pid, signal.SIGKILL)
        for child in children:
            os.kill(child, signal.SIGKILL)
        bench.station.wait()
    bench.printed.clear()
    bench.start()
    until(hands.turn, "record of each unit")
    until(lambda: bench.printed, "station that is ready")
    equal(0, bench.stop(), "exit status")
    bench.check_files()
    records = bench.records()
    equal({"updated", "current"}, {record["outcome"] for record in records}, "outcomes")
    check(any(record["recovered"] for record in records), "no hub was found in its loader")
    equal([], list(bench.folder.glob("*.torn")), "lines that were torn")
    check(len(records) >= len(hubs), "there are fewer records than units")
    everything = bench.write("all.json", [hub(name, str(number + 1)) for number, name in enumerate(hubs)])
    (bench.folder / "control").write_text("")
    listed = json.loads(bench.run("list", "--json", scenario=everything).stdout)["hubs"]
    equal(["2.10"] * len(hubs), [entry["version"] for entry in listed], "what the hubs run")


for test in (outcomes_of_all_kinds, a_done_hub_is_left_alone_until_it_is_unplugged,
             a_hub_that_is_pulled_out_is_the_same_one_or_lost,
             a_lost_hub_is_left_alone_until_it_is_unplugged, an_interrupt_lets_the_hubs_be_finished,
             labels_belong_to_the_bay_that_asks_first_or_the_next_hub,
             a_full_disk_stops_the_line_before_the_next_unit,
             there_is_room_for_the_units_under_way,
             a_record_that_is_not_on_the_disk_is_kept_and_printed_at_the_end,
             a_record_file_that_is_moved_stops_the_line, the_page_is_replaced_in_one_step,
             files_are_repaired_or_refused, a_wanted_number_of_units_is_not_exceeded,
             wrong_bays_are_rejected, a_bay_is_one_port,
             a_unit_whose_update_cannot_be_started_was_not_touched, one_process_at_a_time_writes_a_hub,
             nothing_is_lost_when_stations_are_killed):
    began = time.monotonic()
    test()
    print(f"{test.__name__}: {time.monotonic() - began:.1f} s")
sys.exit(failed)
