#!/usr/bin/env python3
"""Changes one line of the driver at a time, builds, and sees whether a test notices.

usage: mutate.py [--sample N] [--seed S] [--jobs 1|2] [--limit SECONDS] [--golden-only] [PATH...]

    --sample N      so many mutants (60), drawn from all that there are; equal seeds draw equal mutants of equal sources
    --seed S        (7)
    --jobs J        workers, each with a copy of the tree of its own (1)
    --limit SECONDS that the tests of one mutant may take (120); a mutant that takes longer counts as killed
    --golden-only   survivors of the golden boots are not tried on unit tests
    PATH            only these files or directories of the driver

A mutant is one statement or line changed: a condition negated, or one half of it left out; a bound moved, a constant one
off; a call or a message left out; two neighbouring rows of a table swapped. What does not compile, and what compiles to
the same program, is no mutant: another one is drawn. The copies lie in build/mutants/ and are kept, so that the next run
builds little; the tree itself is not touched.

Tests run until the first one fails: the golden boots with the linked driver, the boots of policies, then whole boots and
the unit tests of the line's directory. Prints killed or survived for each, the survivors as diffs, and the rate. Exit
status 0, or 2 when nothing could be tried (the unchanged tree fails its tests)."""

import argparse
import difflib
import hashlib
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

SOURCE = Path(__file__).resolve().parent.parent
DRIVER = ("core", "bootopt", "bmc", "osopt", "flexboot", "vboot", "inventory", "platform", "support")
# Tables whose rows are found by their keys, no two alike: the order of their rows says nothing.
KEYED_TABLES = ("bootopt/names/pci_tables.cpp",)
# Unit tests by the directory of the mutated line; a name's beginning is enough.
UNIT_TESTS = {"support": ("support_code",), "platform": ("literals",)}
WHOLE_BOOTS = ("whole_boots",)
# The policies of the examples, on these servers, notice what is changed in these directories.
POLICY_BOOTS = ("storage", "network", "removable")
POLICY = ("flexboot", "vboot")


@dataclass(frozen=True)
class Mutant:
    kind: str
    file: str
    line: int  # from 0
    old: tuple  # lines
    new: tuple

    def text(self):
        return f"{self.file}:{self.line + 1} {self.kind}"

    def diff(self):
        return "\n".join(f"    {line}" for line in difflib.ndiff(self.old, self.new) if line[0] in "+-")


# Finding mutants. Each finder yields (kind, lines taken, new lines) for the line at a place.


def code_of(line):
    """The line with strings, characters and comments blanked out, so that places in it stay."""
    return re.sub(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])\'|//.*', lambda found: " " * len(found[0]), line)


def closing(code, opened):
    depth = 0
    for at in range(opened, len(code)):
        depth += (code[at] in "([{") - (code[at] in ")]}")
        if depth == 0:
            return at
    return None


def conditions(lines, number):
    """if (X) and while (X) on one line, and returned conditions."""
    line, code = lines[number], code_of(lines[number])
    for found in re.finditer(r"\b(?:if|while) \(", code):
        opened = found.end() - 1
        end = closing(code, opened)
        if end is not None:
            inside = line[opened + 1 : end]
            head, semicolon, condition = inside.rpartition("; ")
            yield "condition negated", 1, [f"{line[: opened + 1]}{head}{semicolon}!({condition}){line[end:]}"]
    found = re.match(r"(\s+return )(.*(?:&&|\|\||[=!]=| < | > ).*)(;.*)", line)
    if found and "DebugPrint" not in line:
        yield "condition negated", 1, [f"{found[1]}!({found[2]}){found[3]}"]


