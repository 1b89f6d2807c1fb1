#!/usr/bin/env python3
"""Boots servers with network adapters and compares the database of their addresses with one that is made here, from
the description alone.

    mac_database.py SOURCE_DIR BDS_SIM

Each row of ROWS is examples/network_adapters.toml with some of its texts replaced. It is booted with the linked driver
and, when it was built, with build/efi/bds.efi. MacDB.bin on the BMC, MacDB and LOMInterface0 to 3 are compared byte for
byte; every controller must decode its memory afterwards exactly when it did before.
Exit status: 0 all the same, 1 a difference, which is shown."""

import re
import struct
import subprocess
import sys
import tempfile
import tomllib
from pathlib import Path

GUID = "3dd0de67-02d7-412c-974a-a0ccddeeeeee"
INTEL, BOARD, ANY = 0x8086, 0x1137, None
ROOT_PORTS = {1: (0x00, 3, 0), 2: (0x80, 2, 0), 3: (0x00, 2, 0), 4: (0x00, 2, 2), 5: (0x80, 2, 2), 6: (0x80, 2, 3)}
NAMES = {1: "SlotID:1", 2: "SlotID:2", 3: "SlotID:MLOM", 4: "SlotID:HBA", 5: "SlotID:FrontPCIe1",
         6: "SlotID:FrontPCIe2"}
XL710 = (0x1583, 0x1589, 0x158B)
# Controllers whose registers are read: family, device, subsystem.
READ = [("i350", 0x1521, BOARD, 0x00D5), ("i350", 0x1521, BOARD, 0x00B9), ("i350", 0x1521, BOARD, 0x0133),
        ("x540", 0x10FB, INTEL, 0x000C), ("x540", 0x10FB, BOARD, 0x00BF), ("x540", 0x1528, BOARD, 0x00BF),
        ("x540", 0x1563, BOARD, ANY), ("x710", 0x1572, BOARD, ANY)] + [("x710", device, BOARD, ANY) for device in XL710]
# Adapters in slots: device, subsystem, ports, and whether their drivers' ports are left out.
SLOTS = [(0x1521, BOARD, 0x00B9, 4, True), (0x1521, BOARD, 0x0133, 4, True), (0x1521, ANY, ANY, 2, True),
         (0x10FB, INTEL, 0x000C, 2, True), (0x10FB, BOARD, 0x00BF, 2, True), (0x1528, BOARD, 0x00BF, 2, True),
         (0x1563, BOARD, 0x01A2, 2, True), (0x1572, BOARD, 0x020A, 2, True), (0x1572, BOARD, 0x013B, 4, True)]
for xl710 in XL710:
    SLOTS += [(xl710, BOARD, 0x013C, 2, True), (xl710, BOARD, 0x020B, 4, True), (xl710, BOARD, 0x0225, 2, True),
              (xl710, BOARD, ANY, 0, False)]
# Looks at a done bit that a driver takes: two of a poll, a thousand pauses and one more of the NVM.
PATIENCE = {"i350": 2, "x540": 2, "x710": 1001}
MEMORY = 2  # of the command register


def ids(function):
    kind = function["kind"]
    vendor, device = {"vnic": (BOARD, 0x43), "vhba": (BOARD, 0x45)}.get(kind, (INTEL, 1))
    return (function.get("vendor_id", vendor), function.get("device_id", device),
            0 if kind == "bridge" else function.get("subsystem_vendor_id", BOARD),
            0 if kind == "bridge" else function.get("subsystem_id", 0))


def fits(value, wanted):
    return wanted is ANY or value == wanted


class Server:
    """The PCI functions with their buses, in the order in which the firmware meets them, and the slots."""

    def __init__(self, description):
        self.functions = []  # (bus, device, function number, table)
        self.ranges = {}  # slot: (secondary, subordinate)
        slots = description.get("slot", [])
        for root in description["root_bridge"]:
            first = root.get("first_bus", 0)
            ports = []
            for slot in slots:
                bus, device, number = ROOT_PORTS[slot["number"]]
                if bus == first and slot.get("enabled", True):
                    ports.append({"kind": "bridge", "device": device, "number": number,
                                  "function": slot.get("function", []), "slot": slot["number"]})
            self.last = first
            self.walk(root.get("function", []) + ports, first)
        self.slots = [self.told(slot) for slot in sorted(slots, key=lambda slot: slot["number"])]

    def walk(self, functions, bus):
        for function in sorted(functions, key=lambda each: (each["device"], each.get("number", 0))):
            self.functions.append((bus, function["device"], function.get("number", 0), function))
            if function["kind"] == "bridge":
                self.last += 1
                secondary = self.last
                self.walk(function.get("function", []), secondary)
                if "slot" in function:
                    self.ranges[function["slot"]] = (secondary, self.last)

    def told(self, slot):
        number = slot["number"]
        low, high = self.ranges.get(number, (0xFF, 0))
        found = [ids(table) for bus, _, _, table in self.functions if bus == low]
        actual = found[0] if found and slot.get("enabled", True) else (0, 0, 0, 0)
        keys = ("vendor_id", "device_id", "subsystem_vendor_id", "subsystem_id")
        return {"number": number, "low": low, "high": high, "enabled": slot.get("enabled", True),
                "kind": slot.get("kind", 2), "name": slot.get("name", NAMES[number]),
                "ids": tuple(slot.get(key, value) for key, value in zip(keys, actual))}


