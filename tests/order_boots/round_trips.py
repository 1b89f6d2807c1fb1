#!/usr/bin/env python3
"""Round trips between a server and its BMC over whole boots, with the built-in BMC and with ipmi_sim, whose user speaks
ipmitool (examples/ipmi_sim/order.py); by the linked driver and by bds.efi:

- the table that a boot sends is the one that the next boot reads, and a server that nobody changes writes nothing else;
- an order changed at the BMC is in force at the next boot, in loose and in strict group order, and once only: what the
  server's own user orders afterwards stays;
- a policy comes, is reported, and goes stale with a changed order; one for one boot is used and reported once, also
  when the BMC cannot be told of it.

    round_trips.py SOURCE_DIR BDS_SIM MODULE [BDS_EFI]     MODULE is ipmi_sim's

Exit status: 0 all is well, 1 something is not, 77 tools for disk images are missing. Without ipmi_sim, ipmitool or
MODULE the built-in BMC is the only one."""
import concurrent.futures
import contextlib
import itertools
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import xml.etree.ElementTree
from pathlib import Path

sys.dont_write_bytecode = True  # the next ones lie in the source tree
sys.path[:0] = [str(Path(__file__).resolve().parent), str(Path(__file__).resolve().parents[1] / "bmc_operator")]
import operator_afternoon  # noqa: E402
from random_orders import State, policy_boots  # noqa: E402

GLOBAL = "8be4df61-93ca-11d2-aa0d-00e098032b8c"
POLICY_GUID = "9dae27e6-9cc9-4972-bcdb-824573a2c2f6"
UNDER_POLICY = bytes.fromhex("5F424F5F16005F1300000000080301060810FF")
ASKED = ("NIC", "CDD", "EFI", "BEV")  # of the first the server has no device
wrong, tried = [], 0


class BuiltIn:
    """The BMC within bds-sim, whose user is a command."""

    name = "built-in BMC"

    def __init__(self, bds_sim, state):
        self.bds_sim, self.state = bds_sim, state

    def order(self, groups):
        subprocess.run([self.bds_sim, "bmc", self.state, "order", ",".join(groups)], check=True, stdout=subprocess.DEVNULL)

    def table(self):
        text = (self.state / "bmc" / "parameters.toml").read_text()
        data = bytes.fromhex(re.search(r'boot_order_table = "(.*)"', text)[1])
        return data[:int.from_bytes(data[7:9], "little")]


class Simulator:
    """ipmi_sim, over LAN."""

    name = "ipmi_sim"

    def __init__(self, source, bmc):
        self.script, self.bmc = source / "examples" / "ipmi_sim" / "order.py", bmc
        sys.path.insert(0, str(self.script.parent))
        import order  # the example's own reading of the table
        self.reader = order

    def order(self, groups):
        subprocess.run([self.script, str(self.bmc.port), *groups], check=True, stdout=subprocess.DEVNULL)

    def table(self):
        return self.reader.read_table(self.bmc.port) or b""


