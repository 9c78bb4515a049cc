"""A program on a terminal of its own, without a shell that would put the terminal right behind it.

    terminal.py WHAT UNTIL PROGRAM ARGUMENT...

Starts the program, waits until it has shown UNTIL, lets WHAT happen to it, and says what is wrong with the terminal then:

    interrupted   Ctrl-C; the program ends with 130
    terminated    SIGTERM, which ends it
    stopped       Ctrl-Z; the terminal is looked at while the program is stopped, and when it has been continued and
                  interrupted
"""

import fcntl
import os
import select
import signal
import struct
import sys
import termios
import time

PATIENCE = 60

# What is switched, by the bytes that do so: as a shell expects it, and as a picture does.
SWITCHES = {
    "the cursor is hidden": (b"\033[?25h", b"\033[?25l"),
    "lines are not wrapped": (b"\033[?7h", b"\033[?7l"),
    "the other screen is shown": (b"\033[?1049l", b"\033[?1049h"),
}


class Terminal:
    def __init__(self, command):
        # The side of the program stays open here, so that its modes are there after it.
        self.descriptor, theirs = os.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
        self.before = termios.tcgetattr(theirs)
        self.process = os.fork()
        if self.process == 0:
            os.setsid()
            fcntl.ioctl(theirs, termios.TIOCSCTTY, 0)
            for number in (0, 1, 2):
                os.dup2(theirs, number)
            os.execvp(command[0], command)
        self.shown = b""
        self.status = None

    def read(self, seconds):
        ready, _, _ = select.select([self.descriptor], [], [], seconds)
        if not ready:
            return False
        self.shown += os.read(self.descriptor, 65536)
        return True

    def wait(self, what, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end:
                sys.exit(f"it should have {what} in time; it has shown {self.shown!r}")
            self.read(0.05)

    def ended(self, options=0):
        done, status = os.waitpid(self.process, os.WNOHANG | options)
        if done:
            self.status = status
        return bool(done)

    def press(self, key):
        os.write(self.descriptor, key)

    def is_drawn_on(self):
        modes = termios.tcgetattr(self.descriptor)
        hidden, shown = self.shown.rfind(b"\033[?25l"), self.shown.rfind(b"\033[?25h")
        return hidden > shown and not modes[3] & termios.ECHO

    def complain_unless_given_back(self, when):
        while self.read(0.2):
            pass
        if termios.tcgetattr(self.descriptor) != self.before:
            sys.exit(f"{when} the modes of the terminal are not those of before")
        for wrong, (usual, drawing) in SWITCHES.items():
            if self.shown.rfind(drawing) > self.shown.rfind(usual):
                sys.exit(f"{when} {wrong}")


def main():
    what, until, *command = sys.argv[1:]
    terminal = Terminal(command)
    terminal.wait(f"shown {until}", lambda: until.encode() in terminal.shown and terminal.is_drawn_on())
    if what == "stopped":
        terminal.press(b"\x1a")
        terminal.wait("stopped", lambda: terminal.ended(os.WUNTRACED))
        if not os.WIFSTOPPED(terminal.status):
            sys.exit(f"it should have stopped, not ended with {terminal.status:#x}")
        terminal.complain_unless_given_back("while it is stopped")
        terminal.shown = b""
        os.kill(terminal.process, signal.SIGCONT)
        terminal.wait(f"shown {until} again", lambda: until.encode() in terminal.shown and terminal.is_drawn_on())
    if what == "terminated":
        os.kill(terminal.process, signal.SIGTERM)
    else:
        terminal.press(b"\x03")
    terminal.wait("ended", terminal.ended)
    expected = signal.SIGTERM if what == "terminated" else 130 << 8
    if terminal.status != expected:
        sys.exit(f"it should have ended with {expected:#x}, not {terminal.status:#x}")
    terminal.complain_unless_given_back("at its end")
    print("given back")


main()
