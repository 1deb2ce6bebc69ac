"""The page of 'qzhid explain'."""
import json
import os
import pathlib
import subprocess

import checks

LOST = {"on": "request", "request": "40/C8", "nth": 100, "device": "hub", "action": "power_loss", "return_ms": None}
STRANGE = "<img src=x onerror=alert(1)> " + "very" * 60


class ExplainPageTest(checks.PageTest):
    def explain(self, *faults, host="Virtual Host", source="update.log"):
        """Opens the page on the log or capture of an update with these faults."""
        folder = pathlib.Path(self.folder)
        (folder / "scenario.json").write_text(json.dumps(
            {"time": "virtual", "capture": "hub.pcapng", "devices": [{"name": "hub", "port": "3.1"}], "faults": faults}))
        environment = {**os.environ, "QZ_VIRTUAL_HUB": "scenario.json", "XDG_CONFIG_HOME": str(folder)}

        def run(program, *arguments):
            subprocess.run([self.programs / program, *arguments], cwd=folder, env=environment, timeout=60,
                           stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        for old in folder.glob("hub*.pcapng"):
            old.unlink()
        run("qzhub", "image", "--out", "new.bin", "--version", "0210")
        run("qzhid", "--virtual", "update", "--image", "new.bin", "--yes", "--retries", "0", "--wait", "0",
            "--log", "update.log")
        log = folder / "update.log"
        log.write_text(log.read_text().replace("Virtual Host", host))
        run("qzhid", "explain", source, "--html", "explained.html")
        page = (folder / "explained.html").read_text(encoding="utf-8")
        self.check_source(page)
        self.chromium.open(self.write(page))

    def test_a_failed_update_shows_its_steps_and_marks_the_one_that_failed(self):
        self.explain(LOST)
        self.check_shown()
        self.assertEqual(["failed"], self.texts(".failed"))
        bars = self.look("[...document.querySelectorAll('rect')].map(x => x.getBoundingClientRect().width)")
        self.assertEqual(8, len(bars))
        self.assertGreater(min(bars), 10)
        self.assertEqual(1, self.look("document.querySelectorAll('rect.bad').length"))
        self.assertIn("40/C8", self.texts(".problem")[0])
        self.picture("explain")

    def test_a_capture_has_the_same_page_and_is_the_picture_of_the_manual(self):
        self.chromium.size(900, 930)
        self.explain({"on": "request", "request": "40/C8", "nth": 300, "action": "stall"}, source="hub-2.pcapng")
        self.check_shown()
        bars = self.look("[...document.querySelectorAll('rect')].map(x => x.getBoundingClientRect().width)")
        self.assertEqual(7, len(bars))
        self.assertGreater(bars[3], 4 * bars[6], "the wait takes much longer than the writes")
        self.assertIn("In the step 'write' the request 40/C8", self.texts(".problem")[0])
        self.assertIn("Frame 692:", self.texts(".problem")[0])
        self.assertIn("0.602 s", self.texts("td"))
        self.picture("explain-capture")

    def test_a_good_update_has_no_problem(self):
        self.explain()
        self.check_shown()
        self.assertEqual([], self.texts(".problem"))
        self.assertEqual(["nothing went wrong"], self.texts(".verdict"))

    def test_texts_from_the_log_are_texts_and_fit(self):
        self.explain(LOST, host=STRANGE)
        self.check_shown()
        self.assertTrue(any(STRANGE in text for text in self.texts("td")))

    def test_a_narrow_window_shows_all(self):
        self.chromium.size(360, 640)
        self.explain(LOST)
        self.check_shown()
