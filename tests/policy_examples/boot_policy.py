#!/usr/bin/env python3
"""Boots a server of examples/ under a policy of examples/policies/: the options that its targets take must be those
that the row names, in this order and in front of all others, with the linked driver and, when it is built, with
bds.efi; explain must name them too. The policy must be well-formed XML.

    boot_policy.py SOURCE_DIR BDS_SIM POLICY

Exit status: 0 right, 1 wrong, 77 the tools that make disk images are missing."""

import fcntl
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True  # the next one lies in the source tree
sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import result_schema  # noqa: E402

STORAGE, NETWORK, REMOVABLE, RACK = "policy_storage", "policy_network", "policy_removable", "rack_server"
PORT = "PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/"
MEDIA = PORT + "USB(0x6,0x0)"
COPY = "HD(1,GPT,4D9A3C11-0013-4000-8000-00000000000"
SYSTEM = "HD(1,GPT,4D9A3C11-0001-4000-8000-000000000011"

DEBIANS = [SYSTEM, COPY + "1", COPY + "2", COPY + "3"]
STICKS = ["Pci(0x14,0x0)/USB(0x10,0x0)/HD", PORT + "USB(0x0,0x0)/HD", PORT + "USB(0x3,0x0)/USB(0x2,0x0)/HD"]
SD_CARD = [PORT + "USB(0x4,0x0)/Unit(0x1)/HD", PORT + "USB(0x4,0x0)/HD"]


def port(*macs):
    """Each network port has an option for IPv4 and one for IPv6."""
    return [f"/MAC({mac},0x1)/IPv{version}(" for mac in macs for version in "46"]


ALL_PORTS = [COPY + "6", *port("0225B5000001", "0225B5000002", "020000000201", "020000000202", "020000000101",
                               "020000000102", "020000000302")]

# The server, and of each option that the targets take a part of its path, in their order.
ROWS = {
    "local_storage_any": (STORAGE, DEBIANS),
    "local_hdd_any": (STORAGE, [*DEBIANS, "Sata(0x5,0xFFFF,0x0)/CDROM"]),
    "onboard_hdd": (STORAGE, [SYSTEM]),
    "onboard_hdd_any": (STORAGE, [SYSTEM, COPY + "1"]),
    "local_hdd": (STORAGE, [COPY + "2"]),
    "nvme_any": (STORAGE, [COPY + "3"]),
    "uefi_shell": (STORAGE, ["VenMedia("]),
    "san_any": (NETWORK, [COPY + "4", COPY + "5", COPY + "7"]),
    "san": (NETWORK, [COPY + "4"]),
    "lan_any": (NETWORK, ALL_PORTS),
    "lan": (NETWORK, port("020000000202")),
    "iscsi_any": (NETWORK, ALL_PORTS),
    "iscsi": (NETWORK, [COPY + "6", *port("020000000201")]),
    "local_cdd": (REMOVABLE, [PORT + "USB(0x1,0x0)/CDROM"]),
    "local_fdd": (REMOVABLE, ["BBS(Floppy"]),
    "usb": (REMOVABLE, [*STICKS, PORT + "USB(0x2,0x0)/HD"]),
    "internal_usb": (REMOVABLE, [PORT + "USB(0x2,0x0)/HD"]),
    "external_usb": (REMOVABLE, [*STICKS, PORT + "USB(0x3,0x0)/USB(0x1,0x0)"]),
    "sd_card": (REMOVABLE, SD_CARD),
    "virtual_media": (REMOVABLE, [MEDIA + "/CDROM"]),
    "kvm_vmedia_cdd": (REMOVABLE, [MEDIA + "/CDROM"]),
    "kvm_vmedia_hdd": (REMOVABLE, [MEDIA + "/Unit(0x1)/HD"]),
    "kvm_vmedia_fdd": (REMOVABLE, [MEDIA + "/Unit(0x2)"]),
    "ixmo_vmedia_cdd": (REMOVABLE, [MEDIA + "/Unit(0x3)/CDROM"]),
    "ixmo_vmedia_hdd": (REMOVABLE, [MEDIA + "/Unit(0x4)/HD"]),
    "ixmo_vmedia_fdd": (REMOVABLE, []),
    "fleet_network_then_disk": (RACK, [*port("020000000001", "020000000002"), SYSTEM, "CDROM"]),
    "fleet_san_two_loaders": (NETWORK, [
        f"{COPY}4,0x800,0x22000)/\\EFI\\debian",
        f"{COPY}4,0x800,0x22000)/\\EFI\\BOOT"]),
    "fleet_network_port": (NETWORK, [*port("0225B5000002"), COPY + "6", *port("020000000201")]),
    "fleet_sd_card_then_virtual_media": (REMOVABLE, [*SD_CARD, MEDIA + "/Unit(0x3)/CDROM"]),
    "fleet_windows_and_linux": (STORAGE, [f"{COPY}3,0x800,0x22000)/\\EFI\\Microsoft", SYSTEM, "CDROM"]),
}

