"""The configurations that README.md, docs and the man pages show, against the reader: each is taken as it stands there."""

import glob
import os
import re
import subprocess
import tempfile
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MAINTCTL = os.path.join(os.environ["MAINT_BUILD"], "bin", "maintctl")
TEXTS = ["README.md"] + sorted(glob.glob("docs/*.md", root_dir=REPOSITORY))
PAGES = sorted(glob.glob("docs/man/*.[158]", root_dir=REPOSITORY))

# What a part of a configuration lacks to be one: of these lines those whose key it does not have itself.
LEAST = {
    "profiles": "profiles: {rest: {threshold: 100kbps, load-interval: 10s, shutdown: true}}",
    "default-profile": "default-profile: rest",
    "groups": "groups: {rest: {interfaces: [rest1]}}",
    "units": "units: {rest: {groups: [rest]}}",
}
# By the document and what its block has: what else it names, and the text around it has defined.
ELSEWHERE = {
    ("docs/ADAPTERS.md", "uplink-a:"): {"groups": "groups: {uplink-a: {interfaces: [uplink1]}}"},
    ("docs/man/maintd-stages.8", "uplink-a:"): {"groups": "groups: {uplink-a: {interfaces: [uplink1]}}"},
    ("docs/ADAPTERS.md", "converge:"): {
        "steer": "stages: {steer: {enter: /usr/lib/maintd/stages/frr-graceful-shutdown enter}}"},
    ("docs/HOOKS.md", "desk:"): {"units": "units: {spine-a: {groups: [rest]}}"},
}


def read(name):
    with open(os.path.join(REPOSITORY, name), encoding="utf-8") as file:
        return file.read().splitlines()


def blocksBetween(lines, begin, end):
    """(line, text) of each block, with as many empty lines in front of it that its lines have their numbers."""
    first = None
    for number, line in enumerate(lines, 1):
        if first is None and line == begin:
            first = number
        elif first is not None and line == end:
            yield first + 1, "\n" * first + "\n".join(lines[first:number - 1]) + "\n"
            first = None
    assert first is None, f"the block of line {first} has no end"


def configurations(name):
    if name in TEXTS:
        return list(blocksBetween(read(name), "```yaml", "```"))
    lines = [line.replace("\\-", "-").replace("\\(aq", "'").replace("\\e", "\\") for line in read(name)]
    return [(line, block) for line, block in blocksBetween(lines, ".nf", ".fi")
            if re.match(r"[a-z-]+:( |$)", block.lstrip("\n"), re.M)]


def completionOf(name, block):
    """What the block needs beside it; None: it is complete."""
    keys = re.findall(r"^([a-z-]+):", block, re.M)
    if "version" in keys:
        return None
    lines = dict(LEAST)
    for (document, has), more in ELSEWHERE.items():
        if document == name and has in block:
            lines.update(more)
    return "\n".join(["version: 1"] + [line for key, line in lines.items() if key not in keys]) + "\n"


def complaints(name, block):
    """What `maintctl validate` has against the block, with places in the document."""
    with tempfile.TemporaryDirectory() as folder:
        completion = completionOf(name, block)
        main = os.path.join(folder, "maintd.yaml")
        path = main
        if completion is not None:
            with open(main, "w", encoding="utf-8") as file:
                file.write(completion)
            path = os.path.join(folder, "maintd.d", "part.yaml")
            os.mkdir(os.path.dirname(path))
        with open(path, "w", encoding="utf-8") as file:
            file.write(block)
        done = subprocess.run([MAINTCTL, "validate", main], capture_output=True, text=True, check=False)
        said = done.stdout + done.stderr
        if done.returncode == 0 and said == f"{main}: no errors\n":
            return ""
        return f"status {done.returncode}: {said}".replace(path, name).replace(main, "what it lacks")


class Configurations(unittest.TestCase):
    def test_areTakenAsTheyAreShown(self):
        for name in TEXTS + PAGES:
            for line, block in configurations(name):
                with self.subTest(document=name, line=line):
                    self.assertEqual("", complaints(name, block))

    def test_areFoundWhereTheyStand(self):
        self.assertEqual(
            ["README.md", "docs/ADAPTERS.md", "docs/HOOKS.md", "docs/LINUX.md", "docs/STAGES.md",
             "docs/man/maintd-stages.8", "docs/man/maintd.yaml.5"],
            [name for name in TEXTS + PAGES if configurations(name)])

    def test_standInBlocksOfTheirOwnKind(self):
        keys = "|".join(list(LEAST) + ["stages", "hooks", "redundancy-groups", "simulated", "listen", "switch"])
        for name in TEXTS:
            fences = 0
            for number, line in enumerate(read(name), 1):
                fences += line.startswith("```")
                with self.subTest(document=name, line=number):
                    self.assertNotEqual("```yml", line)
                    self.assertFalse(fences % 2 == 0 and re.match(rf"    ({keys}):", line), "it should be in ```yaml")

    def test_areRefusedWithTheirPlaceInTheDocument(self):
        line, block = configurations("README.md")[0]
        at = block[:block.index("threshold")].count("\n") + 1
        self.assertGreater(at, line)
        self.assertRegex(complaints("README.md", block.replace("threshold", "treshold", 1)), rf"README\.md:{at}:\d+: error: ")
        line, block = configurations("docs/HOOKS.md")[0]
        self.assertIn(f"docs/HOOKS.md:{line + 1}:", complaints("docs/HOOKS.md", block.replace("completed", "done", 1)))


if __name__ == "__main__":
    unittest.main()
