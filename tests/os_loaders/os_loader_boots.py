#!/usr/bin/env python3
"""Boots a server of one disk that holds operating systems' loaders; the options that are in the order afterwards must
be those that the row names. Then systems are installed, installed anew and removed over several boots: never two
options for one loader, and the system's own always there. With the linked driver and, when it is built, with bds.efi.

    os_loader_boots.py SOURCE_DIR BDS_SIM

Exit status: 0 right, 1 wrong, 77 the tools that make disk images, or the loaders of Debian's packages, are missing."""

import itertools
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import uuid
from dataclasses import dataclass
from pathlib import Path

GRUB = "/usr/lib/grub/x86_64-efi/monolithic/grubx64.efi"
LOADER = "/usr/lib/systemd/boot/efi/systemd-bootx64.efi"
GLOBAL = "8be4df61-93ca-11d2-aa0d-00e098032b8c"
DEFAULT_ORDER = "DefaultBootOrder-45cf35f6-0d6e-4d04-856a-0370a5b16f53"
SHELL = "UEFI: Built-in EFI Shell"
FIRMWARE, WINDOWS = b"\0\0BO", b"WINDOWS\0" + bytes(128)
MASK = struct.pack("<BBH", 1, 4, 20) + uuid.UUID("99E275E7-75A0-4B37-A2E6-C5385E6C00CB").bytes_le + b"\x7f\xff\4\0"
SERVER = """name = "OS loaders"
[setup]
uefi_mode = 1
stbu_mode = {stbu}
[bmc]
files = false
[[root_bridge]]
[[root_bridge.function]]
kind = "isa"
device = 0x1F
[[root_bridge.function]]
kind = "vga"
device = 2
embedded = true
[[root_bridge.function]]
kind = "{controller}"
device = 3
[[root_bridge.function.{port}]]
port = 0
image = "{image}"
"""
# Loaders by the names that systems give them.
SLES, SHIM, GRUB_OF_UBUNTU = "/EFI/sles12/shim.efi", "/EFI/ubuntu/shimx64.efi", "/EFI/ubuntu/grubx64.efi"
REDHAT, CENTOS, SUSE = "/EFI/redhat/shim.efi", "/EFI/centos/shim.efi", "/EFI/suse/elilo.efi"
ELILO, OLD_GRUB, OPENSUSE = "/EFI/redhat/elilo.efi", "/EFI/redhat/grub.efi", "/EFI/opensuse/grubx64.efi"
BOOTMGFW, DEBIAN, FALLBACK = "/EFI/Microsoft/Boot/bootmgfw.efi", "/EFI/debian/grubx64.efi", "/EFI/BOOT/BOOTX64.EFI"


@dataclass(frozen=True)
class Option:
    label: str
    file: str
    data: bytes = b""
    partition: str = "here"  # "smaller" than it is; "gone": of a GPT that is not there; "mbr": of such an MBR
    masked: bool = False


@dataclass(frozen=True)
class Row:
    name: str
    files: tuple
    after: tuple  # (label, file or None) of each option in the order; an Option must be there byte for byte
    nvram: tuple = ()
    order: tuple | None = None  # places in nvram; None: all
    stbu: int = 1
    kind: str = "gpt"  # of disk; "stick": a USB stick
    arguments: tuple = ()  # of make_disk_image.sh
    said: tuple = ()  # in the log or the summary


# As the driver writes them, whatever letters the volume has.
LETTERS = {path.lower(): path for path in (SLES, "/EFI/UBUNTU/SHIMX64.EFI", REDHAT, "/EFI/CENTOS/shim.efi", BOOTMGFW,
                                           "/EFI/Suse/elilo.efi", "/EFI/Ubuntu/grubx64.efi", "/EFI/Redhat/elilo.efi",
                                           "/EFI/Redhat/grub.efi", OPENSUSE, DEBIAN, FALLBACK)}


def made(label, file):
    return (label, file)


