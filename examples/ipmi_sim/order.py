#!/usr/bin/env python3
"""Shows the boot order table of the BMC that bmc.sh started, or changes the order in it as a user of the BMC does. It
speaks to the BMC's LAN side with ipmitool: the table lies in the OEM parameter 0x7D of the System Boot Options.

    order.py PORT                the groups in their order, and what is in each
    order.py PORT GROUP ...      a new order, of FDD IHD CDD USB NIC BEV EFI, for the server's next boot

Exit status: 0 done, 1 the BMC has no table or does not answer, 2 wrong arguments."""
import struct
import subprocess
import sys

GROUPS = {"FDD": 0x01, "IHD": 0x08, "CDD": 0x03, "USB": 0x05, "NIC": 0x06, "BEV": 0x80, "EFI": 0x10}
EFI = GROUPS["EFI"]
NAMES = {code: name for name, code in GROUPS.items()}
READ = 35  # bytes of the table in an answer
HEADER = 11  # "_BO_", checksum, 0, kind, length (16 bits), 0, flags
CHANGED = 0x02  # of the flags


def ipmitool(port, *requests):
    """The answers to raw requests, all in one session."""
    command = ["ipmitool", "-I", "lanplus", "-C", "3", "-H", "127.0.0.1", "-p", str(port), "-U", "operator", "-P",
               "bds-sim-only", "exec", "/dev/stdin"]
    lines = "".join("raw " + " ".join(map(str, request)) + "\n" for request in requests)
    ended = subprocess.run(command, input=lines, capture_output=True, text=True, timeout=60)
    if ended.returncode != 0 or "Unable" in ended.stderr:
        sys.exit(f"order.py: ipmitool: {ended.stderr.strip()}")
    return ended.stdout


def get(port, parameter, *blocks):
    """The data of all answers, without the two bytes about the parameter in front of each."""
    answers = bytes.fromhex(ipmitool(port, *((0, 9, parameter, 0, block) for block in blocks)))
    size = len(answers) // len(blocks)
    return b"".join(answers[at + 2:at + size] for at in range(0, len(answers), size))


def read_table(port):
    """The table, cut to its own length; None when there is none, or it is damaged."""
    table = get(port, 0x7D, 1)
    if not table.startswith(b"_BO_"):
        return None
    (length,) = struct.unpack_from("<H", table, 7)
    if length > READ:
        table += get(port, 0x7D, *range(2, -(-length // READ) + 1))
    table = table[:length]
    return table if sum(table) % 256 == 0 else None


def write_table(port, table):
    """Block by block, as long as the BMC wants them, between "set in progress" and "set complete"."""
    size = get(port, 0x78, 1)[10]
    blocks = [table[at:at + size].ljust(size, b"\0") for at in range(0, len(table), size)]
    ipmitool(port, (0, 8, 0, 1), *((0, 8, 0x7D, 0, number, *block) for number, block in enumerate(blocks, 1)),
             (0, 8, 0, 0))


def entries(table):
    """The code and the items of each group, and where the names begin."""
    at, found = HEADER, []
    while table[at] != 0xFF:
        code, count = table[at], table[at + 1]
        size = 2 * count if code == EFI else count
        items = table[at + 2:at + 2 + size]
        found.append((code, list(struct.unpack(f"<{count}H", items)) if code == EFI else list(items)))
        at += 2 + size
    return found, at + 2


def names(table, at):
    """What each item is called, by its group's code and its number."""
    found = {}
    while at < len(table):
        code, number = struct.unpack_from("<BH", table, at)
        at += 3
        if code != EFI:
            end = table.index(b"\0", at)
            found[code, number] = table[at:end].decode("ascii", "replace")
            at = end + 1
            continue
        (path,) = struct.unpack_from("<H", table, at)
        start = end = at + 2
        while table[end:end + 2] != b"\0\0":
            end += 2
        found[code, number] = table[start:end].decode("utf-16-le", "replace")
        at = end + 2 + path
    return found


def changed(table, groups):
    """The table with its groups in this order, marked as changed."""
    length = 2 + table[HEADER + 1] if table[HEADER] == 0 else 0
    order = bytes([0, len(groups), *(GROUPS[group] for group in groups)])
    new = bytearray(table[:HEADER] + order + table[HEADER + length:])
    struct.pack_into("<H", new, 7, len(new))
    new[HEADER - 1] |= CHANGED
    new[4] = 0
    new[4] = -sum(new) % 256
    return bytes(new)


def show(table):
    groups, end = entries(table)
    called = names(table, end)
    for code, items in groups:
        if code == 0:
            mark = "  (changed by the BMC)" if table[HEADER - 1] & CHANGED else ""
            print("order ", *(NAMES.get(item, f"0x{item:02X}") for item in items), mark)
            continue
        for item in items:
            number = f"Boot{item:04X}" if code == EFI else item
            print(f"{NAMES.get(code, code):<6}", number, called.get((code, item), ""))


def main():
    if len(sys.argv) < 2 or not sys.argv[1].isdigit() or any(group not in GROUPS for group in sys.argv[2:]):
        print(__doc__, file=sys.stderr)
        return 2
    port, groups = int(sys.argv[1]), list(dict.fromkeys(sys.argv[2:]))
    table = read_table(port)
    if table is None:
        print("order.py: the BMC has no boot order table yet; the server's first boot sends it", file=sys.stderr)
        return 1
    if groups:
        write_table(port, changed(table, groups))
        table = read_table(port)
    show(table)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (IndexError, ValueError, struct.error):
        sys.exit("order.py: the BMC's table ends where it should not, or it is that of a boot policy")