def adapter_rule(slot):
    vendor, device, subvendor, subsystem = slot["ids"]
    for rule in SLOTS if vendor == INTEL else ():
        if device == rule[0] and fits(subvendor, rule[1]) and fits(subsystem, rule[2]):
            return rule
    return None


def told_by_registers(table):
    """True when the controller's registers tell its address."""
    vendor, device, subvendor, subsystem = ids(table)
    rows = [row for row in READ if vendor == INTEL and device == row[1] and subvendor == row[2] and
            fits(subsystem, row[3])]
    nvm = table.get("nvm")
    if not rows or nvm is None or rows[0][0] != nvm["family"]:
        return False
    return nvm.get("done", True) and not nvm.get("blank", False) and nvm.get("done_after", 0) < PATIENCE[rows[0][0]]


def record(interface, slot, mark, mac):
    return struct.pack("<HHHH32s", interface, slot, mark, 0, mac.lower().encode() + b"\0")


def expected(description):
    """The database and the variables of the board's ports; None without slot information."""
    if not description.get("platform", {}).get("slot_info", True):
        return None, {}
    server = Server(description)

    def slot_of(bus, kind=None):
        for slot in server.slots:
            if slot["enabled"] and slot["low"] <= bus <= slot["high"] and kind in (None, slot["kind"]):
                return slot
        return None

    counted, records, lom = {}, [], {}
    for bus, _, _, table in server.functions:
        if "mac" not in table or table.get("nii", "current") not in ("current", "both"):
            continue
        slot = slot_of(bus)
        rule = adapter_rule(slot) if slot else None
        if slot and not (rule and rule[4]):
            counted[slot["number"]] = counted.get(slot["number"], 0) + 1
            records.append(record(counted[slot["number"]], slot["number"], 0, table["mac"]))
    inventory = [(bus, number, table) for bus, _, number, table in server.functions if told_by_registers(table)]
    count = len(records) + len(inventory)

    def port(number, table):
        return table["nvm"].get("port", number % 4) + 1

    for bus, number, table in inventory:
        slot = slot_of(bus, 2)
        if slot:
            modular = ids(table) == (INTEL, 0x1521, BOARD, 0x0133)
            records.append(record(port(number, table), 3 if modular else slot["number"], 0, table["mac"]))
    for _, number, table in inventory:
        if ids(table) == (INTEL, 0x1521, BOARD, 0x00D5):
            records.append(record(port(number, table), 0x4C, 0xFFFF, table["mac"]))
            if len(lom) < 4:
                mac = bytes.fromhex(table["mac"].replace(":", ""))
                lom[f"LOMInterface{len(lom)}"] = mac + bytes([port(number, table)]) + bytes(9)
    board = sum(each[4:6] == b"\xff\xff" for each in records)
    count = max(count, len(records))
    size = 512 + 40 * count
    header, filled = bytearray(512), 0
    for place, slot in enumerate(server.slots):
        if not slot["enabled"] or slot["kind"] != 2 or slot["ids"][0] == BOARD:
            continue
        rule = adapter_rule(slot)
        ports = rule[3] if rule else counted.get(slot["number"], 0)
        name = slot["name"].encode("latin-1")
        struct.pack_into("<HH4x56s", header, 8 + 72 * place, slot["number"], ports, name if len(name) <= 56 else b"")
        filled += 1
    if board:
        struct.pack_into("<HH4x56s", header, 440, 0x4C, board, b"Intel(R) I350 1 Gbps Network Controller")
    struct.pack_into("<BBHH", header, 0, 0xDB, filled, count, size & 0xFFFF)
    return (bytes(header) + b"".join(records)).ljust(size, b"\0"), lom


