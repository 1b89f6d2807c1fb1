#!/usr/bin/env python3
"""Runs bds-sim on a pseudo-terminal, as a person does: on_a_terminal.py BDS_SIM.

Single keys reach the console without a line's end, colours come and go with NO_COLOR, the terminal's mode is the same
after every way to end, and nobody left to type is exit status 4. Exit status 1 with a line for each fault."""

import os
import pty
import select
import signal
import subprocess
import sys
import tempfile
import termios
import time

MENU = """name = "menu"
[bmc]
files = false
[front_end]
kind = "menu"
[[root_bridge]]
"""
PROMPT = b"escape: leave"
TIMEOUT = 60


class Session:
    """A program on a terminal of its own."""

    def __init__(self, command, **environment):
        self.master, self.terminal = pty.openpty()
        self.before = termios.tcgetattr(self.terminal)
        self.output = b""
        self.program = subprocess.Popen(
            command, stdin=self.terminal, stdout=self.terminal, stderr=self.terminal, env={**os.environ, **environment},
            preexec_fn=self.take_terminal, close_fds=True)

    def take_terminal(self):
        os.setsid()
        os.close(os.open(os.ttyname(self.terminal), os.O_RDWR))  # becomes the controlling terminal: Ctrl-C reaches it

    def read_until(self, part):
        """False when the program ends or says nothing more before the text comes."""
        end = time.monotonic() + TIMEOUT
        while part not in self.output and time.monotonic() < end:
            if not select.select([self.master], [], [], 0.05)[0]:
                if self.program.poll() is not None:
                    break
                continue
            self.output += os.read(self.master, 65536)
        return part in self.output

    def type(self, keys):
        os.write(self.master, keys)

    def raw(self):
        return not termios.tcgetattr(self.terminal)[3] & (termios.ICANON | termios.ECHO)

    def end(self):
        """The exit status; a signal's number negative."""
        self.read_until(b"\0never\0")
        try:
            return self.program.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            self.program.kill()
            return "no end"

    def close(self):
        os.close(self.master)
        os.close(self.terminal)


# Name, environment, what to do at the menu, exit status (a signal: negative), colours.
CASES = [
    ("escape", {}, lambda s: s.type(b"\x1b"), 0, True),
    ("no colours", {"NO_COLOR": "1"}, lambda s: s.type(b"\x1b"), 0, False),
    ("a key without a line's end", {}, lambda s: s.type(b"1"), 0, True),
    ("Ctrl-C", {}, lambda s: s.type(b"\x03"), -signal.SIGINT, None),
    ("a signal", {}, lambda s: s.program.terminate(), -signal.SIGTERM, None),
]


def faults_on_terminal(sim, server):
    for name, environment, act, status, colours in CASES:
        session = Session([sim, "boot", server], **{"NO_COLOR": "", **environment})
        try:
            if not session.read_until(PROMPT):
                yield f"{name}: no menu: {session.output!r}"
            if not session.raw():
                yield f"{name}: the terminal waits for whole lines"
            act(session)
            ended = session.end()
        finally:
            session.program.kill()
        if ended != status:
            yield f"{name}: ended with {ended}, not {status}: {session.output!r}"
        if colours is not None and (b"\x1b[" in session.output) != colours:
            yield f"{name}: colours are wrong: {session.output!r}"
        if termios.tcgetattr(session.terminal) != session.before:
            yield f"{name}: the terminal's mode was not restored"
        session.close()


def main(sim):
    with tempfile.TemporaryDirectory() as folder:
        server = os.path.join(folder, "menu.toml")
        with open(server, "w", encoding="utf-8") as file:
            file.write(MENU)
        faults = list(faults_on_terminal(sim, server))
        alone = subprocess.run([sim, "boot", server, "--quiet"], stdin=subprocess.DEVNULL, capture_output=True,
                               timeout=TIMEOUT, check=False)
        if alone.returncode != 4 or b"waits forever" not in alone.stdout:
            faults.append(f"nobody types: ended with {alone.returncode}: {alone.stdout!r}")
    print("\n".join(faults), end="\n" if faults else "", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
