"""The links of documents, in Markdown as GitHub shows it and in HTML, and those that lead nowhere."""
import collections
import functools
import html.parser
import re
import urllib.parse

EXTERNAL = re.compile(r"https?://[a-z0-9-]+(\.[a-z0-9-]+)+(/[^\s<>\"]*)?|mailto:[^\s@]+@[^\s@]+")


def without_code(text):
    """The text of a Markdown document without its code, in which nothing is a link or a heading."""
    text = re.sub(r"^( *)```.*?^ *```$", "", text, flags=re.MULTILINE | re.DOTALL)
    return re.sub(r"(`+)(?!`).+?(?<!`)\1(?!`)", "", text)


def slug(heading):
    """The anchor that GitHub gives a heading."""
    words = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading).replace("`", "").replace("*", "")
    return re.sub(r"[^\w\- ]", "", words.strip().lower()).replace(" ", "-")


class Markdown:
    """The anchors and links of a Markdown document."""

    def __init__(self, text):
        plain = without_code(text)
        self.links = [link.strip("<>") for link in re.findall(r"\]\(\s*(\S+?)\s*(?:\"[^\"]*\")?\)", plain)]
        self.links += re.findall(r"^\[[^\]]+\]:\s+(\S+)", plain, re.MULTILINE)
        text = re.sub(r"^( *)```.*?^ *```$", "", text, flags=re.MULTILINE | re.DOTALL)
        slugs = [slug(heading) for heading in re.findall(r"^#{1,6} +(.*?)#* *$", text, re.MULTILINE)]
        counts = collections.Counter()
        self.anchors = []
        for name in slugs:
            self.anchors.append(f"{name}-{counts[name]}" if counts[name] else name)
            counts[name] += 1


class Html(html.parser.HTMLParser):
    """The anchors and links of a page."""

    def __init__(self, text):
        super().__init__()
        self.links, self.anchors = [], []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src", "action"):
                self.links.append(value)
            elif name == "id":
                self.anchors.append(value)


READERS = {".md": Markdown, ".html": Html}


@functools.lru_cache(maxsize=None)
def read(path):
    """The document in a file; None if that is no document."""
    reader = READERS.get(path.suffix)
    return reader(path.read_text(encoding="utf-8")) if reader and path.is_file() else None


def fault(folder, path, link):
    """What is wrong with a link of the document in that file; None if it leads to something in the folder."""
    if re.match(r"[a-z]+:", link):
        return None if EXTERNAL.fullmatch(link) else "is not an address"
    name, _, anchor = link.partition("#")
    target = (path.parent / urllib.parse.unquote(name.partition("?")[0])).resolve() if name else path.resolve()
    if not target.is_relative_to(folder.resolve()):
        return "leaves the folder"
    if not target.exists():
        return "does not exist"
    document = read(target)
    if not anchor or (document and anchor in document.anchors):
        return None
    return f"has no section '{anchor}'" if document else "is no document, and has no sections"


def faults(folder, paths):
    """What is wrong with the links of these documents, a line for each."""
    for path in paths:
        name = path.relative_to(folder)
        document = read(path)
        for link in document.links:
            reason = fault(folder, path, link)
            if reason:
                yield f"{name}: {link} {reason}"
        for anchor, count in collections.Counter(document.anchors).items():
            if count > 1:
                yield f"{name}: {count} sections have the anchor '{anchor}'"
