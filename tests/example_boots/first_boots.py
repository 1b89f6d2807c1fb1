#!/usr/bin/env python3
"""Every example starts something on its first boot or says in its first line that it does not, and the README's first
boot prints what the README shows. usage: first_boots.py SOURCE_DIR BDS_SIM
Exit status: 0 right, 1 wrong, 77 the tools that make disk images are missing."""
import fcntl
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

TOOLS = ("mmd", "mcopy", "mkfs.vfat", "sgdisk", "sfdisk", "xorriso")


def shown_in(readme):
    """The lines of the section's indented blocks."""
    section = readme.split("## A first boot")[1].split("\n## ")[0]
    return [line[4:] for line in section.split("\n") if line.startswith("    ") and not line.startswith("    ./")]


def pattern(line):
    return re.compile(re.escape(line.rstrip()).replace(re.escape("..."), ".*") + r"\s*$")


def wrong_in_readme(readme, printed):
    """The first line of the README that the output does not have, in its order; "..." stands for anything."""
    lines = iter(printed.split("\n"))
    for line in shown_in(readme):
        if line.strip() not in ("", "...") and not any(pattern(line).match(each) for each in lines):
            return line
    return None


def main(source, sim):
    if any(shutil.which(tool) is None for tool in TOOLS):
        print("skipped: a tool that makes disk images is missing")
        return 77
    disks, wrong = source / "build/run/disks", 0
    disks.mkdir(parents=True, exist_ok=True)
    with open(disks / ".lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        subprocess.run([source / "tools/make_disk_images.sh", disks], check=True)
    for example in sorted((source / "examples").glob("*.toml")):
        ended = subprocess.run([sim, "boot", example], stdin=subprocess.DEVNULL, capture_output=True, text=True)
        says_so = "nothing" in example.read_text().split("\n")[0]
        if ended.returncode != (3 if says_so else 0):
            print(f"{example.name}: exit status {ended.returncode}\n{ended.stdout}{ended.stderr}")
            wrong += 1
    with tempfile.TemporaryDirectory() as state:
        loaders = ["0000", "debian", r"\EFI\debian\grubx64.efi",
                   "0001", "Linux Boot Manager", r"\EFI\systemd\systemd-bootx64.efi"]
        subprocess.run([source / "tools/installer_nvram.py", f"{state}/nvram", disks / "system.img", *loaders],
                       check=True, stdout=subprocess.DEVNULL)
        printed = subprocess.run([sim, "boot", source / "examples/rack_server.toml", "--state", state], check=True,
                                 stdin=subprocess.DEVNULL, capture_output=True, text=True).stdout
    line = wrong_in_readme((source / "README.md").read_text(), printed)
    if line is not None:
        print(f"README.md: the first boot does not print, there or at all: {line}\n{printed}")
        wrong += 1
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]).resolve(), sys.argv[2]) if len(sys.argv) == 3 else __doc__)
