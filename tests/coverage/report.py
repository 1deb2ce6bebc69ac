#!/usr/bin/env python3
"""Prints how much of the library the tests run: report.py COVERAGE REASONS.

COVERAGE is gcovr's JSON. A block is a run of lines of code that no test has run. REASONS says why each
block of more than five lines is not run, one line for each function: "FILE FUNCTION: reason". A block
without a reason and a reason without a block are errors.
"""
import collections
import itertools
import json
import os
import re
import sys

LONGEST_WITHOUT_REASON = 5
Block = collections.namedtuple("Block", "file function first last size")


def code_lines(file):
    return [line for line in file["lines"]
            if not line["gcovr/noncode"] and not line["gcovr/excluded"]]


def function_at(functions, number):
    """The name, without scopes of no name, parameters and lambdas, of the function with that line."""
    before = [function for function in functions if function["lineno"] <= number]
    if not before:
        return "(none)"
    name = max(before, key=lambda function: function["lineno"])["name"]
    name = name.replace("(anonymous namespace)::", "").replace("qzhid::", "")
    return re.split(r"<|\(|\[|::\{lambda", name)[0].split(" ")[-1]


def blocks_of(file):
    """Each within one function."""
    def kind(line):
        return line["count"] == 0 and function_at(file["functions"], line["line_number"])
    for function, lines in itertools.groupby(code_lines(file), kind):
        numbers = [line["line_number"] for line in lines]
        if function:
            yield Block(file["file"], function, numbers[0], numbers[-1], len(numbers))


def read_reasons(path):
    reasons = {}
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            if line.strip() and not line.startswith("#"):
                place, reason = line.rstrip("\n").split(": ", 1)
                reasons[tuple(place.split(" "))] = reason
    return reasons


def percent(covered, total):
    return f"{100 * covered / total:6.1f} %" if total else "       -"


def print_table(files):
    counts = collections.defaultdict(lambda: [0, 0, 0, 0])
    for file in files:
        for line in code_lines(file):
            branches = [branch["count"] > 0 for branch in line["branches"]]
            for row in (os.path.dirname(file["file"]), "all"):
                found = (line["count"] > 0, 1, sum(branches), len(branches))
                counts[row] = [a + b for a, b in zip(counts[row], found)]
    print(f"{'folder':<32}{'lines':>8}{'run':>10}{'branches':>12}{'taken':>10}")
    for row in sorted(counts, key=lambda name: (name == "all", name)):
        run, lines, taken, branches = counts[row]
        print(f"{row:<32}{lines:>8}{percent(run, lines):>10}{branches:>12}{percent(taken, branches):>10}")
    return counts["all"][1] > 0


def lines_of(block):
    return str(block.first) if block.first == block.last else f"{block.first}-{block.last}"


def print_blocks(blocks, reasons):
    """The lines of short blocks, then long blocks; whether all of these and only these have a reason."""
    print("\nnot run:")
    found = set()
    for file, group in itertools.groupby(blocks, lambda block: block.file):
        group = list(group)
        short = [lines_of(block) for block in group if block.size <= LONGEST_WITHOUT_REASON]
        print(f"{file} {' '.join(short)}")
        for block in group:
            if block.size > LONGEST_WITHOUT_REASON:
                found.add((file, block.function))
                reason = reasons.get((file, block.function), "NO REASON")
                print(f"  {lines_of(block)} {block.function} ({block.size} lines): {reason}")
    for place in sorted(set(reasons) - found):
        print(f"{' '.join(place)}: NO SUCH BLOCK, but a reason")
    return found == set(reasons)


def main():
    with open(sys.argv[1], encoding="utf-8") as text:
        files = json.load(text)["files"]
    measured = print_table(files)
    blocks = [block for file in files for block in blocks_of(file)]
    return 0 if print_blocks(blocks, read_reasons(sys.argv[2])) and measured else 1


if __name__ == "__main__":
    sys.exit(main())
