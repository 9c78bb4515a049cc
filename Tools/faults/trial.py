"""Tries faults: builds each, runs the plug-in's tests on it, and says whether one of them noticed."""

import os
import re
import resource
import signal
import subprocess
import threading
import time

from . import plugin
from .workshop import Bench, Broken

#: Seconds after which a run counts as hanging, at least; and the multiple of its normal time.
HANGS_AFTER = 20
HANGS_TIMES = 10
MEMORY = 4 << 30
OUTPUT = 64 << 20

KILLED = "killed"
SURVIVED = "survived"
NOT_COMPILED = "does not compile"
SAME = "same code"


class Verdict:
    def __init__(self, fault, kind, by="", seconds=0.0):
        self.fault = fault
        self.kind = kind
        self.by = by  # what noticed it, or why nothing can
        self.seconds = seconds


def _limits():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_FSIZE, (OUTPUT, OUTPUT))


def runTests(program, folder, filter_, seconds):
    """Runs tests until one fails. None if all pass, else what happened."""
    environment = dict(os.environ, TMPDIR=os.path.join(folder, "tmp"))
    environment.setdefault("RC_PARAMS", "seed=1")
    environment.update(plugin.SHARES.get(os.path.basename(program), {}))
    words = [program, "--gtest_fail_fast=1", "--gtest_color=no"]
    if filter_:
        words.append(f"--gtest_filter={filter_}")
    output = os.path.join(folder, "output")
    with open(output, "wb") as file:
        process = subprocess.Popen(
            words, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=file, stderr=subprocess.STDOUT,
            preexec_fn=_limits, start_new_session=True)
        try:
            status = process.wait(seconds)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return f"{os.path.basename(program)}: hangs"
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            raise
    if status == 0:
        return None
    name = os.path.basename(program)
    test = None
    with open(output, encoding="utf-8", errors="replace") as file:
        for line in file:
            if line.startswith("[ RUN      ] "):
                test = line[len("[ RUN      ] ") :].strip()
            elif line.startswith("[  FAILED  ] "):
                break
    how = "" if status == 1 else f" ({signal.Signals(-status).name})" if status < 0 else f" (ends with {status})"
    return f"{name}: {test}{how}"


