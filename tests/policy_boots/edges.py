#!/usr/bin/env python3
"""Boots the servers of examples/policy_*.toml under small policies, each about one case at the edge of a rule, and
compares what each target took, and what the engine said of its tags, with kept/edges.txt, and the complete log with
kept/edges_log.txt: of the first policy on a server in full, of each later one what differs from the one before it.

    edges.py SOURCE_DIR BDS_SIM             compare, linked and, of every row, with bds.efi
    edges.py SOURCE_DIR BDS_SIM --accept    write both anew, to be read in review

GOLDEN_LINKED_ONLY=1 leaves the image out.

Exit status: 0 as kept, 1 not, 77 tools for disk images are missing."""
import concurrent.futures
import difflib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True  # the next one lies in the source tree
sys.path[:0] = [str(Path(__file__).resolve().parent), str(Path(__file__).resolve().parents[1] / "golden")]
import golden  # noqa: E402
import policy_boots  # noqa: E402


def target(type_word, **elements):
    """Elements in their order; _ in a name's place of a number keeps names apart."""
    inner = "".join(f'<{name.rstrip("_")} value="{value}" />' for name, value in elements.items())
    return f'<FlexBootTarget value="{type_word}">{inner}</FlexBootTarget>\n'


def loader(path="", name="", what="Primary"):
    inner = (f'<BootLoaderPath value="{path}" />' if path else "") + (f'<BootLoaderName value="{name}" />' if name else "")
    return f"<{what}TargetUEFIBootParam>{inner}</{what}TargetUEFIBootParam>"


def san(*loaders):
    return f'<FlexBootTarget value="SANAny">{"".join(loaders)}</FlexBootTarget>\n'


MANAGED, ALONE = True, False
DEBIAN = r"\EFI\debian" + "\\"
NVME_PARTITION, SAS_PARTITION = "4D9A3C11-0013-4000-8000-000000000003", "4D9A3C11-0013-4000-8000-000000000002"


def head(count="1"):
    return ('<?xml version="1.0"?>\n<FlexBootOrder>\n<FlexBootOrderHeader>\n<Version value="1.0" />\n'
            f'<BootType value="uefi" />\n<NumBootTargets value="{count}" />\n</FlexBootOrderHeader>\n')


def asks(boot_flow):
    """What the boot menu's hot key leaves behind."""
    return ("boot_flow", (("[[root_bridge]]\n", f"[nvram]\nboot_flow = {boot_flow}\n[[root_bridge]]\n"),))


