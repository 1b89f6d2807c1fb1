#!/usr/bin/env python3
"""Wraps the driver's image as an FFS file of type driver (PI 1.8, volume 3, chapter 3), for a firmware volume.

Usage: make_ffs.py IMAGE OUTPUT
The sections are a dependency expression (the variable architectural protocol), the PE32 image and the name "Bds".
"""
import struct
import sys
import uuid
from pathlib import Path

FILE = uuid.UUID("A56009F5-B22D-4EBA-AC73-6771332B309A")
VARIABLE_ARCH = uuid.UUID("1E5668E2-8481-11D4-BCF1-0080C73C8881")
DRIVER, CHECKSUM = 0x07, 0x40  # file type; attribute: the body's checksum is there
PE32, USER_INTERFACE, DXE_DEPEX = 0x10, 0x15, 0x13
PUSH, END = b"\x02", b"\x08"
STATE = 0xF8  # header and data valid, in a volume whose erased bits are 1
LIMIT = 1 << 24  # sizes have 24 bits


def size24(size):
    if size >= LIMIT:
        sys.exit("the image does not fit an FFS file of 16 MiB")
    return struct.pack("<I", size)[:3]


def section(kind, content):
    return size24(4 + len(content)) + bytes([kind]) + content


def checksum8(data):
    return -sum(data) & 0xFF


def ffs_file(image):
    body = b""
    for part in (section(DXE_DEPEX, PUSH + VARIABLE_ARCH.bytes_le + END), section(PE32, image),
                 section(USER_INTERFACE, "Bds\0".encode("utf-16-le"))):
        body += bytes(-len(body) % 4) + part
    header = FILE.bytes_le + b"\0\0" + bytes([DRIVER, CHECKSUM]) + size24(24 + len(body)) + b"\0"
    # The header's sum leaves out the file's checksum and the state.
    return header[:16] + bytes([checksum8(header), checksum8(body)]) + header[18:23] + bytes([STATE]) + body


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    image = Path(arguments[0]).read_bytes()
    if image[:2] != b"MZ":
        sys.exit(f"{arguments[0]}: no PE image")
    Path(arguments[1]).write_bytes(ffs_file(image))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
