"""documents_test.py FOLDER: the installed documents in that folder are those of the list. They are the same
as in the source tree, without the links that would lead nowhere."""
import pathlib
import re
import sys

SOURCE = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(SOURCE / "tests/docs"))
import links

DOCUMENTS = """
CHANGELOG.md README.md SECURITY.md
docs/README.md docs/bindings.md docs/building.md docs/capture.md docs/exports.md docs/host-guide.md docs/json.md
docs/linux.md docs/logs.md docs/performance.md docs/security.md docs/station.md docs/virtual-hub.md
docs/qzhid.schema.json
docs/pictures/explain-capture.png docs/pictures/station-page.png docs/pictures/station-terminal.png
examples/gpio_blink.c examples/i2c_eeprom.c examples/update_hub.c
""".split()


def without_links(data):
    return re.sub(rb"\[([^\[\]]*)\]\([^()\s]+\)", rb"\1", data)


folder = pathlib.Path(sys.argv[1])
found = {path.relative_to(folder).as_posix() for path in folder.rglob("*") if path.is_file()}
found = {name for name in found if name != "LICENSE" and not name.startswith("licences/")}
wrong = [f"{name} is missing" for name in sorted(set(DOCUMENTS) - found)]
wrong += [f"{name} is too many" for name in sorted(found - set(DOCUMENTS))]
for name in sorted(found.intersection(DOCUMENTS)):
    if without_links((folder / name).read_bytes()) != without_links((SOURCE / name).read_bytes()):
        wrong.append(f"{name} differs from the source tree")
    if name.endswith(".md"):
        # LICENSE is not in all packages.
        right = [link for link in links.read(SOURCE / name).links
                 if link != "LICENSE" and not links.fault(folder, folder / name, link)]
        has = links.read(folder / name).links
        wrong += [f"{name} has the link {link}, which leads nowhere" for link in has if link not in right]
        wrong += [f"{name} does not have the link {link}" for link in right if link not in has]
sys.exit("\n".join(wrong) or None)
