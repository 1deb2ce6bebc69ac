"""logs_test.py SOURCE TABLE: holds the table of log lines, which the program TABLE prints, against
the library's sources, where no line may be missing or too many, and against docs/logs.md.

To renew the page after a change of the table: logs_test.py SOURCE TABLE --write"""
import pathlib
import re
import subprocess
import sys

source, table = pathlib.Path(sys.argv[1]), sys.argv[2]
START = "<!-- The rest comes from tools/qzhid/explain/log_lines.cpp: tests/qzhid/logs_test.py -->\n"
TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|[uUL8]*"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|\w+|\s+|.', re.S)
failed = False


def fail(text):
    global failed
    failed = True
    print(text, file=sys.stderr)


def literals(path):
    """Each string of a source file, adjacent ones joined, with the call that it is an argument of."""
    calls, before, text = [], "", None
    for token in TOKEN.findall(path.read_text()):
        if token.isspace() or token.startswith(("//", "/*")):
            continue
        if token.endswith('"'):
            text = (text or "") + token[token.index('"') + 1:-1]
            continue
        if text is not None:
            yield text, calls[-1] if calls else ""
            text = None
        if token in "([{":
            calls.append(before)
        elif token in ")]}" and calls:
            calls.pop()
        before = token


def shown(text):
    return text.replace("\\n", "").replace("\\r", "").strip()


def logged():
    """The texts that the library logs: all with a line end, and all that are given to Log and Print."""
    texts = set()
    for path in sorted((source / "src").rglob("*.*")):
        if "platform" in path.parts or path.suffix not in (".cpp", ".h"):
            continue
        for text, call in literals(path):
            isFormat = call in ("Log", "Print") and "%" in text and text not in ("%s", "%s\\n")
            if call != "DebugPrint" and ("\\n" in text or isFormat):
                texts.add(shown(text))
    return texts


# The platform must not log: its calls say what failed, and the layers above log it.
for path in (source / "src/platform").rglob("*.cpp"):
    if re.search(r"\bCMsg::Instance\(\)\.(Log|Print)\(", path.read_text()):
        fail(f"{path.name} logs, but is not searched for lines")

tables = subprocess.run([table], stdout=subprocess.PIPE, text=True, check=True).stdout
rows = [[cell.strip() for cell in line.split(" | ")] for line in tables.splitlines()
        if re.match(r"\| \d \|", line)]
known = {"" if row[2] == "(a line end)" else row[2].strip("`") for row in rows}
for text in sorted(logged() - known):
    fail(f"src/ logs '{text}', which the table of log lines does not have")
for text in sorted(known - logged()):
    fail(f"the table of log lines has '{text}', which src/ does not log")

# A name is a string of the sources, or a class whose functions log.
strings = {text for path in (source / "src").rglob("*.*") if path.suffix in (".cpp", ".h")
           for text, _ in literals(path)}
for row in rows:
    for name in re.findall(r"`([^`]+)`", row[1]):
        stem = name.removesuffix("*").removesuffix("::")
        if stem != "QZ_" and not any(each == name or each.startswith(stem) for each in strings):
            fail(f"the table of log lines has the name '{name}', which src/ does not have")
    if not row[4].endswith("."):
        fail(f"the meaning of '{row[2]}' is no sentence")

page = source / "docs/logs.md"
text = page.read_text()
wanted = text[:text.index(START) + len(START)] + tables
if sys.argv[3:] == ["--write"]:
    page.write_text(wanted)
elif text != wanted:
    fail("docs/logs.md differs from the table of log lines; logs_test.py --write renews it")
sys.exit(failed)
