"""The page of 'qzhid explain'."""
import json
import os
import pathlib
import subprocess

import checks

LOST = {"on": "request", "request": "40/C8", "nth": 100, "device": "hub", "action": "power_loss", "return_ms": None}
STRANGE = "<img src=x onerror=alert(1)> " + "very" * 60


class ExplainPageTest(checks.PageTest):
    def explain(self, *faults, host="Virtual Host"):
        """Opens the page on the log of an update with these faults."""
        folder = pathlib.Path(self.folder)
        (folder / "scenario.json").write_text(json.dumps(
            {"time": "virtual", "devices": [{"name": "hub", "port": "3.1"}], "faults": faults}))
        environment = {**os.environ, "QZ_VIRTUAL_HUB": "scenario.json", "XDG_CONFIG_HOME": str(folder)}

        def run(program, *arguments):
            subprocess.run([self.programs / program, *arguments], cwd=folder, env=environment, timeout=60,
                           stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        run("qzhub", "image", "--out", "new.bin", "--version", "0210")
        run("qzhid", "--virtual", "update", "--image", "new.bin", "--yes", "--retries", "0", "--wait", "0",
            "--log", "update.log")
        log = folder / "update.log"
        log.write_text(log.read_text().replace("Virtual Host", host))
        run("qzhid", "explain", "update.log", "--html", "explained.html")
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
