#!/usr/bin/env python3
"""Boots a server with the driver linked into bds-sim and with bds.efi, from two copies of one state: all that the two
boots did and left must be the same, and must be what the row of boot_rows.py says.

    both_ways.py SOURCE_DIR BDS_SIM ROW    one row, by name
    both_ways.py SOURCE_DIR --list         the names, one a line; every example must have a row

BDS_IMAGE names another image than build/efi/bds.efi; when it is not built, the linked driver alone is looked at.
Exit status: 0 right, 1 wrong, 77 the tools that make disk images, or the driver that a row loads, are missing."""

import fcntl
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True  # the next two lie in the source tree
sys.path.append(str(Path(__file__).resolve().parents[1]))
import boot_rows  # noqa: E402
import result_schema  # noqa: E402
import waits  # noqa: E402

TOOLS = ("mmd", "mcopy", "mkfs.vfat", "sgdisk", "sfdisk", "xorriso")
GLOBAL = "8be4df61-93ca-11d2-aa0d-00e098032b8c"


def node(kind, subkind, body):
    return struct.pack("<BBH", kind, subkind, 4 + len(body)) + body


END_NODE = node(0x7F, 0xFF, b"")
# PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x2,0x0), where the rows have the folder "volume".
VOLUME_PATH = node(2, 1, struct.pack("<II", 0x0A0341D0, 0)) + node(1, 1, b"\x00\x1D") + node(3, 5, b"\x02\x00")


class Wrong(Exception):
    pass


def check(right, *what):
    if not right:
        raise Wrong(" ".join(map(str, what)))


def run(*command, **options):
    return subprocess.run([*map(str, command)], stdin=subprocess.DEVNULL, text=True, capture_output=True, timeout=120,
                          **options)


class State:
    """A state folder: NVRAM in efivarfs layout, and the BMC's side."""

    def __init__(self, folder):
        self.folder = folder
        self.nvram = folder / "nvram"
        self.files = folder / "bmc" / "files"

    def variables(self):
        return {path.name: path.read_bytes() for path in self.nvram.iterdir()}

    def has(self, name):
        return any(path.startswith(name + "-") for path in self.variables())

    def options(self):
        return {name: data for name, data in self.variables().items() if re.match(r"Boot[0-9A-F]{4}-", name)}

    def order(self):
        data = self.variables()[f"BootOrder-{GLOBAL}"][4:]
        return [f"Boot{int.from_bytes(data[i : i + 2], 'little'):04X}" for i in range(0, len(data), 2)]

    def write(self, name, data):
        file = self.nvram / f"{name}-{GLOBAL}"
        file.unlink(missing_ok=True)
        file.write_bytes(struct.pack("<I", 7) + data)

    def everything(self):
        files = (path for path in self.folder.rglob("*") if path.is_file())
        return {str(path.relative_to(self.folder)): path.read_bytes() for path in files}

    def check_copies(self):
        for name in ("BootOrder", *self.order()):
            copy = self.files / name
            check(copy.exists(), "the BMC has no copy of", name)
            check(copy.read_bytes() == self.variables()[f"{name}-{GLOBAL}"][4:], "another copy on the BMC:", name)


