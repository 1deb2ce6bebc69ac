"""station_guide_test.py SOURCE PROGRAMS: runs the examples of docs/station.md on virtual hubs, those of
the section without hardware first, and compares what they print. The links lead somewhere."""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

source = pathlib.Path(sys.argv[1], "docs")
guide = (source / "station.md").read_text(encoding="utf-8")
failed = False


def fail(text):
    global failed
    failed = True
    print(text, file=sys.stderr)


def blocks(language, text=guide):
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.M | re.S)


start = guide.index("## Without hardware")
with tempfile.TemporaryDirectory() as folder:
    pathlib.Path(folder, "bays.json").write_text(blocks("json")[0])
    pathlib.Path(folder, "yields.py").write_text(blocks("python")[0])
    environment = {**os.environ, "PATH": os.path.abspath(sys.argv[2]) + ":" + os.environ["PATH"],
                   "XDG_CONFIG_HOME": folder, "QZ_VIRTUAL_HUB": "bays.json"}
    consoles = blocks("console", guide[start:]) + blocks("console", guide[:start])
    examples = [part for text in consoles for part in re.findall(r"^\$ (.*)\n((?:[^$].*\n)*)", text, re.M)]
    for command, wanted in examples:
        result = subprocess.run(command, shell=True, cwd=folder, env=environment, timeout=60,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8")
        if result.stdout != wanted:
            fail(f"{command}\nprints\n{result.stdout}{result.stderr}instead of\n{wanted}")
if len(examples) < 6:
    fail(f"only {len(examples)} examples were found")

for link in re.findall(r"\]\(([^)#]+)", guide):
    if not (source / link).exists():
        fail(f"{link} does not exist")
    elif link.endswith(".png") and (source / link).stat().st_size > 60000:
        fail(f"{link} is too large")
sys.exit(failed)
