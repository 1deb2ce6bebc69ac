"""What holds for every page that is made for a browser. A test of a page is a PageTest."""
import json
import os
import pathlib
import re
import unittest

import html5lib

import browser

# What JavaScript finds on the page: texts that leave the box around them or are cut, and texts with
# too little contrast (WCAG 2: 4.5). Texts in a box that scrolls may leave it. `boxes` is a selector of the boxes.
FIND_FAULTS = """(function (boxes) {
  const faults = [], root = document.documentElement;
  function light(rgb) {
    const part = rgb.match(/[\\d.]+/g).slice(0, 3).map(x => x / 255)
      .map(x => x <= .04045 ? x / 12.92 : ((x + .055) / 1.055) ** 2.4);
    return .2126 * part[0] + .7152 * part[1] + .0722 * part[2];
  }
  function contrast(a, b) {
    const [dark, bright] = [light(a), light(b)].sort((x, y) => x - y);
    return (bright + .05) / (dark + .05);
  }
  function ground(element) {
    const colour = getComputedStyle(element).backgroundColor;
    return colour !== "rgba(0, 0, 0, 0)" || element === root ? colour : ground(element.parentElement);
  }
  function isInScroller(element) {
    return element !== root && (/auto|scroll/.test(getComputedStyle(element).overflowX) || isInScroller(element.parentElement));
  }
  if (root.scrollWidth > innerWidth) faults.push("the page is too wide");
  for (const element of document.body.querySelectorAll("*")) {
    const text = [...element.childNodes].filter(x => x.nodeType === 3).map(x => x.data.trim()).join("");
    const rect = element.getBoundingClientRect();
    if (text === "" || rect.width === 0 || ["SCRIPT", "STYLE", "NOSCRIPT"].includes(element.tagName)) continue;
    const ratio = contrast(getComputedStyle(element).color, ground(element));
    if (ratio < 4.5) faults.push("contrast " + ratio.toFixed(1) + ": " + text);
    if (isInScroller(element)) continue;
    const box = (element.closest(boxes) || root).getBoundingClientRect();
    if (rect.left < box.left - 1 || rect.right > box.right + 1 || rect.top < box.top - 1 ||
        rect.bottom > box.bottom + 1) faults.push("leaves its box: " + text);
    if (element.clientWidth > 0 && (element.scrollWidth > element.clientWidth + 1 ||
        element.scrollHeight > element.clientHeight + 4)) faults.push("is cut: " + text);
  }
  return faults;
})"""


class PageTest(unittest.TestCase):
    """A test with a browser, the folder of the programs and a folder for what it makes."""
    programs = folder = chromium = None  # which run.py sets
    boxes = "body"

    def setUp(self):
        self.chromium.size(1280, 720)

    def write(self, page, name="page"):
        """Replaces the file of a page in one step, as programs do, and returns its path."""
        path = pathlib.Path(self.folder, f"{self.id().split('.')[-1]}-{name}.html")
        new = path.with_suffix(".new")
        new.write_text(page, encoding="utf-8")
        os.replace(new, path)
        return path

    def check_source(self, page):
        """The page is valid HTML5 and names nothing outside itself."""
        tree = html5lib.HTMLParser(strict=True, namespaceHTMLElements=False).parse(page)
        names = [value for element in tree.iter() for name, value in element.attrib.items()
                 if name in ("src", "srcset", "href", "data", "action", "poster")]
        styles = [element.text for element in tree.iter("style")]
        styles += [element.get("style", "") for element in tree.iter()]
        self.assertEqual([], [name for name in names if not name.startswith(("#", "data:"))])
        self.assertEqual([], re.findall(r"url\(|@import", "".join(styles)))

    def check_shown(self, faults=()):
        """The page that the browser shows has no faults but these, asked for itself only, and its
        scripts complained about nothing."""
        found = self.look(f"{FIND_FAULTS}({json.dumps(self.boxes)})")
        self.assertEqual(sorted(faults), sorted(found))
        self.assertEqual({self.chromium.wanted}, set(self.chromium.requests))
        self.assertEqual([], self.chromium.messages)

    def look(self, script):
        return self.chromium.evaluate(script)

    def texts(self, selector):
        """The texts of all elements that the selector names, as the user sees them."""
        return self.look(f"[...document.querySelectorAll({json.dumps(selector)})].map(x => x.innerText)")

    def is_shown(self, selector):
        return self.look(f"document.querySelector({json.dumps(selector)})?.getBoundingClientRect().height > 0")

    def wait_until(self, condition, what):
        self.chromium.wait(condition, what)

    def picture(self, name):
        self.chromium.screenshot(pathlib.Path(self.folder, name + ".png"))


__all__ = ["PageTest", "browser"]
