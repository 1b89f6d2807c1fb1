#!/usr/bin/env python3
"""Boots the servers of examples/policy_*.toml under every policy of examples/policies/, standalone and managed, and
compares what came of each with what is kept in kept/: what started, the order with its tags' work to be seen, and what
the policy's report and the report of the actual order say of every target; the latter must be well-formed. A row that is another is shown as a difference.

    policy_boots.py SOURCE_DIR BDS_SIM SERVER            compare, linked; each row of the server's own mode with bds.efi too
    policy_boots.py SOURCE_DIR BDS_SIM SERVER --accept   write kept/SERVER.txt anew, to be read in review

Policies that name a boot type are booted as they are and with the other type. Exit status: 0 as kept, 1 not, 77 tools
for disk images are missing."""
import concurrent.futures
import difflib
import fcntl
import json
import os
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree
from pathlib import Path

TOOLS = ("mmd", "mcopy", "mkfs.vfat", "sgdisk", "sfdisk", "xorriso", "xmllint")
REPORT = "FlexBootReport-9dae27e6-9cc9-4972-bcdb-824573a2c2f6"
OTHER_TYPE = {"uefi": "legacy", "legacy": "uefi"}
OF_OTHER_FIRMWARE = ("lan_any", "local_storage_any")
MANAGED = {False: "standalone", True: "managed"}


def make_disks(source):
    disks = source / "build" / "run" / "disks"
    disks.mkdir(parents=True, exist_ok=True)
    with open(disks / ".lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        subprocess.run([source / "tools" / "make_disk_images.sh", disks], check=True, stdout=subprocess.DEVNULL)
    return disks


class Row:
    """A managed server's firmware boots what the policy does, but where the row says firmware; a standalone server's
    follows the policy by itself."""

    def __init__(self, server, policy, managed, boot_type, firmware=None):
        self.server, self.policy, self.managed, self.boot_type = server, policy, managed, boot_type
        self.firmware = firmware or (boot_type if managed else "uefi")
        self.name = f"{policy.stem}, {boot_type}, {MANAGED[managed]}"
        if firmware:
            self.name += f", {firmware} firmware"


def description(source, server, managed, firmware="uefi"):
    text = (source / "examples" / f"policy_{server}.toml").read_text(encoding="utf-8")
    if firmware == "legacy":
        text = text.replace("uefi_mode = 1", "uefi_mode = 0")
    text = text.replace('"../build/run/disks', f'"{source}/build/run/disks')
    text = text.replace("[management]\nmanaged = true\n", "")
    return text + ("\n[management]\nmanaged = true\n" if managed else "")


def rows(source, server):
    for policy in sorted((source / "examples" / "policies").glob("*.xml")):
        for managed in (False, True):
            text = policy.read_text(encoding="utf-8")
            own = "legacy" if '<BootType value="legacy"' in text else "uefi"
            yield Row(server, policy, managed, own)
            yield Row(server, policy, managed, OTHER_TYPE[own])
        if policy.stem in OF_OTHER_FIRMWARE:
            for own, firmware in OTHER_TYPE.items():
                yield Row(server, policy, True, own, firmware)


def actual_order(document):
    """The report of the actual order, an element's values a line. Two readers of XML must take it."""
    data = document.encode() if isinstance(document, str) else document
    lint = subprocess.run(["xmllint", "--noout", "-"], input=data, capture_output=True, check=False)
    if lint.returncode != 0:
        raise xml.etree.ElementTree.ParseError(lint.stderr.decode())
    root = xml.etree.ElementTree.fromstring(document)
    yield "    " + " ".join(f"{leaf.tag}={leaf.get('value')}" for leaf in root.find("ActualBootOrderHeader"))
    for target in root.find("ActualBootTargets"):
        leaves = " ".join(f"{leaf.tag}={leaf.get('value')}" for leaf in target if leaf.get("value") not in ("", "EFI"))
        yield f"    > {target.get('value')} {leaves}"


def story(result, report, document):
    """What came of a boot, for a reader."""
    last = result["boots"][0]["starts"][-1]
    lines = ["  " + last["outcome"]["summary"].split(": ")[0]]
    for option in last["options"]:
        if option["in_order"]:
            state = "" if option["state"] == "active" else f" ({option['state']})"
            lines.append(f"    {option['name']}{', legacy' if option['legacy'] else ''}{state}")
    lines += ["    | " + line for line in report.split("\n") if line and set(line) != {"*"}]
    lines += actual_order(document)
    for start in result["boots"][0]["starts"]:
        lines += [f"  complaint: {complaint}" for complaint in start["complaints"]]
        lines += [f"  leak: {leak}" for leak in start["pool"]["leaks"]]
    return lines


def boot(source, bds_sim, row, work, image=None):
    work.mkdir()
    (work / "server.toml").write_text(description(source, row.server, row.managed, row.firmware), encoding="utf-8")
    text = row.policy.read_text(encoding="utf-8")
    for boot_type in OTHER_TYPE:
        text = text.replace(f'<BootType value="{boot_type}"', f'<BootType value="{row.boot_type}"')
    (work / "policy.xml").write_text(text, encoding="utf-8")
    command = [bds_sim, "boot", work / "server.toml", "--policy", work / "policy.xml", "--quiet", "--json",
               work / "result.json", "--variables", work / "variables", "--state", work / "state"]
    if image:
        command += ["--image", image]
    run = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
    if run.returncode not in (0, 3):
        return [f"  exit status {run.returncode}: {run.stderr.strip()}"]
    result = json.loads((work / "result.json").read_text(encoding="utf-8"))
    report = work / "variables" / REPORT
    text = report.read_bytes()[4:].decode("ascii", "replace") if report.exists() else ""
    return story(result, text, (work / "state" / "bmc" / "files" / "ActualOrder.xml").read_bytes())


def main():
    source, bds_sim, server = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve(), sys.argv[3]
    if any(shutil.which(tool) is None for tool in TOOLS):
        return 77
    make_disks(source)
    image = Path(os.environ.get("BDS_IMAGE", source / "build" / "efi" / "bds.efi"))
    kept = source / "tests" / "policy_boots" / "kept" / f"{server}.txt"
    all_rows = list(rows(source, server))
    wrong = 0
    with tempfile.TemporaryDirectory() as temporary, concurrent.futures.ThreadPoolExecutor(2) as pool:
        work = Path(temporary)
        linked = list(pool.map(lambda n: boot(source, bds_sim, all_rows[n], work / f"l{n}"), range(len(all_rows))))
        built = [n for n, row in enumerate(all_rows) if image.exists() and row.managed and row.firmware == row.boot_type]
        by_image = list(pool.map(lambda n: boot(source, bds_sim, all_rows[n], work / f"i{n}", image), built))
    for n, lines in zip(built, by_image):
        if lines != linked[n]:
            wrong += 1
            print(f"{server}, {all_rows[n].name}: bds.efi comes to something else")
            print("\n".join(difflib.unified_diff(linked[n], lines, "linked", "image", lineterm="", n=1)))
    now = [line for row, lines in zip(all_rows, linked) for line in (row.name, *lines)]
    if "--accept" in sys.argv:
        kept.parent.mkdir(exist_ok=True)
        kept.write_text("\n".join(now) + "\n", encoding="utf-8")
        return 1 if wrong else 0
    before = kept.read_text(encoding="utf-8").splitlines()
    difference = list(difflib.unified_diff(before, now, "kept", "now", lineterm="", n=3))
    print("\n".join(difference))
    print(f"{len(all_rows)} boots, {len(built)} of them with the image too")
    return 1 if wrong or difference else 0


if __name__ == "__main__":
    sys.exit(main())