# Title, server, managed, boot type, targets, or a whole text in place of them; then what is changed in the description.
ROWS = (
    ("no targets", "storage", ALONE, "uefi", ""),
    ("no targets", "storage", MANAGED, "uefi", ""),
    ("a second target of a category that may come once", "network", MANAGED, "uefi", target("LANAny") * 2),
    ("a second SANAny", "network", MANAGED, "uefi", target("SANAny") * 2),
    ("a second SAN takes what the first left", "network", MANAGED, "uefi",
     target("SAN", PrimaryTargetWWPN="50:06:01:60:3B:20:19:3C") + target("SAN")),
    ("a second LocalStorageAny", "storage", MANAGED, "uefi", target("LocalStorageAny") * 2),
    ("a second NVMEAny", "storage", MANAGED, "uefi", target("NVMEAny") * 2),
    ("what one target refused is free for the next", "storage", MANAGED, "uefi",
     target("LocalHDD", PciVid="1234") + target("LocalHDD", PciVid="8086")),
    ("vendor 255", "storage", MANAGED, "uefi", target("LocalHDD", PciVid="FF")),
    ("a vendor leaves legacy options as they are", "storage", MANAGED, "legacy", target("LocalHDD", PciVid="8086")),
    ("function 8 is a number, and nothing has it", "storage", MANAGED, "uefi", target("LocalHDD", PciAddress="0:ff:1f.8")),
    ("function 9", "storage", MANAGED, "uefi", target("LocalHDD", PciAddress="0:ff:1f.9")),
    ("bus 0 has no bridge above it", "storage", MANAGED, "uefi", target("LocalHDD", PciAddress="0:0:1f.2")),
    ("legacy: bus, device and function of the BBS table", "storage", MANAGED, "legacy",
     target("LocalHDD", PciAddress="0:0:1f.2")),
    *((f"disk of slot {slot}", "storage", MANAGED, boot_type, target("OnboardHDD", HDDSlot=slot))
      for slot in ("0", "1", "2", "3", "5", "6", "FE", "FF") for boot_type in ("uefi", "legacy")),
    *((f"SD card unit {lun}", "removable", MANAGED, boot_type, target("SDCard", LunId=lun))
      for lun in ("0", "1", "2", "3", "6") for boot_type in ("uefi", "legacy")),
    *((f"USB of kind {kind or 'any'}", "removable", MANAGED, boot_type, target("USB", USBSubType=kind))
      for kind in ("FDD", "HDD", "CD", "") for boot_type in ("uefi", "legacy")),
    *((f"virtual media of kind {kind or 'any'}", "removable", MANAGED, boot_type,
       target("VirtualMedia", VMSubType=kind)) for kind in ("KVMVMediaFDD", "") for boot_type in ("uefi", "legacy")),
    ("a DVD drive and a stick on the same ports", "removable", MANAGED, "uefi",
     target("LocalCDD") + target("ExternalUSB") + target("InternalUSB") * 2),
    ("the same with legacy devices", "removable", MANAGED, "legacy",
     target("LocalCDD") + target("ExternalUSB") + target("InternalUSB") * 2),
    *((f"port {port} of slot {slot}", "network", MANAGED, boot_type,
       target("LAN", PhysicalAdaptorSlotNum=slot, PortNum=port))
      for slot, port in (("1", "1"), ("L", "1"), ("L", "2"), ("2", "1"), ("7", "1"))
      for boot_type in ("uefi", "legacy")),
    ("iSCSI standalone: no subclass", "network", ALONE, "uefi", target("ISCSI") + target("ISCSIAny")),
    ("iSCSI standalone, legacy", "network", ALONE, "legacy", target("ISCSIAny") + target("ISCSI")),
    ("a MAC address counts in UEFI boots only", "network", MANAGED, "legacy",
     target("LAN", MACAddress="02:00:00:00:02:02")),
    ("a Fibre Channel port by its name, legacy", "network", MANAGED, "legacy",
     target("SAN", PrimaryTargetWWPN="50:06:01:61:3B:20:19:3D")),
    ("a port name of another shape", "network", MANAGED, "uefi", target("SAN", PrimaryTargetWWPN="50-06-01-60")),
    ("a loader's directory in other letters", "storage", MANAGED, "uefi",
     target("LocalHDDAny", BootLoaderPath=r"\efi\DEBIAN")),
    ("a directory above the loader's", "storage", MANAGED, "uefi", target("LocalHDDAny", BootLoaderPath="\\EFI\\")),
    ("a loader's name as a pattern", "storage", MANAGED, "uefi", target("LocalHDDAny", BootLoaderName="*.EFI")),
    ("a name that no option starts", "storage", MANAGED, "uefi", target("LocalHDDAny", BootLoaderName="other.efi")),
    ("forward slashes in a loader's path", "storage", MANAGED, "uefi",
     target("LocalHDDAny", BootLoaderPath="EFI/debian", BootLoaderName="grubx64.efi")),
    ("a primary loader alone", "network", MANAGED, "uefi", san(loader(DEBIAN))),
    ("a secondary loader alone", "network", MANAGED, "uefi", san(loader(DEBIAN, what="Secondary"))),
    ("both loaders by name alone", "network", MANAGED, "uefi",
     san(loader(name="grubx64.efi"), loader(name="BOOTX64.EFI", what="Secondary"))),
    ("neither loader is there", "network", MANAGED, "uefi",
     san(loader("\\EFI\\a\\", "a.efi"), loader("\\EFI\\b\\", "b.efi", "Secondary"))),
    ("the shell twice", "storage", MANAGED, "uefi", target("UefiShell") * 2),
    ("a type that ends the list", "network", MANAGED, "uefi",
     target("LANAny") + target("NonPolicyTarget") + target("SANAny")),
    ("a type in other letters", "network", MANAGED, "uefi", target("lanany") + target("SANAny")),
    ("a boot type of no mode", "storage", MANAGED, "UEFI", target("LocalHDDAny")),
    ("a boot type of no mode on a standalone server", "storage", ALONE, "UEFI", target("LocalHDDAny")),
    ("a path with slashes of every kind", "storage", ALONE, "uefi",
     san(loader("EFI//debian", "grubx64.efi"), loader("\\EFI\\\\BOOT", "BOOTX64.EFI", "Secondary"))),
    ("loaders by directory alone", "storage", ALONE, "uefi", san(loader("\\EFI\\BOOT"), loader("/", what="Secondary"))),
    ("a loader by its directory", "storage", ALONE, "uefi",
     target("NVMEAny", UniquePartitionGUID=NVME_PARTITION, BootLoaderPath="\\EFI\\BOOT\\")),
    ("a loader by its name, wherever it lies", "storage", ALONE, "uefi",
     target("NVMEAny", UniquePartitionGUID=NVME_PARTITION, BootLoaderName="BOOTX64.EFI", DeviceName="found")),
    ("a loader that an option starts already gets the policy's name", "storage", ALONE, "uefi",
     target("LocalHDDAny", UniquePartitionGUID=SAS_PARTITION, BootLoaderPath=DEBIAN, BootLoaderName="grubx64.efi",
            DeviceName="renamed")),
    ("a file where a directory should be", "storage", ALONE, "uefi",
     target("NVMEAny", UniquePartitionGUID=NVME_PARTITION, BootLoaderPath="\\EFI\\BOOT\\BOOTX64.EFI\\")),
    ("a directory that is not there", "storage", ALONE, "uefi",
     target("NVMEAny", UniquePartitionGUID=NVME_PARTITION, BootLoaderPath="\\EFI\\none\\")),
    ("a partition's GUID cut short", "storage", ALONE, "uefi",
     target("NVMEAny", UniquePartitionGUID=NVME_PARTITION[:20], BootLoaderPath="\\EFI\\BOOT\\")),
    ("a partition's GUID that is too long", "storage", ALONE, "uefi",
     target("NVMEAny", UniquePartitionGUID=NVME_PARTITION + "0", BootLoaderPath="\\EFI\\BOOT\\")),
    ("the onboard storage, by any of its names", "storage", ALONE, "uefi",
     target("OnboardHDD") + target("OnboardHDDAny") + target("LocalStorageAny") + target("SDCard")),
    ("the same, legacy", "storage", ALONE, "legacy",
     target("OnboardHDD") + target("OnboardHDDAny") + target("LocalStorageAny") + target("SDCard")),
    ("slots of storage", "storage", MANAGED, "uefi",
     *[target("LocalHDD", SlotID="4") + target("LocalHDD", SlotID="53") + target("LocalHDD", SlotID="9", PortNum="2")]),
    ("drives of USB that are not there", "network", ALONE, "uefi",
     target("USB", USBSubType="HDD") + target("VirtualMedia", VMSubType="KVMVMediaHDD") + target("LocalFDD")),
    ("floppies at the KVM console and the BMC", "removable", ALONE, "uefi",
     target("VirtualMedia", VMSubType="KVMVMediaFDD") + target("IXMOVMediaFDD") + target("LocalFDD") + target("USB")),
    ("F6", "storage", ALONE, "uefi", target("LocalHDDAny"), asks(6)),
    ("F12", "storage", ALONE, "uefi", target("LocalHDDAny"), asks(0x1001)),
    ("F8", "storage", MANAGED, "uefi", target("LocalHDDAny"), asks(0x1002)),
    ("F7", "storage", MANAGED, "uefi", target("LocalHDDAny"), asks(0x1003)),
    ("the SD card asked for", "removable", ALONE, "uefi", target("LocalHDDAny"), asks(11)),
    ("a header that does not begin", "storage", ALONE, "uefi", '<?xml version="1.0"?>\n<FlexBootTargets></FlexBootTargets>'),
    ("a header that does not end", "storage", ALONE, "uefi", head().partition("</FlexBoot")[0]),
    ("targets that do not begin", "storage", ALONE, "uefi", head()),
    ("targets that do not end", "storage", ALONE, "uefi", head() + "<FlexBootTargets>" + target("LocalHDDAny")),
    ("a target that does not end", "storage", ALONE, "uefi",
     head() + '<FlexBootTargets>\n<FlexBootTarget value="LocalHDDAny"><PciVid value="8086" />'),
    ("a value without its quote", "storage", ALONE, "uefi",
     head() + '<FlexBootTargets>\n<FlexBootTarget value="LocalHDDAny><PciVid value="8086" /></FlexBootTarget>'),
    ("more targets than the header counts", "storage", ALONE, "uefi",
     head() + f"<FlexBootTargets>\n{target('UefiShell') * 2}</FlexBootTargets></FlexBootOrder>"),
    ("fewer targets than the header counts", "storage", ALONE, "uefi",
     head("3") + f"<FlexBootTargets>\n{target('UefiShell')}</FlexBootTargets></FlexBootOrder>"),
    ("no target count", "storage", ALONE, "uefi",
     head("x") + f"<FlexBootTargets>\n{target('UefiShell')}</FlexBootTargets></FlexBootOrder>"),
    ("a text longer than the room for it", "storage", ALONE, "uefi",
     head() + f"<FlexBootTargets>\n{target('UefiShell')}{' ' * 5000}</FlexBootTargets></FlexBootOrder>"),
    ("nothing but a word", "storage", MANAGED, "uefi", "<FlexBootOrder"),
    ("a place that is none", "storage", ALONE, "uefi",
     target("LocalHDD", PciAddress="0:ff") + target("LocalHDD", PciAddress="x:y:z.w") + target("LocalHDD", PciClassId="1ff")),
    ("no Setup", "storage", ALONE, "uefi", target("LocalHDDAny"), ("no Setup", (("[setup]\nuefi_mode = 1\n", ""),))),
    ("no CSM", "storage", ALONE, "legacy", target("LocalHDDAny"), ("no CSM", (("[csm]\n", ""),))),
    ("no slot information", "network", MANAGED, "legacy", target("LAN", PhysicalAdaptorSlotNum="1"),
     ("no slots", (("[csm]\n", "[csm]\n[platform]\nslot_info = false\n"),))),
)


