#!/usr/bin/env python3
"""Boots servers on which a user of the BMC changes the boot order and sets and removes policies, for every boot and for
one, disks come and go, and installers put options in front, at random: strict and loose, UEFI mode and not, standalone
and managed. After every boot:

- the boot ended, nobody complained, no pool block is left;
- the BMC's table has a good sum, is not marked, and agrees with BootOrder, Boot#### and LegacyDevOrder of the boot;
- BootOrder names each option once, no two options are the same, and no Boot#### is outside of it;
- under a policy the table is the fixed one, in force behind it again the list's;
- an option that an installer made is only lost where the summary of the boot tells its reason, and that is one of strict
  group order's, of the management mode's or of the step that deletes what no order names; on a standalone server in
  loose group order none is lost;
- an order changed at the BMC is in force; a policy for one boot is used once; from the second boot without
  an event on nothing in NVRAM changes (a new device's name in the table is still the CSM's on its first boot), in
  strict mode from the fourth on: groups that come back change the list that the next boot makes of the order.

    random_orders.py SOURCE_DIR BDS_SIM [--boots N] [--seed S] [--image BDS_EFI]    N boots, 20 to a server (default 60)

Exit status: 0 no rule was broken, 1 one was, 77 tools for disk images are missing."""
import argparse
import collections
import concurrent.futures
import json
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True  # the next one lies in the source tree
sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "policy_boots"))
import policy_boots  # noqa: E402

BOOTS_OF_A_SERVER = 20
GLOBAL = "8be4df61-93ca-11d2-aa0d-00e098032b8c"
LEGACY_ORDER = "LegacyDevOrder-a56074db-65fe-45f7-bd21-2d2bdd8e9652"
SHELL = bytes.fromhex("5cb9235026db9b42a648bd47664c8012")
MASK = bytes.fromhex("e775e299a075374ba2e6c5385e6c00cb")
HAVE_POLICY = "HavePBO-9dae27e6-9cc9-4972-bcdb-824573a2c2f6"
GROUPS = {1: "FDD", 2: "IHD", 3: "CDD", 5: "USB", 6: "NIC", 0x80: "BEV"}
UNDER_POLICY = bytes.fromhex("5F424F5F16005F1300000000080301060810FF")
POLICIES = ("local_cdd", "local_hdd_any", "onboard_hdd_any", "lan_any", "uefi_shell", "usb", "local_storage_any")
# What the summary may say of an installer's option, by what the server is: the management mode, the group order, UEFI off.
REASONS = {"the management mode and the UEFI setting do not allow it", "no order names it",
           "strict group order: the BMC does not name its group", "a UEFI option, and UEFI boot mode is off",
           "the same as an option before it"}
CODES = ("FDD", "IHD", "CDD", "USB", "NIC", "BEV", "EFI")
ACTIVE = 1

DEVICES = {
    "system": '[[root_bridge.function.sata]]\nport = 0\nimage = "{disks}/system.img"\nserial = "SYS0001"\n',
    "data": '[[root_bridge.function.sata]]\nport = 1\nimage = "{disks}/data.img"\nserial = "DATA0002"\n',
    "dvd": '[[root_bridge.function.sata]]\nport = 4\ndrive = "cdrom"\nimage = "{disks}/dvd.iso"\nserial = "DVD0003"\n',
    "stick": '[[root_bridge.function]]\nkind = "ehci"\ndevice = 0x1D\n[[root_bridge.function.usb]]\nport = 1\n'
             'image = "{disks}/stick.img"\nserial = "STICK0004"\n',
    "port": '[[root_bridge.function]]\nkind = "network"\ndevice = 0x19\nmac = "02:00:00:00:00:01"\n',
    "raid": '[[csm.entry]]\nindex = 40\nbus = 2\nclass = 1\nsubclass = 4\ntype = 2\ndescription = "RAID LUN 0"\n',
    "floppy": '[[csm.entry]]\nindex = 45\nbus = 2\nclass = 1\nsubclass = 2\ntype = 1\ndescription = "Floppy"\n',
}
SATA = ("system", "data", "dvd")


