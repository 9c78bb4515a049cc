"""What the plug-in's own code is, for the tools that hold its tests to account."""

import os
import re

FOLDER = "MaintenancePlugin"
#: Paths in that folder that are tests, or the world that tests are made of.
RIGS = (r".*Test\.(cpp|h)$", r".*Rig\.(cpp|h)$", r".*/PluginStore\.h$")


def isCode(path):
    """Whether this path, from the root, is the plug-in's own code."""
    return (
        path.startswith(FOLDER + "/") and path.endswith((".cpp", ".h")) and not any(re.match(rig, path) for rig in RIGS))


def files(root):
    """The plug-in's own code, as paths from the root, in order."""
    return sorted(p for p in (f"{FOLDER}/{name}" for name in os.listdir(os.path.join(root, FOLDER))) if isCode(p))


def tests(root):
    """The test files in the plug-in's folder."""
    return sorted(
        f"{FOLDER}/{name}" for name in os.listdir(os.path.join(root, FOLDER)) if name.endswith("Test.cpp"))


#: What of the test programs that take long is run for these tools, after all others: name and environment.
SHARES = {
    "RandomStoriesTest": {
        "GTEST_FILTER": "RandomStories.agreeInTheOneThatIsAskedFor", "STORY_SEED": "1", "STORY_EVENTS": "20000"},
}
