"""For the *Test.py files beside the stage commands: runs one of them as the agent would, over programs that only seem
to be vtysh or ip."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

STAGES = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, STAGES)


class Run:
    """How a run has ended."""

    def __init__(self, done):
        self.status = done.returncode
        lines = done.stdout.splitlines()
        self.records = [json.loads(line) for line in lines if line.startswith("{")]
        self.log = [line for line in lines if not line.startswith("{")]
        self.errors = done.stderr.splitlines()


class StageTest(unittest.TestCase):
    """A test in an empty folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def program(self, name, text):
        """Makes a Python program; it finds its files in `folder` and its state, kept from run to run, in `state`."""
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(f"#!/usr/bin/python3 -BI\nimport json, sys\nfolder = {self.folder!r}\n"
                       "state = json.load(open(folder + '/state'))\n"
                       "def keep(): json.dump(state, open(folder + '/state', 'w'))\n" + text)
        os.chmod(self.path(name), 0o755)
        return self.path(name)

    def keep(self, state):
        with open(self.path("state"), "w", encoding="utf-8") as file:
            json.dump(state, file)

    @property
    def state(self):
        with open(self.path("state"), encoding="utf-8") as file:
            return json.load(file)

    def start(self, *words, kept=None, handOver=True):
        """Starts a stage command by its name. kept: the descriptor that tells that a record is kept, and whether the
        command is really given that."""
        environment = {"PATH": os.environ["PATH"], "LANG": "C.UTF-8"}
        if kept is not None:
            environment["MAINTD_KEPT_FD"] = str(kept)
        return subprocess.Popen([os.path.join(STAGES, words[0]), *words[1:]], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8", cwd="/",
                                env=environment, pass_fds=[kept] if kept is not None and handOver else [])

    def run_(self, *words, told=None, given=None, **kept):
        """Runs it to its end. told: what the agent says; given: standard input, if it is anything else."""
        process = self.start(*words, **kept)
        output = process.communicate(json.dumps(told or {}) if given is None else given, timeout=60)
        return Run(subprocess.CompletedProcess(words, process.returncode, *output))

    def passes(self, run):
        self.assertEqual(run.status, 0, run.errors)

    def fails(self, run, text):
        self.assertEqual(run.status, 1)
        self.assertIn(text, run.errors[-1])