OWN, MADE = Option("my system", DEBIAN), Option("debian", DEBIAN, FIRMWARE)
WITH_WORDS, SAME_NAME = Option("debian quiet", DEBIAN, b"quiet\0"), Option("debian", DEBIAN, b"quiet\0")
PLAIN, SMALLER = Option("debian", DEBIAN), Option("debian", DEBIAN, partition="smaller")
MADE_DEBIAN = made("debian", DEBIAN)
DUPLICATE = "Duplicate Entry Found.Skipping..\n"
ROWS = (
    Row("sles", (SLES, FALLBACK), (made("sles", SLES),), said=("IsSles=TRUE\n", DUPLICATE)),
    Row("redhat", (REDHAT, FALLBACK), (made("RedHat Boot Manager", REDHAT),), said=("IsRhel=TRUE\n", DUPLICATE)),
    Row("centos", (CENTOS, FALLBACK), (made("CENTOS", CENTOS),), said=("IsCentOS=TRUE\n", DUPLICATE)),
    Row("windows", (BOOTMGFW, FALLBACK), (made("Windows Boot Manager", BOOTMGFW),)),
    Row("ubuntu", (SHIM, GRUB_OF_UBUNTU, FALLBACK), (made("ubuntu", SHIM), made("UEFI OS", FALLBACK)),
        said=("IsUbuntu=TRUE\n", DUPLICATE)),
    Row("ubuntu without shim", (GRUB_OF_UBUNTU,), (made("ubuntu", GRUB_OF_UBUNTU),)),
    Row("debian", (DEBIAN, FALLBACK), (MADE_DEBIAN, made("UEFI OS", FALLBACK)),
        said=("Add EFI Boot option:STBU mode \n",)),
    Row("all at once", (SLES, SHIM, REDHAT, CENTOS, BOOTMGFW, SUSE, GRUB_OF_UBUNTU, ELILO, OLD_GRUB, OPENSUSE, DEBIAN,
                        FALLBACK),
        (made("sles", SLES), made("ubuntu", SHIM), made("RedHat Boot Manager", REDHAT), made("CENTOS", CENTOS),
         made("Windows Boot Manager", BOOTMGFW), made("Suse Boot Manager", SUSE), made("RedHat Boot Manager", ELILO),
         made("RedHat Boot Manager", OLD_GRUB), made("opensuse", OPENSUSE), MADE_DEBIAN)),
    Row("not in STBU mode", (DEBIAN, FALLBACK), (), stbu=0),
    Row("on a stick", (DEBIAN, FALLBACK), (made("UEFI: USB Hard Drive, Partition 1", None),), kind="stick"),
    Row("on an MBR", (DEBIAN,), (MADE_DEBIAN,), kind="mbr"),
    # Without a mark as system partition and a default loader the volume is no boot device.
    Row("on a data partition", (DEBIAN,), (), arguments=("--no-esp",), said=("Deleting a FwBootOption type Orphan",)),
    Row("in other letters", (DEBIAN,), (Option("mine", "/efi/DEBIAN/GRUBX64.efi"),),
        (Option("mine", "/efi/DEBIAN/GRUBX64.efi"),)),
    # The one of an MBR is loaded, and then goes like any option of the firmware's without a device.
    Row("a partition that is gone", (DEBIAN,), (OWN, Option("own", SLES, partition="gone")),
        (OWN, Option("debian", DEBIAN, FIRMWARE, "gone"), Option("sles", SLES, FIRMWARE, "gone", masked=True),
         Option("ubuntu", SHIM, FIRMWARE, "mbr"), Option("own", SLES, partition="gone")), stbu=0,
        said=("Boot0002 debian: its partition is gone\n", "Boot0003 sles: its partition is gone\n",
              "Deleting a FwBootOption type Orphan:ubuntu\n")),
    Row("the firmware's before the system's", (DEBIAN,), (OWN, Option("b", SLES)), (MADE, Option("b", SLES), OWN),
        stbu=0, said=("Boot0001 debian: Boot0003 starts the same loader\n",)),
    Row("the system's before the firmware's", (DEBIAN,), (Option("b", SLES), OWN, Option("c", SUSE)),
        (OWN, Option("b", SLES), MADE, Option("c", SUSE)), stbu=0,
        said=("Boot0003 debian: Boot0001 starts the same loader\n",
              "Moved: Boot0001 my system from place 1 of the order to place 3, now as Boot0001\n")),
    Row("several of the firmware's", (DEBIAN,), (Option("b", SLES), OWN), (OWN, MADE, Option("b", SLES), MADE), stbu=0),
    Row("given up, between two of systems'", (DEBIAN,), (Option("older", DEBIAN),), (Option("older", DEBIAN),
                                                                                    Option("debian", DEBIAN)), stbu=0),
    Row("masked ones", (DEBIAN,), (OWN,), (MADE, Option("my system", DEBIAN, masked=True)), stbu=0,
        said=("Boot0001 debian: Boot0002 starts the same loader\n",)),
    Row("listed twice", (DEBIAN,), (OWN, Option("b", SLES)), (OWN, Option("b", SLES)), order=(0, 1, 0), stbu=0),
    Row("firmware's listed twice", (DEBIAN,), (MADE,), (MADE,), order=(0, 0), stbu=0),
    Row("two of systems'", (DEBIAN,), (OWN,), (Option("older", DEBIAN), OWN), stbu=0),
    Row("with words of its own", (DEBIAN,), (WITH_WORDS, OWN), (WITH_WORDS, OWN), stbu=0),
    Row("made, then with words", (DEBIAN,), (MADE, WITH_WORDS), (MADE, WITH_WORDS), stbu=0),
    # Debian's installer writes what the driver does; with words it is another option, whatever its name.
    *(Row(f"{name}, in this order: {order}", (DEBIAN,), two, two, stbu=0) for name, pair in
      (("an installer's and one with words", (PLAIN, WITH_WORDS)), ("both under one name", (PLAIN, SAME_NAME)))
      for order, two in ((1, pair), (2, pair[::-1]))),
    # Nobody but the driver writes these without data; a word of three bytes counts as none.
    *(Row(f"given up, beside {other.label} with data, {order}", (ours.file,), (other,), two, stbu=0,
          said=(f"Boot000{two.index(ours) + 1} {ours.label}: Boot000{two.index(other) + 1} starts the same loader\n",))
      for ours, other in ((Option("Windows Boot Manager", BOOTMGFW), Option("Windows-Start-Manager", BOOTMGFW, WINDOWS)),
                          (Option("ubuntu", SHIM.replace("ubuntu/shimx64.efi", "UBUNTU/SHIMX64.EFI")),
                           Option("ubuntu quiet", SHIM, b"quiet\0")),
                          (PLAIN, Option("short", DEBIAN, b"abc")))
      for order, two in ((1, (ours, other)), (2, (other, ours)))),
    Row("one with words between two", (DEBIAN,), (OWN, WITH_WORDS), (MADE, WITH_WORDS, OWN), stbu=0),
    Row("the system's between two given up", (DEBIAN,), (OWN,), (PLAIN, OWN, PLAIN), stbu=0),
    # Where the partition begins and ends is part of the loader's path.
    Row("before the partition was resized", (DEBIAN,), (SMALLER, MADE_DEBIAN), (SMALLER,)),
    # Of the firmware's other options the name and the path are those of today.
    Row("another name of the firmware's", (FALLBACK,), (made("UEFI: Hard Drive, Partition 1", None),),
        (Option("Old name", FALLBACK, FIRMWARE),), stbu=0),
    Row("a name that begins with a loader's", (FALLBACK,), (Option("UEFI OS (disk)", FALLBACK, FIRMWARE),),
        (Option("UEFI OS (disk)", FALLBACK, FIRMWARE),), stbu=0),
)


