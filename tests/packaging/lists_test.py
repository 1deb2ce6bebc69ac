"""lists_test.py FOLDER BUILD...: the lists of what is in the packages and archives in that folder are valid SPDX 2.3
documents, and say what the files themselves show. The programs and libraries were built in the build folders."""
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
TOOLS = SOURCE / "packaging/artefacts"
sys.path.insert(0, str(TOOLS))
import archives  # noqa: E402

FOLDER, BUILDS = pathlib.Path(sys.argv[1]), [os.path.abspath(build) for build in sys.argv[2:]]
del sys.argv[1:]
# What code that includes a product's headers, or is linked with the C++ runtime, has in it: names of types.
TRACES = {b"N8nlohmann": r"nlohmann-json", b"N3CLI": r"cli11", b"\0St9exception\0": r"libc\+\+abi|g\+\+-mingw"}
PACKAGE_FIELDS = {"SPDXID", "name", "downloadLocation", "filesAnalyzed", "licenseDeclared"}
FILE_FIELDS = {"SPDXID", "fileName", "checksums"}


def run(folder, *builds):
    return subprocess.run([TOOLS / "list_contents.py", folder, *builds], capture_output=True, text=True,
                          env={**os.environ, "SOURCE_DATE_EPOCH": "1700000000"})


class ListsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        for file in FOLDER.iterdir():
            if file.is_file() and not file.name.endswith((".spdx.json", "SUMS", ".xml")):
                shutil.copy(file, cls.folder)
        cls.artefacts = sorted(cls.folder.iterdir())
        made = run(cls.folder, *BUILDS)
        assert made.returncode == 0, made.stderr
        cls.lists = {artefact: json.loads(pathlib.Path(f"{artefact}.spdx.json").read_text())
                     for artefact in cls.artefacts}

    def test_the_sums_are_those_of_all_files(self):
        checked = subprocess.run(["sha256sum", "--check", "--strict", "SHA256SUMS"], cwd=self.folder,
                                 capture_output=True, text=True)
        self.assertEqual(0, checked.returncode, checked.stderr)
        named = {line.split("  ")[1] for line in (self.folder / "SHA256SUMS").read_text().splitlines()}
        self.assertEqual({file.name for file in self.folder.iterdir()} - {"SHA256SUMS"}, named)

    def test_a_document_has_the_fields_that_spdx_requires(self):
        for artefact, document in self.lists.items():
            self.assertEqual(("SPDX-2.3", "CC0-1.0", "SPDXRef-DOCUMENT", artefact.name),
                             tuple(document[field] for field in ("spdxVersion", "dataLicense", "SPDXID", "name")))
            self.assertRegex(document["documentNamespace"], r"^urn:uuid:[0-9a-f-]{36}$")
            self.assertEqual("2023-11-14T22:13:20Z", document["creationInfo"]["created"])
            for creator in document["creationInfo"]["creators"]:
                self.assertRegex(creator, r"^(Person|Organization|Tool): \S")
            for elements, fields in ((document["packages"], PACKAGE_FIELDS), (document["files"], FILE_FIELDS)):
                for element in elements:
                    self.assertLessEqual(fields, set(element))
            for package in document["packages"]:
                self.assertRegex(package["licenseDeclared"], r"^(NOASSERTION|[A-Za-z0-9.-]+( WITH [A-Za-z0-9.-]+)?)$")
                self.assertEqual(package["filesAnalyzed"], "packageVerificationCode" in package)
        spaces = {document["documentNamespace"] for document in self.lists.values()}
        self.assertEqual(len(self.lists), len(spaces))

    def test_each_element_has_an_id_of_its_own_and_a_relationship(self):
        for document in self.lists.values():
            ids = [element["SPDXID"] for element in (document, *document["packages"], *document["files"])]
            self.assertEqual(len(ids), len(set(ids)))
            related = set()
            for relationship in document["relationships"]:
                related |= {relationship["spdxElementId"], relationship["relatedSpdxElement"]}
            self.assertEqual(set(ids), related)
            for number in ids:
                self.assertRegex(number, r"^SPDXRef-[A-Za-z0-9.-]+$")

    def test_the_sums_in_a_document_are_those_of_the_artefact_and_its_files(self):
        for artefact, document in self.lists.items():
            shipped = {f"./{name}": contents for name, contents in archives.shipped_files(artefact).items()}
            self.assertNotEqual({}, shipped)
            self.assertEqual(list(shipped), [file["fileName"] for file in document["files"]])
            described = document["packages"][0]
            pairs = [(described, artefact.read_bytes())]
            pairs += [(file, shipped[file["fileName"]]) for file in document["files"]]
            for element, contents in pairs:
                self.assertEqual({"SHA1": hashlib.sha1(contents).hexdigest(),
                                  "SHA256": hashlib.sha256(contents).hexdigest()},
                                 {sum_["algorithm"]: sum_["checksumValue"] for sum_ in element["checksums"]})
            sums = sorted(hashlib.sha1(contents).hexdigest() for contents in shipped.values())
            self.assertEqual(hashlib.sha1("".join(sums).encode()).hexdigest(),
                             described["packageVerificationCode"]["packageVerificationCodeValue"])

    def programs(self):
        """Each program and library with its contents, and the packages that it is related to."""
        for artefact, document in self.lists.items():
            packages = {package["SPDXID"]: package for package in document["packages"]}
            shipped = archives.shipped_files(artefact)
            for file in document["files"]:
                contents = shipped[file["fileName"].removeprefix("./")]
                if contents[:4] == b"\x7fELF" or contents[:2] == b"MZ":
                    yield contents, {kind: [packages[relationship["relatedSpdxElement"]]
                                            for relationship in document["relationships"]
                                            if (relationship["spdxElementId"], relationship["relationshipType"]) ==
                                            (file["SPDXID"], kind)] for kind in ("STATIC_LINK", "DYNAMIC_LINK")}

    def test_the_libraries_that_a_file_names_are_listed(self):
        for contents, related in self.programs():
            with tempfile.NamedTemporaryFile() as file:
                file.write(contents)
                file.flush()
                if contents[:2] == b"MZ":
                    said = subprocess.check_output(["llvm-objdump", "-p", file.name], text=True)
                else:
                    said = subprocess.check_output(["objdump", "-p", file.name], text=True)
            needed = re.findall(r"(?:DLL Name: |NEEDED +)(\S+)", said)
            listed = [package["packageFileName"] for package in related["DYNAMIC_LINK"]]
            self.assertEqual(sorted(set(needed)), sorted(listed))
            self.assertGreater(len(needed), 1)

    def test_what_left_its_traces_in_a_file_is_listed_with_its_version_and_licence(self):
        seen = set()
        for contents, related in self.programs():
            names = " ".join(package["name"] for package in related["STATIC_LINK"])
            for trace, name in TRACES.items():
                if trace in contents:
                    seen.add(trace)
                    self.assertRegex(names, name)
            for package in related["STATIC_LINK"]:
                self.assertNotIn("NOASSERTION", [package["licenseDeclared"], package.get("versionInfo", "NOASSERTION")])
        self.assertLessEqual({b"N8nlohmann", b"N3CLI"}, seen)

    def test_the_same_artefacts_have_the_same_lists(self):
        before = {file.name: file.read_bytes() for file in self.folder.iterdir()}
        self.assertEqual(0, run(self.folder, *BUILDS).returncode)
        self.assertEqual(before, {file.name: file.read_bytes() for file in self.folder.iterdir()})

    def test_a_program_that_no_build_makes_is_an_error(self):
        with tempfile.TemporaryDirectory() as empty:
            made = run(self.folder, empty)
        self.assertIn(f"nothing in {empty} makes ", made.stderr)
        self.assertEqual(1, made.returncode)


if __name__ == "__main__":
    unittest.main()
