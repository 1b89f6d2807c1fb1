#!/usr/bin/env python3
"""Boots a server while the transfer of the boot order table fails in every way: refused and silent blocks, four times
and five times, damaged answers, block sizes that cannot be, no transport, the power lost behind each write of the
BMC's. The boot ends and starts what it should; one more boot without the fault leaves the BMC's table as it was before.

    transfer_faults.py SOURCE_DIR BDS_SIM

Exit status: 0 all is well, 1 something is not, 77 tools for disk images are missing."""
import json
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True  # the next one lies in the source tree
sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "policy_boots"))
import policy_boots  # noqa: E402

SERVER = """name = "transfers"
[setup]
uefi_mode = 1
strict_group_order = 1
[bmc]
{bmc}
[csm]
[[root_bridge]]
uid = 0
[[root_bridge.function]]
kind = "ahci"
device = 0x1F
number = 2
[[root_bridge.function.sata]]
port = 0
image = "{disks}/system.img"
[[root_bridge.function.sata]]
port = 4
drive = "cdrom"
image = "{disks}/dvd.iso"
[[root_bridge.function]]
kind = "network"
device = 0x19
mac = "02:00:00:00:00:01"
"""
# A fault, and what the log of the boot that meets it must say.
FAULTS = [
    ("ipmi set-7d 1 c0 4", "Trial 3 SetBootOptions status="), ("ipmi set-7d 3 c0 5", "Trial 4 SetBootOptions status="),
    ("ipmi set-7d 1 silence always", "Trial 4 SetBootOptions status="),
    ("ipmi set-00 1 c0 5", "BOT:WriteBMCBOT failed:"), ("ipmi set-00 2 c0 5", "Trial 4 SetBootOptions Status="),
    ("ipmi get-78 1 c0 4", "Trial 3 GetBootOptions failed="), ("ipmi get-78 1 c0 5", "IPMI:Set Block Size failed:"),
    ("ipmi get-78 1 silence always", "IPMI:Set Block size failed:"),
    ("ipmi get-7d 1 c0 4", "Trial 3 GetBootOptions failed="), ("ipmi get-7d 1 c0 5", "BOT:WriteBMCBOT Completed"),
    ("ipmi get-7d 2 silence 5", "IPMI:BOT checksum wrong"), ("ipmi get-7d 3 damage", "IPMI:BOT checksum wrong"),
    ("ipmi get-7d 1 damage always", "IPMI:BOT checksum wrong"), ("ipmi get-00 1 c0", "BOT:ReadBMCBOT Status:"),
    ("ipmi get-00 1 silence always", "BOT:WriteBMCBOT failed:"),
]
# What the BMC is like for one boot, and what the log says of it.
BMCS = [
    ("boot_order_block_size = 0", "IPMI:Too big Block Size:0\n"), ("boot_order_block_size = 129", "IPMI:Too big Block Size:0\n"),
    ("boot_order_block_size = 127", "GetBootOptions:Out of Resources\n"), ("boot_order_block_size = 1", "too many blocks"),
    ("boot_order_block_size = 126", "Boot order table obtained from the BMC"), ('ipmi = "none"', "BOT: Failed locating IPMI:"),
]


