"""The man pages against what the programs say of themselves: every option, verb and key, in both directions."""

import glob
import os
import re
import subprocess
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PAGES = os.path.join(REPOSITORY, "docs", "man")
STAGES = os.path.join(REPOSITORY, "Stages")
BUILD = os.environ["MAINT_BUILD"]
# Words of the command line that are of every verb.
OF_ALL = {"--help", "-h"}
OPTION = re.compile(r"(?<![\w-])(--[a-z][a-z-]*|-[A-Za-z])(?![\w-])")


def page(name):
    with open(os.path.join(PAGES, name), encoding="utf-8") as file:
        return file.read().replace("\\-", "-")


def sections(text, macro):
    """The text behind each heading of this level, by heading, as far as the next one of it or a higher one."""
    result = {}
    name = None
    for line in text.splitlines():
        if line.startswith(macro + " "):
            name = line[len(macro) + 1:].strip('"')
            result[name] = ""
        elif macro == ".SS" and line.startswith(".SH"):
            name = None
        elif name is not None:
            result[name] += line + "\n"
    return result


def taggedOptions(text):
    """The options that have a paragraph of their own."""
    lines = text.splitlines()
    return {option for tag, line in zip(lines, lines[1:]) if tag == ".TP" for option in OPTION.findall(line)}


def helpOf(*command):
    done = subprocess.run(command + ("--help",), capture_output=True, text=True, check=True)
    return done.stdout


def optionsOf(helpText):
    """The options in the list of a help text: what stands first in a line of it."""
    result = set()
    for line in helpText.splitlines():
        listed = re.match(r"\s+(-[^\s].*?)(\s{2,}|$)", line)
        if listed:
            result.update(OPTION.findall(listed.group(1).replace(",", " ").split(" Needs:")[0].split(" Excludes:")[0]))
    return result


def verbsOf(helpText):
    listed = helpText.partition("\nVerbs:\n")[2] or helpText.partition("\nVERBs:\n")[2]
    return re.findall(r"^  ([a-z]+)\b", listed.partition("\n\n")[0], re.M)


def program(name):
    return os.path.join(BUILD, "bin", name)


# By what the reader calls a record: the key below which it stands.
OF_KEY = {
    '\\"listen\\"': "listen", "a stage": "stages", "a profile": "profiles", "a group": "groups", "a unit": "units",
    "a redundancy group": "redundancy-groups", "a hook": "hooks", '\\"simulated\\"': "simulated", "a port": "simulated"}
IN_THE_EXAMPLE_ONLY = {"a traffic segment", "a VLAN", "a route"}


def keysOfTheConfiguration():
    """The keys that the reader takes, by what it calls the record that they are in."""
    result = {}
    for path in glob.glob(os.path.join(REPOSITORY, "Config", "*Reader.cpp")):
        with open(path, encoding="utf-8") as file:
            code = file.read()
        lists = {name: body for name, body in re.findall(r"const std::vector< std::string > (\w+)(\{[^}]*\});", code)}
        calls = re.findall(r'isRecord\(\s*\w+,\s*"((?:[^"\\]|\\.)*)",\s*(\{[^}]*\}|\w+)', code)
        assert len(calls) == code.count("isRecord("), path + " has a record that is read otherwise"
        for what, keys in calls:
            result.setdefault(what, set()).update(re.findall(r'"([^"]+)"', lists.get(keys, keys)))
    return result