# Further boots of a policy: what is left out of its text, the loader of one more option on the LUN, and the order.
TWO_LOADERS = ROWS["fleet_san_two_loaders"][1]
VARIANTS = {
    "fleet_san_two_loaders": [
        ("both loaders by their directories alone", " *<BootLoaderName .*\n", None, TWO_LOADERS),
        ("an option that starts neither loader", None, r"\\EFI\\other\\other.efi", TWO_LOADERS),
        ("the same with the directories alone", " *<BootLoaderName .*\n", r"\\EFI\\other\\other.efi", TWO_LOADERS),
        ("no loader that is there: all options of the LUN", r"\\EFI", None, [TWO_LOADERS[0]]),
    ],
}


class Wrong(Exception):
    pass


def check(right, *what):
    if not right:
        raise Wrong(" ".join(map(str, what)))


def run(*command):
    return subprocess.run([*map(str, command)], stdin=subprocess.DEVNULL, text=True, capture_output=True, timeout=250,
                          check=False)


def with_windows(text, disks, work):
    """The NVMe drive holds another system's loader."""
    image = work / "windows.img"
    shutil.copy(disks / "server" / "nvme.img", image)
    for folder in ("::/EFI/Microsoft", "::/EFI/Microsoft/Boot"):
        check(run("mmd", "-i", f"{image}@@1M", folder).returncode == 0, "mmd", folder)
    loader = work / "bootmgfw.efi"
    run("mcopy", "-i", f"{image}@@1M", "::/EFI/BOOT/BOOTX64.EFI", loader)
    check(run("mcopy", "-i", f"{image}@@1M", loader, "::/EFI/Microsoft/Boot/bootmgfw.efi").returncode == 0, "mcopy")
    return text.replace(str(disks / "server" / "nvme.img"), str(image))


