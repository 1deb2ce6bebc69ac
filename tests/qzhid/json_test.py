"""json_test.py SOURCE QZHID QZHUB WORK: validates the results and events that json_test.sh has kept in
WORK, runs the examples of docs/json.md, and compares the words of schema, documents and help."""
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

try:
    from jsonschema import Draft202012Validator
except ImportError:
    sys.exit("Python has no module jsonschema; script/bootstrap native installs it")


def without_repetition(members):
    if len(dict(members)) < len(members):
        sys.exit(f"a member is twice in {members}")
    return dict(members)


source, work = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[4])
qzhid, qzhub = (os.path.abspath(program) for program in sys.argv[2:4])
schema = json.loads((source / "docs/qzhid.schema.json").read_text(), object_pairs_hook=without_repetition)
definitions = schema["$defs"]
page = (source / "docs/json.md").read_text()
manual = (source / "packaging/man/qzhid.1").read_text().replace("\\-", "-")
failed = False


def fail(text):
    global failed
    failed = True
    print(text, file=sys.stderr)


def agree(what, **words):
    """The words of all sources are the same, in any order."""
    first, *others = words
    for other in others:
        if set(words[first]) != set(words[other]):
            fail(f"{what}: {first} has {sorted(set(words[first]))}, {other} has {sorted(set(words[other]))}")


def validate(what, text, *names):
    """Returns the object in the text, which each definition must describe."""
    try:
        value = json.loads(text)
    except ValueError as error:
        fail(f"{what} is not JSON: {error}: {text}")
        return {}
    for name in names:
        whole = {**schema, "anyOf": [{"$ref": f"#/$defs/{name}"}]} if name else schema
        for error in Draft202012Validator(whole).iter_errors(value):
            fail(f"{what} is not as {name or 'the schema'} describes: {error.message}: {text}")
    return value


def objects(node):
    """All objects that the schema describes."""
    if isinstance(node, list):
        return [found for item in node for found in objects(item)]
    if not isinstance(node, dict):
        return []
    return [node] * ("additionalProperties" in node) + objects(list(node.values()))


def rows(start, columns):
    """The first cells of each row of the page's table that begins like that."""
    table = re.search(r"(?:^\|.*\n)+", page[page.index(start):], re.M)[0]
    return [[cell.strip(" `") for cell in line.split("|")[1:columns + 1]]
            for line in table.splitlines()[2:]]


def help_on(*command):
    return subprocess.run([qzhid, *command, "--help"], stdout=subprocess.PIPE, text=True).stdout


def commands(*group):
    """The names of all commands, as in "gpio get"."""
    below = re.search(r"^Subcommands:\n((?:  .*\n)+)", help_on(*group), re.M)
    if not below:
        return [" ".join(group)]
    names = re.findall(r"^  ([a-z0-9]+)", below[1], re.M)
    # Help is for people, and has no result.
    return [name for word in names if word != "help" for name in commands(*group, word)]


Draft202012Validator.check_schema(schema)
results = []
for file in (work / "results").iterdir():
    _, name, status = file.name.split()
    results.append((int(status), validate(file.name, file.read_text(), name, "")))
events = []
for file in (work / "events").iterdir():
    lines = file.read_text().splitlines()
    if any(line.startswith("{") for line in lines):
        events += [validate(f"event of run {file.name}", line, "event") for line in lines]
    elif not all(re.match("qzhid: |hub ", line) for line in lines):
        fail(f"run {file.name} says {lines}")

# What the exit status says about the hubs of a run, as the tables have it.
outcomes = set()
for status, result in results:
    if result.get("dry_run", True):
        continue
    told = [hub["outcome"] for hub in result["hubs"]]
    bad = [outcome for outcome in told if outcome not in ("updated", "current")]
    if len(bad) <= 1:
        outcomes.update((str(status), outcome) for outcome in bad or told)
