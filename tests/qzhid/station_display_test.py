"""station_display_test.py SHOW_STATION: what a station shows on a terminal and in lines."""
import difflib
import json
import pathlib
import re
import subprocess
import sys
import unicodedata

import station_views as sample

failed = False


def show(views, *words):
    """The lines that the program prints for these views."""
    result = subprocess.run([sys.argv[1], *words], input=json.dumps(views).encode(), check=True,
                            stdout=subprocess.PIPE, timeout=20)
    return result.stdout.decode().splitlines()


def screen(view, columns, lines, abilities="utf8", remark=""):
    return show([view], "screen", str(columns), str(lines), abilities, remark)


def compare(what, wanted, shown):
    global failed
    if wanted != shown:
        failed = True
        print(what, *difflib.unified_diff(wanted, shown, "wanted", "shown", lineterm=""), sep="\n")


def width(text):
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1
               for c in text)


# Whole screens. Each begins with a line "=== TITLE" in the file of screens.
stopped = {"stopped": sample.NO_SPACE}
screens = {
    "a station that waits for its first hub": (sample.view(passed=0, failed=0, rate=0), 80, 24),
    "one bay": (sample.view(sample.WRITING, failed=0, rate=7.25), 80, 24),
    "four bays": (sample.many(4), 80, 24),
    "eight bays": (sample.many(8), 80, 24),
    "sixteen bays": (sample.many(16), 80, 24),
    "thirty-two bays": (sample.many(32), 80, 24),
    "four bays on a large terminal": (sample.many(4), 200, 60),
    "a tile of its own for each retry and outcome":
        (sample.view(sample.AGAIN, sample.RECOVERED, sample.CURRENT, sample.REFUSED), 100, 30),
    "a line that has stopped": (sample.many(5, **stopped), 80, 24),
    "wide characters and long texts": (sample.view(sample.WIDE, sample.LONG, sample.EVIL), 80, 24),
    "one failure in three thousand": (sample.many(5, passed=2999, failed=1), 72, 6),
    "more bays than lines": (sample.many(32), 50, 6),
    "a terminal without UTF-8": (sample.many(4), 80, 24, "", "the page → Ω cannot be written"),
}
golden, title = {}, None
for line in pathlib.Path(__file__).with_name("station_screens.golden").read_text().splitlines():
    if line.startswith("=== "):
        title = line[4:]
    golden.setdefault(title, []).extend([] if line.startswith("=== ") else [line])
compare("titles", sorted(screens), sorted(golden))
for title, arguments in screens.items():
    compare(title, golden.get(title, []), screen(*arguments))

# Every size is filled, the last column stays free, and colours change nothing but colours.
for count in (0, 1, 2, 3, 7, 31, 32):
    for columns, lines in ((1, 1), (2, 3), (15, 4), (37, 11), (80, 24), (81, 25), (133, 40), (200, 60)):
        view = sample.many(count)
        plain = screen(view, columns, lines)
        what = f"{count} bays at {columns}x{lines}"
        compare(f"lines of {what}", [str(lines)], [str(len(plain))])
        compare(f"width of {what}", [], [line for line in plain if width(line) > max(columns - 1, 1)])
        coloured = screen(view, columns, lines, "utf8 colours")
        bare = [re.sub("\x1b\\[[0-9;]*m", "", line).rstrip() for line in coloured]
        compare(f"text of {what}", plain, bare)
        ends = [re.findall("\x1b\\[[0-9;]*m", line)[-1:] for line in coloured]
        compare(f"colours of {what}", [], [end for end in ends if end not in ([], ["\x1b[0m"])])

# PASS is green, FAIL is red, and a stopped line is neither.
for name, bay, more, colour in (("PASS", sample.PASSED, {}, "30;42"), ("FAIL", sample.LOST, {}, "1;97;41"),
                                ("STOP", sample.FREE, stopped, "1;97;45"), ("SCAN", sample.SCAN, {}, "30;43")):
    line = screen(sample.view(bay, **more), 80, 24, "utf8 colours")[1]
    compare(name, [colour], re.findall("\x1b\\[([0-9;]+)m[^\x1b]*" + name, line))

# Nothing from outside reaches the terminal as a control character, or turns the text around.
text = "\n".join(screen(sample.view(sample.EVIL), 80, 24) + show([sample.view(), sample.view(sample.EVIL)], "events"))
compare("control characters", [], re.findall("[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]", text))

# The end that the user wants is no failure.
compare("end", ["  the line has stopped: the station ends"],
        show([sample.view(), sample.view(stopped="the station ends", ending=True)], "events"))

# The events between views, in order; "!" is a failure.
unit = [sample.FREE, sample.SCAN, sample.CHECKING, sample.WRITING, {**sample.WRITING, "percent": 50},
        {**sample.WRITING, "retries": 1}, sample.RECOVERED, sample.FREE, sample.LOST, sample.LOST,
        sample.REFUSED, sample.FREE]
compare("events", [
    "  bay left: a hub has arrived; scan its label",
    "  bay left: started: checking the hub",
    "  bay left: writing",
    "  bay left: PASS: loader → 2.10, 1 retry",
    "  bay left: unplugged",
    "! bay left: FAIL: lost: the update failed, and the hub has left the bus; unplug it, plug it in again",
    "! bay left: FAIL: refused: the image is for vendor 2E7C, and the hub is of vendor 1A2B; put the unit aside",
    "  bay left: unplugged",
], show([sample.view({**bay, "name": "left"}) for bay in unit], "events"))
compare("events of several bays", [
    "  bay 2: started, label SN-0047-13: writing",
    "! the line has stopped: " + sample.NO_SPACE,
    "  the line runs again",
], show([sample.view(sample.PASSED), sample.view(sample.PASSED, sample.WRITING),
         sample.view(sample.PASSED, sample.WRITING, **stopped), sample.view(sample.PASSED, sample.WRITING)],
        "events"))
sys.exit(failed)
