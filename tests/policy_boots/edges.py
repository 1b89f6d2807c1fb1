#!/usr/bin/env python3
"""Boots the servers of examples/policy_*.toml under small policies, each about one case at the edge of a rule, and
compares what each target took, and what the engine said of its tags, with kept/edges.txt.

    edges.py SOURCE_DIR BDS_SIM             compare, linked and, of every row, with bds.efi
    edges.py SOURCE_DIR BDS_SIM --accept    write kept/edges.txt anew, to be read in review

Exit status: 0 as kept, 1 not, 77 tools for disk images are missing."""
import concurrent.futures
import difflib
import json
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True  # the next one lies in the source tree
sys.path.insert(0, str(Path(__file__).resolve().parent))
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
# Title, server, managed, boot type, targets.
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
)


def policy(boot_type, targets):
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
    _, server, managed, boot_type, targets = row
    firmware = boot_type if managed and boot_type == "legacy" else "uefi"
    work.mkdir()
    (work / "server.toml").write_text(policy_boots.description(source, server, managed, firmware), encoding="utf-8")
    (work / "policy.xml").write_text(policy(boot_type, targets), encoding="utf-8")
    command = [bds_sim, "boot", work / "server.toml", "--policy", work / "policy.xml", "--quiet", "--json",
               work / "result.json"] + (["--image", image] if image else [])
    run = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
    if run.returncode not in (0, 3):
        raise RuntimeError(f"{row[0]}: exit status {run.returncode}: {run.stderr.strip()}")
    return json.loads((work / "result.json").read_text(encoding="utf-8"))["boots"][0]["starts"][-1]


def order(start):
    return [(option["name"], option["state"]) for option in start["options"] if option["in_order"]]


def main():
    source, bds_sim = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
    if any(shutil.which(tool) is None for tool in policy_boots.TOOLS):
        return 77
    policy_boots.make_disks(source)
    image = Path(os.environ.get("BDS_IMAGE", source / "build" / "efi" / "bds.efi"))
    wrong = 0
    now = []
    with tempfile.TemporaryDirectory() as temporary, concurrent.futures.ThreadPoolExecutor(2) as pool:
        def boot(job):
            number, by_image = job
            return last_start(source, bds_sim, ROWS[number], Path(temporary) / f"{number}{by_image}",
                              image if by_image else None)
        linked = list(pool.map(boot, ((number, "") for number in range(len(ROWS)))))
        built = list(pool.map(boot, ((number, "i") for number in range(len(ROWS))))) if image.exists() else []
    for row, start in zip(ROWS, linked):
        now += [f"{row[0]}: {row[1]}, {row[3]}, {policy_boots.MANAGED[row[2]]}", *story(start)]
    for row, start, by_image in zip(ROWS, linked, built):
        if order(start) != order(by_image):
            wrong += 1
            print(f"{row[0]}: bds.efi orders differently: {order(by_image)}")
    kept = source / "tests" / "policy_boots" / "kept" / "edges.txt"
    if "--accept" in sys.argv:
        kept.write_text("\n".join(now) + "\n", encoding="utf-8")
        return 1 if wrong else 0
    difference = list(difflib.unified_diff(kept.read_text(encoding="utf-8").splitlines(), now, "kept", "now", lineterm=""))
    print("\n".join(difference))
    print(f"{len(ROWS)} policies, {len(built)} of them with the image too")
    return 1 if wrong or difference else 0


if __name__ == "__main__":
    sys.exit(main())
