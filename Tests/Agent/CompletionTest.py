#!/usr/bin/env python3
"""Completion of maintctl in a real bash, without a terminal: what COMPREPLY is at the end of a command line."""

import os
import re
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from agentrig import REPOSITORY, Agent, configuration  # noqa: E402

FILE = os.path.join(REPOSITORY, "Maintctl", "completion", "maintctl")
# What bash does: looks the function up, sets the words, calls it.
SCRIPT = """
. "$FILE"
[[ $(complete -p maintctl) =~ -F\\ ([^ ]+) ]] || exit 9
COMP_WORDS=( maintctl "$@" )
COMP_CWORD=$#
COMPREPLY=()
"${BASH_REMATCH[1]}" maintctl "${!#}" ""
printf '%s\\n' "${COMPREPLY[@]}"
"""
BUILD = os.environ["MAINT_BUILD"]


def run(*words):
    """`words`: as bash separates them, also at "="."""
    return subprocess.run(
        ["bash", "--norc", "-c", SCRIPT, "bash", *words], capture_output=True, text=True, timeout=60, check=True,
        env={**os.environ, "FILE": FILE, "PATH": os.path.join(BUILD, "bin") + ":" + os.environ["PATH"]},
        stdin=subprocess.DEVNULL)


def completed(*words):
    done = run(*words)
    assert done.stderr == "", done.stderr
    return done.stdout.split()


def helpOf(*words):
    return subprocess.run([os.path.join(BUILD, "bin", "maintctl"), *words, "--help"], capture_output=True, text=True,
                          check=True).stdout


def verbsOf(*words):
    return re.findall(r"^  ([a-z]+)\b", helpOf(*words).partition("\nVerbs:\n")[2].partition("\n\n")[0], re.M)


class Completion(unittest.TestCase):
    maxDiff = None

    def test_knowsAllVerbsAndTheirOptions(self):
        verbs = verbsOf()
        self.assertIn("enter", verbs)
        self.assertEqual(verbs, completed(""))
        for verb in verbs:
            below = [[verb, word] for word in verbsOf(verb)] or [[verb]]
            for path in below:
                with self.subTest(verb=path):
                    listed = set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", helpOf(*path), re.M))
                    self.assertEqual(listed | {"--json", "--socket", "--no-progress"}, set(completed(*path, "--")))

    def test_goesByWhatIsThere(self):
        for words, expected in ((["en"], ["enter"]), (["show", "i"], ["interfaces", "interface"]),
                                (["-j", "show", "unit"], ["units", "unit"]),
                                (["wait", "u1", "--for", "=", "m"], ["maintenance"]),
                                (["wait", "u1", "--for", "="], ["maintenance", "normal"]),
                                (["wait", "u1", "--for", "n"], ["normal"]),
                                (["enter", "u1", "--reason", "ex"], []),
                                (["enter", "u1", "--reason", "x", "--ti"], ["--timeout"]),
                                (["simulated", "link", "et1", ""], ["up", "down"]), (["nothing", "x"], [])):
            with self.subTest(words=words):
                self.assertEqual(expected, completed(*words))

    def test_takesNamesFromTheAgent(self):
        agent = Agent("")
        self.addCleanup(agent.close)
        agent.configure(configuration(agent.command("steer", "exit 0")))
        agent.start()
        agent.done("/api/v1/units/u2/enter")
        there = ["--socket", agent.path("run/control.sock")]
        for words, expected in ((["enter", ""], ["u1", "u2"]), (["enter", "u1", ""], ["u2"]),
                                (["exit", "u1", "u2", ""], []),
                                (["show", "unit", "u"], ["u1", "u2"]), (["show", "unit", "u1", ""], []),
                                (["show", "interface", "e"], ["et1", "et2"]), (["release", "vl"], ["vlan10"]),
                                (["history", ""], ["u1", "u2"]), (["report", ""], ["1"]), (["operation", ""], ["1"]),
                                (["operations", "--state", "r"], ["running"]),
                                (["plan", "--session", "192.0.2.1", "u1"], ["u1"])):
            with self.subTest(words=words):
                self.assertEqual(expected, completed(*there, *words))
        self.assertEqual(["u1", "u2"], completed("--socket", "=", there[1], "explain", ""))
        self.assertEqual(["u1", "u2"], completed("explain", *there, ""))
        levels = completed(*there, "trace", "")
        self.assertTrue(levels)
        self.assertTrue(all(re.fullmatch(r"\w+=", level) for level in levels), levels)

    def test_isQuickAndSilentWithoutAnAgent(self):
        agent = Agent("")
        self.addCleanup(agent.close)
        hanging = agent.path("hanging.sock")
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(hanging)
            listener.listen()
            for path in (agent.path("none.sock"), hanging):
                begun = time.monotonic()
                self.assertEqual([], completed("--socket", path, "enter", ""))
                # Most of it is the time that a machine under load takes to start programs.
                self.assertLess(time.monotonic() - begun, 15)

    def test_readsNamesNeverAsWordsOfTheShell(self):
        agent = Agent("")
        self.addCleanup(agent.close)
        fake = agent.command("maintctl", """
case "$*" in
*--help) exec "$REAL" "$@" ;;
esac
echo NAME
echo '$(touch${IFS}evil)'
echo '`touch${IFS}evil`;*'
""")
        done = subprocess.run(
            ["bash", "--norc", "-c", SCRIPT, "bash", "enter", ""], capture_output=True, text=True, timeout=60,
            check=True, cwd=agent.folder, stdin=subprocess.DEVNULL,
            env={**os.environ, "FILE": FILE, "PATH": os.path.dirname(fake) + ":" + os.environ["PATH"],
                 "REAL": os.path.join(BUILD, "bin", "maintctl")})
        self.assertFalse(os.path.exists(agent.path("evil")))
        self.assertEqual(["\\$\\(touch\\$\\{IFS\\}evil\\)", "\\`touch\\$\\{IFS\\}evil\\`\\;\\*"], done.stdout.split())

    def test_isInstalledWhereBashLooks(self):
        with open(os.path.join(REPOSITORY, "debian", "maintctl.install"), encoding="utf-8") as file:
            self.assertIn("usr/share/bash-completion/completions/maintctl", file.read().split())
        with open(os.path.join(REPOSITORY, "Maintctl", "CMakeLists.txt"), encoding="utf-8") as file:
            self.assertIn("bash-completion/completions", file.read())


if __name__ == "__main__":
    unittest.main()