def policy(boot_type, targets):
    if targets.startswith("<") and not targets.startswith("<FlexBootTarget "):
        return targets
    count = targets.count("<FlexBootTarget ")
    return ('<?xml version="1.0"?>\n<FlexBootOrder>\n<FlexBootOrderHeader>\n<Version value="1.0" />\n'
            f'<BootType value="{boot_type}" />\n<NumBootTargets value="{count:x}" />\n</FlexBootOrderHeader>\n'
            f"<FlexBootTargets>\n{targets}</FlexBootTargets>\n</FlexBootOrder>\n")


def story(start):
    told = start["policy"]
    lines = []
    for each in told["targets"]:
        lines.append(f"  {each['name']}" + (": several, and it may have one" if each["too_many"] else ""))
        for tag in each["tags"]:
            status = "" if tag["status"] == "EFI_SUCCESS" else f" {tag['status']}"
            said = f": {tag['message']}" if tag["message"] else ""
            if status != " EFI_UNSUPPORTED":
                lines.append(f"    {tag['name']} {tag['value']}{status}{said}")
        lines += [f"      took {told['options'][place]['name']}" for place in each["taken"]]
    ordered = [option for option in start["options"] if option["in_order"] and option["state"] == "active"]
    lines += [f"  boots {option['name']}{', legacy' if option['legacy'] else ''}" for option in ordered]
    lines += [f"  complaint: {each}" for each in start["complaints"]]
    lines += [f"  leak: {each}" for each in start["pool"]["leaks"]]
    return lines


