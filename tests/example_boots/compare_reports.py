#!/usr/bin/env python3
"""Compares the JSON reports of several boots of one server, given without ".json": compare_reports.py STARTS REPORT...

Every boot starts the same option, whose name or path holds STARTS ("-": nothing starts), with the same options in the
same order; no pool block is lost and no service misused. Exit status 1 with a line for each difference."""

import json
import sys


def same_for_all(boot):
    """What every boot of an unchanged server has alike."""
    last = boot["starts"][-1]
    return {"booted": boot["booted"], "order": last["order"], "options": last["options"]}


def faults_of(name, boot, starts):
    booted = boot["booted"]
    text = "-" if booted is None else f"{booted['name']} {booted['path']}"
    if starts not in text:
        yield f"{name}: started '{text}', not '{starts}'"
    if not boot["starts"]:
        yield f"{name}: no start at all"
    for number, start in enumerate(boot["starts"], 1):
        where = f"{name}, start {number}"
        if start["pool"]["leaks"]:
            yield f"{where}: pool blocks lost: {start['pool']['leaks']}"
        for complaint in start["complaints"]:
            yield f"{where}: {complaint}"
        if not start["order"]:
            yield f"{where}: no boot order"


def main(starts, paths):
    faults = []
    first = None
    for path in paths:
        with open(path + ".json", encoding="utf-8") as file:
            (boot,) = json.load(file)["boots"]
        name = path.rsplit("/", 1)[-1]
        faults += faults_of(name, boot, starts)
        state = same_for_all(boot)
        first = first or state
        faults += [f"{name}: {key} differs:\n  {first[key]}\n  {state[key]}" for key in state if state[key] != first[key]]
    print("\n".join(faults), end="\n" if faults else "", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