def node(kind, subkind, body=b""):
    return struct.pack("<BBH", kind, subkind, 4 + len(body)) + body


def hard_drive(image, partition):
    if partition in ("here", "smaller"):
        table = image.read_bytes()[1024:1152]
        unique, first, last = struct.unpack_from("<16x16sQQ", table)
        size = last - first + (1 if partition == "here" else -9)
        return node(4, 1, struct.pack("<IQQ16sBB", 1, first, size, unique, 2, 2))
    kind = 1 if partition == "mbr" else 2
    return node(4, 1, struct.pack("<IQQ16sBB", 1, 2048, 4096, b"gone" + bytes(12), kind, kind))


def as_bytes(option, image):
    text = (option.file.replace("/", "\\") + "\0").encode("utf-16-le")
    path = (MASK if option.masked else b"") + hard_drive(image, option.partition) + node(4, 4, text) + node(0x7F, 0xFF)
    return struct.pack("<IH", 1, len(path)) + (option.label + "\0").encode("utf-16-le") + path + option.data


def parse(data):
    """The label and the file of a load option; no file when its path does not begin with a partition."""
    (length,) = struct.unpack_from("<H", data, 4)
    end = next(at for at in range(6, len(data), 2) if data[at:at + 2] == b"\0\0")
    path = data[end + 2:end + 2 + length]
    loader = path[:2] == b"\4\1" and path[42:44] == b"\4\4"
    return data[6:end].decode("utf-16-le"), path[46:-6].decode("utf-16-le").replace("\\", "/") if loader else None


