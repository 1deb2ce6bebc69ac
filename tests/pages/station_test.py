"""The page of a factory station."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

import checks

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "qzhid"))
import station_views as sample  # noqa: E402
import terminal  # noqa: E402

STOPPED = {"stopped": sample.NO_SPACE}
SIZES = (1920, 1080), (1280, 720), (1080, 1920)


class RunningStation:
    """A station with two bays, into which two virtual hubs can be plugged."""

    def __init__(self, programs, folder):
        self.folder = pathlib.Path(folder)
        hub = {"plugged": False, "timing": {"latency_us": 1000}}
        self.folder.joinpath("scenario.json").write_text(json.dumps({
            "control": "hands.txt", "state_folder": "state",
            "devices": [{"name": "a", "port": "1", **hub}, {"name": "b", "port": "2", **hub}]}))
        subprocess.run([programs / "qzhub", "image", "--out", self.folder / "new.bin", "--version", "0210"],
                       check=True, timeout=20)
        self.command = [programs / "qzhid", "--virtual", "station", "--image", "new.bin", "--record",
                        "units.jsonl", "--page", "page.html", "--bay", "left=1-1", "--bay", "right=1-2"]

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def start(self):
        environment = {**os.environ, "QZ_VIRTUAL_HUB": "scenario.json", "XDG_CONFIG_HOME": str(self.folder)}
        self.process = subprocess.Popen(self.command, cwd=self.folder, env=environment,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)

    def plug(self, name):
        with open(self.folder / "hands.txt", "a") as hands:
            hands.write(f"plug {name}\n")


class StationPageTest(checks.PageTest):
    boxes = "section, header, footer"

    def page(self, view, age=0, good_for=60, ended=False):
        """The page that was written so many seconds ago."""
        written = int((time.time() - age) * 1000)
        return self.show(view, "page", str(written), str(good_for), str(int(ended)))

    def show(self, view, *words):
        """What a display makes of the view."""
        return subprocess.run([self.programs / "show_station", *words], input=json.dumps([view]), check=True,
                              stdout=subprocess.PIPE, encoding="utf-8", timeout=20).stdout

    def open(self, view, name="page", **how):
        page = self.page(view, **how)
        self.check_source(page)
        self.chromium.open(self.write(page, name))

    def tiles(self):
        """Each tile as a list: its class and the texts that it shows."""
        return self.look("""[...document.querySelectorAll("section")].map(tile => [tile.className,
            ...[...tile.querySelectorAll("h2, p")].map(x => x.innerText).filter(x => x !== "")])""")

    def test_each_state_has_its_word_its_symbol_and_its_colours(self):
        self.chromium.size(1920, 1080)
        self.open(sample.view(sample.FREE, sample.SCAN, sample.CHECKING, sample.AGAIN, sample.PASSED,
                              sample.CURRENT, sample.LOST, sample.REFUSED, sample.RECOVERED))
        self.assertEqual([
            ["free", "bay 1", "○ FREE", "plug a hub in"],
            ["scan", "bay 2", "≡ SCAN", "scan the label"],
            ["work", "bay 3", "► BUSY", "checking the hub"],
            ["work", "bay 4", "► 0%", "writing, 2 retries, 1:15 left", "SN-0047-13"],
            ["pass", "bay 5", "✓ PASS", "1.02 → 2.10", "unplug the hub", "SN-0047-11"],
            ["pass", "bay 6", "✓ PASS", "already ran 2.10", "unplug the hub", "SN-0047-11"],
            ["fail", "bay 7", "✗ FAIL", "lost: the update failed, and the hub has left the bus",
             "unplug it, plug it in again", "SN-0047-12"],
            ["fail", "bay 8", "✗ FAIL", "refused: the image is for vendor 2E7C, and the hub is of vendor 1A2B",
             "put the unit aside"],
            ["pass", "bay 9", "✓ PASS", "loader → 2.10, 1 retry", "unplug the hub", "SN-0047-11"],
        ], self.tiles())
        colours = dict(self.look("""[...document.querySelectorAll("section")].map(tile =>
            [tile.className, getComputedStyle(tile).backgroundColor])"""))
        self.assertEqual("rgb(11, 87, 196)", colours["pass"])  # blue, and dark
        self.assertEqual("rgb(255, 146, 38)", colours["fail"])  # orange, and bright
        self.assertEqual(len(colours), len(set(colours.values())))
        self.check_shown()
        self.picture("states")

    def test_the_totals_are_at_the_top(self):
        self.open(sample.view(sample.FREE))
        self.assertEqual(["dock.bin 2.10"], self.texts("h1"))
        self.assertEqual(["47", "3", "94.0 %", "61"], self.texts("dd"))
        self.assertEqual(["passed", "failed", "yield", "units an hour"], self.texts("dt"))
        self.open(sample.view(passed=0, failed=0, rate=0))
        self.assertEqual(["0", "0", "-", "-"], self.texts("dd"))
        self.assertEqual(["plug a hub in"], self.texts("main p"))
        self.check_shown()

    def test_all_bays_fit_each_monitor(self):
        for count in (1, 2, 4, 7, 12, 32):
            for told in ({}, STOPPED):
                self.open(sample.many(count, **told))
                for size in SIZES:
                    with self.subTest(bays=count, size=size, told=bool(told)):
                        self.chromium.size(*size)
                        self.check_shown()
                        self.assertLessEqual(self.look("document.documentElement.scrollHeight - innerHeight"), 0)
        self.chromium.size(*SIZES[0])
        self.picture("stopped")

    def test_the_bar_is_as_long_as_the_percentage(self):
        self.open(sample.view(sample.WRITING, sample.FREE))
        self.assertEqual([42], self.look("""[...document.querySelectorAll(".bar")].map(bar => Math.round(
            100 * bar.firstChild.getBoundingClientRect().width / bar.clientWidth))"""))

    def test_a_stopped_line_says_why_and_wants_no_hub(self):
        self.open(sample.view(sample.FREE, **STOPPED))
        self.assertEqual(["■ STOPPED: " + sample.NO_SPACE], self.texts("#stopped"))
        self.assertEqual([["stop", "bay 1", "■ STOP", "plug nothing in"]], self.tiles())

    def test_texts_from_outside_are_texts(self):
        evil = sample.EVIL
        self.open(sample.view(evil, image="<b>&lt;", stopped="<script>bad()</script>"))
        self.assertEqual([["fail", "…" + evil["name"][-16:], "✗ FAIL", "lost: " + evil["reason"],
                           evil["next"], "[31m\"&' </section>gnp"]], self.tiles())
        self.assertEqual(["■ STOPPED: <script>bad()</script>"], self.texts("#stopped"))
        self.assertEqual(["<b>&lt; 2.10"], self.texts("h1"))
        self.assertEqual([1, 0, 0], self.look('["script", "img", "b"].map(x => document.querySelectorAll(x).length)'))
        self.check_shown()

    def test_long_texts_are_cut_inside_their_tile(self):
        self.chromium.size(1920, 1080)
        self.open(sample.view(sample.WIDE, sample.LONG, sample.LONG))
        cut = self.look(f"{checks.FIND_FAULTS}({json.dumps(self.boxes)})")
        self.assertEqual([], [fault for fault in cut if not fault.startswith("is cut: ")])
        self.assertEqual(["…pper row, bay 11"], self.texts("section:last-child h2"))
        self.picture("long")

    def test_the_page_loads_itself_again_and_keeps_its_place(self):
        self.chromium.size(400, 300)
        page = self.write(self.page(sample.view(sample.WRITING)))
        self.chromium.open(page)
        self.look("scrollTo(0, 100)")
        self.write(self.page(sample.view(sample.PASSED)))
        self.wait_until(lambda: self.texts(".word") == ["✓ PASS"], "the new page")
        self.assertAlmostEqual(100, self.look("scrollY"), delta=5)
        self.assertEqual({self.chromium.wanted}, set(self.chromium.requests))

    def test_the_page_loads_itself_again_without_scripts(self):
        self.chromium.call("Emulation.setScriptExecutionDisabled", value=True)
        try:
            self.open(sample.view(sample.FREE))
            self.wait_until(lambda: self.chromium.loads > 1, "the second load")
        finally:
            self.chromium.call("Emulation.setScriptExecutionDisabled", value=False)

    def test_a_page_that_nobody_writes_any_more_says_so(self):
        view = sample.many(4)
        for age, good_for, is_old in ((0, 60, False), (59, 70, False), (100, 60, True), (-100, 60, True)):
            with self.subTest(age=age, good_for=good_for):
                self.open(view, age=age, good_for=good_for)
                self.assertEqual(is_old, self.is_shown("#old"))
        self.open(view, good_for=1)
        self.assertFalse(self.is_shown("#old"))
        self.wait_until(lambda: self.is_shown("#old"), "the page to be out of date")
        self.assertRegex(self.texts("#old")[0], r"^⚠ OUT OF DATE: nothing new since 20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.")
        self.chromium.size(1920, 1080)
        self.check_shown()
        self.picture("out-of-date")

    def test_a_station_that_was_ended_leaves_a_page_that_says_so(self):
        self.chromium.size(1920, 1080)
        self.open(sample.many(4), age=100, ended=True)
        self.assertTrue(self.is_shown("#ended"))
        self.assertFalse(self.is_shown("#old"))
        self.check_shown()
        self.picture("ended")

    def test_the_page_of_a_running_station_follows_it_to_its_end(self):
        with tempfile.TemporaryDirectory() as folder, RunningStation(self.programs, folder) as station:
            page = pathlib.Path(folder, "page.html")
            self.wait_until(page.exists, "the first page")
            self.chromium.open(page)
            self.wait_until(lambda: self.texts(".word") == ["○ FREE", "○ FREE"], "two free bays")
            station.plug("a")
            self.wait_until(lambda: self.texts(".bar + .what"), "a hub that is written")
            self.wait_until(lambda: self.texts(".word")[:1] == ["✓ PASS"], "PASS")
            self.assertEqual(["1", "0", "100 %"], self.texts("dd")[:3])
            self.check_source(page.read_text(encoding="utf-8"))
            self.check_shown()
            written = page.read_text(encoding="utf-8")
            self.wait_until(lambda: page.read_text(encoding="utf-8") != written, "the page to be written again")
            self.assertEqual(["✓ PASS", "○ FREE"], self.texts(".word"))
            station.plug("b")
            self.wait_until(lambda: self.texts(".bar + .what"), "a hub that is written")
            station.process.kill()
            self.wait_until(lambda: self.is_shown("#old"), "the page to be out of date")
            station.start()
            self.wait_until(lambda: not self.is_shown("#old"), "the page of the next station")
            station.process.send_signal(signal.SIGINT)
            self.wait_until(lambda: self.is_shown("#ended"), "the end")

    def test_pictures_for_the_manual(self):
        view = sample.many(4)
        self.chromium.size(840, 480)
        self.open(view)
        self.check_shown()
        self.picture("station-page")
        coloured, plain = (self.show(view, "screen", "80", "24", abilities, "").rstrip("\n")
                           for abilities in ("utf8 colours", "utf8"))
        self.chromium.open(self.write(terminal.page_of(coloured.splitlines()), "terminal"))
        shown = [line.rstrip() for line in self.texts("pre")[0].rstrip("\n").split("\n")]
        self.assertEqual(plain.rstrip("\n").split("\n"), shown)
        self.chromium.size(*self.look("""(function (rect) {
            return [rect.right + 8, rect.bottom + 8].map(Math.ceil);
        })(document.querySelector("pre").getBoundingClientRect())"""))
        self.picture("station-terminal")
