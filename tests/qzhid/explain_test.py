"""explain_test.py QZHID QZHUB: 'qzhid explain' on logs that the library writes on virtual hubs, whole,
cut, converted and made up, and 'qzhid doctor --bundle'."""
import html.parser
import json
import os
import pathlib
import pty
import re
import subprocess
import sys
import tarfile
import tempfile
import threading
import tty
import unittest
import zipfile

QZHID, QZHUB = (os.path.abspath(program) for program in sys.argv[1:3])
HUB = {"name": "hub", "port": "3.1"}
KEYBOARD = {"name": "keyboard", "kind": "other", "port": "5"}
LOST = {"on": "request", "request": "40/C8", "nth": 100, "device": "hub", "action": "power_loss", "return_ms": None}
STAMP = "[2024-03-07, 09:05:02]  "


def run(*arguments, **options):
    return subprocess.run([QZHID, "--virtual", *arguments], capture_output=True, timeout=120,
                          stdin=options.pop("stdin", subprocess.DEVNULL), **options)


def machine(*devices, faults=()):
    pathlib.Path("scenario.json").write_text(json.dumps(
        {"time": "virtual", "devices": devices or (HUB, KEYBOARD), "faults": faults}))


def update(log, *arguments):
    run("update", "--image", "new.bin", "--yes", "--retries", "0", "--wait", "0", "--log", log, *arguments)
    return pathlib.Path(log).read_bytes()


def explain(data, *arguments):
    """What is said about a log: status, object."""
    pathlib.Path("given.log").write_bytes(data)
    done = run("explain", "given.log", "--json", *arguments)
    return done.returncode, json.loads(done.stdout)


def jobs(account):
    return [job for log in account["logs"] for session in log["sessions"] for job in session["jobs"]]


def problems(account):
    return [job["problem"] for job in jobs(account) if job["problem"]]


class Page(html.parser.HTMLParser):
    """Checks that elements are closed in order."""
    VOID = {"meta", "br"}

    def __init__(self):
        super().__init__()
        self.open, self.tags, self.links, self.text = [], [], [], ""

    def handle_starttag(self, tag, attributes):
        self.tags.append(tag)
        self.links += [value for name, value in attributes if name in ("src", "href")]
        if tag not in self.VOID:
            self.open.append(tag)

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            raise AssertionError(f"</{tag}> closes something else")

    def handle_data(self, data):
        self.text += data


class ExplainTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        machine()
        subprocess.run([QZHUB, "image", "--out", "new.bin", "--version", "0210"], check=True)
        cls.good = update("good.log")
        machine(faults=[LOST])
        cls.lost = update("lost.log")

    def testAGoodUpdateHasItsStepsInOrderAndNoProblem(self):
        status, account = explain(self.good)
        self.assertEqual(0, status)
        self.assertEqual("nothing went wrong", account["verdict"])
        done = [job for job in jobs(account) if job["title"] == "update"]
        self.assertEqual([("done", "2E7C:0818", "1.02", False)],
                         [(job["result"], job["hub"], job["version"], job["in_loader"]) for job in done])
        self.assertEqual(["load the image", "find the hub", "read what it runs", "reset into the loader",
                          "wait for the loader", "read what it runs", "erase", "write", "check",
                          "start the firmware", "wait for the firmware", "finish"],
                         [step["step"] for step in done[0]["steps"]])
        self.assertEqual(2, sum(step["seconds"] for step in done[0]["steps"]))
        self.assertEqual(0, account["logs"][0]["unknown_lines"])
        self.assertIn("Frequency reduction Result is %d", [line["text"] for line in account["harmless"]])

    def testAFailureNamesStepRequestPlaceAndCode(self):
        status, account = explain(self.lost)
        self.assertEqual(1, status)
        self.assertEqual(1, account["problems"])
        (problem,) = problems(account)
        self.assertEqual(("write", 71, "EPROTO", "Set Report Fail,ErrorCode:71"),
                         tuple(problem[name] for name in ("step", "code", "code_name", "text")))
        self.assertEqual({"request": "40/C8", "meaning": "write 128 bytes to the flash at 0x003180",
                          "value": 0x3180, "index": 0, "address": 0x3180, "length": 128, "target": None},
                         problem["request"])
        self.assertIn("12672 bytes of the image were written before", problem["what"])
        self.assertIn("in its loader", problem["hub"])
        self.assertIn("qzhid recover", problem["advice"])
        line = self.lost.splitlines()[problem["line"] - 1].decode()
        self.assertTrue(line.endswith("Set Report Fail,ErrorCode:71"), line)

    def testEachLevelSaysWhatItCan(self):
        for level in "1", "2", "3":
            machine()
            self.assertEqual(0, explain(update("level.log", "--log-level", level))[0], level)
            machine(faults=[LOST])
            status, account = explain(update("level.log", "--log-level", level))
            self.assertEqual((1, ["write"]), (status, [each["step"] for each in problems(account)]), level)
            self.assertEqual([[]], [job["steps"] for job in jobs(account) if job["title"] == "update"])

    def testStepsThatLeaveNoRequestAreNamed(self):
        for fault, step, words in (
                ({"on": "reset", "nth": 1, "action": "never_return"}, "wait for the loader", "No scan found it"),
                ({"on": "reset", "nth": 2, "action": "never_return"}, "wait for the firmware", "No scan found it"),
                ({"on": "reset", "nth": 1, "action": "return_at", "port": "4"}, "wait for the loader", "another port"),
                ({"on": "reset", "nth": 2, "action": "hold", "release_ms": None}, "wait for the firmware", "EBUSY"),
                ({"on": "request", "request": "40/00", "action": "lose_write"}, "reset into the loader", "did not carry it out"),
                ({"on": "request", "request": "40/00", "action": "stall"}, "reset into the loader", "40/00 (reset into the loader)")):
            machine(faults=[{**fault, **({} if "port" in fault or fault["on"] == "reset" else {"device": "hub"})}])
            problem = problems(explain(update("step.log"))[1])[0]
            self.assertEqual(step, problem["step"], fault)
            self.assertIn(words, problem["what"], fault)

    def testTwoBanksKeepTheOldFirmware(self):
        machine({**HUB, "dual_bank": True, "second_image": {"version": "0x0100"}}, faults=[LOST])
        self.assertIn("runs its old firmware", problems(explain(update("dual.log"))[1])[0]["hub"])

    def testABridgeCallNamesItsTarget(self):
        machine()
        run("i2c", "read", "--target", "0xA2", "--memory", "0x10", "--length", "4", "--log", "i2c.log")
        (problem,) = problems(explain(pathlib.Path("i2c.log").read_bytes())[1])
        self.assertIn("read 4 bytes from the I2C target 0xA2 at 0x000010", problem["what"])

    def testLineEndsDoNotMatter(self):
        windows = self.lost.replace(b"\n", b"\r\n")
        self.assertEqual(problems(explain(self.lost)[1]), problems(explain(windows)[1]))

    def testTheLogSaysWhoseCodesItHas(self):
        lines = self.lost.decode()
        for old, new, system, name in (
                ("x", "x", "linux", "EPROTO"),
                ("Virtual Host", "Windows 11 Pro", "windows", None),
                ("ErrorCode:71", "ErrorCode:1167", "linux", None)):
            account = explain(lines.replace(old, new).encode())[1]
            self.assertEqual({system}, {each["system"] for each in account["logs"][0]["sessions"]}, new)
            self.assertEqual([name], [each["code_name"] for each in problems(account)], new)
        gone = lines.replace("Virtual Host", "Windows 11 Pro").replace("ErrorCode:71", "ErrorCode:1167")
        self.assertEqual(["ERROR_DEVICE_NOT_CONNECTED"], [each["code_name"] for each in problems(explain(gone.encode())[1])])

    def testACutLogBlamesNoCallThatIsWhole(self):
        """Wherever it is cut, only the call that the end cuts is unfinished."""
        for at in range(0, len(self.good), 997):
            account = explain(self.good[:at] or b"x")[1] if at else None
            if account and "error" not in account:
                wrong = [job["result"] for job in jobs(account) if job["problem"]]
                self.assertIn(wrong, ([], ["unfinished"]), at)
            status, account = explain(self.good[at:])
            self.assertEqual((0, []), (status, problems(account)), at)
        self.assertTrue(explain(self.good[100:])[1]["logs"][0]["cut_at_start"])
        self.assertTrue(explain(self.good[:-10])[1]["logs"][0]["cut_at_end"])
        self.assertFalse(explain(self.good)[1]["logs"][0]["cut_at_end"])

    def testAnUpdateThatTheLogEndsInIsUnfinished(self):
        end = self.good.index(b"write flash success")
        status, account = explain(self.good[:self.good.rindex(b"\n", 0, end) + 1])
        self.assertEqual(1, status)
        self.assertEqual(("unfinished", "write"), (jobs(account)[-1]["result"], problems(account)[0]["step"]))

    def testSeveralSessionsAndFilesAreTakenApart(self):
        status, account = explain(self.good + self.lost, "good.log")
        self.assertEqual((1, [4, 2]), (status, [len(log["sessions"]) for log in account["logs"]]))
        self.assertEqual(1, account["problems"])

    def testStandardInputIsRead(self):
        with open("good.log", "rb") as log:
            self.assertEqual(0, run("explain", "-", stdin=log).returncode)

    def testStandardInputThatFailsHalfWayIsNotExplained(self):
        reading, writing = pty.openpty()  # it reports an error when the other end is closed
        tty.setraw(writing)

        def write():
            with open(writing, "wb") as file:
                file.write(self.good)

        writer = threading.Thread(target=write)
        writer.start()
        done = run("explain", "-", stdin=reading)
        writer.join()
        os.close(reading)
        self.assertEqual(1, done.returncode)
        self.assertIn("standard input cannot be read: Input/output error", done.stderr.decode())

    def testOtherFilesAreRejected(self):
        pathlib.Path("empty").write_bytes(b"")
        pathlib.Path("text").write_text("[2024-03-07, 09:05:02] something else\n" * 9)
        pathlib.Path("wide").write_text(self.good.decode(), encoding="utf-16")
        for file, words in (("empty", "it is empty"), ("text", "is no log of the library"), ("wide", "UTF-16"),
                            ("new.bin", "is no log of the library"), (".", "is a folder"),
                            ("/dev/zero", "is no log of the library"),
                            ("missing", "cannot be opened: No such file or directory"),
                            ("/proc/self/mem", "cannot be read: Input/output error")):
            done = run("explain", file)
            self.assertEqual(1, done.returncode, file)
            self.assertIn(words, done.stderr.decode(), file)
            self.assertEqual(b"", done.stdout, file)

    def testUnknownLinesAndLongOnesDoNoHarm(self):
        strange = f"{STAMP}CNew::Thing, no such line\n{STAMP}{'x' * 100000}\n\0\xff\n".encode("latin-1")
        status, account = explain(strange + self.good + strange)
        self.assertEqual((0, 2), (status, account["logs"][0]["unknown_lines"]))

    def testTextsAreMadeSafe(self):
        path = b"/tmp/J\xfcrgen \x1b[31m<script>alert(1)</script>&.bin"
        log = re.sub(rb"fw path is [^\n]*", b"fw path is " + path + b".", self.lost)
        status, account = explain(log, "--html", "page.html")
        image = next(job["image"] for job in jobs(account) if job["image"])
        self.assertEqual("/tmp/Jürgen  [31m<script>alert(1)</script>&.bin", image)
        self.assertNotIn(b"\x1b", run("explain", "given.log").stdout)

    def testThePageIsWholeAndNeedsNoOtherFile(self):
        log = self.lost.replace(b"Virtual Host", b"<b onload=x>&amp;\"'</b>")
        explain(log, "--html", "page.html")
        text = pathlib.Path("page.html").read_text(encoding="utf-8")
        page = Page()
        page.feed(text)
        self.assertTrue(text.startswith("<!DOCTYPE html>"))
        self.assertEqual([], page.open)
        self.assertEqual([], page.links)
        self.assertEqual(0, page.tags.count("script"))
        self.assertNotIn("<b onload", text)
        self.assertIn("<b onload=x>&amp;\"'</b>", page.text)
        self.assertEqual(8, page.tags.count("rect"))
        self.assertEqual(1, text.count('<rect class="bad"'))
        self.assertIn(problems(explain(log)[1])[0]["what"], page.text)
        self.assertEqual(1, run("explain", "good.log", "--html", "/nowhere/page.html").returncode)


