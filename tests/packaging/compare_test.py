"""compare_test.py SOURCE: packages and archives that differ are found, and it is said in what."""
import io
import pathlib
import subprocess
import sys
import tarfile
import tempfile
import unittest
import zipfile

COMPARE = pathlib.Path(sys.argv.pop(1), "packaging/artefacts/compare.py")
FILES = {"a": b"first", "b": b"second"}


def tar(files=FILES, time=0, mode=0o644):
    stream = io.BytesIO()
    with tarfile.open(fileobj=stream, mode="w") as archive:
        for name, contents in files.items():
            entry = tarfile.TarInfo(name)
            entry.size, entry.mtime, entry.mode = len(contents), time, mode
            archive.addfile(entry, io.BytesIO(contents))
    return stream.getvalue()


def zipped(files=FILES, time=(1980, 1, 1, 0, 0, 0)):
    stream = io.BytesIO()
    with zipfile.ZipFile(stream, "w") as archive:
        for name, contents in files.items():
            archive.writestr(zipfile.ZipInfo(name, time), contents)
    return stream.getvalue()


def debian(data):
    header = f"{'data.tar':16}{0:<12}{0:<6}{0:<6}{100644:<8}{len(data):<10}`\n"
    return b"!<arch>\n" + header.encode() + data


REVERSED = dict(reversed(FILES.items()))
OTHER = {**FILES, "b": b"secont"}
# Two files, and what is said of them.
CASES = [
    ("a.json", b"{1}", b"{2}", ["differs at byte 1"]),
    ("a.json", b"{", b"{}", ["differs at byte 1"]),
    ("a.tar.gz", tar(), tar(OTHER), ["b: differs at byte 5"]),
    ("a.tgz", tar(), tar(REVERSED), ["the order of the members differs"]),
    ("a.tar.gz", tar(), tar(time=60), ["a: type 0, mode 644", "time 1970-01-01 00:00:00", "time 1970-01-01 00:01:00"]),
    ("a.tar.gz", tar(), tar(mode=0o600), ["mode 644", "mode 600"]),
    ("a.zip", zipped(), zipped(OTHER), ["b: differs at byte 5"]),
    ("a.whl", zipped(), zipped(time=(1981, 1, 1, 0, 0, 0)), ["time (1981, 1, 1, 0, 0, 0)"]),
    ("a.nupkg", zipped(), zipped({"a": b"first"}), ["b: only in the first"]),
    ("a.deb", debian(tar()), debian(tar(OTHER)), ["data.tar/b: differs at byte 5"]),
]


class CompareTest(unittest.TestCase):
    def compare(self, first, second):
        with tempfile.TemporaryDirectory() as work:
            for name, files in (("first", first), ("second", second)):
                folder = pathlib.Path(work, name, "inner")
                folder.mkdir(parents=True)
                for file, contents in files.items():
                    (folder / file).write_bytes(contents)
            return subprocess.run([COMPARE, "first", "second"], cwd=work, capture_output=True, text=True)

    def test_each_difference_is_found_and_described(self):
        for name, first, second, said in CASES:
            run = self.compare({name: first, "same": b"x"}, {name: second, "same": b"x"})
            with self.subTest(said=said):
                self.assertEqual(1, run.returncode, run.stderr)
                for text in [f"DIFFERENT  inner/{name}\n", "1 equal, 1 different", *said]:
                    self.assertIn(text, run.stdout)

    def test_equal_files_are_equal_and_missing_ones_are_different(self):
        self.assertEqual(0, self.compare({"a.zip": zipped()}, {"a.zip": zipped()}).returncode)
        run = self.compare({"a": b"", "b": b""}, {"a": b""})
        self.assertIn("DIFFERENT  inner/b: only in the first\n", run.stdout)
        self.assertIn("\n1 equal, 1 different\n", run.stdout)
        self.assertEqual(1, run.returncode)
        self.assertEqual(1, self.compare({}, {}).returncode)


if __name__ == "__main__":
    unittest.main()
