# The site of all documents, which script/docs makes.
import html
import json
import pathlib
import re

from docutils import nodes
from sphinx import addnodes

project = "QzHidAPI"
extensions = ["myst_parser", "breathe"]
root_doc = "index"
smartquotes = False  # so that log lines stay as they are
myst_heading_anchors = 6
breathe_projects = {project: str(pathlib.Path(__file__).parents[2] / "build/docs/xml")}
breathe_default_project = project
breathe_domain_by_extension = {"h": "c"}
html_theme = "theme"
html_theme_path = ["."]
html_copy_source = False
html_use_index = False
html_domain_indices = False
html_additional_pages = {"search": "search.html"}


def text_of(node):
    """The text of a node, without the sections in it."""
    if isinstance(node, nodes.raw):
        return html.unescape(re.sub(r"<[^>]*>", " ", node.astext()))
    if isinstance(node, (nodes.section, nodes.title, nodes.comment)):
        return ""
    if isinstance(node, nodes.Text):
        return node.astext()
    separator = "" if isinstance(node, nodes.TextElement) else " "
    return separator.join(text_of(child) for child in node.children)


def write_sections(app, error):
    """Writes what the page for searching looks for words in."""
    if error:
        return
    sections = []
    start = app.env.get_doctree(root_doc)
    for title, page in (entry for menu in start.findall(addnodes.toctree) for entry in menu["entries"]):
        for section in app.env.get_doctree(page).findall(nodes.section):
            text = " ".join(" ".join(text_of(child) for child in section.children).split())
            sections.append({"title": title, "heading": section[0].astext(), "text": text,
                             "address": f"{page}.html#{section['ids'][0]}"})
    lines = ",\n".join(json.dumps(section, ensure_ascii=False) for section in sections)
    pathlib.Path(app.outdir, "_static/sections.js").write_text(f"const SECTIONS = [\n{lines}\n];\n", encoding="utf-8")


def prepare(app):
    app.builder.search = False  # theme/search.html needs no server


def correct(app, tree):
    """Two things about the header's page: between a parameter and what it is, Sphinx has hyphens, which it
    leaves to smartquotes; and Breathe has a list inside of a paragraph."""
    for text in list(tree.findall(nodes.Text)):
        if text == " -- ":
            text.parent.replace(text, nodes.Text(": "))
    for items in list(tree.findall(nodes.bullet_list)):
        paragraph = items.parent
        if isinstance(paragraph, nodes.paragraph):
            paragraph.remove(items)
            paragraph.parent.insert(paragraph.parent.index(paragraph) + 1, items)


def setup(app):
    app.connect("builder-inited", prepare)
    app.connect("doctree-read", correct)
    app.connect("build-finished", write_sections)