class Server:
    disks = {}

    def __init__(self, source, sim, work, stbu, arguments):
        self.source, self.sim, self.work, self.stbu, self.arguments = source, sim, work, stbu, arguments
        self.state = work / "state"
        shutil.rmtree(self.state, ignore_errors=True)
        self.nvram = self.state / "nvram"
        self.nvram.mkdir(parents=True)

    def disk(self, files, kind, arguments=()):
        key = (files, kind, arguments)
        if key not in self.disks:
            image = self.disks[key] = self.work / f"disk{len(self.disks)}.img"
            contents = [f"{GRUB if file == DEBIAN else LOADER}={file[1:]}" for file in files]
            subprocess.run([self.source / "examples/make_disk_image.sh", "mbr" if kind == "mbr" else "gpt", image, "16",
                            "--fat", "16", *arguments, *contents], check=True)
        return self.disks[key]

    def put(self, number, data):
        (self.nvram / f"Boot{number:04X}-{GLOBAL}").write_bytes(struct.pack("<I", 7) + data)

    def option(self, number):
        return (self.nvram / f"Boot{number:04X}-{GLOBAL}").read_bytes()[4:]

    def drop(self, number):
        (self.nvram / f"Boot{number:04X}-{GLOBAL}").unlink()

    def set_order(self, numbers):
        (self.nvram / f"BootOrder-{GLOBAL}").write_bytes(struct.pack(f"<I{len(numbers)}H", 7, *numbers))

    def order(self):
        file = self.nvram / f"BootOrder-{GLOBAL}"
        return [each for (each,) in struct.iter_unpack("<H", file.read_bytes()[4:])] if file.exists() else []

    def boot(self, image, kind="gpt"):
        """The options of the order as bytes; what the summary and the log say."""
        controller, port = ("ehci", "usb") if kind == "stick" else ("ahci", "sata")
        before = [(number, self.option(number)) for number in self.order()]
        toml, log, report = self.work / "server.toml", self.work / "log", self.work / "json"
        toml.write_text(SERVER.format(stbu=self.stbu, controller=controller, port=port, image=image))
        done = subprocess.run([self.sim, "boot", toml, "--state", self.state, "--log", log, "--json", report,
                               *self.arguments], capture_output=True, text=True, timeout=120)
        assert done.returncode in (0, 3), done.stderr
        start = json.loads(report.read_text())["boots"][-1]["starts"][-1]
        assert not start["complaints"] and not start["pool"]["leaks"], start["complaints"]
        deleted = [each["number"] for each in start["deleted_options"]]
        assert len(deleted) == len(set(deleted)) and done.stdout.count("Deleted options") <= 1, "deleted twice"
        options = list(map(self.option, self.order()))
        if options:
            default = (self.nvram / DEFAULT_ORDER).read_bytes()[4:]
            visible = {number for number, data in zip(self.order(), options) if not data[0] & 8}
            assert {each for (each,) in struct.iter_unpack("<H", default)} == visible, "DefaultBootOrder"
        check_moves(before, [parse(data) for data in options], done.stdout)
        return [data for data in options if parse(data)[0] != SHELL], done.stdout + log.read_text()


def check_moves(before, after, summary):
    """The summary names each system's option that something passed which stood behind it, and no other."""
    names = [parse(data) for _, data in before]
    for at, (number, data) in enumerate(before):
        name = names[at]
        if name[1] and not data.endswith(FIRMWARE) and name in after:
            passed = set(after[:after.index(name)]) & set(names[at + 1:]) - set(names[:at + 1])
            told = f"Moved: Boot{number:04X} {name[0]} from place {at + 1} of the order" in summary
            assert told == bool(passed), f"Boot{number:04X} {name[0]}: told {told}, passed by {passed}"