class Trip:
    """A server on its way through some boots."""

    def __init__(self, title, bds_sim, image, bmc, work, description):
        self.title, self.bds_sim, self.image, self.bmc = title, bds_sim, image, bmc
        self.toml, self.log, self.folder = work / "server.toml", work / "log.txt", work / "state"
        self.toml.write_text(description)
        self.faults = ()

    def check(self, what, found, expected=True):
        global tried
        tried += 1
        if found != expected:
            wrong.append(f"{self.title}: {what}: {found!r}, expected {expected!r}")

    def boot(self):
        words = [word for fault in self.faults for word in ("--fault", fault)] + (["--image", self.image] if self.image else [])
        run = subprocess.run([self.bds_sim, "boot", self.toml, "--state", self.folder, "--quiet", "--log", self.log, *words],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        self.check("exit status", (run.returncode, run.stderr), (0, ""))
        self.faults = ()
        return State(self.folder)

    def policy(self, *words):
        subprocess.run([self.bds_sim, "bmc", self.folder, "policy", *words], check=True, stdout=subprocess.DEVNULL)

    def variable(self, name):
        return State(self.folder).files.get(f"{name}-{POLICY_GUID}", b"")

    def has(self, name):
        return (self.folder / "bmc" / "files" / name).exists()

    def report(self):
        path = self.folder / "bmc" / "files" / "ActualOrder.xml"
        subprocess.run(["xmllint", "--noout", path], check=True)
        root = xml.etree.ElementTree.parse(path).getroot()
        header = {leaf.tag: leaf.get("value") for leaf in root.find("ActualBootOrderHeader")}
        return header["LastUpdate"], [target.get("value") for target in root.find("ActualBootTargets")]


def groups_of(state):
    """The groups in force, the shell among the UEFI options; those under the mask are of devices that are not there."""
    seen = []
    for number in state.order:
        option = state.options[number]
        group = "EFI" if option.group() == "shell" else option.group()
        if group not in seen and not option.masked():
            seen.append(group)
    return seen


def table_goes_round(trip, _source):
    for _ in range(3):
        before = trip.boot()
    sent = trip.bmc.table()
    trip.check("length", len(sent) > 300)
    trip.check("copy", trip.variable("VeyraBootOrderTable")[:len(sent)], sent)
    after = trip.boot()
    trip.check("read", f"BOT Table Length :{len(sent):x}\n" in trip.log.read_text(errors="replace"))
    trip.check("sent again", trip.bmc.table(), sent)
    trip.check("NVRAM changed", [name for name in after.files if after.files[name] != before.files.get(name)], [])


def order_changes_once(trip, _source):
    trip.boot()
    trip.bmc.order(ASKED)
    trip.check("marked", trip.bmc.table()[10], 2)
    asked = trip.bmc.table()
    groups = groups_of(trip.boot())
    present = [group for group in ASKED if group in groups]
    trip.check("in force", groups[:len(present)], present)
    trip.check("more than one group", len(present) > 2)
    trip.check("kept", trip.variable("SMBootOrder")[:len(asked)], asked)
    trip.check("mark", trip.bmc.table()[10], 0)
    # From now on it is the server's user who orders.
    state = State(trip.folder)
    last = [number for number in state.order if state.options[number].group() == present[-1]]
    order = last + [number for number in state.order if number not in last]
    subprocess.run([trip.bds_sim, "vars", trip.folder, "order", *(f"{number:04X}" for number in order)], check=True,
                   stdout=subprocess.DEVNULL)
    for _ in range(2):
        trip.check("once only", groups_of(trip.boot())[0], present[-1])


def policy_goes_stale(trip, source):
    trip.boot()
    trip.policy("set", source / "examples" / "policies" / "local_hdd_any.xml")
    for _ in range(2):
        trip.boot()
        trip.check("report", trip.report()[0], "IXMO")
        trip.check("target", "LocalHDDAny" in trip.report()[1])
        trip.check("table", trip.bmc.table(), UNDER_POLICY)
        trip.check("HavePBO", trip.variable("HavePBO"), b"\1")
    if trip.bmc.name == "ipmi_sim":
        return  # its user sees no order to change while the policy is in force
    trip.bmc.order(("EFI", "IHD"))
    state = trip.boot()
    trip.check("in force", groups_of(state)[:2], ["EFI", "IHD"])
    trip.check("stale", [trip.has(name) for name in ("ConfigPolicy.xml", "ConfigPolicy_stale.xml")], [False, True])
    trip.check("cached", trip.variable("FlexBootOrder"), b"")
    trip.boot()
    trip.check("report", trip.report()[0], "BIOS")
    trip.check("HavePBO", trip.variable("HavePBO"), b"\0")
    trip.check("table", len(trip.bmc.table()) > 300)


def policy_for_one_boot(trip, source, *faults):
    trip.boot()
    trip.policy("set", source / "examples" / "policies" / "local_cdd.xml", "--once")
    trip.faults = faults
    trip.boot()
    trip.check("report", trip.report()[0], "IXMOOneTimeBoot")
    trip.check("file", [trip.has(f"OneTimeConfigPolicy{end}.xml") for end in ("", "_stale")], [bool(faults), not faults])
    trip.check("note", len(trip.variable("OneTimePolicyUsed")), 8 if faults else 0)
    for _ in range(2):
        trip.boot()
        trip.check("report behind it", trip.report()[0], "BIOS")
        trip.check("file behind it", [trip.has(f"OneTimeConfigPolicy{end}.xml") for end in ("", "_stale")], [False, True])
        trip.check("note behind it", trip.variable("OneTimePolicyUsed"), b"")
    trip.policy("set", source / "examples" / "policies" / "local_cdd.xml", "--once")
    trip.boot()
    trip.check("asked for again", trip.report()[0], "IXMOOneTimeBoot")


def rename_unheard(trip, source):
    """The answer to a renaming is lost: the policy still goes stale."""
    trip.boot()
    trip.policy("set", source / "examples" / "policies" / "local_hdd_any.xml")
    trip.boot()
    if trip.bmc.name == "ipmi_sim":
        return
    trip.bmc.order(("EFI", "IHD"))
    trip.faults = ("no-answer@30",)
    trip.boot()
    trip.check("met", "Error making ConfigPolicy.xml stale" in trip.log.read_text(errors="replace"))
    trip.check("stale", [trip.has(name) for name in ("ConfigPolicy.xml", "ConfigPolicy_stale.xml")], [False, True])


def put(trip, name, guid, data):
    (trip.folder / "nvram" / f"{name}-{guid}").write_bytes(struct.pack("<I", 7) + data)


def load_option(name, file, data=b""):
    text = (file + "\0").encode("utf-16-le")
    path = struct.pack("<BBH", 4, 4, 4 + len(text)) + text + bytes.fromhex("7fff0400")
    return struct.pack("<IH", 1, len(path)) + (name + "\0").encode("utf-16-le") + path + data


# Name, loader, data, and whether it is kept with UEFI mode on and off.
OPTIONS = (
    ("System", "a.efi", b"", True, True), ("Its twin", "a.efi", b"", False, False), ("With data", "a.efi", b"x", True, True),
    ("With other data", "a.efi", b"y", True, True), ("With data again", "a.efi", b"x", False, False),
    ("UEFI: System", "b.efi", b"", True, False), ("UEFI", "c.efi", b"", True, True), ("uefi: System", "d.efi", b"", True, True),
    ("A UEFI: System", "e.efi", b"", True, True),
)
# Names of variables that no order names, and whether they are kept.
UNLISTED = ((f"Boot0210-{GLOBAL}", False), (f"boot021a-{GLOBAL}", False), (f"BOOT021B-{GLOBAL}", False),
            (f"Boot021-{GLOBAL}", True), (f"Boot021G-{GLOBAL}", True), (f"Boot02100-{GLOBAL}", True),
            (f"Boot0210-{POLICY_GUID}", True))


def options_by_rule(trip, _source):
    """Doubles, options of a mode that is off, and variables that no order names go; nothing else does."""
    state = trip.boot()
    numbers = range(0x100, 0x100 + len(OPTIONS))
    for number, (name, file, data, _, _) in zip(numbers, OPTIONS):
        put(trip, f"Boot{number:04X}", GLOBAL, load_option(name, file, data))
    put(trip, "BootOrder", GLOBAL, b"".join(struct.pack("<H", number) for number in (*numbers, *state.order)))
    for name, _ in UNLISTED:
        put(trip, *name.split("-", 1), load_option("unlisted", "z.efi"))
    state = trip.boot()
    uefi = "uefi_mode = 1" in trip.toml.read_text()
    names = [option.name for option in state.options.values()]
    trip.check("kept", [name for name, *_ in OPTIONS if name in names],
               [name for name, _, _, on, off in OPTIONS if (on if uefi else off)])
    trip.check("unlisted", [name for name, _ in UNLISTED if name in state.files], [name for name, kept in UNLISTED if kept])


STORIES = (
    ("the table", table_goes_round, False, ()),
    ("the table, strict", table_goes_round, True, ()),
    ("an order", order_changes_once, False, ()),
    ("an order, strict", order_changes_once, True, ()),
    ("options by rule", options_by_rule, False, ()),
    ("options by rule, UEFI mode off", options_by_rule, None, ()),
    ("a policy", policy_goes_stale, False, ()),
    ("a renaming without an answer", rename_unheard, False, ()),
    ("a policy for one boot", policy_for_one_boot, False, ()),
    ("a policy for one boot, untold", policy_for_one_boot, False, ("ipmi oem 1 c0 always",)),
)


@contextlib.contextmanager
def built_in(bds_sim, state, _source, _module, text):
    yield BuiltIn(bds_sim, state), re.sub(r"ipmi = .*", "", text)


@contextlib.contextmanager
def simulator(_bds_sim, state, source, module, text):
    with operator_afternoon.Bmc(source, module, state.parent) as bmc:
        yield Simulator(source, bmc), re.sub(r"vm://127\.0\.0\.1:\d+", f"vm://127.0.0.1:{bmc.port + 1}", text)


def play(source, bds_sim, image, module, make_bmc, text):
    for name, story, strict, more in STORIES:
        mode = {True: "uefi_mode = 1\nstrict_group_order = 0", False: "uefi_mode = 1", None: "uefi_mode = 0"}[strict]
        served = text.replace("uefi_mode = 1", mode)
        with tempfile.TemporaryDirectory() as folder:
            state = Path(folder) / "state"
            with make_bmc(bds_sim, state, source, module, served) as (bmc, description):
                title = f"{bmc.name}, {'bds.efi' if image else 'linked'}, {name}"
                try:
                    story(Trip(title, bds_sim, image, bmc, Path(folder), description), source, *more)
                except (OSError, subprocess.SubprocessError, LookupError, ValueError) as failure:
                    wrong.append(f"{title}: {failure!r}")


def main(source, bds_sim, module, image=None):
    source, bds_sim = Path(source).resolve(), Path(bds_sim).resolve()
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    if any(shutil.which(tool) is None for tool in policy_boots.TOOLS):
        return 77
    disks = policy_boots.make_disks(source)
    text = (source / "examples" / "ipmi_sim" / "server.toml").read_text().replace("../../build/run/disks", str(disks))
    bmcs = [built_in]
    if Path(module).exists() and all(shutil.which(tool) for tool in ("ipmi_sim", "ipmitool")):
        bmcs.append(simulator)
    else:
        print("ipmi_sim, ipmitool or the module is missing: the built-in BMC is the only one")
    trips = list(itertools.product([None, image] if image and Path(image).exists() else [None], bmcs))
    with concurrent.futures.ThreadPoolExecutor(len(trips)) as pool:
        list(pool.map(lambda trip: play(source, bds_sim, trip[0], module, trip[1], text), trips))
    for each in wrong:
        print(each)
    print(f"{tried} checks: {len(wrong)} wrong")
    return 1 if wrong or not tried else 0


if __name__ == "__main__":
    if not 4 <= len(sys.argv) <= 5:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
