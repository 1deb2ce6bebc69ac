"""The site of the documents, which script/docs has made."""
import pathlib
import re
import sys
import urllib.parse

import html5lib

import checks

SOURCE = pathlib.Path(__file__).parents[2]
SITE = SOURCE / "build/docs/html"
sys.path.insert(0, str(SOURCE / "tests/docs"))
import links

PAGES = sorted(SITE.glob("*.html"))
START = (SOURCE / "docs/README.md").read_text(encoding="utf-8")


class SiteTest(checks.PageTest):
    def setUp(self):
        super().setUp()
        self.assertNotEqual([], PAGES, "there is no site: run script/docs first")

    def open(self, name):
        self.chromium.open(SITE / name)

    def follow(self, action, address):
        """Does what leads to that address, and waits until it is shown. The page that does it is gone then, so
        nobody waits for its answer."""
        self.chromium.wanted, self.chromium.loads = f"{SITE.as_uri()}/{address.partition('#')[0]}", 0
        self.look(f"void setTimeout(() => {{ {action}; }})")
        self.wait_until(lambda: self.chromium.loads > 0, address)

    def search(self, words):
        self.open("index.html")
        self.follow(f"""(function (field) {{
            field.value = {words!r};
            field.form.requestSubmit();
        }})(document.querySelector("input[name=q]"))""", "search.html?" + urllib.parse.urlencode({"q": words}))

    def check_page(self):
        """The page has no faults, and its scripts and style sheets are those of the site."""
        self.assertEqual([], self.look(f"{checks.FIND_FAULTS}('body')"))
        self.assertEqual([], [name for name in self.chromium.requests if not name.startswith(SITE.as_uri())])
        self.assertEqual([], self.chromium.messages)

    def dark(self, is_dark):
        self.chromium.call("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}])

    def tearDown(self):
        self.dark(False)

    def test_every_page_is_valid_and_has_a_title_and_one_heading(self):
        for path in PAGES:
            with self.subTest(page=path.name):
                page = path.read_text(encoding="utf-8")
                tree = html5lib.HTMLParser(strict=True, namespaceHTMLElements=False).parse(page)
                self.assertRegex(tree.find(".//title").text, r"^(.+ - )?QzHidAPI \d+\.\d+\.\d+$")
                self.assertEqual(1, len(list(tree.iter("h1"))))
                self.assertNotEqual("", "".join(tree.find(".//h1").itertext()).strip())

    def test_all_links_lead_somewhere(self):
        self.assertEqual([], list(links.faults(SITE, PAGES)))
        self.assertIn("virtual-hub.html#faults", links.read(SITE / "contributing.html").links)

    def test_every_page_can_be_read_on_each_screen_and_in_both_colours(self):
        for path in PAGES:
            self.open(path.name)
            for size, is_dark in (((1280, 720), False), ((360, 640), True)):
                with self.subTest(page=path.name, size=size, dark=is_dark):
                    self.chromium.size(*size)
                    self.dark(is_dark)
                    self.check_page()

    def test_the_menu_has_the_order_of_the_start_page(self):
        self.open("index.html")
        menu = [*re.findall(r"^## (.*)", START, re.MULTILINE), *re.findall(r"\| \[(.*?)\]\(", START)]
        self.assertEqual(menu, self.texts("nav p") + self.texts("nav .toctree-l1 > a"))
        self.assertEqual(len(PAGES) - 2, len(self.texts("nav a")), "all but the start page and the search")

    def test_the_menu_of_a_page_shows_its_sections(self):
        self.open("linux.html")
        self.assertEqual(["Hubs on Linux"], self.texts("nav .toctree-l1 > a.current"))
        self.assertEqual([heading.removesuffix("¶") for heading in self.texts("h2")], self.texts("nav .toctree-l2"))
        self.chromium.size(1280, 300)
        self.open("vulnerabilities.html")
        current = "document.querySelector('nav a.current').getBoundingClientRect().bottom"
        self.assertLess(self.look(current), 300)

    def test_the_page_of_the_header_describes_every_function(self):
        functions = re.findall(r"^QZ_API [^(;]*?(QZ_\w+)\(", (SOURCE / "include/QzHidAPI.h").read_text(), re.MULTILINE)
        self.assertEqual(27, len(functions))
        self.open("header.html")
        self.assertEqual(functions, [heading.removesuffix("¶") for heading in self.texts("h3")])
        self.assertEqual(functions, self.texts("dl.function .sig-name"))
        self.assertEqual(27, len(self.texts("dl.function > dd > p:first-child")))
        self.assertEqual(["HidDevRecord", "QZ_Utf16", "QZ_ExceptionFilter", "QZ_ProgressCallback", "QZ_RECORD_TEXT_UNITS",
                          "QZ_STATUS_REFUSED", "QZ_DEVICE_TYPE_HID"],
                         self.texts("#types-and-constants > dl > dt .sig-name"))
        self.assertEqual(9, len(self.texts("#types-and-constants dl dl > dd > p:first-child")), "the members of HidDevRecord")
        self.assertIn("None of these changes which device is open.", self.texts("#gpio > p")[0])

    def test_log_lines_are_shown_as_they_are(self):
        self.open("exports.html")
        self.assertIn('"Unknow Dev!!\\n" at level 3', self.look("document.body.innerText"))

    def test_a_function_is_found_and_shown(self):
        self.search("QZ_UpdateDev")
        self.check_page()
        self.assertEqual(["QZ_UpdateDev"] * 2, self.texts("#results a")[:2])
        self.assertEqual(["The header", "The exports"], self.texts("#results span")[:2])
        self.follow("document.querySelector('#results a').click()", "header.html#qz-updatedev")
        self.assertIn("Writes", self.texts("#qz-updatedev")[0])
        top = self.look("document.getElementById('qz-updatedev').getBoundingClientRect().top")
        below = self.look("document.querySelector('header').getBoundingClientRect().bottom")
        self.assertTrue(below <= top < below + 100, (below, top))

    def test_a_word_is_found_in_all_kinds_of_documents(self):
        self.search("loader")
        self.check_page()
        self.picture("site-search")
        self.assertLess({"Writing a host", "qzhid", "The log", "Examples", "The header"}, set(self.texts("#results span")))
        self.assertEqual({"loader"}, {word.lower() for word in self.texts("mark")})
        address = self.look("document.querySelector('#results a').href")
        self.follow("document.querySelector('#results a').click()", address.rpartition("/")[2])
        self.assertIn("loader", self.look("document.querySelector(location.hash).innerText").lower())

    def test_all_words_must_be_in_a_section(self):
        self.search("  LOADER   erase ")
        some = self.texts("#results a")
        self.assertIn("When an update fails", some)
        self.search("loader erase zebra")
        self.assertEqual(([], ["0 sections contain “loader erase zebra”."]), (self.texts("#results a"), self.texts("#summary")))
        self.search("erase")
        self.assertLess(len(some), len(self.texts("#results a")))

    def test_headings_come_first(self):
        self.search("linux")
        self.assertEqual(["Linux", "Linux"], self.texts("#results a")[:2])
        has_word = ["linux" in heading.lower() for heading in self.texts("#results a")]
        self.assertEqual(sorted(has_word, reverse=True), has_word)
        self.assertIn(False, has_word)

    def test_what_is_searched_for_is_text(self):
        self.search("<b>x</b>")
        self.assertEqual(["0 sections contain “<b>x</b>”."], self.texts("#summary"))
        self.search(" ")
        self.assertEqual(["Type what you look for above."], self.texts("#summary"))
        self.check_page()

    def test_a_telephone_hides_the_menu_until_it_is_wanted(self):
        self.open("index.html")
        self.assertTrue(self.is_shown("nav"))
        self.chromium.size(360, 640)
        self.assertFalse(self.is_shown("nav"))
        self.look("document.querySelector('header label').click()")
        self.assertTrue(self.is_shown("nav"))
        self.check_page()
        self.picture("site-phone-menu")