def last_start(source, bds_sim, row, work, image=None):
    _, server, managed, boot_type, targets, *changed = row
    firmware = boot_type if managed and boot_type == "legacy" else "uefi"
    work.mkdir()
    description = policy_boots.description(source, server, managed, firmware)
    for _, changes in changed:
        for old, new in changes:
            assert old in description, old
            description = description.replace(old, new, 1)
    (work / "server.toml").write_text(description, encoding="utf-8")
    (work / "policy.xml").write_text(policy(boot_type, targets), encoding="utf-8")
    command = [bds_sim, "boot", work / "server.toml", "--policy", work / "policy.xml", "--quiet", "--json",
               work / "result.json", "--log", work / "log"] + (["--image", image] if image else [])
    run = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
    if run.returncode not in (0, 3):
        raise RuntimeError(f"{row[0]}: exit status {run.returncode}: {run.stderr.strip()}")
    log = (work / "log").read_text(encoding="utf-8", errors="backslashreplace")
    return json.loads((work / "result.json").read_text(encoding="utf-8"))["boots"][0]["starts"][-1], log


def logs(rows, texts, work):
    """The first starts' logs, without the traffic with the BMC; of rows of one server and mode what each has new."""
    before = {}
    for row, text in zip(rows, texts):
        first = re.split(r"(?m)^---- start 2 ----\n", text)[0]
        now = re.sub(r"(?m)^ ?BMC@.*\n", "", first)
        yield f"==== {title(row)}"
        last = before.get(row[1:4])
        before[row[1:4]] = now
        yield from golden.changed_lines(last, now, work) if last else now.splitlines()


