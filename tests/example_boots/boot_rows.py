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
NO_FILES = (("[nvram]", "[bmc]\nfiles = false\n[nvram]"),)
NETWORK_LOADER = (("number = 0\nmac", 'number = 0\nboot_file = "{work}/volume/EFI/BOOT/BOOTX64.EFI"\nmac'),)


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


def as_it_stands(name, starts, counts=None, **more):
    """An example, settled, booted twice more."""
    return Row(name, name, (Boot(starts, counts=counts or {}),) * 2, waits=True, **more)


# Golden boots compare what boots do; these are the examples themselves, and what only another run shows.
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
    as_it_stands("policy_storage", DISK, copies=True),
    as_it_stands("policy_network", SHELL, copies=True),
    as_it_stands("policy_removable", DISK, copies=True),
    as_it_stands("network_adapters", SHELL, copies=True,
                 written=("MacDB", "LOMInterface0", "LOMInterface1", "LOMInterface2", "LOMInterface3")),
    # Requests of the BMC for one boot: the next one follows the old order.
    legacy_request("pxe", "pxe", "SIM 10G port 0", DISK, gone=("IpmiBootFlags", "BootOrderBeforeIpmiBoot")),
    legacy_request("pxe_persistent", "pxe --persistent", "SIM 10G port 0", "SIM 10G port 0", order=False,
                   kept=("IpmiBootFlags", "BootOrderBeforeIpmiBoot", "IpmiMatchBootOptionData")),
    efi_request("pxe", "pxe", "UEFI: IP4", SHELL,
                gone=("IpmiBootFlags", "BootOrderBeforeIpmiBoot", "IpmiMatchBootOptionData")),
    efi_request("disk", "disk", "debian", SHELL),
    efi_request("second_disk", "disk --instance 1", "USB(0x1,0x0)/HD(", SHELL),
    efi_request("disk_persistent", "disk --persistent", "debian", "debian", order=False, kept=("IpmiBootFlags",)),
    # Copies of the boot variables on the BMC.
    Row("copies_bring_nvram_back", "standalone_uefi", (Boot(SHELL),), before=("lose-nvram",), copies=True,
        kept=("BootOptionRestored", "Boot0000")),
    # Drivers that NVRAM names. One asks for a reconnect; one is not there and one is switched off, which stops nobody.
    driver_options("reconnects", "driver 0000 3 test.efi words", "driver 0001 1 missing.efi -",
                   "driver 0002 0 inactive.efi -", "driver-order 0100020042420000", stops=ANY,
                   shown=('test-driver: started with "words"', "test-driver: serves a function",
                          "missing.efi EFI_NOT_FOUND", "test.efi EFI_SUCCESS"),
                   hidden=("inactive.efi", "leaves a function")),
    driver_options("stays_foreign", "driver 0000 3 test.efi words", "driver-order 0000", arguments=(),
                   shown=("test.efi EFI_ACCESS_DENIED",), hidden=("test-driver",)),
    # What is started fails.
    Row("loaders_that_return", "standalone_uefi", (Boot(None),),
        edits=(("[nvram]", "[bmc]\nfiles = false\n[firmware]\nshell_present = false\n[nvram]"),),
        arguments=("--loader-status", "EFI_ABORTED")),
    # When nothing of the order starts, an option that is switched off is tried too.
    Row("legacy_boots_that_fail", "standalone_legacy", (Boot("debian"),),
        arguments=("--legacy-status", "EFI_DEVICE_ERROR")),
)