class Bench:
    """One row's server: its description, and what bds-sim makes of it."""

    def __init__(self, source, sim, row, work):
        self.source, self.sim, self.row, self.work = source, sim, row, work
        self.disks = source / "build" / "run" / "disks"
        self.make_disks()
        self.toml = work / "server.toml"
        self.toml.write_text(self.description())

    def make_disks(self):
        self.disks.mkdir(parents=True, exist_ok=True)
        with open(self.disks / ".lock", "w", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            run(self.source / "tools" / "make_disk_images.sh", self.disks, check=True)
        folder = self.work / "volume" / "EFI" / "BOOT"
        folder.mkdir(parents=True)
        run("mcopy", "-i", f"{self.disks / 'system.img'}@@1M", "::/EFI/BOOT/BOOTX64.EFI", folder, check=True)
        drivers = self.work / "volume" / "drivers"
        drivers.mkdir()
        for name in ("test.efi", "inactive.efi"):
            if self.row.driver:
                shutil.copy(self.source / "build" / "efi" / "test-driver.efi", drivers / name)

    def description(self):
        text = (self.source / "examples" / f"{self.row.example}.toml").read_text(encoding="utf-8")
        for old, new in self.row.edits:
            check(old in text, self.row.example, "does not say", old)
            text = text.replace(old, new)
        text += "\n" + self.row.more
        text = text.replace('"installed_system"', f'"{self.source}/examples/installed_system"')
        return (text.replace("../build/run/disks", str(self.disks)).replace("{disks}", str(self.disks))
                .replace("{work}", str(self.work)))

    def boot(self, state, *arguments):
        """The JSON's boots and the log."""
        report, log = state.folder.with_suffix(".json"), state.folder.with_suffix(".log")
        done = run(self.sim, "boot", self.toml, "--quiet", "--state", state.folder, "--json", report, "--log", log,
                   *arguments)
        check(done.returncode in (0, 3), "bds-sim ended with", done.returncode, done.stdout, done.stderr)
        return result_schema.read(report.read_text())["boots"], log.read_text(errors="surrogateescape")

    def installed(self):
        state = State(self.work / "start")
        if "[[nvram.option]]" in self.toml.read_text():
            return state  # the description says what an installer left
        run(self.source / "tools" / "installer_nvram.py", state.nvram, self.disks / "system.img", "0000", "debian",
            "\\EFI\\debian\\grubx64.efi", check=True)
        return state

    def settle(self, state):
        """Boots until nothing new is saved: the boot after the first changes no boot option."""
        self.boot(state)
        options, order = state.options(), state.order()
        self.boot(state)
        check((state.options(), state.order()) == (options, order), "the second boot changed options or their order")

    def change(self, state, words):
        verb, *rest = words.split()
        if verb == "boot":
            self.boot(state)
        elif verb in ("bootdev", "remove"):
            done = run(self.sim, "bmc", state.folder, verb, *rest)
            check(done.returncode == 0, words, done.stderr)
        elif verb == "acknowledge":
            parameters = state.folder / "bmc" / "parameters.toml"
            text, changed = re.subn(r"(?m)^acknowledge = .*$", f"acknowledge = {rest[0]}", parameters.read_text())
            check(changed == 1, "no acknowledge in", parameters)
            parameters.write_text(text)
        elif verb == "first":
            name = f"{' '.join(rest)}\0".encode("utf-16-le")
            chosen = next(key[:8] for key, data in state.options().items() if data[10 : 10 + len(name)] == name)
            order = sorted(state.order(), key=lambda each: each != chosen)
            state.write("BootOrder", b"".join(struct.pack("<H", int(each[4:], 16)) for each in order))
        elif verb == "driver":
            number, attributes, file, options = rest
            path = VOLUME_PATH + node(4, 4, (f"\\drivers\\{file}\0").encode("utf-16-le")) + END_NODE
            option = struct.pack("<IH", int(attributes), len(path)) + "driver\0".encode("utf-16-le") + path
            state.write(f"Driver{number}", option + options.encode("utf-16-le"))
        elif verb == "driver-order":
            state.write("DriverOrder", bytes.fromhex(rest[0]))
        elif verb in ("lose-nvram", "lose-files"):
            shutil.rmtree(state.nvram if verb == "lose-nvram" else state.files)
        else:
            raise Wrong("unknown change:", words)


def check_boot(expected, boot, number):
    where = f"boot {number}:"
    booted = boot["booted"]
    text = booted and f"{booted['name']} {booted['path']}"
    check(booted is None if expected.starts is None else booted and expected.starts in text,
          where, "started", text, "not", expected.starts)
    resets = boot["resets"]
    check((resets["warm"], resets["cold"]) == (expected.warm, expected.cold), where, "resets", resets)
    for name, count in expected.counts.items():
        counted = sum(start["counts"].get(name, 0) for start in boot["starts"])
        right = counted > 0 if count == boot_rows.ANY else counted == count
        check(right, where, name, "counted", counted, "not", count)
    for start in boot["starts"]:
        check(not start["pool"]["leaks"], where, "pool blocks lost:", start["pool"]["leaks"])
        check(not start["complaints"], where, start["complaints"])


def check_waits(boot):
    """The start behind a first save restores what was saved."""
    for number, start in enumerate(boot["starts"]):
        faults = [*waits.wait_faults(start, restores=number > 0)]
        check(not faults, *faults)


def check_outcome(row, boots, log, before, state):
    check(len(boots) == len(row.boots), len(boots), "boots")
    for number, (expected, boot) in enumerate(zip(row.boots, boots), 1):
        check_boot(expected, boot, number)
        if row.waits:
            check_waits(boot)
    for name, data in before["options"].items():
        check(state.options().get(name) == data, "changed or lost:", name)
    check(before["order"] is None or (state.order() == before["order"]) == row.order, "the order became", state.order())
    for text in row.said:
        check(text in log, "not said:", text)
    check_shown(row, boots)
    for names, there in ((row.kept, True), (row.gone, False)):
        for name in names:
            check(state.has(name) == there, name, "is not there" if there else "is still there")
    if row.copies:
        state.check_copies()
    written = {write["name"] for boot in boots for start in boot["starts"] for write in start["variables_written"]}
    check(set(row.written) <= written, "not written:", set(row.written) - written)


def check_shown(row, boots):
    """What the console shows and what was loaded, in the order given."""
    starts = [start for boot in boots for start in boot["starts"]]
    loads = [f"{attempt['what']} {attempt['status']}" for start in starts for attempt in start["attempts"]]
    text = "\n".join([start["console"] for start in starts] + loads)
    at = 0
    for part in row.shown:
        check(part in text[at:], "not shown, or not behind the one before:", part, "in", text)
        at = text.index(part, at) + len(part)
    for part in row.hidden:
        check(part not in text, "shown:", part)


def check_request(bench, state):
    """A request that was read is handled: acknowledged, and gone from the BMC."""
    shown = run(bench.sim, "bmc", state.folder, "show").stdout
    handled = re.search(r"boot flags +none .*\n(?:.*\n)*?handled by BIOS +yes", shown)
    check(handled, "the BMC's request is still there:", shown)


def difference(one, two, path=""):
    """Where two JSON values part, as text; empty when they do not."""
    if isinstance(one, dict) and isinstance(two, dict):
        parts = [(key, one.get(key), two.get(key)) for key in {**one, **two}]
    elif isinstance(one, list) and isinstance(two, list) and len(one) == len(two):
        parts = [(number, *pair) for number, pair in enumerate(zip(one, two))]
    else:
        return "" if one == two else f"{path}: linked {one}, image {two}"
    return next(filter(None, (difference(a, b, f"{path}/{key}") for key, a, b in parts)), "")


def check_same(linked, image):
    """Everything counts, virtual time too: the clock moves with calls, waits and port accesses only, and the driver
    makes the same ones. The image's own start, which the linked driver has none of, is one StartImage more. Why options
    stand where they stand is the linked driver's to tell."""
    for boot in linked["boots"]:
        for start in boot["starts"]:
            check(start["policy"] is not None, "the linked driver tells nothing of its options' places")
            start["policy"] = None
    for boot in image["boots"]:
        for start in boot["starts"]:
            start["counts"]["StartImage"] -= 1
            if start["counts"]["StartImage"] == 0:
                del start["counts"]["StartImage"]
    where = difference(linked["boots"], image["boots"])
    check(not where, "the image's report differs", where)
    lines = zip(linked["log"].splitlines(), image["log"].splitlines())
    parted = next((f"{one!r} {two!r}" for one, two in lines if one != two), "one is longer")
    check(linked["log"] == image["log"], "the image says something else:", parted)
    left = {name for name in {**linked["left"], **image["left"]} if linked["left"].get(name) != image["left"].get(name)}
    check(not left, "the image left other bytes in:", *sorted(left))


def run_row(source, sim, row):
    image = Path(os.environ.get("BDS_IMAGE", source / "build" / "efi" / "bds.efi"))
    ways = {"linked": ()}
    if image.exists():
        ways["image"] = ("--image", image)
    else:
        print("the image is not built: only the linked driver was booted")
    with tempfile.TemporaryDirectory() as work:
        bench = Bench(source, sim, row, Path(work))
        start = bench.installed()
        if row.settled:
            bench.settle(start)
        before = {"options": start.options() if row.settled else {}, "order": start.order() if row.settled else None}
        for words in row.before:
            bench.change(start, words)
        results = {}
        for way, arguments in ways.items():
            state = State(Path(work) / way)
            shutil.copytree(start.folder, state.folder)
            boots, log = bench.boot(state, "--boots", len(row.boots), *row.arguments, *arguments)
            try:
                check_outcome(row, boots, log, before, state)
                if any(words.startswith("bootdev") for words in row.before):
                    check_request(bench, state)
            except Wrong as wrong:
                raise Wrong(f"{way}: {wrong}") from None
            results[way] = {"boots": boots, "log": log, "left": state.everything()}
        if "image" in results:
            check_same(results["linked"], results["image"])


def main(source, *arguments):
    rows = {row.name: row for row in boot_rows.ROWS}
    source = Path(source)
    if arguments == ("--list",):
        # A BMC of its own process is another test's.
        examples = {path.stem for path in (source / "examples").glob("*.toml") if "vm://" not in path.read_text()}
        missing = examples - {row.example for row in boot_rows.ROWS}
        if missing or len(rows) != len(boot_rows.ROWS):
            sys.exit(f"examples without a row: {sorted(missing)}; or a row's name is used twice")
        print("\n".join(rows))
        return 0
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    lacking = [tool for tool in TOOLS if shutil.which(tool) is None]
    if lacking:
        print("missing:", *lacking)
        return 77
    sim, name = arguments
    if rows[name].driver and not (source / "build" / "efi" / "test-driver.efi").exists():
        print("test-driver.efi is not built")
        return 77
    try:
        run_row(source, sim, rows[name])
    except Wrong as wrong:
        print(f"{name}: {wrong}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
