#!/usr/bin/env python3
"""Boots the servers of this folder and compares all that comes of it with what is kept beside their descriptions.

    golden.py SOURCE_DIR BDS_SIM [--accept | --first] [NAME...]
        compares, or writes anew; all servers when none is named; --first ends with the first difference
    golden.py SOURCE_DIR --list                          the servers' names, one a line

A server's folder holds server.toml, its description; boots.txt, what is done to it, a line each; and what came of it:
log.txt, variables.txt, bmc.txt. README.md describes them. Each is booted with the driver linked into BDS_SIM and with
build/efi/bds.efi (BDS_IMAGE names another image), which must leave the same. GOLDEN_LINKED_ONLY=1 leaves the image out.
Exit status: 0 the same, 1 a difference, which is shown, 77 the tools that make disk images are missing."""

import difflib
import fcntl
import json
import os
import re
import shlex
import shutil
import struct
import subprocess
import sys
import tempfile
import uuid
from pathlib import Path

HERE = Path(__file__).resolve().parent
TOOLS = ("mmd", "mcopy", "mkfs.vfat", "sgdisk", "sfdisk", "xorriso", "xmllint")
GUIDS = {
    "global": "8be4df61-93ca-11d2-aa0d-00e098032b8c",
    "setup": "ec87d643-eba4-4bb5-a1e5-3f3e36b20da9",
    "order": "a56074db-65fe-45f7-bd21-2d2bdd8e9652",
    "front-end": "c811fa38-42c8-4579-a9bb-60e94eddfb34",
    "capsule": "711c703f-c285-4b10-a3b0-36ecbd3c8be2",
}
# With the line before each step.
DEBUG_MASK = "0x80000066"
KEPT = ("log.txt", "variables.txt", "bmc.txt")
# Looking something up has no effect of its own; how often it is done is no part of what a boot does.
LOOKUPS = re.compile(r"^(AllocatePool|FreePool|CopyMem|SetMem|CheckEvent|RaiseTPL|RestoreTPL|OpenProtocol|"
                     r"OpenProtocolInformation|HandleProtocol|CloseProtocol|Locate.*|GetVariable|GetNextVariableName|"
                     r"ProtocolsPerHandle|FreePages|AllocatePages|port\..*|pci\..*|.*\.read|CalculateCrc32|bmc\..*|"
                     r"driver\.supported)$")


class Wrong(Exception):
    pass


def run(*command, **options):
    return subprocess.run([*map(str, command)], stdin=subprocess.DEVNULL, text=True, capture_output=True, timeout=120,
                          errors="backslashreplace", **options)


def hex_lines(data):
    for at in range(0, len(data), 32):
        row = data[at : at + 32]
        # UTF-16 text shows its letters, one for two bytes.
        letters = "".join(chr(byte) if 32 <= byte < 127 else "." for byte in row if byte) or "."
        yield f"    {at:04x} {row.hex(' ', 4):<71} {letters}".rstrip()


def changed_lines(before, after, work):
    """How the log of a start differs from that of the start before it. In place of line numbers, which any message more
    would change, each part names the step that it lies in."""
    (work / "before").write_text(before)
    (work / "after").write_text(after)
    lines = before.splitlines()
    for line in run("diff", "-U2", work / "before", work / "after").stdout.splitlines()[2:]:
        found = re.match(r"@@ -(\d+)", line)
        yield f"@@ {step_at(lines, int(found[1]) + 2)}" if found else line


class Listing:
    """Named bytes, shown at the first boot in full and then as far as they changed."""

    def __init__(self):
        self.lines, self.last = [], {}

    def add(self, title, now, show):
        self.lines.append(f"==== {title} ====")
        for name in sorted(self.last.keys() - now.keys()):
            self.lines.append(f"{name}: gone")
        for name in sorted(now):
            if self.last.get(name) != now[name]:
                self.lines += show(name, now[name])
        same = sum(self.last.get(name) == now[name] for name in now)
        if same:
            self.lines.append(f"{same} as before")
        self.last = now


def node(kind, subkind, body=b""):
    return struct.pack("<BBH", kind, subkind, 4 + len(body)) + body


