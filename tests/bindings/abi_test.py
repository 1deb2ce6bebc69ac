"""What the bindings know of the library is what the header declares: one changed parameter, constant or
member in the header makes the check fail, for each language."""
import importlib.util
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
HEADER = (SOURCE / "include/QzHidAPI.h").read_text()
GENERATOR = SOURCE / "bindings/generate.py"
spec = importlib.util.spec_from_file_location("generate", GENERATOR)
generate = importlib.util.module_from_spec(spec)
spec.loader.exec_module(generate)
OTHER_TYPES = ["uint8_t", "uint16_t", "uint32_t", "int32_t", "void*", "uint8_t*", "uint16_t*", "uint32_t*",
               "const char*", "HidDevRecord*", "HidDevRecord**", "QZ_ProgressCallback"]


def unnoticed(header):
    """The files that such a header would leave as they are."""
    try:
        abi = generate.Abi(header)
        return [name for name, make in generate.FILES.items()
                if make(abi) == (SOURCE / "bindings" / name).read_text()]
    except generate.HeaderError:
        return []


class AbiTest(unittest.TestCase):
    def expect_noticed(self, header, what):
        self.assertNotEqual(HEADER, header, what)
        self.assertEqual([], unnoticed(header), what)

    def functions(self):
        return list(re.finditer(r"^QZ_API ([\w ]+?[ *]+)(QZ_\w+)\(([^)]*)\);", HEADER, re.M))

    def test_the_files_are_those_of_the_header(self):
        self.assertEqual(sorted(generate.FILES), sorted(unnoticed(HEADER)))

    def test_a_changed_type_of_any_parameter_is_noticed_for_each_language(self):
        for function in self.functions():
            start = function.start(3)
            for parameter in re.finditer(r"([^,]*?[ *])(\w+)(?=,|$)", function[3]):
                kind = re.sub(r"\s*\*", "*", " ".join(parameter[1].split()))
                for other in OTHER_TYPES:
                    if other == kind or kind == "":
                        continue
                    changed = (HEADER[:start + parameter.start(1)] + f" {other} "
                               + HEADER[start + parameter.end(1):])
                    self.expect_noticed(changed, f"{function[2]}: {parameter[2]} is {other}")

    def test_a_changed_result_and_a_missing_function_are_noticed(self):
        for function in self.functions():
            for result in {"uint8_t ", "uint32_t ", "void "} - {function[1]}:
                self.expect_noticed(HEADER[:function.start(1)] + result + HEADER[function.end(1):],
                                    f"{function[2]} returns {result}")
            self.expect_noticed(HEADER[:function.start()] + HEADER[function.end():], f"no {function[2]}")
            self.expect_noticed(HEADER.replace(f"{function[2]}(", f"{function[2]}2("), f"{function[2]} renamed")

    def test_parameters_that_are_swapped_added_or_missing_are_noticed(self):
        for old, new in [
                ("uint32_t* pVID, uint32_t* pPID);", "uint32_t* pPID, uint32_t* pVID);"),
                ("QZ_API void QZ_DllPassPara(uint32_t value);", "QZ_API void QZ_DllPassPara(void);"),
                ("QZ_HidI2CBlockEraseFlash(void* pDev)", "QZ_HidI2CBlockEraseFlash(void* pDev, uint8_t all)"),
                ("(*QZ_ProgressCallback)(int32_t percent)", "(*QZ_ProgressCallback)(int32_t percent, void* user)"),
                ("(*QZ_ProgressCallback)(int32_t percent)", "(*QZ_ProgressCallback)(uint8_t percent)"),
                ("QZ_API QZ_ExceptionFilter QZ_GenerateDumplog(void);",
                 "QZ_API QZ_ExceptionFilter QZ_GenerateDumplog(void);\nQZ_API void QZ_New(void);")]:
            self.expect_noticed(HEADER.replace(old, new, 1), new)

    def test_a_changed_constant_is_noticed(self):
        for name, value in [("QZ_RECORD_TEXT_UNITS", "512"), ("QZ_STATUS_REFUSED", "1u"),
                            ("QZ_DEVICE_TYPE_HID", "5u")]:
            self.expect_noticed(re.sub(f"^#define {name} .*$", f"#define {name} {value}", HEADER, flags=re.M), name)

    def test_a_changed_member_of_a_record_is_noticed(self):
        body = re.search(r"typedef struct HidDevRecord \{(.*?)\}", HEADER, re.S)
        members = list(re.finditer(r"(uint32_t|QZ_Utf16) (\w+)", body[1]))
        self.assertEqual(9, len(members))
        for member in members:
            at = body.start(1) + member.start(1)
            other = "QZ_Utf16" if member[1] == "uint32_t" else "uint32_t"
            self.expect_noticed(HEADER[:at] + other + HEADER[at + len(member[1]):], member[2])
        for value in re.findall(r"(?:sizeof|offsetof)\(HidDevRecord.*?\) == (\d+)", HEADER):
            self.expect_noticed(HEADER.replace(f"== {value},", f"== {int(value) + 2},"), value)

    def test_the_check_fails_where_a_file_differs_and_names_it(self):
        with tempfile.TemporaryDirectory() as folder:
            header = pathlib.Path(folder, "QzHidAPI.h")
            header.write_text(HEADER.replace("uint16_t wlen", "uint32_t wlen", 1))
            for arguments, status in ((["--header", header], 1), ([], 0)):
                check = subprocess.run([sys.executable, GENERATOR, "--check", *arguments],
                                       capture_output=True, text=True)
                self.assertEqual(status, check.returncode, check.stderr)
                self.assertEqual(sorted(f"bindings/{name}" for name in generate.FILES) if status else [],
                                 sorted(line.split()[0] for line in check.stderr.splitlines()))

    def test_the_layout_is_what_ctypes_makes_of_it(self):
        sys.path.insert(0, str(SOURCE / "bindings/python"))
        from qzhidapi import _abi
        import ctypes
        self.assertEqual(_abi.RECORD_SIZE, ctypes.sizeof(_abi.HidDevRecord))
        self.assertEqual(_abi.RECORD_OFFSETS, {name: getattr(_abi.HidDevRecord, name).offset
                                               for name in _abi.RECORD_OFFSETS})

    def test_all_packages_have_the_version_of_the_library(self):
        version = re.search(r"^project\(QzHidAPI VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.M)[1]
        for file, pattern in [("python/qzhidapi/__init__.py", '__version__ = "(.*)"'),
                              ("node/package.json", '"version": "(.*)"')]:
            found = re.search(pattern, (SOURCE / "bindings" / file).read_text())
            self.assertEqual(version, found and found[1], file)

    def test_the_tests_use_the_version_of_koffi_that_the_package_names(self):
        package, packed = (json.loads((SOURCE / "bindings" / folder / "package.json").read_text())
                           for folder in ("node", "packaging"))
        wanted = {**package["dependencies"], **package["optionalDependencies"]}
        self.assertEqual(wanted, {name: packed["dependencies"].get(name) for name in wanted})


if __name__ == "__main__":
    unittest.main()
