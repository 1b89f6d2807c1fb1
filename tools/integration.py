#!/usr/bin/env python3
"""Checks docs/integration.md against the driver: every protocol, signal and marker that the driver names has a row there.

Usage: integration.py [ROOT]   (default: the tree this script lies in)
Reads the GUIDs of platform/ and looks which of them the driver's directories name, by interface type or by constant.
Prints a line for each that docs/integration.md does not show by that name with that GUID in one table row, and for each
row whose GUID is no GUID of platform/. Exit status 1: there were such lines.
"""
import re
import sys
from pathlib import Path

DRIVER = ("core", "bootopt", "bmc", "osopt", "flexboot", "vboot", "inventory", "support")
GUID = re.compile(r"(?:EFI_GUID\s+(\w+)|EFI_GUID\s+ProtocolGuid<(\w+)>)\s*\{\s*(0x\w+),\s*(0x\w+),\s*(0x\w+),\s*"
                  r"\{([^}]*)\}")
TEXT = re.compile(r"\b[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\b")


def registry_form(first, second, third, rest):
    tail = "".join(f"{int(byte, 16):02X}" for byte in rest.split(","))
    return f"{int(first, 16):08X}-{int(second, 16):04X}-{int(third, 16):04X}-{tail[:4]}-{tail[4:]}"


def texts(root, directories, pattern):
    return "\n".join(path.read_text(encoding="utf-8") for directory in directories
                     for path in sorted((root / directory).rglob(pattern)))


def main(arguments):
    root = Path(arguments[0]) if arguments else Path(__file__).resolve().parent.parent
    guids = {constant or type_: registry_form(*parts)
             for constant, type_, *parts in GUID.findall(texts(root, ("platform",), "*.h"))}
    driver = texts(root, DRIVER, "*.cpp") + texts(root, DRIVER, "*.h")
    rows = [line for line in (root / "docs/integration.md").read_text(encoding="utf-8").split("\n")
            if line.startswith("|")]
    faults = []
    for name, guid in sorted(guids.items()):
        if re.search(rf"\b{name}\b", driver) and not any(f"`{name}`" in row and guid in row for row in rows):
            faults.append(f"docs/integration.md: no row with `{name}` and {guid}")
    known = set(guids.values()) | set(registry_form(*parts) for _, _, *parts in GUID.findall(driver))
    for row in rows:
        if not row.startswith("| `"):
            continue  # a table about something else
        faults += [f"docs/integration.md: {guid} is none of the driver's" for guid in TEXT.findall(row)
                   if guid not in known]
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
