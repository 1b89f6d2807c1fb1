"""The whole boots that both_ways.py runs: a server of examples/, what is changed about it, and what must come of it."""

from dataclasses import dataclass, field


ANY = "any"


@dataclass(frozen=True)
class Boot:
    """What one boot, its resets included, must come to."""

    starts: str | None  # part of the name or path of what starts; None: nothing starts
    warm: int = 0
    cold: int = 0
    counts: dict = field(default_factory=dict)  # summed over its starts; ANY: more than none


@dataclass(frozen=True)
class Row:
    name: str
    example: str
    boots: tuple
    edits: tuple = ()  # (text, other text) of the description; the text must be there
    more: str = ""  # tables behind those of the description
    # The server is first booted from an installer's NVRAM until it saves nothing new. False: that is what is compared.
    settled: bool = True
    before: tuple = ()  # what is then done to its state, in the words of both_ways.Bench.change
    arguments: tuple = ()  # of bds-sim boot
    order: bool = True  # the order in force is the same at the end as before
    said: tuple = ()  # of the driver's messages
    shown: tuple = ()  # on the console, then among what was loaded, in this order
    hidden: tuple = ()  # neither there nor there
    driver: bool = False  # \drivers\test.efi and \drivers\inactive.efi of the volume are tools/loader's driver
    kept: tuple = ()  # variables that are there at the end, by name
    gone: tuple = ()  # and that are not
    copies: bool = False  # the BMC has the order and each option in it, byte for byte
    written: tuple = ()  # variables written, volatile ones too
    waits: bool = False  # no step waits but as docs/boot-time.md says


# Added drives for the UEFI-only server, none of them first in its order.
UEFI_DEVICES = """
[[root_bridge.function]]
kind = "ahci"
device = 0x1F
number = 2
[[root_bridge.function.sata]]
port = 4
drive = "cdrom"
image = "{disks}/dvd.iso"
[[root_bridge.function]]
kind = "ehci"
device = 0x1D
[[root_bridge.function.usb]]
port = 1
image = "{disks}/stick.img"
[[root_bridge.function.usb]]
port = 2
folder = "{work}/volume"
"""
HEALTH = "[[driver_health]]\ndevice = 0x04\nstatuses = "
FLOPPY = '[[csm.entry]]\nindex = 50\nclass = 1\nsubclass = 2\ntype = 1\ndescription = "Old floppy"\n'
NO_FILES = (("[nvram]", "[bmc]\nfiles = false\n[nvram]"),)
NETWORK_LOADER = (("number = 0\nmac", 'number = 0\nboot_file = "{work}/volume/EFI/BOOT/BOOTX64.EFI"\nmac'),)


def grown(memory_type, firmware=""):
    """A boot needs more memory of this type than the last one set aside."""
    types = f"[{{ type = 0, pages = 100, used = 10 }}, {{ type = {memory_type}, pages = 40, used = 40 }}]"
    return (("[csm]", f"[firmware]\n{firmware}memory_type = {types}\n[csm]"),)


MEMORY = ("MemoryTypeInformation", "PreviousMemoryTypeInformation")

DISK, SHELL = "SIM SSD 480G", "Built-in EFI Shell"


def legacy_request(name, words, *starts, first=(), **more):
    return Row(f"legacy_{name}", "standalone_legacy", tuple(map(Boot, starts)), before=(*first, f"bootdev {words}"),
               **more)


def efi_request(name, words, *starts, **more):
    # The BMC's file store has no part in a request, and without it nothing is waited for.
    return Row(f"efi_{name}", "standalone_uefi", tuple(map(Boot, starts)), edits=NO_FILES + NETWORK_LOADER,
               more=UEFI_DEVICES, before=(f"bootdev {words} --efi",), **more)


def driver_options(name, *words, stops=0, arguments=("--execute",), **more):
    """`stops`: drivers let their controllers go."""
    function = '[[root_bridge.function]]\nkind = "other"\ndevice = 7\nvendor_id = 0x1BD5\n'
    return Row(f"driver_{name}", "standalone_uefi", (Boot(SHELL, counts={"driver.stop": stops}),),
               edits=NO_FILES, more=UEFI_DEVICES + function, before=words, driver=True, arguments=arguments,
               **more)


def broken_bmc(name, *words, **counts):
    """`counts`: that of "bmc.timeouts" and the like, dots left out."""
    faults = tuple(argument for each in words for argument in ("--fault", each))
    met = {f"bmc.{count}": number for count, number in counts.items()}
    return Row(f"bmc_{name}", "standalone_uefi", (Boot(SHELL, counts=met),), arguments=faults)


