"""links_test.py SOURCE: in the documents of the source tree, all links lead to files and sections as GitHub
shows them, and all files that are named exist. The start page names all documents, each once."""
import pathlib
import re
import sys

import links

# What stands for a name in the documents.
PLACEHOLDER = re.compile(r"\b(NAME|TARGET|PRESET)(?=\b|_)|<[a-z]+>")

source = pathlib.Path(sys.argv[1])
folders = "|".join(re.escape(path.name) for path in source.iterdir() if path.is_dir() and path.name != "build")
documents = [path for pattern in ("*.md", "docs/*.md", "bindings/*/README.md", ".github/**/*.md")
             for path in sorted(source.glob(pattern))]
wrong = list(links.faults(source, documents))

for path in documents:
    for name in re.findall(rf"`((?:{folders})/[^\s`]*)`", path.read_text(encoding="utf-8")):
        if not any(source.glob(PLACEHOLDER.sub("*", name).rstrip("/"))):
            wrong.append(f"{path.relative_to(source)}: {name} does not exist")

start = source / "docs/README.md"
named = [(start.parent / link).resolve() for link in links.read(start).links]
wrong += [f"docs/README.md: {path} is named twice" for path in sorted(set(named)) if named.count(path) > 1]
for pattern in ("*.md", "docs/*.md", "packaging/man/*", "include/*.h", "examples"):
    wrong += [f"docs/README.md: {path.relative_to(source)} is missing" for path in sorted(source.glob(pattern))
              if path != start and path.resolve() not in named]
sys.exit("\n".join(wrong) or None)
