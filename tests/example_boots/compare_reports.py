#!/usr/bin/env python3
"""Compares the JSON reports of several boots of one server, given without ".json": compare_reports.py STARTS REPORT...

Every boot starts the same option, whose name or path holds STARTS ("-": nothing starts), with the same options in the
same order; no pool block is lost and no service misused, and no step waits but as docs/boot-time.md says. Exit status 1 with
a line for each difference."""

import json
import sys


def same_for_all(boot):
    """What every boot of an unchanged server has alike."""
    last = boot["starts"][-1]
    return {"booted": boot["booted"], "order": last["order"], "options": last["options"]}


SETTLE = 0.2  # seconds that the BMC's file store gets behind each close


def expected_waits(start):
    """Seconds that each step may wait, the least and the most; all others wait for nothing. The least is what the table
    of docs/boot-time.md says, the most adds the exchanges themselves: 1.1 ms each, and as much per polled settling."""
    files = len(start["order"]) + 1  # the options and BootOrder
    traffic = 0.0011 * start["bmc"]["exchanges"] + 0.0001 * files
    return {
        "WaitForUserInput": [(3, 3)],
        "RestoreEfiBootVariablesFromBMC": [(0, 0.0011), (SETTLE * files, SETTLE * files + traffic)],
        "CheckZephan_EFIBootSupport": [(SETTLE, SETTLE + 0.0023)],
        "SetIpmiBootOptionPriorities": [(0, 0.0005 * start["bmc"]["ipmi_requests"])],
        # The examination of the copy, or reading BootOrder back, is one more close.
        "SaveEfiBootVaiablesToBMC": [(0, 0.0001), (SETTLE * (files + 1), SETTLE * (files + 1) + traffic)],
    }


def wait_faults(start, restores):
    """`restores`: the start before this one saved the first copy and reset."""
    expected = expected_waits(start)
    waits = {step["name"]: step["duration"] for step in start["time"]["steps"]}
    for name, waited in waits.items():
        ranges = expected.get(name, [(0, 0.0001)])
        if name == "RestoreEfiBootVariablesFromBMC" and restores:
            ranges = ranges[1:]
        if not any(least - 1e-6 <= waited <= most + 1e-6 for least, most in ranges):
            yield f"{name} waited {waited} s, expected {ranges}"
    for name in expected.keys() - waits.keys():
        yield f"{name} did not run"


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
        yield from (f"{where}: {fault}" for fault in wait_faults(start, number > 1))


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
