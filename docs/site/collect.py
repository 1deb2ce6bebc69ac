"""collect.py SOURCE FOLDER: writes what Sphinx makes the site of into the folder, all side by side. The links
of the start page, docs/README.md, say which documents there are and in which order; its headings are the parts
of the menu. A link to anything that is not on the site becomes plain text."""
import os
import pathlib
import re
import shutil
import subprocess
import sys

START = "docs/README.md"
HEADER = "include/QzHidAPI.h"
# Pages that do not have the name of their file in the source tree.
NAMES = {START: "index", "README.md": "overview", "SECURITY.md": "vulnerabilities", HEADER: "header"}
FILES = ("docs/qzhid.schema.json", "docs/pictures/*", "examples/*.c")
LINK = re.compile(r"\[([^\[\]]*)\]\(([^()\s#]+)(#[^()\s]*)?\)")
CODE_BLOCK = re.compile(r"(^```.*?^```$)", re.MULTILINE | re.DOTALL)


def target_of(document, link):
    """The path in the source tree that a link of a document leads to."""
    return os.path.normpath(os.path.join(os.path.dirname(document), link))


def links_of(text):
    """The links of the start page: the words, and the path in the source tree."""
    return [(words, target_of(START, link)) for words, link, _ in LINK.findall(text)]


def document(text, path, pages, titles, files):
    """A document in Markdown, with the links of the site. Names of documents become their titles."""

    def new_link(found):
        words, link, section = found[1], found[2], found[3] or ""
        if ":" in link:
            return found[0]
        target = target_of(path, link)
        if words.endswith(".md"):
            words = f"*{titles[target]}*"
        if target in pages:
            return f"[{words}]({pages[target]}.md{section})"
        return f"[{words}]({pathlib.Path(target).name})" if target in files else words

    return "".join(part if part.startswith("```") else LINK.sub(new_link, part) for part in CODE_BLOCK.split(text))


def menu(start, pages):
    """The menu: for each heading of the start page its links."""
    text = ""
    for part in start.split("\n## ")[1:]:
        entries = "\n".join(f"{words} <{pages[target]}>" for words, target in links_of(part))
        text += f"\n```{{toctree}}\n:hidden:\n:caption: {part.splitlines()[0]}\n\n{entries}\n```\n"
    return text


def manual_page(path):
    """A manual page as Markdown: its headings, and HTML between them."""
    page = subprocess.run(["mandoc", "-T", "html", "-O", "fragment", path], check=True, text=True,
                          stdout=subprocess.PIPE).stdout
    page = page[page.index('<div class="manual-text">'):page.rindex("</div>")]
    page = re.sub(r' id="[^"]*"|<a class="permalink"[^>]*>|</a>|</?section[^>]*>', "", page)
    text = f"# The manual page {path.stem}({path.suffix[1:]})\n"
    for level, heading, body in re.findall(r"<h([12])[^>]*>(.*?)</h\1>(.*?)(?=<h[12]|\Z)", page, re.DOTALL):
        heading = " ".join(heading.split())
        text += f"\n{'#' * (int(level) + 1)} {heading.capitalize() if level == '1' else heading}\n"
        text += f"\n```{{raw}} html\n{body}\n```\n"
    return text


def header_page(header):
    """The page of the header, in reStructuredText: Doxygen's text of each name, below the headings that the
    header has as comments."""

    def heading(text, line):
        return f"\n{text}\n{line * len(text)}\n\n"

    text = heading("The header QzHidAPI.h", "=")
    text += ".. doxygenfile:: QzHidAPI.h\n   :sections: briefdescription detaileddescription\n"
    text += heading("Types and constants", "-")
    parts = header.split("/* ---- ")
    for kind, pattern in (("struct", r"^typedef struct (\w+) {"), ("typedef", r"^typedef [^{;]*?(\w+);"),
                          ("typedef", r"^typedef void \(\*(\w+)\)"), ("define", r"^#define (QZ_\w+) \d")):
        options = "\n   :members:" if kind == "struct" else ""
        for name in dict.fromkeys(re.findall(pattern, parts[0], re.MULTILINE)):
            text += f".. doxygen{kind}:: {name}{options}\n\n"
    for part in parts[1:]:
        comment, functions = part.split("*/", 1)
        title, _, introduction = comment.partition("---")
        text += heading(title.strip(), "-") + re.sub(r"^[-*\s]+", "", introduction, flags=re.MULTILINE) + "\n"
        for name in re.findall(r"^QZ_API [^(;]*?(QZ_\w+)\(", functions, re.MULTILINE):
            text += heading(name, "~") + f".. doxygenfunction:: {name}\n"
    return text


def main(source, folder):
    def read(path):
        return (source / path).read_text(encoding="utf-8")

    folder.mkdir(parents=True)
    start = read(START)
    titles = {START: "Documents", **{target: words for words, target in links_of(start)}}
    pages = {target: NAMES.get(target, pathlib.Path(target).stem.lower()) for target in titles}
    files = {path.relative_to(source).as_posix() for pattern in FILES for path in source.glob(pattern)}
    for path in files:
        shutil.copy(source / path, folder)
    for path, name in pages.items():
        kind = ".md"
        if path == HEADER:
            text, kind = header_page(read(path)), ".rst"
        elif path == "examples":
            text = read("docs/site/examples.md")
        elif path.endswith(".md"):
            text = document(read(path), path, pages, titles, files)
        else:
            text = manual_page(source / path)
        (folder / (name + kind)).write_text(text + (menu(start, pages) if path == START else ""), encoding="utf-8")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
