#!/usr/bin/env python3
"""Boots the servers of examples/policy_*.toml under random policies, well-formed and damaged, standalone and managed,
legacy and UEFI. Whatever the policy: the boot ends, nobody complains, no pool block is left, and every boot option that
an installer left is still in NVRAM.

    random_policies.py SOURCE_DIR BDS_SIM [--count N] [--seed S]    N policies, each on every server (default 40)

A policy that breaks a rule is printed. Exit status: 0 none did, 1 one did, 77 tools for disk images are missing."""
import argparse
import concurrent.futures
import json
import random
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree
from pathlib import Path

sys.dont_write_bytecode = True  # the next one lies in the source tree
sys.path.insert(0, str(Path(__file__).resolve().parent))
import policy_boots  # noqa: E402

TYPES = ("LocalStorageAny LocalHDDAny ISCSIAny OnboardHDD OnboardHDDAny LocalHDD SANAny SAN NVMEAny LANAny LAN ISCSI "
         "LocalCDD LocalFDD USB InternalUSB ExternalUSB SDCard VirtualMedia IXMOVMediaCDD KVMVMediaCDD IXMOVMediaHDD "
         "KVMVMediaHDD IXMOVMediaFDD KVMVMediaFDD UefiShell NonPolicyTarget Nonsense").split()
VALUES = {
    "RetrySameCategoryDevices": ("yes", "no", "maybe"),
    "PciVid": ("8086", "10DF", "1137", "0x8086", ""), "PciDid": ("1", "43", "FFFF"), "PciSubVid": ("1137", "FF"),
    "PciSubDid": ("0", "FF"), "PciClassId": ("1", "2", "C", "FF"),
    "PciAddress": ("0000:03:00.0", "0:0:0.0", "0000:ff:1f.7", "nonsense"),
    "PciSlotId": ("1", "2", "MLOM", "L", "HBA", "99"), "ControllerId": ("0", "1"), "LunId": ("0", "1", "2", "3", "FF"),
    "WWPN": ("50:06:01:60:3B:20:19:3C",), "WWNN": ("50:06",), "PrimaryTargetWWPN": ("50:06:01:60:3B:20:19:3C", "x"),
    "MACAddress": ("02:00:00:00:01:01", "02:25:B5:00:00:01", "02-00"), "VeyraOrla": ("yes", "no"),
    "VnicOrder": ("1", "2", "9"), "VhbaOrder": ("3", "4", "0"), "PhysicalAdaptorSlotNum": ("1", "2", "3", "MLOM", "7"),
    "PortNum": ("0", "1", "FF"), "USBSubType": ("FDD", "HDD", "CD", "?"), "VMSubType": ("KVMVMediaCDD", "IXMOVMediaHDD"),
    "HDDSlot": ("0", "1", "2", "5", "31"), "Shell": ("0", "1"), "RN": ("a name", "x" * 70),
    "UniquePartitionGUID": ("4D9A3C11-0001-4000-8000-000000000011", "x" * 37),
    "BootLoaderPath": ("\\EFI\\debian\\", "EFI/BOOT", "\\"), "BootLoaderName": ("grubx64.efi", "*.EFI", "none.efi"),
    "DeviceName": ("A loader",),
}


SERVERS = ("storage", "network", "removable")


def element(rng, name):
    return f'<{name} value="{rng.choice(VALUES[name])}" />\n'


def loader_group(rng, name):
    inner = "".join(element(rng, each) for each in ("BootLoaderPath", "BootLoaderName", "DeviceName") if rng.random() < .8)
    return f"<{name}>\n{inner}</{name}>\n"


def target(rng):
    body = "".join(element(rng, rng.choice(tuple(VALUES))) for _ in range(rng.randrange(5)))
    for group in ("PrimaryTargetUEFIBootParam", "SecondaryTargetUEFIBootParam"):
        if rng.random() < .1:
            body += loader_group(rng, group)
    return f'<FlexBootTarget value="{rng.choice(TYPES)}">\n{body}</FlexBootTarget>\n'


