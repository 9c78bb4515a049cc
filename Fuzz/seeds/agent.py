"""Writes seeds for the fuzz targets Store and Files: what an agent that was killed at some moments has left in its folders.

    MAINT_BUILD=build/dev python3 Fuzz/seeds/agent.py build/fuzz/bin/StoreSeed
"""

import os
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "Tests", "Agent"))
sys.dont_write_bytecode = True
from agentrig import Agent, configuration  # noqa: E402
from corpus import Corpus  # noqa: E402

CORPUS = Corpus("Store", "Files")
seed = CORPUS.seed

# As FilesFuzzTest.cpp numbers them.
SAMPLES, JOURNAL, TIME, SUMMARY, OFFSET, NAME = range(6)
# The seeds of samples hold the header and the beginning of the first ring.
SAMPLE_BYTES = 128 * 20


def content(*path):
    with open(os.path.join(*path), "rb") as file:
        return file.read()


def files(agent):
    for folder, _, names in os.walk(agent.folder):
        for name in names:
            path = os.path.join(folder, name)
            if not os.path.isfile(path):
                continue
            bytes_ = content(path)
            if name in ("present.0", "present.1"):
                parts = [content(folder, each) if each in names else b"" for each in ("present.0", "present.1")]
                seed("Files", "journal", bytes([JOURNAL, 1]) + b"".join(
                    len(part).to_bytes(2, "little") + part for part in parts))
            elif name == "clock" and folder.endswith("run"):
                seed("Files", "offset", bytes([OFFSET]) + bytes_)
            elif os.path.basename(folder) == "samples" and name in ("time", "clock"):
                seed("Files", "time", bytes([TIME]) + bytes_)
            elif os.path.basename(folder) == "samples":
                seed("Files", "name-" + name, bytes([NAME]) + name.encode())
                if len(bytes_) > SAMPLE_BYTES:
                    seed("Files", "samples", bytes([SAMPLES, 1, 44, 1]) + bytes_[:SAMPLE_BYTES])
            elif os.path.basename(folder) == "history":
                seed("Files", "summary-" + name.removesuffix(".json"), bytes([SUMMARY]) + bytes_[:4000])


# As StoreFuzzTest.cpp numbers them.
CHANGE_STATE, CHANGE_RUNTIME, CUT_STATE, CUT_RUNTIME, AGENT = range(2, 7)


def changes():
    """Of the records of an agent, of which the target has some itself: one is changed, one is cut off."""
    for number in range(0, 256, 16):
        seed("Store", f"changed-{number}", bytes([AGENT, CHANGE_STATE, number, number, 1]))
    seed("Store", "cut-off", bytes([AGENT, CUT_STATE, 40, 8, 0]))


# One that is done at once, one that fails, and one that the agent is killed with.
HOOKS = """\
hooks:
  page: {at: [enter, drained, completed, exit], command: /bin/true}
  desk: {at: [enter, overrun], command: /bin/false}
  slow: {at: [enter, spike], command: /bin/sleep 60}
"""


def main():
    agent = Agent(configuration("/bin/true") + HOOKS)
    try:
        def stores(name):
            """Of an agent that is killed just now; another one goes on."""
            agent.kill(9)
            seed("Store", name, subprocess.run(
                [sys.argv[1], agent.path("state"), agent.path("run")], capture_output=True, check=True).stdout)
            agent.start()

        agent.start()
        stores("fresh")
        agent.traffic("et1", 5e6, 1e6)
        agent.done("/api/v1/units/u1/enter", **{
            "reason": "new optics", "timeout": "5m", "deadline": "5s", "on-overrun": "keep", "revert-after": "2h",
            "request-key": "job-17", "with": {"ticket": "OPS-1", "job": "17"}})
        agent.until(lambda: agent.unit("u1")["stage"] == "drainwatch")
        agent.advance(11)
        stores("entering")
        agent.traffic("et1", 0)
        for _ in range(8):
            agent.advance(15)
        stores("in-maintenance")
        agent.traffic("et3", 5e6)
        agent.advance(11)
        stores("spike")
        agent.done("/api/v1/units/u1/exit", **{"with": {"ticket": "OPS-2", "job": "18"}})
        agent.until(lambda: agent.unit("u1")["stage"] == "steer" or agent.unit("u1")["state"] == "normal")
        agent.advance(5)
        stores("after")
        agent.advance(65)
        files(agent)
        changes()
        CORPUS.write()
    finally:
        agent.close()


main()
