"""packages_test.py NODE_MODULES: the packages hold what they should for each system, and depend on nothing but
their contents. The libraries are only files here."""
import base64
import csv
import hashlib
import io
import json
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile
import unittest
import zipfile

SOURCE = pathlib.Path(__file__).resolve().parents[2]
NODE_MODULES = sys.argv.pop(1)
VERSION = re.search(r"^project\(QzHidAPI VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.M)[1]
NAMES = {"linux-x64": "libQzHidAPI.so.1", "linux-arm64": "libQzHidAPI.so.1", "windows-x64": "QzHidAPI.dll",
         "windows-arm64": "QzHidAPI.dll"}
TAGS = {"linux-x64": "manylinux_2_17_x86_64", "linux-arm64": "manylinux_2_17_aarch64", "windows-x64": "win_amd64",
        "windows-arm64": "win_arm64"}


class PackagesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        for system, name in NAMES.items():
            cls.place(system, f"lib/{name}", f"real {system}")
            cls.place(system, f"lib/virtual/{name}", f"virtual {system}")
        made = cls.make("first", *NAMES)
        assert made.returncode == 0, made.stderr

    @classmethod
    def place(cls, system, name, text):
        file = cls.work / system / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    @classmethod
    def make(cls, out, *systems):
        return subprocess.run(
            [SOURCE / "bindings/make_packages.py", "--node-modules", NODE_MODULES, cls.work / out,
             *(f"{system}={cls.work / system}" for system in systems)], capture_output=True, text=True)

    def package(self, name):
        return self.work / "first" / name

    def read_zip(self, name):
        with zipfile.ZipFile(self.package(name)) as archive:
            return {entry: archive.read(entry) for entry in archive.namelist()}

    def test_there_is_a_wheel_for_each_system_whose_record_is_right(self):
        for system, tag in TAGS.items():
            files = self.read_zip(f"qzhidapi-{VERSION}-py3-none-{tag}.whl")
            native = {name: data.decode() for name, data in files.items() if "/native/" in name}
            self.assertEqual({f"qzhidapi/native/{NAMES[system]}": f"real {system}",
                              f"qzhidapi/native/virtual/{NAMES[system]}": f"virtual {system}"}, native)
            folder = f"qzhidapi-{VERSION}.dist-info"
            self.assertIn(f"Tag: py3-none-{tag}\n", files[f"{folder}/WHEEL"].decode())
            self.assertIn(f"\nVersion: {VERSION}\n", files[f"{folder}/METADATA"].decode())
            rows = list(csv.reader(io.StringIO(files[f"{folder}/RECORD"].decode())))
            self.assertEqual(sorted(files), sorted(row[0] for row in rows))
            for name, digest, size in rows[:-1]:
                wanted = base64.urlsafe_b64encode(hashlib.sha256(files[name]).digest()).rstrip(b"=").decode()
                self.assertEqual((f"sha256={wanted}", str(len(files[name]))), (digest, size), name)
            sources = {file.name for file in (SOURCE / "bindings/python/qzhidapi").glob("*.py")} | {"py.typed"}
            self.assertLessEqual({f"qzhidapi/{name}" for name in sources} | {f"{folder}/LICENSE"}, set(files))

    def test_the_package_for_npm_holds_all_systems_and_koffi(self):
        with tarfile.open(self.package(f"qzhidapi-{VERSION}.tgz")) as archive:
            files = {entry.name.removeprefix("package/"): archive.extractfile(entry).read() for entry in archive}
        for system, folder in {"linux-x64": "linux-x64", "linux-arm64": "linux-arm64", "windows-x64": "win32-x64",
                               "windows-arm64": "win32-arm64"}.items():
            self.assertEqual(f"real {system}", files[f"native/{folder}/{NAMES[system]}"].decode())
            self.assertEqual(f"virtual {system}", files[f"native/{folder}/virtual/{NAMES[system]}"].decode())
            self.assertIn(f"node_modules/@koromix/koffi-{folder}/package.json", files)
        manifest = json.loads(files["package.json"])
        self.assertEqual({*manifest["dependencies"], *manifest["optionalDependencies"]},
                         set(manifest["bundleDependencies"]))
        self.assertNotIn("scripts", json.loads(files["node_modules/koffi/package.json"]))
        self.assertLessEqual({"index.js", "index.d.ts", "lib/worker.js", "README.md", "LICENSE"}, set(files))

    def test_the_package_for_net_has_runtimes_for_all_systems(self):
        files = self.read_zip(f"QzHid.{VERSION}.nupkg")
        for system, folder in {"linux-x64": "linux-x64", "linux-arm64": "linux-arm64", "windows-x64": "win-x64",
                               "windows-arm64": "win-arm64"}.items():
            native = f"runtimes/{folder}/native"
            self.assertEqual(f"real {system}", files[f"{native}/{NAMES[system]}"].decode())
            self.assertEqual(f"virtual {system}", files[f"{native}/virtual/{NAMES[system]}"].decode())
        self.assertEqual(b"MZ", files["lib/net471/QzHid.dll"][:2])
        self.assertIn(f"<version>{VERSION}</version>", files["QzHid.nuspec"].decode())
        self.assertLessEqual({"src/QzHidApi.cs", "src/QzHidAbi.cs", "README.md", "LICENSE"}, set(files))

    def test_the_debian_package_needs_the_installed_library(self):
        fields = subprocess.run(["dpkg-deb", "-f", self.package(f"python3-qzhidapi_{VERSION}_all.deb")],
                                capture_output=True, text=True, check=True).stdout
        self.assertIn(f"\nDepends: python3 (>= 3.9), libqzhidapi1 (>= {VERSION})\n", fields)

    def test_the_same_contents_make_the_same_packages(self):
        self.assertEqual(0, self.make("second", *NAMES).returncode)
        names = [file.name for file in (self.work / "first").iterdir()]
        self.assertEqual(7, len(names))
        for name in names:
            self.assertTrue(self.package(name).read_bytes() == (self.work / "second" / name).read_bytes(), name)

    def test_a_folder_without_both_libraries_is_rejected(self):
        self.place("half", "QzHidAPI.dll", "real")
        for arguments, what in [(["windows-x64=half"], "half has 0 virtual libraries QzHidAPI.dll"),
                                (["linux-x64=half"], "half has 0 virtual libraries libQzHidAPI.so.1"),
                                (["plan9=half"], "there is no system plan9")]:
            run = subprocess.run([SOURCE / "bindings/make_packages.py", "third", *arguments], cwd=self.work,
                                 capture_output=True, text=True)
            self.assertIn(what, run.stderr)
            self.assertEqual(1, run.returncode)
            self.assertFalse((self.work / "third").exists())


if __name__ == "__main__":
    unittest.main()