def title(row):
    return f"{row[0]}: {row[1]}, {row[3]}, {policy_boots.MANAGED[row[2]]}"


def kept_as(path, now):
    """Shows how what came of it differs from the kept file."""
    kept = path.read_text(encoding="utf-8").splitlines() if path.exists() else []
    difference = list(difflib.unified_diff(kept, now, path.name, "now", lineterm="", n=1))
    print("\n".join(difference[:200]))
    return not difference


def order(start):
    return [(option["name"], option["state"]) for option in start["options"] if option["in_order"]]


def main():
    source, bds_sim = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
    if any(shutil.which(tool) is None for tool in policy_boots.TOOLS):
        return 77
    policy_boots.make_disks(source)
    image = Path(os.environ.get("BDS_IMAGE", source / "build" / "efi" / "bds.efi"))
    by_image = image.exists() and not os.environ.get("GOLDEN_LINKED_ONLY")
    with tempfile.TemporaryDirectory() as temporary, concurrent.futures.ThreadPoolExecutor(2) as pool:
        def boot(job):
            number, suffix = job
            return last_start(source, bds_sim, ROWS[number], Path(temporary) / f"{number}{suffix}",
                              image if suffix else None)
        linked = list(pool.map(boot, ((number, "") for number in range(len(ROWS)))))
        built = list(pool.map(boot, ((number, "i") for number in range(len(ROWS))))) if by_image else []
        log = list(logs(ROWS, (log for _, log in linked), Path(temporary)))
    wrong = 0
    told = []
    for row, (start, _) in zip(ROWS, linked):
        told += [title(row), *story(start)]
    for row, (start, _), (other, _) in zip(ROWS, linked, built):
        if order(start) != order(other):
            wrong += 1
            print(f"{row[0]}: bds.efi orders differently: {order(other)}")
    kept = source / "tests" / "policy_boots" / "kept"
    for name, now in (("edges.txt", told), ("edges_log.txt", log)):
        if "--accept" in sys.argv:
            (kept / name).write_text("\n".join(now) + "\n", encoding="utf-8")
        else:
            wrong += not kept_as(kept / name, now)
    print(f"{len(ROWS)} policies, {len(built)} of them with the image too")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