def halves(lines, number):
    """One side of && or || left out, as far as the line's brackets reach."""
    line, code = lines[number], code_of(lines[number])
    for found in re.finditer(r" (&&|\|\|) ", code):
        left, depth = found.start(), 0
        while left > 0:
            depth += (code[left - 1] in ")]}") - (code[left - 1] in "([{")
            if depth < 0 or (depth == 0 and re.search(r"(?:&& |\|\| |\? |return |= |; )$", code[:left])):
                break
            left -= 1
        right, depth = found.end(), 0
        while right < len(code):
            depth += (code[right] in "([{") - (code[right] in ")]}")
            if depth < 0 or (depth == 0 and re.match(r" && | \|\| | \? |;", code[right:])):
                break
            right += 1
        if line[left : found.start()].strip():
            yield "half of a condition left out", 1, [line[: found.start()] + line[right:]]
            yield "half of a condition left out", 1, [line[:left] + line[found.end() :]]


def bounds(lines, number):
    code = code_of(lines[number])
    for found in re.finditer(r" (<|>|<=|>=|==|!=) ", code):
        if "template" in code or "operator" in code:
            return
        other = {"<": "<=", ">": ">=", "<=": "<", ">=": ">", "==": "!=", "!=": "=="}[found[1]]
        yield "comparison changed", 1, [lines[number][: found.start()] + f" {other} " + lines[number][found.end() :]]


def constants(lines, number):
    code = code_of(lines[number])
    if "static_assert" in code or "template" in code:
        return
    for found in re.finditer(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+)(?![\w.])", code):
        value = int(found[1], 0) if not re.match(r"0\d", found[1]) else int(found[1])
        for off in (1, -1):
            if value + off >= 0:
                changed = f"{value + off:#x}" if found[1].startswith("0x") else str(value + off)
                yield "constant one off", 1, [lines[number][: found.start()] + changed + lines[number][found.end() :]]


def calls(lines, number):
    """A statement that is nothing but a call, over as many lines as it takes."""
    if not re.match(r"\s+(?:static_cast<void>\()?[A-Za-z_][\w:.]*(?:->\w+)*\(|\s+[\w.>\[\]-]+ = \w", lines[number]):
        return
    if re.match(r"\s+(return|if|while|for|switch|case|constexpr|const|static_assert)\b", lines[number]):
        return
    if number and not re.search(r"[;{}:]\s*$|^\s*$", code_of(lines[number - 1])):
        return  # the middle of a statement
    for count in range(1, 6):
        code = [code_of(line) for line in lines[number : number + count]]
        whole = "\n".join(code)
        if "{" in whole:
            return
        if whole.rstrip().endswith(";") and whole.count("(") == whole.count(")"):
            kind = "message left out" if "DebugPrint" in lines[number] else "call or assignment left out"
            yield kind, count, [re.match(r"\s*", lines[number])[0] + ";"]
            return


def rows(lines, number):
    row = re.compile(r"\s+(\{.*\}|[\w:\"\\. ]+|u?\"[^\"]*\"),?\s*(//.*)?$")
    if number + 1 >= len(lines):
        return
    one, two = lines[number], lines[number + 1]
    alike = re.match(r"\s*", one)[0] == re.match(r"\s*", two)[0]
    if alike and row.match(one) and row.match(two) and one.rstrip().endswith(",") and ("{" in one) == ("{" in two):
        if one.strip().rstrip(",") != two.strip().rstrip(","):
            yield "neighbouring rows swapped", 2, [two if two.rstrip().endswith(",") else two.rstrip() + ",",
                                                   one if two.rstrip().endswith(",") else one.rstrip().rstrip(",")]


FINDERS = (conditions, halves, bounds, constants, calls, rows)


def candidates(paths):
    """Mutants by kind, in the order of files and lines."""
    found = {}
    listed = subprocess.run(["git", "ls-files", *paths], cwd=SOURCE, text=True, capture_output=True, check=True)
    for file in sorted(listed.stdout.split()):
        if not file.endswith((".cpp", ".h")) or not (SOURCE / file).exists():
            continue
        lines = (SOURCE / file).read_text().splitlines()
        for number in range(len(lines)):
            if lines[number].lstrip().startswith(("//", "static_assert", "#", "using ")):
                continue
            for finder in FINDERS:
                if finder is rows and file in KEYED_TABLES:
                    continue
                for kind, count, new in finder(lines, number):
                    mutant = Mutant(kind, file, number, tuple(lines[number : number + count]), tuple(new))
                    found.setdefault(kind, []).append(mutant)
    return found


