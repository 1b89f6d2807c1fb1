#!/usr/bin/env python3
"""An operator's afternoon with real tools: ipmi_sim is the BMC of examples/ipmi_sim/server.toml, ipmitool asks it for
boots over LAN, bds-sim boots, and ipmitool tells what became of the request.

usage: operator_afternoon.py SOURCE_DIR BDS_SIM MODULE [BDS_EFI]

MODULE is ipmi_sim's (tools/ipmi_sim_module). With BDS_EFI a part of the tables is run with that image too.
Exit status: 0 right, 1 wrong, 77 a tool is missing.
"""
import fcntl
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from itertools import product
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.append(str(Path(__file__).resolve().parents[1]))
import result_schema  # noqa: E402

OLD = "UEFI: Built-in EFI Shell"  # what the operator's own order starts
# Name, device selector, and what is started in legacy and in EFI mode.
DEVICES = (
    ("pxe", 1, "SIM 10G port 0", "UEFI: IP4 0030 SIM 10G port 0"),
    ("disk", 2, "HDD Slot 1:SIM SSD 480G", "debian"),
    ("cdrom", 5, "PCH SATA 1:SIM DVD", "UEFI: CD/DVD Drive"),
    ("bios", 6, OLD, OLD),
    ("floppy", 15, "Floppy drive", "UEFI: USB"),
)
VALID, PERSISTENT, EFI = 0x80, 0x40, 0x20


@dataclass(frozen=True)
class Row:
    """One request, and what the boots behind it start."""

    name: str
    flags: tuple  # data 1 to 5 of the boot flags, as the BMC must hold them before the boot
    starts: str
    words: tuple = ()  # of ipmitool chassis bootdev; without them the flags are written raw
    saved: str = ""  # legacy requests: the option whose variable is kept for the next boot
    image: bool = False  # booted with the image too

    def valid(self):
        return bool(self.flags[0] & VALID)

    def persistent(self):
        return self.valid() and bool(self.flags[0] & PERSISTENT)


def bootdev_rows():
    for (device, selector, legacy, efi), persistent, in_efi in product(DEVICES, (False, True), (False, True)):
        options = ["persistent"] * persistent + ["efiboot"] * in_efi
        words = (device, "options=" + ",".join(options)) if options else (device,)
        data1 = VALID | PERSISTENT * persistent | EFI * in_efi
        yield Row(" ".join(words), (data1, selector << 2, 0, 0, 0), efi if in_efi else legacy, words,
                  image=in_efi if device in ("pxe", "disk") else not options)


def bit_rows():
    _, selector, legacy, efi = DEVICES[0]
    for bits in product((0, VALID), (0, PERSISTENT), (0, EFI)):
        target = OLD if not bits[0] else efi if bits[2] else legacy
        yield Row(f"raw pxe {sum(bits):02x}", (sum(bits), selector << 2, 0, 0, 0), target)


def row(data1, selector, data5, starts, **more):
    return Row(f"raw {data1:02x} selector {selector} instance {data5:02x}", (data1, selector << 2, 0, 0, data5), starts,
               **more)


RAW = (
    # A disk too: for safe mode, with a diagnostic partition.
    row(VALID | EFI, 3, 0, "debian"),
    row(VALID, 4, 0, "HDD Slot 1:SIM SSD 480G"),
    # Disks in EFI mode: two loaders of the order, then the USB stick. Bit 4 says that a number is given.
    row(VALID | EFI, 2, 0x02, "debian"),
    row(VALID | EFI, 2, 0x10, "debian"),
    row(VALID | EFI, 2, 0x11, "systemd", image=True),
    row(VALID | EFI, 2, 0x12, "UEFI: USB Hard Drive, Partition 1"),
    row(VALID | EFI, 2, 0x13, "debian"),  # beyond the last
    row(VALID | EFI | PERSISTENT, 2, 0x11, "systemd"),
    row(VALID | EFI, 1, 0x12, "UEFI: IP4 0031 SIM 10G port 1"),
    row(VALID | EFI, 15, 0x11, "UEFI: USB"),
    # In legacy mode all devices of the kind move to the front in their order; only what is kept tells the choice.
    row(VALID, 1, 0x10, "SIM 10G port 0", saved="SIM 10G port 0"),
    row(VALID, 1, 0x11, "SIM 10G port 0", saved="SIM 10G port 1", image=True),
    row(VALID, 2, 0x11, "HDD Slot 1:SIM SSD 480G", saved="HDD Slot 2:SIM HDD 2T"),
    row(VALID, 2, 0x1F, "HDD Slot 1:SIM SSD 480G", saved="HDD Slot 1:SIM SSD 480G"),
    row(VALID, 15, 0x11, "Floppy drive", saved="USB drive"),  # the one on USB comes behind
    # Selectors that stand for no device here.
    row(VALID, 0, 0, OLD),
    row(VALID | EFI, 7, 0, OLD),
    row(VALID | EFI, 8, 0, OLD),
    row(VALID, 11, 0, OLD),
)


