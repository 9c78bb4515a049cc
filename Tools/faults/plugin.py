"""What the plug-in's own code is, for the tools that hold its tests to account."""

import os
import re

FOLDER = "MaintenancePlugin"
_OBJECTS = "DrainWatchPluginObjects"

#: What of the test programs that take long is run for these tools, after all others: name and environment.
SHARES = {
    "RandomStoriesTest": {
        "GTEST_FILTER": "RandomStories.agreeInTheOneThatIsAskedFor", "STORY_SEED": "1", "STORY_EVENTS": "20000"},
}


def files(root):
    """The sources of the plug-in's library and the headers of its folder that they include, as paths from the root, in
    order. The folder holds tests as well, and what tests are made of."""
    with open(os.path.join(root, FOLDER, "CMakeLists.txt"), encoding="utf-8") as file:
        declared = re.search(rf"\(\s*{_OBJECTS}\s+SOURCES(.*?)(?:LINK|\))", file.read(), re.S)
    found = {f"{FOLDER}/{name}" for name in declared.group(1).split()}
    waiting = sorted(found)
    while waiting:
        with open(os.path.join(root, waiting.pop()), encoding="utf-8") as file:
            included = re.findall(rf'^\s*#\s*include\s+"({FOLDER}/[^"]+)"', file.read(), re.M)
        waiting += set(included) - found
        found.update(included)
    return sorted(found)


def tests(root):
    """The test files in the plug-in's folder."""
    return sorted(
        f"{FOLDER}/{name}" for name in os.listdir(os.path.join(root, FOLDER)) if name.endswith("Test.cpp"))