def try_row(server, row):
    image = server.disk(row.files, row.kind, row.arguments)
    for number, option in enumerate(row.nvram, 1):
        server.put(number, as_bytes(option, image))
    if row.nvram:
        places = row.order or range(len(row.nvram))
        server.set_order([place + 1 for place in places])
    options, said = server.boot(image, row.kind)
    got = [parse(data) for data in options]
    assert [(label, file and file.lower()) for label, file in got] == [
        (each.label, each.file.lower()) if isinstance(each, Option) else (each[0], each[1] and each[1].lower())
        for each in row.after], f"options {got}"
    for wanted, data in zip(row.after, options):
        if not isinstance(wanted, Option) and wanted[1]:
            assert parse(data)[1] == LETTERS[wanted[1].lower()], f"letters of {parse(data)}"
        # Attributes change with the device: active, hidden.
        if isinstance(wanted, Option):
            kept = as_bytes(Option(wanted.label, wanted.file, wanted.data, wanted.partition), image)
            assert data[4:] == kept[4:], f"{wanted.label}: {data.hex()}, expected {kept.hex()}"
    for text in row.said:
        assert text in said, f"not said: {text!r}\n{said if len(said) < 9000 else said[:3000]}"


SYSTEMS = (Option("debian", DEBIAN), Option("ubuntu", SHIM), Option("openSUSE Leap", OPENSUSE),
           Option("Windows Boot Manager", BOOTMGFW, WINDOWS))


def try_history(server, system, front):
    """The loader is there, its system installed, again under another number, and removed; five boots, and one more
    from the fresh disk."""
    disk, empty = server.disk((system.file, SLES), "gpt"), server.disk((SLES,), "gpt")
    own = as_bytes(system, disk)

    def install(number):
        server.put(number, own)
        rest = [each for each in server.order() if each != number]
        server.set_order([number, *rest] if front else [*rest, number])

    def look(image, installed):
        options, _ = server.boot(image)
        loaders = [file.lower() for _, file in map(parse, options) if file]
        assert len(loaders) == len(set(loaders)), f"twice: {list(map(parse, options))}"
        assert not installed or own[4:] in [data[4:] for data in options], f"lost: {list(map(parse, options))}"

    look(disk, False)
    install(0x20)
    look(disk, True)
    if not system.data:  # twins with the same data are not told apart by their loader
        install(0x21)  # a second time, without removing the first
        look(disk, True)
    file = system.file.lower()
    numbers = [number for number in server.order() if (parse(server.option(number))[1] or "").lower() == file]
    for number in numbers:  # removed and installed anew between two boots
        server.drop(number)
    server.set_order([number for number in server.order() if number not in numbers])
    install(0x22)
    look(disk, True)
    server.set_order(server.order()[::-1])
    look(disk, True)
    look(empty, False)


def main(source, sim):
    source, sim = Path(source).resolve(), Path(sim).resolve()
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    lacking = [tool for tool in ("sgdisk", "mkfs.vfat", "mmd", "mcopy") if shutil.which(tool) is None]
    lacking += [loader for loader in (GRUB, LOADER) if not Path(loader).exists()]
    if lacking:
        print("missing:", *lacking)
        return 77
    image = Path(os.environ.get("BDS_IMAGE", source / "build/efi/bds.efi"))
    ways = [(), ("--image", image)] if image.exists() else [()]
    wrong = 0
    with tempfile.TemporaryDirectory() as work:
        for way in ways:
            cases = [(row.name, row.stbu, try_row, (row,)) for row in ROWS]
            cases += [(f"history of {system.label}, {'front' if front else 'back'}", 1, try_history, (system, front))
                      for system, front in itertools.product(SYSTEMS, (True, False))]
            for name, stbu, case, arguments in cases:
                try:
                    case(Server(source, sim, Path(work), stbu, way), *arguments)
                except AssertionError as fault:
                    wrong += 1
                    print(f"{name}{' with the image' if way else ''}: {fault}")
    print(f"{len(ways) * len(cases)} cases, {wrong} wrong{'' if image.exists() else ', with the linked driver alone'}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
