"""What a terminal shows, as a page, so that a picture can be taken of it."""
import html
import re

COLOURS = {"30": "#000000", "97": "#ffffff", "36": "#34c8d8", "41": "#c4221f", "42": "#2ec04f",
           "43": "#e5c12e", "45": "#a32fb5"}


def style_of(sequence):
    """The style that a sequence for colours switches on."""
    style = []
    for number in sequence.split(";"):
        if number == "1":
            style.append("font-weight: bold")
        elif number == "2":
            style.append("color: #9aa4ae")
        elif number != "0":
            style.append(("background: " if number[0] == "4" else "color: ") + COLOURS[number])
    return "; ".join(style)


def page_of(lines):
    """A page with the lines of a terminal, which can have sequences for colours."""
    text = ""
    for line in lines:
        for sequence, part in re.findall("(?:\x1b\\[([0-9;]*)m)?([^\x1b]*)", line):
            text += f'<span style="{style_of(sequence or "0")}">{html.escape(part)}</span>'
        text += "\n"
    return ('<!DOCTYPE html><html lang="en"><meta charset="utf-8"><title>terminal</title><style>'
            "html { background: #14171b; } pre { display: inline-block; margin: 8px; color: #e8ebef; "
            'font: 14px/16px "DejaVu Sans Mono", monospace; } span { display: inline-block; }</style><pre>' + text + "</pre></html>")
