#!/usr/bin/env python3
"""What bds-sim tells of a boot and changes between boots, as a user types it; every result is held against the schema.
usage: what_a_boot_tells.py BDS_SIM"""
import itertools
import json
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import result_schema  # noqa: E402

SERVER = r"""
name = "small"
[setup]
uefi_mode = 1
[csm]
[[csm.entry]]
index = 30
bus = 2
device = 0
function = 0
subclass = 4
description = "RAID LUN"
[[root_bridge]]
[[root_bridge.function]]
kind = "ahci"
device = 0x1F
number = 2
[[root_bridge.function.sata]]
port = 0
folder = "fixed"
[[root_bridge.function.sata]]
port = 4
drive = "cdrom"
[[root_bridge.function]]
kind = "xhci"
device = 0x14
[[root_bridge.function.usb]]
port = 1
folder = "stick"
[[root_bridge.function]]
kind = "network"
device = 3
mac = "02:00:00:00:00:01"
"""


class Bench:
    def __init__(self, sim, work):
        self.sim, self.work = sim, work
        (work / "server.toml").write_text(SERVER)
        for name in ("fixed", "stick"):
            (work / name / "EFI/BOOT").mkdir(parents=True)
            (work / name / "EFI/BOOT/BOOTX64.EFI").write_bytes(b"no image")
        self.boot()

    def run(self, *words, status=0):
        ended = subprocess.run([self.sim, *map(str, words)], cwd=self.work, stdin=subprocess.DEVNULL, timeout=60,
                               capture_output=True, text=True)
        assert ended.returncode == status, (words, ended.returncode, ended.stdout[-3000:], ended.stderr[-3000:])
        return ended.stdout

    def boot(self, *words, server="server.toml", status=0):
        """The last start of the last boot, and the summary."""
        text = self.run("boot", server, "--state", "st", "--json", "r.json", *words, status=status)
        self.result = result_schema.read((self.work / "r.json").read_text())
        return self.result["boots"][-1]["starts"][-1], text

    def number(self, part):
        start = self.boot()[0]
        return next(option["number"] for option in start["options"] if part in option["name"])


def requests(bench):
    """Each combination of bits: what was asked, what it led to, and why not."""
    rows = {  # device: (legacy option there, UEFI option there)
        "none": (False, False), "pxe": (True, True), "disk": (True, False), "cdrom": (True, False), "floppy": (True, True)}
    for (device, there), efi, persistent in itertools.product(rows.items(), (False, True), (False, True)):
        flags = [*["--efi"] * efi, *["--persistent"] * persistent]
        bench.run("bmc", "st", "bootdev", device, *flags)
        start, text = bench.boot()
        asked = start["bmc_request"]
        what = (device, efi, persistent, asked)
        assert asked["source"] == "bmc" and asked["device"] == device, what
        assert (asked["efi"], asked["persistent"]) == (efi, persistent), what
        assert asked["acknowledged"] and asked["cleared"] and asked["kept"] == persistent, what
        followed = device == "none" or there[efi]
        assert asked["followed"] == followed and ("not followed" in asked["result"]) != followed, what
        assert (asked["option"] is not None) == (followed and device != "none"), what
        assert f"BMC request: {device}{' efi' * efi}, " in text and asked["result"] in text, text
        shown = bench.run("bmc", "st", "show")
        assert ("kept in NVRAM     " + device in shown) == persistent or device == "none", shown
        again = bench.boot()[0]["bmc_request"]
        assert again["source"] == ("nvram" if persistent else None), (what, again)
    bench.run("bmc", "st", "bootdev", "none")
    assert "80 00 00 00 00" in bench.run("bmc", "st", "show")
    assert bench.boot()[0]["bmc_request"]["kept"] is False
    assert bench.boot("--fault", "h2b-stuck:always")[0]["bmc"]["silent"]


def faults(bench):
    """Where each fault was met, or that it was not; and what booted, whatever the store did."""
    start, text = bench.boot("--fault", "call SetVariable 1 EFI_DEVICE_ERROR 100", "--fault", "bad-checksum:2@8",
                             "--fault", "call LocateProtocol 100000 EFI_NOT_FOUND")
    met = {fault["words"]: fault for fault in start["faults"]}
    assert met["bad-checksum:2@8"]["met"] == 2 and met["bad-checksum:2@8"]["first"] == 8, met
    assert met["call LocateProtocol 100000 EFI_NOT_FOUND"]["met"] == 0 and "EFI_NOT_FOUND\": not met" in text, text
    refused = [write for write in start["variables_written"] if write["kind"] == "refused"]
    assert len(refused) == met["call SetVariable 1 EFI_DEVICE_ERROR 100"]["met"] > 5, (refused, met)
    assert start["booted"]["number"] and start["booted"]["name"] == "HDD Slot 1:DISK", start["booted"]
    assert "refused " in text
    start, text = bench.boot("--fault", "no-answer:always")
    assert start["bmc"]["silent"] and "The BMC did not answer " in text, text