class BundleTest(unittest.TestCase):
    def setUp(self):
        machine()
        pathlib.Path("users.log").write_bytes(
            STAMP.encode() + b"CHubFwFinder::LoadFwbin2Buf, Current fw path is /home/walter/new.bin.\n" +
            STAMP.encode() + b"CHubFwFinder::LoadFwbin2Buf, Current fw path is C:\\Users\\Erika\\new.bin.\n" +
            STAMP.encode() + b"CHubFwFinder::LoadFwbin2Buf, Current fw path is /srv/jdoe-files/for jdoe.bin.\n" +
            STAMP.encode() + rb"QZ_ListAllHidDev, Index:0,dwInst:5,Port:1,Level:2,HwID:USB\VID_2E7C&PID_0818\SN4711,"
            + b"\n")
        self.environment = {**os.environ, "USER": "jdoe"}

    def bundle(self, file, *arguments):
        done = run("doctor", "--bundle", file, "--yes", "--with-log", "users.log", "--log", "doctor.log", *arguments,
                   env=self.environment)
        self.assertEqual(0, done.returncode, done.stderr)
        return done.stderr.decode()

    def contents(self, file):
        if file.endswith(".zip"):
            with zipfile.ZipFile(file) as archive:
                self.assertIsNone(archive.testzip())
                return {name: archive.read(name).decode() for name in archive.namelist()}
        with tarfile.open(file) as archive:
            return {each.name: archive.extractfile(each).read().decode() for each in archive}

    def testBothFormatsHoldTheSameAndSayItBefore(self):
        said = self.bundle("a.zip")
        unpacked = self.contents("a.zip")
        for name, text in unpacked.items():
            self.assertRegex(said, rf"(?m)^  {re.escape(name)} +{len(text.encode())} bytes$")
        self.bundle("a.tar.gz")
        self.assertEqual(unpacked.keys(), self.contents("a.tar.gz").keys())
        self.assertEqual(unpacked["logs/1-users.log"], self.contents("a.tar.gz")["logs/1-users.log"])
        for name in ("findings.txt", "findings.json", "versions.txt", "system.txt", "topology.txt", "udev-rules.txt",
                     "kernel.txt", "logs/2-doctor.log", "logs/2-doctor.log.explained.txt"):
            self.assertIn(name, unpacked)
        self.assertIn("runs firmware 1.02", unpacked["findings.txt"])
        self.assertIn('"port_id": "1-3.1"', unpacked["versions.txt"])
        self.assertIn("nothing went wrong", unpacked["logs/2-doctor.log.explained.txt"])

    def testNamesAndSerialNumbersAreLeftOut(self):
        self.bundle("b.zip")
        everything = "".join(self.contents("b.zip").values())
        for name in "walter", "Erika", "SN4711", "jdoe", re.escape(os.uname().nodename):
            self.assertIsNone(re.search(rf"\b{name}\b", everything), name)
        log = self.contents("b.zip")["logs/1-users.log"]
        for kept in "/home/[user]/new.bin", "C:\\Users\\[user]\\new.bin", "/srv/[user]-files", "PID_0818\\[serial],":
            self.assertIn(kept, log)

    def testTheyStayIfTheyAreWanted(self):
        self.bundle("c.zip", "--with-names")
        self.assertEqual(pathlib.Path("users.log").read_text(), self.contents("c.zip")["logs/1-users.log"])

    def testNothingIsWrittenWithoutConsentOrHalf(self):
        for arguments, status in ((["d.zip"], 2), (["d.rar", "--yes"], 2), (["/nowhere/d.zip", "--yes"], 1),
                                  (["d.zip", "--yes", "--with-log", "missing.log"], 1)):
            self.assertEqual(status, run("doctor", "--bundle", *arguments).returncode, arguments)
        self.assertEqual([], [each for each in os.listdir() if each.startswith("d.")])
        self.assertEqual(2, run("doctor", "--with-names").returncode)

    def testALargeLogIsCutAtItsStart(self):
        line = STAMP + "QZ_FreeDevList, In QZ_FreeAllDevice,Free Memory\n"
        pathlib.Path("users.log").write_text("first\n" + line * 80000)
        self.bundle("e.tar.gz")
        log = self.contents("e.tar.gz")["logs/1-users.log"]
        self.assertLessEqual(len(log), 4 << 20)
        self.assertEqual({line.strip()}, set(log.splitlines()))


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    os.environ.update(QZ_VIRTUAL_HUB="scenario.json", XDG_CONFIG_HOME=folder)
    result = unittest.main(argv=[sys.argv[0], *sys.argv[3:]], exit=False).result
    os.chdir("/")
sys.exit(not result.wasSuccessful())