class Option:
    """A Boot#### variable taken apart."""

    def __init__(self, data):
        self.attributes, length = struct.unpack_from("<IH", data)
        end = 6
        while data[end:end + 2] != b"\0\0":
            end += 2
        self.name = data[6:end].decode("utf-16-le")
        self.path, self.data = data[end + 2:end + 2 + length], data[end + 2 + length:]

    def masked(self):
        return self.path[4:20] == MASK

    def group(self):
        path = self.path[24:] if self.masked() else self.path
        if path[0] == 5:
            return GROUPS.get(struct.unpack_from("<H", path, 4)[0], "?")
        return "shell" if path[4:20] == SHELL else "EFI"


def options_of(files):
    return {int(name[4:8], 16): Option(data) for name, data in files.items()
            if re.fullmatch(f"Boot[0-9A-F]{{4}}-{GLOBAL}", name)}


class State:
    """What a boot left."""

    def __init__(self, folder):
        self.files = {file.name: file.read_bytes()[4:] for file in (folder / "nvram").iterdir()}
        order = self.files.get("BootOrder-" + GLOBAL, b"")
        self.order = [number for (number,) in struct.iter_unpack("<H", order)]
        self.options = options_of(self.files)

    def legacy(self):
        """The entries of LegacyDevOrder by group."""
        data, groups = self.files.get(LEGACY_ORDER, b""), {}
        while data:
            kind, length = struct.unpack_from("<IH", data)
            entries = [entry & 0xFF for (entry,) in struct.iter_unpack("<H", data[6:4 + length])]
            groups.setdefault(GROUPS.get(kind, "?"), []).extend(entries)
            data = data[4 + length:]
        return groups

    def order_of_groups(self):
        seen = []
        for number in self.order:
            option = self.options.get(number)
            group = option.group() if option else "missing"
            if group not in seen:
                seen.append(group)
        return seen


def describe(rng, disks, present, modes):
    strict, uefi, managed = modes
    csm = "[csm]\nentries_from_devices = true\n" + "".join(DEVICES[name] for name in present if name in ("raid", "floppy"))
    ahci = "[[root_bridge.function]]\nkind = \"ahci\"\ndevice = 0x1F\nnumber = 2\n"
    return (f"name = \"orders\"\n[setup]\nuefi_mode = {uefi}\nstrict_group_order = {0 if strict else 1}\n"
            + ("[management]\nmanaged = true\n" if managed else "") + csm + "[[root_bridge]]\nuid = 0\n" + ahci
            + "".join(DEVICES[name] for name in SATA if name in present)
            + "".join(DEVICES[name] for name in ("stick", "port") if name in present)).replace("{disks}", str(disks))


