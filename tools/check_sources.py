#!/usr/bin/env python3
"""Checks what the compiler does not: that the driver stays freestanding and that includes form no circle.

Usage: check_sources.py [ROOT]   (default: the tree this script lies in)
Prints one line per fault, "file:line: what is wrong and what is expected". Exit status 0: none, 1: faults, 2: usage.

- Driver directories include allowed standard headers and the driver's own files only, never sim/ or tests/.
- They hold no function-local or namespace-scope variable that is changed at run time without `constinit` (state has
  one record per subsystem), no thread_local, no exceptions, no RTTI, no new or delete of the heap.
- `#ifdef` and its kin appear in platform/ only.
- A quoted include names an existing file from the root; no chain of includes leads back to where it began.
"""
import re
import sys
from pathlib import Path

DRIVER = ("core", "bootopt", "bmc", "osopt", "flexboot", "vboot", "inventory", "platform", "support")
ALL = DRIVER + ("sim", "tests", "bench", "examples", "tools")
ALLOWED = {"cstddef", "cstdint", "type_traits", "concepts", "utility", "span", "array", "bit", "limits", "compare",
           "new", "cstdarg", "initializer_list"}
INCLUDE = re.compile(r'^\s*#\s*include\s+(?:"([^"]+)"|<([^>]+)>)')
CONDITION = re.compile(r"^\s*#\s*(ifdef|ifndef|if|elif)\b")
STATIC = re.compile(r"^\s*static\s+(?!_assert|constexpr\b|consteval\b|inline\s+constexpr\b)[^(]*[;={]")
FORBIDDEN = (
    (STATIC, "a static variable; state lives in its subsystem's record"),
    (re.compile(r"\bthread_local\b"), "thread_local"),
    (re.compile(r"\b(?:try\s*\{|throw\b|catch\s*\()"), "an exception"),
    (re.compile(r"\b(?:dynamic_cast|typeid)\b"), "run-time type information"),
    (re.compile(r"(?<!::)(?<!operator )\bnew\s+(?!\()[A-Za-z_]"), "the heap's new (support/pool.h owns memory)"),
    (re.compile(r"\bdelete\s+[A-Za-z_\[]|\bdelete\[\]"), "the heap's delete"),
)
# `Type name = value;` or `Type name{...};` at the left margin: a global that needs a constructor or escapes the records.
GLOBAL = re.compile(r"^(?!.*\b(?:constexpr|constinit|using|namespace|return|typedef|template|friend|extern|enum|struct|"
                    r"class|union|static_assert|asm|if|for|while|switch|case|else|do|goto)\b)"
                    r"[A-Za-z_][\w:<>,*& ]*[ *&]\w+(?:\[[^\]]*\])?\s*(?:=[^=].*|\{[^()]*\})?;\s*$")


def blank_comments_and_texts(text):
    """The text with comments and literals blanked; lines keep their numbers."""
    pattern = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\\n])*\'', re.S)

    def blank(match):
        kept = match.group(0)
        if kept.startswith('"'):
            return '"' + " " * (len(kept) - 2) + '"'
        return re.sub(r"[^\n]", " ", kept)
    return pattern.sub(blank, text)


def sources(root):
    for directory in ALL:
        for path in sorted((root / directory).rglob("*")):
            if path.suffix in (".h", ".cpp") and path.is_file():
                yield path.relative_to(root).as_posix()


def includes(lines):
    for number, line in enumerate(lines, 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def check_driver_file(name, lines, report):
    code = blank_comments_and_texts("\n".join(lines)).split("\n")
    for number, quoted, angled in includes(lines):
        if angled and angled not in ALLOWED:
            report(name, number, f"<{angled}> is a hosted header; the driver is freestanding")
        if quoted and quoted.split("/")[0] not in DRIVER:
            report(name, number, f'"{quoted}" is no part of the driver')
    for number, line in enumerate(code, 1):
        if CONDITION.match(line) and not name.startswith("platform/"):
            report(name, number, "conditional compilation belongs to platform/")
        for pattern, what in FORBIDDEN:
            if pattern.search(line):
                report(name, number, f"{what} is not for the driver")
        if GLOBAL.match(line):
            report(name, number, "a variable without constinit or constexpr may need a constructor at start")


def check_targets_exist(name, lines, files, report):
    for number, quoted, _ in includes(lines):
        if quoted and quoted not in files:
            report(name, number, f'"{quoted}" does not exist below the root')


def find_circles(graph):
    """Each circle of includes once, as the list of its files with the first one repeated at the end."""
    state, circles = {}, []
    for start in sorted(graph):
        if start in state:
            continue
        trail, stack = [], [(start, iter(sorted(graph[start])))]
        state[start] = "open"
        trail.append(start)
        while stack:
            node, rest = stack[-1]
            following = next(rest, None)
            if following is None:
                state[node] = "done"
                stack.pop()
                trail.pop()
            elif state.get(following) == "open":
                circles.append(trail[trail.index(following):] + [following])
            elif following not in state and following in graph:
                state[following] = "open"
                trail.append(following)
                stack.append((following, iter(sorted(graph[following]))))
    return circles


def check(root):
    faults = []

    def report(name, number, text):
        faults.append(f"{name}:{number}: {text}")

    files = {name: (root / name).read_text(encoding="utf-8").split("\n") for name in sources(root)}
    for name, lines in files.items():
        check_targets_exist(name, lines, files, report)
        if name.split("/")[0] in DRIVER:
            check_driver_file(name, lines, report)
    graph = {name: {quoted for _, quoted, _ in includes(lines) if quoted in files} for name, lines in files.items()}
    for circle in find_circles(graph):
        faults.append(f"{circle[0]}:1: includes form a circle: " + " -> ".join(circle))
    return files, faults


def main(arguments):
    if len(arguments) > 1:
        print(__doc__, file=sys.stderr)
        return 2
    root = Path(arguments[0]) if arguments else Path(__file__).resolve().parent.parent
    if not root.is_dir():
        print(f"{root}: no such directory", file=sys.stderr)
        return 2
    files, faults = check(root)
    for fault in faults:
        print(fault)
    print(f"{len(files)} files checked, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