SECOND_BOARD = """
[[root_bridge.function]]
kind = "bridge"
device = 0x1D
[[root_bridge.function.function]]
kind = "network"
device = 0
device_id = 0x1521
subsystem_id = 0x00D5
mac = "02:00:00:11:00:01"
nvm = { family = "i350" }

[[root_bridge]]
uid = 1
"""
# Name, texts to be replaced everywhere they stand (old, new), messages that the log must hold, arguments of the boot.
ROWS = [
    ("as_it_stands", [], ["Slot:  MacDBOffset = 0x00000190,    Slot Entry = 76, Interface ID = 0x0001   "
                          "MacAddress=  02:00:00:10:00:01", "SlotswithNics = 5"]),
    ("blank", [('family = "i350" }', 'family = "i350", blank = true }')], ["ERROR: GetMacAddress().EFI_NOT_FOUND"]),
    ("never_done", [(f'family = "{family}"', f'family = "{family}", done = false') for family in PATIENCE],
     ["ERROR: GetMacAddress().PciIo->PollMem = EFI_TIMEOUT", "PollMem - Done bit did not go high.",
      "ERROR: ReadXl710EEProm = EFI_NOT_FOUND", "gTotalEEPROMDevices = 0"]),
    ("late_in_time", [("done_after = 3", "done_after = 1000"), ('"x540"', '"x540", done_after = 1')], []),
    ("late", [("done_after = 3", "done_after = 1001"), ("done_after = 1 ", "done_after = 2 ")], []),
    ("memory_off", [('nvm = {', 'memory = false\nnvm = {'), ("memory = false\nmac", "mac")], []),
    ("other_port", [("done_after = 3", "port = 1"), ("device_id = 0x1583", "number = 5\ndevice_id = 0x1583")],
     ["MacAddress Offset:   = 0x024e"]),
    ("pointers_wrap", [("pointer = 0x0200, relative = 0x0031", "pointer = 0x0048, relative = 0x7000")], []),
    ("old_drivers", [('nii = "both"', 'nii = "old"')], ["OldNii MAC address of Interface 0 : 2:0:0:30:0:1:", "Slot:2"]),
    ("no_drivers", [('mac = "', 'nii = "none"\nmac = "'), ('nii = "both"', "")], ["Total NII Handles = 0"]),
    ("other_kind", [("[[slot]]\nnumber = 1", "[[slot]]\nkind = 1\nnumber = 1"),
                    ("[[slot]]\nnumber = 2", "[[slot]]\nkind = 3\nnumber = 2")], []),
    ("switched_off", [("[[slot]]\nnumber = 3", "[[slot]]\nenabled = false\nnumber = 3")], []),
    ("names", [("[[slot]]\nnumber = 1", f'[[slot]]\nname = "{"n" * 56}"\nnumber = 1'),
               ("[[slot]]\nnumber = 2", f'[[slot]]\nname = "{"n" * 57}"\nnumber = 2'),
               ("[[slot]]\nnumber = 3", f'[[slot]]\nname = "{"n" * 300}"\nnumber = 3'),
               ("[[slot]]\nnumber = 4", '[[slot]]\nname = ""\nnumber = 4')],
     ["The name of slot 2 is too long for MacDB, leaving it out", "The name of slot 3 is too long"]),
    ("told_ids", [("[[slot]]\nnumber = 2", "[[slot]]\nvendor_id = 0x8086\ndevice_id = 0x1572\n"
                   "subsystem_vendor_id = 0x1137\nsubsystem_id = 0x020A\nnumber = 2"),
                  ("[[slot]]\nnumber = 4", "[[slot]]\nvendor_id = 0x1137\nnumber = 4")],
     ["An X710 2 port in Slot:2, Skipping it"]),
    ("five_board_ports", [("\n[[root_bridge]]\nuid = 1\n", SECOND_BOARD)],
     ["There is no variable for LOM port 4, leaving it out"]),
    ("board_behind_a_slot", [("subsystem_id = 0x0133", "subsystem_id = 0x00D5")], []),
    ("no_slot_information", [("[setup]", "[platform]\nslot_info = false\n[setup]")],
     ["Failed locating PciSlotInfo = EFI_NOT_FOUND",
      "GET_MAC_ADDRESS_FROM_NII_PROTOCOL API failed! Status = EFI_NOT_FOUND"]),
    # In the middle of the file: the restart writes it whole.
    ("power_cut", [("nvm = {", "memory = false\nnvm = {"), ("memory = false\nmac", "mac")], [],
     "--boots", "2", "--fault", "power bmc-exchange 5"),
    ("no_files", [("[setup]", "[bmc]\nfiles = false\n[setup]")],
     ["The BMC does not take MacDB.bin = EFI_DEVICE_ERROR"]),
]
for xl710 in (0x1589, 0x158B):
    ROWS.append((f"device_{xl710:04x}", [("0x1583", f"0x{xl710:04X}"), ("0x0999", "0x020B")],
                 ["An XL710 2 port in Slot:5, Skipping it"]))
