#!/usr/bin/env python3
"""Writes NVRAM contents as an operating system's installer leaves them.

usage: installer_nvram.py NVRAM_DIR DISK_IMAGE [NUMBER LABEL LOADER]...

For each NUMBER (hexadecimal), LABEL and LOADER (a path on the first GPT partition of DISK_IMAGE, with backslashes) it
writes the variable BootNUMBER: a hard-drive path node and a file path node, no optional data. BootOrder lists the
numbers in the order given. Files have the layout of Linux's efivarfs: four attribute bytes, then the data.
"""
import struct
import sys
import uuid
from pathlib import Path

GLOBAL = "8be4df61-93ca-11d2-aa0d-00e098032b8c"
NON_VOLATILE_BOOT_RUNTIME = 7
END_NODE = bytes([0x7F, 0xFF, 4, 0])


def first_partition(image):
    """(start block, blocks, unique GUID bytes) of the first entry of the GPT at block 1."""
    with open(image, "rb") as file:
        file.seek(512)
        header = file.read(92)
        if header[:8] != b"EFI PART":
            sys.exit(f"{image}: no GPT header at block 1")
        (entries,) = struct.unpack_from("<Q", header, 72)
        file.seek(entries * 512)
        entry = file.read(128)
    first, last = struct.unpack_from("<QQ", entry, 32)
    return first, last - first + 1, entry[16:32]


def node(kind, subkind, body):
    return struct.pack("<BBH", kind, subkind, 4 + len(body)) + body


def load_option(label, loader, partition):
    start, blocks, guid = partition
    hard_drive = node(4, 1, struct.pack("<IQQ16sBB", 1, start, blocks, guid, 2, 2))
    path = hard_drive + node(4, 4, (loader + "\0").encode("utf-16-le")) + END_NODE
    return struct.pack("<IH", 1, len(path)) + (label + "\0").encode("utf-16-le") + path


def write(directory, name, data):
    file = directory / f"{name}-{GLOBAL}"
    file.unlink(missing_ok=True)
    file.write_bytes(struct.pack("<I", NON_VOLATILE_BOOT_RUNTIME) + data)


def main(arguments):
    if len(arguments) < 5 or (len(arguments) - 2) % 3 != 0:
        sys.exit(__doc__)
    directory = Path(arguments[0])
    directory.mkdir(parents=True, exist_ok=True)
    partition = first_partition(arguments[1])
    options = [arguments[i : i + 3] for i in range(2, len(arguments), 3)]
    for number, label, loader in options:
        write(directory, f"Boot{int(number, 16):04X}", load_option(label, loader, partition))
    write(directory, "BootOrder", b"".join(struct.pack("<H", int(number, 16)) for number, _, _ in options))
    print(f"{directory}: {len(options)} boot options on partition {uuid.UUID(bytes_le=partition[2])}")


if __name__ == "__main__":
    main(sys.argv[1:])