class Man(unittest.TestCase):
    maxDiff = None

    def test_isSilent(self):
        for path in glob.glob(os.path.join(PAGES, "*.[158]")):
            with self.subTest(page=os.path.basename(path)):
                done = subprocess.run(
                    ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", path], capture_output=True, text=True,
                    env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"}, check=True)
                self.assertEqual("", done.stderr)
                self.assertIn("SEE", done.stdout)

    def test_joinsNoSentences(self):
        """These macros put their words side by side, without blanks; a sentence has more than a handful."""
        for path in sorted(glob.glob(os.path.join(PAGES, "*.[158]"))):
            with open(path, encoding="utf-8") as file:
                for number, line in enumerate(file, 1):
                    if joined := re.match(r"\.(?:BR|RB|IR|RI|BI|IB) (.*)", line):
                        words = re.findall(r'"[^"]*"|\S+', joined[1])
                        self.assertLessEqual(len(words), 5, f"{os.path.basename(path)}:{number}: {line}")

    def test_ofTheAgentHasItsOptions(self):
        self.assertEqual(
            optionsOf(helpOf(program("maintd"))), taggedOptions(sections(page("maintd.8"), ".SH")["OPTIONS"]))

    def test_ofTheCommandHasItsVerbs(self):
        described = [" ".join(word for word in heading.split() if word.islower())
                     for heading in sections(page("maintctl.1"), ".SS")]
        there = []
        for verb in verbsOf(helpOf(program("maintctl"))):
            below = verbsOf(helpOf(program("maintctl"), verb))
            there += [verb + " " + word for word in below] or [verb]
        self.assertIn("enter", there)
        self.assertIn("show unit", there)
        self.assertEqual(sorted(there), sorted(described))

    def test_ofTheCommandHasTheOptionsOfEachVerb(self):
        text = page("maintctl.1")
        self.assertEqual(
            optionsOf(helpOf(program("maintctl"))), taggedOptions(sections(text, ".SH")["OPTIONS"]))
        for heading, section in sections(text, ".SS").items():
            verb = [word for word in heading.split() if word.islower()]
            with self.subTest(verb=heading):
                self.assertEqual(optionsOf(helpOf(program("maintctl"), *verb)) - OF_ALL, taggedOptions(section))

    def test_ofTheCommandHasTheArgumentsOfEachVerb(self):
        for heading in sections(page("maintctl.1"), ".SS"):
            words = heading.split()
            verb = [word for word in words if word.islower()]
            usage = re.search(r"Usage: (.*)", helpOf(program("maintctl"), *verb)).group(1)
            with self.subTest(verb=heading):
                self.assertEqual(usage.split(" [OPTIONS]")[1].split(), [word for word in words if not word.islower()])

    def test_ofTheCommandHasItsExitStatuses(self):
        helped = helpOf(program("maintctl")).partition("Exit status:")[2]
        statuses = re.findall(r"^  (\d+)  |   +(\d+)  ", helped.partition("\n\n")[0], re.M)
        described = re.findall(r"^\.B (\d+)$", sections(page("maintctl.1"), ".SH")["EXIT STATUS"], re.M)
        self.assertEqual(sorted(a or b for a, b in statuses), sorted(described))

    def test_ofTheStagesHasTheOptionsOfEach(self):
        described = sections(page("maintd-stages.8"), ".SS")
        there = [name for name in os.listdir(STAGES) if os.access(os.path.join(STAGES, name), os.X_OK)
                 and not name.endswith((".sh", ".py"))]
        self.assertEqual(sorted(there), sorted(heading.split()[0] for heading in described))
        for heading, section in described.items():
            with self.subTest(stage=heading):
                self.assertEqual(
                    optionsOf(helpOf(os.path.join(STAGES, heading.split()[0]))) - OF_ALL, taggedOptions(section))

    def test_ofTheConfigurationHasItsKeys(self):
        keys = keysOfTheConfiguration()
        lines = page("maintd.yaml.5").partition(".SH KEYS")[2].partition(".SH INTERFACES")[0].split("\n.TP\n")[1:]
        described = {}
        for paragraph in lines:
            tag, _, text = paragraph.partition("\n")
            bold = set(re.findall(r"[a-z][a-z-]+", "\n".join(line for line in text.splitlines() if line.startswith(".B"))))
            described.update({key: bold for key in re.findall(r"[a-z][a-z-]+", tag)})
        self.assertEqual(keys.pop("the configuration"), set(described))
        for record, names in keys.items():
            with self.subTest(record=record):
                if record not in IN_THE_EXAMPLE_ONLY:
                    self.assertEqual(set(), names - described[OF_KEY[record]])

    def test_exampleOfTheConfigurationHasItsKeys(self):
        text = ""
        for name in ("maintd.yaml", "simulated.yaml"):
            with open(os.path.join(REPOSITORY, "Config", "examples", name), encoding="utf-8") as file:
                text += re.sub(r"(^|\s)#.*", "", file.read())
        there = set(re.findall(r"(?:^|[\s{])([a-z-]+):(?=\s|$)", text))
        for record, names in keysOfTheConfiguration().items():
            with self.subTest(record=record):
                self.assertEqual(set(), names - there)


if __name__ == "__main__":
    unittest.main()