def path_node(word):
    """One node of a path of boots.txt."""
    kind, _, value = word.partition(":")
    first, _, second = value.partition(".")
    match kind:
        case "hex":
            return bytes.fromhex(value)
        case "end":
            return node(0x7F, 0xFF)
        case "next":
            return node(0x7F, 0x01)
        case "acpi":
            return node(2, 1, struct.pack("<II", int(value or "0A0341D0", 16), 0))
        case "pci":
            return node(1, 1, bytes((int(second, 16), int(first, 16))))
        case "usb":
            return node(3, 5, bytes((int(first), int(second))))
        case "anyusb":
            return node(3, 15, b"\xff" * 7)
        case "mbr":  # the disk's signature; its first partition as make_disk_images.sh lays it out
            return node(4, 1, struct.pack("<IQQ16sBB", 1, 2048, 40960, struct.pack("<I", int(value, 16)), 1, 1))
        case "file":
            return node(4, 4, (value + "\0").encode("utf-16-le"))
        case "bbs":
            return node(5, 1, struct.pack("<HHB", int(value, 16), 0, 0))
        case "masked":
            return node(1, 4, uuid.UUID("99E275E7-75A0-4B37-A2E6-C5385E6C00CB").bytes_le) + node(0x7F, 0xFF)
    raise Wrong(f"unknown node {word!r}")


def show_variable(name, data):
    (attributes,) = struct.unpack_from("<I", data)
    yield f"{name}: attributes {attributes:x}, {len(data) - 4} bytes"
    yield from hex_lines(data[4:])