def devices_without_option(bench):
    start, text = bench.boot()
    reasons = {device["path"]: device["reason"] for device in start["devices_without_option"]}
    assert reasons == {} and "Devices without" not in text, (reasons, text)
    (bench.work / "uefi.toml").write_text(SERVER.replace("[csm]", "[csm]\npresent = false"))
    start, text = bench.boot(server="uefi.toml")
    reasons = {device["path"]: device["reason"] for device in start["devices_without_option"]}
    assert reasons["PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x4,0xFFFF,0x0)"] == "no medium", reasons
    assert "Devices without an option" in text and "fixed disk" in reasons["PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)"], reasons


def edits(bench):
    """vars and efibootmgr: what was set is what the next boot follows, however short."""
    shell, lun = bench.number("Shell"), bench.number("RAID LUN")
    for setting in (["vars", "st", "order", lun, shell], ["run", "st", "--", "efibootmgr", "-q", "-o", shell],
                    ["run", "st", "--", "efibootmgr", "-q", "-o", f"{lun},{shell}"]):
        order = setting[-1].split(",") if "run" in setting else [lun, shell]
        bench.run(*setting)
        (file,) = (bench.work / "st/nvram").glob("BootOrder-*")
        numbers = file.read_bytes()[4:]
        assert numbers == b"".join(int(number, 16).to_bytes(2, "little") for number in order), (setting, numbers)
        if order[0] == lun:
            assert bench.boot()[0]["booted"]["number"] == lun, setting
    assert bench.run("vars", "st", "deactivate", shell) == f"Boot{shell} inactive\n"
    bench.run("vars", "st", "next", lun)
    start, text = bench.boot()
    assert start["boot_next"] == lun and f"BootNext: Boot{lun} RAID LUN is still to come" in text, text
    bench.run("vars", "st", "next", "none")
    added = bench.run("vars", "st", "add", "my disk", r"PciRoot(0x0)/Pci(0x9,0x0)/\a.efi", "--data", "0aFF", "--last")
    number = added.split()[0][4:]
    listed = bench.run("vars", "st")
    assert '"my disk" active' in listed and "0a ff" in listed and added.split()[-1] == number, (added, listed)
    bench.run("run", "st", "--", "efibootmgr", "-q", "-B", "-b", number)
    assert "my disk" not in bench.run("vars", "st")
    bench.run("vars", "st", "setup", "uefi_mode=0", "option_rom_policy=0,2,1,2,2,3", "163=1")
    listed = bench.run("vars", "st")
    for line in ("uefi_mode            0 ", "option_rom_policy    0 2 1 2 2 3 ", "stbu_mode            1 "):
        assert line in listed, listed
    assert "Note: the state's own Setup holds" in bench.boot()[1] and "uefi_mode 0, described 1" in bench.result[
        "notes"][0], bench.result["notes"]
    # What is wrong changes nothing, and a write that hides where the variable ends is not believed.
    before = {path.name: path.read_bytes() for path in (bench.work / "st/nvram").iterdir()}
    for words in (["order", "7777"], ["order", f"{lun},{lun}"], ["delete", "x"], ["next", lun, shell],
                  ["add", "a", "PciRoot(zero)"], ["add", "a", "Pci(1,0)", "--data", "0"],
                  ["add", "a", "Pci(1,0)", "--number", lun], ["setup", "uefi_mode=256"], ["setup", "speed=1"],
                  ["setup", "167=1"], ["setup", "option_rom_policy=1,2"]):
        bench.run("vars", "st", *words, status=2)
    in_place = "f=$(echo $EFIVARFS_PATH/BootOrder-*); cp {} $f".format(shutil.which("true"))
    bench.run("run", "st", "--", "sh", "-c", in_place, status=2)
    bench.run("run", "st", "--", "sh", "-c", "echo junk > $EFIVARFS_PATH/junk", status=2)
    assert before == {path.name: path.read_bytes() for path in (bench.work / "st/nvram").iterdir()}
    bench.run("run", "st", "--", "sh", "-c", "exit 7", status=7)


def damaged(bench):
    name = "Boot0BAD-8be4df61-93ca-11d2-aa0d-00e098032b8c"
    (bench.work / "st/nvram" / name).write_bytes(b"\7\0\0\0no option")
    start, text = bench.boot()
    assert start["damaged_options"][0]["name"] == "Boot0BAD" and "Damaged: Boot0BAD was 9 bytes" in text, text


POLICY = """<?xml version="1.0"?><FlexBootOrder><FlexBootOrderHeader><Version value="1.0" /><BootType value="legacy" />
<NumBootTargets value="1" /></FlexBootOrderHeader><FlexBootTargets><FlexBootTarget value="{0}"><RN value="my {0}" />
</FlexBootTarget></FlexBootTargets></FlexBootOrder>"""