class Wrong(Exception):
    pass


def expect(what, found, expected):
    if found != expected:
        raise Wrong(f"{what}: {found!r}, expected {expected!r}")


class Bmc:
    """ipmi_sim, started and stopped by the script that a user has."""

    def __init__(self, source, module, work):
        self.script = source / "examples/ipmi_sim/bmc.sh"
        self.folder = work / "bmc"
        self.environment = {**os.environ, "IPMI_SIM_MODULE": str(module)}
        self.port = 0

    def run(self, *words):
        return subprocess.run([self.script, *map(str, words)], env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, timeout=60)

    def __enter__(self):
        # However this process ends, the pipe closes then, and the simulator is stopped. The watcher is nobody's child,
        # so that it outlives a test that is killed with all its children.
        self.watcher = subprocess.Popen(
            ["setsid", "-f", "bash", "-c", 'read -r _; exec "$0" stop "$1"', self.script, self.folder],
            stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(5):  # a free port may be taken before it is used
            self.port = free_ports()
            started = self.run("start", self.folder, self.port)
            if started.returncode != 1:
                break
        if started.returncode != 0:
            print(started.stderr, file=sys.stderr)
            sys.exit(started.returncode)
        return self

    def __exit__(self, *_):
        stopped = self.run("stop", self.folder)
        self.watcher.stdin.close()
        expect("ipmi_sim stopped", stopped.returncode, 0)

    def tool(self, *commands):
        """The output of ipmitool for commands carried out in one session."""
        command = ["ipmitool", "-I", "lanplus", "-C", "3", "-H", "127.0.0.1", "-p", str(self.port), "-U", "operator",
                   "-P", "bds-sim-only", "exec", "/dev/stdin"]
        ended = subprocess.run(command, input="\n".join(commands) + "\n", capture_output=True, text=True, timeout=30)
        if ended.returncode != 0:
            raise Wrong(f"ipmitool ended with {ended.returncode} for {commands}: {ended.stderr}")
        return ended.stdout

    def get(self, *parameters, after=()):
        """The data of System Boot Options parameters, read after other commands."""
        lines = self.tool(*after, *(f"raw 0 9 {parameter} 0 0" for parameter in parameters)).split("\n")
        answers = [tuple(bytes.fromhex(line)) for line in [line for line in lines if line][-len(parameters):]]
        expect("versions and selectors", [answer[:2] for answer in answers], [(1, each) for each in parameters])
        return [answer[2:] for answer in answers]

    def forget(self):
        self.tool("raw 0 8 0 0", "raw 0 8 4 0xff 0", "raw 0 8 5 0 0 0 0 0")

    def ask(self, row):
        commands = ("raw 0 8 4 1 1", "raw 0 8 5 " + " ".join(map(str, row.flags)))
        if row.words:
            commands = ("chassis bootdev " + " ".join(row.words),)  # succeeds even when it fails, so what it did is read
        expect("acknowledge and boot flags before the boot", self.get(4, 5, after=commands), [(0, 1), row.flags])

    def expect_handled(self):
        text = self.tool("chassis bootparam get 4", "chassis bootparam get 5")
        for part in ("data: 0000\n", "data: 0000000000\n", "Boot Flag Invalid", "No override"):
            if part not in text:
                raise Wrong(f"ipmitool reads the parameters without '{part}':\n{text}")


class Server:
    """The state folder of a server, begun as a copy of another one."""

    def __init__(self, sim, description, state, image=None):
        self.command = [sim, "boot", description, "--quiet", "--state", state, "--json", "-"]
        self.command += ["--image", image] if image else []
        self.nvram = Path(state) / "nvram"

    def boot(self, starts=None):
        ended = subprocess.run(list(map(str, self.command)), stdin=subprocess.DEVNULL, capture_output=True, text=True,
                               timeout=60)
        if ended.returncode != 0:
            raise Wrong(f"bds-sim ended with {ended.returncode}: {ended.stderr[-2000:]}")
        boot = result_schema.read(ended.stdout)["boots"][-1]
        if starts is not None:
            expect("started", boot["booted"]["name"], starts)
            expect("starts of the machine", len(boot["starts"]), 1)
            last = boot["starts"][-1]
            # A removable drive is tried itself, and then with the name that loaders have there.
            expect("options tried", {attempt["option"] for attempt in last["attempts"]}, {boot["booted"]["number"]})
            expect("attempts that ended it", [a["ended_boot"] for a in last["attempts"]].count(True), 1)
            expect("complaints and leaks", (last["complaints"], last["pool"]["leaks"]), ([], []))
        return boot

    def variables(self, pattern):
        return {path.name.split("-")[0]: path.read_bytes()[4:] for path in self.nvram.glob(pattern + "-*")}

    def label(self, number):
        image = self.variables(f"Boot{number:04X}")[f"Boot{number:04X}"][6:].decode("utf-16-le", "replace")
        return image.partition("\0")[0]

    def numbers(self, name):
        return [number for (number,) in struct.iter_unpack("<H", self.variables(name)[name])]

    def boot_variables(self):
        return {**self.variables("Boot[0-9A-F][0-9A-F][0-9A-F][0-9A-F]"), **self.variables("BootOrder")}

    def kept(self):
        return sorted(self.variables("IpmiBootFlags") | self.variables("BootOrderBeforeIpmiBoot")
                      | self.variables("IpmiMatchBootOptionData"))


def request(bmc, server, row):
    """A request is followed, acknowledged and cleared; once, or until it is taken back; then all is as before."""
    before = server.boot_variables()
    bmc.ask(row)
    boot = server.boot(row.starts)
    if not row.valid():
        expect("acknowledge and boot flags", bmc.get(4, 5), [(0, 1), row.flags])
        expect("kept for later", server.kept(), [])
        expect("boot variables", server.boot_variables() == before, True)
        return
    bmc.expect_handled()
    moved = row.starts != OLD
    saved = row.saved or (row.starts if moved and not row.flags[0] & EFI else "")
    expected = ["IpmiBootFlags"] * row.persistent() + ["BootOrderBeforeIpmiBoot"] * moved
    expected += ["IpmiMatchBootOptionData"] * bool(saved)
    expect("kept for later", server.kept(), sorted(expected))
    if row.persistent():
        expect("request kept", server.variables("IpmiBootFlags"), {"IpmiBootFlags": bytes((1, 5) + row.flags)})
    if saved:
        number = struct.unpack_from("<H", server.variables("IpmiMatchBootOptionData")["IpmiMatchBootOptionData"])[0]
        expect("option kept", server.label(number), saved)
    if moved:
        order = before["BootOrder"]
        expect("order kept", server.variables("BootOrderBeforeIpmiBoot"), {"BootOrderBeforeIpmiBoot": order})
        expect("in front", server.label(server.numbers("BootOrder")[0]), row.starts)
    flow = [(v["size"], v["attributes"]) for v in boot["starts"][-1]["variables_written"] if v["name"] == "BootFlow"]
    expect("BootFlow written", flow, [(4, 2)] if row.flags[1] >> 2 == 6 else [])
    if row.persistent():
        server.boot(row.starts)
        expect("taken back", bmc.get(5, after=("chassis bootdev none",)), [(VALID, 0, 0, 0, 0)])
    server.boot(OLD)
    expect("kept at the end", server.kept(), [])
    after = server.boot_variables()
    expect("boot variables changed", [name for name in before | after if before.get(name) != after.get(name)], [])


PERSISTENT_DISK = Row("", (VALID | PERSISTENT | EFI, 2 << 2, 0, 0, 0), "debian", ("disk", "options=persistent,efiboot"))


CDROM = "chassis bootdev cdrom options=efiboot"


def another_request_in_place_of_a_persistent_one(bmc, server):
    bmc.ask(PERSISTENT_DISK)
    server.boot("debian")
    bmc.tool(CDROM)
    server.boot("UEFI: CD/DVD Drive")
    expect("kept for later", server.kept(), ["BootOrderBeforeIpmiBoot"])
    server.boot(OLD)


def flags_handled_by_another_party(bmc, server):
    """An acknowledge without the BIOS's bit: the BMC is left alone, and the persistent request ends."""
    bmc.ask(PERSISTENT_DISK)
    server.boot("debian")
    before = bmc.get(4, 5, after=(CDROM, "raw 0 8 4 0xff 2"))
    server.boot(OLD)
    expect("acknowledge and flags", bmc.get(4, 5), before)
    expect("kept for later", server.kept(), [])


def flags_that_are_being_set(bmc, server):
    """While the operator's tool says that it is setting parameters nothing is read; the boot after that follows."""
    before = bmc.get(4, 5, after=(CDROM, "raw 0 8 0 1"))
    server.boot(OLD)
    expect("acknowledge and flags", bmc.get(4, 5), before)
    bmc.tool("raw 0 8 0 0")
    server.boot("UEFI: CD/DVD Drive")
    bmc.expect_handled()
    server.boot(OLD)


STORIES = (another_request_in_place_of_a_persistent_one, flags_handled_by_another_party, flags_that_are_being_set)


def free_ports():
    """A number that is free for UDP and whose successor is free for TCP."""
    while True:
        with socket.socket(type=socket.SOCK_DGRAM) as lan, socket.socket() as serial:
            lan.bind(("127.0.0.1", 0))
            port = lan.getsockname()[1]
            try:
                serial.bind(("127.0.0.1", port + 1))
            except (OSError, OverflowError):
                continue
            return port


def make_disks(source):
    folder = source / "build/run/disks"
    folder.mkdir(parents=True, exist_ok=True)
    with open(folder / ".lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        subprocess.run([source / "tools/make_disk_images.sh", folder], check=True)
    return folder


def prepare(source, sim, work, port):
    """The server with two loaders that an installer left, settled, and an order that an operator chose."""
    disks = make_disks(source)
    description = work / "server.toml"
    text = (source / "examples/ipmi_sim/server.toml").read_text().replace("../../build/run/disks", str(disks))
    text, changed = re.subn(r"vm://127\.0\.0\.1:\d+", f"vm://127.0.0.1:{port + 1}", text)
    expect("addresses in the description", changed, 1)
    description.write_text(text)
    server = Server(sim, description, work / "settled")
    loaders = ["0000", "debian", r"\EFI\debian\grubx64.efi", "0001", "systemd", r"\EFI\systemd\systemd-bootx64.efi"]
    subprocess.run([source / "tools/installer_nvram.py", server.nvram, disks / "system.img", *loaders], check=True,
                   stdout=subprocess.DEVNULL)
    options = {option["name"]: int(option["number"], 16) for option in server.boot()["starts"][-1]["options"]}
    order = sorted(server.numbers("BootOrder"), key=lambda number: number != options[OLD])
    subprocess.run([sim, "vars", work / "settled", "order", *(f"{number:04X}" for number in order)], check=True,
                   stdout=subprocess.DEVNULL)
    server.boot()
    server.boot(OLD)
    expect("order", server.numbers("BootOrder"), order)
    return description, work / "settled"


def cases(image):
    rows = [*bootdev_rows(), *bit_rows(), *RAW]
    for each in rows:
        yield each.name, lambda bmc, server, each=each: request(bmc, server, each), None
    for story in STORIES:
        yield story.__name__, story, None
    if image:
        for each in rows:
            if each.image:
                yield f"{each.name} (image)", lambda bmc, server, each=each: request(bmc, server, each), image


def main(source, sim, module, image=None):
    search = os.environ["PATH"] + ":/usr/sbin:/sbin"
    os.environ["PATH"] = search
    for tool in ("ipmi_sim", "ipmitool", "mmd", "mcopy", "mkfs.vfat", "sgdisk", "sfdisk", "xorriso"):
        if shutil.which(tool) is None:
            print(f"skipped: {tool} is missing")
            return 77
    if not image or not Path(image).exists():
        print("the image is not built: only the linked driver is booted")
        image = None
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    source, wrong, run = Path(source).resolve(), 0, 0
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        with Bmc(source, module, work) as bmc:
            description, settled = prepare(source, sim, work, bmc.port)
            for name, check, driver in cases(image):
                shutil.copytree(settled, work / "state")
                try:
                    bmc.forget()
                    check(bmc, Server(sim, description, work / "state", driver))
                except (Wrong, subprocess.SubprocessError, LookupError, ValueError) as failure:
                    print(f"FAILED {name}: {failure!r}", file=sys.stderr)
                    wrong += 1
                shutil.rmtree(work / "state")
                run += 1
    print(f"{run} cases, {wrong} wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    if not 4 <= len(sys.argv) <= 5:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