class Server:
    """One way of booting one server: its state, and what it has left so far."""

    def __init__(self, source, sim, folder, work, arguments):
        self.source, self.sim, self.work, self.arguments = source, sim, work, arguments
        self.state = work / "state"
        self.nvram = self.state / "nvram"
        self.nvram.mkdir(parents=True)
        self.toml = work / "server.toml"
        disks = source / "build" / "run" / "disks"
        own = folder / "server.toml"
        text = own.read_text() if own.exists() else ""  # or the word "example"
        self.description = text.replace("../../../build/run/disks", str(disks))
        self.description = self.description.replace("../volume", str(HERE / "volume"))
        self.log, self.variables, self.bmc = [], Listing(), Listing()
        self.boots, self.last_log = 0, ""

    # The words of boots.txt: one method each.

    def boot(self, *arguments):
        self.boots += 1
        title = f"boot {self.boots}" + "".join(f" {shlex.quote(each)}" for each in arguments)
        self.toml.write_text(self.description)
        log, report, at_end = self.work / "log", self.work / "json", self.work / "variables"
        done = run(self.sim, "boot", self.toml, "--quiet", "--state", self.state, "--log", log, "--json", report,
                   "--variables", at_end, "--trace", "--debug-mask", DEBUG_MASK, *self.arguments, *arguments)
        if done.returncode not in (0, 3):
            raise Wrong(f"{title}: bds-sim ended with {done.returncode}: {done.stdout}{done.stderr}")
        starts = re.split(r"(?m)^---- start \d+ ----\n", log.read_text(errors="backslashreplace"))
        for number, text in enumerate(starts, 1):
            self.log.append(f"==== {title}: start {number} ====")
            self.log += changed_lines(self.last_log, text, self.work) if self.last_log else text.splitlines()
            self.last_log = text
        self.log += self.outcome(json.loads(report.read_text())["boots"], done.stdout)
        self.variables.add(title, {path.name: path.read_bytes() for path in at_end.iterdir()}, show_variable)
        self.list_bmc(title)

    def outcome(self, boots, said):
        yield "==== what came of it ===="
        yield from said.splitlines()
        for start in (start for boot in boots for start in boot["starts"]):
            if start["pool"]["leaks"] or start["complaints"]:
                raise Wrong(f"complaints {start['complaints']}, pool blocks lost {start['pool']['leaks']}")
            yield f"start: {start['outcome']['end']}"
            for attempt in start["attempts"]:
                loaded = "" if attempt["loaded"] else f"not loaded: {attempt['reason']}: "
                yield f"  attempt {attempt['option']} {attempt['what']}: {loaded}{attempt['status']}"
            for write in start["variables_written"]:
                yield (f"  {write['kind']} {write['name']} attributes {write['attributes']} size {write['size']} "
                       f"{write['status']}")
            counts = {name: count for name, count in start["counts"].items() if not LOOKUPS.match(name)}
            if self.arguments:  # the image's own entry point, which is a call when it is linked in
                counts["StartImage"] = counts.get("StartImage", 0) - 1
            yield "  counts " + ", ".join(f"{name} {count}" for name, count in counts.items() if count)
            yield from (f"  console: {line}" for line in start["console"].splitlines() if line.strip())

    def list_bmc(self, title):
        folder = self.state / "bmc"
        found = {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*") if path.is_file()}
        held = {path.read_bytes()[4:]: path.name for path in self.nvram.iterdir()}

        def show(name, data):
            if name.endswith(".toml"):
                yield f"{name}:"
                yield from (f"    {line}" for line in data.decode().splitlines())
            elif name.endswith("ActualOrder.xml"):
                (self.work / "report.xml").write_bytes(data)
                self.must("xmllint", "--noout", self.work / "report.xml")
                yield f"{name}: {len(data)} bytes"
                yield from (f"    {line}".rstrip() for line in data.decode().splitlines())
            elif held.get(data, "").startswith(Path(name).name + "-"):
                yield f"{name}: {len(data)} bytes, those of the variable"
            else:
                yield f"{name}: {len(data)} bytes"
                yield from hex_lines(data)

        self.bmc.add(title, found, show)

    def example(self, name):
        """The description is an example's; boots.txt then begins with this word."""
        text = (self.source / "examples" / f"{name}.toml").read_text()
        self.description = text.replace("../build/run/disks", str(self.source / "build" / "run" / "disks"))

    def policy(self, boot_type, *names):
        """Puts a policy on the BMC: the targets of these example policies, one behind the other."""
        texts = [(self.source / "examples" / "policies" / f"{name}.xml").read_text() for name in names]
        targets = [each for text in texts for each in re.findall(r" *<FlexBootTarget .*?</FlexBootTarget>\n", text, re.S)]
        begin, end = texts[0].index("  <FlexBootTargets>"), texts[0].index("  </FlexBootTargets>")
        header = re.sub(r'(<BootType value=")\w+', rf"\g<1>{boot_type}", texts[0][:begin])
        header = re.sub(r'(<NumBootTargets value=")\w+', rf"\g<1>{len(targets):x}", header)
        text = f"{header}  <FlexBootTargets>\n{''.join(targets)}{texts[0][end:]}"
        self.put("ConfigPolicy.xml", text.encode().hex())

    def installed(self, *options):
        self.must("tools/installer_nvram.py", self.nvram, self.source / "build/run/disks/system.img", *options)

    def variable(self, name, guid, attributes, *data):
        """Data in hexadecimal; 00*80 are eighty of them."""
        path = self.nvram / f"{name}-{GUIDS.get(guid, guid)}"
        repeated = (each.partition("*") for each in data)
        text = "".join(digits * int(times or 1) for digits, _, times in repeated)
        path.write_bytes(struct.pack("<I", int(attributes, 16)) + bytes.fromhex(text))

    def setup(self, attributes, *changes):
        """Bytes of the server's Setup record, as offset=value, and its attributes."""
        path = self.nvram / f"Setup-{GUIDS['setup']}"
        data = bytearray(path.read_bytes()[4:])
        for offset, value in (map(int, change.split("=")) for change in changes):
            data[offset] = value
        self.variable("Setup", "setup", attributes, data.hex())

    def option(self, name, attributes, label, path, *data):
        """A load option; the path's nodes stand between slashes, its end goes without saying."""
        nodes = b"".join(map(path_node, path.split("/"))) + node(0x7F, 0xFF)
        image = struct.pack("<IH", int(attributes, 16), len(nodes)) + (label + "\0").encode("utf-16-le") + nodes
        self.variable(name, "global", "7", image.hex(), *data)

    def group(self, number, label, *members):
        """Makes a legacy group of options that are there, which then are only in it; first in the order."""
        images = [(self.nvram / f"Boot{member}-{GUIDS['global']}").read_bytes()[4:] for member in members]
        records = b"".join(b"\0\0NO" + struct.pack("<I", 8 + len(image)) + image for image in images)
        kind = images[0].index(node(5, 1)[:2]) + 4
        self.option(f"Boot{number}", "1", label, f"bbs:{images[0][kind]:x}", (b"\0\0GO" + records).hex())
        for member in members:
            self.delete(f"Boot{member}")
        order = (self.nvram / f"BootOrder-{GUIDS['global']}").read_bytes()[4:]
        rest = [f"{each[0]:04X}" for each in struct.iter_unpack("<H", order)]
        self.order(number, *(each for each in rest if each not in members))

    def delete(self, name, guid="global"):
        (self.nvram / f"{name}-{GUIDS[guid]}").unlink()

    def order(self, *numbers):
        self.variable("BootOrder", "global", "7", *(struct.pack("<H", int(number, 16)).hex() for number in numbers))

    def bootdev(self, *words):
        self.must(self.sim, "bmc", self.state, "bootdev", *words)

    def bmc_does(self, *words):
        """What a user of the BMC does: a bds-sim bmc command; paths are those of the source tree."""
        self.must(self.sim, "bmc", self.state, *words)

    def put(self, name, text):
        (self.work / "put").write_bytes(bytes.fromhex(text))
        self.must(self.sim, "bmc", self.state, "put", name, self.work / "put")

    def remove(self, name):
        self.must(self.sim, "bmc", self.state, "remove", name)

    def parameter(self, key, value):
        """One of the BMC's boot option parameters, by its key in parameters.toml."""
        path = self.state / "bmc" / "parameters.toml"
        text, changed = re.subn(rf"(?m)^{key} = .*$", f"{key} = {value}", path.read_text())
        if changed != 1:
            raise Wrong(f"no {key} in {path.name}")
        path.write_text(text)

    def lose(self, what):
        shutil.rmtree(self.nvram if what == "nvram" else self.state / "bmc" / "files")
        self.nvram.mkdir(exist_ok=True)

    def change(self, old, new):
        old, new = old.replace("\\n", "\n"), new.replace("\\n", "\n")
        if old not in self.description:
            raise Wrong(f"the description does not say {old!r}")
        self.description = self.description.replace(old, new)

    def must(self, *command):
        done = run(*command, cwd=self.source)
        if done.returncode != 0:
            raise Wrong(f"{shlex.join(map(str, command))}: {done.stderr}")

    def results(self):
        lines = (self.log, self.variables.lines, self.bmc.lines)
        return {name: "".join(f"{line}\n" for line in each) for name, each in zip(KEPT, lines)}


def play(source, sim, folder, arguments):
    with tempfile.TemporaryDirectory() as work:
        server = Server(source, sim, folder, Path(work), arguments)
        for number, line in enumerate((folder / "boots.txt").read_text().splitlines(), 1):
            lexer = shlex.shlex(line, posix=True, punctuation_chars=False)
            lexer.whitespace_split, lexer.escape = True, ""
            words = list(lexer)
            if not words:
                continue
            try:
                getattr(server, words[0])(*words[1:])
            except Wrong as wrong:
                raise Wrong(f"{folder.name}/boots.txt:{number}: {wrong}") from None
        return server.results()


def step_at(lines, number):
    """The step that had begun by this line of a log; in one of several boots, that boot too."""
    boot = step = ""
    for line in lines[:number]:
        if line.startswith("===="):
            boot, step = line.strip("= "), ""
        elif found := re.match(r"[ +-]?BDS\.(\w+)\(|@@ (?:in )?(\w+)$", line):
            step = found[1] or found[2]
    return " ".join(filter(None, (boot, step)))


def difference(name, expected, got):
    """A unified diff; each part of a log's says in which step it arose."""
    before, after = expected.splitlines(), got.splitlines()
    for line in difflib.unified_diff(before, after, f"{name} (kept)", f"{name} (now)", lineterm="", n=2):
        found = re.match(r"@@ -(\d+)", line)
        yield f"{line} {step_at(before, int(found[1]) + 2)}" if found else line


def show_difference(name, expected, got, limit=120):
    lines = list(difference(name, expected, got))
    print("\n".join(lines[:limit]))
    if len(lines) > limit:
        print(f"... and {len(lines) - limit} lines more")


def try_server(source, sim, folder, accept):
    """True when what came of it is what is kept, or is kept now."""
    results = play(source, sim, folder, ())
    right = True
    for name, text in results.items():
        kept = (folder / name).read_text() if (folder / name).exists() else ""
        if text == kept:
            continue
        if accept:
            (folder / name).write_text(text)
            print(f"{folder.name}/{name}: written")
        else:
            right = False
            show_difference(f"{folder.name}/{name}", kept, text)
    image = Path(os.environ.get("BDS_IMAGE", source / "build" / "efi" / "bds.efi"))
    if os.environ.get("GOLDEN_LINKED_ONLY") or not image.exists():
        print(f"{folder.name}: booted with the linked driver alone")
        return right
    for name, text in play(source, sim, folder, ("--image", image)).items():
        if text != results[name]:
            right = False
            print(f"{folder.name}: bds.efi does other things than the linked driver:")
            show_difference(f"{folder.name}/{name}", results[name], text)
    return right


def make_disks(source):
    disks = source / "build" / "run" / "disks"
    disks.mkdir(parents=True, exist_ok=True)
    with open(disks / ".lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        subprocess.run([source / "tools" / "make_disk_images.sh", disks], check=True)


def main(source, *arguments):
    source = Path(source).resolve()
    servers = sorted(path.parent.name for path in HERE.glob("*/boots.txt"))
    if arguments == ("--list",):
        print("\n".join(servers))
        return 0
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    lacking = [tool for tool in TOOLS if shutil.which(tool) is None]
    if lacking:
        print("missing:", *lacking)
        return 77
    sim, *rest = arguments
    accept = "--accept" in rest
    names = [name for name in rest if not name.startswith("--")] or servers
    make_disks(source)
    right = True
    for name in names:
        try:
            right = try_server(source, Path(sim).resolve(), HERE / name, accept) and right
        except Wrong as wrong:
            print(wrong)
            right = False
        if not right and "--first" in rest:
            break
    if not right:
        print("If this is as it should be: tools/golden.sh --accept, and look at the difference in git.")
    return 0 if right else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