class Trials:
    """Tries many faults on several benches at a time."""

    def __init__(self, shop):
        self.shop = shop
        self.seconds = {}
        self._lock = threading.RLock()
        self._original = {}

    def checkSound(self):
        """Runs all tests without a fault, to know how long they take. Raises Broken if one fails."""
        bench = Bench(self.shop, "0")
        for program in self.shop.programs:
            path = bench.program(program, {})
            if path is None:
                raise Broken(f"{program} does not link: {bench.linkerSaid}")
            begun = time.monotonic()
            failed = runTests(path, bench.folder, "", 600)
            if failed:
                with open(os.path.join(bench.folder, "output"), encoding="utf-8", errors="replace") as file:
                    raise Broken(f"a test fails without any fault: {failed}\n{file.read()[-4000:]}")
            self.seconds[program] = time.monotonic() - begun

    def limit(self, program):
        return max(HANGS_AFTER, HANGS_TIMES * self.seconds.get(program, 0))

    def attempt(self, bench, fault, text):
        """The verdict on one fault of a file with this text."""
        begun = time.monotonic()

        def verdict(kind, by=""):
            return Verdict(fault, kind, by, time.monotonic() - begun)

        bench.clear()
        bench.write(fault.path, fault.applied(text))
        if fault.path.endswith(".h"):
            built = self._header(bench, fault)
        else:
            built = self._unit(bench, fault, text)
        if isinstance(built, str):
            return verdict(built, "compiles to the same object" if built == SAME else "")
        replaced, first = built
        linked = {}
        for program, filter_ in self._runs(fault.path):
            if program not in linked:
                linked[program] = bench.program(program, replaced, first)
            if linked[program] is None:
                return verdict(NOT_COMPILED, f"{program} does not link")
            noticed = runTests(linked[program], bench.folder, filter_, self.limit(program))
            if noticed:
                return verdict(KILLED, noticed)
        if self._sameOptimised(bench, fault, text):
            return verdict(SAME, "compiles to the same object when optimised")
        return verdict(SURVIVED)

    def _runs(self, path):
        """Tests beside the file first, then all; their programs first."""
        beside = self.shop.beside(path)
        first = [program for program, _ in beside]
        rest = [p for p in self.shop.programs if p not in first]
        rest.sort(key=lambda p: os.path.basename(p) in plugin.SHARES)
        return beside + [(program, "") for program in first + rest]

    def _unit(self, bench, fault, text):
        object_ = self.shop.pluginObject(fault.path)
        made = bench.compile(object_, "faulty.o")
        if made is None:
            return NOT_COMPILED
        if self._bytes(made) == self._originalOf(bench, fault, text, object_):
            return SAME
        return {object_: made}, None

    def _originalOf(self, bench, fault, text, object_, *options):
        """The object without the fault, compiled in the same way."""
        with self._lock:
            known = self._original.get((object_, options))
        if known is None:
            bench.write(fault.path, text)
            known = self._bytes(bench.compile(object_, "original.o", *options))
            bench.write(fault.path, fault.applied(text))
            with self._lock:
                self._original[(object_, options)] = known
        return known

    @staticmethod
    def _bytes(path):
        if path is None:
            return None
        with open(path, "rb") as file:
            return file.read()

    def _sameOptimised(self, bench, fault, text):
        """Whether the fault makes no difference to an optimising compiler, so that no test could see one."""
        if fault.path.endswith(".h"):
            return False
        object_ = self.shop.pluginObject(fault.path)
        made = bench.compile(object_, "optimised.o", "-O2")
        return made is not None and self._bytes(made) == self._originalOf(bench, fault, text, object_, "-O2")

    def _header(self, bench, fault):
        """The faulty definitions are put first in the link, where without optimisation they stand for all others.

        The body of an ordinary function is compiled once, with nothing around it. What else a header holds (initial
        values, templates) is in the objects of plug-in and rig that use it.
        """
        users = self.shop.objectsWith(fault.path)
        if not users:
            return SAME
        if fault.body and not fault.template:
            bench.write("only.cpp", f'#include "{fault.path}"\n')
            made = bench.compile(users[0], "only.o", "-fkeep-inline-functions", source="only.cpp")
            return ({}, made) if made else NOT_COMPILED
        name = fault.function.strip("()").split("::")[-1]
        if constant := re.search(r"\bconstexpr\b.*?(\w+) =", fault.was):
            users = self.shop.objectsThatSay(users, rf"\b{constant.group(1)}\b")
        elif not fault.body:
            # An initial value is in the constructors of its type.
            users = self.shop.objectsThatSay(users, rf"\b{name}::{name}\(")
        replaced = {}
        for number, object_ in enumerate(users):
            made = bench.compile(object_, f"user{number}.o")
            if made is None:
                return NOT_COMPILED
            replaced[object_] = made
        return replaced, ""

    def run(self, faults, texts, jobs, told):
        """Tries all, `told( verdict )` as each is known. Verdicts in the order of the faults."""
        verdicts = [None] * len(faults)
        waiting = list(range(len(faults)))[::-1]
        wrong = []

        def work(number):
            bench = Bench(self.shop, number + 1)
            while not wrong:
                with self._lock:
                    if not waiting:
                        return
                    index = waiting.pop()
                fault = faults[index]
                try:
                    verdict = self.attempt(bench, fault, texts[fault.path])
                except BaseException as error:  # pylint: disable=broad-except
                    wrong.append(error)
                    return
                with self._lock:
                    verdicts[index] = verdict
                    told(verdict)

        threads = [threading.Thread(target=work, args=(n,), daemon=True) for n in range(jobs)]
        for thread in threads:
            thread.start()
        for thread in threads:
            while thread.is_alive():
                thread.join(1)
        if wrong:
            raise wrong[0]
        return verdicts
