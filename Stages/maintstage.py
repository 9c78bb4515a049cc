"""What the stage commands beside this file share: how the agent calls them, and how they answer.

A stage command runs as `NAME enter|exit [OPTIONS]`, as a child of the agent, which tells it of the unit with one JSON
object on standard input. Lines that it prints go to the log, but for JSON objects: the last of these is kept, over
restarts of the agent too, and is handed to the next run in `recorded`; it is forgotten when the unit is normal again.
The command has done its work when it ends with 0. Anything else is a failure, told with the last line of its standard
error. It may be killed at any time and run again, so it always begins by looking at what is there.

Nothing is changed before what it takes to undo it is kept: the agent acknowledges each object with a byte on the
descriptor that MAINTD_KEPT_FD names. So whoever finds nothing in `recorded` knows that nothing has been changed.
"""

import argparse
import json
import os
import subprocess
import sys
import time

#: Bytes of a record that the agent keeps, at most.
LARGEST = 256 * 1024
#: Seconds after which a program that we have started is taken to hang.
PROGRAM_LIMIT = 10
#: Seconds between two looks at what we wait for.
PAUSE = 0.2


class Failure(Exception):
    """Ends the command; its text is for the operator."""


def parser(description):
    """A parser of the command line that knows what all stage commands take: `enter` or `exit`."""
    made = argparse.ArgumentParser(description=description, allow_abbrev=False,
                                   formatter_class=argparse.RawDescriptionHelpFormatter)
    made.add_argument("operation", choices=("enter", "exit"), help="what the unit is doing")
    return made


def seconds(text):
    """A time on the command line: seconds, at least 0, with a fraction or without."""
    value = float(text)
    if not 0 <= value <= 1e6:
        raise ValueError
    return value


def main(arguments, enter, leave):
    """Runs one of these two functions with the Call; gives the exit status."""
    try:
        call = Call(arguments, sys.stdin)
        (enter if call.operation == "enter" else leave)(call)
        return 0
    except Failure as failure:
        warn(failure)
        return 1
    except KeyboardInterrupt:
        return 130


def say(text):
    """A line for the log."""
    print(text, flush=True)


def warn(text):
    """A line for the log that the operator should see."""
    print(text, file=sys.stderr, flush=True)


class Call:
    """What this run is for.

    options     the command line; operation: "enter" or "exit"
    told        what the agent says of the unit, as it stands; {} when nobody says anything (a run by hand)
    interfaces  names of the unit's interfaces
    recorded    what enter has recorded; None: it has not changed anything
    rerun       this was begun before, and how it ended is not known
    deadline    on the monotonic clock: when what was done has to be seen; from the option --timeout, if there is one
    """

    def __init__(self, options, source):
        self.options = options
        self.operation = options.operation
        self.told = _read(source)
        self.interfaces = _names(self.told)
        self.recorded = self.told.get("recorded")
        if not isinstance(self.recorded, (dict, type(None))):
            raise Failure('standard input: "recorded" should be an object or null')
        self.rerun = self.told.get("rerun") is True
        self.deadline = time.monotonic() + getattr(options, "timeout", 0)

    def record(self, what):
        """Hands in what it will take to undo what is about to be done. Comes back when that is kept."""
        text = json.dumps(what, separators=(",", ":"), sort_keys=True)
        if len(text) > LARGEST:
            raise Failure(f"what to undo takes {len(text)} bytes, and no more than {LARGEST} are kept: nothing was changed")
        say(text)
        descriptor = os.environ.get("MAINTD_KEPT_FD")
        if descriptor is None:
            return
        try:
            kept = os.read(int(descriptor), 1)
        except (ValueError, OSError) as error:
            raise Failure(f"cannot read descriptor {descriptor} (MAINTD_KEPT_FD): {error}") from error
        if not kept:
            raise Failure("the agent has gone before it kept what to undo: nothing was changed")

    def left(self):
        """Seconds to the deadline, negative after it."""
        return self.deadline - time.monotonic()

    def until(self, missing):
        """Waits until a function gives nothing; if that is not so by the deadline, what it gives is the failure."""
        while True:
            late = self.left() <= 0
            text = missing()
            if not text:
                return
            if late:
                raise Failure(text)
            time.sleep(PAUSE)


def boot():
    """The id of this boot of the machine; empty: the kernel does not tell."""
    try:
        with open("/proc/sys/kernel/random/boot_id", encoding="ascii") as file:
            return file.read().strip()
    except OSError:
        return ""


def run(words, given=None, limit=PROGRAM_LIMIT):
    """Runs a program with this text as its standard input: its status and what it has printed, as text."""
    name = words[0]
    try:
        return subprocess.run(words, input=given, stdin=None if given is not None else subprocess.DEVNULL,
                              capture_output=True, encoding="utf-8", errors="replace", timeout=limit,
                              check=False)
    except OSError as error:
        raise Failure(f"cannot run {name}: {error.strerror}") from error
    except subprocess.TimeoutExpired as error:
        raise Failure(f"{name} has not ended after {limit} s") from error


def readJson(text, what):
    """The value of a JSON text; what: who has printed it."""
    try:
        return json.loads(text)
    except ValueError as error:
        raise Failure(f"{what} has printed something else than JSON: {error}") from error


def _read(source):
    if source is None or source.isatty():
        return {}
    try:
        text = source.read()
    except (OSError, ValueError) as error:
        raise Failure(f"standard input: {error}") from error
    if not text.strip():
        return {}
    told = readJson(text, "standard input: whoever has started this")
    if not isinstance(told, dict):
        raise Failure("standard input: should be one JSON object")
    return told


def _names(told):
    try:
        names = [interface["name"] for interface in told.get("interfaces", [])]
    except (TypeError, KeyError):
        names = [None]
    if not all(isinstance(name, str) for name in names):
        raise Failure('standard input: "interfaces" should be a list of objects with a "name"')
    return names