for device, subvendor, subsystem, message in (
        (0x10FB, BOARD, 0x00BF, "An X540 10 Gbps 2 port NIC in Slot:1"),
        (0x1528, BOARD, 0x00BF, "An X540 10 GBase-T in Slot:1"),
        (0x1563, BOARD, 0x01A2, "An X520 in Slot:1")):
    ROWS.append((f"adapter_{device:04x}_{subsystem:04x}",
                 [("device_id = 0x10FB", f"device_id = 0x{device:04X}"), ("0x000C", f"0x{subsystem:04X}"),
                  ("subsystem_vendor_id = 0x8086", f"subsystem_vendor_id = 0x{subvendor:04X}")],
                 [message]))


# Between two accesses to the registers: write 1 switches the first controller's decoding on, 5 ends its third word.
ROWS += [(f"power_cut_at_write_{write}", [("nvm = {", "memory = false\nnvm = {"), ("memory = false\nmac", "mac")], [],
          "--boots", "2", "--fault", f"power pci {write}") for write in (1, 5, 35, 72)]


def decoding_faults(log, description, cut):
    """Controllers that decode their memory at the end of a start otherwise than before it; and those that do so while
    another is read. Where the power is cut, in the first start, one may be left that way: power-on makes it as it was."""
    told = {(bus, device, number): table.get("memory", True)
            for bus, device, number, table in Server(description).functions}
    pattern = r"FW pci (\w\w):(\w\w)\.(\d) write 16 bits, configuration \+ 4: (\w{4})"
    faults = []
    for start, part in enumerate(log.split("BDS:Executing BdsEntry")[1:]):
        other = set()
        for bus, device, number, value in re.findall(pattern, part):
            place = (int(bus, 16), int(device, 16), int(number))
            other -= {place}
            faults += [f"start {start}: {other} as well as {place}"] if other else []
            other |= {place} if (int(value, 16) & MEMORY != 0) != told[place] else set()
        assert not cut or start or other, "the power was to be cut while a controller decodes"
        faults += [f"start {start}: {other} otherwise than before"] if other and not (cut and start == 0) else []
    return faults


def boot(sim, text, image, arguments):
    """What a boot leaves: the BMC's file, the variables by name, the log."""
    with tempfile.TemporaryDirectory() as folder:
        place = Path(folder)
        (place / "server.toml").write_text(text)
        command = [sim, "boot", place / "server.toml", "--state", place / "state", "--log", place / "log", "--trace",
                   "pci", "--variables", place / "variables", "--quiet", *arguments]
        command += ["--image", image] if image else []
        ended = subprocess.run([*map(str, command)], stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if ended.returncode != 0:
            return None, {}, f"exit status {ended.returncode}: {ended.stdout}{ended.stderr}"
        file = place / "state/bmc/files/MacDB.bin"
        variables = {path.name[: -len(GUID) - 1]: path.read_bytes()
                     for path in (place / "variables").glob(f"*-{GUID}")}
        return file.read_bytes() if file.exists() else None, variables, (place / "log").read_text(errors="replace")


def faults(row, sim, image, source):
    name, edits, messages, *arguments = row
    text = (source / "examples/network_adapters.toml").read_text()
    for old, new in edits:
        if old not in text:
            return [f"{name}: the example has no {old!r}"]
        text = text.replace(old, new)
    description = tomllib.loads(text)
    database, lom = expected(description)
    file, variables, log = boot(sim, text, image, arguments)
    wrong = [f"no message {message!r}" for message in messages if message not in log]
    if not description.get("bmc", {}).get("files", True):
        file = database
    if file != database:
        wrong.append(f"MacDB.bin\n  is     {file and file.hex()}\n  wanted {database and database.hex()}")
    attributes = struct.pack("<I", 2)
    wanted = {key: attributes + value for key, value in lom.items()}
    if database is not None:
        wanted["MacDB"] = attributes + database
    if database is not None and variables != wanted:
        wrong.append(f"variables\n  are    {variables}\n  wanted {wanted}")
    if "API failed" not in "".join(messages) and "MacDB" not in variables:
        wrong.append(f"no database: {log[-2000:]}")
    wrong += decoding_faults(log, description, "power pci" in " ".join(arguments))
    return [f"{name}{' with the image' if image else ''}: {fault}" for fault in wrong]


def main(source, sim):
    image = source / "build/efi/bds.efi"
    found = [fault for row in ROWS for each in ([None, image] if image.exists() else [None])
             for fault in faults(row, sim, each, source)]
    print("\n".join(found) if found else f"{len(ROWS)} servers, the same")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]).resolve(), sys.argv[2]) if len(sys.argv) == 3 else __doc__)