class Server:
    def __init__(self, source, bds_sim, folder, seed, image):
        self.rng = random.Random(seed)
        self.bds_sim, self.folder, self.state = bds_sim, folder, folder / "state"
        self.seen = collections.Counter()  # what the boots were like
        self.policies = source / "examples" / "policies"
        self.image = image
        self.disks = source / "build" / "run" / "disks"
        self.modes = (self.rng.random() < .5, int(self.rng.random() < .7), self.rng.random() < .3)
        self.present = sorted(name for name in DEVICES if name == "system" or self.rng.random() < .7)
        self.installed, self.story, self.quiet, self.before, self.under_policy = [], [], 0, None, False
        folder.mkdir()

    def run(self, *words):
        return subprocess.run([self.bds_sim, *map(str, words)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=120)

    def change_order(self):
        groups = self.rng.sample(CODES, self.rng.randrange(1, len(CODES) + 1))
        run = self.run("bmc", self.state, "order", ",".join(groups))
        assert run.returncode == 0, run.stderr
        return groups

    def event(self):
        """Something between two boots; the groups that the BMC's user asked for, if it was that."""
        kind = self.rng.choice(("nothing", "nothing", "nothing", "nothing", "order", "order", "device", "install",
                                "policy", "once", "remove"))
        groups = None
        if kind == "order":
            groups = self.change_order()
        elif kind == "device":
            name = self.rng.choice([name for name in DEVICES if name != "system"])
            self.present = sorted(set(self.present) ^ {name})
        elif kind == "install":
            path = f"\\EFI\\system{len(self.story)}\\loader.efi"
            run = self.run("vars", self.state, "add", f"System {len(self.story)}", path)
            assert run.returncode == 0, run.stderr
            self.installed.append(f"System {len(self.story)}")
        elif kind in ("policy", "once"):
            run = self.run("bmc", self.state, "policy", "set", self.policies / (self.rng.choice(POLICIES) + ".xml"),
                           *(("--once",) if kind == "once" else ()))
            assert run.returncode == 0, run.stderr
        elif kind == "remove":
            self.run("bmc", self.state, "policy", "remove")
        self.quiet = self.quiet + 1 if kind == "nothing" else 0
        self.story.append(f"{kind} {','.join(groups) if groups else ''}")
        return groups

    def boot(self, first):
        groups = None if first else self.event()
        once = self.has("OneTimeConfigPolicy.xml")
        (self.folder / "server.toml").write_text(describe(self.rng, self.disks, self.present, self.modes))
        run = self.run("boot", self.folder / "server.toml", "--state", self.state, "--quiet", "--json",
                       self.folder / "result.json", "--log", self.folder / "log.txt", *self.image)
        if run.returncode not in (0, 3):
            return [f"exit status {run.returncode}: {run.stderr.strip()}"]
        state, order_was_policys = State(self.state), self.under_policy
        # A changed table sets a policy aside, and one for one boot is withdrawn behind its report.
        self.under_policy = state.files[HAVE_POLICY] == b"\1" and not groups and not once
        faults = [*self.complaints(), *self.order_faults(state), *self.table_faults(state), *self.lost_options(state)]
        if once:
            faults += self.once_faults(used=not groups)
        if groups:
            if self.has("ConfigPolicy.xml"):
                faults.append("the policy is not stale")
            # A table without names says "EFI" for the shell.
            faults += self.change_faults(state, [each for each in groups if each != "EFI" or not order_was_policys])
        if self.quiet > (3 if self.modes[0] else 1):
            faults += [f"changed on a quiet boot: {name}" for name in sorted(set(state.files) | set(self.before))
                       if state.files.get(name) != self.before.get(name)]
        self.quiet = 0 if once else self.quiet
        self.before = state.files
        self.seen.update(boots=1, policy=self.under_policy, once=once and not groups, order=bool(groups))
        return faults

    def has(self, name):
        return (self.state / "bmc" / "files" / name).exists()

    def once_faults(self, used):
        """It is used, reported and called stale, or it waits for the next boot. A managed server's report does not say."""
        report = (self.state / "bmc" / "files" / "ActualOrder.xml").read_text(errors="replace")
        found = ("IXMOOneTimeBoot" in report if not self.modes[2] else used, self.has("OneTimeConfigPolicy.xml"))
        return [] if found == (used, not used) else [f"a policy for one boot: reported and there: {found}"]

    def lost_options(self, state):
        """Options that are gone and that nobody tells, or for a reason that is none for what an installer made."""
        starts = json.loads((self.folder / "result.json").read_text())["boots"][0]["starts"]
        told = {each["name"]: each["reason"] for start in starts for each in start["deleted_options"]}
        kept = {option.name for option in state.options.values()}
        lost = {option.name for option in options_of(self.before or {}).values()} - kept
        faults = [f"gone untold: {name}" for name in lost if name not in told]
        self.seen.update(deleted=len(lost))
        for name in lost.intersection(self.installed):
            if told.get(name) not in REASONS or (not self.modes[0] and not self.modes[2]):
                faults.append(f"lost: {name}: {told.get(name)}")
        return faults

    def complaints(self):
        starts = json.loads((self.folder / "result.json").read_text())["boots"][0]["starts"]
        return [str(each) for start in starts for each in (*start["complaints"], *start["pool"]["leaks"])]

    @staticmethod
    def order_faults(state):
        faults = [f"Boot{number:04X} is twice in the order" for number in state.order if state.order.count(number) > 1]
        faults += [f"Boot{number:04X} is in no order" for number in state.options if number not in state.order]
        faults += [f"Boot{number:04X} is not there" for number in state.order if number not in state.options]
        seen = {}
        for number, option in state.options.items():
            twin = seen.setdefault((option.path, option.data), number)
            if twin != number:
                faults.append(f"Boot{number:04X} is Boot{twin:04X}: {option.name}")
        return faults

    def table_faults(self, state):
        if self.under_policy:
            held = re.search(r'boot_order_table = "(.*)"', (self.state / "bmc" / "parameters.toml").read_text())[1]
            return [] if bytes.fromhex(held).startswith(UNDER_POLICY) else [f"table under a policy: {held}"]
        table = json.loads(self.run("bmc", self.state, "order", "--json", "-").stdout)
        if table["order"] is None:
            return ["the BMC has no table"]
        faults = [] if table["sum_is_good"] and not table["damage"] and not table["changed"] else [f"table: {table}"]
        groups = {group["group"]: group["items"] for group in table["groups"]}
        listed = [item["option"] for item in groups.pop("EFI", [])]
        booted = [number for number in state.order if state.options[number].group() in ("EFI", "shell")
                  and not state.options[number].masked() and state.options[number].attributes & ACTIVE]
        if listed != booted:
            faults.append(f"UEFI options in the table {listed}, in the order {booted}")
        legacy = {group: entries for group, entries in state.legacy().items() if group in CODES}
        if {group: [item["bbs_index"] for item in items] for group, items in groups.items()} != legacy:
            faults.append(f"legacy groups in the table {groups}, in LegacyDevOrder {legacy}")
        if sorted(table["order"]) != sorted([*groups, *(["EFI"] if listed else [])]):
            faults.append(f"order {table['order']}, groups {sorted(groups)}")
        return faults

    def change_faults(self, state, groups):
        """The groups asked for come first, in that order, as far as there are options of them."""
        wanted = ["EFI" if group == "shell" else group for group in state.order_of_groups()]
        seen = list(dict.fromkeys(wanted))
        asked = [group for group in groups if group in seen]
        strict = self.modes[0]
        if [group for group in seen if group in asked] != asked:
            return [f"asked for {groups}, in force {state.order_of_groups()}"]
        # A group that the default order has not takes the place of another one, which then is not removed.
        if "USB" in groups or "BEV" in groups:
            return []
        left = [group for group in seen if group not in groups and group not in ("EFI", "BEV")]
        return [f"asked for {groups}, kept {left}"] if strict and left else []


def run_server(source, bds_sim, folder, seed, boots, image):
    server = Server(source, bds_sim, folder, seed, image)
    for number in range(boots):
        faults = server.boot(number == 0)
        if faults:
            modes = "strict {0}, UEFI {1}, managed {2}".format(*server.modes)
            return server.seen, [f"seed {seed}, {modes}: {'; '.join(server.story)}: {fault}" for fault in faults]
    shutil.rmtree(folder)
    return server.seen, []


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("source", type=Path)
    parser.add_argument("bds_sim", type=Path)
    parser.add_argument("--boots", type=int, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--image", type=Path, help="boot this bds.efi")
    arguments = parser.parse_args()
    if any(shutil.which(tool) is None for tool in policy_boots.TOOLS):
        return 77
    source, bds_sim = arguments.source.resolve(), arguments.bds_sim.resolve()
    policy_boots.make_disks(source)
    image = ("--image", arguments.image) if arguments.image else ()
    servers = -(-arguments.boots // BOOTS_OF_A_SERVER)
    with tempfile.TemporaryDirectory() as temporary, concurrent.futures.ThreadPoolExecutor(2) as pool:
        def one(number):
            return run_server(source, bds_sim, Path(temporary) / str(number), arguments.seed + number,
                              min(BOOTS_OF_A_SERVER, arguments.boots - number * BOOTS_OF_A_SERVER), image)
        results = list(pool.map(one, range(servers)))
    faults = [fault for _, found in results for fault in found]
    for each in faults:
        print(each)
    seen = sum((counts for counts, _ in results), collections.Counter())
    print("{boots} boots ({policy} under a policy, {once} under one for one boot, {order} with a changed order), {deleted} "
          "options deleted, ".format(**{**dict.fromkeys(("policy", "once", "order", "deleted"), 0), **seen})
          + f"on {servers} servers: {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