class Trial:
    def __init__(self, bds_sim, disks, settled, work):
        self.bds_sim, self.disks, self.state, self.work = bds_sim, disks, work / "state", work
        shutil.rmtree(self.state, ignore_errors=True)
        if settled:
            shutil.copytree(settled, self.state)

    def boot(self, *faults, bmc=""):
        (self.work / "server.toml").write_text(SERVER.format(disks=self.disks, bmc=bmc), encoding="utf-8")
        words = [word for fault in faults for word in ("--fault", fault)]
        run = subprocess.run([self.bds_sim, "boot", self.work / "server.toml", "--state", self.state, "--quiet", "--log",
                              self.work / "log.txt", "--json", self.work / "result.json", *words],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        result = json.loads((self.work / "result.json").read_text())["boots"][-1]
        text = "\n".join(str(each) for start in result["starts"] for each in (*start["complaints"], *start["pool"]["leaks"]))
        log = "".join(line for line in (self.work / "log.txt").read_text(errors="replace").splitlines(True)
                      if not line.startswith("BMC@"))
        return run.returncode, text or run.stderr, log

    def table(self):
        text = (self.state / "bmc" / "parameters.toml").read_text()
        data = bytes.fromhex(re.search(r'boot_order_table = "(.*)"', text)[1])
        return data[:int.from_bytes(data[7:9], "little")]

    def nvram(self):
        return {file.name: file.read_bytes() for file in (self.state / "nvram").iterdir()}

    def order(self):
        return {name: data for name, data in self.nvram().items() if name.startswith("Boot")}


def main():
    source, bds_sim = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
    if any(shutil.which(tool) is None for tool in policy_boots.TOOLS):
        return 77
    disks = policy_boots.make_disks(source)
    wrong, tried = [], 0

    def check(name, condition, found=""):
        if not condition:
            wrong.append(f"{name}: {found}")

    with tempfile.TemporaryDirectory() as temporary:
        work = Path(temporary)
        first = Trial(bds_sim, disks, None, work)
        for _ in range(3):
            first.boot()
        settled = work / "settled"
        shutil.copytree(first.state, settled)
        table, order = first.table(), first.order()
        check("settled", len(table) > 300 and sum(table) % 256 == 0, len(table))

        def try_one(name, said, *faults, bmc=""):
            nonlocal tried
            tried += 1
            trial = Trial(bds_sim, disks, settled, work)
            status, complaints, log = trial.boot(*faults, bmc=bmc)
            check(name, status == 0 and not complaints, (status, complaints))
            check(name, said in log, f"no {said!r} in the log")
            check(name, trial.order() == order, "the order changed")
            status, complaints, _ = trial.boot()
            check(f"{name}, the boot behind it", status == 0 and not complaints, (status, complaints))
            check(f"{name}, the boot behind it", trial.table() == table and trial.order() == order, "not as before")

        for fault, said in FAULTS:
            try_one(fault, said, fault)
        for bmc, said in BMCS:
            try_one(bmc, said, bmc=bmc)
        # A change that no boot can answer: followed each time, without a write that differs, until the BMC takes a table.
        trial = Trial(bds_sim, disks, settled, work)
        subprocess.run([bds_sim, "bmc", trial.state, "order", "CDD,EFI"], check=True, stdout=subprocess.DEVNULL)
        kept = []
        for bmc in ["boot_order_block_size = 127"] * 4 + ["boot_order_block_size = 32"] * 2:
            status, complaints, log = trial.boot(bmc=bmc)
            check("unanswered", status == 0 and not complaints, (status, complaints))
            kept.append((trial.nvram(), trial.table()[10], "BOT:BMC updated SMBOT" in log))
        check("unanswered", all(each == kept[1] for each in kept[1:4]), "NVRAM changed, or the mark")
        check("unanswered", [each[1:] for each in kept[3:]] == [(2, True), (0, True), (0, False)], [each[1:] for each in kept])
        boots = [{name: data for name, data in nvram.items() if name.startswith("Boot")} for nvram, _, _ in kept]
        check("unanswered", boots[0] == boots[4] == boots[5] != order, "the order does not stay")
        # The power goes behind each write of the BMC's in turn, until a boot has no such write.
        for write in range(1, 200):
            trial = Trial(bds_sim, disks, settled, work)
            _, _, log = trial.boot(f"power bmc {write}")
            report = json.loads((work / "result.json").read_text())["boots"][-1]["starts"][0]["outcome"]
            if "power" not in report["summary"]:
                break
            tried += 1
            for _ in range(2):
                status, complaints, _ = trial.boot()
                check(f"power behind write {write}", status == 0 and not complaints, (status, complaints))
            check(f"power behind write {write}", trial.table() == table and trial.order() == order, "not as before")
        check("power", write > 15, f"{write - 1} writes only")
    for each in wrong:
        print(each)
    print(f"{tried} transfers: {len(wrong)} faults")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
