"""run.py PROGRAMS FOLDER [NAME...]: tests the pages that programs make in a browser without a window.
PROGRAMS is the folder of the programs. FOLDER gets the pages, screenshots of them, and tests.xml, a
report as of JUnit. Ends with 77 and the reason if there is no browser. Another page is a file
*_test.py here, with a class that is a checks.PageTest."""
import pathlib
import sys
import time
import unittest
import xml.etree.ElementTree as xml

import browser
import checks


class Report(unittest.TextTestResult):
    """Also collects the results as elements of a report."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.suite, self.wrong = xml.Element("testsuite", name="pages"), set()

    def startTest(self, test):
        super().startTest(test)
        self.began = time.monotonic()

    def stopTest(self, test):
        super().stopTest(test)
        case = xml.SubElement(self.suite, "testcase", name=test.id(),
                              time=f"{time.monotonic() - self.began:.2f}")
        for failed, text in self.failures + self.errors:
            if failed is test:
                self.wrong.add(test)
                xml.SubElement(case, "failure").text = text

    def write(self, path):
        self.suite.attrib.update(tests=str(self.testsRun), failures=str(len(self.wrong)), skipped="0")
        xml.ElementTree(self.suite).write(path, encoding="utf-8")


def main(programs, folder, *names):
    here, folder = pathlib.Path(__file__).parent, pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    loader = unittest.TestLoader()
    loader.testNamePatterns = [f"*{name}*" for name in names] or None
    tests = loader.discover(str(here), "*_test.py")
    try:
        chromium = browser.Browser()
    except browser.CannotRun as reason:
        print(reason)
        return 77
    checks.PageTest.programs, checks.PageTest.folder = pathlib.Path(programs).resolve(), folder
    checks.PageTest.chromium = chromium
    try:
        result = unittest.TextTestRunner(verbosity=2, resultclass=Report).run(tests)
    finally:
        chromium.close()
    result.write(folder / "tests.xml")
    return 0 if result.wasSuccessful() and result.testsRun > 0 else 1


sys.exit(main(*sys.argv[1:]))
