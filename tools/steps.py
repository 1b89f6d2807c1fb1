#!/usr/bin/env python3
"""Makes docs/steps.md from the step table, and checks that it and the other documents agree with the table.

Usage: steps.py [--check] [ROOT]   (default: the tree this script lies in)
Without --check docs/steps.md is written anew. With it nothing is written; exit status 1 and a line for each fault:
- docs/steps.md is not what the table makes of it;
- a document names a step by a number that is not its place, or by a number without its name: each "step N" stands
  beside the name of row N in the same sentence, table row or list item.
"""
import re
import sys
from pathlib import Path

DRIVER = ("core", "bootopt", "bmc", "osopt", "flexboot", "vboot", "inventory")
ROW = re.compile(r"^    Row<(\w+)>\(\), +// (.+)$", re.M)
HEAD = """# The steps of a boot

`BdsEntry` calls these seventy routines in this order; `core/step_table.cpp` is the table that this list is made from
(`tools/steps.py`).

| # | Step | File | Purpose |
|---|---|---|---|
"""


def rows(root):
    """(name, file, purpose) of each row, in table order."""
    table = ROW.findall((root / "core/step_table.cpp").read_text(encoding="utf-8"))
    sources = {path: path.read_text(encoding="utf-8")
               for directory in DRIVER for path in sorted((root / directory).rglob("*.cpp"))}
    for name, purpose in table:
        defined = re.compile(rf"^(?:void|EFI_STATUS) {name}\(\) \{{", re.M)
        files = [path.relative_to(root).as_posix() for path, text in sources.items() if defined.search(text)]
        if len(files) != 1:
            sys.exit(f"{name}: defined in {files or 'no file'}, expected one")
        yield name, files[0], purpose


def document(steps):
    return HEAD + "".join(f"| {number} | `{name}` | `{file}` | {purpose} |\n"
                          for number, (name, file, purpose) in enumerate(steps))


def wrong_numbers(root, names):
    """Lines about numbers that do not stand beside the name that is theirs."""
    documents = [path for path in sorted(root.glob("*.md")) + sorted(root.glob("[a-z]*/**/*.md"))
                 if path.relative_to(root).parts[0] != "build" and path.name != "steps.md"]
    for path in documents:
        # A statement ends with a full stop before a blank, an empty line, a table row or a list item.
        for statement in re.split(r"\.\s|\n\s*\n|\n(?=\||\s*- )", path.read_text(encoding="utf-8")):
            for number in re.findall(r"\b[Ss]teps?\s+(\d+)\b(?!\s+to\b)", statement):
                if int(number) >= len(names) or names[int(number)] not in statement:
                    yield f"{path.relative_to(root)}: step {number} without its name: {' '.join(statement.split())[:90]}"


def main(arguments):
    check = "--check" in arguments
    places = [argument for argument in arguments if argument != "--check"]
    root = Path(places[0]) if places else Path(__file__).resolve().parent.parent
    steps = list(rows(root))
    target = root / "docs/steps.md"
    if not check:
        target.write_text(document(steps), encoding="utf-8")
        return 0
    faults = list(wrong_numbers(root, [name for name, _, _ in steps]))
    if not target.exists() or target.read_text(encoding="utf-8") != document(steps):
        faults.insert(0, "docs/steps.md is not up to date: run tools/steps.py")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