def drawn(paths, seed):
    """All mutants in the order in which they are tried: the kinds take turns."""
    chance = random.Random(seed)
    kinds = candidates(paths)
    for kind in sorted(kinds):
        chance.shuffle(kinds[kind])
    while any(kinds.values()):
        for kind in sorted(kinds):
            if kinds[kind]:
                yield kinds[kind].pop()


class Copy:
    """A copy of the tree, its builds, and the tests of one mutant at a time."""

    def __init__(self, number, limit, golden_only):
        self.root = SOURCE / "build" / "mutants" / str(number)
        self.build = self.root / "build" / "host"
        self.limit, self.golden_only = limit, golden_only
        self.environment = os.environ | {"GOLDEN_LINKED_ONLY": "1"}
        self.refresh()
        targets = ["bds-sim"] if golden_only else ["bds-sim", *self.programs(WHOLE_BOOTS)]
        if not self.make(targets):
            raise SystemExit(f"the unchanged tree does not build in {self.root}")
        self.unchanged = self.fingerprint()

    def refresh(self):
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=SOURCE, text=True,
                                capture_output=True, check=True).stdout.split("\n")
        self.root.mkdir(parents=True, exist_ok=True)
        for name in filter(None, listed):
            old, new = SOURCE / name, self.root / name
            if not old.is_file():
                continue
            new.parent.mkdir(parents=True, exist_ok=True)
            data = old.read_bytes()
            if name == "cmake/bds_targets.cmake":  # what is left out leaves something unused
                data = data.replace(b" -Werror)", b" -w)")
            if not new.exists() or new.read_bytes() != data:
                new.write_bytes(data)
                shutil.copymode(old, new)
        for name in self.gone(set(listed)):
            (self.root / name).unlink()
        disks = SOURCE / "build" / "run"
        disks.mkdir(parents=True, exist_ok=True)
        if not (self.root / "build" / "run").exists():
            (self.root / "build").mkdir(exist_ok=True)
            (self.root / "build" / "run").symlink_to(disks)
        subprocess.run(["cmake", "--preset", "host", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g0 -DNDEBUG"],
                       cwd=self.root, check=True, stdout=subprocess.DEVNULL)

    def gone(self, listed):
        for top in {name.split("/")[0] for name in listed if "/" in name}:
            for path in (self.root / top).rglob("*"):
                name = str(path.relative_to(self.root))
                if path.is_file() and name not in listed and "__pycache__" not in name:
                    yield name

    def run(self, *command, limit=None, **options):
        """What a mutant started and did not end, ends with the time limit."""
        with subprocess.Popen([*map(str, command)], cwd=self.root, stdin=subprocess.DEVNULL, text=True, errors="replace",
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=self.environment | options,
                              start_new_session=True) as process:
            try:
                out, err = process.communicate(timeout=limit or self.limit)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                raise
            return subprocess.CompletedProcess(command, process.returncode, out, err)

    def make(self, targets, **options):
        return self.run("ninja", "-C", self.build, *targets, limit=3600, **options).returncode == 0

    def programs(self, beginnings):
        """Test programs of the directories of tests/ whose names begin so."""
        return [name for path in sorted((self.root / "tests").glob("*/CMakeLists.txt"))
                if path.parent.name.startswith(tuple(beginnings))
                for name in re.findall(r"bds_test\((\w+)", path.read_text())]

    def fingerprint(self):
        return hashlib.sha256((self.build / "bds-sim").read_bytes()).hexdigest()

    def notices(self, name):
        if not self.make([name], CCACHE_DISABLE="1"):
            return True
        program = next((self.build / "tests").glob(f"*/{name}"))
        return self.run(program, "--gtest_brief=1", "--gtest_fail_fast").returncode != 0

    def tests(self, mutant):
        """(name, whether it notices) one after the other; building is not counted against the limit."""
        golden = self.run(self.root / "tests/golden/golden.py", ".", self.build / "bds-sim", "--first")
        where = re.search(r"(?m)^--- (\S+) |^(\S+/boots.txt:\d+)", golden.stdout)
        yield f"golden {(where and (where[1] or where[2])) or ''}", golden.returncode != 0
        if self.golden_only:
            return
        top = mutant.file.split("/")[0]
        if top in POLICY:
            for server in POLICY_BOOTS:
                script = self.root / "tests/policy_boots/policy_boots.py"
                yield f"policy_boots {server}", self.run(script, ".", self.build / "bds-sim", server).returncode != 0
            script = self.root / "tests/policy_boots/edges.py"
            yield "policy edges", self.run(script, ".", self.build / "bds-sim").returncode != 0
        for name in self.programs(WHOLE_BOOTS) + self.programs(UNIT_TESTS.get(top, (f"{top}_", top))):
            yield name, self.notices(name)

    def verdict(self, mutant):
        """What killed it, "" when it survived, None when it is no mutant."""
        path = self.root / mutant.file
        text = path.read_text()
        lines = text.splitlines()
        lines[mutant.line : mutant.line + len(mutant.old)] = mutant.new
        try:
            path.write_text("\n".join(lines) + "\n")
            # A declaration of the platform is in every program: what the literals notice need not be built.
            if mutant.file.startswith("platform/") and not self.golden_only:
                for name in self.programs(UNIT_TESTS["platform"]):
                    if self.make([name], CCACHE_DISABLE="1") and self.notices(name):
                        return name
            if not self.make(["bds-sim"], CCACHE_DISABLE="1") or self.fingerprint() == self.unchanged:
                return None
            return next((name for name, noticed in self.tests(mutant) if noticed), "")
        except subprocess.TimeoutExpired:
            return "the time limit"
        finally:
            path.write_text(text)


def try_all(arguments):
    copies = [Copy(number, arguments.limit, arguments.golden_only) for number in range(arguments.jobs)]
    for copy in copies:
        for name, noticed in copy.tests(Mutant("", "none/", 0, (), ())):
            if noticed:
                print(f"the unchanged tree fails: {name}")
                return None
    queue = drawn(arguments.paths or DRIVER, arguments.seed)
    results = {}

    def work(copy):
        while len(results) < arguments.sample:
            mutant = next(queue, None)
            if mutant is None:
                return
            begun = time.monotonic()
            killer = copy.verdict(mutant)
            if killer is None or len(results) >= arguments.sample:
                continue
            results[mutant] = killer
            word = f"killed by {killer}" if killer else "SURVIVED"
            print(f"{len(results):4} {mutant.text()}: {word} ({time.monotonic() - begun:.0f} s)", flush=True)

    with ThreadPoolExecutor(len(copies)) as pool:
        list(pool.map(work, copies))
    return results


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sample", type=int, default=60)
    parser.add_argument("--seed", type=int, default=7)
    parser.add_argument("--jobs", type=int, choices=(1, 2), default=1)
    parser.add_argument("--limit", type=float, default=120)
    parser.add_argument("--golden-only", action="store_true")
    parser.add_argument("paths", nargs="*")
    arguments = parser.parse_args()
    results = try_all(arguments)
    if not results:
        return 2
    survivors = [mutant for mutant, killer in results.items() if not killer]
    for mutant in survivors:
        print(f"\nsurvived: {mutant.text()}\n{mutant.diff()}")
    killed = len(results) - len(survivors)
    print(f"\n{killed} of {len(results)} mutants killed: {100 * killed / len(results):.1f} %")
    return 0


if __name__ == "__main__":
    sys.exit(main())
