#!/usr/bin/env python3
"""What report.py makes of gcovr's counts."""
import contextlib
import io
import json
import os
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import report  # pylint: disable=wrong-import-position


def line(number, count, *branches, noncode=False):
    return {"line_number": number, "count": count, "gcovr/noncode": noncode, "gcovr/excluded": False,
            "branches": [{"count": taken} for taken in branches]}


def function(number, name):
    return {"lineno": number, "name": name}


class ReportTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.counts = os.path.join(folder.name, "counts")
        self.reasons = os.path.join(folder.name, "reasons")

    def report(self, files, reasons=""):
        """The status and the lines printed."""
        pathlib.Path(self.counts).write_text(json.dumps({"files": files}))
        pathlib.Path(self.reasons).write_text("# why\n" + reasons)
        sys.argv = ["report.py", self.counts, self.reasons]
        with contextlib.redirect_stdout(io.StringIO()) as printed:
            status = report.main()
        return status, printed.getvalue().splitlines()

    def test_lines_and_branches_are_counted_by_folder(self):
        files = [{"file": "src/a/x.cpp", "functions": [function(1, "f()")],
                  "lines": [line(1, 2, 1, 0), line(2, 0), line(3, 0, noncode=True)]},
                 {"file": "src/b/y.cpp", "functions": [function(1, "g()")], "lines": [line(1, 1)]}]
        status, printed = self.report(files)
        self.assertEqual(0, status)
        self.assertEqual([["src/a", "2", "50.0", "%", "2", "50.0", "%"], ["src/b", "1", "100.0", "%", "0", "-"],
                          ["all", "3", "66.7", "%", "2", "50.0", "%"]], [row.split() for row in printed[1:4]])
        self.assertEqual("src/a/x.cpp 2", printed[-1])

    def test_nothing_counted_is_an_error(self):
        self.assertEqual(1, self.report([])[0])

    def test_a_block_of_more_than_five_lines_of_one_function_needs_a_reason(self):
        names = ["void qzhid::(anonymous namespace)::Run<int>(int)", "qzhid::CDev::Open(int)::{lambda()#1}::operator()()"]
        functions = [function(1, names[0]), function(10, names[1])]
        five = [line(number, 0) for number in range(5, 10)]
        for lines, wanted, last in (
                (five + [line(10, 0)], 0, "src/a/x.cpp 5-9 10"),
                (five[:4] + [line(9, 1)] + [line(12, 0)], 0, "src/a/x.cpp 5-8 12"),
                ([line(4, 0)] + five, 1, "  4-9 Run (6 lines): NO REASON"),
                ([line(number, 0) for number in range(11, 17)], 1, "  11-16 CDev::Open (6 lines): NO REASON")):
            with self.subTest(last=last):
                status, printed = self.report([{"file": "src/a/x.cpp", "functions": functions, "lines": lines}])
                self.assertEqual(wanted, status)
                self.assertEqual(last, printed[-1])

    def test_each_reason_needs_a_block(self):
        lines = [line(number, 0) for number in range(1, 7)]
        file = {"file": "src/a/x.cpp", "functions": [function(1, "f()")], "lines": lines}
        status, printed = self.report([file], "src/a/x.cpp f: it is new: wait\n")
        self.assertEqual(0, status)
        self.assertEqual("  1-6 f (6 lines): it is new: wait", printed[-1])
        file["lines"] = lines[:5]
        status, printed = self.report([file], "src/a/x.cpp f: it is new\n")
        self.assertEqual(1, status)
        self.assertEqual("src/a/x.cpp f: NO SUCH BLOCK, but a reason", printed[-1])


if __name__ == "__main__":
    unittest.main()
