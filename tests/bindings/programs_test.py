"""programs_test.py LANGUAGE: the programs for that language in docs/bindings.md list hubs, update one with
progress, and read an EEPROM. Environment: QZ_LIBRARY and QZHUB."""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
LANGUAGE = sys.argv[1]
LIBRARY, QZHUB = (os.environ[name] for name in ("QZ_LIBRARY", "QZHUB"))


def compile_csharp(program):
    """The compiler is not to be sanitized."""
    sources = sorted((SOURCE / "bindings/dotnet").glob("*.cs"))
    subprocess.run(["mcs", "-warnaserror", "-out:" + str(program.with_suffix(".exe")), program, *sources], check=True,
                   env={**os.environ, "LD_PRELOAD": ""})
    return ["mono", program.with_suffix(".exe")]


# How a program is run, and the folders in which each language looks for its packages.
RUN = {"python": lambda program: ["/usr/bin/python3", program],
       "js": lambda program: ["node", program],
       "csharp": compile_csharp}


class ProgramsTest(unittest.TestCase):
    def setUp(self):
        self.work = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.image = self.work / "new.bin"
        subprocess.run([QZHUB, "image", "--out", self.image, "--version", "0210", "--size", "32680"], check=True)
        page = (SOURCE / "docs/bindings.md").read_text()
        (self.work / "node_modules").mkdir()
        (self.work / "node_modules/qzhidapi").symlink_to(SOURCE / "bindings/node")
        self.programs = re.findall(rf"^```{LANGUAGE}\n(.*?)^```$", page, re.M | re.S)

    def run_program(self, number, *arguments, **members):
        scenario = {"devices": [{"name": "hub", "port": "3.1", "i2c": [{"kind": "eeprom", "address": "0xA0"}],
                                 **members}], "time": "virtual", "state_folder": str(self.work)}
        (self.work / "scenario.json").write_text(json.dumps(scenario))
        program = self.work / f"program.{LANGUAGE}"
        program.write_text(self.programs[number])
        environment = {**os.environ, "QZ_VIRTUAL_HUB": str(self.work / "scenario.json"),
                       "LD_LIBRARY_PATH": os.path.dirname(LIBRARY), "PYTHONPATH": str(SOURCE / "bindings/python"),
                       "XDG_CONFIG_HOME": str(self.work)}
        return subprocess.run([*RUN[LANGUAGE](program), *map(str, arguments)], capture_output=True, text=True,
                              env=environment)

    def test_the_first_lists_hubs(self):
        run = self.run_program(0)
        self.assertEqual(["1-3.1", "firmware", "1.02"], run.stdout.split(), run.stderr)

    def test_the_second_updates_a_hub_with_progress(self):
        lines = self.run_program(1, self.image).stdout.splitlines()
        self.assertEqual(["0 %", "10 %", "20 %"], lines[:3])
        self.assertEqual(["90 %", "100 %", "updated: 1.02 -> 2.10"], lines[-3:])

    def test_the_second_recovers_a_hub(self):
        run = self.run_program(1, self.image, image={"cut_after": 4096})
        self.assertEqual("updated: loader -> 2.10", run.stdout.splitlines()[-1], run.stderr)

    def test_the_second_says_why_nothing_is_written(self):
        run = self.run_program(1, self.image, image={"vid": "0x2E7D"})
        self.assertEqual("the image is for vendor 2E7C, the hub is of vendor 2E7D; use an image for this hub",
                         run.stderr.strip())
        self.assertEqual(1, run.returncode)

    def test_the_third_reads_an_eeprom(self):
        run = self.run_program(2)
        self.assertEqual("ff " * 15 + "ff\n", run.stdout, run.stderr)


class PythonProgramsTest(ProgramsTest):
    def test_the_fourth_tests_a_program(self):
        self.programs[3] = self.programs[3].replace("virtual(scenario)", f"virtual(scenario, {LIBRARY!r})")
        run = self.run_program(3)
        self.assertEqual("", run.stderr)
        self.assertEqual(0, run.returncode)


if __name__ == "__main__":
    cases = PythonProgramsTest if LANGUAGE == "python" else ProgramsTest
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(cases)
    sys.exit(not unittest.TextTestRunner().run(suite).wasSuccessful())