def description(source, server, policy, work):
    disks = source / "build" / "run" / "disks"
    disks.mkdir(parents=True, exist_ok=True)
    with open(disks / ".lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        made = run(source / "tools" / "make_disk_images.sh", disks)
        check(made.returncode == 0, made.stderr)
    text = (source / "examples" / f"{server}.toml").read_text().replace("../build/run/disks", str(disks))
    if "windows" in policy:
        text = with_windows(text, disks, work)
    if server == RACK:  # a system was installed on it
        path = SYSTEM + r",0x800,0x22000)/\\EFI\\debian\\grubx64.efi"
        text += f'\n[[nvram.option]]\nnumber = 0\nname = "debian"\npath = "{path}"\n'
    toml = work / "server.toml"
    toml.write_text(text)
    return toml


def last_start(sim, toml, policy, work, *more):
    report = work / "report.json"
    done = run(sim, "boot", toml, "--quiet", "--policy", policy, "--json", report, *more)
    check(done.returncode in (0, 3), "bds-sim ended with", done.returncode, done.stdout, done.stderr)
    boot = result_schema.read(report.read_text())["boots"][0]
    for start in boot["starts"]:
        check(not start["pool"]["leaks"] and not start["complaints"], start["pool"]["leaks"], start["complaints"])
    return boot["starts"][-1]


def check_what_is_kept(sim, toml, policy, work):
    """Of a server under the central manager: its record and report, as vars and the JSON tell of them."""
    report = work / "kept.json"
    run(sim, "boot", toml, "--policy", policy, "--state", work / "state", "--variables", work / "all", "--json", report)
    starts = result_schema.read(report.read_text())["boots"][0]["starts"]
    writes = [each for start in starts for each in start["variables_written"]]
    record = next(each for each in writes if each["name"] == "FlexBootOrder" and each["kind"] == "create")
    check(record["step"] == "BootOrderTableEntryPoint" and len(record["data"]) == 2 * record["size"], record)
    listed = run(sim, "vars", work / "all").stdout
    for said in ("target 1: LAN, MACAddress 02:00:00:00:02:02, ", "Option name - ", "a policy was obtained",
                 "a lasting one"):
        check(said in listed, "vars does not say", said)
    shown = run(sim, "policy", "show", work / "state").stdout
    check("BootPolicyName       lan\n" in shown, shown)


def check_without_mode(sim, toml, policy, work):
    """A BootType of no boot mode is told before anything else."""
    other = work / "other.xml"
    other.write_text(policy.read_text().replace('"uefi"', '"UEFI"'))
    check(run(sim, "policy", "check", other).returncode == 1, "no warning of the BootType")
    for command in ("boot", "explain"):
        lines = run(sim, command, toml, "--policy", other).stdout.splitlines()
        said = [line for line in lines if not line.startswith("Start ")][: 2]
        check(any(line.startswith('The policy\'s BootType "UEFI" is neither') for line in said), command, said)


def paths_in_order(start):
    paths = {option["number"]: option["path"] for option in start["options"]}
    return [paths[number] for number in start["order"]]


def check_order(sim, toml, policy, work, expected):
    start = last_start(sim, toml, policy, work)
    taken = sum((target["taken"] for target in start["policy"]["targets"]), [])
    order = paths_in_order(start)
    check(len(taken) == len(expected), len(taken), "options were taken:", order[: len(taken)])
    for part, path in zip(expected, order):
        check(part in path, "not", part, "but", path, "of", order)
    return order


def check_variants(sim, toml, policy, work):
    plain = toml.read_text()
    for title, left_out, loader, expected in VARIANTS.get(policy.stem, []):
        other = work / "variant.xml"
        other.write_text(re.sub(left_out, "", policy.read_text()) if left_out else policy.read_text())
        option = f'\n[[nvram.option]]\nnumber = 9\nname = "other"\npath = "{COPY}4,0x800,0x22000)/{loader}"\n'
        toml.write_text(plain.replace("\n[[root_bridge]]\n", option + "\n[[root_bridge]]\n", 1) if loader else plain)
        try:
            check_order(sim, toml, other, work, expected)
        except Wrong as wrong:
            raise Wrong(f"{title}: {wrong}") from wrong
    toml.write_text(plain)


def main():
    source, sim, name = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3]
    if any(shutil.which(tool) is None for tool in ("mmd", "mcopy", "mkfs.vfat", "sgdisk", "sfdisk", "xorriso")):
        return 77
    policy = source / "examples" / "policies" / f"{name}.xml"
    server, expected = ROWS[name]
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        toml = description(source, server, name, work)
        well_formed = run("xmllint", "--noout", policy)
        check(well_formed.returncode == 0, well_formed.stderr)
        order = check_order(sim, toml, policy, work, expected)
        check_variants(sim, toml, policy, work)
        image = source / "build" / "efi" / "bds.efi"
        if image.exists():
            check(paths_in_order(last_start(sim, toml, policy, work, "--image", image)) == order, "bds.efi orders",
                  "differently")
        check(run(sim, "policy", "check", policy).returncode == 0, "policy check objects")
        if name == "lan":
            check_what_is_kept(sim, toml, policy, work)
            check_without_mode(sim, toml, policy, work)
        explained = run(sim, "explain", toml, "--policy", policy)
        check(explained.returncode == 0, explained.stderr)
        places = re.findall(r"^ +(\d+)\. Boot.*\n +target \d+ \(\w+\) took it", explained.stdout, re.MULTILINE)
        check(places == [str(place + 1) for place in range(len(expected))], explained.stdout)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Wrong as wrong:
        print(wrong, file=sys.stderr)
        sys.exit(1)