def damaged(rng, text):
    """Some bytes changed, left out or doubled."""
    data = list(text)
    for _ in range(rng.randrange(1, 6)):
        at = rng.randrange(len(data))
        action = rng.randrange(3)
        data[at:at + 1] = [] if action == 0 else [chr(rng.randrange(1, 256))] if action == 1 else [data[at]] * 80
    return "".join(data)


def policy(rng):
    count = rng.randrange(9)
    told = count if rng.random() < .9 else rng.randrange(40)
    boot_type = rng.choice(("uefi", "uefi", "legacy", "legacy", "UEFI", ""))
    text = ('<?xml version="1.0"?>\n<FlexBoot>\n<FlexBootOrderHeader>\n<Version value="1.0" />\n'
            f'<BootType value="{boot_type}" />\n<NumBootTargets value="{told:x}" />\n</FlexBootOrderHeader>\n'
            "<FlexBootTargets>\n" + "".join(target(rng) for _ in range(count)) + "</FlexBootTargets>\n</FlexBoot>\n")
    return damaged(rng, text) if rng.random() < .2 else text


def installed(description):
    """The paths of the options that an installer left, in the description's words."""
    return re.findall(r'\[\[nvram\.option\]\][^\[]*?path = "([^"]*)"', description)


def faults_of(folder, bds_sim, description, text):
    folder.mkdir()
    (folder / "server.toml").write_text(description, encoding="utf-8")
    (folder / "policy.xml").write_bytes(text.encode("latin-1"))
    run = subprocess.run([bds_sim, "boot", folder / "server.toml", "--policy", folder / "policy.xml", "--quiet", "--json",
                          folder / "result.json", "--state", folder / "state"], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
    if run.returncode not in (0, 3):
        return [f"exit status {run.returncode}: {run.stderr.strip()}"]
    starts = json.loads((folder / "result.json").read_text(encoding="utf-8"))["boots"][0]["starts"]
    faults = [str(each) for start in starts for each in (*start["complaints"], *start["pool"]["leaks"])]
    there = {option["path"].replace("\\", "") for option in starts[-1]["options"]}
    # A managed server whose firmware boots legacy devices has no UEFI options.
    kept = installed(description) if "uefi_mode = 1" in description else []
    assert kept or "uefi_mode = 0" in description
    faults += [f"lost: {path}" for path in kept if path.replace("\\", "") not in there]
    for report in (folder / "state" / "bmc" / "files").glob("ActualOrder.xml"):
        try:
            list(policy_boots.actual_order(report.read_bytes()))
        except xml.etree.ElementTree.ParseError as error:
            faults.append(f"the report: {error}")
    shutil.rmtree(folder)
    return faults


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("source", type=Path)
    parser.add_argument("bds_sim", type=Path)
    parser.add_argument("--count", type=int, default=40)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    if any(shutil.which(tool) is None for tool in policy_boots.TOOLS):
        return 77
    source = arguments.source.resolve()
    bds_sim = arguments.bds_sim.resolve()
    policy_boots.make_disks(source)
    def description(server, managed, text):
        # Every other managed server's firmware boots what the policy does not.
        legacy = managed and ('"legacy"' in text) != (len(text) % 2 == 1)
        return policy_boots.description(source, server, managed, "legacy" if legacy else "uefi")
    rng = random.Random(arguments.seed)
    texts = [policy(rng) for _ in range(arguments.count)]
    wrong = 0
    with tempfile.TemporaryDirectory() as temporary, concurrent.futures.ThreadPoolExecutor(2) as pool:
        def one(job):
            number, text = job
            # Every policy meets each server once, standalone or managed in turn.
            return [(text, fault) for server in SERVERS
                    for fault in faults_of(Path(temporary) / f"{number}-{server}", bds_sim,
                                           description(server, number % 2 == 1, text), text)]
        for found in pool.map(one, enumerate(texts)):
            for text, fault in found:
                wrong += 1
                print(f"{fault}\n{text}\n----")
    print(f"{arguments.count} policies on 3 servers: {wrong} faults")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