def as_it_stands(name, starts, counts=None, **more):
    """An example, settled, booted twice more."""
    return Row(name, name, (Boot(starts, counts=counts or {}),) * 2, waits=True, **more)


ROWS = (
    as_it_stands("rack_server", DISK, copies=True),
    as_it_stands("standalone_uefi", SHELL, copies=True),
    as_it_stands("standalone_legacy", DISK, gone=("BootOptionRestored",)),
    as_it_stands("managed_server", "debian", copies=True),
    as_it_stands("managed_legacy", DISK, gone=("BootOptionRestored",)),
    # One controller has failed, one is repaired, a form asks for one's configuration.
    as_it_stands("health_failed", "debian", {
        "health.repair": 1, "form_browser.send_form": 1, "health.set_options": 0, "csm.option_roms": 0}),
    as_it_stands("legacy_video", DISK, {"csm.option_roms": 2}),
    # Driver health.
    Row("health_not_asked_for", "health_failed", (Boot("debian", counts={
        "health.repair": 0, "form_browser.send_form": 0, "health.set_options": 1, "health.questions": 1}),),
        edits=(("driver_health = 1", "driver_health = 0"), ("[firmware]", "[bmc]\nfiles = false\n[firmware]"))),
    Row("health_repair_without_end", "standalone_legacy", (Boot(DISK, counts={"health.repair": 8}),),
        edits=(("uefi_mode = 0", "uefi_mode = 0\ndriver_health = 1"),),
        more=HEALTH.replace("0x04", "0x1D") + "[1]\n"),
    Row("health_reboot", "standalone_legacy", (Boot(None, warm=1),), settled=False, arguments=("--resets", "1"),
        edits=(("uefi_mode = 0", "uefi_mode = 0\ndriver_health = 1"),),
        more=HEALTH.replace("0x04", "0x1D") + "[5]\n"),
    # Memory set aside for the next boot: runtime data resets the server once, loader data does not, nor does a resume.
    Row("memory_runtime_data", "standalone_legacy", (Boot(DISK, cold=1), Boot(DISK)),
        edits=grown(6), settled=False, kept=MEMORY),
    Row("memory_loader_data", "standalone_legacy", (Boot(DISK),), edits=grown(2), settled=False, kept=MEMORY),
    Row("memory_on_resume", "standalone_legacy", (Boot(DISK),), edits=grown(6, "boot_mode = 5\n"), settled=False,
        gone=MEMORY),
    # Requests of the BMC for one boot: the next one follows the old order.
    legacy_request("pxe", "pxe", "SIM 10G port 0", DISK, gone=("IpmiBootFlags", "BootOrderBeforeIpmiBoot")),
    legacy_request("disk", "disk", DISK, "SIM 10G port 0", first=("first SIM 10G port 0",), order=False),
    legacy_request("disk_in_place_of_persistent_cdrom", "disk", DISK, DISK, gone=("IpmiBootFlags",),
                   first=("bootdev cdrom --persistent", "boot")),
    legacy_request("cdrom", "cdrom", "SIM DVD", DISK, gone=("IpmiBootFlags", "BootOrderBeforeIpmiBoot")),
    legacy_request("floppy", "floppy", "Old floppy", "SIM", more=FLOPPY),
    legacy_request("no_floppy", "floppy", DISK, gone=("BootOrderBeforeIpmiBoot",)),
    legacy_request("bios", "bios", DISK, written=("BootFlow",), gone=("BootOrderBeforeIpmiBoot", "BootFlow")),
    legacy_request("pxe_persistent", "pxe --persistent", "SIM 10G port 0", "SIM 10G port 0", order=False,
                   kept=("IpmiBootFlags", "BootOrderBeforeIpmiBoot", "IpmiMatchBootOptionData")),
    Row("legacy_request_withdrawn", "standalone_legacy", (Boot(DISK),),
        before=("bootdev pxe --persistent", "boot", "acknowledge 0x02"), gone=("IpmiBootFlags",)),
    efi_request("pxe", "pxe", "UEFI: IP4", SHELL,
                gone=("IpmiBootFlags", "BootOrderBeforeIpmiBoot", "IpmiMatchBootOptionData")),
    efi_request("disk", "disk", "debian", SHELL),
    efi_request("second_disk", "disk --instance 1", "USB(0x1,0x0)/HD(", SHELL),
    efi_request("disk_beyond_all", "disk --instance 9", "debian", SHELL),
    efi_request("cdrom", "cdrom", "CDROM(", SHELL),
    efi_request("floppy", "floppy", "USB(0x2,0x0)/", SHELL),
    efi_request("bios", "bios", SHELL, written=("BootFlow",)),
    efi_request("disk_persistent", "disk --persistent", "debian", "debian", order=False, kept=("IpmiBootFlags",)),
    # Under the central manager nothing is set aside, and nothing comes back.
    Row("managed_request", "managed_server", (Boot("UEFI: IP4"), Boot("UEFI: IP4")), order=False,
        before=("bootdev pxe --efi",),
        edits=(("[setup]", "[bmc]\nfiles = false\n[setup]"), *NETWORK_LOADER), gone=("BootOrderBeforeIpmiBoot",),
        said=("SaveCurrentBootorder: System in Zephan mode",)),
    Row("managed_configuring", "managed_server", (Boot(DISK),),
        edits=(("managed = true", "managed = true\nconfiguring = true"), ("[setup]", "[bmc]\nfiles = false\n[setup]")),
        said=("Server is in Zephan config mode, Keeping all the boot options alive",)),
    # Copies of the boot variables on the BMC.
    Row("copies_first_save", "standalone_uefi", (Boot(SHELL, warm=1),), settled=False, copies=True, waits=True,
        said=("Server is booting first time in UEFI Boot Mode",)),
    Row("copies_bring_nvram_back", "standalone_uefi", (Boot(SHELL),), before=("lose-nvram",), copies=True,
        kept=("BootOptionRestored", "Boot0000")),
    Row("copies_lost", "standalone_uefi", (Boot(SHELL, warm=1),), before=("lose-files",), copies=True),
    Row("copies_without_their_order", "standalone_uefi", (Boot(SHELL),), before=("remove BootOrder",),
        said=("INVALID CONDITION DETECTED",)),
    # Drivers that NVRAM names. One asks for a reconnect; one is not there and one is switched off, which stops nobody.
    driver_options("reconnects", "driver 0000 3 test.efi words", "driver 0001 1 missing.efi -",
                   "driver 0002 0 inactive.efi -", "driver-order 0100020042420000", stops=ANY,
                   shown=('test-driver: started with "words"', "test-driver: serves a function",
                          "missing.efi EFI_NOT_FOUND", "test.efi EFI_SUCCESS"),
                   hidden=("inactive.efi", "leaves a function")),
    driver_options("without_reconnect", "driver 0000 1 test.efi words", "driver-order 0000",
                   shown=('test-driver: started with "words"',), hidden=("serves a function",)),
    driver_options("stays_foreign", "driver 0000 3 test.efi words", "driver-order 0000", arguments=(),
                   shown=("test.efi EFI_ACCESS_DENIED",), hidden=("test-driver",)),
    driver_options("fails_to_load_and_asks_for_reconnect", "driver 0000 3 missing.efi -", "driver-order 0000",
                   hidden=("test-driver",)),
    driver_options("order_of_one_byte", "driver 0000 3 test.efi words", "driver-order 00", hidden=("test-driver",)),
    # A BMC that fails, and power that does.
    broken_bmc("dead", "no-answer:always", timeouts=ANY),
    broken_bmc("stuck", "h2b-stuck:always", timeouts=ANY),
    broken_bmc("locked", "lock-held:always", timeouts=0),
    broken_bmc("lying", "lying-length:200xalways"),
    broken_bmc("noisy", "bad-checksum:2@3", "wrong-echo:1@8", retries=2),
    Row("bmc_without_ipmi", "standalone_legacy", (Boot(DISK, counts={"ipmi.requests": 0}),), edits=(("[csm]", '[bmc]\nipmi = "none"\n[csm]'),)),
    Row("power_lost_while_saving", "standalone_legacy", (Boot(None), Boot(DISK)), settled=False,
        arguments=("--fault", "power nvram 6")),
    Row("power_lost_while_copying", "standalone_uefi", (Boot(None), Boot(SHELL)), arguments=("--fault", "power bmc 3"),
        copies=True),
    # What is started fails.
    Row("loaders_that_return", "standalone_uefi", (Boot(None),),
        edits=(("[nvram]", "[bmc]\nfiles = false\n[firmware]\nshell_present = false\n[nvram]"),),
        arguments=("--loader-status", "EFI_ABORTED")),
    # When nothing of the order starts, an option that is switched off is tried too.
    Row("legacy_boots_that_fail", "standalone_legacy", (Boot("debian"),),
        arguments=("--legacy-status", "EFI_DEVICE_ERROR")),
)
