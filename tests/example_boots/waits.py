"""What each step of a boot without faults may wait for: the table of docs/boot-time.md."""

SETTLE = 0.2  # seconds that the BMC's file store gets behind each close
# The database of addresses, 512 bytes and 40 for each of 24 interfaces, and a late NVM.
MAC_DATABASE = 0.0011 * (2 + (512 + 24 * 40 + 58) // 59) + 0.05


def expected_waits(start):
    """Seconds that each step may wait, the least and the most; all others wait for nothing. The least is what the table
    of docs/boot-time.md says, the most adds the exchanges themselves: 1.1 ms each, and as much per polled settling."""
    files = len(start["order"]) + 1  # the options and BootOrder
    traffic = 0.0011 * start["bmc"]["exchanges"] + 0.0001 * files
    requests = 0.0005 * start["bmc"]["ipmi_requests"]
    return {
        "WaitForUserInput": [(3, 3)],
        "MACAddressInfoInitialize": [(0, MAC_DATABASE)],
        "RestoreEfiBootVariablesFromBMC": [(0, 0.0011), (SETTLE * files, SETTLE * files + traffic)],
        "BootOrderTableEntryPoint": [(0, 0.0023 + requests)],
        "CheckZephan_EFIBootSupport": [(SETTLE, SETTLE + 0.0023)],
        # The report of the actual order, which one of the two writes.
        "VBootSetBootOptionTags": [(0, 0.0011 * start["bmc"]["exchanges"])],
        "BuildBootOrderTable": [(0, requests + 0.0011 * start["bmc"]["exchanges"])],
        "SetIpmiBootOptionPriorities": [(0, requests)],
        # The examination of the copy, or reading BootOrder back, is one more close.
        "SaveEfiBootVaiablesToBMC": [(0, 0.0001), (SETTLE * (files + 1), SETTLE * (files + 1) + traffic)],
    }


def wait_faults(start, restores):
    """`restores`: the start before this one saved the first copy and reset."""
    expected = expected_waits(start)
    waits = {step["name"]: step["duration"] for step in start["time"]["steps"]}
    for name, waited in waits.items():
        ranges = expected.get(name, [(0, 0.0001)])
        if name == "RestoreEfiBootVariablesFromBMC" and restores:
            ranges = ranges[1:]
        if not any(least - 1e-6 <= waited <= most + 1e-6 for least, most in ranges):
            yield f"{name} waited {waited} s, expected {ranges}"
    for name in expected.keys() - waits.keys():
        yield f"{name} did not run"
