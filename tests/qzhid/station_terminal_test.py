"""station_terminal_test.py SHOW_STATION QZHID QZHUB: a station on a terminal, from its first screen to
its end."""
import codecs
import fcntl
import json
import os
import pathlib
import pty
import re
import select
import struct
import subprocess
import sys
import tempfile
import termios
import time

show_station, qzhid, qzhub = map(os.path.abspath, sys.argv[1:4])
failed = False
CURRENT = {"name": "left", "state": "passed", "outcome": "current", "from": "2.10", "runs": "2.10"}
REFUSED = {"name": "right", "state": "failed", "outcome": "refused", "from": "1.02",
           "reason": "the image is for vendor 2E7C, the hub is of vendor 2E7D",
           "next": "put the unit aside"}
VIEW = {"image": "new.bin", "version": "2.10", "passed": 1, "failed": 1, "bays": [CURRENT, REFUSED]}


def expect(what, wanted, got):
    global failed
    if wanted != got:
        failed = True
        print(f"{what}:\nwanted {wanted}\ngot    {got}")


class Terminal:
    """A program on a terminal, and what the terminal shows."""

    def __init__(self, arguments, columns, lines, **settings):
        self.master, self.slave = pty.openpty()
        self.shown, self.bells, self.written, self.at = [], 0, "", 0
        self.decoder = codecs.getincrementaldecoder("utf-8")()
        self.resize(columns, lines)
        environment = {**os.environ, "LC_ALL": "C.UTF-8", **settings}
        for name in {"NO_COLOR"} - set(settings):
            environment.pop(name, None)
        self.process = subprocess.Popen(arguments, stdin=self.slave, stdout=self.slave, stderr=self.slave,
                                        env=environment, start_new_session=True, preexec_fn=self.control)

    def control(self):
        fcntl.ioctl(0, termios.TIOCSCTTY, 0)

    def resize(self, columns, lines):
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))

    def echoes(self):
        return bool(termios.tcgetattr(self.slave)[3] & termios.ECHO)

    def take(self):
        """Carries out what the program has written so far."""
        while select.select([self.master], [], [], 0.02)[0]:
            self.written += self.decoder.decode(os.read(self.master, 1 << 16))
        whole = re.sub("\x1b[^A-Za-z]*$", "", self.written)  # without a sequence that is not complete
        for part in re.findall("\x1b\\[[?0-9;]*[A-Za-z]|\a|[^\x1b\a]+", whole[self.at:]):
            self.obey(part)
        self.at = len(whole)

    def obey(self, part):
        place = re.fullmatch("\x1b\\[([0-9]+);1H", part)
        if part == "\a":
            self.bells += 1
        elif part == "\x1b[2J":
            self.shown = []
        elif place:
            self.line = int(place[1]) - 1
            self.shown += [""] * (self.line + 1 - len(self.shown))
            self.shown[self.line] = ""
        elif not part.startswith("\x1b") and self.shown:
            self.shown[self.line] += part

    def lines(self):
        """All lines but the first, which has a speed in it."""
        self.take()
        return [line.rstrip() for line in self.shown[1:]]

    def await_(self, condition, what):
        end = time.monotonic() + 20
        while not condition():
            if time.monotonic() > end:
                expect(what, "soon", "\n".join(self.shown) or self.written)
                break

    def end(self):
        """Ends the program as Ctrl-C does; returns what is written after the screen was left."""
        os.write(self.master, b"\x03")
        self.await_(lambda: (self.take(), self.process.poll() is not None)[1], "the end")
        self.take()
        expect("status", 0, self.process.poll())
        expect("what is typed is shown at the end", True, self.echoes())
        self.process.kill()
        os.close(self.master), os.close(self.slave)
        return self.written.rpartition("\x1b[?1049l")[2]


def screen(columns, lines):
    """The lines of a whole screen but the first, and of those below the tiles."""
    result = subprocess.run([show_station, "screen", str(columns), str(lines), "utf8", ""], check=True,
                            input=json.dumps([VIEW]).encode(), stdout=subprocess.PIPE, timeout=20)
    shown = result.stdout.decode().splitlines()[1:]
    while shown and not shown[-1]:
        shown.pop()
    return shown


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    subprocess.run([qzhub, "image", "--out", "new.bin", "--version", "0210"], check=True, timeout=20)
    pathlib.Path("scenario.json").write_text(json.dumps({"time": "virtual", "devices": [
        {"name": "a", "port": "3.1", "image": {"version": "0x0210"}},
        {"name": "b", "port": "3.2", "image": {"vid": "0x2E7D"}}]}))
    os.environ.update(QZ_VIRTUAL_HUB="scenario.json", XDG_CONFIG_HOME=folder)
    command = [qzhid, "--virtual", "station", "--image", "new.bin", "--record", "units.jsonl",
               "--bay", "left=1-3.1", "--bay", "right=1-3.2"]

    # The screen is that of the view; it follows the size; the terminal is at the end as it was.
    terminal = Terminal([*command, "--page", "page.html"], 80, 24)
    for size in ((80, 24), (120, 35)):
        terminal.resize(*size)
        wanted = screen(*size)
        terminal.await_(lambda: terminal.lines() == wanted, f"the screen at {size}")
    expect("totals", True, bool(re.match("new.bin 2.10 +passed 1  failed 1  yield 50.0 %  [0-9.]+ an hour", terminal.shown[0])))
    expect("PASS is green and FAIL is red", {"30;42", "1;97;41"},
           set(re.findall("\x1b\\[([0-9;]+;4[0-9])m", terminal.written)))
    expect("bells", 1, terminal.bells)
    expect("what is typed is shown", False, terminal.echoes())
    rest = terminal.end()
    expect("screens", ["h", "l"], re.findall("\x1b\\[\\?1049([hl])", terminal.written))
    expect("cursor", ["l", "h"], re.findall("\x1b\\[\\?25([hl])", terminal.written))
    expect("end", "1 passed, 1 failed", rest.split("\r\n")[-2])
    expect("page", 1, pathlib.Path("page.html").read_text().count('id="ended"'))

    # Without the bell; without colours; a page that cannot be written is said once, and again at the end.
    terminal = Terminal([*command, "--quiet", "--page", "none/page.html"], 80, 24, NO_COLOR="1")
    terminal.await_(lambda: any("put the unit aside" in line for line in terminal.lines()), "FAIL")
    expect("bells with --quiet", 0, terminal.bells)
    expect("colours with NO_COLOR", [], re.findall("\x1b\\[[0-9;]*m", terminal.written))
    remark = "the page none/page.html cannot be created: No such file or directory; the line goes on without it"
    expect("remark on the screen", True, remark[:50] in "".join(terminal.lines()))
    expect("remark at the end", 1, terminal.end().count(remark))

    # Lines, on request.
    terminal = Terminal([*command, "--no-color"], 80, 24)
    terminal.await_(lambda: (terminal.take(), "FAIL" in terminal.written and "PASS" in terminal.written)[1], "lines")
    expect("screens with --no-color", 0, terminal.written.count("\x1b"))
    terminal.end()
    expect("bells in lines", 1, terminal.bells)
sys.exit(failed)