table = re.findall(r"^(\d)\t(.*)\tT\{$", manual, re.M)
agree("outcomes and exit statuses", runs=outcomes, manual=[row for row in table if row[1] != "-"],
      json_md=[(status, row[0]) for row in rows("| outcome |", 2) for status in row[1].split(" or ")])
agree("outcomes", schema=definitions["outcome"]["enum"], runs=[outcome for _, outcome in outcomes])
agree("exit statuses", runs=[str(status) for status, _ in results], manual=[row[0] for row in table],
      json_md=["0", *re.findall(r"(\d) [a-z]", re.search(r"^\| `status` .*", page, re.M)[0])],
      help=re.findall(r"(\d) [a-z]", help_on().partition("Exit status:")[2]))
states = re.search(r"^\.SS qzhid list\n(.*?)^\.PP", manual, re.M | re.S)[1]
# These two need a real kernel, or no library.
agree("states", schema=definitions["state"]["enum"],
      runs=["no node", "unknown"] +
           [hub["state"] for _, result in results for hub in result.get("hubs", []) if "state" in hub],
      manual=re.findall(r"^\.B ([a-z][a-z ]+)$", states, re.M),
      json_md=re.findall(r"`([a-z ]+)`", re.search(r"^`state` is (.*?)\. ", page, re.M)[1]))
kinds = [kind["properties"] for kind in definitions["event"]["oneOf"]]
if any(event.get("text", "").startswith("qzhid") for event in events):
    fail("the text of an event begins as a line for people does")
agree("events", schema=[kind["event"]["const"] for kind in kinds],
      runs=[event["event"] for event in events], json_md=[row[0] for row in rows("| event |", 1)])
agree("phases", schema=[phase for kind in kinds if "phase" in kind for phase in kind["phase"]["enum"]],
      runs=[event["phase"] for event in events if "phase" in event],
      json_md=re.findall(r"`([a-z]+)`", re.search(r"`phase`: (.*?);", page)[1]))
described = objects(definitions)
members = {name for one in described for name in one["properties"]}
agree("members that can be missing", schema=[name for one in described for name in one["properties"]
                                             if name not in one["required"]],
      json_md=["state", "version", "data", "file", "bundle"])
for name in re.findall(r"`(\w+)`", "".join(line.split("|")[1] for table in page.split("| member |")[1:]
                                           for line in table.partition("\n\n")[0].splitlines()[2:])):
    if name not in members:
        fail(f"docs/json.md: the schema has no {name}")
agree("commands", help=commands(),
      schema=[reference["$ref"].rpartition("/")[2].replace("-", " ") for reference in schema["anyOf"]
              if not reference["$ref"].endswith("/failure")],
      json_md=[name for line in re.findall(r"^### (.*)", page, re.M) for name in line.split(", ")])

# The examples print what the document shows; of the library's path, only that there is one.
os.chdir(work)
(work / "config/qzhid").mkdir(parents=True)
(work / "config/qzhid/ports.conf").write_text("bay 3 = 1-3.1\n")
(work / "scenario.json").write_text(re.search(r"```json\n(.*?)```", page, re.S)[1])
subprocess.run([qzhub, *re.search(r"`qzhub (image .*?)`", page)[1].split()], check=True)
for command, shown in re.findall(r"```console\n\$ qzhid ([^\n]*)\n(.*?)```", page, re.S):
    errors = subprocess.STDOUT if "--progress" in command else subprocess.DEVNULL
    printed = subprocess.run([qzhid, "--virtual", *shlex.split(command)], stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=errors, text=True).stdout
    if "{...}" in shown:
        printed = re.sub(r'"hub": \{[^}]*\}', '"hub": {...}', printed)
    printed, shown = (re.sub(r"(the library is ).*(?=\")", r"\1FILE", text) for text in (printed, shown))
    if printed != shown:
        fail(f"docs/json.md: qzhid {command} prints\n{printed}instead of\n{shown}")
sys.exit(failed)