def policies(bench):
    """What the BMC has of policies and reports, from boot to boot: what is done, the last report's LastUpdate and first
    target, and the names that policy show begins with."""
    legacy = SERVER.replace("uefi_mode = 1", "uefi_mode = 0")
    stale = '[platform]\npolicy_stale = "{}"\n'
    for name, text in {"legacy": legacy, "early": legacy + stale.format("ReadBootOptions"),
                       "late": legacy + stale.format("SetBootOptionPriorities")}.items():
        (bench.work / f"{name}.toml").write_text(text)
    for target in ("LANAny", "LocalHDDAny"):
        (bench.work / f"{target}.xml").write_text(POLICY.format(target))
    shutil.rmtree(bench.work / "st")
    lasting, once, used, marker = ("ConfigPolicy.xml: for every boot", "OneTimeConfigPolicy.xml: for the next boot",
                                   "OneTimeConfigPolicy_stale.xml: was used for one boot",
                                   "ConfigPolicy_stale.xml: the platform called the policy stale")
    lan, disk, none = ("IXMO", "LANAny"), ("IXMOOneTimeBoot", "LocalHDDAny"), ("BIOS", "NonPolicyTarget")
    rows = (  # a server's name: it boots
        ("policy remove", None, [], 2), ("policy set missing.xml", None, [], 2), ("policy set .", None, [], 2),
        ("policy set LANAny.xml", None, [lasting]), ("legacy", lan, [lasting]),
        ("policy set LocalHDDAny.xml --once", lan, [once, lasting]), ("legacy", disk, [lasting, used]),
        ("legacy", lan, [lasting, used]), ("policy remove --once", lan, [lasting]),
        ("late", lan, [lasting, marker]), ("early", none, [lasting, marker]),
        ("policy set LANAny.xml", none, [lasting]), ("policy set LocalHDDAny.xml --once", none, [once, lasting]),
        ("early", none, [once, lasting, marker]), ("policy remove", none, [once]), ("legacy", disk, [used]),
        ("policy remove --once", disk, []), ("policy remove --once", disk, [], 2), ("legacy", none, []))
    for number, (doing, reported, shown, *status) in enumerate(rows):
        what = (number, doing)
        if (bench.work / f"{doing}.toml").exists():
            bench.boot(server=f"{doing}.toml")
        else:
            bench.run("bmc", "st", *doing.split(), status=status[0] if status else 0)
        text = bench.run("bmc", "st", "policy", "show")
        names = [line for line in text.splitlines() if ".xml: " in line]
        assert names == shown and (text == "no policy\n") == (not shown), (what, text)
        reports = json.loads(bench.run("bmc", "st", "report", "--json"))
        text = bench.run("bmc", "st", "report")
        if reported is None:
            assert reports == [] and text.startswith("no report"), (what, text)
            continue
        (report,) = reports
        targets = report["targets"]
        assert (report["header"]["LastUpdate"], targets[0]["type"]) == reported and not report["error"], (what, report)
        counted = [target for target in targets if target["ErrorCode"] == "0" or reported == none]
        assert int(report["header"]["TotalActualTargets"]) == len(counted), (what, report)
        assert (f'done; target "my {targets[0]["type"]}"' in text) == (reported != none), (what, text)
        assert report["debug"] not in text and report["debug"] in bench.run("bmc", "st", "report", "--debug"), what
    (bench.work / "cut.xml").write_text(POLICY[:60])
    bench.run("bmc", "st", "put", "ActualOrder.xml", "cut.xml")
    assert json.loads(bench.run("bmc", "st", "report", "--json", status=2))[0]["error"].startswith("line 1: ")
    bench.run("bmc", "st", "policy", "set", "cut.xml")
    assert "the driver refuses the policy" in bench.run("bmc", "st", "policy", "show", status=2)


def ends(bench):
    """Results of boots that end otherwise hold to the schema too."""
    (bench.work / "menu.toml").write_text(SERVER + '[front_end]\nkind = "menu"\n')
    start, _ = bench.boot(server="menu.toml", status=4)
    assert start["outcome"]["end"] == "waits forever" or start["booted"] is None, start["outcome"]
    shutil.rmtree(bench.work / "st")
    start, _ = bench.boot("--boots", "2", "--fault", "power nvram 1", "--debug-mask", "0xFFFFFFFF")
    start = bench.result["boots"][0]["starts"][-1]
    assert start["outcome"]["end"] == "power lost" and start["faults"][0]["met"] == 1, start["outcome"]
    assert bench.boot("--legacy-status", "EFI_TIMEOUT")[0]["booted"]["path"].startswith("VenMedia("), "the shell's path"


def main(sim):
    wrong = 0
    for story in (requests, faults, devices_without_option, edits, damaged, policies, ends):
        with tempfile.TemporaryDirectory() as folder:
            try:
                story(Bench(sim, Path(folder)))
            except (AssertionError, subprocess.SubprocessError, LookupError, StopIteration) as failure:
                print(f"FAILED {story.__name__}: {failure!r}", file=sys.stderr)
                wrong += 1
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]) if len(sys.argv) == 2 else __doc__)
